// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Umbrella over the system library.
#include <QZsys/CpuConf.h>
#include <QZsys/DebugLog.h>
#include <QZsys/Exceptions.h>
#include <QZsys/Export.h>
#include <QZsys/Fragments.h>
#include <QZsys/Messages.h>
#include <QZsys/ParallelTasks.h>
#include <QZsys/PendingFiles.h>
#include <QZsys/Progress.h>
#include <QZsys/ProgressBlocks.h>
#include <QZsys/TemporaryFile.h>
#include <QZsys/Threads.h>
