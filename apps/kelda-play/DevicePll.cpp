#include "DevicePll.h"

#include <cmath>

#include "Errors.h"
#include "Opening.h"

namespace keldaPlay {

namespace {

template<typename Handle, typename Allocate>
Handle* allocated(Allocate allocate)
{
    Handle* handle = nullptr;
    if (allocate(&handle) < 0) {
        throw std::bad_alloc();
    }
    return handle;
}

} // namespace

DevicePll::DevicePll(const std::string& control)
    : m_value(allocated<snd_ctl_elem_value_t>(snd_ctl_elem_value_malloc))
{
    // The device's name may hold a comma, the element's none.
    const std::size_t comma = control.rfind(',');
    if (comma == std::string::npos) {
        throw UsageError("--pll " + control + ": no CTL,ELEMENT");
    }
    const std::string card = control.substr(0, comma);
    const Opening opening("control " + control);
    snd_ctl_t* ctl = nullptr;
    if (const int error = snd_ctl_open(&ctl, card.c_str(), 0); error < 0) {
        throw DeviceError("control " + card + ": " + snd_strerror(error));
    }
    m_ctl.reset(ctl);
    findElement(control.substr(comma + 1));
    if (const int error = snd_ctl_elem_read(m_ctl.get(), m_value.get()); error < 0) {
        throw DeviceError("control " + control + ": " + snd_strerror(error));
    }
    m_nominal = m_set = snd_ctl_elem_value_get_integer(m_value.get(), 0);
    if (m_nominal <= 0) {
        throw DeviceError("control " + control + " is at " + std::to_string(m_nominal) +
                          ", which is no rate");
    }
}

DevicePll::~DevicePll()
{
    set(0);
}

void DevicePll::findElement(const std::string& name)
{
    const Owned<snd_ctl_elem_list_t> list(allocated<snd_ctl_elem_list_t>(snd_ctl_elem_list_malloc));
    snd_ctl_elem_list(m_ctl.get(), list.get());
    if (snd_ctl_elem_list_alloc_space(list.get(), snd_ctl_elem_list_get_count(list.get())) < 0) {
        throw std::bad_alloc();
    }
    snd_ctl_elem_list(m_ctl.get(), list.get());
    for (unsigned int i = 0; i < snd_ctl_elem_list_get_used(list.get()); ++i) {
        if (name == snd_ctl_elem_list_get_name(list.get(), i)) {
            const Owned<snd_ctl_elem_id_t> id(allocated<snd_ctl_elem_id_t>(snd_ctl_elem_id_malloc));
            snd_ctl_elem_list_get_id(list.get(), i, id.get());
            snd_ctl_elem_value_set_id(m_value.get(), id.get());
            return;
        }
    }
    throw DeviceError(std::string("control ") + snd_ctl_name(m_ctl.get()) + " has no element " +
                      name);
}

void DevicePll::set(double ppm)
{
    const long value = std::lround(static_cast<double>(m_nominal) * (1 + ppm * 1e-6));
    if (value != m_set) {
        m_set = value;
        snd_ctl_elem_value_set_integer(m_value.get(), 0, value);
        snd_ctl_elem_write(m_ctl.get(), m_value.get());
    }
}

} // namespace keldaPlay
