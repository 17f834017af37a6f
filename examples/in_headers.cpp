// What the public headers show in their comments, a function each.
//     in_headers [x]      with any argument it plays silence on the card hw:0, too
#include "audioUtils/Logging.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/PllDriftCompensator.h"
#include "audioUtils/clickRemover/ClickRemover.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include "audioUtils/resample/GStreamerResampler.h"
#include "audioUtils/resample/HighQualityResampler.h"

using namespace audioUtils;

constexpr TimeValue now = 1'000'000'000, delay = 80'000'000, pts = 1'080'000'000;

bool fill(std::vector<unsigned char>& block)
{
    static int blocks = 0;
    block.assign(4096, 0);
    return ++blocks % 4 != 0;
}

bool audioDataStructures()
{
    IntegerRange channels(1, 8);
    IntegerRange rates(std::vector<int>{44100, 48000});
    const int nearest = findNearestInteger(47000, rates); // 48000
    return nearest == 48000 && isIntegerInRange(8, channels);
}

bool pcmQueue()
{
    const std::vector<unsigned char> packet(1920, 1);
    std::vector<unsigned char> block(1920);
    TimeValueDelta delta = 0;
    PcmQueue queue;
    queue.configure(true, 200, 48000, 2, 2, "main", true, 20'000'000, 10'000'000);
    queue.write(pts, packet);                                         // producer thread
    const std::size_t frames = queue.read(now + delay, block, delta); // renderer thread
    return frames == 480 && block == packet;
}

bool pllDriftCompensator()
{
    const miscUtils::TimeValueDelta drift = 1000;
    double ppm = 1;
    const auto steer = [&](int adjustment) { ppm = adjustment / 1000.0; };
    PllDriftCompensator compensator(-500'000, 500'000, 800, 40, 0, steer, 50, 1.0);
    compensator.update(drift, now); // for each observation
    return ppm == 0;
}

bool clickRemover()
{
    std::vector<float> block(960, 0.5F);
    std::size_t numFrames = 480, left = 0, played = 0;
    const auto play = [&](const std::vector<float>&, std::size_t frames) { played += frames; };
    ClickRemover<float> remover(10, 5, 5, false);
    remover.process(block.data(), 48000, 2, 480); // each block, in place
    do {                                          // at the end
        left = remover.flush(block.data(), 48000, 2, numFrames);
        play(block, numFrames);
    } while (left > 0);
    return played == static_cast<std::size_t>(960);
}

void alsaOutputDevice()
{
    std::vector<unsigned char> block;
    AlsaOutputDevice device;
    if (!device.open("hw:0", S16LE, 48000, 2, 4096, 1024, 2048, false, "FL FR")) {
        return; // the reason is in the log
    }
    while (fill(block)) {
        if (device.write(block.data(), 1024) >= OutputDevice::NotOpened) {
            break; // the device is gone
        }
    }
    device.drain();
}

void outputDevice()
{
    std::vector<unsigned char> block;
    FakeOutputDevice device;
    if (!device.open("fake", S16LE, 48000, 2, 4096, 512, 2048, false, "")) {
        return; // the reason is in the log
    }
    while (fill(block)) {
        device.write(block.data(), 512); // paces the loop
    }
    device.drain();
    device.close();
}

bool controller()
{
    const double input = 10;
    const unsigned long nowInMilliseconds = 1000;
    PID pid(0.5, 0.1, 0, PID::Reverse);
    pid.setOutputLimits(-100, 100);
    pid.setMode(PID::Automatic);
    const double output = pid.compute(input, nowInMilliseconds);
    return output > 5;
}

bool gstreamerResampler()
{
    std::vector<float> in(960);
    GStreamerResampler resampler(2, 44100, 48000, GStreamerResampler::Float32, 10);
    std::vector<float> out(resampler.calculateOutputBufferSize(480) * 2);
    auto samples = static_cast<unsigned int>(out.size()); // in: room; out: what came out
    resampler.processFloat(in.data(), 960, out.data(), samples, false, false);
    return samples < out.size();
}

bool highQualityResampler()
{
    std::vector<float> in(960), out(2000);
    HighQualityResampler resampler(2, HighQualityResampler::Best);
    resampler.setSamplingRate(44100, 48000);
    auto samples = static_cast<unsigned int>(out.size()); // in: room; out: what came out
    const int taken = resampler.process(in.data(), 960, out.data(), samples, false, false);
    return taken == 960 && samples > 0;
}

int main(int argc, char**)
{
    logToStandardError(LogNothing);
    if (argc > 1) {
        alsaOutputDevice(); // a real one: only when asked
    }
    outputDevice();
    return audioDataStructures() && pcmQueue() && pllDriftCompensator() && clickRemover() &&
                   controller() && gstreamerResampler() && highQualityResampler()
               ? 0
               : 1;
}
