// MovieMaking.h - clips and sounds that are drawn by a rule, the same on every machine, movies made of them through the
// exported functions, and what the reader makes of the files.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "public/vornmake.h"
#include "reader/Reader.h"
#include "tests/files/TestSeams.h"

namespace vorn {

enum class Content {
    NOISE,  // every sample of every frame drawn anew
    FLAT,   // one colour, another one every third frame
    FILM,   // a moving gradient with grain and a disc that moves faster
    TEXT,   // hard-edged marks in two colours that scroll
    STATIC, // a grainy picture in which only a small square moves
};
constexpr Content CONTENTS[] = {Content::NOISE, Content::FLAT, Content::FILM, Content::TEXT, Content::STATIC};

// Noise without state: the same word for the same place.
inline uint32_t Scatter(uint32_t a, uint32_t b, uint32_t c) {
    uint32_t word = a * 0x9e3779b1u ^ b * 0x85ebca77u ^ c * 0xc2b2ae3du;
    for (const uint32_t factor : {0x7feb352du, 0x846ca68bu}) word = (word ^ word >> 15) * factor;
    return word ^ word >> 16;
}

// A pixel as a word: bits 0 to 7 blue, then green, red, alpha.
inline uint32_t DrawPixel(Content content, uint32_t x, uint32_t y, uint32_t frame) {
    const uint32_t alpha = (x * 9 + y * 5 + frame * 16) << 24;
    const auto grain = [&](uint32_t time) { return Scatter(x, y, time) & 0x070707; };
    switch (content) {
    case Content::NOISE:
        return Scatter(x, y, frame);
    case Content::FLAT:
        return Scatter(1, 2, frame / 3);
    case Content::FILM: {
        const int left = static_cast<int>(x) - static_cast<int>(frame * 3 % 64);
        const int below = static_cast<int>(y) - 12;
        if (left * left + below * below < 80) return alpha | (0x4060c0 + grain(frame));
        const uint32_t shade = (x * 2 + y + frame * 2) % 200;
        return alpha | ((shade | shade << 8 | (220 - shade) << 16) + grain(frame));
    }
    case Content::TEXT:
        return Scatter((x + frame) / 2, y / 3, 7) % 3 == 0 ? 0xff102040 : 0x80e0f0f0;
    default:
        if (x / 4 == frame && y / 4 == 1) return 0xffffffff;
        return alpha | (0x302010 * (x % 16 / 4 + 1) + grain(0));
    }
}

inline std::vector<uint8_t> DrawFrame(Content content, uint32_t width, uint32_t height, uint32_t pitch,
                                      uint32_t frame) {
    std::vector<uint8_t> pixels(size_t{pitch} * height, 0xee);
    for (uint32_t y = 0; y < height; y++) {
        for (uint32_t x = 0; x < width; x++) {
            const uint32_t word = DrawPixel(content, x, y, frame);
            for (uint32_t i = 0; i < 4; i++) {
                pixels[size_t{y} * pitch + x * 4 + i] = static_cast<uint8_t>(word >> 8 * i);
            }
        }
    }
    return pixels;
}

// A track to be made, with its source: a chord of triangle waves under a slow swell, with some noise.
struct Sound {
    uint32_t sampleRate, channels, quality;
    uint32_t noise = 512;  // of 65536
    uint32_t position = 0; // samples delivered, both channels counted

