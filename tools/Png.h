// Png.h - a picture as a PNG file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorn {

// bgra: height rows of width pixels, 4 bytes each. Without `alpha` the fourth byte is left out.
// Throws a Failure about `name`, for whose sake it is made.
std::vector<uint8_t> PngBytes(const std::string& name, const uint8_t* bgra, uint32_t width, uint32_t height,
                              bool alpha);

} // namespace vorn
