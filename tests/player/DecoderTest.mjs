// DecoderTest.mjs - the player's decoder against the reader, through the program: frames hash for hash, sound sample for
// sample, damaged movies.
//
// Usage: node DecoderTest.mjs PATH-OF-VORN
import assert from 'node:assert/strict';
import {execFileSync, spawnSync} from 'node:child_process';
import {createHash} from 'node:crypto';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join, resolve} from 'node:path';
import {after, test} from 'node:test';

import {MODE_NAMES, VornError, open} from '../../player/vorn.js';

const VORN = resolve(process.argv[2]);
const folder = mkdtempSync(join(tmpdir(), 'vorn-player-'));
after(() => rmSync(folder, {recursive: true}));

const path = (name) => join(folder, name);
const vorn = (...args) => execFileSync(VORN, args, {cwd: folder, maxBuffer: 1 << 30, stdio: ['ignore', 'pipe', 'pipe']});
const hash = (...parts) => {
    const sum = createHash('sha256');
    for (const part of parts) sum.update(part);
    return sum.digest('hex');
};

// Numbers without pattern, the same in each run.
let state = 12345;
const random = (limit) => {
    state = Math.imul(state, 1664525) + 1013904223 >>> 0;
    return Math.floor(state / 2 ** 32 * limit);
};

let movies = 0;
// Makes a movie of a built-in scene, or of 'coarse'. options: {size, frames, sound: true for a tune, make: arguments}
function makeMovie(scene, options) {
    const {size, frames, sound = false, make = []} = options;
    const base = `m${movies++}`;
    const raw = scene === 'glass' || scene === 'coarse';
    const pictures = `${base}.${raw ? 'bgra' : 'y4m'}`;
    if (scene === 'coarse') putCoarseNoise(pictures, size, frames);
    else vorn('scene', scene, '-o', pictures, '--size', size, '--frames', String(frames), '-q');
    if (sound) vorn('scene', 'balls', '--sound', `${base}.wav`, '--frames', String(frames), '-q');
    vorn('make', pictures, ...(raw ? ['--raw', size, '--fps', '25', '--alpha'] : []),
        ...(sound ? ['--audio', `${base}.wav`] : []), '-o', `${base}.vrn`, '-q', ...make);
    return `${base}.vrn`;
}

// Noise of 2x2 pixels: at half scale nothing is lost, and nothing but the samples themselves describes it.
function putCoarseNoise(name, size, frames) {
    const [width, height] = size.split('x').map(Number);
    const pixels = Buffer.alloc(width * height * 4 * frames, 255);
    for (let y = 0; y < height * frames; y += 2) {
        for (let x = 0; x < width; x += 2) {
            const value = random(256);
            for (const at of [0, 1, width, width + 1]) pixels.fill(value, (y * width + x + at) * 4, (y * width + x + at) * 4 + 3);
        }
    }
    writeFileSync(path(name), pixels);
}

// What the reader makes of a movie: a hash of planes and one of pixels for each frame.
function readerHashes(name, movie) {
    const bgra = vorn('decode', name, '-o', 'out.bgra', '-q', '--force') && readFileSync(path('out.bgra'));
    const size = movie.width * movie.height * 4;
    const pixels = [];
    for (let at = 0; at < bgra.length; at += size) pixels.push(hash(bgra.subarray(at, at + size)));
    const y4m = vorn('decode', name, '-o', '-', '-q');
    const chroma = movie.hasChroma ? (movie.width + 1 >> 1) * (movie.height + 1 >> 1) : 0;
    const planes = [];
    const start = y4m.indexOf('\n') + 1;
    const step = movie.width * movie.height + 2 * chroma + 6;
    for (let at = start; at < y4m.length; at += step) planes.push(hash(y4m.subarray(at + 6, at + step)));
    return {pixels, planes};
}

