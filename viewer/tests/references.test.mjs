// SPDX-License-Identifier: Apache-2.0
// A dozen pictures as they were when somebody looked at them and found them good, in references/. After a change that
// is meant to be seen, look at them again and write them anew: UPDATE_REFERENCES=1 node --test tests/references.test.mjs

import assert from 'node:assert/strict';
import { existsSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { after, before, test } from 'node:test';
import { hasBrowser, startBrowser } from './browser.mjs';
import { pageOf, torus } from './made-pages.mjs';
import { difference, readPng } from './pictures.mjs';

const skip = hasBrowser ? false : 'there is no Chromium';
const folder = fileURLToPath(new URL('./references/', import.meta.url));
let browser;
before(async () => {
    browser = skip ? null : await startBrowser();
});
after(() => browser?.close());

// A piece of a surface z = f(x, y), with a border.
function sheet(side, height) {
    const positions = [], normals = [], triangles = [];
    for (let i = 0; i < side; ++i)
        for (let j = 0; j < side; ++j) {
            const x = 2 * i / (side - 1) - 1, y = 2 * j / (side - 1) - 1, e = 1e-4;
            const slope = [(height(x + e, y) - height(x - e, y)) / (2 * e), (height(x, y + e) - height(x, y - e)) / (2 * e)];
            const length = Math.hypot(...slope, 1);
            positions.push(x, y, height(x, y));
            normals.push(-slope[0] / length, -slope[1] / length, 1 / length);
            if (i + 1 < side && j + 1 < side) {
                const p = i * side + j;
                triangles.push(p, p + side, p + side + 1, p, p + side + 1, p + 1);
            }
        }
    return { positions, normals, triangles };
}

const values = (mesh) => {
    const count = mesh.positions.length / 3;
    return (i) => [255 * i / count, 255 * Math.abs(mesh.normals[3 * i]), 140 + 115 * Math.max(mesh.normals[3 * i + 2], 0), 0];
};
const colors = (mesh) => (i) => [0, 1, 2].map((k) => 127 + 127 * Math.sin(3 * mesh.positions[3 * i + k])).concat(0);
const ring = torus(64), bumpy = torus(72, 0.25), hills = sheet(50, (x, y) => 0.2 * Math.sin(4 * x) * Math.cos(5 * y)),
    bowl = sheet(40, (x, y) => 0.8 * (x * x + y * y)), step = sheet(40, (x) => 0.4 * Math.tanh(8 * x));
const dressed = (mesh) => ({ ...mesh, values: values(mesh), colors: colors(mesh) });

const scenes = [
    { name: 'ring-plain', mesh: ring, do: [] },
    { name: 'ring-dark', mesh: ring, dark: true, do: [] },
    { name: 'bumpy-occluded', mesh: dressed(bumpy), do: ['1'] },
    { name: 'bumpy-colour', mesh: dressed(bumpy), do: ['2'] },
    { name: 'bumpy-normal', mesh: dressed(bumpy), do: ['3'] },
    { name: 'hills-density', mesh: dressed(hills), do: ['4'] },
    { name: 'hills-distance-dark', mesh: dressed(hills), dark: true, do: ['5'] },
    { name: 'bowl-from-above', mesh: bowl, do: ['ArrowUp', 'ArrowUp', 'ArrowUp', 'ArrowUp'] },
    { name: 'bowl-from-below', mesh: bowl, do: Array(9).fill('ArrowDown') },
    { name: 'step-wireframe', mesh: step, do: ['w'] },
    { name: 'ring-samples', mesh: { ...ring, samples: ring.positions.filter((_, i) => i % 9 < 3) }, do: ['p'] },
    { name: 'bumpy-cut', mesh: dressed(bumpy), do: ['1', 'c'] },
];

for (const scene of scenes)
    test(`${scene.name} looks as it did`, { skip }, async () => {
        const { page } = await browser.open(await pageOf(scene.mesh, { isClosed: /ring|bumpy/.test(scene.name) }), { width: 820, height: 420, dark: scene.dark });
        for (const key of scene.do)
            await page.keyboard.press(key);
        await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
        // The mesh alone: letters look different where other fonts are installed.
        await page.evaluate(() => {
            for (const id of ['overlay', 'legend', 'scale-bar'])
                document.getElementById(id).remove();
        });
        const png = Buffer.from(await (await page.$('#stage')).screenshot());
        await page.close();
        const path = `${folder}${scene.name}.png`;
        if (process.env.UPDATE_REFERENCES || !existsSync(path)) {
            assert.ok(process.env.UPDATE_REFERENCES, `${path} is missing`);
            mkdirSync(folder, { recursive: true });
            writeFileSync(path, png);
            return;
        }
        const { mean, share } = difference(readPng(png), readPng(readFileSync(path)));
        assert.ok(mean < 1.5 && share < 0.015, `mean ${mean}, share ${share}`);
    });
