// tables.js - numbers of the format: block modes, code trees, scan orders, quantisers.

export const MODE_NAMES = ['skip', 'scaled', 'motion', 'run', 'residue', 'intra', 'fill', 'inter', 'pattern', 'raw'];
export const [MODE_SKIP, MODE_SCALED, MODE_MOTION, MODE_RUN, MODE_RESIDUE, MODE_INTRA, MODE_FILL, MODE_INTER, MODE_PATTERN,
    MODE_RAW] = MODE_NAMES.keys();

// Lengths and words of entries 0 to 15 of the 16 fixed prefix codes, a row a code; words as two hexadecimal digits each,
// sent lowest bit first.
export const TREE_LENGTHS = [
    '4444444444444444', '1455555555555555', '2244555555555555', '2334445555555555',
    '3333444455555555', '3344444444445555', '2444444444555555', '1335556666666666',
    '1255666666666666', '1344555566666666', '2234455555666666', '1444455555666666',
    '2225556666666666', '1333666677777777', '1333567777777777', '2233366666777777',
].map((row) => Array.from(row, Number));
export const TREE_WORDS = [
    '000102030405060708090a0b0c0d0e0f', '0001030507090b0d0f131517191b1d1f',
    '0002010905150d1d03130b1b07170f1f', '0002060109050d1d03130b1b07170f1f',
    '000402060109050d03130b1b07170f1f', '0004020a060e0109050d030b07170f1f',
    '00020a060e0109050d030b1b07170f1f', '00010503130b1b3b072717370f2f1f3f',
    '000103130b2b1b3b072717370f2f1f3f', '0001050d03130b1b072717370f2f1f3f',
    '000201050d03130b1b0717370f2f1f3f', '000109050d03130b1b0717370f2f1f3f',
    '00020103130b1b3b072717370f2f1f3f', '00010503072717370f4f2f6f1f5f3f7f',
    '00010503071737770f4f2f6f1f5f3f7f', '0002010503072717370f2f6f1f5f3f7f',
].map((row) => row.match(/../g).map((word) => parseInt(word, 16)));

// Positions in a block, 8 * row + column, a character each.
const POSITIONS = '0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_';
const positionsOf = (text) => Uint8Array.from(text, (character) => POSITIONS.indexOf(character));
// Entry k: where coefficient k of DCT and residue blocks stands.
export const WALK_ORDER = positionsOf('018923ab45cd67efklstmnuvghopwxEFyzGHMNUVOPWXijqrABIJCDKLQRYZST-_');
// Row s, entry i: where sample i of scan order s of a run block stands.
export const SCAN_ORDERS = [
    '08gowEMUVNFxph912aiqyGOWXPHzrjb34cksAIQYZRJBtld56emuCKS-_TLDvnf7',
    'XWVUMNOPHGFEwxyzrqpoghijba9801234567fedcklmnvutsABCDLKJIQRST_-ZY',
    'phiqrjb32a9108gowEMUVNFGOWXPHzyxtlmuvnf76ed54cksAIQYZRJKS-_TLDCB',
    '3b2a1908gohpiqjrzHyGxFwEMUNVOWPXYQZR-S_TLDKCJBIAsktlumvnf7e6d5c4',
    'opgh890123abijqrstklcd4567efmnuvDCLKTS_-ZYRQJIBAzyHGPOXWVUNMFExw',
    '012389abghijopqrwxyzEFGHMNOPUVWX4567cdefklmnstuvABCDIJKLQRSTYZ-_',
    '67fed5c43b2a9108gohpiqjrksltmunvDLCKBJAIzHyGxFwENMUVWOXPYQZRST_-',
    '01234567fedcba98ghijklmnvutsrqpowxyzABCDLKJIHGFEMNOPQRST_-ZYXWVU',
    '089123baijrqphgowEFxyzHGONMUVWXPQYZ-_TSRJIABCKLDvnmutskldc456ef7',
    'opgh890123abijqrstklcd4567efmnuvCDKLST-_YZQRIJAByzGHOPWXUVMNEFwx',
    '08192a3bjriqhpgowExFyGzHPXOWNVMUYQZR-S_TLDKCJBIAvnumtlskc4d5e6f7',
    '08gopqrjb3219hia4ckstuvnf765dlmeAIQYZ-_TLDCBJRSKwEMUVWXPHzyxFNOG',
    '089123bajrqihgopxwEFGyzHPXWONVUMQYZRS-_TLDCKJIABtsklmuvnef765dc4',
    'og80123bjrqpha9iskc4567fnvutledmYQIABCDLT_-ZRKJSUMEwxyzHPXWVNGFO',
    '08912aihgopqrjb376efnmld54ckstuv_-STLKJRZYQIABCDUMNVWOGFEwxyzHPX',
    '0189ghopwxEFMNUVWXOPGHyzqrijab2345cdklstABIJQRYZ-_STKLCDuvmnef67',
].map(positionsOf);

// Dequantisers, 16 rows of 64. Each value is taken to single precision first, then to the nearest integer, halves up.
const STEPS = [1, 4 / 3, 5 / 3, 2, 8 / 3, 3.5, 4, 5, 6, 8, 12, 17, 22, 28, 34, 44];
const SCALES = [
    1.0, 1.38703984532214746182, 1.30656296487637652786, 1.17587560241935871697,
    1.0, 0.78569495838710218128, 0.54119610014619698440, 0.27589937928294301234,
];
const INTRA_WEIGHTS = [
    16, 16, 16, 19, 16, 19, 22, 22, 22, 22, 26, 24, 26, 22, 22, 27, 27, 27, 26, 26, 26, 29, 29, 29, 27, 27, 27, 26, 34, 34, 34, 29,
    29, 29, 27, 27, 37, 34, 34, 32, 32, 29, 29, 38, 37, 35, 35, 34, 35, 40, 40, 40, 38, 38, 48, 48, 46, 46, 58, 56, 56, 69, 69, 83,
];
const INTER_WEIGHTS = [
    16, 17, 17, 18, 18, 18, 19, 19, 19, 19, 20, 20, 20, 20, 20, 21, 21, 21, 21, 21, 21, 22, 22, 22, 22, 22, 22, 22, 23, 23, 23, 23,
    23, 23, 23, 23, 24, 24, 24, 25, 24, 24, 24, 25, 26, 26, 26, 26, 25, 27, 27, 27, 27, 27, 28, 28, 28, 28, 30, 30, 30, 31, 31, 33,
];
function makeDequantisers(weights) {
    return STEPS.map((step) => Int32Array.from(weights, (weight, i) => {
        const scale = SCALES[i >> 3] * SCALES[i & 7];
        return Math.floor(Math.fround(65536 * step * (weight / 16) * scale) + 0.5);
    }));
}
export const INTRA_DEQUANTISERS = makeDequantisers(INTRA_WEIGHTS);
export const INTER_DEQUANTISERS = makeDequantisers(INTER_WEIGHTS);
