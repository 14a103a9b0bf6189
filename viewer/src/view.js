// SPDX-License-Identifier: Apache-2.0
// The mesh on the screen: camera, materials, drawing. Knows nothing of the page around the canvas.
//
// The world is y-up with the mesh in a ball of radius 1 around 0; the model's matrix takes there the whole
// numbers that places are given in.

import {
    BufferGeometry, DataTexture, InterleavedBuffer, InterleavedBufferAttribute, BufferAttribute, LinearFilter,
    DoubleSide, Matrix4, Mesh, PerspectiveCamera, Points, Scene, ShaderMaterial, Spherical, Vector3, Vector4,
    WebGLRenderer, Sphere, Box3, Color, Vector2,
} from 'three';
import { OrbitControls } from 'three/addons/controls/OrbitControls.js';

import { densityStops, distanceStops, rampBytes } from './palette.js';
import { nearestHit } from './picking.js';
import * as shaders from './shaders.js';

const looks = {
    light: {
        clay: [0.80, 0.77, 0.725], inside: [0.79, 0.47, 0.37], cut: [0.04, 0.42, 0.46], line: [0.08, 0.1, 0.13],
        sample: [0.75, 0.16, 0.12], sky: [0.36, 0.385, 0.42], ground: [0.17, 0.155, 0.14],
        rim: -0.4,
    },
    dark: {
        clay: [0.74, 0.745, 0.75], inside: [0.78, 0.45, 0.35], cut: [0.4, 0.79, 0.81], line: [0.03, 0.04, 0.05],
        sample: [1.0, 0.52, 0.35], sky: [0.33, 0.36, 0.4], ground: [0.09, 0.085, 0.085],
        rim: 0.35,
    },
};

// Columns: where the axes of the cloud go when one of them points upwards.
const uprights = [
    new Matrix4().set(0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1),
    new Matrix4(),
    new Matrix4().set(1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1),
];

function rampTexture(stops) {
    const texture = new DataTexture(rampBytes(stops), 256, 1);
    texture.minFilter = texture.magFilter = LinearFilter;
    texture.needsUpdate = true;
    return texture;
}

export class View {
    /** Throws when the browser has no WebGL. `onDraw` is called after each picture. */
    constructor(canvas, data, onDraw) {
        this.canvas = canvas;
        this.data = data;
        this.onDraw = onDraw;
        this.renderer = new WebGLRenderer({ canvas, alpha: true, antialias: true, preserveDrawingBuffer: false });
        this.renderer.setClearColor(0, 0);
        this.camera = new PerspectiveCamera(32, 1, 0.01, 100);
        this.scene = new Scene();
        this.clipAxis = 0;
        this.clipPlace = 0.5;
        this.clipSide = 1;
        this.ramps = { density: rampTexture(densityStops), distance: rampTexture(distanceStops) };
        this.measure();
        this.makeModel();
        this.controls = new OrbitControls(this.camera, canvas);
        this.controls.enableDamping = !matchMedia('(prefers-reduced-motion: reduce)').matches;
        this.controls.dampingFactor = 0.12;
        this.controls.zoomToCursor = true;
        this.controls.minDistance = 0.02;
        this.controls.maxDistance = 60;
        this.controls.addEventListener('change', () => this.draw());
        this.setUp(this.defaultUp());
        this.setTheme('light');
    }

    // Extent of the numbers and the ball around them.
    measure() {
        const { places, vertexCount } = this.data;
        const low = [Infinity, Infinity, Infinity], high = [-Infinity, -Infinity, -Infinity];
        for (let i = 0; i < 4 * vertexCount; i += 4)
            for (let k = 0; k < 3; ++k) {
                const value = places[i + k];
                if (value < low[k]) low[k] = value;
                if (value > high[k]) high[k] = value;
            }
        if (vertexCount === 0) {
            low.fill(0);
            high.fill(1);
        }
        this.low = low;
        this.high = high;
        this.center = new Vector3(...low).add(new Vector3(...high)).multiplyScalar(0.5);
        this.edgeLength = this.usualEdge();
        this.radius = Math.max(new Vector3(...high).sub(this.center).length(), 0.5);
    }

