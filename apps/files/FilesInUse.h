#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

namespace keldaFiles {

/// Two names are the same file, which is not to be read and written, or written twice.
class FileConflict : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Which files a program reads and writes, whatever names they have: told by device and inode, and
/// what does not exist yet by its folder's and its name. Devices, as /dev/null, don't count.
class FilesInUse
{
public:
    /// @param path of a file that is read; nothing is done when it does not exist
    void addInput(const std::string& path);

    /// @param option what the user has named it by, e.g. "--record"
    ///
    /// Throws FileConflict when it is an input, or an output already.
    void addOutput(const std::string& option, const std::string& path);

private:
    struct Identity
    {
        dev_t device = 0;
        ino_t inode = 0;
        std::string name; // in that folder; empty: the file itself

        bool operator==(const Identity&) const = default;
    };
    struct File
    {
        Identity identity;
        std::string what;
    };

    [[nodiscard]] static std::optional<Identity> identityOf(const std::string& path);

    std::vector<File> m_files;
};

/// Whether a path is standard output, and that is no device (as a terminal is).
[[nodiscard]] bool isStandardOutput(const std::string& path);

/// Keeps standard output for a file: what is printed goes to standard error from now on.
/// @return the path of what was standard output
[[nodiscard]] std::string takeStandardOutput();

} // namespace keldaFiles
