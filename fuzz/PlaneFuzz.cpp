// PlaneFuzz.cpp - any bytes as the stream of one plane. A plane that can be read doesn't depend on what lies behind it, and
// in a key frame not on the frame before.
#include <algorithm>

#include "fuzz/Fuzz.h"
#include "reader/Reader.h"

using namespace vorn;
using namespace vorn::reader;

namespace {

struct Result {
    bool whole;
    DecodedPlane plane;
    Violations violations;
};

Result Decode(const PlaneRequest& request) {
    Result result = {};
    result.whole = DecodePlane(request, &result.plane, &result.violations);
    const DecodedPlane& plane = result.plane;
    if (!result.whole && plane.samples.empty()) return result; // broke off ahead of the first block
    const size_t samples = size_t{request.width} * request.height;
    Require(plane.samples.size() == samples && plane.blocks.size() == samples / 64, "a plane has all its samples");
    Require(result.whole || result.violations.errors > 0, "a plane that breaks off has an error");
    if (!result.whole) return result;
    Require(plane.consumed <= request.stream.size && plane.consumed % 4 == 0,
            "a plane takes whole words that are there");
    uint64_t bits = plane.statistics.tableBits + plane.statistics.paddingBits;
    for (const uint32_t part : plane.statistics.bundleBits) bits += part;
    for (const uint32_t part : plane.statistics.payloadBits) bits += part;
    // The counts of 0 that end bundles are of no kind.
    Require(bits <= plane.consumed * 8 && bits + BUNDLES * 16 >= plane.consumed * 8, "every bit is of one kind");
    return result;
}

} // namespace

// The last three bytes choose; the others are the stream.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint32_t grey = size > 0 ? data[--size] : 0;
    const uint32_t sides = size > 0 ? data[--size] : 0;
    const uint32_t kind = size > 0 ? data[--size] : 0;
    PlaneRequest request;
    request.stream = {data, size};
    request.width = 8 * (1 + sides % 16);
    request.height = 8 * (1 + sides / 16 % 8);
    if (kind / 8 % 16 == 15) request.width = MOST_WIDTH; // counts have more bits in wide planes
    request.plane = static_cast<int>(kind % 4);
    request.keyFrame = kind / 4 % 2 != 0;
    std::vector<uint8_t> reference(size_t{request.width} * request.height);
    for (size_t i = 0; i < reference.size(); i++) reference[i] = static_cast<uint8_t>(grey * (i / 8) + i * i);
    request.reference = reference.data();
    const Result first = Decode(request);
    if (!first.whole) return 0;

    // The plane's own bytes alone, and on nothing if the frame needs nothing.
    const std::vector<uint8_t> own(data, data + first.plane.consumed);
    request.stream = {own.data(), own.size()};
    if (request.keyFrame && first.violations.errors == 0) request.reference = nullptr;
    const Result second = Decode(request);
    Require(second.whole && second.plane.samples == first.plane.samples, "the same plane comes out again");
    Require(second.violations.errors == first.violations.errors && second.violations.habits == first.violations.habits,
            "the same is found again");
    return 0;
}
