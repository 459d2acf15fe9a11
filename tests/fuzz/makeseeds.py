#!/usr/bin/env python3
"""Writes the binary seeds of the ICY demultiplexer's corpus (tests/fuzz/corpus/icydemux/).

Each seed is what icydemux_fuzz reads: two bytes of metadata interval minus one, eight
bytes that seed the chunking, then an ICY body. The audio is real MP3 made by ffmpeg (a
short tone), so the seeds look like what a station sends.
"""
import pathlib
import struct
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
OUT = HERE / "corpus" / "icydemux"


def mp3(seconds, bitrate="32k"):
    return subprocess.run(
        ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"sine=frequency=440:duration={seconds}",
         "-ac", "1", "-ar", "22050", "-b:a", bitrate, "-id3v2_version", "0", "-write_xing", "0", "-f", "mp3", "-"],
        check=True, capture_output=True).stdout


def meta(text):
    if not text:
        return b"\0"
    blocks = (len(text) + 15) // 16
    return bytes([blocks]) + text.ljust(blocks * 16, b"\0")


def body(audio, metaint, texts):
    out = bytearray()
    for i in range(0, len(audio), metaint):
        out += audio[i:i + metaint]
        if i + metaint <= len(audio):
            out += meta(texts[(i // metaint) % len(texts)])
    return bytes(out)


def seed(name, metaint, chunk_seed, data):
    OUT.mkdir(parents=True, exist_ok=True)
    (OUT / name).write_bytes(struct.pack(">HQ", metaint - 1, chunk_seed) + data)


def main():
    audio = mp3(0.5)
    seed("titles_utf8", 256, 1, body(audio, 256, [
        b"StreamTitle='Daft Punk - One More Time';StreamUrl='';",
        b"",
        "StreamTitle='Sigur Rós - Hoppípolla';".encode(),
        b"",
    ]))
    seed("title_latin1_quote", 512, 2, body(audio, 512, [
        "StreamTitle='Motörhead - It's a Long Way';".encode("latin-1"),
        b"",
    ]))
    seed("no_closing_pair", 97, 3, body(audio[:1200], 97, [
        b"StreamTitle='Unclosed",
        b"StreamUrl='x';StreamTitle='';",
        b"StreamTitle='Last';",
    ]))
    # Ends inside a metadata block: the title must not be announced.
    whole = body(audio[:1024], 1024, [b"StreamTitle='Cut Short - Never Seen';"])
    seed("cut_in_metadata", 1024, 4, whole[:-10])
    seed("metaint_header_text", 8192, 5, b" +8192\r\n" + audio[:300])


if __name__ == "__main__":
    main()
