// SPDX-License-Identifier: Apache-2.0
// What the mesh looks like: soft light from above, a key light over the viewer's left shoulder, a fill from the
// right and a thin rim, all fixed to the viewer, so that every side of the mesh can be read.

/** Numbers of the shadings in the shader. */
export const shadingCodes = { plain: 0, color: 1, normal: 2, density: 3, distance: 4 };

const unpackNormal = /* glsl */ `
// A unit vector in two bytes: the octahedron laid flat, -127 to 127 each, moved to 0 to 254.
vec3 unpackedNormal(float packed) {
    float second = floor(packed / 256.0);
    vec2 e = (vec2(packed - 256.0 * second, second) - 127.0) / 127.0;
    vec3 n = vec3(e, 1.0 - abs(e.x) - abs(e.y));
    if (n.z < 0.0)
        n.xy = (1.0 - abs(n.yx)) * vec2(n.x < 0.0 ? -1.0 : 1.0, n.y < 0.0 ? -1.0 : 1.0);
    return normalize(n);
}`;

export const meshVertexShader = /* glsl */ `
attribute float packedNormal;
attribute vec4 vertexColor;
attribute vec4 vertexValues;
varying vec3 viewNormal;
varying vec3 ownNormal;
varying vec3 viewPlace;
varying vec3 ownPlace;
varying vec3 ownColor;
varying vec3 values;
${unpackNormal}
void main() {
    ownNormal = unpackedNormal(packedNormal);
    viewNormal = mat3(viewMatrix) * normalize(mat3(modelMatrix) * ownNormal);
    ownPlace = position;
    vec4 seen = viewMatrix * modelMatrix * vec4(position, 1.0);
    viewPlace = seen.xyz;
    ownColor = vertexColor.rgb;
    values = vertexValues.xyz;
    gl_Position = projectionMatrix * seen;
}`;

