// SPDX-License-Identifier: Apache-2.0
#include <apps/ChildProcess.h>
#include <apps/sampling/CloudFile.h>
#include <apps/sampling/SampleShapes.h>

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

using qz_test::ChildProcess;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

namespace
{

using Arguments = std::vector<std::string>;

qz_sampling::Cloud sphereCloud(std::size_t points)
{
    qz_sampling::SamplingOptions sampling;
    sampling.pointNumber = points;
    return qz_sampling::sampleCloud(*qz_sampling::makeShape("sphere"), sampling);
}

// Runs the program in a folder of its own, which holds the oriented points of a sphere in `cloud()`.
class Qzrecon : public testing::Test, protected qz_test::TestFolder
{
protected:
    Qzrecon() { qz_sampling::writeCloud(sphereCloud(20000), cloud()); }

    std::string cloud() const { return path("cloud.ply"); }

    // Points without normals.
    std::string writeBareCloud() const
    {
        std::ostringstream text;
        std::vector<float> const positions = sphereCloud(8000).positions;
        for (std::size_t i = 0; i < positions.size(); ++i)
            text << positions[i] << (i % 3 == 2 ? '\n' : ' ');
        return write("bare.xyz", text.str());
    }

    static Arguments commandLine(Arguments arguments)
    {
        arguments.insert(arguments.begin(), QZ_RECON_PROGRAM);
        return arguments;
    }

    // Exit code; the streams are in `output` and `errors`.
    int run(Arguments const & arguments, std::function<void()> const & prepare = {})
    {
        ChildProcess process(commandLine(arguments), prepare);
        int const code = process.wait();
        output = process.output();
        errors = process.errors();
        return code;
    }

    // Expects an exit code with one sentence on the error stream, and no file beyond those of before.
    void expectComplaint(int code, Arguments const & arguments, std::string const & sentence,
                         std::function<void()> const & prepare = {})
    {
        std::string all;
        for (std::string const & argument : arguments)
            all += argument + " ";
        SCOPED_TRACE(all);
        std::set<std::string> const before = files();
        EXPECT_EQ(run(arguments, prepare), code);
        std::size_t const begin = errors.find("qzrecon: "); // behind the progress, if it came so far
        std::string const complaint = errors.substr(begin == std::string::npos ? 0 : begin);
        EXPECT_THAT(complaint, AllOf(StartsWith("qzrecon: "), HasSubstr(sentence)));
        EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
        EXPECT_EQ(output, "");
        EXPECT_EQ(files(), before);
    }

    // The only mesh of a file.
    static aiMesh const & readMesh(Assimp::Importer & importer, std::string const & mesh)
    {
        aiScene const * const scene = importer.ReadFile(mesh, 0);
        if (!scene || scene->mNumMeshes != 1)
            throw std::runtime_error(importer.GetErrorString());
        return *scene->mMeshes[0];
    }

    std::string output, errors;
};

} // namespace

TEST_F(Qzrecon, writesTheClosedMesh)
{
    for (char const * ending : {"ply", "stl", "gltf"}) {
        SCOPED_TRACE(ending);
        std::string const mesh = path(std::string("mesh.") + ending);
        ASSERT_EQ(run({cloud(), "-o", mesh, "--depth", "5", "--normals"}), 0) << errors;
        Assimp::Importer importer;
        aiMesh const & read = readMesh(importer, mesh);
        EXPECT_GT(read.mNumFaces, 500u);
        EXPECT_THAT(output, AllOf(StartsWith(mesh + ": "),
                                  HasSubstr(", " + std::to_string(read.mNumFaces) +
                                            " triangles, closed; kept 1 component; depth 5, "),
                                  HasSubstr("peak memory")));
        EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1);
        for (unsigned i = 0; i < read.mNumVertices; ++i)
            ASSERT_NEAR(read.mVertices[i].Length(), 1.0f, 0.02f);
        if (std::string(ending) == "ply") {
            EXPECT_THAT(output, HasSubstr(": " + std::to_string(read.mNumVertices) + " vertices, "));
            for (unsigned i = 0; i < read.mNumVertices; ++i) // unit normals that point outwards
                ASSERT_GT(read.mNormals[i] * read.mVertices[i], 0.95f);
        }
    }
    EXPECT_EQ(files(), (std::set<std::string>{"cloud.ply", "mesh.ply", "mesh.stl", "mesh.gltf", "mesh.bin"}));
}

