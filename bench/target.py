"""Counts the instructions that a mount and a close take on the camera's processor: python3 -m bench.target [--json FILE]

A virtual camera runs Debian's kernel with a clock that counts executed instructions, 2 ns each, as on a processor of 500
million instructions a second. The cards are filled from outside: tiny recordings, index files intact. Beside each figure
stands the limit, from the same boot: of a mount mount(2) and reading the directory and both index files with plain calls,
of a close the container's flush and close of the same recording (a minute of 1,500 frames of 1,000 bytes). Instructions
are those of the process, in the kernel too. The seconds passed hold waiting for an emulated card, which is no measure of
a real one; what is read of it is.
"""

import argparse
import itertools
import json
import random
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from tests.vm.guest import ROOT, Unavailable, guest
from tests.vm.image import Card, Filler, copy_data, record_name
from tests.vm.machine import Failed, Machine, check, ide_card, sparse

PRESET = "mipsel"
PROGRAM = ROOT / "build" / PRESET / "bench/target_guest"
CARD_BYTES = 4 << 30
INSTRUCTION_NS = 2
# The guest waits for its clock to step when it boots; from a fixed time it does so in the same way each time.
COUNTING = ["-icount", "shift=1,sleep=off", "-rtc", "base=2026-05-09T12:00:00,clock=vm"]
CLOCK_TURNS = 50000000  # of two instructions
CLOCK_TOLERANCE = 0.03
START = 1778328000  # 2026-05-09 12:00:00 UTC
RECORDING_BYTES = 1000
RECORDINGS = (1000, 4000, 16000)
MOUNT_ROUNDS = 3
BOOT_SECONDS = 900  # of the host

MEASURE = f"""
card() {{
    read -r requests merged sectors rest </sys/block/sda/stat
}}
measure() {{
    sync
    echo 3 >/proc/sys/vm/drop_caches
    card
    before=$sectors
    /data/target_guest "$@" >/dev/null
    card
    echo "RESULT card work=$1 read_bytes=$((512 * (sectors - before)))"
}}
measure clock {CLOCK_TURNS}
"""
MOUNTS = """
measure bare
measure limit {recordings}
umount /card
measure mount {recordings}
""" * MOUNT_ROUNDS
CLOSES = "measure close {recordings}\n"


def in_order(items):
    return items


def rotated(items):
    """As on a card that has wrapped: the newest third lies where the oldest recordings were."""
    split = len(items) - len(items) // 3
    return items[split:] + items[:split]


def shuffled(items):
    return random.Random(1).sample(items, len(items))


ORDERS = {"as created": in_order, "rotated": rotated, "shuffled": shuffled}


