#include "Scenario.h"

#include <fstream>
#include <iomanip>
#include <limits>
#include <set>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include <nlohmann/json.hpp>

namespace keldaLab {

namespace {

using Json = nlohmann::json;

constexpr double mostPpm = 100'000;
constexpr double longestSeconds = 1e9;
constexpr unsigned int mostFrames = 1U << 24;

/// Reads an object's members into variables, and complains of those that nobody reads.
class Members
{
public:
    Members(const Json& object, std::string name) : m_object(object), m_name(std::move(name))
    {
        if (!object.is_object()) {
            throw std::runtime_error(m_name + " is no object");
        }
        for (const auto& [key, value] : object.items()) {
            m_unread.insert(key);
        }
    }

    template<typename Value>
    Members& read(const char* key, Value& value)
    {
        if (m_unread.erase(key) > 0) {
            value = m_object.at(key).get<Value>();
        }
        return *this;
    }

    /// A number within limits.
    template<typename Number>
    Members& read(const char* key, Number& value, std::type_identity_t<Number> least,
                  std::type_identity_t<Number> largest)
    {
        if (m_unread.erase(key) == 0) {
            return *this;
        }
        constexpr bool isWhole = std::is_integral_v<Number>;
        const Json& json = m_object.at(key);
        const bool isOfKind = isWhole ? json.is_number_integer() : json.is_number();
        const double number = isOfKind ? json.get<double>() : 0;
        if (!isOfKind || number < static_cast<double>(least) ||
            number > static_cast<double>(largest)) {
            std::ostringstream reason;
            reason << std::setprecision(12) << m_name << ": " << key << " is not a "
                   << (isWhole ? "whole " : "") << "number from " << least << " to " << largest
                   << ": " << json;
            throw std::runtime_error(reason.str());
        }
        value = json.get<Number>();
        return *this;
    }

    template<typename Value>
    Members& readName(const char* key, Value& value, const std::map<std::string, Value>& names)
    {
        std::string name;
        read(key, name);
        if (!name.empty()) {
            const auto entry = names.find(name);
            if (entry == names.end()) {
                throw std::runtime_error(m_name + ": " + key + " is no " + name);
            }
            value = entry->second;
        }
        return *this;
    }

    template<typename Read>
    Members& readObject(const char* key, Read read)
    {
        if (m_unread.erase(key) > 0) {
            Members members(m_object.at(key), m_name + "." + key);
            read(members);
            members.end();
        }
        return *this;
    }

