#!/usr/bin/env python3
"""ProgramTest.py - drives the program `vorn` as its users do: files in, files and exit codes out.

Usage: ProgramTest.py PATH-OF-VORN [unittest arguments]
"""
import contextlib
import glob
import math
import os
import pty
import random
import resource
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zlib

VORN = ""
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
        return subprocess.run([VORN, *arguments], cwd=self.folder, capture_output=True, input=stdin, timeout=120, **more)

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


class Pictures(ProgramTest):
    # Flat colours by hand: white's luma is 879 * 255 / 1024 + 16 = 234; red's Cr 450 * 4 * 255 / 4096 + 128 = 240.
    def test_planes_come_out_in_y4m_order(self):
        red = bytes([0, 0, 255, 255]) * 64
        white = bytes([255, 255, 255, 255]) * 64
        self.make_raw("m.vrn", [red, white], 8, 8, "--frame-bytes", "100000")
        head, frames = self.decode_y4m("m.vrn")
        self.assertEqual(head, "YUV4MPEG2 W8 H8 F25:1 Ip A1:1 C420jpeg")
        self.assertEqual(frames[0], bytes([81] * 64 + [91] * 16 + [240] * 16))
        self.assertEqual(frames[1], bytes([234] * 64 + [128] * 32))

    # Every chroma format, against the geometry of its samples in plain floating point.
    def test_y4m_equals_its_own_rgb(self):
        middle, first, second, full = 0.5, 0.0, 1.0, None
        layouts = {
            "": (middle, middle, middle), "C420": (middle, middle, middle), "C420jpeg": (middle, middle, middle),
            "C420mpeg2": (first, middle, middle), "C420paldv": (first, second, first), "C422": (first, full, full),
            "C444": (full, full, full), "Cmono": None,
        }
        for number, (chroma, layout) in enumerate(layouts.items()):
            for width, height in ((8, 6), (7, 5), (1, 1)):
                with self.subTest(chroma=chroma, width=width, height=height):
                    source = random.Random(number * 10 + width)
                    picture, bgra = self.picture(source, width, height, layout)
                    name = f"{chroma}{width}.vrn"
                    self.make_y4m(name, f"W{width} H{height} F25:1 It A10:11 XANY {chroma}".rstrip(), [picture],
                                  "--frame-bytes", "100000")
                    grey = ["--grey"] if layout is None else []
                    self.make_raw("raw.vrn", [bgra], width, height, "--frame-bytes", "100000", *grey)
                    self.assertEqual(self.get(name), self.get("raw.vrn"))

    def picture(self, source, width, height, layout):
        """A random frame of Y4M and its colours. Drawn anew until no colour lies near a rounding edge."""
        half = lambda n, siting: n if siting is None else (n + 1) // 2
        while True:
            y = source.randbytes(width * height)
            planes = []
            if layout is not None:
                size = half(width, layout[0]) * half(height, layout[1])
                planes = [bytes(source.randrange(64, 192) for _ in range(size)) for _ in range(2)]
            bgra = bytearray()
            near = False
            for row in range(height):
                for column in range(width):
                    cb, cr = 0.0, 0.0
                    if layout is not None:
                        cb = self.sample(planes[0], width, height, column, row, layout[0], layout[1]) - 128
                        cr = self.sample(planes[1], width, height, column, row, layout[0], layout[2]) - 128
                    luma = (y[row * width + column] - 16) * 255 / 219
                    c = 255 / 112
                    red = luma + c * (1 - 0.299) * cr
                    blue = luma + c * (1 - 0.114) * cb
                    green = luma - c * (1 - 0.114) * 0.114 / 0.587 * cb - c * (1 - 0.299) * 0.299 / 0.587 * cr
                    for value in (blue, green, red):
                        value = min(max(value, 0), 255)
                        near = near or abs(value - math.floor(value) - 0.5) < 0.002
                        bgra.append(math.floor(value + 0.5))
                    bgra.append(255)
            if not near:
                return y + b"".join(planes), bytes(bgra)

    def sample(self, plane, width, height, column, row, across, down):
        """Linear interpolation; sample i lies at pixel 2 * i + siting."""
        def weights(pixel, siting, pixels):
            if siting is None:
                return [(pixel, 1.0)]
            last = (pixels + 1) // 2 - 1
            place = (pixel - siting) / 2
            low = math.floor(place)
            return [(min(max(low, 0), last), 1 - (place - low)), (min(max(low + 1, 0), last), place - low)]
        pitch = width if across is None else (width + 1) // 2
        return sum(plane[r * pitch + c] * wr * wc for r, wr in weights(row, down, height)
                   for c, wc in weights(column, across, width))

    def test_alpha_and_grey(self):
        frames = noise_frames(9, 7, 2)
        self.make_raw("alpha.vrn", frames, 9, 7, "--alpha", "--frame-bytes", "100000")
        self.vorn("decode", "alpha.vrn", "-o", "back.bgra")
        back = self.get("back.bgra")
        self.assertEqual(back[3::4], b"".join(frames)[3::4])
        self.vorn("decode", "alpha.vrn", "--frame", "1", "-o", "one.png")
        width, height, step, pixels = read_png(self.path("one.png"))
        self.assertEqual((width, height, step), (9, 7, 4))
        one = back[9 * 7 * 4:]
        self.assertEqual(pixels, b"".join(bytes([one[i + 2], one[i + 1], one[i], one[i + 3]]) for i in range(0, len(one), 4)))
        self.make_raw("grey.vrn", frames, 9, 7, "--grey", "--frame-bytes", "100000")
        head, planes = self.decode_y4m("grey.vrn")
        self.assertIn(" Cmono", head)
        pixels = frames[0]
        luma = bytes((263 * pixels[i + 2] + 516 * pixels[i + 1] + 100 * pixels[i]) // 1024 + 16
                     for i in range(0, len(pixels), 4))
        self.assertEqual(planes[0], luma)

    def test_compare_counts_right(self):
        frames = noise_frames(16, 16, 2)
        self.make_raw("m.vrn", frames, 16, 16, "--frame-bytes", "200")
        _, planes = self.decode_y4m("m.vrn")
        wanted = 0
        for pixels, decoded in zip(frames, planes):
            for i in range(256):
                blue, green, red = pixels[i * 4:i * 4 + 3]
                wanted += abs((263 * red + 516 * green + 100 * blue) // 1024 + 16 - decoded[i])
        self.assertGreater(wanted, 0)
        done = self.vorn("compare", "m.vrn", "m.vrn.bgra", "--raw", "16x16", "-o", "sides.png")
        line = [line.split() for line in done.stdout.decode().splitlines() if line.startswith("Y ")][0]
        self.assertEqual(int(line[1]), wanted)
        width, height, _, _ = read_png(self.path("sides.png"))
        self.assertEqual((width, height), (40, 16))

    def test_pipe_gives_the_file_that_a_file_gives(self):
        self.vorn("scene", "cuts", "--size", "40x24", "--frames", "30", "-o", "s.y4m", "-q")
        data = self.get("s.y4m")
        self.vorn("make", "s.y4m", "-o", "file.vrn", "-q")
        self.vorn("make", "-", "-o", "pipe.vrn", "-q", stdin=data)
        with open(self.path("s.y4m"), "rb") as file:
            subprocess.run([VORN, "make", "-", "-o", "redirected.vrn", "-q"], cwd=self.folder, stdin=file, check=True)
        self.assertEqual(self.get("pipe.vrn"), self.get("file.vrn"))
        self.assertEqual(self.get("redirected.vrn"), self.get("file.vrn"))
        self.vorn("make", "s.y4m", "s.y4m", "-o", "twice.vrn", "-q")
        self.assertEqual(len(self.decode_y4m("twice.vrn")[1]), 60)
        self.vorn("make", "s.y4m", "--frames", "7", "-o", "seven.vrn", "-q")
        self.assertEqual(struct.unpack("<II", self.get("seven.vrn")[8:12] + self.get("seven.vrn")[16:20]), (7, 7))
        for name in ("file.vrn", "twice.vrn", "seven.vrn"):
            self.vorn("verify", name)

    def test_long_pipe_needs_room(self):
        # 64 MiB of pictures are read ahead: 18 pictures of 1280x720 are more.
        frame = bytes([50]) * (1280 * 720)
        data = y4m("W1280 H720 F25:1 Cmono", [frame] * 22)
        self.vorn("make", "-", "--capacity", "20", "-o", "m.vrn", "-q", stdin=data, code=DAMAGED, says=["20 frames", "--capacity"])
        self.vorn("verify", "m.vrn")
        self.assertEqual(struct.unpack("<I", self.get("m.vrn")[8:12])[0], 20)
        self.vorn("make", "-", "-o", "n.vrn", "-q", stdin=data)
        self.assertEqual(struct.unpack("<I", self.get("n.vrn")[8:12])[0], 22)
        self.vorn("verify", "n.vrn")


class Damage(ProgramTest):
    def test_input_that_ends_early(self):
        self.vorn("scene", "balls", "--size", "32x16", "--frames", "5", "-o", "s.y4m", "-q")
        whole = self.get("s.y4m")
        frame = 32 * 16 * 3 // 2 + 6
        cases = {
            "in a frame": (whole[:-1], 4, "frame 4"),
            "in a line": (whole[:-frame + 3], 4, "frame 4"),
            "garbage": (whole[:-frame] + b"x" * frame, 4, "frame 4"),
        }
        for name, (data, frames, says) in cases.items():
            for stdin in (None, data):
                with self.subTest(name, pipe=stdin is not None):
                    self.put("cut.y4m", data)
                    self.vorn("make", "cut.y4m" if stdin is None else "-", "-o", "cut.vrn", "-q", "--force", stdin=stdin,
                              code=DAMAGED, says=[says, "byte", "cut.vrn"])
                    self.vorn("verify", "cut.vrn")
                    self.assertEqual(len(self.decode_y4m("cut.vrn")[1]), frames)
        self.put("cut.bgra", bytes(8 * 8 * 4 * 2 + 5))
        self.vorn("make", "cut.bgra", "--raw", "8x8", "--fps", "25", "-o", "raw.vrn", code=DAMAGED, says=["frame 2", "5 of"])
        self.vorn("verify", "raw.vrn")

    def test_headers_that_are_wrong(self):
        good = "W8 H8 F25:1"
        frame = [bytes(8 * 8 * 3 // 2)]
        cases = [
            (b"", DAMAGED, "empty"), (b"RIFF1234", DAMAGED, "YUV4MPEG2"), (b"YUV4MPEG2 W8 H8 F25:1", DAMAGED, "no end"),
            (y4m("H8 F25:1", frame), DAMAGED, "width"), (y4m("W8 F25:1", frame), DAMAGED, "height"),
            (y4m("W0 H8 F25:1", frame), DAMAGED, "W0"), (y4m("W-8 H8 F25:1", frame), DAMAGED, "W-8"),
            (y4m("W8 H99999 F25:1", frame), DAMAGED, "H99999"), (y4m("W4033 H1 F25:1", []), FAILED, "4032"),
            (y4m("W4032 H65535 F25:1", []), FAILED, "226000000"), (y4m("W8 H8", frame), USAGE, "--fps"),
            (y4m("W8 H8 F25", frame), DAMAGED, "F25"), (y4m("W8 H8 F25:0", frame), DAMAGED, "F25:0"),
            (y4m(good + " C420p10", frame), FAILED, "C420p10"), (y4m(good + " C411", frame), FAILED, "C420jpeg"),
            (y4m(good + " Ix", frame), DAMAGED, "Ix"), (y4m(good + " Q1", frame), DAMAGED, "Q1"),
            (y4m(good + " XCOLORRANGE=FULL", frame), FAILED, "studio"), (y4m(good, []), DAMAGED, "no frame"),
            (y4m(good, [bytes(5)]), DAMAGED, "frame 0"),
        ]
        for data, code, says in cases:
            with self.subTest(data[:40]):
                self.put("bad.y4m", data)
                self.vorn("make", "bad.y4m", "-o", "out.vrn", code=code, says=["bad.y4m", says])
                self.assertEqual(self.names(), ["bad.y4m"])

    def test_movies_that_are_damaged(self):
        self.vorn("scene", "cuts", "--size", "32x32", "--frames", "6", "-o", "s.y4m", "-q")
        self.vorn("make", "s.y4m", "-o", "m.vrn", "-q")
        data = self.get("m.vrn")
        self.put("cut.vrn", data[:-40])
        self.assertIn(self.run_vorn("verify", "cut.vrn").returncode, (DIFFERS, DAMAGED))
        self.put("no.vrn", b"VRNx" + data[4:])
        for command in (["info", "no.vrn"], ["verify", "no.vrn"], ["decode", "no.vrn", "-o", "x.y4m"]):
            self.vorn(*command, code=DAMAGED, says=["no.vrn"])
        # The largest frame in the head: nothing needs it to decode, but it is a lie.
        self.put("lie.vrn", data[:12] + struct.pack("<I", 4) + data[16:])
        self.vorn("verify", "lie.vrn", code=DIFFERS, says=["lie.vrn"])
        text = self.vorn("verify", "lie.vrn", "--most", "0", code=DIFFERS, says=["1 more"]).stderr.decode()
        self.assertEqual(len(text.splitlines()), 1, text)
        self.vorn("verify", "no.vrn", "--most", "0", code=DAMAGED, says=["isn't a Vorn movie"])
        os.mkfifo(self.path("pipe.vrn"))
        for name in ("pipe.vrn", "/dev/null"):
            self.vorn("verify", name, code=FAILED, says=[name, "plain file"])

    def test_damage_never_replaces_a_complete_file(self):
        self.vorn("scene", "cuts", "--size", "32x32", "--frames", "6", "-o", "s.y4m", "-q")
        self.put("a.wav", wav(tone(8000)))
        self.vorn("make", "s.y4m", "-o", "m.vrn", "-q")
        data = self.get("m.vrn")
        starts = frame_starts(data)
        for bad in (0, 3):
            self.put("bad.vrn", with_word(data, starts[bad], 0))
            self.put("old.y4m", b"old")
            self.vorn("decode", "bad.vrn", "-o", "old.y4m", "--force", code=DAMAGED, says=[f"frame {bad}", "old.y4m was not"])
            self.assertEqual(self.get("old.y4m"), b"old")
            self.vorn("decode", "bad.vrn", "-o", "new.y4m", code=DAMAGED, says=[f"frame {bad}"])
            # The frames before the damage, and no file if there are none.
            self.assertEqual(os.path.exists(self.path("new.y4m")), bad != 0)
        self.assertEqual(self.get("new.y4m").count(b"FRAME\n"), 3)
        # Sound: the packet of frame 0 says that it is longer than the frame. The mixer alone looks at that.
        self.vorn("make", "s.y4m", "--audio", "a.wav", "-o", "m.vrn", "-q", "--force")
        data = self.get("m.vrn")
        self.put("bad.vrn", with_word(data, frame_starts(data)[0], 0x7ffffff0))
        self.put("old.wav", b"old")
        self.vorn("decode", "bad.vrn", "--audio", "0", "-o", "old.wav", "--force", code=DAMAGED, says=["old.wav was not"])
        self.vorn("mix", "bad.vrn", "--track", "1=a.wav", "-o", "old.wav", "--force", code=DAMAGED, says=["bad.vrn", "frame 0"])
        self.assertEqual(self.get("old.wav"), b"old")
        self.assertEqual([name for name in self.names() if "part" in name], [])

    def test_a_head_may_claim_any_number_of_tracks(self):
        self.vorn("scene", "cuts", "--size", "8x8", "--frames", "1", "-o", "s.y4m", "-q")
        self.vorn("make", "s.y4m", "-o", "m.vrn", "-q")
        data = self.get("m.vrn")
        start, count = frame_starts(data)[0], 400000
        # Each track of 65535 samples a second, two channels, a transform for each; no packet has sound.
        tables = bytes(4 * count) + struct.pack("<I", 65535 | 7 << 28) * count + struct.pack("<%dI" % count, *range(count))
        index = struct.pack("<II", start + 12 * count | 1, len(data) + 16 * count)
        head = data[:4] + struct.pack("<III", len(data) + 16 * count - 8, 1, len(data) - start + 4 * count) + data[16:40]
        self.put("many.vrn", head + struct.pack("<I", count) + tables + index + bytes(4 * count) + data[start:])
        # Seconds of the processor's time: work for each track, or for each pair of them, would take many more.
        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (15, 15))
        self.vorn("verify", "many.vrn", "--no-pacing", preexec_fn=limit)
        self.vorn("mix", "many.vrn", "--fps", "5", "-o", "slow.vrn", "-q", preexec_fn=limit)
        self.assertEqual(len(self.get("slow.vrn")), len(self.get("many.vrn")))


class Outputs(ProgramTest):
    def setUp(self):
        super().setUp()
        self.vorn("scene", "balls", "--size", "32x16", "--frames", "5", "-o", "s.y4m", "-q")

    def test_existing_files_stay(self):
        self.put("old.vrn", b"old")
        self.vorn("make", "s.y4m", "-o", "old.vrn", code=EXISTS, says=["old.vrn", "--force"])
        self.assertEqual(self.get("old.vrn"), b"old")
        self.put("new.vrn.part.tmp", b"half")
        self.vorn("make", "s.y4m", "-o", "new.vrn", code=EXISTS, says=["new.vrn.part.tmp"])
        self.assertEqual(self.get("new.vrn.part.tmp"), b"half")
        for command in (["make", "s.y4m"], ["scene", "balls"]):
            self.put("old.vrn.part", b"half")
            self.vorn(*command, "-o", "old.vrn", "--force", code=EXISTS, says=["old.vrn.part"])
            self.assertEqual(self.get("old.vrn.part"), b"half")
        os.remove(self.path("old.vrn.part"))
        self.vorn("make", "missing.y4m", "-o", "old.vrn", "--force", code=FAILED, says=["missing.y4m"])
        self.put("cut.y4m", self.get("s.y4m")[:60])
        self.vorn("make", "cut.y4m", "-o", "old.vrn", "--force", code=DAMAGED)
        self.assertEqual(self.get("old.vrn"), b"old")
        self.vorn("make", "s.y4m", "-o", "old.vrn", "--force")
        self.vorn("verify", "old.vrn")
        for command in (["decode", "old.vrn", "-o", "s.y4m"], ["compare", "old.vrn", "s.y4m", "-o", "cut.y4m"],
                        ["scene", "balls", "-o", "s.y4m"]):
            self.vorn(*command, code=EXISTS)
        self.assertEqual(self.names(), ["cut.y4m", "new.vrn.part.tmp", "old.vrn", "s.y4m"])

    def test_input_is_never_the_output(self):
        before = self.get("s.y4m")
        os.link(self.path("s.y4m"), self.path("hard.vrn"))
        os.symlink("s.y4m", self.path("soft.vrn"))
        self.put("a.wav", wav(tone(800)))
        for name in ("s.y4m", "hard.vrn", "soft.vrn", "./s.y4m"):
            self.vorn("make", "s.y4m", "-o", name, "--force", code=USAGE, says=[name])
        with open(self.path("s.y4m"), "rb") as file:
            done = subprocess.run([VORN, "make", "-", "-o", "hard.vrn", "--force"], cwd=self.folder, stdin=file, capture_output=True)
        self.assertEqual(done.returncode, USAGE)
        self.vorn("make", "s.y4m", "--audio", "a.wav", "-o", "a.wav", "--force", code=USAGE)
        self.assertEqual(self.get("s.y4m"), before)

    def test_links_stay_links(self):
        self.put("real.vrn", b"old")
        os.symlink("real.vrn", self.path("link.vrn"))
        self.vorn("make", "s.y4m", "-o", "link.vrn", "--force")
        self.assertTrue(os.path.islink(self.path("link.vrn")))
        self.vorn("verify", "real.vrn")

    def test_places_that_take_no_movie(self):
        os.mkdir(self.path("folder"))
        os.mkfifo(self.path("fifo"))
        self.vorn("make", "s.y4m", "-o", "folder", "--force", code=FAILED, says=["folder"])
        self.vorn("make", "s.y4m", "-o", "fifo", "--force", code=FAILED, says=["fifo"])
        self.vorn("make", "s.y4m", "-o", "none/x.vrn", code=FAILED, says=["none"])
        self.vorn("make", "folder", "-o", "x.vrn", code=FAILED, says=["folder"])
        self.vorn("make", "s.y4m", "-o", "-", code=USAGE)
        self.vorn("make", "s.y4m", "-o", "n" * 130 + ".vrn", code=FAILED, says=["118"])
        self.assertEqual(self.names(), ["fifo", "folder", "s.y4m"])

    def test_full_disk(self):
        self.vorn("scene", "noise", "--size", "64x64", "--frames", "12", "-o", "n.y4m", "-q")
        self.put("old.vrn", b"old")
        before = self.names()
        # At 0 the head fails, at 100 it is cut, later a frame or the very last bytes.
        self.vorn("make", "n.y4m", "--frame-bytes", "3000", "-o", "whole.vrn", "-q")
        size = len(self.get("whole.vrn"))
        os.remove(self.path("whole.vrn"))
        for limit in (0, 100, size // 2, size - 1):
            with self.subTest(limit=limit):
                self.vorn("make", "n.y4m", "--frame-bytes", "3000", "-o", "old.vrn", "--force", "-q", code=FAILED,
                          says=["old.vrn"], preexec_fn=small_files(limit))
                self.assertEqual(self.get("old.vrn"), b"old")
                self.assertEqual(self.names(), before)
        # The frames of a pipe that is shorter than --frames are compressed while the movie is closed. What stands there
        # already, a good movie of as many frames, is no proof of the new one.
        self.vorn("make", "n.y4m", "--frame-bytes", "1500", "-o", "old.vrn", "-q", "--force")
        old = self.get("old.vrn")
        self.vorn("make", "-", "--frames", "100", "--frame-bytes", "3000", "-o", "old.vrn", "--force", "-q", code=FAILED,
                  says=["old.vrn", "nothing is left"], stdin=self.get("n.y4m"), preexec_fn=small_files(size // 2))
        self.assertEqual(self.get("old.vrn"), old)
        self.vorn("make", "n.y4m", "--frame-bytes", "3000", "-o", "new.vrn", "-q", code=FAILED, says=["new.vrn"],
                  preexec_fn=small_files(size // 2))
        self.vorn("scene", "noise", "-o", "x.y4m", "-q", code=FAILED, says=["x.y4m"], preexec_fn=small_files(5000))
        self.vorn("make", "n.y4m", "-o", "m.vrn", "-q")
        self.vorn("decode", "m.vrn", "-o", "x.y4m", code=FAILED, says=["x.y4m"], preexec_fn=small_files(5000))
        self.vorn("mix", "m.vrn", "--fps", "10", "-o", "x.vrn", code=FAILED, says=["x.vrn"], preexec_fn=small_files(5000))
        self.vorn("bench", "n.y4m", "--rounds", "1", code=FAILED, preexec_fn=small_files(5000),
                  env={**os.environ, "TMPDIR": self.folder})
        self.assertEqual(self.names(), sorted(before + ["m.vrn"]))

    def test_file_that_appears_meanwhile_stays(self):
        running = subprocess.Popen([VORN, "make", "-", "--frames", "100", "-o", "m.vrn"], cwd=self.folder,
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        data = self.get("s.y4m")
        running.stdin.write(data[:100])
        running.stdin.flush()
        self.wait_for("m.vrn.part.tmp")
        self.put("m.vrn", b"mine")
        _, text = running.communicate(data[100:], timeout=60)
        self.assertEqual(running.returncode, EXISTS, text)
        self.assertIn(b"m.vrn.part", text)
        self.assertEqual(self.get("m.vrn"), b"mine")
        self.vorn("verify", "m.vrn.part")
        running = subprocess.Popen([VORN, "scene", "noise", "--frames", "200", "-o", "x.y4m", "-q"], cwd=self.folder,
                                   stderr=subprocess.PIPE)
        self.wait_for("x.y4m.part")
        running.send_signal(signal.SIGSTOP)
        self.put("x.y4m", b"mine")
        running.send_signal(signal.SIGCONT)
        _, text = running.communicate(timeout=60)
        self.assertEqual(running.returncode, EXISTS, text)
        self.assertEqual(self.get("x.y4m"), b"mine")

    def test_nobody_listens(self):
        self.vorn("make", "s.y4m", "-o", "m.vrn", "-q")
        # The summary goes to a full disk, to a pipe without a reader, or to no descriptor at all.
        reader, dead = os.pipe()
        os.close(reader)
        with open("/dev/full", "wb") as full, os.fdopen(dead, "wb") as pipe:
            for stderr in (full, pipe):
                subprocess.run([VORN, "make", "s.y4m", "-o", "x.vrn", "--force"], cwd=self.folder, stderr=stderr, check=True)
        subprocess.run(["sh", "-c", '"$0" make s.y4m -o closed.vrn <&- >&- 2>&-', VORN], cwd=self.folder, check=True)
        for name in ("x.vrn", "closed.vrn"):
            self.assertEqual(self.get(name), self.get("m.vrn"))
        # A result that nobody gets is no success.
        for command in ("decode m.vrn -o -", "verify m.vrn"):
            done = subprocess.run(["sh", "-c", f'"$0" {command} >&-', VORN], cwd=self.folder, capture_output=True)
            self.assertEqual(done.returncode, FAILED)

    # The progress line is drawn in the midst of the library's work.
    def test_terminal_that_goes_away(self):
        master, slave = pty.openpty()
        running = subprocess.Popen([VORN, "make", "-", "--frames", "100", "--look-ahead", "2", "-o", "m.vrn"], cwd=self.folder,
                                   stdin=subprocess.PIPE, stderr=slave)
        os.close(slave)
        frame = bytes(32 * 32 * 3 // 2)
        running.stdin.write(y4m("W32 H32 F25:1", [frame] * 6))
        running.stdin.flush()
        self.wait_for("m.vrn.part.tmp")
        os.close(master)
        for _ in range(6):
            time.sleep(0.1)
            running.stdin.write(b"FRAME\n" + frame)
            running.stdin.flush()
        running.communicate(timeout=60)
        self.assertEqual(running.returncode, DONE)
        self.assertEqual(len(self.decode_y4m("m.vrn")[1]), 12)

    def test_usage(self):
        for command in ([], ["nonsense"], ["make", "s.y4m"], ["make", "s.y4m", "-o", "x", "--look-ahead", "65"],
                        ["make", "s.y4m", "-o", "x", "--rate", "5", "--frame-bytes", "5"], ["make", "s.y4m", "-o", "x", "--alpha"],
                        ["make", "s.y4m", "-o", "x", "--raw", "8"], ["make", "s.y4m", "-o", "x", "--fps", "0/1"],
                        ["make", "s.y4m", "-o", "x", "--frames", "-1"],
                        ["make", "s.y4m", "-o", "x", "--audio", "a.wav,id=1", "--audio", "b.wav"],
                        ["make", "-", "-o", "x", "--audio", "-"],
                        ["mix", "s.y4m", "-o", "x", "--track", "0=a.wav", "--track", "0=b.wav"],
                        ["mix", "s.y4m", "-o", "x", "--track", "0=a.wav", "--drop", "0"],
                        ["mix", "s.y4m", "-o", "x", "--drop", "0", "--delay", "5"],
                        ["mix", "s.y4m", "-o", "x", "--fps", "5", "--delay-ms", "5"], ["scene", "nothing", "-o", "x"], ["info"]):
            self.vorn(*command, code=USAGE)
        self.assertEqual(self.names(), ["s.y4m"])
        for command in (["--help"], ["--version"], ["make", "--help"], ["mix", "--help"]):
            self.assertLess(len(self.vorn(*command).stdout.splitlines()), 40)


class Stopping(ProgramTest):
    def start(self):
        """A make that waits for more of its pipe, with frames done."""
        self.frame = bytes(range(256)) * 6
        running = subprocess.Popen([VORN, "make", "-", "--frames", "100", "--look-ahead", "2", "-o", "m.vrn"], cwd=self.folder,
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        running.stdin.write(y4m("W32 H32 F25:1", [self.frame] * 6))
        running.stdin.flush()
        # The head is up to date from the first frame on.
        self.wait_for("m.vrn.part.tmp", lambda _: self.get("m.vrn.part.tmp")[8:12] not in (b"", bytes(4)))
        time.sleep(0.3)
        return running

    def test_once_finishes(self):
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            running = self.start()
            running.send_signal(number)
            _, text = running.communicate(timeout=60)
            self.assertEqual(running.returncode, STOPPED, text)
            self.assertEqual(self.names(), ["m.vrn"])
            self.vorn("verify", "m.vrn")
            self.assertGreaterEqual(len(self.decode_y4m("m.vrn")[1]), 1)
            os.remove(self.path("m.vrn"))

    def test_stopped_on_a_full_disk(self):
        self.vorn("scene", "balls", "--size", "32x32", "--frames", "3", "-o", "s.y4m", "-q")
        self.vorn("make", "s.y4m", "-o", "m.vrn", "-q")
        old = self.get("m.vrn")
        running = subprocess.Popen([VORN, "make", "-", "--frames", "100", "--look-ahead", "2", "-o", "m.vrn", "--force"],
                                   cwd=self.folder, stdin=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=small_files(600))
        running.stdin.write(y4m("W32 H32 F25:1", [bytes(range(256)) * 6] * 6))
        running.stdin.flush()
        self.wait_for("m.vrn.part.tmp")
        time.sleep(0.3)
        running.send_signal(signal.SIGTERM)
        _, text = running.communicate(timeout=60)
        self.assertEqual(running.returncode, FAILED, text)
        self.assertEqual(self.get("m.vrn"), old)
        self.assertEqual(self.names(), ["m.vrn", "s.y4m"])

    def test_twice_leaves_nothing(self):
        running = self.start()
        for number in (signal.SIGSTOP, signal.SIGTERM, signal.SIGINT, signal.SIGCONT):
            running.send_signal(number)
        _, text = running.communicate(timeout=60)
        self.assertEqual(running.returncode, FAILED, text)
        self.assertIn(b"nothing is left", text)
        self.assertEqual(self.names(), [])

    def test_commands_that_have_nothing_to_finish(self):
        self.vorn("scene", "balls", "--size", "32x16", "--frames", "5", "-o", "s.y4m", "-q")
        self.vorn("make", "s.y4m", "-o", "m.vrn", "-q")
        before = self.names()
        environment = {**os.environ, "TMPDIR": self.folder}
        # What each does when it is hit: the first three wait for their input.
        for command, sign in ((["make", "-", "-o", "x.vrn"], None), (["compare", "m.vrn", "-"], None),
                              (["bench", "-"], None), (["bench", "s.y4m", "--rounds", "1000"], "vorn-bench-*/movie*"),
                              (["scene", "balls", "--frames", "500000", "--sound", "x.wav"], "x.wav.part"),
                              (["scene", "balls", "--frames", "500000", "-o", "x.y4m"], "x.y4m.part")):
            with self.subTest(command):
                running = subprocess.Popen([VORN, *command], cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                           stderr=subprocess.PIPE, env=environment)
                if sign is None:
                    running.stdin.write(self.get("s.y4m")[:-10])
                    running.stdin.flush()
                    time.sleep(0.3)
                else:
                    self.wait_for(sign)
                running.send_signal(signal.SIGTERM)
                # Its input stays open: the end of it must not be what ends the program.
                self.assertEqual(running.wait(timeout=60), FAILED)
                _, text = running.communicate()
                self.assertIn(b"stopped by a signal", text)
                self.assertEqual(self.names(), before)


class Sound(ProgramTest):
    def setUp(self):
        super().setUp()
        self.vorn("scene", "cuts", "--size", "16x16", "--frames", "25", "-o", "s.y4m", "-q")

    def make(self, sound, name="m.vrn", code=DONE, says=()):
        return self.vorn("make", "s.y4m", "--audio", sound, "-o", name, "--force", "-q", code=code, says=says)

    def decoded(self, name, track="0"):
        self.vorn("decode", name, "--audio", track, "-o", "back.wav", "--force")
        data = self.get("back.wav")
        return struct.unpack("<%dh" % ((len(data) - 44) // 2), data[44:])

    def test_sample_formats_become_16_bit(self):
        plain = tone(8000)
        self.put("16.wav", wav(plain))
        self.make("16.wav", "16.vrn")
        self.put("24.wav", wav([s * 256 + (i % 3 - 1) * 127 for i, s in enumerate(plain)], bits=24))
        self.put("32.wav", wav([s * 65536 + (i % 3 - 1) * 32767 for i, s in enumerate(plain)], bits=32))
        self.put("float.wav", wav([(s + (i % 3 - 1) * 0.45) / 32768 for i, s in enumerate(plain)], bits=32, kind=3))
        for name in ("24", "32", "float"):
            with self.subTest(name):
                self.make(name + ".wav", name + ".vrn")
                self.assertEqual(self.get(name + ".vrn"), self.get("16.vrn"))
        self.put("8.wav", wav([s // 256 for s in plain], bits=8))
        self.put("8as16.wav", wav([s // 256 * 256 for s in plain]))
        self.make("8.wav", "8.vrn")
        self.make("8as16.wav", "8as16.vrn")
        self.assertEqual(self.get("8.vrn"), self.get("8as16.vrn"))

    def test_sound_comes_back(self):
        plain = tone(8000)
        self.put("a.wav", wav(plain))
        self.make("a.wav,id=7,quality=1")
        back = self.decoded("m.vrn", "7")
        self.assertEqual(len(back), 8000)
        wrong = sum((a - b) ** 2 for a, b in zip(plain, back))
        self.assertLess(wrong * 16, sum(a * a for a in plain))  # 12 dB: a lone tone hides much noise
        self.vorn("verify", "m.vrn")
        self.vorn("decode", "m.vrn", "--audio", "8", "-o", "x.wav", code=USAGE, says=["7"])

    def test_short_sound_is_followed_by_silence(self):
        self.put("a.wav", wav(tone(2000)))
        self.make("a.wav")
        back = self.decoded("m.vrn")
        self.assertEqual(len(back), 8000)
        self.assertGreater(max(back[500:1500]), 4000)
        self.assertLess(max(abs(s) for s in back[5000:]), 100)

    def test_sound_that_a_track_cannot_hold(self):
        whole = wav(tone(8000))
        self.put("cut.wav", whole[:5000])
        self.make("cut.wav", code=DAMAGED, says=["cut.wav", "2478 of the 8000"])
        self.vorn("verify", "m.vrn")
        self.put("six.wav", wav(tone(600), channels=6))
        self.put("fast.wav", wav(tone(600), rate=96000))
        self.put("text.wav", b"not sound at all")
        for name, says in (("six.wav", "6 channels"), ("fast.wav", "96000"), ("text.wav", "sound"), ("none.wav", "none.wav")):
            self.make(name, "x.vrn", code=FAILED, says=[name, says])
        self.make("cut.wav,quality=200", "x.vrn", code=USAGE, says=["quality"])
        self.assertNotIn("x.vrn", self.names())

    # A track has room for 4 GiB of samples: 16000 bytes a second last for 268435 seconds.
    def test_sound_that_is_too_long(self):
        self.put("a.wav", wav(tone(800)))
        self.vorn("make", "s.y4m", "--fps", "1/20000", "--audio", "a.wav", "-o", "x.vrn", code=FAILED, says=["25 frames", "13"])
        self.assertNotIn("x.vrn", self.names())
        # More of a pipe than is read ahead: as much room as the sound can last, 2000 bytes a second.
        self.put("low.wav", wav(tone(100), rate=1000))
        data = y4m("W1280 H720 F1:1000 Cmono", [bytes([50]) * (1280 * 720)] * 19)
        self.vorn("make", "-", "--audio", "low.wav", "-o", "x.vrn", "-q", stdin=data)
        self.assertEqual(struct.unpack("<II", self.get("x.vrn")[8:12] + self.get("x.vrn")[16:20]), (19, 2147))

    def test_mix(self):
        self.put("low.wav", wav(tone(8000, hertz=300)))
        self.put("high.wav", wav(tone(8000, hertz=900)))
        self.make("low.wav,id=3")
        picture = self.decode_y4m("m.vrn")
        self.vorn("mix", "m.vrn", "--track", "3=high.wav", "--track", "9=low.wav", "-o", "two.vrn", "-q")
        self.vorn("verify", "two.vrn")
        self.assertEqual(self.decode_y4m("two.vrn"), picture)
        crossings = lambda s: sum((a < 0) != (b < 0) for a, b in zip(s, s[1:]))
        self.assertAlmostEqual(crossings(self.decoded("two.vrn", "3")), 1800, delta=40)
        self.assertAlmostEqual(crossings(self.decoded("two.vrn", "9")), 600, delta=40)
        self.vorn("mix", "two.vrn", "--drop", "3", "--drop", "9", "-o", "none.vrn", "-q")
        self.vorn("verify", "none.vrn")
        self.assertEqual(self.decode_y4m("none.vrn"), picture)
        self.vorn("mix", "m.vrn", "--track", "3=high.wav", "--delay-ms", "500", "-o", "late.vrn", "-q")
        late = self.decoded("late.vrn", "3")
        self.assertLess(max(abs(s) for s in late[:3500]), 200)
        self.assertGreater(max(late[4500:]), 4000)
        self.vorn("mix", "none.vrn", "--fps", "10/1", "-o", "slow.vrn", "-q")
        self.assertIn(" F10:1 ", self.decode_y4m("slow.vrn")[0])

    def test_mix_in_place_and_refusals(self):
        self.put("low.wav", wav(tone(8000)))
        self.make("low.wav")
        before = self.get("m.vrn")
        self.vorn("mix", "m.vrn", "--drop", "0", "-o", "m.vrn", code=EXISTS)
        self.vorn("mix", "m.vrn", "--drop", "5", "-o", "n.vrn", code=USAGE, says=["5"])
        self.vorn("mix", "m.vrn", "-o", "n.vrn", code=USAGE)
        self.vorn("mix", "m.vrn", "--track", "0=m.vrn", "-o", "n.vrn", code=FAILED)
        self.vorn("mix", "m.vrn", "--track", "0=low.wav", "-o", "low.wav", "--force", code=USAGE)
        self.assertEqual(self.get("m.vrn"), before)
        self.assertNotIn("n.vrn", self.names())
        self.vorn("mix", "m.vrn", "--drop", "0", "-o", "m.vrn", "--force", "-q")
        self.vorn("verify", "m.vrn")
        self.assertLess(len(self.get("m.vrn")), len(before))


if __name__ == "__main__":
    VORN = os.path.abspath(sys.argv.pop(1))
    unittest.main()