    // Mean length in the cloud of the edges of some hundred triangles.
    usualEdge() {
        const { places, triangles, triangleCount, step } = this.data;
        const stride = 3 * Math.ceil(triangleCount / 500);
        let sum = 0, count = 0;
        for (let t = 0; t < triangles.length; t += stride, ++count) {
            const a = 4 * triangles[t], b = 4 * triangles[t + 1];
            sum += Math.hypot(places[a] - places[b], places[a + 1] - places[b + 1], places[a + 2] - places[b + 2]);
        }
        return step * sum / Math.max(count, 1);
    }

    /** Scans of ground and of maps mostly lie flat with z upwards; other things stand along y. */
    defaultUp() {
        const size = this.high.map((value, k) => value - this.low[k]);
        const isMap = this.data.origin.some((value) => value !== 0);
        return isMap || size[2] < 0.45 * Math.min(size[0], size[1]) ? 2 : 1;
    }

    makeModel() {
        const { places, triangles, colors, values, vertexCount, samples, low, step } = this.data;
        const geometry = new BufferGeometry();
        const buffer = new InterleavedBuffer(places, 4);
        geometry.setAttribute('position', new InterleavedBufferAttribute(buffer, 3, 0));
        geometry.setAttribute('packedNormal', new InterleavedBufferAttribute(buffer, 1, 3));
        geometry.setAttribute('vertexColor',
            new BufferAttribute(colors ?? new Uint8Array(4 * vertexCount).fill(200), 4, true));
        geometry.setAttribute('vertexValues',
            new BufferAttribute(values ?? new Uint8Array(4 * vertexCount).fill(255), 4, true));
        geometry.setIndex(new BufferAttribute(triangles, 1));
        geometry.boundingSphere = new Sphere(this.center, this.radius);
        geometry.boundingBox = new Box3(new Vector3(...this.low), new Vector3(...this.high));
        const clip = { clipPlane: { value: new Vector4(0, 0, 0, 1) }, isCut: { value: false } };
        this.clip = clip;
        this.surfaceMaterial = new ShaderMaterial({
            vertexShader: shaders.meshVertexShader, fragmentShader: shaders.meshFragmentShader, side: DoubleSide,
            polygonOffset: true, polygonOffsetFactor: 1, polygonOffsetUnits: 1,
            uniforms: {
                ...clip, shading: { value: 0 }, clay: { value: new Color() }, insideColor: { value: new Color() },
                cutColor: { value: new Color() }, upInView: { value: new Vector3(0, 1, 0) },
                skyLight: { value: new Color() }, groundLight: { value: new Color() },
                rim: { value: 0 }, isClosed: { value: this.data.isClosed },
                hasSky: { value: this.data.hasLight }, ramp: { value: this.ramps.density },
            },
        });
        this.lineMaterial = new ShaderMaterial({
            vertexShader: shaders.lineVertexShader, fragmentShader: shaders.lineFragmentShader, wireframe: true,
            transparent: true, depthWrite: false,
            uniforms: { ...clip, color: { value: new Color() }, opacity: { value: 0.42 } },
        });
        this.surface = new Mesh(geometry, this.surfaceMaterial);
        this.lines = new Mesh(geometry, this.lineMaterial);
        this.lines.visible = false;
        this.parts = [this.surface, this.lines];
        if (samples) {
            const points = new BufferGeometry();
            points.setAttribute('position',
                new InterleavedBufferAttribute(new InterleavedBuffer(samples.places, 4), 3, 0));
            points.setAttribute('vertexColor',
                new BufferAttribute(samples.colors ?? new Uint8Array(4 * samples.count), 4, true));
            points.boundingSphere = new Sphere(this.center, 4 * this.radius);
            this.pointMaterial = new ShaderMaterial({
                vertexShader: shaders.pointVertexShader, fragmentShader: shaders.pointFragmentShader,
                uniforms: { ...clip, color: { value: new Color() }, size: { value: 3 },
                    grid: { value: new Vector4(...samples.low.map((value, k) => (value - low[k]) / step),
                        samples.step / step) },
                    hasColors: { value: samples.colors !== null } },
            });
            this.points = new Points(points, this.pointMaterial);
            this.points.visible = false;
            this.parts.push(this.points);
        }
        for (const part of this.parts) {
            part.matrixAutoUpdate = false;
            part.frustumCulled = false;
            this.scene.add(part);
        }
    }

