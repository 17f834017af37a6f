/* A program in C that calls each function of the interface, and gets along with its structures. */
#include "kelda_audio.h"
#include "kelda_audio.h"

#include <stdio.h>
#include <string.h>

static void ignore_line(void* user, kelda_log_level level, const char* source, const char* message)
{
    (void)user, (void)level, (void)source, (void)message;
}

static void store(void* user, int32_t adjustment)
{
    *(int32_t*)user = adjustment;
}

static int queue_works(void)
{
    const kelda_queue_config config = {1, 100, 48000, 2, 2, "outside", 1, 20000000, 10000000};
    kelda_queue* queue = NULL;
    kelda_queue_counters counters;
    int16_t block[96] = {0};
    size_t frames = 0;
    int64_t delta = 0;
    uint64_t time = kelda_now();
    int ok = kelda_queue_create(&queue) == KELDA_OK &&
             kelda_queue_configure(queue, &config) == KELDA_OK &&
             kelda_queue_write(queue, time, block, 48) == KELDA_OK &&
             kelda_queue_read(queue, time, block, 48, &frames, &delta) == KELDA_OK &&
             frames == 48 && kelda_queue_resync_read(queue) == KELDA_OK &&
             kelda_queue_flush_old_data(queue, time) == KELDA_OK &&
             kelda_queue_drain(queue) == KELDA_OK && kelda_queue_reset(queue) == KELDA_OK &&
             kelda_queue_abort_write(queue) == KELDA_OK &&
             kelda_queue_get_buffered_duration(queue, KELDA_NO_TIME, &time) == KELDA_OK &&
             kelda_queue_get_read_pts(queue, &time) == KELDA_OK &&
             kelda_queue_get_write_pts(queue, &time) == KELDA_OK &&
             kelda_queue_get_counters(queue, &counters) == KELDA_OK;
    kelda_queue_destroy(queue);
    return ok;
}

static int device_works(void)
{
    const kelda_device_config config = {KELDA_S16LE, 48000, 2, 960, 480, 480, 0, NULL};
    kelda_device* device = NULL;
    kelda_device_properties properties;
    int16_t block[96] = {0};
    int64_t delay = 0;
    uint64_t time = 0;
    size_t frames = 0;
    char json[1024];
    int ok = kelda_device_create(KELDA_DEVICE_FAKE, &device) == KELDA_OK &&
             kelda_device_open(device, "fake", &config) == KELDA_OK &&
             kelda_device_is_open(device) && kelda_device_write(device, block, 48) == KELDA_OK &&
             kelda_device_adjust(device, 1920, 480, 960) == KELDA_OK &&
             kelda_device_get_properties(device, &properties) == KELDA_OK &&
             properties.buffer_size == 1920 &&
             kelda_device_get_delay(device, &delay) == KELDA_OK && delay == 1000000 &&
             kelda_device_get_last_delay(device, &delay, &time) == KELDA_OK &&
             kelda_device_get_audio_timestamp(device, &time) == KELDA_OK &&
             kelda_device_get_frames_ready(device, &frames) == KELDA_OK &&
             kelda_device_drain(device) == KELDA_OK && kelda_device_close(device) == KELDA_OK &&
             kelda_describe_alsa_device("none", 0, json, sizeof json, NULL) == KELDA_DEVICE_ERROR;
    kelda_device_destroy(device);
    return ok;
}

static int resampler_works(kelda_resampler_kind kind)
{
    const kelda_resampler_config config = {kind, KELDA_INT16, 2, 2, 44100, 48000};
    kelda_resampler* resampler = NULL;
    int16_t in[96] = {0}, out[192];
    size_t taken = 48, written = 96, room = 0;
    int64_t latency = 0;
    const int varies = kind != KELDA_RESAMPLER_GSTREAMER;
    int ok = kelda_resampler_create(&config, &resampler) == KELDA_OK &&
             kelda_resampler_set_rates(resampler, 48000, 44100) == KELDA_OK &&
             (kelda_resampler_set_ppm(resampler, 1) == KELDA_OK) == varies &&
             kelda_resampler_process(resampler, in, &taken, out, &written, KELDA_FLUSH) ==
                 KELDA_OK &&
             taken == 48 && kelda_resampler_get_latency(resampler, &latency) == KELDA_OK &&
             (kelda_resampler_get_room(resampler, 48, &room) == KELDA_OK) == !varies &&
             kelda_resampler_reset(resampler) == KELDA_OK;
    kelda_resampler_destroy(resampler);
    return ok;
}

static int compensator_works(void)
{
    const kelda_compensator_config config = {-100, 100, 1, 0, 0, 50, 1};
    kelda_compensator* compensator = NULL;
    int32_t stored = -1, last = -1;
    int ok = kelda_compensator_create(&config, store, &stored, &compensator) == KELDA_OK &&
             kelda_compensator_update(compensator, 0, 0) == KELDA_OK &&
             kelda_compensator_update(compensator, 10000, 1000000000) == KELDA_OK &&
             kelda_compensator_get_adjustment(compensator, &last) == KELDA_OK && last == 10 &&
             stored == last && kelda_compensator_restart(compensator) == KELDA_OK &&
             kelda_compensator_reset(compensator) == KELDA_OK && stored == 0;
    kelda_compensator_destroy(compensator);
    return ok;
}

static int click_remover_works(kelda_sample_type type)
{
    const kelda_click_remover_config config = {type, 48000, 1, 10, 5, 5, 0};
    kelda_click_remover* remover = NULL;
    int32_t block[48] = {0};
    size_t frames = 0, left = 0;
    int ok = kelda_click_remover_create(&config, &remover) == KELDA_OK &&
             kelda_click_remover_process(remover, block, 48) == KELDA_OK &&
             kelda_click_remover_notify_underrun(remover, 48) == KELDA_OK &&
             kelda_click_remover_get_delay(remover, &frames) == KELDA_OK && frames == 960 &&
             (frames = 48) == 48 &&
             kelda_click_remover_flush(remover, block, &frames, &left) == KELDA_OK &&
             left == 912 && kelda_click_remover_reset(remover) == KELDA_OK;
    kelda_click_remover_destroy(remover);
    return ok;
}

static int formats_work(void)
{
    kelda_format format = KELDA_F64BE;
    int code = 0;
    return kelda_format_from_name("S24_32LE", &format) == KELDA_OK && format == KELDA_S24_32LE &&
           kelda_format_to_alsa(format, &code) == KELDA_OK &&
           kelda_format_from_alsa(code, &format) == KELDA_OK &&
           kelda_format_from_alsa_name("S16_LE", &format) == KELDA_OK && format == KELDA_S16LE &&
           kelda_format_bytes(format) == 2 && strcmp(kelda_format_name(format), "S16LE") == 0 &&
           strcmp(kelda_format_alsa_name(format), "S16_LE") == 0;
}

int main(void)
{
    const int ok = kelda_set_log(KELDA_LOG_OFF, ignore_line, NULL) == KELDA_OK && queue_works() &&
                   device_works() && resampler_works(KELDA_RESAMPLER_FLOAT) &&
                   resampler_works(KELDA_RESAMPLER_SHORT) &&
                   resampler_works(KELDA_RESAMPLER_GSTREAMER) && compensator_works() &&
                   click_remover_works(KELDA_INT16) && click_remover_works(KELDA_INT32) &&
                   click_remover_works(KELDA_FLOAT32) && formats_work();
    printf("kelda %s: %s\n", kelda_version(), kelda_status_text(ok ? KELDA_OK : KELDA_INTERNAL_ERROR));
    return ok ? 0 : 1;
}
