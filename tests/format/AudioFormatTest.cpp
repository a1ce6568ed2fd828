// AudioFormatTest.cpp - sizes and bands of coded sound, known otherwise.
#include <gtest/gtest.h>

#include "format/AudioFormat.h"

namespace vorn {
namespace {

// Two channels in one transform are samples at twice the rate.
TEST(AudioShapes, SizesStepAt22050And44100) {
    const struct {
        uint32_t rate, channels;
        bool dct;
        uint32_t size, transforms, block, overlap, bands;
    } rows[] = {
        {44100, 2, true, 2048, 2, 8192, 512, 25},  {44100, 2, false, 4096, 1, 8192, 512, 25},
        {44099, 1, true, 1024, 1, 2048, 128, 25},  {22050, 1, false, 1024, 1, 2048, 128, 23},
        {22049, 2, false, 1024, 1, 2048, 128, 25}, {11025, 1, true, 512, 1, 1024, 64, 20},
    };
    for (const auto& row : rows) {
        const AudioShape shape = ShapeOfAudio(row.rate, row.channels, row.dct);
        EXPECT_EQ(shape.transformSize, row.size);
        EXPECT_EQ(shape.transformCount, row.transforms);
        EXPECT_EQ(shape.blockBytes, row.block);
        EXPECT_EQ(shape.overlapBytes, row.overlap);
        EXPECT_EQ(shape.bandCount, row.bands) << row.rate;
    }
    EXPECT_EQ(ShapeOfAudio(8000, 1, true).bandEdges[17], 236u);
    EXPECT_EQ(ShapeOfAudio(8000, 1, true).bandEdges[18], 256u);
    const uint32_t edges[26] = {0,  4,   9,   13,  18,  23,  29,  35,  42,  50,  58,  68,  79,
                                92, 107, 125, 146, 171, 204, 246, 297, 357, 441, 557, 719, 1024};
    for (int i = 0; i < 26; i++) EXPECT_EQ(ShapeOfAudio(44100, 2, true).bandEdges[i], edges[i]) << i;
}

} // namespace
} // namespace vorn
