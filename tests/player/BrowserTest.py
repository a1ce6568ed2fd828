#!/usr/bin/env python3
"""BrowserTest.py - the player and the report's page in a headless Chromium. Exits with 77 where there is none.

Usage: BrowserTest.py PATH-OF-VORN PATH-OF-PLAYER-PAGE [unittest arguments]
"""
import base64
import functools
import http.server
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import unittest
import zlib

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import Browser  # noqa: E402

VORN = ""
PLAYER_PAGE = ""
SKIPPED = 77
PLAYER = "const player = document.getElementById('player').player;"
PLAYER_FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../player")
STEP_TOLERANCE = 0.06  # seconds between sound and picture

# Drops a file, given in base 64, on the page.
DROP = """
    const files = new DataTransfer();
    files.items.add(new File([Uint8Array.from(atob(arguments[0]), (c) => c.charCodeAt(0))], arguments[1]));
    document.body.dispatchEvent(new DragEvent('drop', {dataTransfer: files, bubbles: true, cancelable: true}));"""

# The least contrast of what is written on the page to what is behind it.
CONTRAST = """
    const parts = (color) => color.match(/[\\d.]+/g).map(Number);
    const light = (color) => parts(color).slice(0, 3).map((c) => c / 255)
        .map((c) => (c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)).reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
    const behind = (node) => {
        const color = getComputedStyle(node).backgroundColor;
        return parts(color)[3] === 0 ? behind(node.parentElement) : color;
    };
    return Math.min(...[...document.querySelectorAll('h1, h2, #facts, .note, dt, dd, th, td, .legend span, figcaption span, .time')].map((node) => {
        const [a, b] = [light(getComputedStyle(node).color), light(behind(node))];
        return (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
    }));"""

# What two tracks together sound like from half a second on, by a device that only counts: how far the samples are from the sum
# of those that were decoded, at most, and the loudest of them.
LISTEN = PLAYER + """
    const real = window.AudioContext;
    let device = null;
    window.AudioContext = function ({sampleRate}) { return device = new OfflineAudioContext(2, sampleRate / 2, sampleRate); };
    const feed = new player.feed.constructor(player.movie, [0, 1]);
    feed.open();
    window.AudioContext = real;
    feed.start(0.5, 1);
    while (feed.made() < 1) feed.pump();
    return device.startRendering().then((heard) => {
        const tracks = [0, 1].map((track) => player.movie.decodeTrack(track).samples);
        const delay = Math.round(feed.begin * heard.sampleRate);
        let [far, loud] = [0, 0];
        for (let i = delay, from = heard.sampleRate / 2; i < heard.length; i++, from++) {
            for (let c = 0; c < 2; c++) {
                const sum = (tracks[0][2 * from + c] + tracks[1][2 * from + c]) / 32768;
                far = Math.max(far, Math.abs(heard.getChannelData(c)[i] - sum));
                loud = Math.max(loud, Math.abs(sum));
            }
        }
        return [far, loud];
    });"""

