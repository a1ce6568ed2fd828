// AudioTrackTest.cpp - packets written to a file and read back: how much sound goes where, how sources and tracks end.
#include <string>

#include <gtest/gtest.h>

#include "audio/AudioEncoder.h"
#include "audio/AudioTrack.h"
#include "tests/audio/CodedBlockReader.h"
#include "tests/files/TestSeams.h"

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

TrackDescriptor Describe(Source* source, uint32_t rate, uint32_t channels, uint32_t quality, uint32_t bits = 16) {
    return {9, rate, bits, channels, quality, reinterpret_cast<uintptr_t>(source), Read};
}

// A movie of one track, all in one file.
struct Movie {
    AudioTrackState track = {};
    testaudio::OwnedEncoder encoder;
    uint32_t frames, numerator, denominator, length;
    std::string bytes;
    // By frame; pcm 0 where there is no second word.
    std::vector<uint32_t> lengths, pcm;
    uint64_t pcmSum = 0;

    Movie(const TrackDescriptor& descriptor, uint32_t frameCount, uint32_t num, uint32_t den)
        : frames(frameCount), numerator(num), denominator(den) {
        EXPECT_TRUE(InitAudioTrack(&track, descriptor, frames, numerator, denominator));
        encoder.reset(track.encoder);
        length = track.pcmLeft;
    }

    // Writes the packets behind some other bytes, checks their bounds, and walks them.
    void Write(void* record = nullptr) {
        const TestFolder folder;
        SpoolFile* file = SpoolCreate(4096, (folder / "packets").c_str(), false);
        ASSERT_NE(file, nullptr);
        for (uint32_t i = 0; i < 3; i++) SpoolWriteWord(file, 0xABABABAB);
        for (uint32_t frame = 0; frame < frames; frame++) {
            const uint64_t before = SpoolTell(file);
            const uint64_t bound = AudioPacketBound(&track, frame, numerator, denominator);
            WriteAudioPacket(file, &track, frame, numerator, denominator, record);
            EXPECT_LE(SpoolTell(file) - before, bound) << frame;
        }
        EXPECT_EQ(file->writeError, 0u);
        SpoolClose(file);
        bytes = ReadWholeFile(folder / "packets");
        size_t at = 12;
        for (uint32_t frame = 0; frame < frames; frame++) {
            lengths.push_back(Word(at));
            pcm.push_back(lengths[frame] ? Word(at + 4) : 0);
            pcmSum += pcm[frame];
            at += 4 + lengths[frame];
        }
        EXPECT_EQ(at, bytes.size());
    }
    uint32_t Word(size_t at) const {
        uint32_t word = 0;
        for (size_t i = 0; i < 4; i++) word |= uint32_t(uint8_t(bytes.at(at + i))) << (8 * i);
        return word;
    }
};

TEST(AudioTrack, SetUp) {
    Source source;
    const Movie stereo(Describe(&source, 44100, 2, 204), 100, 30000, 1001);
    EXPECT_EQ(stereo.track.format, 44100u + (1u << 31) + (1u << 30) + (1u << 29));
    EXPECT_EQ(stereo.track.quality, 4u);
    EXPECT_EQ(stereo.track.leadBytes, 132300u);
    EXPECT_EQ(stereo.length, 588588u); // 176400 * 100 * 1001 / 30000

    const Movie mono(Describe(&source, 8001, 1, 99, 8), 1, 7, 1);
    EXPECT_EQ(mono.track.format, 8001u + (1u << 28));
    EXPECT_EQ(mono.track.quality, 99u);
    EXPECT_EQ(mono.track.leadBytes, 12001u); // 16002 * 3 / 4
    EXPECT_EQ(mono.length, 2288u);           // 16002 / 7 is 2286; up to a multiple of 4

    EXPECT_EQ(Movie(Describe(&source, 8001, 1, 100), 4000000000u, 30, 0).length, 0u);
}

TEST(AudioTrack, SoundRunsAheadOfThePicture) {
    Source source;
    Movie movie(Describe(&source, 44100, 2, 4), 90, 30, 1);
    int record = 0;
    movie.Write(&record);
    EXPECT_EQ(source.record, &record);
    EXPECT_EQ(movie.pcm[0], 18u * 7680);
    uint64_t done = 0, coded = 0;
    for (uint32_t frame = 0; frame < 90; frame++) {
        const uint64_t target = std::min<uint64_t>(5880 * frame + 132300, movie.length);
        EXPECT_EQ(movie.lengths[frame] == 0, target <= done) << frame;
        done += movie.pcm[frame];
        coded += movie.lengths[frame] ? movie.lengths[frame] - 4 : 0;
        EXPECT_GE(done, target) << frame;
        EXPECT_LT(done, target + 7680) << frame;
    }
    EXPECT_EQ(done, movie.length);
    EXPECT_EQ(movie.track.largestPcm, 18u * 7680);
    EXPECT_EQ(movie.track.codedTally - 10, coded);
}

// A target that whole blocks meet exactly takes no block more: 3/4 of 10240 bytes are 8 blocks of 960.
TEST(AudioTrack, ATargetMetExactlyIsMet) {
    Source source;
    Movie movie(Describe(&source, 5120, 1, 4), 10, 10, 1);
    movie.Write();
    EXPECT_EQ(movie.pcm[0], 7680u);
    EXPECT_EQ(source.calls, 11u); // 10240 bytes, the last block in part
}

