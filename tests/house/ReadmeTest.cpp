// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace
{

std::string contents(std::string const & name)
{
    std::ifstream file(std::string(QZ_SOURCE_DIR) + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

} // namespace

TEST(Readme, ShowsTheExampleThatIsCompiledAndRun)
{
    std::string const example = contents("examples/Reconstruct.cpp");
    ASSERT_FALSE(example.empty());
    std::string const code = example.substr(example.find('\n') + 1); // without the licence line
    EXPECT_NE(contents("README.md").find("```cpp\n" + code + "```\n"), std::string::npos);
}
