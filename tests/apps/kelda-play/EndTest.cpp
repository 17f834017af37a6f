// Ctrl-C ends the player whatever it waits for. Here it waits for what never comes, so that these
// tests don't depend on how fast anything is.

#include <array>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "PlayFixture.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testSupport::FaultySoundCard;

namespace {

using namespace std::chrono_literals;

/// @return whether it has become so, within the time that a very busy machine needs
template<typename Condition>
bool becomes(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + 30s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

/// A line of /proc/PID/status.
std::string statusOf(pid_t process, const std::string& field)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(field + ":")) {
            return line;
        }
    }
    return "";
}

bool isInMask(pid_t process, const std::string& mask, int signal)
{
    const std::string line = statusOf(process, mask);
    return line.size() > mask.size() + 2 &&
           (std::stoull(line.substr(mask.size() + 2), nullptr, 16) >> (signal - 1) & 1U) != 0;
}

class EndTest : public PlayTest
{
protected:
    ~EndTest() override
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
            const std::string now = statusOf(m_process, "voluntary_ctxt_switches");
            const bool isAsleep = statusOf(m_process, "State").find("S (") != std::string::npos;
            const bool takesSignals = isInMask(m_process, "SigBlk", SIGINT);
            same = isAsleep && takesSignals && now == before ? same + 1 : 0;
            before = now;
            return same == 20;
        });
    }

    void send(int signal) const
    {
        kill(m_process, signal);
        // Two of a kind that come at once are one.
        EXPECT_TRUE(becomes([&] { return !isInMask(m_process, "ShdPnd", signal); }));
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

    /// One signal ends it, and the user is told why.
    void expectOneSignalEnds(const std::string& arguments, const std::string& what)
    {
        for (const int signal : {SIGINT, SIGTERM}) {
            start(arguments);
            ASSERT_TRUE(waits());
            expectEnd(signal, " while " + what + " was being opened\n");
        }
    }

    void expectEnd(int signal, const std::string& why)
    {
        send(signal);
        EXPECT_EQ(end(), -signal) << err;
        EXPECT_THAT(err, EndsWith(std::string("kelda-play: ended by ") +
                                  (signal == SIGINT ? "SIGINT" : "SIGTERM") + why));
    }

    [[nodiscard]] std::string createPipe(const std::string& name) const
    {
        EXPECT_EQ(mkfifo(path(name).c_str(), 0600), 0);
        return path(name);
    }

    const std::string atOnce = ", the second signal, at once\n";
    pid_t m_process = 0;
};

/// On a sound card that hangs, or in which threads spin.
class EndWithDeviceTest : public EndTest
{
protected:
    ~EndWithDeviceTest() override
    {
        card->hangsOnOpen = false;
        card->spinsOnWrite = false;
    }

    FaultySoundCard card;
    const std::string arguments = "--loop --device faulty " + recording;
};

} // namespace

TEST_F(EndTest, NeedsOneSignalWhileNobodyWritesToANamedPipe)
{
    const std::string pipe = createPipe("pipe.wav");
    expectOneSignalEnds(pipe, pipe);
    expectOneSignalEnds("--describe " + pipe, pipe);
    EXPECT_THAT(out, IsEmpty());
    EXPECT_EQ(numLines(err), 1U);
}

TEST_F(EndTest, NeedsOneSignalWhileNothingIsWrittenToANamedPipe)
{
    const std::string pipe = createPipe("pipe.wav");
    const std::fstream silent(pipe);
    expectOneSignalEnds(pipe, pipe);
}

TEST_F(EndTest, NeedsOneSignalWhileNobodyReadsANamedPipe)
{
    const std::string pipe = createPipe("pipe");
    expectOneSignalEnds("--record " + pipe + " " + recording, pipe);
    expectOneSignalEnds("--trace " + pipe + " " + recording, pipe);
}

