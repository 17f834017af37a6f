// Ctrl-C ends the player whatever it waits for. Here it waits for what never comes, so that these
// tests don't depend on how fast anything is.

#include <array>

#include <fcntl.h>
#include <sys/stat.h>

#include "RunningPlayFixture.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testSupport::FaultySoundCard;

namespace {

using namespace std::chrono_literals;

class EndTest : public RunningPlayTest
{
protected:
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
    clickRemoval.clear();
    clickRemoval = ""; // which a description is not told
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
    send(SIGINT);
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

TEST_F(EndWithDeviceTest, LeavesFilesAsTheyWereWhenItEndsAtOnce)
{
    std::ofstream(path("old.wav")) << "old";
    start("--record " + path("old.wav") + " --trace " + path("new.csv") + " " + arguments);
    ASSERT_TRUE(becomes([this] { return card->framesTaken > 24'000; }));
    card->spinsOnWrite = true;
    ASSERT_TRUE(becomes([this] { return card->numStuck > 0; }));
    send(SIGINT);
    expectEnd(SIGTERM, atOnce);
    EXPECT_EQ(read("old.wav"), "old");
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        EXPECT_THAT(entry.path().filename(), testing::AnyOf("old.wav", "out", "err"));
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
