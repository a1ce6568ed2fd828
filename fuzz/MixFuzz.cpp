// MixFuzz.cpp - any bytes as a movie that is given other sound: it is mixed into a movie that fits together, or refused with
// one message and nothing changed. A movie without a fault stays one, and its picture stays byte for byte.
#include <algorithm>

#include "fuzz/Fuzz.h"
#include "public/vornmake.h"
#include "reader/Reader.h"
#include "tests/files/MemoryDisk.h"

using namespace vorn;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr uint64_t MOST_SOUND = 300000; // PCM bytes of a new track; keeps an input short
constexpr size_t CHOICES = 24;          // bytes at the end of the data
const Bytes OLDER = {'o', 'l', 'd', 'e', 'r'};

uint32_t messages, calls, cancelAt; // frame, from 1, at which the callback asks to stop; 0: never

uint32_t VORN_CALL Report(uint32_t code, void*, const char* text) {
    if (code == VORN_MESSAGE) {
        Require(text[0] != 0, "a message says something");
        messages++;
        return 0;
    }
    return ++calls == cancelAt;
}

// `user` picks what comes: short answers, none, or more than was asked for.
uint32_t VORN_CALL ReadSound(void*, uintptr_t user, void* buffer, uint32_t bytes) {
    for (uint32_t i = 0; i < bytes; i++) static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>(i * i * user >> 3);
    const uint32_t answers[] = {bytes, 0, bytes / 2, bytes + 4, 1, UINT32_MAX};
    return answers[user % 6];
}

struct Request {
    std::string output;
    uint32_t offset, numerator, denominator;
    int32_t shift;
    std::vector<TrackDescriptor> tracks;
};

uint32_t WordAt(const Bytes& bytes, size_t at) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4 && at + i < bytes.size(); i++) word |= uint32_t{bytes[at + i]} << 8 * i;
    return word;
}

Request TakeRequest(Choices* choices, const Bytes& movie) {
    const uint32_t parts[] = {0, 25, 1, 30000, 1001, 3, UINT32_MAX};
    const uint32_t rates[] = {8000, 22050, 0, 44100, 1, 65535, 70000};
    Request request = {};
    request.output = choices->Byte() % 4 == 3 ? "in" : "out";
    request.offset = choices->Byte() % 8 == 7 ? choices->Byte() % 16 : 0;
    request.numerator = choices->Of(parts);
    request.denominator = choices->Of(parts);
    request.shift = static_cast<int8_t>(choices->Byte());
    if (request.shift == INT8_MIN) request.shift = INT32_MIN;
    if (request.shift == INT8_MAX) request.shift = INT32_MAX;
    cancelAt = choices->Byte();
    disk->failingOperation = choices->Byte();
    const bool newRate = request.numerator != 0 && request.denominator != 0;
    const uint32_t numerator = newRate ? request.numerator : WordAt(movie, request.offset + 28);
    const uint32_t denominator = newRate ? request.denominator : WordAt(movie, request.offset + 32);
    const double seconds =
        double(WordAt(movie, request.offset + 8)) * double(denominator) / double(std::max(numerator, 1u));
    for (uint32_t left = choices->Byte() % 4; left > 0; left--) {
        const uint32_t idByte = choices->Byte();
        const uint32_t id = idByte % 8 == 7 ? WordAt(movie, request.offset + 44 + 4 * (idByte / 8)) : idByte % 8;
        const uint32_t rate = choices->Of(rates);
        TrackDescriptor track = {id, rate, 16, 1 + idByte / 8 % 2, choices->Byte(), choices->Byte(), ReadSound};
        if (track.user % 4 == 3) track.read = nullptr;
        if (track.read != nullptr && seconds * rate * track.channels * 2 > double(MOST_SOUND)) continue;
        request.tracks.push_back(track);
    }
    return request;
}

