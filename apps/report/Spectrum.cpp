#include "Spectrum.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <memory>
#include <numbers>
#include <stdexcept>

#include <fftw3.h>

#include "ReportFolder.h"

namespace keldaReport {

namespace fs = std::filesystem;

namespace {

// The 7-term Blackman-Harris window (H.-H. Albrecht, "A family of cosine-sum windows", 2001).
double windowAt(double turns)
{
    constexpr std::array terms = {0.27105140069342,  -0.43329793923448, 0.21812299954311,
                                  -0.06592544638803, 0.01081174209837,  -0.00077658482522,
                                  0.00001388721735};
    double sum = 0;
    for (std::size_t k = 0; k < terms.size(); ++k) {
        sum += terms[k] * std::cos(2 * std::numbers::pi * static_cast<double>(k) * turns);
    }
    return sum;
}

constexpr double smallest = 1e-20; // -200 dB

double inDb(double power)
{
    return 10 * std::log10(std::max(power, smallest));
}

} // namespace

struct ShortTimeSpectrum::Transform
{
    struct Free
    {
        void operator()(void* memory) const { fftw_free(memory); }
    };

    Transform()
    {
        double squares = 0;
        for (std::size_t i = 0; i < length; ++i) {
            window[i] = windowAt(static_cast<double>(i) / length);
            squares += window[i] * window[i];
        }
        // The power of a sine of full scale, 1/2, counts as 1.
        scale = 4 / (squares * length);
    }
    ~Transform() { fftw_destroy_plan(plan); }
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;

    std::array<double, length> window{};
    double scale = 0;
    std::unique_ptr<double, Free> in{fftw_alloc_real(length)};
    std::unique_ptr<fftw_complex, Free> out{fftw_alloc_complex(length / 2 + 1)};
    fftw_plan plan =
        fftw_plan_dft_r2c_1d(static_cast<int>(length), in.get(), out.get(), FFTW_ESTIMATE);
};

ShortTimeSpectrum::ShortTimeSpectrum()
    : m_transform(std::make_unique<Transform>()), m_power(length / 2 + 1)
{
}

ShortTimeSpectrum::~ShortTimeSpectrum() = default;

std::span<const double> ShortTimeSpectrum::around(const Audio& audio, std::ptrdiff_t sample)
{
    const auto size = static_cast<std::ptrdiff_t>(audio.samples.size());
    for (std::size_t i = 0; i < length; ++i) {
        const std::ptrdiff_t at =
            sample + static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(length / 2);
        const float value =
            at >= 0 && at < size ? audio.samples[static_cast<std::size_t>(at)] : 0.0F;
        m_transform->in.get()[i] = m_transform->window[i] * static_cast<double>(value);
    }
    fftw_execute(m_transform->plan);
    for (std::size_t i = 0; i < m_power.size(); ++i) {
        const double* const bin = m_transform->out.get()[i];
        m_power[i] = (bin[0] * bin[0] + bin[1] * bin[1]) * m_transform->scale;
    }
    return m_power;
}

double loudestAbove(const Audio& audio, double hertz, double atSeconds, double withinSeconds)
{
    constexpr std::ptrdiff_t step = ShortTimeSpectrum::length / 16;
    ShortTimeSpectrum spectrum;
    const auto from = static_cast<std::ptrdiff_t>((atSeconds - withinSeconds) * audio.rate);
    const auto to = static_cast<std::ptrdiff_t>((atSeconds + withinSeconds) * audio.rate);
    const auto first =
        static_cast<std::ptrdiff_t>(std::ceil(hertz * ShortTimeSpectrum::length / audio.rate));
    double loudest = 0;
    for (std::ptrdiff_t at = from; at <= to; at += step) {
        const std::span<const double> power = spectrum.around(audio, at);
        double above = 0;
        for (const double bin : power.subspan(static_cast<std::size_t>(first))) {
            above += bin;
        }
        loudest = std::max(loudest, above);
    }
    return inDb(loudest);
}

void drawSpectrogram(const fs::path& folder, const std::string& name, const Audio& audio)
{
    constexpr std::size_t columns = 800;
    constexpr std::size_t binsAPixel = 4;
    const fs::path data = folder / (name + ".dat");
    {
        std::ofstream out(data);
        ShortTimeSpectrum spectrum;
        const double step =
            std::max<double>(Audio::leastStep, static_cast<double>(audio.samples.size()) /
                                                   static_cast<double>(columns));
        for (double at = 0; at < static_cast<double>(audio.samples.size()); at += step) {
            const std::span<const double> power =
                spectrum.around(audio, static_cast<std::ptrdiff_t>(at));
            for (std::size_t bin = 0; bin + binsAPixel <= power.size(); bin += binsAPixel) {
                const auto pixel = power.subspan(bin, binsAPixel);
                out << at / audio.rate << ' '
                    << static_cast<double>(bin) * audio.rate / ShortTimeSpectrum::length / 1000
                    << ' ' << inDb(*std::ranges::max_element(pixel)) << '\n';
            }
        }
        if (!out.flush()) {
            throw std::runtime_error(data.string() + ": can't be written");
        }
    }
    const std::string script = name + ".gnuplot";
    std::ofstream(folder / script)
        << "set terminal png size 900,260; set output '" << name << ".png'\n"
        << "set palette defined (0 'black', 1 'dark-blue', 2 'red', 3 'yellow', 4 'white')\n"
        << "set cbrange [-140:0]; set cblabel 'dBFS'; unset key\n"
        << "set xrange [0:" << std::to_string(audio.seconds()) << "]; set xlabel 's'\n"
        << "set yrange [0:" << std::to_string(audio.rate / 2000.0) << "]; set ylabel 'kHz'\n"
        << "plot '" << name << ".dat' using 1:2:3 with image\n";
    runGnuplot(folder, script);
}

} // namespace keldaReport
