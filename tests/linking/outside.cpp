// Names the public headers of both libraries, and calls across them: each class, and each instance
// of a template. (That no operation at all is missing in a library is what abi/exported checks.)
#include <array>
#include <iostream>

#include <log4cplus/initializer.h>

#include "audioUtils/AudioDataStructures.h"
#include "audioUtils/DsdDataStructures.h"
#include "audioUtils/Logging.h"
#include "audioUtils/LowPassFilter.h"
#include "audioUtils/PcmDataStructures.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/PllDriftCompensator.h"
#include "audioUtils/clickRemover/ClickRemover.h"
#include "audioUtils/device/AlsaCapabilities.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include "audioUtils/device/OutputDevice.h"
#include "audioUtils/pid/Pid.h"
#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "miscUtils/Export.h"
#include "miscUtils/Json.h"
#include "miscUtils/ScopedFunction.h"
#include "miscUtils/TimeValue.h"
#include "miscUtils/TimestampFilter.h"
#include "miscUtils/Variant.h"
#include "nonstd/span.hpp"

namespace {

// A block of 48 stereo frames through each template, whichever the sample type.
template<typename Sample>
bool runs(audioUtils::GStreamerResampler::SampleDataType type)
{
    std::array<Sample, 96> in{};
    std::array<Sample, 96> out{};
    audioUtils::ClickRemover<Sample> remover(10, 5, 5, false);
    const audioUtils::StreamPosition held = remover.process(in.data(), 48000, 2, 48);

    audioUtils::HighQualityResampler resampler(2, audioUtils::HighQualityResampler::Low);
    unsigned int room = out.size();
    const int consumed = resampler.process(in.data(), 96, out.data(), room, false, false);

    audioUtils::GStreamerResampler pipeline(2, 48000, 48000, type, 5);
    const int frames = pipeline.resample(in.data(), 48, out.data(), 48, false);
    return held == 960 && consumed == 96 && frames >= 0;
}

// A device of a program's own: the base class' table and type are there to be derived from.
class Silent : public audioUtils::FakeOutputDevice
{
};

} // namespace

int main()
{
    const log4cplus::Initializer logging;

    // Enumerators by both names, as programs write them.
    static_assert(audioUtils::PcmFormat::S24LE == audioUtils::S24LE);
    static_assert(audioUtils::DsdFormat::DSDU8 == audioUtils::DSDU8);
    static_assert(audioUtils::OutputDevice::WriteReturnValue::RecoverFailed ==
                  audioUtils::OutputDevice::RecoverFailed);
    static_assert(sizeof(audioUtils::getDefaultChannelMask) == 1);

    audioUtils::PcmQueue queue;
    queue.configure(true, 100, 48000, 2, 2, "outside", true, 20'000'000, 10'000'000);
    unsigned char bytes[192] = {};
    const nonstd::span<const unsigned char> packet(bytes, sizeof bytes);
    const nonstd::span<unsigned char> block(bytes, sizeof bytes);
    const miscUtils::TimeValue now = miscUtils::getMonotonicRawSysclockTime();
    miscUtils::TimeValueDelta delta = 0;
    const bool played = queue.write(now, packet) && queue.read(now, block, delta) == 48;

    Silent device;
    audioUtils::OutputDevice& output = device;
    const bool refused = output.write(bytes, 48) == audioUtils::OutputDevice::NotOpened;

    static_assert(audioUtils::GStreamerResampler::SampleDataType::Float32 ==
                  audioUtils::GStreamerResampler::Float32);
    audioUtils::GStreamerResampler resampler(2, 48000, 48000, audioUtils::GStreamerResampler::Int16,
                                             5);
    audioUtils::PID pid(1, 0, 0, audioUtils::PID::Reverse);
    pid.setMode(audioUtils::PID::Mode::Automatic);
    audioUtils::LowPassFilter lowPass;
    int adjustment = 1;
    PllDriftCompensator compensator(
        -100, 100, pid.compute(lowPass.filter(1), 1000), 0, 0,
        [&](int value) { adjustment = value; }, 50, 1.0);
    compensator.update(0, now);
    const bool steered = adjustment == 0;

    const bool copied = resampler.calculateOutputBufferSize(48) == 48;
    using audioUtils::GStreamerResampler;
    const bool instantiated = runs<short>(GStreamerResampler::Int16) &&
                              runs<int>(GStreamerResampler::Int32) &&
                              runs<float>(GStreamerResampler::Float32);
    const audioUtils::HighQualityResamplerShort shorts(2, audioUtils::HighQualityResampler::Low);

    audioUtils::AlsaOutputDevice card;
    audioUtils::PcmAudioCapabilities capabilities;
    const bool closed = !dynamic_cast<audioUtils::OutputDevice&>(card).isOpened() &&
                        !getAlsaCapabilities(capabilities, "no-such-card", false) &&
                        shorts.getInputBufferSize() > 0;

    const miscUtils::VariantHash description{{"sampleRate", 48000L}, {"name", "outside"}};
    miscUtils::Variant parsed;
    miscUtils::JsonError error;
    const bool read = fromJson(parsed, error, miscUtils::toJson(description)) &&
                      parsed == miscUtils::Variant(description);
    std::cout << parsed << ' ' << miscUtils::VariantType::Array << ' '
              << audioUtils::toString(audioUtils::S16LE) << ' ' << audioUtils::pcmAudioType() << ' '
              << dbglog_scopedFunction(__PRETTY_FUNCTION__, "AudioUtils") << '\n';
    return played && refused && steered && copied && instantiated && closed && read && delta == 0
               ? 0
               : 1;
}
