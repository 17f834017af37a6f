// What the player writes: never over what it reads, never half, and never without a word.

#include <set>

#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "PlayFixture.h"

namespace {

using namespace keldaPlayTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
namespace fs = std::filesystem;

class OutputTest : public PlayTest
{
protected:
    OutputTest()
    {
        createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000);
        fs::create_directory(files);
    }

    /// Where a test keeps what is written: nothing else is to be there.
    [[nodiscard]] std::string in(const std::string& name) const { return files / name; }

    [[nodiscard]] std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : fs::directory_iterator(files)) {
            found.insert(entry.path().filename());
        }
        return found;
    }

    void put(const std::string& name, const std::string& text) const
    {
        std::ofstream(files / name) << text;
    }

    [[nodiscard]] std::string get(const std::string& name) const { return read("files/" + name); }

    int run(const std::string& command)
    {
        return PlayTest::run("cd " + files.string() + "; " + command);
    }

    [[nodiscard]] std::string shortPlayer() { return player() + "--duration 0.2 "; }

    const fs::path files = folder / "files";
};

TEST_F(OutputTest, IsNeverWhatIsPlayed)
{
    fs::copy(path("a.wav"), in("a.wav"));
    const std::string before = get("a.wav");
    fs::create_hard_link(in("a.wav"), in("hard"));
    fs::create_symlink("a.wav", in("soft"));
    fs::create_directory(in("report"));
    fs::create_hard_link(in("a.wav"), in("report/index.html"));
    std::ofstream(in("report/plots.gnuplot")) << "of a report before";
    const auto there = names();
    for (const std::string arguments :
         {"a.wav --record a.wav", "a.wav --trace a.wav", "./a.wav --record $PWD/a.wav",
          "a.wav --record hard", "hard --trace a.wav", "a.wav --record soft", "soft --trace a.wav",
          ". --record a.wav", "a.wav --report report", "- --raw 48000:2:S16LE --trace hard"}) {
        EXPECT_EQ(run(shortPlayer() + arguments + " <a.wav >../out 2>../err"), 2) << arguments;
        EXPECT_THAT(err,
                    AllOf(StartsWith("kelda-play: --"), HasSubstr("is the same file that is")));
        EXPECT_EQ(numLines(err), 1U) << err;
        EXPECT_THAT(out, IsEmpty()) << "it has been played";
        EXPECT_EQ(get("a.wav"), before) << arguments;
        EXPECT_EQ(names(), there) << arguments;
    }
}

TEST_F(OutputTest, IsNotAnotherOutput)
{
    fs::create_directory(in("report"));
    for (const std::string arguments :
         {"--record x --trace ./x", "--record new --trace link",
          "--trace report/trace.csv --report report", "--trace /dev/stdout --record /dev/stdout"}) {
        fs::remove(in("link"));
        fs::create_symlink("new", in("link"));
        EXPECT_EQ(run(shortPlayer() + "../a.wav " + arguments + " >../out 2>../err"), 2)
            << arguments;
        EXPECT_THAT(err, HasSubstr("is the same file that is written by --")) << arguments;
        EXPECT_THAT(names(), ElementsAre("link", "report")) << arguments;
    }
    EXPECT_EQ(run(shortPlayer() + "../a.wav --record /dev/null --trace /dev/null >../out 2>../err"),
              0)
        << err;
}

TEST_F(OutputTest, IsRefusedBeforeAnythingIsPlayed)
{
    put("file", "a user's");
    fs::create_directory(in("page"));
    std::ofstream(in("page/index.html")) << "a user's";
    put("pipe", "");
    fs::remove(in("pipe"));
    ASSERT_EQ(mkfifo(in("pipe").c_str(), 0666), 0);
    const auto there = names();
    const std::pair<std::string, std::string> cases[] = {
        {"--record no/r.wav", "no/r.wav: No such file or directory"},
        {"--trace no/t.csv", "no/t.csv: No such file or directory"},
        {"--record page", "page: Is a directory"},
        {"--report file", "file: "},
        {"--report /proc/report", "/proc/report: "},
        {"--report page", "page/index.html: exists, and is not of a report"},
        {"--json --trace /dev/stdout", "/dev/stdout: is standard output, which --json writes to"},
    };
    for (const auto& [arguments, message] : cases) {
        EXPECT_THAT(run(shortPlayer() + "../a.wav " + arguments + " >../out 2>../err"),
                    testing::AnyOf(1, 2))
            << arguments;
        EXPECT_THAT(err, HasSubstr(message)) << arguments;
        EXPECT_THAT(out, testing::Not(HasSubstr("played"))) << arguments;
        EXPECT_EQ(names(), there) << arguments;
    }
    EXPECT_EQ(run("PATH=/nowhere " + shortPlayer() + "../a.wav --report new >../out 2>../err"), 1);
    EXPECT_EQ(err, "kelda-play: gnuplot, which draws the report, is not installed\n");
    EXPECT_EQ(run("timeout 20 cat pipe >../cat & " + shortPlayer() +
                  "../a.wav --record pipe >../out 2>../err; s=$?; wait; exit $s"),
              1);
    EXPECT_THAT(err, HasSubstr("pipe: such a file's header is completed at its end"));
    EXPECT_EQ(names(), there);
}

