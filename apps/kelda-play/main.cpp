#include <exception>

#include "Color.h"
#include "Errors.h"
#include "Options.h"
#include "Player.h"

int main(int argc, char** argv)
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
