// Readback.h - what is kept of every frame while a movie is made, and what is then found in its file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "public/vornmake.h"
#include "reader/Reader.h"
#include "tools/Output.h"

namespace vorn {

// A frame that the library has put into the file. The last one of an input that ended sooner than it had said is put there
// while the movie is closed, when there is nobody left to ask: it isn't `seen`.
struct FrameNote {
    uint32_t start = 0; // bytes of the file
    uint32_t end = 0;
    bool key = false;
    bool seen = true;
    uint32_t error = 0; // sum of absolute differences, all planes, padding included
    double seconds = 0; // from the start of the work to its end
    // Checksums of what the encoder takes for the decoded planes.
    std::array<uint64_t, reader::PLANES> planes = {};
};

// Adds the frames that have been finished since the last call; of several only the newest is seen. To be called from the
// library's callback and after each call of the library. `checksums`: reckons `planes`, which takes its time.
void NoteFrames(const VornMakeState* state, double seconds, bool checksums, std::vector<FrameNote>* notes);

// A movie of which single packets are read, perhaps while it grows.
class PacketFile {
public:
    explicit PacketFile(const std::string& name); // throws a Failure
    ~PacketFile();
    PacketFile(const PacketFile&) = delete;
    PacketFile& operator=(const PacketFile&) = delete;

    uint64_t Size() const; // bytes that have reached the file
    // Cuts up the packet of a frame; its parts lie in `movie`, which has this one frame. False if it can't be done; what is
    // wrong with it is in `violations`, or nothing if it can't be read at all.
    bool Read(const FrameNote& note, reader::Movie* movie, reader::Frame* frame, reader::Violations* violations);
    // Adds what the index of the finished file has beyond `notes`. False with the reason in `problem` if it differs from them.
    bool TakeIndex(std::vector<FrameNote>* notes, std::string* problem);

private:
    bool ReadHead();

    int descriptor;
    std::vector<uint8_t> head; // header and track tables; empty until they have reached the file
};

// Decodes every frame from the file as soon as it is there, and compares its planes with those that the encoder holds.
// Sound is decoded block by block, and there is nothing to compare it with.
class Readback {
public:
    explicit Readback(const std::string& name) : file(name) {}
    // Takes the frames that have reached the file. False once one is wrong.
    bool Check(const std::vector<FrameNote>& notes);
    uint64_t Checked() const { return next; }

    std::string problem; // after false: frame, plane and what is wrong

private:
    bool CheckFrame(const FrameNote& note);

    PacketFile file;
    reader::MovieDecoder decoder;
    uint32_t next = 0; // frame to check
};

// Writes what is known of every frame as a table, a row a frame. `target`: bytes that each should have taken.
void WriteFrameLog(const std::vector<FrameNote>& notes, uint32_t target, PacketFile* movie, OutputFile* file);

} // namespace vorn
