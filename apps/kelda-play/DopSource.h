#pragma once

#include <memory>
#include <vector>

#include "DsdReader.h"
#include "Source.h"

namespace keldaPlay {

/// The one-bit samples of a file as frames of DSD over PCM. All frames have the same marker: what
/// alternates to the device is the DopFilter's doing. What a file lacks of its last frame is idle.
class DopSource : public Source
{
public:
    explicit DopSource(std::unique_ptr<DsdReader> reader);

    [[nodiscard]] const std::string& name() const override { return m_reader->path(); }
    [[nodiscard]] unsigned int rate() const override;
    [[nodiscard]] unsigned int numChannels() const override;
    [[nodiscard]] audioUtils::PcmFormat format() const override { return audioUtils::S24LE; }
    [[nodiscard]] std::optional<audioUtils::DsdAudioInfo> dsd() const override;
    /// Channels that the layout lacks are dropped, those that it has beyond the file's are idle.
    [[nodiscard]] std::size_t read(const FrameLayout& layout,
                                   std::span<unsigned char> out) override;
    void rewind() override { m_position = 0; }

private:
    void readBytes(std::uint64_t numFrames);

    std::unique_ptr<DsdReader> m_reader;
    std::uint64_t m_position = 0;       // frame
    std::vector<unsigned char> m_bytes; // two of each channel for each frame
};

} // namespace keldaPlay
