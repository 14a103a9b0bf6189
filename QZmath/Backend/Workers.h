// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace QzBackend
{

// The calls of oneTBB on which the loops of Parallel.h stand, and nothing else: whoever wants loops includes
// that header.

using Call = void (*)(void * context);
using SeatCall = void (*)(void * context, int seat);

/// The threads that the pool has without further ado: one for each core of the process, the calling thread
/// among them.
int defaultPoolSize();

/// Lets the pool have this many threads, the calling one among them: more or less than the default number.
/// The pool never ends a thread that it has begun; those above the limit sleep.
void setPoolSize(int threads);

/// Calls call(context) on the calling thread, in a place of `threads` seats that workers of the pool can
/// join.
void callAmongWorkers(int threads, Call call, void * context);

/// Calls call(context, seat) for 0 <= seat < seats, each once, in any order, on the calling thread and on the
/// workers that have come; inside `callAmongWorkers`. `call` throws nothing.
///
/// The pool throws when a thread of it cannot be made, or ends the process: see to it that it can.
void callOnSeats(int seats, SeatCall call, void * context);

} // namespace QzBackend
