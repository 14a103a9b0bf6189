// SPDX-License-Identifier: Apache-2.0

/**
 * The nearest place where a ray meets the triangles, in the numbers of the places, or null. What lies behind
 * the clipping plane is passed over. Cf. T. Moeller, B. Trumbore, Fast, minimum storage ray-triangle
 * intersection, 1997.
 */
export function nearestHit(places, triangles, from, direction, plane) {
    const [fx, fy, fz] = from, [dx, dy, dz] = direction;
    // How far along the ray the part begins and ends that the plane leaves.
    const start = plane[0] * fx + plane[1] * fy + plane[2] * fz + plane[3];
    const growth = plane[0] * dx + plane[1] * dy + plane[2] * dz;
    let least = 0, most = Infinity;
    if (growth > 0)
        least = Math.max(0, -start / growth);
    else if (growth < 0)
        most = start / -growth;
    else if (start < 0)
        return null;
    let best = most;
    let isHit = false;
    for (let t = 0; t < triangles.length; t += 3) {
        const a = 4 * triangles[t], b = 4 * triangles[t + 1], c = 4 * triangles[t + 2];
        const ax = places[a], ay = places[a + 1], az = places[a + 2];
        const ux = places[b] - ax, uy = places[b + 1] - ay, uz = places[b + 2] - az;
        const vx = places[c] - ax, vy = places[c + 1] - ay, vz = places[c + 2] - az;
        const px = dy * vz - dz * vy, py = dz * vx - dx * vz, pz = dx * vy - dy * vx;
        const volume = ux * px + uy * py + uz * pz;
        if (volume === 0)
            continue;
        const sx = fx - ax, sy = fy - ay, sz = fz - az;
        const first = (sx * px + sy * py + sz * pz) / volume;
        if (first < 0 || first > 1)
            continue;
        const qx = sy * uz - sz * uy, qy = sz * ux - sx * uz, qz = sx * uy - sy * ux;
        const second = (dx * qx + dy * qy + dz * qz) / volume;
        if (second < 0 || first + second > 1)
            continue;
        const along = (vx * qx + vy * qy + vz * qz) / volume;
        if (along > least && along < best) {
            best = along;
            isHit = true;
        }
    }
    return isHit ? [fx + best * dx, fy + best * dy, fz + best * dz] : null;
}
