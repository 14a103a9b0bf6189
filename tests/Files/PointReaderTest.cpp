// SPDX-License-Identifier: Apache-2.0
#include <Files/CloudFiles.h>
#include <QZmath/Files/PointReader.h>
#include <QZsys/Exceptions.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/Progress.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <cstdio>
#include <initializer_list>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace QZmath;
using namespace qz_test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

PointCloud readFrom(std::string const & bytes, ReadOptions const & options = {})
{
    return readPointsFromMemory(bytes.data(), bytes.size(), options);
}

std::string complaintOf(std::string const & bytes, ReadOptions const & options = {})
{
    return qz_test::complaintOf([&] { readFrom(bytes, options); });
}

void expectSame(PointCloud const & read, PointCloud const & expected)
{
    EXPECT_EQ(read.positions, expected.positions);
    EXPECT_EQ(read.positions64, expected.positions64);
    EXPECT_EQ(read.normals, expected.normals);
    EXPECT_EQ(read.colors, expected.colors);
    EXPECT_EQ(read.boundary, expected.boundary);
}

// One cloud as a file of every form.
std::vector<std::string> allFiles(PointCloud const & cloud, unsigned seed)
{
    std::vector<std::string> files;
    for (char const * encoding : {"ascii", "binary_little_endian", "binary_big_endian"})
        files.push_back(plyFile(cloud, encoding, seed));
    for (char const * encoding : {"ascii", "binary", "binary_compressed"})
        files.push_back(pcdFile(cloud, encoding, seed));
    for (char const * separator : {" ", "\t", ",", ", ", ";"})
        files.push_back(textFile(cloud, separator));
    return files;
}

// The plain layout of six properties that most scanners write.
std::string plainPly(std::size_t points, std::string const & promised)
{
    return "ply\nformat binary_little_endian 1.0\nelement vertex " + promised +
           "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
           "property float nz\nend_header\n" +
           std::string(24 * points, 'A');
}

std::string pcdHead(std::string const & points, std::string const & encoding, std::string const & size = "4")
{
    return "VERSION .7\nFIELDS x y z\nSIZE " + size + " 4 4\nTYPE F F F\nCOUNT 1 1 1\nWIDTH " + points +
           "\nHEIGHT 1\nPOINTS " + points + "\nDATA " + encoding + "\n";
}

// A LAS file with some bytes of the header replaced.
template <class T>
std::string lasWith(std::size_t place, T value)
{
    std::string bytes = lasFile(randomCloud(3, {true, false, false, false}, 1), 0);
    std::memcpy(bytes.data() + place, &value, sizeof(value));
    return bytes;
}

} // namespace

TEST(PointReader, everyFormGivesTheSameCloud)
{
    unsigned seed = 0;
    for (bool const wide : {false, true})
        for (bool const normals : {false, true})
            for (bool const colors : {false, true}) {
                // Once more than one window of the source, so that instances and lines straddle its ends.
                std::size_t const size = normals == colors ? 12000 : 300;
                PointCloud const cloud = randomCloud(size, {wide, normals, colors, seed % 2 == 1}, seed + 1);
                ++seed;
                for (std::string const & file : allFiles(cloud, seed)) {
                    SCOPED_TRACE(file.substr(0, file.find("\n0")).substr(0, 300));
                    PointCloud const read = readFrom(file);
                    expectSame(read, cloud);
                    EXPECT_THAT(read.notes, ElementsAre());
                    EXPECT_EQ(read.viewpoint.has_value(), file[2] == '.');
                    std::istringstream stream(file);
                    expectSame(readPoints(stream), cloud);
                }
            }
}

