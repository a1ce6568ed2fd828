// MovieFile.h - movies as files: opening one, walking through its frames, and whether one that was written is complete.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "reader/Reader.h"
#include "tools/Colour.h"

namespace vorn {

// Opens a movie, and throws a Failure if it can't be walked at all. Everything that is merely wrong goes to `violations`.
void OpenMovieFile(const std::string& name, bool growing, reader::Movie* movie, reader::Violations* violations);

// Checks that the movie in `file` is complete: a good head that counts `frames` frames (if not -1) and knows the file's size.
// This is how a full disk at the very end is noticed. Returns how many frames it counts, or throws a Failure
// about `name`.
uint32_t CheckMovie(const std::string& file, int64_t frames, const std::string& name);
// Whether a movie is complete, by the same measure.
bool MovieStands(const std::string& file);

// The first error, or the last word if there is none.
std::string WhatIsWrong(const reader::Violations& violations);

// Size of the picture in a plane, without the padding.
void PictureSize(const reader::Movie& movie, int plane, uint32_t* width, uint32_t* height);

// Decodes frame after frame, from 0 on or from the last key frame before `first`.
class FrameWalk {
public:
    FrameWalk(const std::string& name, const reader::Movie& movie, uint32_t first);
    // Decodes the next frame, or throws a Failure that tells what is wrong with it.
    void Next();
    uint32_t Number() const { return number - 1; } // of the frame decoded last
    const reader::DecodedPlane& Plane(int plane) const { return decoder.planes[plane]; }
    // The frame decoded last as a picture; height rows of width pixels.
    void ToBgra(std::vector<uint8_t>* bgra) const;

private:
    void DecodeOne();

    std::string name;
    const reader::Movie& movie;
    reader::MovieDecoder decoder;
    uint32_t number; // of the next frame
};

} // namespace vorn
