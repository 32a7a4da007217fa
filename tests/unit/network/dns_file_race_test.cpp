// Writers beside write_permanent_dns(): of the record it reads, and of the file it writes.

#include <utils_ozu/host_names.h>

#include "fake_platform.h"
#include "test_files.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <thread>

using ozu::test::platform;
using testing::IsEmpty;

namespace {

constexpr std::size_t kServers = 6;
using Servers = std::array<std::string, kServers>; // in the order of the record

std::string path; // in place of the panel's file

class DnsFileRace : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        // A file that no disk slows down, opened again under its path by each writer.
        file_ = memfd_create("permanent-dns.conf", 0);
        path = "/proc/self/fd/" + std::to_string(file_);
    }
    void TearDown() override {
        close(file_);
        PlatformTest::TearDown();
    }
    static void write() {
        platform().journal.clear();
        ASSERT_EQ(write_permanent_dns(), 0);
    }
    // The servers of the file, in the order of the record.
    static std::vector<std::string> lines() {
        std::istringstream text(ozu::test::readFile(path));
        std::vector<std::string> found;
        for (std::string line; std::getline(text, line);) {
            EXPECT_EQ(line.rfind("nameserver ", 0), 0u) << line;
            found.push_back(line.substr(strlen("nameserver ")));
        }
        // The file has the last pair first.
        if (found.size() == kServers) {
            std::swap(found[0], found[4]);
            std::swap(found[1], found[5]);
        }
        return found;
    }

  private:
    int file_ = -1;
};

char *field(std::size_t server) {
    auto &pair = platform().state.dnsServerPairs[server / 2];
    return server % 2 == 0 ? pair.primary : pair.secondary;
}

// As another process would: a byte at a time, at any time.
void store(const Servers &servers) {
    for (std::size_t server = 0; server < kServers; ++server) {
        for (std::size_t i = 0; i <= servers.at(server).size(); ++i) {
            __atomic_store_n(field(server) + i, servers.at(server).c_str()[i], __ATOMIC_RELAXED);
        }
    }
}

const Servers kShort = {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4", "10.0.0.5", "10.0.0.6"};
const Servers kLong = {"192.168.100.101", "192.168.100.102", "192.168.100.103",
                       "192.168.100.104", "192.168.100.105", "192.168.100.106"};

} // namespace

extern "C" {

FILE *__real_fopen(const char *name, const char *mode);

FILE *__wrap_fopen(const char *name, const char *mode) {
    return __real_fopen(strcmp(name, "/data/permanent-dns.conf") == 0 ? path.c_str() : name, mode);
}

} // extern "C"

TEST_F(DnsFileRace, recordThatChangesUnderneath) {
    store(kShort);
    std::atomic<bool> stop = false;
    std::thread other([&stop] {
        for (bool longer = true; !stop; longer = !longer) {
            store(longer ? kLong : kShort);
        }
    });
    for (int round = 0; round < 5000; ++round) {
        write();
        const auto found = lines();
        ASSERT_EQ(found.size(), kServers);
        for (std::size_t server = 0; server < kServers; ++server) {
            // A text may be of both times, but each of its bytes is of one.
            const std::string &text = found[server];
            ASSERT_GE(text.size(), kShort[server].size());
            ASSERT_LE(text.size(), kLong[server].size());
            for (std::size_t i = 0; i < text.size(); ++i) {
                const bool fromShort = i < kShort[server].size() && text[i] == kShort[server][i];
                ASSERT_TRUE(fromShort || text[i] == kLong[server][i]) << text;
            }
        }
    }
    stop = true;
    other.join();
    store(kLong);
    write();
    EXPECT_EQ(lines(), std::vector<std::string>(kLong.begin(), kLong.end()));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(DnsFileRace, twoProcessesAtOnce) {
    constexpr int kRounds = 5000;
    Servers others = kShort;
    for (std::string &server : others) {
        server[1] = '1';
    }
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    store(child == 0 ? others : kShort);
    int failed = 0;
    for (int round = 0; round < kRounds; ++round) {
        platform().journal.clear();
        failed += write_permanent_dns() != 0 ? 1 : 0;
    }
    if (child == 0) {
        _exit(failed == 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(failed, 0);
    // Whoever opened the file last wrote all lines; the other's may lie over them, line by line.
    const auto found = lines();
    ASSERT_EQ(found.size(), kServers);
    for (std::size_t server = 0; server < kServers; ++server) {
        EXPECT_TRUE(found[server] == kShort[server] || found[server] == others[server]) << found[server];
    }
    store(kShort);
    write();
    EXPECT_EQ(lines(), std::vector<std::string>(kShort.begin(), kShort.end()));
}
