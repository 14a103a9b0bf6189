// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/Drawing/Picture.h>

#include <QZmath/Viewer/Drawing/Loops.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace QZmath::Viewing
{

namespace
{

int const st_fine = 3;      // samples along the side of a pixel
int const st_bandRows = 16; // of pixels that are drawn as one piece of work

Vec3 hex(unsigned color)
{
    return {float(color >> 16 & 255) / 255, float(color >> 8 & 255) / 255, float(color & 255) / 255};
}

float toLinear(float c) { return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f); }
Vec3 toLinear(Vec3 c) { return {toLinear(c.x), toLinear(c.y), toLinear(c.z)}; }

// The display's value of a light from 0 to 1, in 4096 steps.
class DisplayTable
{
public:
    DisplayTable()
    {
        for (std::size_t i = 0; i < m_values.size(); ++i) {
            float const c = float(i) / float(m_values.size() - 1);
            m_values[i] = c <= 0.0031308f ? 12.92f * c : 1.055f * std::pow(c, 1 / 2.4f) - 0.055f;
        }
    }
    float operator()(float c) const
    {
        return m_values[static_cast<std::size_t>(std::clamp(c, 0.0f, 1.0f) * float(m_values.size() - 1) +
                                                 0.5f)];
    }

private:
    std::array<float, 4096> m_values;
};

template <std::size_t Count>
Vec3 between(std::array<unsigned, Count> const & stops, std::uint8_t value)
{
    float const place = float(value) / 255 * float(Count - 1);
    auto const lower = std::min(static_cast<std::size_t>(place), Count - 2);
    return mix(hex(stops[lower]), hex(stops[lower + 1]), place - float(lower));
}

/// A corner on the screen: samples to the right and down, and the reciprocal of its distance, which is linear
/// there.
struct Corner
{
    float x, y, nearness;
};

class Painter
{
public:
    Painter(SceneMesh const & mesh, Paint const & paint, Camera const & camera, Look const & look, int width,
            int height)
        : m_mesh(mesh), m_paint(paint), m_camera(camera), m_look(look), m_width(width), m_height(height)
    {
        m_clay = toLinear(look.clay);
        m_inside = toLinear(look.inside);
        for (std::size_t i = 0; i < 256; ++i)
            m_linear[i] = toLinear(float(i) / 255);
        m_upwards = camera.turned(camera.up == 2   ? Vec3{0, 0, 1}
                                  : camera.up == 0 ? Vec3{1, 0, 0}
                                                   : Vec3{0, 1, 0});
        m_corners.resize(mesh.vertexCount());
        forEachPiece(m_corners.size(), 8192, [&](std::size_t begin, std::size_t end) {
            for (std::size_t v = begin; v < end; ++v) {
                Vec3 const place = camera.seen(mesh.place(static_cast<std::uint32_t>(v)));
                float const nearness = 1 / -place.z;
                m_corners[v] = {st_fine * (camera.middleX + camera.focus * place.x * nearness),
                                st_fine * (camera.middleY - camera.focus * place.y * nearness), nearness};
            }
        });
    }

    Picture draw()
    {
        Picture picture{m_width, m_height, {}};
        picture.bytes.resize(3 * static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height));
        int const bands = (m_height + st_bandRows - 1) / st_bandRows;
        sortIntoBands(bands);
        forEach(bands, [&](int band) { drawBand(band, picture); });
        return picture;
    }

private:
    std::array<Corner const *, 3> cornersOf(std::uint32_t triangle) const
    {
        std::uint32_t const * const corners = &m_mesh.triangles[3 * std::size_t(triangle)];
        return {&m_corners[corners[0]], &m_corners[corners[1]], &m_corners[corners[2]]};
    }

    // First and last row of samples that a triangle can touch, none when the first is greater.
    std::array<int, 2> rowsOf(std::uint32_t triangle) const
    {
        auto const [a, b, c] = cornersOf(triangle);
        float const most = float(st_fine * m_height - 1);
        float const first = std::ceil(std::min({a->y, b->y, c->y}) - 0.5f);
        float const last = std::floor(std::max({a->y, b->y, c->y}) - 0.5f);
        return {static_cast<int>(std::clamp(first, 0.0f, most + 1)),
                static_cast<int>(std::clamp(last, -1.0f, most))};
    }

    // Lists of the triangles that touch each band, in their order.
    void sortIntoBands(int bands)
    {
        int const rows = st_fine * st_bandRows;
        auto const number = static_cast<std::uint32_t>(m_mesh.triangleCount());
        m_bandBegins.assign(static_cast<std::size_t>(bands) + 1, 0);
        auto const visit = [&](auto const & add) {
            for (std::uint32_t t = 0; t < number; ++t) {
                auto const [first, last] = rowsOf(t);
                for (int band = first / rows; first <= last && band <= last / rows; ++band)
                    add(static_cast<std::size_t>(band), t);
            }
        };
        visit([&](std::size_t band, std::uint32_t) { ++m_bandBegins[band + 1]; });
        for (std::size_t band = 1; band < m_bandBegins.size(); ++band)
            m_bandBegins[band] += m_bandBegins[band - 1];
        m_bandTriangles.resize(m_bandBegins.back());
        std::vector<std::size_t> next(m_bandBegins.begin(), m_bandBegins.end() - 1);
        visit([&](std::size_t band, std::uint32_t t) { m_bandTriangles[next[band]++] = t; });
    }

    struct Sample
    {
        float nearness = 0;
        std::uint32_t triangle = 0; // where the nearness is above 0
    };

    void drawBand(int band, Picture & picture) const
    {
        int const firstRow = band * st_bandRows, lastRow = std::min(m_height, firstRow + st_bandRows);
        int const columns = st_fine * m_width;
        std::vector<Sample> samples(std::size_t(columns) * std::size_t(st_fine * (lastRow - firstRow)));
        auto const index = static_cast<std::size_t>(band);
        for (std::size_t i = m_bandBegins[index]; i < m_bandBegins[index + 1]; ++i)
            cover(m_bandTriangles[i], st_fine * firstRow, st_fine * lastRow, columns, samples);
        for (int y = firstRow; y < lastRow; ++y)
            for (int x = 0; x < m_width; ++x) {
                Vec3 const sum = pixelSum(x, y, firstRow, samples);
                std::uint8_t * const pixel = picture.pixel(x, y);
                for (int k = 0; k < 3; ++k)
                    pixel[k] = static_cast<std::uint8_t>(
                        std::lround(255 / float(st_fine * st_fine) * std::max(sum[k], 0.0f)));
            }
    }

    // The sum over the samples of a pixel. Light changes little within a triangle, so each one that is seen
    // in the pixel is lit once, in the middle of its samples.
    Vec3 pixelSum(int x, int y, int firstRow, std::vector<Sample> const & samples) const
    {
        struct Part
        {
            std::uint32_t triangle;
            int columns, rows, count;
        };
        std::array<Part, st_fine * st_fine> parts;
        std::size_t partCount = 0;
        int empty = 0;
        for (int k = 0; k < st_fine * st_fine; ++k) {
            int const column = st_fine * x + k % st_fine, row = st_fine * y + k / st_fine;
            Sample const & sample =
                samples[std::size_t(row - st_fine * firstRow) * std::size_t(st_fine * m_width) +
                        std::size_t(column)];
            if (!(sample.nearness > 0)) {
                ++empty;
                continue;
            }
            std::size_t part = 0;
            while (part < partCount && parts[part].triangle != sample.triangle)
                ++part;
            if (part == partCount)
                parts[partCount++] = {sample.triangle, 0, 0, 0};
            parts[part].columns += column;
            parts[part].rows += row;
            ++parts[part].count;
        }
        Vec3 sum = empty > 0 ? float(empty) * groundAt(x, y) : Vec3();
        for (std::size_t part = 0; part < partCount; ++part) {
            auto const & [triangle, columns, rows, count] = parts[part];
            float const share = 1 / float(count);
            sum = sum +
                  float(count) * shade(triangle, share * float(columns) + 0.5f, share * float(rows) + 0.5f);
        }
        return sum;
    }

    // Marks the samples of a band that a triangle is the nearest at.
    void cover(std::uint32_t triangle, int firstRow, int endRow, int columns,
               std::vector<Sample> & samples) const
    {
        auto const [a, b, c] = cornersOf(triangle);
        float const ux = b->x - a->x, uy = b->y - a->y, vx = c->x - a->x, vy = c->y - a->y;
        float const area = ux * vy - uy * vx;
        if (area == 0)
            return;
        auto const [first, last] = rowsOf(triangle);
        float const leftmost = std::min({a->x, b->x, c->x}), rightmost = std::max({a->x, b->x, c->x});
        int const left = static_cast<int>(std::clamp(std::ceil(leftmost - 0.5f), 0.0f, float(columns)));
        int const right =
            static_cast<int>(std::clamp(std::floor(rightmost - 0.5f), -1.0f, float(columns - 1)));
        for (int y = std::max(first, firstRow); y <= std::min(last, endRow - 1); ++y) {
            Sample * const row = &samples[std::size_t(y - firstRow) * std::size_t(columns)];
            float const py = float(y) + 0.5f - a->y;
            for (int x = left; x <= right; ++x) {
                float const px = float(x) + 0.5f - a->x;
                float const second = (px * vy - py * vx) / area, third = (py * ux - px * uy) / area;
                if (second < 0 || third < 0 || second + third > 1)
                    continue;
                float const nearness =
                    a->nearness + second * (b->nearness - a->nearness) + third * (c->nearness - a->nearness);
                if (nearness > row[x].nearness)
                    row[x] = {nearness, triangle};
            }
        }
    }

    Vec3 groundAt(int x, int y) const
    {
        float const dx = (float(x) + 0.5f) / float(m_width) - 0.5f;
        float const dy = (float(y) + 0.5f) / float(m_height) - 0.38f;
        float const away = std::hypot(dx / 1.2f, dy / 1.05f);
        return mix(m_look.ground, m_look.groundFar, std::clamp((away - 0.3f) / 0.7f, 0.0f, 1.0f));
    }

    Vec3 shade(std::uint32_t triangle, float x, float y) const
    {
        std::uint32_t const * const vertices = &m_mesh.triangles[3 * std::size_t(triangle)];
        auto const [a, b, c] = cornersOf(triangle);
        float const ux = b->x - a->x, uy = b->y - a->y, vx = c->x - a->x, vy = c->y - a->y;
        float const area = ux * vy - uy * vx;
        float const px = x - a->x, py = y - a->y;
        float weights[3];
        weights[1] = (px * vy - py * vx) / area * b->nearness;
        weights[2] = (py * ux - px * uy) / area * c->nearness;
        weights[0] = (1 - (px * vy - py * vx) / area - (py * ux - px * uy) / area) * a->nearness;
        float const total = weights[0] + weights[1] + weights[2];
        Vec3 normal, color;
        float sky = 0;
        for (int k = 0; k < 3; ++k) {
            float const share = weights[k] / total;
            std::size_t const v = vertices[k];
            normal = normal + share * m_mesh.normal(vertices[k]);
            sky += share * float(m_paint.sky[v]) / 255;
            if (!m_paint.colors.empty())
                color =
                    color + share * Vec3{m_linear[m_paint.colors[3 * v]], m_linear[m_paint.colors[3 * v + 1]],
                                         m_linear[m_paint.colors[3 * v + 2]]};
        }
        Vec3 n = m_camera.turned(normal).unit();
        Vec3 const toViewer =
            (-1 / m_camera.focus *
             Vec3{x / st_fine - m_camera.middleX, m_camera.middleY - y / st_fine, -m_camera.focus})
                .unit();
        // Counter-clockwise seen from outside is clockwise with rows that go down. At a silhouette, triangles
        // that turn away show by parts of a pixel; their normals hardly do.
        bool const isInside = area > 0 && !m_mesh.isClosed && dot(n, toViewer) < -0.06f;
        if (isInside)
            n = -1 * n;
        float const facing = dot(n, toViewer);
        if (facing < 0)
            n = (n - 1.02f * facing * toViewer).unit();
        Vec3 base = m_paint.colors.empty() ? m_clay : color;
        if (isInside)
            base = mix(base, m_inside, m_paint.colors.empty() ? 1.0f : 0.55f);
        return lit(n, toViewer, base, isInside ? 1.0f : sky * (0.35f + 0.65f * sky));
    }

    Vec3 lit(Vec3 n, Vec3 toViewer, Vec3 base, float open) const
    {
        static Vec3 const keyFrom = Vec3{-0.55f, 0.65f, 0.65f}.unit(),
                          fillFrom = Vec3{0.8f, 0.05f, 0.45f}.unit();
        Vec3 light = open * mix(m_look.below, m_look.sky, 0.5f + 0.5f * dot(n, m_upwards));
        float const shadowed = 0.55f + 0.45f * open;
        light = light + (shadowed * 0.9f * std::max(dot(n, keyFrom), 0.0f)) * Vec3{1.0f, 0.975f, 0.94f} +
                (shadowed * 0.26f * std::max(dot(n, fillFrom), 0.0f)) * Vec3{0.82f, 0.9f, 1.0f};
        if (m_paint.isData)
            light = mix(light, {0.9f, 0.9f, 0.9f}, 0.4f);
        float const gloss = std::pow(std::max(dot(n, (keyFrom + toViewer).unit()), 0.0f), 42.0f);
        float const edge = std::pow(1 - std::clamp(dot(n, toViewer), 0.0f, 1.0f), 3.5f);
        float const shine = (m_paint.isData ? 0.3f : 1.0f) * open;
        Vec3 color = light * base + (shine * 0.075f * gloss) * Vec3{1, 1, 1};
        color = (1 + (m_paint.isData ? 0.5f : 1.0f) * m_look.rim * edge) * color;
        color = {color.x / (1 + 0.16f * color.x * color.x), color.y / (1 + 0.16f * color.y * color.y),
                 color.z / (1 + 0.16f * color.z * color.z)};
        return {m_display(color.x), m_display(color.y), m_display(color.z)};
    }

    SceneMesh const & m_mesh;
    Paint const & m_paint;
    Camera const & m_camera;
    Look const & m_look;
    int const m_width, m_height;
    Vec3 m_clay, m_inside, m_upwards;
    std::array<float, 256> m_linear;
    DisplayTable const m_display;
    std::vector<Corner> m_corners;
    std::vector<std::size_t> m_bandBegins;
    std::vector<std::uint32_t> m_bandTriangles;
};

} // namespace

