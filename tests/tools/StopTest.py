#!/usr/bin/env python3
"""StopTest.py - signals, and what is drawn on a terminal meanwhile."""
from Program import *


class Stopping(ProgramTest):
    def start_make(self, shows_frames=True, **more):
        """A make that waits for more of its pipe, with frames done."""
        running = self.start("make - --frames 100 --look-ahead 2 -o m.vrn --force", **more)
        running.stdin.write(y4m("W32 H32 F25:1", [bytes(range(256)) * 6] * 6))
        running.stdin.flush()
        # The head is up to date from the first frame on.
        self.wait_for("m.vrn.part.tmp", lambda _: not shows_frames or self.get("m.vrn.part.tmp")[8:12] not in (b"", bytes(4)))
        time.sleep(0.3)
        return running

    def test_once_finishes(self):
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            running = self.start_make()
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
        running = self.start_make(shows_frames=False, preexec_fn=small_files(600))
        running.send_signal(signal.SIGTERM)
        _, text = running.communicate(timeout=60)
        self.assertEqual(running.returncode, FAILED, text)
        self.assertEqual(self.get("m.vrn"), old)
        self.assertEqual(self.names(), ["m.vrn", "s.y4m"])

    def test_twice_leaves_nothing(self):
        running = self.start_make()
        for number in (signal.SIGSTOP, signal.SIGTERM, signal.SIGINT, signal.SIGCONT):
            running.send_signal(number)
        _, text = running.communicate(timeout=60)
        self.assertEqual(running.returncode, FAILED, text)
        self.assertIn(b"nothing is left", text)
        self.assertEqual(self.names(), [])

    def test_commands_that_have_nothing_to_finish(self):
        self.vorn("scene", "balls", "--size", "32x16", "--frames", "5", "-o", "s.y4m", "-q")
        self.vorn("make", "s.y4m", "-o", "m.vrn", "-q")
        self.vorn("make - --frames 4000 -o long.vrn -q", stdin=y4m("W8 H8 F25:1 Cmono", [bytes(64)] * 4000))
        before = self.names()
        environment = {**os.environ, "TMPDIR": self.folder}
        # What each does when it is hit: the first three wait for their input.
        for command, sign in (("make - -o x.vrn", None), ("compare m.vrn -", None), ("bench -", None),
                              ("bench s.y4m --rounds 1000", "vorn-bench-*/movie*"),
                              ("scene balls --frames 500000 --sound x.wav", "x.wav.part"),
                              ("scene balls --frames 500000 -o x.y4m", "x.y4m.part"),
                              ("decode long.vrn -o x/", "x/000009.png.part")):
            with self.subTest(command):
                running = self.start(command, stdout=subprocess.PIPE, env=environment)
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


class Terminal(ProgramTest):
    def draw(self, options, columns, away=False):
        """A make with frames that come slowly, before a terminal that goes away or not. Returns what it has shown."""
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        running = self.start("make - --frames 12 --look-ahead 2 --rate 50 -o m.vrn --force " + options, stderr=slave)
        os.close(slave)
        frame = bytes(32 * 32 * 3 // 2)
        running.stdin.write(y4m("W32 H32 F25:1", [frame] * 6))
        running.stdin.flush()
        self.wait_for("m.vrn.part.tmp")
        if away:
            os.close(master)
        for _ in range(6):
            time.sleep(0.1)
            running.stdin.write(b"FRAME\n" + frame)
            running.stdin.flush()
        running.communicate(timeout=60)
        self.assertEqual(running.returncode, DONE)
        self.assertEqual(len(self.decode_y4m("m.vrn")[1]), 12)
        text = b""
        with contextlib.suppress(OSError):  # the end
            while not away:
                text += os.read(master, 4096)
        return text.decode()

    def test_progress(self):
        # Drawn over and in the end removed, at most five times a second.
        begin = time.monotonic()
        text = self.draw("", 200)
        lines = re.findall(r"\r(\[.*?)\x1b\[K", text)
        self.assertIn(len(lines), range(1, 1 + int((time.monotonic() - begin) * 5)))
        for line in lines:
            self.assertRegex(line, r"^\[\d+\.\d%\] \d+/12 frames, \d+\.\d\d fps, \d+\.\d\d of 50.00 kbit/s, "
                             r"eta \d:\d\d:\d\d, \d+ of \d+ kB$")
        self.assertRegex(text, r"\r\x1b\[Km.vrn: 12 frames, \d+ bytes, \d+\.\d\d kbit/s\r\n$")
        self.assertEqual({len(line) for line in re.findall(r"\r(\[.*?)\x1b\[K", self.draw("", 30))}, {29})
        self.assertEqual(self.draw("--quiet", 200), "")

    # The line is drawn in the midst of the library's work.
    def test_terminal_that_goes_away(self):
        self.draw("", 80, away=True)


if __name__ == "__main__":
    unittest.main()
