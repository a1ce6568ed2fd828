// CoinTest.cpp - a coin in place of the allocator: whatever valid way of coding is chosen for each block, the reader gets
// back what the plane encoder says it shows, and each candidate's error is the one that its list promised.
#include <bit>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "allocation/Allocation.h"
#include "allocation/CostModels.h"
#include "analysis/Analysis.h"
#include "bitstream/PlaneEncoder.h"
#include "platform/Workers.h"
#include "reader/Reader.h"
#include "tests/blocks/TestBlocks.h"

using namespace vorn;

namespace {

// Each makes four frames. Sanitizers take ten to fifty times as long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr uint32_t SEEDS = 80;
#else
constexpr uint32_t SEEDS = 800;
#endif
constexpr uint32_t NO_PROMISE = UINT32_MAX; // a candidate that no list holds promises no error

struct Coin {
    std::mt19937 random;
    // 0 to count - 1
    uint32_t Draw(uint32_t count) { return static_cast<uint32_t>(random()) % count; }
    int Between(int low, int high) { return low + static_cast<int>(Draw(static_cast<uint32_t>(high - low + 1))); }
};

// A plane from frame to frame.
struct CoinPlane {
    uint32_t width, height;
    std::vector<uint8_t> source, reference, shown;
    std::vector<BlockRecord> records, high;
    std::vector<uint16_t> scratch;
    std::vector<uint64_t> arena;
    std::vector<uint8_t> stream;
    CostModel model = {};
    int id;
    bool keyFrame;

