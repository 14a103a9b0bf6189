// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/BlockProcessor/BlockProc.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

struct Block : IVescaFragmentDescriptor_Old
{
    int number;
};

inline int numberOf(IVescaFragmentDescriptor_Old const & block)
{
    return static_cast<Block const &>(block).number;
}

struct Fragment : IVescaFragment_Old
{
    explicit Fragment(int extracted) : value(extracted) { ++living; }
    ~Fragment() override { --living; }
    int value;
    static inline std::atomic<int> living{0};
};

using Hook = std::function<void(std::string const & operation, int block)>;

inline void doNothing(std::string const &, int) {}

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
    Hook hook = doNothing;
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
    Hook hook = doNothing;
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
    using Base = BlockProc::CBlockProcessor;
    using Descriptor = IVescaFragmentDescriptor_Old;

    class Worker : public BlockProc::CBlockWorker
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
            return n % 2 == 0 || !m_client.isSkipped(n); // of the others it is known only after the next step
        }
        bool BlockInitUnshared(IVescaFragmentDescriptor_Old & block, IVescaFragment_Old *) override
        {
            m_client.hook("BlockInitUnshared", numberOf(block));
            if (m_client.needsUnsharedInit)
                ++m_client.unsharedInits;
            return !m_client.isSkipped(numberOf(block));
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
        void BlockFinalize(Descriptor & block, IVescaFragment_Old *) override
        {
            m_client.hook("BlockFinalize", numberOf(block));
        }

    private:
        Client & m_client;
        int m_value = 0;
    };

    void PreliminaryGlobalActions() override { call("PreliminaryGlobalActions"); }
    void PreliminaryPassActions() override { call("PreliminaryPassActions"); }
    void FinalGlobalActions() override { call("FinalGlobalActions"); }
    void FinalPassActions() override { call("FinalPassActions"); }
    void ApplyBlockChanges(Descriptor const & block, IVescaFragment_Old *) override
    {
        call("ApplyBlockChanges", numberOf(block));
        write(numberOf(block));
    }
    void ApplyBlockChangesBlockNotExtr(Descriptor const & block) override
    {
        call("ApplyBlockChangesBlockNotExtr", numberOf(block));
        if (!isSkipped(numberOf(block)))
            write(numberOf(block));
    }
    BlockProc::CBlockWorker * CreateBlockWorker(bool parallel) override
    {
        call("CreateBlockWorker");
        ++(parallel ? parallelWorkers : serialWorkers);
        return new Worker(*this, parallel);
    }
    IVescaFragment_Old * ExtractBlock(Descriptor const & block) override
    {
        call("ExtractBlock", numberOf(block));
        read();
        return isEmpty(numberOf(block)) ? nullptr : new Fragment(values[std::size_t(numberOf(block))]);
    }
    bool NeedUnsharedWorkerInit() const override { return call("NeedUnsharedWorkerInit"), needsUnsharedInit; }
    void ResetWholeProcessStatus() override { call("ResetWholeProcessStatus"); }
    void CheckWorkerResult(int code) override { call("CheckWorkerResult"), Base::CheckWorkerResult(code); }
    int GetWholeProcessResult() const override { return call("GetWholeProcessResult"), 0; }
    void InitThreadedPrgCnt() override { call("InitThreadedPrgCnt"), Base::InitThreadedPrgCnt(); }
    void ReleaseThreadedPrgCnt() override { Base::ReleaseThreadedPrgCnt(), call("ReleaseThreadedPrgCnt"); }
    void UpdateParentPrgCnt() override { call("UpdateParentPrgCnt"), Base::UpdateParentPrgCnt(); }
    void RegisterWorkerPrgCnt(BlockProc::CBlockWorker * worker) override
    {
        call("RegisterWorkerPrgCnt"), Base::RegisterWorkerPrgCnt(worker);
    }
    void UnRegisterWorkerPrgCnt(BlockProc::CBlockWorker * worker) override
    {
        Base::UnRegisterWorkerPrgCnt(worker), call("UnRegisterWorkerPrgCnt");
    }
    void OnBlockProcessStart(BlockProc::Block_iter block, BlockProc::CBlockWorker * worker) override
    {
        int const n = numberOf(*block);
        call("OnBlockProcessStart", n);
        for (int other : inWork)
            conflicts += other == n || blocks.areDependent(n, other);
        inWork.insert(n);
        started.push_back(n);
        Base::OnBlockProcessStart(block, worker);
    }
    void OnBlockProcessFinish(BlockProc::Block_iter block, BlockProc::CBlockWorker * worker) override
    {
        inWork.erase(inWork.find(numberOf(*block)));
        Base::OnBlockProcessFinish(block, worker);
        call("OnBlockProcessFinish", numberOf(*block));
    }

private:
    void call(char const * operation, int block = 0) const { hook(operation, block); }
    void write(int n)
    {
        values[std::size_t(n)] = results[std::size_t(n)];
        std::this_thread::yield();
        copies[std::size_t(n)] = results[std::size_t(n)];
    }
};
