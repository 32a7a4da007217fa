// Every message of the panel's bus, with the sender's label, class and command.
#pragma once

#include "timeline.h"

#include <memory>
#include <string>
#include <vector>

struct mosquitto;

namespace ozuctl {

// Listens from construction to destruction, through breaks of the broker; a break is a happening, too. The
// broker keeps what is sent while it cannot reach us, unless it dies and forgets: the line of its return says
// which.
class BusListener {
  public:
    // Throws kUnreachable when the broker does not answer, and advises the words of "otherwise", too.
    BusListener(Timeline &timeline, std::vector<std::string> topics, const std::string &otherwise = {});
    ~BusListener();
    BusListener(const BusListener &) = delete;
    BusListener &operator=(const BusListener &) = delete;

  private:
    struct Session;
    std::unique_ptr<Session> session_;
};

} // namespace ozuctl
