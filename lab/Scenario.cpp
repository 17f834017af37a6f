#include "Scenario.h"

#include <fstream>
#include <set>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace keldaLab {

namespace {

using Json = nlohmann::json;

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
    members.read("ppm", crystal.ppm)
        .read("wanderPpm", crystal.wanderPpm)
        .read("wanderPpmPerMinute", crystal.wanderPpmPerMinute);
}

void readDrift(Members& members, keldaPlay::DriftOptions& drift)
{
    using keldaPlay::Correction;
    members
        .readName<Correction>("correct", drift.correction,
                              {{"none", Correction::None},
                               {"resample", Correction::Resample},
                               {"device", Correction::Device}})
        .read("Kp", drift.Kp)
        .read("Ki", drift.Ki)
        .read("Kd", drift.Kd)
        .read("limitPpm", drift.limitPpm)
        .read("filterAlpha", drift.filterAlpha)
        .read("sampleTimeMs", drift.sampleTimeMs);
}

Event readEvent(const Json& json)
{
    using Kind = Event::Kind;
    Event event;
    Members(json, "events")
        .read("atSeconds", event.atSeconds)
        .readName<Kind>("what", event.kind,
                        {{"stop", Kind::Stop},
                         {"jump", Kind::Jump},
                         {"gap", Kind::Gap},
                         {"underrun", Kind::Underrun},
                         {"burst", Kind::Burst},
                         {"spike", Kind::Spike},
                         {"stale", Kind::Stale},
                         {"offset", Kind::Offset}})
        .read("milliseconds", event.milliseconds)
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
        .read("seconds", scenario.seconds)
        .read("seed", scenario.seed)
        .read("sampleRate", scenario.sampleRate)
        .read("queueMs", scenario.queueMs)
        .read("jumpThresholdMs", scenario.jumpThresholdMs)
        .read("filterMaxErrorMs", scenario.filterMaxErrorMs)
        .read("events", events)
        .read("goals", scenario.goals)
        .readName<Quality::FilterQuality>("quality", scenario.resampler.quality,
                                          {{"low", Quality::Low},
                                           {"medium", Quality::Medium},
                                           {"high", Quality::High},
                                           {"best", Quality::Best}})
        .readObject("random",
                    [&](Members& in) { in.read("everySeconds", scenario.random.everySeconds); })
        .readObject("drift", [&](Members& in) { readDrift(in, scenario.drift); })
        .readObject("clicks",
                    [&](Members& in) {
                        in.read("enabled", scenario.clicks.enabled)
                            .read("gapMs", scenario.clicks.gapMs)
                            .read("marginMs", scenario.clicks.marginMs)
                            .read("fadeMs", scenario.clicks.fadeMs)
                            .read("skipShort", scenario.clicks.skipShort);
                    })
        .readObject("source",
                    [&](Members& in) {
                        readCrystal(in, scenario.source.crystal);
                        in.read("packetFrames", scenario.source.packetFrames)
                            .read("burstPackets", scenario.source.burstPackets)
                            .read("leadMs", scenario.source.leadMs)
                            .read("arrivalJitterMs", scenario.source.arrivalJitterMs)
                            .read("timestampJitterMs", scenario.source.timestampJitterMs);
                    })
        .readObject("device",
                    [&](Members& in) {
                        readCrystal(in, scenario.device.crystal);
                        in.read("periodFrames", scenario.device.periodFrames)
                            .read("bufferFrames", scenario.device.bufferFrames)
                            .read("reportMs", scenario.device.reportMs)
                            .read("spikeProbability", scenario.device.spikeProbability)
                            .read("spikeMs", scenario.device.spikeMs)
                            .read("wakeUpUs", scenario.device.wakeUpUs);
                    })
        .end();
    for (const Json& event : events) {
        scenario.events.push_back(readEvent(event));
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
