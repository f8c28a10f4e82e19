#!/usr/bin/python3
"""Damages cards, lets ifsctl check and repair them, and asks the library what it makes of them.

Usage: check_test.py IFSCTL
"""

import hashlib
import json
import os
import struct
import unittest
from pathlib import Path

import ifsctl_test
from ifsctl_test import BOUND, START, ifsctl, must, new_card, packets, run

MAIN = ["Rec_20260305_100000_000_M.mp4", "Rec_20260305_100004_000_M.mp4", "Rec_20260305_100008_000_M.mp4"]
INDEX = "system_index_main"
CHECK_UUID = bytes.fromhex("8c1e526b0fd34a97a42d9170e63bc503")  # of the box that leads past damage
PROBLEMS = {"no-partition", "no-file-system", "unreadable", "footage-lost", "frame-damaged", "frame-order", "no-key-frame",
            "wrong-name", "entry-differs"}


setUpModule = ifsctl_test.setUpModule  # a card with both streams that every test copies


def copy_of(card, name):
    run("rm", "-rf", name)
    run("cp", "-a", card, name)
    return name


def content(card):
    """Every file of a card with its time and bytes, the image's empty space left out."""
    found = {}
    for path in filter(Path.is_file, Path(card).rglob("*")):
        with path.open("rb") as file:
            digest = hashlib.sha1(file.read(1 << 20)).hexdigest()
        found[str(path.relative_to(card))] = (path.stat().st_mtime_ns, path.stat().st_size, digest)
    return found


def read(name, card="bad"):
    return Path(card, "files", name).read_bytes()


def write(name, data, card="bad"):
    Path(card, "files", name).write_bytes(data)


def check(*arguments, card="bad"):
    done = ifsctl("--json", "check", *arguments, card=card)
    return done.returncode, json.loads(done.stdout)


def codes(report, **wanted):
    return sorted({one["code"] for one in report["findings"] if all(one[key] == value for key, value in wanted.items())})


def items():
    data = read(INDEX)
    return [data[at:at + 128] for at in range(15, len(data), 128)]


def write_items(changed):
    write(INDEX, b"system_index_v1" + b"".join(changed))


def change_first_item(offset, value):
    first, *others = items()
    write_items([first[:4 + offset] + struct.pack("<i", value) + first[4 + offset + 4:], *others])


def unfinished(data):
    """A finished recording as it was before its close: without the last moov, its fragments not hidden."""
    size, = struct.unpack(">Q", data[40:48])
    return data[:32] + struct.pack(">I4sQ", 16, b"free", 0) + data[48:32 + size]


def place_of_picture(number):
    places = run("ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pos", "-of", "csv=p=0",
                 "bad/files/" + MAIN[1]).split()
    return int(places[number])


def damage_a_picture(number=0):
    place = place_of_picture(number)
    data = read(MAIN[1])
    write(MAIN[1], data[:place] + b"\xff\xff\xff\xff" + data[place + 4:])


def patch_table(box, offset, value, track_end=b"smhd"):
    """Overwrite a field in the video track's last table of a kind, or in the sound's."""
    data = read(MAIN[1])
    at = data.rindex(box, 0, data.rindex(track_end)) + offset
    write(MAIN[1], data[:at] + struct.pack(">I", value) + data[at + 4:])


def interrupt(torn=0):
    write(MAIN[1], unfinished(read(MAIN[1])) + b"\0" * torn)
    write_items([items()[0], items()[2]])


def lose_fragments():
    """A recording of 18 s that was not finished, one byte of its second fragment lost."""
    new_card("long", "1G")
    run("ffmpeg", "-v", "error", "-y", "-stream_loop", "1", "-i", "main.mp4", "-c", "copy", "long.mp4")
    must("record", "long.mp4", "--start", START + "0", "--segment", "60", card="long")
    data = unfinished(read(MAIN[0], card="long")).replace(CHECK_UUID, b"\0" * 16)
    second = data.index(b"moof", data.index(b"moof") + 1)
    write("Rec_20260305_110000_000_M.mp4", data[:second] + b"x" + data[second + 1:])


