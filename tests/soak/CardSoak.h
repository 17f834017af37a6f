#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Accounts.h"
#include "Recovery.h"

namespace keldaSoak {

/// What the player does while the card fails.
enum class Mode {
    Exact, ///< every frame as it is, so that each can be followed
    InSync ///< the resampler corrects the drift of a source that is off by some ppm
};

struct CardSoakOptions
{
    unsigned int seed = 1;
    double seconds = 300;
    double leastPause = 7; ///< between two faults
    double mostPause = 10;
};

struct CardSoak
{
    int status = -1;      ///< of the player
    std::string messages; ///< its standard error
    std::string summary;  ///< its standard output
    std::vector<Fault> faults;
    std::vector<Fault> unexplainedUnderruns;
    Accounts accounts;             ///< of Mode::Exact
    Recovery recovery;             ///< of Mode::InSync
    std::vector<long> residentKib; ///< from a tenth of the time on, by the tenth

    /// To the end, whether or not it tells that something was lost on the way.
    [[nodiscard]] bool hasPlayed() const { return status == 0 || status == notAllHeard; }

    static constexpr int notAllHeard = 4; ///< the player's exit status for that
};

/// Lets kelda-play play on a card that fails at random; prints each fault as it happens.
[[nodiscard]] CardSoak playOnFailingCard(Mode mode, const CardSoakOptions& options);

} // namespace keldaSoak
