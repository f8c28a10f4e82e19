"""Power cuts: after any of them the card mounts, and what was promised by then is there and plays.

One guest does the job on a card whose writes are logged; cards as cuts leave them are made from the log and judged on the
host; some of them are put into a guest, too, where a real kernel must come to the same result and damage nothing.

A cut that broke a promise can be judged again: python3 -m tests.vm.scenarios.power_cut FOLDER --seed S --cut N
"""

import argparse
import os
import random
import re
import shutil
import statistics
from collections import Counter
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

from .. import footage
from ..cut_judge import LASTING_HAZARDS, REPORT_LINE, Judge
from ..fat_reader import Fat
from ..guest import ROOT
from ..machine import check, sparse
from ..write_log import FIRST_SECTOR, SECTOR, WriteLog, logged_card

START = 1777809600  # 2026-05-03 12:00:00 UTC
CARD_BYTES = 200 << 20  # small, so that deleted space is used again
IMAGES_A_BOOT = 10
SCENES = {"main.frames": "320x240", "sub.frames": "160x120"}
# Where reserved clusters were linked to a free one, the kernel names that when they are cut off; nothing else may be wrong.
KERNEL_ERROR = re.compile(r"FAT-fs \(\w+\): error(?!, fat_free_clusters)")
# The kernel writes what is not synced after a second instead of half a minute: stream time is short here, too.
FRAMES = "/data/main.frames /data/sub.frames"
LOGGED = f"""
echo 100 >/proc/sys/vm/dirty_expire_centisecs
echo 50 >/proc/sys/vm/dirty_writeback_centisecs
logged() {{ host $KERNEL log /dev/sda "$@"; }}
logged format mount pairs {FRAMES} {START} 2 12 sync pairs {FRAMES} {START + 600} 2 20 unmount
logged mount pairs {FRAMES} {START + 1200} 1 15 interrupt {FRAMES} {START + 1800} 17
umount /card
logged mount pairs {FRAMES} {START + 2400} 1 9 unmount
logged mount interrupt {FRAMES} {START + 2700} 11
umount /card
logged mount pairs {FRAMES} {START + 3000} 60 1 overlap-to 12 pairs {FRAMES} {START + 7200} 3 7 unmount
logged format mount pairs {FRAMES} {START + 9000} 1 8 unmount
"""


def run(bench, kernel="", cuts=0):
    """kernel: a step of the host that comes first."""
    frames = scenes(bench.work)
    image, log_path = sparse(bench.image("card"), CARD_BYTES), sparse(bench.work / "writes.log", 0)
    bench.boot(f"KERNEL={kernel}\n{LOGGED}", logged_card(image, log_path), files=frames, seconds=600)
    log = WriteLog(log_path, CARD_BYTES)
    cuts = choose(log, cuts or (1000 if bench.long else 100))
    verdicts = judge_all(bench.work, cuts)
    broken = [f"--seed {seed} --cut {cut} ({verdict.phase}): {sentence}"
              for (cut, seed), verdict in verdicts.items() for sentence in verdict.broken]
    # Those first that only a kernel can tell.
    chosen = sorted((cut for cut in verdicts if verdicts[cut].phase != "format"),
                    key=lambda cut: -len(verdicts[cut].hazards))[:50 if bench.long else 10]
    broken += on_a_kernel(bench, log, chosen, verdicts, frames)
    check(not broken, f"{len(broken)} promises are broken: " + "; ".join(broken[:20]))
    phases = Counter(verdict.phase for verdict in verdicts.values())
    lost = sorted(ms for verdict in verdicts.values() for ms in verdict.lost_ms)
    return (f"{len(verdicts)} cuts ({', '.join(f'{count} {phase}' for phase, count in sorted(phases.items()))}), "
            f"{sum(verdict.recordings for verdict in verdicts.values())} recordings checked, lost of those being made: "
            f"p50 {statistics.median(lost) / 1000:.2f} s, most {lost[-1] / 1000:.2f} s; "
            f"{sum(len(verdict.left_out) for verdict in verdicts.values())} with frames left out, "
            f"{sum(verdict.damaged for verdict in verdicts.values())} damaged frames played; "
            f"{len(chosen)} on a kernel; no promise broken")


def scenes(folder):
    for name, size in SCENES.items():
        if not (folder / name).exists():
            footage.write(folder / name, footage.SECONDS, size)
    return {name: folder / name for name in SCENES}


def choose(log, count):
    """Cuts, as many in each phase: (number of entries in front of it, seed)."""
    phases = {}
    for number, entry in enumerate(log.entries):
        if entry.sectors and not entry.mark:
            phases.setdefault(entry.phase, []).append(number + 1)
    names = sorted(phases)
    return [(random.Random(seed).choice(phases[names[seed % len(names)]]), seed) for seed in range(count)]


