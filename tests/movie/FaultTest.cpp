// FaultTest.cpp - a movie is made over an older one, and every call to the system that it takes fails in turn. The older movie
// is never lost to one that isn't whole, what is lost is said, and what was flushed can be read.
#include "files/SpoolFile.h"
#include "tests/movie/Faults.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <set>

#if defined(__linux__)
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace vorn;

namespace {

enum Outcome : uint32_t {
    WHOLE,         // the new movie stands under its name
    REFUSED,       // VornMake said that there can't be a file, and touched nothing
    OUT_OF_MEMORY, // the same for memory
    DISCARDED,     // the movie failed and left nothing behind
    KEPT,          // something isn't on disk: what was flushed before can be read under the temporary name
    NOT_REPLACED,  // the older file can't go: the whole movie has its temporary name
    NOT_RENAMED,   // the older file is gone, the whole movie has its temporary name
    UNEXPECTED,
};
const char* const OUTCOME_NAMES[] = {"whole", "refused",      "out of memory", "discarded",
                                     "kept",  "not replaced", "not renamed",   "unexpected"};
using Outcomes = std::set<Outcome>;
using Found = std::map<Outcome, uint32_t>; // how often each came of a fault

const std::string CANT_CREATE =
    "Couldn't create temporary file.\n\nSome possible reasons for this error include:\n  1) compressing to a read-only "
    "drive (like a CD-ROM),\n  2) compressing to a drive that is full (out of disk space), or\n  3) compressing "
    "multiple files to the same Vorn output filename.";

std::string messages;
uint32_t VORN_CALL Hear(uint32_t code, void* record, const char* text) {
    if (code == VORN_MESSAGE) messages += record != nullptr ? text : std::string(text) + " (no record)";
    return 0;
}

class FaultyMovie : public testing::Test {
protected:
    FaultSeam seam;
    TestFolder folder;
    Workers workers{1};
    const std::string name = folder / "movie", temp = name + ".tmp";
    MoviePlan plan;
    std::string whole;      // the file when nothing fails
    ReadMovie expected;     // its frames
    uint32_t flushed;       // frames that the last granted flush has seen
    uint32_t done;          // frames of the movie before its close
    bool insisting = false; // hand in further frames after all, as if the movie hadn't failed
    std::string before, tempBefore;
    std::ifstream player;
    SpoolFile* spool = nullptr;

