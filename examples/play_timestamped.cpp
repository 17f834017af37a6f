// Plays 2 s of a tone, live, packet by packet; 50 ms of it get lost on the way.
//     play_timestamped [DEVICE]      of ALSA's, e.g. default; without one, a simulated device
#include "audioUtils/Logging.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/device/AlsaOutputDevice.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include <atomic>
#include <cmath>
#include <iostream>
#include <thread>
using namespace audioUtils;
constexpr TimeValue ms = 1'000'000;
constexpr unsigned int rate = 48000, channels = 2, period = 480, frameBytes = 4; // 10 ms, 16 bits

void produce(PcmQueue& queue)
{
    const TimeValue start = miscUtils::getMonotonicRawSysclockTime() + 300 * ms;
    std::vector<unsigned char> packet(period * frameBytes);
    auto* samples = reinterpret_cast<short*>(packet.data());
    for (unsigned int n = 0; n < 200; ++n) {
        for (unsigned int i = 0; i < period * channels; ++i)
            samples[i] = static_cast<short>(8000 * std::sin(0.0576 * (n * period + i / channels)));
        if (n < 80 || n >= 85) // the others get lost: the next timestamp tells the queue
            queue.write(start + n * 10 * ms, packet); // blocks while the queue is full
        std::this_thread::sleep_for(std::chrono::milliseconds(n < 25 ? 0 : 10));
    }
    queue.drain();
}

int main(int argc, char** argv)
{
    logToStandardError(); // warnings and errors; or configure log4cplus
    AlsaOutputDevice card;
    FakeOutputDevice simulated;
    OutputDevice& device = argc > 1 ? static_cast<OutputDevice&>(card) : simulated;
    if (!device.open(argc > 1 ? argv[1] : "", S16LE, rate, channels, 8 * period, period, 8 * period,
                     true, ""))
        return 1;   // the log says why
    PcmQueue queue; // 500 ms; leave alone what is off by less than 20 ms, smooth below 10 ms
    queue.configure(true, 500, rate, channels, 2, "tone", true, 20 * ms, 10 * ms);

    std::atomic<bool> finished = false;
    std::thread producer([&] { produce(queue), finished = true; });
    std::vector<unsigned char> block(period * frameBytes);
    TimeValueDelta delta = 0;
    while (!finished) {
        const auto delay = static_cast<TimeValue>(device.getCompensatedRenderingDelay());
        const TimeValue due = miscUtils::getMonotonicRawSysclockTime() + delay;
        const std::size_t frames = queue.read(due, block, delta); // what is to be heard then
        std::fill(block.begin() + static_cast<long>(frames * frameBytes), block.end(), 0);
        if (device.write(block.data(), period) >= OutputDevice::NotOpened)
            queue.abortWrite(); // the device is gone: nobody is to wait for it
    }
    producer.join();
    device.drain();
    std::cout << queue.counters().insertedFrames << " frames of silence for what was lost, "
              << queue.counters().skippedFrames << " skipped; " << delta / 1000 << " us late\n";
    return queue.counters().insertedFrames == 5 * period ? 0 : 1;
}
