// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PointReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace QZmath;
using testing::HasSubstr;

namespace
{

PointCloud readFrom(std::string const & bytes, PointFormat format)
{
    return readPointsFromMemory(bytes.data(), bytes.size(), {format, {}});
}

// The sentence of the `InputError`, empty when there is none.
std::string complaintOf(std::string const & bytes, PointFormat format)
{
    try {
        readFrom(bytes, format);
    } catch (InputError const & error) {
        return error.what();
    }
    return std::string();
}

PointCloud randomCloud(std::size_t size, unsigned seed)
{
    std::mt19937 engine(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    PointCloud cloud;
    for (std::size_t i = 0; i < 3 * size; ++i) {
        cloud.positions.push_back(uniform(engine) * 100.0f);
        cloud.normals.push_back(uniform(engine));
    }
    for (std::size_t i = 0; i < size; ++i)
        cloud.boundary.push_back(engine() % 3 == 0);
    return cloud;
}

// Numbers as text or as bytes of either order.
class Body
{
public:
    explicit Body(std::string const & format)
        : m_isText(format == "ascii"), m_isReversed(format == "binary_big_endian")
    {}
    template <class T>
    void add(T value)
    {
        std::ostringstream text;
        text.precision(9);
        text << +value << (bytes.size() % 3 ? "  " : "\t");
        char raw[sizeof(T)];
        std::memcpy(raw, &value, sizeof(T));
        if (m_isReversed)
            std::reverse(raw, raw + sizeof(T));
        bytes += m_isText ? text.str() : std::string(raw, sizeof(T));
    }
    template <class T>
    void addPoint(float const * coords)
    {
        for (int axis = 0; axis < 3; ++axis)
            add(static_cast<T>(coords[axis]));
    }
    void endLine(bool isForeign) { bytes += !m_isText ? "" : isForeign ? "\r\n" : "\n"; }

    std::string bytes;

private:
    bool m_isText, m_isReversed;
};

// A PLY file with everything around the points that a reader has to skip: an element with a list before, a
// list and foreign properties among the vertex's own, coordinates in `double`, faces behind.
std::string richPly(PointCloud const & cloud, std::string const & format)
{
    std::ostringstream header;
    header << "ply\nformat " << format << " 1.0\ncomment made for a test\nobj_info none\n"
           << "element camera 2\nproperty list uchar int views\nproperty float gain\n"
           << "element vertex " << cloud.size() << "\n"
           << "property uchar red\nproperty double x\nproperty double y\nproperty double z\n"
           << "property list ushort float weights\nproperty float nx\nproperty float ny\nproperty float nz\n"
           << "property uchar boundary\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
    Body body(format);
    for (int camera = 0; camera < 2; ++camera) {
        body.add(std::uint8_t(3 * camera));
        for (int view = 0; view < 3 * camera; ++view)
            body.add(std::int32_t(view));
        body.add(0.5f);
        body.endLine(false);
    }
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        body.add(std::uint8_t(17));
        body.addPoint<double>(&cloud.positions[3 * i]);
        body.add(std::uint16_t(i % 3));
        for (std::size_t weight = 0; weight < i % 3; ++weight)
            body.add(0.25f);
        body.addPoint<float>(&cloud.normals[3 * i]);
        body.add(std::uint8_t(cloud.boundary[i]));
        body.endLine(i % 2);
    }
    body.add(std::uint8_t(0));
    body.endLine(false);
    return header.str() + body.bytes;
}

// The plain layout of six properties that most scanners write.
std::string plainPly(PointCloud const & cloud, std::string const & promised)
{
    std::string const header = "ply\nformat binary_little_endian 1.0\nelement vertex " + promised +
                               "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\n"
                               "property float ny\nproperty float nz\nend_header\n";
    Body body("binary_little_endian");
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        body.addPoint<float>(&cloud.positions[3 * i]);
        body.addPoint<float>(&cloud.normals[3 * i]);
    }
    return header + body.bytes;
}

std::string textOf(PointCloud const & cloud)
{
    Body body("ascii");
    body.bytes = "# x y z nx ny nz boundary\n\n";
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        body.addPoint<float>(&cloud.positions[3 * i]);
        body.addPoint<float>(&cloud.normals[3 * i]);
        body.bytes += cloud.boundary[i] ? "1" : "0";
        body.bytes += i % 4 ? "\n" : " # odd one\r\n";
    }
    return body.bytes;
}

