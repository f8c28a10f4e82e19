"""Runs scenarios on a real kernel in virtual machines: python3 -m tests.vm [--long] x86|mipsel|all [SCENARIO]

Prints a line for each scenario and target; ends with status 1 when one fails.
"""

import argparse
import importlib
import shutil
import sys
import tempfile
import time
import traceback
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from . import footage
from .guest import TARGETS, Unavailable, guest
from .image import copy_data
from .machine import Failed, Machine, check, ide_card, sparse

SCENARIOS = ["format", "overlap", "remount", "directory_full", "faults", "power_cut", "old_kernel", "sync_cost"]
LOG_TAIL = 25  # lines
CARD_BYTES = 4 << 30
PREPARE = """
host format mount record 0 /data/tiny.frames /data/tiny.frames unmount
mount -t vfat /dev/sda1 /card
cp /card/Rec_*_M.mp4 /out/recording
umount /card
host format
"""


class Bench:
    """What a scenario works with: a folder of its own, footage, guests that boot."""

    def __init__(self, guest, work, footage, long):
        self.guest, self.work, self.footage, self.long = guest, work, footage, long
        self.boots = 0

    def image(self, name):
        return self.work / f"{name}.img"

    def boot(self, script, card, sound=True, **options):
        """Machine.run() in a folder of its own, with the footage as files of /data.

        Fails, too, when the kernel complains of the file system, unless the card is not to be sound.
        """
        self.boots += 1
        files = {**self.footage, **options.pop("files", {})}
        run = Machine(self.guest, self.work / f"boot{self.boots}", card).run(script, files, **options)
        complaints = [line for line in run.text("kernel.log").splitlines() if "FAT-fs" in line] if sound else []
        check(not complaints, f"the kernel says: {complaints}")
        return run

    def card(self, name):
        """A 4 GiB card as the library formats it, empty."""
        return copy_data(self.prepared() / "card.img", self.image(name), 0, CARD_BYTES)

    def recording(self):
        """The bytes of a recording of a second, finished by the library."""
        return (self.prepared() / "boot/out/recording").read_bytes()

    def prepared(self):
        """What all scenarios of a target share, made at its first use."""
        folder = self.work.parent / f"{self.guest.target.name}-prepared"
        if not folder.exists():
            folder.mkdir()
            image = sparse(folder / "card.img", CARD_BYTES)
            Machine(self.guest, folder / "boot", ide_card(image)).run(PREPARE, self.footage)
        return folder

    def log_tail(self):
        logs = [self.work / f"boot{self.boots}" / name for name in ("out/library.log", "console.log")]
        return [f"    {line}" for log in logs if log.exists()
                for line in [f"{log}:", *log.read_text(encoding="utf-8", errors="replace").splitlines()[-LOG_TAIL:]]]


def run_scenario(name, guest, work, frames, long):
    """Returns whether it held."""
    begin = time.monotonic()
    folder = work / f"{guest.target.name}-{name}"
    folder.mkdir()
    bench = Bench(guest, folder, frames, long)
    try:
        said = importlib.import_module(f".scenarios.{name}", __package__).run(bench)
        held, lines = True, []
        shutil.rmtree(folder)
    except Exception as failure:  # a defect of the judge is a failure too
        held, said = False, f"{failure}; the files are in {folder}"
        lines = bench.log_tail()
        if not isinstance(failure, Failed):
            lines += [f"    {line}" for line in traceback.format_exc().splitlines()]
    seconds = time.monotonic() - begin
    print("\n".join([f"{guest.target.name:6} {name:14} {'ok    ' if held else 'FAILED'} {said} ({seconds:.0f} s)",
                     *lines]), flush=True)
    return held


def main():
    parser = argparse.ArgumentParser(prog="tests.vm", description=__doc__.splitlines()[0])
    parser.add_argument("--long", action="store_true", help="the full form of each scenario")
    parser.add_argument("target", choices=[*TARGETS, "all"])
    parser.add_argument("scenario", nargs="?", choices=SCENARIOS)
    chosen = parser.parse_args()
    targets = list(TARGETS) if chosen.target == "all" else [chosen.target]
    scenarios = [chosen.scenario] if chosen.scenario else SCENARIOS
    try:
        guests = [guest(target) for target in targets]
    except Unavailable as reason:
        print(f"tests.vm: {reason}", file=sys.stderr)
        return 1
    work = Path(tempfile.mkdtemp(prefix="ifs-vm-"))
    frames = footage.shoot(work)

    def run_all(guest):
        return [run_scenario(name, guest, work, frames, chosen.long) for name in scenarios]

    with ThreadPoolExecutor() as pool:
        held = [one for results in pool.map(run_all, guests) for one in results]
    print(f"{sum(held)} scenarios held, {len(held) - sum(held)} failed")
    if all(held):
        shutil.rmtree(work)
    return 0 if all(held) else 1


sys.exit(main())
