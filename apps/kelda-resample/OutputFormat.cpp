#include "OutputFormat.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "Errors.h"

namespace keldaResample {

namespace {

using Ending = std::pair<std::string_view, int>;

// Those that people have, the usual container of an ending first.
constexpr std::array endings = {
    Ending{"wav", SF_FORMAT_WAV},   Ending{"wav", SF_FORMAT_WAVEX},  Ending{"wav", SF_FORMAT_RF64},
    Ending{"wave", SF_FORMAT_WAV},  Ending{"wave", SF_FORMAT_WAVEX}, Ending{"rf64", SF_FORMAT_RF64},
    Ending{"w64", SF_FORMAT_W64},   Ending{"flac", SF_FORMAT_FLAC},  Ending{"ogg", SF_FORMAT_OGG},
    Ending{"oga", SF_FORMAT_OGG},   Ending{"opus", SF_FORMAT_OGG},   Ending{"mp3", SF_FORMAT_MPEG},
    Ending{"aiff", SF_FORMAT_AIFF}, Ending{"aif", SF_FORMAT_AIFF},   Ending{"aifc", SF_FORMAT_AIFF},
    Ending{"au", SF_FORMAT_AU},     Ending{"snd", SF_FORMAT_AU},     Ending{"caf", SF_FORMAT_CAF},
};

std::string endingOf(const std::string& path)
{
    std::string ending = std::filesystem::path(path).extension().string();
    std::ranges::transform(ending, ending.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return ending.empty() ? ending : ending.substr(1);
}

std::string knownEndings()
{
    std::string known;
    std::string_view last;
    for (const auto& [ending, container] : endings) {
        if (ending != last) {
            known += (known.empty() ? "." : ", .") + std::string(ending);
        }
        last = ending;
    }
    return known;
}

int containerOf(const std::string& path, int inputContainer)
{
    const std::string ending = endingOf(path);
    const auto same = std::ranges::find(endings, Ending(ending, inputContainer));
    if (same != endings.end()) {
        return inputContainer;
    }
    const auto usual = std::ranges::find(endings, ending, &Ending::first);
    if (usual == endings.end()) {
        throw keldaPlay::UsageError(
            path + ": the ending tells the format to write, and is none of " + knownEndings());
    }
    return usual->second;
}

int bitsOf(int samples)
{
    switch (samples) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 8;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
        return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
        return 32;
    default:
        return 16;
    }
}

bool isCompressed(int samples)
{
    return samples > SF_FORMAT_DOUBLE;
}

/// By how near they come to the input's.
std::vector<int> candidates(int samples)
{
    const std::vector<int> narrower = {SF_FORMAT_PCM_32, SF_FORMAT_PCM_24, SF_FORMAT_PCM_16,
                                       SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8};
    std::vector<int> found = {samples};
    switch (samples) {
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III:
        break;
    default:
        std::copy_if(narrower.rbegin(), narrower.rend(), std::back_inserter(found),
                     [bits = bitsOf(samples)](int wider) { return bitsOf(wider) >= bits; });
    }
    found.insert(found.end(), {SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE});
    found.insert(found.end(), narrower.begin(), narrower.end());
    found.insert(found.end(), {SF_FORMAT_VORBIS, SF_FORMAT_OPUS, SF_FORMAT_MPEG_LAYER_III});
    return found;
}

} // namespace

int outputFormat(const std::string& path, const SF_INFO& input)
{
    const int container = containerOf(path, input.format & SF_FORMAT_TYPEMASK);
    if (endingOf(path) == "opus") {
        return container | SF_FORMAT_OPUS;
    }
    const int inputSamples = input.format & SF_FORMAT_SUBMASK;
    const bool isSameContainer = container == (input.format & SF_FORMAT_TYPEMASK);
    for (const int samples : candidates(inputSamples)) {
        if (samples == inputSamples && isCompressed(samples) && !isSameContainer) {
            continue; // some containers only read them
        }
        SF_INFO info = input;
        info.format = container | samples;
        info.channels = 1; // how many it can hold is told when it is opened
        if (sf_format_check(&info) != 0) {
            return info.format;
        }
    }
    throw keldaPlay::UsageError(path + ": this library can't write such files");
}

} // namespace keldaResample
