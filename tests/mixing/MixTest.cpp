// MixTest.cpp - what VornMix promises: which bytes stay, which change, and that no fault leaves half a movie.
// The movies are put together here, word by word, and what was written is taken apart by a reader of these tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "mixing/MixInternal.h"
#include "tests/files/MemoryDisk.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

namespace {

using Bytes = std::vector<uint8_t>;

struct Random {
    std::mt19937 engine;
    uint32_t operator()() { return static_cast<uint32_t>(engine()); }
};
struct TestTrack {
    uint32_t largestPcm, format, id;
    bool operator==(const TestTrack&) const = default;
};
struct TestFrame {
    bool key;
    std::vector<Bytes> sound; // a whole audio packet per track
    Bytes video;
    bool operator==(const TestFrame&) const = default;
};
struct TestMovie {
    char version = 'i';
    uint32_t capacity = 0, width = 33, height = 17, numerator = 12, denominator = 1, flags = 0x20000000;
    std::vector<TestTrack> tracks;
    std::vector<TestFrame> frames;
};

void PutWord(Bytes* bytes, uint32_t word) {
    for (int i = 0; i < 4; i++) bytes->push_back(static_cast<uint8_t>(word >> 8 * i));
}
uint32_t GetWord(const Bytes& bytes, size_t at) {
    return at + 4 > bytes.size() ? 0xDEADBEEF
                                 : bytes[at] | uint32_t{bytes[at + 1]} << 8 | uint32_t{bytes[at + 2]} << 16 |
                                       uint32_t{bytes[at + 3]} << 24;
}
void SetWord(Bytes* bytes, size_t at, uint32_t word) {
    for (size_t i = 0; i < 4; i++) (*bytes)[at + i] = static_cast<uint8_t>(word >> 8 * i);
}

Bytes BuildMovie(const TestMovie& movie) {
    const uint32_t trackCount = static_cast<uint32_t>(movie.tracks.size());
    Bytes packets, index;
    const uint32_t head = 48 + 12 * trackCount + 4 * movie.capacity;
    uint32_t largest = 0;
    for (const TestFrame& frame : movie.frames) {
        const size_t start = packets.size();
        PutWord(&index, head + static_cast<uint32_t>(start) + frame.key);
        for (const Bytes& sound : frame.sound) packets.insert(packets.end(), sound.begin(), sound.end());
        packets.insert(packets.end(), frame.video.begin(), frame.video.end());
        largest = std::max(largest, static_cast<uint32_t>(packets.size() - start));
    }
    PutWord(&index, movie.frames.empty() ? 0 : head + static_cast<uint32_t>(packets.size()));
    index.resize(4 * (size_t{movie.capacity} + 1), 0);
    Bytes file = {'V', 'R', 'N', static_cast<uint8_t>(movie.version)};
    for (uint32_t word :
         {head + static_cast<uint32_t>(packets.size()) - 8, static_cast<uint32_t>(movie.frames.size()), largest,
          movie.capacity, movie.width, movie.height, movie.numerator, movie.denominator, movie.flags, trackCount})
        PutWord(&file, word);
    for (const TestTrack& track : movie.tracks) PutWord(&file, track.largestPcm);
    for (const TestTrack& track : movie.tracks) PutWord(&file, track.format);
    for (const TestTrack& track : movie.tracks) PutWord(&file, track.id);
    file.insert(file.end(), index.begin(), index.end());
    file.insert(file.end(), packets.begin(), packets.end());
    return file;
}

// Takes a file apart; false if anything doesn't fit. What is left then builds the same file again, which shows that sizes,
// index, tail and largest frame are right.
bool ParseMovie(const Bytes& file, TestMovie* movie) {
    *movie = {};
    if (file.size() < 48 || std::memcmp(file.data(), "VRN", 3) != 0) return false;
    const uint32_t frames = GetWord(file, 8), trackCount = GetWord(file, 40);
    movie->version = static_cast<char>(file[3]);
    movie->capacity = GetWord(file, 16);
    movie->width = GetWord(file, 20), movie->height = GetWord(file, 24);
    movie->numerator = GetWord(file, 28), movie->denominator = GetWord(file, 32), movie->flags = GetWord(file, 36);
    if (48 + uint64_t{12} * trackCount + uint64_t{4} * movie->capacity > file.size() || frames > movie->capacity)
        return false;
    for (size_t t = 0; t < trackCount; t++)
        movie->tracks.push_back({GetWord(file, 44 + 4 * t), GetWord(file, 44 + 4 * (trackCount + t)),
                                 GetWord(file, 44 + 4 * (2 * size_t{trackCount} + t))});
    for (size_t i = 0; i < frames; i++) {
        const size_t word = 44 + 12 * size_t{trackCount} + 4 * i;
        size_t at = GetWord(file, word) & ~1u;
        const size_t end = GetWord(file, word + 4) & ~1u;
        TestFrame frame = {(GetWord(file, word) & 1) != 0, {}, {}};
        if (end > file.size() || at > end) return false;
        const auto cut = [&](size_t bytes) {
            const auto from = file.begin() + static_cast<std::ptrdiff_t>(at);
            at += bytes;
            return Bytes(from, from + static_cast<std::ptrdiff_t>(bytes));
        };
        for (size_t t = 0; t < trackCount; t++) {
            if (end - at < 4 || GetWord(file, at) > end - at - 4) return false;
            frame.sound.push_back(cut(GetWord(file, at) + 4));
        }
        frame.video = cut(end - at);
        movie->frames.push_back(frame);
    }
    return true;
}

Bytes SoundPacket(Random* random, uint32_t words) {
    Bytes packet;
    PutWord(&packet, 4 * words);
    for (uint32_t i = 0; i < words; i++) PutWord(&packet, (*random)());
    return packet;
}

// Three tracks of odd formats, eight frames of arbitrary picture bytes, room for eleven. The first packet is the largest.
TestMovie MakeMovie() {
    Random random = {std::mt19937(7)};
    TestMovie movie;
    movie.capacity = 11;
    movie.tracks = {{69120, 0x70005622, 1}, {12, 0xFFFFFFFF, 7}, {0, 0, 9}};
    for (uint32_t i = 0; i < 8; i++) {
        TestFrame frame = {i % 3 == 0, {}, {}};
        for (uint32_t t = 0; t < 3; t++) frame.sound.push_back(SoundPacket(&random, i == 0 ? 30 : (i + t) % 3 * 2));
        for (uint32_t k = 0; k < 16 + 4 * i; k++) frame.video.push_back(static_cast<uint8_t>(random()));
        movie.frames.push_back(frame);
    }
    return movie;
}

MemoryDisk memory; // fast, and every operation can be made to fail

class MixTest : public ::testing::Test {
protected:
    void SetUp() override {
        messages.clear();
        calls = 0, cancelAt = UINT32_MAX;
        memory = {};
        disk = &memory;
        table = MemoryDiskPlatform();
        platform = &table;
    }
    void TearDown() override {
        platform = &SYSTEM_PLATFORM;
        EXPECT_TRUE(disk->open.empty());
    }

