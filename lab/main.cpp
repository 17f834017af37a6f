#include <cstdio>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>

#include "Arguments.h"
#include "FilesInUse.h"
#include "HelpFormatter.h"
#include "Laboratory.h"
#include "OutputFile.h"
#include "Report.h"
#include "ReportFolder.h"
#include "Scenario.h"
#include "ScenarioFiles.h"
#include "StandardStreams.h"
#include "Table.h"

namespace {

void refuseFileConflicts(const std::string& path, const keldaLab::Scenario& scenario,
                         const std::string& reportFolder)
{
    keldaFiles::FilesInUse files;
    files.addInput(path);
    files.addInput(scenario.content); // if it is a file
    keldaReport::addPages(files, reportFolder);
}

int run(int argc, char** argv)
{
    try {
        CLI::App app("Plays scenarios through the player's path in virtual time.", "kelda-lab");
        app.formatter(std::make_shared<keldaPlay::HelpFormatter>());
        app.set_version_flag("--version", "kelda-lab " KELDA_VERSION);
        app.require_subcommand(1);
        CLI::App* const runCommand = app.add_subcommand("run", "Play a scenario");
        std::string path;
        std::string reportFolder;
        double seconds = 0;
        std::optional<unsigned int> seed;
        runCommand
            ->add_option("SCENARIO", path,
                         "What happens, and what is to be reached: a file, or a name")
            ->required();
        runCommand->option_defaults()->group("Scenario");
        runCommand->add_option("--seconds", seconds, "Play so long instead")
            ->transform(keldaPlay::number(0.001, 1e9));
        runCommand->add_option("--seed", seed, "Start of the random numbers instead")
            ->transform(keldaPlay::number(0U, std::numeric_limits<unsigned int>::max()));
        runCommand->option_defaults()->group("Output");
        runCommand->add_option("--report", reportFolder, "Write a trace, plots and a page there")
            ->check(keldaPlay::someText())
            ->option_text("DIR");
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success& success) {
            return app.exit(success);
        } catch (const CLI::ParseError& error) {
            std::fprintf(stderr, "kelda-lab: %s\n", error.what());
            return 2;
        }
        const log4cplus::Initializer logging;
        log4cplus::BasicConfigurator::doConfigure(log4cplus::Logger::getDefaultHierarchy(), true);
        log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);

        path = keldaLab::scenarioPath(path);
        keldaLab::Scenario scenario = keldaLab::readScenario(path);
        if (seconds > 0) {
            scenario.seconds = seconds;
        }
        scenario.seed = seed.value_or(scenario.seed);
        if (!reportFolder.empty()) {
            refuseFileConflicts(path, scenario, reportFolder);
            keldaReport::prepare(reportFolder);
        }
        const keldaLab::Result result = keldaLab::run(scenario);
        const keldaReport::Audio without = result.played.samples.empty()
                                               ? keldaReport::Audio()
                                               : keldaLab::runWithClicks(scenario);
        const std::vector<keldaReport::Line> table =
            keldaLab::tableOf(result, scenario, without.samples.empty() ? nullptr : &without);
        std::printf("%s\n  %s\n%s", scenario.title.c_str(),
                    keldaReport::verdictOf(result.sync).c_str(),
                    keldaReport::textOf(table).c_str());
        if (!reportFolder.empty()) {
            const bool isAudio = !without.samples.empty();
            keldaReport::write(reportFolder,
                               {scenario.title, result.sync, table,
                                keldaReport::factsOfProcess("kelda-lab " KELDA_VERSION),
                                isAudio ? &without : nullptr, isAudio ? &result.played : nullptr});
            std::printf("  report: %s/index.html\n", reportFolder.c_str());
        }
        return keldaReport::isReached(table) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kelda-lab: %s\n", error.what());
        return 1;
    }
}

} // namespace

int main(int argc, char** argv)
{
    keldaFiles::prepareStandardStreams();
    keldaFiles::removeUnfinishedOnSignals();
    return keldaFiles::finishStandardOutput("kelda-lab", run(argc, argv));
}