    CoinPlane(uint32_t w, uint32_t h, int plane)
        : width(w), height(h), source(size_t{w} * h), reference(size_t{w} * h), shown(size_t{w} * h),
          records(size_t{w} * h / 64), high(size_t{w / 16} * (h / 16)),
          scratch(static_cast<size_t>(MotionScratchWords(w, h))),
          arena(static_cast<size_t>(PlaneArenaBound(w, h) / 8 + 1)),
          stream(static_cast<size_t>(PlaneStreamBound(w, h))), id(plane) {
        SetCostModelDefaults(&model, plane == reader::PLANE_Y       ? PlaneKind::LUMA
                                     : plane == reader::PLANE_ALPHA ? PlaneKind::ALPHA
                                                                    : PlaneKind::CHROMA);
    }
    uint32_t Columns() const { return width / 8; }
    uint32_t Rows() const { return height / 8; }
};

// Draws the next source: one of the contents that all tests share, the reference moved about, or the reference with few
// changes.
void DrawSource(CoinPlane* plane, uint32_t style, Coin* coin) {
    const int width = static_cast<int>(plane->width), height = static_cast<int>(plane->height);
    if (style < CONTENTS) {
        Noise noise = {static_cast<uint32_t>(coin->random())};
        FillSamples(plane->source.data(), width, height, static_cast<Content>(style), &noise);
        return;
    }
    const int right = coin->Between(-15, 15), down = coin->Between(-15, 15);
    for (int y = 0; y < height; y++) {
        for (int x = 0; x < width; x++) {
            const int movedX = std::clamp(x + right, 0, width - 1), movedY = std::clamp(y + down, 0, height - 1);
            const size_t at = static_cast<size_t>(y * width + x);
            const size_t from = style == CONTENTS ? static_cast<size_t>(movedY * width + movedX) : at;
            const int noise = coin->Between(0, 255);
            const int change = style == CONTENTS ? noise % 3 - 1 : noise < 10 ? noise : 0;
            plane->source[at] = static_cast<uint8_t>(plane->reference[from] + change);
        }
    }
}

// How many changes a decoder of this residual would see, one for each bit of each magnitude; at most what a payload can name.
uint32_t CountResidueEvents(const CoinPlane& plane, const BlockRecord& record, uint32_t x, uint32_t y) {
    uint32_t count = 0;
    for (uint32_t i = 0; i < BLOCK_SAMPLES; i++) {
        const auto at = static_cast<int>((y + i / 8) * plane.width + x + i % 8);
        const int from = at + record.offsetY * static_cast<int>(plane.width) + record.offsetX;
        const auto left =
            static_cast<int8_t>(plane.source[static_cast<size_t>(at)] - plane.reference[static_cast<size_t>(from)]);
        count += static_cast<uint32_t>(std::popcount(static_cast<uint32_t>(std::abs(left))));
    }
    return std::min(count, uint32_t{MAX_RESIDUE_STEPS});
}

// Payloads of the modes that code samples alone.
uint32_t DrawPayload(uint32_t mode, Coin* coin) {
    const uint32_t low = coin->Draw(255);
    switch (mode) {
    case MODE_RUN:
        return coin->Draw(SCAN_ORDERS) << 8 | coin->Draw(256);
    case MODE_PATTERN:
        return (low + 1 + coin->Draw(255 - low)) << 8 | low;
    case MODE_FILL:
        return coin->Draw(256);
    case MODE_INTRA:
    case MODE_INTER:
        return coin->Draw(QUANTISERS);
    default:
        return 0;
    }
}

void ChooseEntry(BlockRecord* record, uint32_t entry) {
    record->chosenMode = record->modes[entry];
    record->chosenPayload = record->payloads[entry];
    record->chosenBits = record->bits[entry];
    record->chosenError = record->errors[entry];
}

// Any mode with any payload and any offsets that stay inside the reference.
void ChooseAnything(const CoinPlane& plane, BlockRecord* record, uint32_t column, uint32_t row, Coin* coin) {
    constexpr uint32_t ON_KEY_FRAMES[] = {MODE_RUN, MODE_INTRA, MODE_FILL, MODE_PATTERN, MODE_RAW};
    constexpr uint32_t ELSEWHERE[] = {MODE_SKIP, MODE_MOTION, MODE_RESIDUE, MODE_INTER};
    const uint32_t drawn = coin->Draw(plane.keyFrame ? 5 : 9);
    record->chosenMode = drawn < 5 ? ON_KEY_FRAMES[drawn] : ELSEWHERE[drawn - 5];
    record->chosenPayload = DrawPayload(record->chosenMode, coin);
    record->chosenError = NO_PROMISE;
    const int x = static_cast<int>(column) * 8, y = static_cast<int>(row) * 8;
    record->offsetX =
        static_cast<int8_t>(coin->Between(std::max(-15, -x), std::min(15, static_cast<int>(plane.width) - 8 - x)));
    record->offsetY =
        static_cast<int8_t>(coin->Between(std::max(-15, -y), std::min(15, static_cast<int>(plane.height) - 8 - y)));
    if (record->chosenMode != MODE_RESIDUE) return;
    const uint32_t events = CountResidueEvents(plane, *record, column * 8, row * 8);
    if (events == 0)
        record->chosenMode = MODE_MOTION;
    else
        record->chosenPayload = coin->Draw(events);
}

// Some 16x16 blocks: an entry of the list, or any mode that has a half-scale form.
void ChooseHighBlocks(CoinPlane* plane, Coin* coin) {
    constexpr uint32_t MODES[] = {MODE_RUN, MODE_INTRA, MODE_FILL, MODE_PATTERN, MODE_RAW};
    size_t number = 0;
    for (uint32_t row = 0; row + 1 < plane->Rows(); row += 2) {
        for (uint32_t column = 0; column + 1 < plane->Columns(); column += 2) {
            BlockRecord* high = &plane->high[number++];
            if (coin->Draw(2) == 0) continue;
            if (high->count != 0 && coin->Draw(2) == 0) {
                ChooseEntry(high, coin->Draw(static_cast<uint32_t>(high->count)));
            } else {
                high->chosenMode = MODES[coin->Draw(5)];
                high->chosenPayload = DrawPayload(high->chosenMode, coin);
                high->chosenError = NO_PROMISE;
            }
            BlockRecord* at = &plane->records[row * plane->Columns() + column];
            MarkScaled(*high, at, at + 1, at + plane->Columns(), at + plane->Columns() + 1);
        }
    }
}

void ChooseBlocks(CoinPlane* plane, Coin* coin) {
    const uint32_t fromLists = coin->Draw(4); // of three
    for (uint32_t row = 0; row < plane->Rows(); row++) {
        for (uint32_t column = 0; column < plane->Columns(); column++) {
            BlockRecord* record = &plane->records[row * plane->Columns() + column];
            ASSERT_GE(record->count, 1);
            if (coin->Draw(3) < fromLists)
                ChooseEntry(record, coin->Draw(static_cast<uint32_t>(record->count)));
            else
                ChooseAnything(*plane, record, column, row, coin);
        }
    }
    // Alpha has no 16x16 blocks.
    if (plane->id != reader::PLANE_ALPHA && coin->Draw(2) != 0) ChooseHighBlocks(plane, coin);
}

uint32_t ErrorOf(const CoinPlane& plane, const std::vector<uint8_t>& shown, uint32_t column, uint32_t row,
                 uint32_t side) {
    uint32_t error = 0;
    for (uint32_t i = 0; i < side * side; i++) {
        const size_t at = size_t{row * 8 + i / side} * plane.width + column * 8 + i % side;
        error += static_cast<uint32_t>(std::abs(plane.source[at] - shown[at]));
    }
    return error;
}

// The reader's blocks against the choices, and the errors of those that come from a list.
void CompareBlocks(const CoinPlane& plane, const reader::DecodedPlane& decoded) {
    for (size_t at = 0; at < plane.records.size(); at++) {
        const BlockRecord& record = plane.records[at];
        ASSERT_EQ(decoded.blocks[at].mode, record.chosenMode);
        uint32_t mode = record.chosenMode, side = 8;
        if (mode == MODE_SCALED) {
            mode = plane.records[at + 1].chosenMode; // MODE_SCALED in the lower half
            if (mode != MODE_SCALED) {
                ASSERT_EQ(decoded.blocks[at].highMode, mode);
            }
            side = 16;
        }
        if (mode != MODE_SCALED && record.chosenError != NO_PROMISE) {
            const auto column = static_cast<uint32_t>(at) % plane.Columns(),
                       row = static_cast<uint32_t>(at) / plane.Columns();
            ASSERT_EQ(ErrorOf(plane, decoded.samples, column, row, side), record.chosenError)
                << side << " wide, mode " << mode << " payload " << record.chosenPayload;
        }
        if (side == 16) at++;
    }
}

void CheckFrame(CoinPlane* plane, Coin* coin) {
    RefreshCostModel(&plane->model);
    const uint8_t* reference = plane->keyFrame ? nullptr : plane->reference.data();
    PrepareCostModel(&plane->model, plane->source.data(), reference, plane->width, plane->height);
    AnalysePlane(plane->records.data(), plane->source.data(), reference, plane->width, plane->height, plane->keyFrame,
                 &plane->model, plane->scratch.data());
    AnalyseHighPlane(plane->high.data(), plane->source.data(), reference, plane->width, plane->height, plane->keyFrame,
                     &plane->model);
    ChooseBlocks(plane, coin);
    const uint32_t bytes =
        EncodePlane({plane->shown.data(), plane->stream.data(), static_cast<uint32_t>(plane->stream.size()),
                     reinterpret_cast<uint8_t*>(plane->arena.data()), PlaneArenaBound(plane->width, plane->height),
                     plane->records.data(), plane->source.data(), plane->reference.data(), plane->width, plane->height,
                     &plane->model});
    ASSERT_NE(bytes, 0u);
    ApplyColourFeedback(&plane->model);

    reader::PlaneRequest request;
    request.stream = {plane->stream.data(), bytes};
    request.width = plane->width;
    request.height = plane->height;
    request.reference = plane->reference.data();
    request.keyFrame = plane->keyFrame;
    request.plane = plane->id;
    reader::DecodedPlane decoded;
    reader::Violations violations;
    ASSERT_TRUE(reader::DecodePlane(request, &decoded, &violations));
    ASSERT_TRUE(violations.list.empty()) << reader::DescribeViolation(violations.list[0]);
    ASSERT_EQ(decoded.consumed, bytes);
    ASSERT_TRUE(decoded.samples == plane->shown);
    CompareBlocks(*plane, decoded);
}

} // namespace

