/** @file
 * vornmake.h - the encoder of the Vorn movie format.
 *
 * A movie's road: VornMake opens it, VornMakePutVideo takes one frame a call, VornMakeClose finishes the file.
 * VornMix gives a finished movie other sound. Sound is not handed in: the library asks for it through a track's `read`.
 *
 * While a movie is made it lives in a file named after it with ".tmp" behind it, which is a readable movie of all frames
 * that the last flush counted. VornMakeClose puts it in the place of the final file.
 *
 * Threads: a movie belongs to the thread that calls VornMakePutVideo and VornMakeClose; its callbacks run on that thread, and
 * must not call these two for it. VornMakeFlush may come from any other thread meanwhile. Movies and mixes on different
 * threads are independent; they share the number of workers, the clock and the memory functions.
 */
#ifndef VORNMAKE_H
#define VORNMAKE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#ifdef VORNMAKE_BUILD
#define VORN_API __declspec(dllexport)
#elif defined(VORNMAKE_STATIC)
#define VORN_API
#else
#define VORN_API __declspec(dllimport)
#endif
#define VORN_CALL __cdecl
#else
#define VORN_API __attribute__((visibility("default")))
#define VORN_CALL
#endif

/** Most frames that the look-ahead queue holds. */
#define VORN_QUEUE_FRAMES 64

/* Bits of VornMakeState.flags and of the file's flags word. */
#define FLAG_GREY 0x00020000u  /**< the movie has no chroma */
#define FLAG_ALPHA 0x00100000u /**< the movie has an alpha plane */

/* Codes of ProgressCallback. */
#define VORN_PROGRESS 1 /**< text names the stage; a result other than 0 asks to stop */
#define VORN_MESSAGE 2  /**< text is a complete message for the user; the result is ignored */

/**
 * Source of a track's sound: fills `buffer` with the next PCM of the track, signed 16-bit little-endian samples, two
 * channels interleaved.
 * @param record  the VornMakeState, or in VornMix the VornMixRecord
 * @param user    the descriptor's `user`
 * @param buffer  room for the samples, valid during the call
 * @param bytes   size of that room, all of which is wanted
 * @return bytes delivered, at most `bytes`. A short result is made up with silence, and the source is asked again.
 */
typedef uint32_t(VORN_CALL *AudioReadCallback)(void *record, uintptr_t user, void *buffer, uint32_t bytes);

/**
 * Receives progress and messages.
 * @param code    VORN_PROGRESS or VORN_MESSAGE
 * @param record  the VornMakeState, in VornMix the VornMixRecord; null in messages that come before there is a record. That
 *                the temporary file of a movie can't be made comes with a record that lives during the call only: names,
 *                sizes and rate are set, every buffer is null
 * @param text    zero-terminated, valid during the call
 * @return for VORN_PROGRESS: not 0 to stop after the frame in hand
 */
typedef uint32_t(VORN_CALL *ProgressCallback)(uint32_t code, void *record, const char *text);

/**
 * One audio track, as the caller describes it. Read during VornMake; VornMix marks used ones with `sampleRate` 0.
 * A track has at most 4294967292 bytes of PCM, 6 hours and 45 minutes of 44100 Hz stereo. VornMix refuses more. In VornMake the
 * length comes round at 2^32 bytes, and the sound ends there: keep `frames` to what will be made.
 */
typedef struct TrackDescriptor {
    uint32_t id;         /**< the track's number in the file, of the caller's choosing */
    uint32_t sampleRate; /**< samples per second of one channel, 1 to 65535 */
    uint32_t bits;       /**< sample width of the origin; 16 is noted in the file. PCM is always 16 bits wide */
    uint32_t channels;   /**< 1 or 2 */
    uint32_t quality;    /**< below 100: one DCT a channel; from 100: one DFT over both. Modulo 100: 0 finest to 99 */
    uintptr_t user;      /**< given back to `read` */
    AudioReadCallback read; /**< where its sound comes from; null in VornMix only, which then drops the track */
} TrackDescriptor;

/** Bounds and four-frame history of one estimate; the estimate is sum of numerators * 256 / sum of denominators. */
typedef struct CostHistory {
    uint32_t lower;          /**< 1/256 bit */
    uint32_t upper;          /**< 1/256 bit */
    uint32_t numerator[4];   /**< bits, newest frame first */
    uint32_t denominator[4]; /**< elements plus one, newest frame first; never all 0 */
} CostHistory;

