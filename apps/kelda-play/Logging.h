#pragma once

#include <string>

#include <log4cplus/initializer.h>

namespace keldaPlay {

/// For as long as it lives, what the library and libasound have to say goes to standard error. A
/// warning or an error that comes again and again is written once in 10 s, with the count.
class Logging
{
public:
    /// @param level of log4cplus, in any case; libasound's own messages count as INFO
    /// @param isColored whether warnings and errors stand out
    Logging(const std::string& level, bool isColored);
    ~Logging();
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;

private:
    log4cplus::Initializer m_initializer;
};

} // namespace keldaPlay
