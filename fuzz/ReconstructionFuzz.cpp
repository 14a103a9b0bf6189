// SPDX-License-Identifier: Apache-2.0

// A command line of qzrecon and a small cloud: words, one a line, up to an empty line, then a point of six
// floats after the other. Whatever they are, the options are refused by a sentence, or the whole call makes a
// mesh without a flaw or ends with a sentence. Depths and factors that only take time are left out.

#include <apps/qzrecon/Options.h>

#include <QZmath/Files/PointCloud.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include "Input.h"

#include <optional>
#include <string>

namespace
{

constexpr std::size_t mostPoints = 64;
constexpr int greatestDepth = 4;
constexpr float greatestSubdivision = 2.0f;
constexpr float greatestKernelScale = 1.5f;

using namespace qz_fuzz;

std::vector<std::string> readWords(std::uint8_t const *& next, std::uint8_t const * end)
{
    std::vector<std::string> words{"qzrecon"};
    while (next < end) {
        std::uint8_t const * const lineEnd = std::find(next, end, '\n');
        std::string const word(next, lineEnd);
        next = lineEnd == end ? end : lineEnd + 1;
        if (word.empty())
            break;
        words.push_back(word.substr(0, word.find('\0')));
    }
    return words;
}

QZmath::PointCloud readCloud(std::uint8_t const * next, std::uint8_t const * end)
{
    QZmath::PointCloud cloud;
    std::array<float, 6> point{};
    while (static_cast<std::size_t>(end - next) >= sizeof(point) && cloud.size() < mostPoints) {
        std::memcpy(point.data(), next, sizeof(point));
        next += sizeof(point);
        cloud.positions.insert(cloud.positions.end(), point.begin(), point.begin() + 3);
        cloud.normals.insert(cloud.normals.end(), point.begin() + 3, point.end());
        for (int n = 0; n < 3; ++n)
            cloud.colors.push_back(static_cast<std::uint8_t>(37 * cloud.size()));
        cloud.boundary.push_back(cloud.size() % 7 == 0);
    }
    return cloud;
}

std::optional<qz_recon::Options> parse(std::vector<std::string> const & words)
{
    std::vector<char const *> arguments;
    for (std::string const & word : words)
        arguments.push_back(word.c_str());
    try {
        return qz_recon::parseOptions(static_cast<int>(arguments.size()), arguments.data());
    } catch (qz_recon::UsageError const & error) {
        require(*error.what() != '\0', "a refusal has a sentence");
        return std::nullopt;
    }
}

// Indices in range, numbers finite, arrays of one length, and each edge with two triangles at most, which run
// through it in opposite directions.
void check(QZmath::TriangleMesh const & mesh, QZmath::ReconstructionReport const & report)
{
    std::size_t const vertices = mesh.vertexCount();
    for (std::vector<float> const * values : {&mesh.positions, &mesh.normals, &mesh.density})
        require(std::all_of(values->begin(), values->end(), [](float value) { return std::isfinite(value); }),
                "the numbers of a mesh are finite");
    auto const fits = [vertices](std::size_t size, std::size_t each) {
        return size == 0 || size == each * vertices;
    };
    require(fits(mesh.normals.size(), 3) && fits(mesh.colors.size(), 3) && fits(mesh.density.size(), 1),
            "the arrays of a mesh have one length");
    bool const isClosed = isClosedMesh(mesh.triangles, vertices);
    require(isClosed == report.isClosed && !mesh.triangles.empty(), "a mesh is as reported");
}

void runWhole(QZmath::ReconstructionOptions options, QZmath::PointCloud const & cloud)
{
    QZmath::PointCloudView view = cloud.view();
    if (cloud.size() % 2 == 1)
        view.normals = nullptr;
    options.viewpointEnds.assign(options.viewpoints.size(), cloud.size());
    QZmath::ReconstructionReport report;
    try {
        check(QZmath::reconstruct(view, options, &report), report);
    } catch (QZmath::ReconstructionError const & error) {
        require(*error.what() != '\0' && error.kind() != QZmath::ReconstructionError::Kind::options,
                "a refusal has a sentence, and is not for options that were checked");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size)
{
    std::uint8_t const * next = bytes;
    std::optional<qz_recon::Options> options = parse(readWords(next, bytes + size));
    if (!options)
        return 0;
    QZmath::ReconstructionOptions & wanted = options->reconstruction;
    if (wanted.depth == 0)
        wanted.depth = greatestDepth;
    if (wanted.depth > greatestDepth || wanted.core.getReconstructFactor() > greatestSubdivision ||
        wanted.core.getKernelScaleFactor() > greatestKernelScale)
        return 0;
    QZmath::PointCloud const cloud = readCloud(next, bytes + size);
    wanted.threads = 1 + wanted.threads % 2;
    runWhole(wanted, cloud);
    return 0;
}
