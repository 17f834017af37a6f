// What the three programs say to each argument of each option. Which options there are, and in
// which range their numbers lie, is asked of --help: a new option is judged like the others.

#include "Options.h"

#include <map>
#include <optional>
#include <regex>

#include "Arguments.h"
#include "Errors.h"
#include "PlayFixture.h"
#include "WithoutEffect.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;
using keldaPlay::numberIn;
using keldaPlay::Options;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

namespace {

struct Parsed
{
    std::optional<int> status; // none: the program would go on
    std::string out;
    std::string err;
    Options options;
};

/// The player's own parser, within this process.
Parsed parse(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "kelda-play");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    Parsed parsed;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    parsed.status =
        keldaPlay::parseOptions(static_cast<int>(argv.size()), argv.data(), parsed.options);
    parsed.err = testing::internal::GetCapturedStderr();
    parsed.out = testing::internal::GetCapturedStdout();
    return parsed;
}

/// An option that takes an argument.
struct Argument
{
    std::string name;
    std::string least; // of a number; else empty
    std::string largest;
};

std::vector<Argument> argumentsIn(const std::string& help)
{
    std::vector<std::string> entries;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("  -")) {
            entries.emplace_back();
        }
        if (!entries.empty()) {
            entries.back() += line.empty() ? "#" : line; // behind a # another group begins
        }
    }
    std::vector<Argument> arguments;
    static const std::regex named("^  (--[a-z-]+) ([A-Za-z.:|,]+)[^#]*");
    static const std::regex range("\\(([-0-9.e+]+) to ([-0-9.e+]+)(, required)?\\) *$");
    for (const std::string& entry : entries) {
        std::smatch name;
        std::smatch limits;
        if (std::regex_search(entry, name, named) && !name.str(2).empty() &&
            entry.find("  ", 2) > static_cast<std::size_t>(name.position(2))) {
            const std::string text = name.str();
            const bool isNumber = std::regex_search(text, limits, range);
            arguments.push_back(isNumber ? Argument{name[1], limits[1], limits[2]}
                                         : Argument{name[1], "", ""});
        }
    }
    return arguments;
}

std::string beyond(const std::string& limit, int direction)
{
    const double value = numberIn<double>(limit).value();
    const double step = value == std::floor(value) ? 1 : 1e-9;
    std::ostringstream out;
    out.precision(17);
    out << value + direction * step;
    return out.str();
}

std::vector<std::string> wrongNumbers(const Argument& argument)
{
    return {"",
            "nan",
            "-nan",
            "inf",
            "-inf",
            "infinity",
            "0x10",
            "5x",
            " 5",
            "5 ",
            "+-5",
            "1,5",
            "1e400",
            "-1e400",
            "five",
            "--rate",
            "1 2",
            "\xff",
            std::string(400, '9'),
            beyond(argument.least, -1),
            beyond(argument.largest, 1)};
}

std::string asTold(const std::string& text)
{
    return text.size() > 40 ? text.substr(0, 40) + "..." : text;
}

/// The words for a number that is none, for either kind of number.
testing::Matcher<std::string> refuses(const std::string& program, const Argument& argument,
                                      const std::string& text)
{
    const std::string end =
        "number from " + argument.least + " to " + argument.largest + ": " + asTold(text) + "\n";
    const std::string begin = program + ": " + argument.name + ": not a ";
    return testing::AnyOf(begin + end, begin + "whole " + end);
}

/// What belongs to an option for it to have an effect.
std::vector<std::string> companionsOf(const std::string& option)
{
    static const std::map<std::string, std::vector<std::string>> companions = {
        {"--kp", {"--correct", "resample"}},
        {"--ki", {"--correct", "resample"}},
        {"--kd", {"--correct", "resample"}},
        {"--adjust-limit", {"--correct", "resample"}},
        {"--filter-alpha", {"--correct", "resample"}},
        {"--sample-time", {"--correct", "resample"}},
        {"--seed", {"--jitter", "1"}},
        {"--wait", {"--device", "null"}},
    };
    const auto entry = companions.find(option);
    return entry != companions.end() ? entry->second : std::vector<std::string>();
}

