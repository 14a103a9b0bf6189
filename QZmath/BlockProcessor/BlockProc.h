// SPDX-License-Identifier: Apache-2.0
#pragma once

/// All that a client of block processing needs.
#include <QZmath/BlockProcessor/BlockProcessor.h>
#include <QZmath/BlockProcessor/BlockStatus.h>
#include <QZmath/BlockProcessor/BlockStructure.h>
#include <QZmath/BlockProcessor/BlockWorker.h>
#include <QZmath/BlockProcessor/ThreadTracing.h>
