// Readback.cpp - does the file hold what the encoder has in mind, and what does the log tell of each frame?
#include "tools/Readback.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "format/MovieLayout.h"
#include "tools/Exit.h"
#include "tools/Text.h"
#include "tools/Words.h"

namespace vorn {

namespace {

// Of a plane; `count` is a multiple of 64.
uint64_t Checksum(const uint8_t* samples, size_t count) {
    uint64_t sum = 0x9e3779b97f4a7c15;
    for (size_t i = 0; i + 8 <= count; i += 8) {
        uint64_t word;
        std::memcpy(&word, samples + i, 8);
        sum = (sum ^ word) * 0xff51afd7ed558ccd;
        sum ^= sum >> 32;
    }
    return sum;
}

void ChecksumPlanes(const VornMakeState* state, FrameNote* note) {
    const uint32_t shown = state->referenceSelect;
    const size_t luma = size_t(state->lumaWidth) * state->lumaHeight;
    const size_t chroma = size_t(state->chromaWidth) * state->chromaHeight;
    note->planes[reader::PLANE_Y] = Checksum(state->referenceY[shown], luma);
    if ((state->flags & FLAG_GREY) == 0) {
        note->planes[reader::PLANE_CR] = Checksum(state->referenceCr[shown], chroma);
        note->planes[reader::PLANE_CB] = Checksum(state->referenceCb[shown], chroma);
    }
    if ((state->flags & FLAG_ALPHA) != 0)
        note->planes[reader::PLANE_ALPHA] = Checksum(state->referenceAlpha[shown], luma);
}

// What a frame's word of the index and the one behind it tell.
FrameNote PlaceOf(uint32_t word, uint32_t next) {
    FrameNote note;
    note.start = word & ~KEY_FRAME_BIT;
    note.end = next & ~KEY_FRAME_BIT;
    note.key = (word & KEY_FRAME_BIT) != 0;
    return note;
}

// True if all of it came.
bool ReadAt(int descriptor, uint64_t place, uint8_t* bytes, size_t count) {
    for (size_t done = 0; done < count;) {
        const ssize_t got = pread(descriptor, bytes + done, count - done, static_cast<off_t>(place + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

// Block by block; silence has none.
bool DecodeSound(const reader::Movie& movie, const reader::Frame& frame, reader::Violations* violations) {
    for (size_t t = 0; t < frame.audio.size(); t++) {
        const reader::Track& track = movie.tracks[t];
        const reader::AudioKind kind = {track.sampleRate, track.channels, track.perChannelDct};
        reader::Violation place = {reader::SEVERITY_ERROR};
        place.track = static_cast<int>(t);
        const reader::Bytes coded = frame.audio[t].coded;
        for (size_t done = 0; done < coded.size;) {
            reader::CodedAudioBlock block;
            place.bit = static_cast<int64_t>(done * 8);
            if (!ReadAudioBlock(kind, {coded.data + done, coded.size - done}, place, &block, violations)) return false;
            done += block.bytes;
        }
    }
    return true;
}

} // namespace

void NoteFrames(const VornMakeState* state, double seconds, bool checksums, std::vector<FrameNote>* notes) {
    while (notes->size() < state->framesDone) {
        const size_t frame = notes->size();
        FrameNote note = PlaceOf(state->frameIndex[frame], state->frameIndex[frame + 1]);
        note.error = state->frameErrors[frame];
        note.seconds = seconds;
        note.seen = frame + 1 == state->framesDone; // the planes are those of the newest
        if (checksums && note.seen) ChecksumPlanes(state, &note);
        notes->push_back(note);
    }
}

// ---- PacketFile ----------------------------------------------------------------------------------------------------

PacketFile::PacketFile(const std::string& name) : descriptor(open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor < 0)
        throw Failure{EXIT_FAILED, fmt::format("{}: can't be opened to read it back ({})", name, std::strerror(errno))};
}

PacketFile::~PacketFile() {
    close(descriptor);
}

uint64_t PacketFile::Size() const {
    struct stat info = {};
    return fstat(descriptor, &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

bool PacketFile::ReadHead() {
    if (!head.empty()) return true;
    std::vector<uint8_t> bytes(HEADER_BYTES);
    if (!ReadAt(descriptor, 0, bytes.data(), bytes.size())) return false;
    const size_t tracks = WordAt(bytes.data() + offsetof(VornFileHeader, trackCount));
    if (tracks * 12 > Size()) return false;
    bytes.resize(HEADER_BYTES + tracks * 12);
    if (!ReadAt(descriptor, 0, bytes.data(), bytes.size())) return false;
    head = std::move(bytes);
    return true;
}

// The reader takes whole movies: head, track tables and packet make one of a single frame.
bool PacketFile::Read(const FrameNote& note, reader::Movie* movie, reader::Frame* frame,
                      reader::Violations* violations) {
    if (!ReadHead() || note.end <= note.start) return false;
    std::vector<uint8_t> bytes = head;
    const size_t start = head.size() + 8;
    const size_t packet = note.end - note.start;
    bytes.resize(start + packet);
    PutWord(bytes.data() + head.size(), static_cast<uint32_t>(start) | (note.key ? KEY_FRAME_BIT : 0));
    PutWord(bytes.data() + head.size() + 4, static_cast<uint32_t>(start + packet));
    PutWord(bytes.data() + offsetof(VornFileHeader, frames), 1);
    PutWord(bytes.data() + offsetof(VornFileHeader, indexCapacity), 1);
    if (!ReadAt(descriptor, note.start, bytes.data() + start, packet)) return false;
    reader::Violations ofHead; // its counts are those of the growing movie
    return reader::ParseMovie(std::move(bytes), {}, movie, &ofHead) && ReadFrame(*movie, 0, frame, violations);
}

bool PacketFile::TakeIndex(std::vector<FrameNote>* notes, std::string* problem) {
    head.clear(); // the counts in it have changed
    *problem = "the head can't be read back";
    if (!ReadHead()) return false;
    const uint32_t frames = WordAt(head.data() + offsetof(VornFileHeader, frames));
    std::vector<uint8_t> words((size_t(frames) + 1) * 4);
    if (words.size() > Size() || !ReadAt(descriptor, head.size(), words.data(), words.size())) return false;
    for (size_t i = 0; i < frames; i++) {
        FrameNote found = PlaceOf(WordAt(&words[i * 4]), WordAt(&words[i * 4 + 4]));
        found.seen = false;
        if (i == notes->size()) notes->push_back(found);
        const FrameNote& note = (*notes)[i];
        if (note.start == found.start && note.key == found.key && note.end == found.end) continue;
        *problem = fmt::format("frame {}: the index doesn't name the place where it was written", i);
        return false;
    }
    *problem = fmt::format("the head counts {} of {} frames", frames, notes->size());
    return notes->size() == frames;
}

// ---- Readback ------------------------------------------------------------------------------------------------------

bool Readback::Check(const std::vector<FrameNote>& notes) {
    for (; problem.empty() && next < notes.size() && notes[next].end <= file.Size(); next++)
        if (!CheckFrame(notes[next])) return false;
    return problem.empty();
}

bool Readback::CheckFrame(const FrameNote& note) {
    reader::Movie movie;
    reader::Frame frame;
    reader::Violations violations;
    const bool good = file.Read(note, &movie, &frame, &violations) &&
                      DecodeFrame(movie, frame, &decoder, &violations) && DecodeSound(movie, frame, &violations);
    if (!violations.list.empty()) {
        violations.list[0].frame = next;
        problem = DescribeViolation(violations.list[0]);
    } else if (!good) {
        problem = fmt::format("frame {}: can't be read", next);
    }
    for (int p = 0; problem.empty() && note.seen && p < reader::PLANES; p++) {
        const std::vector<uint8_t>& samples = decoder.planes[p].samples;
        if (MovieHasPlane(movie, p) && Checksum(samples.data(), samples.size()) != note.planes[size_t(p)])
            problem = fmt::format("frame {}, plane {}: decodes to other samples than the encoder's", next,
                                  reader::PlaneName(p));
    }
    return problem.empty();
}

// ---- The log -------------------------------------------------------------------------------------------------------

void WriteFrameLog(const std::vector<FrameNote>& notes, uint32_t target, PacketFile* movie, OutputFile* file) {
    const std::string head = "frame,key,target,bytes,sound,luma,chroma,alpha,error,seconds\n";
    file->Write(head.data(), head.size());
    for (size_t i = 0; i < notes.size(); i++) {
        const FrameNote& note = notes[i];
        reader::Movie one;
        reader::Frame frame;
        reader::Violations violations;
        if (!movie->Read(note, &one, &frame, &violations))
            throw Failure{EXIT_FAILED, fmt::format("frame {} of the movie can't be read back for the log", i)};
        const std::string line =
            fmt::format("{},{},{},{},{},{},{},{},{}\n", i, note.key ? 1 : 0, target, frame.packet.size,
                        frame.packet.size - frame.video.size, frame.luma.size, frame.chroma.size, frame.alpha.size,
                        note.seen ? fmt::format("{},{:.3f}", note.error, note.seconds) : ",");
        file->Write(line.data(), line.size());
    }
}

} // namespace vorn
