// A sound card in software, loaded by libasound as a plugin of type "kelda_faulty": it plays in
// real time on the monotonic raw clock, or in virtual time, keeps what was played, and fails on
// command (Control.h).

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>
#include <utility>
#include <vector>

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>
#include <poll.h>
#include <sys/timerfd.h>

#include "support/faultyPcm/ControlFile.h"

namespace testSupport::faultyPcm {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

/// Closes its file by itself.
class Descriptor
{
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

void waitWhile(const std::atomic<bool>& condition, std::atomic<std::uint32_t>& numWaiting,
               std::chrono::microseconds step = std::chrono::milliseconds(1))
{
    ++numWaiting;
    while (condition) {
        if (step.count() > 0) {
            std::this_thread::sleep_for(step);
        }
    }
    --numWaiting;
}

class FaultyPcm
{
public:
    FaultyPcm(ControlPointer control, const std::string& folder)
        : m_control(std::move(control)),
          m_output(append(folder + "/played.raw")),
          m_dropped(append(folder + "/dropped.raw")),
          m_timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC))
    {
        m_plugin.version = SND_PCM_IOPLUG_VERSION;
        m_plugin.name = "Sound card that fails on command";
        m_plugin.flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
        m_plugin.poll_fd = m_timer.get();
        m_plugin.poll_events = POLLIN;
        m_plugin.private_data = this;
        m_plugin.callback = callbacks();
        m_control->process = getpid();
        ++m_control->opens;
    }

    ~FaultyPcm()
    {
        stop();
        ++m_control->closes;
    }
    FaultyPcm(const FaultyPcm&) = delete;
    FaultyPcm& operator=(const FaultyPcm&) = delete;

    int create(snd_pcm_t** pcm, const char* name, snd_pcm_stream_t stream, int mode)
    {
        const int error = snd_pcm_ioplug_create(&m_plugin, name, stream, mode);
        if (error < 0) {
            return error;
        }
        *pcm = m_plugin.pcm;
        constrain();
        return 0;
    }

private:
    static int append(const std::string& path)
    {
        return ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }

    static FaultyPcm& of(snd_pcm_ioplug_t* plugin)
    {
        return *static_cast<FaultyPcm*>(plugin->private_data);
    }

    static const snd_pcm_ioplug_callback_t* callbacks()
    {
        static const snd_pcm_ioplug_callback_t table = [] {
            snd_pcm_ioplug_callback_t c{};
            c.start = [](snd_pcm_ioplug_t* p) { return of(p).start(); };
            c.stop = [](snd_pcm_ioplug_t* p) { return of(p).stop(); };
            c.pointer = [](snd_pcm_ioplug_t* p) { return of(p).pointer(); };
            c.transfer = [](snd_pcm_ioplug_t* p, const snd_pcm_channel_area_t* areas,
                            snd_pcm_uframes_t offset,
                            snd_pcm_uframes_t size) { return of(p).transfer(areas, offset, size); };
            c.close = [](snd_pcm_ioplug_t* p) {
                delete &of(p);
                return 0;
            };
            c.hw_params = [](snd_pcm_ioplug_t* p, snd_pcm_hw_params_t*) {
                return of(p).configure();
            };
            c.sw_params = [](snd_pcm_ioplug_t* p, snd_pcm_sw_params_t* params) {
                return snd_pcm_sw_params_get_avail_min(params, &of(p).m_availMin);
            };
            c.prepare = [](snd_pcm_ioplug_t* p) { return of(p).prepare(); };
            c.resume = [](snd_pcm_ioplug_t* p) { return of(p).resume(); };
            c.poll_descriptors = [](snd_pcm_ioplug_t* p, pollfd* fds, unsigned int space) {
                return of(p).pollDescriptors(fds, space);
            };
            c.poll_revents = [](snd_pcm_ioplug_t* p, pollfd*, unsigned int,
                                unsigned short* events) { return of(p).pollEvents(events); };
            c.delay = [](snd_pcm_ioplug_t* p, snd_pcm_sframes_t* delay) {
                return of(p).delay(delay);
            };
            c.set_chmap = [](snd_pcm_ioplug_t* p, const snd_pcm_chmap_t* map) {
                return of(p).setChannelMap(map);
            };
            return c;
        }();
        return &table;
    }

