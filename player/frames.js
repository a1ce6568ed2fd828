// frames.js - the page's side of decoding: asks a worker for frames, and keeps those that are ready before they are due.

import {FrameServer} from './worker.js';

const MOST_AHEAD = 16; // frames that are ready before they are due
const MOST_AHEAD_BYTES = 1 << 26;

let workerAddress = '';

// A page of one file has all in one script, and what a worker needs of it ahead of a mark.
function startWorker() {
    const script = document.getElementById('script');
    if (script === null) return new Worker(new URL('worker.js', import.meta.url), {type: 'module'});
    if (workerAddress === '') {
        const [text] = script.textContent.split('//@PAGE');
        workerAddress = URL.createObjectURL(new Blob([text], {type: 'text/javascript'}));
    }
    return new Worker(workerAddress);
}

export class Frames {
    // Of a movie that open() has taken; its own decoder isn't used.
    constructor(movie) {
        this.movie = movie;
        this.room = Math.max(1, Math.min(MOST_AHEAD, Math.floor(MOST_AHEAD_BYTES / (movie.width * movie.height * 4))));
        this.wish = {from: 0, serial: 0, end: 0, due: 0}; // what has been asked for, see worker.js
        this.ready = []; // {frame, image}, rising
        this.problem = null; // {frame, problem, known}, of the first frame that can't be had
        this.next = -1; // the frame behind the last one that get() gave
        this.server = null; // a worker's stand-in
        try {
            this.worker = startWorker();
            this.worker.onmessage = (event) => this.take(event.data);
            this.worker.onerror = () => this.decodeHere();
            this.worker.postMessage({bytes: movie.bytes});
        } catch {
            this.decodeHere();
        }
    }
    // Where workers can't be, the page decodes between its other tasks.
    decodeHere() {
        this.close();
        this.server = new FrameServer((message) => this.take(message));
        this.server.take({bytes: this.movie.bytes, ...this.wish});
    }
    close() {
        if (this.worker) this.worker.terminate();
        this.worker = this.server = null;
    }
    send(message, transferred = []) {
        if (this.worker) this.worker.postMessage(message, transferred);
        else if (this.server !== null) this.server.take(message);
    }
    take(answer) {
        const {serial, frame, pixels} = answer;
        if (serial !== this.wish.serial) {
            if (pixels !== undefined) this.send({spare: [pixels]}, [pixels]);
        } else if (pixels === undefined) {
            this.problem = answer;
        } else {
            const image = new ImageData(new Uint8ClampedArray(pixels), this.movie.width, this.movie.height);
            this.ready.push({frame, image});
        }
    }
    giveBack({image}) {
        const pixels = image.data.buffer;
        this.send({spare: [pixels]}, [pixels]);
    }
    // The next frames that are wanted are `frame` and those behind it.
    seek(frame) {
        for (const one of this.ready) this.giveBack(one);
        this.ready = [];
        this.problem = null;
        this.next = frame;
        this.wish = {from: frame, serial: this.wish.serial + 1, end: Math.min(frame + this.room, this.movie.frames), due: frame};
        this.send(this.wish);
    }
    // Whether `frame` is there or will be without a new start.
    reaches(frame) {
        return this.next === frame || (this.ready.length > 0 && this.ready[0].frame <= frame && frame < this.wish.end);
    }
    // The latest frame up to `due` that is there, or null. To be given back once its image has been drawn.
    get(due) {
        let found = null;
        while (this.ready.length > 0 && this.ready[0].frame <= due) {
            if (found !== null) this.giveBack(found);
            found = this.ready.shift();
            this.next = found.frame + 1;
        }
        return found;
    }
    // Frames behind `shown` may be made; `due` should be there by now.
    goOn(shown, due) {
        const end = Math.min(Math.max(shown + 1, due) + this.room, this.movie.frames);
        if (end <= this.wish.end && due === this.wish.due) return;
        this.wish.end = Math.max(end, this.wish.end);
        this.wish.due = due;
        this.send({end: this.wish.end, due});
    }
}