void expectSame(PointCloud const & read, PointCloud const & expected)
{
    EXPECT_EQ(read.positions, expected.positions);
    EXPECT_EQ(read.normals, expected.normals);
    EXPECT_TRUE(read.boundary.empty() || read.boundary == expected.boundary);
}

} // namespace

TEST(CloudReader, everyFormatGivesTheSameCloud)
{
    // More than one window of the source, so that instances and lines straddle its ends.
    PointCloud const cloud = randomCloud(20000, 1);
    qz_test::TestFolder const folder;
    for (char const * format : {"ascii", "binary_little_endian", "binary_big_endian"}) {
        SCOPED_TRACE(format);
        PointCloud const read = readPoints(folder.write("cloud.PLY", richPly(cloud, format)));
        EXPECT_EQ(read.boundary.size(), cloud.size());
        expectSame(read, cloud);
    }
    expectSame(readFrom(plainPly(cloud, "20000"), PointFormat::ply), cloud);
    expectSame(readFrom(textOf(cloud), PointFormat::text), cloud);
}

TEST(CloudReader, objFacesSayWhichNormalIsWhose)
{
    std::string const points = "# c\nv 0 0 0\nv 1 0 0 1.0\nv 0 1 0 0.5 0.5 0.5\n";
    std::string const normals = "vn 0 0 1\nvn 0 1 0\nvn 1 0 0\n";
    std::vector<float> const inOrder = {0, 0, 1, 0, 1, 0, 1, 0, 0};
    std::vector<float> const reversed = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    EXPECT_EQ(readFrom(points + normals, PointFormat::obj).normals, inOrder);
    EXPECT_EQ(readFrom(points + "vt 0 0\n" + normals + "f 1 2 3\nf 1/1 2/1 3/1\n", PointFormat::obj).normals,
              inOrder);
    EXPECT_EQ(readFrom(points + normals + "f 1//3 2//2 3//1\n", PointFormat::obj).normals, reversed);
    EXPECT_EQ(readFrom(points + normals + "f -3/7/-1 -2/7/-2 -1/7/-3\n", PointFormat::obj).normals, reversed);
    EXPECT_EQ(readFrom(points + "vn 0 0 1\nf 1//1 2//1 3//1\n", PointFormat::obj).normals,
              (std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1}));
    EXPECT_THAT(complaintOf(points + "vn 0 0 1\n", PointFormat::obj), HasSubstr("3 points but 1 normals"));
    EXPECT_THAT(complaintOf(points + "vn 0 0 1\nf 1//1\n", PointFormat::obj),
                HasSubstr("index 1, counted from 0"));
    for (char const * corner : {"4//1", "0//1", "1//2", "-4//1", "1//-2", "99999999999999999999//1", "1//x",
                                "-9223372036854775808//1"})
        EXPECT_THAT(complaintOf(points + "vn 0 0 1\nf " + corner + "\n", PointFormat::obj),
                    HasSubstr("does not exist"))
            << corner;
}

