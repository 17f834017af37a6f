#include "ReportFolder.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace keldaReport {

namespace fs = std::filesystem;

namespace {

// Every report has it, and hardly anything else.
constexpr const char* script = "plots.gnuplot";
constexpr std::array pages = {"index.html", script,           "trace.csv",  "error.svg",
                              "fill.svg",   "adjustment.svg", "before.png", "after.png"};

[[noreturn]] void throwFor(const fs::path& path, int error)
{
    throw std::runtime_error(path.string() + ": " + std::generic_category().message(error));
}

bool isInstalled(const std::string& program)
{
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((fs::path(folder) / program).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

std::string lastLineOf(const fs::path& path)
{
    std::ifstream in(path);
    std::string last;
    for (std::string line; std::getline(in, line);) {
        last = line.find_first_not_of(" \t") != std::string::npos ? line : last;
    }
    return last;
}

struct SpawnActions
{
    SpawnActions() { posix_spawn_file_actions_init(&actions); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    posix_spawn_file_actions_t actions{};
};

} // namespace

void prepare(const std::string& folder)
{
    if (!isInstalled("gnuplot")) {
        throw std::runtime_error("gnuplot, which draws the report, is not installed");
    }
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throwFor(folder, error.value());
    }
    if (!fs::is_directory(folder, error)) {
        throwFor(folder, ENOTDIR);
    }
    if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        throwFor(folder, errno);
    }
    // What is called as a page of ours, but is none, is the user's.
    const bool isReport = fs::is_regular_file(fs::path(folder) / script, error);
    for (const char* name : pages) {
        const fs::path path = fs::path(folder) / name;
        if (fs::exists(path, error) && (!isReport || fs::is_directory(path, error))) {
            throw std::runtime_error(path.string() + ": exists, and is not of a report");
        }
    }
}

void addPages(keldaFiles::FilesInUse& files, const std::string& folder)
{
    for (const char* name : pages) {
        files.addOutput("--report", (fs::path(folder) / name).string());
    }
}

ReportDraft::ReportDraft(const std::string& folder) : m_folder(folder)
{
    std::string name = (m_folder / ".report.part-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throwFor(folder, errno);
    }
    m_path = name;
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, &m_previous);
}

ReportDraft::~ReportDraft()
{
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
    pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

void ReportDraft::publish() const
{
    for (auto name = pages.rbegin(); name != pages.rend(); ++name) {
        std::error_code error;
        fs::rename(m_path / *name, m_folder / *name, error);
        if (error && error != std::errc::no_such_file_or_directory) {
            throwFor(m_folder / *name, error.value());
        }
    }
}

void runGnuplot(const fs::path& folder, const std::string& name)
{
    const fs::path log = folder / "gnuplot.log";
    SpawnActions spawn;
    posix_spawn_file_actions_addchdir_np(&spawn.actions, folder.c_str());
    posix_spawn_file_actions_addopen(&spawn.actions, STDERR_FILENO, "gnuplot.log",
                                     O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const char* const arguments[] = {"gnuplot", name.c_str(), nullptr};
    pid_t process = 0;
    const int error = posix_spawnp(&process, "gnuplot", &spawn.actions, nullptr,
                                   const_cast<char* const*>(arguments), environ);
    if (error != 0) {
        throw std::runtime_error("gnuplot: " + std::generic_category().message(error));
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (status != 0) {
        throw std::runtime_error("gnuplot could not draw: " + lastLineOf(log));
    }
    fs::remove(log);
}

} // namespace keldaReport