class OptionsTest : public PlayTest
{
protected:
    int run(const std::string& command)
    {
        return finish(std::system(
            (command + " >" + path("out") + " 2>" + path("err") + " </dev/null").c_str()));
    }

    /// Tries every number of another program.
    /// @param others what the program needs besides
    void expectRanges(const std::string& program, const std::string& name,
                      const std::string& others)
    {
        ASSERT_EQ(run(program + " --help"), 0);
        std::size_t numRanges = 0;
        for (const Argument& argument : argumentsIn(out)) {
            if (argument.least.empty()) {
                continue;
            }
            ++numRanges;
            for (const std::string& text : wrongNumbers(argument)) {
                const std::string command = program + " " + argument.name + " '" + text + "'";
                EXPECT_EQ(run(command + (argument.name == "--rate" ? "" : others)), 2) << command;
                if (text != "--rate") {
                    EXPECT_THAT(err, refuses(name, argument, text)) << command;
                }
            }
        }
        EXPECT_EQ(numRanges, 2U) << out;
    }
};

} // namespace

TEST(NumberText, IsReadWholeAndInDecimal)
{
    EXPECT_EQ(numberIn<unsigned int>("010"), 10U) << "no octal";
    EXPECT_EQ(numberIn<unsigned int>("+7"), 7U);
    EXPECT_EQ(numberIn<unsigned int>("4294967296"), std::nullopt);
    EXPECT_EQ(numberIn<unsigned int>("-1"), std::nullopt);
    EXPECT_EQ(numberIn<double>("-1.5e3"), -1500);
    EXPECT_EQ(numberIn<double>(".5"), 0.5);
    for (const char* text : {"", "+", "-", "0x1", "nan", "inf", "1e999", "1 ", " 1", "1;"}) {
        EXPECT_EQ(numberIn<double>(text), std::nullopt) << text;
    }
}

TEST(Options, RefusesWhatIsNoNumberOfItsRange)
{
    for (const Argument& argument : argumentsIn(parse({"--help"}).out)) {
        if (argument.least.empty()) {
            continue;
        }
        for (const std::string& text : wrongNumbers(argument)) {
            const Parsed parsed = parse({argument.name, text, "a.wav"});
            EXPECT_EQ(parsed.status, 2) << argument.name << " " << text;
            if (text != "--rate") {
                EXPECT_THAT(parsed.err, refuses("kelda-play", argument, text));
            }
        }
    }
}

TEST(Options, TakesEveryNumberOfItsRange)
{
    std::size_t numRanges = 0;
    for (const Argument& argument : argumentsIn(parse({"--help"}).out)) {
        for (const std::string& text : {argument.least, argument.largest}) {
            if (!text.empty()) {
                std::vector<std::string> arguments = {argument.name, text, "a.wav"};
                const std::vector<std::string> companions = companionsOf(argument.name);
                arguments.insert(arguments.end(), companions.begin(), companions.end());
                EXPECT_EQ(parse(arguments).err, "");
                ++numRanges;
            }
        }
    }
    EXPECT_EQ(numRanges, 2U * 21);
    EXPECT_EQ(parse({"--queue-ms", "0100", "a.wav"}).options.queueMs, 100U) << "no octal";
    EXPECT_EQ(parse({"--source-ppm", "+1.25e1", "a.wav"}).options.sourcePpm, 12.5);
    EXPECT_EQ(parse({"--kp", "0.1", "--correct", "resample", "a.wav"}).options.drift.Kp, 0.1);
}

