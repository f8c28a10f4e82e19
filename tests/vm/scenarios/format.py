"""A format, judged by its bytes, by fsck.fat and by the kernel that mounts it."""

import os
import struct
import subprocess

from ..image import SECTOR, Card
from ..machine import check, ide_card, scsi_card, sparse

CLUSTER_SECTORS, RESERVED, FATS = 128, 32, 2


def fat_sectors(clusters):
    return (clusters + 2 + 127) // 128


def volume_sectors(clusters):
    return RESERVED + FATS * fat_sectors(clusters) + clusters * CLUSTER_SECTORS


def judge(image, sectors_per_track):
    """Fails unless the image holds the prescribed empty file system. Returns its clusters."""
    card = Card(image)
    device_sectors = os.path.getsize(image) // SECTOR
    check(card.table[450] == 0x0C and card.table[510:] == b"\x55\xaa", "the partition table is no FAT32 one")
    check(card.table[462:510] == bytes(48), "the partition table has a second entry")
    check(card.first_sector == sectors_per_track, f"the partition begins at sector {card.first_sector}")
    check(0.97 * device_sectors < card.first_sector + card.sectors <= device_sectors,
          f"the partition ends at sector {card.first_sector + card.sectors} of {device_sectors}")

    boot = card.read(0)
    total, per_fat = struct.unpack_from("<II", boot, 32)
    clusters = (total - RESERVED - FATS * per_fat) // CLUSTER_SECTORS
    check(volume_sectors(clusters) == total <= card.sectors < volume_sectors(clusters + 1),
          f"{clusters} clusters do not fill {card.sectors} sectors")
    check(fat_sectors(clusters) == per_fat, f"a FAT of {per_fat} sectors does not fit {clusters} clusters")
    check(card.files() == [], f"the new card holds {card.files()}")
    check(card.fsck() == [], f"fsck.fat says: {card.fsck()}")
    return clusters


def format_in_guest(bench, card):
    run = bench.boot("host format info mount info count fails format count unmount", card)
    before, after = run.results("info")
    check(before["have_card"] == 1 and before["formatted"] == 0 < before["dev_size"], f"before the mount: {before}")
    check(after["formatted"] == 1 and 0.99 * after["dev_size"] < after["free"] < after["total"] < after["dev_size"],
          f"after the mount: {after}")
    check(run.results("count") == [{"main": 0, "sub": 0}] * 2, "the catalogue of an empty card is not empty")
    check(run.text("library.log").count("fdisk OK!") == 1, "a format while mounted reached the card")
    return run


def old_card(image):
    """A card that a desk computer formatted and filled to the last cluster."""
    size, first = 96 << 20, 2048
    sparse(image, size)
    partition = image.with_suffix(".old")
    sparse(partition, size - first * SECTOR)
    subprocess.run(["mkfs.fat", "-F", "32", "-n", "HOLIDAY", partition], check=True, capture_output=True)
    ballast = image.with_suffix(".ballast")
    ballast.write_bytes(os.urandom(1 << 20))
    copied = 0
    copy = ["mcopy", "-i", partition, ballast]
    while subprocess.run([*copy, f"::photo{copied}.jpg"], capture_output=True).returncode == 0:
        copied += 1
    with open(image, "r+b") as file:
        file.seek(446)
        file.write(struct.pack("<4xB3xII", 0x0C, first, size // SECTOR - first))
        file.seek(510)
        file.write(b"\x55\xaa")
        file.seek(first * SECTOR)
        file.write(partition.read_bytes())
    return copied


def run(bench):
    said = []
    cards = [("4 GiB IDE", 4, ide_card, 63), ("32 GiB SCSI", 32, scsi_card, 32)]
    if bench.long:
        cards += [("4 GiB SCSI", 4, scsi_card, 62), ("128 GiB SCSI", 128, scsi_card, 63)]
    for title, gib, connect, track in cards:
        image = sparse(bench.image("blank"), gib << 30)
        milliseconds = format_in_guest(bench, connect(image)).results("format")[0]["ms"]
        said.append(f"{title}: {judge(image, track)} clusters in {milliseconds / 1000:.1f} s")
    image = bench.image("old")
    copied = old_card(image)
    format_in_guest(bench, ide_card(image))
    judge(image, 63)
    return "; ".join([*said, f"over an old card with {copied} MiB of files"])
