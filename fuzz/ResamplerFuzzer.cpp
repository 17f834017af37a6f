// Any blocks through a high-quality resampler, against the model of its counters.

#include "Fuzzing.h"
#include "audioUtils/resample/ResamplerModel.h"

namespace {

template<typename Class>
void followAny(fuzzing::FuzzedChoices& choices)
{
    const auto numChannels = static_cast<unsigned int>(1 + choices.upTo(2));
    const auto quality = choices.anyOf(resamplerModel::qualities);
    resamplerModel::ResamplerAndModel<Class> both(choices, numChannels, quality);
    fuzzing::follow(both, choices, 30);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzzing::FuzzedChoices choices(bytes, size);
    if (choices.below(2) == 0) {
        followAny<resamplerModel::FloatClass>(choices);
    } else {
        followAny<resamplerModel::ShortClass>(choices);
    }
    return 0;
}