TEST_F(EndTest, NeedsOneSignalWhileASoundServerDoesNotAnswer)
{
    sockaddr_un address{AF_UNIX, {}};
    path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server, 5), 0);
    std::ofstream(path("asound.conf")) << "</usr/share/alsa/alsa.conf>\n"
                                          "pcm.server { type pulse server \"unix:"
                                       << path("socket") << "\" }\n";
    setenv("ALSA_CONFIG_PATH", path("asound.conf").c_str(), 1);
    expectOneSignalEnds("--device server " + recording, "device server");
    expectOneSignalEnds("--describe-device server", "device server");
    unsetenv("ALSA_CONFIG_PATH");
    close(server);
}

TEST_F(EndWithDeviceTest, NeedsOneSignalWhileItIsBeingOpened)
{
    card->hangsOnOpen = true;
    start(arguments);
    ASSERT_TRUE(becomes([this] { return card->numStuck > 0; }));
    expectEnd(SIGINT, " while device faulty was being opened\n");
}

TEST_F(EndWithDeviceTest, NeedsOneSignalWhileItIsBeingOpenedAgain)
{
    start(arguments);
    ASSERT_TRUE(becomes([this] { return card->framesTaken > 24'000; }));
    card->hangsOnOpen = true;
    card->isGone = true;
    ASSERT_TRUE(becomes([this] { return card->numStuck > 0; }));
    expectEnd(SIGINT, " while device faulty was being opened\n");
}

// What opens slowly, but opens, is no reason to end without a word.
TEST_F(EndWithDeviceTest, EndsAsEverWhereOneSignalComesWhileItOpens)
{
    card->hangsOnOpen = true;
    start(arguments);
    ASSERT_TRUE(becomes([this] { return card->numStuck > 0; }));
    kill(m_process, SIGINT);
    card->hangsOnOpen = false;
    EXPECT_EQ(end(), 0) << err;
    EXPECT_THAT(out, HasSubstr("\nplayed "));
}

// The worst that a device can do to the end: its thread runs before others, and never waits.
TEST_F(EndWithDeviceTest, NeedsTwoSignalsWhileItSpins)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        start(arguments);
        const std::uint64_t before = card->framesTaken;
        ASSERT_TRUE(becomes([&] { return card->framesTaken > before + 24'000; }));
        card->spinsOnWrite = true;
        ASSERT_TRUE(becomes([this] { return card->numStuck > 0; }));
        send(SIGINT);
        std::this_thread::sleep_for(1s);
        EXPECT_FALSE(hasEnded()) << "a request";
        expectEnd(signal, atOnce);
        card->numStuck = 0;
        card->spinsOnWrite = false;
    }
}

TEST_F(EndTest, NeedsTwoSignalsWhileNobodyReadsWhatItPrints)
{
    std::array<int, 2> pipe{-1, -1};
    ASSERT_EQ(pipe2(pipe.data(), O_NONBLOCK), 0);
    while (write(pipe[1], "x", 1) == 1) {
    }
    fcntl(pipe[1], F_SETFL, 0);
    const std::string output = std::to_string(pipe[1]);
    for (const char* const option : {"--json ", "", "--device nowhere "}) {
        start(option + ("--loop " + recording), " >&" + output + " 2>&" + output);
        ASSERT_TRUE(waits());
        send(SIGINT);
        send(SIGINT);
        EXPECT_EQ(end(), -SIGINT);
    }
    close(pipe[0]);
    close(pipe[1]);
}

TEST_F(EndTest, NeedsTwoSignalsWhileAReportIsDrawn)
{
    const std::string never = createPipe("never");
    std::ofstream(path("gnuplot"))
        << "#!/bin/sh\ntouch " << path("drawing") << "\nread x <" << never << "\n";
    std::filesystem::permissions(path("gnuplot"), std::filesystem::perms::owner_all);
    const std::string usual = std::getenv("PATH");
    setenv("PATH", (folder.string() + ":" + usual).c_str(), 1);
    start("--report " + path("report") + " " + recording);
    setenv("PATH", usual.c_str(), 1);
    EXPECT_TRUE(becomes([this] { return std::filesystem::exists(path("drawing")); }));
    send(SIGINT);
    expectEnd(SIGINT, atOnce);
    std::fstream(never) << "x\n"; // for the gnuplot that is left
}
