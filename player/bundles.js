// bundles.js - the nine queues of block values of a plane stream: their codes, their chunks, and when a chunk is due.

import {VornError, bitLength} from './bits.js';
import {MODE_NAMES, TREE_LENGTHS, TREE_WORDS} from './tables.js';

const LONGEST_CODE = 7;

// By the next 7 bits of the stream: symbol + 16 * length.
function readCodeTable(bits, table) {
    const tree = bits.take(4);
    const order = tree !== 0 ? readSymbolOrder(bits) : null;
    for (let i = 0; i < 16; i++) {
        const length = TREE_LENGTHS[tree][i];
        const entry = (order === null ? i : order[i]) | length << 4;
        for (let word = TREE_WORDS[tree][i]; word < 1 << LONGEST_CODE; word += 1 << length) table[word] = entry;
    }
}

function readSymbolOrder(bits) {
    let order = [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15];
    if (bits.takeFlag()) {
        const listed = [];
        for (let left = bits.take(3) + 1; left > 0; left--) {
            const symbol = bits.take(4);
            if (listed.includes(symbol)) throw new VornError(`a code table lists symbol ${symbol} twice`);
            listed.push(symbol);
        }
        return listed.concat(order.filter((symbol) => !listed.includes(symbol)));
    }
    // Neighbouring runs are merged, a bit for each comparison: 1 takes the right run's front.
    const depth = bits.take(2);
    for (let run = 1; run <= 1 << depth; run *= 2) {
        const merged = [];
        for (let start = 0; start < 16; start += 2 * run) {
            let left = start;
            let right = start + run;
            while (left < start + run && right < start + 2 * run) {
                merged.push(order[bits.takeFlag() ? right++ : left++]);
            }
            while (left < start + run) merged.push(order[left++]);
            while (right < start + 2 * run) merged.push(order[right++]);
        }
        order = merged;
    }
    return order;
}

function takeSymbol(bits, table) {
    const entry = table[bits.peek(LONGEST_CODE)];
    bits.skip(entry >> 4);
    return entry & 15;
}

// ---- Bundles -----------------------------------------------------------------------------------------------------------

export const BLOCK_TYPES = 0, SUB_BLOCK_TYPES = 1, COLOURS = 2, PATTERNS = 3, X_OFFSETS = 4, Y_OFFSETS = 5, INTRA_DC = 6,
    INTER_DC = 7, RUNS = 8;
const BUNDLE_NAMES = ['blockTypes', 'subBlockTypes', 'colours', 'patterns', 'xOffsets', 'yOffsets', 'intraDc', 'interDc',
    'runs'];
const ELEMENTS_OF_BLOCK = [1, 1, 64, 8, 1, 1, 1, 1, 48];
const FULL_CHUNK = 512;
const MOST_COUNT_BITS = 15;
const REPEATS = [4, 8, 12, 32]; // of symbols 12 to 15

class Bundle {
    constructor(id, width) {
        const blocksOfRow = (id === SUB_BLOCK_TYPES ? width >> 1 : width) >> 3;
        this.name = BUNDLE_NAMES[id];
        this.countBits = Math.min(bitLength(blocksOfRow * ELEMENTS_OF_BLOCK[id] + FULL_CHUNK - 1), MOST_COUNT_BITS);
        this.elements = new Int16Array(1 << this.countBits);
        this.restart();
    }
    restart() {
        this.count = 0;
        this.next = 0; // first element not taken yet
        this.ended = false;
    }
    take() {
        if (this.next >= this.count) throw new VornError(`${this.name} ran dry`);
        return this.elements[this.next++];
    }
}

