// PngInput.cpp - pictures from PNG files: from single ones, from all of a folder, or from those of a numbered row.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/Exit.h"
#include "tools/FileName.h"
#include "tools/Input.h"

namespace vorn {

namespace {

constexpr size_t SIGNATURE_BYTES = 8;
constexpr uint32_t MOST_NUMBER = 999'999'999; // of a picture in a row

// ---- One file ------------------------------------------------------------------------------------------------------

// What libpng's callbacks reach. Nothing may be thrown through libpng.
struct PngJob {
    FILE* file;
    char error[160];
};

void GiveBytes(png_structp png, png_bytep bytes, size_t count) {
    auto* job = static_cast<PngJob*>(png_get_io_ptr(png));
    if (std::fread(bytes, 1, count, job->file) == count) return;
    png_error(png, std::ferror(job->file) != 0 ? std::strerror(errno) : "the file ends too early");
}

void KeepError(png_structp png, png_const_charp text) {
    auto* job = static_cast<PngJob*>(png_get_error_ptr(png));
    std::snprintf(job->error, sizeof job->error, "%s", text);
    png_longjmp(png, 1);
}

void IgnoreWarning(png_structp, png_const_charp) {}

class PngFile {
public:
    explicit PngFile(const std::string& name) {
        const int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat info = {};
        if (descriptor < 0) {
            Fail(std::strerror(errno));
        } else if (fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) {
            Fail("not a plain file");
            close(descriptor);
        } else {
            job.file = fdopen(descriptor, "rb");
        }
        if (job.file == nullptr) return;
        png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &job, KeepError, IgnoreWarning);
        if (png != nullptr) head = png_create_info_struct(png);
        if (head == nullptr) Fail("out of memory");
    }
    ~PngFile() {
        png_destroy_read_struct(&png, &head, nullptr);
        if (job.file != nullptr) std::fclose(job.file);
    }
    PngFile(const PngFile&) = delete;
    PngFile& operator=(const PngFile&) = delete;

    bool Opened() const { return head != nullptr; }
    const char* Error() const { return job.error; }

    // Everything ahead of the pixels. Size, colour and alpha go to `format`.
    bool ReadHead(PictureFormat* format) {
        if (setjmp(png_jmpbuf(png)) != 0) return false;
        png_set_read_fn(png, &job, GiveBytes);
        png_read_info(png, head);
        format->width = png_get_image_width(png, head);
        format->height = png_get_image_height(png, head);
        const int type = png_get_color_type(png, head);
        format->grey = (type & PNG_COLOR_MASK_COLOR) == 0;
        format->alpha = (type & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, head, PNG_INFO_tRNS) != 0;
        return true;
    }

    // The pixels, as they are in the file: what it says of gamma and colour spaces changes nothing.
    bool ReadPixels(const PictureFormat& format, uint8_t* bgra) {
        if (setjmp(png_jmpbuf(png)) != 0) return false;
        png_set_expand(png); // palettes, fewer than 8 bits, a transparent colour
        png_set_scale_16(png);
        png_set_gray_to_rgb(png);
        png_set_bgr(png);
        png_set_add_alpha(png, 255, PNG_FILLER_AFTER);
        const int passes = png_set_interlace_handling(png);
        png_read_update_info(png, head);
        if (png_get_rowbytes(png, head) != size_t(format.width) * 4) png_error(png, "pixels of an unknown kind");
        for (int pass = 0; pass < passes; pass++)
            for (uint32_t y = 0; y < format.height; y++)
                png_read_row(png, bgra + size_t(y) * format.width * 4, nullptr);
        png_read_end(png, nullptr);
        return true;
    }

private:
    void Fail(const char* text) { std::snprintf(job.error, sizeof job.error, "%s", text); }

