// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Viewer/Export.h>
#include <QZmath/Viewer/MeshScene.h>

#include <string>

class CProgressCounter;

namespace QZmath
{

struct StillOptions
{
    enum class Shading
    {
        automatic, ///< by colour where there are colours, else plain
        plain,
        color,
        normal,
        density,
        distance
    };
    int width = 1600, height = 1200; ///< pixels, 16 to 16384 each
    Shading shading = Shading::automatic;
    bool dark = false; ///< on a dark ground
};

/// A picture of the mesh as the page shows it at first, as PNG: seen from the front, a little from the right
/// and above; lit by the sky and two lights, with the shade of what stands around; with a length of the
/// cloud's unit and its axes. z points upwards in scenes far from 0 and in flat ones, else y.
///
/// Drawn in software with nine samples a pixel on all threads of `CVescaThreadingTasksHelper`. The same scene
/// gives the same pixels for any number of them. Triangles with corners that are no finite numbers are left
/// out; without any triangle the picture is empty ground.
///
/// \throws InputError the mesh is missing, its arrays do not fit together, its origin is not finite, or an
/// option is out of its range or names what the scene does not have
/// \throws CUserIntrException by the progress counter, which may be null
QZMATH_VIEWER_API std::string meshStill(MeshScene const & scene, StillOptions const & options = {},
                                        CProgressCounter * progress = nullptr);

/// The same as a new file of `files`, which the caller commits, or to standard output at once for "-".
/// \throws OutputError the system refuses
QZMATH_VIEWER_API void writeMeshStill(MeshScene const & scene, std::string const & path, PendingFiles & files,
                                      StillOptions const & options = {},
                                      CProgressCounter * progress = nullptr);

} // namespace QZmath
