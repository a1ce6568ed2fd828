// AudioDecoderTest.cpp - coded sound written by hand against the cosine sums; packets, joins, and the rules of a block.
#include <cmath>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "tests/reader/Examples.h"

static thread_local size_t largestRequest; // bytes
[[gnu::noinline]] void* operator new(size_t bytes) {
    largestRequest = std::max(largestRequest, bytes);
    if (void* memory = std::malloc(bytes)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

namespace vorn::reader {
namespace {

constexpr uint32_t N = 512; // samples of a block at 8000 samples per second, mono
constexpr uint32_t BANDS = 18;
constexpr uint32_t BLOCK_ADVANCE = 2 * (N - N / 16); // PCM bytes
const AudioKind DCT = {8000, 1, true};
const AudioKind DFT = {8000, 1, false};
const double PI = std::acos(-1.0);

void PutFloat(BitSink* sink, double value) {
    uint32_t exponent = 0;
    for (long rounded = std::lrint(std::fabs(value)); rounded != 0; rounded /= 2) exponent++;
    sink->Put(exponent, 5).Put(uint32_t(std::lrint(std::ldexp(std::fabs(value), 23 - int(exponent)))), 23);
    sink->Put(value < 0, 1);
}

struct Parts {
    uint32_t lead = 0;
    double values[2] = {0, 0};
    uint32_t step = 0;     // of all bands
    int coefficient10 = 0; // the only one of the others, -7 to 7
    uint32_t padding = 0;
};
void PutBlock(BitSink* sink, const AudioKind& kind, const Parts& parts) {
    if (kind.perChannelDct) sink->Put(parts.lead, 2);
    PutFloat(sink, parts.values[0]);
    PutFloat(sink, parts.values[1]);
    for (uint32_t b = 0; b < BANDS; b++) sink->Put(parts.step, 8);
    if (parts.coefficient10 == 0) {
        sink->Put(1, 1).Put(15, 4).Put(0, 4); // all 64 groups
    } else {
        sink->Put(0, 1).Put(0, 4); // 2 to 9
        sink->Put(0, 1).Put(3, 4).Put(uint32_t(std::abs(parts.coefficient10)), 3).Put(parts.coefficient10 < 0, 1);
        sink->Put(0, 21);                     // 11 to 17
        sink->Put(1, 1).Put(15, 4).Put(0, 4); // the other 62 groups
    }
    sink->Put(parts.padding, uint32_t(-sink->used & 31));
}
std::vector<double> Restore(const AudioKind& kind, const Parts& parts, Violations* violations) {
    BitSink sink;
    PutBlock(&sink, kind, parts);
    CodedAudioBlock block;
    EXPECT_TRUE(ReadAudioBlock(kind, {sink.bytes.data(), sink.bytes.size()}, {}, &block, violations));
    EXPECT_EQ(block.bytes, sink.bytes.size());
    return RestoreAudioBlock(kind, block);
}
double DcOf(double level) {
    return level * std::sqrt(double(N)) / 2;
} // what a constant input codes as, in the DCT

// A band's step is 10^(0.0664 * index). The DCT's coefficient 1 is half a wave. In the DFT value 1 is the top frequency, and
// coefficient 10 the cosine of line 5.
TEST(AudioDecoder, BlocksAreSumsOfCosines) {
    Parts parts;
    parts.values[0] = 1000;
    parts.values[1] = -300.25;
    parts.step = 30;
    parts.coefficient10 = -5;
    const double amplitude10 = -5 * std::pow(10, 0.0664 * 30);
    Violations violations;
    const std::vector<double> dct = Restore(DCT, parts, &violations), dft = Restore(DFT, parts, &violations);
    EXPECT_EQ(AllLines(violations), "");
    ASSERT_EQ(dct.size(), N);
    ASSERT_EQ(dft.size(), N);
    for (uint32_t k = 0; k < N; k++) {
        const double wave =
            1000 - 300.25 * std::cos(PI * (k + 0.5) / N) + amplitude10 * std::cos(PI * 10 * (k + 0.5) / N);
        EXPECT_NEAR(dct[k], wave * 2 / std::sqrt(double(N)), 1e-3);
        const double line = (1000 - 300.25 * (k % 2 == 0 ? 1 : -1)) / 2 + amplitude10 * std::cos(2 * PI * 5 * k / N);
        EXPECT_NEAR(dft[k], line * 2 / std::sqrt(double(N)), 1e-3);
    }
}

TEST(AudioDecoder, RulesOfABlock) {
    Parts lead, padding, exponent;
    lead.lead = 2;
    padding.padding = 0x80;
    exponent.values[0] = 3e7; // more than 32768 * sqrt(4096)
    Violations violations;
    Restore(DCT, lead, &violations);
    EXPECT_TRUE(Tells(violations, SEVERITY_ERROR, "lead bits"));
    Restore(DFT, padding, &violations);
    EXPECT_TRUE(Tells(violations, SEVERITY_ERROR, "padding"));
    Restore(DFT, exponent, &violations);
    EXPECT_TRUE(Tells(violations, SEVERITY_HABIT, "larger than any sound"));

    // 64 empty groups under two headings of 32, and a group of zeros with a width.
    for (const bool split : {true, false}) {
        BitSink sink;
        sink.Put(0, 29).Put(0, 29);
        for (uint32_t b = 0; b < BANDS; b++) sink.Put(0, 8);
        if (split) {
            for (int i = 0; i < 2; i++) sink.Put(1, 1).Put(14, 4).Put(0, 4);
        } else {
            sink.Put(1, 1).Put(15, 4).Put(1, 4);
            for (uint32_t i = 2; i < N; i++) sink.Put(0, 1);
        }
        sink.PadToWord();
        Violations habits;
        CodedAudioBlock block;
        EXPECT_TRUE(ReadAudioBlock(DFT, {sink.bytes.data(), sink.bytes.size()}, {}, &block, &habits));
        EXPECT_TRUE(Tells(habits, SEVERITY_HABIT, split ? "aren't gathered" : "wider than its values"));
        EXPECT_FALSE(ReadAudioBlock(DFT, {sink.bytes.data(), sink.bytes.size() - 4}, {}, &block, &habits));
        EXPECT_EQ(habits.errors, 1u);
    }
}

std::vector<uint8_t> Packet(uint32_t pcmBytes, const std::vector<double>& levels) {
    std::vector<uint8_t> packet;
    PutWord(&packet, pcmBytes);
    for (const double level : levels) {
        Parts parts;
        parts.values[0] = DcOf(level);
        BitSink sink;
        PutBlock(&sink, DCT, parts);
        packet.insert(packet.end(), sink.bytes.begin(), sink.bytes.end());
    }
    return packet;
}
TrackSound SoundOf(const std::vector<std::vector<uint8_t>>& packets, Violations* violations) {
    const uint32_t count = uint32_t(packets.size());
    Movie movie;
    Violations head;
    EXPECT_TRUE(ParseMovie(ExampleMovie(count, count, MOVIE_FLAG_GREY, {{3, 8000 | 1u << 28 | 1u << 30, packets}}), {},
                           &movie, &head));
    EXPECT_EQ(AllLines(head), "");
    TrackSound sound;
    DecodeTrack(movie, 0, &sound, violations);
    return sound;
}

// Two blocks in one packet, one in a later one: levels 100, 200, -50, with even slopes of 32 samples between them.
TEST(AudioDecoder, BlocksAreJoined) {
    Violations violations;
    const TrackSound sound = SoundOf({Packet(2 * BLOCK_ADVANCE, {100, 200}), {}, Packet(500, {-50})}, &violations);
    EXPECT_EQ(AllLines(violations), "");
    EXPECT_EQ(sound.blocks, 3u);
    ASSERT_EQ(sound.samples.size(), BLOCK_ADVANCE + 250);
    for (const size_t i : {0u, 479u}) EXPECT_EQ(sound.samples[i], 100);
    EXPECT_EQ(sound.samples[480], 102); // 100 + 100 / 64, rounded
    EXPECT_EQ(sound.samples[495], 148);
    EXPECT_EQ(sound.samples[511], 198);
    for (const size_t i : {512u, 959u}) EXPECT_EQ(sound.samples[i], 200);
    EXPECT_EQ(sound.samples[960 + 32], -50);
    EXPECT_EQ(sound.samples.back(), -50);
}

TEST(AudioDecoder, RulesOfPackets) {
    Violations tooMuch, empty, torn, behind;
    EXPECT_EQ(SoundOf({Packet(BLOCK_ADVANCE + 4, {1})}, &tooMuch).samples.size(), 482u);
    EXPECT_TRUE(Tells(tooMuch, SEVERITY_ERROR, "frame 0, track 0: The packet stands for more"));
    SoundOf({Packet(0, {})}, &empty);
    EXPECT_TRUE(Tells(empty, SEVERITY_ERROR, "holds no block"));
    std::vector<uint8_t> longer = Packet(BLOCK_ADVANCE, {1});
    longer.resize(longer.size() + 4);
    EXPECT_EQ(SoundOf({longer}, &torn).samples.size(), 480u);
    EXPECT_TRUE(Tells(torn, SEVERITY_ERROR, "bit 255: The stream is too short")); // 31 bits into the second block
    SoundOf({Packet(8, {1}), Packet(BLOCK_ADVANCE, {1})}, &behind);
    EXPECT_TRUE(Tells(behind, SEVERITY_HABIT, "frame 1, track 0: Sound goes on"));
    for (const uint32_t pcmBytes : {0u, 958u, 960u, 962u, 964u}) { // two blocks: 964 to 1920 bytes
        Violations counted;
        SoundOf({Packet(pcmBytes, {1, 1})}, &counted);
        EXPECT_EQ(Tells(counted, SEVERITY_HABIT, "PCM bytes aren't what"), pcmBytes < 964) << pcmBytes;
    }
}

// What VerifyMovie adds: the table's largest PCM, and 3/4 of a second, 12000 bytes, ahead of the picture. The movie has one
// frame, which lasts so many seconds.
TEST(AudioDecoder, TablesAndPace) {
    constexpr uint32_t MONO = 8000 | 1u << 28;
    const std::vector<uint8_t> block = Packet(640, {1});
    const auto blocks = [](uint32_t count) { return Packet(count * BLOCK_ADVANCE, std::vector<double>(count, 1)); };
    std::vector<uint8_t> tenBlocks = blocks(10);
    SetWord(&tenBlocks, 0, 8704);
    const struct {
        std::vector<uint8_t> packet;
        uint32_t format, rate, seconds, largest;
        Severity severity;
        const char* words; // empty: clean
    } cases[] = {
        {block, MONO, 25, 1, 640, SEVERITY_HABIT, ""},
        {block, MONO, 25, 1, 639, SEVERITY_ERROR, "stands for 640 PCM bytes, not 639"},
        {block, MONO, 25, 1, 641, SEVERITY_ERROR, "stands for 640 PCM bytes, not 641"},
        {block, MONO, 24, 1, 640, SEVERITY_HABIT, "lags behind"},
        {block, 8000 | 9u << 28, 25, 1, 640, SEVERITY_ERROR, "not exactly one variant"},
        {block, 70000 | 1u << 28, 25, 1, 640, SEVERITY_ERROR, "A sample rate of 70000"},
        {blocks(13), MONO, 1, 1, 12480, SEVERITY_HABIT, ""},
        {blocks(14), MONO, 1, 1, 13440, SEVERITY_HABIT, "isn't due yet"},
        {tenBlocks, MONO, 1, 268436, 8704, SEVERITY_HABIT, ""}, // 4 GiB and 8704 bytes: the 4 GiB are lost
    };
    for (const auto& example : cases) {
        std::vector<uint8_t> bytes = ExampleMovie(1, 1, MOVIE_FLAG_GREY, {{3, example.format, {example.packet}}});
        SetWord(&bytes, 28, example.rate);
        SetWord(&bytes, 32, example.seconds);
        SetWord(&bytes, 44, example.largest);
        Movie movie;
        Violations violations;
        ASSERT_TRUE(ParseMovie(bytes, {}, &movie, &violations));
        VerifyMovie(movie, {}, &violations);
        if (*example.words == 0)
            EXPECT_EQ(AllLines(violations), "");
        else
            EXPECT_TRUE(Tells(violations, example.severity, example.words)) << AllLines(violations);
    }
}

// 56 kB of coded silence are 2 MB of samples; to judge them none is kept.
TEST(AudioDecoder, JudgingTakesLittleMemory) {
    const std::vector<uint8_t> packet = Packet(2000 * BLOCK_ADVANCE, std::vector<double>(2000, 0));
    Movie movie;
    Violations violations;
    ASSERT_TRUE(
        ParseMovie(ExampleMovie(1, 2000, MOVIE_FLAG_GREY, {{3, 8000 | 1u << 28, {packet}}}), {}, &movie, &violations));
    largestRequest = 0;
    EXPECT_TRUE(VerifyMovie(movie, {}, &violations));
    EXPECT_EQ(violations.errors, 0u);
    EXPECT_LT(largestRequest, 100000u);
}

} // namespace
} // namespace vorn::reader
