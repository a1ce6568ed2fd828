// Scene.cpp - `vorn scene`: pictures and sound that the program makes itself, the same on every machine.
// Integer arithmetic, and + - x for the sound: nothing whose last bit a C library decides.
#include <algorithm>
#include <cstdlib>

#include "tools/Colour.h"
#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/FileName.h"
#include "tools/Output.h"
#include "tools/Sound.h"

namespace vorn {

namespace {

struct Canvas {
    uint32_t width;
    uint32_t height;
    std::vector<uint8_t> bgra;

    void Set(uint32_t x, uint32_t y, int red, int green, int blue, int alpha = 255) {
        uint8_t* pixel = &bgra[(size_t(y) * width + x) * 4];
        pixel[0] = static_cast<uint8_t>(std::clamp(blue, 0, 255));
        pixel[1] = static_cast<uint8_t>(std::clamp(green, 0, 255));
        pixel[2] = static_cast<uint8_t>(std::clamp(red, 0, 255));
        pixel[3] = static_cast<uint8_t>(std::clamp(alpha, 0, 255));
    }
};

// A number without pattern from three others.
uint32_t Hash(uint32_t a, uint32_t b, uint32_t c) {
    uint32_t h = a * 0x9e3779b1u ^ b * 0x85ebca6bu ^ c * 0xc2b2ae35u;
    h ^= h >> 15;
    h *= 0x2c1b3c6du;
    h ^= h >> 12;
    h *= 0x297a2d39u;
    return h ^ h >> 15;
}

// Smooth noise, 0 to 255: values on a grid of `cell` pixels, blended linearly between.
int SmoothNoise(int64_t x, int64_t y, int cell, uint32_t seed) {
    const int64_t gx = x >= 0 ? x / cell : -((-x + cell - 1) / cell);
    const int64_t gy = y >= 0 ? y / cell : -((-y + cell - 1) / cell);
    const auto fx = static_cast<int>(x - gx * cell);
    const auto fy = static_cast<int>(y - gy * cell);
    const auto at = [&](int64_t i, int64_t j) {
        return static_cast<int>(Hash(static_cast<uint32_t>(i), static_cast<uint32_t>(j), seed) & 255);
    };
    const int upper = at(gx, gy) * (cell - fx) + at(gx + 1, gy) * fx;
    const int lower = at(gx, gy + 1) * (cell - fx) + at(gx + 1, gy + 1) * fx;
    return (upper * (cell - fy) + lower * fy) / (cell * cell);
}

// Where something is that runs to and fro between 0 and `range`.
int64_t Bounce(int64_t way, int64_t range) {
    if (range <= 0) return 0;
    const int64_t at = way % (range * 2);
    return at < range ? at : range * 2 - at;
}

// A ball with a light on its upper left; its edge is one pixel soft. Positions are in 1/16 pixel.
void DrawBall(Canvas* canvas, int64_t cx, int64_t cy, int64_t radius, const int colour[3]) {
    const int64_t reach = radius + 16;
    for (int64_t y = std::max<int64_t>(0, (cy - reach) / 16); y < canvas->height && y * 16 <= cy + reach; y++) {
        for (int64_t x = std::max<int64_t>(0, (cx - reach) / 16); x < canvas->width && x * 16 <= cx + reach; x++) {
            const int64_t dx = x * 16 - cx;
            const int64_t dy = y * 16 - cy;
            const int64_t square = dx * dx + dy * dy;
            if (square >= reach * reach) continue;
            // Near the edge, reach - distance is about (reach^2 - distance^2) / (2 * reach).
            const int64_t cover = std::min<int64_t>(256, (reach * reach - square) * 8 / reach);
            const int64_t lx = dx + radius / 3;
            const int64_t ly = dy + radius / 3;
            const int64_t light = 256 - (lx * lx + ly * ly) * 200 / (radius * radius * 2 + 1);
            uint8_t* pixel = &canvas->bgra[(size_t(y) * canvas->width + size_t(x)) * 4];
            for (int c = 0; c < 3; c++) {
                const int64_t shade = std::clamp<int64_t>(colour[2 - c] * light / 256, 0, 255);
                pixel[c] = static_cast<uint8_t>((pixel[c] * (256 - cover) + shade * cover) / 256);
            }
            pixel[3] = static_cast<uint8_t>(std::max<int64_t>(pixel[3], std::min<int64_t>(cover, 255)));
        }
    }
}

const int PALETTE[6][3] = {{230, 70, 50},  {250, 190, 60}, {80, 170, 90},
                           {60, 130, 220}, {170, 90, 200}, {240, 240, 235}};

void DrawBalls(Canvas* canvas, uint32_t frame, int count) {
    const int64_t size = std::min(canvas->width, canvas->height);
    for (int i = 0; i < count; i++) {
        const auto index = static_cast<uint32_t>(i);
        const int64_t radius = std::max<int64_t>(8, size * (10 + Hash(index, 1, 7) % 8) / 6);
        const int64_t rangeX = int64_t(canvas->width) * 16 - radius * 2;
        const int64_t rangeY = int64_t(canvas->height) * 16 - radius * 2;
        const int64_t stepX = 20 + Hash(index, 2, 7) % 40;
        const int64_t stepY = 15 + Hash(index, 3, 7) % 40;
        DrawBall(canvas, radius + Bounce(Hash(index, 4, 7) % 8192 + frame * stepX, rangeX),
                 radius + Bounce(Hash(index, 5, 7) % 8192 + frame * stepY, rangeY), radius, PALETTE[i % 6]);
    }
}

// Balls over a still slope of colour.
void PaintBalls(Canvas* canvas, uint32_t frame) {
    for (uint32_t y = 0; y < canvas->height; y++)
        for (uint32_t x = 0; x < canvas->width; x++) {
            const int down = static_cast<int>(uint64_t(y) * 160 / canvas->height);
            const int across = static_cast<int>(uint64_t(x) * 60 / canvas->width);
            canvas->Set(x, y, 30 + across, 40 + down / 2, 70 + down);
        }
    DrawBalls(canvas, frame, 5);
}

// A ground of hills and grass that drifts past under a sky, with a ball over it.
void PaintDrift(Canvas* canvas, uint32_t frame) {
    const int64_t shift = int64_t(frame) * 3;
    for (uint32_t x = 0; x < canvas->width; x++) {
        const int64_t across = int64_t(x) + shift;
        const int64_t ridge =
            int64_t(canvas->height) * 3 / 10 + SmoothNoise(across, 0, 64, 11) * int64_t(canvas->height) / 900;
        for (uint32_t y = 0; y < canvas->height; y++) {
            if (int64_t(y) < ridge) {
                const int cloud = SmoothNoise(int64_t(x) + shift / 3, int64_t(y) * 2, 48, 5) / 3;
                canvas->Set(x, y, 90 + cloud, 140 + cloud, 215 + cloud / 2);
            } else {
                const int soil = SmoothNoise(across, y, 24, 3) / 3;
                const int blade = static_cast<int>(Hash(static_cast<uint32_t>(across), y, 9) % 28);
                canvas->Set(x, y, 50 + soil + blade, 90 + soil / 2 + blade, 30 + soil / 3 + blade);
            }
        }
    }
    DrawBalls(canvas, frame, 1);
}

// Another flat design every 20 frames: hard cuts, straight edges, few colours.
void PaintCuts(Canvas* canvas, uint32_t frame) {
    const uint32_t shot = frame / 20;
    const uint32_t stripe = 12 + Hash(shot, 0, 21) % 40;
    const int* one = PALETTE[Hash(shot, 1, 21) % 6];
    const int* two = PALETTE[(Hash(shot, 1, 21) + 1 + Hash(shot, 2, 21) % 5) % 6];
    for (uint32_t y = 0; y < canvas->height; y++)
        for (uint32_t x = 0; x < canvas->width; x++) {
            const uint32_t along = shot % 3 == 0 ? x : shot % 3 == 1 ? y : x + y;
            const int* colour = (along + frame) / stripe % 2 == 0 ? one : two;
            canvas->Set(x, y, colour[0], colour[1], colour[2]);
        }
    DrawBalls(canvas, frame, 2);
}

// Nothing but noise: the hardest there is.
void PaintNoise(Canvas* canvas, uint32_t frame) {
    for (uint32_t y = 0; y < canvas->height; y++)
        for (uint32_t x = 0; x < canvas->width; x++) {
            const uint32_t h = Hash(x, y, frame + 100);
            canvas->Set(x, y, h & 255, h >> 8 & 255, h >> 16 & 255);
        }
}

// Balls over nothing: the ground is clear, the balls are not.
void PaintGlass(Canvas* canvas, uint32_t frame) {
    for (uint32_t y = 0; y < canvas->height; y++)
        for (uint32_t x = 0; x < canvas->width; x++) canvas->Set(x, y, 0, 0, 0, 0);
    DrawBalls(canvas, frame, 4);
}

struct SceneKind {
    const char* name;
    void (*paint)(Canvas*, uint32_t);
};
const SceneKind SCENES[] = {
    {"balls", PaintBalls}, {"drift", PaintDrift}, {"cuts", PaintCuts}, {"noise", PaintNoise}, {"glass", PaintGlass},
};

// One wave of a sine, by two parabolas; phase in turns from 0 to 1.
double Wave(double phase) {
    const double half = phase < 0.5 ? phase * 2 : phase * 2 - 1;
    const double arch = 4 * half * (1 - half);
    return phase < 0.5 ? arch : -arch;
}

// A tune of plucked notes, four a second, the left and the right voice apart, and a soft beat of noise on every second.
class Tune {
public:
    static constexpr uint32_t RATE = 44100;

