#pragma once

#include <memory>
#include <type_traits>

#include <gtest/gtest.h>

#include "kelda_audio.h"

/// Owns what a function of the C interface handed out.
template<typename Handle, void (*destroy)(Handle*)>
struct Destroy
{
    void operator()(Handle* handle) const { destroy(handle); }
};

template<typename Handle, void (*destroy)(Handle*)>
using Owned = std::unique_ptr<Handle, Destroy<Handle, destroy>>;

using Queue = Owned<kelda_queue, kelda_queue_destroy>;
using Device = Owned<kelda_device, kelda_device_destroy>;
using Resampler = Owned<kelda_resampler, kelda_resampler_destroy>;
using Compensator = Owned<kelda_compensator, kelda_compensator_destroy>;
using ClickRemover = Owned<kelda_click_remover, kelda_click_remover_destroy>;

/// What a create function hands out, given a pointer to a null handle; a failure fails the test.
template<typename OwnedHandle, typename Create>
OwnedHandle made(Create create)
{
    typename OwnedHandle::pointer handle = nullptr;
    EXPECT_EQ(create(&handle), KELDA_OK);
    EXPECT_NE(handle, nullptr);
    return OwnedHandle(handle);
}

/// The status with which a create function refuses, which must leave null behind.
template<typename Handle, typename Create>
kelda_status refusal(Create create)
{
    int anything = 0;
    auto* handle = reinterpret_cast<Handle*>(&anything);
    const kelda_status status = create(&handle);
    EXPECT_EQ(handle, nullptr);
    return status;
}

template<typename T>
constexpr kelda_sample_type typeOf = std::is_same_v<T, short> ? KELDA_INT16
                                     : std::is_same_v<T, int> ? KELDA_INT32
                                                              : KELDA_FLOAT32;

inline Device makeDevice(kelda_device_kind kind)
{
    return made<Device>([&](kelda_device** device) { return kelda_device_create(kind, device); });
}
