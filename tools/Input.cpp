// Input.cpp - bytes from files and pipes, and several sources as one.
#include "tools/Input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/Exit.h"
#include "tools/Interrupt.h"

namespace vorn {

namespace {

constexpr size_t BUFFER_BYTES = 1 << 16;
constexpr uint32_t MOST_WIDTH = 4032;         // of the library
constexpr uint64_t MOST_PIXELS = 226'000'000; // with the shortest look-ahead a movie of more needs over 4 GiB of memory

} // namespace

ByteInput::ByteInput(const std::string& fileName) : name(fileName == "-" ? "standard input" : fileName) {
    descriptor = fileName == "-" ? STDIN_FILENO : open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) throw Failure{EXIT_FAILED, fmt::format("{}: can't be opened ({})", name, std::strerror(errno))};
    struct stat info = {};
    const bool known = fstat(descriptor, &info) == 0;
    if (known && S_ISDIR(info.st_mode))
        throw Failure{EXIT_FAILED, fmt::format("{}: is a folder; name a file in it", name)};
    const off_t place = lseek(descriptor, 0, SEEK_CUR);
    if (known && S_ISREG(info.st_mode) && place >= 0) {
        seekable = true;
        size = static_cast<uint64_t>(info.st_size);
        position = static_cast<uint64_t>(place);
    }
}

ByteInput::~ByteInput() {
    if (descriptor > STDIN_FILENO) close(descriptor);
}

ReadResult ByteInput::Fill() {
    if (used < buffer.size()) return ReadResult::DONE;
    buffer.resize(BUFFER_BYTES);
    used = 0;
    ssize_t got = -1;
    do {
        if (InterruptCount() > 0) break;
        got = read(descriptor, buffer.data(), buffer.size());
    } while (got < 0 && errno == EINTR);
    buffer.resize(got > 0 ? static_cast<size_t>(got) : 0);
    if (got > 0) return ReadResult::DONE;
    if (InterruptCount() > 0) return ReadResult::STOPPED;
    if (got == 0) return ReadResult::END;
    error = std::strerror(errno);
    return ReadResult::CUT;
}

ReadResult ByteInput::Read(uint8_t* bytes, size_t count) {
    for (size_t done = 0; done < count;) {
        const ReadResult result = Fill();
        if (result == ReadResult::END && done != 0) return ReadResult::CUT;
        if (result != ReadResult::DONE) return result;
        const size_t part = std::min(count - done, buffer.size() - used);
        std::memcpy(bytes + done, buffer.data() + used, part);
        used += part;
        done += part;
        position += part;
    }
    return ReadResult::DONE;
}

ReadResult ByteInput::ReadLine(std::string* line, size_t limit) {
    line->clear();
    for (;;) {
        const ReadResult result = Fill();
        if (result == ReadResult::END && !line->empty()) return ReadResult::CUT;
        if (result != ReadResult::DONE) return result;
        const char c = static_cast<char>(buffer[used++]);
        position++;
        if (c == '\n') return ReadResult::DONE;
        if (line->size() == limit) return ReadResult::CUT;
        *line += c;
    }
}

size_t ByteInput::Peek(uint64_t place, uint8_t* bytes, size_t count) const {
    const ssize_t got = pread(descriptor, bytes, count, static_cast<off_t>(place));
    return got > 0 ? static_cast<size_t>(got) : 0;
}

namespace {

// ---- Several sources as one -----------------------------------------------------------------------------------------

// Pictures that are read before they are asked for.
class AheadSource : public FrameSource {
public:
    AheadSource(std::unique_ptr<FrameSource> source, uint64_t limit) : inner(std::move(source)) {
        format = inner->format;
        name = inner->name;
        const size_t bytes = size_t(format.width) * format.height * 4;
        while (last == ReadResult::DONE && (waiting.size() + 1) * bytes <= limit) {
            std::vector<uint8_t> picture(bytes);
            last = inner->Read(picture.data());
            if (last == ReadResult::DONE) waiting.push_back(std::move(picture));
        }
        if (last != ReadResult::DONE) frames = waiting.size();
    }

    ReadResult Read(uint8_t* bgra) override {
        if (!waiting.empty()) {
            std::copy(waiting.front().begin(), waiting.front().end(), bgra);
            waiting.pop_front();
            return ReadResult::DONE;
        }
        if (last == ReadResult::DONE) last = inner->Read(bgra);
        problem = inner->problem;
        return last;
    }

private:
    std::unique_ptr<FrameSource> inner;
    std::deque<std::vector<uint8_t>> waiting;
    ReadResult last = ReadResult::DONE; // of reading the inner source
};

// Sources of one size, one behind the other. A cut one is the last that is read.
class JoinedSource : public FrameSource {
public:
    explicit JoinedSource(std::vector<std::unique_ptr<FrameSource>> sources) : parts(std::move(sources)) {
        format = parts[0]->format;
        name = parts[0]->name;
        frames = 0;
        for (const auto& part : parts) {
            Compare(*part);
            if (frames && part->frames)
                *frames += *part->frames;
            else
                frames.reset();
            format.grey = format.grey && part->format.grey;
            format.alpha = format.alpha || part->format.alpha;
            format.showsAlpha = format.showsAlpha || part->format.showsAlpha;
        }
    }