TEST(PointReader, blocksOnThreadsGiveWhatOneThreadGives)
{
    std::vector<std::string> files;
    std::size_t const size = 30000; // a megabyte or two, of which each block is a quarter of one
    for (bool const wide : {false, true}) {
        PointCloud const cloud = randomCloud(size, {wide, true, wide, true}, wide ? 3 : 4);
        for (std::string & file : allFiles(cloud, 5))
            files.push_back(std::move(file));
    }
    files.push_back(lasFile(randomCloud(size, {true, false, true, false}, 6), 3));
    std::string pts = "15000\n", vertices, normals, faces = "f 1//2 2//1\nf 3 4 5\n", returns;
    for (std::size_t i = 0; i < size; ++i) {
        std::string const number = std::to_string(i);
        pts += (i == size / 2 ? "15000\n" : "") + number + " 0.5 7 " + (i > 25000 ? "1 2 300\n" : "1 2 30\n");
        vertices += "v " + number + " 1 2" + (i == 20000 ? "" : " .5 .5 1") + (i % 7 == 0 ? "\r\n" : "\n");
        normals += "vn 1 0 " + number + "\n";
        returns += number + " 1 2 # no line feed\r";
    }
    files.insert(files.end(), {pts, vertices + normals, vertices + normals + faces,
                               vertices + faces + normals, returns + "3 4 5\r\n" + returns});
    for (std::string const & file : files) {
        SCOPED_TRACE(file.substr(0, 60));
        auto const readOn = [](int threads, std::string const & bytes, std::string & complaint) {
            CThreadNumberScope const scope(threads);
            PointCloud cloud;
            complaint = qz_test::complaintOf([&] { cloud = readFrom(bytes); });
            return cloud;
        };
        std::string expectedComplaint, complaint;
        PointCloud const expected = readOn(1, file, expectedComplaint);
        for (int const threads : {2, 5}) {
            PointCloud const cloud = readOn(threads, file, complaint);
            expectSame(cloud, expected);
            EXPECT_EQ(cloud.notes, expected.notes);
            EXPECT_EQ(complaint, expectedComplaint);
            CThreadNumberScope const scope(threads);
            std::istringstream stream(file);
            if (complaint.empty())
                expectSame(readPoints(stream), expected);
        }
        // Faults in the middle of a block and in the last line, and an end too early.
        for (std::size_t const place : {file.size() * 2 / 3, file.size() - 4}) {
            std::string broken = file;
            broken[place] = 'x';
            readOn(1, broken, expectedComplaint);
            readOn(3, broken, complaint);
            EXPECT_EQ(complaint, expectedComplaint);
            readOn(1, file.substr(0, place), expectedComplaint);
            readOn(3, file.substr(0, place), complaint);
            EXPECT_EQ(complaint, expectedComplaint);
        }
    }
}

TEST(PointReader, lasOfEveryFormatComesInDouble)
{
    for (unsigned format = 0; format <= 10; ++format) {
        SCOPED_TRACE(format);
        PointCloud cloud = randomCloud(5000, {true, false, true, false}, format);
        for (double & coordinate : cloud.positions64)
            coordinate = std::round((coordinate - 5e6) / 0.001) * 0.001 + 5e6;
        bool const isColored =
            format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10;
        std::string const file = lasFile(cloud, format);
        cloud.colors.resize(isColored ? cloud.colors.size() : 0);
        PointCloud const read = readFrom(file);
        expectSame(read, cloud);
        EXPECT_THAT(read.notes, ElementsAre(HasSubstr("500 points with the mark \"withheld\"")));
        PointCloud black = cloud; // colours that nobody has measured
        std::fill(black.colors.begin(), black.colors.end(), std::uint8_t(0));
        EXPECT_TRUE(readFrom(lasFile(black, format)).colors.empty());
    }
}

