// SPDX-License-Identifier: Apache-2.0
#include "BlockProcessor/BlockClients.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <regex>
#include <stdexcept>

using namespace BlockProc;

namespace
{

using Lines = std::vector<std::string>;

/// Keeps the lines of each speaker with readable names for addresses, and lets a thread wait for a line.
class TraceLog : public VsUt::IDebugLog
{
public:
    std::map<std::string, std::string> addresses; ///< From the printed address to its name.
    std::function<void(std::string const &)> onLine = [](std::string const &) {};

    void getMessage(char const * text) override
    {
        static std::regex const pattern("(0x[0-9a-f]+|\\(nil\\))");
        std::smatch match;
        std::string line = text;
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            if (std::regex_search(line, match, pattern)) {
                auto const known = addresses.find(match.str());
                std::string const name = known == addresses.end() ? "?" : known->second;
                line = match.prefix().str() + name + match.suffix().str();
            }
            m_lines.push_back(line);
        }
        m_changed.notify_all();
        onLine(line);
    }

    void name(void const * address, std::string const & text)
    {
        char printed[40];
        std::snprintf(printed, sizeof printed, "%p", address);
        std::lock_guard<std::mutex> const lock(m_mutex);
        addresses[printed] = text;
    }
    /// Waits until `line` has come `times` times.
    void await(std::string const & line, int times = 1)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, std::chrono::seconds(60), [&] {
            return std::count(m_lines.begin(), m_lines.end(), line) >= times;
        })) << line;
    }
    /// What follows the speaker's prefix, without the lines about the schedule's state.
    Lines of(std::string const & speaker)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        std::string const prefix = "[DEBUG_THREADS] " + speaker + ": ";
        Lines found;
        for (std::string const & line : m_lines)
            if (line.rfind(prefix, 0) == 0)
                found.push_back(line.substr(prefix.size()));
        return found;
    }
    Lines all()
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        return m_lines;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Lines m_lines;
};

Lines operator+(Lines a, Lines const & b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::string const mgr = "[DEBUG_THREADS] Manager: ", w0 = "[DEBUG_THREADS] Worker 10000: ",
                  w1 = "[DEBUG_THREADS] Worker 10001: ";

Lines const lockBlocks = {"Trying to lock manager before exclusive block locking/returning...",
                          "Locking single mutex BLOCKS.", "Single mutex BLOCKS locked."};
Lines const unlockBlocks = {"Unlocking single mutex BLOCKS"};
Lines const blocksOver = lockBlocks + Lines{"Blocks over"} + unlockBlocks;

Lines returnBlock()
{
    return Lines{"Locking single mutex BLOCKS.", "Single mutex BLOCKS locked.",
                 "Enter mutex BLOCKS for unlock block", "Leave mutex BLOCKS for unlock block",
                 "Reporting that block finished, one can try to wake up idle workers..."} +
           unlockBlocks;
}

Lines lockAll()
{
    return {"Going to lock 2 mutexes", "Locking mutex number 0",        "Locking mutex READ0",
            "Mutex READ0 locked",      "Locking mutex number 1",        "Locking mutex READ1",
            "Mutex READ1 locked",      "All mutexes locked by locker ?"};
}

Lines unlockAll()
{
    return {
        "Destructor of locker ? entered", "Unlock of locker ? entered", "Going to unlock 2 mutexes",
        "Going to unlock all mutexes",    "Unlocking mutex number 0",   "Unlocking mutex READ0",
        "Unlocking mutex number 1",       "Unlocking mutex READ1",      "All mutexes unlocked by locker ?"};
}

/// One block for two workers, where the first gets it and waits until the second sleeps.
class ScriptedClient : public Client
{
public:
    ScriptedClient() : Client(1)
    {
        SetNParralelThreads(2);
        SetImmediateBlockModify(true);
        SetExtractBlock(true);
        SetDebugLog(&log);
        log.name(GetBlockMutex(), "BLOCKS");
        log.name(blocks.at(0), "BLOCK");
        hook = [this](std::string const & operation, int) {
            if (operation == "ProcessFragment")
                log.await(w1 + "Leave mutex BLOCKS for getting block");
        };
        log.onLine = [this](std::string const & line) {
            if (line == w1 + "Initializing ...")
                log.await(w0 + "Processing block BLOCK");
        };
    }
    ~ScriptedClient() override = default;

    TraceLog log;

protected:
    BlockProc::CBlockWorker * CreateBlockWorker(bool parallel) override
    {
        BlockProc::CBlockWorker * const worker = Client::CreateBlockWorker(parallel);
        log.name(worker->GetReadMutex(), parallelWorkers == 1 ? "READ0" : "READ1");
        return worker;
    }
};

Lines const startOfFirst =
    Lines{"Initializing ..."} + lockBlocks + unlockBlocks +
    Lines{"Processing block BLOCK",     "Locking single mutex READ0.",
          "Single mutex READ0 locked.", "Entered read mutex READ0 for extracting from huge model",
          "Extracting block BLOCK",     "Block extraction finished"};
Lines const leaveRead = {"Leaving read mutex READ0 for extracting from huge model",
                         "Unlocking single mutex READ0"};
Lines const sleeping = Lines{"Initializing ..."} + lockBlocks + Lines{"No free blocks, going to sleep..."} +
                       unlockBlocks + Lines{"Leave mutex BLOCKS for getting block"};

} // namespace

