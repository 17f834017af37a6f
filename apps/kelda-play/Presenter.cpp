#include "Presenter.h"

#include <sstream>

#include "JsonPresenter.h"
#include "TextPresenter.h"

namespace keldaPlay {

std::string textOf(const DeviceRequest& request, const audioUtils::OutputDevice& device)
{
    std::ostringstream text;
    text << request.name << ": " << device.sampleRate() << " Hz, " << device.numChannels()
         << " channel" << (device.numChannels() == 1 ? "" : "s") << ", "
         << audioUtils::toString(request.format) << ", period " << device.periodSize()
         << ", buffer " << device.bufferSize() << ", start " << device.startThreshold()
         << " frames";
    return text.str();
}

std::unique_ptr<Presenter> createPresenter(const Options& options)
{
    if (options.json) {
        return std::make_unique<JsonPresenter>(options.color);
    }
    return std::make_unique<TextPresenter>(options.color);
}

} // namespace keldaPlay
