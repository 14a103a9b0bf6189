// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Viewer/MeshStill.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <support/SphereMesh.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

using namespace QZmath;
using Color = std::array<int, 3>;

namespace
{

std::uint32_t bigEndian(std::string const & bytes, std::size_t at)
{
    std::uint32_t number = 0;
    for (std::size_t k = 0; k < 4; ++k)
        number = number << 8 | static_cast<unsigned char>(bytes[at + k]);
    return number;
}

// A PNG of 8 bits and three colours, read by the letter of its format: checksums, filters, length.
struct ReadPng
{
    explicit ReadPng(std::string const & file)
    {
        EXPECT_EQ(file.substr(0, 8), "\x89PNG\r\n\x1a\n");
        std::string packed;
        std::string last;
        for (std::size_t at = 8; at < file.size();) {
            std::size_t const length = bigEndian(file, at);
            last = file.substr(at + 4, 4);
            auto const * const body = reinterpret_cast<Bytef const *>(file.data() + at + 4);
            EXPECT_EQ(bigEndian(file, at + 8 + length), crc32(0, body, static_cast<uInt>(length + 4)))
                << last;
            if (last == "IHDR") {
                width = static_cast<int>(bigEndian(file, at + 8));
                height = static_cast<int>(bigEndian(file, at + 12));
                EXPECT_EQ(file.substr(at + 16, 5), std::string("\x08\x02\x00\x00\x00", 5));
            } else if (last == "IDAT") {
                packed += file.substr(at + 8, length);
            }
            at += 12 + length;
        }
        EXPECT_EQ(last, "IEND");
        std::size_t const row = 3 * static_cast<std::size_t>(width);
        std::vector<Bytef> filtered((row + 1) * static_cast<std::size_t>(height));
        uLongf size = filtered.size();
        EXPECT_EQ(
            uncompress(filtered.data(), &size, reinterpret_cast<Bytef const *>(packed.data()), packed.size()),
            Z_OK);
        EXPECT_EQ(size, filtered.size());
        bytes.assign(row * static_cast<std::size_t>(height), 0);
        for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y) {
            int const filter = filtered[y * (row + 1)];
            for (std::size_t i = 0; i < row; ++i) {
                int const left = i >= 3 ? bytes[y * row + i - 3] : 0,
                          above = y > 0 ? bytes[(y - 1) * row + i] : 0;
                int const corner = i >= 3 && y > 0 ? bytes[(y - 1) * row + i - 3] : 0;
                int const toLeft = std::abs(above - corner), toAbove = std::abs(left - corner);
                int const toCorner = std::abs(left + above - 2 * corner);
                int const paeth = toLeft <= toAbove && toLeft <= toCorner ? left
                                  : toAbove <= toCorner                   ? above
                                                                          : corner;
                int const guess = filter == 0   ? 0
                                  : filter == 1 ? left
                                  : filter == 2 ? above
                                  : filter == 4 ? paeth
                                                : throw std::runtime_error("a filter that is not used");
                bytes[y * row + i] = static_cast<unsigned char>(filtered[y * (row + 1) + 1 + i] + guess);
            }
        }
    }

    Color at(int x, int y) const
    {
        unsigned char const * const pixel =
            &bytes[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                        static_cast<std::size_t>(x))];
        return {pixel[0], pixel[1], pixel[2]};
    }
    int brightness(int x, int y) const
    {
        Color const color = at(x, y);
        return color[0] + color[1] + color[2];
    }

    int width = 0, height = 0;
    std::vector<unsigned char> bytes;
};

MeshScene sceneOf(TriangleMesh const & mesh)
{
    MeshScene scene;
    scene.mesh = &mesh;
    return scene;
}

// A mesh without colours, so that it is drawn plain.
TriangleMesh plainSphere(double radius = 1)
{
    TriangleMesh mesh = qz_test::sphere(60, 90, radius);
    mesh.colors = {};
    return mesh;
}

} // namespace

TEST(MeshStill, aSphereIsADiscInTheMiddle)
{
    TriangleMesh const mesh = plainSphere();
    StillOptions options;
    options.width = 300;
    options.height = 200;
    options.shading = StillOptions::Shading::normal;
    ReadPng const picture(meshStill(sceneOf(mesh), options));
    ASSERT_EQ(picture.width, 300);
    ASSERT_EQ(picture.height, 200);
    // Coloured by normals, the disc is far from the grey of the ground, but for some darker rim.
    double count = 0, sumX = 0;
    int top = 200;
    for (int y = 0; y < 165; ++y) // above the scale
        for (int x = 60; x < 240; ++x) {
            Color const color = picture.at(x, y);
            if (*std::max_element(color.begin(), color.end()) -
                    *std::min_element(color.begin(), color.end()) <
                20)
                continue;
            ++count;
            sumX += x + 0.5;
            top = std::min(top, y);
        }
    EXPECT_NEAR(sumX / count, 150, 4);
    EXPECT_NEAR(top, 200 * 0.06, 5); // the rim left free
    // What faces the viewer has the colour of its normal, which is the direction to the viewer: between x and
    // z, a little upwards along y.
    Color const middle = picture.at(150, 100);
    EXPECT_GT(middle[2], middle[0]);
    EXPECT_GT(middle[0], middle[1]);
}