Look Look::of(bool dark)
{
    Look look;
    if (dark) {
        look.ground = hex(0x23272d);
        look.groundFar = hex(0x121417);
        look.clay = {0.74f, 0.745f, 0.75f};
        look.inside = {0.78f, 0.45f, 0.35f};
        look.text = hex(0xeceef1);
        look.sky = {0.33f, 0.36f, 0.4f};
        look.below = {0.09f, 0.085f, 0.085f};
        look.rim = 0.35f;
        look.axes[0] = hex(0xf0857c);
        look.axes[1] = hex(0x86cf7f);
        look.axes[2] = hex(0x8db4f5);
    } else {
        look.ground = hex(0xf6f5f2);
        look.groundFar = hex(0xdfe0e0);
        look.clay = {0.80f, 0.77f, 0.725f};
        look.inside = {0.79f, 0.47f, 0.37f};
        look.text = hex(0x23262b);
        look.sky = {0.36f, 0.385f, 0.42f};
        look.below = {0.17f, 0.155f, 0.14f};
        look.rim = -0.4f;
        look.axes[0] = hex(0xc8453b);
        look.axes[1] = hex(0x3c8a3a);
        look.axes[2] = hex(0x3b6fc8);
    }
    return look;
}

Picture drawMesh(SceneMesh const & mesh, Paint const & paint, Camera const & camera, Look const & look,
                 int width, int height)
{
    return Painter(mesh, paint, camera, look, width, height).draw();
}

Vec3 densityColor(std::uint8_t value)
{
    static std::array<unsigned, 10> const stops = {0x440154, 0x482878, 0x3e4989, 0x31688e, 0x26828e,
                                                   0x1f9e89, 0x35b779, 0x6ece58, 0xb5de2b, 0xfde725};
    return between(stops, value);
}

Vec3 distanceColor(std::uint8_t value)
{
    static std::array<unsigned, 7> const stops = {0xf3efe3, 0xf6d896, 0xf0a95b, 0xdc7043,
                                                  0xad3d4c, 0x6c2250, 0x2f1238};
    return between(stops, value);
}

} // namespace QZmath::Viewing