TEST(PointReader, digitsDecideThePrecisionOfText)
{
    for (char const * number : {"0.1", "1.2345678e-40", "16777217", "123456.789", "0.100000001", "3.14159265",
                                "500000.04", "500000.03"}) {
        float value = 0;
        std::sscanf(number, "%f", &value);
        char digits[64];
        std::string const word(number);
        std::size_t const point = word.find('.');
        // Enough is what gives back the digits that were there.
        std::snprintf(digits, sizeof(digits), "%.*f",
                      point == std::string::npos ? 0 : int(word.size() - point - 1),
                      static_cast<double>(value));
        bool const isEnough = word.find('e') != std::string::npos ? false : word == digits;
        PointCloud const cloud = readFrom(word + " 0 0\n");
        EXPECT_EQ(cloud.positions64.empty(), isEnough) << number;
    }
    std::string const far = "1.5 2.5 3.5\n500000.125 5400000.0001 300\n";
    EXPECT_THAT(readFrom(far).positions64, ElementsAre(1.5, 2.5, 3.5, 500000.125, 5400000.0001, 300.0));
}

TEST(PointReader, textOfManyLayouts)
{
    struct Case
    {
        char const * text;
        char const * columns;
        std::vector<float> normals;
        std::vector<std::uint8_t> colors;
        char const * note;
    };
    Case const cases[] = {
        {"1 2 3\n4 5 6\n", "", {}, {}, nullptr},
        {"1 2 3 77\n4 5 6 78\n", "", {}, {}, "fourth column is taken for an intensity"},
        {"1 2 3 0 0 1\n4 5 6 0 -1 0\n", "", {0, 0, 1, 0, -1, 0}, {}, nullptr},
        {"1 2 3 0 0 1\n4 5 6 1 0 0\n", "", {0, 0, 1, 1, 0, 0}, {}, nullptr},
        {"1 2 3 0 0 1\n4 5 6 7 255 0\n", "", {}, {0, 0, 1, 7, 255, 0}, "taken for colours"},
        {"1 2 3 .1 .2 .3\n4 5 6 .5 .25 0\n", "", {.1f, .2f, .3f, .5f, .25f, 0}, {}, "--columns x,y,z,r,g,b"},
        {"1 2 3 .1 .2 .4\n4 5 6 1 0 0\n", "x,y,z,r,g,b", {}, {26, 51, 102, 255, 0, 0}, nullptr},
        {"1 2 3 0 0 1 9\n4 5 6 0 1 0 8\n", "", {0, 0, 1, 0, 1, 0}, {}, "nx,ny,nz,boundary"},
        {"1 2 3 -700 4 5 6\n4 5 6 31 7 8 9\n", "", {}, {4, 5, 6, 7, 8, 9}, "x,y,z,intensity,r,g,b"},
        {"1 2 3 7 4 5 6\n4 5 6 31 7 8 9\n", "", {}, {}, "before or behind an intensity"},
        {"1 2 3 9 8 7 0 0 .5\n4 5 6 6 5 4 0 .5 0\n", "", {0, 0, .5f, 0, .5f, 0}, {9, 8, 7, 6, 5, 4}, nullptr},
        {"1 2 3 0 0 .5 9 8 7\n4 5 6 0 .5 0 6 5 4\n", "", {0, 0, .5f, 0, .5f, 0}, {9, 8, 7, 6, 5, 4}, nullptr},
        {"a 3 1 2\nb 6 4 5\n", "_,z,x,y", {}, {}, nullptr},
        {"2\n1 2 3\n4 5 6\n", "", {}, {}, nullptr},
        {"1\n1 2 3 9 7 7 7\n1\n4 5 6 8 7 7 7\n", "x,y,z", {}, {}, nullptr},
        {"Easting;Northing;Height\nx;y;z;label\n1;2;3;tree\n4;5;6;\n", "", {}, {}, nullptr},
        {"\"X\",\"Y\",\"Z\",\"Nx\"\n1,2,3,\n4,5,6,8\n", "", {}, {}, nullptr},
        {"made by x, y and z\n\n1,2,3,\n4 , 5, 6\n", "", {}, {}, nullptr},
        {"Red x Y z green BLUE\n100 1 2 3 65535 0\n257 4 5 6 0 514\n", "", {}, {0, 255, 0, 1, 0, 2}, nullptr},
    };
    for (Case const & one : cases) {
        SCOPED_TRACE(one.text);
        ReadOptions options;
        options.columns = one.columns;
        PointCloud const cloud = readFrom(one.text, options);
        EXPECT_THAT(cloud.positions, ElementsAre(1, 2, 3, 4, 5, 6));
        EXPECT_EQ(cloud.normals, one.normals);
        EXPECT_EQ(cloud.colors, one.colors);
        EXPECT_EQ(cloud.notes.empty(), one.note == nullptr);
        if (one.note != nullptr && !cloud.notes.empty()) {
            EXPECT_THAT(cloud.notes.back(), HasSubstr(one.note));
        }
    }
    // A Leica .pts file has its intensity before the colour, whatever its range.
    TestFolder const folder;
    EXPECT_THAT(readPoints(folder.write("a.pts", "1\n1 2 3 9 4 5 6\n")).colors, ElementsAre(4, 5, 6));
    EXPECT_THAT(readFrom("1 2 3 0\n4 5 6 2\n", {PointFormat::text, "x,y,z,boundary"}).boundary,
                ElementsAre(0, 1));
}

