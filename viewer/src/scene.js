// SPDX-License-Identifier: Apache-2.0
// The scene that the writer of the page put into it: a JSON block that describes, and one block of bytes for
// each stream, compressed and in base64.
//
// Places are whole numbers of 16 bits: place[axis] = origin[axis] + low[axis] + step * number[axis].

import { MeshoptDecoder } from 'meshoptimizer/decoder';

export class SceneError extends Error {}

function bytesOf(id) {
    const block = document.getElementById(id);
    if (!block)
        throw new SceneError(`The page is not complete: the part "${id}" is missing.`);
    const text = block.textContent.trim();
    block.remove(); // its memory is better used
    try {
        if (Uint8Array.fromBase64)
            return Uint8Array.fromBase64(text);
        const characters = atob(text);
        const bytes = new Uint8Array(characters.length);
        for (let i = 0; i < bytes.length; ++i)
            bytes[i] = characters.charCodeAt(i);
        return bytes;
    } catch {
        throw new SceneError(`The page was damaged: the part "${id}" cannot be read.`);
    }
}

function decoded(count, size, id, decode) {
    const target = new Uint8Array(count * size);
    if (count === 0)
        return target;
    try {
        decode.call(MeshoptDecoder, target, count, size, bytesOf(id));
    } catch (error) {
        if (error instanceof SceneError)
            throw error;
        throw new SceneError(`The page was damaged: the part "${id}" cannot be decoded.`);
    }
    return target;
}

/**
 * {title, subtitle, notes, report, origin, low, step, vertexCount, triangleCount,
 *  isClosed, places: Uint16Array of 4 a vertex (x, y, z, normal), triangles: Uint32Array,
 *  colors: Uint8Array of 4 a vertex or null, values: Uint8Array of 4 a vertex (density, distance, light) or null,
 *  density, distance: {low, high, lowIsLess, highIsMore, unit} or null, hasLight,
 *  samples: {count, of, low, step, places: Uint16Array of 4 each, colors or null} or null}
 */
export async function readScene() {
    const block = document.getElementById('scene');
    if (!block)
        throw new SceneError('This page holds no mesh.');
    let scene;
    try {
        scene = JSON.parse(block.textContent);
    } catch {
        throw new SceneError('The page was damaged: its description cannot be read.');
    }
    if (!MeshoptDecoder.supported)
        throw new SceneError('This browser has no WebAssembly, which the page decodes the mesh with.');
    await MeshoptDecoder.ready;
    const vertices = scene.vertexCount;
    const stream = (id, size, count = vertices) => decoded(count, size, id, MeshoptDecoder.decodeVertexBuffer);
    scene.places = new Uint16Array(stream('places', 8).buffer);
    scene.triangles = new Uint32Array(
        decoded(3 * scene.triangleCount, 4, 'triangles', MeshoptDecoder.decodeIndexBuffer).buffer);
    scene.colors = scene.hasColors ? stream('colors', 4) : null;
    scene.values = scene.density || scene.distance || scene.hasLight ? stream('values', 4) : null;
    if (scene.samples) {
        const count = scene.samples.count;
        scene.samples.places = new Uint16Array(stream('sample-places', 8, count).buffer);
        scene.samples.colors = scene.samples.hasColors ? stream('sample-colors', 4, count) : null;
    }
    return scene;
}

/** A number of the cloud's unit, with as many digits as `resolution` is worth; 0 for what is less than that. */
export function lengthText(value, resolution) {
    if (!Number.isFinite(value))
        return String(value);
    const size = Math.abs(value);
    if (size === 0 || size < 0.5 * resolution)
        return '0';
    const digits = Math.min(Math.max(Math.ceil(Math.log10(size / resolution)), 3), 9);
    return size >= 1e7 || size < 1e-4 ? value.toExponential(digits - 1) : String(Number(value.toPrecision(digits)));
}
