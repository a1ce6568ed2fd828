#!/usr/bin/env python3
"""WrongInputTest.py - everything that can be wrong with what `vorn` is given: the exit code, and the line that tells it."""
from Program import *


def inputs():
    """The files that the table names."""
    picture = bytes(range(96))  # 8x8, C420
    good = y4m("W8 H8 F25:1", [picture] * 4)
    rows = [bytes(range(32))] * 8
    sound = wav(tone(2000))
    files = {
        "good.y4m": good, "good.wav": sound, "empty": b"", "text": b"Nothing that anybody could show.\n" * 9, "good.png": png(8, 8, rows),
        "other.y4m": y4m("W8 H4 F25:1", [picture[:48]]), "slow.y4m": y4m("W8 H8 F5:1", [picture]), "norate.y4m": y4m("W8 H8", [picture]),
        "cut.y4m": good[:-1], "line.y4m": good[:-99], "lost.y4m": good[:-102] + b"x" * 101 + b"\n", "none.y4m": y4m("W8 H8 F25:1", []),
        "head.y4m": good[:20], "cut.bgra": bytes(600), "cut.wav": sound[:2000], "fast.wav": wav(tone(600), rate=96000),
        "six.wav": wav(tone(600), channels=6), "24.wav": wav([s * 256 for s in tone(2000)], bits=24),
        "noise.y4m": y4m("W64 H64 F25:1 Cmono", [f[:4096] for f in noise_frames(64, 16, 6)]), "secret.y4m": good, "secret.png": b"",
        "float.wav": wav([s / 32768 for s in tone(2000)], bits=32, kind=3),
    }
    for number, header in enumerate(HEADERS):
        files[f"{number}.y4m"] = y4m(header, [picture])
    for number in range(4):
        files[f"cut{number}.png"] = png(8, 8, rows)
        files[f"size{number}.png"] = png(8, 8 - number // 3, rows[number // 3:])
        files[f"gap{number + number // 3}.png"] = png(8, 8, rows)
    files["cut2.png"] = files["cut2.png"][:-20]
    return files


# Y4M headers, and what is said of each.
HEADERS = {
    "H8 F25:1": (DAMAGED, "its header has no width (W)"), "W8 F25:1": (DAMAGED, "its header has no height (H)"), "W0 H8 F25:1": (DAMAGED, "header parameter W0: a number from 1 to 65535 is wanted"), "W-8 H8 F25:1": (DAMAGED, "header parameter W-8: a number from 1 to 65535 is wanted"),
    "W8 H99999 F25:1": (DAMAGED, "header parameter H99999: a number from 1 to 65535 is wanted"), "W4033 H1 F25:1": (FAILED, "4033x1 pixels; a movie can have up to 226000000, and be up to 4032 wide"), "W4032 H65535 F25:1": (FAILED, "4032x65535 pixels; a movie can have up to 226000000, and be up to 4032 wide"),
    "W8 H8 F25": (DAMAGED, "header parameter F25: frames per second as N:D are wanted, both from 1 to 4294967295"), "W8 H8 F25:0": (DAMAGED, "header parameter F25:0: frames per second as N:D are wanted, both from 1 to 4294967295"), "W8 H8 F25:1 C420p10": (FAILED, "header parameter C420p10: 8-bit C420, C420jpeg, C420mpeg2, C420paldv, C422, C444 and Cmono are read"), "W8 H8 F25:1 C411": (FAILED, "header parameter C411: 8-bit C420, C420jpeg, C420mpeg2, C420paldv, C422, C444 and Cmono are read"),
    "W8 H8 F25:1 Ix": (DAMAGED, "header parameter Ix: Ip, It, Ib, Im or I? is wanted"), "W8 H8 F25:1 Q1": (DAMAGED, "header parameter Q1: not known; W, H, F, I, A, C and X are"), "W8 H8 F25:1 XCOLORRANGE=FULL": (FAILED, "header parameter XCOLORRANGE=FULL: only studio range (black 16, white 235) is read"),
}

# Arguments, exit code, the line, and how many frames the movie m.vrn has then (none: it isn't there).
TABLE = [
    # Pictures.
    ("make missing.y4m -o m.vrn", FAILED, "missing.y4m: can't be opened (No such file or directory)"),
    ("make empty -o m.vrn", DAMAGED, "empty: is empty; Y4M or PNG is wanted"),
    ("make text -o m.vrn", DAMAGED, "text: neither Y4M (it doesn't start with YUV4MPEG2) nor PNG; for raw pictures give --raw WIDTHxHEIGHT"),
    ("make folder --fps 25 -o m.vrn", FAILED, "folder: a folder without PNG pictures (.png)"),
    ("make folder --raw 8x8 --fps 25 -o m.vrn", FAILED, "folder: is a folder; name a file in it"),
    ("make norate.y4m -o m.vrn", USAGE, "norate.y4m: doesn't say how many frames a second it has; give --fps N/D"),
    ("make head.y4m -o m.vrn", DAMAGED, "head.y4m: its header line has no end"),
    ("make none.y4m -o m.vrn", DAMAGED, "none.y4m: holds no frame"),
    ("make cut.y4m -o m.vrn", DAMAGED, "cut.y4m: ends in frame 3 (byte 328); m.vrn has the 3 frames before", 3),
    ("make line.y4m -o m.vrn", DAMAGED, "line.y4m: ends in the line of frame 3 (byte 328); m.vrn has the 3 frames before", 3),
    ("make lost.y4m -o m.vrn", DAMAGED, "lost.y4m: no FRAME line where frame 3 should start (byte 328); m.vrn has the 3 frames before", 3),
    ("make - -o m.vrn < cut.y4m", DAMAGED, "standard input: ends in frame 3 (byte 328); m.vrn has the 3 frames before", 3),
    ("make - -o m.vrn < empty", DAMAGED, "standard input: is empty; Y4M or PNG is wanted"),
    ("make good.y4m other.y4m -o m.vrn", USAGE, "other.y4m: 8x4 pixels, but good.y4m has 8x8; all inputs need one size"),
    ("make good.y4m slow.y4m -o m.vrn", USAGE, "slow.y4m: 5/1 frames per second, but good.y4m has 25/1; --fps sets one for all"),
    ("make good.y4m --seek 4 -o m.vrn", USAGE, "--seek 4: good.y4m has 4 frames, counted from 0"),
    ("make cut.bgra --raw 8x8 --fps 25 -o m.vrn", DAMAGED, "cut.bgra: ends in frame 2: 88 of its 256 bytes; m.vrn has the 2 frames before", 2),
    ("make empty --raw 8x8 --fps 25 -o m.vrn", DAMAGED, "empty: holds no frame"),
    ("make good.png -o m.vrn", USAGE, "good.png: doesn't say how many frames a second it has; give --fps N/D"),
    ("make missing.png --fps 25 -o m.vrn", FAILED, "missing.png: can't be opened (No such file or directory)"),
    ("make missing%04d.png --fps 25 -o m.vrn", FAILED, "missing%04d.png: there is no such file (missing0001.png for one)"),
    ("make cut%d.png --fps 25 -o m.vrn", DAMAGED, "cut2.png: frame 2 can't be read (the file ends too early); m.vrn has the 2 frames before", 2),
    ("make size%d.png --fps 25 -o m.vrn", USAGE, "size3.png: 8x7 pixels, but size0.png has 8x8; all pictures need one size"),
    ("make gap%d.png --fps 25 -o m.vrn", DAMAGED, "gap3.png: is missing, but gap4.png is there; m.vrn has the 3 frames before", 3),
    ("make cut2.png --fps 25 -o m.vrn", DAMAGED, "cut2.png: frame 0 can't be read (the file ends too early)"),
    ("make - --fps 25 -o m.vrn < good.png", FAILED, "standard input: is PNG, which is read from files only; name them"),
    # Sound.
    ("make good.y4m --audio missing.wav -o m.vrn", FAILED, "missing.wav: can't be opened (No such file or directory)"),
    ("make good.y4m --audio text -o m.vrn", FAILED, "text: can't be read as sound (Format not recognised); WAV, FLAC, Ogg and AIFF are taken"),
    ("make good.y4m --audio folder -o m.vrn", FAILED, "folder: is a folder; name a file in it"),
    ("make good.y4m --audio six.wav -o m.vrn", FAILED, "six.wav: 6 channels; 1 or 2 are taken"),
    ("make good.y4m --audio fast.wav -o m.vrn", FAILED, "fast.wav: 96000 samples a second; 1 to 65535 are taken"),
    ("make good.y4m --audio cut.wav -o m.vrn", DAMAGED, "cut.wav: cut: 978 of the 2000 frames of sound that it promises; silence stands in for the rest", 4),
    ("make good.y4m --audio 24.wav --audio float.wav -o m.vrn", DONE, "", 4),
    ("make good.y4m --audio good.wav,quality=200 -o m.vrn", USAGE, "--audio good.wav,quality=200: quality wants a number from 0 to 199"),
    ("make good.y4m --audio good.wav,id=1 --audio cut.wav -o m.vrn", USAGE, "--audio cut.wav: id 1 belongs to good.wav already"),
    ("make - --audio - -o m.vrn", USAGE, "--audio -: standard input can be named only once"),
    # Movies.
    ("info missing.vrn", FAILED, "missing.vrn: can't be opened (No such file or directory)"),
    ("verify empty", DAMAGED, "empty: error: The file is too short for a movie's header."),
    ("decode text -o x.y4m", DAMAGED, "text: error: The file isn't a Vorn movie."),
    ("verify folder", FAILED, "folder: is a folder; name a file in it"),
    ("verify fifo", FAILED, "fifo: is a device or a pipe; a movie is read from a plain file"),
    ("verify -", USAGE, "-: a movie can't be read from a pipe; name a file"),
    ("verify movie --source other.y4m", USAGE, "other.y4m: 8x4 pixels, but movie has 8x8"),
    ("compare movie cut.y4m", DAMAGED, "cut.y4m: ends in frame 3 (byte 328)"),
    ("decode movie --frame 4 -o x.png", USAGE, "--frame 4: movie has 4 frames, counted from 0"),
    ("decode movie --frame 3-2 -o x.y4m", USAGE, "--frame 3-2: a frame (N), or a range of them (N-M, N-) is wanted"),
    ("decode movie --audio 3 -o x.wav", USAGE, "--audio 3: movie has the tracks 0"),
    ("decode movie -o x.png", USAGE, "-o x.png: holds one picture, not 4; --frame N says which, or give a folder or a name like shots/%04d.png"),
    ("decode movie -o x.avi", USAGE, "-o x.avi: pictures are written as .y4m, .bgra or .png, or into a folder; sound as .wav with --audio ID; --as KIND says which"),
    ("mix movie -o x.vrn", USAGE, "mix: nothing to do; give --track, --drop or --fps"),
    ("mix movie --drop 5 -o x.vrn", USAGE, "--drop 5: movie has no such track"),
    ("mix movie --track 0=movie -o x.vrn", FAILED, "movie: can't be read as sound (Format not recognised); WAV, FLAC, Ogg and AIFF are taken"),
    ("mix movie --track 0=good.wav --track 0=cut.wav -o x.vrn", USAGE, "--track cut.wav: id 0 belongs to good.wav already"),
    ("mix movie --track 0=good.wav --drop 0 -o x.vrn", USAGE, "--drop 0: --track 0=good.wav brings it; give one of them"),
    ("mix movie --drop 0 --delay 5 -o x.vrn", USAGE, "--delay, --delay-ms: delay new sound; give --track with them"),
    ("mix text --fps 5 -o x.vrn", DAMAGED, "text: error: The file isn't a Vorn movie."),
    # Outputs.
    ("make good.y4m -o movie", EXISTS, "movie: exists already; --force replaces it"),
    ("make good.y4m -o folder --force", FAILED, "folder: is a folder; name a file in it"),
    ("make good.y4m -o fifo --force", FAILED, "fifo: is a device or a pipe, not a file; name a plain file"),
    ("make good.y4m -o none/m.vrn", FAILED, "none/m.vrn: can't write into the folder none (No such file or directory)"),
    ("make good.y4m -o -", USAGE, "-o -: a movie can't be written to a pipe; name a file"),
    ("make good.y4m -o good.y4m --force", USAGE, "good.y4m: is the input good.y4m itself; name another output"),
    ("make good.y4m -o " + "n" * 119, FAILED, "n" * 119 + ": the name has 119 bytes; a movie's may have 118, folders included"),
    ("make good.y4m -o m.vrn --log m.vrn", USAGE, "--log m.vrn: is the movie itself; name another file"),
    ("make good.y4m -o m.vrn --log good.wav", EXISTS, "good.wav: exists already; --force replaces it"),
    ("decode movie -o movie --as y4m --force", USAGE, "movie: is the input movie itself; name another output"),
    ("report movie --seek 1 -o x.html", USAGE, "--show, --raw, --seek: only together with --source"),
    ("report movie --source gap%d.png -o gap1.png --force", USAGE, "gap1.png: is the input gap1.png itself; name another output"),
    # No room, no right.
    ("make good.y4m -o m.vrn", FAILED, "m.vrn: could not be written completely (disk full?); nothing is left", None, {"limit": 300}),
    ("make noise.y4m -o m.vrn --force", FAILED, "m.vrn: could not be written completely (disk full?); nothing is left", None, {"limit": 3000}),
    ("decode movie -o x.y4m", FAILED, "x.y4m: can't be written (File too large)", None, {"limit": 300}),
    ("decode movie -o shots/%d.png", FAILED, "shots/1.png: can't be written (File too large)", None, {"limit": 100}),
    ("mix movie --fps 5 -o x.vrn", FAILED, "x.vrn: Couldn't write 'x.vrn.part.tmp'. The drive may be full (out of disk space).", None, {"limit": 300}),
    ("scene noise -o x.y4m", FAILED, "x.y4m: can't be written (File too large)", None, {"limit": 300}),
    ("make good.y4m -o locked/m.vrn", FAILED, "locked/m.vrn: can't write into the folder locked (Permission denied)", None, {"nobody": True}),
    ("decode movie -o locked/", FAILED, "locked/000000.png: can't write into the folder locked (Permission denied)", None, {"nobody": True}),
    ("make secret.y4m -o open/m.vrn", FAILED, "secret.y4m: can't be opened (Permission denied)", None, {"nobody": True}),
    ("make good.y4m --audio secret.y4m -o open/m.vrn", FAILED, "secret.y4m: can't be opened (Permission denied)", None, {"nobody": True}),
    ("make secret.png --fps 5 -o open/m.vrn", FAILED, "secret.png: can't be opened (Permission denied)", None, {"nobody": True}),
    ("verify secret.y4m", FAILED, "secret.y4m: can't be opened (Permission denied)", None, {"nobody": True}),
    # Options.
    ("", USAGE, "a command is wanted; there are make, info, verify, decode, compare, mix, report, scene, bench; see --help"),
    ("frob", USAGE, "frob: is no command; there are make, info, verify, decode, compare, mix, report, scene, bench; see --help"),
    ("info", USAGE, "MOVIE is required; see --help"),
    ("make good.y4m", USAGE, "--output is required; see --help"),
    ("make good.y4m -o m.vrn --frob", USAGE, "The following argument was not expected: --frob; see --help"),
    ("make good.y4m -o m.vrn --look-ahead 65", USAGE, "--look-ahead: 65 is no whole number from 2 to 64; see --help"),
    ("make good.y4m -o m.vrn --frames -1", USAGE, "--frames: -1 is no whole number from 1 to 4294967295; see --help"),
    ("make good.y4m -o m.vrn --rate much", USAGE, "--rate: much is no number above 0; see --help"),
    ("make good.y4m -o m.vrn --rate 5 --quality low", USAGE, "--rate, --frame-bytes and --quality: give one of them"),
    ("make good.y4m -o m.vrn --rate 1e-9", USAGE, "--rate 1e-09: makes 0.0 bytes a frame; 1 to 4000000000 are taken"),
    ("make good.y4m -o m.vrn --quality best", USAGE, "--quality: best is none of low, middle, high; see --help"),
    ("make good.y4m -o m.vrn --alpha", USAGE, "--alpha: good.y4m carries none; raw pictures (--raw) and PNG can"),
    ("make good.y4m -o m.vrn --raw 8", USAGE, "--raw 8: a size is WIDTHxHEIGHT, each from 1 to 65535 (320x240)"),
    ("make good.y4m -o m.vrn --fps 0/1", USAGE, "--fps 0/1: frames per second as N or N/D, whole numbers from 1 (30, 30000/1001)"),
    ("scene nothing -o x.y4m", USAGE, "scene nothing: not known; there are balls, drift, cuts, noise, glass"),
]


def as_nobody():
    if os.getuid() == 0:
        os.setgid(65534)
        os.setuid(65534)


class WrongInput(ProgramTest):
    def setUp(self):
        super().setUp()
        for name, data in inputs().items():
            self.put(name, data)
        for name in ("folder", "open", "locked", "shots"):
            os.mkdir(self.path(name))
        os.mkfifo(self.path("fifo"))
        self.vorn("make good.y4m --audio good.wav -o movie -q")
        for name, mode in ((".", 0o755), ("open", 0o777), ("locked", 0o555), ("secret.y4m", 0), ("secret.png", 0)):
            os.chmod(self.path(name), mode)

    def names(self):
        return sorted(glob.glob(self.path("**"), recursive=True))

    def check(self, command, code, line, frames=None, how={}):
        stdin = b""
        if " < " in command:
            command, name = command.split(" < ")
            stdin = self.get(name)
        before, more = self.names(), {}
        if "limit" in how:
            more["preexec_fn"] = small_files(how["limit"])
        if "nobody" in how:
            more["preexec_fn"] = as_nobody
        done = self.run_vorn(command, stdin=stdin, **more)
        lines = done.stderr.decode().splitlines()
        # Ahead of the line there is at most the summary of the movie that was finished.
        self.assertEqual(lines[:-1], [text for text in lines[:-1] if text.startswith("m.vrn: ")])
        self.assertEqual((done.returncode, lines[-1]), (code, "vorn: " + line if line else lines[-1]))
        if frames is not None:
            self.vorn("verify m.vrn")
            self.assertEqual(struct.unpack("<I", self.get("m.vrn")[8:12])[0], frames)
            os.remove(self.path("m.vrn"))
        self.assertEqual(self.names(), before)

    def test_table(self):
        for number, (header, (code, line)) in enumerate(HEADERS.items()):
            with self.subTest(header):
                self.check(f"make {number}.y4m -o m.vrn", code, f"{number}.y4m: {line}")
        can = False
        with contextlib.suppress(PermissionError):  # the program itself may lie where nobody may look
            can = subprocess.run([VORN, "--version"], preexec_fn=as_nobody, capture_output=True).returncode == 0
        for row in TABLE:
            with self.subTest(row[0]):
                if can or "nobody" not in row[-1]:
                    self.check(*row)


if __name__ == "__main__":
    unittest.main()
