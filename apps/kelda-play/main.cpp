#include <exception>

#include "Color.h"
#include "Errors.h"
#include "Options.h"
#include "OutputFile.h"
#include "Player.h"
#include "StandardStreams.h"

namespace {

int run(int argc, char** argv)
{
    keldaPlay::Options options;
    try {
        if (const auto status = keldaPlay::parseOptions(argc, argv, options)) {
            return *status;
        }
        return keldaPlay::play(options);
    } catch (const std::exception& error) {
        keldaPlay::printError(error.what(), options.color);
        return keldaPlay::exitStatusOf(error);
    }
}

} // namespace

int main(int argc, char** argv)
{
    keldaFiles::prepareStandardStreams();
    keldaFiles::removeUnfinishedOnSignals();
    return keldaFiles::finishStandardOutput("kelda-play", run(argc, argv));
}
