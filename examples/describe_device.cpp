// What an output device is able to, and what it would be opened with for a file of 44.1 kHz, 24
// bits.
//     describe_device [DEVICE]      of ALSA's, e.g. hw:0; without one, the device null
#include "audioUtils/Logging.h"
#include "audioUtils/device/AlsaCapabilities.h"
#include "miscUtils/Json.h"
#include <iostream>
using namespace audioUtils;

int main(int argc, char** argv)
{
    logToStandardError();
    PcmAudioCapabilities capabilities;
    if (!getAlsaCapabilities(capabilities, argc > 1 ? argv[1] : "null", false))
        return 1; // the log says why
    std::cout << miscUtils::toJson(capabilities.toVariant()) << '\n';

    PcmAudioInfo info(44100, 2, S24LE);
    for (const PcmFormat format : {S24LE, S24_32LE, S32LE, S16LE}) { // as the program likes them
        info.setPcmFormat(format);
        if (pickNearestAudioInfo(info, capabilities)) // rate and channels: the nearest
            break;
    }
    std::cout << miscUtils::toJson(info.toVariant()) << '\n';
    return isAudioInfoCompatible(info, capabilities) ? 0 : 1;
}
