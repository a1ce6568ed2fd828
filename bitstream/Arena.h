// Arena.h - a bump allocator over one buffer that somebody else owns. Nothing is freed; a new plane starts it over.
#pragma once

#include <cstdint>

namespace vorn {

struct Arena {
    uint8_t* next;
    uint8_t* end;
    bool exhausted; // a request didn't fit; set for good, the owner looks at it when the plane is done
};

inline Arena MakeArena(uint8_t* room, uint64_t bytes) { return {room, room + bytes, false}; }

// `bytes` bytes aligned to 8, or null.
inline void* TakeFromArena(Arena* arena, uint32_t bytes) {
    const uint64_t rounded = (static_cast<uint64_t>(bytes) + 7) & ~uint64_t{7};
    if (static_cast<uint64_t>(arena->end - arena->next) < rounded) {
        arena->exhausted = true;
        return nullptr;
    }
    void* taken = arena->next;
    arena->next += rounded;
    return taken;
}

} // namespace vorn
