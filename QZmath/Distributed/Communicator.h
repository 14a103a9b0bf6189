// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Distributed/Export.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <mpi.h>

namespace QZmath::Distributed
{

/// A group of ranks that work together: the operations of MPI that this library needs, over counts of any
/// size. All members but `rank`, `size` and `get` are collective: every rank calls them, in the same order.
/// Errors of MPI itself end the program, as MPI does by default.
class QZMATH_DISTRIBUTED_API Communicator
{
public:
    /// Duplicates the group, so that messages do not meet those of the caller.
    explicit Communicator(MPI_Comm comm);
    ~Communicator();
    Communicator(Communicator const &) = delete;
    Communicator & operator=(Communicator const &) = delete;

    int rank() const { return m_rank; }
    int size() const { return m_size; }
    MPI_Comm get() const { return m_comm; }

    std::int64_t sum(std::int64_t value) const;
    std::int64_t least(std::int64_t value) const;
    std::int64_t greatest(std::int64_t value) const;
    double least(double value) const;
    double greatest(double value) const;
    /// The values of all ranks in the order of the ranks, so that a sum over them has the same bits on each.
    std::vector<double> all(double value) const;
    std::vector<std::int64_t> all(std::int64_t value) const;
    /// The sum of the values of all ranks in their order.
    double sum(double value) const;
    /// The sum of the values of the ranks before this one.
    std::int64_t sumBefore(std::int64_t value) const;
    /// Adds up arrays of the same size, element by element; all ranks get the same bits.
    void sum(float * values, std::size_t count) const;
    void sum(double * values, std::size_t count) const;
    void sum(std::int64_t * values, std::size_t count) const;

    /// Sends `toRanks[r]` to each rank r; gives what came from all ranks, in their order. Throws as
    /// `together` does where a rank has no memory for it. \param counts optional: how many elements came from
    /// each rank
    template <class T>
    std::vector<T> exchange(std::vector<std::vector<T>> const & toRanks,
                            std::vector<std::size_t> * counts = nullptr) const
    {
        static_assert(std::is_trivially_copyable_v<T>, "bytes are sent as they are");
        std::vector<void const *> sources;
        std::vector<std::size_t> sizes;
        for (std::vector<T> const & part : toRanks) {
            sources.push_back(part.data());
            sizes.push_back(part.size());
        }
        std::vector<std::size_t> const arriving = exchangeCounts(sizes);
        std::size_t total = 0;
        for (std::size_t const count : arriving)
            total += count;
        std::vector<T> result;
        together([&] { result.resize(total); });
        exchangeElements(sources, sizes, arriving, result.data(), sizeof(T));
        if (counts != nullptr)
            *counts = arriving;
        return result;
    }

    /// The arrays of all ranks one behind the other, on every rank.
    template <class T>
    std::vector<T> gatherToAll(std::vector<T> const & own, std::vector<std::size_t> * counts = nullptr) const
    {
        static_assert(std::is_trivially_copyable_v<T>, "bytes are sent as they are");
        std::vector<std::size_t> const arriving = allCounts(own.size());
        std::size_t total = 0;
        for (std::size_t const count : arriving)
            total += count;
        std::vector<T> result;
        together([&] { result.resize(total); });
        gatherElements(own.data(), own.size(), arriving, result.data(), sizeof(T));
        if (counts != nullptr)
            *counts = arriving;
        return result;
    }

    /// The value of one rank on all.
    std::string broadcast(std::string const & text, int from) const;
    template <class T>
    T broadcast(T value, int from) const
    {
        static_assert(std::is_trivially_copyable_v<T>, "bytes are sent as they are");
        MPI_Bcast(&value, static_cast<int>(sizeof(T)), MPI_BYTE, from, m_comm);
        return value;
    }

    /// Runs work of this rank that calls no other one, and agrees with the others on whether it went well.
    /// When it threw anywhere, all ranks throw a `RankError` of the lowest rank where it did; but when the
    /// user has interrupted any of them, `CUserIntrException`.
    template <class Work>
    void together(Work const & work) const
    {
        std::exception_ptr failure;
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        agree(failure);
    }
    /// The second half of `together`: null for no failure.
    void agree(std::exception_ptr const & failure) const;

private:
    std::vector<std::size_t> exchangeCounts(std::vector<std::size_t> const & sizes) const;
    std::vector<std::size_t> allCounts(std::size_t own) const;
    void exchangeElements(std::vector<void const *> const & sources, std::vector<std::size_t> const & sizes,
                          std::vector<std::size_t> const & arriving, void * target, std::size_t bytes) const;
    void gatherElements(void const * own, std::size_t count, std::vector<std::size_t> const & arriving,
                        void * target, std::size_t bytes) const;

    MPI_Comm m_comm = MPI_COMM_NULL;
    int m_rank = 0;
    int m_size = 1;
};

/// What a rank could not do, on all ranks; `what()` is one sentence that names the rank and the cause.
class QZMATH_DISTRIBUTED_API RankError : public std::runtime_error
{
public:
    /// As `QZmath::ReconstructionError::Kind`, and what concerns files.
    enum class Kind
    {
        input,
        options,
        memory,
        failed,
        output
    };
    RankError(Kind kind, int rank, std::string const & cause);
    ~RankError() override;
    Kind kind() const { return m_kind; }
    int rank() const { return m_rank; }
    /// The sentence without the rank.
    std::string const & cause() const { return m_cause; }

private:
    Kind m_kind;
    int m_rank;
    std::string m_cause;
};

} // namespace QZmath::Distributed