// What the reader makes of a movie.
struct Judgement {
    bool walks = false;
    reader::Movie movie;
    reader::Violations violations;
};

// Decoding is left out: pictures aren't touched.
Judgement Judge(const Bytes& bytes, uint64_t offset) {
    Judgement judgement;
    reader::MovieOptions options;
    options.offset = offset;
    judgement.walks = reader::ParseMovie(bytes, options, &judgement.movie, &judgement.violations);
    for (uint32_t i = 0; judgement.walks && i < judgement.movie.header.frames; i++) {
        reader::Frame frame;
        reader::ReadFrame(judgement.movie, i, &frame, &judgement.violations);
    }
    return judgement;
}

void CheckMixed(const Judgement& before, const Bytes& mixed, const Request& request) {
    const Judgement after = Judge(mixed, 0);
    if (!before.walks) return; // a reader is stricter about pictures than a mix
    Require(after.walks, "a mix of a movie that can be walked can be walked");
    Require(after.movie.header.frames == before.movie.header.frames, "a mix keeps all frames");
    if (before.violations.errors != 0) return;
    for (const reader::Violation& violation : after.violations.list)
        Require(violation.severity != reader::SEVERITY_ERROR,
                "the reader says: " + reader::DescribeViolation(violation));
    reader::Violations ignored;
    for (uint32_t i = 0; i < after.movie.header.frames; i++) {
        reader::Frame old, now;
        reader::ReadFrame(before.movie, i, &old, &ignored);
        reader::ReadFrame(after.movie, i, &now, &ignored);
        Require(old.key == now.key, "key frames stay");
        Require(old.video.size == now.video.size &&
                    std::equal(old.video.data, old.video.data + old.video.size, now.video.data),
                "the picture stays");
    }
    for (uint32_t t = 0; t < after.movie.tracks.size(); t++) {
        const bool kept = std::any_of(before.movie.tracks.begin(), before.movie.tracks.end(),
                                      [&](const auto& track) { return track.id == after.movie.tracks[t].id; });
        reader::TrackSound sound;
        reader::Violations found;
        if (kept) continue; // may be sound that never could be decoded
        Require(reader::DecodeTrack(after.movie, t, &sound, &found), "new sound can be decoded");
    }
    Require(std::all_of(request.tracks.begin(), request.tracks.end(),
                        [](const TrackDescriptor& track) { return track.sampleRate == 0 || track.read == nullptr; }),
            "descriptors that were used are marked");
}

} // namespace

// The last bytes choose; the others are the movie.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const size_t choiceBytes = std::min(size, CHOICES);
    Choices choices = {data + size - choiceBytes, choiceBytes};
    const Bytes movie(data, data + size - choiceBytes);
    MemoryDisk memoryDisk;
    UseMemoryDisk(&memoryDisk);
    disk->files["in"] = movie;
    disk->files["out"] = OLDER;
    messages = calls = 0;
    Request request = TakeRequest(&choices, movie);
    const Bytes older = disk->files[request.output];
    const uint32_t result =
        VornMix("in", request.output.c_str(), request.offset, request.numerator, request.denominator, request.shift,
                static_cast<uint32_t>(request.tracks.size()), request.tracks.data(), Report);
    Require(disk->open.empty(), "all files are closed");
    Require(disk->files.size() == 2, "no temporary file is left");
    const uint32_t due = result == 0 && !request.tracks.empty() ? 1 : 0;
    Require(messages == due, "one message says why nothing was mixed, and a mix that succeeds says nothing");
    const bool stopped = cancelAt != 0 && calls >= cancelAt;
    if (result == 0 || stopped) {
        Require(disk->files[request.output] == older, "what isn't mixed changes nothing");
    } else {
        Require(disk->files[request.output].size() == result, "the file has the size that was told");
        CheckMixed(Judge(movie, request.offset), disk->files[request.output], request);
    }
    platform = &SYSTEM_PLATFORM;
    return 0;
}
