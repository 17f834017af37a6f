#pragma once

#include <exception>
#include <stdexcept>

#include "FilesInUse.h"

namespace keldaPlay {

/// What the player exits with.
enum ExitStatus : int {
    Ended = 0,        ///< all was heard, until a signal if one has ended it
    FileFailed = 1,   ///< something can't be read or written
    UsageFailed = 2,  ///< the command line asks for what there is not
    DeviceFailed = 3, ///< a device can't be opened for the stream, or has not come back
    NotAllHeard = 4,  ///< played to its end, or a signal, but something was lost on the way
};

/// The device can't play the stream.
class DeviceError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The user asks for what does not go together.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

[[nodiscard]] inline ExitStatus exitStatusOf(const std::exception& error)
{
    if (dynamic_cast<const DeviceError*>(&error) != nullptr) {
        return DeviceFailed;
    }
    if (dynamic_cast<const keldaFiles::FileConflict*>(&error) != nullptr) {
        return UsageFailed;
    }
    return dynamic_cast<const UsageError*>(&error) != nullptr ? UsageFailed : FileFailed;
}

} // namespace keldaPlay