    ReadResult Read(uint8_t* bgra) override {
        while (current < parts.size()) {
            const ReadResult result = parts[current]->Read(bgra);
            if (result != ReadResult::END) {
                problem = parts[current]->problem;
                return result;
            }
            current++;
        }
        return ReadResult::END;
    }

    ReadResult Skip() override {
        for (; current < parts.size(); current++) {
            const ReadResult result = parts[current]->Skip();
            problem = parts[current]->problem;
            if (result != ReadResult::END) return result;
        }
        return ReadResult::END;
    }

private:
    void Compare(const FrameSource& part) const {
        const PictureFormat& other = part.format;
        if (other.width != format.width || other.height != format.height)
            throw Failure{EXIT_USAGE,
                          fmt::format("{}: {}x{} pixels, but {} has {}x{}; all inputs need one size", part.name,
                                      other.width, other.height, name, format.width, format.height)};
        if (uint64_t(other.rate.numerator) * format.rate.denominator !=
            uint64_t(format.rate.numerator) * other.rate.denominator)
            throw Failure{EXIT_USAGE,
                          fmt::format("{}: {}/{} frames per second, but {} has {}/{}; --fps sets one for all",
                                      part.name, other.rate.numerator, other.rate.denominator, name,
                                      format.rate.numerator, format.rate.denominator)};
    }

    std::vector<std::unique_ptr<FrameSource>> parts;
    size_t current = 0;
};

// Opens what the names mean from number `at` on, and moves on behind it: single PNG files in a row are one source.
std::unique_ptr<FrameSource> OpenNext(const InputOptions& options, size_t* at) {
    const std::string name = IsStandardInput(options.names[*at]) ? "-" : options.names[*at];
    ++*at;
    if (!options.raw.empty()) {
        uint32_t width = 0;
        uint32_t height = 0;
        ParseSize("--raw", options.raw, &width, &height);
        return OpenRaw(name, width, height);
    }
    if (name == "-" || !IsPngInput(name)) return OpenY4m(name);
    std::vector<std::string> files = {name};
    const auto single = [](const std::string& file) {
        return !IsStandardInput(file) && IsPngInput(file) && PngInputFiles(file) == std::vector<std::string>{file};
    };
    if (single(name))
        while (*at < options.names.size() && single(options.names[*at])) files.push_back(options.names[(*at)++]);
    return OpenPng(files);
}

void SkipFrames(FrameSource* source, uint32_t count) {
    for (uint32_t skipped = 0; skipped < count; skipped++) {
        const ReadResult result = source->Skip();
        if (result == ReadResult::CUT) throw Failure{EXIT_DAMAGED, source->problem};
        if (result != ReadResult::DONE)
            throw Failure{EXIT_USAGE,
                          fmt::format("--seek {}: {} has {} frames, counted from 0", count, source->name, skipped)};
    }
    if (count == 0 || !source->frames) return;
    if (*source->frames <= count)
        throw Failure{EXIT_USAGE,
                      fmt::format("--seek {}: {} has {} frames, counted from 0", count, source->name, *source->frames)};
    *source->frames -= count;
}

} // namespace

void CheckPictureSize(const std::string& name, const PictureFormat& format) {
    if (format.width <= MOST_WIDTH && uint64_t(format.width) * format.height <= MOST_PIXELS) return;
    throw Failure{EXIT_FAILED, fmt::format("{}: {}x{} pixels; a movie can have up to {}, and be up to {} wide", name,
                                           format.width, format.height, MOST_PIXELS, MOST_WIDTH)};
}

std::unique_ptr<FrameSource> ReadAhead(std::unique_ptr<FrameSource> source, uint64_t limit) {
    return std::make_unique<AheadSource>(std::move(source), limit);
}

ReadResult FrameSource::Skip() {
    skipped.resize(size_t(format.width) * format.height * 4);
    return Read(skipped.data());
}

bool IsStandardInput(const std::string& name) {
    return name == "-" || name == "/dev/stdin" || name == "/dev/fd/0" || name == "/proc/self/fd/0";
}

std::vector<std::string> InputFiles(const InputOptions& options) {
    std::vector<std::string> files;
    for (const std::string& name : options.names) {
        const bool expand = options.raw.empty() && !IsStandardInput(name) && IsPngInput(name);
        const std::vector<std::string> found = expand ? PngInputFiles(name) : std::vector<std::string>{name};
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

std::unique_ptr<FrameSource> OpenFrames(const InputOptions& options) {
    if (std::count_if(options.names.begin(), options.names.end(), IsStandardInput) > 1)
        throw Failure{EXIT_USAGE, "-: standard input can be named only once"};
    std::vector<std::unique_ptr<FrameSource>> sources;
    for (size_t at = 0; at < options.names.size();) {
        sources.push_back(OpenNext(options, &at));
        PictureFormat& format = sources.back()->format;
        if (!options.rate.empty()) format.rate = ParseRate("--fps", options.rate);
        if (format.rate.numerator == 0)
            throw Failure{EXIT_USAGE, fmt::format("{}: doesn't say how many frames a second it has; give --fps N/D",
                                                  sources.back()->name)};
    }
    std::unique_ptr<FrameSource> source =
        sources.size() == 1 ? std::move(sources[0]) : std::make_unique<JoinedSource>(std::move(sources));
    SkipFrames(source.get(), options.seek);
    return source;
}

} // namespace vorn
