#pragma once

// C has no <cstddef>. NOLINTBEGIN(modernize-deprecated-headers)
#include <stddef.h>
#include <stdint.h>
// NOLINTEND(modernize-deprecated-headers)

#include "miscUtils/Export.h"

/// @file
/// The libraries for programs in C, and for other languages that call C (C99, and C++).
///
///     cc program.c -I/usr/include/kelda -lkelda_audio
///
/// **Results.** A function that can fail returns a kelda_status: negative numbers are errors, and
/// then nothing has been done; 0 is success; positive ones tell that it was done, but not without
/// incident. After an error the out-parameters are as they were, where nothing else is said.
/// Arguments are checked: a null pointer (where none is allowed) or a number out of its range gives
/// KELDA_INVALID_ARGUMENT. No function throws, and none aborts on its arguments.
///
/// **Ownership.** What kelda_..._create() hands out belongs to the caller, who gives it to the
/// matching kelda_..._destroy() once, when no other call uses it any more (but see
/// kelda_queue_destroy()). Destroying a null pointer does nothing. Texts and structures that are
/// passed in are copied where they are needed later; texts handed out as `const char*` live as long
/// as the process.
///
/// **Units.** Times are nanoseconds, absolute ones on the monotonic raw clock (kelda_now()). Audio
/// is interleaved PCM in the machine's memory, aligned for its sample type; it is counted in
/// frames, a frame being one sample of every channel. A truth value is an int: 0 is false.
///
/// **Threads.** A queue serves several threads. Everything else belongs to one thread at a time;
/// different objects are independent. A thread must not be cancelled (pthread_cancel) inside a
/// call.
///
/// **Versions.** Structures and numbers stay as they are for as long as the library's soname does;
/// what is new comes under new names.

