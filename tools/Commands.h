// Commands.h - the commands of `vorn`, each with the record that its arguments fill. Each returns an exit code or throws a
// Failure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/Input.h"

namespace vorn {

struct MakeOptions {
    InputOptions input;
    std::string output;
    uint32_t frameBytes = 0;   // target size of a frame, sound and picture; 0: by `rateKbit`, or by the picture's size
    double rateKbit = 0;       // of the whole movie, in 1000 bits a second; 0: not given
    std::string quality;       // "low", "middle", "high": the target size by the picture's size; "" if not given
    uint32_t cap = UINT32_MAX; // bytes: most that the picture of a frame may take
    uint32_t keyInterval = 0;  // 0: only frame 0 is a key frame
    uint32_t lookAhead = 16;
    uint32_t frames = 0;   // most frames to take; 0: all
    uint32_t capacity = 0; // most frames that the movie can hold if their number isn't known; 0: see Make.cpp
    uint32_t threads = 0;  // 0: as many as there are processors
    bool grey = false;
    bool alpha = false;              // keep it, wherever it comes from
    bool noAlpha = false;            // leave it out, even if it comes from PNG files
    std::vector<std::string> sounds; // FILE[,id=N,quality=N]
    std::string log;                 // a table with a row for each frame, or ""
    bool verify = false;             // read everything back
    bool force = false;
    bool quiet = false;
};
int RunMake(const MakeOptions& options);

struct InfoOptions {
    std::string movie;
    bool frames = false; // a line for each frame
    bool blocks = false; // how the blocks of each plane are coded
    bool json = false;   // all of it for programs
};
int RunInfo(const InfoOptions& options);

struct VerifyCommandOptions {
    std::string movie;
    InputOptions source;  // to compare it with; no names: none
    uint32_t most = 10;   // violations to print
    bool growing = false; // a movie that isn't closed yet
    bool noPacing = false;
    bool quiet = false;
};
int RunVerify(const VerifyCommandOptions& options);

struct DecodeOptions {
    std::string movie;
    std::string output; // by its extension: .y4m, .bgra, .png, .wav; a folder; "-" for standard output
    std::string kind;   // "y4m", "bgra", "png", "wav" where the output's name doesn't tell, or ""
    int64_t track = -1; // id of the track to decode instead of the picture
    std::string frames; // "N", "N-M" or "N-": only these; "" for all
    bool force = false;
    bool quiet = false;
};
int RunDecode(const DecodeOptions& options);

struct CompareOptions {
    std::string movie;
    InputOptions source;
    std::string picture; // PNG with source and result side by side, or ""
    int64_t frame = -1;  // only this frame
    bool force = false;
    bool quiet = false;
};
int RunCompare(const CompareOptions& options);

struct MixOptions {
    std::string movie;
    std::string output;
    std::vector<std::string> tracks; // ID=FILE[,quality=N]
    std::vector<uint32_t> drops;     // ids
    uint32_t delayFrames = 0;
    uint32_t delayMilliseconds = 0;
    std::string rate; // "N/D", or "" to keep it
    bool force = false;
    bool quiet = false;
};
int RunMix(const MixOptions& options);

struct ReportOptions {
    std::string movie;
    std::string output;          // a page
    InputOptions source;         // no names: none
    std::vector<uint32_t> shown; // frames to show beside their source; none: a few are chosen
    uint32_t frameBytes = 0;     // what the movie was made with; 0: by `rateKbit`
    double rateKbit = 0;         // the same in 1000 bits a second; 0: not known
    bool force = false;
    bool quiet = false;
};
int RunReport(const ReportOptions& options);

struct SceneOptions {
    std::string scene;
    std::string output;
    std::string sound;
    std::string size = "320x240";
    std::string rate = "25";
    uint32_t frames = 100;
    bool force = false;
    bool quiet = false;
};
int RunScene(const SceneOptions& options);

struct BenchOptions {
    InputOptions input;
    uint32_t frameBytes = 0; // target size of a frame; 0: one bit a pixel
    uint32_t lookAhead = 16;
    uint32_t frames = 0;  // most frames to take; 0: all
    uint32_t threads = 0; // 0: as many as there are processors
    uint32_t rounds = 3;  // the fastest one is told
};
int RunBench(const BenchOptions& options);

} // namespace vorn
