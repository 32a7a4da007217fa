// Runs a child process under a supervisor that lets its system calls fail, whoever makes them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ozu::test {

struct CallFailure {
    int from = 0;  // number of the first call that fails, from 1; 0: none
    int error = 0; // what it fails with
    int times = 1; // so many calls in a row; kForEver: every call from there on
};
inline constexpr int kForEver = 0;

struct FailureRun {
    std::vector<long> calls; // that could have failed: their numbers with the kernel, in order
    int status = 0;          // of the child: its exit status, or minus the signal that ended it
    bool late = false;       // ended by the supervisor because it did not end by itself
};

// The kernel lets an ordinary process supervise the calls of its child.
bool callsCanFail();
// Calls of the child's own children are left alone.
FailureRun runWithFailure(const CallFailure &failure, const std::function<int()> &body);
// What the manual says that a call of this number fails with, and of these what the file systems, sockets and
// memory in use can give.
const std::vector<int> &errorsOf(long call);
// How often in a row a call that fails so is to fail: what is tried again may fail again.
const std::vector<int> &timesOf(int error);
std::string wordsFor(const CallFailure &failure); // "call 7: No space left on device, 2 times"

} // namespace ozu::test
