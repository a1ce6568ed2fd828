// BlockPayloads.cpp - what do a block's bit string and its share of the bundles say?
#include "reader/BlockPayloads.h"

#include <algorithm>

namespace vorn::reader {
namespace {

// ---- Runs ----------------------------------------------------------------------------------------------------------

struct Segment {
    bool flat;
    uint32_t length;
};

// The segment that the encoder cuts at `start`, below 63, of a sequence.
Segment CanonicalSegment(const uint8_t sequence[BLOCK_SAMPLES], uint32_t start) {
    const uint32_t limit = start + MAX_RUN;
    uint32_t end = start + 1;
    if (sequence[start] == sequence[end]) {
        while (end < BLOCK_SAMPLES && end < limit && sequence[end] == sequence[start]) end++;
        return {true, end - start};
    }
    while (end < 63 && end < limit && sequence[end] != sequence[end + 1]) end++;
    if (end == 63 && limit != 63) end = 64;
    return {false, end - start};
}

// ---- The ladder of nodes -------------------------------------------------------------------------------------------

// A node covers `Cover` coefficient numbers from `first` on. Kind 0 opens into a group of four and kind 1, kind 1 into
// four of kind 2, kind 2 into a group of four, kind 3 into its one coefficient.
struct Node {
    uint8_t first;
    uint8_t kind;
    bool gone;
};
constexpr uint8_t COVER[4] = {20, 16, 4, 1};

// An opened node holds a coefficient of the plane in which it opened; checked when the block is done.
struct Opening {
    uint8_t first, count, plane;
};

struct Ladder {
    // Nodes join in front (single coefficients, each at most once) and at the back (three for each kind 1).
    Node nodes[BLOCK_SAMPLES + 16];
    int front = BLOCK_SAMPLES, back = BLOCK_SAMPLES;
    Opening openings[BLOCK_SAMPLES + 32];
    int openingCount = 0;
    uint8_t planeOf[BLOCK_SAMPLES] = {}; // by coefficient number: the plane in which it came, 0: not yet

    void AddFront(uint32_t first, uint8_t kind) { nodes[--front] = {uint8_t(first), kind, false}; }
    void AddBack(uint32_t first, uint8_t kind) { nodes[back++] = {uint8_t(first), kind, false}; }
};

// Coefficients n to n + 3: a 0 flag sends one now, a 1 flag leaves it to a node of its own in front.
// `send` returns false to stop, and so do the functions that call it.
template <class Send> bool ReadGroup(BitSource& bits, Ladder& ladder, uint32_t first, Send send) {
    for (uint32_t n = first; n < first + 4; n++) {
        if (bits.TakeFlag()) {
            ladder.AddFront(n, 3);
        } else if (!send(n)) {
            return false;
        }
    }
    return true;
}

// One pass over the nodes, from the present front to the back, which moves on meanwhile.
template <class Send> bool WalkNodes(BitSource& bits, Ladder& ladder, uint32_t plane, Send send) {
    for (int i = ladder.front; i < ladder.back;) {
        Node& node = ladder.nodes[i];
        if (node.gone || !bits.TakeFlag()) {
            i++;
            continue;
        }
        const uint32_t n = node.first;
        ladder.openings[ladder.openingCount++] = {node.first, COVER[node.kind], uint8_t(plane)};
        if (node.kind == 0) {
            node = {uint8_t(n + 4), 1, false};
            if (!ReadGroup(bits, ladder, n, send)) return false;
        } else if (node.kind == 1) {
            node.kind = 2;
            for (uint32_t part = 4; part < 16; part += 4) ladder.AddBack(n + part, 2);
        } else {
            const bool single = node.kind == 3;
            node.gone = true;
            i++;
            if (!(single ? send(n) : ReadGroup(bits, ladder, n, send))) return false;
        }
    }
    return true;
}

// Nodes must have opened in the plane of their largest coefficient, and the head must name the highest plane in use.
// Openings in planes below `lowest` aren't judged: the string may end inside them.
void CheckLadder(Reporter& report, const Ladder& ladder, uint32_t planes, uint32_t lowest) {
    uint32_t highest = 0;
    for (const uint8_t plane : ladder.planeOf) highest = std::max<uint32_t>(highest, plane);
    if (highest != planes) report.Habit("The head of a bit string names more planes than it uses.");
    for (int i = 0; i < ladder.openingCount; i++) {
        const Opening& opening = ladder.openings[i];
        if (opening.plane < lowest) continue;
        const uint8_t* first = ladder.planeOf + opening.first;
        if (*std::max_element(first, first + opening.count) != opening.plane) {
            report.Habit("A node opens in a plane that none of its coefficients has.");
            return;
        }
    }
}

} // namespace

uint32_t ReadRunBlock(BitSource& bits, Reporter& report, Bundles* bundles, uint8_t samples[BLOCK_SAMPLES]) {
    const uint32_t scan = bits.Take(4);
    uint8_t sequence[BLOCK_SAMPLES];
    Segment segments[BLOCK_SAMPLES];
    uint32_t count = 0, at = 0;
    while (at < 63) {
        const uint32_t length = uint32_t(TakeElement(bundles, RUNS)) + 1;
        if (at + length > BLOCK_SAMPLES) throw StreamFault{"A segment reaches beyond the block's last sample."};
        const bool flat = bits.TakeFlag();
        const uint8_t colour = uint8_t(TakeElement(bundles, COLOURS));
        for (uint32_t i = 0; i < length; i++) {
            sequence[at + i] = flat || i == 0 ? colour : uint8_t(TakeElement(bundles, COLOURS));
        }
        segments[count++] = {flat, length};
        at += length;
    }
    if (at == 63) sequence[63] = uint8_t(TakeElement(bundles, COLOURS));

    at = 0;
    for (uint32_t i = 0; i < count; at += segments[i++].length) {
        const Segment expected = CanonicalSegment(sequence, at);
        if (expected.flat != segments[i].flat || expected.length != segments[i].length) {
            report.Habit("Segment " + std::to_string(i) + " of a run block isn't cut as the encoder does.");
            break;
        }
    }
    for (int i = 0; i < BLOCK_SAMPLES; i++) samples[SCAN_ORDER[scan][i]] = sequence[i];
    return scan;
}

void ReadPatternBlock(Reporter& report, Bundles* bundles, uint8_t samples[BLOCK_SAMPLES]) {
    uint32_t rows[BLOCK_SIDE];
    for (uint32_t& row : rows) row = uint32_t(TakeElement(bundles, PATTERNS));
    const uint8_t first = uint8_t(TakeElement(bundles, COLOURS));
    const uint8_t second = uint8_t(TakeElement(bundles, COLOURS));
    uint32_t seconds = 0;
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        const uint32_t bit = rows[i / BLOCK_SIDE] >> i % BLOCK_SIDE & 1;
        samples[i] = bit != 0 ? second : first;
        seconds += bit;
    }
    if (seconds > 32 || (seconds == 32 && first > second) || (seconds != 0 && first == second)) {
        report.Habit("The colours of a pattern block aren't in the encoder's order.");
    }
}

