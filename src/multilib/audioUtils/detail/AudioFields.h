#pragma once

#include <vector>

#include "audioUtils/AudioDataStructures.h"

// What a PCM and a DSD description hold. How they are matched and serialised is in
// AudioDescriptions.h, which programs don't see.

namespace audioUtils::detail {

template<typename Format>
struct AudioInfoFields
{
    int rate = 0; ///< sample rate or bit rate
    int numChannels = 0;
    Format format = {};

    bool operator==(const AudioInfoFields& other) const
    {
        return rate == other.rate && numChannels == other.numChannels && format == other.format;
    }
};

template<typename Format>
struct AudioCapabilitiesFields
{
    IntegerRange rates;
    IntegerRange numChannels;
    std::vector<Format> formats;

    bool operator==(const AudioCapabilitiesFields& other) const
    {
        return rates == other.rates && numChannels == other.numChannels && formats == other.formats;
    }
};

} // namespace audioUtils::detail
