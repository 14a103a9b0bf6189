// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/Options.h>
#include <apps/qzrecon/ProgramMemory.h>

#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

using namespace qz_recon;

namespace
{

std::optional<Options> parse(std::vector<char const *> arguments)
{
    arguments.insert(arguments.begin(), "qzrecon");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

} // namespace

TEST(ProgramMemory, IsAskedFromTheSystem)
{
    EXPECT_GT(availableMemory(), 1e6);
    EXPECT_LT(availableMemory(), 1e15);
    EXPECT_GT(peakMemory(), 1e6);
}

TEST(Options, defaultsAreThoseOfTheLibraryAndEveryFieldCanBeSet)
{
    auto const fields = [](QZmath::ReconstructionOptions const & o) {
        VolTr::CVolTriangulationParams const & p = o.core;
        return std::make_tuple(p.getReconstructFactor(), p.getUseCenter(), p.getKernelScaleFactor(),
                               p.getVariableDensity(), p.getDensityEstimationDepthDelta(),
                               p.getDetalizationLevel(), int(p.getPrefferedSolver()), p.getSolverTolerance(),
                               p.getAccelerated(), p.getCorrectField(), o.depth, o.cellSize, int(o.boundary),
                               o.trimDistance, o.largestHole, o.allComponents, o.smallestComponent, o.refine,
                               o.vertexDensity, o.outlierRemoval, o.simplifyError, int(o.normals),
                               o.normalNeighbours, o.threads);
    };
    Options const plain = parse({"in.ply", "-o", "out.ply"}).value();
    EXPECT_EQ(fields(plain.reconstruction), fields(QZmath::ReconstructionOptions()));
    EXPECT_TRUE(plain.mayEstimateNormals && plain.withColors && !plain.reconstruction.vertexNormals);

    std::istringstream line(
        "-o out.ply in.ply b.las --depth 5 --subdivision 2 --open --normals --corner --kernel-scale -1 "
        "--uniform-density --density-delta 3 --levels 4 --exact --correct-field --tolerance 0.01 --solver "
        "iterative --threads 2 --log l.txt -q --max-memory 1.5 --no-phase-names --cell-size 0.25 --trim 3 "
        "--largest-hole 0.5 --components largest --smallest-component 0.01 --no-refine --density --outliers "
        "4 "
        "--simplify 0.1 --input-normals reorient --estimate-normals 12 --columns x,y,z,_,r,g,b --no-colors "
        "--viewpoint 1 2 -3 --viewpoint 4 5 6e5 -o page.html --picture-size 320 200 --picture-dark "
        "--picture-shading normal --open-viewer");
    std::vector<std::string> const words{std::istream_iterator<std::string>(line), {}};
    std::vector<char const *> arguments;
    for (std::string const & word : words)
        arguments.push_back(word.c_str());
    Options const set = parse(arguments).value();
    EXPECT_EQ(fields(set.reconstruction),
              std::make_tuple(2.0f, false, -1.0f, false, 3, 4, 3, 0.01, false, true, 5, 0.25,
                              int(QZmath::Boundary::open), 3.0, 0.5, false, 0.01, false, true, 4.0, 0.1,
                              int(QZmath::Normals::reorient), 12, 2));
    EXPECT_EQ(set.inputs, (std::vector<std::string>{"in.ply", "b.las"}));
    EXPECT_EQ(set.outputs, (std::vector<std::string>{"out.ply", "page.html"}));
    EXPECT_EQ(std::make_tuple(set.picture.width, set.picture.height, set.picture.dark, set.opensViewer,
                              int(set.picture.shading), set.writesNormals, set.writesDensity),
              std::make_tuple(320, 200, true, true, int(QZmath::StillOptions::Shading::normal), true, true));
    EXPECT_EQ(set.reconstruction.viewpoints,
              (std::vector<std::array<double, 3>>{{1.0, 2.0, -3.0}, {4.0, 5.0, 6e5}}));
    EXPECT_FALSE(set.reconstruction.core.getPhaseNameShown() || set.withColors);
    EXPECT_TRUE(set.reconstruction.vertexNormals && set.quiet);
    EXPECT_EQ(set.reading.columns, "x,y,z,_,r,g,b");
    EXPECT_EQ(set.logFile, "l.txt");
    EXPECT_EQ(set.memoryLimit, 1.5e9);
}

TEST(Options, senselessOnesAreRefused)
{
    using Words = std::vector<char const *>;
    for (Words const & files : {Words{}, {"in.ply"}, {"-o", "out.ply"}, {"-", "-", "-o", "out.ply"}})
        EXPECT_THROW(parse(files), UsageError) << files.size();
    std::istringstream pairs(
        "--depth 1 --depth 30 --depth -1 --depth eight --depth 99999999999 --solver 7 --subdivision 0 "
        "--subdivision nan --kernel-scale inf --tolerance 0 --threads -1 --max-memory nan --unknown --open "
        "--picture-shading red --boundary wide --columns x,y --estimate-normals 1001 --largest-hole 1.5 "
        "--outliers -1");
    for (std::string name, value; pairs >> name >> value;)
        EXPECT_THROW(parse({"in.ply", "-o", "out.ply", name.c_str(), value.c_str()}), UsageError)
            << name << ' ' << value;
    EXPECT_THROW(parse({"in.ply", "-o", "out.ply", "--depth", "0", "--corner"}), UsageError);
    EXPECT_EQ(parse({"in.ply", "-o", "out.ply", "--depth", "1", "--corner"})->reconstruction.depth, 1);
}
