#!/usr/bin/python3
"""Drives ifsctl from outside, on virtual cards. Usage: ifsctl_test.py IFSCTL"""

import fcntl
import glob
import json
import os
import pty
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest
from pathlib import Path

IFSCTL = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 else "ifsctl"
START = "2026-03-05T10:00:0"  # and a digit
BOUND = () if os.geteuid() else ("setpriv", "--bounding-set=-dac_override,-dac_read_search")  # by permissions, as users are
LENGTH_S = 9


def run(*command):
    return subprocess.run(command, check=True, capture_output=True).stdout


def ffmpeg(*arguments):
    return run("ffmpeg", "-v", "error", "-xerror", "-y", *arguments)


def packets(path, stream):
    """[time, data hash] of each packet of a stream, from its first one on."""
    shown = json.loads(run("ffprobe", "-v", "error", "-select_streams", stream, "-show_packets", "-show_data_hash",
                           "md5", "-show_entries", "packet=pts_time,data_hash", "-of", "json", path))["packets"]
    return [(float(packet["pts_time"]), packet["data_hash"]) for packet in shown]


def pictures(path, stream="v"):
    """The number that each decoded picture shows: the second in which it was taken."""
    raw = ffmpeg("-i", path, "-map", f"0:{stream}", "-fps_mode", "passthrough", "-vf", "scale=1:1:flags=area,format=gray",
                 "-f", "rawvideo", "-")
    return [round(luma * 219 / 255 / 20) for luma in raw]  # gray is full range


def make_input(name, size):
    """LENGTH_S seconds of picture and tone; the brightness shows the second."""
    ffmpeg("-f", "lavfi", "-i", f"nullsrc=size={size}:rate=10:duration={LENGTH_S},geq=lum='16+20*floor(T)':cb=128:cr=128",
           "-f", "lavfi", "-i", f"sine=sample_rate=16000:duration={LENGTH_S}",
           "-c:v", "libx264", "-preset", "ultrafast", "-tune", "zerolatency", "-g", "10", "-pix_fmt", "yuv420p",
           "-c:a", "aac", "-ac", "1", name)


def ifsctl(*arguments, card="card", run_by=()):
    return subprocess.run([*run_by, IFSCTL, "--card", card, *arguments], stdin=subprocess.DEVNULL, capture_output=True,
                          timeout=120, check=False)


def must(*arguments, card="card"):
    done = ifsctl(*arguments, card=card)
    if done.returncode != 0:
        raise AssertionError(f"{arguments} ended with {done.returncode}: {done.stderr.decode()}")
    return done.stdout


def new_card(path, size):
    must("create", "--size", size, card=path)
    must("format", "--yes", card=path)


def setUpModule():
    """One card for all tests, with both streams on it. The sub stream's input has ADTS and Annex B."""
    folder = tempfile.TemporaryDirectory(prefix="ifsctl-test-")
    unittest.addModuleCleanup(folder.cleanup)
    os.chdir(folder.name)
    os.environ["TZ"] = "UTC0"
    make_input("main.mp4", "160x120")
    make_input("sub.ts", "80x64")
    new_card("card", "2G")
    must("record", "main.mp4", "--sub-input", "sub.ts", "--start", START + "0", "--segment", "4")


def recordings(stream, *arguments):
    return json.loads(must("--json", "list", "--stream", stream, *arguments))