TEST(ThreadTracing, LinesAreBoundedAndANullLogCostsNothing)
{
    TraceLog log;
    EXPECT_TRUE(b_DEBUG_THREADS_On);
    DebugThreadMessage(&log, -3, "a text");
    DebugThreadMessage(&log, 2, "%d mutexes", 17);
    DebugThreadMgrMessage(&log, "%p", static_cast<void *>(nullptr));
    std::string const text(1000, 'x');
    DebugThreadMgrMessage(&log, (text + "%d").c_str(), 1);
    DebugThreadMessage(&log, 1, text.c_str());
    DebugThreadMessage(nullptr, 1, nullptr); // nothing is formatted
    DebugThreadMessage(nullptr, 1, nullptr, 1);
    DebugThreadMgrMessage(nullptr, nullptr);
    EXPECT_EQ((Lines{"[DEBUG_THREADS] Worker -3: a text", "[DEBUG_THREADS] Worker 2: 17 mutexes", mgr + "?",
                     mgr + text.substr(0, 255), "[DEBUG_THREADS] Worker 1: " + text}),
              log.all());
}

TEST(ThreadTracing, ARunIsTracedToTheLetter)
{
    for (bool needsUnsharedInit : {false, true}) {
        ScriptedClient client;
        TraceLog & log = client.log;
        client.needsUnsharedInit = needsUnsharedInit;
        auto const waitForSecond = log.onLine;
        // Whoever ends waits for the manager to have done with what happened before.
        log.onLine = [&](std::string const & line) {
            waitForSecond(line);
            if (line == w0 + "Work finished. Sending release signal.")
                log.await(mgr + "Waking up idles done.");
            if (line == w1 + "Waked up after sleep")
                log.await(mgr + "Waking up idles done.", 2);
        };
        EXPECT_EQ(0, client.Run());
        Lines const working =
            startOfFirst + leaveRead +
            (needsUnsharedInit
                 ? Lines{"Entering write mutex READ0 for init un-shared block init"} + lockAll() +
                       Lines{"Leaving write mutex READ0 for init un-shared block init"} + unlockAll()
                 : Lines{}) +
            Lines{"Locking all mutexes due to updating block"} + lockAll() +
            Lines{"All mutexes locked due to updating block", "Entered mutex for updating huge model",
                  "Updating huge model block BLOCK", "Update completed",
                  "Unlocking all mutexes caused by updating block"} +
            unlockAll() + returnBlock() + blocksOver + Lines{"Work finished. Sending release signal."};
        EXPECT_EQ(working, log.of("Worker 10000"));
        EXPECT_EQ(sleeping + Lines{"Waked up after sleep"} + blocksOver +
                      Lines{"Work finished. Sending release signal."},
                  log.of("Worker 10001"));
        EXPECT_EQ((Lines{"Manager state before locking next block", "Manager state before unblocking block",
                         "Manager state after UnLocking block", "One more finished block detected",
                         "Waking up idles...", "Waking up idle worker ID = 10001", "Waking up idles done.",
                         "Worker ID=10000 worker released", "Waking up idles...", "Waking up idles done.",
                         "Worker ID=10001 worker released", "Waking up idles...", "Waking up idles done.",
                         "Thread stuff finished"}),
                  log.of("Manager"));
    }
}

