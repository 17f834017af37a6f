#!/usr/bin/python3
"""Plays a second of a sine, or a 16-bit WAV file that is named, through a queue to a simulated sound
card, by the C interface of the library: KELDA_AUDIO_LIBRARY names its file where the system does not
know it."""

import array
import ctypes
import ctypes.util
import math
import os
import sys
import threading
import wave
from ctypes import POINTER, c_char_p, c_int, c_int64, c_size_t, c_uint32, c_uint64, c_void_p

ABORTED, MS = -7, 1_000_000  # ns


class DeviceConfig(ctypes.Structure):
    _fields_ = [("format", c_int), ("sample_rate", c_uint32), ("channels", c_uint32),
                ("buffer_size", c_uint64), ("period_size", c_uint64), ("start_threshold", c_uint64),
                ("allow_resampling", c_int), ("channel_map", c_char_p)]


class QueueConfig(ctypes.Structure):
    _fields_ = [("timestamping", c_int), ("capacity_ms", c_uint32), ("sample_rate", c_uint32),
                ("channels", c_uint32), ("bytes_per_sample", c_uint32), ("name", c_char_p),
                ("smoothing", c_int), ("jump_threshold", c_uint64), ("smoothing_threshold", c_uint64)]


class QueueCounters(ctypes.Structure):
    _fields_ = [(name, c_uint64) for name in
                ("inserted_frames", "resets", "silence_frames", "skipped_frames", "underruns")]


def load():
    """The library, with the types of the functions that are used here; errors become exceptions."""
    name = os.environ.get("KELDA_AUDIO_LIBRARY") or ctypes.util.find_library("kelda_audio")
    library = ctypes.CDLL(name or "libkelda_audio.so.1")
    library.kelda_status_text.argtypes, library.kelda_status_text.restype = [c_int], c_char_p
    library.kelda_now.argtypes, library.kelda_now.restype = [], c_uint64

    def check(status, function, _):
        if status < 0 and status != ABORTED:
            raise RuntimeError(f"{function.__name__}: {library.kelda_status_text(status).decode()}")
        return status

    for name, *arguments in (
            ("device_create", c_int, POINTER(c_void_p)),
            ("device_open", c_void_p, c_char_p, POINTER(DeviceConfig)),
            ("device_write", c_void_p, c_void_p, c_size_t),
            ("device_get_delay", c_void_p, POINTER(c_int64)),
            ("device_drain", c_void_p),
            ("device_destroy", c_void_p),
            ("queue_create", POINTER(c_void_p)),
            ("queue_configure", c_void_p, POINTER(QueueConfig)),
            ("queue_write", c_void_p, c_uint64, c_void_p, c_size_t),
            ("queue_read", c_void_p, c_uint64, c_void_p, c_size_t, POINTER(c_size_t), POINTER(c_int64)),
            ("queue_abort_write", c_void_p),
            ("queue_get_counters", c_void_p, POINTER(QueueCounters)),
            ("queue_destroy", c_void_p)):
        function = getattr(library, "kelda_" + name)
        function.argtypes = arguments
        if name.endswith("destroy"):
            function.restype = None
        else:
            function.restype, function.errcheck = c_int, check
    return library


def audio(arguments):
    """Sample rate, channels and frames (bytes) of the file, or of a sine."""
    if arguments:
        with wave.open(arguments[0]) as file:
            if file.getsampwidth() != 2:
                sys.exit(f"{arguments[0]}: not 16 bits a sample")
            return file.getframerate(), file.getnchannels(), file.readframes(file.getnframes())
    rate = 48000
    tone = (round(10000 * math.sin(2 * math.pi * 440 * n / rate)) for n in range(rate))
    return rate, 2, array.array("h", (sample for sample in tone for _ in range(2))).tobytes()


def main():
    kelda = load()
    rate, channels, sound = audio(sys.argv[1:])
    block, frame_bytes = rate // 100, 2 * channels  # 10 ms

    device = c_void_p()
    kelda.kelda_device_create(0, device)  # the simulated one
    kelda.kelda_device_open(device, b"speaker", DeviceConfig(
        format=0, sample_rate=rate, channels=channels, buffer_size=4 * block, period_size=block,
        start_threshold=2 * block))
    queue = c_void_p()
    kelda.kelda_queue_create(queue)
    kelda.kelda_queue_configure(queue, QueueConfig(
        timestamping=1, capacity_ms=200, sample_rate=rate, channels=channels, bytes_per_sample=2,
        name=b"example", smoothing=1, jump_threshold=20 * MS, smoothing_threshold=10 * MS))

    frames = len(sound) // frame_bytes
    start = kelda.kelda_now() + 100 * MS
    end = start + frames * 1000 * MS // rate

    def produce():
        for n in range(0, frames, block):
            packet = sound[n * frame_bytes:(n + block) * frame_bytes]
            pts = start + n * 1000 * MS // rate  # when its first frame is to be heard
            if kelda.kelda_queue_write(queue, pts, packet, len(packet) // frame_bytes) == ABORTED:
                return

    producer = threading.Thread(target=produce)
    producer.start()
    out = ctypes.create_string_buffer(block * frame_bytes)
    taken, delay, delta, due = c_size_t(), c_int64(), c_int64(), 0
    while due < end:
        kelda.kelda_device_get_delay(device, delay)
        due = kelda.kelda_now() + delay.value
        kelda.kelda_queue_read(queue, due, out, block, taken, delta)  # what is to be heard then
        used = taken.value * frame_bytes
        ctypes.memset(ctypes.addressof(out) + used, 0, len(out) - used)  # pad an underrun
        kelda.kelda_device_write(device, out, block)  # paces this loop
    kelda.kelda_queue_abort_write(queue)  # nobody reads any more
    producer.join()
    kelda.kelda_device_drain(device)

    counters = QueueCounters()
    kelda.kelda_queue_get_counters(queue, counters)
    print(f"{frames} frames, {counters.skipped_frames} skipped, {counters.underruns} underruns")
    kelda.kelda_queue_destroy(queue)
    kelda.kelda_device_destroy(device)


main()
