// PlaneEncoderTest.cpp - whole planes: what the cost model learns, and rooms that always suffice.
#include <gtest/gtest.h>

#include <algorithm>

#include "bitstream/PlaneEncoder.h"
#include "tests/bitstream/StreamReading.h"

namespace vorn {
namespace {

// A plane with all that its encoder needs; blocks start as MODE_SKIP.
struct Plane {
    uint32_t width, height, columns, rows;
    std::vector<uint8_t> source, reference, shown;
    std::vector<BlockRecord> records;
    std::vector<uint64_t> arena;
    TestStream stream;
    CostModel model = {};

    Plane(uint32_t w, uint32_t h)
        : width(w), height(h), columns(w / 8), rows(h / 8), source(w * h), reference(w * h), shown(w * h, 0xaa),
          records(columns * rows), arena(PlaneArenaBound(w, h) / 8 + 1),
          stream(static_cast<size_t>(PlaneStreamBound(w, h))) {}

    uint32_t Encode(uint32_t outputBytes, uint64_t arenaBytes) {
        return EncodePlane({shown.data(), stream.room.data(), outputBytes, reinterpret_cast<uint8_t*>(arena.data()),
                            arenaBytes, records.data(), source.data(), reference.data(), width, height, &model});
    }
    uint32_t Encode() { return Encode(static_cast<uint32_t>(stream.room.size()), PlaneArenaBound(width, height)); }
    BlockRecord& At(uint32_t row, uint32_t column) { return records[row * columns + column]; }
    void Choose(uint32_t row, uint32_t column, uint32_t mode, uint32_t payload = 0) {
        At(row, column).chosenMode = mode;
        At(row, column).chosenPayload = payload;
    }
};

// More than ten elements replace the newest history slot, ten leave it.
TEST(Planes, TotalsReachTheCostModel) {
    for (const uint32_t blocks : {10u, 11u}) {
        Plane plane(8 * blocks, 8);
        plane.model.colourCount = 1;
        for (uint32_t i = 0; i < blocks; i++) plane.Choose(0, i, MODE_FILL, 0x55);
        plane.Encode();
        const bool learned = blocks == 11;
        EXPECT_EQ(plane.model.type.denominator[0], learned ? 12u : 0u);
        EXPECT_EQ(plane.model.colourCount, learned ? 12u : 1u);
        EXPECT_EQ(plane.model.colourFeedback > 0, learned);
        EXPECT_EQ(plane.model.motion.denominator[0], 0u);
    }
}

// Noise in the dearest form of each mode, in halves of the blocks or 16x16 ones: the promised rooms suffice, and with less room
// the encoder says 0 and keeps inside.
TEST(Planes, StayWithinTheirBounds) {
    std::mt19937 random(99);
    const uint32_t payloads[10] = {0, 0, 0, 0, 127, 0, 0x55, 0, 200 * 256 + 100, 0};
    const uint32_t sizes[][2] = {{8, 8}, {8, 72}, {24, 40}, {64, 64}, {520, 16}};
    for (const auto& size : sizes) {
        for (uint32_t mix = 0; mix < 40; mix++) {
            SCOPED_TRACE(std::to_string(size[0]) + " mix " + std::to_string(mix));
            const uint32_t mode = mix % 10;
            const bool scaled = mode == MODE_SCALED;
            if (scaled && size[0] == 8) continue;
            Plane plane(size[0], size[1]);
            for (auto* samples : {&plane.source, &plane.reference})
                for (uint8_t& sample : *samples)
                    sample = static_cast<uint8_t>(mix < 20 ? random() : random() % 2 * 255);
            for (uint32_t i = 0; i < plane.records.size(); i++) {
                const uint32_t own = scaled || (mix / 10 % 2 != 0 && random() % 2 != 0) ? uint32_t{MODE_RAW} : mode;
                plane.Choose(i / plane.columns, i % plane.columns, own, payloads[own]);
            }
            for (uint32_t row = 0; scaled && row + 1 < plane.rows; row += 2) {
                for (uint32_t column = 0; column + 1 < plane.columns; column += 2) {
                    for (uint32_t i = 0; i < 4; i++)
                        plane.Choose(row + i / 2, column + i % 2, i == 1 ? uint32_t{MODE_RUN} : uint32_t{MODE_SCALED});
                }
            }
            const uint32_t bytes = plane.Encode();
            ASSERT_GT(bytes, 0u);
            ASSERT_EQ(bytes % 4, 0u);
            const std::vector<uint8_t> stream(plane.stream.room.begin(), plane.stream.room.begin() + bytes);
            for (const uint32_t less : {4u, bytes / 2, bytes - 8}) {
                std::fill(plane.stream.room.begin(), plane.stream.room.end(), uint8_t{0xcc});
                ASSERT_EQ(plane.Encode(bytes - less, PlaneArenaBound(size[0], size[1])), 0u) << less;
                ASSERT_TRUE(std::all_of(plane.stream.room.begin() + (bytes - less), plane.stream.room.end(),
                                        [](uint8_t byte) { return byte == 0xcc; }));
            }
            ASSERT_EQ(plane.Encode(bytes, PlaneArenaBound(size[0], size[1])), bytes);
            ASSERT_TRUE(std::equal(stream.begin(), stream.end(), plane.stream.room.begin()));
            const uint64_t arena = PlaneArenaBound(size[0], size[1]);
            for (const uint64_t less : {arena, arena * 3 / 4, arena / 2, arena / 4}) {
                const uint32_t got = plane.Encode(bytes, (arena - less) / 8 * 8);
                ASSERT_TRUE(got == 0 || (got == bytes && less != arena)) << less;
            }
        }
    }
}

} // namespace
} // namespace vorn