const cropped = (plane, width, height) =>
    Array.from({length: height}, (unused, y) => plane.samples.subarray(y * plane.width, y * plane.width + width));

// The same of a frame of the player's.
function frameHashes(movie, frame) {
    const {y, cr, cb} = frame.planes;
    const chroma = (plane) => cropped(plane, movie.width + 1 >> 1, movie.height + 1 >> 1);
    const parts = cropped(y, movie.width, movie.height);
    if (movie.hasChroma) parts.push(...chroma(cb), ...chroma(cr));
    const pixels = movie.toRgba(frame, new Uint8ClampedArray(movie.width * movie.height * 4));
    for (let i = 0; i < pixels.length; i += 4) [pixels[i], pixels[i + 2]] = [pixels[i + 2], pixels[i]];
    return {planes: hash(...parts), pixels: hash(pixels)};
}

const seen = {small: new Set(), high: new Set()};
function noteModes(frame) {
    for (const plane of Object.values(frame.planes)) {
        if (plane === null) continue;
        plane.modes.forEach((count, mode) => count > 0 && seen.small.add(MODE_NAMES[mode]));
        plane.highModes.forEach((count, mode) => count > 0 && seen.high.add(MODE_NAMES[mode]));
    }
}

const PICTURES = [
    ['drift', {size: '96x80', frames: 12, make: ['--frame-bytes', '900', '--key-interval', '5']}],
    ['cuts', {size: '160x64', frames: 24, make: ['--frame-bytes', '700']}],
    ['cuts', {size: '96x96', frames: 24, make: ['--frame-bytes', '9000', '--key-interval', '3']}],
    ['noise', {size: '48x48', frames: 4, make: ['--frame-bytes', '100000']}],
    ['noise', {size: '64x64', frames: 6, make: ['--frame-bytes', '600', '--grey']}],
    ['drift', {size: '33x17', frames: 6, make: ['--frame-bytes', '400', '--grey']}],
    ['coarse', {size: '64x32', frames: 2, make: ['--frame-bytes', '100000', '--key-interval', '1']}],
    ['glass', {size: '64x48', frames: 8, make: ['--frame-bytes', '700', '--key-interval', '4']}],
    ['glass', {size: '63x49', frames: 6, make: ['--frame-bytes', '900', '--grey']}],
    ['balls', {size: '1x1', frames: 3}],
    ['balls', {size: '2x9', frames: 3}],
    ['balls', {size: '7x3', frames: 3, make: ['--grey']}],
    ['drift', {size: '1024x16', frames: 3, make: ['--frame-bytes', '30000']}],
];

test('frames equal the reader\'s, also in random order', () => {
    for (const [scene, options] of PICTURES) {
        const name = makeMovie(scene, options);
        const movie = open(readFileSync(path(name)));
        assert.equal(movie.frames, options.frames);
        const expected = readerHashes(name, movie);
        assert.equal(expected.planes.length, movie.frames);
        const order = [...Array(movie.frames).keys()];
        for (let i = 0; i < 6; i++) order.push(random(movie.frames));
        for (const n of order) {
            const frame = movie.decodeFrame(n);
            noteModes(frame);
            const place = `${scene} ${options.size} frame ${n}`;
            const got = frameHashes(movie, frame);
            assert.equal(got.planes, expected.planes[n], `planes of ${place}`);
            assert.equal(got.pixels, expected.pixels[n], `pixels of ${place}`);
        }
    }
});

// Without this the test before could pass by reaching nothing.
test('the movies above have every mode in both sizes', () => {
    assert.deepEqual([...seen.small].sort(), [...MODE_NAMES].sort());
    assert.deepEqual([...seen.high].sort(), ['fill', 'intra', 'pattern', 'raw', 'run']);
});

// The samples of a WAV file with the plain 44-byte head.
function wavSamples(name) {
    const file = readFileSync(path(name));
    return new Int16Array(file.buffer.slice(file.byteOffset + 44, file.byteOffset + file.length));
}

