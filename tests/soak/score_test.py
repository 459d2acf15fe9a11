#!/usr/bin/env python3
"""The soak scorer must fail a run that lost, damaged or left behind anything: a scorer
that always passes would make the soak test worthless."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

SCORE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "bench", "soak", "score.py")
BLOB = bytes(range(256)) * 64  # 16 KiB, wraps around for offsets past its end
START = 1000


def audio(offset, length):
    out = bytearray()
    at = (START + offset) % len(BLOB)
    while len(out) < length:
        n = min(length - len(out), len(BLOB) - at)
        out += BLOB[at:at + n]
        at = 0
    return bytes(out)


def tagged(data):
    body = b"TIT2" + b"\0\0\0\x02\0\0" + b"\x03x"
    size = len(body)
    return b"ID3\x03\0\0" + bytes([size >> 21 & 0x7F, size >> 14 & 0x7F, size >> 7 & 0x7F, size & 0x7F]) + body + data


class ScoreTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        d = self.dir.name
        self.log = os.path.join(d, "log")
        self.radio = os.path.join(d, "radio")
        os.makedirs(self.log)
        os.makedirs(os.path.join(self.radio, "tmp"))
        with open(os.path.join(self.log, "audio.bin"), "wb") as f:
            f.write(BLOB)
        # One station: three songs whole, a fourth cut by a drop at 9000, then a page
        # answer; every fault kind once so the rotation check is met.
        self.titles = [(1600, "Soak 1 - Song 1"), (3200, "Soak 1 - Song 2"), (6400, "Soak 1 - Song 3"),
                       (8000, "Soak 1 - Song 4")]
        events = [{"event": "open", "conn": 1, "name": "1", "blobStart": START, "t": 1}]
        events += [{"event": "title", "conn": 1, "name": "1", "audioOffset": o, "title": t, "t": 2 + i}
                   for i, (o, t) in enumerate(self.titles)]
        events += [{"event": "fault", "kind": k, "conn": 1, "name": "1", "audioOffset": 9000, "t": 8} for k in
                   ("storm", "stall", "html", "drop")]
        events += [{"event": "stallEnd", "conn": 1, "name": "1", "clientLeft": True, "t": 9},
                   {"event": "close", "conn": 1, "name": "1", "audioBytes": 9000, "by": "server", "t": 9},
                   {"event": "open", "conn": 2, "name": "1", "html": True, "t": 10},
                   {"event": "close", "conn": 2, "name": "1", "audioBytes": 0, "by": "server", "t": 10}]
        with open(os.path.join(self.log, "connections.jsonl"), "w") as f:
            f.write("".join(json.dumps(e) + "\n" for e in events))
        ends = [o for o, _ in self.titles[1:]] + [9000]
        for (offset, title), end in zip(self.titles, ends):
            self.save(title, tagged(audio(offset, end - offset)))
        self.rss = [20000, 20100, 20200]

    def tearDown(self):
        self.dir.cleanup()

    def save(self, title, data):
        with open(os.path.join(self.radio, title + ".mp3"), "wb") as f:
            f.write(data)

    def run_score(self, status=0, slack=0):
        library = os.path.join(self.dir.name, "library.json")
        with open(library, "w") as f:
            json.dump([{"filePath": os.path.join(self.radio, n)} for n in os.listdir(self.radio) if n != "tmp"], f)
        rss = os.path.join(self.dir.name, "rss")
        with open(rss, "w") as f:
            f.write("\n".join(str(k) for k in self.rss))
        done = subprocess.run([sys.executable, SCORE, "--log-dir", self.log, "--radio-dir", self.radio,
                               "--stop-time", "100", "--library", library, "--rss", rss,
                               "--exit-status", str(status), "--frame-slack", str(slack)],
                              capture_output=True, text=True)
        return done.returncode, done.stdout, done.stderr

    def test_a_faithful_run_passes(self):
        code, out, err = self.run_score()
        self.assertEqual(code, 0, out + err)
        self.assertRegex(out, r"songs byte-exact\s+3\n")
        self.assertRegex(out, r"cut songs \(saved\)\s+1 \(1\)")

    def test_a_changed_byte_or_a_missing_song_is_a_loss(self):
        data = bytearray(tagged(audio(3200, 3200)))
        data[-100] ^= 1
        self.save("Soak 1 - Song 2", bytes(data))
        os.remove(os.path.join(self.radio, "Soak 1 - Song 3.mp3"))
        code, out, err = self.run_score()
        self.assertEqual(code, 1)
        self.assertRegex(out, r"songs lost\s+2\n")
        self.assertIn("Soak 1 - Song 2: 3200 bytes differ", err)
        self.assertIn("Soak 1 - Song 3: not saved", err)

    def test_partial_frames_may_go_at_the_edges_but_nothing_more(self):
        self.save("Soak 1 - Song 2", tagged(audio(3200 + 100, 3200 - 100 - 50)))
        self.assertEqual(self.run_score(slack=100)[0], 0)
        code, _, err = self.run_score(slack=99)
        self.assertEqual(code, 1)
        self.assertIn("Soak 1 - Song 2: 3050 bytes differ", err)
        # A gap in the middle is a loss whatever the slack.
        self.save("Soak 1 - Song 2", tagged(audio(3200, 1000) + audio(4300, 2100)))
        code, _, err = self.run_score(slack=200)
        self.assertEqual(code, 1)
        self.assertIn("Soak 1 - Song 2: 3100 bytes differ", err)

    def test_a_cut_song_must_hold_all_the_server_sent_before_the_drop(self):
        self.save("Soak 1 - Song 4", tagged(audio(8000, 500)))
        code, _, err = self.run_score()
        self.assertEqual(code, 1)
        self.assertIn("cut song has 500 bytes, the server sent 1000", err)

    def test_leftovers_strangers_growth_and_a_bad_exit_each_fail(self):
        cases = {
            "left in tmp": lambda: open(os.path.join(self.radio, "tmp", ".seg_1.mp3"), "wb").close(),
            "the server never sent that title": lambda: self.save("Soak 9 - Song 1", b"x"),
            "resident memory grew": lambda: self.rss.append(int(20000 * 1.15) + 2048 + 1),
            "the recorder exited 3": None,
        }
        for problem, spoil in cases.items():
            with self.subTest(problem):
                self.tearDown()
                self.setUp()
                if spoil:
                    spoil()
                code, _, err = self.run_score(status=3 if spoil is None else 0)
                self.assertEqual(code, 1)
                self.assertIn(problem, err)


if __name__ == "__main__":
    unittest.main()
