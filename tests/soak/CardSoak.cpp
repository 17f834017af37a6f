#include "CardSoak.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "support/FaultySoundCard.h"
#include "support/NumberedSound.h"
#include "support/VirtualTime.h"

namespace keldaSoak {

namespace {

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
        const std::string line = command();
        m_time.holdAt(std::chrono::nanoseconds(0));
        std::thread player([&] {
            const int status = std::system(line.c_str());
            m_result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        });
        if (m_time.runUntil([this] { return m_card->framesPlayed >= sampleRate / 2; })) {
            failAndWatch();
        }
        m_time.release();
        player.join();
        m_result.messages = textOf(path("err"));
        m_result.summary = textOf(path("out"));
        evaluate();
        return std::move(m_result);
    }

private:
    [[nodiscard]] std::string path(const char* name) const { return m_card.folder() / name; }

    [[nodiscard]] std::string command()
    {
        const std::string mode =
            m_mode == Mode::Exact ? "--no-click-removal " : "--correct resample --source-ppm 80 ";
        return m_time.environment(FaultySoundCard::library) +
               KELDA_PLAY " --device faulty --period 480 --buffer 9600 " + mode + "--trace " +
               path("trace.csv") + " " + path("numbered.wav") + " >" + path("out") + " 2>" +
               path("err") + " </dev/null";
    }

    void failAndWatch()
    {
        const auto start = m_time.now();
        const auto since = [&] { return duration<double>(m_time.now() - start).count(); };
        const double tenth = m_options.seconds / 10;
        Faults faults(m_card, m_time, m_options.seed);
        double next = faults.pause(m_options.leastPause, m_options.mostPause);
        // The last fault is to have its aftermath, and to be over before the stream is.
        const double lastFault = m_options.seconds - m_options.leastPause - 4;
        while (since() < m_options.seconds - 2 && m_time.pass(std::chrono::milliseconds(10))) {
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
        }
        m_end = m_time.monotonic();
    }

    void evaluate()
    {
        const std::vector<testSupport::TraceRow> trace = testSupport::readTrace(path("trace.csv"));
        m_result.unexplainedUnderruns = unexplainedUnderruns(m_result.faults, trace);
        if (m_mode == Mode::Exact) {
            m_result.accounts = settle(m_frames, m_card.played<std::uint32_t>(),
                                       m_card.dropped<std::uint32_t>(), m_card->drops, trace);
        } else {
            m_result.recovery = recoveryFrom(m_result.faults, m_end, trace);
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
    testSupport::VirtualTime m_time;
    std::int64_t m_end = 0;
    CardSoak m_result;
};

} // namespace

CardSoak playOnFailingCard(Mode mode, const CardSoakOptions& options)
{
    return Run(mode, options).play();
}

} // namespace keldaSoak
