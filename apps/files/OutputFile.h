#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace keldaFiles {

/// A file that a user has named to be written: it is written beside its name, as ".NAME.part-PID-N"
/// in the same folder, and gets its name when it is complete. Until then, and when it fails, what
/// stood at the name stands there untouched.
///
/// A new file has the permissions that the umask leaves, one that replaces another those of the
/// other (and its owner, as far as the user may). A symbolic link stays, and what it leads to is
/// replaced. A device or a named pipe is written itself; so is what a file descriptor of this
/// process leads to: /dev/stdout, /dev/fd/N.
///
/// What is not committed is removed: by the destructor, and on a signal by removeUnfinished(). A
/// crash leaves it behind, with what had been written.
class OutputFile
{
public:
    /// Throws std::runtime_error with the path and the reason when it can't be written, or what
    /// stands there can't be replaced.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] const std::string& path() const { return m_path; }

    /// Whether it can be read at other positions than the last.
    [[nodiscard]] bool isSeekable() const { return m_isSeekable; }

    /// Writes all of it at the current position. After the first failure nothing more is written.
    /// @return whether it, and all before, could be written
    bool write(std::string_view bytes);

    [[nodiscard]] off_t position() const { return m_position; }
    /// @return whether it is there now
    bool seek(off_t position);
    /// @return bytes from the current position on; 0 where none can be read
    [[nodiscard]] std::size_t read(char* out, std::size_t count);
    [[nodiscard]] off_t length() const { return m_length; }

    /// Notes that it is not complete, for an errno value.
    void fail(int error);

    /// Throws std::runtime_error with the path and the reason when not all could be written.
    void check() const;

    /// Gives it its name. To be called once, at the end.
    ///
    /// Throws std::runtime_error with the path and the reason when not all could be written, or it
    /// can't have its name.
    void commit();

private:
    void create();
    void checkReplaceable() const;
    void takeOver() const;
    void close();
    [[noreturn]] void throwError(int error) const;

    std::string m_path;      // as the user has it
    std::string m_target;    // behind the links
    std::string m_temporary; // empty where the target is written itself
    std::size_t m_slot = 0;  // among the unfinished
    int m_fd = -1;
    bool m_isSeekable = false;
    off_t m_position = 0;
    off_t m_length = 0;
    int m_error = 0;
};

/// Where a path leads: without its symbolic links, also when there is nothing (yet). Links of
/// /proc to file descriptors are not followed.
///
/// Throws std::runtime_error with the path when links lead in a circle.
[[nodiscard]] std::string behindLinks(const std::string& path);

/// Removes what this process has begun to write and not committed. For signal handlers, too.
void removeUnfinished() noexcept;

/// Has SIGINT, SIGTERM and SIGHUP remove what is unfinished before they end the process, where
/// nothing else has been said of them.
void removeUnfinishedOnSignals();

} // namespace keldaFiles
