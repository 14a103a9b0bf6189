// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon-mpi/Plan.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qz_recon_mpi
{

namespace
{

// Of a network that a cluster has.
double const latency = 2e-6;   // seconds
double const bandwidth = 10e9; // bytes a second and rank

// Of the cloud that the numbers below were measured with, 1054691 leaf cells:
//     qzrecon-sample terrain -n 2000000 -o cloud.ply
//     mpirun -n P qzrecon-mpi cloud.ply -o mesh.ply --cell-size 0.35 --threads 1 --details
// on one core of a virtual machine with two, others at work beside.
double const samplesPerCell = 1.9;
double const iterations = 17;

// Seconds of a core for a leaf cell, with P = 1.
struct Stage
{
    char const * name;
    double seconds;
    bool countsCopies; // works on the copies of others' samples too
};
Stage const stages[] = {
    {"distribution", 0.74e-6, true}, {"tree", 0.45e-6, true},          {"density", 0.39e-6, true},
    {"splat", 0.32e-6, true},        {"solve", 17 * 0.0895e-6, false}, {"iso-value", 0.41e-6, false},
    {"surface", 7.3e-6, false},
};

double const programBytes = 50e6; // that a rank takes without any cloud
double const cellBytes = 840; // a leaf cell of the territory at the peak, which is that of the surface: P = 1
double const copiedCellBytes = 1120; // a leaf cell around it: P = 8
double const margin = 20;            // leaf cells around a territory, of which it has copies
double const borderFactor = 3;       // border of a territory over that of a square: P = 8, by the traffic
double const borderBytes = 160;      // an iteration sends for a leaf cell of the border: P = 4
double const messages = 66;          // an iteration sends: P = 8
double const unitsPerRank = 16;      // that the balance takes, nearly
double const mostUnits = 131072;
double const replicatedPerUnit = 58; // unknowns of depths that every rank has: P = 8
double const unknownBytes = 80;
double const sampleBytes = 28; // on its way

std::string line(char const * format, double a, double b = 0, double c = 0, double d = 0)
{
    char text[240];
    std::snprintf(text, sizeof(text), format, a, b, c, d);
    return text;
}

} // namespace

Plan planRun(double cells, double ranks)
{
    double const own = cells / ranks;
    bool const isAlone = ranks < 2;
    double const side = std::sqrt(own);
    double const border = isAlone ? 0.0 : borderFactor * 4.0 * side;
    // No more than there are: all of the cloud.
    double const copied = std::min(cells - own, border * margin + (isAlone ? 0.0 : 4.0 * margin * margin));
    double const units = isAlone ? 1.0 : std::min(unitsPerRank * ranks, mostUnits);

    Plan plan;
    plan.replicated = replicatedPerUnit * unknownBytes * units;
    plan.copies = copiedCellBytes * copied;
    plan.memory = programBytes + cellBytes * own + plan.copies + plan.replicated;
    plan.samplesSent = isAlone ? 0.0 : sampleBytes * samplesPerCell * (own + copied);
    plan.bytesPerIteration =
        border * borderBytes + (isAlone ? 0.0 : 4.0 * replicatedPerUnit * units); // their sums over all ranks
    plan.messagesPerIteration = isAlone ? 0.0 : messages;

    plan.text =
        line("%.4g leaf cells on %.0f ranks of one core: an open surface with %.1f samples a leaf cell\n",
             cells, ranks, samplesPerCell) +
        line("memory of a rank: %.3g GB; of these %.3g GB for copies around its territory, %.3g GB for "
             "what every rank has\n",
             plan.memory / 1e9, plan.copies / 1e9, plan.replicated / 1e9) +
        line("traffic of a rank: %.3g GB of samples once; %.3g MB in %.0f messages an iteration, %.0f "
             "iterations\n",
             plan.samplesSent / 1e9, plan.bytesPerIteration / 1e6, plan.messagesPerIteration, iterations);
    double const steps = std::ceil(std::log2(ranks)); // of a sum over all ranks
    for (Stage const & stage : stages) {
        double seconds = stage.seconds * (own + (stage.countsCopies ? copied : 0.0));
        std::string const name = stage.name;
        if (name == "distribution")
            seconds += plan.samplesSent / bandwidth + latency * (isAlone ? 0.0 : ranks);
        if (name == "solve")
            seconds += iterations * (plan.bytesPerIteration / bandwidth +
                                     latency * (plan.messagesPerIteration + 2.0 * steps));
        plan.seconds += seconds;
        plan.text += name + ": " + line("%.3g s\n", seconds);
    }
    plan.text += line("in all %.3g s, without reading the points and writing the mesh\n", plan.seconds);
    return plan;
}

} // namespace qz_recon_mpi
