// SpoolFile.h - the library's one file object: a buffer before a file, with a 64-bit logical position.
// An object either reads or writes for its whole life. Failed writes are noted in `writeError`, which the owner looks at
// when a unit of work is done; failed reads look like the end of the file.
// Threads: no lock; whoever shares one keeps order by other means.
#pragma once

#include <cstdint>

#include "platform/Platform.h"

// Named outside the namespace because the public record points to it.
struct SpoolFile {
    vorn::FileHandle handle;
    uint32_t writeError;     // set when SpoolWrite wrote fewer bytes than it should have; never cleared
    char name[128];          // zero-terminated
    uint8_t* buffer;         // null until the first transfer
    uint32_t capacity;       // bytes of the buffer; 0 if it couldn't be had
    uint32_t limit;          // reading: valid bytes in the buffer. Writing: equal to capacity
    uint32_t cursor;         // reading: next byte to hand out. Writing: bytes waiting
    uint64_t systemPosition; // where the system's file pointer stands
    uint64_t knownSize;      // the file's size at least; all ones until first asked
    uint32_t writing;        // 1 made by SpoolCreate, 0 by SpoolOpen
    uint32_t incomplete;     // not 0: the file isn't what it should be. WRITE_CUT, SEEK_FAILED; never cleared
};

namespace vorn {

constexpr uint64_t NO_POSITION = UINT64_MAX; // where a failed seek leaves a file

// Bits of SpoolFile::incomplete.
constexpr uint32_t WRITE_CUT = 1;   // any write at all came up short
constexpr uint32_t SEEK_FAILED = 2; // since then what was written may lie anywhere

// Creates or empties a file for writing; `shared` as in Platform::createFile. Null if it can't be had. Names of more than
// 127 bytes are refused.
SpoolFile* SpoolCreate(uint32_t bufferBytes, const char* name, bool shared);
// Opens an existing file for reading. Null if it can't be had.
SpoolFile* SpoolOpen(uint32_t bufferBytes, const char* name);
// Writes out the buffer, closes the file, frees the object. Null does nothing.
void SpoolClose(SpoolFile* file);

uint64_t SpoolTell(const SpoolFile* file);
uint64_t SpoolSize(SpoolFile* file);
// Moves the logical position; returns the one before.
uint64_t SpoolSeek(SpoolFile* file, uint64_t target);
// Whether the file that the system has is at least so long: after a write that came up short it may be shorter than SpoolSize.
bool SpoolReaches(SpoolFile* file, uint64_t position);
// Empties the write buffer; with `force`, and if the buffer held data, commits to disk.
void SpoolFlush(SpoolFile* file, bool force);
// Writes out the buffer and commits to disk. True if every byte that was ever written reached the file.
bool SpoolFinish(SpoolFile* file);
uint32_t SpoolRead(SpoolFile* file, void* destination, uint32_t bytes);   // bytes delivered
uint32_t SpoolWrite(SpoolFile* file, const void* source, uint32_t bytes); // bytes accepted
void SpoolWriteWord(SpoolFile* file, uint32_t word);                      // low byte first

NameResult DeleteNamedFile(const char* name);
NameResult RenameNamedFile(const char* newName, const char* oldName);
// Commits the entry of a named file in its folder to disk, as far as the system can.
void SyncFolderOf(const char* name);

} // namespace vorn
