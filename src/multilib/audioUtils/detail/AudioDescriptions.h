#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include <log4cplus/logger.h>

#include "audioUtils/detail/AudioFields.h"
#include "audioUtils/detail/Log.h"

// Matching and serialising of descriptions, for PCM and DSD alike.

namespace audioUtils::detail {

/// What tells a family's serialised form from another's.
struct AudioFamily
{
    log4cplus::Logger logger;
    const char* name; ///< as in messages
    const char* rateKey;
    const char* formatKey;
    const char* ratesKey;
    const char* formatsKey;
};

constexpr const char* numChannelsKey = "numChannels";

/// A serialised form being read. The log tells of the function that a program called, not of the
/// code that it shares with others.
struct Reading
{
    const AudioFamily& family;
    Place caller;
};

inline bool isHash(const log4cplus::Logger& logger, const Place& caller,
                   const miscUtils::Variant& variant)
{
    const miscUtils::VariantType type = variant.getType();
    if (type != miscUtils::VariantType::Hash) {
        KELDA_LOG_AT(caller, logger, ERROR,
                     "expected a varianthash, got a variant of type " << type);
    }
    return type == miscUtils::VariantType::Hash;
}

template<typename Format>
bool isValid(const AudioInfoFields<Format>& info)
{
    return info.rate >= 1 && info.numChannels >= 1;
}

template<typename Format>
bool supportsFormat(const AudioCapabilitiesFields<Format>& capabilities, Format format)
{
    return std::ranges::find(capabilities.formats, format) != capabilities.formats.end();
}

template<typename Format>
bool isCompatible(const AudioInfoFields<Format>& info,
                  const AudioCapabilitiesFields<Format>& capabilities)
{
    return isIntegerInRange(info.rate, capabilities.rates) &&
           isIntegerInRange(info.numChannels, capabilities.numChannels) &&
           supportsFormat(capabilities, info.format);
}

template<typename Format>
bool pickNearest(AudioInfoFields<Format>& info, const AudioCapabilitiesFields<Format>& capabilities)
{
    if (!supportsFormat(capabilities, info.format)) {
        return false; // no format is near another
    }
    info.rate = findNearestInteger(info.rate, capabilities.rates);
    info.numChannels = findNearestInteger(info.numChannels, capabilities.numChannels);
    return true;
}

template<typename Format>
miscUtils::Variant toVariant(const AudioFamily& family, const AudioInfoFields<Format>& info)
{
    return miscUtils::VariantHash{{family.rateKey, info.rate},
                                  {numChannelsKey, info.numChannels},
                                  {family.formatKey, toString(info.format)}};
}

template<typename Format>
miscUtils::Variant toVariant(const AudioFamily& family,
                             const AudioCapabilitiesFields<Format>& capabilities)
{
    miscUtils::VariantArray formats;
    for (const Format format : capabilities.formats) {
        formats.append(toString(format));
    }
    return miscUtils::VariantHash{{family.ratesKey, capabilities.rates.toVariant()},
                                  {numChannelsKey, capabilities.numChannels.toVariant()},
                                  {family.formatsKey, std::move(formats)}};
}

/// @return whether the value is of the kind wanted; if not, that has been logged
template<typename Value>
bool isConverted(const Reading& reading, const char* key, const std::optional<Value>& value)
{
    if (!value) {
        KELDA_LOG_AT(reading.caller, reading.family.logger, ERROR,
                     reading.family.name << " configuration varianthash has no or invalid \"" << key
                                         << "\" field");
    }
    return value.has_value();
}

inline bool readInteger(const Reading& reading, const miscUtils::VariantHash& hash, const char* key,
                        int& out)
{
    const std::optional<long> value = hash.get(key).asInteger();
    if (!isConverted(reading, key, value)) {
        return false;
    }
    out = static_cast<int>(*value); // the low 32 bits
    return true;
}

/// Each field is written as soon as it has been read: a failure leaves those before it changed.
template<typename Format>
bool fromVariant(const Reading& reading, const miscUtils::Variant& variant,
                 AudioInfoFields<Format>& out)
{
    if (!isHash(reading.family.logger, reading.caller, variant)) {
        return false;
    }
    const miscUtils::VariantHash& hash = variant.asHash();
    if (!readInteger(reading, hash, reading.family.rateKey, out.rate) ||
        !readInteger(reading, hash, numChannelsKey, out.numChannels)) {
        return false;
    }
    const std::optional<std::string> format = hash.get(reading.family.formatKey).asString();
    if (!isConverted(reading, reading.family.formatKey, format)) {
        return false;
    }
    if (!fromString(out.format, *format)) {
        KELDA_LOG_AT(reading.caller, reading.family.logger, ERROR,
                     reading.family.name << " configuration varianthash has " << reading.family.name
                                         << " format value \"" << *format
                                         << "\" which isn't a valid " << reading.family.name
                                         << " format string");
        return false;
    }
    return true;
}

inline bool readRange(const Reading& reading, const miscUtils::VariantHash& hash, const char* key,
                      IntegerRange& out)
{
    const miscUtils::Variant& value = hash.get(key);
    if (!value.isValid()) {
        KELDA_LOG_AT(reading.caller, reading.family.logger, ERROR,
                     reading.family.name << " capabilities varianthash has no \"" << key
                                         << "\" field");
        return false;
    }
    return out.fromVariant(value);
}

template<typename Format>
bool appendFormat(const Reading& reading, const miscUtils::Variant& variant,
                  std::vector<Format>& out)
{
    const std::optional<std::string> name = variant.asString();
    if (!name) {
        KELDA_LOG_AT(reading.caller, reading.family.logger, ERROR,
                     "got an invalid value of type "
                         << variant.getType()
                         << " (expected: string) in capabilities varianthash \""
                         << reading.family.formatsKey << "\" array");
        return false;
    }
    Format format{};
    if (!fromString(format, *name)) {
        KELDA_LOG_AT(reading.caller, reading.family.logger, ERROR,
                     "the value \"" << *name << "\" in \"" << reading.family.formatsKey
                                    << "\" array is not a valid " << reading.family.name
                                    << " format string");
        return false;
    }
    out.push_back(format);
    return true;
}

/// Each field is written as soon as it has been read, and the formats are appended to those that
/// are there already.
template<typename Format>
bool fromVariant(const Reading& reading, const miscUtils::Variant& variant,
                 AudioCapabilitiesFields<Format>& out)
{
    if (!isHash(reading.family.logger, reading.caller, variant)) {
        return false;
    }
    const miscUtils::VariantHash& hash = variant.asHash();
    if (!readRange(reading, hash, reading.family.ratesKey, out.rates) ||
        !readRange(reading, hash, numChannelsKey, out.numChannels)) {
        return false;
    }
    const miscUtils::Variant& formats = hash.get(reading.family.formatsKey);
    if (!formats.isValid()) {
        KELDA_LOG_AT(reading.caller, reading.family.logger, ERROR,
                     reading.family.name << " capabilities varianthash has no or invalid \""
                                         << reading.family.formatsKey
                                         << "\" field (expected: array of strings)");
        return false;
    }
    return std::ranges::all_of(formats.asArray(), [&](const miscUtils::Variant& format) {
        return appendFormat(reading, format, out.formats);
    });
}

} // namespace audioUtils::detail
