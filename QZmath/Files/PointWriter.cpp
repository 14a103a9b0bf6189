// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Files/PointWriter.h>

#include <QZmath/Files/Formats/MeshFormats.h>
#include <QZmath/Files/PendingFiles.h>
#include <QZmath/Files/Streams/FileEnding.h>
#include <QZsys/Progress.h>

namespace QZmath
{

namespace
{

bool isText(std::string const & ending)
{
    return ending == ".xyz" || ending == ".txt" || ending == ".asc" || ending == ".csv";
}

} // namespace

bool isPointFileToWrite(std::string const & path)
{
    std::string const ending = fileEnding(path);
    return path == "-" || ending == ".ply" || ending == ".obj" || isText(ending);
}

void writePoints(PointCloudView const & cloud, std::string const & path, CProgressCounter * progress)
{
    if (!isPointFileToWrite(path))
        throw OutputError("unknown output format of " + quotable(path) +
                          "; known are .ply, .obj, .xyz, .txt, .asc and .csv");
    if (cloud.size > 0 && (cloud.positions == nullptr) == (cloud.positions64 == nullptr))
        throw OutputError("the points need positions in either float or double");
    std::string const ending = path == "-" ? ".ply" : fileEnding(path);
    PendingFiles files;
    ByteSink sink(path == "-" ? path : files.create(path), path);
    sink.reportTo(progress, static_cast<double>(cloud.size) * (cloud.normals != nullptr ? 50 : 25));
    if (ending == ".ply")
        writePly(cloud, sink);
    else if (ending == ".obj")
        writeObj(cloud, sink);
    else
        writeText(cloud, ending == ".csv" ? ',' : ' ', sink);
    sink.finish();
    files.commit();
    if (progress != nullptr)
        progress->SetPosFloat(1.0);
}

} // namespace QZmath
