#include "ScenarioFiles.h"

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "Scenario.h"

namespace {

using namespace testing;
using keldaLab::scenarioNames;
using keldaLab::scenarioPath;

TEST(ScenarioFilesTest, ReadsWhatComesWithTheProgramByName)
{
    EXPECT_THAT(scenarioNames(), AllOf(Contains("interruptions"), Contains("soak")));
    for (const std::string& name : scenarioNames()) {
        EXPECT_FALSE(keldaLab::readScenario(scenarioPath(name)).title.empty()) << name;
    }
}

TEST(ScenarioFilesTest, TakesPathsAsTheyAre)
{
    EXPECT_EQ(scenarioPath("/nowhere/interruptions"), "/nowhere/interruptions");
    EXPECT_EQ(scenarioPath("./soak"), "./soak");
}

TEST(ScenarioFilesTest, AFileGoesBeforeAScenarioOfItsName)
{
    const std::filesystem::path before = std::filesystem::current_path();
    const std::filesystem::path folder = std::filesystem::path(TempDir()) / "keldaScenarioFiles";
    std::filesystem::create_directories(folder / "soak"); // no file
    std::filesystem::current_path(folder);
    std::ofstream("interruptions") << "{}";
    EXPECT_EQ(scenarioPath("interruptions"), "interruptions");
    EXPECT_THAT(scenarioPath("soak"), EndsWith("/soak.json"));
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
}

TEST(ScenarioFilesTest, AnswersAWrongNameWithThoseThatThereAre)
{
    EXPECT_THAT([] { (void)scenarioPath("interuptions"); },
                ThrowsMessage<std::runtime_error>(
                    AllOf(HasSubstr("interuptions"), HasSubstr("interruptions, minus-100ppm"))));
}

} // namespace
