// SpoolFile.cpp - when do bytes move between the buffer and the system, and what is noted if fewer move than should?
#include "files/SpoolFile.h"

#include <algorithm>
#include <cstring>

#include "public/vornmake.h"

namespace vorn {

namespace {

constexpr uint64_t UNKNOWN_SIZE = UINT64_MAX;

// Makes an object with a file behind it, or nothing. The buffer waits for the first transfer.
SpoolFile* OpenSpool(uint32_t bufferBytes, const char* name, bool writing, bool shared) {
    const size_t length = std::strlen(name);
    if (length >= sizeof(SpoolFile::name)) return nullptr;
    SpoolFile* file = static_cast<SpoolFile*>(mokmalloc(sizeof(SpoolFile)));
    if (file == nullptr) return nullptr;
    *file = {};
    file->capacity = bufferBytes;
    file->limit = bufferBytes;
    std::memcpy(file->name, name, length + 1);
    file->handle = writing ? platform->createFile(name, shared) : platform->openFile(name);
    if (file->handle == NO_FILE) {
        mokfree(file);
        return nullptr;
    }
    file->knownSize = UNKNOWN_SIZE;
    file->cursor = writing ? 0 : bufferBytes; // a reader's buffer starts used up
    file->writing = writing;
    return file;
}

// Called before a transfer. Without memory for the buffer every transfer goes straight to the system.
void PrepareBuffer(SpoolFile* file) {
    if (file->buffer != nullptr || file->capacity == 0) return;
    file->buffer = static_cast<uint8_t*>(mokmalloc(file->capacity));
    if (file->buffer != nullptr) return;
    file->capacity = 0;
    file->limit = 0;
    file->cursor = 0;
}

// Writes at the system's position; false if it came up short.
bool WriteThrough(SpoolFile* file, const uint8_t* source, uint32_t bytes) {
    const uint32_t written = platform->writeFile(file->handle, source, bytes);
    file->systemPosition += written;
    if (written != bytes) file->incomplete |= WRITE_CUT;
    return written == bytes;
}

// Empties the write buffer, which may already be empty; false if the system took less.
bool EmptyWriteBuffer(SpoolFile* file) {
    if (file->cursor == 0) return true;
    const bool complete = WriteThrough(file, file->buffer, file->cursor);
    file->cursor = 0;
    return complete;
}

} // namespace

SpoolFile* SpoolCreate(uint32_t bufferBytes, const char* name, bool shared) {
    return OpenSpool(bufferBytes, name, true, shared);
}

SpoolFile* SpoolOpen(uint32_t bufferBytes, const char* name) {
    return OpenSpool(bufferBytes, name, false, true);
}

void SpoolClose(SpoolFile* file) {
    if (file == nullptr) return;
    SpoolFlush(file, false);
    platform->closeFile(file->handle);
    mokfree(file->buffer);
    mokfree(file);
}

uint64_t SpoolTell(const SpoolFile* file) {
    if (file->writing) return file->systemPosition + file->cursor;
    return file->systemPosition - file->limit + file->cursor;
}

// The system is asked once; from then on the high-water mark of the position tells how the file grows. Where it can't tell,
// or doesn't find back, neither a head nor what is written next can be trusted.
uint64_t SpoolSize(SpoolFile* file) {
    if (file->knownSize == UNKNOWN_SIZE) {
        const uint64_t position = platform->seekFile(file->handle, 0, SeekOrigin::CURRENT);
        file->knownSize = platform->seekFile(file->handle, 0, SeekOrigin::END);
        const uint64_t back = platform->seekFile(file->handle, static_cast<int64_t>(position), SeekOrigin::START);
        if (position == NO_POSITION || file->knownSize == UNKNOWN_SIZE || back != position) {
            file->incomplete |= SEEK_FAILED;
        }
    }
    return std::max(file->knownSize, SpoolTell(file));
}

bool SpoolReaches(SpoolFile* file, uint64_t position) {
    if (file->incomplete == 0) return position <= SpoolSize(file);
    const uint64_t end = platform->seekFile(file->handle, 0, SeekOrigin::END);
    platform->seekFile(file->handle, static_cast<int64_t>(file->systemPosition), SeekOrigin::START);
    return end != NO_POSITION && position <= end;
}

uint64_t SpoolSeek(SpoolFile* file, uint64_t target) {
    const uint64_t current = SpoolTell(file);
    if (target == current) return current;
    if (file->knownSize != UNKNOWN_SIZE && file->knownSize < current) file->knownSize = current;
    if (file->writing) {
        EmptyWriteBuffer(file);
    } else {
        const uint64_t bufferStart = file->systemPosition - file->limit;
        if (target >= bufferStart && target < file->systemPosition && file->cursor < file->limit) {
            file->cursor = static_cast<uint32_t>(target - bufferStart);
            return current;
        }
        file->cursor = file->limit;
    }
    file->systemPosition = platform->seekFile(file->handle, static_cast<int64_t>(target), SeekOrigin::START);
    if (file->systemPosition == NO_POSITION) file->incomplete |= SEEK_FAILED;
    return current;
}

void SpoolFlush(SpoolFile* file, bool force) {
    if (!file->writing || file->cursor == 0) return;
    EmptyWriteBuffer(file);
    if (force) platform->flushFile(file->handle);
}

bool SpoolFinish(SpoolFile* file) {
    EmptyWriteBuffer(file);
    return file->incomplete == 0 && platform->flushFile(file->handle);
}

uint32_t SpoolRead(SpoolFile* file, void* destination, uint32_t bytes) {
    if (bytes == 0) return 0;
    PrepareBuffer(file);
    uint8_t* out = static_cast<uint8_t*>(destination);
    uint32_t left = bytes;
    for (;;) {
        if (file->cursor < file->limit) {
            const uint32_t part = std::min(left, file->limit - file->cursor);
            std::memcpy(out, file->buffer + file->cursor, part);
            file->cursor += part;
            out += part;
            left -= part;
        }
        if (left == 0) return bytes;
        if (left >= file->limit) break;
        file->limit = platform->readFile(file->handle, file->buffer, file->capacity);
        file->systemPosition += file->limit;
        file->cursor = 0;
    }
    const uint32_t direct = platform->readFile(file->handle, out, left);
    file->systemPosition += direct;
    return bytes - left + direct;
}

uint32_t SpoolWrite(SpoolFile* file, const void* source, uint32_t bytes) {
    if (bytes == 0) return 0;
    PrepareBuffer(file);
    const uint8_t* in = static_cast<const uint8_t*>(source);
    uint32_t left = bytes;
    do {
        if (file->cursor < file->limit && (file->cursor != 0 || left <= file->limit)) {
            const uint32_t part = std::min(left, file->limit - file->cursor);
            std::memcpy(file->buffer + file->cursor, in, part);
            file->cursor += part;
            in += part;
            left -= part;
        }
        if (left == 0) return bytes;
        if (!EmptyWriteBuffer(file)) file->writeError = 1;
    } while (left < file->limit);
    if (!WriteThrough(file, in, left)) file->writeError = 1;
    return bytes;
}

void SpoolWriteWord(SpoolFile* file, uint32_t word) {
    const uint8_t bytes[4] = {static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8),
                              static_cast<uint8_t>(word >> 16), static_cast<uint8_t>(word >> 24)};
    if (file->buffer != nullptr && file->limit - file->cursor > 3) {
        std::memcpy(file->buffer + file->cursor, bytes, 4);
        file->cursor += 4;
    } else {
        SpoolWrite(file, bytes, 4);
    }
}

NameResult DeleteNamedFile(const char* name) {
    return platform->deleteFile(name);
}

void SyncFolderOf(const char* name) {
    platform->syncFolder(name);
}

NameResult RenameNamedFile(const char* newName, const char* oldName) {
    return platform->renameFile(newName, oldName);
}

} // namespace vorn
