// colour.js - from planes to pixels.

// BT.601 in studio range, in 1/65536: luma is stretched by 255 / 219, chroma by 255 / 224. Chroma samples lie in the middle
// of four pixels and are blended linearly in sixteenths; beyond the picture's edge the last one holds.
const LUMA = Int32Array.from({length: 256}, (unused, y) => (y - 16) * 16 * 76309 + (1 << 19) + (1024 << 20));

// What a sum in 1/2^20 stands for: 0 to 255. 1024 is added to it so that it is an index.
const CLAMP = Uint8Array.from({length: 2048}, (unused, i) => Math.min(255, Math.max(0, i - 1024)));

// A row of chroma between two of the plane's, in quarters, less 128.
function blendRows(plane, y, height, row) {
    const {samples, width} = plane;
    const last = (height + 1 >> 1) - 1;
    const upper = (y + 1 >> 1) - 1;
    const near = (y % 2 !== 0 ? Math.max(upper, 0) : Math.min(upper + 1, last)) * width;
    const far = (y % 2 !== 0 ? Math.min(upper + 1, last) : Math.max(upper, 0)) * width;
    for (let i = 0; i < row.length; i++) row[i] = samples[near + i] * 3 + samples[far + i] - 512;
}

// An opaque pixel as a word R, G, B, A, lowest byte first. red, blue: Cr and Cb in sixteenths.
function pixelOf(luma, red, blue) {
    const base = LUMA[luma];
    return CLAMP[base + Math.imul(red, 104597) >> 20] |
        CLAMP[base - Math.imul(blue, 25675) - Math.imul(red, 53279) >> 20] << 8 |
        CLAMP[base + Math.imul(blue, 132201) >> 20] << 16 | 255 << 24;
}

// Between chroma samples i - 1 and i lie the pixels 2i - 1 and 2i; outside, the outermost holds.
function fillColourRow(luma, from, width, crRow, cbRow, words, to) {
    const count = crRow.length;
    let redLeft = crRow[0];
    let blueLeft = cbRow[0];
    words[to] = pixelOf(luma[from], redLeft * 4, blueLeft * 4);
    let x = 1;
    for (let i = 1; i < count; i++, x += 2) {
        const red = crRow[i];
        const blue = cbRow[i];
        words[to + x] = pixelOf(luma[from + x], redLeft * 3 + red, blueLeft * 3 + blue);
        words[to + x + 1] = pixelOf(luma[from + x + 1], redLeft + red * 3, blueLeft + blue * 3);
        redLeft = red;
        blueLeft = blue;
    }
    if (x < width) words[to + x] = pixelOf(luma[from + x], redLeft * 4, blueLeft * 4);
}

function fillGreyRow(luma, from, width, words, to) {
    for (let x = 0; x < width; x++) words[to + x] = pixelOf(luma[from + x], 0, 0);
}

// Fills 4 * width * height bytes R, G, B, A of `pixels`, a Uint8ClampedArray or Uint8Array that begins at a whole word.
export function toRgba(movie, frame, pixels) {
    const {width, height} = movie;
    const {y: luma, cr, cb, alpha} = frame.planes;
    const words = new Uint32Array(pixels.buffer, pixels.byteOffset, width * height);
    const crRow = new Int32Array(width + 1 >> 1);
    const cbRow = new Int32Array(width + 1 >> 1);
    for (let y = 0; y < height; y++) {
        if (cr === null) {
            fillGreyRow(luma.samples, y * luma.width, width, words, y * width);
        } else {
            blendRows(cr, y, height, crRow);
            blendRows(cb, y, height, cbRow);
            fillColourRow(luma.samples, y * luma.width, width, crRow, cbRow, words, y * width);
        }
        if (alpha === null) continue;
        for (let x = 0, at = 4 * y * width + 3; x < width; x++, at += 4) pixels[at] = alpha.samples[y * alpha.width + x];
    }
    return pixels;
}
