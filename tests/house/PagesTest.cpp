// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace
{

std::string contents(std::string const & name)
{
    std::ifstream file(std::string(QZ_SOURCE_DIR) + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::vector<std::string> pages()
{
    std::vector<std::string> result;
    for (char const * folder : {".", "docs"})
        for (auto const & entry :
             std::filesystem::directory_iterator(std::string(QZ_SOURCE_DIR "/") + folder))
            if (entry.path().extension() == ".md")
                result.push_back(std::filesystem::relative(entry.path(), QZ_SOURCE_DIR).string());
    return result;
}

std::string withoutCode(std::string const & page)
{
    std::string const text = std::regex_replace(page, std::regex("```[^`]*```"), "");
    return std::regex_replace(text, std::regex("`[^`\\n]*`"), "");
}

// The anchors that a browser of repositories gives to headings.
std::set<std::string> headings(std::string const & page)
{
    std::set<std::string> result;
    std::regex const heading("(?:^|\\n)#+ ([^\\n]+)");
    std::string const text = std::regex_replace(page, std::regex("```[^`]*```"), "");
    for (std::sregex_iterator match(text.begin(), text.end(), heading), end; match != end; ++match) {
        std::string anchor;
        for (char const c : match->str(1)) {
            if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_')
                anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            else if (c == ' ')
                anchor += '-';
        }
        result.insert(anchor);
    }
    return result;
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

// Code that a page shows under the name of a file is that file, without its first line, which is the licence.
TEST(Pages, ShowTheExamplesThatAreRun)
{
    std::regex const shown(R"(\((?:\.\./)?(examples/\w+\.\w+)\):\n\n```\w+\n([^`]*)```\n)");
    int count = 0;
    for (std::string const & page : pages()) {
        std::string const text = contents(page);
        for (std::sregex_iterator match(text.begin(), text.end(), shown), end; match != end;
             ++match, ++count) {
            std::string const example = contents(match->str(1));
            EXPECT_TRUE(example.size() > 100 &&
                        example.substr(example.find_first_not_of('\n', example.find('\n'))) == match->str(2))
                << page << ": " << match->str(1);
        }
    }
    EXPECT_GT(count, 8);
    for (auto const & [file, language] :
         {std::pair("examples/Reconstruct.cpp", "cpp"), {"examples/reconstruct.py", "python"}}) {
        std::string const example = contents(file);
        std::string const code = example.substr(example.find('\n') + 1);
        EXPECT_NE(contents("README.md").find(std::string("```") + language + "\n" + code + "```\n"),
                  std::string::npos);
    }
}

// Pages are read in a repository's browser as often as on the site, so they are plain Markdown: links to
// files of the tree and to headings that are there, and no commands of a particular tool.
TEST(Pages, LeadSomewhereAndArePlainMarkdown)
{
    namespace fs = std::filesystem;
    std::regex const link(R"(\]\(([^)\s]+)\))"), foreign(R"(\\(f[\[$\]]|include|dot|ref|image|page)\b)");
    int count = 0;
    for (std::string const & page : pages()) {
        std::string const text = withoutCode(contents(page));
        EXPECT_FALSE(std::regex_search(text, foreign)) << page;
        for (std::sregex_iterator match(text.begin(), text.end(), link), end; match != end;
             ++match, ++count) {
            std::string const target = match->str(1), file = target.substr(0, target.find('#'));
            if (target.find("://") != std::string::npos)
                continue;
            std::string const path =
                file.empty() ? page : (fs::path(page).parent_path() / file).lexically_normal().string();
            EXPECT_TRUE(fs::exists(fs::path(QZ_SOURCE_DIR) / path)) << page << ": " << target;
            if (file.size() != target.size()) {
                EXPECT_EQ(headings(contents(path)).count(target.substr(file.size() + 1)), 1U)
                    << page << ": " << target;
            }
        }
    }
    EXPECT_GT(count, 80);
}
