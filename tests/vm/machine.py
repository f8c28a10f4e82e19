"""Runs a guest once: boots it with a card, a script and files, and brings its results back.

    run = Machine(guest, work, card=ide_card(image)).run("host mount unmount", files={"main.frames": path}, seconds=120)
    run.results("mount")[0]["ready_ms"]

The script is run by a shell with the functions of the file init beside this one; files lie in its /data, what it
writes to its /out comes back in run.out, with library.log and kernel.log. Tests that need other drives pass their own
-drive, -blockdev and -device options as card; tests that act while the guest runs pass on_line, which gets each line of
the console and the running Machine, for Machine.monitor() and Machine.cut_power().
"""

import os
import re
import shutil
import socket
import subprocess
import tarfile
import threading
import time
from pathlib import Path

from . import guest as guests

RESULTS_BYTES = 64 << 20
HARDWARE = re.compile(r"\b(vmx|svm)\b")


class Failed(Exception):
    """A check that did not hold; the text says which."""


def check(held, sentence):
    if not held:
        raise Failed(sentence)


def ide_card(image, options="cache=unsafe"):
    """A card on an IDE bus: QEMU's options. Geometry 255/63."""
    return ["-drive", f"if=ide,index=0,format=raw,file={image},{options}"]


def scsi_card(image, options="cache=unsafe"):
    """A card that can be pulled with the monitor's "device_del card". Its geometry varies with the size."""
    return ["-device", "virtio-scsi-pci,id=bus", "-drive", f"if=none,id=slot,format=raw,file={image},{options}",
            "-device", "scsi-hd,drive=slot,id=card"]


def sparse(path, size):
    """An image of that size without data."""
    with open(path, "wb") as file:
        file.truncate(size)
    return path


class Run:
    """What a guest left behind."""

    def __init__(self, lines, out):
        self.lines = lines  # of the console
        self.out = out  # folder with its files
        exits = [int(line.split()[1]) for line in lines if re.fullmatch(r"VM-EXIT: \d+", line)]
        self.status = exits[-1] if exits else None  # of the script; None: it never came to its end

    def results(self, step):
        """The RESULT lines of a step of vm_host, each as a dictionary; numbers are numbers."""
        found = []
        for line in self.lines:
            words = line.split()
            if words[:2] == ["RESULT", step]:
                pairs = [word.split("=", 1) for word in words[2:]]
                found.append({key: int(value) if re.fullmatch(r"-?\d+", value) else value for key, value in pairs})
        return found

    def text(self, name):
        return (self.out / name).read_text(encoding="utf-8", errors="replace")


class Machine:
    """One guest. work is a folder of its own; card holds QEMU's options for the card."""

    def __init__(self, guest, work, card):
        self.guest, self.work, self.card = guest, Path(work), card
        self.process = None

    def run(self, script, files=None, seconds=120, on_line=None, status=0):
        """Boot, run the script, power off. Fails when its status is not this one or nothing came in time.

        status None takes a guest that never came to its end, as after cut_power().
        """
        self.work.mkdir(parents=True, exist_ok=True)
        self.initramfs(script, files or {})
        results = sparse(self.work / "results.img", RESULTS_BYTES)
        self.process = subprocess.Popen(self.command(results), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT)
        begin = time.monotonic()
        alarm = threading.Timer(seconds, self.process.kill)
        alarm.start()
        lines = []
        try:
            with open(self.work / "console.log", "w", encoding="utf-8") as console:
                for raw in self.process.stdout:
                    line = raw.decode(errors="replace").rstrip()
                    lines.append(line)
                    print(line, file=console, flush=True)
                    if on_line:
                        on_line(line, self)
            self.process.wait()
        finally:
            alarm.cancel()
            self.process.kill()
            self.process.wait()
        run = Run(lines, self.unpack(results))
        check(run.status == status, f"the script's status is {run.status}, not {status}, "
              f"after {time.monotonic() - begin:.0f} of {seconds} s")
        return run

    def command(self, results):
        target = self.guest.target
        accelerated = os.access("/dev/kvm", os.W_OK) and target.name == "x86" and \
            HARDWARE.search(Path("/proc/cpuinfo").read_text(encoding="utf-8"))
        return [*target.qemu, "-accel", "kvm" if accelerated else "tcg", "-m", "256", "-display", "none", "-nodefaults",
                "-no-reboot", "-serial", "stdio", "-monitor", f"unix:{self.work / 'monitor'},server=on,wait=off",
                "-kernel", self.guest.kernel, "-initrd", self.work / "initramfs.gz", "-append",
                f"console={target.console} panic=-1 quiet loglevel=1 mitigations=off",
                *self.card, "-drive", f"if=virtio,format=raw,file={results},cache=unsafe"]

    def initramfs(self, script, files):
        """The base, and behind it an archive with what belongs to this run."""
        tree = self.work / "tree"
        shutil.rmtree(tree, ignore_errors=True)
        target = self.guest.target
        built = guests.ROOT / "build" / target.preset
        placed = [(built / "tests/vm/vm_host", "bin/vm_host"), (built / "libifs.so.1", "lib/libifs.so.1"),
                  *target.libraries(built / "tests/vm/vm_host"),
                  *((path, f"data/{name}") for name, path in files.items())]
        for source, place in placed:
            (tree / place).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, tree / place)
        (tree / "run.sh").write_text(script, encoding="utf-8")
        guests.pack(tree, self.work / "over.gz")
        with open(self.work / "initramfs.gz", "wb") as both:
            for part in (self.guest.initramfs, self.work / "over.gz"):
                both.write(part.read_bytes())

    def unpack(self, results):
        out = self.work / "out"
        shutil.rmtree(out, ignore_errors=True)
        out.mkdir()
        try:
            with tarfile.open(results) as archive:
                archive.extractall(out)
        except tarfile.ReadError:
            pass  # it did not get that far
        return out

    def monitor(self, *commands):
        """Give QEMU's monitor commands while the guest runs, and wait until they are done."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(str(self.work / "monitor"))
            for command in ("", *commands):
                if command:
                    connection.sendall(command.encode() + b"\n")
                answer = b""
                while not answer.endswith(b"(qemu) "):
                    answer += connection.recv(4096)

    def cut_power(self):
        """What the guest has not synced is gone or torn."""
        self.process.kill()
