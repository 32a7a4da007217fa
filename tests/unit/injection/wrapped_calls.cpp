// The C library as the library under test sees it: real where that harms nobody, canned where it would reach
// beyond the test.
#include "injection.h"

#include "fake_platform.h"
#include "test_files.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/route.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "reboot_end.h"

namespace ozu::test {

namespace {

struct World {
    World() {
        writeFile(folder.file("version"), "1.2.3\n");
        writeFile(folder.file("cmdline"), std::string("panel_core\0-v\0", 14));
        writeFile(folder.file("kernel"), "quiet androidboot.serialno=1A2B3C4D\n");
        writeFile(folder.file("countries"), "# names\nUtopia,UT,UTO,123\n");
    }
    TemporaryDirectory folder;
    int routesAdded = 0;
    int repliesRead = 0;
    int entriesRead = 0;
    int commands = 0;
    time_t now = 1700000000;
    std::string kernelLog = "<6>first\n<6>usb 1-1: new device\n";
    std::vector<pid_t> children;
};
std::unique_ptr<World> world;

in_addr address(const char *text) {
    return {inet_addr(text)};
}

// One host, for whoever asks.
hostent *host() {
    static in_addr number;
    static std::array<char *, 2> list;
    static char name[] = "host.test";
    static hostent entry;
    number = address("10.1.2.3");
    list = {reinterpret_cast<char *>(&number), nullptr};
    entry = {};
    entry.h_name = name;
    entry.h_addrtype = AF_INET;
    entry.h_length = sizeof number;
    entry.h_addr_list = list.data();
    return &entry;
}

// The reply to the question for the host "a.b": one address.
constexpr std::array<unsigned char, 37> kDnsReply = {
    0x12, 0x34, 0x81, 0x80, 0, 1, 0, 1, 0, 0,  0, 0,               // header
    1,    'a',  1,    'b',  0, 0, 1, 0, 1,                         // question
    0xC0, 0x0C, 0,    1,    0, 1, 0, 0, 0, 60, 0, 4, 10, 9, 8, 7}; // answer

// A dump with one route, through interface 1 by 192.168.7.1.
struct RouteReply {
    nlmsghdr header = {sizeof(RouteReply), RTM_NEWROUTE, NLM_F_MULTI, 0, 0};
    rtmsg route = {AF_INET, 0, 0, 0, RT_TABLE_MAIN, 0, 0, 0, 0};
    rtattr gateway = {8, RTA_GATEWAY};
    in_addr gatewayAddress = address("192.168.7.1");
    rtattr interface = {8, RTA_OIF};
    std::uint32_t interfaceIndex = 1;
};
struct DoneReply {
    nlmsghdr header = {sizeof(DoneReply), NLMSG_DONE, NLM_F_MULTI, 0, 0};
    std::uint32_t status = 0;
};

void listInterfaces(ifconf &list) {
    ifreq record = {};
    memcpy(list.ifc_buf, &record, sizeof record); // one without flags and hardware address
    strcpy(record.ifr_name, "eth0");
    memcpy(list.ifc_buf + sizeof record, &record, sizeof record);
    list.ifc_len = 2 * sizeof record;
}

void setAddress(sockaddr &field, const char *text) {
    sockaddr_in value = {};
    value.sin_family = AF_INET;
    value.sin_addr = address(text);
    memcpy(&field, &value, sizeof value);
}

int answerIoctl(unsigned long request, void *argument) {
    auto *interface = static_cast<ifreq *>(argument);
    static constexpr char kHardware[] = {0x00, 0x11, 0x22, 0x0A, 0x0B, 0x0C};
    switch (request) {
    case SIOCGIFADDR:
        setAddress(interface->ifr_addr, "192.168.7.20");
        return 0;
    case SIOCGIFBRDADDR:
        setAddress(interface->ifr_broadaddr, "192.168.7.255");
        return 0;
    case SIOCGIFCONF:
        listInterfaces(*static_cast<ifconf *>(argument));
        return 0;
    case SIOCGIFFLAGS:
        interface->ifr_flags = interface->ifr_name[0] == '\0' ? IFF_LOOPBACK : IFF_UP;
        return 0;
    case SIOCGIFHWADDR:
        memcpy(interface->ifr_hwaddr.sa_data, kHardware, sizeof kHardware);
        return 0;
    case SIOCADDRT: // the second time it is there
        if (world->routesAdded++ == 0) {
            return 0;
        }
        errno = EEXIST;
        return -1;
    case SIOCDELRT:
        return 0;
    default:
        ADD_FAILURE() << "request " << request;
        return -1;
    }
}

ssize_t writeStream(void *, const char *, std::size_t size) {
    return orFail("write", [size] { return static_cast<ssize_t>(size); });
}
int closeStream(void *) {
    --injection().streams;
    return 0;
}

} // namespace

void resetWorld() {
    world = std::make_unique<World>();
}

std::string worldFile(const std::string &name) {
    return world->folder.file(name);
}

void reapChildren() {
    for (const pid_t child : world->children) {
        waitpid(child, nullptr, 0);
    }
    world->children.clear();
}

jmp_buf &rebootEnd() {
    static jmp_buf end;
    return end;
}

} // namespace ozu::test