    setUp(axis) {
        this.up = axis;
        const model = uprights[axis].clone()
            .multiply(new Matrix4().makeScale(1 / this.radius, 1 / this.radius, 1 / this.radius))
            .multiply(new Matrix4().makeTranslation(-this.center.x, -this.center.y, -this.center.z));
        this.model = model;
        for (const part of this.parts)
            part.matrix.copy(model);
        this.resetView();
    }

    /** From the front, a little from the right and above, as near as the mesh allows. */
    resetView() {
        this.camera.up.set(0, 1, 0);
        this.camera.position.setFromSphericalCoords(1, 1.2, 0.55);
        this.camera.lookAt(0, 0, 0);
        const across = Math.tan((this.camera.fov * Math.PI) / 360);
        const toView = new Matrix4().makeRotationFromQuaternion(this.camera.quaternion.clone().invert())
            .multiply(this.model);
        const { places, vertexCount } = this.data;
        const stride = 4 * Math.ceil(vertexCount / 20000);
        const seen = [];
        for (let i = 0; i < places.length; i += stride)
            seen.push(new Vector3(places[i], places[i + 1], places[i + 2]).applyMatrix4(toView));
        // Moved to the middle of the view, the mesh needs less room; each round is nearer to the end.
        const middle = new Vector3();
        let away = 1;
        for (let round = 0; round < 4; ++round) {
            away = 0;
            for (const { x, y, z } of seen)
                away = Math.max(away, z + Math.abs(y - middle.y) / across,
                    z + Math.abs(x - middle.x) / (across * this.camera.aspect));
            away = Math.max(1.1 * away, this.controls.minDistance);
            let left = Infinity, right = -Infinity, low = Infinity, high = -Infinity;
            for (const { x, y, z } of seen) {
                const u = (x - middle.x) / (away - z), v = (y - middle.y) / (away - z);
                left = Math.min(left, u), right = Math.max(right, u);
                low = Math.min(low, v), high = Math.max(high, v);
            }
            if (round < 3 && seen.length > 0)
                middle.add(new Vector3(left + right, low + high, 0).multiplyScalar(0.5 * away));
        }
        this.controls.target.copy(middle.applyQuaternion(this.camera.quaternion));
        this.camera.position.setLength(away).add(this.controls.target);
        this.isHome = true;
        this.controls.update();
        this.draw();
    }

    setTheme(name) {
        const look = looks[name];
        const uniforms = this.surfaceMaterial.uniforms;
        uniforms.clay.value.setRGB(...look.clay);
        uniforms.insideColor.value.setRGB(...look.inside);
        uniforms.cutColor.value.setRGB(...look.cut);
        uniforms.skyLight.value.setRGB(...look.sky);
        uniforms.groundLight.value.setRGB(...look.ground);
        uniforms.rim.value = look.rim;
        this.lineMaterial.uniforms.color.value.setRGB(...look.line);
        if (this.points)
            this.pointMaterial.uniforms.color.value.setRGB(...look.sample);
        this.draw();
    }

    setShading(name) {
        this.surfaceMaterial.uniforms.shading.value = shaders.shadingCodes[name];
        if (this.ramps[name])
            this.surfaceMaterial.uniforms.ramp.value = this.ramps[name];
        this.draw();
    }

    showWireframe(isShown) {
        this.lines.visible = isShown;
        this.draw();
    }

    showSamples(isShown) {
        if (this.points)
            this.points.visible = isShown;
        this.draw();
    }

    /** A plane across an axis of the cloud at a place from 0 to 1 of the extent; `side` 1 keeps what is below. */
    setClip(isOn, axis, place, side) {
        const number = this.low[axis] + place * (this.high[axis] - this.low[axis]);
        const plane = this.clip.clipPlane.value;
        plane.set(0, 0, 0, 1);
        this.clip.isCut.value = isOn;
        if (isOn) {
            plane.setComponent(axis, -side);
            plane.w = side * number;
        }
        this.draw();
        return this.toCloud([axis, axis, axis].map(() => number))[axis];
    }

    /** The coordinates in the cloud of whole numbers. */
    toCloud(numbers) {
        const { origin, low, step } = this.data;
        return [0, 1, 2].map((k) => origin[k] + (low[k] + step * numbers[k]));
    }

    /** Pixels of the canvas, from its upper left corner, and depth of coordinates in the cloud. */
    project(place) {
        const { origin, low, step } = this.data;
        const seen = new Vector3(...[0, 1, 2].map((k) => (place[k] - origin[k] - low[k]) / step));
        seen.applyMatrix4(this.model).project(this.camera);
        const { clientWidth, clientHeight } = this.canvas;
        return { x: (seen.x + 1) * clientWidth / 2, y: (1 - seen.y) * clientHeight / 2, isBefore: seen.z < 1 };
    }