TEST(MeshStill, lightComesFromAboveAndHollowsAreDark)
{
    StillOptions options;
    options.width = options.height = 200;
    ReadPng const ball(meshStill(sceneOf(plainSphere()), options));
    EXPECT_GT(ball.brightness(80, 50), ball.brightness(110, 170) + 100);

    // A dent: the same slope of the surface, with a wall around that hides the sky.
    auto const wave = [](bool isDeep) {
        TriangleMesh mesh;
        int const side = 81;
        for (int i = 0; i < side; ++i)
            for (int j = 0; j < side; ++j) {
                double const x = i / 40.0 - 1, y = j / 40.0 - 1, r = std::hypot(x, y);
                double const dent = r < 0.5 ? std::pow(std::cos(3.14159265 * r), 2) : 0;
                for (double const coord : {x, y, isDeep ? -0.9 * dent : 0.0})
                    mesh.positions.push_back(static_cast<float>(coord));
                if (i + 1 < side && j + 1 < side)
                    for (int const corner : {0, side, side + 1, 0, side + 1, 1})
                        mesh.triangles.push_back(i * side + j + corner);
            }
        // The bottom of the dent and the plain have the same normal; the light does not follow from it alone.
        mesh.normals.assign(mesh.positions.size(), 0);
        for (std::size_t v = 0; v < mesh.vertexCount(); ++v)
            mesh.normals[3 * v + 2] = 1;
        return mesh;
    };
    TriangleMesh const dent = wave(true), plain = wave(false);
    ReadPng const deep(meshStill(sceneOf(dent), options)), flat(meshStill(sceneOf(plain), options));
    int darkest = 765, plainest = 765;
    for (int y = 60; y < 140; ++y)
        for (int x = 60; x < 140; ++x) {
            darkest = std::min(darkest, deep.brightness(x, y));
            plainest = std::min(plainest, flat.brightness(x, y));
        }
    EXPECT_LT(darkest, plainest - 60);
}

TEST(MeshStill, theInsideLooksOtherThanTheOutside)
{
    TriangleMesh mesh = plainSphere(), turned = mesh;
    for (std::size_t i = 0; i < turned.triangles.size(); i += 3)
        std::swap(turned.triangles[i], turned.triangles[i + 1]);
    turned.triangles.resize(turned.triangles.size() - 3); // that of a closed mesh is nowhere to be seen
    for (float & coord : turned.normals)
        coord = -coord;
    StillOptions options;
    options.width = options.height = 120;
    Color const outside = ReadPng(meshStill(sceneOf(mesh), options)).at(60, 60);
    Color const inside = ReadPng(meshStill(sceneOf(turned), options)).at(60, 60);
    EXPECT_LT(outside[0] - outside[2], 40);
    EXPECT_GT(inside[0] - inside[2], 50);
}

TEST(MeshStill, theRuleIsAsLongAsItSays)
{
    // The same picture at any scale, but for the number at the rule. A sphere of radius 1 is some 2.2 units
    // across the picture's height; the rule takes at most 0.24 of the width.
    StillOptions options;
    options.width = options.height = 400;
    auto const ruleOf = [&](double radius) {
        TriangleMesh const mesh = plainSphere(radius);
        ReadPng const picture(meshStill(sceneOf(mesh), options));
        int const row = static_cast<int>(400 - 44 * 400 / 1200.0);
        int length = 0;
        for (int x = 0; x < 200; ++x)
            length += picture.brightness(x, row) < 300;
        return length;
    };
    // The sphere's outline, seen at the distance of its middle, is what the height shows but for the rim of
    // 12 %: 400 pixels are about 2 * 1.12 units or a little less.
    double const pixelsPerUnit = 400 / (2 * 1.12);
    EXPECT_NEAR(ruleOf(1), 0.5 * pixelsPerUnit, 6);
    EXPECT_NEAR(ruleOf(2), 1 * pixelsPerUnit / 2, 6);
    EXPECT_NEAR(ruleOf(2.6e-4), 1e-4 * pixelsPerUnit / 2.6e-4, 6);
}

TEST(MeshStill, optionsAndWhatIsMissingAreRefused)
{
    TriangleMesh const mesh = plainSphere();
    for (auto const & [width, height] : {std::pair(15, 100), {100, 0}, {-5, 100}, {100, 16385}}) {
        StillOptions options;
        options.width = width;
        options.height = height;
        EXPECT_THROW(meshStill(sceneOf(mesh), options), InputError);
    }
    for (auto const shading : {StillOptions::Shading::color, StillOptions::Shading::distance}) {
        StillOptions options;
        options.shading = shading;
        EXPECT_THROW(meshStill(sceneOf(mesh), options), InputError);
    }
    TriangleMesh const empty;
    StillOptions small;
    small.width = 16;
    small.height = 400; // narrow ones too
    ReadPng const ground(meshStill(sceneOf(empty), small));
    EXPECT_GT(ground.brightness(8, 152), 700);
    ReadPng const narrow(meshStill(sceneOf(mesh), small));
    EXPECT_EQ(narrow.height, 400);
    small.dark = true;
    EXPECT_LT(ReadPng(meshStill(sceneOf(empty), small)).brightness(8, 152), 200);
}
