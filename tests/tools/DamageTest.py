#!/usr/bin/env python3
"""DamageTest.py - movies that are damaged: what is told of them, and what is kept."""
from Program import *


class Damage(ProgramTest):
    def setUp(self):
        super().setUp()
        self.vorn("scene cuts --size 32x32 --frames 6 -o s.y4m -q")
        self.vorn("make s.y4m -o m.vrn -q")
        self.data = self.get("m.vrn")

    def test_lies_and_cuts(self):
        self.put("cut.vrn", self.data[:-40])
        self.assertIn(self.run_vorn("verify", "cut.vrn").returncode, (DIFFERS, DAMAGED))
        # The largest frame in the head: nothing needs it to decode, but it is a lie.
        self.put("lie.vrn", with_word(self.data, 12, 4))
        self.vorn("verify", "lie.vrn", code=DIFFERS, says=["lie.vrn"])
        text = self.vorn("verify", "lie.vrn", "--most", "0", code=DIFFERS, says=["1 more"]).stderr.decode()
        self.assertEqual(len(text.splitlines()), 1, text)
        self.put("no.vrn", b"VRNx" + self.data[4:])
        self.vorn("verify", "no.vrn", "--most", "0", code=DAMAGED, says=["no.vrn", "isn't a Vorn movie"])

    def test_damage_never_replaces_a_complete_file(self):
        self.put("a.wav", wav(tone(8000)))
        starts = frame_starts(self.data)
        for bad in (0, 3):
            self.put("bad.vrn", with_word(self.data, starts[bad], 0))
            self.put("old.y4m", b"old")
            self.vorn("decode", "bad.vrn", "-o", "old.y4m", "--force", code=DAMAGED, says=[f"frame {bad}", "old.y4m was not"])
            self.assertEqual(self.get("old.y4m"), b"old")
            self.vorn("decode", "bad.vrn", "-o", "new.y4m", code=DAMAGED, says=[f"frame {bad}"])
            # The frames before the damage, and no file if there are none.
            self.assertEqual(os.path.exists(self.path("new.y4m")), bad != 0)
        self.assertEqual(self.get("new.y4m").count(b"FRAME\n"), 3)
        # Sound: the packet of frame 0 says that it is longer than the frame. The mixer alone looks at that.
        self.vorn("make s.y4m --audio a.wav -o m.vrn -q --force")
        data = self.get("m.vrn")
        self.put("bad.vrn", with_word(data, frame_starts(data)[0], 0x7ffffff0))
        self.put("old.wav", b"old")
        self.vorn("decode bad.vrn --audio 0 -o old.wav --force", code=DAMAGED, says=["old.wav was not"])
        self.vorn("mix bad.vrn --track 1=a.wav -o old.wav --force", code=DAMAGED, says=["bad.vrn", "frame 0"])
        self.assertEqual(self.get("old.wav"), b"old")
        self.assertEqual([name for name in self.names() if "part" in name], [])

    def test_a_head_may_claim_any_number_of_tracks(self):
        self.vorn("scene cuts --size 8x8 --frames 1 -o one.y4m -q")
        self.vorn("make one.y4m -o one.vrn -q")
        data = self.get("one.vrn")
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


if __name__ == "__main__":
    unittest.main()