TEST(PointReader, objFacesSayWhichNormalIsWhose)
{
    std::string const points = "# c\nv 0 0 0\nv 1 0 0 1.0\nv 0 1 0 0.5 0.5 0.5\n";
    std::string const normals = "vn 0 0 1\nvn 0 1 0\nvn 1 0 0\n";
    std::vector<float> const inOrder = {0, 0, 1, 0, 1, 0, 1, 0, 0};
    std::vector<float> const reversed = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    EXPECT_EQ(readFrom(points + normals).normals, inOrder);
    EXPECT_EQ(readFrom(points + "vt 0 0\n" + normals + "f 1 2 3\nf 1/1 2/1 3/1\n").normals, inOrder);
    EXPECT_EQ(readFrom(points + normals + "f 1//3 2//2 3//1\n").normals, reversed);
    EXPECT_EQ(readFrom(points + normals + "f -3/7/-1 -2/7/-2 -1/7/-3\n").normals, reversed);
    EXPECT_EQ(readFrom(points + "vn 0 0 1\nf 1//1 2//1 3//1\n").normals,
              (std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1}));
    EXPECT_THAT(readFrom("v 1 2 3 0 0.5 1\nv 1 2 3 1 0 0 1\n").colors, ElementsAre(0, 128, 255, 255, 0, 0));
    EXPECT_THAT(readFrom(points).notes, ElementsAre(HasSubstr("only 1 of 3 points have a colour")));
    EXPECT_THAT(complaintOf(points + "vn 0 0 1\n"), HasSubstr("3 points but 1 normals"));
    EXPECT_THAT(complaintOf(points + "vn 0 0 1\nf 1//1\n"), HasSubstr("index 1, counted from 0"));
    for (char const * corner : {"4//1", "0//1", "1//2", "-4//1", "1//-2", "99999999999999999999//1", "1//x",
                                "-9223372036854775808//1"})
        EXPECT_THAT(complaintOf(points + "vn 0 0 1\nf " + corner + "\n"), HasSubstr("does not exist"))
            << corner;
}

