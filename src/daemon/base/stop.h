// Whether the process is about to end.
//
// A terminate message must not wait for a slow agent, a silent supervisor or a reader that keeps
// its lock. Whatever waits for somebody else therefore asks stopping() at least every kStopCheck,
// and gives up when it is true; its work then fails as if the other side had.
#pragma once

#include <chrono>

namespace tally {

inline constexpr std::chrono::milliseconds kStopCheck{200};

// stopping tells whether the process is about to end. Any thread may ask, as often as it likes. On
// the thread that called watch_for_stop it also looks for a terminate message, at most ten times a
// second.
bool stopping();

// stop makes stopping() true for good, on every thread.
void stop();

// watch_for_stop makes stopping() call `look` with `where` on the calling thread; true means that
// the process is to end. A null `look` ends the watch.
void watch_for_stop(bool (*look)(void* where), void* where);

}  // namespace tally
