"""A root directory that takes no further name on a card with plenty of space, without and with the file-count limit."""

import re

from ..image import Card, Filler, record_name
from ..machine import check, ide_card

START = 1777593600  # 2026-05-01 00:00:00 UTC
LATER = START + 86400 * 30
ENTRIES = 65535  # that vfat keeps in a directory; it refuses to use the last of 65,536
INDEX_ENTRIES, RECORD_ENTRIES = 3, 4  # of a name of 16 or 17, and of 29 characters
ROOM = 40  # recordings that still fit
WORKERS = 20

SCRIPT = """
host deadline 6000 mount fill {room} {later} 60 /data/tiny.frames fails record-for 0 {before} /data/tiny.frames count \\
    play 0 {later} /data/tiny.frames limit {limit} {init} fill {room} {last} 60 /data/tiny.frames sh 'sleep 3' \\
    overlap 0 count list 0 /out/main.list list 1 /out/sub.list unmount mount unmount
"""


def fill_cheaply(card):
    """All but the room taken by empty files with names as long as they may be."""
    left = ENTRIES - 2 * INDEX_ENTRIES - ROOM * RECORD_ENTRIES
    names = []
    while left > 1:
        entries = min(left, 21)
        names.append(f"{len(names):06}".ljust(13 * (entries - 1) - 6, "x"))
        left -= entries
    Filler(card).add([(name, b"") for name in names])


def run(bench):
    card = Card(bench.card("card"))
    fill_cheaply(card)
    run = bench.boot(SCRIPT.format(init="init " * WORKERS, room=ROOM, limit=ROOM, before=START - 60, later=LATER,
                                   last=LATER + 86400), ide_card(card.path), seconds=20000)
    log = run.text("library.log")
    refusals = re.findall(r"kt_mp4_open\(create\) Failed\(fn:/card/(.*?),", log)
    check(refusals and refusals[0] == record_name(START - 60, 0), "the refusal does not name the file")
    full, settled = run.results("count")
    check(full["main"] + full["sub"] == ROOM, f"{full} recordings instead of {ROOM} while the directory is full")
    kept = sorted(line.split()[0] for name in ("main", "sub") for line in run.text(f"{name}.list").splitlines())
    recorded = [record_name(start + 60 * (number // 2), number % 2) for start in (LATER, LATER + 86400)
                for number in range(ROOM)]
    deleted = re.findall(r"\[func:Ifs_overlap\].*remove file\((.*)\)", log)
    check(sorted(set(recorded) - set(deleted)) == kept, "the catalogue is not what was recorded")
    check(deleted and max(deleted) < min(kept), "the deleted recordings are not the oldest")
    check([name for name in card.files() if name.startswith("Rec_")] == kept, "the directory differs from it")
    mounted = run.results("mount")[-1]
    check((mounted["main"], mounted["sub"]) == (settled["main"], settled["sub"]), "a remount changes the catalogue")
    check(card.fsck() == [], f"fsck.fat says: {card.fsck()}")
    return (f"full at {ROOM} recordings, the next one is refused and named; with that limit set {ROOM} more are "
            f"recorded, {len(deleted)} deleted; a create took up to {run.results('fill')[0]['slowest_create_ms']} ms")
