// bits.js - bits out of a byte range, and the error that all of this ends in when they can't be read.

export class VornError extends Error {}

// The smallest number of bits that hold `number`: 0 for 0.
export const bitLength = (number) => 32 - Math.clz32(number);

// Bits of a byte range, lowest bit of each byte first.
export class Bits {
    constructor(bytes, start, end) {
        // Three bytes behind the range are looked at, never believed.
        if (end + 4 > bytes.length) {
            this.bytes = new Uint8Array(end - start + 4);
            this.bytes.set(bytes.subarray(start, end));
        } else {
            this.bytes = bytes.subarray(start, end + 4);
        }
        this.position = 0;
        this.end = (end - start) * 8;
    }
    // The next `count` bits, 0 to 24, without taking them.
    peek(count) {
        const bytes = this.bytes;
        const i = this.position >>> 3;
        const word = bytes[i] | bytes[i + 1] << 8 | bytes[i + 2] << 16 | bytes[i + 3] << 24;
        return word >>> (this.position & 7) & (1 << count) - 1;
    }
    skip(count) {
        this.position += count;
        if (this.position > this.end) {
            this.position = this.end;
            throw this.tooShort();
        }
    }
    tooShort() {
        return new VornError('the stream is too short');
    }
    take(count) {
        const value = this.peek(count);
        this.skip(count);
        return value;
    }
    takeFlag() {
        const position = this.position;
        if (position >= this.end) throw this.tooShort();
        this.position = position + 1;
        return this.bytes[position >>> 3] >>> (position & 7) & 1;
    }
    // A magnitude of `count` bits and, if it isn't 0, a sign bit, 1 for negative.
    takeSigned(count) {
        const magnitude = this.take(count);
        return magnitude !== 0 && this.takeFlag() ? -magnitude : magnitude;
    }
    // Zero bits up to the next 32-bit boundary.
    takePadding() {
        const count = -this.position & 31;
        const low = Math.min(count, 16);
        if ((this.take(low) | this.take(count - low)) !== 0) throw new VornError('the padding behind the last bit is not zero');
    }
}