# The pixels of all frames as checksums, by the decoder in the page.
CHECKSUMS = PLAYER + """
    const table = Int32Array.from({length: 256}, (unused, n) => {
        for (let k = 0; k < 8; k++) n = n & 1 ? n >>> 1 ^ 0xedb88320 : n >>> 1;
        return n;
    });
    const sums = [];
    const movie = player.movie;
    for (let n = 0; n < movie.frames; n++) {
        const pixels = movie.toRgba(movie.decodeFrame(n), new Uint8ClampedArray(movie.width * movie.height * 4));
        let sum = -1;
        for (const byte of pixels) sum = table[(sum ^ byte) & 255] ^ sum >>> 8;
        sums.push(~sum >>> 0);
    }
    return sums;"""


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {**http.server.SimpleHTTPRequestHandler.extensions_map, ".js": "text/javascript"}

    def log_message(self, *unused):
        pass


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="vorn-pages-")
        cls.browser = Browser.Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        shutil.rmtree(cls.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def vorn(self, *arguments):
        done = subprocess.run([VORN, *arguments], cwd=self.folder, capture_output=True, timeout=300)
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        return done.stdout

    def make(self, name, scene, size, frames, *more, sound=False):
        """A movie NAME.vrn of a built-in scene, with its pictures beside it."""
        raw = scene == "glass"
        pictures = name + (".bgra" if raw else ".y4m")
        tune = ["--sound", name + ".wav"] if sound else []
        self.vorn("scene", scene, "-o", pictures, "--size", size, "--frames", str(frames), "-q", "--force", *tune)
        self.vorn("make", pictures, *(["--raw", size, "--fps", "25", "--alpha"] if raw else []),
                  *(["--audio", name + ".wav"] if sound else []), "-o", name + ".vrn", "-q", "--force", *more)
        return pictures

    def report(self, name, *more):
        self.vorn("report", name + ".vrn", "-o", name + ".html", "-q", "--force", *more)
        return self.path(name + ".html")

    def open(self, page, ready="document.body.classList.contains('ready')"):
        self.browser.open(page)
        self.assertTrue(self.browser.wait(f"return {ready}"), self.browser.complaints())

    def wait_for_frame(self, frame):
        shown = self.browser.wait(PLAYER + f"return player.shown === {frame} && !player.arriving")
        self.assertTrue(shown, self.browser.run(PLAYER + "return player.shown"))

    def reader_checksums(self, name, size):
        """Checksums of the frames that the reader decodes, bytes turned to R, G, B, A."""
        width, height = (int(part) for part in size.split("x"))
        self.vorn("decode", name + ".vrn", "-o", "out.bgra", "-q", "--force")
        with open(self.path("out.bgra"), "rb") as file:
            data = bytearray(file.read())
        data[0::4], data[2::4] = data[2::4], data[0::4]
        step = width * height * 4
        return [zlib.crc32(data[at:at + step]) for at in range(0, len(data), step)]

    def test_the_report_plays_in_step_with_its_sound(self):
        pictures = self.make("clip", "balls", "160x120", 60, "--rate", "400", "--key-interval", "20", sound=True)
        self.open(self.report("clip", "--source", pictures, "--rate", "400"))
        self.wait_for_frame(0)
        self.browser.click("#player .play")
        samples = []
        self.assertTrue(self.browser.wait(PLAYER + "return player.playing && player.shown > 0"))
        while self.browser.run(PLAYER + "return player.playing") and len(samples) < 2000:
            samples.append(self.browser.run(PLAYER + """
                const sound = player.feed !== null && player.feed.running && player.feed.context.state === 'running';
                const clock = sound ? player.feed.seconds + player.feed.context.currentTime - player.feed.begin : -1;
                return {frame: player.shown, picture: player.shown / 25, clock, sound};"""))
        moving = [sample for sample in samples if 0 < sample["frame"] < 55]
        self.assertGreater(len({sample["frame"] for sample in moving}), 10, samples)
        self.assertTrue(all(sample["sound"] for sample in moving), samples)
        frames = [sample["frame"] for sample in samples]
        self.assertEqual(frames, sorted(frames))
        # No frame is ahead of the sound by more than a step of the device's clock. Busy machines show frames late, but one that is
        # in step shows some in time: in view since at most a frame and the tolerance.
        lags = [sample["clock"] - sample["picture"] for sample in moving]
        self.assertGreater(min(lags), -0.1, samples)
        self.assertLess(min(lags), 0.04 + STEP_TOLERANCE, samples)
        self.wait_for_frame(59)
        self.assertEqual(self.browser.complaints(), [])

    def test_the_report_shows_what_it_promises(self):
        pictures = self.make("full", "drift", "96x64", 30, "--frame-bytes", "900", "--key-interval", "12", sound=True)
        page = self.report("full", "--source", pictures, "--frame-bytes", "900", "--show", "7", "--show", "11")
        with open(page) as file:
            text = file.read()
        self.assertEqual(set(re.findall(r"https?://[^\s'\"]*", text)), {"http://www.w3.org/2000/svg"})
        self.assertIn("default-src 'none'", text)
        self.open(page)
        # Each chart has drawn something for each of its series, and names its axes.
        charts = self.browser.run("""
            return Object.fromEntries([...document.querySelectorAll('.chart')].map((chart) =>
                [chart.id, {series: [...chart.querySelectorAll('svg path[style]')].filter((path) =>
                    path.getAttribute('d').length > 20).length, texts: [...chart.querySelectorAll('text')].map((text) => text.textContent)}]));""")
        self.assertEqual({name: charts[name]["series"] for name in ("bytes", "account", "psnr", "error")},
                         {"bytes": 4, "account": 2, "psnr": 3, "error": 3})
        for name, unit in (("bytes", "bytes"), ("account", "bytes"), ("psnr", "dB"), ("error", "mean absolute difference"),
                           ("modes-y", "Y, share of the area"), ("modes-cr", "Cr, share of the area"), ("modes-cb", "Cb, share of the area")):
            self.assertIn(unit, charts[name]["texts"])
            self.assertIn("frame", charts[name]["texts"])
            self.assertGreaterEqual(charts[name]["series"], 2)
        keys = self.browser.run("return document.querySelector('#bytes .key').getAttribute('d').split('M').length - 1")
        self.assertEqual(keys, 3)
        # The parts add up to the packets, and the shares of the modes to all of the plane.
        data = self.browser.run("return JSON.parse(document.getElementById('report-data').textContent)")
        info = self.vorn("info", "full.vrn", "--frames").decode()
        sizes = [int(size) for size in re.findall(r"^frame.* (\d+) bytes:", info, re.M)]
        self.assertEqual([sum(part[i] for part in data["bytes"].values()) for i in range(30)], sizes)
        for plane, modes in data["modes"].items():
            for i in range(30):
                self.assertEqual(sum(mode[i] for mode in modes.values()), data["blocks"][plane])
        # Errors against those of `vorn compare`, which reckons on its own.
        compared = self.vorn("compare", "full.vrn", pictures).decode()
        for plane in ("Y", "Cr", "Cb"):
            mean = float(re.search(rf"^{plane} +\d+ +([\d.]+)", compared, re.M).group(1))
            self.assertAlmostEqual(sum(data["errors"][plane.lower()]["absolute"]) / 30, mean, delta=0.0002)
        # Two chosen frames, source and result and their difference each.
        self.assertTrue(self.browser.wait("""
            return [...document.querySelectorAll('.difference')].filter((canvas) => canvas.width === 96).length === 2"""))
        self.assertEqual(self.browser.run("""
            return [...document.querySelectorAll('.picture img')].map((image) => image.naturalWidth)"""), [96, 96])
        # Under the pointer a chart tells a frame's values, and all charts mark it; a click goes there.
        tip = self.browser.run("""
            const svg = document.querySelector('#bytes svg'), place = svg.getBoundingClientRect();
            const at = {clientX: place.left + place.width / 2, clientY: place.top + 50, bubbles: true};
            svg.dispatchEvent(new PointerEvent('pointermove', at));
            const marked = [...document.querySelectorAll('.cursor')].filter((line) => line.getAttribute('visibility') === 'visible');
            svg.dispatchEvent(new MouseEvent('click', at));
            return [document.querySelector('#bytes .tip').innerText, marked.length];""")
        self.assertEqual(tip[1], len(charts))
        frame = int(re.match(r"frame (\d+)", tip[0]).group(1))
        self.assertIn(frame, (12, 13, 14))  # the axis takes some of the left half
        self.assertIn(f"{sizes[frame]:,} B", tip[0])
        self.wait_for_frame(frame)
        self.browser.click("#frames summary")
        self.assertEqual(self.browser.wait("return document.querySelectorAll('#frames tbody tr').length"), 30)
        grounds = set()
        for scheme in ("light", "dark"):
            self.browser.developer("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
            for width in (1200, 360):
                self.browser.developer("Emulation.setDeviceMetricsOverride", width=width, height=800, deviceScaleFactor=1,
                                       mobile=True)
                # A phone shows a page that is too wide at a smaller scale: innerWidth grows.
                fits = self.browser.wait(f"return innerWidth === {width} && document.documentElement.scrollWidth <= {width}")
                self.assertTrue(fits, (scheme, width))
            self.assertGreater(self.browser.run(CONTRAST), 4.5, scheme)
            grounds.add(self.browser.run("return getComputedStyle(document.body).backgroundColor"))
        self.assertEqual(len(grounds), 2)
        self.browser.developer("Emulation.setEmulatedMedia", features=[])
        self.browser.developer("Emulation.clearDeviceMetricsOverride")
        self.assertEqual(self.browser.complaints(), [])

    def test_frames_in_the_page_equal_the_readers(self):
        for scene, size in (("drift", "97x41"), ("glass", "64x48")):
            with self.subTest(scene=scene):
                self.make("same", scene, size, 6)
                self.open(self.report("same"))
                self.assertEqual(self.browser.run(CHECKSUMS), self.reader_checksums("same", size))
                ground = self.browser.run("return getComputedStyle(document.querySelector('#player canvas')).backgroundImage")
                self.assertEqual("conic-gradient" in ground, scene == "glass")  # a checkerboard behind what shines through
        self.assertEqual(self.browser.complaints(), [])

    # The player's own page, with files from its chooser: a good one, keys, and damaged ones.
    def test_the_player_takes_files_and_keys(self):
        self.make("keys", "balls", "64x48", 40, "--key-interval", "10", "--frame-bytes", "800")
        with open(self.path("keys.vrn"), "rb") as file:
            whole = file.read()
        self.open(PLAYER_PAGE, ready="document.getElementById('player').player !== undefined")
        self.browser.type("#file", self.path("keys.vrn"))
        self.wait_for_frame(0)
        for key, frame in (("\ue014", 25), ("\ue010", 39), (",", 38), ("\ue008\ue012", 30), ("\ue011", 0), (".", 1)):
            self.browser.type("#player", key)
            self.wait_for_frame(frame)
        self.browser.type("#player", "k")
        self.assertTrue(self.browser.wait(PLAYER + "return player.playing && player.shown > 4"))
        self.browser.type("#player", " ")
        self.assertFalse(self.browser.run(PLAYER + "return player.playing"))
        self.browser.type("#player", "\ue008>\ue000mf\ue015\ue015")
        state = "return [player.speed, player.muted, Math.round(player.volume * 10), document.fullscreenElement === player.controls.root]"
        self.assertEqual(self.browser.run(PLAYER + state), [1.25, False, 8, True])
        self.browser.type("#player", "f")

        message = "return document.querySelector('#player .message').textContent"
        with open(self.path("cut.vrn"), "wb") as file:
            file.write(whole[:len(whole) // 2])
        self.browser.type("#file", self.path("cut.vrn"))
        self.assertIn("reaches beyond the end of the file", self.browser.wait(message))
        # Frame 4 is nonsense; frame 10, a key frame, can be reached again.
        start, end = (word & ~1 for word in struct.unpack_from("<II", whole, 44 + 4 * 4))
        with open(self.path("hole.vrn"), "wb") as file:
            file.write(whole[:start + 4] + b"\xff" * (end - start - 4) + whole[end:])
        self.browser.type("#file", self.path("hole.vrn"))
        self.wait_for_frame(0)
        self.browser.type("#player", " ")
        self.assertIn("frame 4, plane Y", self.browser.wait(message))
        self.assertFalse(self.browser.run(PLAYER + "return player.playing"))
        self.browser.type("#player", "\ue008\ue014\ue000")
        self.wait_for_frame(10)
        self.assertEqual(self.browser.run(message), "")
        # Where there are no workers, the page itself decodes.
        self.browser.run("delete window.Worker;")
        self.browser.type("#file", self.path("keys.vrn"))
        self.wait_for_frame(0)
        self.browser.type("#player", "k")
        self.assertTrue(self.browser.wait(PLAYER + "return player.playing && player.shown > 4"))
        self.assertFalse(self.browser.run(PLAYER + "return !!player.frames.worker"))
        self.assertEqual(self.browser.complaints(), [])

    # From a server, as modules: a dropped movie of the size and rate that must play without a break, with two tracks.
    def test_the_player_plays_a_large_movie_with_all_its_tracks(self):
        self.vorn("scene", "drift", "-o", "large.y4m", "--size", "640x480", "--fps", "30/1", "--frames", "40", "-q", "--sound", "large.wav")
        self.vorn("make", "large.y4m", "--audio", "large.wav,id=3", "--audio", "large.wav,id=5,quality=104", "-o", "large.vrn", "-q")
        with open(self.path("large.vrn"), "rb") as file:
            large = base64.b64encode(file.read()).decode()
        handler = functools.partial(QuietHandler, directory=PLAYER_FOLDER)
        with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
            threading.Thread(target=server.serve_forever, daemon=True).start()
            self.open(f"http://127.0.0.1:{server.server_port}/index.html", ready="document.getElementById('player').player !== undefined")
            self.browser.run(DROP, large, "large.vrn")
            self.wait_for_frame(0)
            self.assertEqual(self.browser.run("return document.getElementById('title').textContent"), "large.vrn")
            self.assertEqual(self.browser.run("return [...document.querySelectorAll('.track option')].map((one) => one.textContent)"),
                             ["track 3", "track 5", "all tracks"])
            self.browser.run("const choice = document.querySelector('.track'); choice.value = -1; choice.onchange();")
            # A busy machine doesn't let the page draw in time; but what it has the time to draw must be there.
            rounds = []
            while min((late for _, late in rounds), default=40) > 1 and len(rounds) < 5:
                counts = PLAYER + "return [player.shownCount, player.droppedCount, player.lateCount]"
                before = self.browser.run(counts)
                self.browser.click("#player .play")
                self.assertTrue(self.browser.wait(PLAYER + "return player.shown === 39 && !player.playing"))
                shown, dropped, late = (after - was for after, was in zip(self.browser.run(counts), before))
                self.assertEqual(shown + dropped, 39)
                rounds.append((dropped, late))
            self.assertLess(len(rounds), 5, rounds)
            lanes, worker = self.browser.run(PLAYER + "return [player.feed.lanes.map((lane) => lane.end), !!player.frames.worker]")
            self.assertEqual(lanes, [None, None])  # both were read to their ends: infinite, which JSON hasn't
            self.assertTrue(worker)
            far, loud = self.browser.run(LISTEN)
            self.assertLess(far, 1e-4)
            self.assertGreater(loud, 0.1)
            server.shutdown()
        self.assertEqual(self.browser.complaints(), [])


if __name__ == "__main__":
    lacking = Browser.missing()
    if lacking:
        print(f"skipped: {lacking} not installed (Debian packages chromium and chromium-driver)")
        sys.exit(SKIPPED)
    VORN, PLAYER_PAGE = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    unittest.main(argv=[sys.argv[0]] + sys.argv[3:])