/** What one element of the bitstream costs in a plane, learned from the frames before: 83 words. */
typedef struct CostModel {
    uint32_t typeBits;         /**< 1/256 bit: one block type */
    uint32_t subTypeBits;      /**< 1/256 bit: one type of a 16x16 block */
    uint32_t colourBits;       /**< 1/256 bit: one colour value */
    uint32_t patternBits;      /**< 1/256 bit: the 8 pattern bytes of a two-colour block */
    uint32_t motionBits;       /**< 1/256 bit: a pair of x and y offsets */
    uint32_t intraDcBits;      /**< 1/256 bit: one intra DC value */
    uint32_t interDcBits;      /**< 1/256 bit: one inter DC value */
    uint32_t runBits;          /**< 1/256 bit: one run length */
    CostHistory type;          /**< of typeBits */
    CostHistory subType;       /**< of subTypeBits */
    uint32_t colourLower;      /**< bounds of colourBits, 1/256 bit */
    uint32_t colourUpper;      /**< see colourLower */
    int32_t colourFeedback;    /**< correction to the entropy estimate; during encoding, the bits of its colours */
    int32_t colourCorrection;  /**< colourBits less the raw estimate, for the current frame */
    uint32_t colourCount;      /**< colours of the frame plus one, or 1 */
    CostHistory pattern;       /**< of patternBits; counts blocks */
    CostHistory motion;        /**< of motionBits */
    CostHistory intraDc;       /**< of intraDcBits */
    CostHistory interDc;       /**< of interDcBits */
    CostHistory run;           /**< of runBits */
} CostModel;

struct SpoolFile;
struct AudioTrackState;

/**
 * A movie under construction. Callbacks may read it, and set `cancel`; everything else is the library's.
 * Planes are row-major, 8 bits a sample, rows as long as the padded width, with no gaps.
 */
typedef struct VornMakeState {
    uint32_t failed;            /**< 1 once a frame failed, or came up short in the file: the movie will be discarded */
    uint32_t frameCapacity;     /**< most frames that the movie can hold */
    uint32_t framesDone;        /**< frames complete in the file */
    uint32_t fileBytes;         /**< size of the file after the last complete frame */
    int32_t progressFrame;      /**< frame being compressed, or -1 while a stage of it is reported */
    char finalName[256];        /**< zero-terminated */
    char tempName[256];         /**< finalName with ".tmp" behind it */
    uint32_t width;             /**< pixels, not rounded */
    uint32_t height;            /**< pixels, not rounded */
    uint32_t rateNumerator;     /**< frames per second = numerator / denominator, in lowest terms */
    uint32_t rateDenominator;   /**< see rateNumerator */
    uint32_t flags;             /**< FLAG_GREY, FLAG_ALPHA */
    uint32_t *frameIndex;       /**< frameCapacity + 1 words: offset of each frame's packet, bit 0 set for key frames */
    uint32_t *frameErrors;      /**< frameCapacity + 1 words: sum of absolute differences of each frame, all planes */
    uint32_t sourcePitch;       /**< bytes from one row of the caller's pixels to the next */
    uint32_t lookAhead;         /**< frames that the queue holds, 2 to 64 */
    uint32_t lumaWidth;         /**< width and height rounded up to multiples of 8: Y and alpha planes */
    uint32_t lumaHeight;        /**< see lumaWidth */
    uint32_t chromaWidth;       /**< (width + 1) / 2 and (height + 1) / 2, rounded up likewise: Cr and Cb planes */
    uint32_t chromaHeight;      /**< see chromaWidth */
    struct AudioTrackState *tracks;/**< the audio tracks, one record each */
    uint32_t trackCount;        /**< number of audio tracks */
    uint32_t keyInterval;       /**< frames after which a key frame is forced; 0: never */
    int32_t keyCountdown;       /**< frames left until then */
    uint32_t headerMode;        /**< packedOptions modulo 100 */
    struct SpoolFile *file;     /**< the temporary file */
    uint32_t queueRate[VORN_QUEUE_FRAMES]; /**< bytes: target size of each queued frame, sound and picture */
    uint32_t queueCap[VORN_QUEUE_FRAMES];  /**< bytes: upper limit of each queued frame's picture budget */
    uint32_t queueKey[VORN_QUEUE_FRAMES];  /**< not 0 for a key frame */
    uint32_t *nextRate;         /**< where the next frame's entries go */
    uint32_t *nextCap;          /**< see nextRate */
    int32_t rateCarry;          /**< bytes saved against the targets so far (positive), or overspent (negative) */
    uint32_t *nextKey;          /**< see nextRate */
    uint32_t queueCount;        /**< frames in the queue */
    uint8_t *queueY[VORN_QUEUE_FRAMES]; /**< planes of the queued frames, oldest first; the first lookAhead are set */
    uint8_t *queueCr[VORN_QUEUE_FRAMES];/**< see queueY */
    uint8_t *queueCb[VORN_QUEUE_FRAMES];/**< see queueY */
    uint8_t *queueAlpha[VORN_QUEUE_FRAMES];/**< see queueY */
    uint8_t *previousY;         /**< source planes of the frame compressed last */
    uint8_t *previousCr;        /**< see previousY */
    uint8_t *previousCb;        /**< see previousY */
    uint8_t *previousAlpha;     /**< see previousY */
    uint32_t referenceSelect;   /**< 0 or 1: which of each pair below a decoder now shows */
    uint8_t *referenceY[2];     /**< planes as a decoder shows them */
    uint8_t *referenceCr[2];    /**< see referenceY */
    uint8_t *referenceCb[2];    /**< see referenceY */
    uint8_t *referenceAlpha[2]; /**< see referenceY */
    uint8_t *packetY;           /**< coded planes of the frame compressed last */
    uint8_t *packetCr;          /**< see packetY */
    uint8_t *packetCb;          /**< see packetY */
    uint8_t *packetAlpha;       /**< see packetY */
    uint32_t largestFrame;      /**< bytes of the largest frame so far, sound included */
    uint32_t cancel;            /**< 0 running; 1 stop after the frame in hand; 2, set by a callback only: give up */
    CostModel costY;            /**< what the bitstream of Y costs */
    CostModel costCr;           /**< the same of Cr */
    CostModel costCb;           /**< the same of Cb */
    CostModel costAlpha;        /**< the same of alpha */
    ProgressCallback progressCallback;/**< receives progress and messages, or null */
    uint32_t nextFlushBytes;    /**< file size that triggers the next periodic flush */
    uint32_t nextFlushTime;     /**< timer value that triggers it, milliseconds */
    uint32_t fileHold;          /**< threads that use the file's position or contents */
    uint32_t headLock;          /**< threads that rewrite the head, or look whether they may */
} VornMakeState;

