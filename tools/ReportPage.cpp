// ReportPage.cpp - what is in the page? Everything goes into one file, so that it works wherever it is put: data as JSON, movie
// and pictures in base 64.
#include "tools/ReportPage.h"

#include <algorithm>
#include <string_view>

#include <nlohmann/json.hpp>

#include "tools/MovieFacts.h"

namespace vorn {

namespace {

using Json = nlohmann::ordered_json;

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

std::string Base64(const uint8_t* bytes, size_t count) {
    static const char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < count; i += 3) {
        const size_t left = count - i;
        const uint32_t three = uint32_t(bytes[i]) << 16 | (left > 1 ? uint32_t(bytes[i + 1]) << 8 : 0) |
                               (left > 2 ? uint32_t(bytes[i + 2]) : 0);
        for (int shift = 18; shift >= 0; shift -= 6) text += DIGITS[three >> shift & 63];
        if (left < 3) text.replace(text.size() - (3 - left), 3 - left, 3 - left, '=');
    }
    return text;
}

void WriteMovie(const reader::Movie& movie, OutputFile* file) {
    constexpr size_t PIECE = 49152; // bytes; a multiple of 3
    for (size_t at = 0; at < movie.bytes.size(); at += PIECE)
        Write(file, Base64(movie.bytes.data() + at, std::min(PIECE, movie.bytes.size() - at)));
}

// {"y": ..., "cr": ...} over the planes that the movie has.
template <class Value> Json ByPlane(const reader::Movie& movie, const Report& report, Value valueOf) {
    static const char* const KEYS[reader::PLANES] = {"y", "cr", "cb", "alpha"};
    Json planes = Json::object();
    for (int p = 0; p < reader::PLANES; p++)
        if (MovieHasPlane(movie, p)) planes[KEYS[p]] = valueOf(report.planes[size_t(p)]);
    return planes;
}

Json ModesOf(const ReportPlane& plane) {
    Json modes = Json::object();
    for (int mode = 0; mode < REPORT_MODES; mode++) modes[ModeName(mode)] = plane.modes[mode];
    return modes;
}

Json ErrorsOf(const ReportPlane& plane) {
    return {{"absolute", plane.absoluteError}, {"square", plane.squaredError}};
}

Json TracksOf(const reader::Movie& movie, const Report& report) {
    Json tracks = Json::array();
    for (size_t t = 0; t < movie.tracks.size(); t++) {
        const reader::Track& track = movie.tracks[t];
        tracks.push_back({{"id", track.id},
                          {"sampleRate", track.sampleRate},
                          {"channels", track.channels},
                          {"bytes", report.trackBytes[t]}});
    }
    return tracks;
}

// Sound of all tracks together, then the planes.
Json BytesOf(const reader::Movie& movie, const Report& report) {
    Json bytes = Json::object();
    std::vector<uint64_t> sound(report.keys.size(), 0);
    for (const std::vector<uint64_t>& track : report.trackBytes)
        for (size_t i = 0; i < sound.size(); i++) sound[i] += track[i];
    if (!movie.tracks.empty()) bytes["sound"] = sound;
    bytes.update(ByPlane(movie, report, [](const ReportPlane& plane) { return plane.bytes; }));
    return bytes;
}

Json PicturesOf(const Report& report) {
    Json pictures = Json::array();
    for (const ReportPicture& picture : report.pictures)
        pictures.push_back({{"frame", picture.frame}, {"png", Base64(picture.png.data(), picture.png.size())}});
    return pictures;
}

// What report.js reads.
Json DataOf(const reader::Movie& movie, const Report& report) {
    const VornFileHeader& header = movie.header;
    Json data = {{"width", header.width},
                 {"height", header.height},
                 {"rate", double(header.rateNumerator) / header.rateDenominator},
                 {"fileBytes", movie.bytes.size()},
                 {"budget", report.budget},
                 {"tracks", TracksOf(movie, report)},
                 {"key", report.keys},
                 {"bytes", BytesOf(movie, report)},
                 {"blocks", ByPlane(movie, report, [](const ReportPlane& plane) { return plane.blocks; })},
                 {"modes", ByPlane(movie, report, ModesOf)},
                 {"pictures", PicturesOf(report)}};
    if (!report.planes[reader::PLANE_Y].absoluteError.empty()) data["errors"] = ByPlane(movie, report, ErrorsOf);
    return data;
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
            Write(file, DataOf(movie, report).dump());
        else
            WriteMovie(movie, file);
        rest.remove_prefix(rest.find('@', 1) + 1);
    }
}

} // namespace vorn
