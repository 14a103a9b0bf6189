// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Every public header of the library `QZmathFiles`: readers and writers of point clouds and meshes.
///
///     QZmath::PointCloud const cloud = QZmath::readPoints("scan.las");
///     QZmath::writeMesh(QZmath::reconstruct(cloud.view()), "mesh.ply");

#include <QZmath/Files/Errors.h>
#include <QZmath/Files/Export.h>
#include <QZmath/Files/JoinedClouds.h>
#include <QZmath/Files/MeshReader.h>
#include <QZmath/Files/MeshWriter.h>
#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Files/PointCloud.h>
#include <QZmath/Files/PointReader.h>
#include <QZmath/Files/PointWriter.h>
