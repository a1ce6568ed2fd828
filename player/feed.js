// feed.js - brings a track to the loudspeaker in time, and is the clock that the picture goes by.
// Blocks are decoded a little ahead and handed to Web Audio with the moment at which each is due.

import {VornError} from './bits.js';

const LEAST_AHEAD = 0.3; // seconds of sound that are made at once, however long it takes
const AHEAD = 2.5; // seconds that are made when there is time; a page in the background is called once a second
const PUMP_MILLISECONDS = 6; // of decoding in one go beyond the least
const START_DELAY = 0.06; // seconds from start() to the first sample
const LOWEST_BUFFER_RATE = 8000; // every browser takes buffers of this rate

export class SoundFeed {
    constructor(movie, track) {
        this.reader = movie.readTrack(track); // throws a VornError if the track's format makes no sense
        const rate = this.reader.sampleRate;
        this.repeat = Math.ceil(LOWEST_BUFFER_RATE / rate); // slower tracks are drawn out by straight lines
        this.context = null;
        this.nodes = new Set();
        this.running = false;
        this.volume = 1;
    }
    // Must be called from a click or a key the first time: browsers want it so.
    start(seconds, speed) {
        this.stop();
        if (this.context === null) this.open();
        this.context.resume().catch(() => {}); // a device that doesn't start shows in stalled()
        this.reader.seek(seconds);
        this.seconds = seconds;
        this.speed = speed;
        this.begin = this.context.currentTime + START_DELAY;
        this.end = seconds; // of what has been handed over
        this.sinceMoved = performance.now();
        this.lastTime = this.context.currentTime;
        this.running = true;
        this.pump();
    }
    open() {
        const rate = this.reader.sampleRate * this.repeat;
        try {
            this.context = new AudioContext({sampleRate: rate});
        } catch {
            this.context = new AudioContext(); // the browser resamples
        }
        this.gain = this.context.createGain();
        this.gain.connect(this.context.destination);
        this.setVolume(this.volume);
    }
    stop() {
        this.running = false;
        for (const node of this.nodes) {
            node.onended = null;
            node.stop();
            node.disconnect();
        }
        this.nodes.clear();
    }
    close() {
        this.stop();
        if (this.context !== null) this.context.close();
        this.context = null;
    }
    setVolume(volume) {
        this.volume = volume;
        if (this.context !== null) this.gain.gain.value = volume * volume; // closer to how loudness is felt
    }
    // Where the ear is, in seconds of the movie.
    time() {
        const heard = this.context.currentTime - (this.context.outputLatency || 0);
        return this.seconds + Math.max(0, heard - this.begin) * this.speed;
    }
    // For how many milliseconds the sound device has not moved on.
    stalled() {
        const now = performance.now();
        if (this.context.currentTime !== this.lastTime) {
            this.lastTime = this.context.currentTime;
            this.sinceMoved = now;
        }
        return now - this.sinceMoved;
    }
    // Keeps enough sound ahead. Returns a VornError if the track couldn't be read on, else null.
    pump() {
        if (!this.running) return null;
        const started = performance.now();
        for (;;) {
            const ahead = (this.end - this.time()) / this.speed;
            const spent = performance.now() - started;
            if (ahead >= AHEAD || (ahead >= LEAST_AHEAD && spent >= PUMP_MILLISECONDS)) return null;
            const piece = this.reader.next();
            if (piece === null) {
                this.end = Infinity;
                return this.reader.problem;
            }
            this.schedule(piece);
        }
    }
    schedule(piece) {
        const {sampleRate, channels} = this.reader;
        const first = piece.first / sampleRate;
        const length = piece.samples.length / channels / sampleRate;
        this.end = first + length;
        const skipped = Math.max(0, this.seconds - first);
        if (skipped >= length) return;
        const node = this.context.createBufferSource();
        node.buffer = this.makeBuffer(piece.samples);
        node.playbackRate.value = this.speed;
        node.connect(this.gain);
        node.onended = () => this.nodes.delete(node);
        this.nodes.add(node);
        const due = this.begin + (first + skipped - this.seconds) / this.speed;
        const late = Math.max(0, this.context.currentTime - due) * this.speed;
        if (skipped + late < length) node.start(Math.max(due, this.context.currentTime), skipped + late);
        else this.nodes.delete(node);
    }
    makeBuffer(samples) {
        const {sampleRate, channels} = this.reader;
        const {repeat} = this;
        const count = samples.length / channels;
        const buffer = this.context.createBuffer(channels, count * repeat, sampleRate * repeat);
        for (let c = 0; c < channels; c++) {
            const data = buffer.getChannelData(c);
            for (let i = 0, from = c; i < count; i++, from += channels) {
                const value = samples[from] / 32768;
                const next = (i + 1 < count ? samples[from + channels] : samples[from]) / 32768;
                for (let k = 0; k < repeat; k++) data[i * repeat + k] = value + (next - value) * k / repeat;
            }
        }
        return buffer;
    }
}

// A feed, or null with a message if there is nothing to play.
export function openFeed(movie, track) {
    try {
        return {feed: new SoundFeed(movie, track), problem: ''};
    } catch (error) {
        if (!(error instanceof VornError)) throw error;
        return {feed: null, problem: error.message};
    }
}
