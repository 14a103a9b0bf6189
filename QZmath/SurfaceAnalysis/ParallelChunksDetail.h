// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

class CProgressCounter;

namespace REmath::Detail
{

/// How many threads `forChunks` takes: one per core that the process may use, but none without a chunk of its
/// own; at least 1.
int threadsForChunks(int chunkCount);

/// Calls `work(thread, chunk)` once for every chunk from 0 on, in rising order on each of `threads` threads;
/// which thread gets which chunk is open. One thread is the calling one. `progress` can be null; its
/// operations run on the calling thread. What they and the work throw ends the other threads at their next
/// chunk and is rethrown.
void forChunks(int chunkCount, int threads, CProgressCounter * progress,
               std::function<void(int, int)> const & work);

} // namespace REmath::Detail
