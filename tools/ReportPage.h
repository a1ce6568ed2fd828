// ReportPage.h - what a report tells of a movie, and the page that shows it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "reader/Reader.h"
#include "tools/Output.h"

namespace vorn {

// The page with the player in it. Data, movie and title are put in place of @DATA@, @MOVIE@ and @TITLE@.
extern const char* const REPORT_PAGE;

// Kinds of blocks as the page tells them apart: the modes of 8x8 blocks, and all 16x16 blocks as one kind.
constexpr int REPORT_MODES = 10;

// One plane, frame by frame.
struct ReportPlane {
    uint32_t blocks = 0;                             // 8x8 positions
    std::vector<uint64_t> bytes;                     // size words included
    std::vector<uint32_t> modes[REPORT_MODES];       // 8x8 positions, by BlockMode; MODE_SCALED: those of 16x16 blocks
    std::vector<double> absoluteError, squaredError; // means over the picture proper; empty without a source
};

struct ReportPicture {
    uint32_t frame;
    std::vector<uint8_t> png; // of the source
};

struct Report {
    std::string title;
    double budget = 0; // bytes of a frame; 0: not known
    std::vector<uint8_t> keys;
    std::vector<std::vector<uint64_t>> trackBytes; // by track and frame, size words included
    std::array<ReportPlane, reader::PLANES> planes;
    std::vector<ReportPicture> pictures;
};

// Writes the page. Throws a Failure if the file can't be written.
void WriteReportPage(const reader::Movie& movie, const Report& report, OutputFile* file);

} // namespace vorn
