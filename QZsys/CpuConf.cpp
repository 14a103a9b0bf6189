// SPDX-License-Identifier: Apache-2.0
#include <QZsys/CpuConf.h>

#include "CpuConfDetail.h"
#include "CpuQuotaDetail.h"

#include <exception>

int settledCpuQuota()
{
    static int const quota = [] {
        try {
            return cpuQuotaCores("/proc/self");
        } catch (std::exception const &) { // no memory for the file's lines: go without a quota
            return 0;
        }
    }();
    return quota;
}

void InitCPUconf() { settledCpuQuota(); }
