#!/usr/bin/env python3
"""Scores a soak run: what faultserver.py sent against what the recorder saved.

A song is the audio between its title's metadata block and the next title's block of
the same connection. It is "whole" when the recorder must have seen both titles: the
next title came before the connection ended by the server's hand (a drop, a stall, a
page), more than --seen-margin seconds before the client hung up, or the recorder printed
it. A whole song must be saved byte for byte (audio after the ID3v2 tag), but for at most
--frame-slack bytes at either end: the recorder keeps whole audio frames only, so the
partial frame a cut leaves at each edge goes. The last song of a connection is "cut": when
saved, its file must begin with what the connection sent of it (within the same slack),
all of it when the server ended the connection; when the recorder must have seen its
title, the file must be there.

Further checks: every stall was given up by the client (its idle time-out), the recorder
hung up on no healthy stream before the stop, every file belongs to a title the server
sent and is in the library, nothing is left in the radio folder's "tmp", resident memory
stayed flat, and the recorder exited 0. Prints a table; exits 1 when a check fails.
"""

import argparse
import collections
import json
import os
import sys


def without_id3v2(data):
    if len(data) >= 10 and data[:3] == b"ID3":
        size = (data[6] & 0x7F) << 21 | (data[7] & 0x7F) << 14 | (data[8] & 0x7F) << 7 | (data[9] & 0x7F)
        return data[10 + size:]
    return data


class Conn:
    def __init__(self, serial, name):
        self.serial = serial
        self.name = name
        self.html = False
        self.blob_start = 0
        self.titles = []  # (audio offset, title, wall time)
        self.faults = []
        self.end = None  # audio bytes sent
        self.by = None  # who ended it: "server" or "client"
        self.closed_at = None
        self.stall_left = None  # for a stalled connection: did the client give up on it


def read_log(path):
    conns = {}
    for line in open(path, encoding="utf-8"):
        if not line.strip():
            continue
        e = json.loads(line)
        c = conns.setdefault(e["conn"], Conn(e["conn"], e["name"]))
        kind = e["event"]
        if kind == "open":
            c.html = bool(e.get("html"))
            c.blob_start = e.get("blobStart", 0)
        elif kind == "title":
            c.titles.append((e["audioOffset"], e["title"], e["t"]))
        elif kind == "fault":
            c.faults.append(e["kind"])
        elif kind == "stallEnd":
            c.stall_left = e["clientLeft"]
        elif kind == "close":
            c.end, c.by, c.closed_at = e["audioBytes"], e["by"], e["t"]
    return conns


def sent(blob, start, offset, length):
    out = bytearray()
    at = (start + offset) % len(blob)
    while len(out) < length:
        n = min(length - len(out), len(blob) - at)
        out += blob[at:at + n]
        at = 0
    return bytes(out)


def located(audio, expected, slack):
    """Where `audio` stands in `expected`, at most `slack` bytes from its start, as far as
    the two overlap; None when nowhere."""
    if not audio:
        return None
    probe = audio[:64]
    end = slack + len(probe)
    at = expected.find(probe, 0, end)
    while at != -1:
        if expected.startswith(audio[:len(expected) - at], at):
            return at
        at = expected.find(probe, at + 1, end)
    return None


def rss_flat(samples_kib, growth, slack_kib):
    """The last sample may exceed the first by `growth` of it plus `slack_kib`."""
    if len(samples_kib) < 2:
        return True, None
    limit = samples_kib[0] * (1 + growth) + slack_kib
    return samples_kib[-1] <= limit, limit


def whole(audio, expected, slack):
    at = located(audio, expected, slack)
    return at is not None and 0 <= len(expected) - at - len(audio) <= slack