    /** The coordinates in the cloud of the first surface below a pixel, or null. */
    pick(x, y) {
        const toNumbers = this.model.clone().invert();
        const pixel = new Vector2(2 * x / this.canvas.clientWidth - 1, 1 - 2 * y / this.canvas.clientHeight);
        this.camera.updateMatrixWorld();
        const from = new Vector3().setFromMatrixPosition(this.camera.matrixWorld).applyMatrix4(toNumbers);
        const to = new Vector3(pixel.x, pixel.y, 0.5).unproject(this.camera).applyMatrix4(toNumbers);
        const direction = to.sub(from).normalize();
        const hit = nearestHit(this.data.places, this.data.triangles, from.toArray(), direction.toArray(),
            this.clip.clipPlane.value.toArray());
        return hit && this.toCloud(hit);
    }

    turn(around, over) {
        const offset = this.camera.position.clone().sub(this.controls.target);
        const angles = new Spherical().setFromVector3(offset);
        angles.theta += around;
        angles.phi += over;
        angles.makeSafe();
        this.camera.position.setFromSpherical(angles).add(this.controls.target);
        this.moved();
    }

    /** By shares of the height of the view. */
    shift(right, up) {
        const distance = this.camera.position.distanceTo(this.controls.target);
        const height = 2 * distance * Math.tan((this.camera.fov * Math.PI) / 360);
        const move = new Vector3(right * height, up * height, 0).applyQuaternion(this.camera.quaternion);
        this.camera.position.add(move);
        this.controls.target.add(move);
        this.moved();
    }

    zoom(factor) {
        const offset = this.camera.position.clone().sub(this.controls.target);
        const distance = Math.min(Math.max(offset.length() * factor, this.controls.minDistance),
            this.controls.maxDistance);
        this.camera.position.copy(this.controls.target).add(offset.setLength(distance));
        this.moved();
    }

    moved() {
        this.isHome = false;
        this.controls.update();
        this.draw();
    }

    /** Length in the cloud of a pixel in the plane through the middle of the view. */
    pixelLength() {
        const distance = this.camera.position.distanceTo(this.controls.target);
        const height = 2 * distance * Math.tan((this.camera.fov * Math.PI) / 360);
        return height / this.canvas.clientHeight * this.radius * this.data.step;
    }

    /** Directions of the cloud's axes on the screen: x to the right, y up, z to the viewer. */
    axisDirections() {
        return [0, 1, 2].map((k) => new Vector3().setFromMatrixColumn(uprights[this.up], k)
            .transformDirection(this.camera.matrixWorldInverse).toArray());
    }

    resize(width, height, pixelRatio) {
        this.renderer.setPixelRatio(pixelRatio);
        this.renderer.setSize(width, height, false);
        this.camera.aspect = width / height;
        this.camera.updateProjectionMatrix();
        if (this.points)
            this.pointMaterial.uniforms.size.value = 2.3 * pixelRatio;
        if (this.isHome)
            this.resetView();
        this.draw();
    }

    /** Asks for a picture; many requests make one. */
    draw() {
        if (this.frame || !this.controls)
            return;
        this.frame = requestAnimationFrame(() => {
            this.frame = 0;
            this.drawNow();
            if (this.controls.enableDamping)
                this.controls.update(); // asks for the next picture as long as the view moves
        });
    }

    drawNow() {
        const distance = this.camera.position.length();
        this.camera.near = Math.max(distance - 1.1, 0.002 * distance, 1e-4);
        this.camera.far = distance + (this.points?.visible ? 4.4 : 1.1);
        this.camera.updateProjectionMatrix();
        this.camera.updateMatrixWorld();
        this.surfaceMaterial.uniforms.upInView.value.set(0, 1, 0)
            .transformDirection(this.camera.matrixWorldInverse);
        if (this.lines.visible) // lines closer together than a few pixels would hide what they lie on
            this.lineMaterial.uniforms.opacity.value =
                Math.min(Math.max(0.045 * this.edgeLength / this.pixelLength(), 0.05), 0.6);
        this.renderer.render(this.scene, this.camera);
        this.onDraw();
    }
}