function putWav(name, rate, channels, samples) {
    const frame = channels * 2;
    const words = (...values) => Buffer.from(Uint32Array.from(values).buffer);
    writeFileSync(path(name), Buffer.concat([
        Buffer.from('RIFF'), words(36 + samples.byteLength), Buffer.from('WAVEfmt '),
        words(16, 1 | channels << 16, rate, rate * frame, frame | 16 << 16),
        Buffer.from('data'), words(samples.byteLength), Buffer.from(samples.buffer),
    ]));
}

const SOUNDS = [[44100, 2], [44100, 1], [22050, 2], [11025, 1], [8000, 2], [48000, 1]];

test('sound equals the reader\'s but for rounding, from any place on', () => {
    vorn('scene', 'balls', '-o', 's.y4m', '--size', '16x16', '--frames', '50', '-q');
    const audio = [];
    SOUNDS.forEach(([rate, channels], i) => {
        const samples = Int16Array.from({length: rate * 2 * channels - 777 * channels}, (unused, k) =>
            12000 * Math.sin(k / channels * (0.02 + 0.01 * (k % channels))) + random(4000) - 2000);
        putWav(`s${i}.wav`, rate, channels, samples);
        for (const [id, quality] of [[2 * i, 3], [2 * i + 1, 103]]) audio.push('--audio', `s${i}.wav,id=${id},quality=${quality}`);
    });
    vorn('make', 's.y4m', ...audio, '--frame-bytes', '90000', '-o', 's.vrn', '-q');
    const movie = open(readFileSync(path('s.vrn')));
    assert.equal(movie.tracks.length, audio.length / 2);
    for (let t = 0; t < movie.tracks.length; t++) {
        vorn('decode', 's.vrn', '--audio', String(movie.tracks[t].id), '-o', 'out.wav', '-q', '--force');
        const expected = wavSamples('out.wav');
        const {samples, sampleRate, channels} = movie.decodeTrack(t);
        assert.equal(samples.length, expected.length);
        assert.ok(samples.length > sampleRate * channels * 1.9);
        const far = samples.findIndex((sample, i) => Math.abs(sample - expected[i]) > 1);
        assert.equal(far, -1, `track ${t}, sample ${far}: ${samples[far]}, not ${expected[far]}`);
        const reader = movie.readTrack(t);
        for (const seconds of [0, 1.1, 0.4, 1.95]) {
            reader.seek(seconds);
            const piece = reader.next();
            const first = piece.first * channels;
            assert.ok(piece.first <= seconds * sampleRate + 1);
            const wrong = piece.samples.findIndex((sample, i) => Math.abs(sample - expected[first + i]) > 1.5);
            assert.equal(wrong, -1, `track ${t} from ${seconds} s on`);
        }
    }
});

// Everything of a movie: the hash of all frames and samples, or the VornError's text.
function playThrough(bytes) {
    const sum = createHash('sha256');
    try {
        const movie = open(bytes);
        for (let n = 0; n < movie.frames; n++) sum.update(frameHashes(movie, movie.decodeFrame(n)).pixels);
        const pictures = sum.copy().digest('hex');
        for (let t = 0; t < movie.tracks.length; t++) movie.decodeTrack(t);
        return {pictures};
    } catch (error) {
        if (!(error instanceof VornError)) throw error;
        return {message: error.message};
    }
}

const MOST_MILLISECONDS = 4000; // for a damaged movie of a few small frames

function playInTime(bytes, what) {
    const started = performance.now();
    const mine = playThrough(bytes);
    assert.ok(performance.now() - started < MOST_MILLISECONDS, `${what} took ${performance.now() - started} ms`);
    return mine;
}