export const meshFragmentShader = /* glsl */ `
uniform int shading;
uniform vec3 clay;
uniform vec3 insideColor;
uniform vec3 cutColor;
uniform vec3 upInView;
uniform vec3 skyLight;
uniform vec3 groundLight;
uniform float rim; // outlines brighter on a dark ground, darker on a light one
uniform bool hasSky; // the third value tells how much of the sky is open
uniform vec4 clipPlane; // of the numbers that places are given in
uniform bool isCut;
uniform bool isClosed;
uniform sampler2D ramp;
varying vec3 viewNormal;
varying vec3 ownNormal;
varying vec3 viewPlace;
varying vec3 ownPlace;
varying vec3 ownColor;
varying vec3 values;

vec3 toLinear(vec3 c) { return mix(c / 12.92, pow((c + 0.055) / 1.055, vec3(2.4)), step(0.04045, c)); }
vec3 toDisplay(vec3 c) { return mix(12.92 * c, 1.055 * pow(c, vec3(1.0 / 2.4)) - 0.055, step(0.0031308, c)); }

void main() {
    float behindCut = dot(clipPlane, vec4(ownPlace, 1.0));
    if (behindCut < 0.0)
        discard;
    vec3 n = normalize(viewNormal);
    vec3 toViewer = normalize(-viewPlace);
    vec3 facet = cross(dFdx(viewPlace), dFdy(viewPlace));
    // At a silhouette, triangles that turn away show by parts of a pixel; their normals hardly do. Normals that
    // point away by a little are bent back; those of the inside, which a border or a cut lays open, are turned.
    bool isInside = !gl_FrontFacing && (isCut || (!isClosed && dot(n, toViewer) < -0.06));
    if (isInside)
        n = -n;
    float facing = dot(n, toViewer);
    if (facing < 0.0)
        n = normalize(n - 1.02 * facing * toViewer);

    vec3 base = toLinear(clay);
    if (shading == 1)
        base = toLinear(ownColor);
    else if (shading == 2)
        base = toLinear(0.5 + 0.5 * normalize(ownNormal));
    else if (shading == 3)
        base = toLinear(texture2D(ramp, vec2(values.x * (255.0 / 256.0) + 0.5 / 256.0, 0.5)).rgb);
    else if (shading == 4)
        base = toLinear(texture2D(ramp, vec2(values.y * (255.0 / 256.0) + 0.5 / 256.0, 0.5)).rgb);
    if (isInside)
        base = mix(base, toLinear(insideColor), shading == 0 ? 1.0 : 0.55);

    float open = isInside || !hasSky ? 1.0 : values.z * (0.35 + 0.65 * values.z);
    vec3 sky = mix(groundLight, skyLight, 0.5 + 0.5 * dot(n, upInView)) * open;
    vec3 keyFrom = normalize(vec3(-0.55, 0.65, 0.65));
    vec3 fillFrom = normalize(vec3(0.8, 0.05, 0.45));
    float key = max(dot(n, keyFrom), 0.0);
    float fill = max(dot(n, fillFrom), 0.0);
    float shadowed = mix(0.55, 1.0, open);
    vec3 light = sky + shadowed * (0.9 * key * vec3(1.0, 0.975, 0.94) + 0.26 * fill * vec3(0.82, 0.9, 1.0));
    // Where colours are data they are not to drown in light or shadow.
    bool isData = shading >= 2;
    if (isData)
        light = mix(light, vec3(0.9), 0.4);
    vec3 color = base * light;
    float gloss = pow(max(dot(n, normalize(keyFrom + toViewer)), 0.0), 42.0);
    float edge = pow(1.0 - max(dot(n, toViewer), 0.0), 3.5);
    color += (isData ? 0.3 : 1.0) * open * 0.075 * gloss;
    color *= 1.0 + (isData ? 0.5 : 1.0) * rim * edge;
    color = color / (1.0 + 0.16 * color * color);

    // A line of about two pixels along the cut.
    float width = 2.0 * fwidth(behindCut);
    if (isCut && behindCut < width && length(facet) > 0.0)
        color = mix(color, toLinear(cutColor), 0.85);
    gl_FragColor = vec4(toDisplay(clamp(color, 0.0, 1.0)), 1.0);
}`;

export const lineVertexShader = /* glsl */ `
varying vec3 ownPlace;
void main() {
    ownPlace = position;
    gl_Position = projectionMatrix * viewMatrix * modelMatrix * vec4(position, 1.0);
    gl_Position.z -= 2e-5 * gl_Position.w;
}`;

export const lineFragmentShader = /* glsl */ `
uniform vec3 color;
uniform float opacity;
uniform vec4 clipPlane;
varying vec3 ownPlace;
void main() {
    if (dot(clipPlane, vec4(ownPlace, 1.0)) < 0.0)
        discard;
    gl_FragColor = vec4(color, opacity);
}`;

export const pointVertexShader = /* glsl */ `
attribute vec4 vertexColor;
uniform float size;
uniform vec4 grid; // from the numbers of the samples to those of the mesh: offset and factor
varying vec3 ownPlace;
varying vec3 ownColor;
void main() {
    ownPlace = grid.xyz + grid.w * position;
    ownColor = vertexColor.rgb;
    gl_Position = projectionMatrix * viewMatrix * modelMatrix * vec4(ownPlace, 1.0);
    gl_Position.z -= 4e-5 * gl_Position.w; // those on the surface are not to flicker through it
    gl_PointSize = size;
}`;

export const pointFragmentShader = /* glsl */ `
uniform vec3 color;
uniform bool hasColors;
uniform vec4 clipPlane;
varying vec3 ownPlace;
varying vec3 ownColor;
void main() {
    if (dot(clipPlane, vec4(ownPlace, 1.0)) < 0.0 || length(gl_PointCoord - 0.5) > 0.5)
        discard;
    gl_FragColor = vec4(hasColors ? ownColor : color, 1.0);
}`;
