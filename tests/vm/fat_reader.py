"""Reads a FAT32 partition as Linux does, whatever state it is in: sizes from the directory, chains from the first FAT.

Unlike mtools it says how far a file can be read, and what a broken chain endangers.
"""

import struct
from array import array
from collections import Counter
from dataclasses import dataclass, field

FREE, END, BAD = 0, 0x0ffffff8, 0x0ffffff7
ENTRY = 32
LONG_NAME, LABEL, FOLDER = 0x0f, 0x08, 0x10


@dataclass
class File:
    name: str
    size: int  # as the directory says
    clusters: list
    runs_into: int  # FAT entry that ended the chain
    data: bytes = field(repr=False, default=b"")  # as much as the chain holds

    def faults(self, cluster_bytes):
        """Words for what is wrong with the chain."""
        needed = -(-self.size // cluster_bytes)
        if self.runs_into == FREE and self.clusters:
            yield "dangling"  # the next file that is written gets these clusters, too
        elif self.runs_into < END and self.clusters:
            yield "broken"
        if len(self.clusters) < needed:
            yield "short"
        if len(self.clusters) > needed:
            yield "slack"


class Fat:
    def __init__(self, partition):
        boot = partition[:512]
        if boot[510:512] != b"\x55\xaa" or boot[13] == 0 or struct.unpack_from("<I", boot, 36)[0] == 0:
            raise ValueError("no FAT32 boot record")
        reserved, fats = struct.unpack_from("<HB", boot, 14)
        total, fat_sectors = struct.unpack_from("<II", boot, 32)
        self.root, = struct.unpack_from("<I", boot, 44)
        self.partition = partition
        self.cluster_bytes = boot[13] * 512
        self.fat_at = reserved * 512
        self.data_at = (reserved + fats * fat_sectors) * 512
        self.clusters = (total * 512 - self.data_at) // self.cluster_bytes + 2
        self.fat = array("I", bytes(partition[self.fat_at:self.fat_at + fat_sectors * 512]))
        self.files = self._files()

    def chain(self, first):
        """(clusters, the entry that ended the chain)"""
        clusters, seen, cluster = [], set(), first
        while 2 <= cluster < self.clusters and cluster not in seen:
            clusters.append(cluster)
            seen.add(cluster)
            cluster = self.fat[cluster] & 0x0fffffff
        return clusters, cluster if cluster not in seen else BAD

    def place(self, cluster):
        """Where a cluster lies in the partition, as a slice."""
        begin = self.data_at + (cluster - 2) * self.cluster_bytes
        return slice(begin, begin + self.cluster_bytes)

    def read(self, clusters, size=None):
        return b"".join(self.partition[self.place(cluster)] for cluster in clusters)[:size]

    def _files(self):
        files, long_name = [], []
        root_clusters, _ = self.chain(self.root)
        listing = self.read(root_clusters)
        for at in range(0, len(listing), ENTRY):
            entry = listing[at:at + ENTRY]
            if entry[0] in (0, 0xe5):
                long_name = []
            elif entry[11] & 0x3f == LONG_NAME:
                if entry[0] & 0x40:
                    long_name = []
                long_name.append(entry)
            else:
                if not entry[11] & (LABEL | FOLDER):
                    files.append(self._file(entry, _long_name(long_name, entry)))
                long_name = []
        return files

    def _file(self, entry, name):
        size = struct.unpack_from("<I", entry, 28)[0]
        high, = struct.unpack_from("<H", entry, 20)
        low, = struct.unpack_from("<H", entry, 26)
        clusters, end = self.chain(high << 16 | low)
        return File(name or _short_name(entry), size, clusters, end, self.read(clusters, size))

    def hazards(self):
        """File names by what endangers them or others: faults of their chains, clusters that two files hold."""
        found = {}
        owners = Counter(cluster for file in self.files for cluster in file.clusters)
        for file in self.files:
            for fault in file.faults(self.cluster_bytes):
                found.setdefault(fault, []).append(file.name)
            if any(owners[cluster] > 1 for cluster in file.clusters):
                found.setdefault("shared", []).append(file.name)
        return found


def _short_name(entry):
    base, suffix = entry[:8].decode("latin-1").strip(), entry[8:11].decode("latin-1").strip()
    return (f"{base}.{suffix}" if suffix else base).lower()


def _long_name(slots, entry):
    """The long name in front of an entry, "" unless it is whole and belongs to it."""
    total = 0
    for byte in entry[:11]:
        total = ((total & 1) << 7) + (total >> 1) + byte & 0xff
    numbers = [slot[0] & 0x3f for slot in slots]
    if not slots or numbers != list(range(len(slots), 0, -1)) or any(slot[13] != total for slot in slots):
        return ""
    text = b"".join(slot[1:11] + slot[14:26] + slot[28:32] for slot in reversed(slots)).decode("utf-16-le", "replace")
    return text.split("\0")[0]
