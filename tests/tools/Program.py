"""Program.py - what the tests of the program `vorn` share: files to give it, and a class that runs it.

Each of the tests is a program:  NAMETest.py PATH-OF-VORN [unittest arguments]
"""
import contextlib
import csv
import fcntl
import glob
import json
import math
import os
import pty
import random
import re
import resource
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest
import zlib

VORN = os.path.abspath(sys.argv.pop(1))
DONE, FAILED, USAGE, DIFFERS, DAMAGED, EXISTS, STOPPED = 0, 1, 2, 3, 4, 5, 130


def y4m(header, frames):
    return b"YUV4MPEG2 " + header.encode() + b"\n" + b"".join(b"FRAME\n" + frame for frame in frames)


def wav(samples, rate=8000, channels=1, bits=16, kind=1, data=None):
    """A WAV file; `samples` are whole numbers, or floating point numbers if kind is 3."""
    if data is None:
        if kind == 3:
            data = struct.pack("<%df" % len(samples), *samples)
        elif bits == 8:
            data = bytes(s + 128 for s in samples)
        else:
            data = b"".join(struct.pack("<i", s)[: bits // 8] for s in samples)
    align = channels * bits // 8
    head = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(data), b"WAVE", b"fmt ", 16, kind, channels, rate,
                       rate * align, align, bits, b"data", len(data))
    return head + data


def tone(count, rate=8000, hertz=440):
    return [round(9000 * math.sin(2 * math.pi * hertz * i / rate)) for i in range(count)]


def noise_frames(width, height, count, seed=1):
    source = random.Random(seed)
    return [source.randbytes(width * height * 4) for _ in range(count)]


def read_png(path):
    """Width, height, bytes a pixel and pixels of an 8-bit PNG file."""
    with open(path, "rb") as file:
        data = file.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, packed = 8, b""
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + size]
        assert zlib.crc32(kind + body) == struct.unpack(">I", data[at + 8 + size:at + 12 + size])[0]
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
            assert depth == 8
            step = {2: 3, 6: 4}[colour]
        if kind == b"IDAT":
            packed += body
        at += 12 + size
    lines = zlib.decompress(packed)
    rows, above = [], bytes(width * step)
    for y in range(height):
        start = y * (width * step + 1)
        row = bytearray(lines[start + 1:start + 1 + width * step])
        for i in range(len(row)):
            a = row[i - step] if i >= step else 0
            b, c = above[i], above[i - step] if i >= step else 0
            p = a + b - c
            paeth = min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]
            row[i] = row[i] + [0, a, b, (a + b) // 2, paeth][lines[start]] & 255
        above = bytes(row)
        rows.append(above)
    return width, height, step, b"".join(rows)


def png(width, height, rows, colour=6, depth=8, *chunks, interlace=0):
    """A PNG file of rows as they are stored; `chunks` are pairs of a kind and a body ahead of the pixels."""
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
    head = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, interlace)
    data = zlib.compress(b"".join(b"\0" + row for row in rows))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + b"".join(chunk(*pair) for pair in chunks) +
            chunk(b"IDAT", data) + chunk(b"IEND", b""))


def small_files(limit):
    """For preexec_fn: no file can grow beyond `limit` bytes, as on a full disk."""
    def prepare():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
    return prepare


def frame_starts(movie):
    """The byte at which each frame of a movie begins, by its index."""
    frames, tracks = struct.unpack("<I", movie[8:12])[0], struct.unpack("<I", movie[40:44])[0]
    at = 44 + 12 * tracks
    return [word & ~1 for word in struct.unpack("<%dI" % frames, movie[at:at + 4 * frames])]


def with_word(data, at, word):
    return data[:at] + struct.pack("<I", word) + data[at + 4:]


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vorn-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def put(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)
        return self.path(name)

    def get(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def names(self):
        return sorted(os.listdir(self.folder))

    def run_vorn(self, *arguments, stdin=None, **more):
        """Arguments one by one, or all of them in one text."""
        if len(arguments) == 1:
            arguments = arguments[0].split()
        return subprocess.run([VORN, *arguments], cwd=self.folder, capture_output=True, input=stdin, timeout=120, **more)

    def start(self, command, **more):
        """Starts vorn with pipes that stay open."""
        more = {"stderr": subprocess.PIPE, **more}
        return subprocess.Popen([VORN, *command.split()], cwd=self.folder, stdin=subprocess.PIPE, **more)

    def vorn(self, *arguments, code=DONE, says=(), stdin=None, **more):
        """Runs vorn, checks its exit code, and that an error is one line which names what is wrong."""
        done = self.run_vorn(*arguments, stdin=stdin, **more)
        text = done.stderr.decode()
        self.assertEqual(done.returncode, code, f"vorn {' '.join(arguments)}: {text}")
        errors = [line for line in text.splitlines() if line.startswith("vorn: ")]
        if code not in (DONE, STOPPED, DIFFERS):
            self.assertEqual(len(errors), 1, text)
        for word in says:
            self.assertIn(word, text)
        return done

    def wait_for(self, pattern, holds=lambda path: True):
        """Waits until a file of that name is there."""
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            with contextlib.suppress(FileNotFoundError):
                if any(holds(path) for path in glob.glob(self.path(pattern))):
                    return
            time.sleep(0.005)
        self.fail(pattern + " did not come")

    def make_raw(self, name, frames, width, height, *more):
        data = self.put(name + ".bgra", b"".join(frames))
        self.vorn("make", data, "--raw", f"{width}x{height}", "--fps", "25", "-o", name, "--force", "-q", *more)

    def make_y4m(self, name, header, frames, *more):
        data = self.put(name + ".y4m", y4m(header, frames))
        self.vorn("make", data, "-o", name, "-q", *more)

    def decode_y4m(self, name):
        """The header line and the frames, each as bytes."""
        data = self.vorn("decode", name, "-o", "-").stdout
        head = data[:data.index(b"\n")].decode()
        fields = {field[0]: field[1:] for field in head.split()[1:]}
        width, height = int(fields["W"]), int(fields["H"])
        size = width * height + (0 if fields["C"] == "mono" else (width + 1) // 2 * ((height + 1) // 2) * 2)
        body, frames = data[len(head) + 1:], []
        for at in range(0, len(body), size + 6):
            self.assertEqual(body[at:at + 6], b"FRAME\n")
            frames.append(body[at + 6:at + 6 + size])
        return head, frames
