// Nothing secret stays in the process: after a call, every writable page of it is searched for the key, a
// round key, the plain text, the serial number, the mask and the derived key. The secrets themselves live in
// a vault of their own, the only pages that are not searched.

#include <utils_ozu/crypto.h>
#include <utils_ozu/database_key.h>

#include "fake_platform.h"
#include "test_files.h"

#include <fcntl.h>
#include <openssl/aes.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

constexpr std::size_t kVaultSize = 1U << 20;
constexpr std::size_t kFileSize = 200000;

// Everything secret that the tests work with.
struct Vault {
    unsigned char key[32];
    AES_KEY encryption, decryption; // as the cipher expands the key
    unsigned char plain[kFileSize];
    unsigned char cipher[kFileSize + 16];
    unsigned char mask[20];
    char commandLine[64];
    char derived[41];
    struct Region {
        std::uintptr_t start, end;
    } regions[512];
};

Vault *vault = nullptr;
std::string commandLineFile;

// Where size bytes of the vault occur elsewhere in writable memory; null when nowhere.
const unsigned char *found(const void *secret, std::size_t size) {
    FILE *maps = fopen("/proc/self/maps", "r");
    EXPECT_NE(maps, nullptr);
    std::size_t count = 0;
    char line[512];
    while (count < std::size(vault->regions) && fgets(line, sizeof(line), maps) != nullptr) {
        std::uintptr_t start = 0, end = 0;
        char rights[8] = {};
        // NOLINTNEXTLINE(cert-err34-c)
        if (sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %4s", &start, &end, rights) == 3 && rights[0] == 'r' &&
            rights[1] == 'w' && start != reinterpret_cast<std::uintptr_t>(vault) &&
            strstr(line, "[v") == nullptr) {
            vault->regions[count++] = {start, end};
        }
    }
    fclose(maps);
    EXPECT_LT(count, std::size(vault->regions));
    for (std::size_t i = 0; i < count; ++i) {
        const auto [start, end] = vault->regions[i];
        const void *hit = memmem(reinterpret_cast<const void *>(start), end - start, secret, size);
        if (hit != nullptr) {
            return static_cast<const unsigned char *>(hit);
        }
    }
    return nullptr;
}

void writeSecret(const std::string &path, const unsigned char *bytes, std::size_t size) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_EQ(write(fd, bytes, size), static_cast<ssize_t>(size));
    close(fd);
}

class Secrets : public ozu::test::PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        if (kSanitized) {
            GTEST_SKIP() << "the sanitizer's run time keeps copies of its own";
        }
        vault = static_cast<Vault *>(
            mmap(nullptr, kVaultSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        ASSERT_NE(static_cast<void *>(vault), MAP_FAILED);
        static_assert(sizeof(Vault) <= kVaultSize);
        // The secrets are made in place: no expression ever holds one of them whole.
        fill(vault->key, sizeof(vault->key), 77);
        fill(vault->plain, sizeof(vault->plain), 78);
        memcpy(vault->plain, "OZU", 3);
    }
    void TearDown() override {
        if (vault != nullptr) {
            munmap(vault, kVaultSize);
            vault = nullptr;
        }
        PlatformTest::TearDown();
    }
    static void fill(unsigned char *bytes, std::size_t size, unsigned seed) {
        unsigned state = seed * 2654435761U + static_cast<unsigned>(getpid());
        for (std::size_t i = 0; i < size; ++i) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            bytes[i] = static_cast<unsigned char>(state >> 11);
        }
    }
    // Looks for the key first: expanding it once more leaves a copy on the stack, which is the test's own.
    static void expectNoKey(int bits) {
        const auto bytes = static_cast<std::size_t>(bits) / 8;
        EXPECT_EQ(found(vault->key, bytes), nullptr) << "the key";
        EXPECT_EQ(found(vault->key + bytes - 16, 16), nullptr) << "half of the key";
        for (const AES_KEY *schedule : {&vault->encryption, &vault->decryption}) {
            for (int round = 1; round < schedule->rounds; ++round) {
                EXPECT_EQ(found(schedule->rd_key + std::ptrdiff_t{4} * round, 16), nullptr)
                    << "round key " << round;
            }
        }
    }
    void expandKey(int bits) {
        AES_set_encrypt_key(vault->key, bits, &vault->encryption);
        AES_set_decrypt_key(vault->key, bits, &vault->decryption);
        wipeStack();
    }
    // Half a block is not whole data; anything from a block on is.
    static void expectNoPlainText() {
        for (const std::size_t at :
             {0U, 16U, 992U, 1008U, 4096U, 16368U, 16384U, 65520U, 65536U, 131072U, 196608U, 199984U}) {
            EXPECT_EQ(found(vault->plain + at, 16), nullptr) << "plain text at " << at;
        }
    }
    // The test itself expands keys: what that leaves on the stack is not the library's.
    __attribute__((noinline)) static void wipeStack() {
        unsigned char area[32768];
        memset(area, 0, sizeof(area));
        asm volatile("" ::"r"(area) : "memory");
    }
    ozu::test::TemporaryDirectory directory;
    const std::string in = directory.file("in"), out = directory.file("out"), back = directory.file("back");
};

} // namespace

