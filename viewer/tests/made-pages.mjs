// SPDX-License-Identifier: Apache-2.0
// Pages with scenes made here, apart from the writer: what the page is to show is known exactly.

import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { MeshoptEncoder } from 'meshoptimizer/encoder';

export const builtPage = fileURLToPath(new URL('../built/viewer.html', import.meta.url));

function packedNormal([x, y, z]) {
    const sum = Math.abs(x) + Math.abs(y) + Math.abs(z) || 1;
    let u = x / sum, v = y / sum;
    if (z < 0)
        [u, v] = [(1 - Math.abs(v)) * (u < 0 ? -1 : 1), (1 - Math.abs(u)) * (v < 0 ? -1 : 1)];
    return (Math.round(127 * u) + 127) + 256 * (Math.round(127 * v) + 127);
}

/**
 * A page with a mesh: positions, normals and triangles in flat arrays; values(vertex) gives density, distance and
 * light from 0 to 255, colors(vertex) three bytes. What `more` holds goes into the description as it is.
 */
export async function pageOf({ positions, normals, triangles, values, colors, samples }, more = {}) {
    await MeshoptEncoder.ready;
    const count = positions.length / 3;
    const low = [0, 1, 2].map((k) => positions.filter((_, i) => i % 3 === k).reduce((a, b) => Math.min(a, b), Infinity));
    const reach = positions.reduce((most, value, i) => Math.max(most, value - low[i % 3]), 0);
    const step = reach / 65535 || 1;
    const numbersOf = (places, i) => [0, 1, 2].map((k) => Math.round((places[3 * i + k] - low[k]) / step));
    const blocks = {};
    const encode = (id, bytes, size) => {
        const encoded = size
            ? MeshoptEncoder.encodeVertexBuffer(bytes, bytes.length / size, size)
            : MeshoptEncoder.encodeIndexBuffer(bytes, bytes.length / 4, 4);
        blocks[id] = Buffer.from(encoded).toString('base64');
    };
    const placeStream = (places, normalOf) => {
        const words = new Uint16Array(4 * (places.length / 3));
        for (let i = 0; i < places.length / 3; ++i)
            words.set([...numbersOf(places, i), normalOf(i)], 4 * i);
        return new Uint8Array(words.buffer);
    };
    const byteStream = (number, of) => {
        const bytes = new Uint8Array(4 * number);
        for (let i = 0; i < number; ++i)
            bytes.set(of(i), 4 * i);
        return bytes;
    };
    if (count > 0) {
        encode('places', placeStream(positions, (i) => packedNormal(normals.slice(3 * i, 3 * i + 3))), 8);
        encode('triangles', new Uint8Array(Uint32Array.from(triangles).buffer));
        if (values)
            encode('values', byteStream(count, values), 4);
        if (colors)
            encode('colors', byteStream(count, colors), 4);
        if (samples)
            encode('sample-places', placeStream(samples, () => 0), 8);
    }
    const scene = {
        title: 'Test', subtitle: `${triangles.length / 3} triangles`, notes: [], report: [], origin: [0, 0, 0],
        low: count > 0 ? low : [0, 0, 0], step, vertexCount: count, triangleCount: triangles.length / 3,
        isClosed: false, hasColors: Boolean(colors), hasLight: Boolean(values),
        density: values ? { low: 10, high: 250, lowIsLess: true, highIsMore: true } : null,
        distance: values ? { low: 0, high: 0.02, lowIsLess: false, highIsMore: true } : null,
        samples: samples ? { count: samples.length / 3, of: samples.length / 3, hasColors: false,
            low, step } : null,
        ...more,
    };
    const json = JSON.stringify(scene).replaceAll('<', '\\u003c');
    const data = Object.entries(blocks).map(([id, text]) =>
        `<script type="application/octet-stream;base64" id="${id}">${text}</script>`);
    return readFileSync(builtPage, 'utf8').replace('<!--scene-->', () =>
        [`<script type="application/json" id="scene">${json}</script>`, ...data].join('\n'));
}

/** A torus around the z axis, with bumps; `rows` times `rows` quads. */
export function torus(rows, bumps = 0) {
    const positions = [], normals = [], triangles = [];
    const place = (u, v) => {
        const r = 0.42 * (1 + bumps * Math.sin(9 * u) * Math.sin(5 * v));
        return [(1 + r * Math.cos(v)) * Math.cos(u), (1 + r * Math.cos(v)) * Math.sin(u), r * Math.sin(v)];
    };
    const minus = (a, b) => a.map((value, k) => value - b[k]);
    for (let i = 0; i < rows; ++i)
        for (let j = 0; j < rows; ++j) {
            const u = (2 * Math.PI * i) / rows, v = (2 * Math.PI * j) / rows, e = 1e-4;
            positions.push(...place(u, v));
            const a = minus(place(u + e, v), place(u - e, v)), b = minus(place(u, v + e), place(u, v - e));
            const n = [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
            const length = Math.hypot(...n);
            normals.push(...n.map((value) => value / length));
            const next = (k) => (k + 1) % rows;
            const [p, q, r, s] = [i * rows + j, next(i) * rows + j, next(i) * rows + next(j), i * rows + next(j)];
            triangles.push(p, q, r, p, r, s);
        }
    return { positions, normals, triangles };
}
