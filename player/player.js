// player.js - plays a movie: which frame is due, when it is decoded and shown, and the clock behind it.
// The clock is the sound device as long as there is sound, else the page's own. The picture follows it: frames for which
// there is no time are decoded and not shown, and if the picture falls far behind, sound and picture start again together.

import {VornError} from './bits.js';
import {Controls} from './controls.js';
import {openFeed} from './feed.js';
import {open} from './vorn.js';

const DECODE_MILLISECONDS = 24; // of decoding before the page gets its turn
const MOST_AHEAD = 6; // frames that are ready before they are due
const MOST_AHEAD_BYTES = 1 << 26;
const MOST_LAG = 1.5; // seconds by which the picture may be late
const DEVICE_PATIENCE = 2500; // milliseconds that a sound device may stand still

export class Player {
    // Builds itself into `root`. onFrame(frame) is called whenever another frame is shown.
    constructor(root) {
        this.movie = null;
        this.feed = null;
        this.playing = false;
        this.wanted = 0; // frame to show while the clock stands
        this.shown = -1;
        this.arriving = false; // the wanted frame isn't there yet
        this.aheadFailed = false; // a frame of the near future can't be decoded
        this.ready = []; // {frame, image}, decoded ahead, rising without gaps from shown + 1 on
        this.spare = []; // images of before
        this.speed = 1;
        this.volume = 1;
        this.muted = false;
        this.shownCount = 0; // frames shown and left out while playing
        this.droppedCount = 0;
        this.onFrame = () => {};
        this.controls = new Controls(this, root);
        root.player = this;
        setInterval(() => this.pump(), 250);
        requestAnimationFrame(() => this.tick());
    }

    // ---- What users do

    // Takes a whole file. False if it can't be opened; the message then says why.
    load(bytes) {
        this.unload();
        try {
            this.movie = open(bytes);
        } catch (error) {
            return this.fail(error);
        }
        const {width, height} = this.movie;
        this.controls.showMovie(this.movie);
        try {
            this.picture = this.controls.canvas.getContext('2d');
            this.image = this.picture.createImageData(width, height);
        } catch {
            this.movie = null;
            return this.fail(new VornError(`the browser has no room for a picture of ${width} x ${height}`));
        }
        const audible = this.movie.tracks.findIndex((track) => track.usable);
        if (audible >= 0) this.chooseTrack(audible);
        if (this.movie.frames === 0) return this.fail(new VornError('the movie has no frames'));
        this.seekFrame(0);
        return true;
    }
    unload() {
        this.pause();
        if (this.feed !== null) this.feed.close();
        this.feed = null;
        this.movie = null;
        this.shown = -1;
        this.ready = [];
        this.spare = [];
        this.shownCount = this.droppedCount = 0;
        this.controls.showMessage('');
    }
    play() {
        if (this.playing || this.movie === null || this.movie.frames === 0) return;
        if (this.wanted >= this.movie.frames - 1) this.wanted = 0;
        this.position = this.secondsOf(this.wanted);
        this.playing = true;
        this.arriving = true;
        this.controls.update();
    }
    pause() {
        if (!this.playing) return;
        if (!this.arriving) this.wanted = Math.max(this.shown, 0);
        this.playing = false;
        if (this.feed !== null) this.feed.stop();
        this.controls.update();
    }
    toggle() {
        if (this.playing) this.pause();
        else this.play();
    }
    seekFrame(frame) {
        if (this.movie === null) return;
        this.wanted = Math.min(Math.max(Math.round(frame), 0), this.movie.frames - 1);
        this.position = this.secondsOf(this.wanted);
        this.arriving = true;
        if (this.feed !== null) this.feed.stop();
        this.controls.showMessage('');
        this.controls.update();
    }
    seekBy(seconds) {
        if (this.movie !== null) this.seekFrame(this.wantedNow() + seconds * this.movie.rate.value);
    }
    // To the key frame before or behind.
    seekKey(direction) {
        if (this.movie === null) return;
        const now = this.wantedNow();
        const keys = this.movie.keyFrames;
        if (direction > 0) this.seekFrame(keys.find((key) => key > now) ?? this.movie.frames - 1);
        else this.seekFrame(keys.filter((key) => key < now).at(-1) ?? 0);
    }
    step(frames) {
        this.pause();
        this.seekFrame(this.wantedNow() + frames);
    }
    setSpeed(speed) {
        this.speed = speed;
        this.restartClock();
        this.controls.update();
    }
    setVolume(volume, muted) {
        this.volume = Math.min(Math.max(volume, 0), 1);
        this.muted = muted;
        if (this.feed !== null) this.feed.setVolume(muted ? 0 : this.volume);
        this.controls.update();
    }
    chooseTrack(track) {
        if (this.feed !== null) this.feed.close();
        const {feed, problem} = openFeed(this.movie, track);
        this.feed = feed;
        if (feed === null) this.controls.showMessage(`No sound: ${problem}`);
        else if (feed.reader.problem !== null) this.controls.showMessage(`The sound is cut short: ${feed.reader.problem.message}`);
        this.setVolume(this.volume, this.muted);
        this.restartClock();
    }

    // ---- The clock

