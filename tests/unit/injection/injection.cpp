#include "injection.h"

#include "fake_platform.h"

#include <netdb.h>

#include <ares.h>

namespace ozu::test {

const std::map<std::string, std::vector<Failure>> &failures() {
    static const std::vector<Failure> kNoMemory = {{"ENOMEM", ENOMEM, -1}};
    static const std::vector<Failure> kNoDescriptor = {{"EMFILE", EMFILE, -1}};
    static const std::vector<Failure> kRefused = {{"EACCES", EACCES, -1}};
    static const std::vector<Failure> kIoError = {{"EIO", EIO, -1}};
    static const std::vector<Failure> kReading = {{"EIO", EIO, -1}, {"EINTR", EINTR, -1}, {"end", 0, 0}};
    static const std::vector<Failure> kStatus = {{"status 7", 0, 7}, {"status -1", 0, -1}};
    static const std::vector<Failure> kIgnored = {{"status -1", 0, -1}};
    static const std::map<std::string, std::vector<Failure>> kAll = {
        // memory
        {"malloc", kNoMemory},
        {"strdup", kNoMemory},
        {"setenv", kNoMemory},
        {"atexit", kNoMemory},
        {"getline", {{"ENOMEM", ENOMEM, -1}, {"end", 0, -1}}},
        // files
        {"access", kRefused},
        {"close", kIoError},
        {"fclose", kIoError},
        {"fopen", {{"EMFILE", EMFILE, -1}}},
        {"lstat", kRefused},
        {"nftw", {{"ENOENT", ENOENT, -1}, {"stopped", 0, 3}}},
        {"open", kNoDescriptor},
        {"openat", {{"ENOENT", ENOENT, -1}}},
        {"opendir", kNoDescriptor},
        {"closedir", kIoError},
        {"read", kReading},
        {"readdir", {{"EIO", EIO, 0}}},
        {"remove", {{"EBUSY", EBUSY, -1}}},
        {"setvbuf", {{"refused", 0, -1}}},
        {"stat", {{"ENOENT", ENOENT, -1}, {"EOVERFLOW", EOVERFLOW, -1}}},
        {"symlink", {{"EROFS", EROFS, -1}}},
        {"unlink", {{"EROFS", EROFS, -1}}},
        {"write", {{"ENOSPC", ENOSPC, 0}}}, // of a stream
        {"fread", {{"EIO", EIO, 0}}},
        {"fgets", {{"EIO", EIO, 0}}},
        {"fwrite", {{"ENOSPC", ENOSPC, 0}}},
        {"fseek", {{"EIO", EIO, -1}}},
        {"madvise", {{"EINVAL", EINVAL, -1}}},
        // OpenSSL
        {"EVP_CIPHER_CTX_new", {{"null", 0, 0}}},
        {"EVP_CIPHER_CTX_set_padding", {{"0", 0, 0}}},
        {"EVP_CipherFinal_ex", {{"0", 0, 0}}},
        {"EVP_CipherInit_ex", {{"0", 0, 0}}},
        {"EVP_CipherUpdate", {{"0", 0, 0}}},
        {"RAND_bytes", {{"0", 0, 0}, {"-1", 0, -1}}},
        // processes, kernel, clock
        {"fork", {{"EAGAIN", EAGAIN, -1}}},
        {"kill", {{"ESRCH", ESRCH, -1}}},
        {"localtime", {{"EOVERFLOW", EOVERFLOW, -1}}},
        {"mktime", {{"EOVERFLOW", EOVERFLOW, -1}}},
        {"pipe2", kNoDescriptor},
        {"select", {{"EINTR", EINTR, -1}, {"timeout", 0, 0}, {"another descriptor", 0, 2}}},
        {"sleep", {{"cut short", EINTR, 0}}},
        {"syscall", {{"EPERM", EPERM, -1}, {"nothing", 0, 0}, {"-2", EIO, -2}}},
        {"system", {{"EAGAIN", EAGAIN, -1}, {"status 127", 0, 127 << 8}}},
        {"timegm", {{"EOVERFLOW", EOVERFLOW, -1}}},
        // network
        {"gethostbyaddr", {{"HOST_NOT_FOUND", HOST_NOT_FOUND, -1}}},
        {"gethostbyname", {{"TRY_AGAIN", TRY_AGAIN, -1}}},
        {"getpeername", {{"ENOTCONN", ENOTCONN, -1}}},
        {"if_indextoname", {{"ENXIO", ENXIO, -1}}},
        {"ioctl", {{"EPERM", EPERM, -1}, {"ENODEV", ENODEV, -1}}},
        {"ppoll", {{"EINTR", EINTR, -1}, {"timeout", 0, 0}}},
        {"recv", {{"ENOBUFS", ENOBUFS, -1}, {"EINTR", EINTR, -1}, {"empty", 0, 0}}},
        {"recvfrom", {{"EAGAIN", EAGAIN, -1}, {"EINTR", EINTR, -1}, {"empty", 0, 0}, {"11 bytes", 0, 11}}},
        {"send", {{"ENOBUFS", ENOBUFS, -1}}},
        {"sendto", {{"ENETUNREACH", ENETUNREACH, -1}, {"EPERM", EPERM, -1}}},
        {"setsockopt", {{"ENOMEM", ENOMEM, -1}}},
        {"socket", kNoDescriptor},
        // c-ares
        {"ares_library_init", {{"ARES_ENOMEM", 0, ARES_ENOMEM}}},
        {"ares_init_options", {{"ARES_ENOMEM", 0, ARES_ENOMEM}, {"ARES_EFILE", 0, ARES_EFILE}}},
        {"ares_set_servers", {{"ARES_ENOMEM", 0, ARES_ENOMEM}}},
        {"ares_getsock", {{"no sockets", 0, 0}}},
        {"answer", {{"ARES_ENOTFOUND", 0, ARES_ENOTFOUND}, {"none", 0, -1}, {"IPv6 only", 0, -2}}},
        // the platform
        {"ozudb_getSharedMemory", {{"null", 0, -1}}},
        {"ozudb_getSeverityNameByProcName", kStatus},
        {"ozudb_addProc2Log", kStatus},
        {"ozudb_updatePanelRebootReason", kStatus},
        {"ozudb_isInFlightData", kIgnored},
        {"ozudb_ModifyModemStatistics", kIgnored},
        {"ozudb_ModifyBypassExpiry", kIgnored},
        {"ozulog_init", kStatus},
        {"mqttc_connect", kStatus},
        {"ozumqttc_topicSubscribe", kStatus},
        {"ozumqttc_messagePublish", kStatus},
        {"LOG_system_event", kStatus},
        {"limited_log_system_event", kStatus},
        {"MESSENGER_SendTBBEvent", kIgnored},
    };
    return kAll;
}

Injection &injection() {
    static Injection instance;
    return instance;
}

void Injection::begin(int position, std::size_t way, bool onwards) {
    *this = Injection();
    position_ = position;
    way_ = way;
    onwards_ = onwards;
    // The fake platform's functions tell of themselves.
    for (const auto &entry : failures()) {
        const std::string &name = entry.first;
        if (name == "ozudb_getSharedMemory") {
            platform().onCall[name] = [name] {
                platform().stateMissing = injection().enter(name) != nullptr;
            };
        } else {
            platform().onCall[name] = [name] {
                if (const Failure *failure = injection().enter(name)) {
                    platform().queuedResults[name].push_back(static_cast<int>(failure->value));
                }
            };
        }
    }
    active_ = true;
}

const Failure *Injection::enter(const std::string &call) {
    if (!active_) {
        return nullptr;
    }
    const int at = static_cast<int>(calls_.size());
    calls_.push_back(call);
    if (at == position_) {
        return &failures().at(call).at(way_);
    }
    return onwards_ && position_ >= 0 && at > position_ ? &failures().at(call).front() : nullptr;
}

} // namespace ozu::test