    void constrain()
    {
        static constexpr unsigned int access[] = {SND_PCM_ACCESS_RW_INTERLEAVED};
        snd_pcm_ioplug_set_param_list(&m_plugin, SND_PCM_IOPLUG_HW_ACCESS, std::size(access),
                                      access);
        static constexpr unsigned int formats[] = {
            SND_PCM_FORMAT_S16_LE,  SND_PCM_FORMAT_S16_BE,  SND_PCM_FORMAT_S24_LE,
            SND_PCM_FORMAT_S24_BE,  SND_PCM_FORMAT_S24_3LE, SND_PCM_FORMAT_S24_3BE,
            SND_PCM_FORMAT_S32_LE,  SND_PCM_FORMAT_S32_BE,  SND_PCM_FORMAT_FLOAT_LE,
            SND_PCM_FORMAT_FLOAT_BE};
        const unsigned int onlyFormat = m_control->onlyFormat - 1;
        if (m_control->onlyFormat == 0) {
            snd_pcm_ioplug_set_param_list(&m_plugin, SND_PCM_IOPLUG_HW_FORMAT, std::size(formats),
                                          formats);
        } else {
            snd_pcm_ioplug_set_param_list(&m_plugin, SND_PCM_IOPLUG_HW_FORMAT, 1, &onlyFormat);
        }
        limit(SND_PCM_IOPLUG_HW_CHANNELS, 1, 8);
        limit(SND_PCM_IOPLUG_HW_PERIODS, 2, 1024);
        static constexpr unsigned int rates[] = {44100, 48000, 96000, 1411200};
        const unsigned int rate = m_control->onlyRate;
        limit(SND_PCM_IOPLUG_HW_RATE, rate == 0 ? 8000 : rate, rate == 0 ? 192000 : rate);
        if (m_control->severalRates) {
            snd_pcm_ioplug_set_param_list(&m_plugin, SND_PCM_IOPLUG_HW_RATE, std::size(rates),
                                          rates);
        }
        limitSize(SND_PCM_IOPLUG_HW_PERIOD_BYTES, m_control->onlyPeriod, 1U << 20);
        limitSize(SND_PCM_IOPLUG_HW_BUFFER_BYTES, m_control->onlyBuffer, 1U << 22);
    }

    void limit(int parameter, unsigned int smallest, unsigned int largest)
    {
        snd_pcm_ioplug_set_param_minmax(&m_plugin, parameter, smallest, largest);
    }

    // libasound wants bytes; a card with one size only is used with 16-bit stereo, 4 bytes a frame.
    void limitSize(int parameter, unsigned int frames, unsigned int largest)
    {
        limit(parameter, frames == 0 ? 64 : frames * 4, frames == 0 ? largest : frames * 4);
    }

    int configure()
    {
        if (m_control->isGone) {
            return -ENODEV;
        }
        m_bytesPerFrame = static_cast<std::size_t>(snd_pcm_format_physical_width(m_plugin.format)) /
                          8 * m_plugin.channels;
        m_control->rate = m_plugin.rate;
        m_ring.assign(m_plugin.buffer_size * m_bytesPerFrame, 0);
        return 0;
    }

    int prepare()
    {
        if (m_control->isGone) {
            return -ENODEV;
        }
        stop();
        m_taken = 0;
        m_played = 0;
        return 0;
    }

