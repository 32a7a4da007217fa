// A real broker on a free port of the loopback interface.
#pragma once

#include <sys/types.h>

#include <string>

namespace ozu::test {

class Broker {
  public:
    // Extra lines for its configuration; "allow_anonymous true" unless they say otherwise.
    explicit Broker(std::string folder, const std::string &configuration = "");
    ~Broker();
    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;

    void start();
    void stop(int signal);
    [[nodiscard]] int port() const { return port_; }
    static bool available();

  private:
    std::string folder_;
    int port_ = 0;
    pid_t process_ = 0;
};

// A port of the loopback interface that was free a moment ago.
int freePort();
// Listens there, accepts nothing and answers nothing. @return the descriptor
int listenSilently(int port);
// Serves one session on a listener as a broker that grants no subscription. @return how many it refused
int serveRefusingSubscriptions(int listener);

} // namespace ozu::test
