// MovieFile.cpp - can a file be read as a movie, is it a complete one, and what do its frames show?
#include "tools/MovieFile.h"

#include <cstddef>
#include <cstdio>
#include <optional>

#include <sys/stat.h>

#include "format/MovieLayout.h"
#include "tools/Exit.h"
#include "tools/Input.h"
#include "tools/Text.h"
#include "tools/Words.h"

namespace vorn {

namespace {

// How many frames a complete movie counts.
std::optional<uint32_t> FramesOf(const std::string& fileName) {
    uint8_t head[HEADER_BYTES] = {};
    struct stat info = {};
    FILE* file = std::fopen(fileName.c_str(), "rb");
    const bool read =
        file != nullptr && std::fread(head, 1, sizeof head, file) == sizeof head && fstat(fileno(file), &info) == 0;
    if (file != nullptr) std::fclose(file);
    const uint64_t size = uint64_t(WordAt(head + offsetof(VornFileHeader, fileSize))) + 8;
    const bool good = read && IsMovieMagic(WordAt(head)) && size == static_cast<uint64_t>(info.st_size);
    return good ? std::optional<uint32_t>(WordAt(head + offsetof(VornFileHeader, frames))) : std::nullopt;
}

} // namespace

bool MovieStands(const std::string& file) {
    return FramesOf(file).has_value();
}

uint32_t CheckMovie(const std::string& file, int64_t frames, const std::string& name) {
    const std::optional<uint32_t> found = FramesOf(file);
    if (!found || (frames >= 0 && *found != frames))
        throw Failure{EXIT_FAILED, fmt::format("{}: could not be written completely (disk full?)", name)};
    return *found;
}

std::string WhatIsWrong(const reader::Violations& violations) {
    for (const reader::Violation& violation : violations.list)
        if (violation.severity == reader::SEVERITY_ERROR) return DescribeViolation(violation);
    return violations.list.empty() ? "can't be read" : DescribeViolation(violations.list.back());
}

void OpenMovieFile(const std::string& name, bool growing, reader::Movie* movie, reader::Violations* violations) {
    if (name == "-") throw Failure{EXIT_USAGE, "-: a movie can't be read from a pipe; name a file"};
    struct stat info = {};
    if (stat(name.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode))
        throw Failure{EXIT_FAILED, fmt::format("{}: is a device or a pipe; a movie is read from a plain file", name)};
    { const ByteInput probe(name); } // says by name what can't be opened
    reader::MovieOptions options;
    options.growing = growing;
    if (!reader::OpenMovie(name, options, movie, violations))
        throw Failure{EXIT_DAMAGED, fmt::format("{}: {}", name, WhatIsWrong(*violations))};
}

void PictureSize(const reader::Movie& movie, int plane, uint32_t* width, uint32_t* height) {
    const bool chroma = plane == reader::PLANE_CR || plane == reader::PLANE_CB;
    *width = chroma ? (movie.header.width + 1) / 2 : movie.header.width;
    *height = chroma ? (movie.header.height + 1) / 2 : movie.header.height;
}

FrameWalk::FrameWalk(const std::string& fileName, const reader::Movie& theMovie, uint32_t first)
    : name(fileName), movie(theMovie), number(first) {
    while (number > 0 && (movie.index[number] & KEY_FRAME_BIT) == 0) number--;
    while (number < first) DecodeOne();
}

void FrameWalk::DecodeOne() {
    reader::Violations violations;
    reader::Frame frame;
    if (!ReadFrame(movie, number, &frame, &violations) || !DecodeFrame(movie, frame, &decoder, &violations))
        throw Failure{EXIT_DAMAGED, fmt::format("{}: {}", name, WhatIsWrong(violations))};
    number++;
}

void FrameWalk::Next() {
    DecodeOne();
}

void FrameWalk::ToBgra(std::vector<uint8_t>* bgra) const {
    const reader::DecodedPlane& luma = decoder.planes[reader::PLANE_Y];
    PlanarPicture picture;
    picture.width = movie.header.width;
    picture.height = movie.header.height;
    bgra->resize(size_t(picture.width) * picture.height * 4);
    picture.y = luma.samples.data();
    picture.pitch = luma.width;
    if (movie.hasChroma) {
        picture.cr = decoder.planes[reader::PLANE_CR].samples.data();
        picture.cb = decoder.planes[reader::PLANE_CB].samples.data();
        picture.chromaPitch = decoder.planes[reader::PLANE_CR].width;
    }
    if (movie.hasAlpha) picture.alpha = decoder.planes[reader::PLANE_ALPHA].samples.data();
    PlanesToBgra(picture, bgra->data());
}

} // namespace vorn
