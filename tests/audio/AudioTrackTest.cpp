// AudioTrackTest.cpp - packets written to a file and read back: how much sound goes where, how sources and tracks end.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "audio/AudioEncoder.h"
#include "audio/AudioTrack.h"
#include "public/vornmake.h"

namespace {

using namespace vorn;

// A source that delivers `perCall` bytes a call until `left` is used up.
struct Source {
    uint32_t perCall = UINT32_MAX;
    uint32_t left = UINT32_MAX;
    uint32_t calls = 0;
    void* record = nullptr;
};

uint32_t Read(void* record, uintptr_t user, void* buffer, uint32_t bytes) {
    Source* source = reinterpret_cast<Source*>(user);
    source->calls++;
    source->record = record;
    const uint32_t given = std::min({bytes, source->perCall, source->left});
    for (uint32_t i = 0; i < given; i++) static_cast<uint8_t*>(buffer)[i] = uint8_t(i * 7 + i / 256);
    source->left -= given;
    return given;
}

struct Packet {
    uint32_t length, pcm; // as written; pcm 0 where there is no second word
};

// A movie of one track, all in one file.
struct Movie {
    Movie(const TrackDescriptor& descriptor, uint32_t frameCount, uint32_t num, uint32_t den)
        : frames(frameCount), numerator(num), denominator(den) {
        EXPECT_TRUE(InitAudioTrack(&track, descriptor, frames, numerator, denominator));
        length = track.pcmLeft;
    }
    ~Movie() { mokfree(track.encoder); }
    Movie(const Movie&) = delete;

