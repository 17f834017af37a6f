#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "DsdInput.h"

namespace keldaPlay {

/// What a file of one-bit samples tells of them.
struct DsdStream
{
    std::uint64_t bitrate = 0; ///< samples a second, of each channel
    std::uint64_t numChannels = 0;
    std::uint64_t numBits = 0; ///< of each channel
};

/// The one-bit samples of a file, whichever way they lie in it.
class DsdReader
{
public:
    virtual ~DsdReader() = default;

    [[nodiscard]] const std::string& path() const { return m_input.path(); }
    [[nodiscard]] const DsdStream& stream() const { return m_stream; }

    /// Reads bytes of 8 samples, the oldest highest, a byte of each channel in turn.
    ///
    /// Throws std::runtime_error when the file can't be read.
    /// @param first byte of each channel; all that is read lies within the stream
    virtual void read(std::uint64_t first, std::span<unsigned char> out) = 0;

protected:
    explicit DsdReader(const std::string& path) : m_input(path) {}

    /// Throws std::runtime_error when the stream can't be one.
    void accept(const DsdStream& stream);

    DsdInput m_input;

private:
    DsdStream m_stream;
};

/// "DSD64": how often a CD's or a recorder's sample rate it is.
[[nodiscard]] std::string dsdName(std::uint64_t bitrate);

} // namespace keldaPlay
