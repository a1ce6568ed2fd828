// MixTest.cpp - what VornMix promises: which bytes stay, which change, and that no fault leaves half a movie.
// The movies are put together word by word, and what was written is taken apart by a reader of these tests.
#include <gtest/gtest.h>

#include <cstring>

#include "mixing/MixInternal.h"
#include "tests/files/MemoryDisk.h"
#include "tests/files/TestSeams.h"
#include "tests/mixing/BuiltMovie.h"

using namespace vorn;

namespace {

// Three tracks of odd formats, eight frames of arbitrary picture bytes, room for eleven. The first packet is the largest.
BuiltMovie MakeMovie() {
    std::mt19937 random(7);
    BuiltMovie movie;
    movie.capacity = 11;
    movie.tracks = {{69120, 0x70005622, 1}, {12, 0xFFFFFFFF, 7}, {0, 0, 9}};
    for (uint32_t i = 0; i < 8; i++) {
        BuiltFrame& frame = movie.frames.emplace_back();
        frame.key = i % 3 == 0;
        for (uint32_t t = 0; t < 3; t++) {
            const uint32_t words = i == 0 ? 30 : (i + t) % 3 * 2;
            PutWord(&frame.sound.emplace_back(), 4 * words);
            for (uint32_t k = 0; k < words; k++) PutWord(&frame.sound[t], static_cast<uint32_t>(random()));
        }
        for (uint32_t k = 0; k < 4 + i; k++) PutWord(&frame.video, static_cast<uint32_t>(random()));
    }
    return movie;
}

MemoryDisk memory;           // fast, and every operation can be made to fail
const Bytes OLD = {1, 2, 3}; // what stands under the output's name

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
    static uint32_t MixDropping(uint32_t id, const char* input, const char* output) {
        TrackDescriptor drop = Drop(id);
        return VornMix(input, output, 0, 0, 0, 0, 1, &drop, Report);
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
    static BuiltMovie RunAndParse(std::vector<TrackDescriptor> descriptors) {
        BuiltMovie movie;
        const uint32_t result = Run(descriptors);
        EXPECT_EQ(result, Load("out.vrn").size());
        EXPECT_TRUE(ParseMovie(Load("out.vrn"), &movie));
        EXPECT_EQ(BuildMovie(movie), Load("out.vrn"));
        EXPECT_TRUE(messages.empty());
        return movie;
    }

    static inline std::vector<std::string> messages;
    static inline VornMixRecord seen;
    static inline uint32_t calls, cancelAt;
    static inline Platform table;
};

void DropTrack(BuiltMovie* movie, size_t track) {
    movie->tracks.erase(movie->tracks.begin() + static_cast<std::ptrdiff_t>(track));
    for (BuiltFrame& frame : movie->frames) frame.sound.erase(frame.sound.begin() + static_cast<std::ptrdiff_t>(track));
}

TEST_F(MixTest, KeptAndDroppedTracksGiveTheFileBuiltByHand) {
    for (char version : {'f', 'g', 'h', 'i'}) {
        BuiltMovie movie = MakeMovie();
        movie.magic = MovieMagic(version);
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
    const BuiltMovie movie = MakeMovie();
    Save("in.vrn", BuildMovie(movie));
    uint32_t a = 0, b = 0, c = 0;
    const BuiltMovie mixed = RunAndParse({Encode(7, &a), Drop(9), Encode(7, &b), Encode(20, &c)});
    ASSERT_EQ(mixed.tracks.size(), 4u);
    EXPECT_EQ(mixed.tracks[0], movie.tracks[0]);
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
        EXPECT_EQ(mixed.tracks[t], (BuiltTrack{largest, 8000 | 1u << 28 | 1u << 30, t < 3 ? 7u : 20u}));
}

// Of two tracks with one number, a descriptor that brings sound meets the first only; one that drops meets both.
TEST_F(MixTest, SoundMeetsOneTrackAndADropAll) {
    BuiltMovie movie = MakeMovie();
    movie.tracks[0].id = 7;
    Save("in.vrn", BuildMovie(movie));
    TrackDescriptor bare = {};
    bare.id = 7;
    for (const TrackDescriptor& drop : {Drop(7), bare})
        EXPECT_EQ(RunAndParse({drop}).tracks, (std::vector<BuiltTrack>{movie.tracks[2]}));
    uint32_t position = 0;
    TrackDescriptor used = Encode(9, &position);
    used.sampleRate = 0;
    const BuiltMovie mixed = RunAndParse({used, Encode(7, &position), Drop(7)});
    ASSERT_EQ(mixed.tracks.size(), 2u);
    EXPECT_EQ(mixed.tracks[0].format, 8000 | 1u << 28 | 1u << 30);
    EXPECT_EQ(mixed.tracks[1], movie.tracks[2]);
}

TEST_F(MixTest, MovieInsideALargerFileAndHalfARate) {
    const BuiltMovie movie = MakeMovie();
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
    BuiltMovie movie = MakeMovie();
    movie.frames.clear();
    Save("in.vrn", BuildMovie(movie));
    EXPECT_NE(Run({Drop(5)}), 0u);
    EXPECT_EQ(Load("out.vrn"), BuildMovie(movie));
    movie = MakeMovie();
    for (int i = 0; i < 3; i++) DropTrack(&movie, 0);
    Save("in.vrn", BuildMovie(movie));
    uint32_t position = 0;
    const BuiltMovie mixed = RunAndParse({Encode(3, &position)});
    ASSERT_EQ(mixed.tracks.size(), 1u);
    for (size_t i = 0; i < 8; i++) EXPECT_EQ(mixed.frames[i].video, movie.frames[i].video);
}

TEST_F(MixTest, AMillionFrames) {
    BuiltMovie movie;
    movie.capacity = 1000000;
    for (uint32_t i = 0; i < movie.capacity; i++) {
        movie.frames.push_back({i % 7 == 0, {}, Bytes(8)});
        SetWord(&movie.frames[i].video, 4, i);
    }
    Save("in.vrn", BuildMovie(movie));
    EXPECT_NE(Run({Drop(5)}), 0u);
    EXPECT_TRUE(Load("out.vrn") == Load("in.vrn"));
}

TEST_F(MixTest, InPlaceAndCancelled) {
    BuiltMovie movie = MakeMovie();
    const Bytes plain = BuildMovie(movie);
    DropTrack(&movie, 0);
    const Bytes dropped = BuildMovie(movie);
    Save("in.vrn", plain);
    for (cancelAt = 0; cancelAt < 8; cancelAt++) {
        calls = 0;
        // The frames up to here are in the file that is gone.
        const size_t word = 44 + 24 + 4 * cancelAt;
        EXPECT_EQ(MixDropping(1, "in.vrn", "in.vrn"), GetWord(dropped, word + 4) & ~1u);
        EXPECT_EQ(seen.outputPosition, GetWord(dropped, word) & ~1u);
        EXPECT_EQ(seen.frame, cancelAt);
        EXPECT_EQ(calls, cancelAt + 1);
        EXPECT_EQ(Load("in.vrn"), plain);
        EXPECT_EQ(disk->files.size(), 1u);
    }
    EXPECT_EQ(seen.frames, 8u);
    EXPECT_EQ(seen.width, 33u);
    EXPECT_EQ(seen.height, 17u);
    EXPECT_EQ(seen.rateNumerator, 12u);
    EXPECT_NE(seen.firstTrack, nullptr);
    TrackDescriptor drop = Drop(1);
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

// Silence comes first, and a source that claims more than there is room for behind it is held to that.
TEST_F(MixTest, OverlongAnswersAreCut) {
    AudioTrackState state = {};
    state.delayBytes = 4;
    state.innerRead = [](void*, uintptr_t, void* buffer, uint32_t bytes) -> uint32_t {
        std::memset(buffer, 5, bytes);
        return 100;
    };
    Bytes buffer(10, 9);
    EXPECT_EQ(SilenceThenRead(nullptr, reinterpret_cast<uintptr_t>(&state), buffer.data(), 9), 9u);
    EXPECT_EQ(buffer, (Bytes{0, 0, 0, 0, 5, 5, 5, 5, 5, 9}));
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
    const Bytes movie = BuildMovie(MakeMovie());
    Save("in.vrn", movie);
    TrackDescriptor drop = Drop(1);
    uint32_t position = 0;
    TrackDescriptor threeChannels = Encode(1, &position);
    threeChannels.channels = 3;
    const std::string longInput(128, 'a'), longOutput(124, 'a');
    const struct {
        const char *input, *output;
        TrackDescriptor* track;
    } ROWS[] = {{nullptr, "out.vrn", &drop},
                {"in.vrn", nullptr, &drop},
                {"in.vrn", "", &drop},
                {longInput.c_str(), "out.vrn", &drop},
                {"in.vrn", longOutput.c_str(), &drop},
                {"in.vrn", "out.vrn", nullptr},
                {"in.vrn", "out.vrn", &threeChannels}};
    for (const auto& row : ROWS) EXPECT_EQ(VornMix(row.input, row.output, 0, 0, 0, 0, 1, row.track, Report), 0u);
    EXPECT_EQ(messages.size(), std::size(ROWS));
    messages.clear();
    EXPECT_EQ(VornMix("in.vrn", "out.vrn", 0, 25, 1, 0, 0, &drop, Report), 0u);
    EXPECT_EQ(VornMix(nullptr, nullptr, 0, 0, 0, 0, 1, nullptr, nullptr), 0u);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(MixDropping(1, "none.vrn", "out.vrn"), 0u);
    // The temporary file must not empty the input.
    Save("out.vrn.tmp", movie);
    EXPECT_EQ(MixDropping(1, "out.vrn.tmp", "out.vrn"), 0u);
    EXPECT_EQ(Load("out.vrn.tmp"), movie);
    disk->files.erase("out.vrn.tmp");
    table.createFile = [](const char*, bool) { return NO_FILE; };
    EXPECT_EQ(MixDropping(1, "in.vrn", "out.vrn"), 0u);
    const char* const noOutput =
        "Couldn't create temporary file.\n\nSome possible reasons for this error include:\n  1) mixing to a "
        "read-only drive (like a CD-ROM),\n  2) mixing to a drive that is full (out of disk space), or\n  3) "
        "mixing multiple files to the same Vorn output filename.";
    EXPECT_EQ(messages, (std::vector<std::string>{"Couldn't open input Vorn file.", noOutput, noOutput}));
    EXPECT_EQ(disk->files.size(), 1u);
}

TEST_F(MixTest, OutputThatCannotBeReplaced) {
    const Bytes movie = BuildMovie(MakeMovie());
    Save("in.vrn", movie);
    Save("old", OLD);
    table.deleteFile = [](const char*) { return NameResult::FAILED; };
    EXPECT_EQ(MixDropping(5, "in.vrn", "old"), movie.size());
    EXPECT_EQ(messages,
              std::vector<std::string>{"Vorn couldn't overwrite, 'old', so the new Vorn file is called: 'old.tmp'."});
    EXPECT_EQ(Load("old.tmp"), movie);
    EXPECT_EQ(Load("old"), OLD);
    table.deleteFile = MemoryDiskPlatform().deleteFile;
    table.renameFile = [](const char*, const char*) { return NameResult::FAILED; };
    EXPECT_EQ(MixDropping(5, "in.vrn", "new"), movie.size());
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(Load("new.tmp"), movie);
}

// Each damage is named with its value, and what stood under the output's name stays.
TEST_F(MixTest, DamageIsNamed) {
    const Bytes good = BuildMovie(MakeMovie());
    Save("out.vrn", OLD);
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
        {index + 8, GetWord(good, index + 4) & ~1u, "by its index frame 1"},
        {index + 8, 0, "by its index frame 1"},
        {index + 32, static_cast<uint32_t>(good.size()) + 2, "first 8 frames"},
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
        EXPECT_EQ(Load("out.vrn"), OLD);
    }
    Bytes edge = good;
    SetWord(&edge, packets + 248, 136);
    Save("in.vrn", edge);
    EXPECT_NE(Run({Drop(9)}), 0u);
}

TEST_F(MixTest, EveryTruncation) {
    const Bytes good = BuildMovie(MakeMovie());
    uint32_t position = 0;
    Save("out.vrn", OLD);
    for (size_t length = 0; length < good.size(); length++) {
        Save("in.vrn", Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)));
        messages.clear();
        EXPECT_EQ(length % 2 ? Run({Drop(7)}) : Run({Encode(7, &position)}), 0u) << length;
        EXPECT_EQ(messages.size(), 1u);
        EXPECT_EQ(Load("out.vrn"), OLD);
    }
}

