#!/usr/bin/env python3
"""A loopback ICY stream server for the recording scale benchmark.

Every GET /s/<name> gets an endless MP3 stream (128 kbit/s, 44.1 kHz, encoded pink noise;
see make_blob), paced at exactly --rate bytes of audio
per second, with an ICY metadata block after every --metaint audio bytes. The title
changes every --title-every blocks (each connection at its own phase, so the saves of
many sessions spread out); the length byte is 0 in between, as icecast sends it.

All connections send pieces of one fixed audio blob, each from its own start offset.
The blob is written to <log-dir>/audio.bin and every connection's story to
<log-dir>/connections.jsonl (one JSON object per line, each with the wall time "t":
"open" with the blob offset, "title" with the audio offset before its block, "close"
with the audio bytes sent), so the benchmark can rebuild what each connection got and
compare the recordings byte by byte. Anything else (/status-json.xsl included) is answered 404.

Runs in its own process, so its cost is not counted against the recorder. Prints
"PORT <n>" on stdout once it listens.
"""

import argparse
import asyncio
import json
import os
import random
import signal
import subprocess
import sys
import time



def make_blob(seconds, rate, seed=7):
    """About `seconds` of 128 kbit/s, 44.1 kHz MP3 frames (417 or 418 bytes, averaging
    rate bytes/s): pink noise encoded by ffmpeg, so that recorders which decode what they
    record (streamripper looks for silence) get real audio; frame headers over random
    payload where ffmpeg is missing."""
    if rate == 16000:
        try:
            encoded = subprocess.run(
                ["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                 f"anoisesrc=d={seconds}:c=pink:r=44100:a=0.3:seed={seed}", "-ac", "2",
                 "-c:a", "libmp3lame", "-b:a", "128k", "-write_xing", "0", "-id3v2_version", "0",
                 "-f", "mp3", "-"], check=True, capture_output=True, timeout=120).stdout
            if len(encoded) >= seconds * rate * 0.9:
                return encoded
        except (OSError, subprocess.SubprocessError):
            pass
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


async def read_stream_request(reader, writer):
    """The stream name of a GET /s/<name> and whether it asked for ICY metadata; None
    when the request was anything else (answered 404) or never came."""
    try:
        request = await asyncio.wait_for(reader.readuntil(b"\r\n\r\n"), 15)
    except (asyncio.IncompleteReadError, asyncio.LimitOverrunError, asyncio.TimeoutError, ConnectionError):
        writer.close()
        return None
    line = request.split(b"\r\n", 1)[0].decode("latin-1").split(" ")
    path = line[1] if len(line) > 1 else "/"
    if not path.startswith("/s/"):
        writer.write(b"HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
        await writer.drain()
        writer.close()
        return None
    return path[3:], b"icy-metadata: 1" in request.lower()


def stream_head(station, metaint):
    """The response head of a stream; metaint None: no ICY metadata."""
    return "HTTP/1.0 200 OK\r\nContent-Type: audio/mpeg\r\nicy-name: {}\r\n{}\r\n".format(
        station, f"icy-metaint: {metaint}\r\n" if metaint else ""
    ).encode()


def title_block(title):
    """A metadata block announcing `title`, length byte first."""
    text = f"StreamTitle='{title}';".encode()
    text += b"\0" * (-len(text) % 16)
    return bytes([len(text) // 16]) + text


def paced_audio(blob, start, sent, due, metaint, at_block):
    """`due` audio bytes of the blob from audio offset `sent` of a connection that began at
    blob offset `start`, with the bytes at_block(audio offset) returns after every
    `metaint` audio bytes (metaint None: none). Returns the bytes and the new offset."""
    out = bytearray()
    while due > 0:
        n = min(due, metaint - sent % metaint) if metaint else due
        at = (start + sent) % len(blob)
        piece = blob[at:at + n]
        if len(piece) < n:
            piece += blob[:n - len(piece)]
        out += piece
        sent += n
        due -= n
        if metaint and sent % metaint == 0:
            out += at_block(sent)
    return bytes(out), sent


async def ticks(interval):
    """Yields the seconds since the first tick, one tick every `interval` seconds."""
    began = time.monotonic()
    tick = 0
    while True:
        tick += 1
        delay = began + tick * interval - time.monotonic()
        if delay > 0:
            await asyncio.sleep(delay)
        yield time.monotonic() - began


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
        event["t"] = round(time.time(), 3)  # wall time
        self.log.write(json.dumps(event, ensure_ascii=False) + "\n")

    def title_for(self, name, number):
        return f"Bench {name} - Song {number}"

    async def handle(self, reader, writer):
        asked = await read_stream_request(reader, writer)
        if asked:
            await self.stream(*asked, writer)

    async def stream(self, name, wants_meta, writer):
        args = self.args
        self.serial += 1
        conn = self.serial
        start = (conn * 104729 * 418) % len(self.blob)
        # Each connection changes titles at its own second within the period.
        phase = (conn * 7) % args.title_every
        metaint = args.metaint if wants_meta else None
        self.note(event="open", conn=conn, name=name, blobStart=start, metadata=wants_meta)
        writer.write(stream_head(f"Bench {name}", metaint))
        sent = 0  # audio bytes
        block = 0  # metadata blocks sent
        current = None

        def at_block(offset):
            nonlocal block, current
            block += 1
            number = 1 + (block + phase) // args.title_every
            if number == current:
                return b"\0"
            current = number
            title = self.title_for(name, number)
            self.note(event="title", conn=conn, name=name, audioOffset=offset, title=title)
            return title_block(title)

        try:
            async for elapsed in ticks(args.chunk_ms / 1000.0):
                out, sent = paced_audio(self.blob, start, sent, int(elapsed * args.rate) - sent, metaint, at_block)
                writer.write(out)
                await writer.drain()
        except (ConnectionError, asyncio.CancelledError):
            pass
        finally:
            self.note(event="close", conn=conn, name=name, audioBytes=sent)
            writer.close()


def stream_arguments(description, metaint, title_every):
    """The options every loopback stream server takes; parse_args() gives its args."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--log-dir", required=True)
    parser.add_argument("--rate", type=int, default=16000, help="audio bytes per second per connection")
    parser.add_argument("--metaint", type=int, default=metaint)
    parser.add_argument("--title-every", type=int, default=title_every, help="metadata blocks per title")
    parser.add_argument("--chunk-ms", type=int, default=100, help="pacing interval per connection")
    parser.add_argument("--blob-seconds", type=int, default=150)
    return parser


async def serve(server, *beside):
    """Serves until SIGTERM or SIGINT, running the coroutines `beside` alongside; on the
    way out every stream still writes its close line."""
    listener = await asyncio.start_server(server.handle, "127.0.0.1", server.args.port, backlog=1024)
    port = listener.sockets[0].getsockname()[1]
    print(f"PORT {port}", flush=True)
    tasks = [asyncio.ensure_future(c) for c in beside]
    asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, asyncio.current_task().cancel)
    try:
        async with listener:
            await listener.serve_forever()
    finally:
        for task in tasks:
            task.cancel()


def run(main):
    try:
        asyncio.run(main())
    except (KeyboardInterrupt, asyncio.CancelledError):
        sys.exit(0)


async def main():
    args = stream_arguments(__doc__.split("\n\n")[0], metaint=16000, title_every=20).parse_args()
    await serve(Server(args))


if __name__ == "__main__":
    run(main)
