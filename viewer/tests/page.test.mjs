// SPDX-License-Identifier: Apache-2.0
// The page in a browser, with scenes made here.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { after, before, test } from 'node:test';
import { hasBrowser, startBrowser } from './browser.mjs';
import { pageOf, torus } from './made-pages.mjs';
import { colorCount, difference, readPng } from './pictures.mjs';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const skip = hasBrowser ? false : 'there is no Chromium';
const small = { width: 760, height: 460 };
let browser, everything;

before(async () => {
    if (skip)
        return;
    browser = await startBrowser();
    const mesh = torus(48, 0.15);
    const count = mesh.positions.length / 3;
    everything = await pageOf({
        ...mesh, samples: mesh.positions.filter((_, i) => Math.floor(i / 3) % 5 === 0),
        values: (i) => [i * 255 / count, 255 - i * 255 / count, 180 + i % 70, 0],
        colors: (i) => [200, i * 255 / count, 60, 0],
    }, { isClosed: true, report: [{ title: 'Mesh', rows: [['Triangles', '4608'], ['Closed', 'yes']] }] });
});
after(() => browser?.close());

// What the stage shows when it has come to rest.
async function look(page) {
    await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    return readPng(await (await page.$('#stage')).screenshot());
}
const differ = (first, second, least = 0.01) => assert.ok(difference(first, second).share > least,
    JSON.stringify(difference(first, second)));

test('every control shows something else, and nothing goes wrong', { skip }, async () => {
    const { page, watch } = await browser.open(everything, small);
    const plain = await look(page);
    assert.ok(colorCount(plain) > 500, 'the picture is not empty');
    const shown = [plain];
    for (const name of ['plain', 'normal', 'density', 'distance']) {
        await page.click(`input[value=${name}]`);
        const picture = await look(page);
        shown.forEach((other) => differ(picture, other, 0.05));
        shown.push(picture);
        assert.equal(await page.$eval('#legend', (legend) => legend.hidden), !/density|distance/.test(name));
    }
    assert.match(await page.$eval('#legend', (legend) => legend.innerText), /Distance to the samples\s+0\s+\u2265 0.02/);
    await page.click('input[value=plain]');
    const before = await look(page);
    for (const id of ['#wireframe', '#samples', '#clip']) {
        await page.click(id);
        differ(await look(page), before, 0.002);
        if (id === '#clip') {
            const middle = await look(page);
            await page.click('#clip-flip');
            differ(await look(page), middle);
            await page.click('#clip-axes label:nth-child(2)');
            differ(await look(page), middle);
            await page.$eval('#clip-place', (range) => {
                range.value = 1000;
                range.dispatchEvent(new Event('input'));
            });
            await page.click('#clip-flip');
            assert.ok(difference(await look(page), before).share < 0.01, 'a plane beyond the mesh cuts nothing');
        }
        await page.click(id);
    }
    await page.click('#theme');
    differ(await look(page), before, 0.5);
    await page.click('#theme');
    assert.ok(difference(await look(page), before).share < 0.001, 'all switches are back');
    assert.match(await page.$eval('#report', (report) => report.innerText), /Triangles\s+4608\s+Closed\s+yes/);

    const taken = readPng(Buffer.from((await page.evaluate(() => meshView.picture())).split(',')[1], 'base64'));
    assert.ok(difference(taken, before).share < 0.02, 'the picture that is saved is the one that is seen');
    await page.click('#screenshot');
    await page.click('#licences');
    assert.match(await page.$eval('#licence-text', (text) => text.innerText), /three[\s\S]*MIT[\s\S]*meshoptimizer/);
    assert.deepEqual(watch.faults, []);
    await page.close();
});