TEST_F(Qzrecon, progressOnAFileIsALinePerPhase)
{
    ASSERT_EQ(run({cloud(), "-o", path("mesh.ply"), "-d", "5", "--threads", "2", "--log", path("log.txt")}),
              0);
    std::istringstream lines(errors);
    std::vector<std::string> phases;
    for (std::string line; std::getline(lines, line);)
        phases.push_back(line.substr(line.find(" s  ") + 4));
    for (char const * phase :
         {"read", "octree", "density", "normal field", "solve", "refinement", "surface", "write"}) {
        EXPECT_THAT(phases, testing::Contains(phase));
        EXPECT_THAT(output, HasSubstr(std::string(" ") + phase + " "));
    }
    std::string const log = contents("log.txt");
    EXPECT_THAT(log, AllOf(StartsWith("Volumetric triangulation core started\nOctree depth: 5\n"),
                           HasSubstr("\nVolumetric triangulation core completed\n")));
    ASSERT_EQ(run({cloud(), "-o", path("mesh.ply"), "-d", "5", "--no-phase-names"}), 0);
    EXPECT_THAT(errors, AllOf(HasSubstr("reconstruct"), testing::Not(HasSubstr("octree"))));
}

TEST_F(Qzrecon, writesPagesAndPicturesBesideTheSameMesh)
{
    std::string const hostile = path("<img src=x onerror=alert(1)>.ply");
    fs::copy_file(cloud(), hostile);
    ASSERT_EQ(run({hostile, "-o", path("alone.ply"), "-d", "5", "--density"}), 0) << errors;
    ASSERT_EQ(run({hostile, "-o", path("mesh.html"), "-o", path("mesh.ply"), "--output", path("mesh.png"),
                   "-d", "5", "--density", "--picture-size", "320", "240", "--picture-shading", "distance"}),
              0)
        << errors;
    EXPECT_THAT(output, AllOf(HasSubstr(path("mesh.html") + ", "), HasSubstr(path("mesh.png") + ": ")));
    EXPECT_EQ(contents("mesh.ply"), contents("alone.ply"));
    std::string const page = contents("mesh.html");
    EXPECT_THAT(page, AllOf(StartsWith("<!doctype html>"),
                            HasSubstr("\"title\":\"\\u003cimg src=x onerror=alert(1)>.ply\""),
                            HasSubstr("\"Points\",\"20\\u202f000\""), HasSubstr("\"distance\":{")));
    // Nothing of the machine: no folder, and nothing that changes from run to run.
    std::string const folder = fs::path(cloud()).parent_path().filename().string();
    EXPECT_EQ(page.find(folder), std::string::npos);
    EXPECT_EQ(page.find("<img"), std::string::npos);
    ASSERT_EQ(run({hostile, "-o", path("again.html"), "-d", "5", "--threads", "1"}), 0);
    EXPECT_EQ(contents("again.html"), page);
    EXPECT_EQ(contents("mesh.png").substr(16, 8), std::string("\0\0\1\x40\0\0\0\xf0", 8));
}

TEST_F(Qzrecon, outputsThatCannotBeAreRefusedBeforeTheWork)
{
    expectComplaint(2, {cloud(), "-o", path("a.html"), "-o", path("./a.html")}, "the same file");
    expectComplaint(2, {cloud(), "-o", path("a.gltf"), "-o", path("a.bin.html"), "-o", path("a.jpg")},
                    ".html for a page and .png for a picture");
    expectComplaint(2, {cloud(), "-o", "-", "-o", "-"}, "only once");
    expectComplaint(2, {cloud(), "-o", path("a.ply"), "--open-viewer"}, "--open-viewer");
    expectComplaint(2, {cloud(), "-o", path("a.png"), "--picture-size", "0", "100"}, "--picture-size");
    expectComplaint(2, {cloud(), "-o", path("a.png"), "--picture-size", "1e9", "100"}, "--picture-size");
    expectComplaint(2, {cloud(), "-o", path("a.png"), "--picture-shading", "color", "-d", "4"},
                    "coloured by");
}

