#pragma once

#include <new>
#include <stdexcept>

#include "kelda_audio.h"

namespace cApi {

/// Runs what is behind a function of the C interface, which no exception may leave: what is thrown
/// becomes a status.
template<typename Function>
[[nodiscard]] kelda_status guarded(Function function) noexcept
{
    try {
        return function();
    } catch (const std::bad_alloc&) {
        return KELDA_OUT_OF_MEMORY;
    } catch (const std::length_error&) { // a container of more than there can be
        return KELDA_OUT_OF_MEMORY;
    } catch (const std::invalid_argument&) {
        return KELDA_INVALID_ARGUMENT;
    } catch (...) {
        return KELDA_INTERNAL_ERROR;
    }
}

/// The same for a function that does its work or throws, when its arguments are right.
template<typename Function>
[[nodiscard]] kelda_status guardedIf(bool argumentsAreRight, Function function) noexcept
{
    return argumentsAreRight ? guarded([&] {
        function();
        return KELDA_OK;
    })
                             : KELDA_INVALID_ARGUMENT;
}

} // namespace cApi
