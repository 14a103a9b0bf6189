// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Distributed/Communicator.h>

#include <QZmath/Files/Errors.h>
#include <QZmath/Reconstruction/Reconstruction.h>

#include <QZsys/Exceptions.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace QZmath::Distributed
{

namespace
{

using Kind = RankError::Kind;

// Elements that one call of MPI moves for a rank: its counts are `int`, and what is under way at a time stays
// small beside the arrays themselves.
std::size_t const elementsPerRound = std::size_t{1} << 22;

// An element as MPI sees it.
class ElementType
{
public:
    explicit ElementType(std::size_t bytes)
    {
        MPI_Type_contiguous(static_cast<int>(bytes), MPI_BYTE, &m_type);
        MPI_Type_commit(&m_type);
    }
    ~ElementType() { MPI_Type_free(&m_type); }
    ElementType(ElementType const &) = delete;
    ElementType & operator=(ElementType const &) = delete;
    MPI_Datatype get() const { return m_type; }

private:
    MPI_Datatype m_type = MPI_DATATYPE_NULL;
};

struct Failure
{
    std::int64_t code = 0; // 0: none, 1: interrupted, else 2 + kind
    std::string cause;
    std::int64_t rank = -1; // that failed, when all have learned of it before; else the own one
};

Kind kindOf(ReconstructionError::Kind kind)
{
    switch (kind) {
    case ReconstructionError::Kind::input:
        return Kind::input;
    case ReconstructionError::Kind::options:
        return Kind::options;
    case ReconstructionError::Kind::memory:
        return Kind::memory;
    case ReconstructionError::Kind::failed:
        break;
    }
    return Kind::failed;
}

Failure describe(std::exception_ptr const & exception)
{
    auto const failed = [](Kind kind, char const * cause) {
        return Failure{2 + static_cast<std::int64_t>(kind), cause};
    };
    if (exception == nullptr)
        return {};
    try {
        std::rethrow_exception(exception);
    } catch (CUserIntrException const &) {
        return {1, ""};
    } catch (RankError const & error) {
        Failure known = failed(error.kind(), error.cause().c_str());
        known.rank = error.rank();
        return known;
    } catch (ReconstructionError const & error) {
        return failed(kindOf(error.kind()), error.what());
    } catch (InputError const & error) {
        return failed(Kind::input, error.what());
    } catch (OutputError const & error) {
        return failed(Kind::output, error.what());
    } catch (std::bad_alloc const &) {
        return failed(Kind::memory, "not enough memory");
    } catch (std::exception const & error) {
        return failed(Kind::failed, error.what());
    } catch (...) {
        return failed(Kind::failed, "an unknown error");
    }
}

template <class Number>
void sumArrays(Number * values, std::size_t count, MPI_Datatype type, MPI_Comm comm)
{
    for (std::size_t begin = 0; begin < count; begin += elementsPerRound)
        MPI_Allreduce(MPI_IN_PLACE, values + begin,
                      static_cast<int>(std::min(elementsPerRound, count - begin)), type, MPI_SUM, comm);
}

} // namespace

RankError::RankError(Kind kind, int rank, std::string const & cause)
    : std::runtime_error("rank " + std::to_string(rank) + ": " + cause), m_kind(kind), m_rank(rank),
      m_cause(cause)
{}

RankError::~RankError() = default;

Communicator::Communicator(MPI_Comm comm)
{
    MPI_Comm_dup(comm, &m_comm);
    MPI_Comm_rank(m_comm, &m_rank);
    MPI_Comm_size(m_comm, &m_size);
}

Communicator::~Communicator()
{
    int isFinalized = 0;
    MPI_Finalized(&isFinalized);
    if (isFinalized == 0)
        MPI_Comm_free(&m_comm);
}

std::int64_t Communicator::sum(std::int64_t value) const
{
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT64_T, MPI_SUM, m_comm);
    return value;
}

std::int64_t Communicator::least(std::int64_t value) const
{
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT64_T, MPI_MIN, m_comm);
    return value;
}

std::int64_t Communicator::greatest(std::int64_t value) const
{
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT64_T, MPI_MAX, m_comm);
    return value;
}

double Communicator::least(double value) const
{
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_MIN, m_comm);
    return value;
}

double Communicator::greatest(double value) const
{
    MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_MAX, m_comm);
    return value;
}

std::vector<double> Communicator::all(double value) const
{
    std::vector<double> values(static_cast<std::size_t>(m_size));
    MPI_Allgather(&value, 1, MPI_DOUBLE, values.data(), 1, MPI_DOUBLE, m_comm);
    return values;
}

std::vector<std::int64_t> Communicator::all(std::int64_t value) const
{
    std::vector<std::int64_t> values(static_cast<std::size_t>(m_size));
    MPI_Allgather(&value, 1, MPI_INT64_T, values.data(), 1, MPI_INT64_T, m_comm);
    return values;
}

double Communicator::sum(double value) const
{
    double total = 0.0;
    for (double const of : all(value))
        total += of;
    return total;
}

std::int64_t Communicator::sumBefore(std::int64_t value) const
{
    std::int64_t before = 0;
    MPI_Exscan(&value, &before, 1, MPI_INT64_T, MPI_SUM, m_comm);
    return m_rank == 0 ? 0 : before;
}

void Communicator::sum(float * values, std::size_t count) const
{
    sumArrays(values, count, MPI_FLOAT, m_comm);
}
void Communicator::sum(double * values, std::size_t count) const
{
    sumArrays(values, count, MPI_DOUBLE, m_comm);
}
void Communicator::sum(std::int64_t * values, std::size_t count) const
{
    sumArrays(values, count, MPI_INT64_T, m_comm);
}