    static uint32_t VORN_CALL Read(void*, uintptr_t user, void* buffer, uint32_t bytes) {
        Sound* sound = reinterpret_cast<Sound*>(user);
        uint8_t* out = static_cast<uint8_t*>(buffer);
        for (uint32_t i = 0; i + 1 < bytes; i += 2) {
            const uint32_t sample = sound->position++ / sound->channels;
            const auto wave = [=](uint32_t period) {
                const int phase = static_cast<int>(sample % period * 4096 / period);
                return std::min(phase, 4096 - phase) - 1024;
            };
            const int swell = static_cast<int>(sample % 16384) / 2048;
            const int noise = static_cast<int>(Scatter(sample, sound->position % sound->channels, 3) % sound->noise);
            const int value = (wave(180) + wave(143)) * swell + wave(29) + noise;
            out[i] = static_cast<uint8_t>(value);
            out[i + 1] = static_cast<uint8_t>(value >> 8);
        }
        return bytes;
    }
};

// Compresses on `count` threads while it lives.
struct Workers {
    uint32_t before;
    explicit Workers(uint32_t count) : before(VornMakeSetMaxCPUs(count)) {}
    ~Workers() { VornMakeSetMaxCPUs(before); }
};

// What a test asks for; the values are those of a small movie without sound.
struct MoviePlan {
    Content content = Content::FILM;
    uint32_t width = 40, height = 24;
    uint32_t frames = 4;   // handed in
    uint32_t capacity = 0; // promised; 0: those handed in
    uint32_t keyInterval = 0;
    uint32_t options = 0;
    int32_t lookAhead = 2;
    uint32_t rate = 600, cap = UINT32_MAX;
    uint32_t rateNumerator = 25, rateDenominator = 1;
    uint32_t padding = 0; // bytes behind each row of pixels
    std::vector<Sound> sounds = {};
};
constexpr uint32_t GREY = 100, ALPHA = 1000; // in MoviePlan.options

inline std::string Describe(const MoviePlan& plan) {
    std::ostringstream text;
    text << "content " << static_cast<int>(plan.content) << ", " << plan.width << 'x' << plan.height << ", "
         << plan.frames << " frames of " << plan.capacity << ", key interval " << plan.keyInterval << ", options "
         << plan.options << ", look-ahead " << plan.lookAhead << ", rate " << plan.rate << ", cap " << plan.cap;
    return text.str();
}

// A movie on its way. The plan must outlive it; its sounds move on.
inline VornMakeState* OpenMovie(MoviePlan* plan, const std::string& name, ProgressCallback callback) {
    std::vector<TrackDescriptor> tracks;
    for (Sound& sound : plan->sounds) {
        sound.position = 0;
        tracks.push_back({static_cast<uint32_t>(tracks.size()) + 1, sound.sampleRate, 16, sound.channels, sound.quality,
                          reinterpret_cast<uintptr_t>(&sound), Sound::Read});
    }
    return VornMake(name.c_str(), plan->width * 4 + plan->padding, plan->width, plan->height,
                    plan->capacity != 0 ? plan->capacity : plan->frames, plan->keyInterval, plan->options,
                    plan->rateNumerator, plan->rateDenominator, static_cast<uint32_t>(tracks.size()), tracks.data(),
                    plan->lookAhead, callback);
}

inline void PutFrame(VornMakeState* state, const MoviePlan& plan, uint32_t frame) {
    const std::vector<uint8_t> pixels =
        DrawFrame(plan.content, plan.width, plan.height, plan.width * 4 + plan.padding, frame);
    VornMakePutVideo(state, plan.rate, plan.cap, frame == 0, pixels.data());
}

// Makes the whole movie and returns the bytes of its file.
inline std::string MakeMovie(MoviePlan* plan, const std::string& name, ProgressCallback callback = nullptr) {
    VornMakeState* state = OpenMovie(plan, name, callback);
    if (state == nullptr) return "";
    for (uint32_t frame = 0; frame < plan->frames; frame++) PutFrame(state, *plan, frame);
    VornMakeClose(state, 0);
    return ReadWholeFile(name);
}

using FramePlanes = std::array<std::vector<uint8_t>, reader::PLANES>; // padded; empty if the movie hasn't got it

// A file as the reader sees it.
struct ReadMovie {
    reader::Movie movie;
    std::vector<FramePlanes> frames;
    std::string complaint; // the first violation of any kind; empty if there is none
};

inline ReadMovie ReadBack(const std::string& bytes, bool growing = false) {
    ReadMovie read;
    reader::Violations violations;
    reader::MovieOptions options;
    options.growing = growing;
    if (reader::ParseMovie({bytes.begin(), bytes.end()}, options, &read.movie, &violations)) {
        reader::VerifyMovie(read.movie, {}, &violations);
        reader::MovieDecoder decoder;
        for (uint32_t number = 0; number < read.movie.header.frames; number++) {
            reader::Frame frame;
            if (!reader::ReadFrame(read.movie, number, &frame, &violations) ||
                !reader::DecodeFrame(read.movie, frame, &decoder, &violations)) {
                break;
            }
            FramePlanes& planes = read.frames.emplace_back();
            for (size_t plane = 0; plane < planes.size(); plane++) planes[plane] = decoder.planes[plane].samples;
        }
    }
    if (!violations.list.empty()) read.complaint = reader::DescribeViolation(violations.list[0]);
    return read;
}

} // namespace vorn
