// SPDX-License-Identifier: Apache-2.0
// The page: what its controls do, and what it says. All text of the scene is entered as text.

import { cssGradient, densityStops, distanceStops } from './palette.js';
import { Overlay } from './overlay.js';
import { SceneError, lengthText, readScene } from './scene.js';
import { takePicture } from './screenshot.js';
import { View } from './view.js';
import licences from 'licences';

const byId = (id) => document.getElementById(id);

function fail(text) {
    byId('failure').textContent = text;
    byId('failure').hidden = false;
    document.body.dataset.state = 'failed';
}

function hasWebGl() {
    try {
        return document.createElement('canvas').getContext('webgl2') !== null;
    } catch {
        return false;
    }
}

function made(tag, text, parent) {
    const element = document.createElement(tag);
    element.textContent = text;
    parent.append(element);
    return element;
}

// What the page says about the mesh, which needs no WebGL.
function describe(scene) {
    document.title = scene.title;
    byId('title').textContent = scene.title;
    byId('title').title = scene.title;
    byId('subtitle').textContent = scene.subtitle;
    for (const note of scene.notes)
        made('p', note, byId('notes'));
    byId('notes').hidden = scene.notes.length === 0;
    for (const group of scene.report) {
        made('h3', group.title, byId('report-body'));
        const rows = made('tbody', '', made('table', '', byId('report-body')));
        for (const [name, value] of group.rows) {
            const row = made('tr', '', rows);
            made('th', name, row).scope = 'row';
            made('td', value, row);
        }
    }
    byId('report').hidden = scene.report.length === 0;
}

const shadings = [
    { name: 'plain', text: 'Plain', has: () => true },
    { name: 'color', text: 'Colour', has: (scene) => scene.colors !== null },
    { name: 'normal', text: 'Normal', has: () => true },
    { name: 'density', text: 'Density', has: (scene) => scene.density !== null },
    { name: 'distance', text: 'Distance', has: (scene) => scene.distance !== null },
];

class Page {
    constructor(scene) {
        this.scene = scene;
        this.view = new View(byId('canvas'), scene, () => this.overlay?.draw());
        this.overlay = new Overlay(this.view, scene.step);
        this.shadings = shadings.filter((shading) => shading.has(scene));
        this.isMeasuring = false;
        this.clipSide = 1;
        this.makeShadings();
        this.connect();
        this.setTheme(matchMedia('(prefers-color-scheme: dark)').matches ? 'dark' : 'light');
        this.fit();
    }

    makeShadings() {
        byId('shadings').dataset.count = this.shadings.length;
        for (const { name, text } of this.shadings) {
            const label = made('label', '', byId('shadings'));
            const input = document.createElement('input');
            Object.assign(input, { type: 'radio', name: 'shading', value: name });
            input.addEventListener('change', () => this.setShading(name));
            label.append(input);
            made('span', text, label);
        }
        this.setShading(this.scene.colors ? 'color' : 'plain');
    }

    setShading(name) {
        document.querySelector(`input[name=shading][value=${name}]`).checked = true;
        this.view.setShading(name);
        const range = this.scene[name];
        const legend = byId('legend');
        legend.hidden = name !== 'density' && name !== 'distance';
        if (legend.hidden)
            return;
        legend.dataset.kind = name;
        byId('legend-title').textContent =
            name === 'density' ? 'Samples per unit of area' : 'Distance to the samples';
        byId('legend-ramp').style.background = cssGradient(name === 'density' ? densityStops : distanceStops);
        const digits = (range.high - range.low) / 200 || 1;
        byId('legend-low').textContent = (range.lowIsLess ? '\u2264 ' : '') + lengthText(range.low, digits);
        byId('legend-high').textContent = (range.highIsMore ? '\u2265 ' : '') + lengthText(range.high, digits);
    }

    setTheme(name) {
        this.theme = name;
        document.documentElement.dataset.theme = name;
        this.view.setTheme(name);
    }

