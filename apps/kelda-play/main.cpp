#include <cstdio>
#include <exception>

#include "Errors.h"
#include "Options.h"
#include "Player.h"

int main(int argc, char** argv)
{
    try {
        keldaPlay::Options options;
        if (const auto status = keldaPlay::parseOptions(argc, argv, options)) {
            return *status;
        }
        return keldaPlay::play(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kelda-play: %s\n", error.what());
        return keldaPlay::exitStatusOf(error);
    }
}
