// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/Outputs.h>

#include <apps/qzrecon/Options.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/MeshWriter.h>
#include <QZmath/Reconstruction/SampleDistances.h>
#include <QZmath/Viewer/MeshPage.h>
#include <QZmath/Viewer/MeshStill.h>
#include <QZsys/Progress.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace qz_recon
{

namespace
{

namespace fs = std::filesystem;
using QZmath::MeshScene;

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.4g", value);
    return text;
}

std::string grouped(std::size_t count)
{
    std::string digits = std::to_string(count);
    for (std::size_t at = digits.size(); at > 3;)
        digits.insert(at -= 3, "\u202f");
    return digits;
}

template <class Count>
std::string grouped(Count count)
{
    return grouped(static_cast<std::size_t>(std::max(count, Count(0))));
}

std::string percent(double share) { return number(100 * share) + " %"; }

// The name of a file without its folder, which is nobody's business who looks at a page.
std::string titleOf(std::vector<std::string> const & inputs)
{
    std::string const first = inputs[0] == "-" ? "Mesh" : fs::path(inputs[0]).filename().string();
    return inputs.size() == 1 ? first : first + " and " + std::to_string(inputs.size() - 1) + " more";
}

// What the report says in numbers, without times and memory: so the same cloud gives the same page.
std::vector<MeshScene::Table> tablesOf(QZmath::TriangleMesh const & mesh, std::size_t points,
                                       QZmath::ReconstructionReport const & report)
{
    MeshScene::Table cloud{"Cloud", {{"Points", grouped(points)}}};
    cloud.rows.emplace_back("Spacing", number(report.spacing));
    cloud.rows.emplace_back("Noise", number(report.cloudNoise));
    if (report.outliersRemoved > 0)
        cloud.rows.emplace_back("Outliers left out", grouped(report.outliersRemoved));
    if (report.repeatedRemoved > 0)
        cloud.rows.emplace_back("Repeated points left out", grouped(report.repeatedRemoved));
    cloud.rows.emplace_back("Normals", report.normalsEstimated ? "estimated" : "of the cloud");
    if (report.normalsReplaced > 0)
        cloud.rows.emplace_back("Normals replaced", grouped(report.normalsReplaced));

    MeshScene::Table surface{"Mesh", {{"Vertices", grouped(mesh.vertexCount())}}};
    surface.rows.emplace_back("Triangles", grouped(mesh.triangleCount()));
    if (report.trianglesBeforeSimplification > 0)
        surface.rows.emplace_back("before simplification", grouped(report.trianglesBeforeSimplification));
    surface.rows.emplace_back("Closed", report.isClosed ? "yes" : "no");
    surface.rows.emplace_back("Pieces kept",
                              grouped(report.componentsKept) + " of " + grouped(report.componentsFound));
    surface.rows.emplace_back("Holes closed", grouped(report.holesClosed));
    if (report.boundariesLeft > 0) {
        surface.rows.emplace_back("Borders left open", grouped(report.boundariesLeft));
        surface.rows.emplace_back("Their length", number(report.boundaryLength));
    }
    surface.rows.emplace_back("Supported area", number(report.supportedArea));
    surface.rows.emplace_back("Samples far from it", grouped(report.samplesFarFromMesh));
    surface.rows.emplace_back("Least angle", number(report.anglesAfter.least) + "\u00b0");
    surface.rows.emplace_back("Angles below 10\u00b0", percent(report.anglesAfter.belowTen));

    MeshScene::Table method{"Reconstruction", {{"Depth", std::to_string(report.octreeDepth)}}};
    method.rows.emplace_back("Leaf cell", number(report.leafCell));
    method.rows.emplace_back("Unknowns", grouped(report.unknowns));
    method.rows.emplace_back("Path", report.pathText());
    method.rows.emplace_back("Steps of the solver", std::to_string(report.iterations));
    if (report.refinement.noise > 0)
        method.rows.emplace_back("Noise across the surface", number(report.refinement.noise));
    if (report.refinement.rmsMove > 0)
        method.rows.emplace_back("Refined by (rms)", number(report.refinement.rmsMove));
    return {std::move(surface), std::move(cloud), std::move(method)};
}

} // namespace

