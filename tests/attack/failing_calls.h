// Runs a child process under a supervisor that lets its system calls fail, whoever makes them.
#pragma once

#include <functional>

namespace ozu::test {

struct Failure {
    int from = 0;     // number of the first call that fails, from 1; 0: none
    int error = 0;    // what it fails with
    bool once = true; // that one alone, or every call from there on
};

struct FailureRun {
    int calls = 0;     // that could have failed
    int status = 0;    // of the child: its exit status, or minus the signal that ended it
    bool late = false; // ended by the supervisor because it did not end by itself
};

// The kernel lets an ordinary process supervise the calls of its child.
bool callsCanFail();
FailureRun runWithFailure(const Failure &failure, const std::function<int()> &body);

} // namespace ozu::test
