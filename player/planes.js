// planes.js - from a plane stream to samples: the walk over block rows and what each kind of block does.

import {VornError} from './bits.js';
import {BLOCK, BLOCK_SAMPLES, CoefficientCoder, ResidueCoder, readPatternBlock, readRunBlock, restore} from './blocks.js';
import {BLOCK_TYPES, Bundles, COLOURS, INTER_DC, INTRA_DC, SUB_BLOCK_TYPES, X_OFFSETS, Y_OFFSETS} from './bundles.js';
import {INTER_DEQUANTISERS, INTRA_DEQUANTISERS, MODE_NAMES} from './tables.js';
import {MODE_FILL, MODE_INTER, MODE_INTRA, MODE_MOTION, MODE_PATTERN, MODE_RAW, MODE_RESIDUE, MODE_RUN, MODE_SCALED, MODE_SKIP} from './tables.js';

const residual = new Int8Array(BLOCK_SAMPLES);

// One plane through all frames: its samples and those of the frame before. width and height are multiples of 8.
export class Plane {
    constructor(width, height) {
        this.width = width;
        this.height = height;
        this.samples = null; // row-major; made with the first stream that can be true
        this.reference = null;
        this.words = null; // the same, four samples a word
        this.referenceWords = null;
        this.bundles = new Bundles(width);
        this.coefficients = new CoefficientCoder();
        this.residue = new ResidueCoder();
        this.block = new Uint8Array(BLOCK_SAMPLES);
        this.high = new Uint8Array(width / BLOCK); // per column: part of a 16x16 block of this pair of rows
        this.modes = new Uint32Array(MODE_NAMES.length); // of the last frame: 8x8 positions as the stream has them
        this.highModes = new Uint32Array(MODE_NAMES.length); // 16x16 blocks
        this.column = -1; // of the block in hand, for messages
        this.row = -1;
    }
    forget() {
        if (this.samples !== null) this.samples.fill(0);
    }
    // Decodes the next frame. Returns how many bytes it took.
    decode(bits, keyFrame) {
        const columns = this.width / BLOCK;
        const rows = this.height / BLOCK;
        this.column = this.row = -1;
        this.checkLength(bits, columns * rows);
        this.bundles.start(bits);
        if (this.samples === null) {
            this.samples = new Uint8Array(this.width * this.height);
            this.reference = new Uint8Array(this.width * this.height);
        }
        [this.samples, this.reference] = [this.reference, this.samples];
        this.words = new Int32Array(this.samples.buffer);
        this.referenceWords = new Int32Array(this.reference.buffer);
        this.modes.fill(0);
        this.highModes.fill(0);
        for (this.row = 0; this.row < rows; this.row++) {
            this.column = -1;
            this.bundles.readDueChunks(bits);
            if (this.row % 2 === 0) this.high.fill(0);
            for (this.column = 0; this.column < columns;) this.readBlock(bits, keyFrame);
        }
        this.column = this.row = -1;
        this.bundles.checkEmpty();
        bits.takePadding();
        return bits.position / 8;
    }
    // Keeps a short stream from claiming much memory: block types alone take a count and a fill for each full chunk,
    // whose elements stand for two blocks at most.
    checkLength(bits, blocks) {
        const countBits = this.bundles.all[BLOCK_TYPES].countBits;
        const chunks = Math.floor(bits.end / (countBits + 5)) + 1;
        if (blocks > 2 * chunks * 2 ** countBits) {
            throw new VornError(`the stream is too short for a plane of ${this.width} x ${this.height}`);
        }
    }
    readBlock(bits, keyFrame) {
        const mode = this.bundles.all[BLOCK_TYPES].take();
        if (mode >= MODE_NAMES.length) throw new VornError(`a block has mode ${mode}`);
        this.modes[mode]++;
        if (mode === MODE_SCALED) {
            this.readScaledBlock(bits);
            this.column += 2;
            return;
        }
        if (this.row % 2 !== 0 && this.high[this.column] !== 0) {
            throw new VornError("a 16x16 block isn't gone on with in its second row");
        }
        const usesReference =
            mode === MODE_SKIP || mode === MODE_MOTION || mode === MODE_RESIDUE || mode === MODE_INTER;
        if (usesReference && keyFrame) {
            throw new VornError(`a block of a key frame has mode ${MODE_NAMES[mode]}, which uses the frame before`);
        }
        if (mode === MODE_SKIP) {
            this.copySkipped();
        } else if (mode === MODE_MOTION) {
            this.copyMoved();
        } else if (usesReference) {
            this.readCorrectedBlock(bits, mode);
        } else {
            this.readOwnBlock(bits, mode);
            this.storeBlock();
        }
        this.column++;
    }
    storeBlock() {
        const {samples, block, width} = this;
        let to = (this.row * width + this.column) * BLOCK;
        for (let i = 0; i < BLOCK_SAMPLES; i += BLOCK, to += width) {
            for (let x = 0; x < BLOCK; x++) samples[to + x] = block[i + x];
        }
    }
    copySkipped() {
        const {words, referenceWords} = this;
        const step = this.width / 4;
        let at = this.row * BLOCK * step + this.column * 2;
        for (let y = 0; y < BLOCK; y++, at += step) {
            words[at] = referenceWords[at];
            words[at + 1] = referenceWords[at + 1];
        }
    }
    // Takes the offsets of the block in hand. Returns where in the frame before the displaced block begins.
    takeDisplaced() {
        const offsetX = this.bundles.all[X_OFFSETS].take();
        const offsetY = this.bundles.all[Y_OFFSETS].take();
        const x = this.column * BLOCK + offsetX;
        const y = this.row * BLOCK + offsetY;
        if (x < 0 || y < 0 || x + BLOCK > this.width || y + BLOCK > this.height) {
            throw new VornError(`offsets ${offsetX}, ${offsetY} lead out of the plane`);
        }
        return y * this.width + x;
    }
    // Eight samples are two words, put together from up to three of the frame before.
    copyMoved() {
        const from = this.takeDisplaced();
        const {words, referenceWords} = this;
        const step = this.width / 4;
        const right = (from & 3) * 8;
        const left = 32 - right;
        let source = from >> 2;
        let at = this.row * BLOCK * step + this.column * 2;
        for (let y = 0; y < BLOCK; y++, at += step, source += step) {
            if (right === 0) {
                words[at] = referenceWords[source];
                words[at + 1] = referenceWords[source + 1];
            } else {
                const middle = referenceWords[source + 1];
                words[at] = referenceWords[source] >>> right | middle << left;
                words[at + 1] = middle >>> right | referenceWords[source + 2] << left;
            }
        }
    }
    // A displaced block and what is added to it, modulo 256.
    readCorrectedBlock(bits, mode) {
        const {samples, reference, width} = this;
        let from = this.takeDisplaced();
        let addend = residual;
        if (mode === MODE_RESIDUE) {
            this.residue.read(bits);
            addend = this.residue.values;
        } else {
            const dc = this.bundles.all[INTER_DC].take();
            const quantiser = this.coefficients.read(bits, dc);
            restore(this.coefficients.values, INTER_DEQUANTISERS[quantiser], residual);
        }
        let to = (this.row * width + this.column) * BLOCK;
        for (let i = 0; i < BLOCK_SAMPLES; i += BLOCK, to += width, from += width) {
            for (let x = 0; x < BLOCK; x++) samples[to + x] = reference[from + x] + addend[i + x];
        }
    }
    // The modes that 8x8 and half-scale blocks share.
    readOwnBlock(bits, mode) {
        const bundles = this.bundles;
        const block = this.block;
        if (mode === MODE_RUN) {
            readRunBlock(bits, bundles, block);
        } else if (mode === MODE_INTRA) {
            const dc = bundles.all[INTRA_DC].take();
            const quantiser = this.coefficients.read(bits, dc);
            restore(this.coefficients.values, INTRA_DEQUANTISERS[quantiser], block);
        } else if (mode === MODE_FILL) {
            block.fill(bundles.all[COLOURS].take());
        } else if (mode === MODE_PATTERN) {
            readPatternBlock(bundles, block);
        } else {
            const colours = bundles.all[COLOURS];
            for (let i = 0; i < BLOCK_SAMPLES; i++) block[i] = colours.take();
        }
    }
    // On even rows a half-scale block is read and doubled into 16x16 samples, on odd rows it stands already.
    readScaledBlock(bits) {
        const {column, high, width} = this;
        if (column % 2 !== 0) throw new VornError('a 16x16 block begins in an odd column');
        if (this.row % 2 !== 0) {
            if (high[column] === 0) throw new VornError("a 16x16 block goes on that the row above doesn't have");
            return;
        }
        if (column * BLOCK + 16 > width || this.row * BLOCK + 16 > this.height) {
            throw new VornError('a 16x16 block reaches beyond the plane');
        }
        const mode = this.bundles.all[SUB_BLOCK_TYPES].take();
        if (mode !== MODE_RUN && mode !== MODE_INTRA && mode !== MODE_FILL && mode !== MODE_PATTERN && mode !== MODE_RAW) {
            throw new VornError(`a 16x16 block has mode ${mode}`);
        }
        this.readOwnBlock(bits, mode);
        this.highModes[mode]++;
        high[column] = high[column + 1] = 1;
        const {samples, block} = this;
        let to = (this.row * width + column) * BLOCK;
        for (let y = 0; y < 16; y++, to += width) {
            for (let x = 0; x < 16; x++) samples[to + x] = block[(y >> 1) * BLOCK + (x >> 1)];
        }
    }
}
