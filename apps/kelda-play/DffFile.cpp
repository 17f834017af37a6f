#include "DffFile.h"

#include <algorithm>

namespace keldaPlay {

namespace {

constexpr std::uint64_t headerSize = 12; // of a chunk: its name, and the size of what follows
constexpr std::uint64_t nameSize = 4;

} // namespace

DffFile::DffFile(const std::string& path) : DsdReader(path)
{
    if (m_input.name(0) != "FRM8" || m_input.name(headerSize) != "DSD ") {
        m_input.refuse("is no DSDIFF file");
    }
    Chunk chunk = chunkAt(headerSize + nameSize);
    while (chunk.name != "DSD ") {
        if (chunk.name == "PROP") {
            readProperties(chunk);
        }
        chunk = chunkAt(endOf(chunk));
    }
    accept(m_found);
    m_data = chunk.begin;
    const std::uint64_t present = std::min(chunk.size, m_input.sizeFrom(chunk.begin));
    m_found.numBits = 8 * (present / m_found.numChannels);
    accept(m_found);
}

DffFile::Chunk DffFile::chunkAt(std::uint64_t position)
{
    Chunk chunk{m_input.name(position), position + headerSize,
                m_input.bigEndian(position + nameSize, headerSize - nameSize)};
    if (chunk.name == "DST ") {
        refuseCompression(chunk.name);
    }
    if (!std::ranges::all_of(chunk.name, [](char c) { return ' ' <= c && c <= '~'; })) {
        m_input.refuse("is damaged: no chunk where one should be");
    }
    return chunk;
}

// Chunks begin at even places. Only the samples may have been cut off.
std::uint64_t DffFile::endOf(const Chunk& chunk) const
{
    if (chunk.size > m_input.sizeFrom(chunk.begin)) {
        m_input.refuse("is damaged: a chunk \"" + chunk.name + "\" of " +
                       std::to_string(chunk.size) + " bytes");
    }
    return chunk.begin + chunk.size + chunk.size % 2;
}

void DffFile::readProperties(const Chunk& properties)
{
    const std::uint64_t end = endOf(properties);
    if (m_input.name(properties.begin) != "SND ") {
        return;
    }
    for (std::uint64_t position = properties.begin + nameSize; position < end;) {
        const Chunk chunk = chunkAt(position);
        if (chunk.name == "FS  ") {
            m_found.bitrate = m_input.bigEndian(chunk.begin, 4);
        } else if (chunk.name == "CHNL") {
            m_found.numChannels = m_input.bigEndian(chunk.begin, 2);
        } else if (chunk.name == "CMPR") {
            if (const std::string name = m_input.name(chunk.begin); name != "DSD ") {
                refuseCompression(name);
            }
        }
        position = endOf(chunk);
    }
}

void DffFile::refuseCompression(const std::string& name) const
{
    m_input.refuse("is compressed (" + name.substr(0, name.find(' ')) + "), which can't be played");
}

void DffFile::read(std::uint64_t first, std::span<unsigned char> out)
{
    m_input.read(m_data + first * stream().numChannels, out);
}

} // namespace keldaPlay
