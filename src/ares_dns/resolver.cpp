// Blocking lookups through c-ares, with primary and secondary servers and a fixed number of attempts.

#define OZU_LOG_SOURCE "src/ares_dns"

#include <utils_ozu/resolver.h>

#include <ares_dns/attempt.h>
#include <base/error_text.h>
#include <base/log.h>

#include <arpa/inet.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>

const int ARES_MAX_RETRY = 3;

namespace {

int libraryInitialised = 0;

bool isPresent(const char *text) noexcept {
    return text != nullptr && text[0] != '\0';
}

const char *orNull(const char *text) noexcept {
    return text != nullptr ? text : "null";
}

// The servers as c-ares takes them, primary first. The nodes point at each other, so the list stays in place.
class ServerList {
  public:
    // False when the text is not an address.
    bool add(const char *text) noexcept {
        ares_addr_node &node = nodes_[count_];
        node = {};
        node.family = AF_INET;
        if (inet_pton(AF_INET, text, &node.addr.addr4) != 1) {
            return false;
        }
        if (count_ != 0) {
            nodes_[count_ - 1].next = &node;
        }
        ++count_;
        return true;
    }
    [[nodiscard]] std::size_t count() const noexcept { return count_; }
    [[nodiscard]] ares_addr_node *first() noexcept { return nodes_; }

  private:
    ares_addr_node nodes_[2] = {};
    std::size_t count_ = 0;
};

// Owner of the channel of one attempt.
struct Channel {
    Channel() noexcept = default;
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;
    ~Channel() {
        if (handle != nullptr) {
            ares_cancel(handle);
            ares_destroy(handle);
        }
    }
    ares_channel handle = nullptr;
};

struct Question {
    const char *host;
    const char *iface;
    char *result;
};

bool answered(ares_channel channel, const char *result) noexcept {
    return ozu::ares::Wait_Ares(channel) == 0 && result[0] != '\0';
}

// One attempt on a channel of its own; true when it brought an address. Logs under the caller's name.
bool attemptOnce(const char *caller, const Question &question, ServerList &servers, ares_options &options,
                 int attempt) noexcept {
    question.result[0] = '\0';
    Channel channel;
    if (ozu::ares::Init_Ares_Channel(&channel.handle, &options, servers.first(), question.iface, attempt) !=
        0) {
        return false;
    }
    ares_gethostbyname(channel.handle, question.host, AF_INET, ozu::ares::callback, question.result);
    if (answered(channel.handle, question.result)) {
        return true;
    }
    if (servers.count() < 2) {
        return false;
    }
    OZU_LOG_AS(caller, OZULOG_WARNING,
               "First dns server failed to resolve, waiting for the second dns server! (internal attempt %d)",
               attempt + 1);
    if (answered(channel.handle, question.result)) {
        return true;
    }
    OZU_LOG_AS(caller, OZULOG_WARNING, "Second dns server failed to resolve, (internal attempt %d)",
               attempt + 1);
    return false;
}

void reportFailure(const Question &question) noexcept {
    if (question.iface != nullptr) {
        ozulog_printf_mqtt_transmission(OZULOG_REMOTE, "NETWORK: fail to retrieve host ip url[%s], iface[%s]",
                                        question.host, question.iface);
    } else {
        ozulog_printf_mqtt_transmission(OZULOG_REMOTE, "NETWORK: fail to retrieve host ip url[%s]",
                                        question.host);
    }
}

} // namespace

int ares_global_library_init(const char *tag) noexcept {
    if (libraryInitialised != 0) {
        return libraryInitialised;
    }
    const int status = ares_library_init(ARES_LIB_INIT_ALL);
    if (status != ARES_SUCCESS) {
        OZU_LOG(OZULOG_ERROR, "ares_library_init: %s", ares_strerror(status));
        return 0;
    }
    libraryInitialised = 1;
    if (isPresent(tag)) {
        OZU_LOG(OZULOG_INFO, "%s ares_library_init(): successful", tag);
    } else {
        OZU_LOG_TEXT(OZULOG_INFO, "ares_library_init(): successful");
    }
    return 1;
}

void ares_global_library_deinit(void) noexcept {
    if (libraryInitialised != 0) {
        ares_library_cleanup();
        libraryInitialised = 0;
    }
}

int nslookup_ares(const char *host, const char *iface, const char *primaryDns, const char *secondaryDns,
                  char *result) noexcept {
    if (ares_global_library_init(nullptr) == 0) {
        return -1;
    }
    if (!isPresent(primaryDns) && !isPresent(secondaryDns)) {
        OZU_LOG_TEXT(OZULOG_CRITICAL, "bad arguments: no dns");
        return -1;
    }
    if (!isPresent(host) || result == nullptr) {
        OZU_LOG_TEXT(OZULOG_CRITICAL, "Bad arguments");
        return -1;
    }
    OZU_LOG_SHORT(OZULOG_TRACE, "p_ns[%s] s_ns[%s]", orNull(primaryDns), orNull(secondaryDns));

    ServerList servers;
    for (const char *text : {primaryDns, secondaryDns}) {
        if (isPresent(text) && !servers.add(text)) {
            OZU_LOG(OZULOG_ERROR, "Invalid address family %s", ozu::errorText());
        }
    }
    if (servers.count() == 0) {
        OZU_LOG_TEXT(OZULOG_ERROR, "No valid dns servers provided");
        return -1;
    }

    const Question question = {host, iface, result};
    ares_options options = {};
    bool success = false;
    for (int attempt = 0; attempt < ARES_MAX_RETRY && !success; ++attempt) {
        success = attemptOnce(__func__, question, servers, options, attempt);
    }
    if (!success) {
        reportFailure(question);
    }
    if (result[0] == '\0') {
        OZU_LOG(OZULOG_ERROR, "Could not resolve [%s] ", host);
        return -1;
    }
    OZU_LOG(OZULOG_DEBUG, "Resolved [%s]", host);
    return 0;
}

int nslookup_ares_n(const char *host, const char *iface, const char *primaryDns, const char *secondaryDns,
                    char *result, int /*reserved*/, int tries) noexcept {
    int status = nslookup_ares(host, iface, primaryDns, secondaryDns, result);
    for (int call = 1; call < tries && status != 0; ++call) {
        status = nslookup_ares(host, iface, primaryDns, secondaryDns, result);
    }
    return status;
}
