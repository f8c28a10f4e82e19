"""The writes of a card in the order in which it got them, and the cards that a power cut at any point leaves.

QEMU's blklogwrites records them:

    log = WriteLog(path)
    for cut, card in log.cuts(folder, [(1200, seed), ...]): ...

A cut at N leaves what lay in front of the last flush before entry N, and of the rest, up to N, what chance decides: all of
it and a part of the last write, or any selection, writes torn between two sectors included. The same seed decides alike.
"""

import mmap
import random
import struct
from dataclasses import dataclass
from pathlib import Path

SECTOR = 512
MAGIC = 0x6a736677736872
FLUSH, FUA, DISCARD = 1, 2, 4
FIRST_SECTOR = 63  # of the partition
MARK_SECTOR = FIRST_SECTOR - 1
CLOSE_STEPS = {"close": ["flush", "moov", "header"], "rebuild": ["finish moov", "finish header"]}
KEPT_SHARES = (0.2, 0.5, 0.8)


def logged_card(image, log):
    """QEMU's options of an IDE card whose writes are recorded."""
    return ["-blockdev", f"driver=file,node-name=image,filename={image}", "-blockdev",
            f"driver=file,node-name=log,filename={log}", "-blockdev",
            "driver=blklogwrites,node-name=card,file=image,log=log,log-sector-size=512", "-device",
            "ide-hd,drive=card,bus=ide.0,unit=0"]


@dataclass(frozen=True)
class Entry:
    sector: int
    sectors: int
    flags: int
    at: int  # of the data in the log
    mark: str  # text of a mark, else ""
    phase: str  # what went on


class WriteLog:
    def __init__(self, path, card_bytes):
        self.data = Path(path).read_bytes()
        self.card_bytes = card_bytes
        self.entries = list(self._read())

    def _read(self):
        magic, _, count, sector_bytes = struct.unpack_from("<QQQI", self.data)
        if (magic, sector_bytes) != (MAGIC, SECTOR):
            raise ValueError("this is no log of writes")
        at, phase = SECTOR, "start"
        for _ in range(count):
            sector, sectors, flags, _ = struct.unpack_from("<QQQQ", self.data, at)
            at += SECTOR
            mark = ""
            if sector == MARK_SECTOR and sectors == 1:
                mark = self.data[at:at + SECTOR].rstrip(b"\0").decode()
                phase = _phase(phase, mark)
            index = _index_phase(phase, self.data[at:at + SECTOR])
            yield Entry(sector, sectors, flags, at, mark, index or phase)
            if not flags & DISCARD:
                at += sectors * SECTOR

    def marks(self, end):
        """Words of the marks in front of an entry."""
        return [entry.mark.split() for entry in self.entries[:end] if entry.mark]

    def written(self, begin, end):
        """Bytes written and flushes between two entries."""
        entries = [entry for entry in self.entries[begin:end] if not entry.mark]
        return (sum(entry.sectors * SECTOR for entry in entries if not entry.flags & DISCARD),
                sum(1 for entry in entries if entry.flags & FLUSH))

    def cuts(self, folder, cuts):
        """For each (entry, seed) in ascending order the entry, its seed and a CutCard, good until the next one."""
        card, done = CutCard(Path(folder), self.card_bytes), 0
        for cut, seed in sorted(cuts):
            flushed = max((i for i in range(done, cut) if self.entries[i].flags & FLUSH), default=done)
            for entry in self.entries[done:flushed]:
                self._apply(card, entry, entry.sectors)
            done = flushed
            undo = [self._apply(card, entry, kept) for entry, kept in self._chance(flushed, cut, seed)]
            yield cut, seed, card
            for sector, old in reversed([change for changes in undo for change in changes]):
                card.write(sector, old)

    def _chance(self, begin, end, seed):
        """Which entries of a range reach the card, and how many sectors of each."""
        chance = random.Random(f"{seed}/{end}")
        writes = [entry for entry in self.entries[begin:end] if entry.sectors and not entry.mark]
        if chance.random() < 0.5:
            for entry in writes[:-1]:
                yield entry, entry.sectors
            if writes:
                yield writes[-1], chance.randint(0, writes[-1].sectors)
            return
        share = chance.choice(KEPT_SHARES)
        for entry in writes:
            if entry.flags & FUA or chance.random() < share:
                yield entry, entry.sectors if chance.random() < 0.8 else chance.randint(0, entry.sectors)

    def _apply(self, card, entry, sectors):
        """Write the first sectors of an entry. Returns what lay there, as changes to write back."""
        if entry.mark or not sectors or entry.flags & DISCARD:
            return []
        return card.write(entry.sector, self.data[entry.at:entry.at + sectors * SECTOR])


def _index_phase(phase, data):
    """Index files reach the card when the kernel sees fit; their items give them away."""
    if b"ITEM" not in data:
        return ""
    return "index rewrite" if "rewrite" in phase or phase.startswith("rebuild") else "index append"


def _phase(phase, mark):
    """The phase after a mark: what the job says, refined by the calls that it marks."""
    words = mark.split()
    if words[0] == "phase":
        return words[1]
    main = phase.split(":")[0]
    if words[0] == "removing":
        return "index rewrite" if words[1].startswith("system_index") else "overlap:delete"
    if mark == "step sync" and main in CLOSE_STEPS:
        steps = CLOSE_STEPS[main]
        return f"{main}:{steps[(steps.index(phase.split(':')[1]) + 1) % len(steps) if ':' in phase else 0]}"
    return phase


class CutCard:
    """A card under construction: the sectors in front of the partition, and the partition as a file."""

    def __init__(self, folder, card_bytes):
        self.head = bytearray(FIRST_SECTOR * SECTOR)
        self.partition = folder / "partition"
        with open(self.partition, "w+b") as file:
            file.truncate(card_bytes - len(self.head))
            self.map = mmap.mmap(file.fileno(), 0)

    def write(self, sector, data):
        """Returns the changes that undo it."""
        head_bytes = max(0, min(len(data), (FIRST_SECTOR - sector) * SECTOR))
        old = []
        for target, at, part in ((self.head, sector * SECTOR, data[:head_bytes]),
                                 (self.map, max(0, sector - FIRST_SECTOR) * SECTOR, data[head_bytes:])):
            if part:
                place = sector if target is self.head else max(sector, FIRST_SECTOR)
                old.append((place, bytes(target[at:at + len(part)])))
                target[at:at + len(part)] = part
        return old
