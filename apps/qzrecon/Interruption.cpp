// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/Interruption.h>

#include <QZmath/Files/PendingFiles.h>
#include <QZsys/Progress.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <signal.h>
#include <time.h>
#include <unistd.h>

namespace qz_recon
{

namespace
{

// Time for an interrupted operation to come to its next progress report. Together with the time that the
// system needs to take back the memory it has to stay well below 0.2 s.
long const st_graceNanoseconds = 20'000'000;

int const st_endingSignals[] = {SIGINT, SIGTERM, SIGHUP};

enum Stage
{
    working,
    interrupted,
    committing
};

std::atomic<CProgressCounter *> g_counter{nullptr};
std::atomic<int> g_stage{working};
timer_t g_timer;
char g_message[64] = "";

void onSignal(int)
{
    int const savedErrno = errno;
    int expected = working;
    if (g_stage.compare_exchange_strong(expected, interrupted)) {
        if (CProgressCounter * const counter = g_counter)
            counter->interrupt();
        itimerspec grace{};
        grace.it_value.tv_nsec = st_graceNanoseconds;
        timer_settime(g_timer, 0, &grace, nullptr);
    } else if (expected == interrupted) {
        Interruption::endNow(); // the grace is over, or the user insists
    }
    errno = savedErrno;
}

} // namespace

Interruption::Interruption(CProgressCounter & counter, char const * program)
{
    g_message[0] = '\0';
    if (program != nullptr)
        std::snprintf(g_message, sizeof(g_message), "\n%s: interrupted\n", program);
    g_stage = working;
    g_counter = &counter;
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    timer_create(CLOCK_MONOTONIC, &event, &g_timer);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    for (int const signal : st_endingSignals) {
        struct sigaction inherited = {};
        if (sigaction(signal, nullptr, &inherited) == 0 && inherited.sa_handler == SIG_IGN)
            continue; // nohup and background jobs of scripts are started so
        sigaction(signal, &action, nullptr);
    }
}

Interruption::~Interruption()
{
    signal(SIGALRM, SIG_IGN);
    for (int const number : st_endingSignals)
        signal(number, SIG_IGN);
    g_counter = nullptr;
    timer_delete(g_timer);
}

void Interruption::ignoreFromNowOn()
{
    int expected = working;
    if (!g_stage.compare_exchange_strong(expected, committing))
        endNow();
}

void Interruption::endNow()
{
    QZmath::PendingFiles::removeAllFromSignalHandler();
    if (write(STDERR_FILENO, g_message, std::strlen(g_message)) < 0) {
        // nobody is left to be told
    }
    _exit(st_exitInterrupted);
}

} // namespace qz_recon
