// worker.js - decodes frames ahead of their time: the script of a worker, or of the page where there can be none.
//
// Takes messages, of which each field may be missing:
//   bytes        of a whole movie
//   from, serial decode from this frame on; answers bear the serial
//   end          up to this frame, which isn't decoded
//   due          frames before this one needn't be shown: few of them are turned into pixels
//   spare        ArrayBuffers of pixels that have been shown
// Answers {serial, frame, pixels}, pixels an ArrayBuffer of R, G, B, A, or {serial, frame, problem, known} where the movie
// can't be read; known is false for what isn't the movie's fault. Nothing follows on a problem until another `from`.

import {VornError} from './bits.js';
import {open} from './vorn.js';

const LEAST_SHOWN = 120; // milliseconds after which a frame is shown even though it is late

export class FrameServer {
    // answer(message, transferred) sends to the page.
    constructor(answer) {
        this.answer = answer;
        this.movie = null;
        this.next = this.end = this.due = this.serial = 0;
        this.spare = [];
        this.shownAt = 0;
        this.running = false;
        // Between two frames the messages get their turn, so that a long way to a frame can be left.
        this.turn = new MessageChannel();
        this.turn.port1.onmessage = () => {
            this.running = false;
            this.run();
        };
    }
    take(message) {
        if (message.bytes !== undefined) this.movie = open(message.bytes);
        if (message.from !== undefined) {
            this.next = message.from;
            this.serial = message.serial;
        }
        this.end = message.end ?? this.end;
        this.due = message.due ?? this.due;
        if (message.spare !== undefined) this.spare.push(...message.spare);
        this.run();
    }
    run() {
        if (this.running || this.movie === null || this.next >= this.end) return;
        try {
            this.decodeOne();
        } catch (error) {
            const known = error instanceof VornError;
            this.answer({serial: this.serial, frame: this.next, problem: error.message, known});
            this.end = this.next;
            return;
        }
        this.running = true;
        this.turn.port2.postMessage(0);
    }
    decodeOne() {
        const {movie, next} = this;
        movie.decodeFrame(movie.nextToDecode(next));
        if (movie.last !== next) return;
        this.next++;
        const now = performance.now();
        if (next < this.due && now - this.shownAt < LEAST_SHOWN) return;
        this.shownAt = now;
        const size = movie.width * movie.height * 4;
        const pixels = this.spare.pop() ?? new ArrayBuffer(size);
        movie.toRgba(movie.decodeFrame(next), new Uint8ClampedArray(pixels));
        this.answer({serial: this.serial, frame: next, pixels}, [pixels]);
    }
}

if (typeof WorkerGlobalScope !== 'undefined') {
    const server = new FrameServer((message, transferred = []) => postMessage(message, transferred));
    onmessage = (event) => server.take(event.data);
}
