// feed.js - brings tracks to the loudspeaker in time, and is the clock that the picture goes by.
// Blocks are decoded a little ahead and handed to Web Audio with the moment at which each is due.

const LEAST_AHEAD = 0.3; // seconds of sound that are made at once, however long it takes
const AHEAD = 2.5; // seconds that are made when there is time; a page in the background is called once a second
const PUMP_MILLISECONDS = 6; // of decoding in one go beyond the least
const START_DELAY = 0.06; // seconds from start() to the first sample
const LOWEST_BUFFER_RATE = 8000; // every browser takes buffers of this rate
const MOST_DRIFT = 0.15; // seconds between the device's clock and the smoothed one
const FOLLOWING = 0.05; // part of the drift that is made good at each look

// One track: what has been handed over of it.
class Lane {
    constructor(movie, track) {
        this.reader = movie.readTrack(track); // throws a VornError if the track's format makes no sense
        this.repeat = Math.ceil(LOWEST_BUFFER_RATE / this.reader.sampleRate); // slower tracks are drawn out by straight lines
        this.end = 0; // seconds of the movie
        this.nodes = new Set();
    }
    makeBuffer(context, samples) {
        const {sampleRate, channels} = this.reader;
        const {repeat} = this;
        const count = samples.length / channels;
        const buffer = context.createBuffer(channels, count * repeat, sampleRate * repeat);
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
    stop() {
        for (const node of this.nodes) {
            node.onended = null;
            node.stop();
            node.disconnect();
        }
        this.nodes.clear();
    }
}

export class Feed {
    // Several tracks are heard together.
    constructor(movie, tracks) {
        this.lanes = tracks.map((track) => new Lane(movie, track));
        this.context = null;
        this.wokenAt = 0;
        this.running = false;
        this.volume = 1;
    }
    // What is known to be wrong with a track before it is heard: a VornError, or null.
    get problem() {
        return this.lanes.map((lane) => lane.reader.problem).find((problem) => problem !== null) ?? null;
    }
    // Sets the device going; not before a click or a key, as browsers want it. Returns for how many milliseconds it has been
    // waited for: 0 once it runs.
    wake() {
        if (this.context === null) this.open();
        if (this.context.state === 'running') {
            this.wokenAt = 0;
            return 0;
        }
        if (this.wokenAt === 0) {
            this.wokenAt = performance.now();
            this.context.resume().catch(() => {});
        }
        return Math.max(1, performance.now() - this.wokenAt);
    }
    start(seconds, speed) {
        this.stop();
        for (const lane of this.lanes) {
            lane.reader.seek(seconds);
            lane.end = seconds;
        }
        this.seconds = seconds;
        this.speed = speed;
        this.pieces = []; // decoded, and not handed over yet
        this.trouble = null; // a VornError that hasn't been told yet
        while (this.made() - seconds < LEAST_AHEAD * speed) this.makePiece();
        this.begin = this.context.currentTime + START_DELAY;
        this.sinceMoved = performance.now();
        this.lastTime = this.context.currentTime;
        this.ahead = null; // by how much the device's clock is ahead of the page's, smoothed
        this.latest = seconds;
        this.running = true;
        this.pump();
    }
    // At the first track's rate, so that its blocks join without being resampled.
    open() {
        const {reader, repeat} = this.lanes[0];
        try {
            this.context = new AudioContext({sampleRate: reader.sampleRate * repeat});
        } catch {
            this.context = new AudioContext();
        }
        this.gain = this.context.createGain();
        this.gain.connect(this.context.destination);
        this.setVolume(this.volume);
    }
    stop() {
        this.running = false;
        for (const lane of this.lanes) lane.stop();
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
    // Where the ear is, in seconds of the movie. The device's clock goes in steps of up to some frames' length; the page's
    // doesn't, and is kept beside it.
    time() {
        const now = performance.now() / 1000;
        const ahead = this.context.currentTime - (this.context.outputLatency || 0) - now;
        const drift = ahead - (this.ahead ?? Infinity);
        this.ahead = Math.abs(drift) < MOST_DRIFT ? this.ahead + drift * FOLLOWING : ahead;
        this.latest = Math.max(this.latest, this.seconds + (now + this.ahead - this.begin) * this.speed);
        return this.latest;
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
    // Up to where all tracks have been decoded, in seconds of the movie.
    made() {
        return Math.min(...this.lanes.map((lane) => lane.end));
    }
    // Decodes the next piece of the track that is furthest behind.
    makePiece() {
        const lane = this.lanes.reduce((one, other) => (other.end < one.end ? other : one));
        const {sampleRate, channels} = lane.reader;
        const piece = lane.reader.next();
        if (piece === null) {
            lane.end = Infinity;
            this.trouble ??= lane.reader.problem;
            return;
        }
        const first = piece.first / sampleRate;
        const length = piece.samples.length / channels / sampleRate;
        lane.end = first + length;
        this.pieces.push({lane, first, length, samples: piece.samples});
    }
    // Keeps enough sound ahead. Returns a VornError if a track couldn't be read on, else null.
    pump() {
        if (!this.running) return null;
        const started = performance.now();
        for (;;) {
            for (const piece of this.pieces.splice(0)) this.schedule(piece);
            const ahead = (this.made() - this.time()) / this.speed;
            const spent = performance.now() - started;
            if (ahead >= AHEAD || (ahead >= LEAST_AHEAD && spent >= PUMP_MILLISECONDS)) break;
            this.makePiece();
        }
        const {trouble} = this;
        this.trouble = null;
        return trouble;
    }
    schedule({lane, first, length, samples}) {
        const skipped = Math.max(0, this.seconds - first);
        if (skipped >= length) return;
        const due = this.begin + (first + skipped - this.seconds) / this.speed;
        const late = Math.max(0, this.context.currentTime - due) * this.speed;
        if (skipped + late >= length) return;
        const node = this.context.createBufferSource();
        node.buffer = lane.makeBuffer(this.context, samples);
        node.playbackRate.value = this.speed;
        node.connect(this.gain);
        node.onended = () => lane.nodes.delete(node);
        lane.nodes.add(node);
        node.start(Math.max(due, this.context.currentTime), skipped + late);
    }
}