extern "C" int __real_open(const char *, int, ...);

static int openInstead(const char *path, int flags, int mode) {
    const bool commandLine = strcmp(path, "/proc/cmdline") == 0 && !commandLineFile.empty();
    return __real_open(commandLine ? commandLineFile.c_str() : path, flags, mode);
}

extern "C" {

int __wrap_open(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
    va_end(rest);
    return openInstead(path, flags, mode);
}

} // extern "C"

// The search itself: it finds what is left on the heap, on the dead part of the stack and in static data.

__attribute__((noinline)) static void leaveOnTheStack() {
    unsigned char copy[4096];
    memcpy(copy, vault->cipher, 32);
    asm volatile("" ::"r"(copy) : "memory"); // somebody might look at it
}

TEST_F(Secrets, searchFindsWhatIsLeft) {
    fill(vault->cipher, 32, 5);
    EXPECT_EQ(found(vault->cipher, 32), nullptr);
    leaveOnTheStack();
    EXPECT_NE(found(vault->cipher, 32), nullptr) << "dead stack";
    wipeStack();
    EXPECT_EQ(found(vault->cipher, 32), nullptr);
    // A size that the C library keeps aside when freed, so that the search's own buffers leave it alone.
    constexpr std::size_t kBlock = 240;
    auto *block = static_cast<unsigned char *>(malloc(kBlock));
    memcpy(block + 100, vault->cipher, 32);
    asm volatile("" ::"r"(block) : "memory");
    const auto where = reinterpret_cast<std::uintptr_t>(block) + 100;
    free(block);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(found(vault->cipher, 32)), where) << "freed heap";
    block = static_cast<unsigned char *>(malloc(kBlock));
    memset(block, 0, kBlock);
    asm volatile("" ::"r"(block) : "memory");
    free(block);
    static unsigned char fixed[64];
    memcpy(fixed + 8, vault->cipher, 32);
    EXPECT_EQ(found(vault->cipher, 32), fixed + 8);
    memset(fixed, 0, sizeof(fixed));
}

TEST_F(Secrets, fileCipherLeavesNothing) {
    expandKey(128);
    writeSecret(in, vault->plain, kFileSize);
    ASSERT_EQ(ozuutils_crypt_aes128ecb(in.c_str(), out.c_str(), vault->key, 1), 0u);
    expectNoKey(128);
    expectNoPlainText();
    ASSERT_EQ(ozuutils_crypt_aes128ecb(out.c_str(), back.c_str(), vault->key, 0), 0u);
    expectNoKey(128);
    expectNoPlainText();
}

TEST_F(Secrets, failedFileCipherLeavesNothing) {
    expandKey(128);
    writeSecret(in, vault->plain, kFileSize);
    ASSERT_EQ(ozuutils_crypt_aes128ecb(in.c_str(), out.c_str(), vault->key, 1), 0u);
    ASSERT_EQ(truncate(out.c_str(), 150007), 0);
    ASSERT_EQ(ozuutils_crypt_aes128ecb(out.c_str(), back.c_str(), vault->key, 0), 2u);
    expectNoKey(128);
    expectNoPlainText();
    ASSERT_EQ(ozuutils_crypt_aes128ecb(in.c_str(), "/no/such/file", vault->key, 1), 4u);
    expectNoKey(128);
}