std::string Communicator::broadcast(std::string const & text, int from) const
{
    std::int64_t const size = broadcast(static_cast<std::int64_t>(text.size()), from);
    std::string result = m_rank == from ? text : std::string(static_cast<std::size_t>(size), ' ');
    MPI_Bcast(result.data(), static_cast<int>(size), MPI_CHAR, from, m_comm);
    return result;
}

void Communicator::agree(std::exception_ptr const & failure) const
{
    Failure own = describe(failure);
    // An interruption of one rank comes before the failures of others, and of these the lowest rank's counts.
    int const failing = static_cast<int>(least(
        own.code == 0 ? std::int64_t{INT_MAX} : (own.code == 1 ? std::int64_t{-1} : std::int64_t{m_rank})));
    if (failing == INT_MAX)
        return;
    if (failing < 0)
        throw CUserIntrException("interrupted");
    std::int64_t const code = broadcast(own.code, failing);
    std::string const cause = broadcast(own.cause, failing);
    int const rank = static_cast<int>(broadcast(own.rank < 0 ? std::int64_t{m_rank} : own.rank, failing));
    throw RankError(static_cast<Kind>(code - 2), rank, cause);
}

std::vector<std::size_t> Communicator::exchangeCounts(std::vector<std::size_t> const & sizes) const
{
    static_assert(sizeof(std::size_t) == sizeof(std::uint64_t), "counts are sent as 64 bits");
    std::vector<std::size_t> arriving(static_cast<std::size_t>(m_size));
    MPI_Alltoall(sizes.data(), 1, MPI_UINT64_T, arriving.data(), 1, MPI_UINT64_T, m_comm);
    return arriving;
}

std::vector<std::size_t> Communicator::allCounts(std::size_t own) const
{
    std::vector<std::size_t> counts(static_cast<std::size_t>(m_size));
    MPI_Allgather(&own, 1, MPI_UINT64_T, counts.data(), 1, MPI_UINT64_T, m_comm);
    return counts;
}

void Communicator::exchangeElements(std::vector<void const *> const & sources,
                                    std::vector<std::size_t> const & sizes,
                                    std::vector<std::size_t> const & arriving, void * target,
                                    std::size_t bytes) const
{
    // Counts and displacements of MPI are `int`, so much goes in rounds, through buffers of a round's size.
    ElementType const type(bytes);
    std::size_t const perPair = std::max(std::size_t{1}, elementsPerRound / static_cast<std::size_t>(m_size));
    std::size_t most = 0;
    for (std::size_t const size : sizes)
        most = std::max(most, size);
    most = static_cast<std::size_t>(greatest(static_cast<std::int64_t>(most)));
    std::vector<char *> places;
    char * place = static_cast<char *>(target);
    for (std::size_t const count : arriving) {
        places.push_back(place);
        place += count * bytes;
    }
    std::size_t const ranks = static_cast<std::size_t>(m_size);
    std::vector<int> sent(ranks), sentAt(ranks), received(ranks), receivedAt(ranks);
    auto const plan = [&](std::vector<std::size_t> const & all, std::size_t begin, std::vector<int> & counts,
                          std::vector<int> & at) {
        int total = 0;
        for (std::size_t rank = 0; rank < ranks; ++rank) {
            std::size_t const left = all[rank] > begin ? all[rank] - begin : 0;
            counts[rank] = static_cast<int>(std::min(perPair, left));
            at[rank] = total;
            total += counts[rank];
        }
        return static_cast<std::size_t>(total);
    };
    std::vector<char> out, in;
    together([&] { // no round is larger than the first one
        out.reserve(plan(sizes, 0, sent, sentAt) * bytes);
        in.reserve(plan(arriving, 0, received, receivedAt) * bytes);
    });
    for (std::size_t begin = 0; begin < most; begin += perPair) {
        out.resize(plan(sizes, begin, sent, sentAt) * bytes);
        in.resize(plan(arriving, begin, received, receivedAt) * bytes);
        for (std::size_t rank = 0; rank < ranks; ++rank) {
            if (sent[rank] > 0)
                std::memcpy(out.data() + static_cast<std::size_t>(sentAt[rank]) * bytes,
                            static_cast<char const *>(sources[rank]) + begin * bytes,
                            static_cast<std::size_t>(sent[rank]) * bytes);
        }
        MPI_Alltoallv(out.data(), sent.data(), sentAt.data(), type.get(), in.data(), received.data(),
                      receivedAt.data(), type.get(), m_comm);
        for (std::size_t rank = 0; rank < ranks; ++rank) {
            if (received[rank] > 0)
                std::memcpy(places[rank] + begin * bytes,
                            in.data() + static_cast<std::size_t>(receivedAt[rank]) * bytes,
                            static_cast<std::size_t>(received[rank]) * bytes);
        }
    }
}

void Communicator::gatherElements(void const * own, std::size_t count,
                                  std::vector<std::size_t> const & arriving, void * target,
                                  std::size_t bytes) const
{
    ElementType const type(bytes);
    std::vector<int> counts, at;
    std::size_t total = 0;
    for (std::size_t const size : arriving) {
        counts.push_back(static_cast<int>(size));
        at.push_back(static_cast<int>(total));
        total += size;
        if (total > INT_MAX)
            throw std::bad_alloc(); // more than MPI can count; the same on all ranks
    }
    MPI_Allgatherv(own, static_cast<int>(count), type.get(), target, counts.data(), at.data(), type.get(),
                   m_comm);
}

} // namespace QZmath::Distributed
