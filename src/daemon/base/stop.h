// Whether the process is about to end.
//
// A terminate message must not wait for a slow agent, a silent supervisor or a reader that keeps
// its lock. Whatever waits for somebody else therefore asks stopping() at least every kStopCheck,
// and gives up when it is true; what it was working on then fails as if the other side had.
#pragma once

#include <chrono>

namespace tally {

inline constexpr std::chrono::milliseconds kStopCheck{200};

// stopping tells whether the process is about to end. Any thread may ask, as often as it likes. On
// the thread of watch_for_stop it looks whether a message waits that asks for it, but not more
// often than every tenth of a second.
bool stopping();

// stop makes stopping() true for good, on every thread.
void stop();

// watch_for_stop tells where the calling thread is to look: `look` is handed `where` and returns
// true when the process is to end. Null ends it.
void watch_for_stop(bool (*look)(void* where), void* where);

}  // namespace tally
