// player.js - plays a movie: which frame is due and shown, and the clock behind it.
// The clock is the sound device as long as there is sound, else the page's own. The picture follows it: frames that come
// late aren't shown, and if the picture falls far behind, sound and picture start again together.

import {VornError} from './bits.js';
import {ALL_TRACKS, Controls, MOST_TRACKS} from './controls.js';
import {Feed} from './feed.js';
import {Frames} from './frames.js';
import {open} from './vorn.js';

const MOST_LAG = 1.5; // seconds by which the picture may be late
const DEVICE_PATIENCE = 2500; // milliseconds that a sound device may stand still

export class Player {
    // Builds itself into `root`. onFrame(frame) is called whenever another frame is shown.
    constructor(root) {
        this.movie = null;
        this.frames = null;
        this.feed = null;
        this.playing = false;
        this.wanted = 0; // frame to show while the clock stands
        this.shown = -1;
        this.arriving = false; // the clock waits for the wanted frame
        this.track = ALL_TRACKS; // that is heard
        this.speed = 1;
        this.volume = 1;
        this.muted = false;
        this.shownCount = 0; // frames shown and left out while playing
        this.droppedCount = 0;
        this.lateCount = 0; // looks for a frame that was due and not there
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
            this.picture.createImageData(width, height);
        } catch {
            this.movie = null;
            return this.fail(new VornError(`the browser has no room for a picture of ${width} x ${height}`));
        }
        this.frames = new Frames(this.movie);
        const audible = this.movie.tracks.findIndex((track) => track.usable);
        if (audible >= 0) this.chooseTrack(audible);
        if (this.movie.frames === 0) return this.fail(new VornError('the movie has no frames'));
        this.seekFrame(0);
        return true;
    }
    unload() {
        this.pause();
        if (this.feed !== null) this.feed.close();
        if (this.frames !== null) this.frames.close();
        this.feed = this.frames = this.movie = null;
        this.arriving = false;
        this.shown = -1;
        this.shownCount = this.droppedCount = this.lateCount = 0;
        this.controls.showMessage('');
    }
    play() {
        if (this.playing || this.movie === null || this.movie.frames === 0) return;
        this.playing = true;
        this.seekFrame(this.wanted >= this.movie.frames - 1 ? 0 : this.wanted);
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
        this.standAt(Math.min(Math.max(Math.round(frame), 0), this.movie.frames - 1));
        this.arriving = true;
        const next = this.wanted === this.shown ? this.wanted + 1 : this.wanted;
        if (!this.frames.reaches(next)) this.frames.seek(next);
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
        this.restartClock(() => this.speed = speed);
        this.controls.update();
    }
    setVolume(volume, muted) {
        this.volume = Math.min(Math.max(volume, 0), 1);
        this.muted = muted;
        if (this.feed !== null) this.feed.setVolume(muted ? 0 : this.volume);
        this.controls.update();
    }
    // A track's place among the movie's, or ALL_TRACKS.
    chooseTrack(track) {
        this.restartClock(() => this.openFeed(track));
        this.setVolume(this.volume, this.muted);
    }
    openFeed(track) {
        this.track = track;
        if (this.feed !== null) this.feed.close();
        const usable = [...this.movie.tracks.keys()].filter((one) => one < MOST_TRACKS && this.movie.tracks[one].usable);
        try {
            this.feed = new Feed(this.movie, track === ALL_TRACKS ? usable : [track]);
            if (this.feed.problem !== null) this.controls.showMessage(`The sound is cut short: ${this.feed.problem.message}`);
        } catch (error) {
            this.feed = null;
            this.controls.showMessage(`No sound: ${error.message}`);
        }
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
        this.withSound(() => this.feed.start(this.position, this.speed));
    }
    // Does `change` to the sound, which goes on from where it is.
    restartClock(change) {
        const position = this.movie === null ? 0 : this.time();
        change();
        if (!this.playing || this.arriving) return;
        if (this.feed !== null) this.feed.stop();
        this.position = position;
        this.wanted = this.shown;
        this.arriving = true;
    }
    // Where the movie is, in seconds.
    time() {
        if (!this.playing || this.arriving) return this.position;
        if (this.feed !== null && this.feed.running) return this.feed.time();
        return this.position + (performance.now() - this.wallStart) / 1000 * this.speed;
    }
    pump() {
        if (!this.playing || this.arriving || this.feed === null || !this.feed.running) return;
        this.withSound(() => {
            const problem = this.feed.pump();
            if (problem !== null) this.controls.showMessage(`The sound is cut short: ${problem.message}`);
            this.checkDevice(this.feed.stalled());
        });
    }
    // Whether the sound device runs, or there is none to wait for: to start it takes a page's whole attention for a while.
    wakeSound() {
        this.withSound(() => this.checkDevice(this.feed.wake()));
        return this.feed === null || this.feed.wokenAt === 0;
    }
    checkDevice(milliseconds) {
        if (milliseconds >= DEVICE_PATIENCE) throw new VornError('the sound device does not answer');
    }
    // Plays on without sound if the device or the browser doesn't want it.
    withSound(work) {
        if (this.feed === null) return;
        try {
            work();
        } catch (error) {
            this.position = this.time();
            this.wallStart = performance.now();
            this.controls.showMessage(`No more sound: ${error.message}`);
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
            if (this.arriving) this.arrive();
            else if (this.playing) this.follow();
        } catch (error) {
            this.fail(error);
        }
        this.controls.updateTime();
    }
    // While the clock stands: waits for the wanted frame, and to play on for one behind it.
    arrive() {
        const {frames, wanted} = this;
        const found = this.shown !== wanted ? frames.get(wanted) : null;
        if (found !== null) this.show(found);
        if (this.shown !== wanted) {
            this.checkProblem(wanted);
            if (frames.ready.length > 0) frames.seek(wanted); // it was late once, and left out
            return;
        }
        frames.goOn(wanted, wanted);
        const more = frames.ready.length > 0 || frames.problem !== null || wanted + 1 >= this.movie.frames;
        if (!this.playing) this.arriving = false;
        else if (more && this.wakeSound()) this.startClock();
    }
    // While the clock goes: the frame that is due, or the last one before it.
    follow() {
        const time = this.time();
        const last = this.movie.frames - 1;
        const due = Math.min(Math.floor(time * this.movie.rate.value + 1e-6), last);
        const found = due > this.shown ? this.frames.get(due) : null;
        if (found !== null) {
            this.droppedCount += found.frame - this.shown - 1;
            this.shownCount++;
            this.show(found);
        } else if (due > this.shown) {
            this.lateCount++;
            this.checkProblem(due);
        }
        this.frames.goOn(this.shown, due);
        if (time - this.secondsOf(this.shown + 1) > MOST_LAG) this.waitForPicture(this.shown);
        if (time >= this.seconds && this.shown === last) this.finish();
    }
    // What is wrong with a frame is told when it is due.
    checkProblem(due) {
        const {problem} = this.frames;
        if (problem === null || problem.frame > due) return;
        if (!problem.known) console.error(problem.problem);
        throw new VornError(problem.problem);
    }
    waitForPicture(frame) {
        if (this.feed !== null) this.feed.stop();
        this.standAt(frame);
        this.arriving = true;
    }
    // Where the clock stands until it goes again.
    standAt(frame) {
        this.wanted = frame;
        this.position = this.secondsOf(frame);
    }
    finish() {
        this.pause();
        this.standAt(this.movie.frames - 1);
    }
    show(found) {
        this.picture.putImageData(found.image, 0, 0);
        this.frames.giveBack(found);
        this.shown = found.frame;
        this.onFrame(found.frame);
    }
    // Ends playing with a message. Another place may still be sought.
    fail(error) {
        if (this.movie !== null) {
            this.pause();
            this.arriving = false;
            this.wanted = Math.max(this.shown, 0);
        }
        this.controls.showMessage(`This movie can't be played${this.movie !== null ? ' on' : ''}: ${error.message}`);
        if (!(error instanceof VornError)) console.error(error);
        return false;
    }
}
