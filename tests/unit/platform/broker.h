// A real broker on a free port of the loopback interface.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <vector>

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
    void freeze(); // its port stays open, nobody answers
    void thaw();
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
// Accepts and closes connections until there were so many. @return when each of them came
std::vector<std::chrono::steady_clock::time_point> turnAway(int listener, std::size_t connections);
// Answers the first packet of one connection, and closes it.
void answerOnce(int listener, const std::string &answer);
// Serves one session on a listener as a broker that grants no subscription. @return how many it refused
int serveRefusingSubscriptions(int listener);
// Serves one session after the other as a broker that ends each in which it meets a certain payload, or is
// asked for a topic of that name, without a word, until it is over. With each other subscription comes a
// message. A protest is what it answers to that payload instead of ending the session. @return the other
// payloads that it has acknowledged
std::set<std::string> serveUnableToBear(int listener, const std::string &payload,
                                        const std::atomic<bool> &over, const std::string &protest = "");

} // namespace ozu::test
