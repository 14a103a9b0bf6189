// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

#include <stdlib.h>

namespace qz_test
{

/// Test folders, and temporary files of the library, need no disk from here on where the system has memory
/// for them: for tests that synchronise thousands of files.
inline bool keepTestFoldersInMemory()
{
    return std::filesystem::is_directory("/dev/shm") && setenv("TMPDIR", "/dev/shm", 1) == 0;
}

/// An empty folder with a name of its own, removed with all that is in it.
class TestFolder
{
public:
    TestFolder()
    {
        if (!mkdtemp(m_path.data()))
            throw std::runtime_error("no folder for a test");
    }
    ~TestFolder() { std::filesystem::remove_all(m_path); }
    TestFolder(TestFolder const &) = delete;
    TestFolder & operator=(TestFolder const &) = delete;

    std::string path(std::string const & name) const { return m_path + "/" + name; }
    std::string write(std::string const & name, std::string const & text) const
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    std::string contents(std::string const & name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    std::set<std::string> files() const
    {
        std::set<std::string> names;
        for (auto const & entry : std::filesystem::directory_iterator(m_path))
            names.insert(entry.path().filename().string());
        return names;
    }

private:
    std::string m_path = (std::filesystem::temp_directory_path() / "qz test XXXXXX").string();
};

} // namespace qz_test
