#pragma once

#include <chrono>

#include "Color.h"
#include "Interval.h"
#include "Presenter.h"

namespace keldaPlay {

/// As JSON, for programs: an object a line, as docs/kelda-play.md describes them.
class JsonPresenter : public Presenter
{
public:
    /// @param color of what is printed to standard error
    explicit JsonPresenter(ColorChoice color) : m_color(color) {}

    void streamStarts(const StreamStart& start) override;
    void trackBegins(const Track& track, double position) override;
    void goesOn(const Progress& progress) override;
    void ranDry(double position) override;
    void deviceIsLost(double position) override;
    void deviceIsBack(double position, double secondsAway) override;
    void reportIsWritten(const std::string& page) override { m_reportPage = page; }
    void ends(const Statistics& statistics, ExitStatus status, const std::string& error) override;

private:
    ColorChoice m_color;
    Interval m_interval{std::chrono::seconds(1)};
    bool m_hasStarted = false;
    std::string m_reportPage;
};

} // namespace keldaPlay