def score(args):
    problems = []
    conns = read_log(os.path.join(args.log_dir, "connections.jsonl"))
    blob = open(os.path.join(args.log_dir, "audio.bin"), "rb").read()
    printed = set()
    if args.events:
        for line in open(args.events, encoding="utf-8", errors="replace"):
            kind, _, text = line.rstrip("\n").partition("\t")
            if kind == "title":
                printed.add(text)

    files = {}  # title -> path
    for folder, dirs, names in os.walk(args.radio_dir):
        dirs[:] = [d for d in dirs if d != "tmp"]
        for n in names:
            files[os.path.splitext(n)[0]] = os.path.join(folder, n)
    tmp = os.path.join(args.radio_dir, "tmp")
    leftovers = sorted(os.listdir(tmp)) if os.path.isdir(tmp) else []

    count = collections.Counter()
    known = set()
    for c in sorted(conns.values(), key=lambda c: c.serial):
        if c.html:
            count["pages"] += 1
            continue
        count["connections"] += 1
        for f in c.faults:
            count["fault " + f] += 1
        if c.by is None:  # the server went down first; nothing it logged is certain
            c.by, c.end, c.closed_at = "client", c.titles[-1][0] if c.titles else 0, args.stop_time
        if "stall" in c.faults and not c.stall_left:
            problems.append(f"conn {c.serial} ({c.name}): the recorder sat through a stall without hanging up")
        if c.by == "client" and c.closed_at < args.stop_time:
            count["unasked hang-ups"] += 1
            problems.append(f"conn {c.serial} ({c.name}): the recorder hung up on a healthy stream")

        def seen(i):
            if c.by == "server" or c.titles[i][1] in printed:
                return True
            return c.titles[i][2] < c.closed_at - args.seen_margin

        for i, (offset, title, _) in enumerate(c.titles):
            known.add(title)
            path = files.get(title)
            audio = without_id3v2(open(path, "rb").read()) if path else None
            if i + 1 < len(c.titles) and seen(i + 1):
                count["whole"] += 1
                want = c.titles[i + 1][0] - offset
                if audio is None:
                    count["lost"] += 1
                    problems.append(f"{title}: not saved")
                elif not whole(audio, sent(blob, c.blob_start, offset, want), args.frame_slack):
                    count["lost"] += 1
                    problems.append(f"{title}: {len(audio)} bytes differ from the {want} sent")
                else:
                    count["byte-exact"] += 1
                continue
            count["cut"] += 1
            if audio is None:
                if seen(i):
                    count["cut lost"] += 1
                    problems.append(f"{title}: cut song not saved")
                continue
            count["cut saved"] += 1
            have = c.end - offset
            if c.by == "server" and len(audio) < have - 2 * args.frame_slack:
                problems.append(f"{title}: cut song has {len(audio)} bytes, the server sent {have}")
            # Less than a frame of the song before the connection failed is a partial frame
            # the byte-exact writer drops; the file then holds only what the next
            # connection sent before its first title, so there is nothing here to compare.
            if have <= args.frame_slack:
                continue
            if located(audio, sent(blob, c.blob_start, offset, have), args.frame_slack) is None:
                problems.append(f"{title}: cut song does not begin with what was sent")

    strangers = sorted(t for t in files if t not in known)
    for t in strangers:
        problems.append(f"{t}: saved, but the server never sent that title")
    if leftovers:
        problems.append(f"left in tmp: {', '.join(leftovers[:5])}{' ...' if len(leftovers) > 5 else ''}")

    unfiled = []
    if args.library:
        listed = {t.get("filePath") for t in json.load(open(args.library, encoding="utf-8"))}
        unfiled = sorted(p for p in files.values() if p not in listed)
        for p in unfiled[:5]:
            problems.append(f"{p}: saved but not in the library")

    rss = [int(x) for x in open(args.rss).read().split()] if args.rss else []
    flat, limit = rss_flat(rss, args.rss_growth, args.rss_slack_mib * 1024)
    if not flat:
        problems.append(f"resident memory grew: {rss[-1]} KiB at the end, at most {limit:.0f} KiB allowed")
    if args.exit_status != 0:
        problems.append(f"the recorder exited {args.exit_status}")
    for f in ("drop", "stall", "storm", "html"):
        if count["fault " + f] == 0:
            problems.append(f"no {f} fault came up")
    if count["whole"] == 0:
        problems.append("no whole song to check")

    rows = [
        ("connections (pages)", f"{count['connections']} ({count['pages']})"),
        ("faults drop/stall/storm/html", "/".join(str(count["fault " + f]) for f in ("drop", "stall", "storm", "html"))),
        ("songs expected whole", count["whole"]),
        ("songs byte-exact", count["byte-exact"]),
        ("songs lost", count["lost"] + count["cut lost"]),
        ("cut songs (saved)", f"{count['cut']} ({count['cut saved']})"),
        ("unasked hang-ups", count["unasked hang-ups"]),
        ("files not in library", len(unfiled)),
        ("files left in tmp", len(leftovers)),
        ("rss first/last MiB", f"{rss[0] / 1024:.1f}/{rss[-1] / 1024:.1f}" if rss else "-"),
        ("rss limit MiB", f"{limit / 1024:.1f}" if limit else "-"),
        ("recorder exit status", args.exit_status),
    ]
    for label, value in rows:
        print(f"{label:<30} {value}")
    for p in problems[:30]:
        print("FAIL " + p, file=sys.stderr)
    print("result                         " + ("FAIL" if problems else "ok"))
    return 1 if problems else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--log-dir", required=True, help="faultserver.py's log folder")
    parser.add_argument("--radio-dir", required=True)
    parser.add_argument("--stop-time", type=float, required=True, help="wall time of the SIGTERM")
    parser.add_argument("--events", help="the recorder's event lines")
    parser.add_argument("--library", help="orvida-cli library list --json")
    parser.add_argument("--rss", help="resident memory samples in KiB, one a line")
    parser.add_argument("--rss-growth", type=float, default=0.15)
    parser.add_argument("--rss-slack-mib", type=float, default=2)
    parser.add_argument("--exit-status", type=int, default=0)
    parser.add_argument("--frame-slack", type=int, default=0,
                        help="bytes a save may leave out at each edge of a song (a partial frame)")
    parser.add_argument("--seen-margin", type=float, default=10)
    sys.exit(score(parser.parse_args()))


if __name__ == "__main__":
    main()
