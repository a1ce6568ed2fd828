// CoefficientCoderTest.cpp - residues with the least value of all, and with none. Whatever else is written is read back by
// the fuzz target `strings`, and by the reader in whole planes.
#include <gtest/gtest.h>

#include "StreamReading.h"
#include "bitstream/CoefficientCoder.h"

namespace vorn {
namespace {

// With a -128 the weights are negative from the second plane on: 75 = 64 + 8 + 2 + 1 goes the other way.
TEST(Residues, MinimumTurnsTheSignsBelow) {
    int8_t residual[64] = {-128, 75};
    const int expected[] = {0, -64, -56, -54, -53};
    for (uint32_t limit = 0; limit < 5; limit++) {
        TestStrings strings;
        int8_t shown[64];
        WriteResiduePayload(&strings.list, residual, limit, shown);
        EXPECT_EQ(shown[0], -128);
        EXPECT_EQ(shown[1], expected[limit]) << limit;
    }
    TestStrings strings; // all zero
    int8_t shown[64];
    residual[0] = residual[1] = 0;
    WriteResiduePayload(&strings.list, residual, 5, shown);
    EXPECT_EQ(strings.list.first->bits, 14u);
    EXPECT_TRUE(std::equal(shown, shown + 64, residual));
}

} // namespace
} // namespace vorn
