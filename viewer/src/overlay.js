// SPDX-License-Identifier: Apache-2.0
// What is drawn over the mesh as vectors: the axes, the scale, and the distance that is measured.

import { lengthText } from './scene.js';

const names = ['X', 'Y', 'Z'];

function element(tag, attributes, parent) {
    const made = document.createElementNS('http://www.w3.org/2000/svg', tag);
    for (const [name, value] of Object.entries(attributes))
        made.setAttribute(name, value);
    parent.append(made);
    return made;
}

/** The greatest 1, 2 or 5 times a power of ten that is at most `value`. */
export function roundLength(value) {
    const power = 10 ** Math.floor(Math.log10(value));
    const share = value / power;
    return (share >= 5 ? 5 : share >= 2 ? 2 : 1) * power;
}

export class Overlay {
    constructor(view, resolution) {
        this.view = view;
        this.resolution = resolution;
        this.svg = document.getElementById('overlay');
        this.scaleText = document.getElementById('scale-text');
        this.scaleLine = document.getElementById('scale-line');
        this.ends = [];
        this.isAiming = false;
    }

    draw() {
        this.svg.replaceChildren();
        this.drawScale();
        this.drawAxes();
        this.drawMeasure();
    }

    drawScale() {
        const length = roundLength(140 * this.view.pixelLength());
        this.scaleText.textContent = lengthText(length, length);
        this.scaleLine.style.width = `${length / this.view.pixelLength()}px`;
    }

    drawAxes() {
        const { clientWidth, clientHeight } = this.view.canvas;
        const x = clientWidth - 46, y = clientHeight - 46;
        const directions = this.view.axisDirections().map((direction, k) => ({ direction, k }));
        directions.sort((a, b) => a.direction[2] - b.direction[2]);
        for (const { direction, k } of directions) {
            const group = element('g', { class: `axis-${'xyz'[k]}`, opacity: 0.68 + 0.32 * direction[2] }, this.svg);
            element('line', { x1: x, y1: y, x2: x + 24 * direction[0], y2: y - 24 * direction[1],
                'stroke-width': 2.2 }, group);
            element('text', { x: x + 34 * direction[0], y: y - 34 * direction[1] }, group).textContent = names[k];
        }
    }

    drawMeasure() {
        if (this.isAiming) {
            const x = this.view.canvas.clientWidth / 2, y = this.view.canvas.clientHeight / 2;
            element('path', { class: 'aim',
                d: `M${x - 12} ${y}h8m8 0h8M${x} ${y - 12}v8m0 8v8` }, this.svg);
        }
        const places = this.ends.map((end) => this.view.project(end)).filter((place) => place.isBefore);
        if (places.length === 2) {
            const [a, b] = places;
            for (const kind of ['halo', 'rule'])
                element('line', { class: kind, x1: a.x, y1: a.y, x2: b.x, y2: b.y }, this.svg);
        }
        for (const place of places)
            element('circle', { class: 'end', cx: place.x, cy: place.y, r: 5 }, this.svg);
        if (places.length === 2) {
            const x = (places[0].x + places[1].x) / 2, y = (places[0].y + places[1].y) / 2;
            const text = lengthText(this.distance(), this.resolution);
            const width = 9 * text.length + 16;
            element('rect', { class: 'tag', x: x - width / 2, y: y - 11, width, height: 22, rx: 11 }, this.svg);
            element('text', { class: 'tag-text', x, y }, this.svg).textContent = text;
        }
    }

    distance() {
        const [a, b] = this.ends;
        return Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
    }
}