    // Writes the packets behind some other bytes, checks their bounds, and walks them.
    std::vector<Packet> Write(void* record = nullptr) {
        const std::string name = testing::TempDir() + "vorn_track_test.bin";
        SpoolFile* file = SpoolCreate(4096, name.c_str(), false);
        EXPECT_NE(file, nullptr);
        for (uint32_t i = 0; i < 3; i++) SpoolWriteWord(file, 0xABABABAB);
        for (uint32_t frame = 0; frame < frames; frame++) {
            const uint64_t before = SpoolTell(file);
            const uint64_t bound = AudioPacketBound(&track, frame, numerator, denominator);
            WriteAudioPacket(file, &track, frame, numerator, denominator, record);
            EXPECT_LE(SpoolTell(file) - before, bound) << frame;
        }
        EXPECT_EQ(file->writeError, 0u);
        SpoolClose(file);
        std::ifstream in(name, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
        std::remove(name.c_str());
        return Walk();
    }
    std::vector<Packet> Walk() const {
        std::vector<Packet> packets;
        size_t at = 12;
        for (uint32_t frame = 0; frame < frames; frame++) {
            Packet packet = {Word(at), 0};
            if (packet.length) packet.pcm = Word(at + 4);
            at += 4 + packet.length;
            packets.push_back(packet);
        }
        EXPECT_EQ(at, bytes.size());
        return packets;
    }
    uint32_t Word(size_t at) const {
        uint32_t word = 0;
        for (size_t i = 0; i < 4; i++) word |= uint32_t(bytes.at(at + i)) << (8 * i);
        return word;
    }
    AudioTrackState track = {};
    uint32_t frames, numerator, denominator, length;
    std::vector<uint8_t> bytes;
};

TrackDescriptor Describe(Source* source, uint32_t rate, uint32_t channels, uint32_t quality, uint32_t bits = 16) {
    return {9, rate, bits, channels, quality, reinterpret_cast<uintptr_t>(source), Read};
}

uint64_t SumOfPcm(const std::vector<Packet>& packets) {
    uint64_t sum = 0;
    for (const Packet& packet : packets) sum += packet.pcm;
    return sum;
}

TEST(AudioTrack, SetUp) {
    Source source;
    Movie stereo(Describe(&source, 44100, 2, 204), 100, 30000, 1001);
    EXPECT_EQ(stereo.track.format, 44100u + (1u << 31) + (1u << 30) + (1u << 29));
    EXPECT_EQ(stereo.track.quality, 4u);
    EXPECT_EQ(stereo.track.bytesPerSecond, 176400u);
    EXPECT_EQ(stereo.track.leadBytes, 132300u);
    EXPECT_EQ(stereo.length, 588588u); // 176400 * 100 * 1001 / 30000
    EXPECT_EQ(stereo.track.pcmTally, 45u);
    EXPECT_EQ(stereo.track.codedTally, 10u);

    Movie mono(Describe(&source, 8001, 1, 99, 8), 1, 7, 1);
    EXPECT_EQ(mono.track.format, 8001u + (1u << 28));
    EXPECT_EQ(mono.track.quality, 99u);
    EXPECT_EQ(mono.track.leadBytes, 12001u); // 16002 * 3 / 4
    EXPECT_EQ(mono.length, 2288u);           // 16002 / 7 is 2286; up to a multiple of 4

    Movie empty(Describe(&source, 8001, 1, 99, 8), 4000000000u, 30, 0);
    EXPECT_EQ(empty.length, 0u);
}

TEST(AudioTrack, SoundRunsAheadOfThePicture) {
    Source source;
    Movie movie(Describe(&source, 44100, 2, 4), 90, 30, 1);
    int record = 0;
    const std::vector<Packet> packets = movie.Write(&record);
    EXPECT_EQ(source.record, &record);
    EXPECT_EQ(packets[0].pcm, 18u * 7680);
    uint64_t done = 0;
    for (uint32_t frame = 0; frame < 90; frame++) {
        const uint64_t target = std::min<uint64_t>(5880 * frame + 132300, movie.length);
        EXPECT_EQ(packets[frame].length == 0, target <= done) << frame;
        done += packets[frame].pcm;
        EXPECT_GE(done, target) << frame;
        EXPECT_LT(done, target + 7680) << frame;
    }
    EXPECT_EQ(SumOfPcm(packets), movie.length);
    EXPECT_EQ(movie.track.largestPcm, 18u * 7680);
    EXPECT_EQ(movie.track.codedTally - 10, [&] {
        uint32_t sum = 0;
        for (const Packet& packet : packets) sum += packet.length ? packet.length - 4 : 0;
        return sum;
    }());
}

// A target that whole blocks meet exactly takes no block more: 3/4 of 10240 bytes are 8 blocks of 960.
TEST(AudioTrack, ATargetMetExactlyIsMet) {
    Source source;
    Movie movie(Describe(&source, 5120, 1, 4), 10, 10, 1);
    EXPECT_EQ(movie.Write()[0].pcm, 7680u);
    EXPECT_EQ(source.calls, 11u); // 10240 bytes, the last block in part
}

// Whatever a source delivers, the track gets its full length, and the source is asked once a block.
TEST(AudioTrack, ShortReadsBecomeSilence) {
    for (uint32_t channels : {1u, 2u})
        for (uint32_t quality : {4u, 104u})
            for (const Source& kind :
                 {Source{0}, Source{1}, Source{333}, Source{500, 50001}, Source{UINT32_MAX, 12345}}) {
                Source source = kind;
                Movie movie(Describe(&source, 11025, channels, quality), 100, 25, 1);
                const std::vector<Packet> packets = movie.Write();
                EXPECT_EQ(SumOfPcm(packets), movie.length);
                EXPECT_EQ(movie.track.pcmLeft, 0u);
                const uint32_t hop = 960 * channels;
                EXPECT_NEAR(source.calls, double(movie.length) / hop, 1);
            }
}

TEST(AudioTrack, ASilentSourceIsCodedAsSilence) {
    Source none = {0};
    Movie movie(Describe(&none, 44100, 2, 0), 30, 30, 1);
    const std::vector<Packet> packets = movie.Write();
    EXPECT_EQ(packets[0].length, 4u + 18 * 76); // a silent block has 76 bytes
}

// 1000 bytes of track in a block of 4096, from sources that deliver as much, less, or more.
TEST(AudioTrack, ATrackShorterThanABlock) {
    for (uint32_t given : {1000u, 500u, 0u, 999u, 4096u, 2000u}) {
        Source source = {given};
        TrackDescriptor descriptor = Describe(&source, 44100, 1, 4);
        Movie movie(descriptor, 1, 88200, 1000);
        ASSERT_EQ(movie.length, 1000u);
        const std::vector<Packet> packets = movie.Write();
        EXPECT_EQ(packets[0].pcm, 1000u) << given;
        EXPECT_EQ(movie.track.pcmLeft, 0u);
        EXPECT_EQ(movie.track.pcmTally, 45u + std::max(given, 1000u));
        EXPECT_EQ(source.calls, 1u);
        EXPECT_EQ(AudioPacketBound(&movie.track, 1, 88200, 1000), 4u);
    }
}

TEST(AudioTrack, EightBitSourcesCountHalf) {
    Source wide, narrow;
    Movie sixteen(Describe(&wide, 8000, 1, 4, 16), 50, 25, 1), eight(Describe(&narrow, 8000, 1, 4, 8), 50, 25, 1);
    sixteen.Write();
    eight.Write();
    EXPECT_EQ(sixteen.bytes, eight.bytes);
    EXPECT_EQ((sixteen.track.pcmTally - 45) / 2, eight.track.pcmTally - 45);
    EXPECT_EQ(sixteen.track.codedTally, eight.track.codedTally);
}

// A source that claims more than it was asked for is held to what fits.
TEST(AudioTrack, TooLargeAnswersAreCut) {
    Source honest;
    Movie expected(Describe(&honest, 8000, 1, 4), 25, 25, 1);
    expected.Write();
    Source boasting;
    TrackDescriptor descriptor = Describe(&boasting, 8000, 1, 4);
    descriptor.read = [](void* record, uintptr_t user, void* buffer, uint32_t bytes) {
        Read(record, user, buffer, bytes);
        return UINT32_MAX;
    };
    Movie movie(descriptor, 25, 25, 1);
    movie.Write();
    EXPECT_EQ(movie.bytes, expected.bytes);
    EXPECT_EQ(movie.track.pcmTally, expected.track.pcmTally);
}

// Frame numbers and rates at the ends of their ranges: what is due is all that is left, and nothing wraps into too
// little.
TEST(AudioTrack, LargeFrameNumbers) {
    Source source;
    Movie movie(Describe(&source, 65535, 2, 4), 3000000000u, 4000000000u, 1);
    EXPECT_EQ(movie.length, 196608u); // 262140 * 3 / 4 is 196605
    EXPECT_GE(AudioPacketBound(&movie.track, UINT32_MAX, 1, UINT32_MAX), 196608u / 8192 * 12288);
    EXPECT_EQ(AudioPacketBound(&movie.track, UINT32_MAX, 1, UINT32_MAX),
              AudioPacketBound(&movie.track, 3000000000u, 4000000000u, 1));
}

TEST(AudioTrack, DescriptorsThatTheFormatCannotHold) {
    Source source;
    const auto text = [](TrackDescriptor descriptor, bool needsRead) {
        return std::string(CheckTrack(descriptor, 3, needsRead).text);
    };
    TrackDescriptor descriptor = Describe(&source, 44100, 2, 4);
    EXPECT_EQ(text(descriptor, true), "");
    for (uint32_t rate : {1u, 65535u}) EXPECT_EQ(text(Describe(&source, rate, 1, 4), true), "");
    for (uint32_t rate : {0u, 65536u, UINT32_MAX}) {
        const std::string found = text(Describe(&source, rate, 1, 4), false);
        for (const std::string& part :
             std::vector<std::string>{"track 3", "id 9", "sampleRate", std::to_string(rate), "65535"})
            EXPECT_NE(found.find(part), std::string::npos) << found;
    }
    for (uint32_t channels : {0u, 3u, UINT32_MAX}) {
        const std::string found = text(Describe(&source, 44100, channels, 4), false);
        for (const std::string& part :
             std::vector<std::string>{"track 3", "id 9", "channels", std::to_string(channels), "1 or 2"})
            EXPECT_NE(found.find(part), std::string::npos) << found;
    }
    descriptor.read = nullptr;
    EXPECT_EQ(text(descriptor, false), "");
    EXPECT_NE(text(descriptor, true).find("read is null"), std::string::npos);
}

TEST(AudioTrack, NoMemory) {
    Source source;
    AudioTrackState track = {};
    MOKSetMemory([](uint32_t) -> void* { return reinterpret_cast<void*>(UINTPTR_MAX); }, [](void*) {});
    EXPECT_FALSE(InitAudioTrack(&track, Describe(&source, 44100, 2, 4), 10, 25, 1));
    MOKSetMemory(nullptr, nullptr);
    EXPECT_EQ(track.encoder, nullptr);
}

} // namespace
