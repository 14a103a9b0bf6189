// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/Errors.h>
#include <QZmath/Viewer/Viewer.h>
#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <meshoptimizer.h>
#include <nlohmann/json.hpp>
#include <support/SphereMesh.h>
#include <support/TestFolder.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace QZmath;
using testing::HasSubstr;

namespace
{

std::vector<unsigned char> fromBase64(std::string const & text)
{
    std::string const letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<unsigned char> bytes;
    unsigned bits = 0;
    int count = 0;
    for (char const letter : text) {
        std::size_t const value = letters.find(letter);
        if (value == std::string::npos)
            break;
        bits = bits << 6 | static_cast<unsigned>(value);
        if ((count += 6) >= 8)
            bytes.push_back(static_cast<unsigned char>(bits >> (count -= 8) & 255));
    }
    return bytes;
}

// What a browser finds in a page: the blocks by their names, read as it reads them, up to the next end of a
// script.
struct ReadPage
{
    explicit ReadPage(std::string const & page)
    {
        std::string const end = "</script";
        for (std::size_t at = 0; (at = page.find("<script", at)) != std::string::npos;) {
            std::size_t const close = page.find('>', at), stop = page.find(end, close);
            std::string const tag = page.substr(at, close - at);
            std::size_t const id = tag.find("id=\"");
            if (id == std::string::npos)
                ++programs;
            else
                blocks[tag.substr(id + 4, tag.find('"', id + 4) - id - 4)] =
                    page.substr(close + 1, stop - close - 1);
            at = stop;
        }
        scene = nlohmann::json::parse(blocks.at("scene"));
    }

    template <class T>
    std::vector<T> vertices(std::string const & id, std::size_t count) const
    {
        std::vector<T> values(count);
        std::vector<unsigned char> const bytes = fromBase64(blocks.at(id));
        EXPECT_EQ(meshopt_decodeVertexBuffer(values.data(), count, sizeof(T), bytes.data(), bytes.size()), 0)
            << id;
        return values;
    }
    std::vector<std::uint32_t> triangles() const
    {
        std::vector<std::uint32_t> corners(3 * scene["triangleCount"].get<std::size_t>());
        std::vector<unsigned char> const bytes = fromBase64(blocks.at("triangles"));
        EXPECT_EQ(meshopt_decodeIndexBuffer(corners.data(), corners.size(), 4, bytes.data(), bytes.size()),
                  0);
        return corners;
    }
    std::size_t count() const { return scene["vertexCount"]; }

    std::map<std::string, std::string> blocks;
    nlohmann::json scene;
    int programs = 0;
};

using Words = std::array<std::uint16_t, 4>;
using Four = std::array<std::uint8_t, 4>;

std::array<double, 3> unpacked(std::uint16_t normal)
{
    double x = ((normal & 255) - 127) / 127.0, y = ((normal >> 8) - 127) / 127.0;
    double const z = 1 - std::abs(x) - std::abs(y);
    if (z < 0) {
        double const folded = (1 - std::abs(y)) * (x < 0 ? -1 : 1);
        y = (1 - std::abs(x)) * (y < 0 ? -1 : 1);
        x = folded;
    }
    double const length = std::sqrt(x * x + y * y + z * z);
    return {x / length, y / length, z / length};
}

MeshScene sceneOf(TriangleMesh const & mesh)
{
    MeshScene scene;
    scene.mesh = &mesh;
    scene.title = "mesh";
    return scene;
}

} // namespace

