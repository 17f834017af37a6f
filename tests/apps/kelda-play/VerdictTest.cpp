// What the player says of a run: the words of its console, its JSON and its page. Which word it is
// depends on the machine, too, unless something is sure to have happened.

#include <nlohmann/json.hpp>

#include "PlayFixture.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testSupport::FaultySoundCard;
using Json = nlohmann::json;

namespace {

class PlayVerdictTest : public PlayTest
{
protected:
    [[nodiscard]] std::string report() const { return " --report " + path("report") + " "; }
    [[nodiscard]] std::string page() const { return read("report/index.html"); }

    [[nodiscard]] Json end() const
    {
        const std::string text = out.substr(0, out.find_last_not_of('\n') + 1);
        return Json::parse(text.substr(text.rfind('\n') + 1), nullptr, false);
    }

    /// The end event of a run, whose words are those of its page.
    Json playAsJson(const std::string& arguments, const std::string& before = "")
    {
        play("--json " + report() + arguments, before);
        Json event = end();
        EXPECT_TRUE(event.is_object()) << out << err;
        const std::string verdict = event.value("verdict", "");
        EXPECT_THAT(page(),
                    HasSubstr(">" + verdict + "</h1><p>" + event.value("reason", "") + ".</p>"));
        EXPECT_EQ(event.value("report", ""), path("report/index.html"));
        return event;
    }
};

} // namespace

TEST_F(PlayVerdictTest, IsTheSameOnTheConsoleAndOnThePage)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 96'000);
    ASSERT_EQ(play(report() + patient + path("a.wav")), 0) << err;
    const std::size_t begin = out.find("verdict       ");
    ASSERT_NE(begin, std::string::npos) << out;
    const std::string line = out.substr(begin + 14, out.find('\n', begin) - begin - 14);
    const std::size_t colon = line.find(": ");
    EXPECT_THAT(page(),
                HasSubstr(">" + line.substr(0, colon) + "</h1><p>" + line.substr(colon + 2) + "."));
    EXPECT_THAT(line, AnyOf(HasSubstr("In sync: 99 %"), HasSubstr("Not in sync: 99 %"),
                            HasSubstr("Interrupted: ")));
    EXPECT_THAT(page(), Not(HasSubstr("<td>error, worst<td>0 us")));
    EXPECT_THAT(out, HasSubstr("report        " + path("report/index.html") + "\n"));
}

TEST_F(PlayVerdictTest, TellsOfAGap)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 144'000);
    const Json event = playAsJson(patient + "--gap 1:200 " + path("a.wav"));
    EXPECT_THAT(event.value("verdict", ""), AnyOf("Interrupted", "Not in sync"));
    EXPECT_GE(event.value("events", 0), 1);
    EXPECT_THAT(event.value("reason", ""), HasSubstr("of silence in gaps"));
    EXPECT_THAT(page(), Not(HasSubstr("<td>silences<td>0")));
}

TEST_F(PlayVerdictTest, TellsOfASourceThatIsFarOff)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48'000);
    const Json event =
        playAsJson(patient + "--loop --duration 4 --source-ppm 8000 " + path("a.wav"));
    EXPECT_EQ(event.value("verdict", ""), "Not in sync");
    EXPECT_GT(std::abs(event.value("errorWorst", 0.0)), 10'000);
}

TEST_F(PlayVerdictTest, SaysThatItCouldNotTell)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 24'000);
    EXPECT_THAT(playAsJson(patient + path("a.wav")).value("verdict", ""),
                AnyOf("Not measured", "Interrupted"));
}

TEST_F(PlayVerdictTest, WritesAPageOfNothing)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0);
    const Json event = playAsJson(path("a.wav"));
    EXPECT_EQ(event.value("verdict", ""), "Nothing heard");
    EXPECT_TRUE(event.at("errorWorst").is_null());
    EXPECT_THAT(page(), HasSubstr("<td>error, worst<td>not measured"));
    EXPECT_THAT(page(), HasSubstr("<td>events<td>not measured"));
}

TEST_F(PlayVerdictTest, TellsWhatWasPlayedWhereAndHow)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48'000);
    playAsJson(patient + "--correct resample " + path("a.wav"));
    std::array<char, 256> host{};
    ASSERT_EQ(gethostname(host.data(), host.size() - 1), 0);
    for (const std::string& fact :
         {std::string("<td>written<"),
          "<td>host<td style=text-align:left>" + std::string(host.data()),
          std::string(">kelda-play 1."), "--correct resample " + path("a.wav") + "</tr>",
          std::string(">fake: 48000 Hz, 2 channels, S16LE, period 480, buffer 24000, start 24000"),
          std::string("<td>correction<td style=text-align:left>resample; Kp 0.16"),
          std::string("<td>duration<")}) {
        EXPECT_THAT(page(), HasSubstr(fact));
    }
}

// The end of the run, not that of what was measured.
TEST_F(PlayVerdictTest, DrawsAnAxisUntilTheEnd)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 96'000);
    playAsJson(patient + "--gap 1:900 " + path("a.wav"));
    const std::string plots = read("report/plots.gnuplot");
    const std::string axis = "set xrange [0:";
    const std::size_t at = plots.find(axis);
    ASSERT_NE(at, std::string::npos) << plots;
    const std::string duration = "<td>duration<td style=text-align:left>";
    const double seconds = std::stod(page().substr(page().find(duration) + duration.size()));
    EXPECT_NEAR(std::stod(plots.substr(at + axis.size())), seconds, 0.01);
    EXPECT_GE(seconds, 2);
}

TEST_F(PlayVerdictTest, TellsOfADeviceThatWasAway)
{
    FaultySoundCard card;
    Json event;
    const auto playOn = [&] {
        event = playAsJson("--device faulty --duration 4 --loop " + recording);
        return 0;
    };
    doWhile(playOn, [&] {
        EXPECT_TRUE(time.runUntil([&] { return card->framesTaken >= 60'000; }));
        card->isGone = true;
        pass(std::chrono::milliseconds(500));
        card->isGone = false;
    });
    EXPECT_THAT(event.value("verdict", ""), AnyOf("Interrupted", "Not in sync"));
    EXPECT_GE(event.value("events", 0), 1);
}

// What the laboratory's program says to a script.
TEST_F(PlayTest, LaboratoryFailsWhereAGoalWasNotMeasured)
{
    const auto runOf = [this](const std::string& scenario) {
        std::ofstream(path("s.json")) << scenario;
        const std::string command =
            KELDA_LAB " run " + path("s.json") + " --report " + path("report") + " >" + path("out");
        return finish(std::system(command.c_str()));
    };
    const std::string drifting =
        R"("seconds": 20, "source": {"ppm": 500}, "drift": {"correct": "none"})";
    EXPECT_EQ(runOf("{" + drifting + "}"), 0) << "there is no goal";
    EXPECT_THAT(out, HasSubstr("Not in sync: 99 % of the time"));
    EXPECT_THAT(out, HasSubstr("report: " + path("report/index.html")));
    EXPECT_THAT(read("report/index.html"), HasSubstr("<h1 class=no>Not in sync</h1>"));
    EXPECT_EQ(runOf("{" + drifting + R"(, "goals": {"error in lock, p99": 20}})"), 1) << out;
    EXPECT_THAT(out,
                testing::ContainsRegex("error in lock, p99 +not measured +at most 20   MISSED"));
    EXPECT_THAT(read("report/index.html"), HasSubstr("Missed goals: error in lock, p99."));
}
