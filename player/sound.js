// sound.js - from the coded blocks of a track to samples: inverse transforms and the join of blocks.

import {Bits, VornError} from './bits.js';

const BAND_FREQUENCIES = [0, 100, 200, 300, 400, 510, 630, 770, 920, 1080, 1270, 1480, 1720, 2000, 2320, 2700, 3150, 3700,
    4400, 5300, 6400, 7700, 9500, 12000, 15500];
const GROUP_RUNS = [2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 32, 64]; // groups of 8 that a run code covers
const OVERLAP_PARTS = 16; // neighbouring blocks share 1/16
const BAND_STEPS = Float64Array.from({length: 256}, (unused, i) => 10 ** (0.0664 * i)); // by step index

export const toPcm = (sample) => Math.floor(Math.min(32767, Math.max(-32768, sample)) + 0.5);

// What a track's rate, channels and variant fix.
function shapeOfAudio(track) {
    const {sampleRate, channels, perChannelDct} = track;
    const base = sampleRate >= 44100 ? 2048 : sampleRate >= 22050 ? 1024 : 512; // samples of a channel in a block
    const size = perChannelDct ? base : base * channels;
    const half = (perChannelDct ? sampleRate : sampleRate * channels) + 1 >> 1;
    const edges = BAND_FREQUENCIES.filter((frequency) => frequency < half)
        .map((frequency) => Math.floor(frequency * (size / 2) / half));
    edges.push(size / 2);
    return {
        size, // of a transform
        count: perChannelDct ? channels : 1, // transforms a block
        blockSamples: base * channels, // of all channels
        overlap: base * channels / OVERLAP_PARTS,
        edges, // of the bands, in pairs of coefficients
    };
}

// A complex transform of radix 2: z[k] becomes the sum of z[j] * e^(2 pi i j k / points).
class Transform {
    constructor(points) {
        this.points = points;
        this.cos = Float64Array.from({length: points / 2}, (unused, k) => Math.cos(2 * Math.PI * k / points));
        this.sin = Float64Array.from({length: points / 2}, (unused, k) => Math.sin(2 * Math.PI * k / points));
        this.halfCos = Float64Array.from({length: points / 2}, (unused, k) => Math.cos(Math.PI * k / points));
        this.halfSin = Float64Array.from({length: points / 2}, (unused, k) => Math.sin(Math.PI * k / points));
        this.reversed = new Uint32Array(points);
        for (let i = 1; i < points; i++) this.reversed[i] = this.reversed[i >> 1] >> 1 | ((i & 1) !== 0 ? points >> 1 : 0);
        this.re = new Float64Array(points);
        this.im = new Float64Array(points);
    }
    run() {
        const {points, re, im, cos, sin, reversed} = this;
        for (let i = 0; i < points; i++) {
            const j = reversed[i];
            if (i < j) {
                const r = re[i], m = im[i];
                re[i] = re[j];
                im[i] = im[j];
                re[j] = r;
                im[j] = m;
            }
        }
        for (let half = 1, stride = points >> 1; half < points; half *= 2, stride >>= 1) {
            for (let start = 0; start < points; start += 2 * half) {
                for (let k = 0, t = 0; k < half; k++, t += stride) {
                    const a = start + k, b = a + half;
                    const r = cos[t] * re[b] - sin[t] * im[b];
                    const m = cos[t] * im[b] + sin[t] * re[b];
                    re[b] = re[a] - r;
                    im[b] = im[a] - m;
                    re[a] += r;
                    im[a] += m;
                }
            }
        }
    }
}

// Inverse real DFT: y holds R[0], R[n/2], then R[k] and I[k] in turn, I with a plus sign. The result is in transform.re.
function inverseDft(transform, y) {
    const {re, im} = transform;
    const n = y.length;
    re[0] = y[0] / 2;
    re[n / 2] = y[1] / 2;
    im[0] = im[n / 2] = 0;
    for (let k = 1; k < n / 2; k++) {
        re[k] = re[n - k] = y[2 * k] / 2;
        im[k] = -y[2 * k + 1] / 2;
        im[n - k] = -im[k];
    }
    transform.run();
}

// Inverse DCT: sample k is the sum of y[j] * cos(pi * j * (k + 1/2) / n), as the real part of a transform of 2n points.
function inverseDct(transform, y) {
    const {re, im, halfCos, halfSin} = transform;
    const n = y.length;
    for (let j = 0; j < n; j++) {
        re[j] = y[j] * halfCos[j];
        im[j] = y[j] * halfSin[j];
    }
    re.fill(0, n);
    im.fill(0, n);
    transform.run();
}

