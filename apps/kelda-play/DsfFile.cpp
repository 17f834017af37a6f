#include "DsfFile.h"

#include <algorithm>

namespace keldaPlay {

namespace {

constexpr std::uint64_t headerSize = 12; // of a chunk: its name, and its size with the header
constexpr std::uint64_t blockSize = 4096;

unsigned char reversed(unsigned char bits)
{
    unsigned int result = 0;
    for (unsigned int i = 0; i < 8; ++i) {
        result = result << 1 | (bits >> i & 1U);
    }
    return static_cast<unsigned char>(result);
}

/// Of so many bytes, in a file that may end anywhere: those that all channels have.
std::uint64_t bytesPerChannel(std::uint64_t bytes, std::uint64_t numChannels)
{
    const std::uint64_t group = blockSize * numChannels;
    const std::uint64_t rest = bytes % group;
    const std::uint64_t ofOthers = group - blockSize;
    return bytes / group * blockSize + (rest > ofOthers ? rest - ofOthers : 0);
}

} // namespace

DsfFile::DsfFile(const std::string& path) : DsdReader(path)
{
    const std::uint64_t format = chunkSize(0, "DSD ", 28);
    const std::uint64_t sizeOfFormat = chunkSize(format, "fmt ", 52);
    DsdStream stream = readFormat(format);
    accept(stream);

    const std::uint64_t data = format + sizeOfFormat;
    const std::uint64_t sizeOfData = chunkSize(data, "data", headerSize) - headerSize;
    m_data = data + headerSize;
    const std::uint64_t present = std::min(sizeOfData, m_input.sizeFrom(m_data));
    stream.numBits = std::min(stream.numBits, 8 * bytesPerChannel(present, stream.numChannels));
    accept(stream);
}

std::uint64_t DsfFile::chunkSize(std::uint64_t position, const std::string& name,
                                 std::uint64_t least)
{
    if (m_input.name(position) != name) {
        m_input.refuse("is damaged: no chunk \"" + name + "\" where it should be");
    }
    const std::uint64_t size = m_input.littleEndian(position + 4, 8);
    const bool mayBeCut = name == "data";
    if (size < least || (!mayBeCut && size > m_input.sizeFrom(position))) {
        m_input.refuse("is damaged: a chunk \"" + name + "\" of " + std::to_string(size) +
                       " bytes");
    }
    return size;
}

DsdStream DsfFile::readFormat(std::uint64_t chunk)
{
    const auto field = [&](std::uint64_t offset) {
        return m_input.littleEndian(chunk + offset, 4);
    };
    if (field(16) != 0) {
        m_input.refuse("holds format " + std::to_string(field(16)) + ", which is no plain DSD");
    }
    const std::uint64_t bitsPerSample = field(32);
    if (bitsPerSample != 1 && bitsPerSample != 8) {
        m_input.refuse("has " + std::to_string(bitsPerSample) + " bits a sample instead of 1 or 8");
    }
    if (field(44) != blockSize) {
        m_input.refuse("has blocks of " + std::to_string(field(44)) + " bytes instead of " +
                       std::to_string(blockSize));
    }
    m_oldestIsLowest = bitsPerSample == 1;
    return {field(28), field(24), m_input.littleEndian(chunk + 36, 8)};
}

void DsfFile::read(std::uint64_t first, std::span<unsigned char> out)
{
    const std::uint64_t numChannels = stream().numChannels;
    const std::uint64_t end = first + out.size() / numChannels;
    m_bytes.resize(blockSize);
    for (std::uint64_t begin = first; begin < end;) {
        const std::uint64_t length = std::min(end - begin, blockSize - begin % blockSize);
        for (std::uint64_t channel = 0; channel < numChannels; ++channel) {
            const std::uint64_t block = begin / blockSize * numChannels + channel;
            const std::span bytes = std::span(m_bytes).first(length);
            m_input.read(m_data + block * blockSize + begin % blockSize, bytes);
            for (std::uint64_t i = 0; i < length; ++i) {
                out[(begin - first + i) * numChannels + channel] =
                    m_oldestIsLowest ? reversed(bytes[i]) : bytes[i];
            }
        }
        begin += length;
    }
}

} // namespace keldaPlay
