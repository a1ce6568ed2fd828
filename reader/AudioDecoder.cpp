// AudioDecoder.cpp - from coded blocks to the PCM of a track: inverse transforms, the join of blocks, the packets' words.
// Double precision; the transforms go through one plain complex transform of radix 2.
#include <algorithm>
#include <cmath>
#include <complex>

#include "format/AudioFormat.h"
#include "numeric/PortableMath.h"
#include "reader/Rules.h"

namespace vorn::reader {
namespace {

using Complex = std::complex<double>;

// 512 to 8192 points; made anew for each track.
struct TransformTables {
    uint32_t points;
    std::vector<Complex> turns; // e^(2 pi i k / points), k below points / 2
    std::vector<uint32_t> reversed;
};

TransformTables MakeTables(uint32_t points) {
    TransformTables tables = {points, {}, std::vector<uint32_t>(points, 0)};
    for (uint32_t k = 0; k < points / 2; k++) {
        const double angle = 2.0 * k / points;
        tables.turns.emplace_back(CosPi(angle), SinPi(angle));
    }
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
    for (size_t j = 0; j < n; j++) {
        const double angle = double(j) / (2.0 * double(n));
        z[j] = Complex(y[j] * CosPi(angle), y[j] * SinPi(angle));
    }
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

std::vector<double> RestoreBlock(const AudioKind& kind, const TransformTables& tables, const CodedAudioBlock& block) {
    const AudioShape shape = ShapeOfAudio(kind.sampleRate, kind.channels, kind.perChannelDct);
    const double scale = 2.0 / std::sqrt(double(shape.transformSize));
    std::vector<double> samples(size_t(shape.transformSize) * shape.transformCount);
    for (uint32_t t = 0; t < shape.transformCount; t++) {
        const std::vector<double> y = Dequantise(shape, block.spectra[t]);
        const std::vector<double> x = kind.perChannelDct ? InverseDct(tables, y) : InverseDft(tables, y);
        for (size_t i = 0; i < x.size(); i++) samples[i * shape.transformCount + t] = x[i] * scale;
    }
    return samples;
}

TransformTables TablesOf(const AudioKind& kind) {
    const AudioShape shape = ShapeOfAudio(kind.sampleRate, kind.channels, kind.perChannelDct);
    return MakeTables(kind.perChannelDct ? 2 * shape.transformSize : shape.transformSize);
}

int16_t ToPcm(double sample) {
    return int16_t(std::floor(std::clamp(sample, -32768.0, 32767.0) + 0.5));
}

// Joins blocks: the first `overlap` samples of a block and the last of the one before are mixed, the weight of the new
// one rising evenly.
struct Joiner {
    size_t overlap; // interleaved samples
    size_t channels;
    std::vector<double> tail; // of the block before; empty at the start
    std::vector<int16_t>* out;

    void Append(const std::vector<double>& block) {
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

// Decodes the blocks of one packet, whose length must be used up exactly.
bool DecodePacket(const AudioKind& kind, const TransformTables& tables, const TrackPacket& packet, Violation place,
                  TrackSound* sound, Joiner* joiner, Violations* violations) {
    const AudioShape shape = ShapeOfAudio(kind.sampleRate, kind.channels, kind.perChannelDct);
    Bytes rest = packet.packet.coded;
    place.severity = SEVERITY_ERROR;
    place.frame = packet.frame;
    if (rest.size == 0) {
        place.text = "An audio packet that isn't empty holds no block.";
        AddViolation(violations, place);
    }
    uint64_t advance = 0;
    while (rest.size != 0) {
        CodedAudioBlock block;
        if (!ReadAudioBlock(kind, rest, place, &block, violations)) return false;
        joiner->Append(RestoreBlock(kind, tables, block));
        rest.data += block.bytes;
        rest.size -= block.bytes;
        sound->blocks++;
        advance += shape.blockBytes - shape.overlapBytes;
    }
    if (packet.packet.pcmBytes > advance) {
        place.text = "The packet stands for more PCM bytes than its blocks hold.";
        AddViolation(violations, place);
    }
    return true;
}

} // namespace

std::vector<double> RestoreAudioBlock(const AudioKind& kind, const CodedAudioBlock& block) {
    return RestoreBlock(kind, TablesOf(kind), block);
}

bool DecodePackets(const Movie& movie, uint32_t track, const std::vector<TrackPacket>& packets, TrackSound* sound,
                   Violations* violations) {
    const Track& words = movie.tracks[track];
    *sound = TrackSound();
    sound->kind = {words.sampleRate, words.channels, words.perChannelDct};
    if (!words.usable) return false;
    if (packets.empty()) return true; // a head may claim any number of tracks
    const AudioShape shape = ShapeOfAudio(words.sampleRate, words.channels, words.perChannelDct);
    const TransformTables tables = TablesOf(sound->kind);
    Joiner joiner = {shape.overlapBytes / 2, words.channels, {}, &sound->samples};
    Violation place = {SEVERITY_ERROR};
    place.track = int(track);
    bool whole = true, ended = false;
    for (const TrackPacket& packet : packets) {
        if (ended) {
            place.severity = SEVERITY_HABIT;
            place.frame = packet.frame;
            place.text = "Sound goes on behind a packet that ended the track.";
            AddViolation(violations, place);
        }
        const uint32_t blocksBefore = sound->blocks;
        whole = DecodePacket(sound->kind, tables, packet, place, sound, &joiner, violations);
        sound->pcmBytes += packet.packet.pcmBytes;
        sound->codedBytes += packet.packet.coded.size;
        if (!whole) break;
        const uint64_t advance = uint64_t(sound->blocks - blocksBefore) * (shape.blockBytes - shape.overlapBytes);
        ended = packet.packet.pcmBytes < advance;
    }
    joiner.Finish();
    if (sound->samples.size() > sound->pcmBytes / 2) sound->samples.resize(size_t(sound->pcmBytes / 2));
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
    return DecodePackets(movie, track, packets, sound, violations) && whole;
}

} // namespace vorn::reader
