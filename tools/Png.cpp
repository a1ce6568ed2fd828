// Png.cpp - what are the bytes of a picture as PNG?
#include "tools/Png.h"

#include <cstddef>
#include <cstdio>
#include <new>

#include <png.h>

#include "tools/Exit.h"
#include "tools/Text.h"

namespace vorn {

namespace {

// What libpng's callbacks reach. Nothing may be thrown through libpng.
struct PngJob {
    std::vector<uint8_t> bytes;
    char error[160];
};

void KeepBytes(png_structp png, png_bytep bytes, size_t count) {
    auto* job = static_cast<PngJob*>(png_get_io_ptr(png));
    bool kept = true;
    try {
        job->bytes.insert(job->bytes.end(), bytes, bytes + count);
    } catch (const std::bad_alloc&) {
        kept = false;
    }
    if (!kept) png_error(png, "out of memory");
}

void NoFlush(png_structp) {}

void KeepError(png_structp png, png_const_charp text) {
    auto* job = static_cast<PngJob*>(png_get_error_ptr(png));
    std::snprintf(job->error, sizeof job->error, "%s", text);
    png_longjmp(png, 1);
}

void IgnoreWarning(png_structp, png_const_charp) {}

// Everything that libpng may leave by a long jump, with no object in it that would need its destructor.
bool WriteRows(png_structp png, png_infop info, const uint8_t* bgra, uint32_t width, uint32_t height, bool alpha) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    const int type = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    png_set_IHDR(png, info, width, height, 8, type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_bgr(png);
    if (!alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);
    for (uint32_t y = 0; y < height; y++) png_write_row(png, bgra + size_t(y) * width * 4);
    png_write_end(png, info);
    return true;
}

} // namespace

std::vector<uint8_t> PngBytes(const std::string& name, const uint8_t* bgra, uint32_t width, uint32_t height,
                              bool alpha) {
    PngJob job = {};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &job, KeepError, IgnoreWarning);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    bool done = false;
    if (info != nullptr) {
        png_set_write_fn(png, &job, KeepBytes, NoFlush);
        done = WriteRows(png, info, bgra, width, height, alpha);
    }
    png_destroy_write_struct(&png, &info);
    if (!done) throw Failure{EXIT_FAILED, fmt::format("{}: can't be written as PNG ({})", name, job.error)};
    return std::move(job.bytes);
}

} // namespace vorn
