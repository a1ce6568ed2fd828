// MixTracks.cpp - which tracks does the new movie have, and where does the sound of the new ones come from?
#include <cstring>

#include "mixing/MixInternal.h"

namespace vorn {

uint32_t ShiftBytes(int32_t audioShift, uint32_t bytesPerSecond, uint32_t rateNumerator, uint32_t rateDenominator) {
    uint64_t silence = 0;
    if (audioShift > 0) {
        // The product of frames wraps at 32 bits, the one with the rate doesn't.
        const uint32_t product = bytesPerSecond * (static_cast<uint32_t>(audioShift) - 1);
        silence = uint64_t{product} * rateDenominator / rateNumerator;
    } else if (audioShift < 0) {
        silence = uint64_t{bytesPerSecond} * (0u - static_cast<uint32_t>(audioShift)) / 1000;
    }
    return static_cast<uint32_t>(silence) & ~3u;
}

uint32_t VORN_CALL SilenceThenRead(void* record, uintptr_t entry, void* buffer, uint32_t bytes) {
    AudioTrackState* const state = reinterpret_cast<AudioTrackState*>(entry);
    const uint32_t zeros = bytes < state->delayBytes ? bytes : state->delayBytes;
    if (zeros > 0) std::memset(buffer, 0, zeros);
    state->delayBytes -= zeros;
    const uint32_t wanted = bytes - zeros;
    if (wanted == 0) return zeros;
    const uint32_t delivered =
        state->innerRead(record, state->innerUser, static_cast<uint8_t*>(buffer) + zeros, wanted);
    return zeros + (delivered < wanted ? delivered : wanted);
}

namespace {

// The first descriptor of this track number, or null. One that brings sound and is used already is passed over: it can't
// be two tracks. One that drops does so with every track of its number, whatever its rate.
TrackDescriptor* FindDescriptor(const Mix* mix, uint32_t id) {
    for (uint32_t i = 0; i < mix->descriptorCount; i++) {
        TrackDescriptor* const descriptor = &mix->descriptors[i];
        if (descriptor->id == id && (descriptor->read == nullptr || descriptor->sampleRate != 0)) return descriptor;
    }
    return nullptr;
}

// Sets the entry up for new sound from the descriptor and marks that as used. With a damaged rate the track is mostly too long.
bool EncodeEntry(Mix* mix, MixTrack* entry, TrackDescriptor* descriptor) {
    const VornFileHeader& header = mix->header;
    entry->action = MixAction::ENCODE;
    const TrackProblem problem = CheckTrackLength(*descriptor, static_cast<uint32_t>(descriptor - mix->descriptors),
                                                  header.frames, header.rateNumerator, header.rateDenominator);
    if (problem.text[0] != 0) {
        ReportMix(mix, "%s", problem.text);
        return false;
    }
    if (!InitAudioTrack(&entry->state, *descriptor, header.frames, header.rateNumerator, header.rateDenominator)) {
        ReportMix(mix, "Out of memory!");
        return false;
    }
    AudioTrackState& state = entry->state;
    state.largestPcm = 0;
    state.innerRead = state.read;
    state.innerUser = state.user;
    state.read = SilenceThenRead;
    state.user = reinterpret_cast<uintptr_t>(&state);
    state.delayBytes = ShiftBytes(mix->audioShift, state.bytesPerSecond, header.rateNumerator, header.rateDenominator);
    descriptor->sampleRate = 0;
    return true;
}

// Notes the first entry that a descriptor brought in.
void NoteFirst(MixTrack** first, MixTrack* entry) {
    if (*first == nullptr) *first = entry;
}

} // namespace

bool BuildTrackList(Mix* mix) {
    MixTrack* first = nullptr;
    for (uint32_t t = 0; t < mix->header.trackCount; t++) {
        MixTrack* const entry = &mix->tracks[mix->listCount++];
        entry->fromInput = true;
        TrackDescriptor* const descriptor = FindDescriptor(mix, mix->ids[t]);
        if (descriptor == nullptr) {
            entry->action = MixAction::KEEP;
            entry->state.largestPcm = mix->largestPcm[t];
            entry->state.format = mix->formats[t];
            entry->state.id = mix->ids[t];
            continue;
        }
        NoteFirst(&first, entry);
        if (descriptor->read == nullptr) {
            entry->action = MixAction::DROP;
            descriptor->sampleRate = 0;
        } else if (!EncodeEntry(mix, entry, descriptor)) {
            return false;
        }
    }
    for (uint32_t i = 0; i < mix->descriptorCount; i++) {
        TrackDescriptor* const descriptor = &mix->descriptors[i];
        if (descriptor->sampleRate == 0) continue;
        if (descriptor->read == nullptr) { // nothing to drop
            descriptor->sampleRate = 0;
            continue;
        }
        MixTrack* const entry = &mix->tracks[mix->listCount++];
        NoteFirst(&first, entry);
        if (!EncodeEntry(mix, entry, descriptor)) return false;
    }
    for (uint32_t i = 0; i < mix->listCount; i++)
        if (mix->tracks[i].action != MixAction::DROP) mix->outputTracks++;
    mix->record.firstTrack = first == nullptr ? nullptr : &first->state;
    return true;
}

void FreeEncoders(Mix* mix) {
    for (uint32_t i = 0; i < mix->listCount; i++) {
        MixTrack& entry = mix->tracks[i];
        if (entry.action != MixAction::ENCODE) continue;
        mokfree(entry.state.encoder);
        entry.state.encoder = nullptr;
    }
}

} // namespace vorn
