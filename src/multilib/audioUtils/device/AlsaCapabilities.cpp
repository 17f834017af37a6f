#include "audioUtils/device/AlsaCapabilities.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include <alsa/asoundlib.h>

#include "audioUtils/detail/Log.h"

namespace audioUtils {

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("AudioUtils");

struct ClosePcm
{
    void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
};
using PcmHandle = std::unique_ptr<snd_pcm_t, ClosePcm>;

// Up to those of 512-fold DSD over PCM.
constexpr int usualRates[] = {8000,   11025,  16000,  22050,  32000,   44100,
                              48000,  64000,  88200,  96000,  176400,  192000,
                              352800, 384000, 705600, 768000, 1411200, 1536000};
// No card has them: whoever takes these takes every rate in between.
constexpr int oddRates[] = {8001, 11027, 33333, 44099, 47997, 48003, 95999, 191999};
constexpr int mostChannels = 32;

/// What a device answers to single questions.
class Questions
{
public:
    Questions(snd_pcm_t* pcm, snd_pcm_hw_params_t* params) : m_pcm(pcm), m_params(params) {}

    [[nodiscard]] bool takesFormat(PcmFormat format) const
    {
        int alsaFormat = 0;
        return toSndPcmFormat(alsaFormat, format) &&
               snd_pcm_hw_params_test_format(m_pcm, m_params,
                                             static_cast<snd_pcm_format_t>(alsaFormat)) == 0;
    }

    [[nodiscard]] std::vector<PcmFormat> formats() const
    {
        std::vector<PcmFormat> formats = getAllPcmFormats();
        std::erase_if(formats, [this](PcmFormat format) { return !takesFormat(format); });
        return formats;
    }

    [[nodiscard]] IntegerRange rates() const
    {
        unsigned int least = 0;
        unsigned int most = 0;
        snd_pcm_hw_params_get_rate_min(m_params, &least, nullptr);
        snd_pcm_hw_params_get_rate_max(m_params, &most, nullptr);
        const auto smallest = static_cast<int>(std::max(least, 1U));
        const auto largest = static_cast<int>(std::min(most, 1U << 30));
        const auto takes = [this](int rate) {
            return snd_pcm_hw_params_test_rate(m_pcm, m_params, static_cast<unsigned int>(rate),
                                               0) == 0;
        };
        const bool takesAll = std::ranges::all_of(
            oddRates, [&](int rate) { return rate < smallest || rate > largest || takes(rate); });
        return takesAll ? IntegerRange(smallest, largest)
                        : listOf(std::begin(usualRates), std::end(usualRates), takes);
    }

    [[nodiscard]] IntegerRange numChannels() const
    {
        std::vector<int> counts;
        for (int count = 1; count <= mostChannels; ++count) {
            if (snd_pcm_hw_params_test_channels(m_pcm, m_params,
                                                static_cast<unsigned int>(count)) == 0) {
                counts.push_back(count);
            }
        }
        const bool hasHoles =
            !counts.empty() && counts.back() - counts.front() + 1 != std::ssize(counts);
        return counts.empty() || hasHoles ? IntegerRange(std::move(counts))
                                          : IntegerRange(counts.front(), counts.back());
    }

private:
    template<typename Iterator, typename Takes>
    static IntegerRange listOf(Iterator begin, Iterator end, Takes takes)
    {
        std::vector<int> values;
        std::copy_if(begin, end, std::back_inserter(values), takes);
        return IntegerRange(std::move(values));
    }

    snd_pcm_t* m_pcm;
    snd_pcm_hw_params_t* m_params;
};

} // namespace

bool getAlsaCapabilities(PcmAudioCapabilities& out, const std::string& deviceName,
                         bool enableRateResample)
{
    const auto succeeded = [&deviceName](int result) {
        if (result < 0) {
            KELDA_LOG(logger, ERROR,
                      "Failed to ask ALSA output device \""
                          << deviceName << "\" for its capabilities: " << snd_strerror(result));
        }
        return result >= 0;
    };
    snd_pcm_t* opened = nullptr;
    if (!succeeded(
            snd_pcm_open(&opened, deviceName.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK))) {
        return false;
    }
    const PcmHandle pcm(opened);
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    if (!succeeded(snd_pcm_hw_params_any(pcm.get(), params)) ||
        !succeeded(
            snd_pcm_hw_params_set_access(pcm.get(), params, SND_PCM_ACCESS_RW_INTERLEAVED)) ||
        !succeeded(
            snd_pcm_hw_params_set_rate_resample(pcm.get(), params, enableRateResample ? 1U : 0U))) {
        return false;
    }
    const Questions questions(pcm.get(), params);
    out = PcmAudioCapabilities(questions.rates(), questions.numChannels(), questions.formats());
    return true;
}

} // namespace audioUtils
