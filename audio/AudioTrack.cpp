// AudioTrack.cpp - how much of a track's sound goes into which frame, and the packet around it.
#include "audio/AudioTrack.h"

#include <cstdio>
#include <cstring>

#include "audio/AudioEncoder.h"
#include "format/AudioFormat.h"
#include "format/MovieLayout.h"

namespace vorn {
namespace {

constexpr uint32_t VARIANT_STEP = 100;         // a descriptor's quality from here on names the DFT variant
constexpr uint32_t PACKET_HEAD = 8;            // bytes of the two words of a packet that is not empty
constexpr uint32_t LONGEST_TRACK = 0xfffffffc; // bytes of PCM, in whole words
constexpr uint32_t FIRST_PCM_TALLY = 45;
constexpr uint32_t FIRST_CODED_TALLY = 10;

uint32_t BytesPerSecond(const TrackDescriptor& descriptor) {
    return descriptor.sampleRate * descriptor.channels * 2;
}

// PCM bytes in `frames` frames, truncated; held to 64 bits. The remainder goes its own way, so that no product wraps.
uint64_t BytesOfFrames(uint32_t bytesPerSecond, uint32_t frames, uint32_t rateNumerator, uint32_t rateDenominator) {
    const uint64_t product = uint64_t(bytesPerSecond) * frames;
    const uint64_t whole = product / rateNumerator;
    const uint64_t rest = product % rateNumerator * rateDenominator / rateNumerator;
    if (rateDenominator > 0 && whole > (UINT64_MAX - UINT32_MAX - rest) / rateDenominator)
        return UINT64_MAX - UINT32_MAX;
    return whole * rateDenominator + rest;
}

// PCM bytes that must be covered once the frame's packet is in the file.
uint64_t TargetBytes(const AudioTrackState* track, uint32_t frameNumber, uint32_t rateNumerator,
                     uint32_t rateDenominator) {
    return BytesOfFrames(track->bytesPerSecond, frameNumber, rateNumerator, rateDenominator) + track->leadBytes;
}

// Asks the source for one block and makes up with silence what it lacks, as far as the track goes. `ended` is set when
// the track's length, not its source, ends inside the block.
uint32_t FillBlock(AudioTrackState* track, const AudioArea& area, void* record, bool* ended) {
    uint32_t bytes = track->read(record, track->user, area.address, area.bytes);
    if (bytes > area.bytes) bytes = area.bytes;
    if (bytes < area.bytes && track->pcmLeft > bytes) {
        const uint32_t room = area.bytes - bytes;
        const uint32_t lacking = track->pcmLeft - bytes;
        const uint32_t silence = room < lacking ? room : lacking;
        std::memset(area.address + bytes, 0, silence);
        bytes += silence;
    }
    if (bytes < area.bytes) *ended = true;
    return bytes;
}

// Reads and codes one block and appends it to the file.
void WriteBlock(SpoolFile* file, AudioTrackState* track, void* record, bool* ended) {
    const AudioArea area = AudioInputArea(track->encoder);
    const uint32_t bytes = FillBlock(track, area, record, ended);
    track->pcmTally += track->bits == 8 ? bytes / 2 : bytes;
    const CodedAudio coded = EncodeAudioBlock(track->encoder, track->quality, bytes);
    track->codedTally += coded.bytes;
    SpoolWrite(file, coded.data, coded.bytes);
    const uint32_t accounted = coded.pcmBytes < track->pcmLeft ? coded.pcmBytes : track->pcmLeft;
    track->pcmDone += accounted;
    track->pcmLeft -= accounted;
}

} // namespace

TrackProblem CheckTrack(const TrackDescriptor& descriptor, uint32_t number, bool needsRead) {
    TrackProblem problem = {};
    const auto report = [&](const char* field, uint32_t value, const char* wanted) {
        std::snprintf(problem.text, sizeof(problem.text), "Sound track %u (id %u): %s is %u, but it must be %s", number,
                      descriptor.id, field, value, wanted);
    };
    if (descriptor.channels != 1 && descriptor.channels != 2)
        report("channels", descriptor.channels, "1 or 2");
    else if (descriptor.sampleRate == 0 || descriptor.sampleRate > 65535)
        report("sampleRate", descriptor.sampleRate, "from 1 to 65535 samples a second");
    else if (needsRead && !descriptor.read)
        std::snprintf(problem.text, sizeof(problem.text),
                      "Sound track %u (id %u): read is null, but it must be the function that delivers the sound",
                      number, descriptor.id);
    return problem;
}

TrackProblem CheckTrackLength(const TrackDescriptor& descriptor, uint32_t number, uint32_t frameCount,
                              uint32_t rateNumerator, uint32_t rateDenominator) {
    TrackProblem problem = {};
    const uint64_t scaled = uint64_t(BytesPerSecond(descriptor)) * rateDenominator; // below 2^50
    if (scaled == 0) return problem;
    // The largest n for which n * scaled / rateNumerator is LONGEST_TRACK at most.
    const uint64_t most = ((uint64_t(LONGEST_TRACK) + 1) * rateNumerator - 1) / scaled;
    if (frameCount > most)
        std::snprintf(
            problem.text, sizeof(problem.text),
            "Sound track %u (id %u): %u frames at a frame rate of %u/%u make it too long; the %u bytes that a "
            "track can have last for %u",
            number, descriptor.id, frameCount, rateNumerator, rateDenominator, LONGEST_TRACK, uint32_t(most));
    return problem;
}

bool InitAudioTrack(AudioTrackState* track, const TrackDescriptor& descriptor, uint32_t frameCount,
                    uint32_t rateNumerator, uint32_t rateDenominator) {
    const bool perChannelDct = descriptor.quality < VARIANT_STEP;
    track->id = descriptor.id;
    track->sampleRate = descriptor.sampleRate;
    track->bits = descriptor.bits;
    track->channels = descriptor.channels;
    track->user = descriptor.user;
    track->read = descriptor.read;
    track->format = descriptor.sampleRate + (descriptor.bits == 16 ? TRACK_FLAG_16BIT : 0) +
                    (descriptor.channels == 2 ? TRACK_FLAG_STEREO : 0) +
                    (perChannelDct ? TRACK_FLAG_VARIANT_LOW : TRACK_FLAG_VARIANT_HIGH);
    track->bytesPerSecond = BytesPerSecond(descriptor);
    track->leadBytes = track->bytesPerSecond * 3 / 4;
    track->pcmDone = 0;
    track->quality = descriptor.quality % VARIANT_STEP;
    const uint64_t length = BytesOfFrames(track->bytesPerSecond, frameCount, rateNumerator, rateDenominator);
    track->pcmLeft = uint32_t((length + 3) / 4 * 4);
    track->pcmTally = FIRST_PCM_TALLY;
    track->codedTally = FIRST_CODED_TALLY;
    track->encoder = OpenAudioEncoder(descriptor.sampleRate, descriptor.channels, perChannelDct);
    return track->encoder != nullptr;
}

void WriteAudioPacket(SpoolFile* file, AudioTrackState* track, uint32_t frameNumber, uint32_t rateNumerator,
                      uint32_t rateDenominator, void* record) {
    const uint64_t target = TargetBytes(track, frameNumber, rateNumerator, rateDenominator);
    const uint64_t position = SpoolTell(file);
    const uint32_t start = track->pcmDone;
    SpoolWriteWord(file, 0);
    if (target <= track->pcmDone || track->pcmLeft == 0) return;
    SpoolWriteWord(file, 0);

    bool ended = false;
    do WriteBlock(file, track, record, &ended);
    while (track->pcmDone < target && track->pcmLeft > 0 && !ended);
    if (ended) track->pcmLeft = 0;

    const uint64_t end = SpoolTell(file);
    const uint32_t pcmBytes = track->pcmDone - start;
    SpoolSeek(file, position);
    SpoolWriteWord(file, uint32_t(end - position - 4));
    SpoolWriteWord(file, pcmBytes);
    SpoolSeek(file, end);
    if (pcmBytes > track->largestPcm) track->largestPcm = pcmBytes;
}

uint64_t AudioPacketBound(const AudioTrackState* track, uint32_t frameNumber, uint32_t rateNumerator,
                          uint32_t rateDenominator) {
    const uint64_t target = TargetBytes(track, frameNumber, rateNumerator, rateDenominator);
    if (target <= track->pcmDone || track->pcmLeft == 0) return 4;
    const uint64_t lacking = target - track->pcmDone;
    const uint64_t wanted = lacking < track->pcmLeft ? lacking : track->pcmLeft;
    const uint32_t blockBytes = BaseTransformSize(track->sampleRate) * track->channels * 2;
    const uint32_t hop = blockBytes - blockBytes / OVERLAP_PARTS; // every block but the track's last accounts for this
    return PACKET_HEAD + (wanted + hop - 1) / hop * CodedBlockBound(track->encoder);
}

} // namespace vorn
