// SPDX-License-Identifier: Apache-2.0
#include "BlockProcessor/BlockClients.h"

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <regex>
#include <sstream>
#include <stdexcept>

using namespace BlockProc;

namespace
{

using Lines = std::vector<std::string>;

// Keeps the lines with "%p" for addresses.
class TraceLog : public qz_test::LogRecorder
{
public:
    void getMessage(char const * text) override
    {
        static std::regex const pattern("0x[0-9a-f]+|\\(nil\\)");
        LogRecorder::getMessage(std::regex_replace(text, pattern, "%p").c_str());
    }
};

std::string const mgr = "[DEBUG_THREADS] Manager: ", w0 = "[DEBUG_THREADS] Worker 10000: ",
                  w1 = "[DEBUG_THREADS] Worker 10001: ";

// One block for two workers, where the first gets it and waits until the second sleeps.
class ScriptedClient : public Client
{
public:
    ScriptedClient() : Client(1)
    {
        SetNParralelThreads(2);
        SetImmediateBlockModify(true);
        SetExtractBlock(true);
        SetDebugLog(&log);
        hook = [this](std::string const & operation, int) {
            if (operation == "ProcessFragment")
                log.await(w1 + "Leave mutex %p for getting block");
        };
        log.onLine = [this](std::string const & line) {
            if (line == w1 + "Initializing ...")
                log.await(w0 + "Processing block %p");
        };
    }

    TraceLog log;
};

// The texts that are documented for readers of logs, whoever speaks and in whichever order.
char const * const documentedTexts =
    "AbortEvent caught|One more finished block detected|Raising EBlockAlgError( QZ_STATUS_USER_INTR )|"
    "Raising EBlockAlgError( QZ_STATUS_UNEXPECTED_ERR )|Sending aborting signal to worker 10000|"
    "Sending aborting signal to worker 10001|Thread stuff finished|Waking up idle worker ID = 10001|"
    "Waking up idles done.|Waking up idles...|Worker 10000 successfully aborted|"
    "Worker 10001 successfully aborted|Worker ID=10000 worker released|Worker ID=10001 worker released|"
    "Manager state before locking next block|Manager state before unblocking block|"
    "Manager state after UnLocking block|Initializing ...|Work finished. Sending release signal.|"
    "An ERROR occurred. Sending release signal.|Blocks over|Enter mutex %p for unlock block|"
    "Leave mutex %p for getting block|Leave mutex %p for unlock block|No free blocks, going to sleep...|"
    "Reporting that block finished, one can try to wake up idle workers...|"
    "Trying to lock manager before exclusive block locking/returning...|Waked up after sleep|"
    "Waked up by abort event. Quit job.|Unexpected error in BlockProc::CBlockWorker::Work()|"
    "ERROR during BlockProcessCore|!Worker.BlockInit()|All mutexes locked due to updating block|"
    "Block extraction finished|Empty block |Entered mutex for updating huge model|"
    "Entered read mutex %p for extracting from huge model|"
    "Entering write mutex %p for init un-shared block init|Extracting block %p|"
    "Leaving read mutex %p for extracting from huge model|"
    "Leaving write mutex %p for init un-shared block init|Locking all mutexes due to updating block|"
    "Processing block %p|Unlocking all mutexes caused by updating block|Update completed|"
    "Updating huge model block %p|All mutexes locked by locker %p|All mutexes unlocked by locker %p|"
    "Destructor of locker %p entered|Going to lock 2 mutexes|Going to unlock 2 mutexes|"
    "Going to unlock all mutexes|Locking mutex %p|Locking mutex number 0|Locking mutex number 1|"
    "Locking single mutex %p.|Mutex %p locked|Single mutex %p locked.|Unlock of locker %p entered|"
    "Unlocking mutex %p|Unlocking mutex number 0|Unlocking mutex number 1|Unlocking single mutex %p|";

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
    EXPECT_EQ((Lines{"[DEBUG_THREADS] Worker -3: a text", "[DEBUG_THREADS] Worker 2: 17 mutexes", mgr + "%p",
                     mgr + text.substr(0, 255), "[DEBUG_THREADS] Worker 1: " + text}),
              log.lines());
}

// Runs that succeed, fail, are interrupted, skip their block and cannot begin: between them they say all that
// there is to say. A sleeper is woken by the end of a block in the first, by the abort in the failing ones.
TEST(ThreadTracing, RunsSayWhatIsDocumentedAndSleepersWakeUp)
{
    std::set<std::string> said, documented;
    std::istringstream texts(documentedTexts);
    for (std::string text; std::getline(texts, text, '|');)
        documented.insert(text);
    auto const collect = [&said](TraceLog & log) {
        for (std::string const & line : log.lines())
            said.insert(line.substr(line.find(": ") + 2));
    };
    for (int const status : {0, 3, 10}) {
        ScriptedClient client;
        client.needsUnsharedInit = true;
        client.status = [&](int) { return status; };
        auto const waitForSecond = client.log.onLine;
        client.log.onLine = [&](std::string const & line) {
            waitForSecond(line);
            if (status == 0 && line == w0 + "Work finished. Sending release signal.") {
                client.log.await(mgr + "Waking up idles done.");
            } else if (line == w0 + "ERROR during BlockProcessCore") {
                client.SetAbortEvent();
                client.log.await(w1 + "Waked up by abort event. Quit job.");
            }
        };
        EXPECT_EQ(status == 3 ? -1 : status, client.Run());
        EXPECT_TRUE(client.inWork.empty()); // also a block that failed was returned
        EXPECT_EQ(0, Fragment::living);
        collect(client.log);
    }
    for (bool const isEmpty : {false, true}) {
        ScriptedClient client;
        client.hook = doNothing;
        (isEmpty ? client.isEmpty : client.isSkipped) = [](int) { return true; };
        EXPECT_EQ(0, client.Run() + client.values[0]);
        collect(client.log);
    }
    ScriptedClient failing;
    failing.log.onLine = nullptr;
    failing.hook = [](std::string const & operation, int) {
        if (operation == "Init")
            throw std::runtime_error("no device");
    };
    EXPECT_EQ(-1, failing.Run());
    collect(failing.log);
    EXPECT_EQ(documented, said);

    ScriptedClient serial;
    serial.hook = doNothing;
    serial.SetNParralelThreads(1);
    EXPECT_EQ(0, serial.Run());
    EXPECT_TRUE(serial.log.lines().empty());
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
    EXPECT_EQ(mgr + "Raising EBlockAlgError( QZ_STATUS_UNEXPECTED_ERR )", log.lines().back());
}

TEST(ThreadTracing, ALogThatThrowsEndsTheRunWhereverItDoes)
{
    for (int failingLine = 0; failingLine < 120; ++failingLine) {
        ScriptedClient client;
        client.hook = doNothing;
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
        Worker() : CBlockWorker(nullptr, false) {}
        int ProcessFragment(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override { return 0; }
        void BlockFinalize(IVescaFragmentDescriptor_Old &, IVescaFragment_Old *) override {}
    } worker;
    worker.Work();
    worker.ReturnBlockToManager(Block_iter());
}
