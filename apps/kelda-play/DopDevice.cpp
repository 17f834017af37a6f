#include "DopDevice.h"

#include <memory>

#include "Opening.h"

namespace keldaPlay {

Passage passageThrough(snd_pcm_type_t type)
{
    switch (type) {
    case SND_PCM_TYPE_HW:
    case SND_PCM_TYPE_HOOKS:
    case SND_PCM_TYPE_NULL:
    case SND_PCM_TYPE_SHARE:
    case SND_PCM_TYPE_DSHARE:
    case SND_PCM_TYPE_IEC958:
    case SND_PCM_TYPE_MMAP_EMUL:
        return Passage::Unchanged;
    case SND_PCM_TYPE_PLUG:
    case SND_PCM_TYPE_LINEAR:
    case SND_PCM_TYPE_LINEAR_FLOAT:
    case SND_PCM_TYPE_ALAW:
    case SND_PCM_TYPE_MULAW:
    case SND_PCM_TYPE_ADPCM:
    case SND_PCM_TYPE_RATE:
    case SND_PCM_TYPE_ROUTE:
    case SND_PCM_TYPE_MIX:
    case SND_PCM_TYPE_DMIX:
    case SND_PCM_TYPE_SOFTVOL:
    case SND_PCM_TYPE_LADSPA:
        return Passage::Converted;
    default:
        return Passage::Unknown;
    }
}

snd_pcm_type_t typeOf(const std::string& deviceName)
{
    if (deviceName == "fake") {
        return SND_PCM_TYPE_HW;
    }
    struct ClosePcm
    {
        void operator()(snd_pcm_t* pcm) const { snd_pcm_close(pcm); }
    };
    snd_pcm_t* opened = nullptr;
    const Opening opening("device " + deviceName);
    if (snd_pcm_open(&opened, deviceName.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK) < 0) {
        return SND_PCM_TYPE_HW; // somebody else has just opened it: told when it is to be played to
    }
    const std::unique_ptr<snd_pcm_t, ClosePcm> pcm(opened);
    return snd_pcm_type(opened);
}

} // namespace keldaPlay
