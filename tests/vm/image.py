"""Reads images of cards, independently of the library: partition, boot record, FSInfo, FATs, directory.

Judges that others wrote are called from here too: fsck.fat, mtools, ffmpeg.
"""

import os
import struct
import subprocess
from pathlib import Path

from .machine import check

SECTOR = 512
# What fsck.fat remarks on every card: the prescribed layout has a blank label in the boot record.
BLANK_LABEL = {"Label '' stored in boot sector is not valid.", "  Auto-removing label from boot sector.", "",
               "Leaving filesystem unchanged."}
# And on those that are small, so that a test fills them soon.
FEW_CLUSTERS = ("Warning: Filesystem is FAT32 according to fat_length", "  but has only", "  This may lead to problems")


class Card:
    """An image with a partition table. partition() describes its first entry."""

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
        """File names that a stream's index file lists, in its order."""
        image = self.copy_out(f"system_index_{stream}", folder).read_bytes()
        check(image[:15] == b"system_index_v1" and (len(image) - 15) % 128 == 0, f"the index of {stream} is torn")
        names = []
        for at in range(15, len(image), 128):
            check(image[at:at + 4] == b"ITEM", f"the index of {stream} has a damaged item")
            second, minute, hour, day, month, year = struct.unpack_from("<6i", image, at + 4)
            res, system = image[at + 4 + 88], image[at + 4 + 89]
            names.append(f"Rec_{year + 1900:04}{month + 1:02}{day:02}_{hour:02}{minute:02}{second:02}"
                         f"_{res:02}{system}_{stream[0].upper()}.mp4")
        return names


def copy_data(source, target, offset, size):
    """Copy a part of a sparse file, sparsely."""
    with open(source, "rb") as reader, open(target, "wb") as writer:
        writer.truncate(size)
        position, end = offset, offset + size
        while position < end:
            try:
                position = os.lseek(reader.fileno(), position, os.SEEK_DATA)
                hole = min(os.lseek(reader.fileno(), position, os.SEEK_HOLE), end)
            except OSError:  # no data behind
                break
            while position < hole:
                copied = os.copy_file_range(reader.fileno(), writer.fileno(), min(hole - position, 1 << 26), position,
                                            position - offset)
                position += copied


def decode(path):
    """Decode a whole MP4 file. Returns what ffmpeg has to say, with nothing to say ""."""
    done = subprocess.run(["ffmpeg", "-v", "warning", "-xerror", "-i", path, "-f", "null", "-"], capture_output=True,
                          text=True)
    return done.stderr.strip()