/** What the callbacks of VornMix see. */
typedef struct VornMixRecord {
    uint32_t frame;             /**< frame being written */
    uint32_t outputPosition;    /**< where it starts in the output */
    uint32_t inputSize;         /**< bytes of the input file */
    uint32_t width;             /**< pixels */
    uint32_t height;            /**< pixels */
    struct AudioTrackState *firstTrack; /**< first track that this mix changes; null until the list is built */
    uint32_t frames;            /**< frames in the movie */
    uint32_t rateNumerator;     /**< the rate in force */
    uint32_t rateDenominator;   /**< see rateNumerator */
} VornMixRecord;

/**
 * Opens a movie under construction and creates its temporary file.
 * @param fileName       final name of the movie, 1 to 123 bytes; copied
 * @param sourcePitch    bytes from one row of the caller's pixels to the next
 * @param width          pixels, 1 to 4032
 * @param height         pixels, from 1; the movie's memory must stay below 4 GiB
 * @param frames         most frames that the movie can hold; also fixes the length of its sound
 * @param keyInterval    frames after which a key frame is forced, or 0 for none but the caller's
 * @param packedOptions  decimal digits: header mode (0 to 99) + 100 for grey + 1000 for alpha
 * @param rateNumerator  frames per second is numerator / denominator; from 1
 * @param rateDenominator  see above. 0 is taken: frames then last no time, and there is no sound
 * @param trackCount     number of audio tracks
 * @param tracks         `trackCount` descriptors, copied; not read if there are none
 * @param lookAhead      frames to look ahead when bytes are shared out; held to 2..64
 * @param callback       progress and messages, or null
 * @return the movie, owned by the library until VornMakeClose; null after a VORN_MESSAGE that says why, with no file left
 */
VORN_API VornMakeState *VORN_CALL VornMake(const char *fileName, uint32_t sourcePitch, uint32_t width, uint32_t height,
                                           uint32_t frames, uint32_t keyInterval, uint32_t packedOptions,
                                           uint32_t rateNumerator, uint32_t rateDenominator, uint32_t trackCount,
                                           const TrackDescriptor *tracks, int32_t lookAhead, ProgressCallback callback);

/**
 * Takes the next frame. Compresses one when the queue is full, and all that is left with the last of `frames`.
 * Ignored once the movie is full or cancelled, when a frame could not be compressed, for a null state or null pixels, and in
 * a callback of this movie.
 * @param state   the movie; one call at a time
 * @param rate    bytes: target size of this frame in the file, sound and picture
 * @param cap     bytes: upper limit of its picture; 0xffffffff for none
 * @param key     not 0 makes it a key frame. Frame 0 should be one
 * @param pixels  `height` rows `sourcePitch` bytes apart, top row first, 4 bytes B, G, R, A a pixel; read during the call
 */
