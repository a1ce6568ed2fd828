// AudioDecoder.cpp - from coded blocks to the PCM of a track: inverse transforms, the join of blocks, the packets' words.
// Double precision; the transforms go through one plain complex transform of radix 2.
#include <algorithm>
#include <cmath>
#include <complex>
#include <optional>

#include "format/AudioFormat.h"
#include "numeric/PortableMath.h"
#include "reader/Rules.h"

namespace vorn::reader {
namespace {

using Complex = std::complex<double>;

// What all blocks of a track share.
struct TransformTables {
    AudioShape shape;
    bool perChannelDct;
    uint32_t points;                // of the complex transform: 512 to 4096
    std::vector<Complex> turns;     // e^(2 pi i k / points), k below points / 2
    std::vector<Complex> halfTurns; // e^(pi i k / points), the same k; of the DCT only
    std::vector<uint32_t> reversed;
};

TransformTables MakeTables(const AudioKind& kind) {
    TransformTables tables = {};
    tables.shape = ShapeOfAudio(kind.sampleRate, kind.channels, kind.perChannelDct);
    tables.perChannelDct = kind.perChannelDct;
    const uint32_t points = kind.perChannelDct ? 2 * tables.shape.transformSize : tables.shape.transformSize;
    tables.points = points;
    for (uint32_t k = 0; k < points / 2; k++) {
        const double angle = double(k) / points;
        tables.turns.emplace_back(CosPi(2.0 * angle), SinPi(2.0 * angle));
        if (kind.perChannelDct) tables.halfTurns.emplace_back(CosPi(angle), SinPi(angle));
    }
    tables.reversed.assign(points, 0);
    for (uint32_t i = 1; i < points; i++) {
        tables.reversed[i] = tables.reversed[i >> 1] >> 1 | ((i & 1) != 0 ? points >> 1 : 0);
    }
    return tables;
}

// z[k] becomes the sum of z[j] * e^(2 pi i j k / points).
void Backward(const TransformTables& tables, std::vector<Complex>* values) {
    std::vector<Complex>& z = *values;
    for (uint32_t i = 0; i < tables.points; i++) {
        if (i < tables.reversed[i]) std::swap(z[i], z[tables.reversed[i]]);
    }
    for (uint32_t half = 1; half < tables.points; half *= 2) {
        const uint32_t stride = tables.points / (2 * half);
        for (uint32_t start = 0; start < tables.points; start += 2 * half) {
            for (uint32_t k = 0; k < half; k++) {
                const Complex turn = tables.turns[size_t(k) * stride], right = z[start + half + k];
                const Complex turned(turn.real() * right.real() - turn.imag() * right.imag(),
                                     turn.real() * right.imag() + turn.imag() * right.real());
                z[start + half + k] = z[start + k] - turned;
                z[start + k] += turned;
            }
        }
    }
}

// Inverse real DFT: y holds R[0], R[n/2], then R[k] and I[k] in turn, I with a plus sign.
std::vector<double> InverseDft(const TransformTables& tables, const std::vector<double>& y) {
    const size_t n = y.size();
    std::vector<Complex> z(n);
    z[0] = y[0] / 2;
    z[n / 2] = y[1] / 2;
    for (size_t k = 1; k < n / 2; k++) {
        z[k] = Complex(y[2 * k], -y[2 * k + 1]) * 0.5;
        z[n - k] = std::conj(z[k]);
    }
    Backward(tables, &z);
    std::vector<double> samples(n);
    for (size_t k = 0; k < n; k++) samples[k] = z[k].real();
    return samples;
}

// Inverse DCT: sample k is the sum of y[j] * cos(pi * j * (k + 1/2) / n), as the real part of a transform of 2n points.
std::vector<double> InverseDct(const TransformTables& tables, const std::vector<double>& y) {
    const size_t n = y.size();
    std::vector<Complex> z(2 * n);
    for (size_t j = 0; j < n; j++) z[j] = y[j] * tables.halfTurns[j];
    Backward(tables, &z);
    std::vector<double> samples(n);
    for (size_t k = 0; k < n; k++) samples[k] = z[k].real();
    return samples;
}

std::vector<double> Dequantise(const AudioShape& shape, const CodedSpectrum& spectrum) {
    std::vector<double> y(shape.transformSize);
    for (uint32_t b = 0; b < shape.bandCount; b++) {
        const double step = Pow10(STEP_EXPONENT * spectrum.steps[b]);
        for (uint32_t i = 2 * shape.bandEdges[b]; i < 2 * shape.bandEdges[b + 1]; i++) {
            y[i] = step * spectrum.coefficients[i];
        }
    }
    y[0] = spectrum.values[0];
    y[1] = spectrum.values[1];
    return y;
}

std::vector<double> RestoreBlock(const TransformTables& tables, const CodedAudioBlock& block) {
    const AudioShape& shape = tables.shape;
    const double scale = 2.0 / std::sqrt(double(shape.transformSize));
    std::vector<double> samples(size_t(shape.transformSize) * shape.transformCount);
    for (uint32_t t = 0; t < shape.transformCount; t++) {
        const std::vector<double> y = Dequantise(shape, block.spectra[t]);
        const std::vector<double> x = tables.perChannelDct ? InverseDct(tables, y) : InverseDft(tables, y);
        for (size_t i = 0; i < x.size(); i++) samples[i * shape.transformCount + t] = x[i] * scale;
    }
    return samples;
}

int16_t ToPcm(double sample) {
    return int16_t(std::floor(std::clamp(sample, -32768.0, 32767.0) + 0.5));
}

// Makes blocks into samples and joins them: the first `overlap` samples of a block and the last of the one before are
// mixed, the weight of the new one rising evenly.
struct Joiner {
    TransformTables tables;
    size_t overlap; // interleaved samples
    size_t channels;
    std::vector<double> tail; // of the block before; empty at the start
    std::vector<int16_t>* out;

