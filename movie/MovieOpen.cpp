// MovieOpen.cpp - how a movie begins: its arguments, its temporary file, its one block of memory, its head.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <numeric>

#include "allocation/CostModels.h"
#include "allocation/FrameDriver.h"
#include "audio/AudioTrack.h"
#include "bitstream/PlaneEncoder.h"
#include "files/Memory.h"
#include "movie/Movie.h"
#include "platform/Workers.h"

namespace vorn {

namespace {

constexpr int32_t LEAST_LOOK_AHEAD = 2;
constexpr int32_t MOST_LOOK_AHEAD = VORN_QUEUE_FRAMES;

const char OUT_OF_MEMORY[] = "Out of memory!";
const char NO_TEMPORARY_FILE[] = "Couldn't create temporary file.\n\nSome possible reasons for this error include:\n"
                                 "  1) compressing to a read-only drive (like a CD-ROM),\n"
                                 "  2) compressing to a drive that is full (out of disk space), or\n"
                                 "  3) compressing multiple files to the same Vorn output filename.";

void SetGeometry(VornMakeState* record) {
    record->lumaWidth = RoundToBlocks(record->width);
    record->lumaHeight = RoundToBlocks(record->height);
    record->chromaWidth = RoundToBlocks((record->width + 1) / 2);
    record->chromaHeight = RoundToBlocks((record->height + 1) / 2);
}

// Plans four planes, one of each kind.
void PlanPlanes(const VornMakeState* record, uint8_t** y, uint8_t** cr, uint8_t** cb, uint8_t** alpha) {
    PlanBuffer(y, LumaSamples(record));
    PlanBuffer(cr, ChromaSamples(record));
    PlanBuffer(cb, ChromaSamples(record));
    PlanBuffer(alpha, LumaSamples(record));
}

// Plans every buffer of the movie, in the order in which they lie in its block. Geometry and counts are set.
void PlanMovie(VornMakeState* record) {
    const uint64_t indexBytes = (uint64_t(record->frameCapacity) + 1) * 4;
    PlanBuffer(&record->frameIndex, indexBytes);
    PlanBuffer(&record->frameErrors, indexBytes);
    for (uint32_t i = 0; i < record->lookAhead; i++) {
        PlanPlanes(record, &record->queueY[i], &record->queueCr[i], &record->queueCb[i], &record->queueAlpha[i]);
    }
    PlanPlanes(record, &record->previousY, &record->previousCr, &record->previousCb, &record->previousAlpha);
    for (int i = 0; i < 2; i++) {
        PlanPlanes(record, &record->referenceY[i], &record->referenceCr[i], &record->referenceCb[i],
                   &record->referenceAlpha[i]);
    }
    const uint64_t lumaPacket = PacketBytes(record->lumaWidth, record->lumaHeight);
    const uint64_t chromaPacket = PacketBytes(record->chromaWidth, record->chromaHeight);
    PlanBuffer(&record->packetY, lumaPacket);
    PlanBuffer(&record->packetCr, chromaPacket);
    PlanBuffer(&record->packetCb, chromaPacket);
    PlanBuffer(&record->packetAlpha, lumaPacket);
    PlanBuffer(&record->tracks, uint64_t(record->trackCount) * sizeof(AudioTrackState));
}

// Whether the movie's block, a frame's scratch memory and the head of the file all stay within 32-bit sizes.
bool MovieFits(VornMakeState* record) {
    if (record->height > INT32_MAX) return false; // a plane of 8 columns alone would be too large
    SetGeometry(record);
    PlanMovie(record);
    const uint64_t blockBytes = PlannedBytes(sizeof(MovieBlock));
    EmptyPlan();
    const uint64_t scratchBytes =
        FrameScratchBytes(record->lumaWidth, record->lumaHeight, record->chromaWidth, record->chromaHeight);
    const uint64_t headBytes =
        HEADER_BYTES + uint64_t(record->trackCount) * 12 + (uint64_t(record->frameCapacity) + 1) * 4;
    return blockBytes <= LARGEST_BLOCK && scratchBytes <= LARGEST_BLOCK && headBytes <= UINT32_MAX;
}

// The largest value of `field` with which the movie fits, all else as it is.
uint32_t LargestFitting(VornMakeState* record, uint32_t VornMakeState::*field) {
    const uint32_t wanted = record->*field;
    uint32_t fitting = 0;
    uint32_t tooLarge = UINT32_MAX; // as a height or a count
    while (tooLarge - fitting > 1) {
        const uint32_t middle = fitting + (tooLarge - fitting) / 2;
        record->*field = middle;
        (MovieFits(record) ? fitting : tooLarge) = middle;
    }
    record->*field = wanted;
    return fitting;
}

// Reports that an argument lies outside its range. Always false.
bool Refuse(const VornMakeState* record, const char* argument, uint32_t value, uint32_t least, uint32_t most) {
    char text[160];
    std::snprintf(text, sizeof text, "Vorn can't make this movie: %s is %u, but must be %u to %u.", argument, value,
                  least, most);
    ReportMessage(record->progressCallback, nullptr, text);
    return false;
}

bool CheckName(const char* fileName, ProgressCallback callback) {
    char text[160];
    const size_t length = fileName == nullptr ? 0 : std::strlen(fileName);
    if (length >= 1 && length <= LONGEST_NAME) return true;
    if (fileName == nullptr) {
        std::snprintf(text, sizeof text, "Vorn can't make this movie: fileName is null, but must have 1 to %u bytes.",
                      LONGEST_NAME);
    } else {
        std::snprintf(text, sizeof text, "Vorn can't make this movie: fileName has %zu bytes, but must have 1 to %u.",
                      length, LONGEST_NAME);
    }
    ReportMessage(callback, nullptr, text);
    return false;
}

// Finds the argument that gives the movie no picture or makes it too large for 32 bits: the picture by itself, then the
// tracks, then the frames.
bool CheckSizes(VornMakeState* record) {
    const uint32_t frames = record->frameCapacity;
    const uint32_t tracks = record->trackCount;
    record->frameCapacity = 0;
    record->trackCount = 0;
    if (record->height == 0 || !MovieFits(record)) {
        return Refuse(record, "height", record->height, 1, LargestFitting(record, &VornMakeState::height));
    }
    record->trackCount = tracks;
    if (!MovieFits(record)) {
        return Refuse(record, "trackCount", tracks, 0, LargestFitting(record, &VornMakeState::trackCount));
    }
    record->frameCapacity = frames;
    if (!MovieFits(record)) {
        return Refuse(record, "frames", frames, 0, LargestFitting(record, &VornMakeState::frameCapacity));
    }
    return true;
}

bool CheckTracks(const VornMakeState* record, const TrackDescriptor* tracks) {
    if (record->trackCount != 0 && tracks == nullptr) {
        char text[160];
        std::snprintf(
            text, sizeof text,
            "Vorn can't make this movie: tracks is null, but must point to %u descriptors, as trackCount says.",
            record->trackCount);
        ReportMessage(record->progressCallback, nullptr, text);
        return false;
    }
    for (uint32_t i = 0; i < record->trackCount; i++) {
        const TrackProblem problem = CheckTrack(tracks[i], i, true);
        if (problem.text[0] == 0) continue;
        ReportMessage(record->progressCallback, nullptr, problem.text);
        return false;
    }
    return true;
}

// Everything that could make the movie impossible to write, before there is a file. Reports what it finds.
bool CheckArguments(VornMakeState* record, const TrackDescriptor* tracks) {
    if (record->width < 1 || record->width > MAX_PADDED_WIDTH) {
        return Refuse(record, "width", record->width, 1, MAX_PADDED_WIDTH);
    }
    if (record->rateNumerator == 0) return Refuse(record, "rateNumerator", 0, 1, UINT32_MAX);
    return CheckSizes(record) && CheckTracks(record, tracks);
}

void SetNames(VornMakeState* record, const char* fileName) {
    std::snprintf(record->finalName, sizeof record->finalName, "%s", fileName);
    std::snprintf(record->tempName, sizeof record->tempName, "%s.tmp", fileName);
}

void UnpackOptions(VornMakeState* record, uint32_t packedOptions) {
    record->headerMode = packedOptions % 100;
    if (packedOptions / 100 % 10 != 0) record->flags |= FLAG_GREY;
    if (packedOptions / 1000 != 0) record->flags |= FLAG_ALPHA;
}

// The rate in lowest terms; with a denominator of 0 that is 1/0. The numerator isn't 0.
void SetRate(VornMakeState* record, uint32_t numerator, uint32_t denominator) {
    const uint32_t divisor = std::gcd(numerator, denominator);
    record->rateNumerator = numerator / divisor;
    record->rateDenominator = denominator / divisor;
}

void ClearPlanes(const VornMakeState* state, uint8_t* y, uint8_t* cr, uint8_t* cb, uint8_t* alpha) {
    std::fill_n(y, LumaSamples(state), uint8_t{0});
    std::fill_n(cr, ChromaSamples(state), uint8_t{0});
    std::fill_n(cb, ChromaSamples(state), uint8_t{0});
    std::fill_n(alpha, LumaSamples(state), uint8_t{0});
}

// Makes the movie's block and moves the record into it, everything in its first state. Null if there is no memory.
VornMakeState* MakeBlock(VornMakeState* record) {
    PlanMovie(record);
    MovieBlock* block = static_cast<MovieBlock*>(AllocatePlan(sizeof(MovieBlock)));
    if (block == nullptr) return nullptr;
    *block = {*record, {}, 0};
    VornMakeState* state = &block->state;
    const size_t indexBytes = (size_t(state->frameCapacity) + 1) * 4;
    std::memset(state->frameIndex, 0, indexBytes);
    std::memset(state->frameErrors, 0, indexBytes);
    std::fill_n(state->tracks, state->trackCount, AudioTrackState{});
    for (uint32_t i = 0; i < state->lookAhead; i++) {
        ClearPlanes(state, state->queueY[i], state->queueCr[i], state->queueCb[i], state->queueAlpha[i]);
    }
    ClearPlanes(state, state->previousY, state->previousCr, state->previousCb, state->previousAlpha);
    for (int i = 0; i < 2; i++) {
        ClearPlanes(state, state->referenceY[i], state->referenceCr[i], state->referenceCb[i],
                    state->referenceAlpha[i]);
    }
    state->nextRate = state->queueRate;
    state->nextCap = state->queueCap;
    state->nextKey = state->queueKey;
    return state;
}

// Opens every track's encoder, or none: false if there is no memory.
bool OpenTracks(VornMakeState* state, const TrackDescriptor* tracks) {
    for (uint32_t i = 0; i < state->trackCount; i++) {
        if (InitAudioTrack(&state->tracks[i], tracks[i], state->frameCapacity, state->rateNumerator,
                           state->rateDenominator)) {
            continue;
        }
        for (uint32_t j = 0; j <= i; j++) mokfree(state->tracks[j].encoder);
        return false;
    }
    return true;
}

} // namespace

} // namespace vorn