TEST(ThreadTracing, AFailureReturnsTheBlockAndWakesTheSleeperByAbort)
{
    for (bool isInterruption : {false, true}) {
        ScriptedClient client;
        TraceLog & log = client.log;
        client.status = [&](int) { return isInterruption ? 10 : 3; };
        auto const waitForSecond = log.onLine;
        log.onLine = [&](std::string const & line) {
            waitForSecond(line);
            if (line == w0 + "ERROR during BlockProcessCore")
                client.SetAbortEvent();
            if (line == mgr + "AbortEvent caught") // the block is returned after the sleeper has gone
                return;
            if (line == w0 + "Locking single mutex BLOCKS." && log.of("Worker 10000").size() > 10)
                log.await(w1 + "Waked up by abort event. Quit job.");
        };
        EXPECT_EQ(isInterruption ? 10 : -1, client.Run());
        Lines const first = log.of("Worker 10000");
        EXPECT_EQ(
            startOfFirst + leaveRead + Lines{"ERROR during BlockProcessCore"} + returnBlock() +
                (isInterruption ? Lines{} : Lines{"Unexpected error in BlockProc::CBlockWorker::Work()"}) +
                Lines{"Work finished. Sending release signal."},
            first);
        Lines const aborted =
            sleeping + Lines{"Waked up by abort event. Quit job.", "Work finished. Sending release signal."};
        EXPECT_EQ(aborted, log.of("Worker 10001"));
        EXPECT_EQ((Lines{"Manager state before locking next block", "AbortEvent caught",
                         "Sending aborting signal to worker 10000", "Sending aborting signal to worker 10001",
                         "Manager state before unblocking block", "Manager state after UnLocking block",
                         "Worker 10000 successfully aborted", "Worker 10001 successfully aborted",
                         isInterruption ? "Raising EBlockAlgError( QZ_STATUS_USER_INTR )"
                                        : "Raising EBlockAlgError( QZ_STATUS_UNEXPECTED_ERR )"}),
                  log.of("Manager"));
        EXPECT_EQ(0, Fragment::living);
    }
}

TEST(ThreadTracing, ARequestThatComesWithTheEndOfTheLastWorkerCounts)
{
    Client client(3);
    TraceLog log;
    client.SetDebugLog(&log);
    client.SetNParralelThreads(2);
    int released = 0;
    log.onLine = [&](std::string const & line) {
        if (line.find("worker released") != std::string::npos && ++released == 2)
            client.SetAbortEvent();
    };
    EXPECT_EQ(-1, client.Run());
    EXPECT_EQ("Raising EBlockAlgError( QZ_STATUS_UNEXPECTED_ERR )", log.of("Manager").back());
}

TEST(ThreadTracing, SkippedBlocksAndFailedInitsAreTold)
{
    Lines const unlockRead = {"Unlocking single mutex READ0"};
    Client quiet(2);
    TraceLog serialLog;
    quiet.SetDebugLog(&serialLog);
    EXPECT_EQ(0, quiet.Run());
    EXPECT_TRUE(serialLog.all().empty()); // serial runs trace nothing

    for (bool isEmpty : {false, true}) {
        ScriptedClient client;
        (isEmpty ? client.isEmpty : client.isSkipped) = [](int) { return true; };
        client.hook = [](std::string const & operation, int) {
            if (operation == "ProcessFragment" || operation == "ApplyBlockChanges")
                ADD_FAILURE() << operation;
        };
        EXPECT_EQ(0, client.Run());
        EXPECT_EQ(startOfFirst + Lines{isEmpty ? "Empty block " : "!Worker.BlockInit()"} + unlockRead +
                      returnBlock() + blocksOver + Lines{"Work finished. Sending release signal."},
                  client.log.of("Worker 10000"));
    }
    Client failing(5);
    TraceLog log;
    failing.SetDebugLog(&log);
    failing.SetNParralelThreads(2);
    failing.hook = [](std::string const & operation, int) {
        if (operation == "Init")
            throw std::runtime_error("no device");
    };
    EXPECT_EQ(-1, failing.Run());
    for (char const * worker : {"Worker 10000", "Worker 10001"})
        EXPECT_EQ((Lines{"Initializing ...", "An ERROR occurred. Sending release signal."}), log.of(worker));
}

TEST(ThreadTracing, ALogThatThrowsEndsTheRunWhereverItDoes)
{
    for (int failingLine = 0; failingLine < 120; ++failingLine) {
        ScriptedClient client;
        client.hook = [](std::string const &, int) {};
        std::atomic<int> lines{0};
        client.log.onLine = [&](std::string const &) {
            if (lines++ >= failingLine)
                throw std::runtime_error("disk full");
        };
        int const status = client.Run();
        // The last line of a run is the manager's, so whichever line is refused first, the run fails.
        EXPECT_EQ(lines > failingLine ? -1 : 0, status) << failingLine;
        EXPECT_EQ(0, Fragment::living);
        client.SetDebugLog(nullptr);
        client.resetModel();
        EXPECT_EQ(0, client.Run());
        EXPECT_EQ(1, client.values[0]);
    }
}

TEST(BlockWorker, StandsAloneWithoutAProcessor)
{
    class Worker : public CBlockWorker
    {
    public:
        explicit Worker(bool ownProgress) : CBlockWorker(nullptr, ownProgress) {}
        int ProcessFragment(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override { return 0; }
        void BlockFinalize(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override {}
    } worker(false), owner(true);
    worker.Work();
    worker.ReturnBlockToManager(Block_iter());
    EXPECT_TRUE(!worker.GetReadMutex() && !worker.GetProgressCounter() && !worker.GetDebugLog());
    EXPECT_NE(nullptr, owner.GetProgressCounter());
}
