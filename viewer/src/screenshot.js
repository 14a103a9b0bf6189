// SPDX-License-Identifier: Apache-2.0
// A picture of the view as it is, with the ground, the scale, the axes and what is measured, as PNG.

import { densityStops, distanceStops } from './palette.js';

const drawn = ['fill', 'stroke', 'stroke-width', 'stroke-linecap', 'stroke-linejoin', 'font-size', 'font-weight',
    'font-family', 'text-anchor', 'dominant-baseline', 'opacity'];

// The overlay as a picture; styles are copied into it, because a picture does not see those of the page.
async function overlayPicture(overlay, width, height, scale) {
    const copy = overlay.cloneNode(true);
    const originals = overlay.querySelectorAll('*'), copies = copy.querySelectorAll('*');
    originals.forEach((original, i) => {
        const style = getComputedStyle(original);
        for (const name of drawn)
            copies[i].setAttribute(name, style.getPropertyValue(name));
    });
    copy.setAttribute('xmlns', 'http://www.w3.org/2000/svg');
    copy.setAttribute('width', width * scale);
    copy.setAttribute('height', height * scale);
    copy.setAttribute('viewBox', `0 0 ${width} ${height}`);
    const image = new Image();
    image.src = 'data:image/svg+xml;charset=utf-8,' + encodeURIComponent(new XMLSerializer().serializeToString(copy));
    await image.decode();
    return image;
}

/** A canvas with the picture. */
export async function takePicture(view, stage) {
    view.drawNow();
    const source = view.canvas;
    const { clientWidth: width, clientHeight: height } = source;
    const scale = source.width / width;
    const target = document.createElement('canvas');
    target.width = source.width;
    target.height = source.height;
    const brush = target.getContext('2d');
    const style = getComputedStyle(document.documentElement);
    const color = (name) => style.getPropertyValue(name).trim();
    const ground = brush.createRadialGradient(0.5 * target.width, 0.38 * target.height, 0, 0.5 * target.width,
        0.38 * target.height, 1.1 * Math.max(target.width, target.height));
    ground.addColorStop(0.3, color('--ground'));
    ground.addColorStop(1, color('--ground-far'));
    brush.fillStyle = ground;
    brush.fillRect(0, 0, target.width, target.height);
    brush.drawImage(source, 0, 0); // before the browser clears what was drawn
    brush.drawImage(await overlayPicture(stage.querySelector('#overlay'), width, height, scale), 0, 0);

    brush.scale(scale, scale);
    brush.fillStyle = brush.strokeStyle = color('--text');
    brush.font = '13px system-ui, sans-serif';
    const line = stage.querySelector('#scale-line').getBoundingClientRect();
    const box = stage.getBoundingClientRect();
    const left = line.left - box.left, right = line.right - box.left, bottom = line.bottom - box.top;
    brush.fillText(stage.querySelector('#scale-text').textContent, left, bottom - 12);
    brush.lineWidth = 2;
    brush.beginPath();
    brush.moveTo(left + 1, bottom - 6);
    brush.lineTo(left + 1, bottom);
    brush.lineTo(right - 1, bottom);
    brush.lineTo(right - 1, bottom - 6);
    brush.stroke();
    const legend = stage.querySelector('#legend');
    if (!legend.hidden) {
        const stops = legend.dataset.kind === 'distance' ? distanceStops : densityStops;
        const ramp = brush.createLinearGradient(20, 0, 240, 0);
        stops.forEach((stop, i) => ramp.addColorStop(i / (stops.length - 1), stop));
        brush.fillText(legend.querySelector('#legend-title').textContent, 20, 30);
        brush.fillText(legend.querySelector('#legend-low').textContent, 20, 66);
        brush.textAlign = 'right';
        brush.fillText(legend.querySelector('#legend-high').textContent, 240, 66);
        brush.fillStyle = ramp;
        brush.fillRect(20, 38, 220, 10);
    }
    return target;
}