    void end() const
    {
        if (!m_unread.empty()) {
            throw std::runtime_error(m_name + " has no " + *m_unread.begin());
        }
    }

private:
    const Json& m_object;
    std::string m_name;
    std::set<std::string> m_unread;
};

void readCrystal(Members& members, Crystal& crystal)
{
    members.read("ppm", crystal.ppm, -mostPpm, mostPpm)
        .read("wanderPpm", crystal.wanderPpm, 0, mostPpm)
        .read("wanderPpmPerMinute", crystal.wanderPpmPerMinute, 0, mostPpm);
}

void readDrift(Members& members, keldaPlay::DriftOptions& drift)
{
    using keldaPlay::Correction;
    members
        .readName<Correction>("correct", drift.correction,
                              {{"none", Correction::None},
                               {"resample", Correction::Resample},
                               {"device", Correction::Device}})
        .read("Kp", drift.Kp, 1e-6, 1e6)
        .read("Ki", drift.Ki, 0, 1e6)
        .read("Kd", drift.Kd, 0, 1e6)
        .read("limitPpm", drift.limitPpm, 1, 10'000)
        .read("filterAlpha", drift.filterAlpha, 1e-6, 1)
        .read("sampleTimeMs", drift.sampleTimeMs, 1, 10'000);
}

Event readEvent(const Json& json)
{
    using Kind = Event::Kind;
    Event event;
    Members(json, "events")
        .read("atSeconds", event.atSeconds, 0, longestSeconds)
        .readName<Kind>("what", event.kind,
                        {{"stop", Kind::Stop},
                         {"jump", Kind::Jump},
                         {"gap", Kind::Gap},
                         {"underrun", Kind::Underrun},
                         {"burst", Kind::Burst},
                         {"spike", Kind::Spike},
                         {"stale", Kind::Stale},
                         {"offset", Kind::Offset}})
        .read("milliseconds", event.milliseconds, -1e6, 1e6)
        .end();
    return event;
}

Scenario parse(const Json& json)
{
    using Quality = audioUtils::HighQualityResampler;
    Scenario scenario;
    scenario.drift.correction = keldaPlay::Correction::Resample;
    std::vector<Json> events;
    Members members(json, "scenario");
    members.read("title", scenario.title)
        .read("content", scenario.content)
        .read("seconds", scenario.seconds, 0.001, longestSeconds)
        .read("seed", scenario.seed, 0, std::numeric_limits<unsigned int>::max())
        .read("sampleRate", scenario.sampleRate, 1000, 6'144'000)
        .read("queueMs", scenario.queueMs, 1, 60'000)
        .read("jumpThresholdMs", scenario.jumpThresholdMs, 0, 10'000)
        .read("filterMaxErrorMs", scenario.filterMaxErrorMs, 0, 10'000)
        .read("events", events)
        .read("goals", scenario.goals)
        .readName<Quality::FilterQuality>("quality", scenario.resampler.quality,
                                          {{"low", Quality::Low},
                                           {"medium", Quality::Medium},
                                           {"high", Quality::High},
                                           {"best", Quality::Best}})
        .readObject("random",
                    [&](Members& in) {
                        in.read("everySeconds", scenario.random.everySeconds, 0, longestSeconds);
                    })
        .readObject("drift", [&](Members& in) { readDrift(in, scenario.drift); })
        .readObject("clicks",
                    [&](Members& in) {
                        in.read("enabled", scenario.clicks.enabled)
                            .read("gapMs", scenario.clicks.gapMs, 0, 1000)
                            .read("marginMs", scenario.clicks.marginMs, 0, 1000)
                            .read("fadeMs", scenario.clicks.fadeMs, 0, 1000)
                            .read("skipShort", scenario.clicks.skipShort);
                    })
        .readObject("source",
                    [&](Members& in) {
                        readCrystal(in, scenario.source.crystal);
                        in.read("packetFrames", scenario.source.packetFrames, 1, mostFrames)
                            .read("burstPackets", scenario.source.burstPackets, 1, 10'000)
                            .read("leadMs", scenario.source.leadMs, 0, 60'000)
                            .read("arrivalJitterMs", scenario.source.arrivalJitterMs, 0, 60'000)
                            .read("timestampJitterMs", scenario.source.timestampJitterMs, 0, 1000);
                    })
        .readObject("device",
                    [&](Members& in) {
                        readCrystal(in, scenario.device.crystal);
                        in.read("periodFrames", scenario.device.periodFrames, 1, mostFrames)
                            .read("bufferFrames", scenario.device.bufferFrames, 1, mostFrames)
                            .read("reportMs", scenario.device.reportMs, 0, 10'000)
                            .read("spikeProbability", scenario.device.spikeProbability, 0, 1)
                            .read("spikeMs", scenario.device.spikeMs, 0, 10'000)
                            .read("wakeUpUs", scenario.device.wakeUpUs, 0, 1e6);
                    })
        .end();
    for (const Json& event : events) {
        scenario.events.push_back(readEvent(event));
        if (scenario.events.back().atSeconds >= scenario.seconds) {
            throw std::runtime_error("events: what is to happen at " +
                                     event.at("atSeconds").dump() + " s comes behind the end");
        }
    }
    return scenario;
}

} // namespace

Scenario readScenario(const std::string& path)
{
    std::ifstream in(path);
    if (!in) {
        throw std::runtime_error(path + ": can't be read");
    }
    try {
        return parse(Json::parse(in));
    } catch (const std::exception& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

} // namespace keldaLab
