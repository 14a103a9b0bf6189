// SPDX-License-Identifier: Apache-2.0
// PNG pictures as numbers.

import { inflateSync } from 'node:zlib';

/** {width, height, channels, bytes} of a PNG of 8 bits with three or four channels. */
export function readPng(file) {
    const bytes = Buffer.from(file);
    const parts = [];
    let width = 0, height = 0, channels = 0;
    for (let at = 8; at < bytes.length;) {
        const length = bytes.readUInt32BE(at), type = bytes.toString('latin1', at + 4, at + 8);
        if (type === 'IHDR') {
            width = bytes.readUInt32BE(at + 8);
            height = bytes.readUInt32BE(at + 12);
            channels = { 2: 3, 6: 4 }[bytes[at + 17]];
            if (bytes[at + 16] !== 8 || !channels)
                throw new Error('a kind of PNG that is not read here');
        } else if (type === 'IDAT') {
            parts.push(bytes.subarray(at + 8, at + 8 + length));
        }
        at += length + 12;
    }
    const raw = inflateSync(Buffer.concat(parts));
    const row = width * channels;
    const pixels = new Uint8Array(row * height);
    for (let y = 0; y < height; ++y) {
        const filter = raw[y * (row + 1)];
        for (let i = 0; i < row; ++i) {
            const left = i >= channels ? pixels[y * row + i - channels] : 0;
            const above = y > 0 ? pixels[(y - 1) * row + i] : 0;
            const corner = i >= channels && y > 0 ? pixels[(y - 1) * row + i - channels] : 0;
            const guess = left + above - corner;
            const [a, b, c] = [left, above, corner].map((value) => Math.abs(guess - value));
            const paeth = a <= b && a <= c ? left : b <= c ? above : corner;
            pixels[y * row + i] = raw[y * (row + 1) + 1 + i] +
                [0, left, above, (left + above) >> 1, paeth][filter];
        }
    }
    return { width, height, channels, bytes: pixels };
}

/** Mean difference of the colours of two pictures, 0 to 255, and the share of pixels that differ clearly. */
export function difference(first, second) {
    if (first.width !== second.width || first.height !== second.height)
        return { mean: 255, share: 1 };
    const count = first.width * first.height;
    let sum = 0, clear = 0;
    for (let i = 0; i < count; ++i) {
        let most = 0;
        for (let k = 0; k < 3; ++k) {
            const away = Math.abs(first.bytes[i * first.channels + k] - second.bytes[i * second.channels + k]);
            sum += away / 3;
            most = Math.max(most, away);
        }
        clear += most > 24;
    }
    return { mean: sum / count, share: clear / count };
}

/** How many different colours there are. */
export function colorCount({ width, height, channels, bytes }) {
    const seen = new Set();
    for (let i = 0; i < width * height; ++i)
        seen.add(bytes[i * channels] << 16 | bytes[i * channels + 1] << 8 | bytes[i * channels + 2]);
    return seen.size;
}
