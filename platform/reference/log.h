// What the other parts of the platform need of the log.
#pragma once

#include <string>

namespace ozu::platform {

// Name under which this process logs; the program's name before ozulog_init.
std::string loggingName();
// Around a fork: no thread is writing a line then.
void lockLogForFork() noexcept;
void unlockLogAfterFork() noexcept;
// Back to the state before ozulog_init, for tests.
void forgetLog() noexcept;

} // namespace ozu::platform
