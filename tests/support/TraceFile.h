#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace testSupport {

/// A block, as kelda-play's --trace writes it.
struct TraceRow
{
    std::uint64_t due, fill, frames, silence, inserted, skipped, padded, underruns, heard, muted,
        dropped;
    std::int64_t delta, delay, moved;
    double adjustment;

    [[nodiscard]] std::uint64_t data() const { return frames - silence - padded; }

    /// When it was rendered, ns.
    [[nodiscard]] std::int64_t time() const { return static_cast<std::int64_t>(due) - delay; }
};

inline std::vector<TraceRow> readTrace(const std::string& path)
{
    std::ifstream lines(path);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "due_time_ns,delta_ns,queue_fill_ns,device_delay_ns,frames,silence_frames,"
                    "inserted_frames,skipped_frames,padded_frames,underruns,"
                    "adjustment_ppm,heard,muted_frames,dropped_frames,moved_ns");
    std::vector<TraceRow> rows;
    while (std::getline(lines, line)) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream in(line);
        TraceRow row{};
        in >> row.due >> row.delta >> row.fill >> row.delay >> row.frames >> row.silence >>
            row.inserted >> row.skipped >> row.padded >> row.underruns >> row.adjustment >>
            row.heard >> row.muted >> row.dropped >> row.moved;
        EXPECT_TRUE(in && in.eof()) << line;
        rows.push_back(row);
    }
    return rows;
}

} // namespace testSupport
