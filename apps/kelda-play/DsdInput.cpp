#include "DsdInput.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace keldaPlay {

DsdInput::DsdInput(const std::string& path) : m_path(path), m_file(path, std::ios::binary)
{
    m_file.seekg(0, std::ios::end);
    const std::streamoff size = m_file.tellg();
    if (!m_file || size < 0) {
        refuse("can't be read");
    }
    m_size = static_cast<std::uint64_t>(size);
}

void DsdInput::read(std::uint64_t position, std::span<unsigned char> out)
{
    if (out.size() > sizeFrom(position)) {
        refuse("ends within a chunk");
    }
    m_file.clear();
    m_file.seekg(static_cast<std::streamoff>(position));
    m_file.read(reinterpret_cast<char*>(out.data()), static_cast<std::streamsize>(out.size()));
    if (!m_file) {
        refuse("can't be read");
    }
}

std::uint64_t DsdInput::littleEndian(std::uint64_t position, std::size_t numBytes)
{
    std::array<unsigned char, 8> bytes{};
    read(position, std::span(bytes).first(numBytes));
    std::uint64_t value = 0;
    for (std::size_t i = numBytes; i-- > 0;) {
        value = value << 8 | bytes[i];
    }
    return value;
}

std::uint64_t DsdInput::bigEndian(std::uint64_t position, std::size_t numBytes)
{
    std::array<unsigned char, 8> bytes{};
    read(position, std::span(bytes).first(numBytes));
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < numBytes; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

std::string DsdInput::name(std::uint64_t position)
{
    std::array<unsigned char, 4> bytes{};
    read(position, bytes);
    return {bytes.begin(), bytes.end()};
}

void DsdInput::refuse(const std::string& reason) const
{
    throw std::runtime_error(m_path + ": " + reason);
}

} // namespace keldaPlay
