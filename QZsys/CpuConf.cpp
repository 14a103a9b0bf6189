// SPDX-License-Identifier: Apache-2.0
#include <QZsys/CpuConf.h>

void InitCPUconf() {}
