// Whatever a file or another program may say of itself: every text as JSON, and every Variant,
// through all that reads descriptions. What is read must survive being written and read again.

#include <cstdint>
#include <string_view>

#include <fuzzer/FuzzedDataProvider.h>

#include "Fuzzing.h"
#include "audioUtils/DsdDataStructures.h"
#include "audioUtils/PcmDataStructures.h"
#include "miscUtils/Json.h"

namespace {

using fuzzing::check;
using miscUtils::Variant;

template<typename Description>
void readOne(const Variant& variant)
{
    Description description;
    if (description.fromVariant(variant)) {
        Description again;
        check(again.fromVariant(description.toVariant()));
        check(again == description);
    }
}

void readAll(const Variant& variant)
{
    readOne<audioUtils::IntegerRange>(variant);
    readOne<audioUtils::PcmAudioInfo>(variant);
    readOne<audioUtils::PcmAudioCapabilities>(variant);
    readOne<audioUtils::DsdAudioInfo>(variant);
    readOne<audioUtils::DsdAudioCapabilities>(variant);

    audioUtils::IntegerRange range;
    if (range.fromVariant(variant)) {
        static_cast<void>(audioUtils::findNearestInteger(-1, range));
    }
}

/// A Variant in which the words of descriptions are likely.
Variant variantOf(FuzzedDataProvider& data, int levels)
{
    static const char* const keys[] = {"min",         "max",         "allowed",   "sampleRate",
                                       "sampleRates", "numChannels", "pcmFormat", "pcmFormats",
                                       "bitrate",     "bitrates",    "dsdFormat", "dsdFormats"};
    static const char* const names[] = {"S16LE", "F64BE", "DSDU8", "DSDU32BE", "<unknown>", ""};
    switch (data.ConsumeIntegralInRange(0, levels > 0 ? 5 : 3)) {
    case 0:
        return {};
    case 1:
        return data.ConsumeIntegral<long>();
    case 2:
        return data.PickValueInArray(names);
    case 3:
        return data.ConsumeRandomLengthString(20);
    case 4: {
        miscUtils::VariantArray array;
        for (int count = data.ConsumeIntegralInRange(0, 5); count > 0; --count) {
            array.append(variantOf(data, levels - 1));
        }
        return array;
    }
    default: {
        miscUtils::VariantHash hash;
        for (int count = data.ConsumeIntegralInRange(0, 5); count > 0; --count) {
            hash[data.PickValueInArray(keys)] = variantOf(data, levels - 1);
        }
        return hash;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Variant fromText;
    miscUtils::JsonError error;
    if (miscUtils::fromJson(fromText, error,
                            std::string_view(reinterpret_cast<const char*>(bytes), size))) {
        Variant again;
        check(miscUtils::fromJson(again, error, miscUtils::toJson(fromText)));
        check(again == fromText);
        readAll(fromText);
    } else {
        check(!error.message.empty() && error.line >= 1 && error.column >= 1);
    }

    FuzzedDataProvider data(bytes, size);
    const Variant variant = variantOf(data, 3);
    readAll(variant);
    static_cast<void>(miscUtils::toJson(variant));
    return 0;
}
