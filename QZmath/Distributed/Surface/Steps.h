// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Communicator.h>

#include <exception>

namespace QZmath::Distributed
{

/// Work of all ranks that meet in the middle of it: before a collective call inside, each calls `meet`.
/// When the work of one fails, the others learn of it at their next meeting and end with the same exception,
/// so none of them waits for it. All ranks that do not fail must meet equally often.
class Steps
{
public:
    explicit Steps(Communicator const & ranks) : m_ranks(ranks) {}

    /// \throws what a rank failed with, as `Communicator::together` does
    template <class Work>
    void run(Work const & work)
    {
        m_hasAgreed = false;
        std::exception_ptr failure;
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        if (m_hasAgreed)
            std::rethrow_exception(failure);
        m_ranks.agree(failure);
    }

    void meet()
    {
        m_hasAgreed = true;
        m_ranks.agree(nullptr);
        m_hasAgreed = false;
    }

    Communicator const & ranks() const { return m_ranks; }

private:
    Communicator const & m_ranks;
    bool m_hasAgreed = false; // on a failure, which is on its way up
};

} // namespace QZmath::Distributed
