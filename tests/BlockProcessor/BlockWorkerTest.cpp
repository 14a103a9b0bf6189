// SPDX-License-Identifier: Apache-2.0
#include "BlockProcessor/BlockClients.h"

#include <gtest/gtest.h>
#include <support/Recorders.h>

#include <regex>
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

// A sleeper is woken by the end of a block in the run that succeeds, by the abort in those that fail.
TEST(ThreadTracing, SleepersWakeUpHoweverTheRunEnds)
{
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
    }
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
