// What a terminal shows: as wide as it is, and coloured where it may be.

#include <clocale>
#include <cstdlib>

#include <pty.h>
#include <sys/ioctl.h>

#include "PlayFixture.h"
#include "TerminalLine.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlay;
using namespace keldaPlayTest;
using testing::AllOf;
using testing::ContainsRegex;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::ResultOf;
using testing::StartsWith;
using testSupport::FaultySoundCard;

namespace {

const std::string red = "\033[31m";
const std::string plain = "\033[0m";

class TerminalLineTest : public testing::Test
{
protected:
    TerminalLineTest()
    {
        std::setlocale(LC_CTYPE, "C.UTF-8");
        track.path = "/music/A song.flac";
        track.info = audioUtils::PcmAudioInfo(48000, 2, audioUtils::S16LE);
        track.numFrames = 273 * 48000;
        last.queueFill = 480'000'000;
        last.deviceDelay = 80'000'000;
        last.delta = 12'400;
    }
    ~TerminalLineTest() override { std::setlocale(LC_CTYPE, "C"); }

    [[nodiscard]] std::string line(std::size_t columns, bool isColored = false) const
    {
        return terminalLine({statistics, last, &track, 187.9}, columns, isColored);
    }

    Statistics statistics;
    BlockRecord last;
    Track track;
};

class TerminalTest : public PlayTest
{
protected:
    TerminalTest() { clickRemoval.clear(); }

