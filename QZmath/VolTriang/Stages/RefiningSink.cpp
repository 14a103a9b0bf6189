// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Stages/RefiningSink.h>

#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/MeshStoreDetail.h>
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
    std::unique_ptr<EvaluableFunction::Evaluator> evaluator;
};

} // namespace

RefiningSink::RefiningSink(SampleSurface const & surface, EvaluableFunction const & function, double edge,
                           StageContext const & context, ITriangulationTarget & target, int expectedTriangles)
    : m_surface(surface), m_function(function), m_edge(edge), m_context(context), m_target(target),
      m_expectedTriangles(expectedTriangles), m_store(dynamic_cast<MeshStore *>(&target))
{}

std::int32_t * RefiningSink::cornersOf(std::size_t triangle)
{
    return m_store != nullptr ? m_stored + 3 * triangle : m_triangles[triangle].data();
}

float * RefiningSink::offsetOf(std::size_t vertex)
{
    return m_store != nullptr ? m_storedOffsets + 3 * vertex : m_offsets[vertex].data();
}

float const * RefiningSink::offsetOf(std::size_t vertex) const
{
    return m_store != nullptr ? m_storedOffsets + 3 * vertex : m_offsets[vertex].data();
}

void RefiningSink::growTo(std::size_t vertices, std::size_t triangles)
{
    m_vertices.resize(vertices);
    m_triangleCount = triangles;
    if (m_store != nullptr)
        m_stored = m_store->triangles(triangles);
    else
        m_triangles.resize(triangles);
}

double RefiningSink::walkPosition() const
{
    return VsPCnt::prgCntLongJobPosition(triangleCount(), m_expectedTriangles, 0.3);
}

void RefiningSink::expectVertices(std::size_t number)
{
    // A closed surface has two triangles a vertex, and four more for each handle. A list that does not
    // suffice would be copied into one of twice the size.
    if (m_store != nullptr)
        m_store->expect(2 * number + number / 64 + 1024);
}

void RefiningSink::addVertex(double const * position)
{
    std::size_t const vertex = m_vertices.size();
    m_vertices.resize(vertex + 1);
    std::copy(position, position + 3, m_vertices[vertex].begin());
}

void RefiningSink::addTriangle(int a, int b, int c)
{
    std::size_t const triangle = m_triangleCount;
    growTo(m_vertices.size(), triangle + 1);
    std::int32_t * const corners = cornersOf(triangle);
    corners[0] = a;
    corners[1] = b;
    corners[2] = c;
    if (m_context.progress != nullptr && m_triangleCount % itemsPerReport == 0)
        m_context.progress->SetPosFloat(walkPosition());
}

void RefiningSink::addRun(TriangleRun const & run)
{
    std::size_t const firstVertex = m_vertices.size();
    std::size_t const firstTriangle = m_triangleCount;
    growTo(firstVertex + static_cast<std::size_t>(run.vertices()),
           firstTriangle + static_cast<std::size_t>(run.triangles()));
    int const vertexTasks = tasksFor(static_cast<std::size_t>(run.vertices()));
    QzBackend::LoopTeam::run(m_context.threads, m_context.progress, [&](QzBackend::LoopTeam & team) {
        team.setPosition(walkPosition());
        team.forEach(vertexTasks + run.parts(), [&](int task) {
            if (task < vertexTasks) {
                double positions[3 * itemsPerTask];
                int const begin = task * itemsPerTask;
                int const end = std::min(run.vertices(), begin + itemsPerTask);
                run.makeVertices(begin, end, positions);
                for (int n = begin; n < end; ++n)
                    std::copy_n(positions + 3 * (n - begin), 3,
                                m_vertices[firstVertex + static_cast<std::size_t>(n)].begin());
                return;
            }
            TriangleRun::Triangle triangles[TriangleRun::mostInPart];
            int const part = task - vertexTasks;
            run.makeTriangles(part, triangles);
            int const begin = run.firstOf(part);
            for (int n = begin; n < run.firstOf(part + 1); ++n)
                std::copy_n(triangles[n - begin].corners, 3,
                            cornersOf(firstTriangle + static_cast<std::size_t>(n)));
        });
    });
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
    float const * const offset = offsetOf(static_cast<std::size_t>(vertex));
    for (std::size_t axis = 0; axis < 3; ++axis)
        position[axis] += offset[axis];
    return position;
}

void RefiningSink::move()
{
    bool const withNormals = m_context.params.getEstimateResultNormals();
    if (m_store != nullptr)
        m_storedOffsets = m_store->positions(m_vertices.size());
    else
        m_offsets.resize(m_vertices.size());
    if (withNormals && m_store != nullptr)
        m_storedNormals = m_store->normals(m_vertices.size());
    else if (withNormals)
        m_normals.resize(m_vertices.size());
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
                    float * const offset = offsetOf(vertex);
                    for (std::size_t axis = 0; axis < 3; ++axis)
                        offset[axis] = static_cast<float>(height.move[axis]);
                    if (!withNormals)
                        return;
                    Vector3 const normal = normalOf(mine, position, height.normal);
                    float * const out =
                        m_storedNormals != nullptr ? m_storedNormals + 3 * vertex : m_normals[vertex].data();
                    for (std::size_t axis = 0; axis < 3; ++axis)
                        out[axis] = static_cast<float>(normal[axis]);
                });
            },
            1.0);
    });
}

