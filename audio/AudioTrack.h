// AudioTrack.h - one track of a movie: how much sound goes into which frame, and the packet around the coded blocks.
// Sound runs 3/4 of a second ahead of the picture. A track's length follows from the movie's frames and rate; a source
// that gives less is made up with silence.
#pragma once

#include <cstdint>

#include "files/SpoolFile.h"
#include "public/vornmake.h"

namespace vorn {
struct AudioEncoder;
}

// Named outside the namespace because the public record points to it.
struct AudioTrackState {
    uint32_t id;
    uint32_t sampleRate;     // samples per second of one channel
    uint32_t bits;
    uint32_t channels;
    uint32_t pcmTally;       // PCM bytes taken from the source, from 45 on; half of them if `bits` is 8
    uint32_t codedTally;     // coded bytes written, from 10 on
    uint32_t format;         // the file's trackFormat word
    uint32_t largestPcm;     // most PCM bytes of any packet so far
    uint32_t leadBytes;      // PCM bytes that the sound runs ahead of the picture
    uint32_t bytesPerSecond; // always 2 bytes a sample
    uint32_t pcmLeft;        // PCM bytes of the track that no written block accounts for yet
    uint32_t pcmDone;        // PCM bytes that written blocks account for
    uint32_t quality;        // 0 finest to 99
    vorn::AudioEncoder* encoder; // owned; released with mokfree
    uint32_t delayBytes;     // mixing: silence still to be delivered ahead of the source
    uintptr_t user;          // given to `read`
    uintptr_t innerUser;     // mixing: the descriptor's user
    AudioReadCallback read;
    AudioReadCallback innerRead; // mixing: the descriptor's read
};

namespace vorn {

// Why a descriptor can't become a track, as a text for the user; empty if it can. `number` is its place among the others.
struct TrackProblem {
    char text[200];
};
// `needsRead`: a null read is an error too.
TrackProblem CheckTrack(const TrackDescriptor& descriptor, uint32_t number, bool needsRead);
// Whether the sound of so many frames stays within a track's 32-bit counts. The descriptor has passed CheckTrack.
TrackProblem CheckTrackLength(const TrackDescriptor& descriptor, uint32_t number, uint32_t frameCount,
                              uint32_t rateNumerator, uint32_t rateDenominator);

// Fills a cleared track and opens its encoder. False if there is no memory for it. The descriptor has passed CheckTrack. A
// length that passes a word comes round.
bool InitAudioTrack(AudioTrackState* track, const TrackDescriptor& descriptor, uint32_t frameCount,
                    uint32_t rateNumerator, uint32_t rateDenominator);

// Appends the track's packet of one frame to the file. `record` goes to the track's read callback.
void WriteAudioPacket(SpoolFile* file, AudioTrackState* track, uint32_t frameNumber, uint32_t rateNumerator,
                      uint32_t rateDenominator, void* record);

// Most bytes that WriteAudioPacket can append for this frame.
uint64_t AudioPacketBound(const AudioTrackState* track, uint32_t frameNumber, uint32_t rateNumerator,
                          uint32_t rateDenominator);

} // namespace vorn
