#pragma once

// Real sound servers, PulseAudio and PipeWire, that belong to a test.

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "support/Process.h"

namespace testSupport {

/// A sound server of a test's own: no user's settings, no bus, no sound card, and nothing left
/// behind. It has one sink, "speaker", 48 kHz stereo, that plays in real time and that nobody
/// hears. A player that this process starts reaches it as the ALSA device "server", through
/// libasound's plugin for it.
///
/// Runs what scripts/sound-servers has unpacked, or else what is installed. One at a time, from one
/// thread: this process's environment names it.
class SoundServer
{
public:
    enum class Kind { PulseAudio, PipeWire };

    /// Why none can be run here, in words for GTEST_SKIP; empty where one can.
    [[nodiscard]] static std::string missing(Kind kind);

    /// @param folder      for its files; made its user's alone
    /// @param sinkOptions more arguments of PulseAudio's module-null-sink. Without "norewinds=1"
    ///                    it renders up to 2 s ahead
    SoundServer(Kind kind, std::filesystem::path folder, std::string sinkOptions = "norewinds=1");
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    /// Starts it, also again after crash(), and waits until it can be played into: false after a
    /// minute.
    [[nodiscard]] bool start();

    /// Ends it from one moment to the next. Clients, record() too, lose their connection.
    void crash();

    /// Has it answer nobody any more, nor take anything, though it lives.
    void stop();

    /// Writes what the sink plays as raw S16LE stereo; waits until the first of it is there: null
    /// after a minute. Ends with the object.
    /// @param latency at which PulseAudio may tell; its sink renders no further ahead
    [[nodiscard]] std::unique_ptr<Process>
    record(const std::filesystem::path& file,
           std::chrono::milliseconds latency = std::chrono::milliseconds(50)) const;

    /// What it has written to its log.
    [[nodiscard]] std::string log() const;

private:
    void set(const std::string& variable, const std::string& value);
    void writeConfiguration() const;
    [[nodiscard]] std::string path(const char* name) const { return (m_folder / name).string(); }

    const Kind m_kind;
    const std::filesystem::path m_folder;
    const std::string m_sinkOptions;
    std::map<std::string, std::optional<std::string>> m_before; ///< of the environment
    std::unique_ptr<Process> m_server;
    std::unique_ptr<Process> m_session; ///< of PipeWire, what connects clients
};

} // namespace testSupport
