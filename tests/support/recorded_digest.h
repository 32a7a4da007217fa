// A digest of answers and of what the fake platform recorded on the way: log lines, calls, messages.
//
// A statement draws one random number at most and makes one call that is recorded: what comes first within a
// statement is the compiler's choice.
#pragma once

#include "digest.h"
#include "fake_platform.h"

namespace ozu::test {

class RecordedDigest {
  public:
    // What was recorded is forgotten.
    template <typename... Answers>
    void add(const Answers &...answers) {
        (digest_.add(answers), ...);
        for (const LogLine &line : platform().log) {
            digest_.add(line.level);
            digest_.add(line.text);
            digest_.add(line.source + ' ' + line.function);
        }
        for (const std::string &call : platform().calls()) {
            digest_.add(call);
        }
        for (const PublishedMessage &message : platform().published) {
            digest_.add(message.payload);
        }
        platform().log.clear();
        platform().journal.clear();
        platform().published.clear();
    }
    void print(const std::string &what) const { digest_.print(what); }

  private:
    Digest digest_;
};

} // namespace ozu::test
