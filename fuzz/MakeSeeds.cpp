// MakeSeeds.cpp - writes the first inputs of the fuzz targets, to be grown and thinned out by them: fuzz_seeds FOLDER.
#include <filesystem>

#include "tests/movie/MovieMaking.h"

using namespace vorn;

namespace {

// Each plane of a movie, with what PlaneFuzz.cpp needs to know of it behind.
void WritePlanes(const std::filesystem::path& folder, const std::string& bytes, const std::string& name) {
    const ReadMovie read = ReadBack(bytes);
    reader::Violations violations;
    for (uint32_t number = 0; number < read.movie.header.frames; number++) {
        reader::Frame frame;
        reader::ReadFrame(read.movie, number, &frame, &violations);
        for (const auto& [plane, stream] : {std::pair{reader::PLANE_Y, frame.luma},
                                            {reader::PLANE_CR, frame.chroma},
                                            {reader::PLANE_ALPHA, frame.alpha}}) {
            if (stream.size == 0) continue;
            uint32_t width = 0, height = 0;
            reader::PlaneSize(read.movie, plane, &width, &height);
            std::string text(stream.data, stream.data + stream.size);
            text += static_cast<char>(plane + (frame.key ? 4 : 0));
            text += static_cast<char>(width / 8 - 1 + (height / 8 - 1) * 16);
            text += static_cast<char>(number);
            WriteWholeFile(folder / (name + "frame" + std::to_string(number) + reader::PlaneName(plane)), text);
        }
    }
}

// Small movies of every content and set of planes, with sound of both kinds.
void WriteMovies(const std::filesystem::path& folder) {
    const TestFolder scratch;
    uint32_t number = 0;
    for (const uint32_t options : {0u, GREY, ALPHA, GREY + ALPHA}) {
        for (const Content content : CONTENTS) {
            MoviePlan plan;
            plan.content = content;
            plan.options = options;
            plan.width = 16 + number % 3 * 8;
            plan.height = 16 + number % 2 * 8;
            plan.frames = 2 + number % 2;
            plan.rate = 40 + number * 12;
            if (number % 5 == 1) plan.sounds = {{8000, 1 + number % 2, number % 3 * 60 + 5}};
            if (number % 5 == 3) plan.sounds = {{400, 1, 10}, {200, 2, 120}};
            const std::string bytes = MakeMovie(&plan, scratch / "movie");
            const std::string name = "movie" + std::to_string(number++);
            WriteWholeFile(folder / "reader" / name, bytes);
            if (number % 3 == 0) WritePlanes(folder / "plane", bytes, name);
            std::string choices(24, '\0');
            for (size_t i = 0; i < choices.size(); i++) choices[i] = static_cast<char>(Scatter(number, uint32_t(i), 5));
            WriteWholeFile(folder / "mix" / name, bytes + choices);
        }
    }
}

// Choices at random: few are refused, for the bytes behind them are taken modulo what makes sense.
void WriteChoices(const std::filesystem::path& folder, const char* target, uint32_t count, uint32_t bytes) {
    for (uint32_t number = 0; number < count; number++) {
        std::string text;
        for (uint32_t i = 0; i < bytes; i++) text += static_cast<char>(Scatter(number, i, bytes));
        WriteWholeFile(folder / target / ("choices" + std::to_string(number)), text);
    }
}

// A movie in order, with the faults and stops left out.
void WriteMakePlans(const std::filesystem::path& folder) {
    for (uint32_t number = 0; number < 16; number++) {
        std::string text;
        const uint32_t plan[] = {8 + number, 9 + number, number % 4,     6,      6,          number % 5, number % 4, 0,
                                 0,          1,          2 + number % 7, 0,      0,          0,          0,          0,
                                 0,          number % 3, number,         number, number * 9, 3};
        for (const uint32_t value : plan) text += static_cast<char>(value);
        for (uint32_t i = 0; i < 60; i++) text += static_cast<char>(Scatter(number, i, 9));
        WriteWholeFile(folder / "make" / ("plan" + std::to_string(number)), text);
    }
}

void WritePictures(const std::filesystem::path& folder) {
    const char* const chroma[] = {"", " C420", " C420jpeg", " C420mpeg2", " C420paldv", " C422", " C444", " Cmono"};
    const uint32_t samples[] = {27, 27, 27, 27, 27, 33, 45, 15}; // 5x3: 15 of luma, twice 3x2, 3x3 or 5x3 of chroma
    for (uint32_t i = 0; i < 8; i++) {
        std::string text = std::string("YUV4MPEG2 W5 H3 F25:1 Ip A1:1") + chroma[i] + " XNOTE\n";
        for (uint32_t frame = 0; frame < 2; frame++) {
            text += frame == 0 ? "FRAME\n" : "FRAME Ip\n";
            for (uint32_t k = 0; k < samples[i]; k++) text += static_cast<char>(Scatter(i, k, frame));
        }
        WriteWholeFile(folder / "pictures" / ("y4m" + std::to_string(i)), text + std::string("\x05\x00", 2));
        WriteWholeFile(folder / "pictures" / ("raw" + std::to_string(i)), text + std::string("\x12\x03", 2));
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    const std::filesystem::path folder = arguments[1];
    for (const char* target : {"reader", "plane", "mix", "make", "pictures", "wave", "sound", "strings"})
        std::filesystem::create_directories(folder / target);
    const Workers workers{1};
    WriteMovies(folder);
    WriteMakePlans(folder);
    WriteChoices(folder, "make", 8, 120);
    WriteChoices(folder, "sound", 24, 90);
    WriteChoices(folder, "wave", 24, 60);
    WriteChoices(folder, "strings", 24, 100);
    WritePictures(folder);
    return 0;
}