TEST(CloudReader, whatIsWrongIsSaid)
{
    std::string const plyHead = "ply\nformat ascii 1.0\n", vertex = plyHead + "element vertex ";
    std::string const xyz = "property float x\nproperty float y\nproperty float z\n";
    std::string const body =
        "\n" + xyz + "property float nx\nproperty float ny\nproperty float nz\nend_header\n";
    std::string const binary = "ply\nformat binary_little_endian 1.0\n", most = "9223372036854775807\n";
    PointCloud const cloud = randomCloud(5, 3);
    std::string endless = "ply\n";
    while (endless.size() < (2 << 20))
        endless += "comment and no end\n";
    std::pair<std::string, char const *> const plyCases[] = {
        {"", "not a PLY file"},
        {"solid cube\n", "not a PLY file"},
        {vertex + "1\n" + xyz, "truncated inside the header"},
        {"ply\nelement vertex 0" + body, "no known format"},
        {vertex + body, "without a count"},
        {vertex + "-4" + body, "without a count"},
        {vertex + "1\nproperty float x\nend_header\n0\n", "no properties x"},
        {vertex + "1\nproperty half x\n", "unknown type \"half\""},
        {plyHead + "property float x\n", "before the first element"},
        {plyHead + "element face 0\nproperty list float int i\n", "not a whole number"},
        {plyHead + "element face 0\nend_header\n", "no vertices"},
        {vertex + "0" + body, "no points"},
        {vertex + "2" + body + "1 2 3 0 0 1\n", "truncated"},
        {vertex + "1" + body + "1 2 3 0 0\n\n\n\n", "does not hold"},
        {vertex + "1" + body + "1 2 3 0 0 one\n", "does not hold"},
        // Absurd counts take no memory.
        {plainPly(cloud, "6"), "truncated"},
        {plainPly(cloud, "2147483648"), "truncated"},
        {plainPly(cloud, "768614336404564651"), "truncated"},
        {plainPly(cloud, "9223372036854775807"), "truncated"},
        {plyHead + "element a " + most + "end_header\n", "truncated"},
        {binary + "element a " + most + "end_header\n", "no vertices"},
        {binary + "element a 1\nproperty list uint double i\nend_header\n\xff\xff\xff\xff", "truncated"},
        {plyHead + "element a 1\nproperty list uint int i\nend_header\n1e300 1\n", "does not hold"},
        {endless, "header is longer"},
    };
    for (auto const & [bytes, complaint] : plyCases)
        EXPECT_THAT(complaintOf(bytes, PointFormat::ply), HasSubstr(complaint)) << bytes.substr(0, 300);
    for (auto const & [bytes, complaint] : std::initializer_list<std::pair<std::string, char const *>>{
             {"", "no points"},
             {"v 1 2\n", "line 1 does not hold three numbers"},
             {"v " + std::string(1 << 20, '1'), "is longer than"}})
        EXPECT_THAT(complaintOf(bytes, PointFormat::obj), HasSubstr(complaint)) << bytes.substr(0, 100);
    for (auto const & [bytes, complaint] : std::initializer_list<std::pair<char const *, char const *>>{
             {"# nothing\n\n", "no points"},
             {"1 2 3 0 0 1\n1 2 3 0 0\n", "line 2 has 5 columns instead of 6"},
             {"1 2 3 0 0 1 1\n1 2 3 0 0 1\n", "line 2 has 6 columns instead of 7"},
             {"1 2 3 0 0 1 1 1\n", "8 columns"},
             {"x y z nx ny nz\n", "column 1 is not a number"},
         })
        EXPECT_THAT(complaintOf(bytes, PointFormat::text), HasSubstr(complaint)) << bytes;
    EXPECT_EQ(complaintOf("1 2 1e-999 0 0 +1\n", PointFormat::text), "");
}

TEST(CloudReader, everyTruncationAndManyMutationsEndInASentence)
{
    PointCloud const cloud = randomCloud(12, 4);
    std::mt19937 engine(5);
    std::pair<PointFormat, std::string> const inputs[] = {
        {PointFormat::ply, richPly(cloud, "ascii")},
        {PointFormat::ply, richPly(cloud, "binary_big_endian")},
        {PointFormat::ply, plainPly(cloud, "12")},
        {PointFormat::text, textOf(cloud)},
        {PointFormat::obj, "v 1 2 3\nv 4 5 6\nvn 0 0 1\nvn 1 0 0\nf 1//2 2//1\nf -1/1/-1 -2/1/-2\n"},
    };
    for (auto const & [format, bytes] : inputs) {
        std::size_t complaints = 0;
        for (std::size_t length = 0; length < bytes.size(); ++length)
            complaints += !complaintOf(bytes.substr(0, length), format).empty();
        EXPECT_GT(complaints, 3u);
        for (int round = 0; round < 3000; ++round) {
            std::string mutated = bytes;
            for (unsigned change = 0; change < 1 + engine() % 4; ++change)
                mutated[engine() % mutated.size()] = static_cast<char>(engine());
            complaintOf(mutated, format);
        }
    }
    // Binary points that are cut anywhere are missed.
    std::string const plain = plainPly(cloud, "12");
    for (std::size_t cut = 1; cut < 12 * 24; ++cut)
        EXPECT_THAT(complaintOf(plain.substr(0, plain.size() - cut), PointFormat::ply),
                    HasSubstr("truncated"));
}

TEST(CloudReader, endingsDecideTheFormat)
{
    EXPECT_EQ(pointFormatOf("a/b.c/X.Ply"), PointFormat::ply);
    EXPECT_EQ(pointFormatOf("x.obj"), PointFormat::obj);
    for (char const * name : {"x.xyz", "x.xyzn", "x.asc", "x.TXT"})
        EXPECT_EQ(pointFormatOf(name), PointFormat::text);
    for (char const * name : {"ply", "a.ply/x", ".ply", "x.stl", "x.", ""})
        EXPECT_THROW(pointFormatOf(name), InputError) << name;
}
