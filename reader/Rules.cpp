// Rules.cpp - does a movie keep the rules of its head, and does the head tell the truth about the frames?
#include "reader/Rules.h"

#include <algorithm>

namespace vorn::reader {
namespace {

constexpr uint32_t KNOWN_FLAGS = MOVIE_FLAG_GREY | MOVIE_FLAG_ALPHA | 15u << HEADER_MODE_SHIFT;

void NoteTrack(Violations* violations, Severity severity, size_t track, int64_t frame, const std::string& text) {
    Violation violation = {severity};
    violation.track = int(track);
    violation.frame = frame;
    violation.text = text;
    AddViolation(violations, violation);
}

void CheckHeader(const Movie& movie, Violations* violations) {
    const VornFileHeader& header = movie.header;
    if (header.magic != MovieMagic('i')) NoteMovie(violations, SEVERITY_HABIT, "The movie is of an older version.");
    if ((header.flags & ~KNOWN_FLAGS) != 0)
        NoteMovie(violations, SEVERITY_ERROR, "Flags that have no meaning are set.");
    // The rate needn't be in lowest terms, and the denominator may be 0: a caller's numbers can get here as they are.
    if (header.rateNumerator == 0) NoteMovie(violations, SEVERITY_ERROR, "The frame rate is 0.");
}

void CheckTrackFormats(const Movie& movie, Violations* violations) {
    for (size_t t = 0; t < movie.tracks.size(); t++) {
        const uint32_t format = movie.tracks[t].format;
        const bool low = (format & TRACK_FLAG_VARIANT_LOW) != 0, high = (format & TRACK_FLAG_VARIANT_HIGH) != 0;
        if (low == high)
            NoteTrack(violations, SEVERITY_ERROR, t, -1, "The track's format has not exactly one variant.");
        const uint32_t rate = movie.tracks[t].sampleRate;
        if (rate == 0 || rate > 65535) {
            NoteTrack(violations, SEVERITY_ERROR, t, -1, "A sample rate of " + std::to_string(rate) + " is none.");
        }
    }
}

void CheckIndex(const Movie& movie, Violations* violations) {
    const uint32_t frames = movie.header.frames;
    const size_t headBytes = movie.frameStarts[0];
    if (frames > 0) {
        if ((movie.index[0] & ~KEY_FRAME_BIT) != headBytes)
            NoteMovie(violations, SEVERITY_ERROR, "The first frame's offset isn't the end of the index.");
    } else if (!movie.options.growing && movie.index[0] != 0) {
        NoteMovie(violations, SEVERITY_ERROR, "The index of a movie without frames isn't 0.");
    }
    for (uint32_t i = 0; i <= frames; i++) {
        if ((movie.index[i] & 2) == 0) continue;
        NoteMovie(violations, SEVERITY_ERROR, "Word " + std::to_string(i) + " of the index isn't a multiple of 4.");
    }
    // While a movie grows its index may be ahead of its count.
    for (size_t i = size_t(frames) + 1; i < movie.index.size() && !movie.options.growing; i++) {
        if (movie.index[i] == 0) continue;
        NoteMovie(violations, SEVERITY_ERROR,
                  "Word " + std::to_string(i) + " of the index, behind the last frame, isn't 0.");
        break;
    }
}

void CheckSizes(const Movie& movie, Violations* violations) {
    const uint64_t end = movie.frameStarts.back();
    const uint64_t claimed = uint64_t(movie.header.fileSize) + 8;
    if (movie.options.growing) return;
    if (claimed != end) {
        NoteMovie(violations, SEVERITY_ERROR,
                  "The header tells of " + std::to_string(claimed) + " bytes, the frames end at " +
                      std::to_string(end) + ".");
    }
    if (movie.options.offset == 0 && movie.bytes.size() != end) {
        NoteMovie(violations, SEVERITY_ERROR,
                  std::to_string(movie.bytes.size() - end) + " bytes follow the last frame.");
    }
}

void CheckLargestFrame(const Movie& movie, Violations* violations) {
    uint64_t largest = 0;
    for (size_t i = 1; i < movie.frameStarts.size(); i++) {
        largest = std::max<uint64_t>(largest, movie.frameStarts[i] - movie.frameStarts[i - 1]);
    }
    const uint64_t claimed = movie.header.largestFrame;
    if (claimed == largest || (movie.options.growing && claimed > largest)) return;
    NoteMovie(violations, SEVERITY_ERROR,
              "The header's largest frame has " + std::to_string(claimed) + " bytes, the largest is of " +
                  std::to_string(largest) + ".");
}

// ---- Sound over the frames -----------------------------------------------------------------------------------------

// The packets of a track and what they add up to.
struct Tally {
    std::vector<TrackPacket> packets;
    uint64_t pcmBytes = 0;
    uint32_t largest = 0;
};

// PCM bytes in the time of so many frames, rounded down, and held to 2^63 and a little.
uint64_t BytesAtFrame(const Movie& movie, const Track& track, uint32_t frame) {
    const uint64_t numerator = movie.header.rateNumerator, denominator = movie.header.rateDenominator;
    if (numerator == 0) return 0;
    const uint64_t product = uint64_t(track.sampleRate) * track.channels * 2 * frame;
    const uint64_t most = (uint64_t(1) << 63) / std::max<uint64_t>(1, denominator);
    return std::min(product / numerator, most) * denominator + product % numerator * denominator / numerator;
}

// A track that ends with so many frames. The encoder counts in 32 bits.
uint64_t BytesOfTrack(const Movie& movie, const Track& track, uint32_t frames) {
    return uint32_t((BytesAtFrame(movie, track, frames) + 3) & ~uint64_t(3));
}

// A packet adds blocks exactly as long as the track is less than 3/4 of a second ahead of the picture, up to its end. The
// track's length goes by the frames that a made movie promised, but by those that it has in a mixed one.
void CheckPace(const Movie& movie, const Frame& frame, size_t t, uint64_t before, Violations* violations) {
    const Track& track = movie.tracks[t];
    const uint64_t lead = uint64_t(track.sampleRate) * track.channels * 2 * 3 / 4;
    const uint64_t target = BytesAtFrame(movie, track, frame.number) + lead;
    const uint64_t made = BytesOfTrack(movie, track, movie.header.indexCapacity);
    const uint64_t mixed = BytesOfTrack(movie, track, movie.header.frames);
    const uint64_t longest = std::max(made, mixed), shortest = std::min(made, mixed);
    const AudioPacket& packet = frame.audio[t];
    const uint64_t after = before + packet.pcmBytes;
    const uint32_t hop = AudioHop({track.sampleRate, track.channels, track.perChannelDct});
    if (packet.length != 0 && (before >= target || after >= target + hop)) {
        NoteTrack(violations, SEVERITY_HABIT, t, frame.number, "The packet adds sound that isn't due yet.");
    }
    if (after > longest) {
        NoteTrack(violations, SEVERITY_HABIT, t, frame.number, "The track's sound is longer than the movie.");
    } else if (after < shortest && after < target) {
        NoteTrack(violations, SEVERITY_HABIT, t, frame.number, "The track lags behind the picture.");
    }
}

void AddToTallies(const Movie& movie, const Frame& frame, const VerifyOptions& options, std::vector<Tally>* tallies,
                  Violations* violations) {
    for (size_t t = 0; t < frame.audio.size(); t++) {
        Tally& tally = (*tallies)[t];
        if (options.pacing && movie.tracks[t].usable) CheckPace(movie, frame, t, tally.pcmBytes, violations);
        tally.pcmBytes += frame.audio[t].pcmBytes;
        tally.largest = std::max(tally.largest, frame.audio[t].pcmBytes);
        if (frame.audio[t].length != 0) tally.packets.push_back({frame.number, frame.audio[t]});
    }
}

} // namespace

void AddViolation(Violations* violations, const Violation& violation) {
    (violation.severity == SEVERITY_ERROR ? violations->errors : violations->habits)++;
    // An error finds a place even when habits have filled the list.
    if (violations->list.size() < violations->room) {
        violations->list.push_back(violation);
    } else if (violation.severity == SEVERITY_ERROR && violations->errors <= violations->room) {
        violations->list.push_back(violation);
    }
}

void NoteMovie(Violations* violations, Severity severity, const std::string& text) {
    Violation violation = {severity};
    violation.text = text;
    AddViolation(violations, violation);
}

const char* PlaneName(int plane) {
    static const char* const names[PLANES] = {"Y", "Cr", "Cb", "alpha"};
    return plane >= 0 && plane < PLANES ? names[plane] : "";
}

std::string DescribeViolation(const Violation& violation) {
    std::string line = violation.severity == SEVERITY_ERROR ? "error" : "habit";
    const char* separator = ": ";
    const auto add = [&](const std::string& part) {
        line += separator + part;
        separator = ", ";
    };
    if (violation.frame >= 0) add("frame " + std::to_string(violation.frame));
    if (violation.plane != NO_PLANE) add(std::string("plane ") + PlaneName(violation.plane));
    if (violation.track >= 0) add("track " + std::to_string(violation.track));
    if (violation.column >= 0) {
        add("block " + std::to_string(violation.column) + "," + std::to_string(violation.row));
    } else if (violation.row >= 0) {
        add("block row " + std::to_string(violation.row));
    }
    if (violation.bit >= 0) add("bit " + std::to_string(violation.bit));
    return line + ": " + violation.text;
}

void CheckHead(const Movie& movie, Violations* violations) {
    CheckHeader(movie, violations);
    CheckTrackFormats(movie, violations);
    CheckIndex(movie, violations);
    CheckSizes(movie, violations);
    CheckLargestFrame(movie, violations);
}

bool VerifyMovie(const Movie& movie, const VerifyOptions& options, Violations* violations) {
    bool whole = true;
    MovieDecoder decoder;
    std::vector<Tally> tallies(movie.tracks.size());
    for (uint32_t i = 0; i < movie.header.frames; i++) {
        Frame frame;
        const bool cut = ReadFrame(movie, i, &frame, violations);
        AddToTallies(movie, frame, options, &tallies, violations);
        whole = cut && DecodeFrame(movie, frame, &decoder, violations) && whole;
    }
    for (uint32_t t = 0; t < movie.tracks.size(); t++) {
        const uint32_t claimed = movie.tracks[t].largestPcm;
        if (claimed < tallies[t].largest || (claimed > tallies[t].largest && !movie.options.growing)) {
            NoteTrack(violations, SEVERITY_ERROR, t, -1,
                      "The largest packet stands for " + std::to_string(tallies[t].largest) + " PCM bytes, not " +
                          std::to_string(claimed) + ".");
        }
        if (options.sound) whole = ReadPackets(movie, t, tallies[t].packets, nullptr, violations) && whole;
    }
    return whole;
}

} // namespace vorn::reader
