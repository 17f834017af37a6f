// What the manual pages show as examples, done as it stands there: every command ends with 0, on
// sound files of these names, and on a card in software where it asks for one.

#include <cstdlib>
#include <utility>

#include "PlayFixture.h"
#include "support/FaultySoundCard.h"

using namespace keldaPlayTest;

namespace {

/// A line as a reader sees it.
std::string withoutEscapes(std::string line)
{
    const std::pair<std::string, std::string> escapes[] = {
        {"\\(aq", "'"}, {"\\-", "-"}, {"\\e", "\\"}};
    for (const auto& [escape, character] : escapes) {
        for (std::size_t at = 0; (at = line.find(escape)) != std::string::npos;) {
            line.replace(at, escape.size(), character);
        }
    }
    return line;
}

/// The blocks of commands in a page's section of examples.
std::vector<std::string> examplesOf(const std::string& page)
{
    std::ifstream in(KELDA_PAGES "/" + page);
    EXPECT_TRUE(in) << page;
    std::vector<std::string> examples;
    bool isExample = false;
    bool isBlock = false;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(".Sh")) {
            isExample = line == ".Sh EXAMPLES";
        } else if (line.starts_with(".Bd") || line.starts_with(".Ed")) {
            isBlock = isExample && line.starts_with(".Bd");
            if (isBlock) {
                examples.emplace_back();
            }
        } else if (isBlock) {
            examples.back() += withoutEscapes(line) + "\n";
        }
    }
    return examples;
}

class ManualTest : public PlayTest, public testing::WithParamInterface<const char*>
{
protected:
    ManualTest()
    {
        clickRemoval.clear();
        // Every card is the one in software.
        std::ofstream(std::getenv("ALSA_CONFIG_PATH"), std::ios::app)
            << "pcm.!hw { @args [CARD] @args.CARD { type string } type kelda_faulty }\n"
               "ctl.!hw { @args [CARD] @args.CARD { type string } type kelda_faulty }\n";
        std::filesystem::create_directories(path("home/album"));
        for (const std::string name :
             {"first.wav", "second.wav", "third.wav", "song.wav", "album/first.wav"}) {
            createSound(path("home/" + name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000);
        }
        std::ofstream(path("home/recording.raw")) << std::string(4 * 48000, '\1');
    }

    int runExample(const std::string& commands)
    {
        std::ofstream(path("example")) << "set -e\ncd '" << path("home") << "'\n"
                                       << "kelda-play() { " << player() << "\"$@\"; }\n"
                                       << "kelda-resample() { " KELDA_RESAMPLE " \"$@\"; }\n"
                                       << "kelda-lab() { " KELDA_LAB " \"$@\"; }\n"
                                       << commands;
        const std::string command =
            "bash " + path("example") + " >" + path("out") + " 2>" + path("err") + " </dev/null";
        return finish(std::system(command.c_str()));
    }

    testSupport::FaultySoundCard card;
};

TEST_P(ManualTest, ShowsExamplesThatWork)
{
    const std::vector<std::string> examples = examplesOf(GetParam());
    EXPECT_GE(examples.size(), 2U);
    for (const std::string& example : examples) {
        EXPECT_EQ(runExample(example), 0) << example << out << err;
    }
}

INSTANTIATE_TEST_SUITE_P(Pages, ManualTest,
                         testing::Values("kelda-play.1", "kelda-resample.1", "kelda-lab.1"));

} // namespace
