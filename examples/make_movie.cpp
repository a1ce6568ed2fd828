// make_movie.cpp - a movie in C++: make_movie_cpp OUT.vrn
// The movie is closed by its owner whatever happens, and shows how far it has come.
#include <cstdio>
#include <memory>
#include <vector>

#include <vornmake.h>

namespace {

constexpr uint32_t WIDTH = 320, HEIGHT = 240, FRAMES = 50;

struct Close {
    void operator()(VornMakeState* movie) const { VornMakeClose(movie, 1); } // on the way out of a failure
};
using Movie = std::unique_ptr<VornMakeState, Close>;

uint32_t Hear(uint32_t code, void* record, const char* text) {
    if (code == VORN_MESSAGE) {
        std::fprintf(stderr, "%s\n", text);
    } else if (const auto* movie = static_cast<const VornMakeState*>(record); movie->progressFrame >= 0) {
        std::printf("frame %d of %u\n", movie->progressFrame, movie->frameCapacity);
    }
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    Movie movie(VornMake(arguments[1], WIDTH * 4, WIDTH, HEIGHT, FRAMES, 0, 0, 30000, 1001, 0, nullptr, 8, Hear));
    if (movie == nullptr) return 1;
    std::vector<uint32_t> pixels(WIDTH * HEIGHT);
    for (uint32_t frame = 0; frame < FRAMES; frame++) {
        for (uint32_t y = 0; y < HEIGHT; y++) {
            for (uint32_t x = 0; x < WIDTH; x++)
                pixels[y * WIDTH + x] = (x + 2 * frame) % 256 | y << 8 | (x ^ y) % 256 << 16 | 0xff000000u; // A R G B
        }
        VornMakePutVideo(movie.get(), 4000, UINT32_MAX, frame == 0, pixels.data());
    }
    const uint64_t bytes = VornMakeClose(movie.release(), 0);
    std::printf("%llu bytes\n", static_cast<unsigned long long>(bytes));
    return 0;
}
