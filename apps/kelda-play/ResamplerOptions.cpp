#include "ResamplerOptions.h"

#include <map>

#include "Arguments.h"

namespace keldaPlay {

void addResampler(CLI::App& app, ResamplerChoice& choice, const std::string& what)
{
    using Resampler = audioUtils::HighQualityResampler;
    using Kind = ResamplerChoice::Kind;
    static const std::map<std::string, Kind> kinds = {
        {"float", Kind::Float}, {"short", Kind::Short}, {"gstreamer", Kind::GStreamer}};
    static const std::map<std::string, Resampler::FilterQuality> qualities = {
        {"low", Resampler::Low},
        {"medium", Resampler::Medium},
        {"high", Resampler::High},
        {"best", Resampler::Best}};
    app.option_defaults()->group("Conversion");
    app.add_option("--resampler", choice.kind, what)
        ->transform(oneOf(kinds))
        ->option_text("float|short|gstreamer [float]");
    app.add_option("--quality", choice.quality, "Of the resampler")
        ->transform(oneOf(qualities))
        ->option_text("low|medium|high|best [best]");
}

} // namespace keldaPlay