    PngJob job = {};
    png_structp png = nullptr;
    png_infop head = nullptr;
};

// ---- Lists of files ------------------------------------------------------------------------------------------------

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Runs of digits count as numbers, so that 9.png comes before 10.png.
bool ComesBefore(const std::string& a, const std::string& b) {
    size_t i = 0;
    size_t k = 0;
    while (i < a.size() && k < b.size()) {
        if (!IsDigit(a[i]) || !IsDigit(b[k])) {
            if (a[i] != b[k]) return a[i] < b[k];
            i++;
            k++;
            continue;
        }
        const auto takeNumber = [](const std::string& text, size_t* at) {
            while (*at < text.size() && text[*at] == '0') ++*at;
            const size_t start = *at;
            while (*at < text.size() && IsDigit(text[*at])) ++*at;
            return text.substr(start, *at - start);
        };
        const std::string left = takeNumber(a, &i);
        const std::string right = takeNumber(b, &k);
        if (left.size() != right.size()) return left.size() < right.size();
        if (left != right) return left < right;
    }
    if (i < a.size() || k < b.size()) return k < b.size();
    return a < b;
}

// The names in a folder; none if it can't be read, and then `error` tells why.
std::vector<std::string> NamesIn(const std::string& folder, std::string* error) {
    std::vector<std::string> names;
    std::error_code code;
    std::filesystem::directory_iterator entry(folder.empty() ? "." : folder, code);
    for (; !code && entry != std::filesystem::directory_iterator(); entry.increment(code))
        names.push_back(entry->path().filename().string());
    if (code) *error = code.message();
    return names;
}

struct PngList {
    std::vector<std::string> files;
    std::string gap; // of a numbered row: what is missing behind the last of them, or ""
};

PngList ListFolder(const std::string& folder, std::string* error) {
    PngList list;
    const std::string start = folder.back() == '/' ? folder : folder + '/';
    for (const std::string& name : NamesIn(folder, error))
        if (name[0] != '.' && LowerExtension(name) == ".png") list.files.push_back(start + name);
    std::sort(list.files.begin(), list.files.end(), ComesBefore);
    return list;
}

// From the lowest number that is there up to the first that isn't.
PngList ListRow(const NumberedName& row, std::string* error) {
    const size_t slash = row.before.rfind('/');
    const size_t start = slash == std::string::npos ? 0 : slash + 1; // of the name in its folder
    const std::string before = row.before.substr(start);
    std::vector<uint64_t> numbers;
    for (const std::string& name : NamesIn(row.before.substr(0, start), error)) {
        uint64_t number = 0;
        if (name.size() <= before.size() + row.behind.size() || name.compare(0, before.size(), before) != 0) continue;
        const std::string_view middle =
            std::string_view(name).substr(before.size(), name.size() - before.size() - row.behind.size());
        if (ParseNumber(middle, MOST_NUMBER, &number) && row.Name(number).substr(start) == name)
            numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    PngList list;
    for (size_t i = 0; i < numbers.size(); i++) {
        if (numbers[i] != numbers[0] + i) {
            list.gap = fmt::format("{}: is missing, but {} is there", row.Name(numbers[0] + i), row.Name(numbers[i]));
            break;
        }
        list.files.push_back(row.Name(numbers[i]));
    }
    return list;
}

// Whether a name stands for a numbered row: a file that is there is that file.
bool IsRow(const std::string& name, NumberedName* row) {
    struct stat info = {};
    return stat(name.c_str(), &info) != 0 && ParseNumberedName(name, row);
}

// What a name means: a folder, a row or a single file.
PngList ListOf(const std::string& name, std::string* error) {
    NumberedName row;
    if (IsFolder(name)) return ListFolder(name, error);
    if (IsRow(name, &row)) return ListRow(row, error);
    return {{name}, ""};
}

[[noreturn]] void TellNone(const std::string& name, const std::string& error) {
    NumberedName row;
    if (IsRow(name, &row))
        throw Failure{EXIT_FAILED, fmt::format("{}: there is no such file ({} for one){}", name, row.Name(1),
                                               error.empty() ? "" : " (" + error + ")")};
    throw Failure{EXIT_FAILED, error.empty() ? fmt::format("{}: a folder without PNG pictures (.png)", name)
                                             : fmt::format("{}: the folder can't be read ({})", name, error)};
}

// ---- The source ----------------------------------------------------------------------------------------------------

class PngSource : public FrameSource {
public:
    explicit PngSource(PngList given) : list(std::move(given)) {
        name = list.files[0];
        frames = list.files.size();
        PngFile first(name);
        if (!first.Opened()) throw Failure{EXIT_FAILED, fmt::format("{}: can't be opened ({})", name, first.Error())};
        if (!first.ReadHead(&format))
            throw Failure{EXIT_DAMAGED, fmt::format("{}: can't be read as PNG ({})", name, first.Error())};
        CheckPictureSize(name, format);
        for (const std::string& other : list.files) TakeHead(other);
        format.showsAlpha = format.alpha;
    }

    ReadResult Read(uint8_t* bgra) override {
        if (current == list.files.size()) {
            problem = list.gap;
            return list.gap.empty() ? ReadResult::END : ReadResult::CUT;
        }
        const std::string& file = list.files[current];
        PngFile png(file);
        PictureFormat found;
        const bool good = png.Opened() && png.ReadHead(&found);
        if (good && (found.width != format.width || found.height != format.height)) {
            problem = SizeProblem(file, found);
            return ReadResult::CUT;
        }
        if (!good || !png.ReadPixels(format, bgra)) {
            problem = fmt::format("{}: frame {} can't be read ({})", file, current, png.Error());
            return ReadResult::CUT;
        }
        current++;
        return ReadResult::DONE;
    }

    ReadResult Skip() override {
        if (current == list.files.size()) return Read(nullptr);
        current++;
        return ReadResult::DONE;
    }

private:
    std::string SizeProblem(const std::string& file, const PictureFormat& found) const {
        return fmt::format("{}: {}x{} pixels, but {} has {}x{}; all pictures need one size", file, found.width,
                           found.height, name, format.width, format.height);
    }

    // A head that can't be read is a matter for when its picture's turn comes; a wrong size is known before the work begins.
    void TakeHead(const std::string& file) {
        PngFile png(file);
        PictureFormat found;
        if (!png.Opened() || !png.ReadHead(&found)) return;
        if (found.width != format.width || found.height != format.height)
            throw Failure{EXIT_USAGE, SizeProblem(file, found)};
        format.grey = format.grey && found.grey;
        format.alpha = format.alpha || found.alpha;
    }

    PngList list;
    size_t current = 0; // next to be read
};

} // namespace

bool IsPngInput(const std::string& name) {
    NumberedName row;
    if (name == "-") return false;
    if (IsFolder(name) || IsRow(name, &row) || LowerExtension(name) == ".png") return true;
    struct stat info = {};
    if (stat(name.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    uint8_t start[SIGNATURE_BYTES];
    const ByteInput file(name);
    return file.Peek(0, start, SIGNATURE_BYTES) == SIGNATURE_BYTES && png_sig_cmp(start, 0, SIGNATURE_BYTES) == 0;
}

std::vector<std::string> PngInputFiles(const std::string& name) {
    std::string error;
    return ListOf(name, &error).files;
}

std::unique_ptr<FrameSource> OpenPng(const std::vector<std::string>& names) {
    std::string error;
    PngList list = names.size() > 1 ? PngList{names, ""} : ListOf(names[0], &error);
    if (list.files.empty()) TellNone(names[0], error);
    return std::make_unique<PngSource>(std::move(list));
}

} // namespace vorn
