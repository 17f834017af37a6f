#include "TextPresenter.h"

#include <cstdio>

#include <unistd.h>

#include "Negotiation.h"

namespace keldaPlay {

TextPresenter::TextPresenter(ColorChoice color)
    : m_color(color), m_isColored(usesColor(color, STDOUT_FILENO)), m_status(m_isColored)
{
}

void TextPresenter::streamStarts(const StreamStart& start)
{
    const DeviceRequest& request = start.request;
    const audioUtils::OutputDevice& device = start.device;
    m_hasStarted = true;
    m_status.end();
    std::printf("%s: %u Hz, %u channel%s, %s, period %lu, buffer %lu, start %lu frames\n",
                request.name.c_str(), device.sampleRate(), device.numChannels(),
                device.numChannels() == 1 ? "" : "s", audioUtils::toString(request.format),
                device.periodSize(), device.bufferSize(), device.startThreshold());
    const audioUtils::PcmAudioInfo obtained(static_cast<int>(request.sampleRate),
                                            static_cast<int>(request.numChannels), request.format);
    if (!start.carried.empty()) {
        std::printf("carried       %s\n", start.carried.c_str());
    } else if (const std::string text = changes(start.source, obtained); !text.empty()) {
        std::printf("changed       %s\n", text.c_str());
    }
    if (const std::string text = differences(request, device); !text.empty()) {
        std::printf("obtained      %s frames\n", text.c_str());
    }
    std::fflush(stdout);
}

void TextPresenter::ends(const Statistics& statistics, ExitStatus /*status*/,
                         const std::string& error)
{
    if (m_hasStarted) {
        m_status.end();
        std::printf("%s", statistics.summary(m_isColored).c_str());
        std::fflush(stdout);
    }
    if (!error.empty()) {
        printError(error, m_color);
    }
}

} // namespace keldaPlay
