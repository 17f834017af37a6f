#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "Arguments.h"
#include "Conversion.h"
#include "Errors.h"
#include "HelpFormatter.h"
#include "OutputFile.h"
#include "ResamplerOptions.h"
#include "StandardStreams.h"

namespace {

void checkResampler(const keldaResample::ConversionOptions& options)
{
    using Kind = keldaPlay::ResamplerChoice::Kind;
    if (options.resampler.kind == Kind::GStreamer && options.sweepPpm > 0) {
        throw CLI::ValidationError("--ratio-sweep", "gstreamer converts by fixed ratios only");
    }
}

int run(int argc, char** argv)
{
    try {
        keldaResample::ConversionOptions options;
        CLI::App app("Converts a sound file to another sample rate.", "kelda-resample");
        app.formatter(std::make_shared<keldaPlay::HelpFormatter>());
        app.set_version_flag("--version", "kelda-resample " KELDA_VERSION);
        app.add_option("IN", options.input, "Sound file to read")->required();
        app.add_option("OUT", options.output,
                       "Sound file to write, in the format that its name ends with")
            ->required();
        app.option_defaults()->group("Conversion");
        app.add_option("--rate", options.rate, "Sample rate of OUT in Hz")
            ->required()
            ->transform(keldaPlay::number(1U, 6'144'000U))
            ->type_name("HZ");
        keldaPlay::addResampler(app, options.resampler,
                                "What converts: float, short (16 bits, fixed point), gstreamer");
        app.add_option("--ratio-sweep", options.sweepPpm,
                       "Let the speed swing by +-PPM, once in 10 s")
            ->transform(keldaPlay::number(0.0, 10'000.0))
            ->option_text("PPM");
        try {
            app.parse(argc, argv);
            checkResampler(options);
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
        return keldaPlay::exitStatusOf(error);
    }
}

} // namespace

int main(int argc, char** argv)
{
    keldaFiles::prepareStandardStreams();
    keldaFiles::removeUnfinishedOnSignals();
    return keldaFiles::finishStandardOutput("kelda-resample", run(argc, argv));
}