TEST(MeshPage, holdsTheMeshWithinItsSteps)
{
    TriangleMesh mesh = qz_test::sphere(40, 70, 3);
    mesh.origin = {4e5, -6e6, 100};
    std::vector<float> distances;
    for (std::size_t v = 0; v < mesh.vertexCount(); ++v)
        distances.push_back(0.01f * mesh.positions[3 * v]);
    MeshScene scene = sceneOf(mesh);
    scene.distances = &distances;
    ReadPage const page(meshPage(scene));
    ASSERT_EQ(page.count(), mesh.vertexCount());
    auto const places = page.vertices<Words>("places", page.count());
    auto const values = page.vertices<Four>("values", page.count());
    auto const colors = page.vertices<Four>("colors", page.count());
    double const step = page.scene["step"];
    EXPECT_NEAR(step, 6.0 / 65535, 1e-4 / 65535);

    // Which vertex of the mesh each one is: the nearest, which is unique on a sphere of so few.
    std::vector<std::size_t> sources(page.count());
    for (std::size_t i = 0; i < page.count(); ++i) {
        double best = 1e9;
        std::array<double, 3> place;
        for (std::size_t k = 0; k < 3; ++k)
            place[k] = page.scene["low"][k].get<double>() + step * places[i][k];
        for (std::size_t v = 0; v < mesh.vertexCount(); ++v) {
            double away = 0;
            for (std::size_t k = 0; k < 3; ++k)
                away = std::max(away, std::abs(place[k] - double(mesh.positions[3 * v + k])));
            if (away < best) {
                best = away;
                sources[i] = v;
            }
        }
        ASSERT_LE(best, 0.51 * step + 1e-6);
        std::size_t const v = sources[i];
        std::array<double, 3> const normal = unpacked(places[i][3]);
        double cosine = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            cosine += normal[k] * double(mesh.normals[3 * v + k]);
            ASSERT_EQ(colors[i][k], mesh.colors[3 * v + k]);
        }
        ASSERT_GT(cosine, std::cos(0.02));
        for (auto const & [name, byte, value] : {std::tuple("density", values[i][0], mesh.density[v]),
                                                 {"distance", values[i][1], distances[v]}}) {
            double const low = page.scene[name]["low"], high = page.scene[name]["high"];
            double const told = low + (high - low) * byte / 255;
            ASSERT_NEAR(told, std::clamp(double(value), low, high), (high - low) / 500);
        }
    }
    EXPECT_EQ(page.scene["isClosed"], true);
    TriangleMesh open = mesh;
    open.triangles.resize(mesh.triangles.size() - 3);
    scene.mesh = &open;
    EXPECT_EQ(ReadPage(meshPage(scene)).scene["isClosed"], false);
    EXPECT_EQ(page.scene["distance"]["low"], 0.0);
    EXPECT_EQ(page.scene["density"]["highIsMore"], true);
    for (std::size_t k = 0; k < 3; ++k)
        EXPECT_EQ(page.scene["origin"][k], mesh.origin[k]);

    auto const triangleSet = [](auto const & corners, auto const & nameOf) {
        std::multiset<std::array<std::size_t, 3>> all;
        for (std::size_t i = 0; i < corners.size(); i += 3) {
            std::array<std::size_t, 3> t = {nameOf(corners[i]), nameOf(corners[i + 1]),
                                            nameOf(corners[i + 2])};
            std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
            all.insert(t);
        }
        return all;
    };
    EXPECT_EQ(triangleSet(page.triangles(), [&](std::uint32_t v) { return sources[v]; }),
              triangleSet(mesh.triangles, [](std::int32_t v) { return static_cast<std::size_t>(v); }));
}

TEST(MeshPage, textsCannotBecomeAnythingElse)
{
    TriangleMesh const mesh = qz_test::sphere(5, 8);
    MeshScene scene = sceneOf(mesh);
    std::string const hostile =
        "</script><script>alert('x')</script><!--<script>\xff\xc0\x01 \"\\ \xe2\x80\xa8";
    scene.title = scene.subtitle = hostile;
    scene.notes = {hostile};
    scene.report = {{hostile, {{hostile, hostile}}}};
    std::string const text = meshPage(scene);
    ReadPage const page(text), plain(meshPage(sceneOf(mesh)));
    EXPECT_EQ(page.programs, plain.programs);
    EXPECT_EQ(page.blocks.size(), plain.blocks.size());
    EXPECT_EQ(page.blocks.at("scene").find('<'), std::string::npos);
    EXPECT_THAT(page.scene["title"].get<std::string>(), HasSubstr("</script><script>alert('x')</script>"));
    EXPECT_EQ(page.scene["report"][0]["rows"][0][1], page.scene["title"]);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) == 0; }))
        << "an encoding could be mistaken";
}

