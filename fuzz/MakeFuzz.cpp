// MakeFuzz.cpp - movies of invented arguments, pictures and sound, with callbacks that stop, give up and flush, and with a
// disk or a memory that fails once. What a finished movie shows is what the encoder rebuilt, it keeps every rule, and one
// that isn't finished never takes the place of another.
#include <algorithm>

#include "fuzz/Fuzz.h"
#include "platform/CpuLevel.h"
#include "tests/files/MemoryDisk.h"
#include "tests/movie/MovieMaking.h"

using namespace vorn;

namespace {

const std::string NAME = "movie", OLDER = "older";
constexpr uint64_t MOST_SOUND = 200000; // PCM bytes of a track; keeps an input short

// The n-th report at which something happens, from 1; 0: never.
struct Script {
    uint32_t stopAt, giveUpAt, flushAt;
    uint32_t report;
    uint32_t messages;
};
Script script;
VornMakeState* stateInHand;
std::vector<FramePlanes> rebuilt;  // of each frame done
uint32_t failingRequest, requests; // of memory, as the disk counts operations

void NoteFrame() {
    const VornMakeState* state = stateInHand;
    if (state == nullptr || rebuilt.size() == state->framesDone) return;
    Require(rebuilt.size() + 1 == state->framesDone, "frames are done one by one");
    const uint32_t shown = state->referenceSelect;
    const uint8_t* planes[] = {state->referenceY[shown], state->referenceCr[shown], state->referenceCb[shown],
                               state->referenceAlpha[shown]};
    FramePlanes& frame = rebuilt.emplace_back();
    for (size_t plane = 0; plane < frame.size(); plane++) {
        const bool chroma = plane == reader::PLANE_CR || plane == reader::PLANE_CB;
        if (chroma && (state->flags & FLAG_GREY) != 0) continue;
        if (plane == reader::PLANE_ALPHA && (state->flags & FLAG_ALPHA) == 0) continue;
        const size_t samples =
            chroma ? size_t{state->chromaWidth} * state->chromaHeight : size_t{state->lumaWidth} * state->lumaHeight;
        frame[plane].assign(planes[plane], planes[plane] + samples);
    }
}

// What the file shows is what was rebuilt.
void CheckFile(const std::vector<uint8_t>& bytes, bool growing) {
    const ReadMovie read = ReadBack(std::string(bytes.begin(), bytes.end()), growing);
    Require(read.complaint.empty(), "the reader says: " + read.complaint);
    Require(read.frames.size() == rebuilt.size(),
            "the file has " + std::to_string(read.frames.size()) + " of " + std::to_string(rebuilt.size()) + " frames");
    for (size_t i = 0; i < rebuilt.size(); i++)
        Require(read.frames[i] == rebuilt[i], "frame " + std::to_string(i) + " is what the encoder rebuilt");
}

void Flush(VornMakeState* state) {
    if (VornMakeFlush(state) == 0 || disk->Failed()) return;
    NoteFrame();
    CheckFile(disk->files.at(NAME + ".tmp"), true);
}

uint32_t VORN_CALL Act(uint32_t code, void* record, const char* text) {
    Require(text != nullptr, "a report has a text");
    if (code == VORN_MESSAGE) {
        Require(text[0] != 0, "a message says something");
        script.messages++;
        return 0;
    }
    VornMakeState* state = static_cast<VornMakeState*>(record);
    if (stateInHand != nullptr) NoteFrame();
    script.report++;
    if (script.report == script.flushAt) Flush(state);
    if (script.report == script.giveUpAt) state->cancel = 2;
    return script.report == script.stopAt;
}

struct Plan {
    uint32_t width, height, padding, promised, handed, keyInterval, options, numerator, denominator;
    int32_t lookAhead;
    uint32_t abort;
    std::vector<Sound> sounds;
};

Plan TakePlan(Choices* choices) {
    const uint32_t parts[] = {25, 1, 30000, 1001, 15, UINT32_MAX, 4, 65536, 0x80000000u, 3, 1000003};
    const uint32_t rates[] = {8000, 44100, 1, 22050, 11025, 65535, 22049, 0, 65536};
    Plan plan = {};
    plan.width = choices->Byte() % 50;
    plan.height = choices->Byte() % 40;
    plan.padding = choices->Byte() % 16;
    plan.promised = choices->Byte() % 16;
    plan.handed = choices->Byte() % 16;
    plan.keyInterval = choices->Byte() % 12;
    plan.options = choices->Byte() % 20 * 100 + choices->Byte() % 100;
    plan.numerator = choices->Byte() % 64 == 63 ? 0 : choices->Of(parts);
    plan.denominator = choices->Of(parts);
    plan.lookAhead = static_cast<int32_t>(choices->Byte() % 68) - 2;
    script = {choices->Byte(), choices->Byte(), choices->Byte(), 0, 0};
    disk->failingOperation = choices->Byte();
    failingRequest = choices->Byte();
    requests = 0;
    plan.abort = choices->Byte() % 8 == 7;
    for (uint32_t left = choices->Byte() % 4; left > 0; left--) {
        const uint32_t rate = choices->Of(rates), channels = choices->Byte() % 8 == 7 ? 3 : 1 + left % 2;
        plan.sounds.push_back({rate, channels, choices->Byte(), 1 + choices->Byte() * 256});
        const double seconds = double(plan.promised) * plan.denominator / std::max(plan.numerator, 1u);
        if (seconds * rate * channels * 2 > double(MOST_SOUND)) plan.sounds.pop_back();
    }
    return plan;
}

VornMakeState* Open(Plan* plan) {
    std::vector<TrackDescriptor> tracks;
    for (Sound& sound : plan->sounds)
        tracks.push_back({static_cast<uint32_t>(tracks.size()) * 7, sound.sampleRate, 16 - 8 * (sound.quality & 1),
                          sound.channels, sound.quality, reinterpret_cast<uintptr_t>(&sound), Sound::Read});
    return VornMake(NAME.c_str(), plan->width * 4 + plan->padding, plan->width, plan->height, plan->promised,
                    plan->keyInterval, plan->options, plan->numerator, plan->denominator,
                    static_cast<uint32_t>(tracks.size()), tracks.data(), plan->lookAhead, Act);
}

// Changes the picture of the frame before into the next, by a rule that the data picks.
void DrawNext(Choices* choices, const Plan& plan, std::vector<uint8_t>* pixels) {
    const uint32_t rule = choices->Byte(), detail = choices->Byte();
    const uint32_t pitch = plan.width * 4 + plan.padding;
    const size_t bytes = size_t{pitch} * plan.height;
    switch (rule % 9) {
    case 0: // stays
        return;
    case 1: // a clip's frame
        *pixels = DrawFrame(CONTENTS[detail % 5], plan.width, plan.height, pitch, detail / 5);
        return;
    case 2: // moves
        std::rotate(pixels->begin(), pixels->begin() + static_cast<std::ptrdiff_t>(detail * 4 % bytes), pixels->end());
        return;
    case 3: // grain
        for (size_t i = 0; i < bytes; i++)
            (*pixels)[i] ^= static_cast<uint8_t>(Scatter(static_cast<uint32_t>(i), rule, detail) & detail);
        return;
    case 4: { // the data itself, over and over
        const uint32_t period = 1 + detail % 64;
        std::vector<uint8_t> tile;
        for (uint32_t i = 0; i < period; i++) tile.push_back(static_cast<uint8_t>(choices->Byte()));
        for (size_t i = 0; i < bytes; i++) (*pixels)[i] = tile[i % period];
        return;
    }
    case 5: // few changes at places of the data
        for (uint32_t i = 0; i <= detail % 16; i++)
            (*pixels)[choices->Word() % bytes] = static_cast<uint8_t>(choices->Byte());
        return;
    case 6: // two colours and a bit a pixel
        for (size_t y = 0; y < plan.height; y++) {
            for (size_t x = 0; x < plan.width; x++) {
                const bool bit =
                    (Scatter(static_cast<uint32_t>(x / (1 + rule / 64)), static_cast<uint32_t>(y), detail) & 1) != 0;
                for (size_t i = 0; i < 4; i++)
                    (*pixels)[y * pitch + 4 * x + i] = static_cast<uint8_t>(bit ? rule * i : detail);
            }
        }
        return;
    case 7: // extremes
        for (size_t i = 0; i < bytes; i++)
            (*pixels)[i] = Scatter(static_cast<uint32_t>(i / (1 + rule / 16)), rule, detail) & 1 ? 255 : 0;
        return;
    default: // one colour
        std::fill(pixels->begin(), pixels->end(), static_cast<uint8_t>(detail));
    }
}

void PutFrames(Choices choices, const Plan& plan, VornMakeState* state) {
    const uint32_t sizes[] = {0, 1, 20, 60, 150, 400, 1500, 6000, 100000, 0x7fffffff, 0x80000000, UINT32_MAX};
    std::vector<uint8_t> pixels((plan.width * 4 + size_t{plan.padding}) * plan.height, 90);
    for (uint32_t frame = 0; frame < plan.handed; frame++) {
        DrawNext(&choices, plan, &pixels);
        const uint32_t rate = choices.Of(sizes) + choices.Byte();
        const uint32_t cap = choices.Byte() % 4 == 3 ? choices.Of(sizes) : UINT32_MAX;
        VornMakePutVideo(state, rate, cap, frame == 0 || choices.Byte() % 8 == 7, pixels.data());
        if (choices.Byte() % 16 == 15) Flush(state);
    }
}

void* VORN_CALL Allocate(uint32_t bytes) {
    return ++requests == failingRequest ? reinterpret_cast<void*>(UINTPTR_MAX) : std::malloc(bytes);
}
void VORN_CALL Release(void* block) {
    std::free(block);
}

std::vector<uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

// A movie that could be opened, to its end.
void Finish(const Choices& choices, const Plan& plan, VornMakeState* state) {
    PutFrames(choices, plan, state);
    NoteFrame();
    const bool discarded = plan.abort != 0;
    const uint64_t size = VornMakeClose(state, plan.abort);
    stateInHand = nullptr;
    const std::vector<uint8_t>& final = disk->files.at(NAME);
    if (final == Bytes(OLDER)) {
        const bool gaveUp = script.giveUpAt != 0 && script.report >= script.giveUpAt;
        const bool failed = disk->Failed() || (failingRequest != 0 && requests >= failingRequest);
        Require(discarded || gaveUp || failed, "a movie is thrown away for a reason only");
    } else {
        Require(!discarded, "a movie that is to be discarded takes nobody's place");
        Require(final.size() == size, "the file has the size that was told");
        Require(disk->files.count(NAME + ".tmp") == 0, "the temporary name is gone");
        CheckFile(final, false);
        const bool stopped = script.stopAt != 0 && script.report >= script.stopAt;
        if (!stopped) Require(rebuilt.size() == std::min(plan.handed, plan.promised), "all frames are there");
    }
}

// All of it once. Returns the file that stands under the movie's name in the end.
std::vector<uint8_t> MakeMovie(Choices choices) {
    MemoryDisk memoryDisk;
    UseMemoryDisk(&memoryDisk);
    disk->files[NAME] = Bytes(OLDER);
    VornMakeSetMaxCPUs(1);
    Plan plan = TakePlan(&choices);
    rebuilt.clear();
    MOKSetMemory(Allocate, Release);
    stateInHand = nullptr;
    VornMakeState* state = Open(&plan);
    if (state != nullptr) {
        stateInHand = state;
        disk->beforeClose = NoteFrame;
        Finish(choices, plan, state);
    } else {
        Require(script.messages == 1, "one message says why a movie can't be made");
        Require(disk->files.size() == 1 && disk->files[NAME] == Bytes(OLDER), "a movie that isn't made leaves no file");
    }
    MOKSetMemory(nullptr, nullptr);
    Require(disk->open.empty(), "all files are closed");
    platform = &SYSTEM_PLATFORM;
    return disk->files[NAME];
}

} // namespace

// The last byte says with which other kernels the movie is made once more, if any.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> movie = MakeMovie({data, size});
    const int level = size > 0 ? data[size - 1] % 6 : 0;
    if (level < static_cast<int>(BestCpuLevel())) {
        UseLevel(static_cast<CpuLevel>(level));
        const std::vector<uint8_t> other = MakeMovie({data, size});
        UseLevel(BestCpuLevel());
        Require(movie == other, "all kernels make the same movie");
    }
    return 0;
}