// Whatever a source delivers, the track gets its full length, and the source is asked once a block.
TEST(AudioTrack, ShortReadsBecomeSilence) {
    for (uint32_t channels : {1u, 2u})
        for (uint32_t quality : {4u, 104u})
            for (Source source : {Source{0}, Source{1}, Source{333}, Source{500, 50001}, Source{UINT32_MAX, 12345}}) {
                Movie movie(Describe(&source, 11025, channels, quality), 100, 25, 1);
                movie.Write();
                EXPECT_EQ(movie.pcmSum, movie.length);
                EXPECT_EQ(movie.track.pcmLeft, 0u);
                EXPECT_NEAR(source.calls, double(movie.length) / (960 * channels), 1);
            }
}

// 1000 bytes of track in a block of 4096, from sources that deliver as much, less, or more.
TEST(AudioTrack, ATrackShorterThanABlock) {
    for (uint32_t given : {1000u, 500u, 0u, 999u, 4096u, 2000u}) {
        Source source = {given};
        Movie movie(Describe(&source, 44100, 1, 4), 1, 88200, 1000);
        ASSERT_EQ(movie.length, 1000u);
        movie.Write();
        EXPECT_EQ(movie.pcmSum, 1000u) << given;
        EXPECT_EQ(movie.track.pcmLeft, 0u);
        EXPECT_EQ(movie.track.pcmTally, 45u + std::max(given, 1000u));
        EXPECT_EQ(source.calls, 1u);
        EXPECT_EQ(AudioPacketBound(&movie.track, 1, 88200, 1000), 4u);
    }
}

// 8-bit sources count half; one that claims more than it was asked for is held to what fits.
TEST(AudioTrack, EightBitsAndTooLargeAnswers) {
    Source wide, narrow, proud;
    TrackDescriptor boasting = Describe(&proud, 8000, 1, 4);
    boasting.read = [](void* record, uintptr_t user, void* buffer, uint32_t bytes) {
        Read(record, user, buffer, bytes);
        return UINT32_MAX;
    };
    Movie plain(Describe(&wide, 8000, 1, 4), 50, 25, 1), eight(Describe(&narrow, 8000, 1, 4, 8), 50, 25, 1);
    Movie cut(boasting, 50, 25, 1);
    for (Movie* movie : {&plain, &eight, &cut}) {
        movie->Write();
        EXPECT_EQ(movie->bytes, plain.bytes);
        EXPECT_EQ(movie->track.codedTally, plain.track.codedTally);
    }
    EXPECT_EQ(eight.track.pcmTally - 45, (plain.track.pcmTally - 45) / 2);
    EXPECT_EQ(cut.track.pcmTally, plain.track.pcmTally);
}

// Frame numbers and rates at the ends of their ranges: what is due is all that is left, and nothing wraps into too
// little.
TEST(AudioTrack, LargeFrameNumbers) {
    Source source;
    const Movie movie(Describe(&source, 65535, 2, 4), 3000000000u, 4000000000u, 1);
    EXPECT_EQ(movie.length, 196608u); // 262140 * 3 / 4 is 196605
    const uint64_t bound = AudioPacketBound(&movie.track, UINT32_MAX, 1, UINT32_MAX);
    EXPECT_GE(bound, 196608u / 8192 * 12288);
    EXPECT_EQ(bound, AudioPacketBound(&movie.track, 3000000000u, 4000000000u, 1));
}

TEST(AudioTrack, DescriptorsThatTheFormatCannotHold) {
    Source source;
    const auto text = [&](uint32_t rate, uint32_t channels, bool reads = true, bool needed = true) {
        TrackDescriptor descriptor = Describe(&source, rate, channels, 4);
        if (!reads) descriptor.read = nullptr;
        return std::string(CheckTrack(descriptor, 3, needed).text);
    };
    for (uint32_t rate : {1u, 44100u, 65535u}) EXPECT_EQ(text(rate, 1), "");
    EXPECT_EQ(text(44100, 2, false, false), "");
    EXPECT_NE(text(44100, 2, false).find("Sound track 3 (id 9): read is null"), std::string::npos);
    for (uint32_t wrong : {0u, 65536u, UINT32_MAX}) {
        const std::string what = " is " + std::to_string(wrong) + ", but it must be ";
        EXPECT_EQ(text(wrong, 1), "Sound track 3 (id 9): sampleRate" + what + "from 1 to 65535 samples a second");
        EXPECT_EQ(text(44100, wrong), "Sound track 3 (id 9): channels" + what + "1 or 2");
    }
    EXPECT_NE(text(44100, 3), "");
}

// 4294967292 bytes are the most; a length is cut to whole bytes before it is held against them. A mix refuses more; in a new movie
// the length comes round.
TEST(AudioTrack, TracksThatAreTooLong) {
    Source source;
    const auto text = [&](uint32_t rate, uint32_t channels, uint32_t frames, uint32_t num, uint32_t den) {
        return std::string(CheckTrackLength(Describe(&source, rate, channels, 4), 3, frames, num, den).text);
    };
    EXPECT_EQ(text(44100, 2, 608697, 25, 1), "");
    EXPECT_EQ(
        text(44100, 2, 608698, 25, 1),
        "Sound track 3 (id 9): 608698 frames at a frame rate of 25/1 make it too long; the 4294967292 bytes that a "
        "track can have last for 608697");
    EXPECT_EQ(text(1, 1, 2684354558, 5, 4), ""); // 4294967292.8 bytes
    EXPECT_NE(text(1, 1, 2684354559, 5, 4), "");
    EXPECT_EQ(text(65535, 2, UINT32_MAX, UINT32_MAX, 0), "");
    EXPECT_NE(text(65535, 2, 1, 1, UINT32_MAX), "");
    EXPECT_EQ(text(65535, 2, 0, 1, UINT32_MAX), "");
    for (const auto& [frames, length] : {std::pair{608697u, 4294966032u}, {608699u, 12848u}, {720000u, 785352704u}})
        EXPECT_EQ(Movie(Describe(&source, 44100, 2, 4), frames, 25, 1).length, length);
}

} // namespace
