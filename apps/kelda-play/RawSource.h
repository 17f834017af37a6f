#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include <unistd.h>

#include "RawFormat.h"
#include "Source.h"
#include "StopEvent.h"

namespace keldaPlay {

/// PCM without a header out of a pipe, as it comes.
class RawSource : public Source
{
public:
    /// Throws std::runtime_error when nothing can come out of it.
    /// @param stop ends a read() that waits, as if the pipe had been closed
    /// @param fd   stays the caller's
    RawSource(const RawFormat& raw, const StopEvent& stop, int fd = STDIN_FILENO);

    [[nodiscard]] const std::string& name() const override { return m_name; }
    [[nodiscard]] unsigned int rate() const override { return m_raw.rate; }
    [[nodiscard]] unsigned int numChannels() const override { return m_raw.numChannels; }
    [[nodiscard]] audioUtils::PcmFormat format() const override { return m_raw.format; }
    /// Waits until there is as much as `out` holds. A part of a frame at the end is dropped.
    [[nodiscard]] std::size_t read(const FrameLayout& layout,
                                   std::span<unsigned char> out) override;
    void rewind() override;

private:
    [[nodiscard]] std::size_t fill();
    [[nodiscard]] std::size_t readSome(std::span<unsigned char> bytes);
    [[nodiscard]] bool waitForInput();
    void convert(std::size_t numFrames, const FrameLayout& layout, unsigned char* out);
    template<typename Sample, typename Unpack>
    void unpack(std::vector<Sample>& samples, std::size_t numFrames, Unpack unpackSample);

    std::string m_name = "standard input";
    RawFormat m_raw;
    FrameLayout m_layout;
    const StopEvent& m_stop;
    int m_fd;
    bool m_hasEnded = false;
    bool m_isStopped = false;
    std::vector<unsigned char> m_bytes;
    std::vector<std::int32_t> m_integers;
    std::vector<float> m_floats;
};

} // namespace keldaPlay