TEST_F(Qzrecon, opensThePageWithTheDesktopsProgram)
{
    fs::create_directory(path("bin"));
    write("bin/xdg-open", "#!/bin/sh\nprintf '%s' \"$1\" >\"$OPENED\"\n");
    fs::permissions(path("bin/xdg-open"), fs::perms::owner_all);
    auto const withDesktop = [&] {
        setenv("PATH", (path("bin") + ":/bin:/usr/bin").c_str(), 1);
        setenv("OPENED", path("opened").c_str(), 1);
    };
    ASSERT_EQ(
        run({cloud(), "-o", path("a.png"), "-o", path("a.html"), "-d", "4", "--open-viewer"}, withDesktop),
        0);
    EXPECT_EQ(contents("opened"), path("a.html"));
    ASSERT_EQ(run({cloud(), "-o", path("b.html"), "-d", "4", "--open-viewer"},
                  [&] { setenv("PATH", path("nothing").c_str(), 1); }),
              0);
    EXPECT_THAT(errors, HasSubstr("could not be opened"));
    EXPECT_TRUE(files().count("b.html"));
}

TEST_F(Qzrecon, progressOnATerminalIsABar)
{
    int const terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    std::string const name = ptsname(terminal);
    int const held = open(name.c_str(), O_RDWR | O_NOCTTY); // keeps what is written readable at the end
    std::string shown;
    std::thread reader([&] {
        char bytes[4096];
        for (ssize_t count; (count = read(terminal, bytes, sizeof(bytes))) > 0;)
            shown.append(bytes, static_cast<std::size_t>(count));
    });
    int const code = run({cloud(), "-o", path("mesh.ply"), "-d", "6"},
                         [&] { dup2(open(name.c_str(), O_RDWR | O_NOCTTY), STDERR_FILENO); });
    close(held); // ends the reader: the last writer is gone
    reader.join();
    close(terminal);
    EXPECT_EQ(code, 0);
    EXPECT_THAT(shown,
                AllOf(HasSubstr("[####"), HasSubstr("%"), HasSubstr(" s  solve"), HasSubstr("surface")));
}

TEST_F(Qzrecon, complaintsAreOneSentenceAndLeaveNothing)
{
    std::string const out = path("mesh.ply");
    std::string const cut = write("cut.ply", contents("cloud.ply").substr(0, 300000));
    std::string const bare = writeBareCloud();
    std::string const line = write("line.xyz", "1 1 1\n2 2 2\n3 3 3\n4 4 4\n");
    std::string const foreign = write("cloud.abc", "1 2 3 0 0 1\n");
    fs::create_directory(path("taken.ply"));
    std::string const link = path("link.ply");
    fs::create_symlink(cloud(), link);
    struct Case
    {
        int code;
        Arguments arguments;
        char const * sentence;
    };
    Case const cases[] = {
        {2, {path("missing.ply"), "-o", out}, "No such file"},
        {2, {foreign, "-o", out}, ".abc"},
        {2, {cloud(), "-o", path("mesh.abc")}, ".abc"},
        {2, {cut, "-o", out}, "truncated"},
        {2, {cloud(), "-o", out, "--depth", "1"}, "depth 1 is out of range: 2 to 29"},
        {2, {cloud(), "-o", out, "--depth", "0"}, "depth 0 is out of range: 2 to 29"},
        {2, {cloud(), "-o", out, "--cell-size", "1e-12"}, "29 is the greatest"},
        {2, {cloud(), "-o", out, "--trim", "nan"}, "trim distance"},
        {2, {cloud(), "-o", out, "--max-memory", "0.001"}, "not enough memory"},
        {2, {cloud(), "-o", out, "--depth", "29", "--max-memory", "0.2"}, "not enough memory"},
        {2, {cloud(), "-o", cloud()}, "would replace the input"},
        {2, {cloud(), "-o", out, "--log", link}, "the log would replace the input"},
        {2, {cloud(), "-o", out, "--log", path("./mesh.ply")}, "the log would replace the output"},
        {2, {cloud()}, "--output is required"},
        {2, {cloud(), "-o", out, "--frobnicate"}, "--frobnicate"},
        {2, {bare, "-o", out, "--estimate-normals", "0"}, "no normals"},
        {2, {bare, "-o", out, "--estimate-normals", "2"}, "3 to 1000"},
        {2, {bare, "-o", out, "--input-normals", "given"}, "--input-normals estimate"},
        {2,
         {bare, bare, bare, "-o", out, "--viewpoint", "1", "2", "3", "--viewpoint", "1", "2", "3"},
         "2 viewpoints for 3"},
        {2, {line, "-o", out}, "lie on a line"},
        {2, {write("one.xyz", "1 1 1\n"), "-o", out}, "make no surface"},
        {3, {cloud(), "-o", path("no/folder/mesh.ply")}, "there is no folder"},
        {3, {cloud(), "-o", path("taken.ply")}, "it is a folder"},
        {3, {cloud(), "-o", out, "--log", path("no/log.txt")}, "cannot write the log"},
    };
    for (Case const & one : cases)
        expectComplaint(one.code, one.arguments, one.sentence);
    for (char const * name : {"mesh.ply", "mesh.gltf"})
        expectComplaint(3, {cloud(), "-o", path(name), "-d", "5"}, "File too large", [] {
            rlimit const few{16384, 16384};
            setrlimit(RLIMIT_FSIZE, &few);
        });
}

