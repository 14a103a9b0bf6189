// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Viewer/MeshPage.h>

#include <QZmath/Viewer/Drawing/Occlusion.h>
#include <QZmath/Viewer/Drawing/SceneMesh.h>
#include <QZmath/Viewer/Page/Base64.h>
#include <QZmath/Viewer/Page/BuiltPage.h>
#include <QZmath/Viewer/Page/Samples.h>
#include <QZsys/Progress.h>

#include <meshoptimizer.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace QZmath
{

namespace
{

using namespace Viewing;

int const st_most = 65535; // number of the far end of the longest side

// A unit vector in two bytes: the octahedron laid flat, -127 to 127 each, moved to 0 to 254.
std::uint16_t packedNormal(Vec3 n)
{
    float const sum = std::abs(n.x) + std::abs(n.y) + std::abs(n.z);
    float u = n.x / sum, v = n.y / sum;
    if (n.z < 0) {
        float const folded = (1 - std::abs(v)) * (u < 0 ? -1.0f : 1.0f);
        v = (1 - std::abs(u)) * (v < 0 ? -1.0f : 1.0f);
        u = folded;
    }
    auto const byte = [](float value) { return static_cast<unsigned>(std::lround(127 * value) + 127); };
    return static_cast<std::uint16_t>(byte(u) | byte(v) << 8);
}

// The text of a block is read by a parser that ends it at a tag, so that it must not hold any; JSON's escape
// for the sign that begins one means the same to the page.
std::string jsonText(nlohmann::json const & value)
{
    std::string const plain = value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    std::string text;
    text.reserve(plain.size());
    for (char const letter : plain) {
        if (letter == '<')
            text += "\\u003c";
        else
            text += letter;
    }
    return text;
}

class Blocks
{
public:
    template <class T>
    void addVertices(char const * id, std::vector<T> const & values)
    {
        static_assert(sizeof(T) % 4 == 0, "the size that the encoding asks for");
        if (values.empty())
            return;
        std::vector<unsigned char> bytes(meshopt_encodeVertexBufferBound(values.size(), sizeof(T)));
        add(id, bytes,
            meshopt_encodeVertexBuffer(bytes.data(), bytes.size(), values.data(), values.size(), sizeof(T)));
    }

    void addTriangles(char const * id, std::vector<std::uint32_t> const & corners, std::size_t vertices)
    {
        if (corners.empty())
            return;
        std::vector<unsigned char> bytes(meshopt_encodeIndexBufferBound(corners.size(), vertices));
        add(id, bytes, meshopt_encodeIndexBuffer(bytes.data(), bytes.size(), corners.data(), corners.size()));
    }

    void add(char const * id, char const * type, std::string const & text)
    {
        begin(id, type);
        m_text += text;
        end();
    }

    std::string const & text() const { return m_text; }

private:
    void add(char const * id, std::vector<unsigned char> const & bytes, std::size_t count)
    {
        begin(id, "application/octet-stream;base64");
        appendBase64(m_text, bytes.data(), count);
        end();
    }
    void begin(char const * id, char const * type)
    {
        m_text += "<script type=\"" + std::string(type) + "\" id=\"" + id + "\">";
    }
    void end() { m_text += "</script>\n"; }

    std::string m_text;
};

nlohmann::json rangeJson(ByteRange const & range)
{
    return {{"low", range.low},
            {"high", range.high},
            {"lowIsLess", range.lowIsLess},
            {"highIsMore", range.highIsMore}};
}

std::vector<std::string> notesOf(MeshScene const & scene, SceneMesh const & mesh)
{
    std::vector<std::string> notes;
    if (mesh.isSimplified())
        notes.push_back("This page shows a simplified mesh: " + grouped(mesh.triangleCount()) + " of " +
                        grouped(mesh.trianglesBefore) + " triangles.");
    if (mesh.leftOut > 0)
        notes.push_back(grouped(mesh.leftOut) + " triangles have corners that are no finite numbers; "
                                                "they are left out.");
    notes.insert(notes.end(), scene.notes.begin(), scene.notes.end());
    return notes;
}

nlohmann::json description(MeshScene const & scene, SceneMesh const & mesh)
{
    nlohmann::json report = nlohmann::json::array();
    for (MeshScene::Table const & table : scene.report)
        report.push_back({{"title", table.title}, {"rows", table.rows}});
    return {
        {"title", scene.title},
        {"subtitle", scene.subtitle.empty() ? grouped(mesh.trianglesBefore) + " triangles" : scene.subtitle},
        {"notes", notesOf(scene, mesh)},
        {"report", report},
        {"origin", mesh.origin},
        {"low", mesh.low},
        {"step", mesh.scale / st_most},
        {"vertexCount", mesh.vertexCount()},
        {"triangleCount", mesh.triangleCount()},
        {"isClosed", mesh.isClosed},
        {"hasColors", false},
        {"hasLight", true},
        {"density", nullptr},
        {"distance", nullptr},
        {"samples", nullptr}};
}

void addPlaces(SceneMesh const & mesh, Blocks & blocks)
{
    std::vector<std::array<std::uint16_t, 4>> places(mesh.vertexCount());
    for (std::size_t v = 0; v < places.size(); ++v) {
        for (std::size_t k = 0; k < 3; ++k)
            places[v][k] = static_cast<std::uint16_t>(std::lround(mesh.places[3 * v + k] * float(st_most)));
        places[v][3] = packedNormal(mesh.normal(static_cast<std::uint32_t>(v)));
    }
    blocks.addVertices("places", places);
    blocks.addTriangles("triangles", mesh.triangles, mesh.vertexCount());
}

void addAttributes(MeshScene const & scene, SceneMesh const & mesh, nlohmann::json & json, Blocks & blocks)
{
    using Four = std::array<std::uint8_t, 4>;
    std::size_t const count = mesh.vertexCount();
    std::vector<Four> values(count, Four{});
    auto const take = [&](std::vector<float> const & numbers, char const * name, std::size_t place) {
        ByteRange const range = byteRange(numbers, mesh, place == 1);
        json[name] = rangeJson(range);
        for (std::size_t v = 0; v < count; ++v)
            values[v][place] = range.bytes[v];
    };
    if (!scene.mesh->density.empty())
        take(scene.mesh->density, "density", 0);
    if (scene.distances != nullptr && !scene.distances->empty())
        take(*scene.distances, "distance", 1);
    std::vector<std::uint8_t> const sky = skyOver(mesh);
    for (std::size_t v = 0; v < count; ++v)
        values[v][2] = sky[v];
    blocks.addVertices("values", values);

    std::vector<std::uint8_t> const & colors = scene.mesh->colors;
    if (colors.empty())
        return;
    json["hasColors"] = true;
    std::vector<Four> four(count);
    for (std::size_t v = 0; v < count; ++v) {
        std::uint8_t const * const color = &colors[3 * std::size_t(mesh.sources[v])];
        four[v] = {color[0], color[1], color[2], 0};
    }
    blocks.addVertices("colors", four);
}

} // namespace

std::string meshPage(MeshScene const & scene, PageOptions const & options, CProgressCounter * progress)
{
    auto const report = [&](double position) {
        if (progress != nullptr)
            progress->SetPosFloat(position);
    };
    SceneMesh const mesh = sceneMesh(scene, options.mostTriangles);
    report(0.3);
    Blocks blocks;
    nlohmann::json json = description(scene, mesh);
    addPlaces(mesh, blocks);
    report(0.5);
    addAttributes(scene, mesh, json, blocks);
    report(0.8);
    ThinnedSamples const samples = thinnedSamples(scene.samples, mesh, options.mostSamples);
    if (!samples.places.empty()) {
        json["samples"] = {{"count", samples.places.size()},
                           {"of", scene.samples.size},
                           {"low", samples.low},
                           {"step", samples.step},
                           {"hasColors", !samples.colors.empty()}};
        blocks.addVertices("sample-places", samples.places);
        blocks.addVertices("sample-colors", samples.colors);
    }
    blocks.add("scene", "application/json", jsonText(json));

    std::string page;
    std::vector<std::string_view> const pieces = builtPage();
    std::size_t length = blocks.text().size();
    for (std::string_view const piece : pieces)
        length += piece.size();
    page.reserve(length);
    for (std::string_view const piece : pieces)
        page += piece;
    std::string_view const place = "<!--scene-->";
    std::size_t const at = page.find(place);
    if (at == std::string::npos)
        throw std::logic_error("the viewer's page has no place for a scene");
    page.replace(at, place.size(), blocks.text());
    report(1.0);
    return page;
}

void writeMeshPage(MeshScene const & scene, std::string const & path, PendingFiles & files,
                   PageOptions const & options, CProgressCounter * progress)
{
    files.write(path, meshPage(scene, options, progress));
}

} // namespace QZmath
