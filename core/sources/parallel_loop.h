#ifndef QUILLMERE_CORE_SOURCES_PARALLEL_LOOP_H_
#define QUILLMERE_CORE_SOURCES_PARALLEL_LOOP_H_

#include <cstddef>
#include <functional>

namespace quillmere::ParallelLoop {

// Calls `body(i)` once for every i in [0, count): on the calling thread and on up to
// `maxHelpers` further threads (fewer on a machine with fewer cores), each taking the next
// index not yet taken. `tick(i)` is called on the calling thread only, before every
// `tickEvery`-th index it takes (the first included), with that index.
// Requires: `body` is safe to call from several threads at once for different indices.
// Failure: once a call throws, no further index is started; when every thread has stopped,
// the first exception is rethrown on the calling thread.
void run(std::size_t count, const std::function<void(std::size_t)>& body,
         const std::function<void(std::size_t)>& tick = {}, std::size_t tickEvery = 200,
         unsigned maxHelpers = 3);

}  // namespace quillmere::ParallelLoop

#endif  // QUILLMERE_CORE_SOURCES_PARALLEL_LOOP_H_
