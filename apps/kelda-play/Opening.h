#pragma once

#include <optional>
#include <string>

namespace keldaPlay {

/// Says, for as long as it lives, that this thread opens what may never open: a named pipe that
/// nobody writes to, a sound server that does not answer. Nothing but the end of the process ends
/// that (see EndSignals).
class Opening
{
public:
    /// @param name as the user knows it
    explicit Opening(std::string name);
    ~Opening();
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;

    /// What is being opened now, by any thread.
    [[nodiscard]] static std::optional<std::string> current();

private:
    std::string m_name;
};

} // namespace keldaPlay
