// Input.h - pictures from outside, one after the other, whatever they come from.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/Text.h"

namespace vorn {

enum class ReadResult {
    DONE,    // all of it
    END,     // nothing is left
    CUT,     // it ended, or broke, in the middle
    STOPPED, // a signal came while waiting
};

// Bytes of a file or, named "-", of standard input.
class ByteInput {
public:
    explicit ByteInput(const std::string& name); // throws a Failure
    ~ByteInput();
    ByteInput(const ByteInput&) = delete;
    ByteInput& operator=(const ByteInput&) = delete;

    // CUT also when reading fails; `error` then has the reason.
    ReadResult Read(uint8_t* bytes, size_t count);
    // A line without its newline; CUT also if it is longer than `limit`.
    ReadResult ReadLine(std::string* line, size_t limit);
    // Whether this is a file in which positions are known.
    bool Seekable() const { return seekable; }
    uint64_t Size() const { return size; }         // bytes, if seekable
    uint64_t Position() const { return position; } // bytes taken, from the file's start if seekable
    // Reads up to `count` bytes at a place of a seekable file without moving on; returns how many there were.
    size_t Peek(uint64_t place, uint8_t* bytes, size_t count) const;
    const std::string& Name() const { return name; }

    std::string error; // of the system, or ""

private:
    ReadResult Fill(); // DONE: the buffer has bytes

    std::string name; // for messages
    int descriptor;
    bool seekable = false;
    uint64_t size = 0;
    uint64_t position = 0;
    std::vector<uint8_t> buffer;
    size_t used = 0; // of the buffer's bytes
};

// What all pictures of a source have in common.
struct PictureFormat {
    uint32_t width = 0; // pixels
    uint32_t height = 0;
    Fraction rate;           // frames per second; 0/0 if the source doesn't say
    bool grey = false;       // it has no colour at all
    bool alpha = false;      // its alpha means something
    bool showsAlpha = false; // and is kept unless one says otherwise
};

class FrameSource {
public:
    virtual ~FrameSource() = default;
    // Puts the next picture at `bgra`: height rows of width pixels, bytes B, G, R, A, no gaps.
    virtual ReadResult Read(uint8_t* bgra) = 0;
    // Goes past the next picture.
    virtual ReadResult Skip();

    PictureFormat format;
    std::optional<uint64_t> frames; // how many complete ones there are, if that can be known beforehand
    std::string name;               // for messages
    std::string problem;            // after CUT: what happened, with name and place

private:
    std::vector<uint8_t> skipped;
};

// The options that say where pictures come from.
struct InputOptions {
    std::vector<std::string> names; // "-" is standard input
    std::string raw;                // "WIDTHxHEIGHT": they are raw BGRA; "" for Y4M and PNG
    std::string rate;               // "N/D" in place of what the input says, or ""
    uint32_t seek = 0;              // frames to leave out at the start
};

// All inputs, one behind the other. Throws a Failure, also if their sizes or rates differ, or nobody knows the rate.
std::unique_ptr<FrameSource> OpenFrames(const InputOptions& options);
// The files that this will read, as far as they can be told.
std::vector<std::string> InputFiles(const InputOptions& options);
// Whether a name stands for standard input: "-", or a device that leads there.
bool IsStandardInput(const std::string& name);

// Throws a Failure if no movie can hold such a picture; to be called before there is memory for one.
void CheckPictureSize(const std::string& name, const PictureFormat& format);

std::unique_ptr<FrameSource> OpenY4m(const std::string& name);
std::unique_ptr<FrameSource> OpenRaw(const std::string& name, uint32_t width, uint32_t height);
// Whether a name is one of a PNG file, of a folder, or of a numbered row ("%04d.png"); and the files that this means.
bool IsPngInput(const std::string& name);
std::vector<std::string> PngInputFiles(const std::string& name);
// A single folder or row, or any number of files.
std::unique_ptr<FrameSource> OpenPng(const std::vector<std::string>& names);
// Reads up to `limit` bytes of pictures ahead, so that a short pipe's length is known before the work begins.
std::unique_ptr<FrameSource> ReadAhead(std::unique_ptr<FrameSource> source, uint64_t limit);

} // namespace vorn