OutputKind outputKindOf(std::string const & path)
{
    std::string ending = fs::path(path).extension().string();
    for (char & letter : ending)
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    if (ending == ".html" || ending == ".htm")
        return OutputKind::page;
    if (ending == ".png")
        return OutputKind::picture;
    try {
        QZmath::meshFormatOf(path);
    } catch (QZmath::InputError const & error) {
        std::string const known = ".gltf and .glb";
        std::string sentence = error.what();
        std::size_t const at = sentence.rfind(known);
        if (at != std::string::npos)
            sentence.replace(at, known.size(), ".gltf and .glb, .html for a page and .png for a picture");
        throw QZmath::InputError(sentence);
    }
    return OutputKind::mesh;
}

std::vector<std::string> filesOf(std::string const & path)
{
    if (path == "-")
        return {};
    if (outputKindOf(path) == OutputKind::mesh && QZmath::meshFormatOf(path) == QZmath::MeshFormat::gltf)
        return {path, fs::path(path).replace_extension(".bin").string()};
    return {path};
}

void checkPictures(Options const & options, QZmath::PointCloud const & cloud)
{
    if (options.picture.shading == QZmath::StillOptions::Shading::color && cloud.colors.empty() &&
        std::any_of(options.outputs.begin(), options.outputs.end(),
                    [](std::string const & output) { return outputKindOf(output) == OutputKind::picture; }))
        throw QZmath::InputError("there are no colours that the picture could be coloured by");
}

bool showsMesh(Options const & options)
{
    return std::any_of(options.outputs.begin(), options.outputs.end(),
                       [](std::string const & output) { return outputKindOf(output) != OutputKind::mesh; });
}

void writeOutputs(Options const & options, QZmath::TriangleMesh & mesh, QZmath::PointCloud const & cloud,
                  QZmath::ReconstructionReport const & report, QZmath::PendingFiles & files,
                  CProgressCounter * progress)
{
    MeshScene scene;
    std::vector<float> distances;
    if (showsMesh(options)) {
        CPrgCntSubPhase const part(progress, 0, 20, 0, true);
        distances = QZmath::sampleDistances(mesh, cloud.view(), progress);
        scene.mesh = &mesh;
        scene.distances = &distances;
        scene.samples = cloud.view();
        scene.title = titleOf(options.inputs);
        scene.subtitle =
            grouped(mesh.triangleCount()) + " triangles, " + (report.isClosed ? "closed" : "open");
        scene.notes = report.warnings;
        scene.report = tablesOf(mesh, cloud.size(), report);
    }
    std::vector<float> normals, density;
    auto const swapWhatOnlyOthersShow = [&] {
        if (!options.writesNormals)
            mesh.normals.swap(normals);
        if (!options.writesDensity)
            mesh.density.swap(density);
    };
    int const count = static_cast<int>(options.outputs.size());
    CPrgCntSubPhase const all(progress, 20, 80, 0, true);
    for (int output = 0; output < count; ++output) {
        CPrgCntSubPhase const part(progress, output, 1, count, true);
        std::string const & path = options.outputs[static_cast<std::size_t>(output)];
        switch (outputKindOf(path)) {
        case OutputKind::mesh:
            swapWhatOnlyOthersShow();
            QZmath::writeMesh(mesh, path, QZmath::meshFormatOf(path), files, progress);
            swapWhatOnlyOthersShow();
            break;
        case OutputKind::page:
            QZmath::writeMeshPage(scene, path, files, {}, progress);
            break;
        case OutputKind::picture:
            QZmath::writeMeshStill(scene, path, files, options.picture, progress);
            break;
        }
    }
}

} // namespace qz_recon
