// Every message of the panel's bus, with the sender's label, class and command.
#pragma once

#include "timeline.h"

#include <memory>
#include <string>

struct mosquitto;

namespace ozuctl {

// Listens from construction to destruction, through breaks of the broker; a break is a happening, too.
class BusListener {
  public:
    // Throws kUnreachable when the broker does not answer.
    BusListener(Timeline &timeline, const std::string &topic);
    ~BusListener();
    BusListener(const BusListener &) = delete;
    BusListener &operator=(const BusListener &) = delete;

  private:
    struct Session;
    std::unique_ptr<Session> session_;
};

} // namespace ozuctl