def judge_all(folder, cuts):
    """{(cut, seed): Verdict}"""
    cuts = sorted(cuts)
    workers = os.cpu_count() or 1
    shares = [cuts[len(cuts) * i // workers:len(cuts) * (i + 1) // workers] for i in range(workers)]
    with ProcessPoolExecutor(workers) as pool:
        parts = pool.map(judge_share, [folder] * workers, range(workers), shares)
        return {cut: verdict for part in parts for cut, verdict in part.items()}


def judge_share(folder, number, cuts):
    log = WriteLog(folder / "writes.log", CARD_BYTES)
    place = folder / f"judge{number}"
    place.mkdir(exist_ok=True)
    judge = Judge(place, ROOT / "build/release", scenes(folder).values())
    return {(cut, seed): judge.judge(card, log.marks(cut), log.entries[cut - 1].phase)
            for cut, seed, card in log.cuts(place, cuts)}


def on_a_kernel(bench, log, cuts, verdicts, frames):
    """Mount the cards in a guest, play and record on; sentences for what differs from the host or got worse."""
    broken = []
    cuts = [cut for cut in sorted(cuts) if verdicts[cut].report]
    for begin in range(0, len(cuts), IMAGES_A_BOOT):
        part = cuts[begin:begin + IMAGES_A_BOOT]
        images = [bench.image(f"cut{number}") for number, _ in enumerate(part)]
        for image, (_, _, card) in zip(images, log.cuts(bench.work, part)):
            write_image(image, card)
        # One disk at a time is the card: no others are linked by the guest's own loop.
        said = bench.boot("kill $!" + "".join(steps(number) for number, _ in enumerate(part)), disks(images),
                          files=frames, seconds=60 + 40 * len(part), sound=False)
        broken += [f"--cut {part} on a kernel: it says {line}" for line in said.text("kernel.log").splitlines()
                   if KERNEL_ERROR.search(line)]
        for image, cut, lines in zip(images, part, split(said.lines)):
            sentences = compare(verdicts[cut].report, lines) + damage(image)
            broken += [f"--seed {cut[1]} --cut {cut[0]} on a kernel: {sentence}" for sentence in sentences]
    return broken


def write_image(path, card):
    with open(path, "wb") as image, open(card.partition, "rb") as partition:
        image.write(card.head)
        shutil.copyfileobj(partition, image)


def disks(images):
    options = ["-device", "virtio-scsi-pci,id=bus"]
    for number, image in enumerate(images):
        options += ["-drive", f"if=none,id=disk{number},format=raw,file={image},cache=unsafe", "-device",
                    f"scsi-hd,drive=disk{number},scsi-id={number},product={model(number)}"]
    return options


def model(number):
    """What tells a disk in the guest: the kernel names disks in the order in which they answer."""
    return f"cut{number:02}"


def steps(number):
    return f"""
echo "image {number}"
path=$(grep -l {model(number)} /sys/block/sd*/device/model) && disk=${{path#/sys/block/}} && disk=${{disk%%/*}}
rm -rf /dev/hd && mkdir /dev/hd && ln -s ../$disk /dev/hd/sda && ln -s ../${{disk}}1 /dev/hd/sda1
host report {FRAMES} mount pairs {FRAMES} {START + 90000} 2 3 unmount report {FRAMES}
"""


def split(lines):
    """The reports of each image: [[first, second], ...]"""
    reports = []
    for line in lines:
        if line.startswith("image "):
            reports.append([])
        elif line.startswith("mounted"):
            reports[-1].append([line])
        elif REPORT_LINE.fullmatch(line):
            reports[-1][-1].append(line)
    return reports


def compare(host, reports):
    if len(reports) != 2:
        return ["the card does not mount"]
    first, second = reports
    sentences = [f"the kernel's card has: {line}" for line in first if line not in host]
    sentences += [f"the virtual card has: {line}" for line in host if line not in first]
    return sentences + [f"recording on spoils: {line}" for line in first[1:] if line not in second]


def damage(image):
    data = image.read_bytes()
    hazards = Fat(data[FIRST_SECTOR * SECTOR:]).hazards()
    return [f"after mounting and recording {name} is {hazard}" for hazard in LASTING_HAZARDS
            for name in hazards.get(hazard, [])]


def main():
    parser = argparse.ArgumentParser(prog="tests.vm.scenarios.power_cut", description="Judge one cut again.")
    parser.add_argument("folder", type=Path, help="what a failed run has kept")
    parser.add_argument("--seed", type=int, required=True)
    parser.add_argument("--cut", type=int, required=True)
    chosen = parser.parse_args()
    for verdict in judge_share(chosen.folder, 0, [(chosen.cut, chosen.seed)]).values():
        print(verdict.phase, verdict.hazards, *verdict.fsck, *verdict.report, *verdict.broken, sep="\n")


if __name__ == "__main__":
    main()