uint32_t ReadCoefficients(BitSource& bits, Reporter& report, int16_t coefficients[BLOCK_SAMPLES]) {
    std::fill(coefficients + 1, coefficients + BLOCK_SAMPLES, int16_t(0));
    Ladder ladder;
    for (const uint32_t first : {4u, 24u, 44u}) ladder.AddBack(first, 0);
    for (const uint32_t first : {1u, 2u, 3u}) ladder.AddBack(first, 3);
    const uint32_t planes = bits.Take(4);
    for (uint32_t plane = planes; plane > 0; plane--) {
        WalkNodes(bits, ladder, plane, [&](uint32_t n) {
            const int32_t magnitude = int32_t(1u << (plane - 1) | bits.Take(plane - 1));
            coefficients[WALK_ORDER[n]] = int16_t(bits.TakeFlag() ? -magnitude : magnitude);
            ladder.planeOf[n] = uint8_t(plane);
            return true;
        });
    }
    CheckLadder(report, ladder, planes, 1);
    return bits.Take(4);
}

uint32_t ReadResidue(BitSource& bits, Reporter& report, int8_t residual[BLOCK_SAMPLES]) {
    std::fill(residual, residual + BLOCK_SAMPLES, int8_t(0));
    Ladder ladder;
    for (const uint32_t first : {4u, 24u, 44u}) ladder.AddBack(first, 0);
    ladder.AddBack(0, 2);
    const uint32_t limit = bits.Take(7);
    const uint32_t planes = bits.Take(3) + 1;
    int8_t mask = int8_t(uint8_t(1u << (planes - 1))); // -128 with 8 planes, and -64, -32 and so on behind it
    uint8_t significant[BLOCK_SAMPLES];                // block positions, in the order in which they came
    uint32_t significantCount = 0, events = 0, plane = planes;
    bool stopped = false;
    for (; plane > 0; plane--, mask = int8_t(mask >> 1)) {
        for (uint32_t i = 0; i < significantCount && !stopped; i++) {
            if (!bits.TakeFlag()) continue;
            int8_t& value = residual[significant[i]];
            value = int8_t(value >= 0 ? value + mask : value - mask);
            stopped = events++ == limit;
        }
        stopped = stopped || !WalkNodes(bits, ladder, plane, [&](uint32_t n) {
                      const uint8_t position = WALK_ORDER[n];
                      residual[position] = int8_t(bits.TakeFlag() ? -mask : mask);
                      significant[significantCount++] = position;
                      ladder.planeOf[n] = uint8_t(plane);
                      return events++ != limit;
                  });
        if (stopped) break;
    }
    if (!stopped) report.Habit("The bit planes of a residue block end ahead of its truncation point.");
    CheckLadder(report, ladder, planes, stopped ? plane + 1 : 1);
    return limit;
}

} // namespace vorn::reader