class Recording(unittest.TestCase):
    def test_recordings_follow_each_other_without_a_lost_frame(self):
        main = recordings("main")

        self.assertEqual([one["start"][-15:] for one in main],
                         ["T10:00:00+00:00", "T10:00:04+00:00", "T10:00:08+00:00"])
        self.assertEqual([one["end"][-15:] for one in main[:2]], ["T10:00:04+00:00", "T10:00:08+00:00"])
        self.assertEqual((main[0]["width"], main[0]["height"], main[0]["frame_rate"]), (160, 120, 10))
        self.assertEqual(main[0]["audio"]["sample_rate_hz"], 16000)
        self.assertEqual(main[0]["size_bytes"], os.path.getsize("card/files/" + main[0]["file"]))
        for stream, source in (("main", "main.mp4"), ("sub", "sub.ts")):
            files = [f"card/files/{one['file']}" for one in recordings(stream)]
            shown = [picture for file in files for picture in pictures(file)]
            self.assertEqual(shown, pictures(source), stream)

    def test_list_finds_what_overlaps_the_asked_time(self):
        found = recordings("sub", "--from", START + "5", "--to", START + "6")

        self.assertEqual([(one["stream"], one["start"]) for one in found], [("sub", START + "4+00:00")])
        self.assertEqual(len(must("list").splitlines()), 1 + 6)
        self.assertEqual(len(recordings("main", "--from", "2026-03-05", "--to", "2026-03-05")), 3)

    def test_tables_fit_the_terminal(self):
        for columns, headings in ((152, 9), (80, 4), (60, 5), (10, 1)):
            reader, terminal = pty.openpty()
            fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("4H", 24, columns, 0, 0))
            subprocess.run([IFSCTL, "--card", "card", "list"], stdout=terminal, check=True)
            os.close(terminal)
            with open(reader, "rb") as shown:
                table = shown.read1(1 << 16).decode().splitlines()[:1 + 6]
            self.assertEqual(len(table[0].split()), headings)
            self.assertLessEqual(max(map(len, table)), max(columns, len(START) + len("0+00:00")))

    def test_calendar_marks_the_local_day(self):
        self.addCleanup(os.environ.update, TZ="UTC0")
        # The next day begins there at 10:00:09 UTC, at 10:00:04, and at 10:00.
        for zone, days in (("EAST-13:59:51", [5]), ("EAST-13:59:56", [5, 6]), ("EAST-14", [6])):
            os.environ["TZ"] = zone
            calendar = json.loads(must("--json", "calendar", "2026-03"))
            self.assertEqual(calendar["main"], {"days": days, "recordings": 3})

        drawn = must("calendar", "2026-03").decode()
        self.assertIn("   6MS", drawn)
        self.assertEqual(drawn.count("MS"), 1)

    def test_the_environment_names_the_card_and_help_needs_none(self):
        self.assertEqual(run("env", "IFS_CARD=card", IFSCTL, "list"), must("list"))
        self.assertEqual(run(IFSCTL, "help", "play"), run(IFSCTL, "play", "--help"))
        self.assertIn(b"Exit codes:", run(IFSCTL, "help"))

    def test_info_tells_sizes_and_counts(self):
        info = json.loads(must("--json", "info"))

        self.assertLessEqual({"present": True, "formatted": True, "main_recordings": 3, "sub_recordings": 3,
                              "size_bytes": 2 << 30}.items(), info.items())
        self.assertTrue(0 < info["free_bytes"] < info["total_bytes"] < info["size_bytes"])
        self.assertTrue(info["latest"].startswith("2026-03-05T10:00:0"))

    def test_the_librarys_own_lines_stay_out_of_the_results(self):
        quiet = ifsctl("--json", "list")
        verbose = ifsctl("-v", "--json", "list")

        self.assertEqual((quiet.stdout, quiet.stderr), (verbose.stdout, b""))
        self.assertIn(b"[func:", verbose.stderr)

    def test_interrupting_a_live_recording_closes_it(self):
        for number in (signal.SIGINT, signal.SIGHUP):
            card, live_ts = f"stopped{number}", f"live{number}.ts"
            signal.signal(number, signal.SIG_DFL)  # nohup and the shell's & ignore it
            new_card(card, "1G")
            os.mkfifo(live_ts)
            with open("sub.ts", "rb") as source, open(live_ts, "r+b", buffering=0) as live:
                fcntl.fcntl(live, fcntl.F_SETPIPE_SZ, 1 << 20)
                live.write(source.read())
                begin = time.monotonic()
                recorder = subprocess.Popen([IFSCTL, "--card", card, "record", live_ts, "--realtime", "--json"],
                                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                while not any(map(os.path.getsize, glob.glob(card + "/files/Rec*"))):
                    self.assertLess(time.monotonic() - begin, 100)
                    time.sleep(0.01)
                self.assertGreater(time.monotonic() - begin, 1)  # the next key frame, which writes the first, is due then
                recorder.send_signal(number)
                output, _ = recorder.communicate(timeout=100)

            self.assertEqual(recorder.returncode, 130)
            result = json.loads(output)
            self.assertTrue(result["interrupted"])
            shown = pictures(card + "/files/" + result["recordings"][0]["file"])
            self.assertEqual(shown, pictures("sub.ts")[:len(shown)])
            self.assertGreaterEqual(len(shown), 10)


class Playing(unittest.TestCase):
    def test_play_starts_with_the_picture_of_the_asked_time(self):
        for second, text in ((0, "0"), (3, "3"), (4, "4"), (6, "6.9"), (8, "8.2")):
            for stream in ("main", "sub"):
                name = f"at{text}{stream}.h264"
                must("play", "--at", START + text, "--stream", stream, "--duration", "1", "--output", name)
                self.assertEqual(pictures(name)[0], second, (text, stream))

    def test_footage_that_begins_within_a_second_is_found_by_its_true_times(self):
        new_card("late", "1G")
        must("record", "main.mp4", "--start", START + "0.5", "--segment", "4", card="late")

        # The second recording is named after 10:00:04, its first picture was taken half a second later.
        for text, second in (("0.0", 0), ("3.4", 2), ("4.2", 3), ("4.5", 4)):
            shown = must("--json", "play", "--at", START + text, "--duration", "2", "--output", text + ".h264", card="late")
            self.assertEqual(pictures(text + ".h264")[0], second, text)
            self.assertIn(f":0{second}.500+", json.loads(shown)["from"])

    def test_play_goes_on_into_the_next_recordings(self):
        must("play", "--at", START + "2", "--duration", "5", "--output", "five.h264")
        Path("rest.h264").write_bytes(must("play", "--at", START + "2", "--output", "-"))

        self.assertEqual(pictures("five.h264"), [second for second in range(2, 7) for _ in range(10)])
        self.assertEqual(pictures("rest.h264"), [second for second in range(2, LENGTH_S) for _ in range(10)])

    def test_sound_decodes_whether_the_input_was_raw_or_adts(self):
        for stream in ("main", "sub"):
            name = f"{stream}.aac"
            must("play", "--audio", "--at", START + "2", "--duration", "4", "--stream", stream, "--output", name)
            samples = len(ffmpeg("-i", name, "-f", "s16le", "-")) // 2
            self.assertAlmostEqual(samples / 16000, 4, delta=0.2)

    def test_a_clip_across_recordings_holds_the_inputs_packets_at_their_times(self):
        must("export", "--from", START + "0", "--to", START + "9", "whole.mp4")

        for stream in ("v", "a"):
            source = [time_s for time_s, _ in packets("main.mp4", stream) if time_s >= 0]
            clip = [time_s for time_s, _ in packets("whole.mp4", stream)]
            for times in zip(clip, source, strict=True):
                self.assertAlmostEqual(*times, delta=0.0021)
        self.assertEqual(pictures("whole.mp4"), pictures("main.mp4"))

    def test_a_clip_begins_with_the_key_frame_before_its_time_and_ends_in_time(self):
        result = json.loads(must("--json", "export", "--from", START + "3.5", "--to", START + "6", "part.mp4"))

        self.assertEqual(pictures("part.mp4"), [second for second in range(3, 6) for _ in range(10)])
        self.assertTrue(result["from"].startswith("2026-03-05T10:00:03.0"))
        self.assertEqual(len(result["recordings"]), 2)

    def test_a_reader_that_has_enough_ends_the_playback_quietly(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        done = subprocess.run([IFSCTL, "--card", "card", "play", "--at", START + "0"], stdout=write_end,
                              stderr=subprocess.PIPE, check=False)
        os.close(write_end)
        self.assertEqual((done.returncode, done.stderr), (0, b""))


class BadInput(unittest.TestCase):
    def refused(self, code, *arguments, card="card"):
        before = sorted(os.listdir(".")), must("list")
        done = ifsctl(*arguments, card=card)
        sentence = done.stderr.decode()
        self.assertEqual(done.returncode, code, (arguments, sentence))
        self.assertRegex(sentence, r"\Aifsctl: [^\n]+\n\Z")
        self.assertEqual((sorted(os.listdir(".")), must("list")), before, arguments)
        return sentence

    def test_wrong_arguments_are_told_in_a_sentence(self):
        for arguments in ([], ["nonsense"], ["list", "--unknown"], ["list", "--from", "yesterday"],
                          ["list", "--from", START + "5", "--to", START + "4"], ["list", "--stream", "third"],
                          ["create", "--size", "big"], ["create", "--size", "7M"], ["create", "--size", "3T"],
                          ["list", "--from", ""], ["play", "--at", START + "1", "--duration", "nan", "--output", "x.h264"],
                          ["calendar", "2026-13"], ["record", "main.mp4", "--segment", "0"], ["record"],
                          ["play", "--at", START + "1", "--json"], ["play", "--at", START + "1", "--duration", "-1"],
                          ["export", "--from", START + "5", "--to", START + "5", "x.mp4"]):
            self.refused(2, *arguments)
        self.refused(2, "list", card="")
        for arguments, meant in ((["recrod", "x"], "record"), (["cal"], "calendar"), (["help", "paly"], "play"),
                                 (["record", "main.mp4", "--sgment=60"], "--segment"), (["list", "-json"], "--json")):
            self.assertIn(f"did you mean '{meant}'?", self.refused(2, *arguments))
        self.assertNotIn("did you mean", self.refused(2, "delete"))

    def test_what_cannot_be_done_ends_with_its_exit_code(self):
        os.mkdir("folder")
        must("create", "--size", "1G", card="blank")
        new_card("full", "400M")
        with open("full/files/other.bin", "wb") as other:
            other.truncate(260 << 20)
        part = f"export --from {START}1 --to {START}3"
        for code, card, command in ((3, "missing", "list"), (3, "folder", "list"), (4, "blank", "list"),
                                    (4, "blank", "record main.mp4"), (5, "full", "record main.mp4"),
                                    (7, "card", "export --from 2026-03-06 --to 2026-03-07 none.mp4"),
                                    (8, "card", "create --size 1G"), (8, "card", "format"),
                                    (8, "card", f"{part} main.mp4"), (8, "card", f"{part} card/files/clip.mp4"),
                                    (8, "card", f"play --at {START}1 --output main.mp4"),
                                    (8, "card", f"record main.mp4 --start {START}4")):
            self.refused(code, *command.split(), card=card)
        self.assertFalse(json.loads(must("--json", "info", card="blank"))["formatted"])

    def test_a_card_that_cannot_be_written_to_is_left_alone_and_named(self):
        run("cp", "-a", "card", "locked")
        os.makedirs("locked/files/kept/folder")
        for folder, command, told in (("", "record main.mp4", "Permission denied"),
                                      ("", "check --repair", "Permission denied"), ("", "format --yes", "Permission denied"),
                                      ("/kept", "format --yes", "files left on it: 1")):
            self.assertEqual(len(os.listdir("locked/files")), 6 + 2 + 1)
            os.chmod("locked/files" + folder, 0o555)
            done = ifsctl(*command.split(), card="locked", run_by=BOUND)
            self.assertEqual(done.returncode, 1, command)
            self.assertIn(told, done.stderr.decode())
            os.chmod("locked/files" + folder, 0o755)

    def test_inputs_that_cannot_be_recorded_are_told(self):
        Path("text.mp4").write_text("no film", encoding="utf-8")
        ffmpeg("-i", "main.mp4", "-c:v", "mpeg4", "-an", "mpeg4.mp4")
        ffmpeg("-i", "main.mp4", "-c:v", "copy", "-c:a", "mp2", "mp2.mp4")
        ffmpeg("-i", "main.mp4", "-vn", "-c:a", "copy", "sound.mp4")
        for name, word in (("missing.mp4", "No such file"), ("text.mp4", "H.264"), ("mpeg4.mp4", "libx264"),
                           ("mp2.mp4", "AAC"), ("sound.mp4", "no video")):
            self.assertIn(word, self.refused(6, "record", name))

    def test_a_time_without_recording_names_the_nearest(self):
        self.assertIn("10:00:00+00:00 to", self.refused(7, "play", "--at", "2026-03-05T09:00", "--output", "none.h264"))


if __name__ == "__main__":
    unittest.main()
