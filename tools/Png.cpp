// Png.cpp - see Png.h.
#include "tools/Png.h"

#include <cstddef>
#include <vector>

#include <png.h>

#include "tools/Exit.h"
#include "tools/Output.h"
#include "tools/Text.h"

namespace vorn {

// What is to be written, and the Failure that came up in one of libpng's callbacks: nothing may be thrown through libpng.
struct PngJob {
    OutputFile* file;
    std::string error;
    Failure failure = {};
};

static void TakeBytes(png_structp png, png_bytep bytes, size_t count) {
    auto* job = static_cast<PngJob*>(png_get_io_ptr(png));
    try {
        if (job->failure.text.empty()) job->file->Write(bytes, count);
    } catch (const Failure& failure) {
        job->failure = failure;
    }
}

static void NoFlush(png_structp) {}

static void KeepError(png_structp png, png_const_charp text) {
    static_cast<PngJob*>(png_get_error_ptr(png))->error = text;
    png_longjmp(png, 1);
}

static void IgnoreWarning(png_structp, png_const_charp) {}

// Everything that libpng may leave by a long jump, with no object in it that would need its destructor.
static bool WriteRows(png_structp png, png_infop info, const uint8_t* bgra, uint32_t width, uint32_t height,
                      bool alpha) {
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

void WritePng(OutputFile* file, const std::string& name, const uint8_t* bgra, uint32_t width, uint32_t height,
              bool alpha) {
    PngJob job{file, ""};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &job, KeepError, IgnoreWarning);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    bool done = false;
    if (info != nullptr) {
        png_set_write_fn(png, &job, TakeBytes, NoFlush);
        done = WriteRows(png, info, bgra, width, height, alpha);
    }
    png_destroy_write_struct(&png, &info);
    if (!job.failure.text.empty()) throw job.failure;
    if (!done) throw Failure{EXIT_FAILED, fmt::format("{}: can't be written as PNG ({})", name, job.error)};
}

void WritePng(const std::string& name, const uint8_t* bgra, uint32_t width, uint32_t height, bool alpha, bool force) {
    OutputFile file(name, force);
    WritePng(&file, name, bgra, width, height, alpha);
    file.Finish();
}

} // namespace vorn