TEST_F(Qzrecon, TheMemoryThatItAsksForIsWhatItTakes)
{
    if (QZ_SANITIZED)
        GTEST_SKIP() << "sanitizers take memory of their own";
    auto const numberBehind = [](std::string const & text, std::string const & words) {
        std::size_t const place = text.find(words);
        EXPECT_NE(place, std::string::npos) << text;
        return place == std::string::npos ? 0.0 : std::stod(text.substr(place + words.size()));
    };
    for (char const * depth : {"7", "8"})
        for (char const * name : {"mesh.ply", "mesh.obj"}) {
            Arguments const arguments = {cloud(), "-o", path(name), "--depth", depth, "--normals"};
            ASSERT_EQ(run(arguments), 0) << errors;
            double const taken = 1e6 * numberBehind(output, "peak memory ");
            fs::remove(path(name));
            Arguments limited = arguments;
            limited.insert(limited.end(), {"--max-memory", "0.001"});
            expectComplaint(2, limited, "not enough memory");
            double const asked = 1e9 * numberBehind(errors, "which need about ");
            double const program = 15e6; // itself, with its libraries and the cloud
            EXPECT_NEAR(asked + program, taken, 0.4 * taken) << name << ' ' << depth;
        }
}

TEST_F(Qzrecon, bareCloudsGetNormals)
{
    std::string const bare = writeBareCloud(), mesh = path("mesh.ply");
    // From outside the estimated normals make the same solid; from its centre they all are turned inwards,
    // and the vertex normals, which follow the gradient, with them.
    for (bool fromCentre : {false, true}) {
        Arguments arguments = {bare, "-o", mesh, "-d", "5", "--normals", "--estimate-normals", "16"};
        if (fromCentre)
            arguments.insert(arguments.end(), {"--viewpoint", "0", "0", "0"});
        ASSERT_EQ(run(arguments), 0) << errors;
        Assimp::Importer importer;
        aiMesh const & made = readMesh(importer, mesh);
        ASSERT_GT(made.mNumVertices, 500u);
        for (unsigned i = 0; i < made.mNumVertices; ++i) {
            EXPECT_NEAR(made.mVertices[i].Length(), 1, 0.03);
            EXPECT_EQ(made.mVertices[i] * made.mNormals[i] < 0, fromCentre);
        }
    }
}

