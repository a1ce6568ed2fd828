#!/usr/bin/env python3
"""TellTest.py - what `vorn` tells: of movies, of each frame, of what it reads back, of itself."""
from Program import *


class Telling(ProgramTest):
    def setUp(self):
        super().setUp()
        self.vorn("scene cuts --size 40x24 --frames 12 -o s.y4m --sound s.wav -q")

    def test_info(self):
        self.vorn("make s.y4m --audio s.wav,id=7 --key-interval 5 --log log.csv -o m.vrn -q")
        movie = self.get("m.vrn")
        starts = frame_starts(movie) + [len(movie)]
        info = json.loads(self.vorn("info m.vrn --json --frames --blocks").stdout)
        self.assertEqual([info[key] for key in ("bytes", "width", "height", "frames", "rate", "keyFrames")],
                         [len(movie), 40, 24, 12, [25, 1], [0, 5, 10]])
        self.assertEqual([(track["id"], track["sampleRate"], track["channels"]) for track in info["tracks"]], [(7, 44100, 2)])
        # Each packet: the words that tell the sizes of sound and luma, and what they tell.
        for number, frame in enumerate(info["frameList"]):
            packet = movie[starts[number]:starts[number + 1]]
            sound = 4 + struct.unpack("<I", packet[:4])[0]
            luma = struct.unpack("<I", packet[sound:sound + 4])[0] - 4
            self.assertEqual((frame["offset"], frame["bytes"], frame["tracks"]), (starts[number], len(packet), [sound]))
            self.assertEqual(frame["planes"]["Y"], luma)
            self.assertEqual(sum(frame["planes"].values()), len(packet) - sound - 4)
            for plane, blocks in (("Y", 15), ("Cr", 6), ("Cb", 6)):
                coded = frame["blocks"][plane]
                self.assertEqual(sum(coded["8x8"].values()) + 4 * sum(coded["16x16"].values()), blocks)
        for plane in ("Y", "Cr", "Cb"):
            total = sum(frame["planes"][plane] for frame in info["frameList"])
            self.assertEqual(info["planes"][plane]["bytes"], total)
            self.assertAlmostEqual(info["planes"][plane]["kbitPerSecond"], total * 8 / 1000 / (12 / 25))
        text = self.vorn("info m.vrn --frames --blocks").stdout.decode()
        self.assertIn("keys      3: 0, 5, 10\n", text)
        self.assertEqual(len(re.findall(r"(?m)^frame +\d", text)), 12)
        # The log tells the same, and what only the encoder knows.
        with open(self.path("log.csv"), newline="") as file:
            rows = list(csv.DictReader(file))
        for frame, row in zip(info["frameList"], rows, strict=True):
            self.assertEqual([int(row[key]) for key in ("frame", "key", "target", "bytes", "sound", "luma", "chroma")],
                             [frame["frame"], frame["key"], 120, frame["bytes"], frame["tracks"][0], frame["planes"]["Y"],
                              frame["planes"]["Cr"] + frame["planes"]["Cb"]])
        # Pictures of whole blocks: the errors are those of the planes, Cr and Cb of which are padded.
        table = self.vorn("verify m.vrn --source s.y4m -q").stdout.decode()
        luma = int(re.search(r"(?m)^Y +(\d+)", table)[1])
        self.assertGreaterEqual(sum(int(row["error"]) for row in rows), luma)
        self.assertEqual([row["seconds"] for row in rows], sorted((row["seconds"] for row in rows), key=float))

    def test_reading_back(self):
        self.vorn("make s.y4m --audio s.wav -o m.vrn -q")
        for source, stdin in (("s.y4m", None), ("- --frames 99", self.get("s.y4m"))):
            done = self.vorn(f"make {source} --audio s.wav --verify --log log.csv -o v.vrn --force", stdin=stdin)
            self.assertIn(b"read back without a difference", done.stderr)
            # Of a pipe that ends too soon, the last frame comes when nothing can be asked any more.
            self.assertEqual(b"last frame could only" in done.stderr, stdin is not None)
            self.assertEqual(self.get("log.csv").count(b"\n"), 13)
            if stdin is None:
                self.assertEqual(self.get("v.vrn"), self.get("m.vrn"))
            os.remove(self.path("log.csv"))
        os.remove(self.path("v.vrn"))
        # Frame 0 of 90 kB goes to the file at once; then bytes go there when 131072 have come together: all of frame 1 and a
        # part of frame 2, the rest of which waits for more frames.
        frames = noise_frames(256, 256, 6)
        running = self.start("make - --raw 256x256 --fps 25 --frames 6 --look-ahead 2 --frame-bytes 80000 --verify -o v.vrn")
        running.stdin.write(b"".join(frames[:4]))
        running.stdin.flush()
        self.wait_for("v.vrn.part.tmp", lambda path: os.path.getsize(path) > 200000)
        place = os.path.getsize(self.path("v.vrn.part.tmp")) - 64
        with open(self.path("v.vrn.part.tmp"), "r+b") as file:
            file.seek(place)
            bad = bytes(byte ^ 0x55 for byte in file.read(32))
            file.seek(place)
            file.write(bad)
        _, text = running.communicate(b"".join(frames[4:]), timeout=60)
        self.assertEqual(running.returncode, DIFFERS, text)
        self.assertRegex(text.decode(), r"^vorn: v.vrn: read back wrong: .*frame 2, plane (Y|Cr|Cb).*nothing is left\n$")
        self.assertEqual(self.names(), ["m.vrn", "s.wav", "s.y4m"])

    def test_sizes(self):
        pixels = 40 * 24
        for option, wanted in (("", pixels // 8), ("--quality low", 64), ("--quality middle", pixels // 8),
                               ("--quality high", pixels // 4), ("--frame-bytes 77", 77), ("--rate 20", 100)):
            self.vorn(f"make s.y4m {option} --log log.csv -o m.vrn --force -q")
            self.assertEqual(float(self.get("log.csv").split(b"\n")[1].split(b",")[2]), wanted)

    def test_itself(self):
        self.assertRegex(self.vorn("--version").stdout.decode(), r"^vorn \d+\.\d+\.\d+\n$")
        commands = re.findall(r"(?m)^  ([a-z]+)  ", self.vorn("--help").stdout.decode().split("Subcommands:")[1])
        self.assertGreaterEqual(len(commands), 9)
        # Every help fits a screen and has an example; that examples work is tested with the documents.
        for command in [""] + commands:
            lines = self.vorn(command + " --help").stdout.decode().splitlines()
            self.assertLessEqual((len(lines), max(len(line) for line in lines)), (32, 100), command)
            self.assertTrue(not command or any(re.match(r"Examples?: +vorn ", line) for line in lines), command)


if __name__ == "__main__":
    unittest.main()
