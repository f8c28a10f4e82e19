"""Recording goes on over a small card that is full, while the overlap workers delete the oldest."""

import re

from ..image import SECTOR, Card, Filler, decode, index_names, record_name
from ..machine import check, ide_card

START = 1777593600  # 2026-05-01 00:00:00 UTC
ROOM = 512 << 20  # left by what else is on the card
FREE_LIMIT = 400 << 20
REWRITE_EVERY = 100

SCRIPT = """
cat >/bin/wait_for_room <<'END'
until [ $(df -k /card | awk 'END {{ print $4 }}') -ge {free_kib} ]; do sleep 1; done
END
chmod +x /bin/wait_for_room
host {init} mount fill 40 {start} 60 /data/fat.frames open 0 {start} fill {count} {later} 60 /data/fat.frames \\
    sh wait_for_room overlap 0 info read-on /data/fat.frames close list 0 /out/main.list list 1 /out/sub.list \\
    sh 'cp /card/system_index_* /out' unmount mount list 0 /out/main.again list 1 /out/sub.again unmount
"""


def deletions(log):
    """Names of the files that the overlap removed, in order."""
    return re.findall(r"\[func:Ifs_overlap\].*remove file\((.*)\)", log)


def judge_index(run, stream, catalogue):
    """The index was rewritten after each 100 deletions: it lists the catalogue and what was deleted since."""
    letter = stream[0].upper()
    removed = [name for name in deletions(run.text("library.log")) if name.endswith(f"_{letter}.mp4")]
    check(len(removed) > REWRITE_EVERY, f"only {len(removed)} recordings of {stream} were deleted")
    check(removed == sorted(removed), f"the deletions of {stream} are not in the order of their starts")
    since = removed[len(removed) // REWRITE_EVERY * REWRITE_EVERY:]
    check(sorted(catalogue + since) == index_names((run.out / f"system_index_{stream}").read_bytes()),
          f"the index of {stream} is not what {len(removed)} deletions leave")
    return len(removed)


def run(bench):
    count = 4000 if bench.long else 380
    workers = 10 if bench.long else 20  # each deletes a recording a second
    card = Card(bench.card("card"))
    Filler(card).add([("ballast", card.sectors * SECTOR - ROOM)])
    script = SCRIPT.format(init="init " * workers, start=START, later=START + 20 * 60, count=count - 40,
                           free_kib=FREE_LIMIT >> 10)
    run = bench.boot(script, ide_card(card.path), seconds=3000)
    lists = {stream: [line.split()[0] for line in run.text(f"{stream}.list").splitlines()]
             for stream in ("main", "sub")}
    removed = {stream: judge_index(run, stream, names) for stream, names in lists.items()}

    everything = {record_name(START + 60 * (number // 2), number % 2) for number in range(count)}
    kept = sorted(lists["main"] + lists["sub"])
    check(record_name(START, 0) in kept, "the recording that was being played is deleted")
    check(everything - set(deletions(run.text("library.log"))) == set(kept), "the catalogue is not what was recorded")
    files = card.files()
    check([name for name in files if name.startswith("Rec_")] == kept, "the directory differs from the catalogue")
    for stream in lists:
        check(run.text(f"{stream}.again") == run.text(f"{stream}.list"), f"a remount changes the {stream} list")
        check(card.index(stream, bench.work / "files") == lists[stream], f"a remount leaves another {stream} index")
    check(run.results("info")[0]["free"] >= FREE_LIMIT, "the overlap stopped too early")
    check(card.fsck() == [], f"fsck.fat says: {card.fsck()}")
    for name in kept[::len(kept) // 5]:
        said = decode(card.copy_out(name, bench.work / "files"))
        check(said == "", f"ffmpeg says of {name}: {said}")
    filled = run.results("fill")[1]
    return (f"{count} MiB on a card with room for {(ROOM - FREE_LIMIT) >> 20} MiB, {removed['main']} + "
            f"{removed['sub']} deleted, {len(kept)} left, {filled['refused_creates']} creates had to wait, slowest "
            f"{filled['slowest_create_ms']} ms")
