// SPDX-License-Identifier: Apache-2.0
#include "CpuQuotaDetail.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <vector>

namespace
{

double const noQuota = std::numeric_limits<double>::infinity();

// Whether `list`, separated by commas, has the entry `wanted`.
bool listHas(std::string const & list, std::string const & wanted)
{
    std::istringstream entries(list);
    std::string entry;
    while (std::getline(entries, entry, ','))
        if (entry == wanted)
            return true;
    return false;
}

// `mountinfo` writes blanks and backslashes of a path as a backslash and three octal digits.
std::string unescaped(std::string const & text)
{
    auto const isOctal = [](char c) { return c >= '0' && c <= '7'; };
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
            isOctal(text[i + 3])) {
            plain +=
                static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

// A mounted hierarchy that carries the CPU controller, or may do so.
struct Hierarchy
{
    bool unified;          // Version 2.
    std::string mountRoot; // The group that is visible at the mount point.
    std::string mountPoint;
};

std::vector<Hierarchy> mountedHierarchies(std::string const & procSelf)
{
    std::vector<Hierarchy> found;
    std::ifstream mounts(procSelf + "/mountinfo");
    std::string line;
    while (std::getline(mounts, line)) {
        // "36 35 98:0 /root /mount/point options... - type source super-options"
        std::size_t const separator = line.find(" - ");
        if (separator == std::string::npos)
            continue;
        std::istringstream front(line.substr(0, separator)), back(line.substr(separator + 3));
        std::string id, parent, device, root, point, type, source, options;
        front >> id >> parent >> device >> root >> point;
        back >> type >> source >> options;
        if (type == "cgroup2")
            found.push_back({true, unescaped(root), unescaped(point)});
        else if (type == "cgroup" && listHas(options, "cpu"))
            found.push_back({false, unescaped(root), unescaped(point)});
    }
    return found;
}

// The process's group in the hierarchy, as the kernel names it.
std::optional<std::string> ownGroup(std::string const & procSelf, bool unified)
{
    std::ifstream groups(procSelf + "/cgroup");
    std::string line;
    while (std::getline(groups, line)) {
        // "hierarchy-number:controllers:/path"; version 2 has number 0 and no controllers.
        std::size_t const first = line.find(':');
        std::size_t const second = first == std::string::npos ? first : line.find(':', first + 1);
        if (second == std::string::npos)
            continue;
        std::string const controllers = line.substr(first + 1, second - first - 1);
        if (unified ? controllers.empty() : listHas(controllers, "cpu"))
            return line.substr(second + 1);
    }
    return std::nullopt;
}

// Quota over period of one group's directory.
double quotaOf(std::string const & directory, bool unified)
{
    double quota = 0.0, period = 0.0;
    if (unified) {
        std::ifstream limits(directory + "/cpu.max");
        if (!(limits >> quota >> period)) // "max 100000" is no number: no limit
            return noQuota;
    } else {
        std::ifstream quotaFile(directory + "/cpu.cfs_quota_us"),
            periodFile(directory + "/cpu.cfs_period_us");
        if (!(quotaFile >> quota) || !(periodFile >> period)) // a quota of -1 is no limit
            return noQuota;
    }
    return quota > 0.0 && period > 0.0 ? quota / period : noQuota;
}

} // namespace

int cpuQuotaCores(std::string const & procSelf)
{
    double strictest = noQuota;
    for (Hierarchy const & hierarchy : mountedHierarchies(procSelf)) {
        std::optional<std::string> const group = ownGroup(procSelf, hierarchy.unified);
        if (!group)
            continue;
        // In a container that sees its own group as the mount's root, the path begins with that root; in one
        // with a name space of its own the root is "/". A group outside of the mount is judged by the mount
        // point alone.
        std::string const root = hierarchy.mountRoot == "/" ? "" : hierarchy.mountRoot;
        bool const beneath = group->compare(0, root.size(), root) == 0 &&
                             (group->size() == root.size() || (*group)[root.size()] == '/') &&
                             group->find("/..") == std::string::npos;
        std::string path = beneath ? group->substr(root.size()) : "";
        while (!path.empty() && path.back() == '/')
            path.pop_back();
        for (;;) {
            strictest = std::min(strictest, quotaOf(hierarchy.mountPoint + path, hierarchy.unified));
            if (path.empty())
                break;
            path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
        }
    }
    if (strictest > 1e6)
        return 0;
    return std::max(1, static_cast<int>(std::ceil(strictest)));
}