    secondsOf(frame) {
        return frame / this.movie.rate.value;
    }
    get seconds() {
        return this.movie === null ? 0 : this.movie.frames / this.movie.rate.value;
    }
    wantedNow() {
        return this.playing && !this.arriving ? Math.max(this.shown, 0) : this.wanted;
    }
    // Sets sound and clock going at `position`.
    startClock() {
        this.arriving = false;
        this.wallStart = performance.now();
        if (this.feed !== null) this.reportSound(() => this.feed.start(this.position, this.speed));
    }
    restartClock() {
        if (!this.playing || this.arriving) return;
        this.position = this.time();
        this.startClock();
    }
    // Where the movie is, in seconds.
    time() {
        if (!this.playing || this.arriving) return this.position;
        if (this.feed !== null && this.feed.running) return this.feed.time();
        return this.position + (performance.now() - this.wallStart) / 1000 * this.speed;
    }
    pump() {
        if (!this.playing || this.arriving || this.feed === null || !this.feed.running) return;
        this.reportSound(() => {
            const problem = this.feed.pump();
            if (problem !== null) throw problem;
            if (this.feed.stalled() < DEVICE_PATIENCE) return;
            this.position = this.feed.time();
            this.wallStart = performance.now();
            throw new VornError('the sound device does not answer');
        });
    }
    // Plays on without sound if there is something wrong with it.
    reportSound(work) {
        try {
            work();
        } catch (error) {
            this.controls.showMessage(`No more sound: ${error.message}`);
            if (error === this.feed.reader.problem) return; // what was made before plays out, and the clock goes on
            this.feed.close();
            this.feed = null;
        }
    }

    // ---- The picture

    tick() {
        requestAnimationFrame(() => this.tick());
        if (this.movie === null || this.movie.frames === 0) return;
        try {
            this.pump();
            if (this.playing && !this.arriving) this.follow();
            else if (this.arriving || this.shown !== this.wanted) this.arrive();
        } catch (error) {
            this.fail(error);
        }
        this.controls.updateTime();
    }
    // Decodes towards `target` as long as there is time. True once it is there.
    decodeTowards(target) {
        const started = performance.now();
        while (this.movie.last !== target) {
            this.movie.decodeFrame(this.movie.nextToDecode(target));
            if (performance.now() - started >= DECODE_MILLISECONDS) break;
        }
        return this.movie.last === target;
    }
    // While the clock stands: the wanted frame, and nothing on the way.
    arrive() {
        this.ready = [];
        this.aheadFailed = false;
        if (!this.decodeTowards(this.wanted)) return;
        this.movie.toRgba(this.movie.decodeFrame(this.wanted), this.image.data);
        this.show(this.wanted, this.image);
        if (this.playing) this.startClock();
        else this.arriving = false;
    }
    // While the clock goes: the frame that is due, or the nearest one that there was time for.
    follow() {
        const time = this.time();
        const last = this.movie.frames - 1;
        const due = Math.min(Math.floor(time * this.movie.rate.value + 1e-6), last);
        if (due > this.shown && !this.showReady(due)) this.showLate(due, time);
        else this.decodeAhead();
        if (time >= this.seconds && this.shown === last) this.finish();
    }
    showReady(due) {
        let next = null;
        while (this.ready.length > 0 && this.ready[0].frame <= due) {
            if (next !== null) this.spare.push(next.image);
            next = this.ready.shift();
        }
        if (next === null) return false;
        this.showMoving(next.frame, next.image);
        this.spare.push(next.image);
        return true;
    }
    showLate(due, time) {
        this.decodeTowards(due);
        const reached = this.movie.last;
        if (reached > this.shown) {
            this.movie.toRgba(this.movie.decodeFrame(reached), this.image.data);
            this.showMoving(reached, this.image);
        }
        if (reached >= this.shown && time - this.secondsOf(reached) > MOST_LAG) this.waitForPicture(reached);
    }
    // One frame more, if there is room. What is wrong with it is told when it is due.
    decodeAhead() {
        const {width, height, frames} = this.movie;
        const next = this.ready.length > 0 ? this.ready.at(-1).frame + 1 : this.shown + 1;
        const room = Math.min(MOST_AHEAD, Math.floor(MOST_AHEAD_BYTES / (width * height * 4)));
        if (next >= frames || this.ready.length >= room || this.aheadFailed || this.movie.nextToDecode(next) !== next) return;
        try {
            const frame = this.movie.decodeFrame(next);
            const image = this.spare.pop() ?? this.picture.createImageData(width, height);
            this.movie.toRgba(frame, image.data);
            this.ready.push({frame: next, image});
        } catch {
            this.aheadFailed = true;
        }
    }
    waitForPicture(frame) {
        if (this.feed !== null) this.feed.stop();
        this.wanted = frame;
        this.position = this.secondsOf(frame);
        this.arriving = true;
    }
    finish() {
        this.pause();
        this.wanted = this.movie.frames - 1;
        this.position = this.secondsOf(this.wanted);
    }
    showMoving(frame, image) {
        this.droppedCount += frame - this.shown - 1;
        this.shownCount++;
        this.show(frame, image);
    }
    show(frame, image) {
        this.picture.putImageData(image, 0, 0);
        this.shown = frame;
        this.onFrame(frame);
    }
    // Ends playing with a message. Another place may still be sought.
    fail(error) {
        if (this.movie !== null) {
            this.pause();
            this.arriving = false;
            this.wanted = Math.max(this.shown, 0);
            this.shown = this.wanted;
        }
        this.controls.showMessage(`This movie can't be played${this.movie !== null ? ' on' : ''}: ${error.message}`);
        if (!(error instanceof VornError)) console.error(error);
        return false;
    }
}