TEST_F(MixTest, SoundTooLongForATrackIsRefused) {
    Save("in.vrn", BuildMovie(MakeMovie()));
    uint32_t position = 0;
    EXPECT_EQ(Run({Encode(7, &position)}, 1, 33555), 0u); // 8 * 33555 * 16000 bytes are more than 2^32
    EXPECT_EQ(Run({Encode(7, &position)}, 1, 0xFFFFFFFF), 0u);
    EXPECT_EQ(messages.size(), 2u);
    EXPECT_FALSE(Exists("out.vrn"));
}

// One write, seek, commit or allocation fails, or all writes from there on: a report and the old movie, or a mix that stands.
TEST_F(MixTest, FailingOperations) {
    Save("in.vrn", BuildMovie(MakeMovie()));
    uint32_t position = 0;
    const auto mix = [&] {
        messages.clear();
        Save("out.vrn", OLD);
        position = 0;
        // Half a second a frame: each has new sound.
        return Run({Encode(7, &position), Encode(11, &position)}, 2, 1);
    };
    EXPECT_NE(mix(), 0u);
    const Bytes whole = Load("out.vrn");
    const char* const kinds[] = {"operation", "disk full", "allocation"};
    for (int kind = 0; kind < 3; kind++) {
        MemorySeam seam;
        if (kind == 1)
            table.writeFile = [](FileHandle file, const void* source, uint32_t bytes) {
                return disk->Failed() ? 0 : WriteOnDisk(file, source, bytes);
            };
        uint32_t n = 0, outOfMemory = 0;
        uint32_t& done = kind == 2 ? seam.requests : disk->operations;
        do {
            SCOPED_TRACE(::testing::Message() << kinds[kind] << " " << n + 1);
            done = 0;
            (kind == 2 ? seam.failingRequest : disk->failingOperation) = ++n;
            const uint32_t result = mix();
            EXPECT_TRUE(seam.blocks.empty());
            EXPECT_EQ(messages.size(), result == 0);
            outOfMemory += !messages.empty() && messages[0] == "Out of memory!";
            EXPECT_EQ(Load("out.vrn"), result == 0 ? OLD : whole);
        } while (done >= n && !HasFailure());
        disk->failingOperation = 0;
        EXPECT_TRUE(kind == 2 ? outOfMemory >= 3 : n > 64); // the working block and both encoders
        NoteCases(std::string("mix, ") + kinds[kind], n - 1);
    }
}

} // namespace
