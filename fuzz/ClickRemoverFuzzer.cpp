// Any blocks through a click remover of each type of sample, against the plain one.

#include "Fuzzing.h"
#include "audioUtils/clickRemover/ClickRemoverAndModel.h"

namespace {

template<typename Sample>
void followAny(fuzzing::FuzzedChoices& choices)
{
    clickRemoverModel::ClickRemoverAndModel<Sample> both(choices);
    fuzzing::follow(both, choices, 40);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzzing::FuzzedChoices choices(bytes, size);
    switch (choices.below(3)) {
    case 0:
        followAny<short>(choices);
        break;
    case 1:
        followAny<int>(choices);
        break;
    default:
        followAny<float>(choices);
        break;
    }
    return 0;
}