#ifdef __cplusplus
#define KELDA_NOEXCEPT noexcept
#define KELDA_ENUM : int
extern "C" {
#else
#define KELDA_NOEXCEPT
#define KELDA_ENUM
#endif

/// No time is known, or none is to be looked at.
#define KELDA_NO_TIME UINT64_MAX

/// @name Results
/// @{

/// What a call came to. The numbers are part of the interface.
enum kelda_status KELDA_ENUM {
    KELDA_OK = 0,                ///< done
    KELDA_UNDERRUN = 1,          ///< done, but the device had run dry or failed, and has recovered
    KELDA_INVALID_ARGUMENT = -1, ///< a null pointer, or a number out of its range
    KELDA_OUT_OF_MEMORY = -2,    ///< there is too little memory
    KELDA_NOT_SUPPORTED = -3,    ///< objects of this kind can't do that, or a plugin is missing
    KELDA_NOT_FOUND = -4,        ///< nothing has this name or code
    KELDA_BUFFER_TOO_SMALL = -5, ///< the text needs more room
    KELDA_NOT_CONFIGURED = -6,   ///< the queue has not been configured
    KELDA_ABORTED = -7,          ///< writing was aborted
    KELDA_NOT_OPEN = -8,         ///< the device is not open
    KELDA_ALREADY_OPEN = -9,     ///< the device is open
    KELDA_DEVICE_ERROR = -10,    ///< the device can't be opened, configured or asked
    KELDA_PREPARE_FAILED = -11,  ///< the device can't be prepared; nothing was written
    KELDA_RECOVER_FAILED = -12,  ///< recovery failed, or was in vain: the rest was dropped
    KELDA_INTERNAL_ERROR = -13   ///< an error that this library did not expect
};
/// What a call came to.
typedef enum kelda_status kelda_status;

/// A status in words, for people: "the device is not open".
///
/// @param status any number; "unknown status" for one that is no status
/// @return a text that lives as long as the process. Safe to call from any thread.
KELDA_EXPORT const char* kelda_status_text(kelda_status status) KELDA_NOEXCEPT;

/// @}
/// @name Version and clock
/// @{

/// The library's version, as "1.2.3".
///
/// @return a text that lives as long as the process. Safe to call from any thread.
KELDA_EXPORT const char* kelda_version(void) KELDA_NOEXCEPT;

/// The system's monotonic raw clock (CLOCK_MONOTONIC_RAW), which all absolute times are on.
///
/// It drifts against CLOCK_MONOTONIC: never mix the two.
///
/// @return ns since an unspecified start. Safe to call from any thread.
KELDA_EXPORT uint64_t kelda_now(void) KELDA_NOEXCEPT;

/// @}
/// @name Log
/// @{

/// How much is logged: each level includes those before it.
enum kelda_log_level KELDA_ENUM {
    KELDA_LOG_OFF = 0,     ///< nothing
    KELDA_LOG_ERROR = 1,   ///< why a call failed
    KELDA_LOG_WARNING = 2, ///< underruns, jumps of timestamps
    KELDA_LOG_INFO = 3,    ///< what was done about them
    KELDA_LOG_DEBUG = 4,   ///< each read and write of a queue, and what devices granted
    KELDA_LOG_TRACE = 5    ///< each block of a click remover
};
/// How much is logged.
typedef enum kelda_log_level kelda_log_level;

/// Takes a line of the log.
///
/// It runs in whichever thread logs, one call at a time in the process, and delays that thread. It
/// must call no function of this library but those that are safe from any thread and log nothing:
/// kelda_now(), kelda_version(), kelda_status_text().
///
/// @param user    as given to kelda_set_log()
/// @param level   of the line, from KELDA_LOG_ERROR on
/// @param source  the part that logs: "PcmQueue", "AudioUtils", "ClickRemover" or
///                "GStreamerResampler"
/// @param message a line without its end, valid during the call
typedef void (*kelda_log_function)(void* user, kelda_log_level level, const char* source,
                                   const char* message);

/// Sets for the whole process how much is logged, and where to.
///
/// Without this call warnings and errors go to standard error, a line each ("WARN AudioUtils:
/// Underrun occurred"), unless the program has configured log4cplus, which the libraries log
/// through, by itself before it creates the first object here.
///
/// A level that is off costs next to nothing. From KELDA_LOG_DEBUG on, calls that otherwise
/// allocate no memory do.
///
/// @param level    how much
/// @param function takes the lines; null: standard error. The former one is not called any more
///                 when this returns
/// @param user     handed to `function` as it is; may be null
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT (no such level), KELDA_OUT_OF_MEMORY. Safe to call from
///         any thread, but not from `function`.
KELDA_EXPORT kelda_status kelda_set_log(kelda_log_level level, kelda_log_function function,
                                        void* user) KELDA_NOEXCEPT;

/// @}
/// @name Sample formats
///
/// Safe to call from any thread.
/// @{

/// The PCM sample layouts. The numbers are part of the interface.
enum kelda_format KELDA_ENUM {
    KELDA_S16LE = 0,    ///< 16 bits, little endian
    KELDA_S16BE = 1,    ///< 16 bits, big endian
    KELDA_S24LE = 2,    ///< 24 bits, packed into 3 bytes, little endian
    KELDA_S24BE = 3,    ///< 24 bits, packed into 3 bytes, big endian
    KELDA_S24_32LE = 4, ///< the low 24 bits of a 32-bit container, little endian
    KELDA_S24_32BE = 5, ///< the low 24 bits of a 32-bit container, big endian
    KELDA_S32LE = 6,    ///< 32 bits, little endian
    KELDA_S32BE = 7,    ///< 32 bits, big endian
    KELDA_F32LE = 8,    ///< 32-bit float, little endian
    KELDA_F32BE = 9,    ///< 32-bit float, big endian
    KELDA_F64LE = 10,   ///< 64-bit float, little endian
    KELDA_F64BE = 11    ///< 64-bit float, big endian
};
/// A PCM sample layout.
typedef enum kelda_format kelda_format;

/// The name of a format ("S16LE"), as GStreamer spells it, too.
///
/// @param format any number
/// @return a text that lives as long as the process; "<unknown>" for a number that is no format
KELDA_EXPORT const char* kelda_format_name(kelda_format format) KELDA_NOEXCEPT;

/// Finds a format by its exact name.
///
/// @param[in]  name   "S24_32LE"; case and blanks matter
/// @param[out] format the format
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_FOUND, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_format_from_name(const char* name,
                                                 kelda_format* format) KELDA_NOEXCEPT;

/// Bytes of one sample of one channel.
///
/// KELDA_F64LE and KELDA_F64BE give 4, not 8: every frame size in the library is calculated so, and
/// a device that is opened with one of them takes the wrong frames after a write that was
/// interrupted. Prefer another format.
///
/// @param format any number
/// @return bytes; 0 for a number that is no format
KELDA_EXPORT size_t kelda_format_bytes(kelda_format format) KELDA_NOEXCEPT;

/// ALSA's code of a format (snd_pcm_format_t).
///
/// @param[in]  format a format
/// @param[out] code   ALSA's number
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT (also for a number that is no format)
KELDA_EXPORT kelda_status kelda_format_to_alsa(kelda_format format, int* code) KELDA_NOEXCEPT;

/// Finds a format by ALSA's code.
///
/// @param[in]  code   ALSA's number
/// @param[out] format the format
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_FOUND
KELDA_EXPORT kelda_status kelda_format_from_alsa(int code, kelda_format* format) KELDA_NOEXCEPT;

/// ALSA's name of a format, which is not always the same: KELDA_S24_32LE is "S24_LE".
///
/// @param format any number
/// @return a text that lives as long as the process; "<unknown>" for a number that is no format
KELDA_EXPORT const char* kelda_format_alsa_name(kelda_format format) KELDA_NOEXCEPT;

/// Finds a format by ALSA's name.
///
/// @param[in]  name   "S24_3LE"; ALSA takes either case
/// @param[out] format the format
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_FOUND, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_format_from_alsa_name(const char* name,
                                                      kelda_format* format) KELDA_NOEXCEPT;

/// @}
/// @name Queue
///
/// A ring of PCM between one writer and one reader that keeps the audio aligned to presentation
/// timestamps. The writer delivers packets with the time at which their first frame is to be heard;
/// the reader asks for the frames due at a time. In between the queue fills small gaps between
/// packets with silence and starts afresh on large or backward jumps; hands out silence while the
/// audio lies in the future, and skips what is late; blocks the writer while it is full; and
/// smooths the timestamps of both sides.
///
/// One thread writes; one reads, flushes and asks for times; any thread may configure, reset,
/// abort, resync and drain. Writing and reading allocate nothing, but the text of a message whose
/// level is logged. A configuration with another frame size changes what the frames of both sides
/// mean: keep writer and reader out while you set it.
/// @{

/// A queue; see kelda_queue_create().
typedef struct kelda_queue kelda_queue;

/// How a queue is set up. There are no defaults: set every field.
struct kelda_queue_config
{
    int timestamping;          ///< when false, times are ignored: a plain blocking ring
    uint32_t capacity_ms;      ///< how much audio it holds: at least a frame
    uint32_t sample_rate;      ///< in Hz, at least 1
    uint32_t channels;         ///< at least 1
    uint32_t bytes_per_sample; ///< of one channel, at least 1; a second of audio is below 4 GiB
    const char* name;          ///< prefix of the lines in the log; null: none
    int smoothing;             ///< whether the timestamps of both sides are smoothed
    uint64_t jump_threshold;   ///< largest deviation of a timestamp, in ns, that is no jump; below
                               ///< 2^63
    uint64_t smoothing_threshold; ///< largest deviation, in ns, that is smoothed
};
/// How a queue is set up.
typedef struct kelda_queue_config kelda_queue_config;

/// What a queue has done to the audio since it was configured.
struct kelda_queue_counters
{
    uint64_t inserted_frames; ///< silence that writing put into timestamp gaps
    uint64_t resets;          ///< times that writing discarded what was held, on a jump
    uint64_t silence_frames;  ///< silence that reading handed out before audio of the future
    uint64_t skipped_frames;  ///< late audio dropped by reading and by flushing old data
    uint64_t underruns;       ///< reads that found less audio than they had to skip
};
/// What a queue has done to the audio since it was configured.
typedef struct kelda_queue_counters kelda_queue_counters;

/// Makes a queue, which must be configured before it is written to or read from.
///
/// @param[out] queue the new queue; null after an error
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_queue_create(kelda_queue** queue) KELDA_NOEXCEPT;

/// Ends a queue. A write and a drain that are blocked are released first (the write returns
/// KELDA_ABORTED), and this returns when they have left. No call may begin meanwhile.
///
/// @param queue may be null
KELDA_EXPORT void kelda_queue_destroy(kelda_queue* queue) KELDA_NOEXCEPT;

/// Sets a queue up from empty: all audio, timestamps, counters and a former abort are forgotten.
/// Calls that are blocked return: a write with KELDA_ABORTED.
///
/// After KELDA_OUT_OF_MEMORY the queue is not configured: a write that is blocked returns, and
/// later calls give KELDA_NOT_CONFIGURED.
///
/// @param queue  a queue
/// @param config copied
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_queue_configure(kelda_queue* queue,
                                                const kelda_queue_config* config) KELDA_NOEXCEPT;

/// Appends a packet; blocks while the queue is full.
///
/// A forward gap is filled with silence as long as it is shorter than what is buffered. A longer
/// one, and a backward jump, discard what is buffered and start afresh.
///
/// @param queue  a queue
/// @param pts    when the packet's first frame is to be heard, in ns; KELDA_NO_TIME appends the
///               frames without looking at time
/// @param data   whole frames, interleaved; copied. May be null without frames
/// @param frames how many; less than 2 GiB of them
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_CONFIGURED; KELDA_ABORTED when writing was
///         aborted or the queue was configured anew: the rest of the packet is dropped then
KELDA_EXPORT kelda_status kelda_queue_write(kelda_queue* queue, uint64_t pts, const void* data,
                                            size_t frames) KELDA_NOEXCEPT;

/// Releases a blocked write and drain, and makes every later write return KELDA_ABORTED, until the
/// queue is configured again. Does nothing before it is configured. Any thread.
///
/// @param queue a queue
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_abort_write(kelda_queue* queue) KELDA_NOEXCEPT;

/// Takes the frames due at a time. Never blocks on audio.
///
/// Silence is handed out for the time before the first frame, late audio is skipped; both happen
/// only beyond the jump threshold, or when the reader is not yet in sync.
///
/// @param[in]  queue       a queue
/// @param[in]  time        when the first frame of `out` will be heard, in ns; KELDA_NO_TIME takes
///                         what there is
/// @param[out] out         room for `frames`; what lies beyond `frames_read` is left untouched, so
///                         pad it after an underrun. May be null without frames
/// @param[in]  frames      how many frames are wanted
/// @param[out] frames_read frames handed out, silence included
/// @param[out] delta       `time` (smoothed) less the presentation time of the audio, in ns:
///                         positive when the audio is late; 0 where a jump has just been repaired.
///                         Untouched when no time is looked at. May be null
/// @return KELDA_OK, also when there was less than was wanted, or nothing; KELDA_INVALID_ARGUMENT,
///         KELDA_NOT_CONFIGURED
KELDA_EXPORT kelda_status kelda_queue_read(kelda_queue* queue, uint64_t time, void* out,
                                           size_t frames, size_t* frames_read,
                                           int64_t* delta) KELDA_NOEXCEPT;

/// Makes the next read align exactly to its time, however small its deviation. Any thread.
///
/// @param queue a queue
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_resync_read(kelda_queue* queue) KELDA_NOEXCEPT;

/// Drops what is late at a time.
///
/// @param queue a queue
/// @param now   in ns; KELDA_NO_TIME does nothing
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_CONFIGURED
KELDA_EXPORT kelda_status kelda_queue_flush_old_data(kelda_queue* queue,
                                                     uint64_t now) KELDA_NOEXCEPT;

/// Blocks until the queue is empty, or reset, configured anew or aborted. Any thread.
///
/// @param queue a queue
/// @return KELDA_OK in all these cases; KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_drain(kelda_queue* queue) KELDA_NOEXCEPT;

/// Empties the queue and forgets its timestamps. A blocked write goes on with the rest of its
/// packet; an abort stays in force. Any thread.
///
/// @param queue a queue
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_reset(kelda_queue* queue) KELDA_NOEXCEPT;

/// How much audio is held that can still be played in time.
///
/// @param[in]  queue    a queue
/// @param[in]  now      in ns; KELDA_NO_TIME asks for all that is held
/// @param[out] duration in ns; 0 before the queue is configured
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_get_buffered_duration(kelda_queue* queue, uint64_t now,
                                                            uint64_t* duration) KELDA_NOEXCEPT;

/// The presentation time of the oldest frame held.
///
/// @param[in]  queue a queue
/// @param[out] pts   in ns; KELDA_NO_TIME when unknown
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_get_read_pts(kelda_queue* queue,
                                                   uint64_t* pts) KELDA_NOEXCEPT;

/// The presentation time just past the newest frame held.
///
/// @param[in]  queue a queue
/// @param[out] pts   in ns; KELDA_NO_TIME when unknown
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_get_write_pts(kelda_queue* queue,
                                                    uint64_t* pts) KELDA_NOEXCEPT;

/// What has been inserted, skipped and lost since the queue was configured. Any thread.
///
/// @param[in]  queue    a queue
/// @param[out] counters all of them, of one moment
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_queue_get_counters(kelda_queue* queue,
                                                   kelda_queue_counters* counters) KELDA_NOEXCEPT;

/// @}
/// @name Output devices
///
/// A playback sink that knows its delay: open it once, write to it, ask for its delay, close it.
/// @{

/// An output device; see kelda_device_create().
typedef struct kelda_device kelda_device;

/// Which output device.
enum kelda_device_kind KELDA_ENUM {
    KELDA_DEVICE_FAKE = 0, ///< no hardware: discards the audio, and keeps the time of a sound card
    KELDA_DEVICE_ALSA = 1  ///< a playback device of ALSA
};
/// Which output device.
typedef enum kelda_device_kind kelda_device_kind;

/// How a device is opened. There are no defaults: set every field.
struct kelda_device_config
{
    kelda_format format;      ///< of a sample
    uint32_t sample_rate;     ///< in Hz, 1 to 1 000 000 000
    uint32_t channels;        ///< at least 1
    uint64_t buffer_size;     ///< frames that the device holds, 1 to 2^31 - 1
    uint64_t period_size;     ///< frames that it takes at a time, 1 to 2^31 - 1
    uint64_t start_threshold; ///< frames that must be held before it plays, up to 2^31 - 1
    int allow_resampling;     ///< whether ALSA may convert the sample rate itself
    const char* channel_map;  ///< in ALSA's words ("FL FR"); null or "": as the device has it
};
/// How a device is opened.
typedef struct kelda_device_config kelda_device_config;

/// What a device has granted.
struct kelda_device_properties
{
    kelda_format format;       ///< of a sample
    uint32_t sample_rate;      ///< in Hz
    uint32_t channels;         ///< samples of a frame
    uint32_t bytes_per_sample; ///< of one channel
    uint64_t buffer_size;      ///< frames
    uint64_t period_size;      ///< frames
    uint64_t start_threshold;  ///< frames
};
/// What a device has granted.
typedef struct kelda_device_properties kelda_device_properties;

/// Makes a device, which is not open.
///
/// @param[in]  kind   which
/// @param[out] device the new device; null after an error
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_device_create(kelda_device_kind kind,
                                              kelda_device** device) KELDA_NOEXCEPT;

/// Closes a device and ends it. What it holds is not heard: see kelda_device_drain().
///
/// @param device may be null
KELDA_EXPORT void kelda_device_destroy(kelda_device* device) KELDA_NOEXCEPT;

/// Opens a device. Near values are accepted: kelda_device_get_properties() tells what was granted.
/// After an error it is not open (but for KELDA_ALREADY_OPEN, when it is left as it is).
///
/// @param device a device
/// @param name   ALSA's name of it ("default", "hw:0,0", "plughw:CARD=PCH"); the fake device takes
///               any
/// @param config copied
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_ALREADY_OPEN, KELDA_OUT_OF_MEMORY;
///         KELDA_DEVICE_ERROR, and the log tells why
KELDA_EXPORT kelda_status kelda_device_open(kelda_device* device, const char* name,
                                            const kelda_device_config* config) KELDA_NOEXCEPT;

/// Closes a device at once: what it holds is not heard. Harmless when it is not open.
///
/// @param device a device
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_device_close(kelda_device* device) KELDA_NOEXCEPT;

/// Whether a device is open.
///
/// @param device may be null, which is not open
/// @return 1 or 0
KELDA_EXPORT int kelda_device_is_open(const kelda_device* device) KELDA_NOEXCEPT;

/// Writes frames; blocks until the device has taken them. Allocates nothing.
///
/// @param device a device
/// @param data   interleaved frames in the device's format; not changed. May be null without frames
/// @param frames how many, up to 2^31 - 1
/// @return KELDA_OK; KELDA_UNDERRUN when all was written, but the device had run dry or failed on
///         the way and has recovered; KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN, KELDA_PREPARE_FAILED;
///         KELDA_RECOVER_FAILED when the rest of the frames was dropped, after a recovery that
///         failed, 100 between which no frame was taken, or 100 attempts that took none: the
///         device is probably gone
KELDA_EXPORT kelda_status kelda_device_write(kelda_device* device, const void* data,
                                             size_t frames) KELDA_NOEXCEPT;

/// Blocks until all that was written has been played. The next write starts afresh.
///
/// @param device a device
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN
KELDA_EXPORT kelda_status kelda_device_drain(kelda_device* device) KELDA_NOEXCEPT;

/// Changes the geometry of an open device. An ALSA device is closed and opened again for it: what
/// it holds is not heard.
///
/// @param device          a device
/// @param buffer_size     frames that the device holds, 1 to 2^31 - 1
/// @param period_size     frames that it takes at a time, 1 to 2^31 - 1
/// @param start_threshold frames that must be held before it plays, up to 2^31 - 1
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN, KELDA_OUT_OF_MEMORY;
///         KELDA_DEVICE_ERROR, after which the device can be closed: ask kelda_device_is_open()
KELDA_EXPORT kelda_status kelda_device_adjust(kelda_device* device, uint64_t buffer_size,
                                              uint64_t period_size,
                                              uint64_t start_threshold) KELDA_NOEXCEPT;

/// What an open device has granted.
///
/// @param[in]  device     a device
/// @param[out] properties all of them
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN
KELDA_EXPORT kelda_status kelda_device_get_properties(
    const kelda_device* device, kelda_device_properties* properties) KELDA_NOEXCEPT;

/// How long a frame written now will wait until it is heard: the last measurement, less the time
/// that has passed since (which the fake device does not take off). Allocates nothing.
///
/// @param[in]  device a device
/// @param[out] delay  in ns; negative when the measurement is older than the delay that it told, as
///                    while a device that failed fills up again
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN
KELDA_EXPORT kelda_status kelda_device_get_delay(const kelda_device* device,
                                                 int64_t* delay) KELDA_NOEXCEPT;

/// The last measurement of the delay, as it was taken: whole microseconds, in ns.
///
/// @param[in]  device    a device
/// @param[out] delay     in ns
/// @param[out] timestamp when it was measured, in ns; KELDA_NO_TIME when there is no measurement
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN
KELDA_EXPORT kelda_status kelda_device_get_last_delay(const kelda_device* device, int64_t* delay,
                                                      uint64_t* timestamp) KELDA_NOEXCEPT;

/// The device's audio clock, extrapolated to now. What counts as its zero is the driver's choice.
///
/// @param[in]  device    a device
/// @param[out] timestamp in ns; KELDA_NO_TIME when the device has not reported one
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN
KELDA_EXPORT kelda_status kelda_device_get_audio_timestamp(const kelda_device* device,
                                                           uint64_t* timestamp) KELDA_NOEXCEPT;

/// How many frames a write would take without blocking. The fake device tells one period, always.
///
/// @param[in]  device a device
/// @param[out] frames how many; 0 after an underrun, which is repaired here, too
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_NOT_OPEN, KELDA_DEVICE_ERROR
KELDA_EXPORT kelda_status kelda_device_get_frames_ready(const kelda_device* device,
                                                        size_t* frames) KELDA_NOEXCEPT;

/// Asks an ALSA playback device what it is able to, without playing anything.
///
/// The answer is JSON (UTF-8) on one line without blanks:
///
///     {"numChannels":{"max":8,"min":2},"pcmFormats":["S16LE","S32LE"],
///     "sampleRates":{"allowed":[44100,48000],"max":48000,"min":44100}}
///
/// "allowed" stands where not all numbers from "min" to "max" are taken.
///
/// @param[in]  name             ALSA's name of the device
/// @param[in]  allow_resampling whether rates that ALSA would convert count, too
/// @param[out] json             the text, with its ending 0; 1024 bytes are enough. May be null
///                              without `size`
/// @param[in]  size             bytes of room in `json`
/// @param[out] length           bytes of the text without the 0, also after KELDA_BUFFER_TOO_SMALL.
///                              May be null
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_BUFFER_TOO_SMALL, KELDA_OUT_OF_MEMORY;
///         KELDA_DEVICE_ERROR, and the log tells why
KELDA_EXPORT kelda_status kelda_describe_alsa_device(const char* name, int allow_resampling,
                                                     char* json, size_t size,
                                                     size_t* length) KELDA_NOEXCEPT;

/// @}
/// @name Resamplers
///
/// They convert the sample rate of interleaved audio. Nothing is lost: input that is not taken is
/// to be offered again, output that there was no room for is handed out first by the next call.
/// @{

/// A resampler; see kelda_resampler_create().
typedef struct kelda_resampler kelda_resampler;

/// Types of samples in memory, in the machine's byte order.
enum kelda_sample_type KELDA_ENUM {
    KELDA_INT16 = 0,  ///< int16_t
    KELDA_INT32 = 1,  ///< int32_t
    KELDA_FLOAT32 = 2 ///< float
};
/// A type of samples in memory.
typedef enum kelda_sample_type kelda_sample_type;

/// Which resampler.
enum kelda_resampler_kind KELDA_ENUM {
    /// Floating point, and a ratio that may change between any two blocks. Takes all sample types;
    /// output is 1 dB below the input. Processing allocates nothing.
    KELDA_RESAMPLER_FLOAT = 0,
    /// The same in fixed point, for KELDA_INT16 alone. Output has the level of the input.
    KELDA_RESAMPLER_SHORT = 1,
    /// GStreamer's audioresample, between fixed rates in whole Hz. Takes all sample types; output
    /// is
    /// 0.5 dB below the input, and equal rates leave it alone. Each call allocates, and may wait
    /// for the pipeline's thread. It needs GStreamer's base plugins when it runs.
    KELDA_RESAMPLER_GSTREAMER = 2
};
/// Which resampler.
typedef enum kelda_resampler_kind kelda_resampler_kind;

/// How a resampler is made. There are no defaults: set every field.
struct kelda_resampler_config
{
    kelda_resampler_kind kind;     ///< which
    kelda_sample_type sample_type; ///< of input and output
    uint32_t channels;             ///< 1 to 256; KELDA_RESAMPLER_GSTREAMER: 1 to 63
    /// 0 (low), 1 (medium), 2 (high) or 3 (best); KELDA_RESAMPLER_GSTREAMER: 1 to 10 (best)
    int quality;
    double in_rate;  ///< as kelda_resampler_set_rates() takes it
    double out_rate; ///< as kelda_resampler_set_rates() takes it
};
/// How a resampler is made.
typedef struct kelda_resampler_config kelda_resampler_config;

/// What a call of kelda_resampler_process() does besides; combined by `|`.
enum kelda_process_flags KELDA_ENUM {
    KELDA_MUTE = 1, ///< input is taken, but silence takes its place; not with
                    ///< KELDA_RESAMPLER_GSTREAMER
    KELDA_FLUSH = 2 ///< the input ends here: silence follows on it, so that its end comes out
};

/// Makes a resampler.
///
/// @param[in]  config    copied
/// @param[out] resampler the new resampler; null after an error
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_OUT_OF_MEMORY; KELDA_NOT_SUPPORTED: this kind
///         can't convert this sample type, or GStreamer's base plugins are missing
KELDA_EXPORT kelda_status kelda_resampler_create(const kelda_resampler_config* config,
                                                 kelda_resampler** resampler) KELDA_NOEXCEPT;

/// Ends a resampler.
///
/// @param resampler may be null
KELDA_EXPORT void kelda_resampler_destroy(kelda_resampler* resampler) KELDA_NOEXCEPT;

/// Changes the rates, from the next output frame on.
///
/// The read position is carried on with its fraction, so there is no step in the signal but the
/// change of speed; KELDA_RESAMPLER_GSTREAMER begins anew. With KELDA_RESAMPLER_FLOAT and
/// KELDA_RESAMPLER_SHORT at a ratio of exactly 1 the input is copied, and the fraction ignored: the
/// signal can jump by up to a sample there, so callers that follow a drift use
/// kelda_resampler_set_ppm(), which stays off it.
///
/// @param resampler a resampler
/// @param in_rate   in Hz, 1 to 2^31 - 1, of which 24 bits are kept; in_rate / out_rate must lie
///                  between 0.125 and 8 (both included; KELDA_RESAMPLER_SHORT: both excluded).
///                  KELDA_RESAMPLER_GSTREAMER: a whole number from 1000 to 1 536 000
/// @param out_rate  in Hz, likewise
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT; KELDA_INTERNAL_ERROR when GStreamer refuses
KELDA_EXPORT kelda_status kelda_resampler_set_rates(kelda_resampler* resampler, double in_rate,
                                                    double out_rate) KELDA_NOEXCEPT;

/// Converts a little faster or slower than the rates that were set say, to follow a drift: input is
/// taken at in_rate (1 + ppm / 1 000 000). The steps that 24 bits allow are about 0.1 ppm.
///
/// @param resampler a resampler
/// @param ppm       parts per million, from -100 000 to 100 000; positive: less output. 0 is near
/// to
///                  the rates' ratio, and never 1 exactly
/// @return KELDA_OK; KELDA_INVALID_ARGUMENT, also when the ratio leaves its range;
///         KELDA_NOT_SUPPORTED by KELDA_RESAMPLER_GSTREAMER
KELDA_EXPORT kelda_status kelda_resampler_set_ppm(kelda_resampler* resampler,
                                                  double ppm) KELDA_NOEXCEPT;

/// Takes and converts input, and hands out output, until one of them is used up.
///
/// Integers are not dithered; see docs/resampling.md for levels and clipping. Without room for a
/// frame nothing is taken. At a stream's end call it with KELDA_FLUSH, offering what is left of the
/// input, until it fills less than the room; KELDA_RESAMPLER_GSTREAMER then begins a new stream
/// with the next call.
///
/// @param[in]     resampler  a resampler
/// @param[in]     in         interleaved; null: hand out what there is
/// @param[in,out] in_frames  in: frames offered, below 2^31 samples; out: frames taken
/// @param[out]    out        interleaved; may be null without room
/// @param[in,out] out_frames in: room in frames; out: frames written
/// @param[in]     flags      KELDA_MUTE, KELDA_FLUSH, both by `|`, or 0
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT; KELDA_NOT_SUPPORTED for KELDA_MUTE with
///         KELDA_RESAMPLER_GSTREAMER; KELDA_INTERNAL_ERROR when GStreamer refuses
KELDA_EXPORT kelda_status kelda_resampler_process(kelda_resampler* resampler, const void* in,
                                                  size_t* in_frames, void* out, size_t* out_frames,
                                                  int flags) KELDA_NOEXCEPT;

/// Forgets the signal. The rates stay as kelda_resampler_set_rates() set them.
///
/// @param resampler a resampler
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_resampler_reset(kelda_resampler* resampler) KELDA_NOEXCEPT;

/// How much later than it was offered audio comes out: what waits inside, without the filter's own
/// delay.
///
/// @param[in]  resampler a resampler
/// @param[out] latency   in ns of the input
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_resampler_get_latency(const kelda_resampler* resampler,
                                                      int64_t* latency) KELDA_NOEXCEPT;

/// Frames of room with which the next call of a KELDA_RESAMPLER_GSTREAMER keeps nothing back.
///
/// @param[in]  resampler  a resampler
/// @param[in]  in_frames  frames that the call will offer, below 2^31
/// @param[out] out_frames frames of room
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT; KELDA_NOT_SUPPORTED by the other kinds, which take no
///         more input than they have room for
KELDA_EXPORT kelda_status kelda_resampler_get_room(const kelda_resampler* resampler,
                                                   size_t in_frames,
                                                   size_t* out_frames) KELDA_NOEXCEPT;

/// @}
/// @name Drift compensator
///
/// Turns observed clock drifts into whole-numbered adjustments of a PLL or a resampler, so that the
/// local clock follows the source's: a low pass and a PID controller.
/// @{

/// A drift compensator; see kelda_compensator_create().
typedef struct kelda_compensator kelda_compensator;

/// Takes an adjustment. It runs inside kelda_compensator_update() and kelda_compensator_reset(), in
/// the thread of the caller, and must not call this compensator's functions.
///
/// @param user       as given to kelda_compensator_create()
/// @param adjustment what 1 means is the caller's choice: 1/1000 ppm, say
typedef void (*kelda_adjust_function)(void* user, int32_t adjustment);

/// How a compensator is made. There are no defaults: set every field.
struct kelda_compensator_config
{
    int32_t min_adjustment; ///< least adjustment, below the largest
    int32_t max_adjustment; ///< largest adjustment
    double kp;              ///< gain in units of the adjustment a us, above 0
    double ki;              ///< gain in units of the adjustment a us and second, not below 0
    double kd;              ///< gain in units of the adjustment a us in a second, not below 0
    int32_t sample_time_ms; ///< least time between two adjustments, at least 1 ms
    double filter_alpha;    ///< cut-off of the filter, above 0, to 1: none
};
/// How a compensator is made.
typedef struct kelda_compensator_config kelda_compensator_config;

/// Makes a compensator.
///
/// @param[in]  config      copied
/// @param[in]  function    is called with each new adjustment; may be null: ask
///                         kelda_compensator_get_adjustment()
/// @param[in]  user        handed to `function` as it is; may be null
/// @param[out] compensator the new compensator; null after an error
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_compensator_create(const kelda_compensator_config* config,
                                                   kelda_adjust_function function, void* user,
                                                   kelda_compensator** compensator) KELDA_NOEXCEPT;

/// Ends a compensator.
///
/// @param compensator may be null
KELDA_EXPORT void kelda_compensator_destroy(kelda_compensator* compensator) KELDA_NOEXCEPT;

/// Takes an observation. The first one, and the first after a restart, only reports 0; later ones
/// report when the adjustment has moved by at least 1.
///
/// @param compensator a compensator
/// @param drift       in ns; positive: the local clock is late, and has to run faster (where a
///                    larger adjustment makes it faster). The delta of kelda_queue_read() is one
/// @param now         of the observation, in ns
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_compensator_update(kelda_compensator* compensator, int64_t drift,
                                                   uint64_t now) KELDA_NOEXCEPT;

/// Begins anew at the next update: for a new stream, a seek, or a lost clock.
///
/// @param compensator a compensator
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_compensator_restart(kelda_compensator* compensator) KELDA_NOEXCEPT;

/// Forgets the drift at once, and reports an adjustment of 0.
///
/// @param compensator a compensator
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_compensator_reset(kelda_compensator* compensator) KELDA_NOEXCEPT;

/// The adjustment that was reported last.
///
/// @param[in]  compensator a compensator
/// @param[out] adjustment  0 before the first one
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_compensator_get_adjustment(const kelda_compensator* compensator,
                                                           int32_t* adjustment) KELDA_NOEXCEPT;

/// @}
/// @name Click remover
///
/// Takes the clicks out where audio starts after silence or stops abruptly: at a stream's start, a
/// gap, an underrun. The audio passes through a delay line, so that each frame is seen before it
/// leaves: where signal starts it is faded in, where it ends it is faded out, in between it is
/// silent.
/// @{

/// A click remover; see kelda_click_remover_create().
typedef struct kelda_click_remover kelda_click_remover;

/// How a click remover is made. There are no defaults: set every field. The four durations together
/// (5 ms are added) must be below 2^31 frames.
struct kelda_click_remover_config
{
    kelda_sample_type sample_type; ///< of the audio
    uint32_t sample_rate;          ///< in Hz, 1 to 2^31 - 1
    uint32_t channels;             ///< 1 to 256
    uint32_t gap_ms;               ///< silence that does not end a signal
    uint32_t margin_ms;            ///< time between a signal's edge and its fade
    uint32_t fade_ms;              ///< length of a fade; beyond 5 a fade-out can begin late
    int skip_short_signals; ///< whether a signal that is not longer than the delay is left as it
                            ///< is; otherwise its two fades meet in the middle
};
/// How a click remover is made.
typedef struct kelda_click_remover_config kelda_click_remover_config;

/// Makes a click remover.
///
/// @param[in]  config  copied
/// @param[out] remover the new click remover; null after an error
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_click_remover_create(const kelda_click_remover_config* config,
                                                     kelda_click_remover** remover) KELDA_NOEXCEPT;

/// Ends a click remover.
///
/// @param remover may be null
KELDA_EXPORT void kelda_click_remover_destroy(kelda_click_remover* remover) KELDA_NOEXCEPT;

/// Takes a block into the delay line, and gives as much from its other end. The first call
/// allocates the line; later ones nothing.
///
/// @param         remover a click remover
/// @param[in,out] data    frames, replaced in place; at least as many as there are channels, for a
///                        signal's end to be seen. May be null without frames
/// @param         frames  how many, below 2^31
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT, KELDA_OUT_OF_MEMORY
KELDA_EXPORT kelda_status kelda_click_remover_process(kelda_click_remover* remover, void* data,
                                                      size_t frames) KELDA_NOEXCEPT;

/// Takes the audio for ended, and gives what the delay line holds. Call it until `frames_left` is
/// 0.
///
/// @param[in]     remover     a click remover
/// @param[out]    data        room for `frames`; may be null without room
/// @param[in,out] frames      in: room, below 2^31; out: frames given
/// @param[out]    frames_left frames that are left in the line; may be null
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_click_remover_flush(kelda_click_remover* remover, void* data,
                                                    size_t* frames,
                                                    size_t* frames_left) KELDA_NOEXCEPT;

/// Tells that the audio will be interrupted: it is faded out before, or where the signal ended if
/// that was earlier.
///
/// @param remover  a click remover
/// @param position where, in frames since the remover was made or reset
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_click_remover_notify_underrun(kelda_click_remover* remover,
                                                              uint64_t position) KELDA_NOEXCEPT;

/// Forgets all, and fills the delay line with silence. A stream of more than 2^31 frames (12 hours
/// at 48 kHz) wants one somewhere in it.
///
/// @param remover a click remover
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_click_remover_reset(kelda_click_remover* remover) KELDA_NOEXCEPT;

/// By how much the delay line delays.
///
/// @param[in]  remover a click remover
/// @param[out] frames  gap, margin and 5 ms, in frames
/// @return KELDA_OK, KELDA_INVALID_ARGUMENT
KELDA_EXPORT kelda_status kelda_click_remover_get_delay(const kelda_click_remover* remover,
                                                        size_t* frames) KELDA_NOEXCEPT;

/// @}

#ifdef __cplusplus
}
#endif
