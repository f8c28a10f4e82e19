"""Takes the figures of the table. Each is the list of a few samples, taken in turn with those that it is compared with."""

import collections
import json
import os
import re
import time

from bench import counts
from bench.machine import FFMPEG, MEDIA, PROGRAMS, WORK, Failure, Folder, make_movie, processor_seconds, run, say

MEGABYTES = 150
IN_PROCESS = ("play", "mount", "probe", "search", "close", "format", "seek")


def record(figures, rounds):
    """Processor seconds of recording, beside those of whole processes that copy the same bytes."""
    movie = os.path.join(WORK, "movie.mp4")
    make_movie(movie, MEGABYTES)
    for round_number in range(-1, rounds):  # the first one warms caches
        with Folder(in_memory=False) as folder:
            commands = {
                "ours": [f"{PROGRAMS}/record_bench", f"{folder}/card", MEDIA, str(MEGABYTES)],
                # Nothing durable costs less.
                "limit": ["sh", "-c", 'cp "$1" "$2" && sync "$2"', "sh", movie, f"{folder}/copy.mp4"],
                "peer": [*FFMPEG, "-i", movie, "-c", "copy", "-f", "segment", "-segment_time", "60", f"{folder}/%03d.mp4"],
            }
            for role, command in commands.items():
                seconds, output = processor_seconds(command)
                if role == "ours":
                    seconds = float(re.search(r"^recording: ([\d.]+) s$", output, re.MULTILINE).group(1))
                if round_number >= 0:
                    figures["record", "record", 0][role].append(seconds)


def in_process(figures, rounds):
    """The rows that ifs_bench registers, by Google Benchmark, which takes the repetitions in random turn; on one processor,
    as a camera has, or the worker that builds the catalogue would find cold caches where the limit finds warm ones."""
    processor = str(max(os.sched_getaffinity(0)))
    for row in IN_PROCESS:
        say(f"  {row}")
        with Folder(in_memory=True) as memory, Folder(in_memory=False) as disk:
            results = os.path.join(memory, "results.json")
            run(["taskset", "-c", processor, f"{PROGRAMS}/ifs_bench", MEDIA, memory, disk, f"--benchmark_filter=^{row}/",
                 f"--benchmark_repetitions={rounds}", "--benchmark_enable_random_interleaving=true",
                 f"--benchmark_out={results}", "--benchmark_out_format=json"])
            with open(results, encoding="utf-8") as file:
                take(figures, json.load(file)["benchmarks"])


def take(figures, benchmarks):
    for benchmark in benchmarks:
        if benchmark.get("error_occurred"):
            raise Failure(f"{benchmark['name']}: {benchmark['error_message']}")
        if benchmark["run_type"] == "iteration":
            row, variant, role, size = benchmark["name"].split("/")[:4]
            scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}[benchmark["time_unit"]]
            figures[row, variant, int(size)][role].append(benchmark["real_time"] * scale)


def whole_processes(figures, rounds):
    """The peers of probing and formatting, a process each."""
    with Folder(in_memory=True) as folder:
        processor_seconds([f"{PROGRAMS}/record_bench", f"{folder}/card", MEDIA, "1"])
        recording = next(entry.path for entry in os.scandir(f"{folder}/card/files") if entry.name.startswith("Rec_"))
        for round_number in range(-1, rounds):
            probe = wall_seconds(["ffprobe", "-v", "error", "-show_format", "-show_streams", recording])
            formats = {}
            for gigabytes in (8, 128):
                image = f"{folder}/image"
                with open(image, "wb") as file:
                    file.truncate(gigabytes * 10**9)
                formats[gigabytes] = wall_seconds(["/sbin/mkfs.fat", "-F", "32", "-s", "128", image])
                os.remove(image)
            if round_number >= 0:
                figures["probe", "index lost", 16000]["peer"].append(probe)
                for gigabytes, seconds in formats.items():
                    figures["format", "format", gigabytes]["peer"].append(seconds)


def wall_seconds(command):
    begin = time.monotonic()
    run(command)
    return time.monotonic() - begin


def measure(rounds):
    figures = collections.defaultdict(lambda: collections.defaultdict(list))  # (row, variant, size) -> role -> samples
    say("Recording, beside cp and ffmpeg")
    record(figures, rounds)
    say("Playing, mounting, searching, closing, formatting")
    in_process(figures, rounds)
    say("ffprobe and mkfs.fat")
    whole_processes(figures, rounds)
    say("Counting instructions, allocations and memory")
    counted = counts.count()
    counted.update(counts.count_growth())
    figures["frame", "instructions", 0]["ours"] = [counted["write: instructions a frame"]]
    figures["frame", "allocations", 0].update(ours=[counted["record: allocations in 4 minutes"]], limit=[0])
    figures["heap", "heap", 16000].update(ours=[counted["heap: bytes with 16,000 recordings"]], limit=[16000 * 124])
    figures["heap", "growth", 0].update(ours=[counted["heap: bytes left by 10,000 recordings"]], limit=[0])
    return figures, counted
