"""Guests: Debian's kernel and a base initramfs for each processor, fetched and built once.

guest(name) returns a Guest whose kernel and base initramfs lie in the cache folder,
${IFS_VM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/ifs-vm}. What is missing is built under a temporary name and renamed
when it is whole, so that an interrupted run leaves nothing half done.
"""

import glob
import hashlib
import os
import re
import shutil
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent


class Unavailable(Exception):
    """Something a run needs cannot be had; the text is one sentence."""


@dataclass(frozen=True)
class Target:
    """A processor: what Debian calls its kernel, and how QEMU makes a machine of it."""

    name: str
    preset: str  # of CMakePresets.json
    architecture: str
    kernel_package: str
    modules: str  # in the order of loading
    qemu: tuple
    console: str
    loader: str  # path of the dynamic linker in the guest
    library_folders: tuple

    def libraries(self, program):
        """(path on the host, path in the guest) of the shared libraries of a program, the loader included."""
        needed, found = [Path(self.loader).name], {}
        queue = [program]
        while queue:
            dump = subprocess.run(["readelf", "-d", queue.pop()], check=True, capture_output=True, text=True).stdout
            needed += re.findall(r"\(NEEDED\).*\[(.*)\]", dump)
            for name in set(needed) - set(found) - {"libifs.so.1"}:
                paths = [path for folder in self.library_folders for path in glob.glob(f"{folder}/{name}")]
                if not paths:
                    raise Unavailable(f"There is no {name} for {self.name}.")
                found[name] = paths[0]
                queue.append(paths[0])
        return [(path, self.loader if name == needed[0] else f"lib/{name}") for name, path in found.items()]


VIRTIO = "virtio_ring virtio_pci_modern_dev virtio_pci_legacy_dev virtio virtio_pci virtio_blk"
FAT = "fat vfat nls_cp437 nls_ascii nls_utf8"

TARGETS = {
    "x86": Target(
        "x86", "release", "amd64", "linux-image-cloud-amd64",
        f"{VIRTIO} scsi_common scsi_mod virtio_scsi sd_mod libata ata_piix {FAT}",
        ("qemu-system-x86_64", "-M", "pc", "-cpu", "qemu64"), "ttyS0", "lib64/ld-linux-x86-64.so.2",
        ("/lib/x86_64-linux-gnu", "/usr/lib/x86_64-linux-gnu", "/lib64")),
    "mipsel": Target(
        "mipsel", "mipsel", "mipsel", "linux-image-4kc-malta",
        f"{VIRTIO} virtio_scsi ata_piix {FAT}",
        ("qemu-system-mipsel", "-M", "malta", "-cpu", "24KEc"), "ttyS0", "lib/ld.so.1",
        ("/usr/mipsel-linux-gnu/lib",)),
}


@dataclass(frozen=True)
class Guest:
    target: Target
    kernel: Path
    initramfs: Path


def cache_folder():
    base = os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache"
    return Path(os.environ.get("IFS_VM_CACHE") or Path(base) / "ifs-vm")


def guest(name):
    """The guest of a target, built if the cache lacks it."""
    target = TARGETS[name]
    if not shutil.which(target.qemu[0]):
        raise Unavailable(f"There is no {target.qemu[0]}; scripts/setup vm installs it.")
    recipe = hashlib.sha256(f"{target}".encode() + (HERE / "init").read_bytes()).hexdigest()[:12]
    folder = cache_folder() / f"{name}-{recipe}"
    if not folder.is_dir():
        build(target, folder)
    return Guest(target, folder / "vmlinuz", folder / "base.gz")


def build(target, folder):
    print(f"{target.name}: fetching Debian's kernel and busybox into {folder}", flush=True)
    folder.parent.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=folder.parent, prefix=".building-") as work:
        work = Path(work)
        fetch(target, work)
        result = work / "result"
        result.mkdir()
        shutil.copy(next(work.glob("unpacked/boot/vmlinu[xz]-*")), result / "vmlinuz")
        tree = work / "tree"
        (tree / "modules").mkdir(parents=True)
        for number, module in enumerate(target.modules.split()):
            path = next(work.glob(f"unpacked/**/kernel/**/{module}.ko"), None)
            if path is None:
                raise Unavailable(f"The kernel for {target.name} has no module {module}.")
            shutil.copy(path, tree / f"modules/{number:02}-{module}.ko")
        (tree / "bin").mkdir()
        shutil.copy(work / "unpacked/bin/busybox", tree / "bin/busybox")
        shutil.copy(HERE / "init", tree / "init")
        (tree / "init").chmod(0o755)
        pack(tree, result / "base.gz")
        try:
            result.rename(folder)
        except OSError:  # another run was faster
            if not folder.is_dir():
                raise


def fetch(target, work):
    """Download the kernel and busybox of the target's architecture with lists of their own, and unpack them."""
    (work / "lists/partial").mkdir(parents=True)
    options = [f"-oAPT::Architecture={target.architecture}", f"-oAPT::Architectures={target.architecture}",
               f"-oDir::State::Lists={work}/lists", "-oDir::State::status=/dev/null", "-oDir::Cache::pkgcache=",
               "-oDir::Cache::srcpkgcache=", "-oAPT::Sandbox::User=root",
               "-oAPT::Update::Error-Mode=any"]

    def run(*command):
        done = subprocess.run(command, cwd=work, capture_output=True, text=True)
        if done.returncode != 0:
            reason = (done.stderr.strip().splitlines() or ["no reason given"])[0]
            raise Unavailable(f"Cannot get Debian's kernel for {target.name}: {command[0]}: {reason}")
        return done.stdout

    run("apt-get", *options, "-qq", "update")
    depends = run("apt-cache", *options, "depends", target.kernel_package)
    kernel = re.search(r"Depends: (linux-image-\S+)", depends)
    if not kernel:
        raise Unavailable(f"Debian has no {target.kernel_package}.")
    run("apt-get", *options, "-qq", "download", kernel[1], "busybox-static")
    for package in work.glob("*.deb"):
        run("dpkg", "-x", package, work / "unpacked")


def pack(tree, archive):
    """Write a folder as a compressed cpio archive; several of them in a row are one initramfs."""
    subprocess.run(f"find . | cpio --quiet -o -H newc -R 0:0 | gzip -1 > '{archive}'", cwd=tree, shell=True, check=True)
