#pragma once

#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sndfile.h>

namespace testSupport {

/// 16-bit stereo in which each frame, read as 32 bits, is its number, from 1 on.
inline void createNumberedFrames(const std::string& path, std::uint32_t numFrames)
{
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    std::vector<std::uint32_t> frames(numFrames);
    std::iota(frames.begin(), frames.end(), 1U);
    EXPECT_EQ(sf_writef_short(file, reinterpret_cast<short*>(frames.data()), numFrames), numFrames);
    sf_close(file);
}

} // namespace testSupport
