#pragma once

#include <fstream>
#include <string>

#include "Journal.h"

namespace keldaPlay {

/// Writes a row a block to a CSV file.
class Trace
{
public:
    /// Throws std::runtime_error when the file can't be written.
    explicit Trace(const std::string& path);

    void write(const BlockRecord& record);

    /// Whether all rows could be written.
    [[nodiscard]] bool isComplete();

private:
    std::ofstream m_out;
};

} // namespace keldaPlay
