#!/usr/bin/env python3
"""A loopback ICY stream server for the recording scale benchmark.

Every GET /s/<name> gets an endless MP3-like stream: real MPEG-1 Layer III frame headers
(128 kbit/s, 44.1 kHz) with pseudo-random payload, paced at exactly --rate bytes of audio
per second, with an ICY metadata block after every --metaint audio bytes. The title
changes every --title-every blocks (each connection at its own phase, so the saves of
many sessions spread out); the length byte is 0 in between, as icecast sends it.

All connections send pieces of one fixed audio blob, each from its own start offset.
The blob is written to <log-dir>/audio.bin and every connection's story to
<log-dir>/connections.jsonl (one JSON object per line: "open" with the blob offset,
"title" with the audio offset before its block, "close" with the audio bytes sent), so
the benchmark can rebuild what each connection got and compare the recordings byte by
byte. Anything else (/status-json.xsl included) is answered 404.

Runs in its own process, so its cost is not counted against the recorder. Prints
"PORT <n>" on stdout once it listens.
"""

import argparse
import asyncio
import json
import os
import random
import sys
import time



def make_blob(seconds, rate, seed=7):
    """About `seconds` of 128 kbit/s frames: 417 or 418 bytes, averaging rate bytes/s."""
    rng = random.Random(seed)
    out = bytearray()
    slots = 0.0
    exact = 144 * 128000 / 44100  # 417.959... bytes per frame
    while len(out) < seconds * rate:
        slots += exact
        size = int(slots) - int(slots - exact)
        # MPEG-1 Layer III without CRC, 128 kbit/s, 44.1 kHz, the padding bit when 418
        # bytes long; joint stereo, original.
        out += bytes([0xFF, 0xFB, 0x92 if size == 418 else 0x90, 0x44])
        out += rng.randbytes(size - 4)
    return bytes(out)


class Server:
    def __init__(self, args):
        self.args = args
        self.blob = make_blob(args.blob_seconds, args.rate)
        os.makedirs(args.log_dir, exist_ok=True)
        with open(os.path.join(args.log_dir, "audio.bin"), "wb") as f:
            f.write(self.blob)
        self.log = open(os.path.join(args.log_dir, "connections.jsonl"), "a", buffering=1)
        self.serial = 0

    def note(self, **event):
        self.log.write(json.dumps(event, ensure_ascii=False) + "\n")

    def title_for(self, name, number):
        return f"Bench {name} - Song {number}"

    async def handle(self, reader, writer):
        try:
            request = await asyncio.wait_for(reader.readuntil(b"\r\n\r\n"), 15)
        except (asyncio.IncompleteReadError, asyncio.LimitOverrunError, asyncio.TimeoutError, ConnectionError):
            writer.close()
            return
        line = request.split(b"\r\n", 1)[0].decode("latin-1").split(" ")
        path = line[1] if len(line) > 1 else "/"
        wants_meta = b"icy-metadata: 1" in request.lower()
        if not path.startswith("/s/"):
            writer.write(b"HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
            await writer.drain()
            writer.close()
            return
        await self.stream(path[3:], wants_meta, writer)

    async def stream(self, name, wants_meta, writer):
        args = self.args
        self.serial += 1
        conn = self.serial
        blob = self.blob
        start = (conn * 104729 * 418) % len(blob)
        # Each connection changes titles at its own second within the period.
        phase = (conn * 7) % args.title_every
        head = (
            "HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nicy-name: Bench {}\r\n{}\r\n".format(
                name, f"icy-metaint: {args.metaint}\r\n" if wants_meta else ""
            )
        ).encode()
        self.note(event="open", conn=conn, name=name, blobStart=start, metadata=wants_meta)
        writer.write(head)
        sent = 0  # audio bytes
        block = 0  # metadata blocks sent
        current = None
        began = time.monotonic()
        interval = args.chunk_ms / 1000.0
        tick = 0
        try:
            while True:
                tick += 1
                delay = began + tick * interval - time.monotonic()
                if delay > 0:
                    await asyncio.sleep(delay)
                due = int((time.monotonic() - began) * args.rate) - sent
                out = bytearray()
                while due > 0:
                    if wants_meta:
                        room = args.metaint - sent % args.metaint
                        n = min(due, room)
                    else:
                        n = due
                    at = (start + sent) % len(blob)
                    piece = blob[at:at + n]
                    if len(piece) < n:
                        piece += blob[:n - len(piece)]
                    out += piece
                    sent += n
                    due -= n
                    if wants_meta and sent % args.metaint == 0:
                        block += 1
                        number = 1 + (block + phase) // args.title_every
                        if number != current:
                            current = number
                            title = self.title_for(name, number)
                            text = f"StreamTitle='{title}';".encode()
                            text += b"\0" * (-len(text) % 16)
                            out += bytes([len(text) // 16]) + text
                            self.note(event="title", conn=conn, name=name, audioOffset=sent, title=title)
                        else:
                            out += b"\0"
                writer.write(bytes(out))
                await writer.drain()
        except (ConnectionError, asyncio.CancelledError):
            pass
        finally:
            self.note(event="close", conn=conn, name=name, audioBytes=sent)
            writer.close()


async def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--log-dir", required=True)
    parser.add_argument("--rate", type=int, default=16000, help="audio bytes per second per connection")
    parser.add_argument("--metaint", type=int, default=16000)
    parser.add_argument("--title-every", type=int, default=20, help="metadata blocks per title")
    parser.add_argument("--chunk-ms", type=int, default=100, help="pacing interval per connection")
    parser.add_argument("--blob-seconds", type=int, default=150)
    args = parser.parse_args()

    server = Server(args)
    listener = await asyncio.start_server(server.handle, "127.0.0.1", args.port, backlog=1024)
    port = listener.sockets[0].getsockname()[1]
    print(f"PORT {port}", flush=True)
    async with listener:
        await listener.serve_forever()


if __name__ == "__main__":
    try:
        asyncio.run(main())
    except KeyboardInterrupt:
        sys.exit(0)
