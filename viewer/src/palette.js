// SPDX-License-Identifier: Apache-2.0
// Colour scales of the shadings by number, from low to high. Both get steadily darker or lighter, so that they
// also read in grey and with weak colour sight.

export const densityStops = [
    '#440154', '#482878', '#3e4989', '#31688e', '#26828e', '#1f9e89', '#35b779', '#6ece58', '#b5de2b', '#fde725',
];
export const distanceStops = ['#f3efe3', '#f6d896', '#f0a95b', '#dc7043', '#ad3d4c', '#6c2250', '#2f1238'];

export function cssGradient(stops) {
    return `linear-gradient(to right, ${stops.join(', ')})`;
}

/** 256 colours between the stops, 4 bytes each. */
export function rampBytes(stops) {
    const parts = stops.map((text) => [1, 3, 5].map((at) => parseInt(text.slice(at, at + 2), 16)));
    const bytes = new Uint8Array(256 * 4);
    for (let i = 0; i < 256; ++i) {
        const place = (i / 255) * (parts.length - 1);
        const below = Math.min(Math.floor(place), parts.length - 2);
        for (let k = 0; k < 3; ++k)
            bytes[4 * i + k] = Math.round(
                parts[below][k] + (parts[below + 1][k] - parts[below][k]) * (place - below));
        bytes[4 * i + 3] = 255;
    }
    return bytes;
}
