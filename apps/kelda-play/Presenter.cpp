#include "Presenter.h"

#include "TextPresenter.h"

namespace keldaPlay {

std::unique_ptr<Presenter> createPresenter(const Options& /*options*/)
{
    return std::make_unique<TextPresenter>();
}

} // namespace keldaPlay
