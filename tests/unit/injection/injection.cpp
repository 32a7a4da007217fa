#include "injection.h"

#include "fake_platform.h"

#include <netdb.h>

#include <ares.h>

namespace ozu::test {

const std::map<std::string, std::vector<Failure>> &failures() {
    static const std::vector<Failure> kNoMemory = {{"fails with ENOMEM", ENOMEM, -1}};
    static const std::vector<Failure> kNoDescriptor = {{"fails with EMFILE", EMFILE, -1}};
    static const std::vector<Failure> kRefused = {{"fails with EACCES", EACCES, -1}};
    static const std::vector<Failure> kIoError = {{"fails with EIO", EIO, -1}};
    static const std::vector<Failure> kReading = {
        {"fails with EIO", EIO, -1}, {"fails with EINTR", EINTR, -1}, {"is at the end", 0, 0}};
    static const std::vector<Failure> kStatus = {{"returns 7", 0, 7}, {"returns -1", 0, -1}};
    static const std::vector<Failure> kIgnored = {{"returns -1", 0, -1}};
    static const std::map<std::string, std::vector<Failure>> kAll = {
        // memory
        {"malloc", kNoMemory},
        {"strdup", kNoMemory},
        {"setenv", kNoMemory},
        {"atexit", kNoMemory},
        {"getline", {{"fails with ENOMEM", ENOMEM, -1}, {"is at the end", 0, -1}}},
        // files
        {"access", kRefused},
        {"close", kIoError},
        {"fclose", kIoError},
        {"fopen", {{"fails with EMFILE", EMFILE, -1}}},
        {"lstat", kRefused},
        {"nftw", {{"fails with ENOENT", ENOENT, -1}, {"is stopped", 0, 3}}},
        {"open", kNoDescriptor},
        {"openat", {{"fails with ENOENT", ENOENT, -1}}},
        {"opendir", kNoDescriptor},
        {"closedir", kIoError},
        {"read", kReading},
        {"readdir", {{"fails with EIO", EIO, 0}}},
        {"remove", {{"fails with EBUSY", EBUSY, -1}}},
        {"setvbuf", {{"refuses", 0, -1}}},
        {"stat", {{"fails with ENOENT", ENOENT, -1}, {"fails with EOVERFLOW", EOVERFLOW, -1}}},
        {"symlink", {{"fails with EROFS", EROFS, -1}}},
        {"unlink", {{"fails with EROFS", EROFS, -1}}},
        {"write", {{"fails with ENOSPC", ENOSPC, 0}}}, // of a stream
        {"fread", {{"fails with EIO", EIO, 0}}},
        {"fgets", {{"fails with EIO", EIO, 0}}},
        {"fwrite", {{"fails with ENOSPC", ENOSPC, 0}}},
        {"fseek", {{"fails with EIO", EIO, -1}}},
        {"madvise", {{"fails with EINVAL", EINVAL, -1}}},
        // OpenSSL
        {"EVP_CIPHER_CTX_new", {{"returns null", 0, 0}}},
        {"EVP_CIPHER_CTX_set_padding", {{"returns 0", 0, 0}}},
        {"EVP_CipherFinal_ex", {{"returns 0", 0, 0}}},
        {"EVP_CipherInit_ex", {{"returns 0", 0, 0}}},
        {"EVP_CipherUpdate", {{"returns 0", 0, 0}}},
        {"RAND_bytes", {{"returns 0", 0, 0}, {"returns -1", 0, -1}}},
        // processes, kernel, clock
        {"fork", {{"fails with EAGAIN", EAGAIN, -1}}},
        {"kill", {{"fails with ESRCH", ESRCH, -1}}},
        {"localtime", {{"fails with EOVERFLOW", EOVERFLOW, -1}}},
        {"mktime", {{"fails with EOVERFLOW", EOVERFLOW, -1}}},
        {"pipe2", kNoDescriptor},
        {"select",
         {{"fails with EINTR", EINTR, -1}, {"times out", 0, 0}, {"tells of another descriptor", 0, 2}}},
        {"sleep", {{"is cut short", EINTR, 0}}},
        {"syscall", {{"fails with EPERM", EPERM, -1}, {"returns 0", 0, 0}, {"returns -2", EIO, -2}}},
        {"system", {{"fails with EAGAIN", EAGAIN, -1}, {"returns status 127", 0, 127 << 8}}},
        {"timegm", {{"fails with EOVERFLOW", EOVERFLOW, -1}}},
        // network
        {"gethostbyaddr", {{"fails with HOST_NOT_FOUND", HOST_NOT_FOUND, -1}}},
        {"gethostbyname", {{"fails with TRY_AGAIN", TRY_AGAIN, -1}}},
        {"getpeername", {{"fails with ENOTCONN", ENOTCONN, -1}}},
        {"if_indextoname", {{"fails with ENXIO", ENXIO, -1}}},
        {"ioctl", {{"fails with EPERM", EPERM, -1}, {"fails with ENODEV", ENODEV, -1}}},
        {"ppoll", {{"fails with EINTR", EINTR, -1}, {"times out", 0, 0}}},
        {"recv",
         {{"fails with ENOBUFS", ENOBUFS, -1}, {"fails with EINTR", EINTR, -1}, {"brings nothing", 0, 0}}},
        {"recvfrom",
         {{"fails with EAGAIN", EAGAIN, -1},
          {"fails with EINTR", EINTR, -1},
          {"brings nothing", 0, 0},
          {"brings 11 bytes", 0, 11}}},
        {"send", {{"fails with ENOBUFS", ENOBUFS, -1}}},
        {"sendto", {{"fails with ENETUNREACH", ENETUNREACH, -1}, {"fails with EPERM", EPERM, -1}}},
        {"setsockopt", {{"fails with ENOMEM", ENOMEM, -1}}},
        {"socket", kNoDescriptor},
        // c-ares
        {"ares_library_init", {{"fails with ARES_ENOMEM", 0, ARES_ENOMEM}}},
        {"ares_init_options",
         {{"fails with ARES_ENOMEM", 0, ARES_ENOMEM}, {"fails with ARES_EFILE", 0, ARES_EFILE}}},
        {"ares_set_servers", {{"fails with ARES_ENOMEM", 0, ARES_ENOMEM}}},
        {"ares_getsock", {{"knows no socket", 0, 0}}},
        {"answer",
         {{"fails with ARES_ENOTFOUND", 0, ARES_ENOTFOUND},
          {"never comes", 0, -1},
          {"has IPv6 addresses only", 0, -2}}},
        // the platform
        {"ozudb_getSharedMemory", {{"returns null", 0, -1}}},
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
