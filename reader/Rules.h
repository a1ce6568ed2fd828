// Rules.h - what the reader's files share to judge a movie's head. Internal to the reader.
#pragma once

#include "reader/Reader.h"

namespace vorn::reader {

void NoteMovie(Violations* violations, Severity severity, const std::string& text);
// Checks what the head alone tells: header fields, track tables, index.
void CheckHead(const Movie& movie, Violations* violations);

// A packet of a track that isn't empty.
struct TrackPacket {
    uint32_t frame;
    AudioPacket packet;
};
// PCM bytes that a block stands for, unless the track ends in it.
uint32_t AudioHop(const AudioKind& kind);
// Reads a track's packets and judges them. With `sound` it decodes them, too, as DecodeTrack does.
bool ReadPackets(const Movie& movie, uint32_t track, const std::vector<TrackPacket>& packets, TrackSound* sound,
                 Violations* violations);

} // namespace vorn::reader