VORN_API void VORN_CALL VornMakePutVideo(VornMakeState *state, uint32_t rate, uint32_t cap, uint32_t key,
                                         const void *pixels);

/**
 * Hands everything to the system, so that the temporary file can be read up to the last complete frame, even if the
 * process is killed afterwards.
 * May be called from any thread between VornMake and VornMakeClose, callbacks included.
 * @param state  the movie; null is ignored
 * @return 1 if it was done; 0 if the file was busy for 250 ms or lacks something that couldn't be written, and for a null
 *         state
 */
VORN_API uint32_t VORN_CALL VornMakeFlush(VornMakeState *state);

/**
 * Ends the movie: compresses what is queued, finishes the file and gives it its final name. The state is gone afterwards.
 * A VORN_MESSAGE tells when the movie couldn't be written whole or couldn't have its final name, and stays under tempName.
 * A movie that failed is discarded without one, even if it failed during this call; then the final file isn't there, or still
 * the older one.
 * @param state  the movie; null is ignored
 * @param abort  not 0 discards the movie and leaves an existing final file alone
 * @return size of the file in bytes, also when the movie was discarded; 0 for a null state, and in a callback of this movie,
 *         where it does nothing
 */
VORN_API uint64_t VORN_CALL VornMakeClose(VornMakeState *state, uint32_t abort);

/**
 * Sets how many threads compress, for all movies of the process.
 * @param limit  1 to 32; any other value only reads
 * @return the number before the call; the machine's processor count (at most 32) to begin with
 */
VORN_API uint32_t VORN_CALL VornMakeSetMaxCPUs(uint32_t limit);

/**
 * Writes a finished movie anew with other sound; the picture stays byte for byte. Input and output may be one file.
 * @param inputName      name of the file that holds the movie, 1 to 127 bytes
 * @param outputName     name of the file to make or replace, 1 to 123 bytes
 * @param movieOffset    byte at which the movie starts in the input
 * @param rateNumerator  new frame rate, if this and the next are both not 0
 * @param rateDenominator  see above
 * @param audioShift     delay of new sound: above 0 in frames, with 1 meaning none; below 0 in milliseconds; 0 none
 * @param trackCount     number of descriptors; 0 does nothing
 * @param tracks         replace (same `id`), drop (same `id`, null `read`) or add a track; used ones get `sampleRate` 0, and
 *                       one with a `read` that has 0 already counts as used
 * @param callback       progress (text "", one call a frame) and messages, or null
 * @return size of the new movie in bytes; 0 after a VORN_MESSAGE that says why there is none, and if `trackCount` is 0. The
 *         size also comes back if the movie had to stay under outputName with ".tmp" behind it, because the older file can't
 *         go (with a VORN_MESSAGE) or the new one can't be renamed. A cancelled mix returns the size so far and leaves no file
 */
VORN_API uint32_t VORN_CALL VornMix(const char *inputName, const char *outputName, uint32_t movieOffset,
                                    uint32_t rateNumerator, uint32_t rateDenominator, int32_t audioShift,
                                    uint32_t trackCount, TrackDescriptor *tracks, ProgressCallback callback);

/** Allocator of raw memory: returns a block of `bytes` bytes, null to leave it to the heap, or all ones to fail. */
typedef void *(VORN_CALL *MokAllocator)(uint32_t bytes);
/** Releases a block that the allocator set at the same time gave. */
typedef void(VORN_CALL *MokReleaser)(void *block);

/**
 * Routes the library's memory to the caller's functions; null for both returns to the heap.
 * Blocks made before go back to the releaser that was in force when they were made.
 * @param allocator  gives raw memory, or null
 * @param releaser   takes it back, or null
 */
VORN_API void VORN_CALL MOKSetMemory(MokAllocator allocator, MokReleaser releaser);

/**
 * Takes a block of the library's memory.
 * @param size  bytes
 * @return `size` bytes aligned to 32 and not cleared, to be given back to mokfree; null for 0, all ones or no memory
 */
VORN_API void *VORN_CALL mokmalloc(uint32_t size);

/**
 * Releases a block of mokmalloc.
 * @param block  the block; null does nothing
 */
VORN_API void VORN_CALL mokfree(void *block);

/**
 * @return milliseconds since the first call, on a clock that never goes back; where the system has no high-resolution
 *         counter, its coarse clock as it stands. Wraps at 32 bits
 */
VORN_API uint32_t VORN_CALL MOKTimerRead(void);

#ifdef __cplusplus
}
#endif

#endif
