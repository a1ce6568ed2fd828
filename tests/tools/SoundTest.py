#!/usr/bin/env python3
"""SoundTest.py - sound into movies and back, and other sound for movies."""
from Program import *


class Sound(ProgramTest):
    def setUp(self):
        super().setUp()
        self.vorn("scene", "cuts", "--size", "16x16", "--frames", "25", "-o", "s.y4m", "-q")

    def make(self, sound, name="m.vrn"):
        self.vorn("make", "s.y4m", "--audio", sound, "-o", name, "--force", "-q")

    def decoded(self, name, track="0"):
        self.vorn("decode", name, "--audio", track, "-o", "back.wav", "--force")
        data = self.get("back.wav")
        return struct.unpack("<%dh" % ((len(data) - 44) // 2), data[44:])

    def test_sample_formats_become_16_bit(self):
        plain = tone(8000)
        coarse = [s // 256 * 256 for s in plain]
        for name, file, same in (
                ("24", wav([s * 256 + (i % 3 - 1) * 127 for i, s in enumerate(plain)], bits=24), plain),
                ("32", wav([s * 65536 + (i % 3 - 1) * 32767 for i, s in enumerate(plain)], bits=32), plain),
                ("float", wav([(s + (i % 3 - 1) * 0.45) / 32768 for i, s in enumerate(plain)], bits=32, kind=3), plain),
                ("8", wav([s // 256 for s in plain], bits=8), coarse)):
            with self.subTest(name):
                self.put("a.wav", file)
                self.put("16.wav", wav(same))
                self.make("a.wav")
                self.make("16.wav", "16.vrn")
                self.assertEqual(self.get("m.vrn"), self.get("16.vrn"))

    def test_sound_comes_back(self):
        plain = tone(8000)
        self.put("a.wav", wav(plain))
        self.make("a.wav,id=7,quality=1")
        back = self.decoded("m.vrn", "7")
        self.assertEqual(len(back), 8000)
        wrong = sum((a - b) ** 2 for a, b in zip(plain, back))
        self.assertLess(wrong * 16, sum(a * a for a in plain))  # 12 dB: a lone tone hides much noise
        self.vorn("verify", "m.vrn")

    # A pipe with a name can be read only once, too.
    def test_pipe_gives_the_sound_that_a_file_gives(self):
        self.put("a.wav", wav(tone(8000)))
        self.make("a.wav", "file.vrn")
        os.mkfifo(self.path("pipe.wav"))
        writer = subprocess.Popen("cat a.wav > pipe.wav", shell=True, cwd=self.folder)
        self.make("pipe.wav")
        self.assertEqual(writer.wait(timeout=60), 0)
        self.assertEqual(self.get("m.vrn"), self.get("file.vrn"))

    # A part of the pictures has its part of the sound, and so has a part of the movie.
    def test_sound_of_some_frames(self):
        plain = tone(8000)
        self.put("a.wav", wav(plain))
        self.put("late.wav", wav(plain[3200:]))
        self.make("a.wav")
        whole = self.decoded("m.vrn")
        self.vorn("decode m.vrn --audio 0 --frame 5-9 -o some.wav")
        self.assertEqual(self.get("some.wav"), wav(whole[1600:3200]))
        self.vorn("make s.y4m --seek 10 --audio a.wav -o seek.vrn -q")
        head, frames = self.get("s.y4m").split(b"\n", 1)
        self.put("part.y4m", head + b"\n" + frames[10 * (16 * 16 * 3 // 2 + 6):])
        self.vorn("make part.y4m --audio late.wav -o late.vrn -q")
        self.assertEqual(self.get("seek.vrn"), self.get("late.vrn"))

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
        self.vorn("mix two.vrn --drop 3 --drop 9 -o two.vrn", code=EXISTS)
        self.vorn("mix two.vrn --track 3=low.wav -o low.wav --force", code=USAGE)
        self.vorn("mix two.vrn --drop 3 --drop 9 -o two.vrn --force -q")
        self.assertEqual(self.get("two.vrn"), self.get("none.vrn"))


if __name__ == "__main__":
    unittest.main()