using ozu::test::injection;
using ozu::test::orFail;
using ozu::test::world;

extern "C" {

void *__real_malloc(size_t size);
void __real_free(void *memory);
char *__real_strdup(const char *text);
ssize_t __real___getdelim(char **line, size_t *size, int end, FILE *file);
int __real_setenv(const char *name, const char *value, int overwrite);
int __real_close(int fd);
FILE *__real_fopen(const char *path, const char *mode);
int __real_fclose(FILE *file);
int __real_setvbuf(FILE *file, char *buffer, int mode, size_t size);
int __real_lstat(const char *path, struct stat *status);
int __real_stat(const char *path, struct stat *status);
int __real_nftw(const char *path, __nftw_func_t callback, int folders, int flags);
int __real_open(const char *path, int flags, ...);
DIR *__real_opendir(const char *path);
dirent *__real_readdir(DIR *folder);
int __real_closedir(DIR *folder);
ssize_t __real_read(int fd, void *buffer, size_t size);
int __real_remove(const char *path);
pid_t __real_fork();
int __real_kill(pid_t pid, int signal);
tm *__real_localtime(const time_t *time);
time_t __real_mktime(tm *time);
time_t __real_timegm(tm *time);
time_t __real_time(time_t *out);
int __real_pipe2(int *ends, int flags);
int __real_select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *timeout);
int __real_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
int __real_socket(int family, int type, int protocol);

// memory

void *__wrap_malloc(size_t size) {
    void *memory = orFail("malloc", [size] { return __real_malloc(size); });
    if (injection().active() && memory != nullptr) {
        injection().memory.insert(memory);
    }
    return memory;
}

void __wrap_free(void *memory) {
    if (injection().active()) {
        injection().memory.erase(memory);
    }
    __real_free(memory);
}

char *__wrap_strdup(const char *text) {
    char *copy = orFail("strdup", [text] { return __real_strdup(text); });
    if (injection().active() && copy != nullptr) {
        injection().memory.insert(copy);
    }
    return copy;
}

// What getline is when it is compiled for speed.
ssize_t __wrap___getdelim(char **line, size_t *size, int end, FILE *file) {
    const ssize_t length = orFail("getline", [=] { return __real___getdelim(line, size, end, file); });
    if (injection().active() && *line != nullptr) {
        injection().memory.insert(*line);
    }
    return length;
}

ssize_t __wrap_getline(char **line, size_t *size, FILE *file) {
    return __wrap___getdelim(line, size, '\n', file);
}

int __wrap_setenv(const char *name, const char *value, int overwrite) {
    return orFail("setenv", [=] { return __real_setenv(name, value, overwrite); });
}

int __wrap_atexit(void (*)()) { // the handler would outlive the test
    return orFail("atexit", [] { return 0; });
}

// files

int __wrap_access(const char *, int) {
    return orFail("access", [] { return 0; });
}

int __wrap_close(int fd) {
    const int result = __real_close(fd); // a failed close closes, too
    return orFail("close", [result] { return result; });
}