TEST(PointReader, whatIsWrongIsSaid)
{
    std::string const plyHead = "ply\nformat ascii 1.0\n", vertex = plyHead + "element vertex ";
    std::string const xyz = "property float x\nproperty float y\nproperty float z\n",
                      body = "\n" + xyz + "end_header\n";
    std::string const binary = "ply\nformat binary_little_endian 1.0\n", most = "9223372036854775807\n";
    std::string endless = "ply\n";
    while (endless.size() < (2 << 20))
        endless += "comment and no end\n";
    using Cases = std::vector<std::pair<std::string, char const *>>;
    std::pair<PointFormat, Cases> const all[] = {
        {PointFormat::ply,
         {{"", "not a PLY file"},
          {"solid cube\n", "not a PLY file"},
          {vertex + "1\n" + xyz, "truncated inside the header"},
          {"ply\nelement vertex 0" + body, "no known format"},
          {vertex + body, "without a count"},
          {vertex + "-4" + body, "without a count"},
          {vertex + "1\nproperty float x\nend_header\n0\n", "no properties x"},
          {vertex + "1\nproperty half x\n", "unknown type \"half\""},
          {vertex + "1\n\x1b[31mred\n", "keyword \"\\x1b[31mred\""},
          {plyHead + "property float x\n", "before the first element"},
          {plyHead + "element face 0\nproperty list float int i\n", "not a whole number"},
          {plyHead + "element face 0\nend_header\n", "no vertices"},
          {vertex + "0" + body, "no points"},
          {vertex + "2" + body + "1 2 3\n", "truncated"},
          {vertex + "1" + body + "1 2\n\n\n\n", "does not hold"},
          {vertex + "1" + body + "1 2 one\n", "does not hold"},
          // Absurd counts take no memory.
          {plainPly(5, "6"), "truncated"},
          {plainPly(5, "2147483648"), "truncated"},
          {plainPly(5, "768614336404564651"), "truncated"},
          {plainPly(5, "9223372036854775807"), "truncated"},
          {plyHead + "element a " + most + "end_header\n", "truncated"},
          {binary + "element a " + most + "end_header\n", "no vertices"},
          {binary + "element a 1\nproperty list uint double i\nend_header\n\xff\xff\xff\xff", "truncated"},
          {binary + "element a 1\nproperty list char int i\nend_header\n\xff", "negative length"},
          {plyHead + "element a 1\nproperty list uint int i\nend_header\n-1\n", "negative length"},
          {plyHead + "element a 1\nproperty list uint int i\nend_header\n1e300 1\n", "does not hold"},
          {endless, "header is longer"}}},
        {PointFormat::obj,
         {{"", "no points"},
          {"v 1 2\n", "line 1 does not hold three numbers"},
          {"v 1 2 x\n", "line 1 has \"x\""},
          {"v " + std::string(1 << 20, '1'), "is longer than"}}},
        {PointFormat::text,
         {{"# nothing\n\n", "no points"},
          {"1 2 3 0 0 1\n1 2 3 0 0\n", "line 2 has 5 columns instead of 6"},
          {"1 2\n", "a point needs three"},
          {"1 2 3 4 5\n", "5 columns, whose meaning is not clear: choose them with --columns"},
          {"1 2 3 0 0 1 1 1\n", "8 columns"},
          {"1 2 3 9 8 7 6 5 4\n", "nine columns"},
          {"x y z nx ny nz\n", "column 1 is not a number"},
          {"1 2 3\n4 five 6\n", "line 2, column 2 is not a number: \"five\""},
          {"1,5;2,5;3,5\n", "decimals need a point"},
          {"3\n1 2 3\n4 5 6\n", "3 points are promised and 2 are there"},
          {"# x y z r g b\n1 2 3 4 5 6\n1 2 3\n", "fewer than the 6 of \"x,y,z,r,g,b\""}}},
        {PointFormat::pcd,
         {{"", "truncated inside the header"},
          {"# .PCD\nCOLOR 1\n", "unknown keyword \"COLOR\""},
          {pcdHead("1", "lz4"), "encoded as \"lz4\""},
          {pcdHead("1", "binary") + "01234567", "truncated"},
          {pcdHead("2147483647", "binary"), "truncated"},
          {pcdHead("2147483647", "ascii"), "truncated"},
          {pcdHead("2147483647", "binary_compressed") + "01234567", "truncated"},
          {pcdHead("4294967296", "binary"), "more than 2147483647"},
          {pcdHead("1", "binary_compressed") + std::string("\x04\0\0\0\x0c\0\0\0abcd", 12), "damaged"},
          {pcdHead("1", "binary_compressed") + std::string("\x04\0\0\0\x0d\0\0\0abcd", 12), "promises 12"},
          {pcdHead("1", "ascii") + "1 2 x\n", "does not hold"},
          {pcdHead("1", "ascii", "3") + "1 2 3\n", "3 bytes, which there is not"},
          {pcdHead("1", "ascii") + "nan 2 3\n", "no points"},
          {"FIELDS x x y\n", "\"x\" twice"},
          {"FIELDS x y\nDATA ascii\n", "no fields x, y and z"},
          {"FIELDS x y z\nWIDTH 9223372036854775807\nHEIGHT 3\nDATA ascii\n", "more than 2147483647"}}},
        {PointFormat::las,
         {{"LASF", "truncated inside the header"},
          {"LASX", "not a LAS file"},
          {lasWith(25, std::uint8_t(5)), "LAS 1.5"},
          {lasWith(104, std::uint8_t(0x80)), "pdal translate"},
          {lasWith(104, std::uint8_t(11)), "format 11"},
          {lasWith(105, std::uint16_t(19)), "19 bytes each"},
          {lasWith(107, 0xffffffffu), "more than 2147483647"},
          {lasWith(107, 0x7fffffffu), "truncated"},
          {lasWith(107, 0u), "no points"},
          {lasWith(96, 100u), "inside it"},
          {lasWith(96, 0xffffffffu), "truncated"},
          {lasWith(131, 0.0), "no number to reckon with"}}},
        {PointFormat::automatic,
         {{std::string("\0\1\2\3", 4), "not known"},
          {"ASTM-E57\1\2", "pdal translate"},
          {"glTF\2\0\0\0", "glTF mesh"}}}};
    for (auto const & [format, cases] : all)
        for (auto const & [bytes, complaint] : cases)
            EXPECT_THAT(complaintOf(bytes, {format, {}}), HasSubstr(complaint)) << bytes.substr(0, 300);
    for (auto const & [columns, complaint] : std::initializer_list<std::pair<char const *, char const *>>{
             {"x,y", "name x, y and z"},
             {"x,y,z,z", "\"z\" twice"},
             {"x,y,z,", "unknown name \"\""},
             {"x,y,z,nx", "all or none of nx"},
             {"x,y,z,q\n", "unknown name \"q\\x0a\""}})
        EXPECT_THAT(complaintOf("1 2 3\n", {PointFormat::text, columns}),
                    AllOf(HasSubstr("--columns"), HasSubstr(complaint)));
}

