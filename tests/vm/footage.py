"""Real footage for the guest: H.264 and AAC from ffmpeg as frame lists, which vm_host reads."""

import re
import struct
import subprocess

I_FRAME, P_FRAME, AUDIO = 0, 1, 3
SECONDS = 8
RATE, SAMPLES_A_SECOND, SAMPLES_A_FRAME = 25, 44100, 1024


def encode(seconds, size, *format_options):
    command = ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=rate={RATE}:size={size}", "-f", "lavfi", "-i",
               f"sine=sample_rate={SAMPLES_A_SECOND}", "-t", str(seconds), *format_options, "-"]
    return subprocess.run(command, check=True, capture_output=True).stdout


def video_frames(stream):
    """Access units, each behind its delimiter, with start codes of 4 bytes as the library hands them out."""
    stream = re.sub(rb"\0{2,3}\x01", b"\0\0\0\1", stream)
    for number, unit in enumerate(stream.split(b"\0\0\0\1\x09")[1:]):
        kind = I_FRAME if b"\0\0\0\1\x65" in unit else P_FRAME
        yield number * 1000000 // RATE, kind, b"\0\0\0\1\x09" + unit


def audio_frames(stream):
    at = number = 0
    while at < len(stream):
        length = int.from_bytes(stream[at + 3:at + 6], "big") >> 5 & 0x1fff
        yield number * SAMPLES_A_FRAME * 1000000 // SAMPLES_A_SECOND, AUDIO, stream[at:at + length]
        at, number = at + length, number + 1


def write(path, seconds, size):
    """Write a frame list: for each frame type, time in us and length, then its bytes."""
    video = encode(seconds, size, "-map", "0:v", "-c:v", "libx264", "-preset", "ultrafast", "-x264-params",
                   f"aud=1:keyint={RATE}:bframes=0:threads=1", "-pix_fmt", "yuv420p", "-f", "h264")
    audio = encode(seconds, size, "-map", "1:a", "-c:a", "aac", "-b:a", "48k", "-f", "adts")
    save(path, sorted([*video_frames(video), *audio_frames(audio)], key=lambda frame: frame[0]))


def save(path, frames):
    with open(path, "wb") as file:
        for pts_us, kind, data in frames:
            file.write(struct.pack("<iQI", kind, pts_us, len(data)) + data)


def load(path):
    data, at = path.read_bytes(), 0
    while at < len(data):
        kind, pts_us, length = struct.unpack_from("<iQI", data, at)
        at += 16 + length
        yield pts_us, kind, data[at - length:at]


def fatten(source, target, size):
    """Copy a frame list, its video frames blown up with filler NAL units to about that size in all."""
    frames = list(load(source))
    missing = size - sum(len(data) for _, _, data in frames)
    unit = filler(missing // sum(kind != AUDIO for _, kind, _ in frames))
    save(target, [(pts_us, kind, data if kind == AUDIO else data + unit) for pts_us, kind, data in frames])


def filler(size):
    return b"\0\0\0\1\x0c" + b"\xff" * (size - 6) + b"\x80" if size > 6 else b""


def shoot(folder):
    """Footage of some seconds: a main and a sub stream, one of 1 MiB, one of a few KiB. Returns the files by name."""
    scenes = {"main.frames": (SECONDS, "640x480"), "sub.frames": (SECONDS, "320x240"), "tiny.frames": (1, "64x48")}
    for name, scene in scenes.items():
        write(folder / name, *scene)
    fatten(folder / "sub.frames", folder / "fat.frames", 1 << 20)
    return {name: folder / name for name in [*scenes, "fat.frames"]}
