// vorn.js - reads movies of the Vorn format: the file, the pictures, the sound. No dependencies; runs in pages, in workers
// and in Node.
//
//   const movie = open(bytes);             // a Uint8Array or ArrayBuffer of a whole file; it is kept, not copied
//   movie.width, height, frames, rate      // rate: {numerator, denominator, value}, frames per second
//   movie.hasChroma, hasAlpha, tracks      // tracks: {id, sampleRate, channels, perChannelDct, usable}
//   movie.keyFrames                        // numbers of the key frames, rising
//   const frame = movie.decodeFrame(n);    // {number, key, planes: {y, cr, cb, alpha}}, valid until the next decodeFrame
//   movie.toRgba(frame, pixels);           // into a Uint8ClampedArray of width * height * 4
//   const sound = movie.decodeTrack(t);    // {sampleRate, channels, samples}: 16 bits, channels interleaved
//   const reader = movie.readTrack(t);     // the same piece by piece, from any time on
//
// Made for files of strangers: every read is checked against the bytes that are there, every loop takes bits or fills
// samples whose number the file's length bears out, and what can't be read ends in a VornError whose message names the
// place. Sums and products of the picture wrap at 32 bits, as the format has it.

import {Bits, VornError} from './bits.js';
import {BLOCK} from './blocks.js';
import {toRgba} from './colour.js';
import {Plane} from './planes.js';
import {TrackReader, toPcm} from './sound.js';

export {VornError} from './bits.js';
export {MODE_NAMES} from './tables.js';

const PLANE_NAMES = {y: 'Y', cr: 'Cr', cb: 'Cb', alpha: 'alpha'};
// Beyond this padded width a chunk of colours could outgrow its 15-bit count.
const MOST_WIDTH = 4032;
// More than a page can show at any speed; and positions in a stream stay within 31 bits.
const MOST_PLANE_SAMPLES = 1 << 26;

const HEADER_BYTES = 44;
const FLAG_GREY = 1 << 17;
const FLAG_ALPHA = 1 << 20;
const TRACK_FLAG_VARIANT_LOW = 1 << 28;
const TRACK_FLAG_STEREO = 1 << 29;
const TRACK_FLAG_VARIANT_HIGH = 1 << 31;
const MOST_SAMPLE_RATE = 65535;
const NOTHING = -2; // no frame follows on it

export function open(bytes) {
    return new Movie(bytes instanceof Uint8Array ? bytes : new Uint8Array(bytes));
}

