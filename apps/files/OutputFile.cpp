#include "OutputFile.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace keldaFiles {

namespace fs = std::filesystem;

namespace {

// What a signal handler may look at: no program here writes more files at a time.
constexpr std::size_t numSlots = 16;
std::array<std::atomic<const char*>, numSlots> unfinished{};

std::size_t addUnfinished(const char* path)
{
    for (std::size_t i = 0; i < numSlots; ++i) {
        const char* none = nullptr;
        if (unfinished[i].compare_exchange_strong(none, path)) {
            return i;
        }
    }
    return numSlots;
}

void takeUnfinished(std::size_t slot)
{
    if (slot < numSlots) {
        unfinished[slot] = nullptr;
    }
}

[[noreturn]] void throwFor(const std::string& path, int error)
{
    throw std::runtime_error(path + ": " + std::generic_category().message(error));
}

std::string folderOf(const std::string& path)
{
    const std::string folder = fs::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

bool isOnProc(const std::string& folder)
{
    struct statfs system
    {
    };
    return statfs(folder.c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

/// The descriptor of this process that a path is a name of.
std::optional<int> descriptorOf(const std::string& path)
{
    std::error_code unknown;
    const std::string name = fs::path(path).filename().string();
    int descriptor = -1;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), descriptor);
    if (error != std::errc() || end != name.data() + name.size() || !isOnProc(folderOf(path)) ||
        !fs::equivalent(folderOf(path), "/proc/self/fd", unknown)) {
        return std::nullopt;
    }
    return descriptor;
}

/// Whether what stands in a folder like /tmp may be replaced by its owner alone.
bool isKeptFor(const struct stat& folder, const struct stat& file)
{
    const uid_t user = geteuid();
    return (folder.st_mode & S_ISVTX) != 0 && user != 0 && user != folder.st_uid &&
           user != file.st_uid;
}

} // namespace

std::string behindLinks(const std::string& path)
{
    constexpr int mostLinks = 40; // as the system has it
    fs::path target = path;
    for (int links = 0; links < mostLinks; ++links) {
        std::error_code none;
        if (isOnProc(folderOf(target.string())) || !fs::is_symlink(target, none)) {
            return target.string();
        }
        const fs::path next = fs::read_symlink(target, none);
        target = next.is_absolute() ? next : target.parent_path() / next;
    }
    throwFor(path, ELOOP);
}

OutputFile::OutputFile(std::string path) : m_path(std::move(path)), m_target(behindLinks(m_path))
{
    struct stat there
    {
    };
    if (const std::optional<int> descriptor = descriptorOf(m_target)) {
        m_fd = fcntl(*descriptor, F_DUPFD_CLOEXEC, 3); // where it stands, and appending if it does
    } else if (stat(m_target.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
        m_fd = open(m_target.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    } else {
        create();
        return;
    }
    if (m_fd < 0) {
        throwError(errno);
    }
    m_isSeekable = lseek(m_fd, 0, SEEK_CUR) >= 0 && (fcntl(m_fd, F_GETFL) & O_APPEND) == 0;
}

OutputFile::~OutputFile()
{
    close();
    if (!m_temporary.empty()) {
        unlink(m_temporary.c_str());
        takeUnfinished(m_slot);
    }
}

void OutputFile::create()
{
    checkReplaceable();
    static std::atomic<unsigned int> number = 0;
    constexpr std::size_t longest = 200; // of 255, which the whole may have
    const std::string name = fs::path(m_target).filename().string().substr(0, longest);
    if (name.empty()) {
        throwError(EISDIR);
    }
    do {
        m_temporary =
            (fs::path(m_target).parent_path() /
             ("." + name + ".part-" + std::to_string(getpid()) + "-" + std::to_string(number++)))
                .string();
        m_fd = open(m_temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (m_fd < 0 && errno == EEXIST);
    if (m_fd < 0) {
        const int error = errno;
        m_temporary.clear();
        throwError(error);
    }
    m_slot = addUnfinished(m_temporary.c_str());
    m_isSeekable = true;
    takeOver();
}

// Found now, not when all has been written.
void OutputFile::checkReplaceable() const
{
    struct stat folder
    {
    };
    struct stat file
    {
    };
    if (stat(m_target.c_str(), &file) != 0) {
        return;
    }
    if (faccessat(AT_FDCWD, m_target.c_str(), W_OK, AT_EACCESS) != 0) {
        throwError(errno);
    }
    if (stat(folderOf(m_target).c_str(), &folder) == 0 && isKeptFor(folder, file)) {
        throwError(EPERM);
    }
}

void OutputFile::takeOver() const
{
    struct stat file
    {
    };
    if (stat(m_target.c_str(), &file) == 0) {
        // Who may not give it away keeps it; the permissions come last, as giving away takes some.
        [[maybe_unused]] const int kept = fchown(m_fd, file.st_uid, file.st_gid);
        fchmod(m_fd, file.st_mode & 07777);
    }
}

void OutputFile::close()
{
    if (m_fd >= 0) {
        ::close(std::exchange(m_fd, -1));
    }
}

void OutputFile::throwError(int error) const
{
    throwFor(m_path, error);
}

bool OutputFile::write(std::string_view bytes)
{
    while (!bytes.empty() && m_error == 0) {
        const ssize_t written = ::write(m_fd, bytes.data(), bytes.size());
        if (written < 0) {
            m_error = errno == EINTR ? 0 : errno;
            continue;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
        m_position += written;
        m_length = std::max(m_length, m_position);
    }
    return m_error == 0;
}

bool OutputFile::seek(off_t position)
{
    if (m_isSeekable && position != m_position) {
        // What is written elsewhere begins where it was taken over.
        if (lseek(m_fd, position - m_position, SEEK_CUR) < 0) {
            fail(errno);
            return false;
        }
        m_position = position;
    }
    return m_position == position;
}

std::size_t OutputFile::read(char* out, std::size_t count)
{
    const ssize_t bytes = m_isSeekable ? ::read(m_fd, out, count) : 0;
    m_position += std::max<ssize_t>(bytes, 0);
    return static_cast<std::size_t>(std::max<ssize_t>(bytes, 0));
}

void OutputFile::fail(int error)
{
    if (m_error == 0) {
        m_error = error;
    }
}

void OutputFile::check() const
{
    if (m_error != 0) {
        throwError(m_error);
    }
}

void OutputFile::commit()
{
    if (m_error == 0 && !m_temporary.empty() && fsync(m_fd) != 0) {
        m_error = errno;
    }
    if (m_fd >= 0 && ::close(std::exchange(m_fd, -1)) != 0) {
        fail(errno);
    }
    check();
    if (m_temporary.empty()) {
        return;
    }
    takeUnfinished(m_slot);
    const std::string temporary = std::exchange(m_temporary, "");
    if (std::rename(temporary.c_str(), m_target.c_str()) != 0) {
        throw std::runtime_error(m_path + ": " + std::generic_category().message(errno) +
                                 "; what was to be there is " + temporary);
    }
}

void removeUnfinished() noexcept
{
    for (std::atomic<const char*>& each : unfinished) {
        if (const char* const path = each.exchange(nullptr)) {
            unlink(path);
        }
    }
}

void removeUnfinishedOnSignals()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action
        {
        };
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            action.sa_handler = [](int number) {
                removeUnfinished();
                raise(number); // by default: once only
            };
            action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
            sigaction(signal, &action, nullptr);
        }
    }
}

} // namespace keldaFiles
