"""Reads and fills images of cards, independently of the library: partition, boot record, FATs, directory.

Judges that others wrote are called from here too: fsck.fat, mtools, ffmpeg.
"""

import itertools
import mmap
import os
import struct
import subprocess
import time
from pathlib import Path

from .fat_reader import END, Fat
from .machine import check

SECTOR = 512
# What fsck.fat remarks on every card: the prescribed layout has a blank label in the boot record.
BLANK_LABEL = {"Label '' stored in boot sector is not valid.", "  Auto-removing label from boot sector.", "",
               "Leaving filesystem unchanged."}
# And on small ones.
FEW_CLUSTERS = ("Warning: Filesystem is FAT32 according to fat_length", "  but has only", "  This may lead to problems")


class Card:
    """An image with a partition table whose first entry is a FAT32 file system."""

    def __init__(self, path):
        self.path = Path(path)
        with open(path, "rb") as file:
            self.table = file.read(SECTOR)
        self.first_sector, self.sectors = struct.unpack_from("<II", self.table, 446 + 8)
        self.offset = self.first_sector * SECTOR

    def read(self, sector, count=1):
        """Sectors of the partition."""
        with open(self.path, "rb") as file:
            file.seek(self.offset + sector * SECTOR)
            return file.read(count * SECTOR)

    def sector_of(self, cluster):
        """Where a cluster begins, as a sector of the whole card."""
        boot = self.read(0)
        reserved, fats, per_fat = struct.unpack_from("<HB19xI", boot, 14)
        return self.first_sector + reserved + fats * per_fat + (cluster - 2) * boot[13]

    def fsck(self):
        """What fsck.fat -n has to say of the partition, beside what it says of every sound card."""
        partition = self.path.with_suffix(".partition")
        copy_data(self.path, partition, self.offset, self.sectors * SECTOR)
        said = subprocess.run(["fsck.fat", "-n", partition], capture_output=True, text=True)
        partition.unlink()
        lines = said.stdout.splitlines()
        check(lines and lines[-1].startswith(str(partition)), f"fsck.fat came to no end: {said.stdout}{said.stderr}")
        return [line for line in lines[1:-1] + said.stderr.splitlines()
                if line not in BLANK_LABEL and not line.startswith(FEW_CLUSTERS)]

    def mtools(self, *command):
        """Run a command of mtools on the partition; "::" is its root."""
        done = subprocess.run([command[0], "-i", f"{self.path}@@{self.offset}", *command[1:]], capture_output=True,
                              text=True, env={**os.environ, "MTOOLS_SKIP_CHECK": "1"})
        check(done.returncode == 0, f"{command[0]} fails: {done.stderr.strip()}")
        return done.stdout

    def files(self):
        """Names in the root directory."""
        return sorted(line.rsplit("/", 1)[1] for line in self.mtools("mdir", "-b", "-a", "::").splitlines())

    def copy_out(self, name, folder):
        folder = Path(folder)
        folder.mkdir(exist_ok=True)
        self.mtools("mcopy", "-n", "-o", f"::{name}", str(folder))
        return folder / name

    def index(self, stream, folder):
        """File names that a stream's index file on the card lists."""
        return index_names(self.copy_out(f"system_index_{stream}", folder).read_bytes())


def index_names(image):
    """File names that an index file lists, in its order."""
    check(image[:15] == b"system_index_v1" and (len(image) - 15) % 128 == 0, "an index is torn")
    names = []
    for at in range(15, len(image), 128):
        check(image[at:at + 4] == b"ITEM", "an index has a damaged item")
        second, minute, hour, day, month, year = struct.unpack_from("<6i", image, at + 4)
        res, system = image[at + 4 + 88], image[at + 4 + 89]
        stream, = struct.unpack_from("<i", image, at + 4 + 92)
        names.append(f"Rec_{year + 1900:04}{month + 1:02}{day:02}_{hour:02}{minute:02}{second:02}"
                     f"_{res:02}{system}_{'MS'[stream]}.mp4")
    return names


