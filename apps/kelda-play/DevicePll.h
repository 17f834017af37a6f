#pragma once

#include <memory>
#include <string>

#include <alsa/asoundlib.h>

namespace keldaPlay {

/// The rate of a sound card, set by an integer control of ALSA's whose value at the start means the
/// nominal rate: "PCM Rate Shift 100000" of a loopback card, "Playback Pitch 1000000" of a USB
/// gadget.
class DevicePll
{
public:
    /// @param control a control device and the name of its element: "hw:0,PCM Rate Shift 100000"
    ///
    /// Throws DeviceError when there is no such control.
    explicit DevicePll(const std::string& control);
    /// Sets the nominal rate again.
    ~DevicePll();
    DevicePll(const DevicePll&) = delete;
    DevicePll& operator=(const DevicePll&) = delete;

    /// Lets the card play so much faster than nominal, as near as the control can.
    void set(double ppm);

private:
    struct Free
    {
        void operator()(snd_ctl_t* ctl) const { snd_ctl_close(ctl); }
        void operator()(snd_ctl_elem_id_t* id) const { snd_ctl_elem_id_free(id); }
        void operator()(snd_ctl_elem_value_t* value) const { snd_ctl_elem_value_free(value); }
        void operator()(snd_ctl_elem_list_t* list) const
        {
            snd_ctl_elem_list_free_space(list);
            snd_ctl_elem_list_free(list);
        }
    };
    template<typename Handle>
    using Owned = std::unique_ptr<Handle, Free>;

    void findElement(const std::string& name);

    Owned<snd_ctl_t> m_ctl;
    Owned<snd_ctl_elem_value_t> m_value;
    long m_nominal = 0;
    long m_set = 0;
};

} // namespace keldaPlay
