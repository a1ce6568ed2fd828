// MixFrames.cpp - what becomes of each frame's packet?
#include "mixing/MixInternal.h"

namespace vorn {

namespace {

uint32_t WordAt(const uint8_t* bytes) {
    return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

// Bytes of the track's audio packet at `position` of the frame packet of `size` bytes; 0 after a report.
uint32_t AudioPacketBytes(Mix* mix, uint32_t frame, uint32_t track, uint32_t position, uint32_t size) {
    const uint32_t left = size - position;
    if (left < 4) {
        ReportMix(
            mix,
            "Input Vorn file is damaged: frame %u has %u bytes left for the audio packet of track number %u, which "
            "takes at least 4.",
            frame, left, track);
        return 0;
    }
    const uint32_t length = WordAt(mix->packet + position);
    if (length > left - 4 || length % 2 != 0) { // an odd length would put a later packet at an odd offset
        ReportMix(
            mix,
            "Input Vorn file is damaged: in frame %u the audio packet of track number %u has a length of %u; even "
            "numbers up to %u are accepted.",
            frame, track, length, left - 4);
        return 0;
    }
    return length + 4;
}

// Writes the frame in `packet` with the sound of the track list.
bool WriteFrame(Mix* mix, uint32_t frame, uint32_t size) {
    uint32_t position = 0;
    for (uint32_t i = 0; i < mix->listCount; i++) {
        MixTrack* const entry = &mix->tracks[i];
        uint32_t old = 0;
        if (entry->fromInput) {
            old = AudioPacketBytes(mix, frame, i, position, size);
            if (old == 0) return false;
        }
        if (entry->action == MixAction::KEEP) {
            SpoolWrite(mix->output, mix->packet + position, old);
        } else if (entry->action == MixAction::ENCODE) {
            WriteAudioPacket(mix->output, &entry->state, frame, mix->header.rateNumerator,
                             mix->header.rateDenominator, &mix->record);
        }
        position += old;
    }
    SpoolWrite(mix->output, mix->packet + position, size - position);
    return true;
}

// Enters the frame that was written from `start` on into the index.
bool NoteFrame(Mix* mix, uint32_t frame, uint64_t start) {
    if (mix->output->incomplete != 0) return ReportWriteFailure(mix);
    mix->outputEnd = SpoolTell(mix->output);
    if (mix->outputEnd > LAST_OFFSET) {
        ReportMix(
            mix, "The new Vorn file would be too large: with frame %u it passes the 4294967294 bytes that it can have.",
            frame);
        return false;
    }
    const uint32_t bytes = static_cast<uint32_t>(mix->outputEnd - start);
    mix->outputIndex[frame + 1] = static_cast<uint32_t>(mix->outputEnd) | (mix->inputIndex[frame + 1] & KEY_FRAME_BIT);
    if (bytes > mix->largestFrame) mix->largestFrame = bytes;
    return true;
}

} // namespace

bool WalkFrames(Mix* mix) {
    for (uint32_t i = 0; i < mix->header.frames && !mix->cancelled; i++) {
        const uint64_t start = SpoolTell(mix->output);
        mix->record.frame = i;
        mix->record.outputPosition = static_cast<uint32_t>(start);
        if (mix->callback != nullptr && mix->callback(VORN_PROGRESS, &mix->record, "") != 0) mix->cancelled = true;

        const uint32_t size = (mix->inputIndex[i + 1] & ~KEY_FRAME_BIT) - (mix->inputIndex[i] & ~KEY_FRAME_BIT);
        // The index was read twice, and somebody may have changed the file in between.
        const uint32_t got = size <= mix->largestPacket ? SpoolRead(mix->input, mix->packet, size) : 0;
        if (got != size) {
            ReportMix(mix, "Input Vorn file is damaged: it ends inside frame %u, after %u of its %u bytes.", i, got,
                      size);
            return false;
        }
        mix->outputIndex[i] = static_cast<uint32_t>(start) | (mix->inputIndex[i] & KEY_FRAME_BIT);
        if (!WriteFrame(mix, i, size) || !NoteFrame(mix, i, start)) return false;
    }
    return true;
}

} // namespace vorn
