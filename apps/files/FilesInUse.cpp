#include "FilesInUse.h"

#include <algorithm>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "OutputFile.h"

namespace keldaFiles {

namespace fs = std::filesystem;

namespace {

std::optional<struct stat> statusOf(const std::string& path)
{
    struct stat status
    {
    };
    return stat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

} // namespace

std::optional<FilesInUse::Identity> FilesInUse::identityOf(const std::string& path)
{
    if (const auto status = statusOf(path)) {
        return S_ISCHR(status->st_mode)
                   ? std::nullopt
                   : std::optional(Identity{status->st_dev, status->st_ino, ""});
    }
    const fs::path target = behindLinks(path);
    const std::string folder = target.parent_path().string();
    const auto status = statusOf(folder.empty() ? "." : folder);
    return status
               ? std::optional(Identity{status->st_dev, status->st_ino, target.filename().string()})
               : std::nullopt; // opening it tells better
}

void FilesInUse::addInput(const std::string& path)
{
    if (statusOf(path)) {
        if (const auto identity = identityOf(path)) {
            m_files.push_back({*identity, "read, as " + path});
        }
    }
}

void FilesInUse::addOutput(const std::string& option, const std::string& path)
{
    const auto identity = identityOf(path);
    if (!identity) {
        return;
    }
    const auto same = std::ranges::find(m_files, *identity, &File::identity);
    if (same != m_files.end()) {
        throw FileConflict(option + " " + path + ": is the same file that is " + same->what);
    }
    m_files.push_back({*identity, "written by " + option});
}

bool isStandardOutput(const std::string& path)
{
    struct stat output
    {
    };
    const auto file = statusOf(path);
    return file && fstat(STDOUT_FILENO, &output) == 0 && !S_ISCHR(output.st_mode) &&
           file->st_dev == output.st_dev && file->st_ino == output.st_ino;
}

std::string takeStandardOutput()
{
    const int taken = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return "/dev/fd/" + std::to_string(taken);
}

} // namespace keldaFiles
