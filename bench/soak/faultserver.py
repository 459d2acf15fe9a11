#!/usr/bin/env python3
"""A loopback ICY stream server that misbehaves on purpose, for the soak test.

GET /s/<name> gets an endless 128 kbit/s MP3-like stream like bench/scale/icyserver.py
serves (the same audio blob, each connection from its own offset), with a metadata block
after every --metaint audio bytes and a new title every --title-every blocks. Titles are
numbered per stream name across its connections ("Soak <name> - Song <n>"), so a
reconnect never resumes under the title it was cut in.

Every --fault-every seconds one streaming connection, picked at random, gets the next
fault of the rotation:
  drop   the socket is closed in the middle of a song;
  stall  the connection stays open and sends nothing for --stall-sec, then is closed;
  storm  the next --storm-titles metadata blocks each carry a new title (10 in one
         second at the default rate and metaint);
  html   the connection is closed and the next --html-connections requests for the same
         name are answered "200 text/html" with a page, then closed.

The story goes to <log-dir>/connections.jsonl, one JSON object per line, each with the
wall time "t": "open" (blobStart; html true for a page answer), "title" (audio offset
before its block), "fault" (kind and the audio offset it struck at), "stallEnd"
(clientLeft: whether the client gave up on the silent connection, as an idle time-out
must), "close" (audioBytes sent; by "server" or "client"). The blob is written to
<log-dir>/audio.bin. bench/soak/score.py rebuilds what each connection sent from both.
Anything outside /s/ is answered 404. Prints "PORT <n>" on stdout once it listens.
"""

import argparse
import asyncio
import json
import os
import random
import signal
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scale"))
from icyserver import make_blob  # noqa: E402

FAULTS = ("drop", "stall", "storm", "html")

HTML_PAGE = (
    b"<!DOCTYPE html>\n<html><head><title>Stream offline</title></head>\n"
    b"<body><h1>This stream is offline</h1><p>Please come back later.</p></body></html>\n"
)


class Connection:
    def __init__(self, serial, name):
        self.serial = serial
        self.name = name
        self.fault = None  # the fault asked for and not yet begun
        self.titles = 0
        self.client_left = asyncio.Event()


