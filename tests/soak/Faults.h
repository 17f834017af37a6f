#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/FaultySoundCard.h"
#include "support/VirtualTime.h"

namespace keldaSoak {

/// What happened to the card, when. Times in ns of the player's monotonic raw clock.
struct Fault
{
    std::string kind;
    std::string detail;
    std::int64_t start = 0;
    std::int64_t end = 0;
};

/// Makes a sound card fail in every way that it can, in an order and to an extent of chance: each
/// kind comes once before any comes again.
class Faults
{
public:
    Faults(testSupport::FaultySoundCard& card, testSupport::VirtualTime& time, unsigned int seed);

    /// Lets the next fault happen, and returns when it is over.
    Fault injectNext();

    /// How long to leave the card alone, in seconds.
    [[nodiscard]] double pause(double least, double most);

private:
    using Inject = std::string (Faults::*)();
    struct Kind
    {
        const char* name;
        Inject inject;
    };
    static const std::vector<Kind>& kinds();

    std::string injectXrun();
    std::string injectSuspend();
    std::string injectInterruption();
    std::string injectTryAgain();
    std::string injectShortWrites();
    std::string injectSlowWrites();
    std::string injectVanishing();
    std::string injectOtherPeriod();
    std::string injectJumpingDelay();
    std::string injectNegativeDelay();
    std::string injectFrozenDelay();
    std::string injectZeroTimestamps();
    std::string injectCoarsePosition();
    std::string injectFailingStatus();
    std::string injectStall();

    int chosen(int least, int most);
    void pass(int milliseconds);
    /// Until something has become so, 5 s at most.
    template<typename Condition>
    void await(Condition condition);
    /// Waits so long, by chance; @return that in ms
    int lasting(int leastMs, int mostMs);
    void failNow(int error, unsigned int repeats, unsigned int everyFrames);
    std::string vanishFor(int milliseconds);

    testSupport::FaultySoundCard& m_card;
    testSupport::VirtualTime& m_time;
    std::mt19937 m_random;
    std::vector<Kind> m_deck;
};

} // namespace keldaSoak