TEST(PointReader, everyTruncationAndManyMutationsEndInASentence)
{
    std::mt19937 engine(5);
    PointCloud const cloud = randomCloud(12, {false, true, true, true}, 4);
    std::vector<std::string> files = allFiles(cloud, 7);
    files.push_back("v 1 2 3\nv 4 5 6\nvn 0 0 1\nvn 1 0 0\nf 1//2 2//1\nf -1/1/-1 -2/1/-2\n");
    files.push_back("12\n" + textFile(randomCloud(12, {true, true, false, false}, 3), " ").substr(22));
    for (unsigned format : {0u, 3u, 7u})
        files.push_back(lasFile(randomCloud(12, {true, false, true, false}, 6), format));
    for (std::string const & bytes : files) {
        std::size_t complaints = 0;
        for (std::size_t length = 0; length < bytes.size(); ++length)
            complaints += !complaintOf(bytes.substr(0, length)).empty();
        EXPECT_GT(complaints, 3u);
        for (int round = 0; round < 1500; ++round) {
            std::string mutated = bytes;
            for (unsigned change = 0; change < 1 + engine() % 4; ++change)
                mutated[engine() % mutated.size()] = static_cast<char>(engine());
            complaintOf(mutated);
        }
    }
    // Binary points that are cut anywhere are missed.
    for (std::size_t const file : {1u, 2u, 4u, 5u})
        for (std::size_t cut = file < 3 ? 2 : 1; cut < 200; ++cut)
            EXPECT_NE(complaintOf(files[file].substr(0, files[file].size() - cut)), "") << file << ' ' << cut;
}

