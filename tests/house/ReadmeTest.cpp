// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <utility>

namespace
{

std::string contents(std::string const & name)
{
    std::ifstream file(std::string(QZ_SOURCE_DIR) + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

} // namespace

// A page that says what is promised must not name a proof that is gone.
TEST(Pages, NameTestsThatExist)
{
    std::string sources;
    for (auto const & entry : std::filesystem::recursive_directory_iterator(QZ_SOURCE_DIR "/tests"))
        if (entry.path().extension() == ".cpp")
            sources += contents(std::filesystem::relative(entry.path(), QZ_SOURCE_DIR));
    std::string const page = contents("docs/reliability.md");
    std::regex const name(R"(`(?:\w+/)?(\w+)\.(\w{5,})(?:/\w+)?`)");
    int count = 0;
    for (std::sregex_iterator match(page.begin(), page.end(), name), end; match != end; ++match, ++count) {
        std::string const test = "(" + match->str(1) + ", " + match->str(2) + ")";
        EXPECT_NE(sources.find(test), std::string::npos) << test;
    }
    EXPECT_GT(count, 30);
}

TEST(Readme, ShowsTheExamplesThatAreRun)
{
    for (auto const & [file, language] :
         {std::pair("examples/Reconstruct.cpp", "cpp"), {"examples/reconstruct.py", "python"}}) {
        std::string const example = contents(file);
        ASSERT_FALSE(example.empty());
        std::string const code = example.substr(example.find('\n') + 1); // without the licence line
        EXPECT_NE(contents("README.md").find(std::string("```") + language + "\n" + code + "```\n"),
                  std::string::npos);
    }
}