DAMAGES = {
    "unreadable": lambda: write("Rec_20260305_110000_000_M.mp4", b"no film" * 1000),
    "footage-lost": lose_fragments,
    "frame-damaged": damage_a_picture,
    "frame-order": lambda: patch_table(b"stco", 12 + 4, 2000, track_end=b"uuid"),
    "no-key-frame": lambda: patch_table(b"stss", 12, 2),
    "wrong-name": lambda: write(MAIN[0].replace("_", "-").replace("10000", "11000"), read(MAIN[0])),
    "entry-differs": lambda: change_first_item(120, 5),
    "interrupted": interrupt,
    "stub": lambda: write("Rec_20260305_110000_000_M.mp4", unfinished(read(MAIN[0])).split(b"moof")[0]),
    "empty": lambda: write("Rec_20260305_110000_000_M.mp4", b""),
    "near-name": lambda: write("rec_20260305_110000_000_M.MP4", read(MAIN[0])),
    "index-missing": lambda: os.remove("bad/files/" + INDEX),
    "index-header": lambda: write(INDEX, b"S" + read(INDEX)[1:]),
    "index-torn": lambda: write(INDEX, read(INDEX)[:-20]),
    "index-item": lambda: write_items([items()[0], b"item" + items()[1][4:], items()[2]]),
    "index-order": lambda: write_items(reversed(items())),
    "index-duplicate": lambda: write_items([items()[0]] + items()),
    "no-entry": lambda: write_items(items()[1:]),
    "no-file": lambda: os.remove("bad/files/" + MAIN[1]),
}
DELETED_BY_A_MOUNT = {"unreadable", "wrong-name", "stub", "empty"}
NOT_MENDED_BY_A_MOUNT = {"entry-differs", "index-order"}
NOT_MENDABLE = {"unreadable", "footage-lost", "frame-damaged", "frame-order", "no-key-frame", "wrong-name", "stub", "empty",
                "near-name"}


