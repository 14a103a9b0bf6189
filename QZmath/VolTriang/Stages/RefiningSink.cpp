// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/RefiningSink.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/Stages/ImplicitFunction.h>
#include <QZmath/VolTriang/Stages/SampleSurface.h>
#include <QZmath/VolTriang/Stages/StageContext.h>
#include <QZmath/VolTriang/TriangulationTarget.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <QZsys/Progress.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

namespace VolTr
{

namespace
{

int const itemsPerTask = 512;
int const greatestRounds = 8;
int const itemsPerReport = 256;

using Vector3 = std::array<double, 3>;

Vector3 difference(Vector3 const & a, Vector3 const & b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double product(Vector3 const & a, Vector3 const & b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector3 faceNormal(Vector3 const & a, Vector3 const & b, Vector3 const & c)
{
    Vector3 const u = difference(b, a);
    Vector3 const v = difference(c, a);
    return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}

int tasksFor(std::size_t items)
{
    return static_cast<int>((items + static_cast<std::size_t>(itemsPerTask) - 1) /
                            static_cast<std::size_t>(itemsPerTask));
}

// Calls body(item) for the items of a task.
template <class Body>
void forItems(int task, std::size_t items, Body const & body)
{
    std::size_t const begin = static_cast<std::size_t>(task) * static_cast<std::size_t>(itemsPerTask);
    std::size_t const end = std::min(items, begin + static_cast<std::size_t>(itemsPerTask));
    for (std::size_t item = begin; item < end; ++item)
        body(item);
}

// What a thread evaluates with, made at its first use.
struct Tools
{
    std::optional<SampleSurface::Scratch> scratch;
    std::unique_ptr<ImplicitFunction::Evaluator> evaluator;
};

} // namespace

RefiningSink::RefiningSink(SampleSurface const & surface, ImplicitFunction const & function, double edge,
                           StageContext const & context, ITriangulationTarget & target, int expectedTriangles)
    : m_surface(surface), m_function(function), m_edge(edge), m_context(context), m_target(target),
      m_expectedTriangles(expectedTriangles)
{}

void RefiningSink::addVertex(double const * position)
{
    m_vertices.add({position[0], position[1], position[2]});
}

void RefiningSink::addTriangle(int a, int b, int c)
{
    m_triangles.add({a, b, c});
    if (m_context.progress != nullptr && m_triangles.size() % itemsPerReport == 0)
        m_context.progress->SetPosFloat(
            VsPCnt::prgCntLongJobPosition(triangleCount(), m_expectedTriangles, 0.3));
}

void RefiningSink::complete()
{
    {
        CPrgCntSubPhase phase(m_context.progress, 0.0, 0.6, 0, true);
        move();
        unfold();
        summarise();
    }
    CPrgCntSubPhase phase(m_context.progress, 0.6, 0.4, 0, true);
    handOver();
}

Vector3 RefiningSink::moved(int vertex) const
{
    Vector3 position = m_vertices[static_cast<std::size_t>(vertex)];
    Offset const & offset = m_offsets[static_cast<std::size_t>(vertex)];
    for (std::size_t axis = 0; axis < 3; ++axis)
        position[axis] += offset[axis];
    return position;
}

void RefiningSink::move()
{
    bool const withNormals = m_context.params.getEstimateResultNormals();
    m_offsets.resize(m_vertices.size());
    m_normals.resize(withNormals ? m_vertices.size() : 0);
    QzBackend::LoopTeam::run(m_context.threads, m_context.progress, [&](QzBackend::LoopTeam & team) {
        std::vector<Tools> tools(static_cast<std::size_t>(team.threads()));
        auto const normalOf = [&](Tools & mine, Vector3 const & position, Vector3 const & fromSamples) {
            if (product(fromSamples, fromSamples) > 0.0)
                return fromSamples;
            if (mine.evaluator == nullptr)
                mine.evaluator = m_function.makeEvaluator(4.0 * m_edge);
            Vector3 normal;
            mine.evaluator->gradient(position.data(), normal.data());
            double const length = std::sqrt(product(normal, normal));
            if (!(length > 0.0))
                return Vector3{1.0, 0.0, 0.0};
            for (double & coord : normal)
                coord /= length;
            return normal;
        };
        team.forEachOnSlot(
            tasksFor(m_vertices.size()),
            [&](int slot, int task) {
                Tools & mine = tools[static_cast<std::size_t>(slot)];
                if (!mine.scratch)
                    mine.scratch.emplace();
                forItems(task, m_vertices.size(), [&](std::size_t vertex) {
                    Vector3 const & position = m_vertices[vertex];
                    SampleSurface::Height const height = m_surface.heightOf(position.data(), *mine.scratch);
                    for (std::size_t axis = 0; axis < 3; ++axis)
                        m_offsets[vertex][axis] = static_cast<float>(height.move[axis]);
                    if (!withNormals)
                        return;
                    Vector3 const normal = normalOf(mine, position, height.normal);
                    for (std::size_t axis = 0; axis < 3; ++axis)
                        m_normals[vertex][axis] = static_cast<float>(normal[axis]);
                });
            },
            1.0);
    });
}

void RefiningSink::unfold()
{
    std::vector<std::vector<int>> folded(static_cast<std::size_t>(tasksFor(m_triangles.size())));
    std::vector<char> isHalved; // in the round at hand
    for (int round = 0; round < greatestRounds; ++round) {
        QzBackend::LoopTeam::run(m_context.threads, nullptr, [&](QzBackend::LoopTeam & team) {
            std::vector<Tools> tools(static_cast<std::size_t>(team.threads()));
            team.forEachOnSlot(tasksFor(m_triangles.size()), [&](int slot, int task) {
                std::vector<int> & mine = folded[static_cast<std::size_t>(task)];
                mine.clear();
                forItems(task, m_triangles.size(), [&](std::size_t triangle) {
                    std::array<int, 3> const & corners = m_triangles[triangle];
                    auto const at = [&](std::size_t n) -> Vector3 const & {
                        return m_vertices[static_cast<std::size_t>(corners[n])];
                    };
                    Vector3 const before = faceNormal(at(0), at(1), at(2));
                    Vector3 const after = faceNormal(moved(corners[0]), moved(corners[1]), moved(corners[2]));
                    if (product(before, after) > 0.0)
                        return;
                    // It has turned; a fold it is when it agreed with the samples before.
                    auto & scratch = tools[static_cast<std::size_t>(slot)].scratch;
                    if (!scratch)
                        scratch.emplace();
                    Vector3 around{};
                    for (std::size_t n = 0; n < 3; ++n) {
                        Vector3 const normal = m_surface.heightOf(at(n).data(), *scratch).normal;
                        for (std::size_t axis = 0; axis < 3; ++axis)
                            around[axis] += normal[axis];
                    }
                    if (product(around, before) > 0.0 && !(product(around, after) > 0.0))
                        mine.insert(mine.end(), corners.begin(), corners.end());
                });
            });
        });
        bool hasFolds = false;
        for (std::vector<int> const & vertices : folded) {
            for (int const vertex : vertices) {
                if (!hasFolds)
                    isHalved.assign(m_vertices.size(), 0);
                hasFolds = true;
                char & mark = isHalved[static_cast<std::size_t>(vertex)];
                if (mark != 0)
                    continue;
                mark = 1;
                m_moves.halved += round == 0 ? 1 : 0;
                for (float & coord : m_offsets[static_cast<std::size_t>(vertex)])
                    coord *= 0.5f;
            }
        }
        if (!hasFolds)
            return;
        if (m_context.progress != nullptr)
            m_context.progress->SetPosFloat(1.0);
    }
}

void RefiningSink::summarise()
{
    double sum = 0.0;
    double greatest = 0.0;
    std::size_t movedNumber = 0;
    for (Offset const & offset : m_offsets) {
        double const length2 =
            double(offset[0]) * offset[0] + double(offset[1]) * offset[1] + double(offset[2]) * offset[2];
        movedNumber += length2 > 0.0 ? 1 : 0;
        sum += length2;
        greatest = std::max(greatest, length2);
    }
    double const number = std::max(1.0, static_cast<double>(m_offsets.size()));
    m_moves.movedShare = static_cast<double>(movedNumber) / number;
    m_moves.rms = std::sqrt(sum / number);
    m_moves.greatest = std::sqrt(greatest);
}

void RefiningSink::handOver()
{
    int passed = 0;
    double const none[3] = {0.0, 0.0, 0.0};
    auto const passUpTo = [&](int end) {
        for (; passed < end; ++passed) {
            Vector3 const position = moved(passed);
            if (m_normals.empty()) {
                m_target.addNewVertex(passed, position.data(), none);
                continue;
            }
            Offset const & normal = m_normals[static_cast<std::size_t>(passed)];
            double const normal3[3] = {normal[0], normal[1], normal[2]};
            m_target.addNewVertex(passed, position.data(), normal3);
        }
    };
    for (std::size_t n = 0; n < m_triangles.size(); ++n) {
        std::array<int, 3> const & corners = m_triangles[n];
        passUpTo(std::max({corners[0], corners[1], corners[2]}) + 1);
        m_target.addNewTriangle(corners[0], corners[1], corners[2]);
        if (m_context.progress != nullptr && n % itemsPerReport == 0)
            m_context.progress->SetPosFloat(static_cast<double>(n) / static_cast<double>(m_triangles.size()));
    }
    passUpTo(vertexCount());
}

} // namespace VolTr