    void Plan(const MoviePlan& wanted) {
        plan = wanted;
        fault = {};
        whole = MakeMovie(&plan, name);
        expected = ReadBack(whole);
        ASSERT_EQ(expected.complaint, "");
    }
    // Makes the movie, flushes after every other frame, and says what has become of it.
    Outcome Make(ProgressCallback callback = Hear, const std::function<void()>& midway = {}) {
        before = Snapshot(name);
        tempBefore = Snapshot(temp);
        messages.clear();
        flushed = done = 0;
        FaultSeam::Restart();
        VornMakeState* state = OpenMovie(&plan, name, callback);
        for (uint32_t frame = 0; state != nullptr && frame < plan.frames; frame++) {
            PutFrame(state, plan, frame);
            if (frame % 2 != 0 && VornMakeFlush(state) != 0) flushed = state->framesDone;
            if (frame == 1 && midway) midway();
        }
        if (state != nullptr) {
            const uint32_t queued = state->queueCount;
            done = state->framesDone;
            for (int i = 0; insisting && i < 70; i++) PutFrame(state, plan, 0);
            EXPECT_TRUE(!insisting || (state->queueCount == queued && state->framesDone == done));
            VornMakeClose(state, 0);
        }
        return Judge(state != nullptr, callback != nullptr);
    }
    Outcome Judge(bool opened, bool heard) const {
        const std::string final = Snapshot(name), kept = Snapshot(temp);
        const bool untouched = final == before;
        const auto told = [&](const std::string& text) { return messages == (heard ? text : ""); };
        if (!opened && untouched && kept == tempBefore) {
            if (told(CANT_CREATE)) return REFUSED;
            if (told("Out of memory! (no record)")) return OUT_OF_MEMORY;
        }
        if (!opened) return UNEXPECTED;
        const bool wholeKept = kept == "file: " + whole;
        if (final == "file: " + whole && kept == "nothing" && messages == "") return WHOLE;
        if (untouched && kept == "nothing" && messages == "") return DISCARDED;
        if (untouched && wholeKept &&
            told("Vorn couldn't overwrite, '" + name + "', so the new Vorn file is called: '" + temp + "'.")) {
            return NOT_REPLACED;
        }
        if (untouched && FlushedFramesRead() &&
            told("Vorn couldn't write the whole movie, so '" + name +
                 "' wasn't touched. What was written of it is called: '" + temp + "'.")) {
            return KEPT;
        }
        const bool unnamed = final == "nothing" && wholeKept && told("Vorn couldn't rename the temporary file.");
        return unnamed ? NOT_RENAMED : UNEXPECTED;
    }
    bool FlushedFramesRead() const {
        const uint32_t wanted = std::max(flushed, FaultSeam::headFrames);
        if (wanted == 0) return true;
        const ReadMovie read = ReadBack(ReadWholeFile(temp), true);
        const bool reads = read.frames.size() >= wanted &&
                           std::equal(read.frames.begin(), read.frames.begin() + wanted, expected.frames.begin());
        EXPECT_TRUE(reads) << wanted << " frames were flushed, " << read.frames.size() << " read: " << read.complaint;
        return reads;
    }
    void LayOlderMovie() {
        std::filesystem::remove_all(temp);
        std::filesystem::remove_all(name);
        WriteWholeFile(name, "the movie that was here before");
    }
    static void NoteCases(const std::string& what, const Found& found) {
        uint32_t cases = 0;
        std::string text;
        for (const auto& [outcome, count] : found) {
            cases += count;
            if (count > 0) text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + OUTCOME_NAMES[outcome];
        }
        ::NoteCases(what, cases, text);
    }
    // Each call of a kind fails, alone and with all behind it. `allowed` is what may come of it.
    void Sweep(const std::string& call, int error, const Outcomes& allowed, const std::string& olderTemp = "") {
        Found found;
        for (const bool forGood : {false, true}) {
            if (forGood && error == EINTR) continue; // it would be called for ever
            SweepCalls([&](uint32_t n) {
                fault = {call, error, forGood, n};
                LayOlderMovie();
                if (!olderTemp.empty()) WriteWholeFile(temp, olderTemp);
                const Outcome outcome = Make();
                const bool struck = fault.Struck();
                EXPECT_TRUE(struck ? allowed.count(outcome) != 0 : outcome == WHOLE)
                    << call << ' ' << n << (forGood ? " and on" : "") << ", error " << error << ": "
                    << OUTCOME_NAMES[outcome] << ' ' << messages;
                found[outcome] += struck;
                return struck;
            });
        }
        fault = {};
        const std::string how = error > 0 ? std::string(", ") + std::strerror(error) : "";
        NoteCases(call + (error == HALF_DONE ? ", half done" : how), found);
    }
};

} // namespace

// Through the platform table, the same everywhere.
TEST_F(FaultyMovie, EveryCallOfThePlatform) {
    for (const MoviePlan& planned : MoviesToSweep(SmallMovie())) {
        Plan(planned);
        Sweep("create", NOTHING_DONE, {REFUSED});
        Sweep("write", NOTHING_DONE, {DISCARDED, KEPT});
        Sweep("write", HALF_DONE, {DISCARDED, KEPT});
        Sweep("seek", NOTHING_DONE, {DISCARDED, KEPT});
        Sweep("commit", NOTHING_DONE, {WHOLE, KEPT});
        Sweep("delete", NOTHING_DONE, {NOT_REPLACED});
        Sweep("rename", NOTHING_DONE, {NOT_RENAMED});
    }
    // An index larger than the file's buffer, so that a head takes several writes, and frames that are larger, too.
    MoviePlan large = SmallMovie();
    large.width = large.height = 216;
    large.frames = 4;
    large.options = GREY;
    large.capacity = 40000;
    large.rate = 1000000;
    Plan(large);
    Sweep("write", HALF_DONE, {DISCARDED, KEPT});
    Sweep("seek", NOTHING_DONE, {DISCARDED, KEPT});

    MoviePlan silent = SmallMovie();
    silent.frames = 2;
    silent.sounds.clear();
    Plan(silent);
    VornMakeSetMaxCPUs(3);
    Sweep("thread", NOTHING_DONE, {WHOLE});
}

