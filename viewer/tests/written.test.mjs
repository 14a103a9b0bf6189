// SPDX-License-Identifier: Apache-2.0
// Pages as qzrecon writes them; the programs are named by QZ_RECON and QZ_SAMPLE.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { statSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { hasBrowser, startBrowser } from './browser.mjs';
import { colorCount, difference, readPng } from './pictures.mjs';

const { QZ_RECON, QZ_SAMPLE, QZ_LARGE } = process.env;
const skip = !hasBrowser ? 'there is no Chromium' : !QZ_RECON || !QZ_SAMPLE ? 'there are no programs' : false;
let browser;
before(async () => {
    browser = skip ? null : await startBrowser();
});
after(() => browser?.close());

function write(name, sampling, ...options) {
    const cloud = join(browser.folder, `${name}.ply`), page = join(browser.folder, `${name}.html`);
    execFileSync(QZ_SAMPLE, [...sampling, '-o', cloud, '-q']);
    execFileSync(QZ_RECON, [cloud, '-o', page, '-q', ...options]);
    return page;
}

test('a page of a reconstruction shows all that it has', { skip: skip || (QZ_LARGE && 'only the large one') }, async () => {
    const file = write('<b>&torus', ['torus', '-n', '20000'], '--depth', '6');
    const { page, watch } = await browser.open('', { file, width: 900, height: 560 });
    assert.equal(await page.$eval('#title', (title) => title.textContent), '<b>&torus.ply');
    assert.match(await page.$eval('#subtitle', (one) => one.innerText), /triangles, closed/);
    const report = await page.$eval('#report', (one) => one.innerText);
    assert.match(report, /Points\s+20.000\s/);
    assert.match(report, /Depth\s+6\s/);
    assert.deepEqual(await page.$$eval('input[name=shading]', (all) => all.map(({ value }) => value)),
        ['plain', 'normal', 'density', 'distance']);
    const shown = [];
    for (const name of ['plain', 'density', 'distance']) {
        await page.click(`input[value=${name}]`);
        await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
        const picture = readPng(await (await page.$('#stage')).screenshot());
        assert.ok(colorCount(picture) > 500);
        shown.forEach((other) => assert.ok(difference(picture, other).share > 0.05));
        shown.push(picture);
    }
    // The torus has radii 1 and 0.4: what is picked lies on it.
    const found = await page.evaluate(() => {
        const { clientWidth: w, clientHeight: h } = document.getElementById('canvas');
        const all = [];
        for (let i = 1; i < 20; ++i)
            for (let j = 1; j < 20; ++j)
                all.push(meshView.pick(w * i / 20, h * j / 20));
        return all.filter(Boolean);
    });
    assert.ok(found.length > 40);
    for (const [x, y, z] of found)
        assert.ok(Math.abs(Math.hypot(Math.hypot(x, y) - 1, z) - 0.4) < 0.01, `${[x, y, z]}`);
    assert.deepEqual(watch.faults, []);
    await page.close();
});

test('a million triangles are small and come at once', { skip: skip || (!QZ_LARGE && 'only with QZ_LARGE') }, async () => {
    const file = write('large', ['genus3', '-n', '400000', '--noise', '0.0005'], '--depth', '9');
    const times = [];
    let triangles = 0, bytes = 0;
    for (let k = 0; k < 3; ++k) {
        const { page, watch } = await browser.open('', { file, width: 900, height: 560 });
        times.push(await page.evaluate(() => performance.getEntriesByName('first-frame')[0].startTime));
        triangles = Number((await page.$eval('#subtitle', (one) => one.innerText)).replace(/ triangles.*|\s/g, ''));
        bytes = statSync(file).size;
        assert.deepEqual(watch.faults, []);
        await page.close();
    }
    console.log(`${triangles} triangles, ${bytes} bytes, first frame after ${times.map(Math.round)} ms`);
    assert.ok(triangles > 1e6);
    assert.ok((bytes - 0.7e6) * 0.75 / triangles < 8);
    assert.ok(Math.min(...times) < 2000);
});