void RefiningSink::unfold()
{
    std::vector<std::vector<int>> folded(static_cast<std::size_t>(tasksFor(m_triangleCount)));
    std::vector<char> isHalved; // in the round at hand
    for (int round = 0; round < greatestRounds; ++round) {
        QzBackend::LoopTeam::run(m_context.threads, m_context.progress, [&](QzBackend::LoopTeam & team) {
            team.setPosition(1.0);
            std::vector<Tools> tools(static_cast<std::size_t>(team.threads()));
            team.forEachOnSlot(tasksFor(m_triangleCount), [&](int slot, int task) {
                std::vector<int> & mine = folded[static_cast<std::size_t>(task)];
                mine.clear();
                forItems(task, m_triangleCount, [&](std::size_t triangle) {
                    std::int32_t const * const corners = cornersOf(triangle);
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
                        mine.insert(mine.end(), corners, corners + 3);
                });
            });
        });
        bool hasFolds = std::any_of(folded.begin(), folded.end(),
                                    [](std::vector<int> const & vertices) { return !vertices.empty(); });
        if (!hasFolds && !m_exchange)
            return;
        isHalved.assign(m_vertices.size(), 0);
        for (std::vector<int> const & vertices : folded) {
            for (int const vertex : vertices)
                isHalved[static_cast<std::size_t>(vertex)] = 1;
        }
        if (m_exchange)
            hasFolds = m_exchange(isHalved);
        if (!hasFolds)
            return;
        for (std::size_t vertex = 0; vertex < isHalved.size(); ++vertex) {
            if (isHalved[vertex] == 0)
                continue;
            m_moves.halved += round == 0 ? 1 : 0;
            float * const offset = offsetOf(vertex);
            for (int axis = 0; axis < 3; ++axis)
                offset[axis] *= 0.5f;
        }
        if (m_context.progress != nullptr)
            m_context.progress->SetPosFloat(1.0);
    }
}

void RefiningSink::summarise()
{
    struct Part
    {
        double sum = 0.0;
        double greatest = 0.0;
        std::size_t moved = 0;
    };
    std::vector<Part> parts(static_cast<std::size_t>(tasksFor(m_vertices.size())));
    QzBackend::LoopTeam::run(m_context.threads, m_context.progress, [&](QzBackend::LoopTeam & team) {
        team.setPosition(1.0);
        team.forEach(static_cast<int>(parts.size()), [&](int task) {
            Part & part = parts[static_cast<std::size_t>(task)];
            forItems(task, m_vertices.size(), [&](std::size_t vertex) {
                float const * const offset = offsetOf(vertex);
                double const length2 = double(offset[0]) * offset[0] + double(offset[1]) * offset[1] +
                                       double(offset[2]) * offset[2];
                part.moved += length2 > 0.0 ? 1 : 0;
                part.sum += length2;
                part.greatest = std::max(part.greatest, length2);
            });
        });
    });
    Part all;
    for (Part const & part : parts) {
        all.sum += part.sum;
        all.greatest = std::max(all.greatest, part.greatest);
        all.moved += part.moved;
    }
    double const number = std::max(1.0, static_cast<double>(m_vertices.size()));
    m_moves.movedShare = static_cast<double>(all.moved) / number;
    m_moves.rms = std::sqrt(all.sum / number);
    m_moves.greatest = std::sqrt(all.greatest);
}

void RefiningSink::handOver()
{
    if (m_store != nullptr)
        return handOverToStore();
    int passed = 0;
    double const none[3] = {0.0, 0.0, 0.0};
    auto const passUpTo = [&](int end) {
        for (; passed < end; ++passed) {
            std::size_t const vertex = static_cast<std::size_t>(passed);
            Vector3 const position = moved(passed);
            if (m_normals.empty()) {
                m_target.addNewVertex(passed, position.data(), none);
            } else {
                Offset const & normal = m_normals[vertex];
                double const normal3[3] = {normal[0], normal[1], normal[2]};
                m_target.addNewVertex(passed, position.data(), normal3);
                m_normals.release(vertex);
            }
            m_vertices.release(vertex);
            m_offsets.release(vertex);
        }
    };
    for (std::size_t n = 0; n < m_triangleCount; ++n) {
        Corners const corners = m_triangles[n];
        passUpTo(std::max({corners[0], corners[1], corners[2]}) + 1);
        m_target.addNewTriangle(corners[0], corners[1], corners[2]);
        m_triangles.release(n);
        if (m_context.progress != nullptr && n % itemsPerReport == 0)
            m_context.progress->SetPosFloat(static_cast<double>(n) / static_cast<double>(m_triangleCount));
    }
    passUpTo(vertexCount());
}

// The triangles and the normals are there, and each position takes the place of its offset.
void RefiningSink::handOverToStore()
{
    QzBackend::LoopTeam::run(m_context.threads, m_context.progress, [&](QzBackend::LoopTeam & team) {
        team.forEach(
            tasksFor(m_vertices.size()),
            [&](int task) {
                forItems(task, m_vertices.size(), [&](std::size_t vertex) {
                    Vector3 const position = moved(static_cast<int>(vertex));
                    float * const out = offsetOf(vertex);
                    for (std::size_t axis = 0; axis < 3; ++axis)
                        out[axis] = static_cast<float>(position[axis]);
                });
            },
            1.0);
        for (std::size_t vertex = 0; vertex < m_vertices.size(); ++vertex) {
            if (vertex % itemsPerReport == 0)
                team.serve();
            m_vertices.release(vertex);
        }
    });
}

} // namespace VolTr
