#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <sndfile.h>

#include "SampleLayout.h"

namespace keldaPlay {

struct CloseFile
{
    void operator()(SNDFILE* file) const { sf_close(file); }
};

/// Closes its file by itself.
using FileHandle = std::unique_ptr<SNDFILE, CloseFile>;

/// A sound file, decoded into interleaved frames of any sample format.
class AudioFile
{
public:
    /// Throws std::runtime_error with the path and the reason when the file can't be read.
    explicit AudioFile(const std::string& path);

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] unsigned int rate() const { return static_cast<unsigned int>(m_info.samplerate); }
    [[nodiscard]] unsigned int numChannels() const
    {
        return static_cast<unsigned int>(m_info.channels);
    }
    /// The format that its samples have, or come nearest to.
    [[nodiscard]] audioUtils::PcmFormat format() const;

    /// Decodes as many whole frames as `out` holds, or the file still has. The frames may have
    /// another number of channels than the file (see sampleFor()).
    ///
    /// Throws std::runtime_error when the file is damaged.
    /// @return frames; 0 at the end
    [[nodiscard]] std::size_t read(const FrameLayout& layout, std::span<unsigned char> out);

    void rewind();

private:
    template<typename Sum, typename Sample, typename ReadFrames, typename Pack>
    std::size_t readAs(std::vector<Sample>& samples, const FrameLayout& layout,
                       std::span<unsigned char> out, ReadFrames readFrames, Pack pack);

    std::string m_path;
    SF_INFO m_info{};
    FileHandle m_file;
    std::vector<int> m_integers;
    std::vector<float> m_floats;
    std::vector<double> m_doubles;
};

} // namespace keldaPlay
