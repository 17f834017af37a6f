#pragma once

#include <memory>

#include <gst/gst.h>

namespace audioUtils::detail {

/// Gives a reference back, whatever kind of object it is to.
struct GstRelease
{
    void operator()(GstElement* element) const { gst_object_unref(element); }
    void operator()(GstPad* pad) const { gst_object_unref(pad); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
};

/// Owns one reference to an object of GStreamer's.
template<typename Object>
using GstHandle = std::unique_ptr<Object, GstRelease>;

/// Owns a new element, which is nobody's at first ("floating").
inline GstHandle<GstElement> ownElement(GstElement* element)
{
    return GstHandle<GstElement>(element != nullptr ? GST_ELEMENT_CAST(gst_object_ref_sink(element))
                                                    : nullptr);
}

} // namespace audioUtils::detail
