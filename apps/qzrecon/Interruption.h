// SPDX-License-Identifier: Apache-2.0
#pragma once

class CProgressCounter;

namespace qz_recon
{

int const st_exitInterrupted = 130;

/// What SIGINT, SIGTERM and SIGHUP do to the program: the first one asks the counter to interrupt the
/// operation, and if that has not ended the program shortly after, it is ended in the middle; a second one
/// ends it at once. Either way files that are not committed are removed and the exit code is 130. One object
/// at a time.
class Interruption
{
public:
    /// \param program its name in the message on the end; null for none
    explicit Interruption(CProgressCounter & counter, char const * program = "qzrecon");
    ~Interruption();
    Interruption(Interruption const &) = delete;
    Interruption & operator=(Interruption const &) = delete;

    /// Call right before the result is moved to its place: from here on signals are ignored, as the work is
    /// done. If one has come before, the program ends here.
    static void ignoreFromNowOn();

    /// Removes uncommitted files and ends the program.
    [[noreturn]] static void endNow();
};

} // namespace qz_recon
