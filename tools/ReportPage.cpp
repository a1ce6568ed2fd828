// ReportPage.cpp - see ReportPage.h. Everything goes into one file, so that the page works wherever it is put: data as JSON,
// movie and pictures in base 64.
#include "tools/ReportPage.h"

#include <algorithm>
#include <string_view>

#include "format/BlockFormat.h"
#include "tools/Text.h"

namespace vorn {

namespace {

void Write(OutputFile* file, std::string_view text) {
    file->Write(text.data(), text.size());
}

std::string EscapeHtml(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '&')
            escaped += "&amp;";
        else if (c == '<')
            escaped += "&lt;";
        else if (c == '"')
            escaped += "&quot;";
        else
            escaped += c;
    }
    return escaped;
}

void WriteBase64(OutputFile* file, const uint8_t* bytes, size_t count) {
    static const char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string piece;
    for (size_t i = 0; i < count; i += 3) {
        const size_t left = count - i;
        const uint32_t three = uint32_t(bytes[i]) << 16 | (left > 1 ? uint32_t(bytes[i + 1]) << 8 : 0) |
                               (left > 2 ? uint32_t(bytes[i + 2]) : 0);
        for (int shift = 18; shift >= 0; shift -= 6) piece += DIGITS[three >> shift & 63];
        if (left < 3) piece.replace(piece.size() - (3 - left), 3 - left, 3 - left, '=');
        if (piece.size() < 65536 && left > 3) continue;
        Write(file, piece);
        piece.clear();
    }
}

template <class Number> std::string List(const std::vector<Number>& numbers) {
    std::string text = "[";
    for (const Number number : numbers) text += fmt::format("{}{}", text.size() > 1 ? "," : "", number);
    return text + "]";
}
// Six digits are more than a chart shows.
template <> std::string List(const std::vector<double>& numbers) {
    std::string text = "[";
    for (const double number : numbers) text += fmt::format("{}{:.6g}", text.size() > 1 ? "," : "", number);
    return text + "]";
}

const char* const PLANE_KEYS[reader::PLANES] = {"y", "cr", "cb", "alpha"};
const char* const MODE_KEYS[REPORT_MODES] = {"skip",  "scaled", "motion", "run",     "residue",
                                             "intra", "fill",   "inter",  "pattern", "raw"};

// "name":{"y":...,"cr":...} over the planes that the movie has.
template <class PlaneText> std::string PlaneObject(const reader::Movie& movie, PlaneText text) {
    std::string object = "{";
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        object += fmt::format("{}\"{}\":{}", object.size() > 1 ? "," : "", PLANE_KEYS[p], text(p));
    }
    return object + "}";
}

std::string ModesObject(const ReportPlane& plane) {
    std::string object = "{";
    for (int mode = 0; mode < REPORT_MODES; mode++) {
        object += fmt::format("{}\"{}\":{}", mode > 0 ? "," : "", MODE_KEYS[mode], List(plane.modes[mode]));
    }
    return object + "}";
}

std::string TracksList(const reader::Movie& movie, const Report& report) {
    std::string list = "[";
    for (size_t t = 0; t < movie.tracks.size(); t++) {
        const reader::Track& track = movie.tracks[t];
        list += fmt::format("{}{{\"id\":{},\"sampleRate\":{},\"channels\":{},\"bytes\":{}}}", t > 0 ? "," : "",
                            track.id, track.sampleRate, track.channels, List(report.trackBytes[t]));
    }
    return list + "]";
}

// Sound of all tracks together, then the planes.
std::string BytesObject(const reader::Movie& movie, const Report& report) {
    std::string object = PlaneObject(movie, [&](int p) { return List(report.planes[size_t(p)].bytes); });
    if (movie.tracks.empty()) return object;
    std::vector<uint64_t> sound(report.keys.size(), 0);
    for (const std::vector<uint64_t>& track : report.trackBytes)
        for (size_t i = 0; i < sound.size(); i++) sound[i] += track[i];
    return fmt::format("{{\"sound\":{},{}", List(sound), object.substr(1));
}

void WriteData(const reader::Movie& movie, const Report& report, OutputFile* file) {
    const VornFileHeader& header = movie.header;
    Write(file, fmt::format("{{\"width\":{},\"height\":{},\"rate\":{},\"fileBytes\":{},\"budget\":{},\"tracks\":{}",
                            header.width, header.height, double(header.rateNumerator) / header.rateDenominator,
                            movie.bytes.size(), report.budget, TracksList(movie, report)));
    const auto planeOf = [&](int p) -> const ReportPlane& { return report.planes[size_t(p)]; };
    Write(file, ",\n\"key\":" + List(report.keys) + ",\n\"bytes\":" + BytesObject(movie, report));
    Write(file, ",\n\"blocks\":" + PlaneObject(movie, [&](int p) { return fmt::to_string(planeOf(p).blocks); }));
    Write(file, ",\n\"modes\":" + PlaneObject(movie, [&](int p) { return ModesObject(planeOf(p)); }));
    if (!report.planes[reader::PLANE_Y].absoluteError.empty()) {
        Write(file, ",\n\"errors\":" + PlaneObject(movie, [&](int p) {
                        return fmt::format("{{\"absolute\":{},\"square\":{}}}", List(planeOf(p).absoluteError),
                                           List(planeOf(p).squaredError));
                    }));
    }
    Write(file, ",\n\"pictures\":[");
    for (size_t i = 0; i < report.pictures.size(); i++) {
        Write(file, fmt::format("{}{{\"frame\":{},\"png\":\"", i > 0 ? "," : "", report.pictures[i].frame));
        WriteBase64(file, report.pictures[i].png.data(), report.pictures[i].png.size());
        Write(file, "\"}");
    }
    Write(file, "]}");
}

} // namespace

void WriteReportPage(const reader::Movie& movie, const Report& report, OutputFile* file) {
    std::string_view rest = REPORT_PAGE;
    while (!rest.empty()) {
        // The markers are the only places with a capital letter between two of these signs.
        const size_t marker = std::min({rest.find("@TITLE@"), rest.find("@DATA@"), rest.find("@MOVIE@"), rest.size()});
        Write(file, rest.substr(0, marker));
        rest.remove_prefix(marker);
        if (rest.empty()) break;
        if (rest[1] == 'T')
            Write(file, EscapeHtml(report.title));
        else if (rest[1] == 'D')
            WriteData(movie, report, file);
        else
            WriteBase64(file, movie.bytes.data(), movie.bytes.size());
        rest.remove_prefix(rest.find('@', 1) + 1);
    }
}

} // namespace vorn
