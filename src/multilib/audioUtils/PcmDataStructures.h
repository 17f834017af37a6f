#pragma once

#include <string>
#include <vector>

#include "audioUtils/AudioDataStructures.h"
#include "audioUtils/detail/AudioFields.h"
#include "miscUtils/Export.h"

namespace audioUtils {

/// The PCM sample layouts. Each is named by its own spelling, which GStreamer shares.
///
/// S: signed integer of so many bits, F: IEEE 754 float whose full scale is 1; LE, BE: least, most
/// significant byte first. Frames are interleaved.
enum PcmFormat : int {
    S16LE,    ///< 16 bits
    S16BE,    ///< 16 bits
    S24LE,    ///< 24 bits, packed into 3 bytes
    S24BE,    ///< 24 bits, packed into 3 bytes
    S24_32LE, ///< the low 24 bits of a 32-bit container
    S24_32BE, ///< the low 24 bits of a 32-bit container
    S32LE,    ///< 32 bits
    S32BE,    ///< 32 bits
    F32LE,    ///< 32-bit float
    F32BE,    ///< 32-bit float
    F64LE,    ///< 64-bit float; see getNumBytesForFormat()
    F64BE,    ///< 64-bit float; see getNumBytesForFormat()
};

/// All formats, in ascending order.
[[nodiscard]] KELDA_EXPORT std::vector<PcmFormat> getAllPcmFormats();

/// Bytes of one sample of one channel; 0 for a value that is no format.
///
/// F64LE and F64BE give 4, not 8: every frame size in the library is calculated so.
[[nodiscard]] KELDA_EXPORT int getNumBytesForFormat(PcmFormat format);

/// Finds a format by its exact name ("S24_32LE"; case and blanks matter).
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromString(PcmFormat& out, const std::string& name);

/// The format's name; "<unknown>" for a value that is no format. Valid for the life of the process.
[[nodiscard]] KELDA_EXPORT const char* toString(PcmFormat format);

/// Finds a format by ALSA's snd_pcm_format_t code.
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromSndPcmFormat(PcmFormat& out, int alsaFormat);

/// ALSA's snd_pcm_format_t code of a format.
/// @return false, with `out` untouched, for a value that is no format.
[[nodiscard]] KELDA_EXPORT bool toSndPcmFormat(int& out, PcmFormat format);

/// Finds a format by ALSA's name, which is not always ours: "S24_LE" is S24_32LE.
/// @return false, with `out` untouched, when there is none.
[[nodiscard]] KELDA_EXPORT bool fromSndPcmString(PcmFormat& out, const std::string& alsaName);

/// ALSA's name of a format.
/// @return false, with `out` untouched, for a value that is no format.
[[nodiscard]] KELDA_EXPORT bool toSndPcmString(std::string& out, PcmFormat format);

/// GStreamer's name of a format: the same as toString().
[[nodiscard]] KELDA_EXPORT const char* toGstString(PcmFormat format);

class PcmAudioCapabilities;

/// A PCM stream: sample rate, channels and format.
class KELDA_EXPORT PcmAudioInfo : public AudioInfo
{
public:
    /// Nothing: not valid.
    PcmAudioInfo();
    /// @param sampleRate  in Hz: frames a second
    /// @param numChannels samples of a frame
    /// @param pcmFormat   of each sample
    PcmAudioInfo(int sampleRate, int numChannels, PcmFormat pcmFormat);

    /// Whether it has a sample rate and a channel. The format plays no part.
    [[nodiscard]] bool isValid() const override;
    /// Equal in all three fields.
    [[nodiscard]] bool operator==(const PcmAudioInfo& other) const
    {
        return m_fields == other.m_fields;
    }
    /// Unlike in any of them.
    [[nodiscard]] bool operator!=(const PcmAudioInfo& other) const { return !(*this == other); }