// What plays must look as the reader decodes it; in what is refused, the reader must find something wrong.
function checkDamaged(bytes, what, counts) {
    const mine = playInTime(bytes, what);
    const size = bytes.length >= 28 ? bytes.readUInt32LE(20) * bytes.readUInt32LE(24) * 4 : 4;
    if (size > 1 << 22) return;
    writeFileSync(path('damaged.vrn'), bytes);
    const ask = (...args) => spawnSync(VORN, [...args, '-q'], {cwd: folder}).status;
    if (mine.message === undefined) {
        counts.played++;
        assert.equal(ask('decode', 'damaged.vrn', '-o', 'damaged.bgra', '--force'), 0, `${what}: played, but not by the reader`);
        const bgra = readFileSync(path('damaged.bgra'));
        const sum = createHash('sha256');
        for (let at = 0; at < bgra.length; at += size) sum.update(hash(bgra.subarray(at, at + size)));
        assert.equal(mine.pictures, sum.digest('hex'), `${what}: other pictures than the reader's`);
    } else {
        counts.refused++;
        assert.ok(mine.message.length > 10);
        assert.notEqual(ask('verify', 'damaged.vrn'), 0, `${what}: refused (${mine.message}), but the reader finds nothing wrong`);
    }
}

test('damaged movies end in a message, in bounded time, or play as the reader decodes them', () => {
    const name = makeMovie('glass', {size: '48x40', frames: 4, sound: true, make: ['--frame-bytes', '4000', '--key-interval', '2']});
    const whole = readFileSync(path(name));
    const counts = {played: 0, refused: 0};
    for (let k = 0; k < 16; k++) checkDamaged(whole.subarray(0, random(whole.length)), `cut ${k}`, counts);
    assert.equal(counts.refused, 16);
    for (let k = 0; k < 50; k++) {
        const bytes = Buffer.from(whole);
        // Half of the flips go to the head and the starts of packets, where lengths are.
        const at = k % 2 === 0 ? random(whole.length) : random(Math.min(whole.length, 400));
        bytes[at] ^= 1 << random(8);
        checkDamaged(bytes, `flip ${k} at ${at}`, counts);
    }
    assert.ok(counts.refused > 30 && counts.played > 3, JSON.stringify(counts));
    // Several bytes at once, many times over, without asking the reader.
    for (let k = 0; k < 400; k++) {
        const bytes = Buffer.from(k % 8 === 0 ? whole.subarray(0, random(whole.length)) : whole);
        for (let flips = random(6); flips >= 0; flips--) bytes[random(bytes.length)] = random(256);
        playInTime(bytes, `round ${k}`);
    }
    assert.match(playThrough(Buffer.from('VRNi')).message, /too short/);
    assert.match(playThrough(Buffer.alloc(100)).message, /isn't a Vorn movie/);
    assert.match(playThrough(Buffer.alloc(0)).message, /too short/);
});

// A key frame in good order lets playing go on behind damage.
test('behind a damaged frame the next key frame plays again', () => {
    const name = makeMovie('drift', {size: '48x48', frames: 9, make: ['--frame-bytes', '600', '--key-interval', '3']});
    const bytes = readFileSync(path(name));
    const good = open(bytes);
    assert.deepEqual(good.keyFrames, [0, 3, 6]);
    const expected = readerHashes(name, good);
    const damaged = Buffer.from(bytes);
    damaged.fill(0xff, good.starts[4] + 4, good.starts[5]);
    const movie = open(damaged);
    assert.equal(frameHashes(movie, movie.decodeFrame(3)).planes, expected.planes[3]);
    assert.throws(() => movie.decodeFrame(4), (error) => error instanceof VornError && /^frame 4, plane Y/.test(error.message));
    assert.throws(() => movie.decodeFrame(5), VornError);
    assert.equal(frameHashes(movie, movie.decodeFrame(6)).planes, expected.planes[6]);
    assert.equal(frameHashes(movie, movie.decodeFrame(2)).planes, expected.planes[2]);
    assert.throws(() => movie.decodeFrame(9), VornError);
});
