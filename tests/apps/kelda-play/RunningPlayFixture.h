#pragma once

// What the tests share that do something to the player while it runs, and wait for what it does.

#include <string>
#include <utility>

#include "PlayFixture.h"

namespace keldaPlayTest {

/// @return whether it has become so, within the time that a very busy machine needs
template<typename Condition>
bool becomes(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

/// What happens to the player while it runs.
class RunningPlayTest : public PlayTest
{
protected:
    ~RunningPlayTest() override
    {
        if (m_process != 0) {
            kill(m_process, SIGKILL);
            waitpid(m_process, nullptr, 0);
        }
    }

    /// @param outputs a shell's redirections
    void start(const std::string& arguments, const std::string& outputs = "")
    {
        const std::string command =
            "exec " KELDA_PLAY " " + clickRemoval + arguments + " </dev/null" +
            (outputs.empty() ? " >" + path("out") + " 2>" + path("err") : outputs);
        const char* argv[] = {"sh", "-c", command.c_str(), nullptr};
        ASSERT_EQ(
            posix_spawn(&m_process, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ),
            0);
    }

    /// Until its first thread waits for something, for good.
    [[nodiscard]] bool waits() const
    {
        std::string before;
        int same = 0;
        return becomes([&] {
            const std::string now = status("voluntary_ctxt_switches");
            const bool isAsleep = status("State").starts_with('S');
            const bool takesSignals = isIn("SigBlk", SIGINT);
            same = isAsleep && takesSignals && now == before ? same + 1 : 0;
            before = now;
            return same == 20;
        });
    }

    /// What /proc/PID/status tells behind this word; "0" when nothing.
    [[nodiscard]] std::string status(const std::string& word) const
    {
        std::ifstream file("/proc/" + std::to_string(m_process) + "/status");
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with(word + ":\t")) {
                return line.substr(word.size() + 2);
            }
        }
        return "0";
    }

    /// Whether a signal is in one of the masks of /proc/PID/status.
    [[nodiscard]] bool isIn(const std::string& mask, int signal) const
    {
        return (std::stoull(status(mask), nullptr, 16) >> (signal - 1) & 1U) != 0;
    }

    void send(int signal) const
    {
        kill(m_process, signal);
        // Two of a kind that come at once are one.
        EXPECT_TRUE(becomes([&] { return !isIn("ShdPnd", signal); }));
    }

    [[nodiscard]] bool hasEnded()
    {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(m_process), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid == m_process;
    }

    /// As PlayTest::play(), when it has ended.
    int end()
    {
        EXPECT_TRUE(becomes([this] { return hasEnded(); })) << "it hangs";
        int status = 0;
        kill(m_process, SIGKILL);
        waitpid(std::exchange(m_process, 0), &status, 0);
        return finish(status);
    }

private:
    pid_t m_process = 0;
};

} // namespace keldaPlayTest
