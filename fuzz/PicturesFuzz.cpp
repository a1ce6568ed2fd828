// PicturesFuzz.cpp - any bytes as Y4M or raw pictures, from a file, from a pipe, read ahead, and two inputs in a row; and as a
// row of PNG files.
#include <algorithm>
#include <cstring>
#include <deque>

#include <unistd.h>
#include <zlib.h>

#include "fuzz/Fuzz.h"
#include "fuzz/MemoryFile.h"
#include "tools/Exit.h"
#include "tools/Input.h"

using namespace vorn;

namespace {

constexpr size_t MOST_BYTES = 16384; // what a pipe takes in without a reader
constexpr uint64_t MOST_PIXELS = 1 << 14;

struct Pictures {
    bool opened = false;
    PictureFormat format;
    std::optional<uint64_t> foretold;
    std::vector<std::vector<uint8_t>> frames;
    ReadResult last = ReadResult::DONE;
};

// Reads everything. A failure is an answer, too.
Pictures ReadAll(const InputOptions& options, bool ahead, uint64_t limit) {
    Pictures pictures;
    try {
        std::unique_ptr<FrameSource> source = OpenFrames(options);
        if (ahead) source = ReadAhead(std::move(source), limit);
        pictures.opened = true;
        pictures.format = source->format;
        pictures.foretold = source->frames;
        std::vector<uint8_t> picture(size_t{source->format.width} * source->format.height * 4);
        while ((pictures.last = source->Read(picture.data())) == ReadResult::DONE) pictures.frames.push_back(picture);
        if (pictures.last == ReadResult::CUT) CheckText(source->problem);
        Require(pictures.last != ReadResult::STOPPED, "nobody sent a signal");
        if (pictures.last == ReadResult::END)
            Require(source->Read(picture.data()) == ReadResult::END, "behind the end nothing comes");
    } catch (const Failure& failure) {
        CheckText(failure.text);
        Require(failure.code >= EXIT_FAILED && failure.code <= EXIT_EXISTS, "a failure has its code");
    }
    return pictures;
}

// A pipe that holds all of the data, with nobody left to write.
struct FullPipe {
    int ends[2] = {-1, -1};
    std::string name;
    FullPipe(const uint8_t* data, size_t size) {
        Require(pipe(ends) == 0 && write(ends[1], data, size) == ssize_t(size), "a pipe takes the data");
        close(ends[1]);
        name = "/proc/self/fd/" + std::to_string(ends[0]);
    }
    ~FullPipe() { close(ends[0]); }
    FullPipe(const FullPipe&) = delete;
};

// Whether the head of Y4M speaks of pictures too large for a fuzzer's time: room for one is made before it is read.
bool IsLarge(const uint8_t* data, size_t size) {
    uint64_t pixels = 1;
    for (size_t i = 0; i + 1 < size && data[i] != '\n'; i++) {
        if (data[i] != ' ' || (data[i + 1] != 'W' && data[i + 1] != 'H')) continue;
        uint64_t number = 0;
        for (size_t k = i + 2; k < size && data[k] >= '0' && data[k] <= '9' && number < 100000; k++)
            number = number * 10 + data[k] - '0';
        pixels *= std::max<uint64_t>(number, 1); // may be named twice; then too careful
    }
    return pixels > MOST_PIXELS;
}

void ExpectSame(const Pictures& a, const Pictures& b) {
    Require(a.opened == b.opened && a.last == b.last && a.frames == b.frames, "a pipe gives what a file gives");
    Require(a.format.width == b.format.width && a.format.height == b.format.height && a.format.grey == b.format.grey &&
                a.format.rate.numerator == b.format.rate.numerator,
            "a pipe has the format of the file");
}

void ReadEveryWay(InputOptions options, const uint8_t* data, size_t size, uint64_t limit) {
    const MemoryFile file(data, size);
    options.names = {file.name};
    const Pictures once = ReadAll(options, false, 0);
    if (once.opened) Require(once.foretold && *once.foretold == once.frames.size(), "the count of frames was foretold");
    FullPipe pipe(data, size), second(data, size);
    options.names = {pipe.name};
    ExpectSame(once, ReadAll(options, false, 0));
    options.names = {second.name};
    const Pictures ahead = ReadAll(options, true, limit);
    ExpectSame(once, ahead);
    if (ahead.foretold) Require(*ahead.foretold == ahead.frames.size(), "the count read ahead is right");
    options.names = {file.name, file.name};
    const Pictures twice = ReadAll(options, false, 0);
    const size_t times = once.last == ReadResult::END ? 2 : 1; // a cut input is the last
    Require(twice.frames.size() == once.frames.size() * times, "two inputs follow one another");
    if (!options.raw.empty() && once.opened) {
        const size_t bytes = once.frames.empty() ? 0 : once.frames[0].size();
        for (size_t i = 0; i < once.frames.size(); i++)
            Require(std::memcmp(once.frames[i].data(), data + i * bytes, bytes) == 0, "raw pictures stay as they are");
    }
}

// ---- PNG -------------------------------------------------------------------------------------------------------------

constexpr char SIGNATURE[] = "\x89PNG\r\n\x1a\n";
constexpr size_t SIGNATURE_BYTES = 8;

uint32_t BigWord(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// Makes the checksum of each chunk right: a reader looks no further than a wrong one.
void MendChecksums(std::vector<uint8_t>* file) {
    for (size_t at = SIGNATURE_BYTES; at + 12 <= file->size();) {
        const size_t length = BigWord(&(*file)[at]);
        if (length > file->size() - at - 12) return;
        const auto sum = static_cast<uint32_t>(crc32(0, &(*file)[at + 4], static_cast<uInt>(length + 4)));
        for (size_t i = 0; i < 4; i++) (*file)[at + 8 + length + i] = static_cast<uint8_t>(sum >> (24 - 8 * i));
        at += 12 + length;
    }
}

// The data as files behind each other, each from one signature to the next.
std::vector<std::vector<uint8_t>> CutPngs(const uint8_t* data, size_t size) {
    std::vector<std::vector<uint8_t>> files;
    const uint8_t* const end = data + size;
    const auto find = [&](const uint8_t* from) {
        return std::search(from, end, SIGNATURE, SIGNATURE + SIGNATURE_BYTES);
    };
    for (const uint8_t* start = find(data); start != end;) {
        const uint8_t* next = find(start + SIGNATURE_BYTES);
        MendChecksums(&files.emplace_back(start, next));
        start = next;
    }
    return files;
}

bool IsLargePng(const std::vector<uint8_t>& file) {
    if (file.size() < 24) return false;
    return uint64_t{BigWord(&file[16])} * BigWord(&file[20]) > MOST_PIXELS;
}

// Each file alone, then all of them in a row: its pictures are theirs, up to the first that can't be read.
void ReadPngs(const uint8_t* data, size_t size) {
    const std::vector<std::vector<uint8_t>> files = CutPngs(data, size);
    if (files.empty() || std::any_of(files.begin(), files.end(), IsLargePng)) return;
    InputOptions row;
    row.rate = std::string("25/1");
    std::deque<MemoryFile> memory;
    std::vector<std::vector<uint8_t>> wanted;
    bool whole = true, grey = true;
    for (const std::vector<uint8_t>& file : files) {
        InputOptions alone = row;
        alone.names = {memory.emplace_back(file.data(), file.size()).name};
        row.names.push_back(alone.names[0]);
        const Pictures one = ReadAll(alone, false, 0);
        if (one.opened) Require(one.foretold == 1u && one.frames.size() <= 1, "a PNG file is one picture");
        whole = whole && one.frames.size() == 1;
        grey = grey && one.format.grey;
        if (whole) wanted.push_back(one.frames[0]);
    }
    const Pictures all = ReadAll(row, false, 0);
    if (!all.opened) return; // of different sizes, or the first one can't be read
    Require(all.foretold == files.size(), "a row has as many pictures as files");
    Require((all.last == ReadResult::END) == whole, "a row is whole if its files are");
    Require(all.frames == wanted, "a row has the pictures of its files");
    if (whole) Require(all.format.grey == grey, "a row is grey if its files are");
}

} // namespace

// The last two bytes choose; the others are what is read.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > MOST_BYTES) return 0;
    const uint32_t way = size > 1 ? data[--size] : 0;
    const uint32_t detail = size > 1 ? data[--size] : 0;
    InputOptions options;
    if (way % 4 == 3) {
        options.raw = std::to_string(1 + detail % 16) + "x" + std::to_string(1 + detail / 16);
        options.rate = std::string("30000/1001");
    } else if (size >= SIGNATURE_BYTES && std::memcmp(data, SIGNATURE, SIGNATURE_BYTES) == 0) {
        ReadPngs(data, size);
        return 0;
    } else if (IsLarge(data, size)) {
        return 0;
    }
    if (way % 4 == 2) options.rate = std::string("25/1");
    ReadEveryWay(options, data, size, detail * 256);
    return 0;
}
