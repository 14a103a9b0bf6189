// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/BlockProcessor/BlockProc.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Counts the living objects of a kind.
template <class Kind>
struct Counted
{
    Counted() { ++living; }
    ~Counted() { --living; }
    Counted(Counted const &) = delete;
    Counted & operator=(Counted const &) = delete;
    static inline std::atomic<int> living{0};
};

struct Block : IVescaFragmentDescriptor_Old
{
    int number = 0;
};

inline int numberOf(IVescaFragmentDescriptor_Old const & block)
{
    return static_cast<Block const &>(block).number;
}

struct Fragment : IVescaFragment_Old, Counted<Fragment>
{
    explicit Fragment(int extracted) : value(extracted) {}
    int value;
};

using Hook = std::function<void(std::string const & operation, int block)>;

/// Blocks in an array; `areDependent` is asked for two different ones.
class Blocks : public BlockProc::CBlockStructure
{
public:
    explicit Blocks(int count) : m_blocks(static_cast<std::size_t>(count))
    {
        for (int i = 0; i < count; ++i)
            m_blocks[static_cast<std::size_t>(i)].number = i;
    }
    std::function<bool(int, int)> areDependent = [](int, int) { return false; };
    bool isIndependentOfItself = false, isEndNull = false;
    Hook hook = [](std::string const &, int) {};
    Block * at(int i) const { return m_blocks.data() + i; }

    void NextBlock(BlockProc::Block_iter & block) const override
    {
        hook("NextBlock", 0);
        set(block, numberOf(*block) + 1);
    }
    void OnNewPass() override { hook("OnNewPass", 0); }
    bool AreBlocksIndependent(IVescaFragmentDescriptor_Old const & a,
                              IVescaFragmentDescriptor_Old const & b) const override
    {
        hook("AreBlocksIndependent", numberOf(a));
        return &a == &b ? isIndependentOfItself : !areDependent(numberOf(a), numberOf(b));
    }
    int BlockCount() const override { return static_cast<int>(m_blocks.size()); }
    void BlockBegin(BlockProc::Block_iter & block) const override { set(block, 0); }
    void BlockEnd(BlockProc::Block_iter & block) const override { set(block, BlockCount()); }

private:
    void set(BlockProc::Block_iter & block, int number) const
    {
        bool const isNull = isEndNull && number == BlockCount();
        block = BlockProc::Block_iter(isNull ? nullptr : at(number), this);
    }

    mutable std::vector<Block> m_blocks;
};

/// Adds number + 1 to the value of each block in each pass. The values are kept twice, without any lock of
/// its own: who reads while another writes finds them unequal, and a race detector finds the race.
class Client : public BlockProc::CBlockProcessor
{
public:
    explicit Client(int blockCount) : blocks(blockCount), results(static_cast<std::size_t>(blockCount))
    {
        resetModel();
        SetBlockStructure(&blocks);
    }
    ~Client() override = default;

    Blocks blocks;
    Hook hook = [](std::string const &, int) {};
    std::function<int(int)> status = [](int) { return 0; };
    std::function<bool(int)> isEmpty = [](int) { return false; }, isSkipped = isEmpty;
    bool needsUnsharedInit = false;
    std::vector<int> values, copies, results;
    int unsharedInits = 0; ///< Counted without a lock when `needsUnsharedInit`.
    std::atomic<int> tornReads{0}, conflicts{0}, parallelWorkers{0}, serialWorkers{0};
    std::vector<int> started; ///< Guarded by the block mutex.
    std::multiset<int> inWork;

    void resetModel() { copies = values = std::vector<int>(results.size(), 0); }
    void read()
    {
        if (values != copies)
            ++tornReads;
    }

    using CBlockProcessor::AddWorkerReadMutex;
    using CBlockProcessor::BlockEnd;
    using CBlockProcessor::HasCurrentJob;
    using CBlockProcessor::HasPotentialJob;
    using CBlockProcessor::IsBlockProcessed;
    using CBlockProcessor::IsBlockReadyForProcess;
    using CBlockProcessor::LockNextBlock;
    using CBlockProcessor::OnBlockStructureInit;
    using CBlockProcessor::UnLockBlock;

protected:
    class Worker : public BlockProc::CBlockWorker, Counted<Worker>
    {
    public:
        Worker(Client & client, bool parallel) : CBlockWorker(&client, parallel), m_client(client) {}
        void Init() override { m_client.hook("Init", 0); }
        bool BlockInit(IVescaFragmentDescriptor_Old & block, IVescaFragment_Old * fragment) override
        {
            int const n = numberOf(block);
            m_client.hook("BlockInit", n);
            m_client.read();
            m_value = fragment ? static_cast<Fragment &>(*fragment).value : m_client.values[std::size_t(n)];
            return !m_client.isSkipped(n);
        }
        bool BlockInitUnshared(IVescaFragmentDescriptor_Old & block, IVescaFragment_Old *) override
        {
            m_client.hook("BlockInitUnshared", numberOf(block));
            if (m_client.needsUnsharedInit)
                ++m_client.unsharedInits;
            return true;
        }
        int ProcessFragment(IVescaFragmentDescriptor_Old & block, IVescaFragment_Old *) override
        {
            int const n = numberOf(block);
            m_client.hook("ProcessFragment", n);
            for (double position : {0.25, 0.5, 0.75})
                if (GetProgressCounter())
                    GetProgressCounter()->SetPosFloat(position);
            m_client.results[std::size_t(n)] = m_value + n + 1;
            return m_client.status(n);
        }
        void BlockFinalize(IVescaFragmentDescriptor_Old & block, IVescaFragment_Old *) override
        {
            m_client.hook("BlockFinalize", numberOf(block));
        }

