// SPDX-License-Identifier: Apache-2.0
#include "QZsys/CpuQuotaDetail.h"

#include <QZsys/CpuConf.h>
#include <QZsys/ParallelTasks.h>

#include <gtest/gtest.h>
#include <support/TestFolder.h>

#include <sched.h>
#include <string>
#include <thread>

namespace
{

int coresInAffinityMask()
{
    cpu_set_t mask;
    return sched_getaffinity(0, sizeof mask, &mask) == 0 ? CPU_COUNT(&mask) : 0;
}

// A directory that plays /proc/self and the mounted control groups.
class CpuQuota : public testing::Test, protected qz_test::TestFolder
{
protected:
    // The mount table writes blanks as \040.
    std::string mountPoint(std::string const & name) const
    {
        std::string mounted = path(name);
        for (std::size_t at; (at = mounted.find(' ')) != std::string::npos;)
            mounted.replace(at, 1, "\\040");
        return mounted;
    }
    int cores() const { return cpuQuotaCores(path("")); }
    int coresWith(std::string const & file, std::string const & text) const
    {
        write(file, text);
        return cores();
    }
};

} // namespace

TEST(CpuConf, CoreCountFollowsTheAffinityMask)
{
    InitCPUconf();
    std::string const proc = "/proc/self";
    int const quota = cpuQuotaCores(proc);
    auto const expected = [quota] {
        return quota > 0 ? std::min(quota, coresInAffinityMask()) : coresInAffinityMask();
    };
    EXPECT_EQ(expected(), CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    std::thread([&] {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
        ASSERT_EQ(0, sched_setaffinity(0, sizeof one, &one));
        EXPECT_EQ(1, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
        CVescaThreadingTasksHelper::setNumOfPhisicalThread(5);
        EXPECT_EQ(5, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
        CVescaThreadingTasksHelper::setNumOfPhisicalThread(-2);
        EXPECT_EQ(1, CVescaThreadingTasksHelper::getNumOfPhisicalThread());
    }).join();
    CVescaThreadingTasksHelper::setNumOfPhisicalThread(0);
    EXPECT_EQ(expected(), CVescaThreadingTasksHelper::getNumOfPhisicalThread());
}

TEST_F(CpuQuota, UnifiedHierarchyTakesTheStrictestGroupRoundedUp)
{
    write("cgroup", "0::/a b/inner\n");
    write("mountinfo", "30 20 0:1 / / rw - ext4 /dev/sda rw\n31 30 0:26 / " + mountPoint("unified") +
                           " rw,nosuid shared:4 - cgroup2 cgroup2 rw\n");
    EXPECT_EQ(0, cores());
    EXPECT_EQ(0, coresWith("unified/a b/inner/cpu.max", "max 100000\n"));
    EXPECT_EQ(3, coresWith("unified/a b/cpu.max", "250000 100000\n"));
    EXPECT_EQ(1, coresWith("unified/a b/inner/cpu.max", "50000 100000\n"));
    EXPECT_EQ(3, coresWith("unified/a b/inner/cpu.max", "400000 100000\n"));
    EXPECT_EQ(2, coresWith("unified/cpu.max", "200000 100000\n"));
    EXPECT_EQ(3, coresWith("unified/cpu.max", "200000 0\n"));
}

TEST_F(CpuQuota, FirstVersionInAContainer)
{
    write("cgroup", "4:memory:/docker/id\n3:cpu,cpuacct:/docker/id/job\n0::/elsewhere\n");
    write("mountinfo", "40 30 0:30 /docker/id " + mountPoint("cpu") + " ro - cgroup cgroup rw,cpu,cpuacct\n" +
                           "41 30 0:31 /docker/id " + mountPoint("cpuset") +
                           " ro - cgroup cgroup rw,cpuset\nbroken line\n");
    write("cpu/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(0, coresWith("cpu/cpu.cfs_quota_us", "-1\n"));
    EXPECT_EQ(6, coresWith("cpu/cpu.cfs_quota_us", "600000\n"));
    write("cpu/job/cpu.cfs_period_us", "50000\n");
    EXPECT_EQ(2, coresWith("cpu/job/cpu.cfs_quota_us", "60001\n"));
    // Outside of what is mounted only the mount point counts.
    EXPECT_EQ(6, coresWith("cgroup", "3:cpu,cpuacct:/docker/idle\n"));
}
