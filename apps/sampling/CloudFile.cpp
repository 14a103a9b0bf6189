// SPDX-License-Identifier: Apache-2.0
#include <apps/sampling/CloudFile.h>

#include <QZmath/Files/PointReader.h>
#include <QZmath/Files/PointWriter.h>

namespace qz_sampling
{

void writeCloud(Cloud const & cloud, std::string const & fileName)
{
    QZmath::PointCloudView view;
    view.size = cloud.size();
    view.positions = cloud.positions.data();
    view.normals = cloud.normals.data();
    bool const isPly = fileName == "-" || QZmath::pointFormatOf(fileName) == QZmath::PointFormat::ply;
    view.boundary = isPly && !cloud.boundaryMarks.empty() ? cloud.boundaryMarks.data() : nullptr;
    QZmath::writePoints(view, fileName);
}

} // namespace qz_sampling
