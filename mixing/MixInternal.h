// MixInternal.h - what the files of this folder share about one call of VornMix.
// A mix's road: CheckArguments, OpenInput, CheckHead, CreateOutput, AllocateMix, ReadHead, BuildTrackList,
// WritePlaceholders, WalkFrames, FinishOutput. Each but WritePlaceholders answers false after it has reported why the mix
// can't go on; what was opened until then is released by DiscardMix in one place.
// The input may be anything that a stranger made: every count and length of it is checked before it is followed.
#pragma once

#include <cstdint>

#include "audio/AudioTrack.h"
#include "files/Container.h"
#include "public/vornmake.h"

namespace vorn {

constexpr uint32_t MIX_BUFFER_BYTES = 0x40000; // of the input and of the output
constexpr uint32_t LONGEST_INPUT_NAME = 127;   // bytes: what a SpoolFile's name holds
constexpr uint32_t LONGEST_OUTPUT_NAME = 123;  // bytes: with ".tmp" behind it, it still fits there
constexpr uint32_t LAST_OFFSET = 0xFFFFFFFE;   // highest packet offset that an index word holds: bit 0 is the key bit

enum class MixAction : uint8_t { KEEP, ENCODE, DROP };

// One track of the list: first those of the input, in its order, then the added ones.
// The callbacks see `state` of the entries that a descriptor brought in, so it comes first.
struct MixTrack {
    AudioTrackState state; // keep: id, format and largestPcm only, as the input has them. Drop: no meaning
    MixAction action;
    bool fromInput; // each frame packet of the input has an audio packet for it
};

// One mix. Cleared at the start; lives on the stack of VornMix.
struct Mix {
    VornMixRecord record; // given to the callbacks; all 0 until CreateOutput is done
    const char* inputName;
    const char* outputName;
    char tempName[128];   // outputName with ".tmp" behind it
    uint32_t movieOffset; // bytes
    int32_t audioShift;   // above 0 frames plus 1, below 0 milliseconds, 0 none
    uint32_t descriptorCount;
    TrackDescriptor* descriptors; // the caller's; used ones get sampleRate 0
    ProgressCallback callback;    // may be null

    SpoolFile* input;       // owned, null when closed
    SpoolFile* output;      // owned, null when closed
    bool outputMade;        // a file stands under tempName
    VornFileHeader header;  // of the input, with the rate in force once it is read
    uint64_t movieBytes;    // bytes of the input from movieOffset on
    uint32_t largestPacket; // bytes of the input's largest frame packet, by its index

    void* block;           // owned; everything below lies in it
    uint8_t* packet;       // largestPacket bytes
    MixTrack* tracks;      // header.trackCount + descriptorCount entries, the first listCount are set
    uint32_t* inputIndex;  // header.indexCapacity + 1 words
    uint32_t* outputIndex; // likewise
    uint32_t* largestPcm;  // the input's tables, header.trackCount words each
    uint32_t* formats;
    uint32_t* ids;
    uint32_t listCount;
    uint32_t outputTracks; // entries that aren't dropped
    uint32_t largestFrame; // bytes of the largest packet written
    uint64_t outputEnd;    // bytes written
    bool cancelled;
};

// Gives the caller a complete message; `format` as for printf, 511 bytes at most.
void ReportMix(Mix* mix, const char* format, ...);
// Reports that the output didn't reach the disk. Always false, to be returned.
bool ReportWriteFailure(Mix* mix);

// Reads `count` words of the file, low byte first. False if it ends before.
bool ReadWords(SpoolFile* file, uint32_t* words, uint32_t count);

// Silence in PCM bytes, a multiple of 4 cut to 32 bits, that the shift puts ahead of a track.
uint32_t ShiftBytes(int32_t audioShift, uint32_t bytesPerSecond, uint32_t rateNumerator, uint32_t rateDenominator);
// The read callback of every track encoded here: `entry` is the address of its AudioTrackState.
uint32_t VORN_CALL SilenceThenRead(void* record, uintptr_t entry, void* buffer, uint32_t bytes);
// Decides what becomes of each track and opens the encoders. Marks descriptors as used.
bool BuildTrackList(Mix* mix);
void FreeEncoders(Mix* mix);

// Copies every frame's packet with the new sound in it and builds the new index. Stops early if the callback asks.
bool WalkFrames(Mix* mix);

} // namespace vorn
