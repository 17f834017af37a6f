#pragma once

#include <limits>
#include <string>
#include <vector>

#include "miscUtils/Export.h"
#include "miscUtils/Variant.h"
#include "nonstd/span.hpp"

namespace audioUtils {

/// Which values of a parameter are supported: all of a closed interval, or those of a list.
///
/// A list keeps its order and its duplicates; the interval then spans it. A plain value.
///
/// ```cpp
/// IntegerRange channels(1, 8);
/// IntegerRange rates(std::vector<int>{44100, 48000});
/// const int nearest = findNearestInteger(47000, rates); // 48000
/// ```
class KELDA_EXPORT IntegerRange
{
public:
    /// Every int.
    IntegerRange() = default;
    /// All from one value to another, both inclusive. Aborts when the first is the larger one.
    IntegerRange(int minInteger, int maxInteger);
    /// The values of a list; with an empty one, every int.
    IntegerRange(std::vector<int>&& allowed);
    /// The same; the list is copied.
    IntegerRange(nonstd::span_lite::span<int> allowed);

    /// The smallest value of the interval, or of the list.
    [[nodiscard]] int getMinInteger() const { return m_minInteger; }
    /// The largest value of the interval, or of the list.
    [[nodiscard]] int getMaxInteger() const { return m_maxInteger; }
    /// The list; empty where all values of the interval are supported.
    [[nodiscard]] const std::vector<int>& getAllowedIntegers() const { return m_allowedIntegers; }
    /// Whether there is a list.
    [[nodiscard]] bool hasAllowedIntegers() const { return !m_allowedIntegers.empty(); }

    /// The same interval, and the same list in the same order.
    [[nodiscard]] bool operator==(const IntegerRange& other) const
    {
        return m_minInteger == other.m_minInteger && m_maxInteger == other.m_maxInteger &&
               m_allowedIntegers == other.m_allowedIntegers;
    }
    /// Unlike in any of these.
    [[nodiscard]] bool operator!=(const IntegerRange& other) const { return !(*this == other); }

    /// {"min": 8000, "max": 96000}, and "allowed": [...] where there is a list.
    [[nodiscard]] miscUtils::Variant toVariant() const;

    /// Takes what toVariant() gave. "min" and "max" may be left out where there is a list. Neither
    /// their order nor whether they agree with the list is checked; integers are narrowed to 32
    /// bits; other keys are ignored.
    ///
    /// @return false, with nothing changed, when it can't be read; the log ("AudioUtils") tells
    /// why.
    [[nodiscard]] bool fromVariant(const miscUtils::Variant& variant);

private:
    int m_minInteger = std::numeric_limits<int>::min();
    int m_maxInteger = std::numeric_limits<int>::max();
    std::vector<int> m_allowedIntegers;
};

/// Whether a range supports a value: with a list, whether it is in the list.
[[nodiscard]] KELDA_EXPORT bool isIntegerInRange(int value, const IntegerRange& range);

/// The supported value that is nearest to the one wanted. Of two in a list that are equally near,
/// the one that comes first wins. (Distances beyond 31 bits wrap.)
[[nodiscard]] KELDA_EXPORT int findNearestInteger(int value, const IntegerRange& range);

/// A description of a stream: the one configuration in use. PcmAudioInfo and DsdAudioInfo are it.
class KELDA_EXPORT AudioInfo
{
public:
    /// @param audioType pcmAudioType(), dsdAudioType() or opaqueAudioType()
    explicit AudioInfo(std::string audioType);
    virtual ~AudioInfo();
    /// A copy, of the same type.
    AudioInfo(const AudioInfo&) = default;
    /// The type stays: it belongs to the class.
    AudioInfo& operator=(const AudioInfo&) { return *this; }

    /// "pcm" or "dsd".
    [[nodiscard]] const std::string& getAudioType() const { return m_audioType; }

    /// Takes what toVariant() gave.
    /// @return false when it can't be read; the log ("AudioUtils") tells why.
    [[nodiscard]] virtual bool fromVariant(const miscUtils::Variant& variant) = 0;
    /// The description as a hash, to be stored or sent.
    [[nodiscard]] virtual miscUtils::Variant toVariant() const = 0;
    /// Whether a stream can be so.
    [[nodiscard]] virtual bool isValid() const = 0;

private:
    std::string m_audioType;
};

/// A description of what a source or a sink is able to. PcmAudioCapabilities and
/// DsdAudioCapabilities are it.
class KELDA_EXPORT AudioCapabilities
{
public:
    /// @param audioType pcmAudioType(), dsdAudioType() or opaqueAudioType()
    explicit AudioCapabilities(std::string audioType);
    virtual ~AudioCapabilities();
    /// A copy, of the same type.
    AudioCapabilities(const AudioCapabilities&) = default;
    /// The type stays: it belongs to the class.
    AudioCapabilities& operator=(const AudioCapabilities&) { return *this; }

    /// "pcm" or "dsd".
    [[nodiscard]] const std::string& getAudioType() const { return m_audioType; }

    /// Takes what toVariant() gave.
    /// @return false when it can't be read; the log ("AudioUtils") tells why.
    [[nodiscard]] virtual bool fromVariant(const miscUtils::Variant& variant) = 0;
    /// The description as a hash, to be stored or sent.
    [[nodiscard]] virtual miscUtils::Variant toVariant() const = 0;

private:
    std::string m_audioType;
};

/// @name Families of audio stream
/// As they are named in descriptions. The references stay valid for the life of the process. Safe
/// to call from any thread.
/// @{
[[nodiscard]] KELDA_EXPORT const std::string& pcmAudioType();    ///< "pcm"
[[nodiscard]] KELDA_EXPORT const std::string& dsdAudioType();    ///< "dsd"
[[nodiscard]] KELDA_EXPORT const std::string& opaqueAudioType(); ///< "opaque": neither of the two
/// @}

/// The type of getDefaultChannelMask: empty, a tag without behaviour.
struct DefaultChannelMask
{
};

/// A tag that callers may name; the library itself never reads it.
KELDA_EXPORT extern const DefaultChannelMask getDefaultChannelMask;

} // namespace audioUtils
