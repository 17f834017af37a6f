#include "audioUtils/Logging.h"
#include "audioUtils/PcmQueue.h"
#include "audioUtils/device/FakeOutputDevice.h"
#include <algorithm>
#include <atomic>
#include <thread>

using audioUtils::TimeValue;

int main()
{
    audioUtils::logToStandardError(); // warnings and errors; or configure log4cplus

    audioUtils::FakeOutputDevice device; // 48 kHz, 16-bit stereo: 4 bytes a frame
    if (!device.open("speaker", audioUtils::S16LE, 48000, 2, 1920, 480, 960, false, ""))
        return 1;
    audioUtils::PcmQueue queue; // 200 ms; jumps above 20 ms, smoothing below 10 ms
    queue.configure(true, 200, 48000, 2, 2, "example", true, 20'000'000, 10'000'000);

    std::atomic<bool> finished = false;
    std::thread producer([&] {
        const TimeValue start = miscUtils::getMonotonicRawSysclockTime() + 100'000'000;
        const std::vector<unsigned char> packet(480 * 4, 1);
        for (TimeValue n = 0; n < 50; ++n)
            queue.write(start + n * 10'000'000, packet); // with the time when it is to be heard
        queue.drain();
        finished = true;
    });
    std::vector<unsigned char> block(480 * 4);
    while (!finished) {
        const auto delay = static_cast<TimeValue>(device.getCompensatedRenderingDelay());
        const TimeValue due = miscUtils::getMonotonicRawSysclockTime() + delay;
        const std::size_t frames = queue.read(due, block); // what is to be heard then
        std::fill(block.begin() + static_cast<long>(frames) * 4, block.end(), 0); // pad an underrun
        device.write(block.data(), 480);                                          // paces this loop
    }
    producer.join();
    device.drain();
}
