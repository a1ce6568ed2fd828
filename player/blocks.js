// blocks.js - blocks that are more than one value: runs, patterns, coefficients, residues; and the inverse transform.

import {VornError} from './bits.js';
import {COLOURS, PATTERNS, RUNS} from './bundles.js';
import {SCAN_ORDERS, WALK_ORDER} from './tables.js';

export const BLOCK = 8; // samples along the side of a block
export const BLOCK_SAMPLES = 64;

export function readRunBlock(bits, bundles, block) {
    const order = SCAN_ORDERS[bits.take(4)];
    const runs = bundles.all[RUNS];
    const colours = bundles.all[COLOURS];
    let at = 0;
    while (at < BLOCK_SAMPLES - 1) {
        const end = at + runs.take() + 1;
        if (end > BLOCK_SAMPLES) throw new VornError("a segment reaches beyond the block's last sample");
        if (bits.takeFlag()) {
            const colour = colours.take();
            while (at < end) block[order[at++]] = colour;
        } else {
            while (at < end) block[order[at++]] = colours.take();
        }
    }
    if (at === BLOCK_SAMPLES - 1) block[order[at]] = colours.take();
}

export function readPatternBlock(bundles, block) {
    const patterns = bundles.all[PATTERNS];
    for (let y = 0; y < BLOCK_SAMPLES; y += BLOCK) {
        const row = patterns.take();
        for (let x = 0; x < BLOCK; x++) block[y + x] = row >> x & 1;
    }
    const first = bundles.all[COLOURS].take();
    const second = bundles.all[COLOURS].take();
    for (let i = 0; i < BLOCK_SAMPLES; i++) block[i] = block[i] ? second : first;
}

// The tree of nodes that coefficients and residues hang on, sent plane by plane. Kind 0 covers 20 numbers and opens into a
// group of four and kind 1, kind 1 covers 16 and opens into four of kind 2, kind 2 is a group of four, kind 3 one number.
const GONE = 4;
class Ladder {
    constructor() {
        // Nodes join in front (single numbers, each at most once) and at the back (three for each kind 1).
        this.first = new Uint8Array(BLOCK_SAMPLES + 16);
        this.kind = new Uint8Array(BLOCK_SAMPLES + 16);
    }
    restart() {
        this.front = BLOCK_SAMPLES;
        this.back = BLOCK_SAMPLES;
        for (const first of [4, 24, 44]) this.addBack(first, 0);
    }
    addFront(first) {
        this.front--;
        this.first[this.front] = first;
        this.kind[this.front] = 3;
    }
    addBack(first, kind) {
        this.first[this.back] = first;
        this.kind[this.back] = kind;
        this.back++;
    }
    // One pass from the present front to the back, which moves on meanwhile. coder.send(bits, n) returns false to stop.
    walk(bits, coder) {
        const {first, kind} = this;
        const {bytes, end} = bits;
        let position = bits.position; // most flags are 0: bits needn't know of each
        for (let i = this.front; i < this.back;) {
            const node = kind[i];
            if (node === GONE) {
                i++;
                continue;
            }
            if (position >= end) throw bits.tooShort();
            const flag = bytes[position >>> 3] >>> (position & 7) & 1;
            position++;
            if (flag === 0) {
                i++;
                continue;
            }
            bits.position = position;
            const n = first[i];
            if (node === 0) {
                first[i] = n + 4;
                kind[i] = 1;
                if (!this.readGroup(bits, coder, n)) return false;
            } else if (node === 1) {
                kind[i] = 2;
                for (let part = 4; part < 16; part += 4) this.addBack(n + part, 2);
            } else {
                kind[i++] = GONE;
                if (!(node === 3 ? coder.send(bits, n) : this.readGroup(bits, coder, n))) return false;
            }
            position = bits.position;
        }
        bits.position = position;
        return true;
    }
    // A 0 flag sends a number now, a 1 flag leaves it to a node of its own in front.
    readGroup(bits, coder, first) {
        for (let n = first; n < first + 4; n++) {
            if (bits.takeFlag()) this.addFront(n);
            else if (!coder.send(bits, n)) return false;
        }
        return true;
    }
}

