// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Distributed.h>

#include <mpi.h>

#include <cstdio>
#include <vector>

// Reconstructs a sphere on as many ranks as the program is started on.
int main(int argc, char ** argv)
{
    MPI_Init(&argc, &argv);
    int code = 1;
    try {
        QZmath::Distributed::Communicator const ranks(MPI_COMM_WORLD);
        std::vector<float> points;
        int const side = 12;
        for (int i = -side; i <= side; ++i) { // the faces of a cube, blown up
            for (int j = -side; j <= side; ++j) {
                for (int face = ranks.rank(); face < 6; face += ranks.size()) {
                    float place[3] = {static_cast<float>(i), static_cast<float>(j), face < 3 ? side : -side};
                    float const square = place[0] * place[0] + place[1] * place[1] + place[2] * place[2];
                    float length = 1.0F;
                    for (int step = 0; step < 30; ++step)
                        length = 0.5F * (length + square / length);
                    for (int axis = 0; axis < 3; ++axis)
                        points.push_back(place[(axis + face) % 3] / length);
                }
            }
        }
        QZmath::PointCloudView cloud;
        cloud.size = points.size() / 3;
        cloud.positions = points.data();
        cloud.normals = points.data();
        QZmath::Distributed::DistributedOptions options;
        options.depth = 4;
        QZmath::Distributed::MeshPart mesh;
        QZmath::Distributed::DistributedReport report;
        QZmath::Distributed::reconstructDistributed(MPI_COMM_WORLD, cloud, options, mesh, &report);
        code = report.isClosed && mesh.triangleCount == 2 * mesh.vertices - 4 ? 0 : 1;
        if (code != 0)
            std::fprintf(stderr, "the mesh of a sphere is none of a sphere\n");
    } catch (QZmath::Distributed::RankError const & error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    MPI_Finalize();
    return code;
}