export class Bundles {
    constructor(width) {
        const newTable = () => new Uint8Array(1 << LONGEST_CODE);
        this.all = BUNDLE_NAMES.map((name, id) => new Bundle(id, width));
        this.blockTypes = newTable();
        this.subBlockTypes = newTable();
        this.colourHigh = Array.from({length: 16}, newTable); // by the high nibble of the colour before
        this.colourLow = newTable();
        this.patterns = newTable();
        this.xOffsets = newTable();
        this.yOffsets = newTable();
        this.runs = newTable();
        this.colourContext = 0;
    }
    start(bits) {
        for (const bundle of this.all) bundle.restart();
        this.colourContext = 0;
        for (const table of [this.blockTypes, this.subBlockTypes, ...this.colourHigh, this.colourLow, this.patterns,
            this.xOffsets, this.yOffsets, this.runs]) readCodeTable(bits, table);
    }
    // The chunks that fall due at the start of a block row.
    readDueChunks(bits) {
        for (let id = 0; id < this.all.length; id++) {
            const bundle = this.all[id];
            if (bundle.next < bundle.count || bundle.ended) continue;
            bundle.next = 0;
            bundle.count = 0;
            const count = bits.take(bundle.countBits);
            if (count === 0) {
                bundle.ended = true;
            } else {
                this.readChunk(bits, id, bundle.elements, count);
                bundle.count = count;
            }
        }
    }
    readChunk(bits, id, elements, count) {
        switch (id) {
        case BLOCK_TYPES: return readRepeatCoded(bits, this.blockTypes, elements, count);
        case SUB_BLOCK_TYPES: return readRepeatCoded(bits, this.subBlockTypes, elements, count);
        case COLOURS: return this.readColours(bits, elements, count);
        case PATTERNS: return readPatterns(bits, this.patterns, elements, count);
        case X_OFFSETS: return readNibbles(bits, this.xOffsets, true, elements, count);
        case Y_OFFSETS: return readNibbles(bits, this.yOffsets, true, elements, count);
        case INTRA_DC: return readDeltaGroups(bits, false, elements, count);
        case INTER_DC: return readDeltaGroups(bits, true, elements, count);
        default: return readNibbles(bits, this.runs, false, elements, count);
        }
    }
    takeColour(bits) {
        const high = takeSymbol(bits, this.colourHigh[this.colourContext]);
        this.colourContext = high;
        return high << 4 | takeSymbol(bits, this.colourLow);
    }
    readColours(bits, elements, count) {
        if (bits.takeFlag()) {
            elements.fill(this.takeColour(bits), 0, count);
        } else {
            for (let i = 0; i < count; i++) elements[i] = this.takeColour(bits);
        }
    }
    checkEmpty() {
        for (const bundle of this.all) {
            const left = bundle.count - bundle.next;
            if (left !== 0) throw new VornError(`${left} elements of ${bundle.name} were never used`);
        }
    }
}

function readRepeatCoded(bits, code, elements, count) {
    if (bits.takeFlag()) {
        elements.fill(bits.take(4), 0, count);
        return;
    }
    let previous = 0;
    for (let i = 0; i < count;) {
        const symbol = takeSymbol(bits, code);
        if (symbol < MODE_NAMES.length) {
            previous = symbol;
            elements[i++] = symbol;
        } else if (symbol < 12) {
            throw new VornError(`a block mode is ${symbol}`);
        } else {
            const end = i + REPEATS[symbol - 12];
            if (end > count) throw new VornError('repeats reach beyond the end of their chunk');
            elements.fill(previous, i, end);
            i = end;
        }
    }
}

function readPatterns(bits, code, elements, count) {
    for (let i = 0; i < count; i++) {
        const low = takeSymbol(bits, code);
        elements[i] = takeSymbol(bits, code) << 4 | low;
    }
}

// Offsets, with a sign behind each magnitude above 0, and runs, without.
function readNibbles(bits, code, withSign, elements, count) {
    if (bits.takeFlag()) {
        const fill = bits.take(4);
        if (withSign && fill !== 0) throw new VornError('a chunk of offsets is filled with a value other than 0');
        elements.fill(fill, 0, count);
        return;
    }
    for (let i = 0; i < count; i++) {
        const magnitude = takeSymbol(bits, code);
        elements[i] = withSign && magnitude !== 0 && bits.takeFlag() ? -magnitude : magnitude;
    }
}

function readDeltaGroups(bits, isSigned, elements, count) {
    const lowest = isSigned ? -1024 : 0;
    let value = isSigned ? bits.takeSigned(10) : bits.take(11);
    elements[0] = value;
    for (let i = 1; i < count;) {
        const width = bits.take(4);
        for (const end = Math.min(i + 8, count); i < end; i++) {
            value += bits.takeSigned(width);
            if (value < lowest || value > lowest + 2047) throw new VornError(`a DC value of ${value} is out of range`);
            elements[i] = value;
        }
    }
}
