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
    std::printf("%s\n", textOf(request, device).c_str());
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
        std::printf("%s", summaryOf(statistics, m_isColored).c_str());
        if (!m_reportPage.empty()) {
            std::printf("report        %s\n", m_reportPage.c_str());
        }
        std::fflush(stdout);
    }
    if (!error.empty()) {
        printError(error, m_color);
    }
}

} // namespace keldaPlay