class Check(unittest.TestCase):
    def setUp(self):
        copy_of("card", "bad")

    def test_a_clean_card_has_nothing_to_say(self):
        code, report = check(card="card")

        self.assertEqual((code, report["findings"], report["problems"], report["record_files"]), (0, [], 0, 6))
        self.assertEqual(content("card"), content("bad"))
        for one in report["recordings"]:
            path = "card/files/" + one["file"]
            self.assertEqual(one["frames"], len(packets(path, "v")) + len(packets(path, "a")))
            self.assertEqual((one["state"], one["listed"], one["size_bytes"]), ("finished", True, os.path.getsize(path)))

    def test_every_damage_is_named_left_alone_and_mended_as_the_library_would(self):
        for damage, inflict in DAMAGES.items():
            with self.subTest(damage):
                copy_of("card", "bad")
                inflict()
                before = content("bad")
                exit_code, report = check()
                self.assertEqual(codes(report), [damage])
                self.assertEqual(codes(report, severity="problem"), [damage] if damage in PROBLEMS else [])
                self.assertEqual(exit_code, 9 if damage in PROBLEMS else 0)
                self.assertEqual(content("bad"), before)
                self.repair_and_compare(damage, before)

    def repair_and_compare(self, damage, before):
        mounted = copy_of("bad", "mounted")
        exit_code, report = check("--repair")
        self.assertEqual(codes(report, mended=True), [] if damage in NOT_MENDABLE else [damage])
        self.assertEqual(exit_code, 9 if damage in PROBLEMS & NOT_MENDABLE else 0)
        self.assertEqual(codes(check()[1]), [damage] if damage in NOT_MENDABLE else [])
        self.assertLessEqual(before.keys(), content("bad").keys())
        repaired = read(INDEX)
        if damage in NOT_MENDABLE:
            self.assertEqual(content("bad"), before)

        listed = must("--json", "list", card=mounted)
        if damage not in NOT_MENDED_BY_A_MOUNT:
            self.assertEqual(must("--json", "list", card="bad"), listed)
            self.assertEqual(read(INDEX), read(INDEX, card=mounted))
        if damage not in NOT_MENDABLE:
            self.assertEqual(read(INDEX), repaired)
        gone = before.keys() - content(mounted).keys()
        self.assertEqual(len(gone), 1 if damage in DELETED_BY_A_MOUNT else 0)

    def test_what_an_interrupted_recording_still_plays_is_told(self):
        interrupt(torn=777)
        one = next(one for one in check()[1]["recordings"] if one["file"] == MAIN[1])
        self.assertEqual((one["state"], one["torn_bytes"], one["listed"]), ("interrupted", 777, False))
        self.assertAlmostEqual(one["duration_ms"], 4000, delta=100)

    def test_a_frame_that_cannot_be_read_is_told_with_its_time(self):
        damage_a_picture(30)
        report = check()[1]
        self.assertRegex(report["findings"][0]["message"], "^damaged video frames: 1 of 40, the first is frame 31 at 3.0 s: ")
        self.assertEqual([one["damaged_at_ms"] for one in report["recordings"] if one["file"] == MAIN[1]], [3000])

        copy_of("card", "bad")
        patch_table(b"stco", 12 + 4 * 3, 0x7fffffff)
        self.assertIn("damaged video frames: 10 of 40, the first is frame 31 at 3.0 s: it reaches past the end",
                      check()[1]["findings"][0]["message"])

    def test_footage_that_is_not_what_was_written_is_found_by_its_checksums(self):
        sound = {"damaged": [], "tables_differ": False}
        code, report = check("--data", card="card")
        self.assertEqual((code, report["findings"]), (0, []))
        self.assertEqual(report["data"]["bytes"], sum(one["size_bytes"] for one in report["recordings"]))
        self.assertTrue(all(one["verified"] == sound for one in report["recordings"]))

        whole = read(MAIN[1])
        at = place_of_picture(30) + 50
        duration = whole.rindex(b"mvhd") + 20
        damages = {
            "data-damaged": whole[:at] + bytes([whole[at] ^ 1]) + whole[at + 1:],
            "tables-differ": whole[:duration] + b"\1" + whole[duration + 1:],
            "no-checksums": whole.replace(CHECK_UUID, b"\0" * 16),
        }
        for damage, data in damages.items():
            with self.subTest(damage):
                write(MAIN[1], data)
                self.assertEqual(check()[1]["findings"], [])
                code, report = check("--data")
                self.assertEqual((code, codes(report)), (0 if damage == "no-checksums" else 9, [damage]))
        write(MAIN[1], damages["data-damaged"])
        place, = next(one["verified"] for one in check("--data")[1]["recordings"] if one["file"] == MAIN[1])["damaged"]
        self.assertTrue(place["from_ms"] <= 3000 <= place["to_ms"], place)

        # What was left out when a recording was finished is not missed.
        write(MAIN[1], unfinished(damages["data-damaged"]))
        write_items([items()[0], items()[2]])
        self.assertEqual(check("--repair", "--data")[0], 0)
        self.assertEqual(check("--data")[1]["findings"], [])
        self.assertNotEqual(packets("bad/files/" + MAIN[1], "v"), packets("card/files/" + MAIN[1], "v"))

    def test_what_the_system_refuses_is_named_and_not_taken_for_damage(self):
        for mode, code, exit_code in ((0o444, "interrupted", 1), (0, "read-failed", 9)):
            copy_of("card", "bad")
            interrupt()
            os.chmod("bad/files/" + MAIN[1], mode)
            done = ifsctl("--json", "check", "--repair", card="bad", run_by=BOUND)
            self.assertEqual((done.returncode, codes(json.loads(done.stdout))), (exit_code, [code]))
            ifsctl("list", card="bad", run_by=BOUND)
            self.assertIn(MAIN[1], os.listdir("bad/files"))

    def test_repair_keeps_the_entry_that_keeps_a_mount_from_deleting(self):
        write(MAIN[1], b"no film" * 1000)
        write(INDEX, read(INDEX)[:-20])
        self.assertEqual(codes(check()[1]), ["index-torn", "unreadable"])
        self.assertEqual(check("--repair")[0], 9)
        must("list", card="bad")
        self.assertEqual(read(MAIN[1]), b"no film" * 1000)

    def test_a_recording_that_only_looks_sound_to_a_mount_is_named(self):
        os.remove("bad/files/" + INDEX)
        patch_table(b"stsz", 12, 0xffffffff)
        write(MAIN[1], read(MAIN[1]).replace(b"moof", b"xxxx"), card=copy_of("bad", "unplayable"))
        self.assertEqual(codes(check()[1]), ["index-missing", "interrupted"])
        check("--repair")
        self.assertEqual(codes(check()[1]), [])
        self.assertEqual(packets("bad/files/" + MAIN[1], "v"), packets("card/files/" + MAIN[1], "v"))

        report = check(card="unplayable")[1]
        self.assertEqual(codes(report), ["index-missing", "unreadable"])
        self.assertIn("though the library lists it", str(report))
        self.assertIn(MAIN[1], must("list", card="unplayable").decode())

    def test_an_entry_is_measured_by_its_file(self):
        for offset, value, told in ((92, 1, "stream 1"), (88, 0x0a0a, "resolution code 10"), (96, 1, "width 1"),
                                    (116, 7, "audio channels 7"), (44 + 4, 30, "end 2026-03-05T10:30:0")):
            copy_of("card", "bad")
            change_first_item(offset, value)
            report = check()[1]
            self.assertEqual(codes(report), ["entry-differs"])
            self.assertIn(told, report["findings"][0]["message"])
        copy_of("card", "bad")
        write(MAIN[0], b"")
        self.assertEqual(codes(check()[1]), ["empty", "entry-differs"])

    def test_a_card_that_no_kernel_mounts_is_named(self):
        must("create", "--size", "1G", card="blank")
        exit_code, report = check(card="blank")
        self.assertEqual((exit_code, codes(report)), (9, ["no-partition"]))
        copy_of("card", "bad")
        with open("bad/card.img", "r+b") as image:
            os.pwrite(image.fileno(), b"\0", 63 * 512 + 510)
        before = content("bad")
        self.assertEqual((codes(check()[1]), check("--repair")[0]), (["no-file-system"], 9))
        self.assertEqual(content("bad"), before)

    def test_a_finding_is_a_line(self):
        os.remove("bad/files/" + MAIN[0])
        told = ifsctl("check", "--repair", card="bad").stdout.decode().splitlines()
        self.assertRegex(told[0], f"^note no-file {INDEX}: it lists {MAIN[0]}, .* Mended: the entry was dropped.$")
        frames = sum(one["frames"] for one in check()[1]["recordings"])
        self.assertEqual(told[1:],
                         [f"Recordings: 2 main, 3 sub, with {frames} frames; 5 of at most 16382 record files.",
                          "Findings: 1, mended 1, problems left 0."])


if __name__ == "__main__":
    unittest.main()