TEST_F(OutputTest, IsAsItWasWhenTheDiskIsFull)
{
    for (const std::string name : {"r.wav", "t.csv"}) {
        put(name, "before");
    }
    // The limit of 4096 bytes is what a full disk is.
    EXPECT_EQ(run("bash -c 'ulimit -f 4; " + shortPlayer() +
                  "../a.wav --record r.wav >/dev/null 2>../err'"),
              1);
    // (What measures coverage finds the disk full, too, and says so.)
    EXPECT_THAT(read("err"), StartsWith("kelda-play: r.wav: File too large\n"));
    EXPECT_EQ(run("bash -c 'ulimit -f 1; " + shortPlayer() +
                  "../a.wav --period 48 --trace t.csv >/dev/null 2>../err'"),
              1);
    EXPECT_THAT(read("err"), StartsWith("kelda-play: t.csv: File too large\n"));
    EXPECT_EQ(get("r.wav"), "before");
    EXPECT_EQ(get("t.csv"), "before");
    EXPECT_THAT(names(), ElementsAre("r.wav", "t.csv"));
}

TEST_F(OutputTest, IsWholeWhenPlayingIsInterruptedAndAsItWasWhenItIsKilled)
{
    const std::string arguments = "--loop " + path("a.wav") + " --record " + in("r.wav") +
                                  " --trace " + in("t.csv") + patient;
    for (const int signal : {SIGKILL, SIGINT, SIGTERM}) {
        put("r.wav", "before");
        put("t.csv", "before");
        const bool isKilled = signal == SIGKILL;
        EXPECT_EQ(interrupt(arguments, signal), isKilled ? -SIGKILL : 0) << err;
        if (isKilled) {
            EXPECT_EQ(get("r.wav"), "before");
            EXPECT_EQ(get("t.csv"), "before");
            EXPECT_EQ(names().size(), 4U) << "what was written until then";
            for (const std::string& name : names()) {
                if (name.starts_with('.')) {
                    EXPECT_THAT(name, AllOf(HasSubstr(".part-")));
                    fs::remove(in(name));
                }
            }
            continue;
        }
        EXPECT_THAT(names(), ElementsAre("r.wav", "t.csv"));
        std::size_t frames = 0;
        for (const TraceRow& row : testSupport::readTrace(in("t.csv"))) {
            frames += row.frames;
        }
        EXPECT_GT(frames, 24'000U);
        EXPECT_EQ(load(in("r.wav")).frames(), frames);
    }
}

TEST_F(OutputTest, HasTheTraceOfWhatWasPlayedBeforeAFileFailed)
{
    fs::copy(path("a.wav"), in("b.wav"));
    const auto playBoth = [this] {
        return run(player() + "../a.wav b.wav --queue-ms 300 --record r.wav --trace t.csv" +
                   kept());
    };
    const auto remove = [this] {
        pass(std::chrono::milliseconds(400));
        fs::remove(in("b.wav"));
    };
    EXPECT_EQ(doWhile(playBoth, remove), 1);
    EXPECT_THAT(err, HasSubstr("b.wav: "));
    EXPECT_GE(load(in("r.wav")).frames(), 48'000U);
    EXPECT_THAT(names(), ElementsAre("r.wav", "t.csv"));
}

TEST_F(OutputTest, KeepsLinksAndPermissions)
{
    put("old", "before");
    fs::permissions(in("old"), fs::perms(0604));
    fs::create_symlink("old", in("link"));
    fs::create_symlink("new", in("dangling"));
    EXPECT_EQ(
        run("umask 027; " + shortPlayer() + "../a.wav --record link --trace dangling >../out"), 0);
    EXPECT_TRUE(fs::is_symlink(in("link")));
    EXPECT_TRUE(fs::is_symlink(in("dangling")));
    EXPECT_GT(load(in("old")).frames(), 0U);
    EXPECT_THAT(get("new"), StartsWith("due_time_ns,"));
    EXPECT_EQ(fs::status(in("old")).permissions(), fs::perms(0604));
    EXPECT_EQ(fs::status(in("new")).permissions(), fs::perms(0640));
    EXPECT_THAT(names(), ElementsAre("dangling", "link", "new", "old"));
}

TEST_F(OutputTest, GoesToPipesAndToStandardOutput)
{
    ASSERT_EQ(mkfifo(in("pipe").c_str(), 0666), 0);
    EXPECT_EQ(run("cat pipe >t.csv & " + shortPlayer() +
                  "../a.wav --trace pipe >../out; s=$?; wait; "
                  "exit $s"),
              0);
    EXPECT_THAT(get("t.csv"), StartsWith("due_time_ns,"));
    EXPECT_EQ(get("t.csv").back(), '\n');
    EXPECT_TRUE(fs::is_fifo(in("pipe")));

    EXPECT_EQ(run(shortPlayer() + "../a.wav --trace /dev/stdout 2>../err | cat >t.csv"), 0);
    const auto rows = testSupport::readTrace(in("t.csv"));
    EXPECT_EQ(numLines(get("t.csv")), rows.size() + 1) << "and nothing else";
    EXPECT_THAT(read("err"), HasSubstr("played        0.200 s in "));

    EXPECT_EQ(run(shortPlayer() + "../a.wav --record /dev/stdout >r.wav 2>../err"), 0);
    EXPECT_GT(load(in("r.wav")).frames(), 9600U);
}

TEST_F(OutputTest, IsToldToBeMissingWhereStandardOutputIsFullOrClosed)
{
    const std::string scenario = in("s.json");
    put("s.json", R"({"seconds": 2})");
    const std::string lab = KELDA_LAB;
    const std::string commands[] = {shortPlayer() + "../a.wav",
                                    shortPlayer() + "--json ../a.wav",
                                    player() + "--json /nowhere/a.wav",
                                    KELDA_PLAY " --describe ../a.wav",
                                    KELDA_PLAY " --describe-device fake",
                                    shortPlayer() + "--help",
                                    shortPlayer() + "--version",
                                    KELDA_RESAMPLE " --help",
                                    KELDA_RESAMPLE " --version",
                                    lab + " run s.json",
                                    lab + " --help"};
    for (const std::string& command : commands) {
        for (const std::string full : {" >/dev/full", " >&-"}) {
            EXPECT_EQ(run(command + full + " 2>../err"), 1) << command << full;
            EXPECT_THAT(read("err"), EndsWith(": standard output: not all could be written\n"))
                << command << full;
        }
    }
    EXPECT_EQ(run(shortPlayer() + "../a.wav --trace t.csv >&- 2>../err"), 1);
    EXPECT_THAT(get("t.csv"), StartsWith("due_time_ns,")) << "not what was printed";
    EXPECT_EQ(get("t.csv").find("played"), std::string::npos);
}

TEST_F(OutputTest, EndsPlayingWhenNobodyReadsIt)
{
    const std::string command = player() + "--loop --json ../a.wav --record r.wav 2>../err | "
                                           "head -n 1 >../out; exit ${PIPESTATUS[0]}";
    EXPECT_EQ(run("timeout 60 bash -c '" + command + "'"), 128 + SIGPIPE);
    EXPECT_THAT(out, HasSubstr(R"("event":"start")"));
    EXPECT_THAT(err, IsEmpty());
    EXPECT_GT(load(in("r.wav")).frames(), 0U);
}

TEST_F(OutputTest, LeavesWhatElseIsInTheFolderOfAReport)
{
    const std::string report = "it\\'s\\ \\$HOME"; // as a shell reads it
    const std::string there = in("it's $HOME");
    EXPECT_EQ(run(shortPlayer() + "../a.wav --report " + report + " >../out 2>../err"), 0)
        << read("err");
    std::ofstream(there + "/notes.txt") << "a user's";
    std::ofstream(there + "/index.html") << "of a run before";
    EXPECT_EQ(run(shortPlayer() + "../a.wav --report " + report + " >../out 2>../err"), 0)
        << read("err");
    EXPECT_THAT(read("files/it's $HOME/notes.txt"), "a user's");
    EXPECT_THAT(read("files/it's $HOME/index.html"), EndsWith("</html>\n"));
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator(there)) {
        found.insert(entry.path().filename());
    }
    EXPECT_THAT(found,
                ElementsAre("adjustment.svg", "after.png", "before.png", "error.svg", "fill.svg",
                            "index.html", "notes.txt", "plots.gnuplot", "trace.csv"));
}

TEST_F(OutputTest, LeavesAReportAsItWasWhenItCantBeDrawn)
{
    fs::create_directories(in("report"));
    fs::create_directories(in("bin"));
    std::ofstream(in("report/plots.gnuplot")) << "before";
    std::ofstream(in("report/index.html")) << "before";
    std::ofstream(in("bin/gnuplot")) << "#!/bin/sh\necho 'no terminal svg' >&2\nexit 1\n";
    fs::permissions(in("bin/gnuplot"), fs::perms(0755));
    EXPECT_EQ(
        run("PATH=$PWD/bin:$PATH " + shortPlayer() + "../a.wav --report report >../out 2>../err"),
        1);
    EXPECT_THAT(err, EndsWith("gnuplot could not draw: no terminal svg\n"));
    EXPECT_EQ(read("files/report/index.html"), "before");
    EXPECT_EQ(std::distance(fs::directory_iterator(in("report")), fs::directory_iterator()), 2);
}

} // namespace