test('two points that are picked are as far apart as they are', { skip }, async () => {
    // A slanting rectangle in map coordinates.
    const place = (u, v) => [u * 3, v * 4, 0.5 * u * 3 + 0.25 * v * 4];
    const positions = [...place(0, 0), ...place(1, 0), ...place(1, 1), ...place(0, 1)];
    const origin = [448000.5, 5411000.25, -100];
    const normals = Array(4).fill([-0.436, -0.218, 0.873]).flat();
    const text = await pageOf({ positions, normals, triangles: [0, 1, 2, 0, 2, 3] }, { origin });
    const { page, watch } = await browser.open(text, small);
    const measure = async (...ends) => {
        await page.click('#measure');
        for (const end of ends) {
            const at = await page.evaluate((coords) => {
                const box = document.getElementById('canvas').getBoundingClientRect();
                const { x, y } = meshView.project(coords);
                return [x + box.left, y + box.top];
            }, place(...end).map((value, k) => value + origin[k]));
            await page.mouse.click(...at);
        }
        const found = parseFloat(await page.$eval('#measured strong', (strong) => strong.innerText));
        await page.click('#measure');
        const [a, b] = ends.map((end) => place(...end));
        const expected = Math.hypot(...a.map((value, k) => value - b[k]));
        assert.ok(Math.abs(found - expected) < 1e-3 * expected, `${found} instead of ${expected}`);
    };
    await measure([0.1, 0.1], [0.9, 0.85]);
    await page.mouse.move(200, 200); // another view
    await page.mouse.down();
    await page.mouse.move(260, 230, { steps: 4 });
    await page.mouse.up();
    await measure([0.2, 0.9], [0.7, 0.3]);
    await page.click('#up-axes label:nth-child(1)');
    await measure([0.3, 0.2], [0.35, 0.25]);

    // Beside the mesh there is nothing to pick, and behind the plane neither.
    await page.click('#measure');
    await page.mouse.click(12, 200);
    assert.match(await page.$eval('#hint', (hint) => hint.innerText), /no surface/);
    const pick = () => page.evaluate((coords) => {
        const { x, y } = meshView.project(coords);
        return meshView.pick(x, y);
    }, place(0.7, 0.4).map((value, k) => value + origin[k]));
    assert.ok(Math.abs((await pick())[0] - origin[0] - 2.1) < 0.001);
    await page.click('#clip'); // keeps what is below the middle of x
    assert.equal(await pick(), null);
    assert.deepEqual(watch.faults, []);
    await page.close();
});

test('the keyboard reaches everything', { skip }, async () => {
    const { page, watch } = await browser.open(everything, small);
    const first = await look(page);
    await page.focus('#canvas');
    let last = first;
    for (const keys of [['ArrowLeft'], ['ArrowUp'], ['Shift', 'ArrowRight'], ['Shift', 'ArrowDown'], ['+'], ['-', '-'],
        ['3'], ['w'], ['p'], ['c'], ['t']]) {
        for (const key of keys.slice(0, -1))
            key === 'Shift' ? await page.keyboard.down(key) : await page.keyboard.press(key);
        await page.keyboard.press(keys.at(-1));
        await page.keyboard.up('Shift');
        const picture = await look(page);
        differ(picture, last, 0.002);
        last = picture;
    }
    for (const key of ['w', 'p', 'c', 't', '1', 'r'])
        await page.keyboard.press(key);
    await page.click('input[value=color]');
    assert.ok(difference(await look(page), first).share < 0.001, 'the first view is back');

    await page.focus('#canvas');
    await page.keyboard.press('m');
    await page.keyboard.press('ArrowRight');
    for (let k = 0; k < 5; ++k)
        await page.keyboard.press('ArrowUp'); // the hole of the torus out of the middle
    await page.keyboard.down('Shift');
    for (let k = 0; k < 4; ++k)
        await page.keyboard.press('ArrowLeft');
    await page.keyboard.up('Shift');
    await page.keyboard.press('Enter');
    await page.keyboard.press('ArrowLeft');
    await page.keyboard.press('Enter');
    assert.ok(parseFloat(await page.$eval('#measured', (box) => box.innerText)) > 0);
    await page.keyboard.press('Escape');
    assert.equal(await page.$eval('#measure', (button) => button.getAttribute('aria-pressed')), 'false');

    await page.evaluate(() => document.activeElement.blur());
    const reached = new Set();
    for (let k = 0; k < 40; ++k) {
        await page.keyboard.press('Tab');
        reached.add(await page.evaluate(() => document.activeElement.id || document.activeElement.name));
    }
    for (const id of ['reset', 'screenshot', 'theme', 'toggle-panel', 'canvas', 'shading', 'wireframe', 'samples', 'clip',
        'measure', 'up', 'licences'])
        assert.ok(reached.has(id), `${id} is not among ${[...reached]}`);
    assert.deepEqual(watch.faults, []);
    await page.close();
});

