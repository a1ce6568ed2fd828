// Platform.h - everything that the library asks of the operating system, as one record of function pointers.
// Production uses the table of the system it was built for; tests put a failing or counting one in its place.
#pragma once

#include <cstdint>

namespace vorn {

// An open file. The platform file gives it its meaning; NO_FILE is no file.
using FileHandle = intptr_t;
constexpr FileHandle NO_FILE = -1;

// A started thread, to be joined exactly once.
using ThreadHandle = uintptr_t;

enum class SeekOrigin { START, CURRENT, END };

// Result of deleting or renaming a named file.
enum class NameResult : uint32_t { DONE = 0, MISSING = 1, FAILED = 2 };

struct Platform {
    // Files. A name is zero-terminated; a failed open gives NO_FILE.
    // createFile makes the file or empties an existing one, for reading and writing. A file that is already being written
    // can't be created again. Where the system can keep others from opening it, they may read it if it is `shared`.
    FileHandle (*createFile)(const char* name, bool shared);
    // Opens an existing file for reading; others may read it too. Fails while the file is being written elsewhere, and for
    // what isn't a file, without waiting.
    FileHandle (*openFile)(const char* name);
    uint32_t (*readFile)(FileHandle file, void* destination, uint32_t bytes);   // bytes read; 0 at the end and on failure
    uint32_t (*writeFile)(FileHandle file, const void* source, uint32_t bytes); // bytes written, short on failure
    uint64_t (*seekFile)(FileHandle file, int64_t offset, SeekOrigin origin);   // new position, or all ones
    bool (*flushFile)(FileHandle file);                                         // commits to disk
    void (*closeFile)(FileHandle file);
    NameResult (*deleteFile)(const char* name);
    NameResult (*renameFile)(const char* newName, const char* oldName); // never replaces an existing file

    // Threads. startThread returns false if no thread could be had; then `thread` has no meaning.
    bool (*startThread)(ThreadHandle* thread, void (*run)(void*), void* argument);
    void (*joinThread)(ThreadHandle thread);

    // Clocks.
    uint64_t (*counterFrequency)();  // counts per second of the high-resolution counter; 0 if there is none
    uint64_t (*counterRead)();
    uint32_t (*tickMilliseconds)();  // coarse clock that is never set, wraps at 32 bits
    void (*sleepMilliseconds)(uint32_t milliseconds);

    uint32_t (*processorCount)();    // 0 if unknown

    // Commits the entry of a file in its folder to disk; where the system has no such thing it does nothing.
    void (*syncFolder)(const char* name);
};

// The table of this system. Never changes.
extern const Platform SYSTEM_PLATFORM;

// The table in force: SYSTEM_PLATFORM unless a test put its own there, while nothing else of the library ran.
extern const Platform* platform;

} // namespace vorn
