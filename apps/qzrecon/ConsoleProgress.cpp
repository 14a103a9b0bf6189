// SPDX-License-Identifier: Apache-2.0
#include <apps/qzrecon/ConsoleProgress.h>

#include <apps/qzrecon/PhaseNames.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace qz_recon
{

namespace
{

std::size_t terminalWidth()
{
    winsize size{};
    bool const isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : 80;
}

} // namespace

ConsoleProgress::Display ConsoleProgress::fittingDisplay()
{
    // A bar is drawn over itself, which not every terminal can.
    char const * const terminal = std::getenv("TERM");
    bool const canErase = terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
    return canErase && isatty(STDERR_FILENO) ? Display::bar : Display::lines;
}

ConsoleProgress::ConsoleProgress(Display display) : m_display(display)
{
    if (m_display == Display::bar)
        m_painter = std::thread([this] { keepDrawing(); });
}

ConsoleProgress::~ConsoleProgress() { finish(); }

void ConsoleProgress::onPhaseName(std::string const & name) { enterPhase(plainPhaseName(name)); }

void ConsoleProgress::enterPhase(std::string const & name)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_phase = name;
    if (m_display == Display::lines && !name.empty())
        std::fprintf(stderr, "%8.2f s  %s\n", secondsSince(m_start), name.c_str());
    if (m_display == Display::bar && !m_finished)
        drawLocked();
}

void ConsoleProgress::finish()
{
    enterPhase("");
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        if (m_finished)
            return;
        m_finished = true;
    }
    if (m_display == Display::bar) {
        m_wake.notify_all();
        m_painter.join();
        std::fputs("\r\033[K", stderr);
    }
}

void ConsoleProgress::keepDrawing()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr); // signals belong to the threads that work
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_finished) {
        drawLocked();
        m_wake.wait_for(lock, std::chrono::milliseconds(200));
    }
}

void ConsoleProgress::drawLocked() const
{
    int const width = 30;
    double const position = getPosFloat();
    int const filled = static_cast<int>(position * width);
    std::string bar(static_cast<std::size_t>(width), '-');
    for (int i = 0; i < filled && i < width; ++i)
        bar[static_cast<std::size_t>(i)] = '#';
    char line[160];
    std::snprintf(line, sizeof(line), "[%s] %3d%%  %.1f s  %s", bar.c_str(), static_cast<int>(position * 100),
                  secondsSince(m_start), m_phase.c_str());
    // A longer line would wrap, and the next one could not be drawn over it.
    std::string shown(line);
    shown.resize(std::min(shown.size(), terminalWidth() - 1));
    std::fprintf(stderr, "\r\033[K%s", shown.c_str());
    std::fflush(stderr);
}

double ConsoleProgress::secondsSince(Clock::time_point start) const
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace qz_recon