TEST(PointReader, pipesAndStandardInputAreReadByTheirContent)
{
    TestFolder const folder;
    PointCloud const cloud = randomCloud(9000, {false, true, true, true}, 9);
    std::string const pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (std::string const & file : allFiles(cloud, 3)) {
        std::thread writer([&] {
            int const end = open(pipe.c_str(), O_WRONLY);
            for (std::size_t done = 0; done < file.size(); done += 1000) // in small pieces
                if (write(end, file.data() + done, std::min<std::size_t>(1000, file.size() - done)) < 0)
                    break;
            close(end);
        });
        expectSame(readPoints(pipe), cloud);
        writer.join();
    }
    int const kept = dup(STDIN_FILENO);
    std::FILE * const input = std::fopen(folder.write("any", plyFile(cloud, "ascii", 1)).c_str(), "r");
    dup2(fileno(input), STDIN_FILENO);
    expectSame(readPoints("-"), cloud);
    dup2(kept, STDIN_FILENO);
    close(kept);
    std::fclose(input);
}

TEST(PointReader, namesDecideTheFormatAndProgressMayInterrupt)
{
    EXPECT_EQ(pointFormatOf("a/b.c/X.Ply"), PointFormat::ply);
    EXPECT_EQ(pointFormatOf("x.obj"), PointFormat::obj);
    EXPECT_EQ(pointFormatOf("x.PCD"), PointFormat::pcd);
    EXPECT_EQ(pointFormatOf("x.las"), PointFormat::las);
    for (char const * name : {"x.xyz", "x.xyzn", "x.asc", "x.TXT", "x.csv", "x.pts"})
        EXPECT_EQ(pointFormatOf(name), PointFormat::text);
    for (char const * name : {"ply", "a.ply/x", ".ply", "x.stl", "x.", "", "x.laz", "x.E57"})
        EXPECT_THROW(pointFormatOf(name), InputError) << name;
    TestFolder const folder;
    std::string const file = folder.write("x.ply", plainPly(100000, "100000"));
    CProgressCounter counter;
    readPoints(file, {}, &counter);
    EXPECT_EQ(counter.getPosFloat(), 1.0);
    counter.interrupt();
    EXPECT_THROW(readPoints(file, {}, &counter), CUserIntrException);
    EXPECT_THROW(readPoints(folder.path("")), InputError);
    EXPECT_THROW(readPoints(folder.path("missing.ply")), InputError);
}

TEST(Quotations, holdNothingThatATerminalObeys)
{
    EXPECT_EQ(quotable("plain \xc3\xa4 \xe2\x82\xac"), "plain \xc3\xa4 \xe2\x82\xac");
    EXPECT_EQ(quotable("\x1b[2J\r\n\t\x7f"), "\\x1b[2J\\x0d\\x0a\\x09\\x7f");
    EXPECT_EQ(quotable("\xff\xc0\xaf\xed\xa0\x80\xc2\x9b"), "\\xff\\xc0\\xaf\\xed\\xa0\\x80\\xc2\\x9b");
    EXPECT_EQ(quotable("\xe2\x80\xae"), "\\xe2\\x80\\xae") << "turns the direction of writing";
    std::string const path = "/" + std::string(5000, 'a') + "/scan.ply";
    EXPECT_THAT(quotable(path),
                AllOf(testing::StartsWith("/aaa"), testing::EndsWith("a/scan.ply"), HasSubstr("...")));
    EXPECT_EQ(quotable(path).size(), 80u);
    EXPECT_LE(quotable(std::string(5000, '\1')).size(), 80u);
    EXPECT_STREQ(OutputError("").what(), "no reason is known");
    EXPECT_STREQ(InputError("a\nb").what(), "a\\x0ab");
}
