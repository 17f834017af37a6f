// Stands before single functions of libasound, in the program or preloaded into it: counts their
// calls, returns what a test asks for instead of calling them, and puts words into the status.

#include "support/faultyPcm/AlsaCalls.h"

#include <limits>

#include <alsa/asoundlib.h>
#include <dlfcn.h>

#include "support/faultyPcm/ControlFile.h"

namespace testSupport::faultyPcm {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

const ControlPointer inEnvironment = mapControl(folderInUse());
std::atomic<Control*> inUse = inEnvironment.get();

// libasound calls itself by these names, too: that is its own business.
thread_local int depth = 0;

class Nesting
{
public:
    Nesting() { ++depth; }
    ~Nesting() { --depth; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;
};

std::size_t at(Call call)
{
    return static_cast<std::size_t>(call);
}

/// @return what to return instead of calling; 0: call
int intercept(Call call, std::int64_t value)
{
    Control* const control = inUse;
    if (control == nullptr || depth > 0) {
        return 0;
    }
    ++control->counts[at(call)];
    control->values[at(call)] = value;
    const std::uint32_t position = control->numSequence++;
    if (position < control->sequence.size()) {
        control->sequence[position] = call;
    }
    return control->results[at(call)];
}

snd_htimestamp_t fromNanoseconds(std::int64_t time)
{
    return {time / nanosecondsPerSecond, time % nanosecondsPerSecond};
}

bool takesAway(std::atomic<std::uint32_t>& left)
{
    const std::uint32_t before = left;
    if (before != 0 && before != std::numeric_limits<std::uint32_t>::max()) {
        left = before - 1;
    }
    return before != 0;
}

} // namespace

void interceptAlsaCalls(Control* control)
{
    inUse = control;
}

} // namespace testSupport::faultyPcm

using namespace testSupport::faultyPcm;

#define KELDA_REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define KELDA_INTERPOSE(type, name, parameters, arguments, value)                                  \
    extern "C" __attribute__((visibility("default"))) type name parameters                         \
    {                                                                                              \
        static const auto real = KELDA_REAL(name);                                                 \
        if (const int result = intercept(Call::name, static_cast<std::int64_t>(value));            \
            result != 0) {                                                                         \
            return static_cast<type>(result);                                                      \
        }                                                                                          \
        const Nesting nesting;                                                                     \
        return real arguments;                                                                     \
    }

using Pcm = snd_pcm_t;
using HwParams = snd_pcm_hw_params_t;
using SwParams = snd_pcm_sw_params_t;
using Frames = snd_pcm_uframes_t;

KELDA_INTERPOSE(int, snd_pcm_open,
                (Pcm * *pcm, const char* name, snd_pcm_stream_t stream, int mode),
                (pcm, name, stream, mode), mode)
KELDA_INTERPOSE(int, snd_pcm_drop, (Pcm * pcm), (pcm), 0)
KELDA_INTERPOSE(int, snd_pcm_drain, (Pcm * pcm), (pcm), 0)
KELDA_INTERPOSE(int, snd_pcm_prepare, (Pcm * pcm), (pcm), 0)
KELDA_INTERPOSE(int, snd_pcm_recover, (Pcm * pcm, int error, int silent), (pcm, error, silent),
                error)
KELDA_INTERPOSE(snd_pcm_state_t, snd_pcm_state, (Pcm * pcm), (pcm), 0)
KELDA_INTERPOSE(int, snd_pcm_status, (Pcm * pcm, snd_pcm_status_t* status), (pcm, status), 0)
KELDA_INTERPOSE(int, snd_pcm_delay, (Pcm * pcm, snd_pcm_sframes_t* delay), (pcm, delay), 0)
KELDA_INTERPOSE(snd_pcm_sframes_t, snd_pcm_avail_update, (Pcm * pcm), (pcm), 0)
KELDA_INTERPOSE(int, snd_pcm_set_chmap, (Pcm * pcm, const snd_pcm_chmap_t* map), (pcm, map),
                map->channels)
KELDA_INTERPOSE(int, snd_pcm_hw_params_any, (Pcm * pcm, HwParams* params), (pcm, params), 0)
KELDA_INTERPOSE(int, snd_pcm_hw_params_set_access,
                (Pcm * pcm, HwParams* params, snd_pcm_access_t access), (pcm, params, access),
                access)
KELDA_INTERPOSE(int, snd_pcm_hw_params_set_format,
                (Pcm * pcm, HwParams* params, snd_pcm_format_t format), (pcm, params, format),
                format)
KELDA_INTERPOSE(int, snd_pcm_hw_params_set_channels,
                (Pcm * pcm, HwParams* params, unsigned int count), (pcm, params, count), count)
