#!/usr/bin/env python3
"""OutputTest.py - where results go: never over something that somebody wants to keep, and never in part."""
from Program import *


class Outputs(ProgramTest):
    def setUp(self):
        super().setUp()
        self.vorn("scene", "balls", "--size", "32x16", "--frames", "5", "-o", "s.y4m", "-q")

    def test_existing_files_stay(self):
        self.put("old.vrn", b"old")
        self.put("new.vrn.part.tmp", b"half")
        self.vorn("make", "s.y4m", "-o", "new.vrn", code=EXISTS, says=["new.vrn.part.tmp"])
        self.assertEqual(self.get("new.vrn.part.tmp"), b"half")
        for command in (["make", "s.y4m"], ["scene", "balls"]):
            self.put("old.vrn.part", b"half")
            self.vorn(*command, "-o", "old.vrn", "--force", code=EXISTS, says=["old.vrn.part"])
            self.assertEqual(self.get("old.vrn.part"), b"half")
        os.remove(self.path("old.vrn.part"))
        self.put("cut.y4m", self.get("s.y4m")[:60])
        self.vorn("make", "cut.y4m", "-o", "old.vrn", "--force", code=DAMAGED)
        self.assertEqual(self.get("old.vrn"), b"old")
        self.vorn("make", "s.y4m", "-o", "old.vrn", "--force")
        self.vorn("verify", "old.vrn")
        for command in (["decode", "old.vrn", "-o", "s.y4m"], ["compare", "old.vrn", "s.y4m", "-o", "cut.y4m"],
                        ["scene", "balls", "-o", "s.y4m"]):
            self.vorn(*command, code=EXISTS)
        self.assertEqual(self.names(), ["cut.y4m", "new.vrn.part.tmp", "old.vrn", "s.y4m"])

    def test_input_is_never_the_output_and_links_stay_links(self):
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
        # Other links stay what they are.
        self.put("real.vrn", b"old")
        os.symlink("real.vrn", self.path("link.vrn"))
        self.vorn("make", "s.y4m", "-o", "link.vrn", "--force")
        self.assertTrue(os.path.islink(self.path("link.vrn")))
        self.vorn("verify", "real.vrn")

    def test_full_disk(self):
        self.vorn("scene", "noise", "--size", "64x64", "--frames", "12", "-o", "n.y4m", "-q")
        self.put("old.vrn", b"old")
        before = self.names()
        self.vorn("make", "n.y4m", "--frame-bytes", "3000", "-o", "old.vrn", "--force", "-q", code=FAILED, says=["old.vrn"],
                  preexec_fn=small_files(20000))
        self.assertEqual(self.get("old.vrn"), b"old")
        self.assertEqual(self.names(), before)
        # The frames of a pipe that is shorter than --frames are compressed while the movie is closed. What stands there
        # already, a good movie of as many frames, is no proof of the new one.
        self.vorn("make", "n.y4m", "--frame-bytes", "1500", "-o", "old.vrn", "-q", "--force")
        old = self.get("old.vrn")
        self.vorn("make", "-", "--frames", "100", "--frame-bytes", "3000", "-o", "old.vrn", "--force", "-q", code=FAILED,
                  says=["old.vrn", "nothing is left"], stdin=self.get("n.y4m"), preexec_fn=small_files(20000))
        self.assertEqual(self.get("old.vrn"), old)
        self.vorn("bench n.y4m --rounds 1", code=FAILED, preexec_fn=small_files(5000), env={**os.environ, "TMPDIR": self.folder})
        self.assertEqual(self.names(), before)

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


if __name__ == "__main__":
    unittest.main()
