// SPDX-License-Identifier: Apache-2.0

// Any mesh, samples and texts as a page and as a picture: what fits together is never refused, and no text
// gets out of the block that it is written in.

#include <QZmath/Files/Errors.h>
#include <QZmath/Viewer/MeshPage.h>
#include <QZmath/Viewer/MeshStill.h>

#include "Input.h"

#include <string>

namespace
{

using namespace qz_fuzz;

std::string text(Input & input)
{
    std::string result;
    for (int length = input.upTo(40); length > 0; --length)
        result += static_cast<char>(input.byte());
    return result;
}

std::size_t countOf(std::string const & page, char const * word)
{
    std::size_t count = 0;
    for (std::size_t at = page.find(word); at != std::string::npos; at = page.find(word, at + 1))
        ++count;
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    QZmath::TriangleMesh mesh;
    int const habit = input.byte();
    std::size_t const vertices = std::size_t(input.upTo(30));
    mesh.positions = input.floats(3 * vertices);
    if ((habit & 1) != 0)
        mesh.normals = input.floats(3 * vertices);
    if ((habit & 2) != 0)
        mesh.density = input.floats(vertices);
    if ((habit & 4) != 0)
        mesh.colors.assign(3 * vertices, std::uint8_t(input.byte()));
    if ((habit & 8) != 0)
        mesh.origin = {input.number(), input.number(), input.number()};
    for (int k = vertices > 0 ? 3 * input.upTo(60) : 0; k > 0; --k)
        mesh.triangles.push_back(input.upTo(int(vertices) - 1));
    std::vector<float> const distances = input.floats((habit & 16) != 0 ? vertices : 0);
    std::vector<float> const samples = input.floats(3 * std::size_t(input.upTo(20)));

    QZmath::MeshScene scene;
    scene.mesh = &mesh;
    scene.distances = &distances;
    scene.samples.size = samples.size() / 3;
    scene.samples.positions = samples.data();
    scene.title = text(input);
    scene.notes = {text(input)};
    scene.report = {{text(input), {{text(input), text(input)}}}};
    QZmath::PageOptions pageOptions;
    pageOptions.mostTriangles = std::size_t(input.upTo(60));
    pageOptions.mostSamples = std::size_t(input.upTo(9));
    QZmath::StillOptions stillOptions;
    stillOptions.width = 16 + input.upTo(60);
    stillOptions.height = 16 + input.upTo(60);
    bool const isSomewhere =
        std::isfinite(mesh.origin[0]) && std::isfinite(mesh.origin[1]) && std::isfinite(mesh.origin[2]);
    try {
        std::string const page = QZmath::meshPage(scene, pageOptions);
        scene.title = "Mesh";
        scene.notes = {"note"};
        scene.report = {{"a", {{"b", "c"}}}};
        std::string const plain = QZmath::meshPage(scene, pageOptions);
        for (char const * word : {"<script", "</script", "<!--"})
            require(countOf(page, word) == countOf(plain, word), "texts begin and end nothing");
        require(QZmath::meshStill(scene, stillOptions).size() > 60, "there is a picture");
    } catch (QZmath::InputError const &) {
        require(!isSomewhere, "a mesh that fits together is shown");
    }
    return 0;
}
