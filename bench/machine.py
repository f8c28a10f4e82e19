"""Builds what measures, makes the input, and runs commands."""

import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = os.path.join(ROOT, "build/bench")
MEDIA = os.path.join(WORK, "media")
PROGRAMS = os.path.join(ROOT, "build/release/bench")
LAP_S = 20
MEMORY_BYTES = 2 << 30
FFMPEG = ["ffmpeg", "-nostdin", "-v", "error", "-y"]

# As a camera's streams: the key frame every two seconds, no B frames; name: picture size, bits a second.
STREAMS = {"main": ("1920x1080", 4000000), "sub": ("640x360", 500000), "tiny": ("64x48", 20000)}


class Failure(Exception):
    """What went wrong, in a sentence for the user."""


def say(message):
    print(message, file=sys.stderr, flush=True)


def run(command, **options):
    """Runs a command. Returns its standard output."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, text=True,
                          errors="replace", **options)
    if done.returncode != 0:
        raise Failure(f"{' '.join(command[:3])} ... failed:\n{done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done.stdout


def build():
    say("Building")
    run(["cmake", "--preset", "release"], cwd=ROOT)
    run(["cmake", "--build", "--preset", "release", "--target", "benchmarks", "-j2"], cwd=ROOT)


def make_media():
    """Elementary streams of a lap; whoever needs more repeats it."""
    os.makedirs(MEDIA, exist_ok=True)
    for name, (size, rate) in STREAMS.items():
        stem = os.path.join(MEDIA, name)
        if not os.path.exists(stem + ".aac"):
            run([*FFMPEG, "-f", "lavfi", "-i", f"testsrc2=s={size}:r=25:d={LAP_S}", "-c:v", "libx264",
                 "-preset", "veryfast", "-b:v", str(rate), "-minrate", str(rate), "-maxrate", str(rate),
                 "-bufsize", str(rate), "-g", "50", "-bf", "0", "-x264-params", "aud=1:nal-hrd=cbr", stem + ".h264"])
            run([*FFMPEG, "-f", "lavfi", "-i", f"sine=440:r=16000:d={LAP_S}", "-c:a", "aac", "-b:a", "32k",
                 stem + ".aac"])


def make_movie(path, megabytes):
    """The main stream as one MP4 file of so many megabytes."""
    if os.path.exists(path):
        return
    stem = os.path.join(MEDIA, "main")
    with tempfile.TemporaryDirectory(dir=WORK) as folder:
        lap = os.path.join(folder, "lap.mp4")
        run([*FFMPEG, "-r", "25", "-i", stem + ".h264", "-i", stem + ".aac", "-c", "copy", lap])
        laps = -(-megabytes * 1000000 // os.path.getsize(lap))
        run([*FFMPEG, "-stream_loop", str(laps - 1), "-i", lap, "-c", "copy", path])


class Folder:
    """A folder that goes again: in memory where the machine has the room for that, else on the disk."""

    def __init__(self, in_memory):
        memory = "/dev/shm"
        fits = in_memory and os.path.isdir(memory) and shutil.disk_usage(memory).free > MEMORY_BYTES
        if in_memory and not fits:
            say(f"{memory} has not {MEMORY_BYTES >> 30} GiB of room: cards are made on the disk, which is slower, and "
                "whose folders have an order of their own")
        os.makedirs(WORK, exist_ok=True)
        self.path = tempfile.mkdtemp(prefix="ifs-bench-", dir=memory if fits else WORK)

    def __enter__(self):
        return self.path

    def __exit__(self, *_):
        shutil.rmtree(self.path, ignore_errors=True)


def processor_seconds(command):
    """(processor seconds, standard output) of a whole process."""
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace") as process:
        output, diagnostics = process.stdout.read(), process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise Failure(f"{' '.join(command[:3])} ... failed: {output[-500:]}{diagnostics[-500:]}")
    return usage.ru_utime + usage.ru_stime, output


def describe():
    """The machine, in a few words."""
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as info:
        model = re.search(r"^model name\s*: (.*)$", info.read(), re.MULTILINE)
    return f"{model.group(1) if model else platform.machine()}, {os.cpu_count()} cores, Linux {platform.release().split('-')[0]}"
