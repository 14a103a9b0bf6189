// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/ProgramMemory.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include <sys/resource.h>

namespace qz_recon
{

namespace
{

// First number in a file, infinity when there is none ("max").
double numberIn(std::string const & path)
{
    std::ifstream file(path);
    double value = 0.0;
    return file >> value ? value : std::numeric_limits<double>::infinity();
}

// Value behind a label in a file of "label value" lines, `otherwise` when it is missing.
double labelled(std::string const & path, std::string const & label, double otherwise)
{
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string word;
        double value = 0.0;
        if (words >> word && word == label && words >> value)
            return value;
    }
    return otherwise;
}

// What a control group leaves; page cache that it can drop does not count as taken.
double leftInGroup(std::string const & folder, char const * limitFile, char const * usageFile,
                   char const * cacheLabel)
{
    double const limit = numberIn(folder + "/" + limitFile);
    double const usage = numberIn(folder + "/" + usageFile);
    if (!std::isfinite(limit) || !std::isfinite(usage))
        return std::numeric_limits<double>::infinity();
    return std::max(0.0, limit - usage + labelled(folder + "/memory.stat", cacheLabel, 0.0));
}

} // namespace

double availableMemory()
{
    double limit = 1024 * labelled("/proc/meminfo", "MemAvailable:", std::numeric_limits<double>::infinity());

    std::ifstream groups("/proc/self/cgroup");
    std::string line;
    while (std::getline(groups, line)) {
        std::size_t const first = line.find(':');
        std::size_t const second = first == std::string::npos ? first : line.find(':', first + 1);
        if (second == std::string::npos)
            continue;
        std::string const controllers = line.substr(first + 1, second - first - 1);
        bool const unified = controllers.empty();
        if (!unified && controllers != "memory")
            continue;
        // Every group on the way to the root may set a limit.
        for (std::string path = line.substr(second + 1);; path.resize(path.rfind('/'))) {
            if (!path.empty() && path.back() == '/')
                path.pop_back();
            limit =
                std::min(limit, unified ? leftInGroup("/sys/fs/cgroup" + path, "memory.max", "memory.current",
                                                      "inactive_file")
                                        : leftInGroup("/sys/fs/cgroup/memory" + path, "memory.limit_in_bytes",
                                                      "memory.usage_in_bytes", "total_inactive_file"));
            if (path.rfind('/') == std::string::npos)
                break;
        }
    }

    rlimit addressSpace{};
    if (getrlimit(RLIMIT_AS, &addressSpace) == 0 && addressSpace.rlim_cur != RLIM_INFINITY)
        limit = std::min(limit, static_cast<double>(addressSpace.rlim_cur) -
                                    1024 * labelled("/proc/self/status", "VmSize:", 0.0));
    return std::max(limit, 0.0);
}

double occupiedMemory() { return 1024 * labelled("/proc/self/status", "VmRSS:", 0.0); }

double peakMemory() { return 1024 * labelled("/proc/self/status", "VmHWM:", 0.0); }

} // namespace qz_recon
