"""The main job on a real card: record both streams at once, find, play back; the files are MP4 files."""

from ..image import Card, decode
from ..machine import check, ide_card

START = 1777809600  # 2026-05-03 12:00:00 UTC
NAME = "Rec_20260503_12{:02}00_061_{}.mp4"


def run(bench):
    minutes = range(20 if bench.long else 2)
    image = bench.card("card")
    steps = ["init mount"]
    steps += [f"record {START + 60 * minute} /data/main.frames /data/sub.frames" for minute in minutes]
    steps += ["list 0 /out/main.list list 1 /out/sub.list"]
    play = [f"play {stream} {START + 60 * minute} /data/{name}.frames"
            for minute in minutes for stream, name in enumerate(("main", "sub"))]
    again = ["unmount mount list 0 /out/main.again list 1 /out/sub.again"]
    run = bench.boot("host " + " ".join(steps + play + again + play + ["unmount"]), ide_card(image), seconds=300)

    card = Card(image)
    check(card.fsck() == [], f"fsck.fat says: {card.fsck()}")
    lists = [line.split() for name in ("main", "sub") for line in run.text(f"{name}.list").splitlines()]
    check([name for name, _, _ in lists] == [NAME.format(minute, letter) for letter in "MS" for minute in minutes],
          "the search finds other recordings")
    for name, seconds, _ in lists:
        check(seconds == "8", f"{name} is {seconds} s long")
        path = card.copy_out(name, bench.work / "files")
        said = decode(path)
        check(said == "", f"ffmpeg says of {name}: {said}")
    for stream in ("main", "sub"):
        check(run.text(f"{stream}.again") == run.text(f"{stream}.list"), f"the {stream} list changes with a remount")
    recorded, played = run.results("record")[0], run.results("read-on")
    return (f"{recorded['main']} + {recorded['sub']} frames in {recorded['ms']} ms, {len(lists)} recordings, "
            f"{sum(result['frames'] for result in played)} frames played, all files decode")