TEST(Coin, AnyValidChoiceReadsBack) {
    const uint32_t workers = ExchangeWorkerCount(1); // starting threads would take longer than the planes
    for (uint32_t seed = 1; seed <= SEEDS && !testing::Test::HasFatalFailure(); seed++) {
        Coin coin = {std::mt19937(seed)};
        constexpr int IDS[] = {reader::PLANE_Y, reader::PLANE_CR, reader::PLANE_CB, reader::PLANE_ALPHA};
        CoinPlane plane(8 * (1 + coin.Draw(10)), 8 * (1 + coin.Draw(10)), IDS[coin.Draw(4)]);
        for (int frame = 0; frame < 4 && !testing::Test::HasFatalFailure(); frame++) {
            const uint32_t style = coin.Draw(CONTENTS + 2);
            SCOPED_TRACE("seed " + std::to_string(seed) + " frame " + std::to_string(frame) + " style " +
                         std::to_string(style) + ", " + std::to_string(plane.width) + " x " +
                         std::to_string(plane.height) + ", plane " + std::to_string(plane.id));
            plane.keyFrame = frame == 0 || coin.Draw(8) == 0;
            DrawSource(&plane, style, &coin);
            CheckFrame(&plane, &coin);
            plane.reference = plane.shown;
        }
    }
    ExchangeWorkerCount(workers);
}