class Filler:
    """Puts files into a card's root directory from outside, as many as a kernel would need hours for."""

    def __init__(self, card):
        with open(card.path, "r+b") as image:
            self.partition = memoryview(mmap.mmap(image.fileno(), 0))[card.offset:]
        self.fat = Fat(self.partition)
        self.free = iter([number for number in range(3, self.fat.clusters) if self.fat.fat[number] == 0])

    def add(self, files):
        """Add (name, content) pairs behind the directory's last entry, in this order.

        A number as content is a size: the file gets whatever its clusters hold.
        """
        root = self.fat.read(self.fat.chain(self.fat.root)[0])
        root = root[:next(at for at in range(0, len(root) + 1, 32) if root[at:at + 1] in (b"", b"\0"))]
        for number, (name, content) in enumerate(files):
            size = content if isinstance(content, int) else len(content)
            clusters = self.allocate(size) if size else [0]
            root += entry(number, name, clusters[0], size)
            if size and size is not content:
                self.write(clusters, content)
        self.write(self.allocate(len(root), self.fat.root), root)
        table = self.fat.fat.tobytes()
        self.partition[self.fat.fat_at:self.fat.data_at] = table + table
        struct.pack_into("<I", self.partition, SECTOR + 488, sum(1 for _ in self.free))

    def allocate(self, size, first=None):
        """A chain of clusters for so many bytes, beginning with the first one if that is given."""
        count = -(-size // self.fat.cluster_bytes)
        clusters = [first or next(self.free), *itertools.islice(self.free, count - 1)]
        for cluster, following in zip(clusters, [*clusters[1:], END]):
            self.fat.fat[cluster] = following
        return clusters

    def write(self, clusters, content):
        for number, cluster in enumerate(clusters):
            part = content[number * self.fat.cluster_bytes:(number + 1) * self.fat.cluster_bytes]
            self.partition[self.fat.place(cluster)] = part.ljust(self.fat.cluster_bytes, b"\0")


def entry(number, name, cluster, size):
    """Directory entries of a file: its long name in slots of 13 characters, the last first, and the short one."""
    short = f"F{number:07}MP4".encode()
    checksum = 0
    for byte in short:
        checksum = ((checksum & 1) << 7 | checksum >> 1) + byte & 0xFF
    long = (name + "\0").encode("utf-16-le")
    slots = [long[at:at + 26].ljust(26, b"\xff") for at in range(0, len(name) * 2, 26)]
    packed = [struct.pack("<B10sBBB12sH4s", index + 1 | (0x40 if index + 1 == len(slots) else 0), slot[:10], 0x0F, 0,
                          checksum, slot[10:22], 0, slot[22:]) for index, slot in enumerate(slots)]
    date = 46 << 9 | 5 << 5 | 1
    return b"".join(reversed(packed)) + struct.pack("<11sBxBHHHHHHHI", short, 0x20, 0, 0, date, date, cluster >> 16, 0,
                                                    date, cluster & 0xFFFF, size)


def record_name(start, stream):
    return time.strftime("Rec_%Y%m%d_%H%M%S_061_", time.gmtime(start)) + "MS"[stream] + ".mp4"


def copy_data(source, target, offset, size):
    """Copy a part of a sparse file, sparsely. Returns the target."""
    with open(source, "rb", buffering=0) as reader, open(target, "wb") as writer:
        writer.truncate(size)
        position, end = offset, offset + size
        while position < end:
            try:
                position = os.lseek(reader.fileno(), position, os.SEEK_DATA)
                hole = min(os.lseek(reader.fileno(), position, os.SEEK_HOLE), end)
            except OSError:  # no data behind
                break
            while position < hole:
                reader.seek(position)
                writer.seek(position - offset)
                position += writer.write(reader.read(min(hole - position, 1 << 24)))
    return target


def decode(path):
    """Decode a whole MP4 file. Returns what ffmpeg has to say, with nothing to say ""."""
    done = subprocess.run(["ffmpeg", "-v", "warning", "-xerror", "-i", path, "-f", "null", "-"], capture_output=True,
                          text=True)
    return done.stderr.strip()