TEST_F(Qzrecon, anInterruptionAtAnyMomentLeavesNoFile)
{
    using Clock = std::chrono::steady_clock;
    std::set<std::string> const before = files();
    Arguments const arguments = commandLine({cloud(), "-o", path("mesh.gltf"), "-d", "6"});
    auto const removeMesh = [&] { return fs::remove(path("mesh.gltf")) && fs::remove(path("mesh.bin")); };
    Clock::time_point const start = Clock::now();
    ASSERT_EQ(ChildProcess(arguments).wait(), 0);
    Clock::duration const whole = Clock::now() - start;
    EXPECT_TRUE(removeMesh());

    int const moments = 12;
    int interrupted = 0;
    for (int moment = 0; moment < moments; ++moment) {
        ChildProcess process(arguments);
        process.waitForErrors(); // the program has begun to read
        std::this_thread::sleep_for(whole * moment / moments);
        Clock::time_point const asked = Clock::now();
        process.send(std::array<int, 3>{SIGINT, SIGTERM, SIGHUP}[static_cast<std::size_t>(moment % 3)]);
        if (moment % 4 == 3)
            process.send(SIGINT); // impatience
        int const code = process.wait();
        std::chrono::duration<double> const took = Clock::now() - asked;
        EXPECT_EQ(removeMesh(), code == 0); // done before the signal was seen
        EXPECT_EQ(files(), before);
        if (code == 0)
            continue;
        ++interrupted;
        EXPECT_EQ(code, 130);
        EXPECT_LT(took.count(), QZ_SANITIZED ? 2.0 : 0.5)
            << "promised is 0.2 s on a machine that is not busy";
        EXPECT_THAT(process.errors(), HasSubstr("interrupted"));
    }
    EXPECT_GT(interrupted, moments / 2);
}

TEST_F(Qzrecon, SeveralFilesAreOneCloudAndAllItsPiecesCome)
{
    qz_sampling::Cloud small = sphereCloud(8000);
    for (std::size_t i = 0; i < small.positions.size(); ++i)
        small.positions[i] = 0.5f * small.positions[i] + (i % 3 == 0 ? 3.0f : 0.0f);
    qz_sampling::writeCloud(small, path("small.xyz"));
    ASSERT_EQ(run({cloud(), path("small.xyz"), "-o", path("mesh.ply")}), 0) << errors;
    EXPECT_THAT(output, HasSubstr("closed; kept 2 components; depth "));
    ASSERT_EQ(run({cloud(), path("small.xyz"), "-o", path("mesh.ply"), "--components", "largest"}), 0)
        << errors;
    EXPECT_THAT(output, HasSubstr("kept 1 component; "));
}

TEST_F(Qzrecon, StreamsCanBeInputAndOutput)
{
    ASSERT_EQ(run({cloud(), "-o", path("mesh.ply"), "-d", "5", "-q"}), 0) << errors;
    ASSERT_EQ(run({"-", "-o", "-", "-d", "5"}, [&] { dup2(open(cloud().c_str(), O_RDONLY), STDIN_FILENO); }),
              0)
        << errors;
    EXPECT_EQ(output, contents("mesh.ply"));
    EXPECT_THAT(errors, HasSubstr(" triangles, closed"));
    EXPECT_EQ(run({cloud(), "-o", path("mesh.ply"), "-d", "5"},
                  [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); }),
              3);
}

TEST_F(Qzrecon, ClosedStreamsDoNotReachTheFiles)
{
    ASSERT_EQ(run({cloud(), "-o", path("mesh.ply"), "-d", "5", "--log", path("log.txt")}), 0);
    std::string const mesh = contents("mesh.ply");
    ASSERT_EQ(run({cloud(), "-o", path("mesh.ply"), "-d", "5", "--log", path("log.txt")},
                  [] {
                      close(STDIN_FILENO);
                      close(STDERR_FILENO);
                  }),
              0);
    EXPECT_EQ(contents("mesh.ply"), mesh);
    EXPECT_THAT(contents("log.txt"), StartsWith("Volumetric triangulation core started\n"));
    // A run that fails leaves the log of the one before.
    std::string const line = write("line.xyz", "1 1 1\n2 2 2\n3 3 3\n4 4 4\n");
    std::string const kept = contents("log.txt");
    EXPECT_EQ(run({line, "-o", path("mesh.ply"), "--log", path("log.txt")}), 2);
    EXPECT_EQ(contents("log.txt"), kept);
    EXPECT_EQ(contents("mesh.ply"), mesh);
}

TEST_F(Qzrecon, helpAndVersion)
{
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_THAT(output, AllOf(HasSubstr("Examples:"), HasSubstr("Exit codes:"),
                              HasSubstr("--boundary auto|closed|open"), testing::Not(HasSubstr("{"))));
    EXPECT_EQ(run({"--version"}), 0);
    EXPECT_THAT(output, StartsWith("qzrecon 1."));
}