export class CoefficientCoder {
    constructor() {
        this.ladder = new Ladder();
        this.values = new Int32Array(BLOCK_SAMPLES); // in block order
        this.plane = 0;
    }
    // Coefficients 1 to 63; the DC is given. Returns the quantiser.
    read(bits, dc) {
        const ladder = this.ladder;
        this.values.fill(0);
        this.values[0] = dc;
        ladder.restart();
        for (let n = 1; n <= 3; n++) ladder.addBack(n, 3);
        for (this.plane = bits.take(4); this.plane > 0; this.plane--) ladder.walk(bits, this);
        return bits.take(4);
    }
    send(bits, n) {
        const magnitude = 1 << this.plane - 1 | bits.take(this.plane - 1);
        this.values[WALK_ORDER[n]] = bits.takeFlag() ? -magnitude : magnitude;
        return true;
    }
}

export class ResidueCoder {
    constructor() {
        this.ladder = new Ladder();
        this.values = new Int8Array(BLOCK_SAMPLES); // in block order
        this.significant = new Uint8Array(BLOCK_SAMPLES); // block positions, in the order in which they came
    }
    read(bits) {
        this.values.fill(0);
        this.ladder.restart();
        this.ladder.addBack(0, 2);
        this.count = 0; // of significant ones
        this.left = bits.take(7); // events behind the next one
        let plane = bits.take(3) + 1;
        this.mask = 1 << plane - 1 << 24 >> 24; // -128 with 8 planes, and -64, -32 and so on behind it
        for (; plane > 0; plane--, this.mask >>= 1) {
            if (!this.refine(bits) || !this.ladder.walk(bits, this)) return;
        }
    }
    refine(bits) {
        for (let i = 0, count = this.count; i < count; i++) {
            if (!bits.takeFlag()) continue;
            const at = this.significant[i];
            this.values[at] += this.values[at] >= 0 ? this.mask : -this.mask;
            if (this.left-- === 0) return false;
        }
        return true;
    }
    send(bits, n) {
        const at = WALK_ORDER[n];
        this.values[at] = bits.takeFlag() ? -this.mask : this.mask;
        this.significant[this.count++] = at;
        return this.left-- !== 0;
    }
}

const work = new Int32Array(BLOCK_SAMPLES);

// One transform of 8 values of `work`, `step` apart, in place.
function butterfly(at, step) {
    const x0 = work[at], x1 = work[at + step], x2 = work[at + 2 * step], x3 = work[at + 3 * step];
    const x4 = work[at + 4 * step], x5 = work[at + 5 * step], x6 = work[at + 6 * step], x7 = work[at + 7 * step];
    const p = x0 + x4 | 0, m = x0 - x4 | 0, s = x2 + x6 | 0;
    const d = (Math.imul(x2 - x6, 2896) >> 11) - s | 0;
    const a = x1 + x7 | 0, b = x1 - x7 | 0, c = x3 + x5 | 0, e = x5 - x3 | 0;
    const g = a + c | 0;
    const h = Math.imul(b + e, 3784) >> 11;
    const k = (Math.imul(e, -5352) >> 11) - g + h | 0;
    const l = (Math.imul(a - c, 2896) >> 11) - k | 0;
    const n = (Math.imul(b, 2217) >> 11) - h + l | 0;
    work[at] = p + s + g;
    work[at + 7 * step] = p + s - g;
    work[at + step] = m + d + k;
    work[at + 6 * step] = m + d - k;
    work[at + 2 * step] = m - d + l;
    work[at + 5 * step] = m - d - l;
    work[at + 3 * step] = p - s - n;
    work[at + 4 * step] = p - s + n;
}

// From quantised coefficients to samples, of which only the low 8 bits stand.
export function restore(k, dequantiser, block) {
    for (let c = 0; c < BLOCK; c++) {
        if ((k[8 + c] | k[16 + c] | k[24 + c] | k[32 + c] | k[40 + c] | k[48 + c] | k[56 + c]) === 0) {
            const value = Math.imul(k[c], dequantiser[c]) >> 11;
            for (let i = c; i < BLOCK_SAMPLES; i += BLOCK) work[i] = value;
        } else {
            for (let i = c; i < BLOCK_SAMPLES; i += BLOCK) work[i] = Math.imul(k[i], dequantiser[i]) >> 11;
            butterfly(c, BLOCK);
        }
    }
    for (let row = 0; row < BLOCK_SAMPLES; row += BLOCK) butterfly(row, 1);
    for (let i = 0; i < BLOCK_SAMPLES; i++) block[i] = work[i] + 127 >> 8;
}
