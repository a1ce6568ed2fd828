/* make_movie.c - a movie with sound, made in plain C: make_movie OUT.vrn
   A bar moves across a grey ground while a tone of 440 hertz sounds, four seconds long. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vornmake.h>

enum { WIDTH = 320, HEIGHT = 240, FRAMES = 100, RATE = 25, SAMPLES_A_SECOND = 44100 };

/* The library asks for sound as it goes along: 16-bit samples, left and right in turn. */
static uint32_t VORN_CALL ReadTone(void *record, uintptr_t user, void *buffer, uint32_t bytes) {
    uint32_t *position = (uint32_t *)user;
    int16_t *samples = (int16_t *)buffer;
    uint32_t i;
    (void)record;
    for (i = 0; i < bytes / 4; i++, (*position)++) {
        const int16_t level = (int16_t)(8000 * sin(2 * 3.14159265358979 * 440 * *position / SAMPLES_A_SECOND));
        samples[2 * i] = level;
        samples[2 * i + 1] = level;
    }
    return bytes / 4 * 4;
}

static uint32_t VORN_CALL Hear(uint32_t code, void *record, const char *text) {
    (void)record;
    if (code == VORN_MESSAGE) fprintf(stderr, "%s\n", text);
    return 0; /* anything else would stop after the frame in hand */
}

/* Bytes B, G, R, A; rows from the top. */
static void Draw(unsigned char *pixels, int frame) {
    int y;
    memset(pixels, 90, WIDTH * HEIGHT * 4);
    for (y = 60; y < 180; y++) memset(pixels + (y * WIDTH + frame * 3) * 4, 230, 20 * 4);
}

int main(int count, char **arguments) {
    uint32_t position = 0;
    TrackDescriptor track = {0, SAMPLES_A_SECOND, 16, 2, 4, 0, ReadTone};
    unsigned char *pixels = malloc(WIDTH * HEIGHT * 4);
    VornMakeState *movie;
    uint64_t bytes;
    int frame;
    if (count != 2 || pixels == NULL) {
        fprintf(stderr, "usage: make_movie OUT.vrn\n");
        return 2;
    }
    track.user = (uintptr_t)&position;
    movie = VornMake(arguments[1], WIDTH * 4, WIDTH, HEIGHT, FRAMES, 0, 0, RATE, 1, 1, &track, 16, Hear);
    if (movie == NULL) return 1;
    for (frame = 0; frame < FRAMES; frame++) {
        Draw(pixels, frame);
        VornMakePutVideo(movie, 6000, 0xffffffff, frame == 0, pixels); /* 6000 bytes a frame, the first a key frame */
    }
    bytes = VornMakeClose(movie, 0);
    free(pixels);
    printf("%s: %lu bytes\n", arguments[1], (unsigned long)bytes);
    return 0;
}