// Every option that takes an argument has a range, or stands here with what it says to nonsense.
TEST(Options, RefusesNonsenseWithAReason)
{
    const std::map<std::string, std::pair<std::string, std::string>> nonsense = {
        {"--raw", {"48000:2", "not RATE:CHANNELS:FORMAT, e.g. 48000:2:S16LE: 48000:2"}},
        {"--device", {"", "is empty"}},
        {"--format",
         {"S17LE", "unknown format S17LE, known are S16LE S16BE S24LE S24BE S24_32LE "
                   "S24_32BE S32LE S32BE F32LE F32BE"}},
        {"--channel-map",
         {"FOO BAR", "no map of speakers: FOO BAR, known are MONO FL FR RL RR FC "
                     "LFE SL SR RC FLC FRC RLC RRC FLW FRW FLH FCH FRH TC TFL TFR "
                     "TFC TRL TRR TRC TFLC TFRC TSL TSR LLFE RLFE BC BLC BRC"}},
        {"--resampler", {"1", "not one of float, gstreamer, short: 1"}},
        {"--quality", {"", "not one of best, high, low, medium: "}},
        {"--correct", {"2", "not one of device, none, resample: 2"}},
        {"--pll", {"", "is empty"}},
        {"--gap", {"1:0", "not AT:MS (seconds, milliseconds): 1:0"}},
        {"--record", {"", "is empty"}},
        {"--trace", {"", "is empty"}},
        {"--report", {"", "is empty"}},
        {"--log-level", {"loud", "loud not in {trace,debug,info,warn,error}"}},
        {"--color", {"red", "not one of always, auto, never: red"}},
        {"--describe", {"", "is empty"}},
        {"--describe-device", {"", "is empty"}}};
    for (const Argument& argument : argumentsIn(parse({"--help"}).out)) {
        if (!argument.least.empty()) {
            continue;
        }
        const auto entry = nonsense.find(argument.name);
        ASSERT_NE(entry, nonsense.end()) << argument.name << " is not tested";
        const auto& [text, reason] = entry->second;
        const Parsed parsed = parse({argument.name, text, "a.wav"});
        EXPECT_EQ(parsed.status, 2);
        EXPECT_EQ(parsed.err, "kelda-play: " + argument.name + ": " + reason + "\n");
    }
    EXPECT_EQ(argumentsIn(parse({"--help"}).out).size(), 21 + nonsense.size());
}

TEST(Options, RefusesGapsAndRawFormatsThatAreNone)
{
    for (const char* text : {"", ":", "1", "1:", ":1", "1:2:3", "nan:1", "1:inf", "-1:5", "1:-5",
                             "0x1:5", "1:5ms", " 1:5", "1e10:5", "1:1e13"}) {
        EXPECT_EQ(parse({"--gap", text, "a.wav"}).status, 2) << text;
    }
    EXPECT_EQ(parse({"--gap", "1.5:20", "a.wav"}).options.gaps.at(0).atSeconds, 1.5);
    for (const char* text : {"", "::", "48000:2:", "48000::S16LE", "-4294919296:2:S16LE",
                             "48000:257:S16LE", "0:2:S16LE", "6144001:2:S16LE",
                             "48000:2:S16LE:", "48000:2:F64LE", "48000:2: S16LE", "48e3:2:S16LE"}) {
        EXPECT_EQ(parse({"--raw", text, "-"}).status, 2) << text;
    }
}

