// PlaneErrors.h - how far the planes of a movie are from those of its source.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/Input.h"
#include "tools/MovieFile.h"

namespace vorn {

// Over the picture proper, without the padding.
struct PlaneError {
    uint64_t samples = 0;
    uint64_t absolute = 0; // sum of absolute differences
    uint64_t square = 0;   // sum of their squares
    uint32_t largest = 0;
};

struct MovieErrors {
    uint64_t frames = 0;
    PlaneError planes[reader::PLANES];
};

struct SourceComparison {
    std::string name; // of the movie
    const reader::Movie* movie = nullptr;
    uint32_t first = 0; // frames of the movie and of the source, which start together
    uint32_t end = 0;   // behind the last
    bool quiet = false; // no progress
    // Called with each frame: its number, the source's picture and the walk that has just decoded it. May be empty.
    std::function<void(uint32_t, const std::vector<uint8_t>&, const FrameWalk&)> look;
};

// Opens the source of a movie, whatever its frame rate. Throws a Failure if its pictures have another size.
// `name` is the movie's, here and below.
std::unique_ptr<FrameSource> OpenSource(const InputOptions& options, const std::string& name,
                                        const reader::Movie& movie);
// Reads the source's picture of a frame, or goes past it if `bgra` is null. Throws a Failure if it can't be had.
void ReadSource(FrameSource* source, const std::string& name, const reader::Movie& movie, uint32_t frame,
                uint8_t* bgra);
// Adds the errors of the frame that `walk` has just decoded. bgra: the source's picture of it.
void AddFrameErrors(const reader::Movie& movie, const std::vector<uint8_t>& bgra, const FrameWalk& walk,
                    MovieErrors* errors);
// Throws a Failure if the source ends too early, or a frame can't be decoded.
MovieErrors CompareWithSource(const SourceComparison& how, FrameSource* source);
// A table on standard output.
void PrintErrors(const reader::Movie& movie, const MovieErrors& errors);

} // namespace vorn
