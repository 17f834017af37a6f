// The sound card's control device, loaded by libasound as a plugin of type "kelda_faulty": one
// element, the rate of its crystal in ppm of the nominal one.

#include <cerrno>
#include <cstring>
#include <memory>

#include <alsa/asoundlib.h>
#include <alsa/control_external.h>

#include "support/faultyPcm/ControlFile.h"

namespace testSupport::faultyPcm {

namespace {

constexpr const char* elementName = "Playback Pitch 1000000";
constexpr long nominalPitch = 1'000'000;

class FaultyCtl
{
public:
    explicit FaultyCtl(ControlPointer control) : m_control(std::move(control))
    {
        m_plugin.version = SND_CTL_EXT_VERSION;
        std::strcpy(m_plugin.id, "faulty");
        std::strcpy(m_plugin.driver, "faulty");
        std::strcpy(m_plugin.name, "faulty");
        m_plugin.poll_fd = -1;
        m_plugin.private_data = this;
        m_plugin.callback = callbacks();
    }

    int create(snd_ctl_t** ctl, const char* name, int mode)
    {
        const int error = snd_ctl_ext_create(&m_plugin, name, mode);
        *ctl = m_plugin.handle;
        return error;
    }

private:
    static Control& controlOf(snd_ctl_ext_t* plugin)
    {
        return *static_cast<FaultyCtl*>(plugin->private_data)->m_control;
    }

    static const snd_ctl_ext_callback_t* callbacks()
    {
        static const snd_ctl_ext_callback_t table = [] {
            snd_ctl_ext_callback_t c{};
            c.close = [](snd_ctl_ext_t* p) { delete static_cast<FaultyCtl*>(p->private_data); };
            c.elem_count = [](snd_ctl_ext_t*) { return 1; };
            c.elem_list = [](snd_ctl_ext_t*, unsigned int, snd_ctl_elem_id_t* id) {
                snd_ctl_elem_id_set_interface(id, SND_CTL_ELEM_IFACE_PCM);
                snd_ctl_elem_id_set_name(id, elementName);
                return 0;
            };
            c.find_elem = [](snd_ctl_ext_t*, const snd_ctl_elem_id_t* id) -> snd_ctl_ext_key_t {
                return std::strcmp(snd_ctl_elem_id_get_name(id), elementName) == 0
                           ? 0
                           : SND_CTL_EXT_KEY_NOT_FOUND;
            };
            c.get_attribute = [](snd_ctl_ext_t*, snd_ctl_ext_key_t, int* type, unsigned int* access,
                                 unsigned int* count) {
                *type = SND_CTL_ELEM_TYPE_INTEGER;
                *access = SND_CTL_EXT_ACCESS_READWRITE;
                *count = 1;
                return 0;
            };
            c.get_integer_info = [](snd_ctl_ext_t*, snd_ctl_ext_key_t, long* min, long* max,
                                    long* step) {
                *min = nominalPitch - 10'000;
                *max = nominalPitch + 10'000;
                *step = 1;
                return 0;
            };
            c.read_integer = [](snd_ctl_ext_t* p, snd_ctl_ext_key_t, long* value) {
                *value = nominalPitch + controlOf(p).pitchPpm;
                return 0;
            };
            c.write_integer = [](snd_ctl_ext_t* p, snd_ctl_ext_key_t, long* value) {
                controlOf(p).pitchPpm = static_cast<std::int32_t>(*value - nominalPitch);
                ++controlOf(p).pitchChanges;
                return 1;
            };
            c.read_event = [](snd_ctl_ext_t*, snd_ctl_elem_id_t*, unsigned int*) {
                return -EAGAIN;
            };
            return c;
        }();
        return &table;
    }

    ControlPointer m_control;
    snd_ctl_ext_t m_plugin{};
};

} // namespace

} // namespace testSupport::faultyPcm

extern "C" {

// The names that libasound looks for.
__attribute__((visibility("default"))) SND_CTL_PLUGIN_DEFINE_FUNC(kelda_faulty)
{
    using namespace testSupport::faultyPcm;
    static_cast<void>(root);
    static_cast<void>(conf);
    ControlPointer control = mapControl(folderInUse());
    if (!control) {
        return -ENODEV;
    }
    auto faulty = std::make_unique<FaultyCtl>(std::move(control));
    const int error = faulty->create(handlep, name, mode);
    if (error >= 0) {
        static_cast<void>(faulty.release()); // the plugin's close callback deletes it
    }
    return error;
}

__attribute__((visibility("default"))) SND_CTL_PLUGIN_SYMBOL(kelda_faulty);
}
