#include "audioUtils/AudioDataStructures.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <optional>
#include <utility>

#include "audioUtils/detail/AudioDescriptions.h"
#include "nonstd/FormerName.h"

namespace audioUtils {

using miscUtils::Variant;
using miscUtils::VariantArray;
using miscUtils::VariantHash;
using miscUtils::VariantType;

namespace {

const log4cplus::Logger logger = log4cplus::Logger::getInstance("AudioUtils");

/// The absolute difference in 32 bits; it wraps, also at its most negative value.
int distance(int a, int b)
{
    const std::uint32_t difference = static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b);
    return static_cast<int>(static_cast<int>(difference) < 0 ? 0 - difference : difference);
}

bool readAllowed(const VariantHash& hash, std::vector<int>& out)
{
    if (!hash.contains("allowed")) {
        return true;
    }
    const Variant& allowed = hash.get("allowed");
    if (allowed.getType() != VariantType::Array) {
        KELDA_LOG(logger, ERROR, "\"allowed\" field in integer range varianthash is not an array");
        return false;
    }
    for (const Variant& element : allowed.asArray()) {
        const std::optional<long> value = element.asInteger();
        if (!value) {
            KELDA_LOG(logger, ERROR,
                      "got an invalid value of type "
                          << element.getType()
                          << " (expected: integer) in integer range varianthash \"allowed\" array");
            return false;
        }
        out.push_back(static_cast<int>(*value));
    }
    return true;
}

/// Reads "min" or "max".
/// @param ofList picks the value out of the list where the field is missing
template<typename OfList>
bool readLimit(const VariantHash& hash, const char* key, const std::vector<int>& allowed,
               OfList ofList, int& out)
{
    if (hash.contains(key)) {
        const Variant& limit = hash.get(key);
        const std::optional<long> value = limit.asInteger();
        if (!value) {
            KELDA_LOG(logger, ERROR,
                      "integer range \"" << key << "\" field has invalid value of type "
                                         << limit.getType() << " (expected: integer)");
            return false;
        }
        out = static_cast<int>(*value);
        return true;
    }
    if (allowed.empty()) {
        KELDA_LOG(logger, ERROR,
                  "integer range varianthash has no \""
                      << key << "\" field, and there is no list of allowed integers");
        return false;
    }
    KELDA_LOG(logger, DEBUG,
              "integer range varianthash has no \""
                  << key << "\" field, but there is a list of allowed integers - getting " << key
                  << " value out of that list");
    out = *ofList(allowed.begin(), allowed.end());
    return true;
}

} // namespace

const DefaultChannelMask getDefaultChannelMask{};

IntegerRange::IntegerRange(int minInteger, int maxInteger)
    : m_minInteger(minInteger), m_maxInteger(maxInteger)
{
    assert(minInteger <= maxInteger);
}

IntegerRange::IntegerRange(std::vector<int>&& allowed) : m_allowedIntegers(std::move(allowed))
{
    if (hasAllowedIntegers()) {
        const auto [smallest, largest] = std::ranges::minmax(m_allowedIntegers);
        m_minInteger = smallest;
        m_maxInteger = largest;
    }
}

IntegerRange::IntegerRange(nonstd::span_lite::span<int> allowed)
    : IntegerRange(std::vector<int>(allowed.begin(), allowed.end()))
{
}

Variant IntegerRange::toVariant() const
{
    VariantHash hash{{"min", m_minInteger}, {"max", m_maxInteger}};
    if (hasAllowedIntegers()) {
        VariantArray allowed;
        for (const int value : m_allowedIntegers) {
            allowed.append(value);
        }
        hash["allowed"] = std::move(allowed);
    }
    return hash;
}

bool IntegerRange::fromVariant(const Variant& variant)
{
    if (!detail::isHash(logger, KELDA_HERE, variant)) {
        return false;
    }
    const VariantHash& hash = variant.asHash();
    IntegerRange range;
    std::vector<int>& allowed = range.m_allowedIntegers;
    using Iterator = std::vector<int>::const_iterator;
    if (!readAllowed(hash, allowed) ||
        !readLimit(hash, "min", allowed, std::min_element<Iterator>, range.m_minInteger) ||
        !readLimit(hash, "max", allowed, std::max_element<Iterator>, range.m_maxInteger)) {
        return false;
    }
    *this = std::move(range);
    return true;
}

bool isIntegerInRange(int value, const IntegerRange& range)
{
    if (range.hasAllowedIntegers()) {
        const std::vector<int>& allowed = range.getAllowedIntegers();
        return std::ranges::find(allowed, value) != allowed.end();
    }
    return range.getMinInteger() <= value && value <= range.getMaxInteger();
}

// An interval that was read may have its limits the wrong way round: then the upper one wins.
int findNearestInteger(int value, const IntegerRange& range)
{
    if (!range.hasAllowedIntegers()) {
        return std::min(std::max(value, range.getMinInteger()), range.getMaxInteger());
    }
    const std::vector<int>& allowed = range.getAllowedIntegers();
    if (isIntegerInRange(value, range)) {
        return value;
    }
    return *std::ranges::min_element(allowed, {},
                                     [value](int candidate) { return distance(value, candidate); });
}

AudioInfo::AudioInfo(std::string audioType) : m_audioType(std::move(audioType)) {}

AudioInfo::~AudioInfo() = default;

AudioCapabilities::AudioCapabilities(std::string audioType) : m_audioType(std::move(audioType)) {}

AudioCapabilities::~AudioCapabilities() = default;

const std::string& pcmAudioType()
{
    static const std::string type = "pcm";
    return type;
}

const std::string& dsdAudioType()
{
    static const std::string type = "dsd";
    return type;
}

const std::string& opaqueAudioType()
{
    static const std::string type = "opaque";
    return type;
}

} // namespace audioUtils

KELDA_FORMER_NAME("_ZN10audioUtils12IntegerRangeC1E", "i", "");
KELDA_FORMER_NAME("_ZN10audioUtils12IntegerRangeC2E", "i", "");
