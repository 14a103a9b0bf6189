// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Backend/Parallel.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace VolTr
{

/// Sums over very many samples that have to be taken in order: terms are found by all threads of a team, for
/// some ten thousand samples at a time, and then taken one after the other. So the sum has the bits that one
/// loop would give, however the samples crowd, and is open to interruption every few milliseconds.
///
/// `evaluate(slot, group, samples, count, terms)` writes the terms of some samples, on any thread, and
/// `take(group, terms, count)` adds them up, on the calling thread. Groups are the caller's.
template <class Term, class Evaluate, class Take>
class SampleTurns
{
public:
    SampleTurns(QzBackend::LoopTeam & team, Evaluate evaluate, Take take)
        : m_team(team), m_evaluate(std::move(evaluate)), m_take(std::move(take)), m_terms(samplesPerTurn)
    {}

    /// Appends samples, which stay where they are until they are taken; works off what makes a whole turn.
    void add(int group, int const * begin, int const * end)
    {
        while (begin != end) {
            std::size_t const left = static_cast<std::size_t>(end - begin);
            std::size_t const count = std::min({left, samplesPerChunk, samplesPerTurn - m_samples});
            if (m_chunks.empty() || m_chunkSamples + count > samplesPerChunk) {
                m_chunks.push_back(m_runs.size());
                m_chunkSamples = 0;
            }
            m_runs.push_back({group, begin, count, m_samples});
            m_samples += count;
            m_chunkSamples += count;
            begin += count;
            if (m_samples == samplesPerTurn)
                finish();
        }
    }

    /// Works off what is left.
    void finish()
    {
        m_chunks.push_back(m_runs.size());
        m_team.forEachOnSlot(static_cast<int>(m_chunks.size()) - 1, [&](int slot, int chunk) {
            std::size_t const n = static_cast<std::size_t>(chunk);
            for (std::size_t run = m_chunks[n]; run < m_chunks[n + 1]; ++run)
                m_evaluate(slot, m_runs[run].group, m_runs[run].samples, static_cast<int>(m_runs[run].count),
                           m_terms.data() + m_runs[run].place);
        });
        for (Run const & run : m_runs)
            m_take(run.group, m_terms.data() + run.place, static_cast<int>(run.count));
        m_runs.clear();
        m_chunks.clear();
        m_samples = m_chunkSamples = 0;
    }

private:
    static constexpr std::size_t samplesPerTurn = 1 << 15;
    static constexpr std::size_t samplesPerChunk = 1 << 9;

    struct Run
    {
        int group;
        int const * samples;
        std::size_t count;
        std::size_t place; // in the terms
    };

    QzBackend::LoopTeam & m_team;
    Evaluate m_evaluate;
    Take m_take;
    std::vector<Term> m_terms;
    std::vector<Run> m_runs;
    std::vector<std::size_t> m_chunks; // where they begin in the runs
    std::size_t m_samples = 0, m_chunkSamples = 0;
};

/// \tparam Term  what is found for a sample
template <class Term, class Evaluate, class Take>
SampleTurns<Term, Evaluate, Take> makeSampleTurns(QzBackend::LoopTeam & team, Evaluate evaluate, Take take)
{
    return {team, std::move(evaluate), std::move(take)};
}

} // namespace VolTr
