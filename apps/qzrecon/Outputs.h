// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Files/PointCloud.h>
#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <string>
#include <vector>

class CProgressCounter;

namespace qz_recon
{

struct Options;

enum class OutputKind
{
    mesh,
    page,   ///< .html, .htm
    picture ///< .png
};

/// By the ending of the name, in any case. Throws `QZmath::InputError` for one that nothing is known of.
OutputKind outputKindOf(std::string const & path);

/// The files that come of an output, beginning with the one of its name; none for "-".
std::vector<std::string> filesOf(std::string const & path);

/// Refuses a picture that is to show colours of a cloud that has none, before the work. Throws
/// `QZmath::InputError`.
void checkPictures(Options const & options, QZmath::PointCloud const & cloud);

bool showsMesh(Options const & options); ///< is there a page or a picture among the outputs

/// Writes all outputs to new files of `files`. A mesh holds what the options ask for, whatever pages and
/// pictures beside it need.
void writeOutputs(Options const & options, QZmath::TriangleMesh & mesh, QZmath::PointCloud const & cloud,
                  QZmath::ReconstructionReport const & report, QZmath::PendingFiles & files,
                  CProgressCounter * progress);

} // namespace qz_recon
