"""Seconds from the mount to the whole catalogue, with many recordings and the index intact, missing and torn."""

from ..image import Card, Filler, record_name
from ..machine import check, ide_card

START = 1777593600  # 2026-05-01 00:00:00 UTC

MOUNT_EACH = """
without_caches() {{ sync; echo 3 >/proc/sys/vm/drop_caches; host deadline 3000 mount unmount; }}
on_card() {{ mount -t vfat /dev/sda1 /card; (cd /card; "$@"); umount /card; }}
without_caches
without_caches
for stream in main sub; do
    on_card truncate -s {torn_bytes} system_index_$stream
done
without_caches
"""


def many_recordings(bench, count):
    """A card with that many recordings, both streams, in a directory that the overlap has gone round once."""
    card = Card(bench.card(f"{count}"))
    names = [record_name(START + 60 * (number // 2), number % 2) for number in range(count)]
    turned = names[count // 3:] + names[:count // 3]
    content = bench.recording()
    Filler(card).add([(name, content) for name in turned])
    return card


def run(bench):
    said = []
    for count in (10000, 16000) if bench.long else (2000,):
        card = many_recordings(bench, count)
        check(card.fsck() == [], f"fsck.fat says of the card that is to be mounted: {card.fsck()}")
        run = bench.boot(MOUNT_EACH.format(torn_bytes=15 + 128 * count // 2 - 5), ide_card(card.path), seconds=6000)
        mounts = run.results("mount")
        check([(mount["main"], mount["sub"]) for mount in mounts] == [(count / 2, count / 2)] * 3,
              f"the catalogues hold other than 2 * {count // 2}: {mounts}")
        check(run.text("library.log").count("Ifsod_read_file read item") == 2, "the torn indexes were not noticed")
        for stream in ("main", "sub"):
            names = card.index(stream, bench.work / "files")
            check(names == sorted(name for name in card.files() if name.endswith(f"_{stream[0].upper()}.mp4")),
                  f"the index of {stream} differs from the directory")
        check(card.fsck() == [], f"fsck.fat says: {card.fsck()}")
        missing, intact, torn = (mount["ready_ms"] / 1000 for mount in mounts)
        said.append(f"{count} recordings: index intact {intact:.1f} s, missing {missing:.1f} s, torn {torn:.1f} s, "
                    f"peak {max(mount['peak_kib'] for mount in mounts)} KiB")
    return "; ".join(said)
