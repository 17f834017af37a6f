#pragma once

#include "DsdReader.h"

namespace keldaPlay {

/// A DFF (DSDIFF) file: a byte of each channel in turn, the oldest of its 8 samples highest.
class DffFile : public DsdReader
{
public:
    /// Throws std::runtime_error with the path and the reason when the file can't be played.
    explicit DffFile(const std::string& path);

    void read(std::uint64_t first, std::span<unsigned char> out) override;

private:
    struct Chunk
    {
        std::string name;
        std::uint64_t begin = 0; // of what is in it
        std::uint64_t size = 0;  // as it tells
    };

    [[nodiscard]] Chunk chunkAt(std::uint64_t position);
    [[nodiscard]] std::uint64_t endOf(const Chunk& chunk) const;
    void readProperties(const Chunk& properties);
    [[noreturn]] void refuseCompression(const std::string& name) const;

    DsdStream m_found;
    std::uint64_t m_data = 0; // where the samples begin
};

} // namespace keldaPlay
