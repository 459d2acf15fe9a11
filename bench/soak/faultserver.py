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

import asyncio
import os
import random
import sys
import time

sys.dont_write_bytecode = True  # no cache folder in the source tree
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "scale"))
import icyserver  # noqa: E402
from icyserver import paced_audio, read_stream_request, stream_head, ticks, title_block  # noqa: E402

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


class Server(icyserver.Server):
    def __init__(self, args):
        super().__init__(args)
        self.song = {}  # name -> last song number handed out
        self.html_left = {}  # name -> page answers still due
        self.streaming = {}  # serial -> Connection
        self.rng = random.Random(args.seed)

    def next_title(self, name):
        self.song[name] = self.song.get(name, 0) + 1
        return f"Soak {name} - Song {self.song[name]}"

    async def handle(self, reader, writer):
        asked = await read_stream_request(reader, writer)
        if not asked:
            return
        name, wants_meta = asked
        self.serial += 1
        if self.html_left.get(name, 0) > 0:
            self.html_left[name] -= 1
            await self.page(self.serial, name, writer)
            return
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
        start = (conn.serial * 104729 * 418) % len(self.blob)
        phase = (conn.serial * 7) % args.title_every
        metaint = args.metaint if wants_meta else None
        self.note(event="open", conn=conn.serial, name=conn.name, blobStart=start, metadata=wants_meta)
        writer.write(stream_head(f"Soak {conn.name}", metaint))
        self.streaming[conn.serial] = conn
        sent = 0  # audio bytes
        block = 0  # metadata blocks sent
        current = None  # song slot of the regular schedule
        storm_left = 0
        by = "client"

        def at_block(offset):
            nonlocal block, current, storm_left
            block += 1
            slot = (block + phase) // args.title_every
            if storm_left == 0 and slot == current:
                return b"\0"
            storm_left = max(0, storm_left - 1)
            current = slot
            title = self.next_title(conn.name)
            conn.titles += 1
            self.note(event="title", conn=conn.serial, name=conn.name, audioOffset=offset, title=title)
            return title_block(title)

        try:
            async for elapsed in ticks(args.chunk_ms / 1000.0):
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
                out, sent = paced_audio(self.blob, start, sent, int(elapsed * args.rate) - sent, metaint, at_block)
                writer.write(out)
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
    parser = icyserver.stream_arguments(__doc__.split("\n\n")[0], metaint=1600, title_every=200)
    parser.add_argument("--fault-every", type=float, default=60, help="seconds between two faults")
    parser.add_argument("--stall-sec", type=float, default=25)
    parser.add_argument("--storm-titles", type=int, default=10)
    parser.add_argument("--html-connections", type=int, default=2)
    parser.add_argument("--kinds", type=lambda text: text.split(","), default=list(FAULTS),
                        help="the rotation, e.g. stall,drop (default: %s)" % ",".join(FAULTS))
    parser.add_argument("--seed", type=int, default=1)
    server = Server(parser.parse_args())
    await icyserver.serve(server, server.inject())


if __name__ == "__main__":
    icyserver.run(main)
