"""Judges the card that a power cut leaves: what was promised when the power went must be there after the next mount.

The card is read as Linux would, its files are put onto a virtual card, and the library mounts that twice. Players of others
say which files could be read before.
"""

import hashlib
import json
import re
import shutil
import subprocess
import time
from dataclasses import dataclass, field
from pathlib import Path

from .fat_reader import Fat
from .image import BLANK_LABEL, decode

MOST_LOST_MS = 5000
RECORD_NAME = re.compile(r"Rec_\d{8}_\d{6}_\d{3}_[MS]\.mp4")
REPORT_LINE = re.compile(r"recording (\S+) seconds=(\d+) frames=(\d+) same=(\d+) missing=(\d+) video_ms=(\d+) bad=(\d+)")
FSCK_EXPECTED = re.compile(r"Dirty bit is set|not properly unmounted|data may be corrupt|Free cluster summary|Auto-cor|"
                           "between boot sector and its backup|mostly harmless|65:01/00|Not automatically")
# Faults of a file's clusters that a next recording or deletion would make worse.
LASTING_HAZARDS = ("dangling", "shared", "broken", "short")


@dataclass
class Promised:
    """What the marks up to a cut promise."""

    formatting: bool = False
    closed: dict = field(default_factory=dict)  # frames by file name
    handed: dict = field(default_factory=dict)  # time of the last video frame, ms, by file name
    removed: set = field(default_factory=set)  # names that may be gone
    running: set = field(default_factory=set)  # names of what was being made


@dataclass
class Verdict:
    phase: str
    recordings: int = 0
    lost_ms: list = field(default_factory=list)
    damaged: int = 0  # frames that played and are other than written
    left_out: list = field(default_factory=list)  # names of which frames between others are missing
    broken: list = field(default_factory=list)  # promises, a sentence each
    hazards: dict = field(default_factory=dict)
    fsck: list = field(default_factory=list)
    report: list = field(default_factory=list)


def name_of(start, stream):
    return time.strftime("Rec_%Y%m%d_%H%M%S_061_", time.gmtime(int(start))) + "MS"[int(stream)] + ".mp4"


def promised(marks):
    found = Promised()
    for words in marks:
        if words[:2] == ["phase", "format"]:
            found = Promised(formatting=True)
        elif words[0] == "formatted":
            found.formatting = False
        elif words[0] == "handed":
            found.handed[name_of(*words[1:3])] = int(words[3])
            found.running.add(name_of(*words[1:3]))
        elif words[0] == "closed":
            found.closed[name_of(*words[1:3])] = int(words[3])
        elif words[0] == "removing":
            found.removed.add(words[1])
        elif words[:2] == ["phase", "rebuild"]:
            found.running = set()
    found.running -= found.closed.keys()
    return found


