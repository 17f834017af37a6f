#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>

namespace keldaPlay {

/// The bytes of a DSD file, which may be damaged: whatever is asked for is there, or the file is
/// refused.
class DsdInput
{
public:
    /// Throws std::runtime_error with the path and the reason when the file can't be read.
    explicit DsdInput(const std::string& path);

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] std::uint64_t size() const { return m_size; }
    /// Bytes from a position to the end.
    [[nodiscard]] std::uint64_t sizeFrom(std::uint64_t position) const
    {
        return position < m_size ? m_size - position : 0;
    }

    /// Throws std::runtime_error when not all of it is there.
    void read(std::uint64_t position, std::span<unsigned char> out);
    [[nodiscard]] std::uint64_t littleEndian(std::uint64_t position, std::size_t numBytes);
    [[nodiscard]] std::uint64_t bigEndian(std::uint64_t position, std::size_t numBytes);
    /// The 4 characters that name a chunk, or what else is named so.
    [[nodiscard]] std::string name(std::uint64_t position);

    /// Throws std::runtime_error with the path and the reason.
    [[noreturn]] void refuse(const std::string& reason) const;

private:
    std::string m_path;
    std::ifstream m_file;
    std::uint64_t m_size = 0;
};

} // namespace keldaPlay