FILE *__wrap_fopen(const char *path, const char *mode) {
    return orFail("fopen", [=]() -> FILE * {
        if (strcmp(path, "/var/run/version") == 0) {
            return __real_fopen(ozu::test::worldFile("version").c_str(), mode);
        }
        if (strcmp(path, "/data/ozu/etc/countries_codes.csv") == 0) {
            return __real_fopen(ozu::test::worldFile("countries").c_str(), mode);
        }
        if (strcmp(path, "/data/permanent-dns.conf") == 0) {
            ++injection().streams;
            return fopencookie(nullptr, "w",
                               {nullptr, ozu::test::writeStream, nullptr, ozu::test::closeStream});
        }
        return __real_fopen(path, mode);
    });
}

int __wrap_fclose(FILE *file) {
    const int result = __real_fclose(file);
    return orFail("fclose", [result] { return result; });
}

int __wrap_setvbuf(FILE *file, char *buffer, int mode, size_t size) {
    return orFail("setvbuf", [=] { return __real_setvbuf(file, buffer, mode, size); });
}

int __wrap_lstat(const char *path, struct stat *status) {
    return injection().active() ? orFail("lstat", [] { return 0; }) : __real_lstat(path, status);
}

int __wrap_stat(const char *path, struct stat *status) {
    return orFail("stat", [=] { return __real_stat(path, status); });
}

int __wrap_nftw(const char *, __nftw_func_t callback, int folders, int flags) {
    return orFail("nftw", [=] {
        const std::string folder = ozu::test::worldFile("update");
        mkdir(folder.c_str(), 0700);
        ozu::test::writeFile(folder + "/image", "x");
        return __real_nftw(folder.c_str(), callback, folders, flags);
    });
}

int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, unsigned int);
    va_end(arguments);
    return orFail("open", [=] {
        const bool kernel = strcmp(path, "/proc/cmdline") == 0;
        return __real_open(kernel ? ozu::test::worldFile("kernel").c_str() : path, flags, mode);
    });
}

int __wrap_openat(int, const char *, int flags, ...) {
    return orFail("openat",
                  [=] { return __real_open(ozu::test::worldFile("cmdline").c_str(), flags & ~O_CREAT); });
}

DIR *__wrap_opendir(const char *path) {
    return orFail("opendir", [path] { return __real_opendir(path); });
}

dirent *__wrap_readdir(DIR *folder) {
    if (!injection().active()) {
        return __real_readdir(folder);
    }
    return orFail("readdir", []() -> dirent * {
        static dirent entry;
        if (world->entriesRead == 2) {
            return nullptr;
        }
        strcpy(entry.d_name, world->entriesRead++ == 0 ? "self" : "4711");
        return &entry;
    });
}

int __wrap_closedir(DIR *folder) {
    const int result = __real_closedir(folder);
    return orFail("closedir", [result] { return result; });
}

ssize_t __wrap_read(int fd, void *buffer, size_t size) {
    return orFail("read", [=] { return __real_read(fd, buffer, size); });
}

int __wrap_remove(const char *path) {
    return orFail("remove", [path] { return __real_remove(path); });
}

int __wrap_symlink(const char *, const char *) {
    return orFail("symlink", [] { return 0; });
}

int __wrap_unlink(const char *) {
    return orFail("unlink", [] { return 0; });
}

// processes, kernel, clock

pid_t __wrap_fork() {
    return orFail("fork", []() -> pid_t {
        const pid_t child = __real_fork();
        if (child > 0) {
            world->children.push_back(child);
        } else {
            injection().end();
        }
        return child;
    });
}

// Not the process's own: with a high one the gateway is not looked up at all.
pid_t __wrap_getpid() {
    return 4711;
}

int __wrap_kill(pid_t pid, int signal) {
    return orFail("kill", [=] { return __real_kill(pid, signal); });
}

tm *__wrap_localtime(const time_t *time) {
    return orFail("localtime", [time] { return __real_localtime(time); });
}

time_t __wrap_mktime(tm *time) {
    return orFail("mktime", [time] { return __real_mktime(time); });
}