// Reads a track piece by piece. Time 0 of the sound is time 0 of the picture.
export class TrackReader {
    constructor(movie, track) {
        if (!(track in movie.tracks)) throw new VornError(`the movie has no track ${track}`);
        const kind = movie.tracks[track];
        if (!kind.usable) throw new VornError(`the format of track ${track} makes no sense`);
        this.bytes = movie.bytes;
        this.track = track;
        this.sampleRate = kind.sampleRate;
        this.channels = kind.channels;
        this.perChannelDct = kind.perChannelDct;
        this.shape = shapeOfAudio(kind);
        this.transform = new Transform(kind.perChannelDct ? 2 * this.shape.size : this.shape.size);
        this.spectrum = new Float64Array(this.shape.size);
        this.problem = null; // a VornError once something couldn't be read; what came before it is given out
        this.findPackets(movie);
        this.seek(0);
    }
    // The packets that hold sound, with the sample (of all channels together) at which each begins.
    findPackets(movie) {
        this.packets = [];
        let bytes = 0;
        try {
            for (let frame = 0; frame < movie.frames; frame++) {
                const packet = movie.cutFrame(frame).audio[this.track];
                if (packet === null) continue;
                if (packet.start === packet.end) {
                    throw new VornError(`frame ${frame}, track ${this.track}: an audio packet holds no block`);
                }
                this.packets.push({...packet, first: Math.floor(bytes / 2)});
                bytes += packet.pcmBytes;
            }
        } catch (error) {
            if (!(error instanceof VornError)) throw error;
            this.problem = error;
        }
        this.sampleCount = Math.floor(bytes / 2); // as the packets' words have it
        this.seconds = this.sampleCount / this.channels / this.sampleRate;
    }
    // Goes to the packet that holds the sound at `seconds`; the next piece may begin a little earlier.
    seek(seconds) {
        const sample = seconds * this.sampleRate * this.channels;
        let number = 0;
        while (number + 1 < this.packets.length && this.packets[number + 1].first <= sample) number++;
        this.number = Math.max(number - 1, 0); // the one before has the block with which its first one is mixed
        this.discardTo = this.packets.length > 0 ? this.packets[number].first : 0;
        this.at = this.packets.length > 0 ? this.packets[this.number].start : 0;
        this.sample = this.packets.length > 0 ? this.packets[this.number].first : 0;
        this.blocks = 0; // of the packet
        this.tail = null; // last samples of the block before
        this.finished = false;
    }
    // {first: sample (of a channel) of the movie at which it begins, samples: interleaved, full scale 32768}, or null.
    next() {
        while (!this.finished) {
            const first = this.sample;
            let samples = this.nextBlock();
            this.sample += samples.length;
            if (this.sample > this.sampleCount) samples = samples.subarray(0, Math.max(0, this.sampleCount - first));
            if (first < this.discardTo || samples.length === 0) continue;
            return {first: first / this.channels, samples};
        }
        return null;
    }
    // The samples up to where the next block joins in; at the end, the tail.
    nextBlock() {
        const {overlap, blockSamples} = this.shape;
        const packet = this.packets[this.number];
        let block = null;
        try {
            if (packet !== undefined) block = this.readBlock(packet);
        } catch (error) {
            if (!(error instanceof VornError)) throw error;
            this.problem = new VornError(`frame ${packet.frame}, track ${this.track}: ${error.message}`);
        }
        if (block === null) {
            this.finished = true;
            return this.tail === null ? new Float64Array(0) : this.tail;
        }
        if (this.tail !== null) {
            const steps = overlap / this.channels;
            for (let i = 0; i < overlap; i++) {
                const weight = (Math.floor(i / this.channels) + 0.5) / steps;
                block[i] = this.tail[i] + weight * (block[i] - this.tail[i]);
            }
        }
        this.tail = block.slice(blockSamples - overlap);
        return block.subarray(0, blockSamples - overlap);
    }
    readBlock(packet) {
        const {size, count, blockSamples, overlap} = this.shape;
        const bits = new Bits(this.bytes, this.at, Math.min(packet.end, this.at + 4 * blockSamples));
        if (this.perChannelDct && bits.take(2) !== 0) throw new VornError("the lead bits of a block aren't 0");
        const block = new Float64Array(blockSamples);
        const scale = 2 / Math.sqrt(size);
        for (let t = 0; t < count; t++) {
            this.readSpectrum(bits);
            if (this.perChannelDct) inverseDct(this.transform, this.spectrum);
            else inverseDft(this.transform, this.spectrum);
            const re = this.transform.re;
            for (let i = 0; i < size; i++) block[i * count + t] = re[i] * scale;
        }
        bits.takePadding();
        this.at += bits.position / 8;
        this.blocks++;
        if (this.at === packet.end) {
            if (packet.pcmBytes > this.blocks * (blockSamples - overlap) * 2) {
                throw new VornError('the packet stands for more sound than its blocks hold');
            }
            this.number++;
            this.blocks = 0;
            if (this.number < this.packets.length) this.at = this.packets[this.number].start;
        }
        return block;
    }
    readSpectrum(bits) {
        const {edges, size} = this.shape;
        const y = this.spectrum;
        const packed = () => {
            const exponent = bits.take(5);
            const magnitude = bits.take(23) * 2 ** (exponent - 23);
            return bits.takeFlag() ? -magnitude : magnitude;
        };
        const value0 = packed();
        const value1 = packed();
        const steps = [];
        for (let b = 0; b + 1 < edges.length; b++) steps.push(BAND_STEPS[bits.take(8)]);
        for (let p = 2; p < size;) {
            const groups = bits.takeFlag() ? GROUP_RUNS[bits.take(4)] : 1;
            const width = bits.take(4);
            const end = Math.min(p + groups * 8, size);
            if (width === 0) y.fill(0, p, end);
            else for (let i = p; i < end; i++) y[i] = bits.takeSigned(width);
            p = end;
        }
        for (let b = 0; b < steps.length; b++) {
            for (let i = 2 * edges[b]; i < 2 * edges[b + 1]; i++) y[i] *= steps[b];
        }
        y[0] = value0;
        y[1] = value1;
    }
}