class Server:
    def __init__(self, args):
        self.args = args
        self.blob = make_blob(args.blob_seconds, args.rate)
        os.makedirs(args.log_dir, exist_ok=True)
        with open(os.path.join(args.log_dir, "audio.bin"), "wb") as f:
            f.write(self.blob)
        self.log = open(os.path.join(args.log_dir, "connections.jsonl"), "a", buffering=1)
        self.serial = 0
        self.song = {}  # name -> last song number handed out
        self.html_left = {}  # name -> page answers still due
        self.streaming = {}  # serial -> Connection
        self.rng = random.Random(args.seed)

    def note(self, **event):
        event["t"] = round(time.time(), 3)
        self.log.write(json.dumps(event, ensure_ascii=False) + "\n")

    def next_title(self, name):
        self.song[name] = self.song.get(name, 0) + 1
        return f"Soak {name} - Song {self.song[name]}"

    async def handle(self, reader, writer):
        try:
            request = await asyncio.wait_for(reader.readuntil(b"\r\n\r\n"), 15)
        except (asyncio.IncompleteReadError, asyncio.LimitOverrunError, asyncio.TimeoutError, ConnectionError):
            writer.close()
            return
        line = request.split(b"\r\n", 1)[0].decode("latin-1").split(" ")
        path = line[1] if len(line) > 1 else "/"
        if not path.startswith("/s/"):
            writer.write(b"HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
            await writer.drain()
            writer.close()
            return
        name = path[3:]
        self.serial += 1
        if self.html_left.get(name, 0) > 0:
            self.html_left[name] -= 1
            await self.page(self.serial, name, writer)
            return
        wants_meta = b"icy-metadata: 1" in request.lower()
        conn = Connection(self.serial, name)
        watcher = asyncio.ensure_future(self.watch(reader, conn))
        try:
            await self.stream(conn, wants_meta, writer)
        finally:
            watcher.cancel()

    async def page(self, serial, name, writer):
        self.note(event="open", conn=serial, name=name, html=True)
        writer.write(
            b"HTTP/1.0 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n"
            + f"Content-Length: {len(HTML_PAGE)}\r\n\r\n".encode()
            + HTML_PAGE
        )
        try:
            await writer.drain()
        except ConnectionError:
            pass
        self.note(event="close", conn=serial, name=name, audioBytes=0, by="server")
        writer.close()

    async def watch(self, reader, conn):
        # The client sends nothing after its request: end of input means it hung up.
        try:
            while await reader.read(4096):
                pass
        except ConnectionError:
            pass
        conn.client_left.set()

    async def stream(self, conn, wants_meta, writer):
        args = self.args
        blob = self.blob
        start = (conn.serial * 104729 * 418) % len(blob)
        phase = (conn.serial * 7) % args.title_every
        head = (
            "HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nicy-name: Soak {}\r\n{}\r\n".format(
                conn.name, f"icy-metaint: {args.metaint}\r\n" if wants_meta else ""
            )
        ).encode()
        self.note(event="open", conn=conn.serial, name=conn.name, blobStart=start, metadata=wants_meta)
        writer.write(head)
        self.streaming[conn.serial] = conn
        sent = 0  # audio bytes
        block = 0  # metadata blocks sent
        current = None  # song slot of the regular schedule
        storm_left = 0
        by = "client"
        began = time.monotonic()
        interval = args.chunk_ms / 1000.0
        tick = 0
        try:
            while True:
                tick += 1
                delay = began + tick * interval - time.monotonic()
                if delay > 0:
                    await asyncio.sleep(delay)
                if conn.client_left.is_set():
                    break
                fault, conn.fault = conn.fault, None
                if fault is not None:
                    self.note(event="fault", kind=fault, conn=conn.serial, name=conn.name, audioOffset=sent)
                if fault in ("drop", "html"):
                    if fault == "html":
                        self.html_left[conn.name] = args.html_connections
                    by = "server"
                    break
                if fault == "stall":
                    await writer.drain()
                    waited = time.monotonic()
                    try:
                        await asyncio.wait_for(conn.client_left.wait(), args.stall_sec)
                    except asyncio.TimeoutError:
                        pass
                    self.note(
                        event="stallEnd", conn=conn.serial, name=conn.name,
                        clientLeft=conn.client_left.is_set(), waitedSec=round(time.monotonic() - waited, 3),
                    )
                    by = "server"
                    break
                if fault == "storm":
                    storm_left = args.storm_titles
                due = int((time.monotonic() - began) * args.rate) - sent
                out = bytearray()
                while due > 0:
                    n = min(due, args.metaint - sent % args.metaint) if wants_meta else due
                    at = (start + sent) % len(blob)
                    piece = blob[at:at + n]
                    if len(piece) < n:
                        piece += blob[:n - len(piece)]
                    out += piece
                    sent += n
                    due -= n
                    if wants_meta and sent % args.metaint == 0:
                        block += 1
                        slot = (block + phase) // args.title_every
                        if storm_left > 0 or slot != current:
                            storm_left = max(0, storm_left - 1)
                            current = slot
                            title = self.next_title(conn.name)
                            conn.titles += 1
                            text = f"StreamTitle='{title}';".encode()
                            text += b"\0" * (-len(text) % 16)
                            out += bytes([len(text) // 16]) + text
                            self.note(event="title", conn=conn.serial, name=conn.name, audioOffset=sent, title=title)
                        else:
                            out += b"\0"
                writer.write(bytes(out))
                await writer.drain()
        except (ConnectionError, asyncio.CancelledError):
            pass
        finally:
            del self.streaming[conn.serial]
            self.note(event="close", conn=conn.serial, name=conn.name, audioBytes=sent, by=by)
            writer.close()

    async def inject(self):
        """One fault every --fault-every seconds, the kinds in turn, each on a random
        connection that has had a title (so there is a song to cut) and no fault pending."""
        turn = 0
        while True:
            await asyncio.sleep(self.args.fault_every)
            ready = [c for c in self.streaming.values() if c.titles > 0 and c.fault is None]
            if not ready:
                continue
            victim = self.rng.choice(sorted(ready, key=lambda c: c.serial))
            victim.fault = self.args.kinds[turn % len(self.args.kinds)]
            turn += 1


async def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--log-dir", required=True)
    parser.add_argument("--rate", type=int, default=16000, help="audio bytes per second per connection")
    parser.add_argument("--metaint", type=int, default=1600)
    parser.add_argument("--title-every", type=int, default=200, help="metadata blocks per title")
    parser.add_argument("--chunk-ms", type=int, default=100, help="pacing interval per connection")
    parser.add_argument("--blob-seconds", type=int, default=150)
    parser.add_argument("--fault-every", type=float, default=60, help="seconds between two faults")
    parser.add_argument("--stall-sec", type=float, default=25)
    parser.add_argument("--storm-titles", type=int, default=10)
    parser.add_argument("--html-connections", type=int, default=2)
    parser.add_argument("--kinds", type=lambda text: text.split(","), default=list(FAULTS),
                        help="the rotation, e.g. stall,drop (default: %s)" % ",".join(FAULTS))
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args()

    server = Server(args)
    listener = await asyncio.start_server(server.handle, "127.0.0.1", args.port, backlog=1024)
    port = listener.sockets[0].getsockname()[1]
    print(f"PORT {port}", flush=True)
    injector = asyncio.ensure_future(server.inject())
    # Ended with SIGTERM: the streams' close lines are still written on the way out.
    asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, asyncio.current_task().cancel)
    try:
        async with listener:
            await listener.serve_forever()
    finally:
        injector.cancel()


if __name__ == "__main__":
    try:
        asyncio.run(main())
    except (KeyboardInterrupt, asyncio.CancelledError):
        sys.exit(0)
