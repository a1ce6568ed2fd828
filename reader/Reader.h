// Reader.h - reads finished movies: walks the file, decodes planes and sound, and checks every rule on the way.
// Not part of the encoder: so that a slip in one is seen by the other, it shares with it what is in format/, which is
// constant tables and the shape of a track's sound, and the functions of numeric/. It is made for files of strangers: every
// read is checked against the bytes that are there, claimed sizes are believed only as far as the file's length bears them
// out, and no exception leaves it but std::bad_alloc.
// A movie's road: OpenMovie or ParseMovie, ReadFrame, DecodeFrame with one MovieDecoder from frame 0 on, DecodeTrack for
// each track; or VerifyMovie, which does it all. DecodePlane takes a single plane stream.
// Threads: all state is in the arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "format/MovieLayout.h"

namespace vorn::reader {

// ---- What was found wrong -----------------------------------------------------------------------------------------

enum Severity : uint8_t {
    SEVERITY_ERROR, // no conforming file has this
    SEVERITY_HABIT, // it can be read, but the encoder never writes it
};

// Planes in the encoder's order. A video packet holds them as alpha, Y, Cr, Cb.
enum PlaneId : int8_t { NO_PLANE = -1, PLANE_Y = 0, PLANE_CR, PLANE_CB, PLANE_ALPHA, PLANES };
const char* PlaneName(int plane); // "Y", "Cr", "Cb", "alpha"; "" for NO_PLANE

struct Violation {
    Severity severity;
    int64_t frame = -1;    // -1: of the whole movie
    int plane = NO_PLANE;  // a PlaneId
    int track = -1;        // of the movie's tracks, in file order; -1: not about sound
    int column = -1;       // of 8x8 blocks; -1: not about one block
    int row = -1;          // -1: not about one block row
    int64_t bit = -1;      // position in the plane stream or in the packet's coded audio, -1: none
    std::string text = {}; // a sentence
};

// Violations in the order in which they were met. Only the first `room` are kept; all are counted.
struct Violations {
    std::vector<Violation> list;
    uint64_t errors = 0;
    uint64_t habits = 0;
    size_t room = 1000;
};
void AddViolation(Violations* violations, const Violation& violation);
// "error: frame 3, plane Cr, block 2,5, bit 1207: ..." in one line.
std::string DescribeViolation(const Violation& violation);

// ---- The file ------------------------------------------------------------------------------------------------------

constexpr uint32_t MOVIE_FLAG_GREY = 1u << 17;  // in the header's flags: no Cr and Cb
constexpr uint32_t MOVIE_FLAG_ALPHA = 1u << 20; // an alpha plane
// Beyond this padded width a chunk of colours could outgrow its 15-bit count.
constexpr uint32_t MOST_WIDTH = 4032;
// Most samples of a plane that this reader takes on. The encoder stops below 226 million, by its memory.
constexpr uint64_t MOST_PLANE_SAMPLES = uint64_t(1) << 28;

struct MovieOptions {
    uint64_t offset = 0;  // where the movie starts in the file; above 0 other things may follow it
    bool growing = false; // flushed but not closed: bytes may follow the last frame, and tables be ahead of the count
};

struct Track {
    uint32_t largestPcm; // the three table words
    uint32_t format;
    uint32_t id;
    uint32_t sampleRate; // samples per second of a channel
    uint32_t channels;   // 1 or 2
    bool sixteenBit;     // the width that the origin had; PCM is 16 bits wide in any case
    bool perChannelDct;  // else one DFT over the interleaved samples
    bool usable;         // the format word makes sense, so that the sound can be decoded
};

struct Movie {
    std::vector<uint8_t> bytes; // from the movie's first byte to the end of the file
    MovieOptions options;
    VornFileHeader header;
    std::vector<Track> tracks;
    std::vector<uint32_t> index;     // all indexCapacity + 1 words
    std::vector<size_t> frameStarts; // header.frames + 1 offsets into `bytes`, from the index' differences
    uint32_t lumaWidth, lumaHeight;  // padded: multiples of 8
    uint32_t chromaWidth, chromaHeight;
    bool hasChroma, hasAlpha;
};

// Reads a whole file or takes it over from memory, with `offset` bytes ahead of the movie still in `bytes`.
// False if it can't be walked at all; the last violation then says why. What is merely wrong is noted and read on.
bool OpenMovie(const std::string& name, const MovieOptions& options, Movie* movie, Violations* violations);
bool ParseMovie(std::vector<uint8_t> bytes, const MovieOptions& options, Movie* movie, Violations* violations);

bool MovieHasPlane(const Movie& movie, int plane);
void PlaneSize(const Movie& movie, int plane, uint32_t* width, uint32_t* height); // padded

struct Bytes { // part of Movie::bytes, valid as long as the movie
    const uint8_t* data = nullptr;
    size_t size = 0;
};

struct AudioPacket {
    uint32_t length;   // the length word; 0: the packet adds nothing
    uint32_t pcmBytes; // PCM that it stands for; 0 if length is 0
    Bytes coded;
};

struct Frame {
    uint32_t number;
    bool key;
    Bytes packet;                   // all of it
    std::vector<AudioPacket> audio; // one a track
    Bytes video;                    // behind the audio packets
    Bytes alpha;                    // plane streams; empty if the movie has no such plane
    Bytes luma;
    Bytes chroma; // Cr, then Cb; decoding Cr tells where Cb begins
};
// Cuts up frame `number`, below header.frames. False if its lengths don't fit; then only the parts before are set.
bool ReadFrame(const Movie& movie, uint32_t number, Frame* frame, Violations* violations);

// ---- Planes --------------------------------------------------------------------------------------------------------

enum BundleId {
    BLOCK_TYPES,
    SUB_BLOCK_TYPES,
    COLOURS,
    PATTERNS,
    X_OFFSETS,
    Y_OFFSETS,
    INTRA_DC,
    INTER_DC,
    RUNS,
    BUNDLES
};
enum PayloadId { RUN_DATA, INTRA_DATA, INTER_DATA, RESIDUE_DATA, PAYLOADS };
constexpr int TABLES = 23; // blockTypes, subBlockTypes, 17 of colours, patterns, xOffsets, yOffsets, runs

struct PlaneStatistics {
    uint32_t modes[16];             // 8x8 records by mode; a 16x16 block counts as two of mode 1
    uint32_t highModes[16];         // 16x16 blocks by mode
    uint32_t chunks[BUNDLES];       // with elements
    uint32_t elements[BUNDLES];     // in these chunks
    uint32_t bundleBits[BUNDLES];   // of these chunks, counts included
    uint32_t payloadBits[PAYLOADS]; // bit strings of blocks
    uint32_t tableBits;
    uint32_t paddingBits;
    uint8_t trees[TABLES]; // tree number of each table, in stream order
};

// One 8x8 position as the stream gives it. The other three of a 16x16 block have mode MODE_SCALED as well; the right ones
// get highMode of the block, the lower ones too.
struct BlockInfo {
    uint8_t mode;            // a BlockMode
    uint8_t highMode;        // mode of the 16x16 block if mode is MODE_SCALED, else 0
    int8_t offsetX, offsetY; // of modes that have them, else 0
    // Run: scan order. Residue: the truncation point, modulo 128. Intra, inter: quantiser. Fill: the colour.
    uint8_t detail;
};

struct PlaneRequest {
    Bytes stream;                       // may reach beyond the plane's own end
    uint32_t width = 0, height = 0;     // multiples of 8
    const uint8_t* reference = nullptr; // width * height samples of the frame before; null: all 0
    bool keyFrame = false;              // no block may use the reference
    int plane = PLANE_Y;                // for the rules of alpha, and for reports
    int64_t frame = 0;                  // for reports
};
struct DecodedPlane {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> samples;  // row-major, pitch is width
    std::vector<BlockInfo> blocks; // raster order
    size_t consumed = 0;           // bytes of the stream, padding included
    PlaneStatistics statistics = {};
};
// False if the stream broke off: an error tells where, and `plane` holds what came out up to there, the rest 0; or no sample
// at all if it broke off ahead of the first block.
bool DecodePlane(const PlaneRequest& request, DecodedPlane* plane, Violations* violations);

// ---- Frames --------------------------------------------------------------------------------------------------------

// Planes of the last frame, which are the reference of the next. A plane that nothing has written is empty and stands
// for zeros.
struct MovieDecoder {
    DecodedPlane planes[PLANES];
};
// Decodes all planes of a frame. Call it frame after frame from 0 on, or from any key frame on. False if a plane broke
// off; such a plane and those behind it then hold what is left of them.
bool DecodeFrame(const Movie& movie, const Frame& frame, MovieDecoder* decoder, Violations* violations);

// ---- Sound ---------------------------------------------------------------------------------------------------------

// One transform of a coded block.
struct CodedSpectrum {
    std::vector<uint8_t> steps;        // a step index a band
    std::vector<int32_t> coefficients; // coded integers, -32767 to 32767; [0] and [1] unused
    double values[2];                  // coefficients 0 and 1 as they travel
};
struct CodedAudioBlock {
    std::vector<CodedSpectrum> spectra; // one a transform
    size_t bytes = 0;                   // padding included
};
// What a track's sound looks like; see ShapeOfAudio for the numbers.
struct AudioKind {
    uint32_t sampleRate; // 1 to 65535
    uint32_t channels;   // 1 or 2
    bool perChannelDct;
};
// Reads the block at the start of `coded`. False if it breaks off. `place` names frame and track for reports; if its `bit`
// isn't -1, it is where the block begins in the packet's coded audio.
bool ReadAudioBlock(const AudioKind& kind, Bytes coded, const Violation& place, CodedAudioBlock* block,
                    Violations* violations);
// Samples of a block, channels interleaved, full scale 32768: transform size * transform count of them.
std::vector<double> RestoreAudioBlock(const AudioKind& kind, const CodedAudioBlock& block);

struct TrackSound {
    AudioKind kind;
    std::vector<int16_t> samples; // channels interleaved
    uint64_t pcmBytes = 0;        // by the packets' words
    uint64_t codedBytes = 0;
    uint32_t blocks = 0;
};
// Decodes a track. Blocks are joined by a linear cross-fade over the sixteenth that neighbours share, and the result is
// limited to the packets' PCM bytes. False if it broke off; `sound` then holds what came before.
bool DecodeTrack(const Movie& movie, uint32_t track, TrackSound* sound, Violations* violations);

// ---- Everything ----------------------------------------------------------------------------------------------------

struct VerifyOptions {
    bool sound = true;
    bool pacing = true; // sound 3/4 of a second ahead of the picture; kept tracks of a mix at a new rate aren't
};
// Decodes all frames and tracks and checks the head against them. True if all could be read, whatever the violations.
bool VerifyMovie(const Movie& movie, const VerifyOptions& options, Violations* violations);

} // namespace vorn::reader
