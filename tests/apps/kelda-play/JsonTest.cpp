// --json: what happens, for programs.

#include <algorithm>

#include <nlohmann/json.hpp>

#include "PlayFixture.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testSupport::FaultySoundCard;
using Json = nlohmann::json;

namespace {

class JsonTest : public PlayTest
{
protected:
    /// All lines are objects; those of one kind, or of every.
    [[nodiscard]] std::vector<Json> events(const std::string& kind = "") const
    {
        std::vector<Json> events;
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);) {
            const Json event = Json::parse(line, nullptr, false);
            EXPECT_TRUE(event.is_object()) << line;
            if (event.is_object() && (kind.empty() || event.at("event") == kind)) {
                events.push_back(event);
            }
        }
        return events;
    }

    [[nodiscard]] Json onlyEvent(const std::string& kind) const
    {
        const std::vector<Json> found = events(kind);
        EXPECT_THAT(found, SizeIs(1)) << kind << "\n" << out;
        return found.empty() ? Json::object() : found.front();
    }

    [[nodiscard]] std::vector<std::string> kinds() const
    {
        std::vector<std::string> kinds;
        for (const Json& event : events()) {
            kinds.push_back(event.at("event"));
        }
        return kinds;
    }
};

} // namespace

TEST_F(JsonTest, TellsTheStartTheFilesAndTheEnd)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 24'000);
    createSound(path("b.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48'000);
    ASSERT_EQ(play("--json" + patient + path("a.wav") + " " + path("b.wav")), 0) << err;
    EXPECT_EQ(onlyEvent("start"), Json::parse(R"({"event": "start", "device": "fake",
        "rate": 48000, "channels": 2, "format": "S24LE", "period": 480, "buffer": 24000,
        "startThreshold": 24000, "sourceRate": 48000, "sourceChannels": 2,
        "sourceFormat": "S24LE"})"));
    const std::vector<Json> files = events("file");
    ASSERT_THAT(files, SizeIs(2));
    EXPECT_EQ(files[0].at("path"), path("a.wav"));
    EXPECT_EQ(files[0].at("index"), 0);
    EXPECT_EQ(files[0].at("format"), "S16LE");
    EXPECT_EQ(files[0].at("duration"), 0.5);
    EXPECT_EQ(files[1].at("path"), path("b.wav"));
    EXPECT_EQ(files[1].at("index"), 1);
    EXPECT_EQ(files[1].at("rate"), 48000);
    EXPECT_EQ(files[1].at("channels"), 2);
    const Json end = events().back();
    EXPECT_EQ(end.at("event"), "end");
    EXPECT_EQ(end.at("status"), 0);
    EXPECT_EQ(end.at("played"), 1.5);
    EXPECT_EQ(end.at("underruns"), 0);
    EXPECT_EQ(end.at("missingFrames"), 0);
    EXPECT_TRUE(end.at("errorWorst").is_number());
    EXPECT_THAT(err, IsEmpty());
}

TEST_F(JsonTest, TellsEachSecondHowItGoes)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2 * 48'000);
    ASSERT_EQ(play("--json" + patient + path("a.wav")), 0) << err;
    const std::vector<Json> all = events("status");
    EXPECT_THAT(all, SizeIs(testing::AllOf(testing::Ge(2U), testing::Le(5U)))) << out;
    const Json& last = all.back();
    EXPECT_EQ(last.at("file"), 0);
    EXPECT_GT(last.at("position"), 0.5);
    EXPECT_NEAR(last.at("filePosition"), last.at("position"), 0.7) << "what the device holds";
    EXPECT_GT(last.at("delay"), 100) << "ms";
    EXPECT_LE(last.at("queue"), 500) << "ms";
    EXPECT_LT(std::abs(last.at("error").get<double>()), 100) << "us";
    EXPECT_EQ(last.at("underruns"), 0);
}

