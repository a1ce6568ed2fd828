// MemoryFile.h - what the targets share that feed the program's own intake: bytes as a file, and what a failure must look like.
#pragma once

#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/Fuzz.h"

namespace vorn {

// A file in memory under a name that can be opened.
struct MemoryFile {
    int descriptor = memfd_create("input", 0);
    std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    MemoryFile(const uint8_t* data, size_t size) {
        Require(descriptor >= 0 && write(descriptor, data, size) == ssize_t(size), "there is memory");
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
};

inline void CheckText(const std::string& text) {
    Require(!text.empty() && text.find('\n') == std::string::npos, "a failure is one line: " + text);
}

} // namespace vorn
