// MovieDecoder.cpp - the planes of a frame, in the order of its video packet, on the ground of the frame before.
#include <utility>

#include "reader/Reader.h"

namespace vorn::reader {
namespace {

void Complain(const Frame& frame, int plane, const std::string& text, Violations* violations) {
    Violation violation = {SEVERITY_ERROR};
    violation.frame = frame.number;
    violation.plane = plane;
    violation.text = text;
    AddViolation(violations, violation);
}

// Decodes one plane from the start of `stream` and takes its bytes off it.
bool DecodeNext(const Movie& movie, const Frame& frame, int id, Bytes* stream, MovieDecoder* decoder,
                Violations* violations) {
    DecodedPlane& reference = decoder->planes[id];
    PlaneRequest request;
    request.stream = *stream;
    PlaneSize(movie, id, &request.width, &request.height);
    const size_t samples = size_t(request.width) * request.height;
    request.reference = reference.samples.size() == samples ? reference.samples.data() : nullptr;
    request.keyFrame = frame.key;
    request.plane = id;
    request.frame = frame.number;
    DecodedPlane plane;
    const bool whole = DecodePlane(request, &plane, violations);
    reference = std::move(plane);
    const size_t used = reference.consumed < stream->size ? reference.consumed : stream->size;
    stream->data += used;
    stream->size -= used;
    return whole;
}

bool DecodeWholeStream(const Movie& movie, const Frame& frame, int id, Bytes stream, MovieDecoder* decoder,
                       Violations* violations) {
    if (!DecodeNext(movie, frame, id, &stream, decoder, violations)) return false;
    if (stream.size != 0) {
        Complain(frame, id, std::to_string(stream.size) + " bytes follow the end of the plane stream.", violations);
    }
    return true;
}

} // namespace

bool DecodeFrame(const Movie& movie, const Frame& frame, MovieDecoder* decoder, Violations* violations) {
    bool whole = true;
    if (movie.hasAlpha) whole = DecodeWholeStream(movie, frame, PLANE_ALPHA, frame.alpha, decoder, violations);
    whole = DecodeWholeStream(movie, frame, PLANE_Y, frame.luma, decoder, violations) && whole;
    if (!movie.hasChroma) return whole;
    Bytes chroma = frame.chroma;
    if (!DecodeNext(movie, frame, PLANE_CR, &chroma, decoder, violations)) return false;
    return DecodeWholeStream(movie, frame, PLANE_CB, chroma, decoder, violations) && whole;
}

} // namespace vorn::reader
