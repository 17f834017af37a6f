/* Half a second of timestamped audio through a queue to a simulated sound card, in C99. */
#include "kelda_audio.h"
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { block = 480, blocks = 50 }; /* 10 ms each */

static void check(kelda_status status)
{
    if (status < 0) {
        fprintf(stderr, "%s\n", kelda_status_text(status));
        exit(1);
    }
}

struct stream {
    kelda_queue* queue;
    uint64_t start; /* when the first frame is to be heard, in ns */
};

static void* produce(void* user)
{
    const struct stream* const stream = user;
    int16_t packet[2 * block];
    memset(packet, 1, sizeof packet);
    kelda_status status = KELDA_OK;
    for (uint64_t n = 0; n < blocks && status == KELDA_OK; ++n)
        status = kelda_queue_write(stream->queue, stream->start + n * 10000000, packet, block);
    if (status != KELDA_ABORTED)
        check(status);
    return NULL;
}

int main(void)
{
    kelda_device* device = NULL; /* 48 kHz, 16-bit stereo */
    check(kelda_device_create(KELDA_DEVICE_FAKE, &device));
    const kelda_device_config speaker = {
        .format = KELDA_S16LE, .sample_rate = 48000, .channels = 2,
        .buffer_size = 1920, .period_size = 480, .start_threshold = 960};
    check(kelda_device_open(device, "speaker", &speaker));

    struct stream stream = {NULL, 0}; /* 200 ms; jumps above 20 ms, smoothing below 10 ms */
    check(kelda_queue_create(&stream.queue));
    const kelda_queue_config config = {
        .timestamping = 1, .capacity_ms = 200, .sample_rate = 48000, .channels = 2,
        .bytes_per_sample = 2, .name = "example", .smoothing = 1,
        .jump_threshold = 20000000, .smoothing_threshold = 10000000};
    check(kelda_queue_configure(stream.queue, &config));

    stream.start = kelda_now() + 100000000;
    const uint64_t end = stream.start + blocks * 10000000ULL;
    pthread_t producer;
    if (pthread_create(&producer, NULL, produce, &stream) != 0)
        return 1;
    for (uint64_t due = 0; due < end;) {
        int64_t delay = 0, delta = 0;
        check(kelda_device_get_delay(device, &delay));
        due = kelda_now() + (uint64_t)delay;
        int16_t out[2 * block] = {0}; /* silence, where an underrun leaves room */
        size_t frames = 0;
        check(kelda_queue_read(stream.queue, due, out, block, &frames, &delta)); /* heard then */
        check(kelda_device_write(device, out, block)); /* paces this loop */
    }
    check(kelda_queue_abort_write(stream.queue)); /* nobody reads any more */
    pthread_join(producer, NULL);
    check(kelda_device_drain(device));
    kelda_queue_destroy(stream.queue);
    kelda_device_destroy(device);
    return 0;
}
