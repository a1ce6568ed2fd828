// PatternBlock.cpp - a block as two colours and a bit a sample: 0 for the colour that is stored first, which is never the
// rarer one. The bits of a row make a byte, the leftmost sample lowest.
#include "bitstream/RunPatternBlocks.h"

#include "blocks/PixelOps.h"

namespace vorn {

void WritePatternBlock(uint8_t* destination, int pitch, Bundle* colours, Bundle* patterns, const uint8_t* source,
                       uint32_t payload) {
    const auto low = static_cast<uint8_t>(payload);
    const auto high = static_cast<uint8_t>(payload >> 8);
    uint8_t masks[BLOCK_SIDE]; // bits of the samples that become the high colour
    int lowSamples = 0;
    for (int row = 0; row < BLOCK_SIDE; row++, source += pitch, destination += pitch) {
        uint32_t mask = 0;
        for (int column = 0; column < BLOCK_SIDE; column++) {
            const bool isLow = IsNearerLow(low, high, source[column]);
            destination[column] = isLow ? low : high;
            mask |= uint32_t{!isLow} << column;
            lowSamples += isLow;
        }
        masks[row] = static_cast<uint8_t>(mask);
    }
    const bool highFirst = lowSamples < BLOCK_SAMPLES / 2;
    for (const uint8_t mask : masks) AppendPattern(patterns, highFirst ? mask ^ 255u : mask);
    AppendColour(colours, highFirst ? high : low);
    AppendColour(colours, highFirst ? low : high);
}

} // namespace vorn
