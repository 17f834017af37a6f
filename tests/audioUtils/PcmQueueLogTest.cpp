// A log that blocks, on a full pipe or a slow disk, must not hold up the thread at the other end of
// the queue.

#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <log4cplus/appender.h>

#include "audioUtils/PcmQueue.h"
#include "support/LogCapture.h"

using audioUtils::PcmQueue;
using miscUtils::NoTimeValue;
using miscUtils::TimeValue;

namespace {

constexpr TimeValue ms = 1'000'000;
constexpr TimeValue start = 5000 * ms;

/// Holds up whoever logs to the queue's logger while it is closed.
class Gate
{
public:
    Gate() : m_appender(new Appender(*this)) { m_logger.addAppender(m_appender); }
    ~Gate()
    {
        open();
        m_logger.removeAppender(m_appender);
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void open()
    {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

    void awaitLine()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_reached; });
    }

private:
    class Appender : public log4cplus::Appender
    {
    public:
        explicit Appender(Gate& gate) : m_gate(gate) {}
        ~Appender() override { destructorImpl(); }
        void close() override { closed = true; }

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent& /*event*/) override
        {
            m_gate.pass();
        }

    private:
        Gate& m_gate;
    };

    void pass()
    {
        std::unique_lock lock(m_mutex);
        m_reached = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }

    log4cplus::Logger m_logger = log4cplus::Logger::getInstance("PcmQueue");
    log4cplus::SharedAppenderPtr m_appender;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_reached = false;
    bool m_open = false;
};

/// Whether a call comes back before the gate is opened, which it is then.
template<typename Call>
bool returnsAt(Gate& gate, Call call)
{
    auto result = std::async(std::launch::async, call);
    const bool returned = result.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    gate.open();
    return returned;
}

class PcmQueueLogTest : public testing::Test
{
protected:
    PcmQueueLogTest()
    {
        queue.configure(true, 100, 48000, 2, 2, "q", true, 20 * ms, 10 * ms);
        queue.write(NoTimeValue, std::vector<unsigned char>(1920));
    }

    testSupport::LogCapture log{"PcmQueue", log4cplus::INFO_LOG_LEVEL};
    PcmQueue queue;
    std::vector<unsigned char> block = std::vector<unsigned char>(1920);
};

} // namespace

TEST_F(PcmQueueLogTest, AReaderIsNotHeldUpByTheLogOfTheWriter)
{
    queue.write(start, block); // from here on the queue keeps time
    Gate gate;
    const auto writer = std::async(std::launch::async,
                                   [&] { return queue.write(start + 5000 * ms, block); }); // a jump
    gate.awaitLine();
    std::vector<unsigned char> out(1920);
    EXPECT_TRUE(returnsAt(gate, [&] { return queue.read(NoTimeValue, out); }));
}

TEST_F(PcmQueueLogTest, AWriterIsNotHeldUpByTheLogOfTheReader)
{
    queue.write(start, block);
    Gate gate;
    std::vector<unsigned char> out(1920);
    const auto reader = std::async(std::launch::async,
                                   [&] { return queue.read(start + 500 * ms, out); }); // too late
    gate.awaitLine();
    EXPECT_TRUE(returnsAt(gate, [&] { return queue.write(NoTimeValue, block); }));
}

// What a write has to tell is not kept back until there is room for its data.
TEST_F(PcmQueueLogTest, AWriteThatWaitsForRoomHasToldWhatItFound)
{
    queue.reset();
    log.clear();
    const std::vector<unsigned char> more(19'200 + 1920); // than fits
    auto writer = std::async(std::launch::async, [&] { return queue.write(start, more); });
    while (log.lines().empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(log.lines().front(), "INFO q: Buffer is empty, startPts = 5.000000");
    std::vector<unsigned char> out(1920);
    while (writer.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        queue.read(NoTimeValue, out);
    }
    EXPECT_TRUE(writer.get());
}
