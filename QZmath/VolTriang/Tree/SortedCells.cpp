// SPDX-License-Identifier: Apache-2.0
#include <QZmath/VolTriang/Tree/SortedCells.h>

#include <QZmath/Backend/LargeVector.h>
#include <QZmath/Backend/Parallel.h>
#include <QZmath/VolTriang/InputSamples.h>
#include <QZmath/VolTriang/Tree/TreeRule.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace VolTr
{

using QzBackend::LoopTeam;

namespace
{

int const samplesPerChunk = 1 << 15;
int const samplesPerPart = 1 << 10;
int const mostParts = 1 << 12;
int const candidatesPerPart = 8;
std::size_t const partsTogether = 64; // whose places one body counts up
std::size_t const samplesAhead = 16;  // that are fetched while one is at hand
// Parts are sorted some at a time, so that what they find is kept in few pieces.
int const samplesPerTask = 1 << 15;

// A place whose order is quick to tell.
struct Key
{
    std::uint64_t xy;
    int z;
    int sample;

    Key(CInt3 const & cell, int ofSample)
        : xy(static_cast<std::uint64_t>(static_cast<std::uint32_t>(cell.x())) << 32 |
             static_cast<std::uint32_t>(cell.y())),
          z(cell.z()), sample(ofSample)
    {}
    CInt3 place() const { return CInt3(static_cast<int>(xy >> 32), static_cast<int>(xy & 0xffffffffU), z); }
    bool isAt(Key const & other) const { return xy == other.xy && z == other.z; }
    bool isBefore(Key const & other) const { return xy != other.xy ? xy < other.xy : z < other.z; }
};

bool operator<(Key const & a, Key const & b)
{
    if (a.xy != b.xy)
        return a.xy < b.xy;
    return a.z != b.z ? a.z < b.z : a.sample < b.sample;
}

class CellSort
{
public:
    CellSort(IInputSamples const & samples, TreeCube const & cube, LoopTeam & team)
        : m_samples(samples), m_cube(cube), m_team(team), m_count(std::max(samples.pointsNumber(), 0))
    {}

    SortedCells run(double until)
    {
        if (m_count == 0)
            return {{}, {0}, {}};
        chooseSplitters();
        sortIntoParts(0.6 * until);
        sortParts(0.9 * until);
        return collect();
    }

private:
    // Cells of consecutive samples.
    struct Task
    {
        std::size_t begin = 0; // in `samples`
        std::size_t end = 0;
        std::size_t firstPart = 0;
        std::size_t endPart = 0;
        std::vector<CInt3> places;
        std::vector<int> begins;
    };

    Key keyOf(int sample) const { return {m_cube.cellOf(m_samples.getSampleCoords3(sample)), sample}; }

    std::size_t parts() const { return m_splitters.size() + 1; }

    void chooseSplitters()
    {
        int const parts = std::clamp(m_count / samplesPerPart, 1, mostParts);
        std::int64_t const candidates = static_cast<std::int64_t>(parts) * candidatesPerPart;
        if (parts == 1)
            return;
        std::vector<Key> keys;
        keys.reserve(static_cast<std::size_t>(candidates));
        for (std::int64_t n = 0; n < candidates; ++n)
            keys.push_back(keyOf(static_cast<int>(n * m_count / candidates)));
        m_team.serve();
        std::sort(keys.begin(), keys.end());
        for (std::size_t n = candidatesPerPart; n < keys.size(); n += candidatesPerPart) {
            // A cell with very many samples goes to several parts.
            m_cutsCells = m_cutsCells || (!m_splitters.empty() && m_splitters.back().isAt(keys[n]));
            m_splitters.push_back(keys[n]);
        }
    }

    // The number of splitters that are not behind a place. The halving has no branch to predict wrongly.
    std::size_t partOf(Key const & key) const
    {
        return m_cutsCells ? partOf(key, [](Key const & a, Key const & b) { return a < b; })
                           : partOf(key, [](Key const & a, Key const & b) { return a.isBefore(b); });
    }

    template <class IsBefore>
    std::size_t partOf(Key const & key, IsBefore const & isBefore) const
    {
        Key const * first = m_splitters.data();
        std::size_t length = m_splitters.size();
        while (length > 0) {
            std::size_t const half = length / 2;
            bool const isBehind = isBefore(key, first[half]);
            first = isBehind ? first : first + half + 1;
            length = isBehind ? half : length - half - 1;
        }
        return static_cast<std::size_t>(first - m_splitters.data());
    }

    // Orders the samples by part, in each part ascending.
    void sortIntoParts(double until)
    {
        int const chunks = (m_count - 1) / samplesPerChunk + 1;
        std::vector<int> partOfSample;
        QzBackend::assignLarge(m_team, partOfSample, static_cast<std::size_t>(m_count));
        std::vector<int> next;
        QzBackend::assignLarge(m_team, next, static_cast<std::size_t>(chunks) * parts());
        auto const forChunk = [&](int chunk, auto const & visit) {
            int const first = chunk * samplesPerChunk;
            int * const own = next.data() + static_cast<std::size_t>(chunk) * parts();
            for (int sample = first; sample < first + std::min(samplesPerChunk, m_count - first); ++sample)
                visit(sample, own);
        };
        m_team.forEach(
            chunks,
            [&](int chunk) {
                forChunk(chunk, [&](int sample, int * counts) {
                    std::size_t const part = partOf(keyOf(sample));
                    partOfSample[static_cast<std::size_t>(sample)] = static_cast<int>(part);
                    ++counts[part];
                });
            },
            0.7 * until);
        // Counts become places: first from the begin of their part on, whose size is what they sum up to.
        m_partsBegin.assign(parts() + 1, 0);
        auto const forParts = [&](auto const & visit) {
            m_team.forEach(static_cast<int>((parts() - 1) / partsTogether + 1), [&](int group) {
                std::size_t const first = static_cast<std::size_t>(group) * partsTogether;
                for (std::size_t row = 0; row < next.size(); row += parts()) {
                    for (std::size_t part = first; part < std::min(first + partsTogether, parts()); ++part)
                        visit(part, next[row + part]);
                }
            });
        };
        forParts([&](std::size_t part, int & count) {
            int const own = count;
            count = static_cast<int>(m_partsBegin[part + 1]);
            m_partsBegin[part + 1] += static_cast<std::size_t>(own);
        });
        for (std::size_t part = 0; part < parts(); ++part)
            m_partsBegin[part + 1] += m_partsBegin[part];
        forParts([&](std::size_t part, int & place) { place += static_cast<int>(m_partsBegin[part]); });
        QzBackend::assignLarge(m_team, m_result.samples, static_cast<std::size_t>(m_count));
        m_team.forEach(
            chunks,
            [&](int chunk) {
                forChunk(chunk, [&](int sample, int * places) {
                    int & place = places[partOfSample[static_cast<std::size_t>(sample)]];
                    m_result.samples[static_cast<std::size_t>(place++)] = sample;
                });
            },
            until);
    }

    void sortParts(double until)
    {
        for (std::size_t part = 0; part < parts(); ++part) {
            if (m_tasks.empty() || m_tasks.back().end - m_tasks.back().begin >= samplesPerTask) {
                m_tasks.emplace_back();
                m_tasks.back().begin = m_partsBegin[part];
                m_tasks.back().firstPart = part;
            }
            m_tasks.back().end = m_partsBegin[part + 1];
            m_tasks.back().endPart = part + 1;
        }
        m_keys.resize(static_cast<std::size_t>(m_team.threads()));
        m_team.forEachOnSlot(
            static_cast<int>(m_tasks.size()),
            [&](int slot, int number) {
                Task & task = m_tasks[static_cast<std::size_t>(number)];
                for (std::size_t part = task.firstPart; part < task.endPart; ++part)
                    sortPart(part, task, m_keys[static_cast<std::size_t>(slot)]);
            },
            until);
    }

    void sortPart(std::size_t part, Task & task, std::vector<Key> & keys)
    {
        int * const samples = m_result.samples.data();
        keys.clear();
        std::size_t const end = m_partsBegin[part + 1];
        for (std::size_t n = m_partsBegin[part]; n < end; ++n) {
            // The samples of a part lie all over memory.
            if (n + samplesAhead < end)
                __builtin_prefetch(m_samples.getSampleCoords3(samples[n + samplesAhead]));
            keys.push_back(keyOf(samples[n]));
        }
        // Samples that coincide, or come cell by cell, are in order.
        if (!std::is_sorted(keys.begin(), keys.end()))
            std::sort(keys.begin(), keys.end());
        for (std::size_t n = 0; n < keys.size(); ++n) {
            std::size_t const place = m_partsBegin[part] + n;
            samples[place] = keys[n].sample;
            if (n == 0 ? task.places.empty() || task.places.back() != keys[n].place()
                       : !keys[n].isAt(keys[n - 1])) {
                task.places.push_back(keys[n].place());
                task.begins.push_back(static_cast<int>(place));
            }
        }
    }

    SortedCells collect()
    {
        std::vector<std::size_t> begins(1, 0);
        std::optional<CInt3> last;
        for (Task & task : m_tasks) {
            // The cell that a task ends with may go on in the next one.
            if (last && !task.places.empty() && task.places.front() == *last) {
                task.places.erase(task.places.begin());
                task.begins.erase(task.begins.begin());
            }
            last = task.places.empty() ? last : task.places.back();
            begins.push_back(begins.back() + task.places.size());
        }
        QzBackend::assignLarge(m_team, m_result.places, begins.back());
        QzBackend::assignLarge(m_team, m_result.samplesBegin, begins.back() + 1);
        m_result.samplesBegin.back() = m_count;
        m_team.forEach(static_cast<int>(m_tasks.size()), [&](int number) {
            Task & task = m_tasks[static_cast<std::size_t>(number)];
            auto const to = static_cast<std::ptrdiff_t>(begins[static_cast<std::size_t>(number)]);
            std::copy(task.places.begin(), task.places.end(), m_result.places.begin() + to);
            std::copy(task.begins.begin(), task.begins.end(), m_result.samplesBegin.begin() + to);
            task = Task();
        });
        return std::move(m_result);
    }

    IInputSamples const & m_samples;
    TreeCube const & m_cube;
    LoopTeam & m_team;
    int const m_count;
    std::vector<Key> m_splitters; // ascending; part n holds what lies from splitter n - 1 up to n
    bool m_cutsCells = false;     // are there splitters of one place, which samples part
    std::vector<std::size_t> m_partsBegin;
    std::vector<Task> m_tasks;
    std::vector<std::vector<Key>> m_keys; // by slot
    SortedCells m_result;
};

} // namespace

SortedCells sortIntoCells(IInputSamples const & samples, TreeCube const & cube, LoopTeam & team, double until)
{
    return CellSort(samples, cube, team).run(until);
}

} // namespace VolTr
