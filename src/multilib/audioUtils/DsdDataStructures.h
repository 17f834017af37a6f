#pragma once

#include <string>
#include <vector>

#include "audioUtils/AudioDataStructures.h"
#include "audioUtils/detail/AudioFields.h"
#include "miscUtils/Export.h"

namespace audioUtils {

/// The DSD sample layouts: 8, 16 or 32 one-bit samples of a channel side by side.
enum DsdFormat : int {
    DSDU8,    ///< a byte: 8 samples
    DSDU16LE, ///< 16 samples, least significant byte first
    DSDU16BE, ///< 16 samples, most significant byte first
    DSDU32LE, ///< 32 samples, least significant byte first
    DSDU32BE, ///< 32 samples, most significant byte first
};

/// All formats, in ascending order.
[[nodiscard]] KELDA_EXPORT std::vector<DsdFormat> getAllDsdFormats();

/// Bytes of one group of samples of one channel; 0 for a value that is no format.
[[nodiscard]] KELDA_EXPORT int getNumBytesForFormat(DsdFormat format);

/// Finds a format by its exact name ("DSDU16LE"; case and blanks matter).
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromString(DsdFormat& out, const std::string& name);

/// The format's name; "<unknown>" for a value that is no format. Valid for the life of the process.
[[nodiscard]] KELDA_EXPORT const char* toString(DsdFormat format);

class DsdAudioCapabilities;

/// A DSD stream: bit rate, channels and format.
class KELDA_EXPORT DsdAudioInfo : public AudioInfo
{
public:
    /// Nothing: not valid.
    DsdAudioInfo();
    /// @param bitrate     one-bit samples a second, of each channel: 2822400 for DSD64
    /// @param numChannels of the stream
    /// @param dsdFormat   how the bits of a channel are grouped
    DsdAudioInfo(int bitrate, int numChannels, DsdFormat dsdFormat);

    /// Whether it has a bit rate and a channel. The format plays no part.
    [[nodiscard]] bool isValid() const override;
    /// Equal in all three fields.
    [[nodiscard]] bool operator==(const DsdAudioInfo& other) const
    {
        return m_fields == other.m_fields;
    }
    /// Unlike in any of them.
    [[nodiscard]] bool operator!=(const DsdAudioInfo& other) const { return !(*this == other); }

    /// @name Fields
    /// The setters judge nothing.
    /// @{
    [[nodiscard]] int getBitrate() const { return m_fields.rate; } ///< Hz, of each channel.
    [[nodiscard]] int getNumChannels() const { return m_fields.numChannels; } ///< Of a frame.
    [[nodiscard]] DsdFormat getDsdFormat() const { return m_fields.format; }  ///< Of each sample.
    void setBitrate(int bitrate) { m_fields.rate = bitrate; } ///< Hz, of each channel.
    void setNumChannels(int numChannels) { m_fields.numChannels = numChannels; } ///< Of a frame.
    void setDsdFormat(DsdFormat dsdFormat) { m_fields.format = dsdFormat; } ///< Of each sample.
    /// @}

    /// {"bitrate": 2822400, "numChannels": 2, "dsdFormat": "DSDU8"}
    [[nodiscard]] miscUtils::Variant toVariant() const override;
    /// Takes what toVariant() gave. Field by field: what was read before a failure has been changed
    /// by then. Validity is not checked.
    [[nodiscard]] bool fromVariant(const miscUtils::Variant& variant) override;

private:
    friend KELDA_EXPORT bool isAudioInfoCompatible(const DsdAudioInfo& info,
                                                   const DsdAudioCapabilities& capabilities);
    friend KELDA_EXPORT bool pickNearestAudioInfo(DsdAudioInfo& info,
                                                  const DsdAudioCapabilities& capabilities);

    detail::AudioInfoFields<DsdFormat> m_fields;
};

/// Which DSD streams a source or a sink is able to: each field by itself, in any combination.
class KELDA_EXPORT DsdAudioCapabilities : public AudioCapabilities
{
public:
    /// Every bit rate and channel count, but no format: nothing is compatible.
    DsdAudioCapabilities();
    /// Supports every combination of the three.
    DsdAudioCapabilities(IntegerRange bitrates, IntegerRange numChannels,
                         std::vector<DsdFormat> dsdFormats);

    /// Equal in all three fields, lists in the same order.
    [[nodiscard]] bool operator==(const DsdAudioCapabilities& other) const
    {
        return m_fields == other.m_fields;
    }
    /// Unlike in any of them.
    [[nodiscard]] bool operator!=(const DsdAudioCapabilities& other) const
    {
        return !(*this == other);
    }

    /// One-bit samples a second, of each channel.
    [[nodiscard]] const IntegerRange& getBitrates() const { return m_fields.rates; }
    /// Samples of a frame.
    [[nodiscard]] const IntegerRange& getNumChannels() const { return m_fields.numChannels; }
    /// In the order in which they were given.
    [[nodiscard]] const std::vector<DsdFormat>& getDsdFormats() const { return m_fields.formats; }

    /// {"bitrates": {...}, "numChannels": {...}, "dsdFormats": ["DSDU8", ...]}
    [[nodiscard]] miscUtils::Variant toVariant() const override;
    /// Takes what toVariant() gave. Field by field: what was read before a failure has been changed
    /// by then. The formats are appended to those that are there already.
    [[nodiscard]] bool fromVariant(const miscUtils::Variant& variant) override;

private:
    friend KELDA_EXPORT bool isAudioInfoCompatible(const DsdAudioInfo& info,
                                                   const DsdAudioCapabilities& capabilities);
    friend KELDA_EXPORT bool pickNearestAudioInfo(DsdAudioInfo& info,
                                                  const DsdAudioCapabilities& capabilities);

    detail::AudioCapabilitiesFields<DsdFormat> m_fields;
};

/// Whether bit rate, channel count and format are all supported.
[[nodiscard]] KELDA_EXPORT bool isAudioInfoCompatible(const DsdAudioInfo& info,
                                                      const DsdAudioCapabilities& capabilities);

/// Replaces bit rate and channel count by the nearest that are supported.
/// @return false, with nothing changed, when the format is not supported.
[[nodiscard]] KELDA_EXPORT bool pickNearestAudioInfo(DsdAudioInfo& info,
                                                     const DsdAudioCapabilities& capabilities);

/// Every bit rate, channel count and format there is.
[[nodiscard]] KELDA_EXPORT DsdAudioCapabilities getAllPossibleDsdCapabilities();

} // namespace audioUtils