    void Next(int16_t pair[2]) {
        static const int STEPS[8] = {220, 277, 330, 440, 294, 370, 440, 587}; // Hz
        const uint32_t note = time / (RATE / 4);
        if (time % (RATE / 4) == 0) loud[note % 2] = 0.45;
        for (uint32_t v = 0; v < 2; v++) {
            const uint32_t played = note >= v ? (note - v) / 2 * 2 + v : 0;
            phase[v] += static_cast<double>(STEPS[played * 5 % 8]) / RATE;
            if (phase[v] >= 1) phase[v] -= 1;
            loud[v] *= 0.99992;
        }
        if (time % RATE == 0) beat = 0.3;
        beat *= 0.9985;
        const double hiss = (static_cast<double>(Hash(time, 0, 77) & 0xffff) / 32768 - 1) * beat;
        const double left = Wave(phase[0]) * loud[0];
        const double right = Wave(phase[1]) * loud[1];
        pair[0] = ToSample(left * 0.8 + right * 0.3 + hiss);
        pair[1] = ToSample(right * 0.8 + left * 0.3 + hiss);
        time++;
    }

private:
    static int16_t ToSample(double value) {
        const double scaled = std::clamp(value * 26000, -32000.0, 32000.0);
        return static_cast<int16_t>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
    }
    uint32_t time = 0;
    double phase[2] = {0, 0};
    double loud[2] = {0, 0};
    double beat = 0;
};

void WriteTune(const std::string& name, bool force, uint32_t frames, Fraction rate) {
    const uint64_t pairs = uint64_t(frames) * Tune::RATE * rate.denominator / rate.numerator;
    if (pairs > (UINT32_MAX - 64) / 4)
        throw Failure{EXIT_USAGE,
                      fmt::format("--sound {}: {} frames are more sound than a WAV file holds", name, frames)};
    OutputFile file(name, force);
    WriteWavHead(&file, Tune::RATE, 2, static_cast<uint32_t>(pairs * 4));
    Tune tune;
    for (uint64_t i = 0; i < pairs; i++) {
        int16_t pair[2];
        tune.Next(pair);
        WriteSamples(&file, pair, 2);
    }
    file.Finish();
}

uint8_t StudioSample(int offset, int red, int green, int blue) {
    return static_cast<uint8_t>(offset + ((red + green + blue + (1 << 15)) >> 16));
}

// A frame of Y4M with a chroma sample in the middle of every four pixels: BT.601, studio range, rounded.
void WriteY4mFrame(OutputFile* file, const Canvas& canvas) {
    file->Write("FRAME\n", 6);
    std::vector<uint8_t> y;
    std::vector<uint8_t> cb;
    std::vector<uint8_t> cr;
    for (size_t i = 0; i < canvas.bgra.size(); i += 4) {
        const uint8_t* p = &canvas.bgra[i];
        y.push_back(StudioSample(16, 16829 * p[2], 33039 * p[1], 6416 * p[0]));
    }
    for (uint32_t cy = 0; cy < (canvas.height + 1) / 2; cy++)
        for (uint32_t cx = 0; cx < (canvas.width + 1) / 2; cx++) {
            int sum[3] = {0, 0, 0};
            for (uint32_t i = 0; i < 4; i++) {
                const uint32_t px = std::min(cx * 2 + i % 2, canvas.width - 1);
                const uint32_t py = std::min(cy * 2 + i / 2, canvas.height - 1);
                for (size_t c = 0; c < 3; c++) sum[c] += canvas.bgra[(size_t(py) * canvas.width + px) * 4 + c];
            }
            // A quarter of each weight: the sums are of four pixels.
            cb.push_back(StudioSample(128, -2429 * sum[2], -4768 * sum[1], 7197 * sum[0]));
            cr.push_back(StudioSample(128, 7197 * sum[2], -6026 * sum[1], -1171 * sum[0]));
        }
    file->Write(y.data(), y.size());
    file->Write(cb.data(), cb.size());
    file->Write(cr.data(), cr.size());
}

const SceneKind& FindScene(const std::string& name) {
    std::string known;
    for (const SceneKind& kind : SCENES) {
        if (name == kind.name) return kind;
        known += (known.empty() ? "" : ", ") + std::string(kind.name);
    }
    throw Failure{EXIT_USAGE, fmt::format("scene {}: not known; there are {}", name, known)};
}

} // namespace

int RunScene(const SceneOptions& options) {
    const SceneKind& kind = FindScene(options.scene);
    const Fraction rate = ParseRate("--fps", options.rate);
    Canvas canvas = {};
    ParseSize("--size", options.size, &canvas.width, &canvas.height);
    canvas.bgra.resize(size_t(canvas.width) * canvas.height * 4);
    const bool raw = LowerExtension(options.output) == ".bgra";
    if (options.output.empty() && options.sound.empty())
        throw Failure{EXIT_USAGE, "scene: give -o OUT.y4m, --sound OUT.wav or both"};
    std::string target = options.output;
    std::string soundTarget = options.sound;
    if (!target.empty() && target != "-") target = CheckOutput(target, {}, options.force, false);
    if (!soundTarget.empty()) soundTarget = CheckOutput(soundTarget, {}, options.force, false);
    if (!soundTarget.empty()) WriteTune(soundTarget, options.force, options.frames, rate);
    if (target.empty()) return EXIT_DONE;
    OutputFile file(target, options.force);
    if (!raw) {
        const std::string head = fmt::format("YUV4MPEG2 W{} H{} F{}:{} Ip A1:1 C420jpeg\n", canvas.width, canvas.height,
                                             rate.numerator, rate.denominator);
        file.Write(head.data(), head.size());
    }
    Progress progress(options.quiet, options.frames, rate);
    for (uint32_t frame = 0; frame < options.frames; frame++) {
        kind.paint(&canvas, frame);
        if (raw)
            file.Write(canvas.bgra.data(), canvas.bgra.size());
        else
            WriteY4mFrame(&file, canvas);
        progress.Update(frame + 1, 0);
    }
    file.Finish();
    return EXIT_DONE;
}

} // namespace vorn