// Memory runs out at any request. The movie refuses to begin, or ends at the frame that found none, which isn't said; nothing
// stays allocated. Only the file's buffer can be done without, and what a trial of the plan wants when a long look-ahead makes
// it grow.
TEST_F(FaultyMovie, EveryAllocation) {
    for (const int32_t lookAhead : {2, 3, 64}) {
        MoviePlan wanted = SmallMovie();
        wanted.lookAhead = lookAhead;
        wanted.sounds.push_back({22050, 2, 104});
        Plan(wanted);
        MemorySeam memory;
        VornMakeClose(OpenMovie(&plan, name, nullptr), 1);
        const uint32_t opening = memory.requests; // then one a frame
        Found found;
        const uint32_t cases = SweepCalls([&](uint32_t n) {
            LayOlderMovie();
            memory.requests = 0;
            memory.failingRequest = n;
            insisting = true;
            const Outcome outcome = Make();
            insisting = false;
            EXPECT_TRUE(memory.blocks.empty()) << n;
            const bool struck = memory.requests >= n;
            EXPECT_EQ(outcome == DISCARDED, struck && n > opening) << n;
            EXPECT_TRUE(outcome != DISCARDED || done == n - opening - 1) << n;
            found[outcome] += struck;
            return struck;
        });
        EXPECT_EQ(cases, opening + plan.frames);
        EXPECT_EQ(found[REFUSED], 1u); // the file object
        EXPECT_EQ(found[OUT_OF_MEMORY] + found[WHOLE], opening - 1);
        EXPECT_TRUE(lookAhead < 64 ? found[WHOLE] == 1 : found[OUT_OF_MEMORY] >= 4);
        NoteCases("allocation, look-ahead " + std::to_string(lookAhead), found);
    }
}

// Whoever has the final file open, or wants a folder there, keeps it; systems differ in what an open file stands.
TEST_F(FaultyMovie, NamesThatCannotBeHad) {
    using std::filesystem::create_directory, std::filesystem::perms, std::filesystem::permissions,
        std::filesystem::remove;
    const Outcome keptIfOpen = WINDOWS ? NOT_REPLACED : WHOLE;
    const struct {
        const char* what;
        Outcome outcome;
        std::function<void()> prepare;
        std::function<void()> midway = {}; // after the second frame
    } CASES[] = {
        {"nothing", WHOLE, [&] { remove(name); }},
        {"an older movie", WHOLE, [] {}},
        {"one that is read-only", keptIfOpen, [&] { permissions(name, perms::owner_read); }},
        {"one that a player has open", keptIfOpen, [&] { player.open(name, std::ios::binary); }},
        {"one that is being mixed", keptIfOpen, [&] { spool = SpoolOpen(100, name.c_str()); }},
        {"a folder", NOT_REPLACED, [&] { remove(name), create_directory(name); }},
        {"a folder made meanwhile", NOT_REPLACED, [&] { remove(name); },
         [&] { create_directory(name), before = "folder"; }},
        {"another movie's temporary file", REFUSED, [&] { spool = SpoolCreate(100, temp.c_str(), true); }},
        {"a folder as the temporary file", REFUSED, [&] { create_directory(temp); }},
        {"a crash's temporary file", WHOLE, [&] { WriteWholeFile(temp, std::string(100000, 'x')); }},
    };
    Plan(SmallMovie());
    for (const auto& c : CASES) {
        for (const ProgressCallback callback : {Hear, ProgressCallback(nullptr)}) {
            LayOlderMovie();
            c.prepare();
            EXPECT_STREQ(OUTCOME_NAMES[Make(callback, c.midway)], OUTCOME_NAMES[c.outcome])
                << c.what << ": " << messages;
            player.close();
            SpoolClose(std::exchange(spool, nullptr));
            if (std::filesystem::exists(name)) permissions(name, perms::owner_all);
        }
    }
    ::NoteCases("names that can't be had", 2 * std::size(CASES));
}

// The file's bytes, then its name: a power cut between the two leaves the old movie or the new one, and at worst the new one
// under its temporary name.
TEST_F(FaultyMovie, FileThenFolderAreCommitted) {
    Plan(SmallMovie());
    LayOlderMovie();
    EXPECT_EQ(Make(), WHOLE);
    const std::vector<std::string> end = {"commit", "close", "delete", "rename", "sync folder"};
    ASSERT_GE(log.size(), end.size());
    EXPECT_EQ(std::vector<std::string>(log.end() - 5, log.end()), end);

    Sound sound = {8000, 1, 4};
    TrackDescriptor track = {1, 8000, 16, 1, 4, reinterpret_cast<uintptr_t>(&sound), Sound::Read};
    EXPECT_NE(VornMix(name.c_str(), name.c_str(), 0, 0, 0, 0, 1, &track, nullptr), 0u);
    EXPECT_EQ(std::vector<std::string>(log.end() - 5, log.end()), end);
}

