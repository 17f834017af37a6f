#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/TraceFile.h"

namespace keldaSoak {

/// Where the frames of a stream whose frames are numbered have gone: each was heard, or lost inside
/// the card, or counted by the player. Frames, if nothing else is said.
struct Accounts
{
    std::uint64_t sent = 0;
    std::uint64_t heard = 0;
    std::uint64_t droppedByCard = 0;  ///< taken, and lost in an xrun: each tells an underrun
    std::uint64_t skipped = 0;        ///< counted by the queue
    std::uint64_t unheard = 0;        ///< counted by the player, while the device was gone
    std::uint64_t silenceHeard = 0;   ///< with what was lost of it in the card
    std::uint64_t silenceCounted = 0; ///< by the queue and the player

    std::uint64_t repeated = 0;       ///< heard twice, or out of order
    std::uint64_t lostUncounted = 0;  ///< neither heard nor counted
    std::uint64_t countedTwice = 0;   ///< heard or dropped by the card, and counted as lost, too
    std::uint64_t silenceOff = 0;     ///< heard and counted silence differ by so much
    std::uint64_t failedWrites = 0;   ///< each may have left a part of a block in the card
    std::uint64_t underrunsTold = 0;  ///< results, and failed writes
    std::uint64_t dropsUncounted = 0; ///< times that the card lost frames without an underrun told
    std::uint64_t framesOfAWrite = 0;

    /// What a failed write took before it failed is unheard to the player; the card may know
    /// better.
    [[nodiscard]] std::uint64_t inDoubt() const { return failedWrites * framesOfAWrite; }

    /// No frame is lost or repeated that is not counted.
    [[nodiscard]] bool areBalanced() const
    {
        return repeated == 0 && lostUncounted == 0 && countedTwice <= inDoubt() &&
               silenceOff <= inDoubt() && dropsUncounted == 0;
    }
};

/// @param played, dropped what the card played and what it lost; 0: silence
/// @param drops           times that it lost any
[[nodiscard]] Accounts settle(std::uint64_t sent, const std::vector<std::uint32_t>& played,
                              const std::vector<std::uint32_t>& dropped, std::uint64_t drops,
                              const std::vector<testSupport::TraceRow>& trace);

} // namespace keldaSoak