class Judge:
    """folder is the judge's own; programs is the folder of a build."""

    def __init__(self, folder, programs, frames):
        self.folder, self.frames = Path(folder), frames
        self.probe, self.ifsctl = programs / "tests/vm/card_probe", programs / "tools/ifsctl"
        self.card = self.folder / "card"
        self.files = self.card / "files"

    def judge(self, cut_card, marks, phase):
        verdict = Verdict(phase)
        promise = promised(marks)
        try:
            self.put(cut_card, verdict)
        except ValueError as reason:
            if not promise.formatting:
                verdict.broken.append(f"the card has {reason}")
            return verdict
        readable = {name for name in self.names() if is_playable(self.files / name)}
        first = self.mount()
        if not first and promise.formatting:
            return verdict
        if not first:
            verdict.broken.append("the card does not mount")
            return verdict
        verdict.report = first
        # A player of others takes an unfinished first piece for footage; whatever it shows is less than a cut may cost.
        short = {name for name, ms in promise.handed.items() if ms <= MOST_LOST_MS} - promise.closed.keys()
        gone = readable - self.names() - promise.removed - short
        verdict.broken += [f"{name} could be played and was deleted" for name in sorted(gone)]
        if not promise.formatting:
            self.compare(promise, first, verdict)
        after = self.snapshot()
        second = self.mount()
        last = self.snapshot()
        changed = [name for name in after.keys() | last.keys() if after.get(name) != last.get(name)]
        if changed or second != first:
            verdict.broken.append(f"a second mount changes {', '.join(sorted(changed)) or 'the catalogue'}")
        if not promise.formatting:  # which can leave old names without their bytes
            verdict.broken += [f"ifsctl check says of {name}: {message}" for name, message in self.problems()
                               if name not in verdict.left_out]
        played = sorted(self.names() - promise.removed - set(verdict.left_out))
        for name in played[:1] + played[-1:]:
            said = what_ffmpeg_says(self.files / name)
            if said:
                verdict.broken.append(f"ffmpeg says of {name}: {said.splitlines()[0]}")
        return verdict

    def put(self, cut_card, verdict):
        """Make the virtual card."""
        shutil.rmtree(self.card, ignore_errors=True)
        self.files.mkdir(parents=True)
        (self.card / "card.conf").write_text("heads 255 sectors 63\n", encoding="utf-8")
        with open(self.card / "card.img", "wb") as image:
            image.write(cut_card.head + cut_card.map[:(1 << 20) - len(cut_card.head)])
            image.truncate(len(cut_card.head) + len(cut_card.map))
        verdict.fsck = fsck(cut_card.partition)
        fat = Fat(cut_card.map)
        verdict.hazards = fat.hazards()
        for file in fat.files:
            if "/" not in file.name and "\0" not in file.name:
                (self.files / file.name).write_bytes(file.data)

    def mount(self):
        """Lines of the probe's report; none when the card does not mount."""
        done = subprocess.run([self.probe, self.card, *self.frames], capture_output=True, text=True, timeout=60)
        lines = done.stderr.splitlines()
        return lines if done.returncode == 0 and lines and lines[0].startswith("mounted") else []

    def problems(self):
        """(file, sentence) of each problem that is left on the card."""
        done = subprocess.run([self.ifsctl, "--card", self.card, "--json", "check"], capture_output=True, text=True,
                              timeout=60)
        return [(finding["file"], finding["message"]) for finding in json.loads(done.stdout)["findings"]
                if finding["severity"] == "problem"]

    def names(self):
        return {path.name for path in self.files.iterdir() if RECORD_NAME.fullmatch(path.name)}

    def snapshot(self):
        return {path.name: digest(path) for path in self.files.iterdir()}

    def compare(self, promise, report, verdict):
        found = {match[1]: [int(number) for number in match.groups()[1:]]
                 for match in map(REPORT_LINE.fullmatch, report[1:])}
        for name, (_, frames, same, missing, _, bad) in found.items():
            if name in promise.removed:
                continue
            verdict.damaged += frames - same
            if same != frames or bad:
                verdict.broken.append(f"{name}: of {frames} frames {same} are as written, {bad} cannot be read")
            elif missing:
                verdict.left_out.append(name)
        for name, last_ms in promise.handed.items():
            if name in promise.removed:
                continue
            verdict.recordings += 1
            _, frames, _, missing, video_ms, _ = found.get(name, (0, 0, 0, 0, 0, 0))
            if name in promise.closed:
                self.check_clusters(name, verdict)
                if frames != promise.closed[name] or missing:
                    verdict.broken.append(f"{name} was closed with {promise.closed[name]} frames and has {frames}")
                continue
            if name in promise.running:
                verdict.lost_ms.append(last_ms - video_ms)
            if last_ms - video_ms > MOST_LOST_MS:
                verdict.broken.append(f"{name} has lost {last_ms - video_ms} ms of {last_ms}")
        for name in found.keys() - promise.handed.keys():
            verdict.broken.append(f"{name} was never recorded")

    @staticmethod
    def check_clusters(name, verdict):
        """A mount does not mend a closed recording; those that it finishes it can."""
        verdict.broken += [f"{name} is closed and {hazard}" for hazard in LASTING_HAZARDS
                           if name in verdict.hazards.get(hazard, [])]


def digest(path):
    return hashlib.blake2b(path.read_bytes()).hexdigest()


def fsck(partition):
    """What fsck.fat finds beside what a power cut always leaves."""
    said = subprocess.run(["fsck.fat", "-n", partition], capture_output=True, text=True)
    lines = (said.stdout + said.stderr).splitlines()
    return [line for line in lines[:-1] if line not in BLANK_LABEL and not line.startswith("fsck.fat") and
            not FSCK_EXPECTED.search(line)]


def once_a_content(judge):
    """Remembers what a judge said of a file's bytes; cuts leave the same files again and again."""
    said = {}

    def remembered(path):
        key = digest(path)
        if key not in said:
            said[key] = judge(path)
        return said[key]
    return remembered


@once_a_content
def is_playable(path):
    done = subprocess.run(["ffprobe", "-v", "quiet", "-select_streams", "v", "-read_intervals", "%+#1", "-show_entries",
                           "frame=pts", "-of", "csv=p=0", str(path)], capture_output=True, text=True)
    return done.stdout.strip() != ""


@once_a_content
def what_ffmpeg_says(path):
    return decode(str(path))