time_t __wrap_timegm(tm *time) {
    return orFail("timegm", [time] { return __real_timegm(time); });
}

time_t __wrap_time(time_t *out) {
    if (!injection().active()) {
        return __real_time(out);
    }
    if (out != nullptr) {
        *out = world->now;
    }
    return world->now;
}

int __wrap_pipe2(int *ends, int flags) {
    return orFail("pipe2", [=] { return __real_pipe2(ends, flags); });
}

int __wrap_select(int count, fd_set *reading, fd_set *writing, fd_set *failing, timeval *timeout) {
    const int result =
        orFail("select", [=] { return __real_select(count, reading, writing, failing, timeout); });
    if (result != 1) { // the set is only as large as its highest descriptor asks for
        memset(reading, 0, static_cast<std::size_t>(count + NFDBITS - 1) / NFDBITS * sizeof(fd_mask));
    }
    return result;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    const bool cut = seconds > 1 && injection().enter("sleep") != nullptr;
    world->now += static_cast<time_t>(cut ? 1U : seconds);
    return cut ? seconds - 1 : 0;
}

long __wrap_syscall(long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    const int action = va_arg(arguments, int);
    char *buffer = va_arg(arguments, char *);
    const int size = va_arg(arguments, int);
    va_end(arguments);
    return orFail("syscall", [=]() -> long {
        switch (action) {
        case 3:
            return snprintf(buffer, static_cast<std::size_t>(size), "%s", world->kernelLog.c_str());
        case 10:
            return 63;
        default:
            return 0;
        }
    });
}

int __wrap_system(const char *command) {
    ozu::test::platform().journal.push_back(std::string("system ") + command);
    const int result = orFail("system", [] { return 0; });
    if (++world->commands == 2) { // the forced reboot
        longjmp(ozu::test::rebootEnd(), 1);
    }
    return result;
}

// network

hostent *__wrap_gethostbyaddr(const void *, socklen_t, int) {
    return orFail("gethostbyaddr", [] { return ozu::test::host(); });
}

hostent *__wrap_gethostbyname(const char *) {
    hostent *found = orFail("gethostbyname", [] { return ozu::test::host(); });
    h_errno = found == nullptr ? TRY_AGAIN : 0;
    return found;
}

int __wrap_getpeername(int, sockaddr *peer, socklen_t *) {
    return orFail("getpeername", [=] {
        ozu::test::setAddress(*peer, "10.1.2.3");
        return 0;
    });
}

char *__wrap_if_indextoname(unsigned int, char *name) {
    return orFail("if_indextoname", [name] { return strcpy(name, "eth0"); });
}

int __wrap_ioctl(int, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return orFail("ioctl", [=] { return ozu::test::answerIoctl(request, argument); });
}

ssize_t __wrap_recv(int, void *buffer, size_t size, int) {
    return orFail("recv", [=]() -> ssize_t {
        const ozu::test::RouteReply route;
        const ozu::test::DoneReply done;
        const bool first = world->repliesRead++ == 0;
        const std::size_t length = std::min(size, first ? sizeof route : sizeof done);
        memcpy(buffer, first ? static_cast<const void *>(&route) : &done, length);
        return static_cast<ssize_t>(length);
    });
}

ssize_t __wrap_recvfrom(int, void *buffer, size_t, int, sockaddr *, socklen_t *) {
    memcpy(buffer, ozu::test::kDnsReply.data(), ozu::test::kDnsReply.size());
    return orFail("recvfrom", [] { return static_cast<ssize_t>(ozu::test::kDnsReply.size()); });
}

ssize_t __wrap_send(int, const void *, size_t size, int) {
    return orFail("send", [size] { return static_cast<ssize_t>(size); });
}

ssize_t __wrap_sendto(int, const void *, size_t size, int, const sockaddr *, socklen_t) {
    return orFail("sendto", [size] { return static_cast<ssize_t>(size); });
}

int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size) {
    return orFail("setsockopt", [=] { return __real_setsockopt(fd, level, option, value, size); });
}

int __wrap_socket(int family, int type, int protocol) {
    return orFail("socket", [=] { return __real_socket(family, type, protocol); });
}

} // extern "C"