TEST(MeshPage, numbersThatAreNoneAreLeftOut)
{
    float const nan = std::numeric_limits<float>::quiet_NaN(),
                infinite = std::numeric_limits<float>::infinity();
    TriangleMesh mesh = qz_test::sphere(20, 30);
    mesh.positions[3 * 100 + 1] = nan;
    mesh.positions[3 * 300] = -infinite;
    mesh.normals[3 * 50] = nan;
    mesh.density[60] = infinite;
    std::vector<float> distances(mesh.vertexCount(), nan);
    std::vector<float> const samples = {0, 0, 1, nan, 0, 0, 0, infinite, 0, 1, 0, 0, 50, 0, 0};
    MeshScene scene = sceneOf(mesh);
    scene.distances = &distances;
    scene.samples.size = samples.size() / 3;
    scene.samples.positions = samples.data();
    ReadPage const page(meshPage(scene));
    EXPECT_EQ(page.count(), mesh.vertexCount() - 2);
    EXPECT_EQ(page.scene["triangleCount"], mesh.triangleCount() - 12);
    EXPECT_THAT(page.scene["notes"][0].get<std::string>(), HasSubstr("12 triangles"));
    EXPECT_LT(page.scene["density"]["high"].get<double>(), 20);
    EXPECT_EQ(page.scene["samples"]["count"], 2); // the one far out would make all of them coarse
    EXPECT_EQ(page.scene["samples"]["of"], 5);

    TriangleMesh const empty;
    ReadPage const nothing(meshPage(sceneOf(empty)));
    EXPECT_EQ(nothing.scene["triangleCount"], 0);
    EXPECT_EQ(nothing.blocks.size(), 1u);

    TriangleMesh point; // all in one place
    point.positions.assign(9, 7);
    point.triangles = {0, 1, 2};
    EXPECT_GT(ReadPage(meshPage(sceneOf(point))).scene["step"].get<double>(), 0);
    TriangleMesh vast;
    vast.positions = {-3e38f, 0, 0, 3e38f, 0, 0, 0, 3e38f, 1};
    vast.triangles = {0, 1, 2};
    EXPECT_NEAR(ReadPage(meshPage(sceneOf(vast))).scene["step"].get<double>(), 6e38 / 65535, 1e31);
}

TEST(MeshPage, arraysThatDoNotFitAreRefused)
{
    TriangleMesh const good = qz_test::sphere(5, 8);
    EXPECT_THROW(meshPage(MeshScene()), InputError);
    std::vector<std::function<void(TriangleMesh &)>> const faults = {
        [](TriangleMesh & mesh) { mesh.positions.pop_back(); },
        [](TriangleMesh & mesh) { mesh.normals.pop_back(); },
        [](TriangleMesh & mesh) { mesh.colors.push_back(1); },
        [](TriangleMesh & mesh) { mesh.density.pop_back(); },
        [](TriangleMesh & mesh) { mesh.triangles.pop_back(); },
        [](TriangleMesh & mesh) { mesh.triangles[7] = -1; },
        [](TriangleMesh & mesh) { mesh.origin[1] = std::numeric_limits<double>::quiet_NaN(); },
        [](TriangleMesh & mesh) { mesh.triangles[7] = static_cast<std::int32_t>(mesh.vertexCount()); },
    };
    for (auto const & spoil : faults) {
        TriangleMesh mesh = good;
        spoil(mesh);
        EXPECT_THROW(meshPage(sceneOf(mesh)), InputError);
        EXPECT_THROW(meshStill(sceneOf(mesh)), InputError);
    }
    std::vector<float> const distances(3);
    MeshScene scene = sceneOf(good);
    scene.distances = &distances;
    EXPECT_THROW(meshPage(scene), InputError);
}

