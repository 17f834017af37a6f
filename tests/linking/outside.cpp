// Names every public header, and calls across both libraries.
#include <iostream>

#include <log4cplus/initializer.h>

#include "audioUtils/AudioDataStructures.h"
#include "audioUtils/DsdDataStructures.h"
#include "audioUtils/LowPassFilter.h"
#include "audioUtils/PcmDataStructures.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/PllDriftCompensator.h"
#include "audioUtils/clickRemover/ClickRemover.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include "audioUtils/device/OutputDevice.h"
#include "audioUtils/pid/Pid.h"
#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResamplerShort.h"
#include "miscUtils/ScopedFunction.h"
#include "miscUtils/TimeValue.h"
#include "miscUtils/TimestampFilter.h"
#include "miscUtils/Variant.h"
#include "nonstd/span.hpp"

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

    audioUtils::FakeOutputDevice device;
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
    short line[96] = {};
    audioUtils::ClickRemover<short> remover(10, 5, 5, false);
    const audioUtils::StreamPosition held = remover.process(line, 48000, 2, 48);
    const bool steered = adjustment == 0 && held == 960;

    const bool copied = resampler.calculateOutputBufferSize(48) == 48;

    const miscUtils::VariantHash description{{"sampleRate", 48000L}, {"name", "outside"}};
    std::cout << miscUtils::Variant(description) << ' ' << miscUtils::VariantType::Array << ' '
              << audioUtils::toString(audioUtils::S16LE) << ' ' << audioUtils::pcmAudioType() << ' '
              << dbglog_scopedFunction(__PRETTY_FUNCTION__, "AudioUtils") << '\n';
    return played && refused && steered && copied && delta == 0 ? 0 : 1;
}