class Movie {
    constructor(bytes) {
        this.bytes = bytes;
        this.view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
        this.readHeader();
        this.readTracks();
        this.readIndex();
        this.makePlanes();
        this.last = NOTHING; // frame that the planes hold
        this.packetLists = [];
    }
    word(at) {
        return this.view.getUint32(at, true);
    }
    readHeader() {
        const size = this.bytes.length;
        if (size < HEADER_BYTES) throw new VornError("the file is too short for a movie's header");
        const magic = String.fromCharCode(...this.bytes.subarray(0, 4));
        if (!/^VRN[f-i]$/.test(magic)) throw new VornError("the file isn't a Vorn movie");
        this.version = magic[3];
        this.frames = this.word(8);
        this.capacity = this.word(16); // frames that the index has room for
        this.width = this.word(20);
        this.height = this.word(24);
        const numerator = this.word(28);
        const denominator = this.word(32);
        this.rate = {numerator, denominator, value: numerator / denominator};
        const flags = this.word(36);
        this.hasChroma = (flags & FLAG_GREY) === 0;
        this.hasAlpha = (flags & FLAG_ALPHA) !== 0;
        this.trackCount = this.word(40);
        this.indexStart = HEADER_BYTES + 12 * this.trackCount;
        if (this.indexStart + 4 * (this.capacity + 1) > size) {
            throw new VornError(`the file is too short for ${this.trackCount} tracks and an index of ${this.capacity} frames`);
        }
        if (this.frames > this.capacity) throw new VornError('the movie has more frames than its index holds');
        if (numerator === 0 || denominator === 0) throw new VornError('the movie has no frame rate');
        const padded = Math.ceil(this.width / BLOCK) * BLOCK;
        const rows = Math.ceil(this.height / BLOCK) * BLOCK;
        if (padded === 0 || rows === 0 || padded > MOST_WIDTH || padded * rows > MOST_PLANE_SAMPLES) {
            throw new VornError(`a picture of ${this.width} x ${this.height} can't be read`);
        }
    }
    readTracks() {
        this.tracks = [];
        for (let t = 0; t < this.trackCount; t++) {
            const format = this.word(HEADER_BYTES + 4 * (this.trackCount + t));
            const sampleRate = format & TRACK_FLAG_VARIANT_LOW - 1;
            const perChannelDct = (format & TRACK_FLAG_VARIANT_LOW) !== 0;
            this.tracks.push({
                id: this.word(HEADER_BYTES + 4 * (2 * this.trackCount + t)),
                sampleRate,
                channels: (format & TRACK_FLAG_STEREO) !== 0 ? 2 : 1,
                perChannelDct,
                usable: perChannelDct !== ((format & TRACK_FLAG_VARIANT_HIGH) !== 0) && sampleRate >= 1 &&
                    sampleRate <= MOST_SAMPLE_RATE,
            });
        }
    }
    // Frames follow the index without gaps, each as long as the difference of two index words, bit 0 masked off.
    readIndex() {
        let position = this.indexStart + 4 * (this.capacity + 1);
        this.starts = new Float64Array(this.frames + 1);
        this.starts[0] = position;
        this.keyFrames = [];
        for (let i = 0; i < this.frames; i++) {
            const word = this.word(this.indexStart + 4 * i);
            const next = this.word(this.indexStart + 4 * (i + 1));
            if ((word & 1) !== 0) this.keyFrames.push(i);
            const length = (next & ~1) - (word & ~1) | 0;
            if ((next & ~1) >>> 0 <= (word & ~1) >>> 0) throw new VornError(`the index doesn't rise at frame ${i}`);
            position += length >>> 0;
            if (position > this.bytes.length) throw new VornError(`frame ${i} reaches beyond the end of the file`);
            this.starts[i + 1] = position;
        }
    }
    makePlanes() {
        const padded = (samples) => Math.ceil(samples / BLOCK) * BLOCK;
        const luma = () => new Plane(padded(this.width), padded(this.height));
        const chroma = () => new Plane(padded(Math.ceil(this.width / 2)), padded(Math.ceil(this.height / 2)));
        this.planes = {y: luma(), cr: null, cb: null, alpha: null};
        if (this.hasChroma) {
            this.planes.cr = chroma();
            this.planes.cb = chroma();
        }
        if (this.hasAlpha) this.planes.alpha = luma();
    }
    // The last key frame up to `frame`; 0 if there is none.
    keyFrameBefore(frame) {
        let low = 0;
        for (let high = this.keyFrames.length; low < high;) {
            const middle = low + high >> 1;
            if (this.keyFrames[middle] <= frame) low = middle + 1;
            else high = middle;
        }
        return low === 0 ? 0 : this.keyFrames[low - 1];
    }
    isKeyFrame(frame) {
        return (this.word(this.indexStart + 4 * frame) & 1) !== 0;
    }
    // The frame that must be decoded next on the way to `frame`, which is decodeFrame's if it has to decode but one.
    nextToDecode(frame) {
        const key = this.keyFrameBefore(frame);
        return this.last >= key && this.last < frame ? this.last + 1 : key;
    }
    // Where the parts of a frame are: {audio: [{frame, start, end, pcmBytes} or null a track], video: its start, end: of it all}.
    cutFrame(frame) {
        let at = this.starts[frame];
        const end = this.starts[frame + 1];
        const audio = [];
        for (let t = 0; t < this.tracks.length; t++) {
            if (at + 4 > end) throw new VornError('the frame ends ahead of an audio packet');
            const length = this.word(at);
            const start = at + 4;
            at = start + length;
            if (at > end) throw new VornError('an audio packet is longer than the frame');
            if (length % 4 !== 0) throw new VornError("the length of an audio packet isn't a multiple of 4");
            audio.push(length === 0 ? null : {frame, start: start + 4, end: at, pcmBytes: this.word(start)});
        }
        return {audio, video: at, end};
    }
    // Decodes what is needed to have frame `frame`. The result's planes change with the next call.
    decodeFrame(frame) {
        if (!Number.isInteger(frame) || frame < 0 || frame >= this.frames) {
            throw new VornError(`the movie has no frame ${frame}`);
        }
        while (this.last !== frame) {
            const next = this.nextToDecode(frame);
            if (next !== this.last + 1) this.forgetPlanes();
            this.last = NOTHING; // as long as the planes are in pieces
            this.decodeNext(next);
            this.last = next;
        }
        return {number: frame, key: this.isKeyFrame(frame), planes: this.planes};
    }
    forgetPlanes() {
        for (const plane of Object.values(this.planes)) if (plane !== null) plane.forget();
    }
    decodeNext(frame) {
        let name = '';
        try {
            const parts = this.cutFrame(frame);
            const key = this.isKeyFrame(frame);
            let at = parts.video;
            for (const sized of ['alpha', 'y']) {
                if (this.planes[sized] === null) continue;
                name = sized;
                at = this.decodeSized(this.planes[sized], at, parts.end, key);
            }
            for (const unsized of ['cr', 'cb']) {
                if (this.planes[unsized] === null) continue;
                name = unsized;
                at += this.planes[unsized].decode(new Bits(this.bytes, at, this.streamEnd(at, parts.end)), key);
            }
            if (at !== parts.end) throw new VornError(`${parts.end - at} bytes follow the end of the plane`);
        } catch (error) {
            throw this.placed(error, frame, name);
        }
    }
    // A stream as long as could matter: positions in it are 31 bits wide.
    streamEnd(start, end) {
        return Math.min(end, start + MOST_PLANE_SAMPLES * 2);
    }
    decodeSized(plane, at, end, key) {
        if (at + 4 > end) throw new VornError("the frame ends ahead of the plane's size");
        const size = this.word(at);
        if (size < 4 || at + size > end) throw new VornError(`a plane size of ${size} doesn't fit the frame`);
        const used = plane.decode(new Bits(this.bytes, at + 4, this.streamEnd(at + 4, at + size)), key);
        if (used !== size - 4) throw new VornError(`${size - 4 - used} bytes follow the end of the plane`);
        return at + size;
    }
    placed(error, frame, name) {
        if (!(error instanceof VornError)) return error;
        const plane = this.planes[name];
        const place = [`frame ${frame}`];
        if (plane) place.push(`plane ${PLANE_NAMES[name]}`);
        if (plane && plane.column >= 0) place.push(`block ${plane.column},${plane.row}`);
        else if (plane && plane.row >= 0) place.push(`block row ${plane.row}`);
        return new VornError(`${place.join(', ')}: ${error.message}`);
    }
    toRgba(frame, pixels) {
        return toRgba(this, frame, pixels);
    }
    readTrack(track) {
        return new TrackReader(this, track);
    }
    decodeTrack(track) {
        const reader = this.readTrack(track);
        const pieces = [];
        let count = 0;
        for (let piece = reader.next(); piece !== null; piece = reader.next()) {
            pieces.push(Int16Array.from(piece.samples, toPcm));
            count += piece.samples.length;
        }
        if (reader.problem !== null) throw reader.problem;
        const samples = new Int16Array(count);
        for (let i = 0, at = 0; i < pieces.length; at += pieces[i++].length) samples.set(pieces[i], at);
        return {sampleRate: reader.sampleRate, channels: reader.channels, samples};
    }
}
