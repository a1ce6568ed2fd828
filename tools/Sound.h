// Sound.h - sound from files, as the library wants it: signed 16-bit samples, one or two channels.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "public/vornmake.h"
#include "tools/Output.h"

namespace vorn {

// What --audio FILE[,id=N,quality=N] and --track ID=FILE[,quality=N] say.
struct SoundOption {
    std::string name;
    uint32_t id = 0;
    uint32_t quality = 4;
};
SoundOption ParseAudioOption(const std::string& text, uint32_t id); // id: if the option names none
SoundOption ParseTrackOption(const std::string& text);
// Throws a usage Failure if two sounds have one id, or more than one of them and `pictures` come from standard input.
void CheckSoundOptions(const std::string& option, const std::vector<SoundOption>& sounds,
                       const std::vector<std::string>& pictures);

class SoundSource {
public:
    // Throws a Failure for what a track can't hold: more than 2 channels, a rate above 65535.
    static std::unique_ptr<SoundSource> Open(const std::string& name);
    virtual ~SoundSource() = default;
    // Fills `samples` with up to `count` samples (of all channels together); returns how many came. Fewer than asked for
    // means that the sound has ended.
    virtual size_t Read(int16_t* samples, size_t count) = 0;
    // Goes past the sound of so long a time.
    void Skip(double time);

    std::string name;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    double seconds = 0;  // as far as the file tells; 0 if it doesn't
    std::string problem; // once it has ended too early: what is missing
    bool broken = false; // reading it failed without a word
};

// All the sound of one movie, and the descriptors that lead to it.
struct SoundTracks {
    std::vector<std::unique_ptr<SoundSource>> sources;
    std::vector<TrackDescriptor> descriptors;
    void Add(const SoundOption& option); // throws a Failure
    // The first problem of all of them, or "".
    std::string Problem() const;
};

// The head of a WAV file of 16-bit samples. `bytes` is how much PCM follows.
void WriteWavHead(OutputFile* file, uint32_t sampleRate, uint32_t channels, uint32_t bytes);
// The PCM behind it, or a part of that.
void WriteSamples(OutputFile* file, const int16_t* samples, size_t count);

} // namespace vorn
