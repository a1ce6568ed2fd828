#!/usr/bin/env python3
"""PictureTest.py - pictures into movies and back: every kind of input, every kind of output."""
from Program import *


def rgb(bgra):
    return b"".join(bgra[i + 2:i - 1 if i else None:-1] for i in range(0, len(bgra), 4))


def interlaced(pixels, width, height, step):
    """The rows of seven pictures, each finer than those before; pixels of `step` bytes."""
    rows = []
    for x0, y0, dx, dy in ((0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2)):
        for y in range(y0, height, dy):
            row = b"".join(pixels[(y * width + x) * step:(y * width + x + 1) * step] for x in range(x0, width, dx))
            rows += [row] if row else []
    return rows


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
                    rows = [rgb(bgra[at:at + width * 4]) for at in range(0, len(bgra), width * 4)]
                    self.put("one.png", png(width, height, [row[::3] for row in rows] if grey else rows, 0 if grey else 2))
                    self.vorn("make one.png --fps 25 --frame-bytes 100000 -o png.vrn --force -q")
                    self.assertEqual(self.get(name), self.get("png.vrn"))

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

    # Every way to store a pixel, against the pixel itself as raw BGRA.
    def test_kinds_of_png(self):
        width, height = 11, 9
        source = random.Random(5)
        split = lambda data, pitch: [data[at:at + pitch] for at in range(0, len(data), pitch)]
        data = source.randbytes(width * height * 8)
        words = struct.unpack(">%dH" % (len(data) // 2), data)
        bytes8 = bytes(math.floor(word / 257 + 0.5) for word in words)
        index = bytes(i % 5 for i in data[:width * height])
        palette = [source.randbytes(3) for _ in range(5)]
        bits = [bytes([0b10110011, 0b01100000]), bytes([0b01011100, 0b10100000]), bytes([0, 0])] * 3
        bit_pixels = b"".join(bytes(255 * (row[x // 8] >> 7 - x % 8 & 1) for x in range(width)) for row in bits)
        pixels = lambda data, pick: b"".join(bytes(pick(data, i)) for i in range(width * height))
        rgba = lambda d, i: (d[i * 4 + 2], d[i * 4 + 1], d[i * 4], d[i * 4 + 3])
        grey = lambda d, i: (d[i], d[i], d[i], 255)
        wide = split(data, width * 8)
        kinds = {  # the file, the pixels, the options that make the same movie of raw pixels
            "rgba": (png(width, height, split(data[:width * height * 4], width * 4)), pixels(data, rgba), "--alpha"),
            "gamma": (png(width, height, split(data[:width * height * 4], width * 4), 6, 8, (b"gAMA", struct.pack(">I", 100000))),
                      pixels(data, rgba), "--alpha"),
            "wide": (png(width, height, wide, 6, 16), pixels(bytes8, rgba), "--alpha"),
            "grey alpha": (png(width, height, split(data[:width * height * 2], width * 2), 4),
                           pixels(data, lambda d, i: (d[i * 2],) * 3 + (d[i * 2 + 1],)), "--alpha --grey"),
            "grey": (png(width, height, split(data[:width * height], width), 0), pixels(data, grey), "--grey"),
            "bits": (png(width, height, bits, 0, 1), pixels(bit_pixels, grey), "--grey"),
            "palette": (png(width, height, split(index, width), 3, 8, (b"PLTE", b"".join(palette))),
                        pixels(index, lambda d, i: (*palette[d[i]][::-1], 255)), ""),
            "clear palette": (png(width, height, split(index, width), 3, 8, (b"PLTE", b"".join(palette)), (b"tRNS", bytes([0, 99]))),
                              pixels(index, lambda d, i: (*palette[d[i]][::-1], (0, 99, 255, 255, 255)[d[i]])), "--alpha"),
            "interlaced": (png(width, height, interlaced(data, width, height, 4), interlace=1), pixels(data, rgba), "--alpha"),
        }
        for name, (file, wanted, options) in kinds.items():
            with self.subTest(name):
                self.put("one.png", file)
                self.vorn("make one.png --fps 25 --frame-bytes 9999 -o png.vrn --force -q")
                self.make_raw("raw.vrn", [wanted], width, height, "--frame-bytes", "9999", *options.split())
                self.assertEqual(self.get("png.vrn"), self.get("raw.vrn"))
        self.vorn("make one.png --fps 25 --frame-bytes 9999 --no-alpha -o png.vrn --force -q")
        self.make_raw("raw.vrn", [kinds["interlaced"][1]], width, height, "--frame-bytes", "9999")
        self.assertEqual(self.get("png.vrn"), self.get("raw.vrn"))

    def test_rows_of_png(self):
        frames = noise_frames(16, 8, 12)
        self.make_raw("raw.vrn", frames, 16, 8, "--alpha")
        os.mkdir(self.path("shots"))
        for number, frame in enumerate(frames):
            pixels = b"".join(rgb(frame[i:i + 4]) + frame[i + 3:i + 4] for i in range(0, len(frame), 4))
            self.put(f"shots/a{number + 1}.png", png(16, 8, [pixels[at:at + 64] for at in range(0, len(pixels), 64)]))
        self.put("shots/.hidden.png", b"")
        self.put("shots/notes.txt", b"")
        by_hand = " ".join(f"shots/a{number}.png" for number in range(1, 13))
        for source in ("shots", "shots/", "shots/a%d.png", by_hand):
            self.vorn(f"make {source} --fps 25 -o png.vrn --force -q")
            self.assertEqual(self.get("png.vrn"), self.get("raw.vrn"), source)
        # Where it starts, whatever it is.
        self.make_raw("part.vrn", frames[4:7], 16, 8, "--alpha")
        for source in ("shots", "raw.vrn.bgra --raw 16x8", "- --raw 16x8", f"{by_hand} shots"):
            self.vorn(f"make {source} --fps 25 --alpha --seek 4 --frames 3 -o seek.vrn --force -q", stdin=self.get("raw.vrn.bgra"))
            self.assertEqual(self.get("seek.vrn"), self.get("part.vrn"), source)

    def test_decode_some_frames(self):
        self.vorn("scene cuts --size 24x16 --frames 12 -o s.y4m -q")
        self.vorn("make s.y4m -o m.vrn -q --key-interval 5")
        self.vorn("decode m.vrn -o all.bgra")
        size = 24 * 16 * 4
        frames = [self.get("all.bgra")[at:at + size] for at in range(0, 12 * size, size)]
        whole = self.decode_y4m("m.vrn")[1]
        for text, taken in (("3", [3]), ("0-2", [0, 1, 2]), ("6-8", [6, 7, 8]), ("10-", [10, 11])):
            self.vorn(f"decode m.vrn --frame {text} -o some.bgra --force")
            self.assertEqual(self.get("some.bgra"), b"".join(frames[i] for i in taken))
            self.assertEqual(self.vorn(f"decode m.vrn --frame {text} -o - --as bgra").stdout, self.get("some.bgra"))
            self.vorn(f"decode m.vrn --frame {text} -o some.y4m --force")
            self.assertEqual(self.get("some.y4m").split(b"\n", 1)[1], b"".join(b"FRAME\n" + whole[i] for i in taken))
        self.vorn("decode m.vrn --frame 6-8 -o row%02d.png")
        self.vorn("decode m.vrn -o folder/")
        self.assertEqual(sorted(os.listdir(self.path("folder"))), [f"{i:06}.png" for i in range(12)])
        for i in range(12):
            names = [f"folder/{i:06}.png"] + ([f"row{i:02}.png"] if i in (6, 7, 8) else [])
            for name in names:
                self.assertEqual(read_png(self.path(name)), (24, 16, 3, rgb(frames[i])))
        # One that stands there stops it all, and none of the others is touched.
        os.remove(self.path("folder/000003.png"))
        self.vorn("decode m.vrn -o folder", code=EXISTS)
        self.vorn("decode m.vrn -o folder --force")
        self.assertEqual(len(os.listdir(self.path("folder"))), 12)

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
        table = done.stdout.decode()
        line = [line.split() for line in table.splitlines() if line.startswith("Y ")][0]
        self.assertEqual(int(line[1]), wanted)
        self.assertEqual(self.vorn("verify m.vrn --source m.vrn.bgra --raw 16x16 -q").stdout.decode(), table)
        width, height, _, _ = read_png(self.path("sides.png"))
        self.assertEqual((width, height), (40, 16))

    def test_pipe_gives_the_file_that_a_file_gives(self):
        self.vorn("scene", "cuts", "--size", "40x24", "--frames", "30", "-o", "s.y4m", "-q")
        data = self.get("s.y4m")
        self.vorn("make", "s.y4m", "-o", "file.vrn", "-q")
        self.vorn("make", "-", "-o", "pipe.vrn", "-q", stdin=data)
        with open(self.path("s.y4m"), "rb") as file:
            subprocess.run([VORN, "make", "-", "-o", "redirected.vrn", "-q"], cwd=self.folder, stdin=file, check=True)
        for name in ("pipe.vrn", "redirected.vrn"):
            self.assertEqual(self.get(name), self.get("file.vrn"))
        self.vorn("make", "s.y4m", "s.y4m", "-o", "twice.vrn", "-q")
        self.assertEqual(len(self.decode_y4m("twice.vrn")[1]), 60)
        self.put("slow.y4m", data.replace(b" F25:1 ", b" F5:1 ", 1))
        self.vorn("verify twice.vrn --source s.y4m --source slow.y4m -q")  # rates are nothing to compare
        self.vorn("make", "s.y4m", "--frames", "7", "-o", "seven.vrn", "-q")
        self.assertEqual(struct.unpack("<II", self.get("seven.vrn")[8:12] + self.get("seven.vrn")[16:20]), (7, 7))

    def test_long_pipe_needs_room(self):
        # 64 MiB of pictures are read ahead: 18 pictures of 1280x720 are more.
        frame = bytes([50]) * (1280 * 720)
        data = y4m("W1280 H720 F25:1 Cmono", [frame] * 22)
        self.vorn("make", "-", "--capacity", "20", "-o", "m.vrn", "-q", stdin=data, code=DAMAGED, says=["20 frames", "--capacity"])
        self.vorn("make", "-", "-o", "n.vrn", "-q", stdin=data)
        for name, frames in (("m.vrn", 20), ("n.vrn", 22)):
            self.vorn("verify", name)
            self.assertEqual(struct.unpack("<I", self.get(name)[8:12])[0], frames)


if __name__ == "__main__":
    unittest.main()
