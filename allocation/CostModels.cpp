// CostModels.cpp - what does one element of the bitstream cost?
#include "allocation/CostModels.h"

#include <cmath>

#include "blocks/BlockRecord.h"
#include "numeric/PortableMath.h"

namespace vorn {

namespace {

constexpr uint32_t FIRST_DENOMINATOR = 10; // so that first numerators read as tenths of a bit an element
constexpr double LONGEST_CODE = 32.0;      // bits that the entropy estimate gives the rarest sample

struct HistoryDefaults {
    uint32_t lower, upper; // 1/256 bit
    uint32_t numerator[3]; // luma, chroma, alpha: bits of FIRST_DENOMINATOR elements
};

// clang-format off
constexpr HistoryDefaults TYPE_DEFAULTS     = {102,  1024,  {17, 12, 13}};
constexpr HistoryDefaults SUB_TYPE_DEFAULTS = {76,   1024,  {13, 10, 9}};
constexpr HistoryDefaults PATTERN_DEFAULTS  = {8192, 16384, {510, 550, 510}};
constexpr HistoryDefaults MOTION_DEFAULTS   = {1024, 2560,  {80, 90, 70}};
constexpr HistoryDefaults INTRA_DC_DEFAULTS = {1152, 2816,  {94, 98, 92}};
constexpr HistoryDefaults INTER_DC_DEFAULTS = {947,  2816,  {60, 65, 57}};
constexpr HistoryDefaults RUN_DEFAULTS      = {384,  1024,  {35, 35, 31}};
// clang-format on
constexpr uint32_t COLOUR_LOWER = 640; // 1/256 bit
constexpr uint32_t COLOUR_UPPER = 2048;

void SetHistory(CostHistory* history, const HistoryDefaults& defaults, PlaneKind kind) {
    history->lower = defaults.lower;
    history->upper = defaults.upper;
    for (int i = 0; i < 4; i++) {
        history->numerator[i] = defaults.numerator[static_cast<int>(kind)];
        history->denominator[i] = FIRST_DENOMINATOR;
    }
}

// The mean over the last four frames, weighted by their elements. Entry 0 stays, for the case that the coming frame has
// too few elements to replace it.
uint32_t RefreshEstimate(CostHistory* history) {
    uint32_t bits = 0;
    uint32_t elements = 0;
    for (int i = 0; i < 4; i++) {
        bits += history->numerator[i];
        elements += history->denominator[i];
    }
    for (int i = 3; i > 0; i--) {
        history->numerator[i] = history->numerator[i - 1];
        history->denominator[i] = history->denominator[i - 1];
    }
    const uint32_t estimate = bits * 256 / elements;
    if (estimate < history->lower) return history->lower;
    return estimate > history->upper ? history->upper : estimate;
}

} // namespace

void SetCostModelDefaults(CostModel* model, PlaneKind kind) {
    *model = CostModel{};
    SetHistory(&model->type, TYPE_DEFAULTS, kind);
    SetHistory(&model->subType, SUB_TYPE_DEFAULTS, kind);
    SetHistory(&model->pattern, PATTERN_DEFAULTS, kind);
    SetHistory(&model->motion, MOTION_DEFAULTS, kind);
    SetHistory(&model->intraDc, INTRA_DC_DEFAULTS, kind);
    SetHistory(&model->interDc, INTER_DC_DEFAULTS, kind);
    SetHistory(&model->run, RUN_DEFAULTS, kind);
    model->colourLower = COLOUR_LOWER;
    model->colourUpper = COLOUR_UPPER;
}

void RefreshCostModel(CostModel* model) {
    model->typeBits = RefreshEstimate(&model->type);
    model->subTypeBits = RefreshEstimate(&model->subType);
    model->patternBits = RefreshEstimate(&model->pattern);
    model->motionBits = RefreshEstimate(&model->motion);
    model->intraDcBits = RefreshEstimate(&model->intraDc);
    model->interDcBits = RefreshEstimate(&model->interDc);
    model->runBits = RefreshEstimate(&model->run);
}

void PrepareCostModel(CostModel* model, const uint8_t* sourcePlane, const uint8_t* referencePlane, uint32_t width,
                      uint32_t height) {
    SampleTable table;
    CountColours(&table, sourcePlane, referencePlane, static_cast<uint64_t>(width) * height);
    uint32_t raw = model->colourLower;
    if (table.total != 0) raw = EstimateEntropyBits(table) * COST_UNITS_PER_BYTE / table.total;

    const int32_t corrected = static_cast<int32_t>(static_cast<uint32_t>(model->colourFeedback) + raw);
    const int32_t lower = static_cast<int32_t>(model->colourLower);
    const int32_t upper = static_cast<int32_t>(model->colourUpper);
    model->colourBits = static_cast<uint32_t>(corrected < lower ? lower : corrected > upper ? upper : corrected);
    model->colourCorrection = static_cast<int32_t>(model->colourBits - raw);
    // A ratio equal to the estimate, in case the plane has too few colours to replace it.
    model->colourFeedback = static_cast<int32_t>(model->colourBits >> 8);
    model->colourCount = 1;
}

void ApplyColourFeedback(CostModel* model) {
    const uint32_t measured = (static_cast<uint32_t>(model->colourFeedback) << 8) / model->colourCount;
    model->colourFeedback =
        static_cast<int32_t>(measured - model->colourBits + static_cast<uint32_t>(model->colourCorrection));
}

uint32_t EstimateEntropyBits(const SampleTable& table) {
    double bits = 0.0;
    for (int i = 0; i < 256; i++) {
        if (table.counts[i] == 0) continue;
        const double count = table.counts[i];
        double length = -Log2(count / table.total);
        if (length > LONGEST_CODE) length = LONGEST_CODE;
        bits += count * length;
    }
    return static_cast<uint32_t>(std::nearbyint(bits * 0.125));
}

} // namespace vorn
