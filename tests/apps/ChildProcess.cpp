// SPDX-License-Identifier: Apache-2.0
#include <apps/ChildProcess.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qz_test
{

namespace
{

std::string makeTemporaryFile()
{
    std::string name = testing::TempDir() + "child-output-XXXXXX";
    int const file = mkstemp(name.data());
    if (file < 0)
        throw std::runtime_error("no temporary file");
    close(file);
    return name;
}

std::string takeContents(std::string const & name)
{
    std::ifstream file(name, std::ios::binary);
    std::string const contents{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    unlink(name.c_str());
    return contents;
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> const & arguments, std::function<void()> const & prepare)
    : m_outputFile(makeTemporaryFile()), m_errorFile(makeTemporaryFile())
{
    std::vector<char *> pointers;
    for (std::string const & argument : arguments)
        pointers.push_back(const_cast<char *>(argument.c_str()));
    pointers.push_back(nullptr);
    m_id = fork();
    if (m_id < 0)
        throw std::runtime_error("no process");
    if (m_id == 0) {
        for (int number : {SIGINT, SIGTERM, SIGHUP})
            signal(number, SIG_DFL);
        dup2(open(m_outputFile.c_str(), O_WRONLY), STDOUT_FILENO);
        dup2(open(m_errorFile.c_str(), O_WRONLY), STDERR_FILENO);
        if (prepare)
            prepare();
        execv(pointers[0], pointers.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess()
{
    if (m_id > 0) {
        send(SIGKILL);
        wait();
    }
}

void ChildProcess::waitForErrors() const
{
    struct stat status = {};
    for (int i = 0; i < 2000 && stat(m_errorFile.c_str(), &status) == 0 && status.st_size == 0; ++i)
        usleep(5000);
}

void ChildProcess::send(int signal) const { kill(m_id, signal); }

int ChildProcess::wait()
{
    int status = 0;
    while (waitpid(m_id, &status, 0) < 0 && errno == EINTR) {
    }
    m_id = -1;
    m_output = takeContents(m_outputFile);
    m_errors = takeContents(m_errorFile);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace qz_test
