#pragma once

#include <vector>

#include "DsdReader.h"

namespace keldaPlay {

/// A DSF file: a block of each channel in turn, with the oldest of 8 samples lowest or highest.
class DsfFile : public DsdReader
{
public:
    /// Throws std::runtime_error with the path and the reason when the file can't be played.
    explicit DsfFile(const std::string& path);

    void read(std::uint64_t first, std::span<unsigned char> out) override;

private:
    [[nodiscard]] std::uint64_t chunkSize(std::uint64_t position, const std::string& name,
                                          std::uint64_t least);
    [[nodiscard]] DsdStream readFormat(std::uint64_t chunk);

    std::uint64_t m_data = 0; // where the samples begin
    bool m_oldestIsLowest = false;
    std::vector<unsigned char> m_bytes; // of a block
};

} // namespace keldaPlay
