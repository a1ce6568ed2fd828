// PlaneDecoder.cpp - from a plane stream to samples: the walk over block rows and what each kind of block does.
#include <cstring>

#include "reader/BlockPayloads.h"
#include "reader/InverseDct.h"

namespace vorn::reader {
namespace {

struct PlaneWalk {
    const PlaneRequest& request;
    DecodedPlane& plane;
    BitSource& bits;
    Reporter& report;
    Bundles bundles;
    uint32_t columns, rows; // of 8x8 blocks
    uint32_t column, row;   // of the block in hand

    uint8_t* Samples() { return plane.samples.data() + (size_t(row) * plane.width + column) * BLOCK_SIDE; }
    BlockInfo& Info() { return plane.blocks[size_t(row) * columns + column]; }
};

bool UsesReference(uint32_t mode) {
    return mode == MODE_SKIP || mode == MODE_MOTION || mode == MODE_RESIDUE || mode == MODE_INTER;
}

// The reference block displaced by the offsets, packed.
void LoadReference(const PlaneWalk& walk, int32_t offsetX, int32_t offsetY, uint8_t block[BLOCK_SAMPLES]) {
    const int32_t x = int32_t(walk.column) * BLOCK_SIDE + offsetX;
    const int32_t y = int32_t(walk.row) * BLOCK_SIDE + offsetY;
    if (x < 0 || y < 0 || uint32_t(x) + BLOCK_SIDE > walk.plane.width || uint32_t(y) + BLOCK_SIDE > walk.plane.height) {
        throw StreamFault{"Offsets " + std::to_string(offsetX) + ", " + std::to_string(offsetY) +
                          " lead out of the plane."};
    }
    if (walk.request.reference == nullptr) {
        memset(block, 0, BLOCK_SAMPLES);
        return;
    }
    const uint8_t* from = walk.request.reference + size_t(y) * walk.plane.width + size_t(x);
    for (int i = 0; i < BLOCK_SIDE; i++)
        memcpy(block + i * BLOCK_SIDE, from + size_t(i) * walk.plane.width, BLOCK_SIDE);
}

void TakeDisplaced(PlaneWalk& walk, uint8_t block[BLOCK_SAMPLES]) {
    BlockInfo& info = walk.Info();
    info.offsetX = int8_t(TakeElement(&walk.bundles, X_OFFSETS));
    info.offsetY = int8_t(TakeElement(&walk.bundles, Y_OFFSETS));
    LoadReference(walk, info.offsetX, info.offsetY, block);
}

// Counts the bits that `read` takes as a bit string of the given kind. Returns what it returns.
template <class Read> uint8_t CountPayload(PlaneWalk& walk, PayloadId payload, Read read) {
    const uint64_t start = walk.bits.Position();
    const uint32_t detail = read();
    walk.plane.statistics.payloadBits[payload] += uint32_t(walk.bits.Position() - start);
    return uint8_t(detail);
}

void AddModulo(uint8_t block[BLOCK_SAMPLES], const uint8_t addend[BLOCK_SAMPLES]) {
    for (int i = 0; i < BLOCK_SAMPLES; i++) block[i] = uint8_t(block[i] + addend[i]);
}

// The modes that 8x8 and half-scale blocks share.
void ReadOwnBlock(PlaneWalk& walk, uint32_t mode, uint8_t block[BLOCK_SAMPLES]) {
    BlockInfo& info = walk.Info();
    if (mode == MODE_RUN) {
        info.detail =
            CountPayload(walk, RUN_DATA, [&] { return ReadRunBlock(walk.bits, walk.report, &walk.bundles, block); });
    } else if (mode == MODE_INTRA) {
        int16_t coefficients[BLOCK_SAMPLES];
        coefficients[0] = int16_t(TakeElement(&walk.bundles, INTRA_DC));
        info.detail =
            CountPayload(walk, INTRA_DATA, [&] { return ReadCoefficients(walk.bits, walk.report, coefficients); });
        RestoreIntra(coefficients, info.detail, block);
    } else if (mode == MODE_FILL) {
        info.detail = uint8_t(TakeElement(&walk.bundles, COLOURS));
        memset(block, info.detail, BLOCK_SAMPLES);
    } else if (mode == MODE_PATTERN) {
        ReadPatternBlock(walk.report, &walk.bundles, block);
    } else if (mode == MODE_RAW) {
        for (int i = 0; i < BLOCK_SAMPLES; i++) block[i] = uint8_t(TakeElement(&walk.bundles, COLOURS));
    }
}

void ReadInterBlock(PlaneWalk& walk, uint8_t block[BLOCK_SAMPLES]) {
    uint8_t moved[BLOCK_SAMPLES];
    int16_t coefficients[BLOCK_SAMPLES];
    TakeDisplaced(walk, moved);
    coefficients[0] = int16_t(TakeElement(&walk.bundles, INTER_DC));
    walk.Info().detail =
        CountPayload(walk, INTER_DATA, [&] { return ReadCoefficients(walk.bits, walk.report, coefficients); });
    RestoreInter(coefficients, walk.Info().detail, block);
    AddModulo(block, moved);
}

void ReadResidueBlock(PlaneWalk& walk, uint8_t block[BLOCK_SAMPLES]) {
    int8_t residual[BLOCK_SAMPLES];
    TakeDisplaced(walk, block);
    walk.Info().detail =
        CountPayload(walk, RESIDUE_DATA, [&] { return ReadResidue(walk.bits, walk.report, residual); });
    for (int i = 0; i < BLOCK_SAMPLES; i++) block[i] = uint8_t(block[i] + residual[i]);
}

void ReadSmallBlock(PlaneWalk& walk, uint32_t mode) {
    uint8_t block[BLOCK_SAMPLES];
    switch (mode) {
    case MODE_SKIP:
        LoadReference(walk, 0, 0, block);
        break;
    case MODE_MOTION:
        TakeDisplaced(walk, block);
        break;
    case MODE_RESIDUE:
        ReadResidueBlock(walk, block);
        break;
    case MODE_INTER:
        ReadInterBlock(walk, block);
        break;
    default:
        ReadOwnBlock(walk, mode, block);
        break;
    }
    uint8_t* to = walk.Samples();
    for (int i = 0; i < BLOCK_SIDE; i++) memcpy(to + size_t(i) * walk.plane.width, block + i * BLOCK_SIDE, BLOCK_SIDE);
}

// The upper half of a 16x16 block: a half-scale block, doubled into 16x16 samples.
void ReadHighBlock(PlaneWalk& walk) {
    if (walk.column + 1 >= walk.columns || walk.row + 1 >= walk.rows) {
        throw StreamFault{"A 16x16 block reaches beyond the plane."};
    }
    const uint32_t mode = uint32_t(TakeElement(&walk.bundles, SUB_BLOCK_TYPES));
    const bool known =
        mode == MODE_RUN || mode == MODE_INTRA || mode == MODE_FILL || mode == MODE_PATTERN || mode == MODE_RAW;
    if (!known) throw StreamFault{"A 16x16 block has mode " + std::to_string(mode) + "."};
    BlockInfo& info = walk.Info();
    uint8_t block[BLOCK_SAMPLES];
    ReadOwnBlock(walk, mode, block);
    walk.plane.statistics.highModes[mode]++;
    info.highMode = uint8_t(mode);
    (&info)[1] = (&info)[walk.columns] = (&info)[walk.columns + 1] = info;
    uint8_t* to = walk.Samples();
    for (int y = 0; y < HIGH_SIDE; y++, to += walk.plane.width) {
        for (int x = 0; x < HIGH_SIDE; x++) to[x] = block[y / 2 * BLOCK_SIDE + x / 2];
    }
}

// A block of mode MODE_SCALED: on even rows it is read, on odd rows it stands already.
void ReadScaledBlock(PlaneWalk& walk) {
    if (walk.column % 2 != 0) throw StreamFault{"A 16x16 block begins in an odd column."};
    if (walk.request.plane == PLANE_ALPHA) walk.report.Habit("An alpha plane has a 16x16 block.");
    if (walk.row % 2 == 0) {
        walk.Info().mode = MODE_SCALED;
        ReadHighBlock(walk);
    } else if (walk.Info().mode != MODE_SCALED) {
        throw StreamFault{"A block goes on with a 16x16 block, and the row above has none there."};
    }
}

void ReadBlock(PlaneWalk& walk) {
    const uint32_t mode = uint32_t(TakeElement(&walk.bundles, BLOCK_TYPES));
    if (mode > MODE_RAW) throw StreamFault{"A block has mode " + std::to_string(mode) + "."};
    walk.plane.statistics.modes[mode]++;
    if (mode == MODE_SCALED) {
        ReadScaledBlock(walk);
        walk.column += 2;
        return;
    }
    if (walk.row % 2 != 0 && walk.Info().mode == MODE_SCALED) {
        throw StreamFault{"A 16x16 block isn't gone on with in its second row."};
    }
    if (walk.request.keyFrame && UsesReference(mode)) {
        walk.report.Error("A block of a key frame has mode " + std::to_string(mode) + ", which uses the frame before.");
    }
    walk.Info().mode = uint8_t(mode);
    ReadSmallBlock(walk, mode);
    walk.column++;
}

void ReadRows(PlaneWalk& walk) {
    for (walk.row = 0; walk.row < walk.rows; walk.row++) {
        walk.report.place.row = int(walk.row);
        walk.report.place.column = -1;
        ReadDueChunks(walk.bits, walk.report, &walk.bundles, &walk.plane.statistics);
        for (walk.column = 0; walk.column < walk.columns;) {
            walk.report.place.column = int(walk.column);
            ReadBlock(walk);
        }
    }
    walk.report.place.row = walk.report.place.column = -1;
}

// Fewer bits than the chunks of block types alone would take: a count and a fill for at most 2^bits - 1 elements each, and
// no element stands for more than two blocks. Keeps a short stream from claiming much memory.
void CheckLength(const PlaneWalk& walk) {
    const uint64_t countBits = walk.bundles.all[BLOCK_TYPES].countBits;
    const uint64_t chunks = walk.bits.Left() / (countBits + 5) + 1;
    if (uint64_t(walk.columns) * walk.rows > 2 * chunks << countBits) {
        throw StreamFault{"The stream is too short for a plane of " + std::to_string(walk.plane.width) + " x " +
                          std::to_string(walk.plane.height) + "."};
    }
}

void ReadPlane(PlaneWalk& walk) {
    const PlaneRequest& request = walk.request;
    if (request.width == 0 || request.height == 0 || request.width % BLOCK_SIDE != 0 ||
        request.height % BLOCK_SIDE != 0 || request.width > MOST_WIDTH ||
        uint64_t(request.width) * request.height > MOST_PLANE_SAMPLES) {
        throw StreamFault{"The plane's size isn't one that can be read."};
    }
    PrepareBundles(request.width, &walk.bundles);
    CheckLength(walk);
    ReadTables(walk.bits, &walk.bundles, &walk.plane.statistics);
    walk.plane.samples.assign(size_t(request.width) * request.height, 0);
    walk.plane.blocks.assign(size_t(walk.columns) * walk.rows, BlockInfo{});
    ReadRows(walk);
    CheckBundlesEmpty(walk.report, walk.bundles);
    walk.plane.statistics.paddingBits = TakePadding(walk.bits, walk.report);
}

} // namespace

bool DecodePlane(const PlaneRequest& request, DecodedPlane* plane, Violations* violations) {
    *plane = DecodedPlane();
    plane->width = request.width;
    plane->height = request.height;
    BitSource bits(request.stream);
    Reporter report = {violations, Violation{}, &bits};
    report.place.frame = request.frame;
    report.place.plane = request.plane;
    PlaneWalk walk = {request, *plane, bits, report, {}, request.width / BLOCK_SIDE, request.height / BLOCK_SIDE, 0, 0};
    bool whole = true;
    try {
        ReadPlane(walk);
    } catch (const StreamFault& fault) {
        report.Error(fault.text);
        whole = false;
    }
    plane->consumed = size_t((bits.Position() + 7) / 8);
    return whole;
}

} // namespace vorn::reader