    static void Save(const char* name, const Bytes& bytes) { disk->files[name] = bytes; }
    static Bytes Load(const char* name) { return disk->files.count(name) ? disk->files[name] : Bytes(); }
    static bool Exists(const char* name) { return disk->files.count(name) != 0; }

    static uint32_t VORN_CALL Report(uint32_t code, void* record, const char* text) {
        if (code == VORN_MESSAGE) {
            messages.push_back(text);
            return 0;
        }
        EXPECT_STREQ(text, "");
        seen = *static_cast<VornMixRecord*>(record);
        return calls++ == cancelAt;
    }
    // A ramp of bytes, so that what lies where is known.
    static uint32_t VORN_CALL ReadRamp(void*, uintptr_t user, void* buffer, uint32_t bytes) {
        uint32_t* const position = reinterpret_cast<uint32_t*>(user);
        for (uint32_t i = 0; i < bytes; i++)
            static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>(1 + (*position)++ % 255);
        return bytes;
    }
    static TrackDescriptor Drop(uint32_t id) { return {id, 1, 0, 0, 0, 0, nullptr}; }
    static TrackDescriptor Encode(uint32_t id, uint32_t* position) {
        return {id, 8000, 16, 1, 4, reinterpret_cast<uintptr_t>(position), ReadRamp};
    }
    static uint32_t Run(std::vector<TrackDescriptor> descriptors, uint32_t numerator = 0, uint32_t denominator = 0,
                        int32_t shift = 0, uint32_t offset = 0) {
        const uint32_t result = VornMix("in.vrn", "out.vrn", offset, numerator, denominator, shift,
                                        static_cast<uint32_t>(descriptors.size()), descriptors.data(), Report);
        EXPECT_FALSE(Exists("out.vrn.tmp"));
        for (const TrackDescriptor& descriptor : descriptors) EXPECT_TRUE(result == 0 || descriptor.sampleRate == 0);
        return result;
    }
    // Runs and reads the result back.
    static TestMovie RunAndParse(std::vector<TrackDescriptor> descriptors, uint32_t numerator = 0,
                                 uint32_t denominator = 0, uint32_t offset = 0) {
        TestMovie movie;
        const uint32_t result = Run(descriptors, numerator, denominator, 0, offset);
        const Bytes file = Load("out.vrn");
        EXPECT_EQ(result, file.size());
        EXPECT_TRUE(ParseMovie(file, &movie));
        EXPECT_EQ(BuildMovie(movie), file);
        EXPECT_TRUE(messages.empty());
        return movie;
    }