    [[nodiscard]] std::int64_t now() const
    {
        if (const std::int64_t time = m_control->virtualTime; time != 0) {
            return time;
        }
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC_RAW, &time);
        return time.tv_sec * nanosecondsPerSecond + time.tv_nsec;
    }

    int start()
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(m_control->slowStarts));
        m_startTime = now();
        m_playedAtStart = static_cast<double>(m_played);
        setRate();
        m_running = true;
        const std::uint32_t run = m_control->numRuns;
        if (run < m_control->runs.size()) {
            m_control->runs[run].startTime = m_startTime;
            m_control->runs[run].playedBefore = m_control->framesPlayed.load();
            m_control->numRuns = run + 1;
        }
        return 0;
    }

    void setRate()
    {
        m_pitchPpm = m_control->pitchPpm;
        m_framesPerNs = m_plugin.rate * (1 + m_control->crystalPpm * 1e-6) *
                        (1 + m_pitchPpm * 1e-6) / nanosecondsPerSecond;
    }

    /// What is still held is lost.
    int stop()
    {
        play();
        m_running = false;
        m_control->framesDropped += m_taken - m_played;
        m_control->drops += m_taken != m_played ? 1 : 0;
        keep(m_dropped, m_played, m_taken);
        m_taken = m_played;
        return 0;
    }

    // A suspended card goes on where it stood.
    int resume()
    {
        start();
        snd_pcm_ioplug_set_state(&m_plugin, SND_PCM_STATE_RUNNING);
        return 0;
    }

    void suspend()
    {
        play();
        m_running = false;
        snd_pcm_ioplug_set_state(&m_plugin, SND_PCM_STATE_SUSPENDED);
    }

    void vanish()
    {
        stop();
        m_control->isGone = true;
        snd_pcm_ioplug_set_state(&m_plugin, SND_PCM_STATE_DISCONNECTED);
    }

    /// Brings what has been played up to the present.
    /// @return false when the card has run dry
    bool play()
    {
        if (!m_running) {
            return true;
        }
        const std::int64_t time = now();
        const double position =
            m_playedAtStart + static_cast<double>(time - m_startTime) * m_framesPerNs;
        const auto due = static_cast<std::uint64_t>(position);
        if (m_control->pitchPpm != m_pitchPpm) {
            m_startTime = time;
            m_playedAtStart = position;
            setRate();
        }
        const std::uint64_t end = std::min(due, m_taken);
        keep(m_output, m_played, end);
        m_control->framesPlayed += end - m_played;
        m_played = end;
        return due < m_taken;
    }

    void keep(const Descriptor& file, std::uint64_t begin, std::uint64_t end)
    {
        while (begin < end) {
            const std::size_t at = begin % m_plugin.buffer_size;
            const std::size_t count = std::min<std::size_t>(end - begin, m_plugin.buffer_size - at);
            if (::write(file.get(), m_ring.data() + at * m_bytesPerFrame, count * m_bytesPerFrame) <
                0) {
                return;
            }
            begin += count;
        }
    }

    /// The position that the card tells.
    [[nodiscard]] std::uint64_t position() const
    {
        const std::uint64_t step = std::max(1U, m_control->granularity.load());
        return m_played == m_taken ? m_played : m_played / step * step;
    }

    snd_pcm_sframes_t pointer()
    {
        if (m_control->isGone) {
            vanish();
            return static_cast<snd_pcm_sframes_t>(m_played);
        }
        if (!play() && m_plugin.state == SND_PCM_STATE_RUNNING) {
            ++m_control->underruns;
            m_running = false;
            return -EPIPE;
        }
        return static_cast<snd_pcm_sframes_t>(position());
    }

    int delay(snd_pcm_sframes_t* delay)
    {
        if (m_control->isGone) {
            return -ENODEV;
        }
        play();
        *delay = static_cast<snd_pcm_sframes_t>(m_taken - position()) + m_control->delayOffset;
        return 0;
    }

    snd_pcm_sframes_t transfer(const snd_pcm_channel_area_t* areas, snd_pcm_uframes_t offset,
                               snd_pcm_uframes_t size)
    {
        if (m_plugin.state == SND_PCM_STATE_DISCONNECTED) {
            return -ENODEV;
        }
        if (m_control->spinsOnWrite) {
            waitWhile(m_control->spinsOnWrite, m_control->numStuck, std::chrono::microseconds(0));
        }
        const int error = faultFor(size);
        if (error < 0) {
            m_control->emptyWrites += m_control->emptyAfterFault;
            return error;
        }
        if (const std::uint32_t most = m_control->shortWrites; most != 0) {
            size = std::min<snd_pcm_uframes_t>(size, most);
        }
        if (!dawdle()) {
            return -EPIPE;
        }
        const auto* source = static_cast<const unsigned char*>(areas[0].addr) +
                             (areas[0].first + areas[0].step * offset) / 8;
        for (snd_pcm_uframes_t done = 0; done < size;) {
            const std::size_t at = (m_taken + done) % m_plugin.buffer_size;
            const std::size_t count = std::min<std::size_t>(size - done, m_plugin.buffer_size - at);
            std::memcpy(m_ring.data() + at * m_bytesPerFrame, source + done * m_bytesPerFrame,
                        count * m_bytesPerFrame);
            done += count;
        }
        m_taken += size;
        m_control->framesTaken += size;
        return static_cast<snd_pcm_sframes_t>(size);
    }

    /// Takes its time.
    /// @return false when the card has run dry meanwhile
    bool dawdle()
    {
        const std::uint32_t microseconds = m_control->slowWrites;
        if (microseconds == 0) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
        if (play()) {
            return true;
        }
        ++m_control->underruns;
        m_running = false;
        snd_pcm_ioplug_set_state(&m_plugin, SND_PCM_STATE_XRUN);
        return false;
    }

    /// What is to go wrong with these frames. Frames before the fault's are taken first.
    int faultFor(snd_pcm_uframes_t& size)
    {
        const int fault = m_control->fault;
        const std::uint64_t taken = m_control->framesTaken;
        const std::uint64_t at = m_control->faultAtFrame;
        if (fault == 0 || taken + size <= at) {
            return 0;
        }
        if (taken < at) {
            size = at - taken;
            return 0;
        }
        if (m_control->faultRepeats == 0) {
            m_control->fault = 0;
        } else {
            --m_control->faultRepeats;
            m_control->faultAtFrame = at + m_control->faultEvery;
        }
        switch (fault) {
        case -EPIPE:
            stop();
            snd_pcm_ioplug_set_state(&m_plugin, SND_PCM_STATE_XRUN);
            break;
        case -ESTRPIPE:
            suspend();
            break;
        case -ENODEV:
            vanish();
            break;
        default:
            break;
        }
        return fault;
    }

    int pollDescriptors(pollfd* fds, unsigned int space)
    {
        if (space < 1) {
            return 0;
        }
        *fds = {m_timer.get(), POLLIN, 0};
        wakeUpLater();
        return 1;
    }

    int pollEvents(unsigned short* events)
    {
        std::uint64_t expirations = 0;
        static_cast<void>(::read(m_timer.get(), &expirations, sizeof expirations));
        *events = 0;
        if (m_control->isGone) {
            vanish();
            *events = POLLERR;
            return 0;
        }
        const bool ranDry = !play(); // for pointer() to tell
        if (m_plugin.state == SND_PCM_STATE_DRAINING ? ranDry : ranDry || room() >= 0) {
            *events = POLLOUT;
        } else {
            wakeUpLater();
        }
        return 0;
    }

    /// Frames free, beyond those that the writer waits for.
    [[nodiscard]] std::int64_t room() const
    {
        const auto held = static_cast<std::int64_t>(m_taken - position());
        return static_cast<std::int64_t>(m_plugin.buffer_size - m_availMin) - held;
    }

    // At the latest after 10 ms, to see whether the card has been taken away.
    void wakeUpLater()
    {
        const std::int64_t step = std::max(1U, m_control->granularity.load());
        const std::int64_t wanted = m_plugin.state == SND_PCM_STATE_DRAINING
                                        ? static_cast<std::int64_t>(m_taken - m_played)
                                        : -room();
        const std::int64_t missing = (std::max<std::int64_t>(1, wanted) + step - 1) / step * step -
                                     static_cast<std::int64_t>(m_played - position());
        const auto ns =
            m_running
                ? static_cast<std::int64_t>(static_cast<double>(missing) / m_framesPerNs) + 1000
                : nanosecondsPerSecond;
        itimerspec time{};
        time.it_value.tv_nsec = std::clamp<std::int64_t>(ns, 1000, 10'000'000);
        if (m_control->virtualTime != 0) {
            m_control->virtualTime += std::exchange(time.it_value.tv_nsec, 1);
        }
        timerfd_settime(m_timer.get(), 0, &time, nullptr);
    }

    int setChannelMap(const snd_pcm_chmap_t* map)
    {
        m_control->numChannelsMapped = map->channels;
        for (unsigned int i = 0; i < std::min<std::size_t>(map->channels, 8); ++i) {
            m_control->channelMap[i] = map->pos[i];
        }
        return 0;
    }

    snd_pcm_ioplug_t m_plugin{};
    ControlPointer m_control;
    Descriptor m_output;
    Descriptor m_dropped;
    Descriptor m_timer;
    std::size_t m_bytesPerFrame = 0;
    std::vector<unsigned char> m_ring;
    snd_pcm_uframes_t m_availMin = 1;
    std::uint64_t m_taken = 0; // since prepare()
    std::uint64_t m_played = 0;
    bool m_running = false;
    std::int64_t m_startTime = 0;
    double m_playedAtStart = 0; // frames
    std::int32_t m_pitchPpm = 0;
    double m_framesPerNs = 0;
};

} // namespace

} // namespace testSupport::faultyPcm

extern "C" {

__attribute__((visibility("default"))) SND_PCM_PLUGIN_DEFINE_FUNC(kelda_faulty)
{
    using namespace testSupport::faultyPcm;
    static_cast<void>(root);
    static_cast<void>(conf);
    const std::string folder = folderInUse();
    ControlPointer control = mapControl(folder);
    if (control) {
        waitWhile(control->hangsOnOpen, control->numStuck);
    }
    if (!control || control->isGone) {
        return -ENODEV;
    }
    auto faulty = std::make_unique<FaultyPcm>(std::move(control), folder);
    const int error = faulty->create(pcmp, name, stream, mode);
    if (error == 0) {
        static_cast<void>(faulty.release()); // the plugin's close callback deletes it
    }
    return error;
}

__attribute__((visibility("default"))) SND_PCM_PLUGIN_SYMBOL(kelda_faulty);
}