class SecretsOfVideo : public Secrets, public testing::WithParamInterface<int> {};

TEST_P(SecretsOfVideo, leavesNothing) {
    const int bits = GetParam();
    const auto keyLen = static_cast<unsigned>(bits / 8);
    // Zero-padded chunks of 24 bytes have no encrypting side here; their first chunk is enough.
    const std::size_t size = keyLen == 24 ? 16 : kFileSize / 32 * 32;
    std::string iv = ozu::test::bytesOf(OZU_TEST_VIDEO_IV);
    expandKey(bits);
    AES_cbc_encrypt(vault->plain, vault->cipher, size, &vault->encryption,
                    reinterpret_cast<unsigned char *>(iv.data()), AES_ENCRYPT);
    wipeStack();
    writeSecret(in, vault->cipher, keyLen == 24 ? kFileSize : size);
    ASSERT_EQ(decryptVideoFile(in.c_str(), vault->key, keyLen, 0), 0u);
    expectNoKey(bits);
    expectNoPlainText();
    ASSERT_EQ(decryptVideoFile(in.c_str(), vault->key, keyLen, 0), 1u) << "decrypted already";
    expectNoKey(bits);
    expectNoPlainText();
}

INSTANTIATE_TEST_SUITE_P(Keys, SecretsOfVideo, testing::Values(128, 192, 256));

TEST_F(Secrets, databaseKeyLeavesNothing) {
    static constexpr char kName[] = "androidboot.serialno=";
    unsigned char serial[4];
    fill(serial, sizeof(serial), static_cast<unsigned>(time(nullptr)));
    char *end = stpcpy(vault->commandLine, kName);
    for (const unsigned char byte : serial) {
        end += snprintf(end, 3, "%02X", byte);
    }
    stpcpy(end, " quiet\n");
    for (std::size_t i = 0; i < sizeof(vault->mask); ++i) {
        vault->mask[i] = static_cast<unsigned char>(
            std::stoi(std::string(OZU_TEST_DB_MASK).substr(2 * i, 2), nullptr, 16));
    }
    commandLineFile = directory.file("cmdline");
    writeSecret(commandLineFile, reinterpret_cast<const unsigned char *>(vault->commandLine),
                strlen(vault->commandLine));
    wipeStack();
    // The development mask counts up from 0, which occurs in other tables, too.
    const bool maskIsTelling = found(vault->mask, sizeof(vault->mask)) == nullptr;
    ASSERT_EQ(ozuutils_getDBcypher(vault->derived), 0);
    commandLineFile.clear();
    ASSERT_EQ(strlen(vault->derived), 40u);
    EXPECT_EQ(found(vault->derived, 40), nullptr) << "the key text";
    EXPECT_EQ(found(vault->derived, 16), nullptr) << "the start of the key text";
    EXPECT_EQ(found(vault->commandLine + sizeof(kName) - 1, 8), nullptr) << "the serial number";
    EXPECT_TRUE(!maskIsTelling || found(vault->mask, sizeof(vault->mask)) == nullptr) << "the mask";
    unsigned char key[20];
    for (std::size_t i = 0; i < sizeof(key); ++i) {
        key[i] = static_cast<unsigned char>(std::stoi(std::string(vault->derived + 2 * i, 2), nullptr, 16));
    }
    memcpy(vault->key, key, sizeof(key));
    memset(key, 0, sizeof(key));
    EXPECT_EQ(found(vault->key, sizeof(key)), nullptr) << "the key";
}

TEST_F(Secrets, randomBytesAreTheCallersAlone) {
    ASSERT_EQ(ozuutils_rand_bytes(vault->plain, 48), 0u);
    EXPECT_EQ(found(vault->plain, 48), nullptr);
}