test('fingers turn, move and zoom', { skip }, async () => {
    const { page, watch } = await browser.open(everything, { width: 400, height: 700 });
    const client = await page.createCDPSession();
    const touch = (type, ...points) => client.send('Input.dispatchTouchEvent',
        { type, touchPoints: points.map(([x, y], id) => ({ x, y, id })) });
    const first = await look(page);
    await touch('touchStart', [150, 200]);
    await touch('touchMove', [220, 240]);
    await touch('touchEnd');
    const turned = await look(page);
    differ(turned, first);
    await touch('touchStart', [150, 200], [250, 200]);
    await touch('touchMove', [110, 200], [290, 200]);
    await touch('touchMove', [90, 200], [310, 200]);
    await touch('touchEnd');
    differ(await look(page), turned);
    assert.deepEqual(watch.faults, []);
    await page.close();
});

test('it can be read by everybody', { skip }, async () => {
    for (const [width, dark] of [[900, false], [900, true], [400, false], [400, true]]) {
        const { page } = await browser.open(everything, { width, height: 640, dark });
        await page.click('input[value=density]');
        await page.click('#clip');
        await page.click('#measure');
        await page.evaluate(axe);
        const found = await page.evaluate(() => globalThis.axe.run());
        const serious = found.violations.filter(({ impact }) => ['serious', 'critical'].includes(impact));
        assert.deepEqual(serious.map(({ id, nodes }) => [id, nodes.map(({ html }) => html)]), []);
        assert.ok(found.passes.length > 10);
        const wide = await page.evaluate(() => [...document.querySelectorAll('body, header, #panel, #panel *')]
            .filter((one) => one.getBoundingClientRect().right > innerWidth + 1).map((one) => one.id || one.tagName));
        assert.deepEqual(wide, [], 'nothing stands out to the right');
        await page.click('#toggle-panel');
        assert.equal(await page.$eval('#canvas', (canvas) => canvas.clientWidth), width);
        await page.close();
    }
});

test('texts are shown as text', { skip }, async () => {
    const hostile = '</script><img src=x onerror="document.body.dataset.hurt=1"><b>&amp;';
    const text = await pageOf(torus(12), {
        title: hostile, subtitle: hostile, notes: [hostile], report: [{ title: hostile, rows: [[hostile, 'NaN']] }],
    });
    const { page, watch } = await browser.open(text, small);
    assert.equal(await page.$eval('#title', (title) => title.textContent), hostile);
    assert.equal(await page.title(), hostile);
    for (const place of ['#subtitle', '#notes p', '#report h3', '#report th'])
        assert.equal(await page.$eval(place, (one) => one.textContent), hostile);
    assert.equal(await page.$$eval('img, #panel b, header b', (all) => all.length), 0);
    assert.equal(await page.evaluate(() => document.body.dataset.hurt), undefined);

    // Should any markup ever come through, it is not obeyed.
    await page.evaluate(() => document.body.insertAdjacentHTML('beforeend',
        '<img src="https://example.invalid/x.png" onerror="document.body.dataset.hurt=1">'));
    await page.evaluate(() => new Promise((done) => setTimeout(done, 100)));
    assert.equal(await page.evaluate(() => document.body.dataset.hurt), undefined);
    assert.ok(watch.faults.some((fault) => /Content Security Policy/.test(fault)));
    await page.close();
});

test('what cannot be shown is said', { skip }, async () => {
    const good = await pageOf(torus(12));
    const none = await pageOf({ positions: [], normals: [], triangles: [] });
    const cut = (id) => good.replace(new RegExp(`(id="${id}">)[^<]*`), '$1AAAA');
    for (const [text, words] of [[none, /mesh is empty/], [cut('places'), /damaged.*places/],
        [cut('triangles'), /damaged.*triangles/], [good.replace('id="places"', 'id="spaces"'), /"places" is missing/],
        [cut('scene'), /description cannot be read/]]) {
        const { page, watch } = await browser.open(text, small);
        assert.match(await page.$eval('#failure', (failure) => failure.innerText), words);
        assert.deepEqual(watch.faults, []);
        await page.close();
    }
    const poor = await startBrowser({ withWebGl: false });
    try {
        const { page } = await poor.open(everything, small);
        assert.match(await page.$eval('#failure', (failure) => failure.innerText), /WebGL 2 is missing/);
        assert.match(await page.$eval('#report', (report) => report.innerText), /Triangles\s+4608/);
    } finally {
        await poor.close();
    }
});
