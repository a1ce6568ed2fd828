// colour.js - from planes to pixels.

// BT.601 in studio range, in 1/65536: luma is stretched by 255 / 219, chroma by 255 / 224. Chroma samples lie in the middle
// of four pixels and are blended linearly in sixteenths; beyond the picture's edge the last one holds.
const LUMA = Int32Array.from({length: 256}, (unused, y) => (y - 16) * 16 * 76309 + (1 << 19));

// What a sum in 1/2^20 stands for, with 1024 added to it: 0 to 255.
const CLAMP = Uint8Array.from({length: 2048}, (unused, i) => Math.min(255, Math.max(0, i - 1024)));

// A row of chroma between two of the plane's, in quarters, less 128.
function blendRows(plane, y, height, row) {
    const {samples, width} = plane;
    const last = (height + 1 >> 1) - 1;
    const first = (y + 1 >> 1) - 1;
    const upper = Math.max(first, 0) * width;
    const lower = Math.min(first + 1, last) * width;
    const weight = y % 2 !== 0 ? 1 : 3;
    for (let i = 0; i < row.length; i++) row[i] = samples[upper + i] * (4 - weight) + samples[lower + i] * weight - 512;
}

// A pixel as a word R, G, B, A, lowest byte first. red, blue: Cr and Cb in sixteenths; alpha in place.
function pixelOf(luma, red, blue, alpha) {
    const base = LUMA[luma];
    return CLAMP[(base + red * 104597 >> 20) + 1024] | CLAMP[(base - blue * 25675 - red * 53279 >> 20) + 1024] << 8 |
        CLAMP[(base + blue * 132201 >> 20) + 1024] << 16 | alpha;
}

function fillColourRow(luma, alpha, from, width, crRow, cbRow, words, to) {
    let redLeft = crRow[0];
    let blueLeft = cbRow[0];
    for (let i = 0, x = 0; x < width; i++) {
        // Between chroma samples i - 1 and i lie the pixels 2i - 1 and 2i.
        const red = i < crRow.length ? crRow[i] : redLeft;
        const blue = i < cbRow.length ? cbRow[i] : blueLeft;
        if (i > 0) {
            const opaque = alpha !== null ? alpha[from + x] << 24 : 255 << 24;
            words[to + x] = pixelOf(luma[from + x], redLeft * 3 + red, blueLeft * 3 + blue, opaque);
            x++;
        }
        if (x < width) {
            const opaque = alpha !== null ? alpha[from + x] << 24 : 255 << 24;
            words[to + x] = pixelOf(luma[from + x], redLeft + red * 3, blueLeft + blue * 3, opaque);
            x++;
        }
        redLeft = red;
        blueLeft = blue;
    }
}

function fillGreyRow(luma, alpha, from, width, words, to) {
    for (let x = 0; x < width; x++) {
        const opaque = alpha !== null ? alpha[from + x] << 24 : 255 << 24;
        words[to + x] = pixelOf(luma[from + x], 0, 0, opaque);
    }
}

// Fills 4 * width * height bytes R, G, B, A of `pixels`, a Uint8ClampedArray or Uint8Array that begins at a whole word.
export function toRgba(movie, frame, pixels) {
    const {width, height} = movie;
    const {y: luma, cr, cb} = frame.planes;
    const alpha = frame.planes.alpha !== null ? frame.planes.alpha.samples : null;
    const words = new Uint32Array(pixels.buffer, pixels.byteOffset, width * height);
    const crRow = new Int32Array(width + 1 >> 1);
    const cbRow = new Int32Array(width + 1 >> 1);
    for (let y = 0; y < height; y++) {
        if (cr === null) {
            fillGreyRow(luma.samples, alpha, y * luma.width, width, words, y * width);
        } else {
            blendRows(cr, y, height, crRow);
            blendRows(cb, y, height, cbRow);
            fillColourRow(luma.samples, alpha, y * luma.width, width, crRow, cbRow, words, y * width);
        }
    }
    return pixels;
}