TEST(Options, RefusesWhatWouldHaveNoEffect)
{
    const std::string drift = " has no effect without --correct resample or device";
    const std::string click = " has no effect with --no-click-removal";
    const std::string fake = " has no effect on the simulated device";
    const std::string description = " has no effect with a description, which plays nothing";
    const struct
    {
        std::vector<std::string> arguments;
        std::string problem;
    } cases[] = {
        {{"--kp", "1"}, "--kp" + drift},
        {{"--ki", "1"}, "--ki" + drift},
        {{"--kd", "1"}, "--kd" + drift},
        {{"--adjust-limit", "10", "--correct", "none"}, "--adjust-limit" + drift},
        {{"--filter-alpha", "1"}, "--filter-alpha" + drift},
        {{"--sample-time", "1"}, "--sample-time" + drift},
        {{"--pll", "a,b"}, "--pll has no effect without --correct device"},
        {{"--pll", "a,b", "--correct", "resample"}, "--pll has no effect without --correct device"},
        {{"--gap-ms", "1", "--no-click-removal"}, "--gap-ms" + click},
        {{"--margin-ms", "1", "--no-click-removal"}, "--margin-ms" + click},
        {{"--fade-ms", "1", "--no-click-removal"}, "--fade-ms" + click},
        {{"--skip-short", "--no-click-removal"}, "--skip-short" + click},
        {{"--seed", "1"}, "--seed has no effect without --jitter"},
        {{"--seed", "1", "--jitter", "0"}, "--seed has no effect without --jitter"},
        {{"--channel-map", "FL FR"}, "--channel-map" + fake},
        {{"--wait", "5"}, "--wait" + fake},
        {{"--no-rate-resample"}, "--no-rate-resample" + fake},
        {{"--describe", "b.wav"}, "FILE" + description},
        {{"--describe-device", "null"}, "FILE" + description},
        {{"--raw", "48000:2:S16LE"}, "--raw: is for standard input, which is the FILE -"}};
    for (const auto& [arguments, problem] : cases) {
        std::vector<std::string> all = arguments;
        all.emplace_back("a.wav");
        const Parsed parsed = parse(all);
        EXPECT_EQ(parsed.status, 2) << problem;
        EXPECT_EQ(parsed.err, "kelda-play: " + problem + "\n");
    }
}

TEST(Options, ADescriptionTakesWhatItUsesAlone)
{
    for (const Argument& argument : argumentsIn(parse({"--help"}).out)) {
        if (!argument.least.empty()) {
            const Parsed parsed = parse({"--describe", "a.wav", argument.name, argument.largest});
            EXPECT_THAT(parsed.err, HasSubstr(argument.name + " has no effect with a description"));
        }
    }
    for (const char* flag :
         {"--json", "--loop", "--no-click-removal", "--skip-short", "--no-rate-resample"}) {
        EXPECT_EQ(parse({"--describe", "a.wav", flag}).status, 2) << flag;
    }
    EXPECT_EQ(parse({"--describe-device", "null", "--no-rate-resample", "--log-level", "debug",
                     "--describe", "a.wav", "--color", "never"})
                  .status,
              std::nullopt);
}

TEST(Options, TakesWhatHasAnEffect)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--correct", "device", "--pll", "a,b", "--kp", "1"},
                                               {"--seed", "1", "--jitter", "1"},
                                               {"--gap-ms", "1", "--skip-short"},
                                               {"--channel-map", "FL,FR", "--device", "null"},
                                               {"--no-rate-resample", "--device", "null"}}) {
        std::vector<std::string> all = arguments;
        all.emplace_back("a.wav");
        EXPECT_EQ(parse(all).err, "");
    }
}

