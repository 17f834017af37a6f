#pragma once

#include <string>

#include <sndfile.h>

#include "AudioFile.h"
#include "OutputFile.h"

namespace keldaPlay {

/// A sound file that is written, as an OutputFile is: it gets its name when it is complete.
class SoundOutput
{
public:
    /// Throws std::runtime_error with the path and the reason when such a file can't be written:
    /// what the format can't hold is found before anything is opened. What has a header that tells
    /// the length can't be written to a pipe.
    SoundOutput(const std::string& path, const SF_INFO& info);

    /// To write with. What fails is told by commit().
    [[nodiscard]] SNDFILE* get() const { return m_sound.get(); }

    /// Notes that not all could be written.
    void fail();

    /// Throws as commit() does when not all could be written.
    void check() const { m_file.check(); }

    /// Completes the file, and gives it its name. To be called once, at the end.
    ///
    /// Throws std::runtime_error with the path and the reason when not all could be written.
    void commit();

private:
    keldaFiles::OutputFile m_file;
    FileHandle m_sound; // closed before the file is
};

} // namespace keldaPlay
