#pragma once

// A program that runs beside a test.

#include <csignal>
#include <string>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace testSupport {

/// A command of the shell's, until it is ended, at the latest with this object.
class Process
{
public:
    /// What `command` starts with gets the signals: it stands in the shell's place.
    explicit Process(const std::string& command)
    {
        const std::string line = "exec " + command;
        const char* argv[] = {"sh", "-c", line.c_str(), nullptr};
        if (posix_spawn(&m_id, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) !=
            0) {
            m_id = 0;
        }
    }
    ~Process() { end(SIGTERM); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Ends it by this signal, SIGKILL as a crash does, and waits until it is gone.
    void end(int signal)
    {
        if (m_id != 0) {
            kill(m_id, signal);
            waitpid(m_id, nullptr, 0);
            m_id = 0;
        }
    }
    [[nodiscard]] pid_t id() const { return m_id; } ///< 0: it could not be started, or has ended

private:
    pid_t m_id = 0;
};

} // namespace testSupport
