// Commands that go on until they are stopped end in good order on SIGINT and SIGTERM.
#pragma once

namespace ozuctl {

void stopOnSignals();
bool stopped();

} // namespace ozuctl