namespace {

/// What is wrong with playing so many seconds at 48 kHz; they may be unknown.
std::string problemOf(const std::vector<std::string>& arguments, std::optional<double> seconds,
                      bool isDsd = false)
{
    keldaPlay::Track track;
    track.info = {48000, 2, audioUtils::S16LE};
    track.isDsd = isDsd;
    if (seconds) {
        track.numFrames = static_cast<std::uint64_t>(*seconds * 48000);
    }
    std::vector<std::string> all = arguments;
    all.emplace_back("a.wav");
    const Parsed parsed = parse(all);
    EXPECT_EQ(parsed.err, "");
    try {
        keldaPlay::refuseWithoutEffect(parsed.options, std::vector{track, track});
    } catch (const keldaPlay::UsageError& error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(Options, RefusesGapsThatNobodyWouldHear)
{
    const struct
    {
        std::vector<std::string> arguments;
        std::string problem;
    } cases[] = {
        {{"--gap", "19.9999:500"}, ""},
        {{"--gap", "20:1"}, "--gap 20:1 begins behind the end of what is played, 20 s"},
        {{"--gap", "20:1", "--loop"}, ""},
        {{"--gap", "7:1", "--loop", "--duration", "7"},
         "--gap 7:1 begins behind the end of what is played, 7 s"},
        {{"--gap", "6.9:1", "--duration", "7"}, ""},
        {{"--gap", "2:100", "--gap", "1:1000"}, ""},
        {{"--gap", "1.9:100", "--gap", "1:1000"}, "--gap 1.9:100 begins within --gap 1:1000"},
        {{"--gap", "1:10", "--gap", "1:10"}, "--gap 1:10 begins within --gap 1:10"},
        {{"--gap", "1:0.01"}, "--gap 1:0.01 is shorter than a frame"}};
    for (const auto& [arguments, problem] : cases) {
        EXPECT_EQ(problemOf(arguments, 10), problem);
    }
    EXPECT_EQ(problemOf({"--gap", "1000:1"}, std::nullopt), "") << "who knows";
}

TEST(Options, RefusesFadesAndConversionsOfDsd)
{
    for (const char* option : {"--gap-ms", "--margin-ms", "--fade-ms"}) {
        EXPECT_EQ(problemOf({option, "3"}, 10, true),
                  std::string(option) + " has no effect on DSD, which nothing fades");
        EXPECT_EQ(problemOf({option, "3"}, 10, false), "");
    }
    EXPECT_EQ(problemOf({"--quality", "low"}, 10, true),
              "--quality has no effect on DSD, which nothing converts");
    EXPECT_EQ(problemOf({"--no-click-removal"}, 10, true), "") << "as it is";
}

TEST_F(OptionsTest, TheOtherProgramsRefuseWrongNumbersToo)
{
    expectRanges(KELDA_RESAMPLE, "kelda-resample", " --rate 48000 in.wav out.wav");
    expectRanges(KELDA_LAB " run", "kelda-lab", " scenario.json");
}

// Whatever is offered is played to its end.
TEST_F(PlayTest, PlaysInEveryFormatThatIsOffered)
{
    testSupport::FaultySoundCard card;
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_24, 480);
    EXPECT_EQ(play("--format '?' " + path("a.wav")), 2);
    const std::string known = "known are ";
    std::istringstream formats(err.substr(err.find(known) + known.size()));
    std::size_t numPlayed = 0;
    for (std::string format; formats >> format; ++numPlayed) {
        for (const std::string device : {"fake", "null", "faulty"}) {
            card.renew();
            EXPECT_EQ(play("--device " + device + " --format " + format + " " + path("a.wav")), 0)
                << device << " " << err;
            EXPECT_THAT(out, HasSubstr(", " + format + ", period"));
            EXPECT_THAT(out, HasSubstr("lost          0 frames skipped, 0 missing"));
        }
        EXPECT_EQ(play("--raw 48000:2:" + format + " - --loop"), 2) << "standard input, once";
        EXPECT_THAT(err, HasSubstr("once")) << format;
    }
    EXPECT_EQ(numPlayed, 10U);
}

TEST_F(PlayTest, PlaysWithEveryResamplerInEveryQuality)
{
    createSound(path("a.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 480);
    for (const std::string resampler : {"float", "short", "gstreamer"}) {
        for (const std::string quality : {"low", "medium", "high", "best"}) {
            EXPECT_EQ(play("--rate 44100 --resampler " + resampler + " --quality " + quality + " " +
                           path("a.wav")),
                      0)
                << err;
            EXPECT_THAT(out, HasSubstr("played        0.010 s")) << resampler << " " << quality;
        }
    }
}
