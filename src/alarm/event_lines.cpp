// Lines of the security core, of sockets and of HTTP requests for the system event log.

#include <utils_ozu/partitions.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_event_log.h>

#include <cstdio>

namespace {

constexpr std::size_t kEventLine = 200;
constexpr std::size_t kHttpLine = 230;
constexpr std::size_t kHttpResult = 50;

constexpr int kLowestHttpStatus = 100; // below are the codes of the transfer library

} // namespace

int writeSecurityCmdToSystemLog(unsigned int cmd, unsigned int partition, const char *media) noexcept {
    const char *commandName = stringFromSec_cmd(cmd);
    const char *partitionName = stringFromSec_partition(partition);
    char line[kEventLine] = {};
    static_cast<void>(snprintf(line, sizeof line, "Command:=%s, Partition:=%s, Media:=%s", commandName,
                               partitionName, media));
    switch (cmd) {
    case SEC_CMD_ARM_PARTITION:
    case SEC_CMD_ARM_PARTITION_IMMEDIATE:
    case SEC_CMD_FORCE_ARM_PARTITION:
        return limited_log_system_event(SYSTEM_EVENT_ARM, SYSTEM_EVENT_SUBTYPE_COMMAND, line);
    case SEC_CMD_DISARM_PARTITION:
    case SEC_CMD_DISARM:
        return limited_log_system_event(SYSTEM_EVENT_DISARM, SYSTEM_EVENT_SUBTYPE_COMMAND, line);
    default: // every forced immediate arming is worth its line
        return LOG_system_event(SYSTEM_EVENT_SECURITY, line);
    }
}

int writeSecurityEventToSystemLog(unsigned int cmd, unsigned int partition, const char *media) noexcept {
    const char *commandName = stringFromSec_cmd(cmd);
    const char *partitionName = stringFromSec_partition(partition);
    char line[kEventLine] = {};
    static_cast<void>(snprintf(line, sizeof line, "SECURITY EVENT: Type [ %s ] Partition [ %s ] Media [ %s ]",
                               commandName, partitionName, media));
    if (cmd == SEC_PANIC_EVENT && partition == PARTITION_PANIC) {
        return limited_log_system_event(SYSTEM_EVENT_PANIC, SYSTEM_EVENT_SUBTYPE_PANIC, line);
    }
    return LOG_system_event(SYSTEM_EVENT_SECURITY, line);
}

int ozuutils_sysLogSocketPrinter(int socket, int opened) noexcept {
    sockaddr_in peer = {};
    socklen_t length = sizeof peer;
    static_cast<void>(getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &length));

    // The resolver may use the buffer of inet_ntoa.
    char address[INET_ADDRSTRLEN] = {};
    static_cast<void>(snprintf(address, sizeof address, "%s", inet_ntoa(peer.sin_addr)));
    const hostent *host = gethostbyaddr(&peer, sizeof peer, AF_INET);

    char line[kEventLine] = {};
    static_cast<void>(snprintf(line, sizeof line, "SOCKET %s: Server [ %s ] Port [ %d ] Name [ %s ]",
                               opened != 0 ? "OPEN" : "CLOSE", address, peer.sin_port,
                               host != nullptr ? host->h_name : "NONAME"));
    static_cast<void>(LOG_system_event(SYSTEM_EVENT_NETWORK, line));
    return 0;
}

int ozuutils_sysLogHTTPSPrinter(const char *action, const char *server, const char *iface,
                                int result) noexcept {
    char resultText[kHttpResult] = {};
    static_cast<void>(snprintf(resultText, sizeof resultText,
                               result >= kLowestHttpStatus ? "HTTP Status Code (%d)" : "CURL (%d)", result));
    char line[kHttpLine] = {};
    static_cast<void>(snprintf(line, sizeof line,
                               "HTTP: Action [ %s ] Server [ %s ] Iface [ %s ] Result [ %s ]", action, server,
                               iface[0] != '\0' ? iface : "<auto>", resultText));
    return LOG_system_event(SYSTEM_EVENT_NETWORK, line);
}
