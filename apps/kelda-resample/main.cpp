#include <cstdio>
#include <exception>
#include <map>

#include <CLI/CLI.hpp>

#include "Conversion.h"

int main(int argc, char** argv)
{
    using Resampler = audioUtils::HighQualityResampler;
    static const std::map<std::string, Resampler::FilterQuality> qualities = {
        {"low", Resampler::Low},
        {"medium", Resampler::Medium},
        {"high", Resampler::High},
        {"best", Resampler::Best}};
    try {
        keldaResample::ConversionOptions options;
        CLI::App app("Converts a sound file to another sample rate.", "kelda-resample");
        app.set_version_flag("--version", "kelda-resample " KELDA_VERSION);
        app.add_option("IN", options.input, "Sound file to read")->required();
        app.add_option("OUT", options.output, "Sound file to write, in the same format")
            ->required();
        app.add_option("--rate", options.rate, "Sample rate of OUT in Hz")
            ->required()
            ->check(CLI::Range(1U, 6'144'000U));
        app.add_option("--quality", options.quality, "Of the resampler")
            ->transform(CLI::CheckedTransformer(qualities))
            ->option_text("low|medium|high|best [best]");
        app.add_option("--ratio-sweep", options.sweepPpm,
                       "Let the speed swing by +-PPM, once in 10 s")
            ->check(CLI::Range(0.0, 10'000.0))
            ->option_text("PPM");
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success& success) {
            return app.exit(success);
        } catch (const CLI::ParseError& error) {
            std::fprintf(stderr, "kelda-resample: %s\n", error.what());
            return 2;
        }
        keldaResample::convert(options);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kelda-resample: %s\n", error.what());
        return 1;
    }
}