namespace {

// Calls of the system below the platform table: the linker puts these functions in their place.
#if defined(__linux__)

bool SystemFails(const char* call) {
    const bool fails = Strikes(call);
    if (fails) errno = fault.error;
    return fails;
}
#define FAILING_CALL(result, name, parameters, ...)                                                                    \
    extern "C" result __real_##name parameters;                                                                        \
    extern "C" result __wrap_##name parameters {                                                                       \
        return SystemFails(#name "()") ? -1 : __real_##name(__VA_ARGS__);                                              \
    }
FAILING_CALL(int, open64, (const char* file, int flags, mode_t mode), file, flags, mode)
FAILING_CALL(int, flock, (int file, int operation), file, operation)
FAILING_CALL(int, ftruncate64, (int file, off64_t length), file, length)
FAILING_CALL(off64_t, lseek64, (int file, off64_t offset, int origin), file, offset, origin)
FAILING_CALL(int, fsync, (int file), file)
FAILING_CALL(int, unlink, (const char* file), file)
FAILING_CALL(int, renameat2, (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags),
             fromFolder, from, toFolder, to, flags)

// A write may also do half of what it should without an error.
extern "C" ssize_t __real_write(int file, const void* source, size_t bytes);
extern "C" ssize_t __wrap_write(int file, const void* source, size_t bytes) {
    if (fault.call == "write()" && fault.error == HALF_DONE)
        return __real_write(file, source, Strikes("write()") ? (bytes + 1) / 2 : bytes);
    return SystemFails("write()") ? -1 : __real_write(file, source, bytes);
}
#endif

} // namespace

#if defined(__linux__)
// What the system calls an interruption, or a thing that it doesn't know, harms nothing; a full disk and a broken one do.
TEST_F(FaultyMovie, EveryCallOfTheSystem) {
    const struct {
        const char* call;
        std::vector<int> errors;
        Outcomes allowed;
    } ROWS[] = {
        {"write()", {EINTR, HALF_DONE}, {WHOLE}},
        {"write()", {ENOSPC, EIO}, {DISCARDED, KEPT}},
        {"lseek64()", {EINVAL}, {DISCARDED, KEPT}},
        {"fsync()", {EINTR, EINVAL}, {WHOLE}},
        {"fsync()", {EIO, ENOSPC}, {WHOLE, KEPT}}, // whole if it is the folder's
        {"open64()", {EINTR}, {WHOLE}},
        {"open64()", {EACCES, EROFS, EMFILE, ENOSPC}, {WHOLE, REFUSED}}, // whole if it is the folder
        {"flock()", {EINTR, ENOLCK}, {WHOLE}},
        {"unlink()", {EACCES, EBUSY, EIO}, {NOT_REPLACED}},
        {"renameat2()", {ENOSYS, EINVAL}, {WHOLE}},
        {"renameat2()", {EACCES, EEXIST, EIO, ENOSPC}, {NOT_RENAMED}},
    };
    Plan(SmallMovie());
    for (const auto& row : ROWS) {
        for (const int error : row.errors) Sweep(row.call, error, row.allowed);
    }
    // What someone else writes, or a crash has left and can't be cut, stays.
    Sweep("flock()", EWOULDBLOCK, {REFUSED}, "another movie");
    Sweep("ftruncate64()", EINTR, {WHOLE}, "left by a crash");
    Sweep("ftruncate64()", EIO, {REFUSED}, "left by a crash");
}

// A folder that takes no file, from the beginning or once the movie is under way. Superusers are stopped by no permission.
TEST_F(FaultyMovie, ReadOnlyFolders) {
    const uid_t user = geteuid();
    // The folder may be written or not, and those who could do it all the same become someone else for the time of a movie.
    const auto permit = [&](bool writable, bool humble) {
        EXPECT_EQ(seteuid(user), 0);
        EXPECT_EQ(chmod(folder.path.c_str(), writable ? 0777 : 0555), 0);
        EXPECT_EQ(seteuid(user == 0 && humble ? 65534 : user), 0);
        return access(name.c_str(), F_OK) == 0;
    };
    Plan(SmallMovie());
    LayOlderMovie();
    if (!permit(false, true) && permit(true, false)) GTEST_SKIP() << "an ordinary user can't get at " << name;
    const Outcome first = Make();
    permit(true, true);
    const Outcome second = Make(Hear, [&] { permit(false, true); });
    permit(true, false);
    EXPECT_STREQ(OUTCOME_NAMES[first], "refused");
    EXPECT_STREQ(OUTCOME_NAMES[second], "not replaced");
}
#endif