using namespace vorn;

VornMakeState* VORN_CALL VornMake(const char* fileName, uint32_t sourcePitch, uint32_t width, uint32_t height,
                                  uint32_t frames, uint32_t keyInterval, uint32_t packedOptions, uint32_t rateNumerator,
                                  uint32_t rateDenominator, uint32_t trackCount, const TrackDescriptor* tracks,
                                  int32_t lookAhead, ProgressCallback callback) {
    QueryProcessors();
    if (!CheckName(fileName, callback)) return nullptr;
    VornMakeState record = {};
    record.progressCallback = callback;
    SetNames(&record, fileName);
    record.frameCapacity = frames;
    record.width = width;
    record.height = height;
    record.rateNumerator = rateNumerator;
    record.sourcePitch = sourcePitch;
    record.lookAhead = static_cast<uint32_t>(std::clamp(lookAhead, LEAST_LOOK_AHEAD, MOST_LOOK_AHEAD));
    record.trackCount = trackCount;
    record.keyInterval = keyInterval;
    record.keyCountdown = static_cast<int32_t>(keyInterval);
    UnpackOptions(&record, packedOptions);
    if (!CheckArguments(&record, tracks)) return nullptr;
    SetRate(&record, rateNumerator, rateDenominator);
    SetGeometry(&record);

    record.file = SpoolCreate(MOVIE_BUFFER_BYTES, record.tempName, true);
    if (record.file == nullptr) {
        ReportMessage(callback, &record, NO_TEMPORARY_FILE);
        return nullptr;
    }
    VornMakeState* state = MakeBlock(&record);
    if (state == nullptr || !OpenTracks(state, tracks)) {
        mokfree(state);
        ReportMessage(callback, nullptr, OUT_OF_MEMORY);
        SpoolClose(record.file);
        DeleteNamedFile(record.tempName);
        return nullptr;
    }

    TakeFileHold(state);
    WriteMovieHead(state);
    ReleaseFileHold(state);
    SetCostModelDefaults(&state->costY, PlaneKind::LUMA);
    SetCostModelDefaults(&state->costCr, PlaneKind::CHROMA);
    SetCostModelDefaults(&state->costCb, PlaneKind::CHROMA);
    SetCostModelDefaults(&state->costAlpha, PlaneKind::ALPHA);
    return state;
}

uint32_t VORN_CALL VornMakeSetMaxCPUs(uint32_t limit) {
    QueryProcessors();
    return ExchangeWorkerCount(limit);
}