KELDA_INTERPOSE(int, snd_pcm_hw_params_set_rate_resample,
                (Pcm * pcm, HwParams* params, unsigned int enable), (pcm, params, enable), enable)
KELDA_INTERPOSE(int, snd_pcm_hw_params_set_rate_near,
                (Pcm * pcm, HwParams* params, unsigned int* rate, int* direction),
                (pcm, params, rate, direction), *rate)
KELDA_INTERPOSE(int, snd_pcm_hw_params_set_buffer_size_near,
                (Pcm * pcm, HwParams* params, Frames* size), (pcm, params, size), *size)
KELDA_INTERPOSE(int, snd_pcm_hw_params_set_period_size_near,
                (Pcm * pcm, HwParams* params, Frames* size, int* direction),
                (pcm, params, size, direction), *size)
KELDA_INTERPOSE(int, snd_pcm_hw_params, (Pcm * pcm, HwParams* params), (pcm, params), 0)
KELDA_INTERPOSE(int, snd_pcm_sw_params_current, (Pcm * pcm, SwParams* params), (pcm, params), 0)
KELDA_INTERPOSE(int, snd_pcm_sw_params_set_start_threshold,
                (Pcm * pcm, SwParams* params, Frames threshold), (pcm, params, threshold),
                threshold)
KELDA_INTERPOSE(int, snd_pcm_sw_params_set_avail_min, (Pcm * pcm, SwParams* params, Frames frames),
                (pcm, params, frames), frames)
KELDA_INTERPOSE(int, snd_pcm_sw_params_set_tstamp_mode,
                (Pcm * pcm, SwParams* params, snd_pcm_tstamp_t mode), (pcm, params, mode), mode)
KELDA_INTERPOSE(int, snd_pcm_sw_params_set_tstamp_type,
                (Pcm * pcm, SwParams* params, snd_pcm_tstamp_type_t type), (pcm, params, type),
                type)
KELDA_INTERPOSE(int, snd_pcm_sw_params, (Pcm * pcm, SwParams* params), (pcm, params), 0)

extern "C" {

// A plugin that takes nothing is asked again and again by libasound itself; a driver is not.
__attribute__((visibility("default"))) snd_pcm_sframes_t
snd_pcm_writei(snd_pcm_t* pcm, const void* buffer, snd_pcm_uframes_t size)
{
    static const auto real = KELDA_REAL(snd_pcm_writei);
    Control* const control = inUse;
    if (const int injected = intercept(Call::snd_pcm_writei, static_cast<std::int64_t>(size));
        injected != 0 || (control != nullptr && takesAway(control->emptyWrites))) {
        return injected;
    }
    const Nesting nesting;
    return real(pcm, buffer, size);
}

// A close that fails has closed all the same.
__attribute__((visibility("default"))) int snd_pcm_close(snd_pcm_t* pcm)
{
    static const auto real = KELDA_REAL(snd_pcm_close);
    const int injected = intercept(Call::snd_pcm_close, 0);
    const Nesting nesting;
    const int result = real(pcm);
    return injected != 0 ? injected : result;
}

__attribute__((visibility("default"))) void
snd_pcm_status_get_htstamp(const snd_pcm_status_t* status, snd_htimestamp_t* time)
{
    static const auto real = KELDA_REAL(snd_pcm_status_get_htstamp);
    Control* const control = inUse;
    real(status, time);
    if (control != nullptr && control->overridesStatus) {
        *time = fromNanoseconds(control->systemTimestamp);
    } else if (control != nullptr && takesAway(control->zeroTimestamps)) {
        *time = {};
    } else if (control != nullptr && control->virtualTime != 0) {
        *time = fromNanoseconds(control->virtualTime);
    }
}

__attribute__((visibility("default"))) void
snd_pcm_status_get_audio_htstamp(const snd_pcm_status_t* status, snd_htimestamp_t* time)
{
    static const auto real = KELDA_REAL(snd_pcm_status_get_audio_htstamp);
    Control* const control = inUse;
    real(status, time);
    if (control != nullptr && control->overridesStatus) {
        *time = fromNanoseconds(control->audioTimestamp);
    } else if (control != nullptr && control->hasAudioTimestamp && control->rate != 0) {
        const auto frames = static_cast<std::int64_t>(control->framesPlayed.load());
        *time = fromNanoseconds(frames * nanosecondsPerSecond / control->rate);
    }
}

__attribute__((visibility("default"))) snd_pcm_sframes_t
snd_pcm_status_get_delay(const snd_pcm_status_t* status)
{
    static const auto real = KELDA_REAL(snd_pcm_status_get_delay);
    Control* const control = inUse;
    return control != nullptr && control->overridesStatus ? control->statusDelay.load()
                                                          : real(status);
}
}
