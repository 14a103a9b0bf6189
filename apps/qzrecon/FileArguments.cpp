// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/FileArguments.h>

#include <apps/qzrecon/Options.h>
#include <apps/qzrecon/Outputs.h>

#include <QZmath/Files/Errors.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace qz_recon
{

namespace
{

namespace fs = std::filesystem;

// Are both the same file, there or not yet?
bool areSame(fs::path const & a, fs::path const & b)
{
    std::error_code failure;
    if (fs::equivalent(a, b, failure))
        return true;
    fs::path const left = fs::weakly_canonical(a, failure);
    if (failure)
        return false;
    fs::path const right = fs::weakly_canonical(b, failure);
    return !failure && left == right;
}

void checkPlace(std::string const & path, std::string const & what)
{
    std::error_code ignored;
    fs::path const file(path);
    fs::path const folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    std::string const refusal = "cannot write " + what + QZmath::quotable(path) + ": ";
    if (!fs::is_directory(folder, ignored))
        throw QZmath::OutputError(refusal + "there is no folder " + QZmath::quotable(folder.string()));
    if (fs::is_directory(file, ignored))
        throw QZmath::OutputError(refusal + "it is a folder");
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        throw QZmath::OutputError(refusal + "the folder " + QZmath::quotable(folder.string()) + ": " +
                                  std::strerror(errno));
}

} // namespace

void openStandardStreams()
{
    for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) >= 0 || errno != EBADF)
            continue;
        if (open("/dev/null", O_RDWR) != stream) // the least free number
            _exit(st_exitNotWritten);
    }
}

void checkFileArguments(Options const & options)
{
    std::vector<std::string> outputs;
    for (std::string const & output : options.outputs) {
        if (output != "-")
            checkPlace(output, "");
        for (std::string const & file : filesOf(output)) {
            for (std::string const & other : outputs)
                if (areSame(file, other))
                    throw UsageError("two outputs would be the same file " + QZmath::quotable(file));
            outputs.push_back(file);
        }
    }
    if (!options.logFile.empty()) {
        checkPlace(options.logFile, "the log ");
        for (std::string const & output : outputs) {
            if (areSame(options.logFile, output))
                throw UsageError("the log would replace the output " + QZmath::quotable(output));
        }
        outputs.push_back(options.logFile);
    }
    for (std::string const & input : options.inputs) {
        for (std::string const & output : outputs) {
            if (input != "-" && areSame(input, output))
                throw UsageError((output == options.logFile ? "the log" : "the output") +
                                 std::string(" would replace the input ") + QZmath::quotable(input));
        }
    }
}

} // namespace qz_recon
