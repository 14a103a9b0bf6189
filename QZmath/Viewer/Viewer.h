// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Every public header of the library `QZmathViewer`: meshes to look at, as pages for a browser and as
/// stills.
///
///     QZmath::MeshScene scene;
///     scene.mesh = &mesh;
///     scene.title = "Bunny";
///     QZmath::PendingFiles files;
///     QZmath::writeMeshPage(scene, "bunny.html", files);
///     files.commit();

#include <QZmath/Viewer/Export.h>
#include <QZmath/Viewer/MeshPage.h>
#include <QZmath/Viewer/MeshScene.h>
#include <QZmath/Viewer/MeshStill.h>
