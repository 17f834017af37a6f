#include "CardSoak.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "miscUtils/TimeValue.h"
#include "support/FaultySoundCard.h"
#include "support/NumberedSound.h"

namespace keldaSoak {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::duration;
using testSupport::FaultySoundCard;

constexpr std::uint32_t sampleRate = 48000;

std::string textOf(const std::filesystem::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

long residentKib(int process)
{
    std::ifstream in("/proc/" + std::to_string(process) + "/status");
    for (std::string word; in >> word;) {
        if (word == "VmRSS:") {
            long kib = 0;
            in >> kib;
            return kib;
        }
    }
    return 0;
}

class Run
{
public:
    Run(Mode mode, const CardSoakOptions& options)
        : m_mode(mode),
          m_options(options),
          m_frames(static_cast<std::uint32_t>(options.seconds * sampleRate))
    {
    }

    CardSoak play()
    {
        testSupport::createNumberedFrames(path("numbered.wav"), m_frames);
        std::thread player([this] {
            const int status = std::system(command().c_str());
            m_result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
            m_ended = true;
        });
        if (hasStarted()) {
            failAndWatch();
        }
        player.join();
        m_result.messages = textOf(path("err"));
        m_result.summary = textOf(path("out"));
        evaluate();
        return std::move(m_result);
    }

private:
    [[nodiscard]] std::string path(const char* name) const { return m_card.folder() / name; }

    [[nodiscard]] std::string command() const
    {
        const std::string mode =
            m_mode == Mode::Exact ? "--no-click-removal " : "--correct resample --source-ppm 80 ";
        return "LD_PRELOAD=" + FaultySoundCard::library +
               " ASAN_OPTIONS=verify_asan_link_order=0 " KELDA_PLAY
               " --device faulty --period 480 --buffer 9600 " +
               mode + "--trace " + path("trace.csv") + " " + path("numbered.wav") + " >" +
               path("out") + " 2>" + path("err") + " </dev/null";
    }

    [[nodiscard]] bool hasStarted() const
    {
        while (m_card->framesPlayed < sampleRate / 2 && !m_ended) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return !m_ended;
    }

    void failAndWatch()
    {
        const auto start = Clock::now();
        const auto since = [start] { return duration<double>(Clock::now() - start).count(); };
        const double tenth = m_options.seconds / 10;
        Faults faults(m_card, m_options.seed);
        double next = faults.pause(m_options.leastPause, m_options.mostPause);
        // The last fault is to have its aftermath, and to be over before the stream is.
        const double lastFault = m_options.seconds - m_options.leastPause - 4;
        while (!m_ended && since() < m_options.seconds - 2) {
            if (since() >= next && next < lastFault) {
                m_result.faults.push_back(faults.injectNext());
                const Fault& fault = m_result.faults.back();
                std::printf("%9.3f s  %s%s\n", next, fault.kind.c_str(), fault.detail.c_str());
                std::fflush(stdout);
                next = since() + faults.pause(m_options.leastPause, m_options.mostPause);
            }
            if (since() >= static_cast<double>(m_result.residentKib.size() + 1) * tenth) {
                m_result.residentKib.push_back(residentKib(m_card->process));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        m_end = static_cast<std::int64_t>(miscUtils::getMonotonicRawSysclockTime());
    }

    void evaluate()
    {
        const std::vector<testSupport::TraceRow> trace = testSupport::readTrace(path("trace.csv"));
        m_result.hostsUnderruns = hostsUnderruns(m_result.faults, trace);
        if (m_mode == Mode::Exact) {
            m_result.accounts = settle(m_frames, m_card.played<std::uint32_t>(),
                                       m_card.dropped<std::uint32_t>(), m_card->drops, trace);
        } else {
            std::vector<Fault> all = m_result.faults;
            all.insert(all.end(), m_result.hostsUnderruns.begin(), m_result.hostsUnderruns.end());
            std::ranges::sort(all, {}, &Fault::start);
            m_result.recovery = recoveryFrom(all, m_end, trace);
        }
        if (const char* kept = std::getenv("KELDA_SOAK_KEEP")) {
            std::filesystem::copy(m_card.folder(), kept,
                                  std::filesystem::copy_options::recursive |
                                      std::filesystem::copy_options::overwrite_existing);
        }
    }

    Mode m_mode;
    CardSoakOptions m_options;
    std::uint32_t m_frames;
    FaultySoundCard m_card;
    std::atomic<bool> m_ended = false;
    std::int64_t m_end = 0;
    CardSoak m_result;
};

} // namespace

CardSoak playOnFailingCard(Mode mode, const CardSoakOptions& options)
{
    return Run(mode, options).play();
}

} // namespace keldaSoak
