// Mix.cpp - VornMix: a finished movie written anew with other sound, its picture untouched.
// The new movie grows under a temporary name and takes the output's place only when it is whole and on disk.
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "files/Memory.h"
#include "mixing/MixInternal.h"
#include "platform/Workers.h"

namespace vorn {

void ReportMix(Mix* mix, const char* format, ...) {
    if (mix->callback == nullptr) return;
    char text[512];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    mix->callback(VORN_MESSAGE, &mix->record, text);
}

bool ReportWriteFailure(Mix* mix) {
    ReportMix(mix, "Couldn't write '%s'. The drive may be full (out of disk space).", mix->tempName);
    return false;
}

bool ReadWords(SpoolFile* file, uint32_t* words, uint32_t count) {
    const uint32_t bytes = count * 4;
    if (SpoolRead(file, words, bytes) != bytes) return false;
    for (uint32_t i = 0; i < count; i++) {
        uint8_t raw[4];
        std::memcpy(raw, words + i, 4);
        words[i] = raw[0] | uint32_t{raw[1]} << 8 | uint32_t{raw[2]} << 16 | uint32_t{raw[3]} << 24;
    }
    return true;
}

namespace {

constexpr char DAMAGED[] = "Input Vorn file is damaged: ";

bool CheckName(Mix* mix, const char* name, const char* which, uint32_t longest) {
    const size_t length = name == nullptr ? 0 : std::strlen(name);
    if (length >= 1 && length <= longest) return true;
    if (name == nullptr)
        ReportMix(mix, "The %s file's name is missing; a name of 1 to %u bytes is accepted.", which, longest);
    else
        ReportMix(mix, "The %s file's name has %" PRIu64 " bytes; 1 to %u are accepted.", which, uint64_t{length},
                  longest);
    return false;
}

// Also forms the temporary name.
bool CheckArguments(Mix* mix) {
    if (!CheckName(mix, mix->inputName, "input", LONGEST_INPUT_NAME)) return false;
    if (!CheckName(mix, mix->outputName, "output", LONGEST_OUTPUT_NAME)) return false;
    std::snprintf(mix->tempName, sizeof mix->tempName, "%s.tmp", mix->outputName);
    if (mix->descriptors == nullptr) {
        ReportMix(mix, "The track descriptors are missing, though there should be %u.", mix->descriptorCount);
        return false;
    }
    for (uint32_t i = 0; i < mix->descriptorCount; i++) {
        const TrackDescriptor& descriptor = mix->descriptors[i];
        if (descriptor.read == nullptr || descriptor.sampleRate == 0) continue; // drops, or is marked as used
        const TrackProblem problem = CheckTrack(descriptor, i, false);
        if (problem.text[0] == 0) continue;
        ReportMix(mix, "%s", problem.text);
        return false;
    }
    return true;
}

bool RefuseInput(Mix* mix) {
    ReportMix(mix, "Couldn't open input Vorn file.");
    return false;
}

bool OpenInput(Mix* mix) {
    mix->input = SpoolOpen(MIX_BUFFER_BYTES, mix->inputName);
    if (mix->input == nullptr) return RefuseInput(mix);
    const uint64_t size = SpoolSize(mix->input);
    if (mix->input->incomplete != 0) return RefuseInput(mix); // its size can't be told: nothing of it can be checked
    mix->movieBytes = size > mix->movieOffset ? size - mix->movieOffset : 0;
    SpoolSeek(mix->input, mix->movieOffset);
    uint32_t magic = 0;
    if (!ReadWords(mix->input, &magic, 1) || !IsMovieMagic(magic)) {
        ReportMix(mix, "Input file isn't a Vorn file.");
        return false;
    }
    SpoolSeek(mix->input, mix->movieOffset);
    if (!ReadFileHeader(mix->input, &mix->header)) {
        ReportMix(mix, "%sits header is cut short, with %" PRIu64 " of its %u bytes.", DAMAGED, mix->movieBytes,
                  HEADER_BYTES);
        return false;
    }
    return true;
}

// Bytes of a movie's head.
uint64_t HeadBytes(uint32_t trackCount, uint32_t indexCapacity) {
    return HEADER_BYTES + uint64_t{12} * trackCount + uint64_t{4} * indexCapacity + 4;
}

// Follows the index without keeping it: it has to rise, and to end inside the file. Finds `largestPacket`.
// Leaves the input behind the header, where the track tables begin.
bool CheckIndex(Mix* mix) {
    const VornFileHeader& header = mix->header;
    const uint64_t tables = uint64_t{mix->movieOffset} + HEADER_BYTES;
    const uint64_t room = mix->movieBytes - HeadBytes(header.trackCount, header.indexCapacity);
    SpoolSeek(mix->input, tables + uint64_t{12} * header.trackCount);
    uint32_t first = 0, from = 0;
    for (uint64_t i = 0; i <= header.frames; i++) {
        uint32_t to = 0;
        if (!ReadWords(mix->input, &to, 1)) {
            ReportMix(mix, "%sits frame index is cut short.", DAMAGED);
            return false;
        }
        to &= ~KEY_FRAME_BIT;
        if (i == 0) first = from = to;
        if (i > 0 && to <= from) {
            ReportMix(mix,
                      "%sby its index frame %" PRIu64
                      " starts at %u and ends at %u; an end above the start is accepted.",
                      DAMAGED, i - 1, from, to);
            return false;
        }
        if (to - first > room) {
            ReportMix(mix,
                      "%sby its index the first %" PRIu64 " frames have %u bytes; the file has room for %" PRIu64 ".",
                      DAMAGED, i, to - first, room);
            return false;
        }
        if (to - from > mix->largestPacket) mix->largestPacket = to - from;
        from = to;
    }
    SpoolSeek(mix->input, tables);
    return mix->input->incomplete == 0 || RefuseInput(mix); // a seek failed: what was read lay somewhere else
}

bool CheckHead(Mix* mix) {
    const VornFileHeader& header = mix->header;
    if (HeadBytes(header.trackCount, 0) > mix->movieBytes) {
        const uint64_t most = mix->movieBytes < HeadBytes(0, 0) ? 0 : (mix->movieBytes - HeadBytes(0, 0)) / 12;
        ReportMix(mix, "%sits header gives %u audio tracks; a file of its size holds at most %" PRIu64 ".", DAMAGED,
                  header.trackCount, most);
        return false;
    }
    if (HeadBytes(header.trackCount, header.indexCapacity) > mix->movieBytes) {
        ReportMix(mix, "%sits header gives an index capacity of %u; a file of its size holds at most %" PRIu64 ".",
                  DAMAGED, header.indexCapacity, (mix->movieBytes - HeadBytes(header.trackCount, 0)) / 4);
        return false;
    }
    if (header.frames > header.indexCapacity) {
        ReportMix(mix, "%sits header gives %u frames; at most its index capacity, %u, is accepted.", DAMAGED,
                  header.frames, header.indexCapacity);
        return false;
    }
    if (header.rateNumerator == 0) {
        ReportMix(mix, "%sits header gives a frame rate of 0/%u; a numerator of 1 to 4294967295 is accepted.", DAMAGED,
                  header.rateDenominator);
        return false;
    }
    return CheckIndex(mix);
}

bool CreateOutput(Mix* mix) {
    // An input of the temporary name would be emptied before it is read.
    if (std::strcmp(mix->inputName, mix->tempName) != 0)
        mix->output = SpoolCreate(MIX_BUFFER_BYTES, mix->tempName, false);
    if (mix->output == nullptr) {
        ReportMix(mix, "Couldn't create temporary file.\n\nSome possible reasons for this error include:\n"
                       "  1) mixing to a read-only drive (like a CD-ROM),\n"
                       "  2) mixing to a drive that is full (out of disk space), or\n"
                       "  3) mixing multiple files to the same Vorn output filename.");
        return false;
    }
    mix->outputMade = true;
    return true;
}

void FillRecord(Mix* mix) {
    VornMixRecord& record = mix->record;
    record.inputSize = static_cast<uint32_t>(SpoolSize(mix->input));
    record.width = mix->header.width;
    record.height = mix->header.height;
    record.frames = mix->header.frames;
    record.rateNumerator = mix->header.rateNumerator;
    record.rateDenominator = mix->header.rateDenominator;
}

// One block for everything whose size depends on the movie.
bool AllocateMix(Mix* mix) {
    const uint64_t tableBytes = uint64_t{mix->header.trackCount} * 4;
    const uint64_t listBytes = (uint64_t{mix->header.trackCount} + mix->descriptorCount) * sizeof(MixTrack);
    const uint64_t indexBytes = (uint64_t{mix->header.indexCapacity} + 1) * 4;
    PlanBuffer(&mix->packet, mix->largestPacket);
    PlanBuffer(&mix->tracks, listBytes);
    PlanBuffer(&mix->inputIndex, indexBytes);
    PlanBuffer(&mix->outputIndex, indexBytes);
    PlanBuffer(&mix->largestPcm, tableBytes);
    PlanBuffer(&mix->formats, tableBytes);
    PlanBuffer(&mix->ids, tableBytes);
    mix->block = AllocatePlan(0);
    if (mix->block == nullptr) {
        ReportMix(mix, "Out of memory!");
        return false;
    }
    std::memset(mix->tracks, 0, static_cast<size_t>(listBytes));
    std::memset(mix->outputIndex, 0, static_cast<size_t>(indexBytes));
    return true;
}

bool ReadHead(Mix* mix) {
    const uint32_t tracks = mix->header.trackCount;
    if (ReadWords(mix->input, mix->largestPcm, tracks) && ReadWords(mix->input, mix->formats, tracks) &&
        ReadWords(mix->input, mix->ids, tracks) &&
        ReadWords(mix->input, mix->inputIndex, mix->header.indexCapacity + 1))
        return true;
    ReportMix(mix, "%sit ends inside its head.", DAMAGED);
    return false;
}

// Reserves the new head. Without its magic nobody takes the file for a movie until the mix is over.
void WritePlaceholders(Mix* mix) {
    VornFileHeader header = mix->header;
    header.magic = 0;
    header.largestFrame = 0;
    WriteFileHeader(mix->output, header);
    WriteZeroWords(mix->output, uint64_t{3} * mix->outputTracks + mix->header.indexCapacity + 1);
    mix->outputEnd = SpoolTell(mix->output);
}

void WriteTrackTable(Mix* mix, uint32_t AudioTrackState::*field) {
    for (uint32_t i = 0; i < mix->listCount; i++) {
        const MixTrack& entry = mix->tracks[i];
        if (entry.action != MixAction::DROP) SpoolWriteWord(mix->output, entry.state.*field);
    }
}

void WriteHead(Mix* mix) {
    VornFileHeader header = mix->header;
    header.fileSize = static_cast<uint32_t>(mix->outputEnd) - 8;
    header.largestFrame = mix->largestFrame;
    header.trackCount = mix->outputTracks;
    WriteFileHeader(mix->output, header);
    WriteTrackTable(mix, &AudioTrackState::largestPcm);
    WriteTrackTable(mix, &AudioTrackState::format);
    WriteTrackTable(mix, &AudioTrackState::id);
    for (uint64_t i = 0; i <= header.indexCapacity; i++) SpoolWriteWord(mix->output, mix->outputIndex[i]);
}

// Whether all of the output is on disk, its head included. Nothing short of that may replace an older movie.
bool OutputStands(Mix* mix) {
    SpoolSeek(mix->output, 0);
    WriteHead(mix);
    return SpoolFinish(mix->output);
}

bool FinishOutput(Mix* mix) {
    SpoolClose(mix->input);
    mix->input = nullptr;
    if (mix->cancelled) return true; // the output is deleted with the rest of the mix
    if (!OutputStands(mix)) return ReportWriteFailure(mix);
    SpoolClose(mix->output);
    mix->output = nullptr;
    mix->outputMade = false;
    if (DeleteNamedFile(mix->outputName) == NameResult::FAILED) {
        ReportMix(mix, "Vorn couldn't overwrite, '%s', so the new Vorn file is called: '%s'.", mix->outputName,
                  mix->tempName);
        return true;
    }
    RenameNamedFile(mix->outputName, mix->tempName);
    SyncFolderOf(mix->outputName);
    return true;
}

// Releases what a mix holds and deletes an output that hasn't become a movie.
void DiscardMix(Mix* mix) {
    SpoolClose(mix->input);
    SpoolClose(mix->output);
    if (mix->outputMade) DeleteNamedFile(mix->tempName);
    FreeEncoders(mix);
    mokfree(mix->block);
}

bool RunMix(Mix* mix, uint32_t rateNumerator, uint32_t rateDenominator) {
    if (!CheckArguments(mix) || !OpenInput(mix)) return false;
    if (rateNumerator != 0 && rateDenominator != 0) {
        mix->header.rateNumerator = rateNumerator;
        mix->header.rateDenominator = rateDenominator;
    }
    if (!CheckHead(mix) || !CreateOutput(mix)) return false;
    FillRecord(mix);
    if (!AllocateMix(mix) || !ReadHead(mix) || !BuildTrackList(mix)) return false;
    WritePlaceholders(mix);
    return WalkFrames(mix) && FinishOutput(mix);
}

} // namespace

} // namespace vorn

uint32_t VORN_CALL VornMix(const char* inputName, const char* outputName, uint32_t movieOffset, uint32_t rateNumerator,
                           uint32_t rateDenominator, int32_t audioShift, uint32_t trackCount, TrackDescriptor* tracks,
                           ProgressCallback callback) {
    if (trackCount == 0) return 0;
    vorn::QueryProcessors();
    vorn::Mix mix{};
    mix.inputName = inputName;
    mix.outputName = outputName;
    mix.movieOffset = movieOffset;
    mix.audioShift = audioShift;
    mix.descriptorCount = trackCount;
    mix.descriptors = tracks;
    mix.callback = callback;
    const bool done = vorn::RunMix(&mix, rateNumerator, rateDenominator);
    vorn::DiscardMix(&mix);
    return done ? static_cast<uint32_t>(mix.outputEnd) : 0;
}
