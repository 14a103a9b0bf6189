// SPDX-License-Identifier: Apache-2.0
#include <apps/ChildProcess.h>

#include <cerrno>
#include <stdexcept>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qz_test
{

ChildProcess::ChildProcess(std::vector<std::string> const & arguments, std::function<void()> const & prepare)
{
    std::string const output = m_streams.write("output", ""), errors = m_streams.write("errors", "");
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
        dup2(open(output.c_str(), O_WRONLY), STDOUT_FILENO);
        dup2(open(errors.c_str(), O_WRONLY), STDERR_FILENO);
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
    for (int i = 0; i < 2000 && m_streams.contents("errors").empty(); ++i)
        usleep(5000);
}

void ChildProcess::send(int signal) const { kill(m_id, signal); }

int ChildProcess::wait()
{
    int status = 0;
    while (waitpid(m_id, &status, 0) < 0 && errno == EINTR) {
    }
    m_id = -1;
    m_output = m_streams.contents("output");
    m_errors = m_streams.contents("errors");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace qz_test
