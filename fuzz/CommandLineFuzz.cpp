// SPDX-License-Identifier: Apache-2.0

// Command lines of both programs, of their own words and of any others: refused by a sentence, or understood
// with all values in their ranges, and alike a second time.

#include <apps/qzrecon-sample/Options.h>
#include <apps/qzrecon/Options.h>

#include <QZmath/Files/JoinedClouds.h>

#include "Input.h"

#include <sstream>
#include <string>

namespace
{

using namespace qz_fuzz;

char const * const words[] = {
    "in.ply", "-", "a.xyz", "-o", "out.ply", "out.glb", "--output=x.obj", "-d", "--depth", "8", "2", "0", "1",
    "-1", "30", "1e-3", "0.5", "nan", "inf", "-inf", "1e999", "99999999999999999999", "0x10", "", "--columns",
    "x,y,z", "x,y,z,_,nx,ny,nz,r,g,b", "x,y", "--estimate-normals", "--input-normals", "auto", "given",
    "reorient", "estimate", "--viewpoint", "--outliers", "--no-colors", "--colors", "--cell-size",
    "--boundary", "closed", "open", "--closed", "--open", "--trim", "--largest-hole", "--components", "all",
    "largest", "--smallest-component", "--simplify", "--normals", "--density", "--no-refine", "--subdivision",
    "--corner", "--kernel-scale", "--uniform-density", "--density-delta", "--levels", "--correct-field",
    "--exact", "--accelerated", "--tolerance", "--solver", "direct", "iterative", "decomposing", "4",
    "--no-phase-names", "--log", "--threads", "--max-memory", "-q", "--", "-qo", "--help", "--version",
    // of the other program
    "sphere", "torus", "sheet", "-n", "--points", "1000", "--noise", "--density-ratio", "--seed", "-n0"};

std::vector<std::string> drawWords(Input & input, char const * program)
{
    std::vector<std::string> line{program};
    while (!input.isUsedUp() && line.size() < 60) {
        int const code = input.byte();
        if (code < int(sizeof(words) / sizeof(*words))) {
            line.emplace_back(words[code]);
            continue;
        }
        std::string own;
        for (int k = code % 8; k >= 0; --k)
            own += char(1 + input.upTo(254));
        line.push_back(code % 2 == 0 ? own : "--" + own);
    }
    return line;
}

void checkReconstruction(std::vector<char const *> const & arguments)
{
    std::optional<qz_recon::Options> parsed, again;
    auto const parse = [&](std::optional<qz_recon::Options> & result) -> std::string {
        try {
            result = qz_recon::parseOptions(int(arguments.size()), arguments.data());
            return {};
        } catch (qz_recon::UsageError const & error) {
            require(*error.what() != '\0', "a refusal has a sentence");
            return error.what();
        }
    };
    require(parse(parsed) == parse(again) && parsed.has_value() == again.has_value(),
            "a command line is understood alike again");
    if (!parsed)
        return;
    QZmath::ReconstructionOptions const & wanted = parsed->reconstruction;
    wanted.check();
    VolTr::CVolTriangulationParams const & core = wanted.core;
    require(!parsed->inputs.empty() && !parsed->outputs.empty(), "there are inputs and an output");
    require(wanted.depth >= 0 && wanted.depth <= 29 && wanted.cellSize >= 0 && wanted.trimDistance > 0 &&
                wanted.largestHole >= 0 && wanted.smallestComponent >= 0 && wanted.outlierRemoval >= 0 &&
                wanted.simplifyError >= 0 && wanted.normalNeighbours >= 3 && wanted.threads >= 0 &&
                parsed->memoryLimit >= 0 && std::isfinite(parsed->memoryLimit),
            "options are in their ranges");
    require(core.getReconstructFactor() > 0 && std::isfinite(core.getReconstructFactor()) &&
                std::isfinite(core.getKernelScaleFactor()) && core.getSolverTolerance() > 0 &&
                core.getPrefferedSolver() >= 0 && core.getPrefferedSolver() <= 4,
            "options of the core are in their ranges");
    require(wanted.viewpoints.size() <= 1 || wanted.viewpoints.size() == parsed->inputs.size(),
            "viewpoints are one or as many as inputs");
}

void checkSampling(std::vector<char const *> const & arguments)
{
    std::ostringstream output, errors;
    int exitCode = -1;
    std::optional<qz_sampling::Options> const parsed =
        qz_sampling::parseOptions(int(arguments.size()), arguments.data(), output, errors, exitCode);
    if (!parsed) {
        require(exitCode == 0 || exitCode == 2, "a program ends as it says");
        require(!(exitCode == 0 ? output : errors).str().empty(), "a program says why it ends");
        return;
    }
    qz_sampling::SamplingOptions sampling = parsed->sampling;
    require(sampling.pointNumber >= 1 && sampling.pointNumber <= 1000000000 && sampling.noise >= 0 &&
                sampling.noise <= 1 && sampling.densityRatio >= 0 && sampling.densityRatio <= 1e6,
            "options of a sampling are in their ranges");
    auto const shape = qz_sampling::makeShape(parsed->shape);
    require(shape != nullptr, "there is the shape");
    sampling.pointNumber = std::min<std::size_t>(sampling.pointNumber, 20);
    qz_sampling::Cloud const cloud = sampleCloud(*shape, sampling);
    require(cloud.size() == sampling.pointNumber, "there are as many points");
    for (float coordinate : cloud.positions)
        require(std::isfinite(coordinate), "a sample is finite");
}

// Files behind each other, of what they happen to have.
void checkJoining(Input & input)
{
    QZmath::JoinedClouds joined;
    std::size_t points = 0;
    int const files = 1 + input.upTo(3);
    for (int file = 0; file < files; ++file) {
        QZmath::PointCloud cloud;
        std::size_t const count = std::size_t(input.upTo(3));
        int const habit = input.byte();
        if ((habit & 1) != 0)
            cloud.positions64.assign(3 * count, input.number());
        else
            cloud.positions.assign(3 * count, float(input.number()));
        if ((habit & 2) != 0)
            cloud.normals.assign(3 * count, 1.0F);
        if ((habit & 4) != 0)
            cloud.colors.assign(3 * count, 7);
        if ((habit & 8) != 0)
            cloud.boundary.assign(count, 1);
        points += count;
        joined.add(std::move(cloud), "file");
    }
    QZmath::PointCloud const all = joined.take();
    auto const fits = [points](std::size_t size, std::size_t each) {
        return size == 0 || size == each * points;
    };
    require(all.size() == points && fits(all.normals.size(), 3) && fits(all.colors.size(), 3) &&
                fits(all.boundary.size(), 1) && joined.ends().back() == points,
            "joined clouds have all points");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    int const kind = input.byte();
    if (kind % 16 == 15) {
        checkJoining(input);
        return 0;
    }
    bool const isSampling = kind % 3 == 2;
    std::vector<std::string> const line = drawWords(input, isSampling ? "qzrecon-sample" : "qzrecon");
    std::vector<char const *> arguments;
    for (std::string const & word : line)
        arguments.push_back(word.c_str());
    isSampling ? checkSampling(arguments) : checkReconstruction(arguments);
    return 0;
}