class Cards:
    """Makes cards of one formatted by the library."""

    def __init__(self, camera, work):
        self.work, self.blank = work, sparse(work / "blank.img", CARD_BYTES)
        Machine(camera, work / "format", ide_card(self.blank)).run("host format")

    def filled(self, recordings, order):
        """A card with so many recordings, main and sub stream in turn a minute apart."""
        card = Card(copy_data(self.blank, self.work / "card.img", 0, CARD_BYTES))
        if not recordings:
            return card.path
        all_of_them = [(START + 60 * (number // 2), number % 2) for number in range(recordings)]
        indexes = [(f"system_index_{name}", index_file([one for one in all_of_them if one[1] == stream]))
                   for stream, name in enumerate(("main", "sub"))]
        Filler(card).add(indexes + [(record_name(*one), RECORDING_BYTES) for one in order(all_of_them)])
        return card.path


def index_file(recordings):
    return b"system_index_v1" + b"".join(index_item(*recording) for recording in recordings)


def index_item(start, stream):
    """Codes as in record_name(), 25 frames a second, 16 x 16, no audio."""
    return struct.pack("<4s44s44s4B8i", b"ITEM", packed_time(start), packed_time(start + 59), 6, 1, 25, 0, stream,
                       16, 16, 0, 2, 11, 1, RECORDING_BYTES)


def packed_time(seconds):
    utc = time.gmtime(seconds)
    return struct.pack("<6i20x", utc.tm_sec, utc.tm_min, utc.tm_hour, utc.tm_mday, utc.tm_mon - 1, utc.tm_year - 1900)


def boot(camera, work, card, script):
    """Run the guest's measurements; its clock must count instructions."""
    run = Machine(camera, work / "boot", [*ide_card(card), *COUNTING]).run(
        MEASURE + script, {"target_guest": PROGRAM}, seconds=BOOT_SECONDS)
    clock = run.results("clock")[0]
    for kind in ("cpu_ns", "clock_ns"):
        off = clock[kind] / (2 * CLOCK_TURNS * INSTRUCTION_NS) - 1
        check(abs(off) <= CLOCK_TOLERANCE, f"{2 * CLOCK_TURNS} instructions take {clock[kind]} ns")
    return run


def median(found, key):
    return statistics.median(one[key] for one in found)


def row(recordings, order, run, work, limit):
    """Figures of a piece of work and of its limit, the medians of their rounds."""
    ours, least = ({"instructions": median(run.results(name), "cpu_ns") // INSTRUCTION_NS,
                    "clock_seconds": median(run.results(name), "clock_ns") / 1e9} for name in (work, limit))
    return {"work": work, "recordings": recordings, "order": order, "ours": ours, "limit": least,
            "ratio": ours["instructions"] / least["instructions"],
            "processor_seconds": ours["instructions"] * INSTRUCTION_NS / 1e9}


def measure(camera, work, cards, recordings, order):
    """Rows of one card: of a mount if there are recordings, of a close if they lie in the order of creation."""
    closes = order == "as created"
    script = (MOUNTS if recordings else "") + (CLOSES if closes else "")
    run = boot(camera, work, cards.filled(recordings, ORDERS[order]), script.format(recordings=recordings))
    if recordings:
        made = row(recordings, order, run, "mount", "limit")
        made["bare_instructions"] = median(run.results("bare"), "cpu_ns") // INSTRUCTION_NS
        for name, figures in (("mount", made["ours"]), ("limit", made["limit"])):
            figures["read_bytes"] = median([one for one in run.results("card") if one["work"] == name], "read_bytes")
        yield made
    if closes:
        yield row(recordings, order, run, "close", "container")


def heading():
    return (f"{'':32}{'million instructions':>20}{'':8}{'seconds of':>12}{'seconds passed':>16}{'KiB read':>16}\n"
            f"{'work':8}{'recordings':>10}  {'order':12}{'ours':>10}{'limit':>10}{'ratio':>8}{'processor':>12}"
            + f"{'ours':>8}{'limit':>8}" * 2)


def line(made):
    ours, limit = made["ours"], made["limit"]
    read = [f"{one['read_bytes'] // 1024:8}" for one in (ours, limit) if "read_bytes" in one]
    return (f"{made['work']:8}{made['recordings']:10}  {made['order']:12}{ours['instructions'] / 1e6:10.2f}"
            f"{limit['instructions'] / 1e6:10.2f}{made['ratio']:8.2f}{made['processor_seconds']:12.3f}"
            f"{ours['clock_seconds']:8.3f}{limit['clock_seconds']:8.3f}{''.join(read)}")


def build():
    for command in (["cmake", "--preset", PRESET],
                    ["cmake", "--build", "--preset", PRESET, "-j2", "--target", "target_guest", "vm_host"]):
        done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
        check(done.returncode == 0, f"{' '.join(command)} fails:\n{done.stdout}{done.stderr}")


def main():
    parser = argparse.ArgumentParser(prog="bench.target", description=__doc__.splitlines()[0])
    parser.add_argument("--json", metavar="FILE", help="write the figures there, too")
    parser.add_argument("--recordings", metavar="NUMBER", type=int, nargs="+", default=RECORDINGS)
    chosen = parser.parse_args()
    work = Path(tempfile.mkdtemp(prefix="ifs-target-"))
    try:
        build()
        camera = guest(PRESET)
        cards = Cards(camera, work)
        print(heading(), flush=True)
        rows = []
        for recordings, order in [(0, "as created"), *itertools.product(chosen.recordings, ORDERS)]:
            for made in measure(camera, work, cards, recordings, order):
                rows.append(made)
                print(line(made), flush=True)
    except (Failed, Unavailable) as reason:
        sys.exit(f"bench.target: {reason}; the files are in {work}")
    if chosen.json:
        Path(chosen.json).write_text(json.dumps(rows, indent=2) + "\n", encoding="utf-8")
    shutil.rmtree(work)


if __name__ == "__main__":
    main()
