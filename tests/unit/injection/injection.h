// Failing every call once, and everything from one call on.
//
// A scenario is one use of the library. It runs once undisturbed, which shows the calls it makes of the C
// library, the platform and c-ares; then it runs again for each of these calls and each way in which that
// call can fail. What comes of it - result, outputs, log lines, descriptors, children, memory - is compared
// with the outcomes written down beside this file.
#pragma once

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace ozu::test {

// One way in which a call fails.
struct Failure {
    const char *words; // after the call's name: "fails with EMFILE"
    int error;         // errno
    long value;        // its result, where that is a number
};

// By call, the first being the usual one.
const std::map<std::string, std::vector<Failure>> &failures();

class Injection {
  public:
    // Starts a run: the call at a position (from 0; negative for none) fails in the way given, and with
    // onwards all after it in their usual ways.
    void begin(int position, std::size_t way, bool onwards);
    void end() { active_ = false; }
    // A call is made: how it has to fail, or null.
    const Failure *enter(const std::string &call);

    // What a scenario does itself between pause and resume is not disturbed.
    void pause() { active_ = false; }
    void resume() { active_ = true; }

    // The calls of the run, in order.
    [[nodiscard]] const std::vector<std::string> &calls() const { return calls_; }
    void forgetCalls() { calls_.clear(); }
    [[nodiscard]] bool active() const { return active_; }

    std::set<const void *> memory; // blocks that the library allocated and has not freed
    int streams = 0;               // open ones of its own
    int channels = 0;              // open ones of c-ares

  private:
    bool active_ = false;
    int position_ = -1;
    std::size_t way_ = 0;
    bool onwards_ = false;
    std::vector<std::string> calls_;
};

Injection &injection();

// Makes a call, or fails it as the run wants.
template <typename Call>
auto orFail(const char *name, Call call) -> decltype(call()) {
    const Failure *failure = injection().enter(name);
    if (failure == nullptr) {
        return call();
    }
    errno = failure->error;
    if constexpr (std::is_pointer_v<decltype(call())>) {
        return nullptr;
    } else {
        return static_cast<decltype(call())>(failure->value);
    }
}

// What wrapped calls work on: made new for each run.
void resetWorld();
// Files in place of the panel's own.
std::string worldFile(const std::string &name);
// What a child of a forked command left: reaped here.
void reapChildren();

} // namespace ozu::test