    private:
        Client & m_client;
        int m_value = 0;
    };

    void write(int n)
    {
        values[std::size_t(n)] = results[std::size_t(n)];
        std::this_thread::yield();
        copies[std::size_t(n)] = results[std::size_t(n)];
    }

    void PreliminaryGlobalActions() override { hook("PreliminaryGlobalActions", 0); }
    void PreliminaryPassActions() override { hook("PreliminaryPassActions", 0); }
    void FinalGlobalActions() override { hook("FinalGlobalActions", 0); }
    void FinalPassActions() override { hook("FinalPassActions", 0); }
    void ApplyBlockChanges(IVescaFragmentDescriptor_Old const & block, IVescaFragment_Old *) override
    {
        hook("ApplyBlockChanges", numberOf(block));
        write(numberOf(block));
    }
    void ApplyBlockChangesBlockNotExtr(IVescaFragmentDescriptor_Old const & block) override
    {
        hook("ApplyBlockChangesBlockNotExtr", numberOf(block));
        if (!isSkipped(numberOf(block)))
            write(numberOf(block));
    }
    BlockProc::CBlockWorker * CreateBlockWorker(bool parallel) override
    {
        hook("CreateBlockWorker", 0);
        ++(parallel ? parallelWorkers : serialWorkers);
        return new Worker(*this, parallel);
    }
    IVescaFragment_Old * ExtractBlock(IVescaFragmentDescriptor_Old const & block) override
    {
        hook("ExtractBlock", numberOf(block));
        read();
        return isEmpty(numberOf(block)) ? nullptr : new Fragment(values[std::size_t(numberOf(block))]);
    }
    bool NeedUnsharedWorkerInit() const override
    {
        hook("NeedUnsharedWorkerInit", 0);
        return needsUnsharedInit;
    }
    void ResetWholeProcessStatus() override { hook("ResetWholeProcessStatus", 0); }
    void CheckWorkerResult(int code) override
    {
        hook("CheckWorkerResult", 0);
        CBlockProcessor::CheckWorkerResult(code);
    }
    int GetWholeProcessResult() const override
    {
        hook("GetWholeProcessResult", 0);
        return 0;
    }
    void InitThreadedPrgCnt() override
    {
        hook("InitThreadedPrgCnt", 0);
        CBlockProcessor::InitThreadedPrgCnt();
    }
    void ReleaseThreadedPrgCnt() override
    {
        CBlockProcessor::ReleaseThreadedPrgCnt();
        hook("ReleaseThreadedPrgCnt", 0);
    }
    void UpdateParentPrgCnt() override
    {
        hook("UpdateParentPrgCnt", 0);
        CBlockProcessor::UpdateParentPrgCnt();
    }
    void RegisterWorkerPrgCnt(BlockProc::CBlockWorker * worker) override
    {
        hook("RegisterWorkerPrgCnt", 0);
        CBlockProcessor::RegisterWorkerPrgCnt(worker);
    }
    void UnRegisterWorkerPrgCnt(BlockProc::CBlockWorker * worker) override
    {
        CBlockProcessor::UnRegisterWorkerPrgCnt(worker);
        hook("UnRegisterWorkerPrgCnt", 0);
    }
    void OnBlockProcessStart(BlockProc::Block_iter block, BlockProc::CBlockWorker * worker) override
    {
        int const n = numberOf(*block);
        hook("OnBlockProcessStart", n);
        for (int other : inWork)
            conflicts += other == n || blocks.areDependent(n, other);
        inWork.insert(n);
        started.push_back(n);
        CBlockProcessor::OnBlockProcessStart(block, worker);
    }
    void OnBlockProcessFinish(BlockProc::Block_iter block, BlockProc::CBlockWorker * worker) override
    {
        inWork.erase(inWork.find(numberOf(*block)));
        CBlockProcessor::OnBlockProcessFinish(block, worker);
        hook("OnBlockProcessFinish", numberOf(*block));
    }
};