    void Append(const CodedAudioBlock& coded) {
        const std::vector<double> block = RestoreBlock(tables, coded);
        const size_t frames = overlap / channels;
        for (size_t i = 0; i < block.size() - overlap; i++) {
            double sample = block[i];
            if (i < tail.size()) {
                const double weight = (double(i / channels) + 0.5) / double(frames);
                sample = tail[i] + weight * (block[i] - tail[i]);
            }
            out->push_back(ToPcm(sample));
        }
        tail.assign(block.end() - std::ptrdiff_t(overlap), block.end());
    }
    void Finish() {
        for (const double sample : tail) out->push_back(ToPcm(sample));
    }
};

Joiner MakeJoiner(const AudioKind& kind, std::vector<int16_t>* out) {
    Joiner joiner = {MakeTables(kind), 0, kind.channels, {}, out};
    joiner.overlap = joiner.tables.shape.overlapBytes / 2;
    return joiner;
}

// Reads the blocks of one packet, which must use up its length exactly, and hands them to the joiner, if there is one.
// Each block but the track's last stands for `hop` PCM bytes, that one for 4 at least. False if a block breaks off.
bool ReadPacket(const AudioKind& kind, uint32_t hop, const TrackPacket& packet, Violation place, Joiner* joiner,
                uint32_t* blocks, Violations* violations) {
    const uint64_t pcmBytes = packet.packet.pcmBytes;
    Bytes rest = packet.packet.coded;
    place.frame = packet.frame;
    const auto note = [&](Severity severity, const char* text) {
        place.severity = severity;
        place.text = text;
        AddViolation(violations, place);
    };
    if (rest.size == 0) note(SEVERITY_ERROR, "An audio packet that isn't empty holds no block.");
    for (*blocks = 0; rest.size != 0; (*blocks)++) {
        CodedAudioBlock block;
        Violation start = place;
        start.bit = int64_t(8 * (packet.packet.coded.size - rest.size));
        if (!ReadAudioBlock(kind, rest, start, &block, violations)) return false;
        if (joiner != nullptr) joiner->Append(block);
        rest.data += block.bytes;
        rest.size -= block.bytes;
    }
    const uint64_t room = uint64_t(*blocks) * hop;
    if (pcmBytes > room) {
        note(SEVERITY_ERROR, "The packet stands for more PCM bytes than its blocks hold.");
    } else if (pcmBytes % 4 != 0 || pcmBytes + hop <= room) {
        note(SEVERITY_HABIT, "The packet's PCM bytes aren't what the encoder counts for its blocks.");
    }
    return true;
}

} // namespace

uint32_t AudioHop(const AudioKind& kind) {
    const uint32_t blockBytes = BaseTransformSize(kind.sampleRate) * kind.channels * 2;
    return blockBytes - blockBytes / OVERLAP_PARTS;
}

std::vector<double> RestoreAudioBlock(const AudioKind& kind, const CodedAudioBlock& block) {
    return RestoreBlock(MakeTables(kind), block);
}

bool ReadPackets(const Movie& movie, uint32_t track, const std::vector<TrackPacket>& packets, TrackSound* sound,
                 Violations* violations) {
    const Track& words = movie.tracks[track];
    const AudioKind kind = {words.sampleRate, words.channels, words.perChannelDct};
    if (sound != nullptr) *sound = {kind, {}, 0, 0, 0};
    if (!words.usable) return false;
    if (packets.empty()) return true; // a head may claim any number of tracks
    const uint32_t hop = AudioHop(kind);
    std::optional<Joiner> joiner;
    if (sound != nullptr) joiner = MakeJoiner(kind, &sound->samples);
    Violation place = {SEVERITY_HABIT};
    place.track = int(track);
    bool whole = true, ended = false;
    for (const TrackPacket& packet : packets) {
        if (ended) {
            place.frame = packet.frame;
            place.text = "Sound goes on behind a packet that ended the track.";
            AddViolation(violations, place);
        }
        uint32_t blocks = 0;
        whole = ReadPacket(kind, hop, packet, place, joiner ? &*joiner : nullptr, &blocks, violations);
        if (sound != nullptr) {
            sound->pcmBytes += packet.packet.pcmBytes;
            sound->codedBytes += packet.packet.coded.size;
            sound->blocks += blocks;
        }
        if (!whole) break;
        ended = packet.packet.pcmBytes < uint64_t(blocks) * hop;
    }
    if (sound != nullptr) {
        joiner->Finish();
        const uint64_t most = sound->pcmBytes / (2 * kind.channels) * kind.channels;
        if (sound->samples.size() > most) sound->samples.resize(size_t(most));
    }
    return whole;
}

bool DecodeTrack(const Movie& movie, uint32_t track, TrackSound* sound, Violations* violations) {
    if (track >= movie.tracks.size()) {
        NoteMovie(violations, SEVERITY_ERROR, "The movie has no track " + std::to_string(track) + ".");
        return false;
    }
    std::vector<TrackPacket> packets;
    Violations ignored; // the frames' own faults are told when the frames are decoded
    ignored.room = 0;
    bool whole = true;
    for (uint32_t i = 0; i < movie.header.frames; i++) {
        Frame frame;
        ReadFrame(movie, i, &frame, &ignored);
        if (frame.audio.size() <= track) {
            whole = false;
        } else if (frame.audio[track].length != 0) {
            packets.push_back({i, frame.audio[track]});
        }
    }
    return ReadPackets(movie, track, packets, sound, violations) && whole;
}

} // namespace vorn::reader
