#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <sndfile.h>

#include "Source.h"

namespace keldaPlay {

struct CloseFile
{
    void operator()(SNDFILE* file) const { sf_close(file); }
};

/// Closes its file by itself.
using FileHandle = std::unique_ptr<SNDFILE, CloseFile>;

/// A sound file, decoded into interleaved frames of any sample format.
class AudioFile : public Source
{
public:
    /// Throws std::runtime_error with the path and the reason when the file can't be read.
    explicit AudioFile(const std::string& path);

    [[nodiscard]] const std::string& name() const override { return m_path; }
    [[nodiscard]] unsigned int rate() const override
    {
        return static_cast<unsigned int>(m_info.samplerate);
    }
    [[nodiscard]] unsigned int numChannels() const override
    {
        return static_cast<unsigned int>(m_info.channels);
    }
    [[nodiscard]] audioUtils::PcmFormat format() const override;
    [[nodiscard]] std::optional<std::uint64_t> numFrames() const override;
    [[nodiscard]] std::size_t read(const FrameLayout& layout,
                                   std::span<unsigned char> out) override;
    void rewind() override;

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