    setClip() {
        const isOn = byId('clip').checked;
        byId('clip-options').hidden = !isOn;
        const axis = Number(document.querySelector('input[name=clip-axis]:checked').value);
        const place = this.view.setClip(isOn, axis, Number(byId('clip-place').value) / 1000, this.clipSide);
        const text = lengthText(place, this.scene.step * 50);
        byId('clip-value').textContent = text;
        byId('clip-place').setAttribute('aria-valuetext', text);
    }

    setMeasuring(isOn) {
        this.isMeasuring = isOn;
        document.body.classList.toggle('measuring', isOn);
        byId('measure').setAttribute('aria-pressed', isOn);
        this.overlay.isAiming = isOn;
        if (isOn) {
            this.overlay.ends = [];
            byId('measured').textContent = '';
        }
        this.hint(isOn ? 'Pick the first point' : '');
        this.view.draw();
    }

    hint(text) {
        byId('hint').textContent = text;
        byId('hint').hidden = text === '';
    }

    pick(x, y) {
        const place = this.view.pick(x, y);
        if (!place) {
            this.hint('There is no surface; pick a point of the mesh');
            return;
        }
        if (this.overlay.ends.length === 2)
            this.overlay.ends = [];
        this.overlay.ends.push(place);
        if (this.overlay.ends.length === 1) {
            this.hint('Pick the second point');
            byId('measured').textContent = '';
        } else {
            this.hint('');
            this.showDistance();
        }
        this.view.draw();
    }

    showDistance() {
        const [a, b] = this.overlay.ends;
        const text = (value) => lengthText(value, this.scene.step);
        const box = byId('measured');
        box.textContent = '';
        made('strong', text(this.overlay.distance()), box);
        box.append(` in units of the cloud\nalong X ${text(Math.abs(a[0] - b[0]))}, Y ` +
            `${text(Math.abs(a[1] - b[1]))}, Z ${text(Math.abs(a[2] - b[2]))}`);
    }

    async saveScreenshot() {
        const picture = await takePicture(this.view, byId('stage'));
        const link = document.createElement('a');
        link.href = picture.toDataURL('image/png');
        // Characters that file systems refuse, and what hides a file.
        link.download = this.scene.title.replace(/[^\p{L}\p{N}._ -]/gu, '_').replace(/^[. ]+/, '').slice(0, 80) +
            '.png';
        link.click();
    }

    togglePanel(isShown = document.body.classList.contains('no-panel')) {
        document.body.classList.toggle('no-panel', !isShown);
        byId('toggle-panel').setAttribute('aria-expanded', isShown);
        this.fit();
    }

    fit() {
        const { clientWidth, clientHeight } = byId('stage');
        if (clientWidth > 0 && clientHeight > 0)
            this.view.resize(clientWidth, clientHeight, Math.min(devicePixelRatio, 2));
    }

    toggle(id) {
        byId(id).click();
    }

