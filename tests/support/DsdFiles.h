#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace testSupport {

/// One-bit samples and all that a file tells of them.
struct DsdSound
{
    std::uint32_t bitrate = 2'822'400;
    std::vector<std::string> channels; ///< bytes of 8 samples, the oldest highest
    std::uint64_t numBits = 0;         ///< of each channel; bytes beyond are padding
};

/// 32 bits that tell a number. All of them are in use, so that every order of bits and bytes but
/// the right one shows.
[[nodiscard]] constexpr std::uint32_t numberedBits(std::uint32_t number)
{
    return number * 2'654'435'761U;
}
[[nodiscard]] constexpr std::uint32_t numberOfBits(std::uint32_t bits)
{
    return bits * 244'002'641U;
}
static_assert(numberOfBits(numberedBits(1)) == 1);

/// Stereo in which the 16 samples of the left channel and the 16 of the right one that make a frame
/// tell its number.
[[nodiscard]] inline DsdSound numberedDsd(std::uint32_t numFrames, std::uint32_t first = 1)
{
    DsdSound sound;
    sound.channels.resize(2);
    sound.numBits = std::uint64_t{16} * numFrames;
    for (std::uint32_t number = first; number < first + numFrames; ++number) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            sound.channels[shift < 16 ? 1 : 0] += static_cast<char>(numberedBits(number) >> shift);
        }
    }
    return sound;
}

namespace detail {

inline std::string littleEndian(std::uint64_t value, int numBytes)
{
    std::string bytes;
    for (int i = 0; i < numBytes; ++i) {
        bytes += static_cast<char>(value >> (8 * i));
    }
    return bytes;
}

inline std::string bigEndian(std::uint64_t value, int numBytes)
{
    const std::string bytes = littleEndian(value, numBytes);
    return {bytes.rbegin(), bytes.rend()};
}

inline char reversed(char bits)
{
    int result = 0;
    for (int i = 0; i < 8; ++i) {
        result |= (bits >> i & 1) << (7 - i);
    }
    return static_cast<char>(result);
}

} // namespace detail

enum class BitOrder : std::uint8_t { OldestLowest = 1, OldestHighest = 8 };

/// A DSF file, complete with padding and a tag at its end.
inline std::string dsfFile(const DsdSound& sound, BitOrder order)
{
    using detail::littleEndian;
    constexpr std::size_t blockSize = 4096;
    std::string data;
    for (std::size_t begin = 0; begin < sound.channels.front().size(); begin += blockSize) {
        for (const std::string& channel : sound.channels) {
            std::string block = channel.substr(begin, blockSize);
            if (order == BitOrder::OldestLowest) {
                std::transform(block.begin(), block.end(), block.begin(), detail::reversed);
            }
            block.resize(blockSize, '\x55'); // would be heard
            data += block;
        }
    }
    const std::string tag = "ID3 and so on";
    const std::string format =
        "fmt " + littleEndian(52, 8) + littleEndian(1, 4) + littleEndian(0, 4) +
        littleEndian(2, 4) + littleEndian(sound.channels.size(), 4) +
        littleEndian(sound.bitrate, 4) + littleEndian(static_cast<std::uint64_t>(order), 4) +
        littleEndian(sound.numBits, 8) + littleEndian(blockSize, 4) + littleEndian(0, 4);
    const std::uint64_t beforeTag = 28 + format.size() + 12 + data.size();
    return "DSD " + littleEndian(28, 8) + littleEndian(beforeTag + tag.size(), 8) +
           littleEndian(beforeTag, 8) + format + "data" + littleEndian(12 + data.size(), 8) + data +
           tag;
}

/// A chunk of a DSDIFF file.
inline std::string dffChunk(const std::string& name, const std::string& content)
{
    return name + detail::bigEndian(content.size(), 8) + content +
           std::string(content.size() % 2, '\0');
}

/// A DSDIFF file of these samples, or of others, with a chunk that nobody knows and a tag.
inline std::string dffFile(const DsdSound& sound, const std::string& compression = "DSD ")
{
    using detail::bigEndian;
    std::string data;
    for (std::size_t i = 0; i < sound.channels.front().size(); ++i) {
        for (const std::string& channel : sound.channels) {
            data += channel[i];
        }
    }
    std::string ids;
    for (std::size_t channel = 0; channel < sound.channels.size(); ++channel) {
        ids += channel == 0 ? "SLFT" : "SRGT";
    }
    const std::string properties =
        "SND " + dffChunk("FS  ", bigEndian(sound.bitrate, 4)) +
        dffChunk("CHNL", bigEndian(sound.channels.size(), 2) + ids) +
        dffChunk("CMPR", compression + "\x0enot compressed"); // of odd length, with its count
    const std::string chunks = dffChunk("FVER", bigEndian(0x01050000, 4)) +
                               dffChunk("COMT", "odd") + dffChunk("PROP", properties) +
                               dffChunk(compression, data) + dffChunk("ID3 ", "and so on");
    return "FRM8" + bigEndian(4 + chunks.size(), 8) + "DSD " + chunks;
}

} // namespace testSupport
