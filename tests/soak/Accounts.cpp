#include "Accounts.h"

#include <algorithm>

namespace keldaSoak {

using testSupport::TraceRow;

namespace {

std::uint64_t excess(std::uint64_t value, std::uint64_t over)
{
    return value > over ? value - over : 0;
}

void addBlocks(Accounts& accounts, const std::vector<TraceRow>& trace)
{
    for (const TraceRow& row : trace) {
        accounts.skipped += row.skipped;
        accounts.underrunsTold += row.underruns;
        accounts.framesOfAWrite = std::max(accounts.framesOfAWrite, row.frames);
        accounts.silenceCounted += row.inserted;
        if (row.heard != 0) {
            accounts.silenceCounted += row.silence + row.padded;
            continue;
        }
        accounts.unheard += row.data();
        accounts.failedWrites += row.delay != 0 ? 1 : 0; // the others were not even tried
    }
    accounts.underrunsTold += accounts.failedWrites;
}

} // namespace

Accounts settle(std::uint64_t sent, const std::vector<std::uint32_t>& played,
                const std::vector<std::uint32_t>& dropped, std::uint64_t drops,
                const std::vector<TraceRow>& trace)
{
    Accounts accounts;
    accounts.sent = sent;
    std::vector<bool> known(sent + 1);
    std::uint32_t last = 0;
    const auto add = [&](std::uint32_t frame, std::uint64_t& count) {
        if (frame == 0) {
            ++accounts.silenceHeard;
        } else if (frame > sent || known[frame]) {
            ++accounts.repeated;
        } else {
            known[frame] = true;
            ++count;
        }
    };
    for (const std::uint32_t frame : played) {
        add(frame, accounts.heard);
        if (frame != 0) {
            accounts.repeated += frame < last ? 1 : 0;
            last = frame;
        }
    }
    for (const std::uint32_t frame : dropped) {
        add(frame, accounts.droppedByCard);
    }
    addBlocks(accounts, trace);
    const std::uint64_t missing = sent - accounts.heard - accounts.droppedByCard;
    const std::uint64_t counted = accounts.skipped + accounts.unheard;
    accounts.lostUncounted = excess(missing, counted);
    accounts.countedTwice = excess(counted, missing);
    accounts.silenceOff = excess(accounts.silenceHeard, accounts.silenceCounted) +
                          excess(accounts.silenceCounted, accounts.silenceHeard);
    accounts.dropsUncounted = excess(drops, accounts.underrunsTold);
    return accounts;
}

} // namespace keldaSoak
