// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// The CPU quota that the control groups (version 2 or 1) set for this process, in whole cores, rounded up; 0
/// when there is none or it cannot be read. The strictest group between the process's own and the root
/// counts.
/// @param procSelf  directory with `cgroup` and `mountinfo` of the process, "/proc/self"
int cpuQuotaCores(std::string const & procSelf);
