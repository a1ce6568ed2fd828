// WaveFuzz.cpp - WAV files of invented chunks: sound or a failure with a text, the same in parts as at once. And well-formed ones
// that are cut: all samples that are there come, and what is missing is told.
#include <algorithm>

#include "fuzz/Fuzz.h"
#include "fuzz/MemoryFile.h"
#include "tools/Exit.h"
#include "tools/Sound.h"

using namespace vorn;

namespace {

constexpr size_t MOST_BYTES = 16384;
constexpr size_t MOST_SAMPLES = 1 << 22; // packed kinds hold more samples than bytes, but not so many more

struct Heard {
    bool opened = false;
    uint32_t channels = 0;
    std::vector<int16_t> samples;
    std::string problem;
};

// All of a file, `part` samples at a time. A failure is an answer, too.
Heard ReadAll(const std::vector<uint8_t>& bytes, size_t part, double skip = 0) {
    const MemoryFile file(bytes.data(), bytes.size());
    Heard heard;
    try {
        const std::unique_ptr<SoundSource> source = SoundSource::Open(file.name);
        heard.opened = true;
        heard.channels = source->channels;
        Require(source->channels >= 1 && source->channels <= 2, "one or two channels");
        Require(source->sampleRate >= 1 && source->sampleRate <= 65535, "a rate that a track can have");
        if (skip > 0) source->Skip(skip);
        std::vector<int16_t> samples(part);
        for (;;) {
            const size_t got = source->Read(samples.data(), part);
            Require(got <= part && got % source->channels == 0, "whole frames, no more than asked for");
            heard.samples.insert(heard.samples.end(), samples.begin(),
                                 samples.begin() + static_cast<std::ptrdiff_t>(got));
            Require(heard.samples.size() <= MOST_SAMPLES, "sound has an end");
            if (got < part) break;
        }
        heard.problem = source->problem;
        if (!heard.problem.empty()) CheckText(heard.problem);
    } catch (const Failure& failure) {
        CheckText(failure.text);
        Require(failure.code == EXIT_FAILED, "a failure has its code");
    }
    return heard;
}

void Put(std::vector<uint8_t>* bytes, const char* text) {
    for (int i = 0; i < 4; i++) bytes->push_back(static_cast<uint8_t>(text[i]));
}
void PutNumber(std::vector<uint8_t>* bytes, uint64_t number, int count) {
    for (int i = 0; i < count; i++) bytes->push_back(static_cast<uint8_t>(number >> 8 * i));
}

void ReadInvented(const uint8_t* data, size_t size, bool isLong) {
    std::vector<uint8_t> bytes;
    Put(&bytes, isLong ? "RF64" : "RIFF");
    PutNumber(&bytes, isLong ? UINT32_MAX : size + 4, 4);
    Put(&bytes, "WAVE");
    bytes.insert(bytes.end(), data, data + size);
    const Heard once = ReadAll(bytes, 4096);
    const Heard inParts = ReadAll(bytes, 2 * 17);
    Require(once.opened == inParts.opened && once.samples == inParts.samples, "in parts it is the same sound");
    Require(once.problem == inParts.problem, "in parts it has the same problem");
}

// The choices are a head; what is left of the data are the samples.
void ReadWellFormed(Choices choices) {
    const struct { uint32_t code, bits; } kinds[] = {{1, 8}, {1, 16}, {1, 24}, {1, 32}, {3, 32}, {3, 64}};
    const auto kind = kinds[choices.Byte() % 6];
    const uint32_t channels = 1 + choices.Byte() % 2;
    const uint32_t rate = 1 + choices.Byte() * 256;
    const uint32_t note = choices.Byte(), cut = choices.Byte();
    const size_t align = kind.bits / 8 * channels;
    const size_t frames = choices.left / align;
    std::vector<uint8_t> bytes;
    Put(&bytes, "RIFF");
    PutNumber(&bytes, 36 + (note > 0 ? 8 + note + note % 2 : 0) + frames * align, 4);
    Put(&bytes, "WAVE");
    if (note > 0) {
        Put(&bytes, "note");
        PutNumber(&bytes, note, 4);
        bytes.resize(bytes.size() + note + note % 2);
    }
    Put(&bytes, "fmt ");
    PutNumber(&bytes, 16, 4);
    PutNumber(&bytes, kind.code, 2);
    PutNumber(&bytes, channels, 2);
    PutNumber(&bytes, rate, 4);
    PutNumber(&bytes, rate * align, 4);
    PutNumber(&bytes, align, 2);
    PutNumber(&bytes, kind.bits, 2);
    Put(&bytes, "data");
    PutNumber(&bytes, frames * align, 4);
    const size_t there = frames * align - std::min<size_t>(cut, frames * align);
    if (there < align) return;
    bytes.insert(bytes.end(), choices.next, choices.next + there);
    const Heard heard = ReadAll(bytes, 4096);
    Require(heard.opened && heard.channels == channels, "a well-formed file is read");
    Require(heard.samples.size() == there / align * channels, "all samples that are there come");
    Require(heard.problem.empty() == (there / align == frames), "what is missing is told: " + heard.problem);
    for (size_t i = 0; kind.bits == 16 && i < heard.samples.size(); i++)
        Require(heard.samples[i] == static_cast<int16_t>(choices.next[2 * i] | choices.next[2 * i + 1] << 8),
                "samples of 16 bits stay what they are");
    const size_t skipped = there / align / 2; // frames
    const Heard rest = ReadAll(bytes, 4096, static_cast<double>(skipped) / rate);
    Require(std::equal(rest.samples.begin(), rest.samples.end(),
                       heard.samples.begin() + static_cast<std::ptrdiff_t>(skipped * channels), heard.samples.end()),
            "behind what is skipped the same comes");
}

} // namespace

// The last byte chooses; the others are chunks, or a head's choices and samples.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > MOST_BYTES || size == 0) return 0;
    const uint32_t way = data[--size];
    if (way % 2 == 0)
        ReadInvented(data, size, way / 2 % 4 == 3);
    else
        ReadWellFormed({data, size});
    return 0;
}
