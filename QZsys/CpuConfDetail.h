// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The control groups' CPU quota in whole cores as `InitCPUconf` found it, 0 for none. Reads it if nobody has
/// yet.
int settledCpuQuota();