    /// Plays on a terminal that is so wide; what it shows is `out`.
    /// @param resizeTo how wide it becomes meanwhile; 0: it stays
    int playOnTerminal(unsigned short columns, const std::string& arguments,
                       const std::string& before = "", unsigned short resizeTo = 0)
    {
        time.beginAnew();
        time.holdAt(std::chrono::milliseconds(700));
        const std::string command =
            "export TERM=xterm; unset NO_COLOR; " + before + player() + arguments;
        winsize size{24, columns, 0, 0};
        int terminal = -1;
        const pid_t process = forkpty(&terminal, nullptr, nullptr, &size);
        if (process == 0) {
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        std::thread resizer([&] {
            if (resizeTo != 0 && time.isHeld()) {
                size.ws_col = resizeTo;
                ioctl(terminal, TIOCSWINSZ, &size);
            }
            time.release();
        });
        std::string shown;
        std::array<char, 4096> buffer{};
        for (ssize_t count = 0; (count = ::read(terminal, buffer.data(), buffer.size())) > 0;) {
            shown.append(buffer.data(), static_cast<std::size_t>(count));
        }
        resizer.join();
        close(terminal);
        int status = 0;
        waitpid(process, &status, 0);
        out = shown;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    /// What was drawn into the status line, drawing by drawing.
    [[nodiscard]] std::vector<std::string> drawings() const
    {
        std::vector<std::string> lines;
        const std::string end = "\033[K";
        for (std::size_t at = out.find(end); at != std::string::npos; at = out.find(end, at + 1)) {
            const std::size_t begin = out.rfind('\r', at) + 1;
            lines.push_back(out.substr(begin, at - begin));
        }
        return lines;
    }
};

std::size_t lengthOf(const std::string& text)
{
    return text.size();
}

} // namespace

TEST_F(TerminalLineTest, LeavesOutWhatMattersLeastWhereItIsNarrow)
{
    const std::string all = "3:07/4:33  queue 480 ms  delay  80.0 ms  error    +12 us  underruns 0";
    EXPECT_EQ(line(all.size()), all);
    EXPECT_EQ(line(all.size() + 9), all) << "too little for a name";
    EXPECT_EQ(line(all.size() + 10), all + "  A song.f");
    EXPECT_EQ(line(200), all + "  A song.flac");
    EXPECT_EQ(line(all.size() - 1), "3:07/4:33  queue 480 ms  error    +12 us  underruns 0");
    EXPECT_EQ(line(52), "3:07/4:33  queue 480 ms  underruns 0");
    EXPECT_EQ(line(35), "3:07/4:33  underruns 0");
    EXPECT_EQ(line(21), "3:07/4:33");
    EXPECT_EQ(line(8), "");
}

TEST_F(TerminalLineTest, IsNeverWiderThanTheTerminal)
{
    track.path = "\xE6\xBC\xA2\xE5\xAD\x97\xE6\xBC\xA2\xE5\xAD\x97.flac"; // two columns each
    for (std::size_t columns = 0; columns < 120; ++columns) {
        const std::string text = line(columns);
        std::wstring wide(text.size() + 1, L'\0');
        wide.resize(std::mbstowcs(wide.data(), text.c_str(), wide.size()));
        EXPECT_LE(wcswidth(wide.c_str(), wide.size()), static_cast<int>(columns));
    }
}

TEST_F(TerminalLineTest, ColoursWhatIsWrong)
{
    EXPECT_THAT(line(80, true), Not(HasSubstr("\033")));
    last.result = audioUtils::OutputDevice::Underrun;
    statistics.add(last);
    last.delta = -1'500'000;
    EXPECT_THAT(line(80, true), AllOf(HasSubstr(red + "underruns 1" + plain),
                                      HasSubstr(red + "error  -1500 us" + plain)));
    EXPECT_THAT(line(80), Not(HasSubstr("\033")));
}

TEST_F(TerminalLineTest, ShowsNoControlCharactersOfAName)
{
    EXPECT_EQ(fitted("a\033[31m\n\xFF\xE6z", 80), "a?[31m???z");
    EXPECT_EQ(fitted("h\xC3\xBCt", 2), "h\xC3\xBC");
    EXPECT_EQ(fitted("", 5), "");
}

TEST_F(TerminalLineTest, TellsHoursWhereThereAreSome)
{
    EXPECT_EQ(timeText(0, 59.2), "0:00/1:00");
    EXPECT_EQ(timeText(3599.9, std::nullopt), "59:59");
    EXPECT_EQ(timeText(3600, std::nullopt), "1:00:00");
    EXPECT_EQ(timeText(61, 7200), "0:01:01/2:00:00");
}

TEST_F(TerminalTest, FitsTheStatusLineToItsWidth)
{
    ASSERT_EQ(playOnTerminal(110, patient + recording), 0) << out;
    EXPECT_THAT(drawings(), Each(StartsWith("0:0")));
    EXPECT_THAT(drawings().back(),
                AllOf(HasSubstr("/0:02  queue "), EndsWith("underruns 0  Front_Center.wav")));
    ASSERT_EQ(playOnTerminal(30, patient + recording), 0) << out;
    EXPECT_GT(drawings().size(), 5U);
    EXPECT_THAT(drawings(), Each(ResultOf(lengthOf, testing::Le(29U))));
}

TEST_F(TerminalTest, FollowsItsWidth)
{
    ASSERT_EQ(playOnTerminal(110, patient + recording, "", 20), 0) << out;
    EXPECT_GT(drawings().front().size(), 50U);
    EXPECT_EQ(drawings().back().size(), 9U) << drawings().back();
}

TEST_F(TerminalTest, ShowsErrorsInRedUnlessTheUserWantsNone)
{
    const std::string message = "kelda-play: device nowhere can't be opened";
    const struct
    {
        const char* before;
        const char* option;
        bool isColored;
    } cases[] = {{"", "", true},
                 {"", "--color never ", false},
                 {"", "--color always ", true},
                 {"NO_COLOR=1 ", "", false},
                 {"NO_COLOR= ", "", true},
                 {"NO_COLOR=1 ", "--color always ", true},
                 {"TERM=dumb ", "", false}};
    for (const auto& [before, option, isColored] : cases) {
        EXPECT_EQ(playOnTerminal(80, option + ("--device nowhere " + recording), before), 3);
        EXPECT_THAT(out, HasSubstr(isColored ? red + message + plain : "\n" + message));
        EXPECT_THAT(out, isColored ? HasSubstr(red + "ERROR" + plain + " AudioUtils: ")
                                   : HasSubstr(" ERROR AudioUtils: "));
        EXPECT_EQ(out.find('\033') != std::string::npos, isColored) << before << option;
    }
}

TEST_F(TerminalTest, ColoursFilesAndPipesOnRequestOnly)
{
    EXPECT_EQ(play("--device nowhere " + recording), 3);
    EXPECT_THAT(err, Not(HasSubstr("\033")));
    EXPECT_EQ(play("--color always --device nowhere " + recording), 3);
    EXPECT_THAT(err, HasSubstr(red));
}

TEST_F(TerminalTest, ShowsUnderrunsInRed)
{
    FaultySoundCard card;
    card->fault = -EPIPE;
    card->faultAtFrame = 24'000;
    card->faultRepeats = 1;
    ASSERT_EQ(playOnTerminal(80, "--device faulty --duration 1.2 --loop " + recording), 4);
    EXPECT_THAT(drawings().back(), HasSubstr(red + "underruns 1" + plain));
    EXPECT_THAT(out, HasSubstr(", " + red + "1 underruns" + plain + ", " + red));
}

TEST_F(TerminalTest, PrintsPlainLinesWhereNothingCanBeDrawn)
{
    ASSERT_EQ(playOnTerminal(80, patient + recording, "TERM=dumb "), 0) << out;
    EXPECT_THAT(out, Not(HasSubstr("\033")));
    EXPECT_THAT(out, HasSubstr("\n00:00.0  queue "));
}