TEST_F(JsonTest, TellsAFileWhenItIsItsTurn)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48'000);
    createSound(path("b.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48'000);
    ASSERT_EQ(play("--json --loop --duration 2.5" + patient + path("a.wav") + " " + path("b.wav")),
              0)
        << err;
    std::vector<int> indices;
    for (const Json& file : events("file")) {
        // Its first frame is due: what was written by then is ahead by what the device holds.
        EXPECT_NEAR(file.at("position"), static_cast<double>(indices.size()) + 0.5, 0.3) << out;
        indices.push_back(file.at("index"));
    }
    EXPECT_THAT(indices, ElementsAre(0, 1, 0));
}

TEST_F(JsonTest, TellsUnderrunsAndADeviceThatIsAway)
{
    FaultySoundCard card;
    card->fault = -EPIPE;
    card->faultAtFrame = 24'000;
    card->faultRepeats = 1;
    const auto takeAway = [&] {
        EXPECT_TRUE(time.runUntil([&] { return card->framesTaken >= 60'000; }));
        card->isGone = true;
        pass(std::chrono::milliseconds(500));
        card->isGone = false;
    };
    const auto playOn = [this] {
        return play("--json --device faulty --duration 3 --loop " + recording);
    };
    EXPECT_EQ(doWhile(playOn, takeAway), 4) << err;
    EXPECT_GE(events("underrun").size(), 1U);
    EXPECT_GT(events("underrun").front().at("position"), 0.1);
    EXPECT_GT(onlyEvent("deviceLost").at("position"), 0.5);
    EXPECT_GT(onlyEvent("deviceBack").at("away"), 0.3);
    const Json end = onlyEvent("end");
    EXPECT_EQ(end.at("underruns"), events("underrun").size());
    EXPECT_EQ(end.at("status"), 4);
    EXPECT_GT(end.at("unheardFrames"), 0);
    EXPECT_LE(end.at("unheardFrames"), 2 * (3840 + 480)) << "what it held, and was given";
    EXPECT_GT(end.at("moved"), 0.3);
    EXPECT_THAT(onlyEvent("error").at("message").get<std::string>(),
                HasSubstr(" frames were not heard: "));
}

TEST_F(JsonTest, TellsADeviceThatNeverComesBack)
{
    FaultySoundCard card;
    const auto takeAway = [&] {
        EXPECT_TRUE(time.runUntil([&] { return card->framesTaken >= 24'000; }));
        card->isGone = true;
    };
    const auto playOn = [this] {
        return play("--json --device faulty --duration 2 --loop " + recording);
    };
    EXPECT_EQ(doWhile(playOn, takeAway), 3);
    EXPECT_THAT(events("deviceBack"), IsEmpty());
    EXPECT_EQ(onlyEvent("error").at("message"), "device faulty has not come back");
    EXPECT_EQ(events().back().at("event"), "end");
    EXPECT_EQ(events().back().at("status"), 3);
}

TEST_F(JsonTest, TellsWhatWentWrongBeforeAnythingPlayed)
{
    const struct
    {
        std::string arguments;
        int status;
        const char* message;
    } cases[] = {{"--json /nowhere/a.wav", 1, "/nowhere/a.wav: "},
                 {"--json --device nowhere " + recording, 3, "device nowhere can't be opened"},
                 {"--json --period 0 " + recording, 2, "--period: "},
                 {"--no-such-option --json", 2, "no-such-option"},
                 {"--json", 2, "FILE is required"}};
    for (const auto& [arguments, status, message] : cases) {
        EXPECT_EQ(play(arguments), status);
        EXPECT_THAT(kinds(), ElementsAre("error", "end")) << arguments;
        const std::string told = onlyEvent("error").at("message");
        EXPECT_THAT(told, HasSubstr(message));
        EXPECT_EQ(onlyEvent("end"), (Json{{"event", "end"}, {"status", status}}));
        EXPECT_THAT(err, testing::EndsWith("kelda-play: " + told + "\n")) << "and on a line";
    }
    EXPECT_EQ(play("-- --json"), 1);
    EXPECT_THAT(out, IsEmpty()) << "a file's name";
}

TEST_F(JsonTest, EscapesNames)
{
    const std::string name = "a \"b\"\\\t\xC3\xA4\xFF.wav";
    createSound(path(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 480);
    ASSERT_EQ(play("--json " + folder.string()), 0) << err;
    EXPECT_EQ(onlyEvent("file").at("path"), path("a \"b\"\\\t\xC3\xA4\xEF\xBF\xBD.wav"));
}

TEST_F(JsonTest, EndsWithStatus0OnCtrlC)
{
    EXPECT_EQ(interrupt("--json --loop" + patient + recording, SIGINT), 0) << err;
    EXPECT_EQ(events().back().at("event"), "end");
    EXPECT_EQ(events().back().at("status"), 0);
}