    /// @name Fields
    /// The setters judge nothing.
    /// @{
    [[nodiscard]] int getSampleRate() const { return m_fields.rate; } ///< Hz: frames a second.
    [[nodiscard]] int getNumChannels() const { return m_fields.numChannels; } ///< Of a frame.
    [[nodiscard]] PcmFormat getPcmFormat() const { return m_fields.format; }  ///< Of each sample.
    void setSampleRate(int sampleRate) { m_fields.rate = sampleRate; } ///< Hz: frames a second.
    void setNumChannels(int numChannels) { m_fields.numChannels = numChannels; } ///< Of a frame.
    void setPcmFormat(PcmFormat pcmFormat) { m_fields.format = pcmFormat; } ///< Of each sample.
    /// @}

    /// {"sampleRate": 48000, "numChannels": 2, "pcmFormat": "S16LE"}
    [[nodiscard]] miscUtils::Variant toVariant() const override;
    /// Takes what toVariant() gave. Field by field: what was read before a failure has been changed
    /// by then. Validity is not checked.
    [[nodiscard]] bool fromVariant(const miscUtils::Variant& variant) override;

private:
    friend KELDA_EXPORT bool isAudioInfoCompatible(const PcmAudioInfo& info,
                                                   const PcmAudioCapabilities& capabilities);
    friend KELDA_EXPORT bool pickNearestAudioInfo(PcmAudioInfo& info,
                                                  const PcmAudioCapabilities& capabilities);

    detail::AudioInfoFields<PcmFormat> m_fields;
};

/// Which PCM streams a source or a sink is able to: each field by itself, in any combination.
class KELDA_EXPORT PcmAudioCapabilities : public AudioCapabilities
{
public:
    /// Every sample rate and channel count, but no format: nothing is compatible.
    PcmAudioCapabilities();
    /// Supports every combination of the three.
    PcmAudioCapabilities(IntegerRange sampleRates, IntegerRange numChannels,
                         std::vector<PcmFormat> pcmFormats);

    /// Equal in all three fields, lists in the same order.
    [[nodiscard]] bool operator==(const PcmAudioCapabilities& other) const
    {
        return m_fields == other.m_fields;
    }
    /// Unlike in any of them.
    [[nodiscard]] bool operator!=(const PcmAudioCapabilities& other) const
    {
        return !(*this == other);
    }

    /// Hz: frames a second.
    [[nodiscard]] const IntegerRange& getSampleRates() const { return m_fields.rates; }
    /// Samples of a frame.
    [[nodiscard]] const IntegerRange& getNumChannels() const { return m_fields.numChannels; }
    /// In the order in which they were given.
    [[nodiscard]] const std::vector<PcmFormat>& getPcmFormats() const { return m_fields.formats; }

    /// {"sampleRates": {...}, "numChannels": {...}, "pcmFormats": ["S16LE", ...]}
    [[nodiscard]] miscUtils::Variant toVariant() const override;
    /// Takes what toVariant() gave. Field by field: what was read before a failure has been changed
    /// by then. The formats are appended to those that are there already.
    [[nodiscard]] bool fromVariant(const miscUtils::Variant& variant) override;

private:
    friend KELDA_EXPORT bool isAudioInfoCompatible(const PcmAudioInfo& info,
                                                   const PcmAudioCapabilities& capabilities);
    friend KELDA_EXPORT bool pickNearestAudioInfo(PcmAudioInfo& info,
                                                  const PcmAudioCapabilities& capabilities);

    detail::AudioCapabilitiesFields<PcmFormat> m_fields;
};

/// Whether sample rate, channel count and format are all supported.
[[nodiscard]] KELDA_EXPORT bool isAudioInfoCompatible(const PcmAudioInfo& info,
                                                      const PcmAudioCapabilities& capabilities);

/// Replaces sample rate and channel count by the nearest that are supported.
/// @return false, with nothing changed, when the format is not supported.
[[nodiscard]] KELDA_EXPORT bool pickNearestAudioInfo(PcmAudioInfo& info,
                                                     const PcmAudioCapabilities& capabilities);

/// Every sample rate, channel count and format there is.
[[nodiscard]] KELDA_EXPORT PcmAudioCapabilities getAllPossiblePcmCapabilities();

} // namespace audioUtils
