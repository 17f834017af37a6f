#include "Presenter.h"

#include "JsonPresenter.h"
#include "TextPresenter.h"

namespace keldaPlay {

std::unique_ptr<Presenter> createPresenter(const Options& options)
{
    if (options.json) {
        return std::make_unique<JsonPresenter>(options.color);
    }
    return std::make_unique<TextPresenter>(options.color);
}

} // namespace keldaPlay
