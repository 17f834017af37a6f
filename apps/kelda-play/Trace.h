#pragma once

#include <string>

#include "Journal.h"
#include "OutputFile.h"

namespace keldaPlay {

/// Writes a row a block to a CSV file, which gets its name when it is committed.
class Trace
{
public:
    /// Throws std::runtime_error when the file can't be written.
    explicit Trace(const std::string& path);

    void write(const BlockRecord& record);

    /// As OutputFile::commit().
    void commit();

private:
    void flush();

    keldaFiles::OutputFile m_file;
    std::string m_rows; // not written yet
};

} // namespace keldaPlay
