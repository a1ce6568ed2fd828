// Sound.cpp - which samples does a file of sound hold, and does it hold all that it promises?
#include "tools/Sound.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>

#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/Exit.h"
#include "tools/Input.h"
#include "tools/Text.h"
#include "tools/Words.h"

namespace vorn {

namespace {

// Takes ",KEY=NUMBER" items off the end of a text for as long as there are any; a comma may stand in a file's name as well.
SoundOption ParseItems(const std::string& option, const std::string& text, SoundOption sound, bool withId) {
    std::string rest = text;
    for (;;) {
        const size_t comma = rest.rfind(',');
        if (comma == std::string::npos) break;
        const std::string item = rest.substr(comma + 1);
        const bool isId = withId && item.rfind("id=", 0) == 0;
        const bool isQuality = item.rfind("quality=", 0) == 0;
        if (!isId && !isQuality) break;
        uint64_t value = 0;
        const uint64_t limit = isId ? UINT32_MAX : 199;
        if (!ParseNumber(std::string_view(item).substr(item.find('=') + 1), limit, &value))
            throw Failure{EXIT_USAGE, fmt::format("{} {}: {} wants a number from 0 to {}", option, text,
                                                  isId ? "id" : "quality", limit)};
        (isId ? sound.id : sound.quality) = static_cast<uint32_t>(value);
        rest.resize(comma);
    }
    sound.name = IsStandardInput(rest) ? "-" : rest;
    if (sound.name.empty()) throw Failure{EXIT_USAGE, fmt::format("{} {}: names no file", option, text)};
    return sound;
}

// How many frames of sound a file promises, found without the library that decodes it: that one cuts its own promise down to
// what is there. Nothing if the head doesn't say.
std::optional<uint64_t> PromisedFrames(const std::string& name) {
    struct stat info = {};
    if (name == "-" || stat(name.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return {}; // a pipe would lose it
    const ByteInput file(name);
    uint8_t head[12];
    if (file.Peek(0, head, 12) != 12 || std::memcmp(head + 8, "WAVE", 4) != 0) return {};
    uint32_t frameBytes = 0;
    uint64_t longData = 0; // of a file over 4 GiB
    uint8_t chunk[24];     // its head of 8 bytes, and what comes first in it
    for (uint64_t at = 12; file.Peek(at, chunk, 8) == 8;) {
        const uint32_t size = WordAt(chunk + 4);
        if (std::memcmp(chunk, "data", 4) == 0) {
            const uint64_t bytes = size == UINT32_MAX ? longData : size;
            if (frameBytes == 0 || bytes == 0) return {};
            return bytes / frameBytes;
        }
        const bool whole = size >= 16 && file.Peek(at, chunk, 24) == 24;
        if (whole && std::memcmp(chunk, "fmt ", 4) == 0) frameBytes = WordAt(chunk + 20) & 0xffff;
        if (whole && std::memcmp(chunk, "ds64", 4) == 0)
            longData = WordAt(chunk + 16) | uint64_t(WordAt(chunk + 20)) << 32;
        at += 8 + uint64_t(size) + size % 2;
    }
    return {};
}

class LibrarySound : public SoundSource {
public:
    explicit LibrarySound(const std::string& fileName) {
        name = fileName;
        CheckFile();
        SF_INFO info = {};
        file = sf_open(fileName.c_str(), SFM_READ, &info);
        if (file == nullptr) {
            std::string why = sf_strerror(nullptr);
            if (!why.empty() && why.back() == '.') why.pop_back();
            throw Failure{EXIT_FAILED,
                          fmt::format("{}: can't be read as sound ({}); WAV, FLAC, Ogg and AIFF are taken", name, why)};
        }
        Check(info);
        sampleRate = static_cast<uint32_t>(info.samplerate);
        channels = static_cast<uint32_t>(info.channels);
        promised = info.frames > 0 && info.frames < INT64_MAX ? static_cast<uint64_t>(info.frames) : 0;
        seconds = static_cast<double>(promised) / sampleRate;
        const int kind = info.format & SF_FORMAT_SUBMASK;
        wide = kind == SF_FORMAT_PCM_24 || kind == SF_FORMAT_PCM_32;
        narrow = kind == SF_FORMAT_PCM_16 || kind == SF_FORMAT_PCM_S8 || kind == SF_FORMAT_PCM_U8 ||
                 kind == SF_FORMAT_ULAW || kind == SF_FORMAT_ALAW;
        const bool ownHead = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV ||
                             (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX ||
                             (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_RF64;
        const bool packed = !wide && !narrow && kind != SF_FORMAT_FLOAT && kind != SF_FORMAT_DOUBLE;
        if (ownHead && !packed) promised = PromisedFrames(name).value_or(promised);
    }
    ~LibrarySound() override { sf_close(file); }

    size_t Read(int16_t* samples, size_t count) override {
        size_t done = 0;
        while (done < count) {
            const size_t want = (count - done) / channels;
            const size_t got = want == 0 ? 0 : ReadSome(samples + done, want);
            done += got * channels;
            came += got;
            if (got < want || want == 0) {
                if (want != 0) NoteEnd();
                break;
            }
        }
        return done;
    }

private:
    // What the library for sound has no good words for. A pipe is not opened here: it could be only once.
    void CheckFile() const {
        struct stat info = {};
        if (name == "-") return;
        if (stat(name.c_str(), &info) != 0 || access(name.c_str(), R_OK) != 0)
            throw Failure{EXIT_FAILED, fmt::format("{}: can't be opened ({})", name, std::strerror(errno))};
        if (S_ISDIR(info.st_mode)) throw Failure{EXIT_FAILED, fmt::format("{}: is a folder; name a file in it", name)};
    }

    void Check(const SF_INFO& info) const {
        std::string why;
        if (info.channels < 1 || info.channels > 2)
            why = fmt::format("{} channels; 1 or 2 are taken", info.channels);
        else if (info.samplerate < 1 || info.samplerate > 65535)
            why = fmt::format("{} samples a second; 1 to 65535 are taken", info.samplerate);
        if (why.empty()) return;
        sf_close(file);
        throw Failure{EXIT_FAILED, fmt::format("{}: {}", name, why)};
    }

    // Fewer than asked for at the end. In parts, so that wide samples need little room.
    size_t ReadSome(int16_t* samples, size_t frames) {
        constexpr size_t PART = 2048;
        size_t done = 0;
        while (done < frames) {
            const size_t want = std::min(PART, frames - done);
            const size_t got = ReadPart(samples + done * channels, want);
            done += got;
            if (got < want) break;
        }
        return done;
    }

    size_t ReadPart(int16_t* samples, size_t frames) {
        const auto count = static_cast<sf_count_t>(frames);
        if (narrow) return Count(sf_readf_short(file, samples, count));
        if (wide) {
            std::vector<int> values(frames * channels);
            const size_t got = Count(sf_readf_int(file, values.data(), count));
            for (size_t i = 0; i < got * channels; i++)
                samples[i] = static_cast<int16_t>(std::min<int64_t>((int64_t(values[i]) + 0x8000) >> 16, 32767));
            return got;
        }
        std::vector<double> values(frames * channels);
        const size_t got = Count(sf_readf_double(file, values.data(), count));
        for (size_t i = 0; i < got * channels; i++) samples[i] = FromDouble(values[i]);
        return got;
    }

    // Halves away from 0; what is no number is silence.
    static int16_t FromDouble(double value) {
        if (std::isnan(value)) return 0;
        return static_cast<int16_t>(std::lround(std::clamp(value * 32768, -32768.0, 32767.0)));
    }

    static size_t Count(sf_count_t frames) { return frames > 0 ? static_cast<size_t>(frames) : 0; }

    void NoteEnd() {
        if (sf_error(file) != SF_ERR_NO_ERROR)
            problem = fmt::format("{}: damaged after {} frames of sound ({})", name, came, sf_strerror(file));
        else if (came < promised)
            problem = fmt::format("{}: cut: {} of the {} frames of sound that it promises", name, came, promised);
    }

    SNDFILE* file;
    bool wide = false;     // integers of more than 16 bits
    bool narrow = false;   // anything that 16 bits hold exactly
    uint64_t promised = 0; // frames, or 0 if the file doesn't say
    uint64_t came = 0;     // frames
};

// The library's callback: `user` is the source.
uint32_t ReadForLibrary(void*, uintptr_t user, void* buffer, uint32_t bytes) noexcept {
    auto* source = reinterpret_cast<SoundSource*>(user);
    try {
        return static_cast<uint32_t>(source->Read(static_cast<int16_t*>(buffer), bytes / 2) * 2);
    } catch (...) {
        source->broken = true;
        return 0;
    }
}

} // namespace

SoundOption ParseAudioOption(const std::string& text, uint32_t id) {
    SoundOption sound;
    sound.id = id;
    return ParseItems("--audio", text, sound, true);
}

SoundOption ParseTrackOption(const std::string& text) {
    const size_t equals = text.find('=');
    uint64_t id = 0;
    if (equals == std::string::npos || !ParseNumber(std::string_view(text).substr(0, equals), UINT32_MAX, &id))
        throw Failure{EXIT_USAGE, fmt::format("--track {}: ID=FILE[,quality=N] is wanted", text)};
    SoundOption sound;
    sound.id = static_cast<uint32_t>(id);
    return ParseItems("--track", text.substr(equals + 1), sound, false);
}

void CheckSoundOptions(const std::string& option, const std::vector<SoundOption>& sounds,
                       const std::vector<std::string>& pictures) {
    bool taken = std::any_of(pictures.begin(), pictures.end(), IsStandardInput);
    std::map<uint32_t, std::string> names; // by id
    for (const SoundOption& sound : sounds) {
        const auto [place, isNew] = names.emplace(sound.id, sound.name);
        if (!isNew)
            throw Failure{EXIT_USAGE, fmt::format("{} {}: id {} belongs to {} already", option, sound.name, sound.id,
                                                  place->second)};
        if (sound.name != "-") continue;
        if (taken) throw Failure{EXIT_USAGE, fmt::format("{} -: standard input can be named only once", option)};
        taken = true;
    }
}

std::unique_ptr<SoundSource> SoundSource::Open(const std::string& name) {
    return std::make_unique<LibrarySound>(name);
}

void SoundSource::Skip(double time) {
    const double frames = std::min(std::floor(time * sampleRate + 0.5), 1e15);
    uint64_t left = static_cast<uint64_t>(frames) * channels;
    std::vector<int16_t> samples(size_t(4096) * channels);
    while (left != 0) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(left, samples.size()));
        if (Read(samples.data(), want) < want) break;
        left -= want;
    }
    seconds = std::max(0.0, seconds - time);
}

void SoundTracks::Add(const SoundOption& option) {
    sources.push_back(SoundSource::Open(option.name));
    SoundSource& source = *sources.back();
    TrackDescriptor descriptor = {};
    descriptor.id = option.id;
    descriptor.sampleRate = source.sampleRate;
    descriptor.bits = 16;
    descriptor.channels = source.channels;
    descriptor.quality = option.quality;
    descriptor.user = reinterpret_cast<uintptr_t>(&source);
    descriptor.read = ReadForLibrary;
    descriptors.push_back(descriptor);
}

std::string SoundTracks::Problem() const {
    for (const auto& source : sources) {
        if (!source->problem.empty()) return source->problem;
        if (source->broken) return fmt::format("{}: can't be read (out of memory?)", source->name);
    }
    return "";
}

void WriteWavHead(OutputFile* file, uint32_t sampleRate, uint32_t channels, uint32_t bytes) {
    const uint32_t rest = std::min(bytes, UINT32_MAX - 36) + 36;
    const uint32_t perSecond = sampleRate * channels * 2;
    const uint32_t words[11] = {0x46464952, rest,      0x45564157,
                                0x20746d66, 16,        1 | channels << 16,
                                sampleRate, perSecond, channels * 2 | 16u << 16,
                                0x61746164, bytes};
    uint8_t head[44];
    for (size_t i = 0; i < 11; i++) PutWord(head + i * 4, words[i]);
    file->Write(head, sizeof head);
}

void WriteSamples(OutputFile* file, const int16_t* samples, size_t count) {
    constexpr size_t PART = 32768; // samples
    std::vector<uint8_t> bytes;
    for (size_t start = 0; start < count; start += PART) {
        bytes.clear();
        for (size_t i = start; i < std::min(start + PART, count); i++) {
            bytes.push_back(static_cast<uint8_t>(samples[i]));
            bytes.push_back(static_cast<uint8_t>(samples[i] >> 8));
        }
        file->Write(bytes.data(), bytes.size());
    }
}

} // namespace vorn
