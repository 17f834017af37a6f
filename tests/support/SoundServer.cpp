#include "support/SoundServer.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

namespace testSupport {

namespace {

const fs::path unpacked = KELDA_SOUND_SERVERS; // where scripts/sound-servers puts them

bool runs(const std::string& command)
{
    return std::system(("{ " + command + "; } >/dev/null 2>&1").c_str()) == 0;
}

template<typename Condition>
bool comesTrue(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

/// Plugins of libasound are in one folder, below the folder of a machine's kind of libraries.
bool hasPlugin(const std::string& name)
{
    return runs("ls /usr/lib/*/alsa-lib/libasound_module_pcm_" + name + ".so");
}

// No more than what plays: no bus, no sound cards, no settings.
const char* const pipewireConfiguration = R"(
context.properties = { core.daemon = true  core.name = pipewire-0  support.dbus = false }
context.spa-libs = {
    audio.convert.* = audioconvert/libspa-audioconvert
    support.* = support/libspa-support
}
context.modules = [
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-metadata }
    { name = libpipewire-module-spa-node-factory }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-client-device }
    { name = libpipewire-module-access }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-link-factory }
    { name = libpipewire-module-session-manager }
]
context.objects = [
    { factory = adapter args = {
        factory.name = support.null-audio-sink
        node.name = speaker
        media.class = Audio/Sink
        audio.position = "FL,FR"
        object.linger = true
    } }
]
)";
const char* const clientConfiguration = R"(
context.properties = { support.dbus = false }
context.spa-libs = {
    audio.convert.* = audioconvert/libspa-audioconvert
    support.* = support/libspa-support
}
context.modules = [
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-client-device }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-metadata }
    { name = libpipewire-module-session-manager }
]
)";

} // namespace

std::string SoundServer::missing(Kind kind)
{
    if (fs::exists(unpacked / "environment")) {
        return "";
    }
    const bool installed =
        kind == Kind::PulseAudio
            ? runs("command -v pulseaudio && command -v pactl && command -v parec") &&
                  hasPlugin("pulse")
            : runs("command -v pipewire && command -v pipewire-media-session && command -v "
                   "pw-record") &&
                  hasPlugin("pipewire");
    return installed ? ""
                     : "No sound server to play into: scripts/sound-servers fetches it to " +
                           unpacked.string();
}

SoundServer::SoundServer(Kind kind, fs::path folder, std::string sinkOptions)
    : m_kind(kind), m_folder(std::move(folder)), m_sinkOptions(std::move(sinkOptions))
{
    // A server does not open to others a folder that others may write.
    fs::permissions(m_folder, fs::perms::owner_all);
    std::ifstream environment(unpacked / "environment");
    for (std::string line; std::getline(environment, line);) {
        const auto sign = line.find('=');
        set(line.substr(0, sign), line.substr(sign + 1));
    }
    for (const char* variable :
         {"HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "PULSE_RUNTIME_PATH",
          "PULSE_STATE_PATH", "PIPEWIRE_RUNTIME_DIR", "PIPEWIRE_CONFIG_DIR"}) {
        set(variable, m_folder);
    }
    set("PULSE_COOKIE", path("cookie"));
    set("PULSE_SERVER", "unix:" + path("pulse-socket"));
    set("ALSA_CONFIG_PATH", path("asound.conf"));
    writeConfiguration();
}

SoundServer::~SoundServer()
{
    crash();
    for (const auto& [variable, value] : m_before) {
        if (value) {
            setenv(variable.c_str(), value->c_str(), 1);
        } else {
            unsetenv(variable.c_str());
        }
    }
}

void SoundServer::set(const std::string& variable, const std::string& value)
{
    const char* before = std::getenv(variable.c_str());
    m_before.try_emplace(variable,
                         before != nullptr ? std::optional<std::string>(before) : std::nullopt);
    setenv(variable.c_str(), value.c_str(), 1);
}

void SoundServer::writeConfiguration() const
{
    const fs::path alsa =
        fs::exists(unpacked / "alsa.conf") ? unpacked / "alsa.conf" : "/usr/share/alsa/alsa.conf";
    std::ofstream(path("asound.conf"))
        << "<" << alsa.string() << ">\n"
        << (m_kind == Kind::PulseAudio
                ? "pcm.server { type pulse server \"unix:" + path("pulse-socket") + "\" }\n"
                : "pcm.server { type pipewire server \"pipewire-0\" playback_node \"-1\" }\n");
    fs::create_directories(m_folder / "media-session.d");
    std::ofstream(path("pipewire.conf")) << pipewireConfiguration;
    std::ofstream(path("client.conf")) << clientConfiguration;
    std::ofstream(path("client-rt.conf")) << clientConfiguration;
    std::ofstream(path("media-session.d/media-session.conf"))
        << clientConfiguration
        << "session.modules = { default = [ metadata default-nodes policy-node ] }\n";
}

bool SoundServer::start()
{
    const std::string toLog = " >>" + path("server.log") + " 2>&1";
    if (m_kind == Kind::PulseAudio) {
        m_server = std::make_unique<Process>(
            "pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --disable-shm=yes "
            "-L 'module-native-protocol-unix auth-anonymous=1 socket=" +
            path("pulse-socket") +
            "' -L 'module-null-sink sink_name=speaker format=s16le rate=48000 channels=2 " +
            m_sinkOptions + "'" + toLog);
        return comesTrue([] { return runs("timeout 20 pactl info"); });
    }
    m_server = std::make_unique<Process>("pipewire" + toLog);
    if (!comesTrue([] { return runs("timeout 20 pw-cli info 0"); })) {
        return false;
    }
    m_session = std::make_unique<Process>("pipewire-media-session" + toLog);
    return comesTrue(
        [] { return runs("timeout 20 pw-metadata 0 default.audio.sink | grep speaker"); });
}

void SoundServer::crash()
{
    for (const auto& process : {m_session.get(), m_server.get()}) {
        if (process != nullptr) {
            process->end(SIGKILL);
        }
    }
}

void SoundServer::stop()
{
    kill(m_server->id(), SIGSTOP);
}

std::unique_ptr<Process> SoundServer::record(const fs::path& file,
                                             std::chrono::milliseconds latency) const
{
    const std::string redirected = " >" + file.string() + " 2>" + path("record.log");
    auto recorder = std::make_unique<Process>(
        (m_kind == Kind::PulseAudio
             ? "parec --raw --device=speaker.monitor --format=s16le --rate=48000 --channels=2"
               " --latency-msec=" +
                   std::to_string(latency.count())
             : "pw-record --target speaker --properties '{ stream.capture.sink = true }'"
               " --format s16 --rate 48000 --channels 2 -") +
        redirected);
    const bool begun = comesTrue([&] { return fs::exists(file) && fs::file_size(file) > 0; });
    return begun ? std::move(recorder) : nullptr;
}

std::string SoundServer::log() const
{
    std::stringstream text;
    text << std::ifstream(path("server.log")).rdbuf();
    return text.str();
}

} // namespace testSupport
