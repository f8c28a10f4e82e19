"""A card that fails, is read-only, or is pulled while in use: every call returns, and work goes on."""

import time

from ..image import Card, Filler, decode, record_name
from ..machine import check, scsi_card

START = 1777593600  # 2026-05-01 00:00:00 UTC
FAT, MAIN, TINY = "/data/fat.frames", "/data/main.frames", "/data/tiny.frames"
DROP_CACHES = "sh 'echo 3 >/proc/sys/vm/drop_caches'"


def failing_card(bench, card, event, *clusters):
    """The card with a sector in each of the clusters that fails from its first read_aio or write_aio on."""
    rules = bench.work / "blkdebug"
    rules.write_text("".join(
        f'[inject-error]\nevent = "{event}"\nerrno = "5"\nsector = "{card.sector_of(cluster)}"\nonce = "off"\n'
        for cluster in clusters))
    return scsi_card(f"blkdebug:{rules}:{card.path}", "werror=report,rerror=report")


def bad_sector(bench):
    """A sector fails while both streams are recorded over it: only the recording it belongs to suffers."""
    card = Card(bench.card("bad"))
    run = bench.boot(
        f"host mount fails record {START} {FAT} {TINY} record {START + 60} {TINY} {TINY} unmount {DROP_CACHES} mount "
        f"play 1 {START} {TINY} play 0 {START + 60} {TINY} play 1 {START + 60} {TINY} "
        f"open 0 {START} read-for 3000 seek {START + 7} read-for 200 close unmount",
        # The ninth cluster of the long recording, whether it comes first or behind the 37 that the other one reserves.
        failing_card(bench, card, "write_aio", 12, 49), sound=False, seconds=200)
    recorded = run.results("record")[0]
    check(recorded["refused_main"] > 0 == recorded["refused_sub"], f"the write error is not told: {recorded}")
    mounted = run.results("mount")[-1]
    check((mounted["main"], mounted["sub"]) == (2, 2), f"a recording is missing behind the bad sector: {mounted}")
    over, behind = [result for result in run.results("read-for") if "frames" in result]
    check(over["failed"] > 0 == behind["failed"] < behind["frames"], f"reading over and behind it: {over}, {behind}")
    return f"bad sector: {recorded['refused_main']} frame refused, both sides of it play, all else too"


def passing_fault(bench):
    """A recording that no index knows and that cannot be read while the card is mounted stays on it."""
    card, name = Card(bench.card("passing")), record_name(START, 0)
    Filler(card).add([(name, bench.recording())])
    run = bench.boot("host mount unmount", failing_card(bench, card, "read_aio", 3), sound=False)
    check("I/O error" in run.text("kernel.log"), "no read failed")
    kept = card.copy_out(name, bench.work / "files").read_bytes()
    check(kept == bench.recording(), "the recording has changed")
    return "unreadable during a mount: kept"


def read_only(bench):
    """A card whose switch says no can be neither mounted nor formatted."""
    run = bench.boot("host info fails mount fails format info", scsi_card(bench.card("read_only"), "readonly=on"))
    check([result["have_card"] for result in run.results("info")] == [1, 1], "the card is not seen")
    check(run.text("library.log").count("Failed(") >= 2, "the refusals have no reason")
    return "read-only: mount and format refused"


class Slot:
    """Pulls a card twice, soon after the guest began to use it, and inserts those it asks for."""

    def __init__(self, images):
        self.images, self.inserted = images, 0
        self.pulls = iter([("RESULT record-for fd=", "card", 3), ("RESULT read-for fd=", "card1", 1)])
        self.use, self.card, self.delay_s = next(self.pulls)

    def __call__(self, line, machine):
        if line.startswith(self.use):
            time.sleep(self.delay_s)
            machine.monitor(f"device_del {self.card}")
            self.use, self.card, self.delay_s = next(self.pulls, ("no further use", "", 0))
        elif line.startswith("INSERT"):
            self.inserted += 1
            image = self.images[line.split()[1]]
            machine.monitor(f"drive_add 0 if=none,id=slot{self.inserted},format=raw,cache=unsafe,file={image}",
                            f"device_add scsi-hd,drive=slot{self.inserted},id=card{self.inserted}")


INSERT = "sh 'echo INSERT {} >/dev/console; sleep 1; until [ -b /dev/hd/sd?1 ]; do usleep 100000; done'"
PULLED = """
host mount record {start} {main} {tiny} record-for 6000 {cut_off} {main} count fails record-for 0 {refused} {main} \\
    unmount info fails mount {insert_other} mount record {start} {fat} {tiny} {drop} open 0 {start} \\
    read-for 6000 {insert_first} close unmount mount play 0 {start} {main} play 1 {start} {tiny} \\
    open 0 {cut_off} read-for 200 close record {last} {main} {tiny} unmount
"""


def pulled(bench):
    """The first card goes while it is recorded on, another one while it is played; then the first one comes back."""
    first, other = bench.card("first"), bench.card("other")
    script = PULLED.format(main=MAIN, tiny=TINY, fat=FAT, drop=DROP_CACHES, start=START, cut_off=START + 60,
                           refused=START + 120, last=START + 180, insert_other=INSERT.format("other"),
                           insert_first=INSERT.format("first"))
    run = bench.boot(script, scsi_card(first), sound=False, on_line=Slot({"first": first, "other": other}), seconds=200)
    recorded = [result for result in run.results("record-for") if "frames" in result][0]
    check(recorded["refused"] > 0, f"no write failed on a card that was gone: {recorded}")
    check([result["have_card"] for result in run.results("info")] == [0], "a card that is gone is still seen")
    played, cut_off = [result for result in run.results("read-for") if "frames" in result]
    check(played["failed"] > 0, f"no read failed on a card that was gone: {played}")
    check(cut_off["failed"] == 0 < cut_off["frames"], f"what was recorded up to the pull does not play: {cut_off}")
    for name in (record_name(START, 0), record_name(START + 60, 0), record_name(START + 180, 0)):
        said = decode(Card(first).copy_out(name, bench.work / "files"))
        check(said == "", f"ffmpeg says of {name}: {said}")
    return (f"pulled: {recorded['refused']} of {recorded['frames']} writes and {played['failed']} reads failed, the "
            f"other card works, the first one again with all of its recordings")


def run(bench):
    return "; ".join(part(bench) for part in (bad_sector, passing_fault, read_only, pulled))
