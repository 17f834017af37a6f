// Any calls of a queue, against its model.

#include "Fuzzing.h"
#include "support/PcmQueueAndModel.h"

namespace {

testSupport::QueueParameters anyParameters(testSupport::Choices& choices)
{
    static constexpr unsigned int rates[] = {48000, 44100, 11025, 192000, 500};
    testSupport::QueueParameters parameters{};
    parameters.timestamping = !choices.oneIn(5);
    parameters.filter = choices.below(2) == 0;
    parameters.maxFillLevelInMS = 1 + choices.upTo(30);
    parameters.sampleRate = choices.anyOf(rates);
    parameters.channels = static_cast<unsigned int>(1 + choices.upTo(3));
    parameters.numBytesPerSample = static_cast<unsigned int>(1 + choices.upTo(3));
    parameters.jumpThreshold = choices.upTo(20) * 1'000'000;
    return parameters;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzzing::FuzzedChoices choices(bytes, size);
    testSupport::PcmQueueAndModel both(choices, anyParameters(choices));
    fuzzing::follow(both, choices, 60);
    return 0;
}
