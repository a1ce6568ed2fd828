// InfoJson.cpp - the facts of a movie as JSON.
#include <cstdio>

#include <nlohmann/json.hpp>

#include "format/BlockFormat.h"
#include "tools/MovieFacts.h"

namespace vorn {

using Json = nlohmann::ordered_json;

namespace {

// {"8x8": {"skip": 12, ...}, "16x16": {...}}, without modes that don't occur.
Json BlocksToJson(const BlockFacts& blocks) {
    Json json = {{"8x8", Json::object()}, {"16x16", Json::object()}};
    for (int mode = 0; mode < 16; mode++) {
        if (blocks.modes[mode] != 0) json["8x8"][ModeName(mode)] = blocks.modes[mode];
        if (blocks.highModes[mode] != 0) json["16x16"][ModeName(mode)] = blocks.highModes[mode];
    }
    return json;
}

Json HeadToJson(const reader::Movie& movie, const MovieFacts& facts) {
    const VornFileHeader& header = movie.header;
    return {{"file", facts.name},
            {"bytes", movie.bytes.size()},
            {"version", std::string(1, static_cast<char>(header.magic >> 24))},
            {"width", header.width},
            {"height", header.height},
            {"colour", movie.hasChroma},
            {"alpha", movie.hasAlpha},
            {"rate", {header.rateNumerator, header.rateDenominator}},
            {"frames", header.frames},
            {"room", header.indexCapacity},
            {"seconds", facts.seconds},
            {"kbitPerSecond", KiloBits(facts.bytes, facts.seconds)},
            {"smallestFrame", facts.smallest},
            {"largestFrame", facts.largest},
            {"keyFrames", facts.keys}};
}

Json PlanesToJson(const reader::Movie& movie, const MovieFacts& facts, bool blocks) {
    Json planes = Json::object();
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        const PlaneFacts& plane = facts.planes[p];
        Json json = {{"bytes", plane.bytes}, {"kbitPerSecond", KiloBits(plane.bytes, facts.seconds)}};
        if (blocks) json["blocks"] = BlocksToJson(plane.blocks);
        planes[reader::PlaneName(p)] = json;
    }
    return planes;
}

Json TracksToJson(const reader::Movie& movie, const MovieFacts& facts) {
    Json tracks = Json::array();
    for (size_t t = 0; t < movie.tracks.size(); t++) {
        const reader::Track& track = movie.tracks[t];
        tracks.push_back({{"id", track.id},
                          {"sampleRate", track.sampleRate},
                          {"channels", track.channels},
                          {"transform", track.perChannelDct ? "DCT" : "DFT"},
                          {"seconds", facts.tracks[t].seconds},
                          {"bytes", facts.tracks[t].bytes},
                          {"kbitPerSecond", KiloBits(facts.tracks[t].bytes, facts.seconds)}});
    }
    return tracks;
}

Json FrameToJson(const reader::Movie& movie, const FrameFacts& frame, size_t number, bool blocks) {
    Json json = {{"frame", number}, {"key", frame.key}, {"offset", frame.offset}, {"bytes", frame.bytes}};
    Json planes = Json::object();
    Json coded = Json::object();
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        planes[reader::PlaneName(p)] = frame.planes[p].bytes;
        coded[reader::PlaneName(p)] = BlocksToJson(frame.planes[p].blocks);
    }
    json["planes"] = planes;
    json["tracks"] = frame.tracks;
    if (blocks) json["blocks"] = coded;
    return json;
}

} // namespace

void PrintFactsAsJson(const reader::Movie& movie, const MovieFacts& facts, bool frames, bool blocks) {
    Json json = HeadToJson(movie, facts);
    json["planes"] = PlanesToJson(movie, facts, blocks);
    json["tracks"] = TracksToJson(movie, facts);
    if (frames) {
        json["frameList"] = Json::array();
        for (size_t i = 0; i < facts.frames.size(); i++)
            json["frameList"].push_back(FrameToJson(movie, facts.frames[i], i, blocks));
    }
    // A name need not be UTF-8.
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
}

} // namespace vorn
