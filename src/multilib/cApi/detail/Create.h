#pragma once

#include "cApi/detail/Guard.h"
#include "cApi/detail/Log.h"

namespace cApi {

/// Hands out what `make` makes (a std::unique_ptr), or null with the reason.
template<typename Handle, typename Make>
[[nodiscard]] kelda_status create(Handle** handle, bool argumentsAreRight, Make make) noexcept
{
    if (handle == nullptr) {
        return KELDA_INVALID_ARGUMENT;
    }
    *handle = nullptr;
    return guardedIf(argumentsAreRight, [&] {
        prepareLog();
        *handle = make().release();
    });
}

/// The end of what create() handed out.
template<typename Handle>
void destroy(Handle* handle) noexcept
{
    delete handle; // NOLINT(cppcoreguidelines-owning-memory): the caller owned it
}

} // namespace cApi
