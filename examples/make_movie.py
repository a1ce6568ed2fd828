#!/usr/bin/env python3
"""A movie from Python, by ctypes alone: make_movie.py LIBVORNMAKE.so OUT.vrn"""
import ctypes
import sys

WIDTH, HEIGHT, FRAMES = 160, 120, 30
MESSAGE = 2  # VORN_MESSAGE

library = ctypes.CDLL(sys.argv[1])
PROGRESS = ctypes.CFUNCTYPE(ctypes.c_uint32, ctypes.c_uint32, ctypes.c_void_p, ctypes.c_char_p)
library.VornMake.restype = ctypes.c_void_p
library.VornMake.argtypes = [ctypes.c_char_p] + [ctypes.c_uint32] * 9 + [ctypes.c_void_p, ctypes.c_int32, PROGRESS]
library.VornMakePutVideo.restype = None
library.VornMakePutVideo.argtypes = [ctypes.c_void_p] + [ctypes.c_uint32] * 3 + [ctypes.c_char_p]
library.VornMakeClose.restype = ctypes.c_uint64
library.VornMakeClose.argtypes = [ctypes.c_void_p, ctypes.c_uint32]


@PROGRESS
def hear(code, record, text):
    if code == MESSAGE:
        print(text.decode(), file=sys.stderr)
    return 0


movie = library.VornMake(sys.argv[2].encode(), WIDTH * 4, WIDTH, HEIGHT, FRAMES, 0, 0, 25, 1, 0, None, 8, hear)
if not movie:
    sys.exit(1)
for frame in range(FRAMES):
    row = b"".join(bytes((x & 255, (x + frame * 4) & 255, 128, 255)) for x in range(WIDTH))
    library.VornMakePutVideo(movie, 1500, 0xFFFFFFFF, frame == 0, row * HEIGHT)
print(library.VornMakeClose(movie, 0), "bytes")