TEST(MeshPage, largeMeshesAreSimplifiedAndSaySo)
{
    TriangleMesh mesh = qz_test::sphere(120, 200);
    mesh.positions.insert(mesh.positions.end(), 3, std::numeric_limits<float>::quiet_NaN());
    mesh.normals = {};
    mesh.colors = {};
    mesh.density = {};
    PageOptions options;
    options.mostTriangles = 5000;
    ReadPage const page(meshPage(sceneOf(mesh), options));
    std::size_t const count = page.scene["triangleCount"];
    EXPECT_LE(count, 5500u);
    EXPECT_GE(count, 2500u);
    EXPECT_THAT(page.scene["notes"][0].get<std::string>(), HasSubstr("simplified"));
    EXPECT_EQ(page.scene["subtitle"], "48\u202f000 triangles");
    // Still a sphere, with normals of its own.
    double const step = page.scene["step"];
    for (Words const & words : page.vertices<Words>("places", page.count())) {
        std::array<double, 3> const normal = unpacked(words[3]);
        double along = 0;
        for (std::size_t k = 0; k < 3; ++k)
            along += normal[k] * (page.scene["low"][k].get<double>() + step * words[k]);
        ASSERT_NEAR(along, 1, 0.05);
    }
}

TEST(MeshPage, samplesAreThinnedEvenly)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> along(-1, 1);
    std::vector<double> samples;
    std::vector<std::uint8_t> colors;
    for (int i = 0; i < 40000; ++i) { // three of four to the left
        double const x = i % 4 == 0 ? std::abs(along(random)) : -std::abs(along(random));
        for (double const coord : {x, double(along(random)), double(along(random))})
            samples.push_back(coord);
        colors.insert(colors.end(), {static_cast<std::uint8_t>(x > 0 ? 200 : 10), 0, 0});
    }
    TriangleMesh const mesh = qz_test::sphere(10, 20);
    MeshScene scene = sceneOf(mesh);
    scene.samples.size = samples.size() / 3;
    scene.samples.positions64 = samples.data();
    scene.samples.colors = colors.data();
    PageOptions options;
    options.mostSamples = 1000;
    ReadPage const page(meshPage(scene, options));
    EXPECT_EQ(page.scene["samples"]["count"], 1000);
    EXPECT_EQ(page.scene["samples"]["of"], 40000);
    auto const places = page.vertices<Words>("sample-places", 1000);
    auto const shown = page.vertices<Four>("sample-colors", 1000);
    double const low = page.scene["samples"]["low"][0], step = page.scene["samples"]["step"];
    int left = 0;
    for (std::size_t i = 0; i < 1000; ++i) {
        double const x = low + step * places[i][0];
        left += x < 0;
        ASSERT_EQ(shown[i][0], x > 0 ? 200 : 10);
    }
    EXPECT_NEAR(left, 750, 10);
}

TEST(MeshPage, isTheSameForAnyNumberOfThreadsAndSmall)
{
    TriangleMesh const mesh = qz_test::sphere(100, 200);
    StillOptions options;
    options.width = 301;
    options.height = 203;
    std::string const page = meshPage(sceneOf(mesh)), still = meshStill(sceneOf(mesh), options);
    for (int const threads : {1, 3}) {
        CThreadNumberScope const scope(threads);
        EXPECT_EQ(meshPage(sceneOf(mesh)), page);
        EXPECT_EQ(meshStill(sceneOf(mesh), options), still);
    }
    std::size_t bytes = 0;
    for (auto const & [name, text] : ReadPage(page).blocks)
        bytes += name == "scene" ? text.size() : fromBase64(text).size();
    EXPECT_LT(double(bytes), 8.0 * double(mesh.triangleCount()));
}

TEST(MeshPage, filesComeWhole)
{
    qz_test::TestFolder const folder;
    TriangleMesh const mesh = qz_test::sphere(5, 8);
    CProgressCounter progress;
    {
        PendingFiles files;
        writeMeshPage(sceneOf(mesh), folder.path("mesh.html"), files, {}, &progress);
        EXPECT_EQ(progress.getPosFloat(), 1);
        writeMeshStill(sceneOf(mesh), folder.path("mesh.png"), files);
        EXPECT_FALSE(folder.files().count("mesh.html"));
        files.commit();
    }
    EXPECT_EQ(folder.contents("mesh.html"), meshPage(sceneOf(mesh)));
    EXPECT_EQ(folder.contents("mesh.png"), meshStill(sceneOf(mesh)));
    progress.interrupt();
    EXPECT_THROW(meshPage(sceneOf(mesh), {}, &progress), CUserIntrException);
}
