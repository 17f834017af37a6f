#pragma once

#include "Color.h"
#include "Presenter.h"
#include "StatusLine.h"

namespace keldaPlay {

/// In words, for people.
class TextPresenter : public Presenter
{
public:
    explicit TextPresenter(ColorChoice color);

    void streamStarts(const StreamStart& start) override;
    void trackBegins(const Track& /*track*/, double /*position*/) override {}
    void goesOn(const Progress& progress) override { m_status.show(progress); }
    void ranDry(double /*position*/) override {}
    void deviceIsLost(double /*position*/) override {} // which the log tells
    void deviceIsBack(double /*position*/, double /*secondsAway*/) override {}
    void reportIsWritten(const std::string& page) override { m_reportPage = page; }
    void ends(const Statistics& statistics, ExitStatus status, const std::string& error) override;

private:
    ColorChoice m_color;
    bool m_isColored; // standard output
    StatusLine m_status;
    bool m_hasStarted = false;
    std::string m_reportPage;
};

} // namespace keldaPlay