    connect() {
        const { view, scene } = this;
        byId('reset').addEventListener('click', () => view.resetView());
        byId('screenshot').addEventListener('click', () => this.saveScreenshot());
        byId('theme').addEventListener('click', () => this.setTheme(this.theme === 'dark' ? 'light' : 'dark'));
        byId('toggle-panel').addEventListener('click', () => this.togglePanel());
        byId('wireframe').addEventListener('change', (event) => view.showWireframe(event.target.checked));
        byId('samples-row').hidden = !scene.samples;
        if (scene.samples) {
            const count = (value) => value.toLocaleString('en').replaceAll(',', '\u202f');
            byId('samples-text').textContent = scene.samples.count < scene.samples.of
                ? `Samples, ${count(scene.samples.count)} of ${count(scene.samples.of)}`
                : `Samples, ${count(scene.samples.of)}`;
            byId('samples').addEventListener('change', (event) => view.showSamples(event.target.checked));
        }
        for (const control of [byId('clip'), byId('clip-axes')])
            control.addEventListener('change', () => this.setClip());
        byId('clip-place').addEventListener('input', () => this.setClip());
        byId('clip-flip').addEventListener('click', () => {
            this.clipSide = -this.clipSide;
            this.setClip();
        });
        byId('measure').addEventListener('click', () => this.setMeasuring(!this.isMeasuring));
        document.querySelector(`input[name=up][value="${view.up}"]`).checked = true;
        byId('up-axes').addEventListener('change', (event) => view.setUp(Number(event.target.value)));
        byId('licence-text').textContent = licences;
        byId('licences').addEventListener('click', () => byId('licence-box').showModal());
        byId('licence-close').addEventListener('click', () => byId('licence-box').close());
        matchMedia('(prefers-color-scheme: dark)')
            .addEventListener('change', (event) => this.setTheme(event.matches ? 'dark' : 'light'));
        new ResizeObserver(() => this.fit()).observe(byId('stage'));

        // A press that does not move is a pick.
        let pressed = null;
        const canvas = byId('canvas');
        canvas.addEventListener('pointerdown', (event) => {
            view.isHome = false;
            pressed = event.isPrimary && event.button === 0 ? [event.clientX, event.clientY] : null;
        });
        canvas.addEventListener('wheel', () => { view.isHome = false; }, { passive: true });
        canvas.addEventListener('pointerup', (event) => {
            if (!this.isMeasuring || !pressed ||
                Math.hypot(event.clientX - pressed[0], event.clientY - pressed[1]) > 4)
                return;
            const box = canvas.getBoundingClientRect();
            this.pick(event.clientX - box.left, event.clientY - box.top);
        });
        canvas.addEventListener('webglcontextlost', (event) => {
            event.preventDefault();
            fail('The browser took the graphics memory away; load the page again to see the mesh.');
        });
        document.addEventListener('keydown', (event) => this.onKey(event));
    }

    onKey(event) {
        if (event.ctrlKey || event.metaKey || event.altKey || byId('licence-box').open)
            return;
        const isInField = event.target.matches?.('input, summary, button, a, pre');
        const onCanvas = event.target === byId('canvas') || !isInField;
        const arrows = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] };
        const letters = {
            r: 'reset', s: 'screenshot', t: 'theme', o: 'toggle-panel', w: 'wireframe', p: 'samples', c: 'clip',
            m: 'measure',
        };
        const { view } = this;
        if (onCanvas && arrows[event.key]) {
            const [right, up] = arrows[event.key];
            if (event.shiftKey)
                view.shift(-0.06 * right, -0.06 * up);
            else
                view.turn(0.12 * right, -0.12 * up);
        } else if (event.key === '+' || event.key === '=') {
            view.zoom(1 / 1.15);
        } else if (event.key === '-') {
            view.zoom(1.15);
        } else if (/^[1-5]$/.test(event.key) && this.shadings[event.key - 1]) {
            this.setShading(this.shadings[event.key - 1].name);
        } else if (event.key === 'Escape' && this.isMeasuring) {
            this.setMeasuring(false);
        } else if ((event.key === 'Enter' || event.key === ' ') && this.isMeasuring && onCanvas) {
            this.pick(view.canvas.clientWidth / 2, view.canvas.clientHeight / 2);
        } else if (letters[event.key.toLowerCase()]) {
            this.toggle(letters[event.key.toLowerCase()]);
        } else {
            return;
        }
        event.preventDefault();
    }
}

async function start() {
    try {
        const scene = await readScene();
        describe(scene);
        if (scene.triangleCount === 0) {
            fail('The mesh is empty: it has no triangles.');
            return;
        }
        if (!hasWebGl()) {
            fail('This browser shows no 3D graphics here (WebGL 2 is missing or switched off).\n' +
                'The page itself is complete: open it in another browser, or switch on hardware acceleration.');
            return;
        }
        const page = new Page(scene);
        page.view.drawNow();
        performance.mark('first-frame');
        document.body.dataset.state = 'shown';
        // For scripts that look at the page, and for the console.
        globalThis.meshView = {
            project: (place) => page.view.project(place),
            pick: (x, y) => page.view.pick(x, y),
            picture: async () => (await takePicture(page.view, byId('stage'))).toDataURL('image/png'),
        };
    } catch (error) {
        fail(error instanceof SceneError ? error.message : `The mesh cannot be shown: ${error.message}`);
        if (!(error instanceof SceneError))
            console.error(error);
    }
}

start();