    static inline std::vector<std::string> messages;
    static inline VornMixRecord seen;
    static inline uint32_t calls, cancelAt;
    static inline Platform table;
};

void DropTrack(TestMovie* movie, size_t track) {
    movie->tracks.erase(movie->tracks.begin() + static_cast<std::ptrdiff_t>(track));
    for (TestFrame& frame : movie->frames) frame.sound.erase(frame.sound.begin() + static_cast<std::ptrdiff_t>(track));
}

TEST_F(MixTest, KeptAndDroppedTracksGiveTheFileBuiltByHand) {
    for (char version : {'f', 'g', 'h', 'i'}) {
        TestMovie movie = MakeMovie();
        movie.version = version;
        Save("in.vrn", BuildMovie(movie));
        EXPECT_NE(Run({Drop(5)}), 0u);
        EXPECT_EQ(Load("out.vrn"), BuildMovie(movie));
        EXPECT_NE(Run({Drop(7)}), 0u);
        DropTrack(&movie, 1);
        EXPECT_EQ(Load("out.vrn"), BuildMovie(movie));
        EXPECT_NE(Run({Drop(9), Drop(1), Drop(7)}, 30000, 1001), 0u);
        DropTrack(&movie, 1);
        DropTrack(&movie, 0);
        movie.numerator = 30000, movie.denominator = 1001;
        EXPECT_EQ(Load("out.vrn"), BuildMovie(movie));
        EXPECT_EQ(calls, 24u);
        calls = 0;
    }
}

TEST_F(MixTest, ReplacedTrackKeepsItsPlaceAndAddedTracksGoLast) {
    const TestMovie movie = MakeMovie();
    Save("in.vrn", BuildMovie(movie));
    uint32_t a = 0, b = 0, c = 0;
    const TestMovie mixed = RunAndParse({Encode(7, &a), Drop(9), Encode(7, &b), Encode(20, &c)});
    ASSERT_EQ(mixed.tracks.size(), 4u);
    EXPECT_EQ(mixed.tracks[0], movie.tracks[0]);
    EXPECT_EQ(mixed.tracks[1].id, 7u);
    EXPECT_EQ(mixed.tracks[2].id, 7u);
    EXPECT_EQ(mixed.tracks[3].id, 20u);
    ASSERT_EQ(mixed.frames.size(), 8u);
    uint32_t total = 0, largest = 0;
    for (size_t i = 0; i < 8; i++) {
        EXPECT_EQ(mixed.frames[i].video, movie.frames[i].video);
        EXPECT_EQ(mixed.frames[i].key, movie.frames[i].key);
        EXPECT_EQ(mixed.frames[i].sound[0], movie.frames[i].sound[0]);
        EXPECT_EQ(mixed.frames[i].sound[1], mixed.frames[i].sound[2]);
        EXPECT_EQ(mixed.frames[i].sound[1], mixed.frames[i].sound[3]);
        const uint32_t pcm = mixed.frames[i].sound[1].size() == 4 ? 0 : GetWord(mixed.frames[i].sound[1], 4);
        total += pcm;
        largest = std::max(largest, pcm);
    }
    EXPECT_EQ(total, 10668u); // 8 frames of 1/12 s at 16000 bytes a second, rounded up to 4
    for (size_t t = 1; t < 4; t++)
        EXPECT_EQ(mixed.tracks[t], (TestTrack{largest, 8000 | 1u << 28 | 1u << 30, t < 3 ? 7u : 20u}));
}

// Of two tracks with one number, a descriptor that brings sound meets the first only; one that drops meets both.
TEST_F(MixTest, SoundMeetsOneTrackAndADropAll) {
    TestMovie movie = MakeMovie();
    movie.tracks[0].id = 7;
    Save("in.vrn", BuildMovie(movie));
    TestMovie mixed = RunAndParse({Drop(7)});
    EXPECT_EQ(mixed.tracks, (std::vector<TestTrack>{movie.tracks[2]}));
    TrackDescriptor bare = {};
    bare.id = 7;
    mixed = RunAndParse({bare});
    EXPECT_EQ(mixed.tracks, (std::vector<TestTrack>{movie.tracks[2]}));
    uint32_t position = 0;
    TrackDescriptor used = Encode(9, &position);
    used.sampleRate = 0;
    mixed = RunAndParse({used, Encode(7, &position), Drop(7)});
    ASSERT_EQ(mixed.tracks.size(), 2u);
    EXPECT_EQ(mixed.tracks[0].format, 8000 | 1u << 28 | 1u << 30);
    EXPECT_EQ(mixed.tracks[1], movie.tracks[2]);
}

TEST_F(MixTest, MovieInsideALargerFileAndHalfARate) {
    const TestMovie movie = MakeMovie();
    Bytes larger(4095, 0xEE);
    const Bytes plain = BuildMovie(movie);
    larger.insert(larger.end(), plain.begin(), plain.end());
    larger.resize(larger.size() + 50, 0xEE);
    Save("in.vrn", larger);
    EXPECT_EQ(Run({Drop(5)}, 25, 0, 0, 4095), plain.size());
    EXPECT_EQ(Load("out.vrn"), plain);
    EXPECT_EQ(seen.inputSize, larger.size());
    EXPECT_EQ(Run({Drop(5)}, 0, 25, 0, 4095), plain.size());
    EXPECT_EQ(Load("out.vrn"), plain);
    for (uint32_t offset : {0u, 4000u, static_cast<uint32_t>(larger.size()), 0xFFFFFFFFu})
        EXPECT_EQ(Run({Drop(5)}, 0, 0, 0, offset), 0u);
    EXPECT_EQ(messages, std::vector<std::string>(4, "Input file isn't a Vorn file."));
}

TEST_F(MixTest, MovieWithoutFramesOrTracks) {
    TestMovie movie = MakeMovie();
    movie.frames.clear();
    Save("in.vrn", BuildMovie(movie));
    EXPECT_NE(Run({Drop(5)}), 0u);
    EXPECT_EQ(Load("out.vrn"), BuildMovie(movie));
    movie = MakeMovie();
    for (int i = 0; i < 3; i++) DropTrack(&movie, 0);
    Save("in.vrn", BuildMovie(movie));
    uint32_t position = 0;
    const TestMovie mixed = RunAndParse({Encode(3, &position)});
    ASSERT_EQ(mixed.tracks.size(), 1u);
    for (size_t i = 0; i < 8; i++) EXPECT_EQ(mixed.frames[i].video, movie.frames[i].video);
}

TEST_F(MixTest, InPlaceAndCancelled) {
    TestMovie movie = MakeMovie();
    const Bytes plain = BuildMovie(movie);
    Save("in.vrn", plain);
    TrackDescriptor drop = Drop(1);
    cancelAt = 2;
    const uint32_t result = VornMix("in.vrn", "in.vrn", 0, 0, 0, 0, 1, &drop, Report);
    EXPECT_EQ(calls, 3u);
    EXPECT_FALSE(Exists("in.vrn.tmp"));
    EXPECT_EQ(Load("in.vrn"), plain);
    EXPECT_EQ(seen.frame, 2u);
    EXPECT_EQ(seen.frames, 8u);
    EXPECT_EQ(seen.width, 33u);
    EXPECT_EQ(seen.height, 17u);
    EXPECT_EQ(seen.rateNumerator, 12u);
    EXPECT_NE(seen.firstTrack, nullptr);

    DropTrack(&movie, 0);
    const Bytes dropped = BuildMovie(movie);
    EXPECT_EQ(seen.outputPosition, GetWord(dropped, 44 + 24 + 8) & ~1u);
    EXPECT_EQ(result, GetWord(dropped, 44 + 24 + 12) & ~1u); // three frames are in the file that is gone
    for (cancelAt = 0; cancelAt < 8; cancelAt++) {
        calls = 0;
        drop = Drop(1);
        VornMix("in.vrn", "in.vrn", 0, 0, 0, 0, 1, &drop, Report);
        EXPECT_EQ(calls, cancelAt + 1);
        EXPECT_EQ(Load("in.vrn"), plain);
        EXPECT_EQ(disk->files.size(), 1u);
    }
    drop = Drop(1);
    EXPECT_EQ(VornMix("in.vrn", "in.vrn", 0, 0, 0, 0, 1, &drop, nullptr), dropped.size());
    EXPECT_EQ(Load("in.vrn"), dropped);
}

TEST_F(MixTest, ShiftInBytes) {
    for (int32_t none : {0, 1}) EXPECT_EQ(ShiftBytes(none, 176400, 12, 1), 0u);
    EXPECT_EQ(ShiftBytes(2, 16000, 12, 1), 1332u);          // 1333.3
    EXPECT_EQ(ShiftBytes(11, 176400, 30000, 1001), 58856u); // 58858.8
    EXPECT_EQ(ShiftBytes(-500, 16000, 12, 1), 8000u);
    EXPECT_EQ(ShiftBytes(-1, 44100, 12, 1), 44u);
    EXPECT_EQ(ShiftBytes(30000, 200000, 1000, 1), 1704832u); // 200000 * 29999 - 2^32, a thousandth of it
    EXPECT_EQ(ShiftBytes(INT32_MIN, 16001, 1, 1), 2147480u); // 34361885851.6 - 8 * 2^32 = 2147483.6
}

// Silence comes first, then the source is asked for what the first request left open.
TEST_F(MixTest, SilenceComesFirst) {
    static uint32_t asked;
    AudioTrackState state = {};
    state.delayBytes = 10;
    state.innerUser = 77;
    state.innerRead = [](void* record, uintptr_t user, void* buffer, uint32_t bytes) -> uint32_t {
        EXPECT_EQ(record, &asked);
        EXPECT_EQ(user, 77u);
        std::memset(buffer, 5, bytes);
        asked += bytes;
        return bytes == 9 ? 100 : bytes - 1; // short, and once more than it may
    };
    uint8_t buffer[12];
    const uintptr_t entry = reinterpret_cast<uintptr_t>(&state);
    std::memset(buffer, 9, sizeof buffer);
    EXPECT_EQ(SilenceThenRead(&asked, entry, buffer, 6), 6u);
    EXPECT_EQ(asked, 0u);
    EXPECT_EQ(Bytes(buffer, buffer + 7), (Bytes{0, 0, 0, 0, 0, 0, 9}));
    std::memset(buffer, 9, sizeof buffer);
    EXPECT_EQ(SilenceThenRead(&asked, entry, buffer, 8), 7u);
    EXPECT_EQ(asked, 4u);
    EXPECT_EQ(Bytes(buffer, buffer + 9), (Bytes{0, 0, 0, 0, 5, 5, 5, 5, 9}));
    EXPECT_EQ(SilenceThenRead(&asked, entry, buffer, 9), 9u);
    EXPECT_EQ(state.delayBytes, 0u);
}

// The whole delay is heard: the source gives that much less, and the track is as long as without.
TEST_F(MixTest, ShiftedTrackKeepsItsLength) {
    Save("in.vrn", BuildMovie(MakeMovie()));
    uint32_t plain = 0, shifted = 0;
    EXPECT_NE(Run({Encode(1, &plain)}), 0u);
    EXPECT_NE(Run({Encode(1, &shifted)}, 0, 0, -250), 0u);
    EXPECT_EQ(plain - shifted, 4000u);
    EXPECT_GE(plain, 10668u);
    shifted = 0;
    EXPECT_NE(Run({Encode(1, &shifted)}, 6, 1, 4), 0u); // three frames of 1/6 s
    plain = 0;
    EXPECT_NE(Run({Encode(1, &plain)}, 6, 1, 1), 0u);
    EXPECT_EQ(plain - shifted, 8000u);
}

TEST_F(MixTest, ArgumentsThatCannotBe) {
    Save("in.vrn", BuildMovie(MakeMovie()));
    TrackDescriptor drop = Drop(1);
    const std::string longInput(128, 'a'), longOutput(124, 'a');
    uint32_t position = 0;
    TrackDescriptor threeChannels = Encode(1, &position);
    threeChannels.channels = 3;
    EXPECT_EQ(VornMix("in.vrn", "out.vrn", 0, 25, 1, 0, 0, &drop, Report), 0u);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(VornMix(nullptr, "out.vrn", 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(VornMix("in.vrn", nullptr, 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(VornMix("in.vrn", "", 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(VornMix(longInput.c_str(), "out.vrn", 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(VornMix("in.vrn", longOutput.c_str(), 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(VornMix("in.vrn", "out.vrn", 0, 0, 0, 0, 1, nullptr, Report), 0u);
    EXPECT_EQ(VornMix("in.vrn", "out.vrn", 0, 0, 0, 0, 1, &threeChannels, Report), 0u);
    EXPECT_EQ(messages.size(), 7u);
    EXPECT_EQ(VornMix(nullptr, nullptr, 0, 0, 0, 0, 1, nullptr, nullptr), 0u);
    messages.clear();
    EXPECT_EQ(VornMix("none.vrn", "out.vrn", 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(messages, std::vector<std::string>{"Couldn't open input Vorn file."});
    messages.clear();
    // The temporary file must not empty the input.
    Save("out.vrn.tmp", BuildMovie(MakeMovie()));
    EXPECT_EQ(VornMix("out.vrn.tmp", "out.vrn", 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(Load("out.vrn.tmp"), BuildMovie(MakeMovie()));
    disk->files.erase("out.vrn.tmp");
    table.createFile = [](const char*, bool) { return NO_FILE; };
    EXPECT_EQ(VornMix("in.vrn", "out.vrn", 0, 0, 0, 0, 1, &drop, Report), 0u);
    EXPECT_EQ(messages,
              std::vector<std::string>(
                  2,
                  "Couldn't create temporary file.\n\nSome possible reasons for this error include:\n  1) mixing to a "
                  "read-only drive (like a CD-ROM),\n  2) mixing to a drive that is full (out of disk space), or\n  3) "
                  "mixing multiple files to the same Vorn output filename."));
    EXPECT_EQ(drop.sampleRate, 1u);
    EXPECT_EQ(disk->files.size(), 1u);
}

TEST_F(MixTest, OutputThatCannotBeReplaced) {
    const Bytes movie = BuildMovie(MakeMovie());
    Save("in.vrn", movie);
    Save("old", {1, 2, 3});
    TrackDescriptor drop = Drop(5);
    table.deleteFile = [](const char*) { return NameResult::FAILED; };
    EXPECT_EQ(VornMix("in.vrn", "old", 0, 0, 0, 0, 1, &drop, Report), movie.size());
    EXPECT_EQ(messages,
              std::vector<std::string>{"Vorn couldn't overwrite, 'old', so the new Vorn file is called: 'old.tmp'."});
    EXPECT_EQ(Load("old.tmp"), movie);
    EXPECT_EQ(Load("old"), (Bytes{1, 2, 3}));
    messages.clear();
    table.deleteFile = MemoryDiskPlatform().deleteFile;
    table.renameFile = [](const char*, const char*) { return NameResult::FAILED; };
    drop = Drop(5);
    EXPECT_EQ(VornMix("in.vrn", "new", 0, 0, 0, 0, 1, &drop, Report), movie.size());
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(Load("new.tmp"), movie);
}

// The same on the system's own files.
TEST_F(MixTest, OnTheRealDisk) {
    platform = &SYSTEM_PLATFORM;
    const auto before = std::filesystem::current_path();
    const auto folder = std::filesystem::temp_directory_path() / ("vornmix-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder / "target");
    std::filesystem::current_path(folder);
    TestMovie movie = MakeMovie();
    const Bytes plain = BuildMovie(movie);
    std::ofstream("in.vrn", std::ios::binary)
        .write(reinterpret_cast<const char*>(plain.data()), static_cast<std::streamsize>(plain.size()));
    TrackDescriptor drop = Drop(7);
    DropTrack(&movie, 1);
    const auto load = [](const char* name) {
        std::ifstream file(name, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), {});
    };
    EXPECT_EQ(VornMix("in.vrn", "in.vrn", 0, 0, 0, 0, 1, &drop, Report), BuildMovie(movie).size());
    EXPECT_EQ(load("in.vrn"), BuildMovie(movie));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 2);
    EXPECT_TRUE(messages.empty());
    drop = Drop(5);
    EXPECT_EQ(VornMix("in.vrn", "target", 0, 0, 0, 0, 1, &drop, Report), BuildMovie(movie).size()); // a folder
    EXPECT_EQ(load("target.tmp"), BuildMovie(movie));
    EXPECT_EQ(messages.size(), 1u);
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
}

// Each damage is named with its value, and what stood under the output's name stays.
TEST_F(MixTest, DamageIsNamed) {
    const Bytes good = BuildMovie(MakeMovie());
    const Bytes old = {1, 2, 3};
    Save("out.vrn", old);
    const size_t index = 44 + 36, packets = index + 48;
    const struct {
        size_t at;
        uint32_t word;
        const char* part;
    } DAMAGES[] = {
        {8, 12, "12 frames"},
        {16, 0xFFFFFFFF, "index capacity of 4294967295"},
        {16, 0x40000000, "index capacity of 1073741824"},
        {40, 0xFFFFFFFF, "4294967295 audio tracks"},
        {40, 0x15555556, "357913942 audio tracks"}, // times 12 is 8 more than 2^32
        {28, 0, "0/1"},
        {index + 8, GetWord(good, index + 4) & ~1u, "frame 1"},
        {index + 8, 0, "frame 1"},
        {index + 32, static_cast<uint32_t>(good.size()) + 4, "8 frames"},
        {packets, 0xFFFFFFFC, "length of 4294967292"},
        {packets, 0xFFFFFFFF, "length of 4294967295"},
        {packets, 121, "length of 121"},
        {packets + 248, 138, "numbers up to 136"}, // the third track's, with 16 bytes of picture behind its 120
    };
    for (const auto& damage : DAMAGES) {
        Bytes bad = good;
        SetWord(&bad, damage.at, damage.word);
        Save("in.vrn", bad);
        messages.clear();
        EXPECT_EQ(Run({Drop(7)}), 0u);
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_NE(messages[0].find(damage.part), std::string::npos) << messages[0];
        EXPECT_EQ(Load("out.vrn"), old);
    }
    Bytes edge = good;
    SetWord(&edge, packets + 248, 136);
    Save("in.vrn", edge);
    EXPECT_NE(Run({Drop(9)}), 0u);
}

// An error must come with a report and leave everything as it was; without one there is a movie that fits together.
void ExpectMovieOrNothing(uint32_t result, const Bytes& output, const Bytes& old, size_t reports) {
    TestMovie movie;
    if (result == 0) {
        EXPECT_EQ(reports, 1u);
        EXPECT_EQ(output, old);
    } else {
        EXPECT_EQ(reports, 0u);
        EXPECT_EQ(output.size(), result);
        EXPECT_TRUE(ParseMovie(output, &movie));
    }
}

TEST_F(MixTest, EveryTruncation) {
    const Bytes good = BuildMovie(MakeMovie());
    const Bytes old = {1, 2, 3};
    uint32_t position = 0;
    Save("out.vrn", old);
    for (size_t length = 0; length < good.size(); length++) {
        Save("in.vrn", Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)));
        messages.clear();
        EXPECT_EQ(length % 2 ? Run({Drop(7)}) : Run({Encode(7, &position)}), 0u) << length;
        EXPECT_EQ(messages.size(), 1u);
        EXPECT_EQ(Load("out.vrn"), old);
    }
}

TEST_F(MixTest, FlippedWords) {
    const uint32_t seed = 20240501;
    Random random = {std::mt19937(seed)};
    const Bytes good = BuildMovie(MakeMovie());
    const Bytes old = {1, 2, 3};
    uint32_t position = 0, failed = 0;
    for (int round = 0; round < 3000 && !HasFailure(); round++) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed << ", round " << round);
        Bytes bad = good;
        for (uint32_t flips = 1 + random() % 3; flips > 0; flips--) {
            const size_t words = random() % 2 ? 32 : good.size() / 4; // half of them in the head
            const size_t at = random() % words * 4;
            const uint32_t value[4] = {random(), GetWord(bad, at) ^ 1u << random() % 32, random() % 300,
                                       ~0u - random() % 9};
            SetWord(&bad, at, value[random() % 4]);
        }
        Save("in.vrn", bad);
        Save("out.vrn", old);
        messages.clear();
        // New sound comes with a rate of its own: a damaged one may be legal and call for hours of it.
        const uint32_t result = round % 8 ? Run({Drop(7)}) : Run({Encode(7, &position)}, 12, 1);
        ExpectMovieOrNothing(result, Load("out.vrn"), old, messages.size());
        failed += result == 0;
    }
    EXPECT_GT(failed, 500u); // both ends are met
    EXPECT_LT(failed, 2900u);
}

TEST_F(MixTest, SoundTooLongForATrackIsRefused) {
    Save("in.vrn", BuildMovie(MakeMovie()));
    uint32_t position = 0;
    EXPECT_EQ(Run({Encode(7, &position)}, 1, 33555), 0u); // 8 * 33555 * 16000 bytes are more than 2^32
    EXPECT_EQ(Run({Encode(7, &position)}, 1, 0xFFFFFFFF), 0u);
    EXPECT_EQ(messages.size(), 2u);
    EXPECT_FALSE(Exists("out.vrn"));
}

// One operation goes wrong, the n-th of its kind.
int32_t countdown;
bool Fails() {
    return --countdown == 0;
}

// The old movie stays until the new one is whole, whichever write, seek or commit fails, and however briefly.
TEST_F(MixTest, FailingFileOperations) {
    const Bytes old = {1, 2, 3};
    Save("in.vrn", BuildMovie(MakeMovie()));
    uint32_t position = 0;
    // Half a second a frame: each has new sound.
    EXPECT_NE(Run({Encode(7, &position), Encode(11, &position)}, 2, 1), 0u);
    const Bytes whole = Load("out.vrn");
    for (int kind = 0; kind < 4; kind++) {
        table = MemoryDiskPlatform();
        if (kind == 0) // half of one write is lost, those after it work again
            table.writeFile = [](FileHandle file, const void* source, uint32_t bytes) {
                return WriteOnDisk(file, source, Fails() ? bytes / 2 : bytes);
            };
        if (kind == 1) // full from there on
            table.writeFile = [](FileHandle file, const void* source, uint32_t bytes) {
                return --countdown > 0 ? WriteOnDisk(file, source, bytes) : 0;
            };
        if (kind == 2)
            table.seekFile = [](FileHandle file, int64_t offset, SeekOrigin origin) {
                return Fails() ? UINT64_MAX : SeekOnDisk(file, offset, origin);
            };
        if (kind == 3) table.flushFile = [](FileHandle) { return !Fails(); };
        int32_t n = 0;
        do {
            SCOPED_TRACE(::testing::Message() << "kind " << kind << ", operation " << n + 1);
            messages.clear();
            Save("out.vrn", old);
            position = 0;
            countdown = ++n;
            const uint32_t result = Run({Encode(7, &position), Encode(11, &position)}, 2, 1);
            EXPECT_EQ(messages.size(), result == 0);
            EXPECT_EQ(Load("out.vrn"), result == 0 ? old : whole);
        } while (countdown <= 0 && !HasFailure());
        EXPECT_GT(n, kind == 3 ? 1 : 32); // two writes and two seeks a packet at least
        const char* const kinds[] = {"write, half done", "write, disk full", "seek", "commit"};
        NoteCases(std::string("mix, ") + kinds[kind], static_cast<size_t>(n - 1));
    }
}

// The n-th allocation fails: a report and nothing left, or a mix that did without the block.
TEST_F(MixTest, FailingAllocations) {
    const Bytes old = {1, 2, 3};
    Save("in.vrn", BuildMovie(MakeMovie()));
    uint32_t position = 0, outOfMemory = 0, n = 0;
    EXPECT_NE(Run({Encode(7, &position), Encode(11, &position)}), 0u);
    const Bytes whole = Load("out.vrn");
    MemorySeam memory;
    do {
        SCOPED_TRACE(::testing::Message() << "allocation " << n + 1);
        messages.clear();
        Save("out.vrn", old);
        position = 0;
        memory.requests = 0;
        memory.failingRequest = ++n;
        const uint32_t result = Run({Encode(7, &position), Encode(11, &position)});
        EXPECT_TRUE(memory.blocks.empty());
        EXPECT_EQ(messages.size(), result == 0);
        outOfMemory += !messages.empty() && messages[0] == "Out of memory!";
        EXPECT_EQ(Load("out.vrn"), result == 0 ? old : whole);
    } while (memory.requests >= n && !HasFailure());
    EXPECT_GE(outOfMemory, 3u); // the working block and both encoders
    NoteCases("mix, allocation", n - 1, std::to_string(outOfMemory) + " out of memory");
}

} // namespace
