// SPDX-License-Identifier: Apache-2.0
#pragma once

// All public headers of the library QZmathDistributed.

#include <QZmath/Distributed/Communicator.h>
#include <QZmath/Distributed/DistributedReconstruction.h>
#include <QZmath/Distributed/Export.h>
#include <QZmath/Distributed/FileShares.h>
#include <QZmath/Distributed/MeshFiles.h>
#include <QZmath/Distributed/MultigridCore.h>
