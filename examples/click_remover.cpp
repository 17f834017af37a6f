// A tone that is torn off and begins again: how large is the largest step between two samples, and
// how large is it when the click remover has faded around the gap?
#include "audioUtils/Logging.h"
#include "audioUtils/clickRemover/ClickRemover.h"
#include <algorithm>
#include <cmath>
#include <cstdio>

constexpr int rate = 48000;
constexpr std::size_t channels = 1, blockFrames = 480;

float largestStep(const std::vector<float>& sound)
{
    float largest = 0;
    for (std::size_t i = 1; i < sound.size(); ++i)
        largest = std::max(largest, std::abs(sound[i] - sound[i - 1]));
    return largest;
}

int main()
{
    audioUtils::logToStandardError();
    std::vector<float> sound(100 * blockFrames); // 1 s at 200 Hz, without 30 ms in the middle
    for (std::size_t i = 0; i < sound.size(); ++i)
        sound[i] = i / 1440 == 16 ? 0 : 0.5F * std::cos(0.026180F * static_cast<float>(i));
    const float before = largestStep(sound);

    // 10 ms of silence are part of the music; fades end and begin 5 ms off it, and last 5 ms.
    audioUtils::ClickRemover<float> remover(10, 5, 5, false);
    const std::size_t delay = remover.minimumDelay(rate); // frames: count it into the due time
    for (std::size_t i = 0; i < sound.size(); i += blockFrames)
        remover.process(&sound[i], rate, channels, blockFrames);
    std::vector<float> end(delay);
    std::size_t frames = end.size();
    remover.flush(end.data(), rate, channels, frames); // what the line holds, faded out
    sound.insert(sound.end(), end.begin(), end.begin() + static_cast<long>(frames));

    const float after = largestStep(sound);
    std::printf("largest step %.3f, without clicks %.3f; delayed by %zu frames\n",
                static_cast<double>(before), static_cast<double>(after), delay);
    return before > 0.4F && after < 0.02F && sound.back() == 0 ? 0 : 1;
}
