#include <utils_ozu/crypto.h>

#include "cipher_contexts.h"
#include "digest.h"
#include "random_numbers.h"
#include "small_stack.h"
#include "test_files.h"

#include <openssl/aes.h>
#include <openssl/err.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>
#include <string>

using ozu::test::bytesOf;
using ozu::test::cipherContexts;
using ozu::test::hexadecimal;
using ozu::test::noise;
using ozu::test::outputOf;
using ozu::test::platform;
using ozu::test::readFile;
using ozu::test::writeFile;
using testing::IsEmpty;

namespace {

// Calls from this one on fail; 0 counts the first. Negative: none fails.
struct Faults {
    int updates = -1, seeks = -1, writes = -1, reads = -1;
    int killAtWrite = -1;       // the process ends before this write
    std::size_t shortWrite = 0; // what a failing write still writes
    std::size_t shortRead = 0;  // what a failing read still reads
    int seekCount = 0, writeCount = 0, readCount = 0;
} faults;

const std::string kIv = bytesOf(OZU_TEST_VIDEO_IV);

std::string keyOf(unsigned length) {
    return noise(length, 99);
}

const unsigned char *raw(const std::string &bytes) {
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

// A plain text that a player would know.
std::string video(std::size_t size, unsigned seed = 5) {
    std::string plain = noise(size, seed);
    plain.replace(0, std::min<std::size_t>(3, size), std::string("OZU").substr(0, size));
    return plain;
}

// The encrypting side for chunks of whole blocks. The cipher writes whole blocks, also of a last half one.
std::string encrypted(const std::string &plain, const std::string &key) {
    AES_KEY schedule;
    AES_set_encrypt_key(raw(key), static_cast<int>(key.size() * 8), &schedule);
    const std::size_t size = plain.size() / key.size() * key.size();
    std::string in = plain.substr(0, size);
    in.resize((size + 15) / 16 * 16, '\0');
    std::string iv = kIv, out(in.size(), '\0');
    AES_cbc_encrypt(raw(in), reinterpret_cast<unsigned char *>(out.data()), in.size(), &schedule,
                    reinterpret_cast<unsigned char *>(iv.data()), AES_ENCRYPT);
    return out.substr(0, size) + plain.substr(size);
}

// Independent model of the decryption: one block at a time, straight from the block cipher.
std::string decrypted(const std::string &cipher, const std::string &key) {
    AES_KEY schedule;
    AES_set_decrypt_key(raw(key), static_cast<int>(key.size() * 8), &schedule);
    std::string chain = kIv, out;
    for (std::size_t at = 0; at + key.size() <= cipher.size(); at += key.size()) {
        std::string chunk = cipher.substr(at, key.size()), plain;
        chunk.resize((chunk.size() + 15) / 16 * 16, '\0');
        for (std::size_t block = 0; block < chunk.size(); block += 16) {
            unsigned char bytes[16];
            AES_decrypt(raw(chunk) + block, bytes, &schedule);
            for (unsigned i = 0; i < 16; ++i) {
                plain += static_cast<char>(bytes[i] ^ static_cast<unsigned char>(chain[i]));
            }
            chain = chunk.substr(block, 16);
        }
        out += plain.substr(0, key.size());
    }
    return out + cipher.substr(out.size());
}

// A region that decrypts to something that begins with the mark.
std::string region(std::size_t size, unsigned keyLen) {
    const std::string key = keyOf(keyLen);
    if (keyLen != 24) {
        return encrypted(video(size), key);
    }
    std::string cipher = noise(size, 7);
    if (size >= 16) {
        cipher.replace(0, 16, encrypted(video(32), key.substr(0, 24)).substr(0, 16));
    }
    return cipher;
}

class VideoFile : public ozu::test::CipherTest {
  protected:
    void SetUp() override {
        CipherTest::SetUp();
        faults = {};
    }
    void TearDown() override {
        faults = {};
        EXPECT_THAT(platform().journal, IsEmpty()) << "logs nothing";
        CipherTest::TearDown();
    }
    unsigned run(unsigned keyLen, long offset = 0) {
        const std::string key = keyOf(keyLen);
        return decryptVideoFile(file.c_str(), raw(key), keyLen, offset);
    }
    // The file is decrypted up to the end of some chunk, encrypted from there on; returns where that is.
    std::size_t expectPrefix(const std::string &before, unsigned keyLen, std::size_t offset) {
        const std::string now = readFile(file);
        const std::string all = before.substr(0, offset) + decrypted(before.substr(offset), keyOf(keyLen));
        EXPECT_EQ(now.size(), before.size());
        const auto plainEnd =
            static_cast<std::size_t>(std::mismatch(now.begin(), now.end(), all.begin()).first - now.begin());
        const std::size_t chunkEnd =
            plainEnd <= offset ? offset : offset + (plainEnd - offset) / keyLen * keyLen;
        EXPECT_EQ(now.substr(chunkEnd), before.substr(chunkEnd)) << "decrypted up to " << plainEnd;
        EXPECT_EQ(now.substr(0, chunkEnd), all.substr(0, chunkEnd));
        return chunkEnd - offset;
    }
    ozu::test::TemporaryDirectory directory;
    const std::string file = directory.file("video");
};

} // namespace

extern "C" {

FILE *__real_fopen(const char *, const char *);
FILE *__wrap_fopen(const char *path, const char *mode) {
    EXPECT_STREQ(mode, "r+e");
    return __real_fopen(path, mode);
}

std::size_t __real_fread(void *, std::size_t, std::size_t, FILE *);
std::size_t __wrap_fread(void *buffer, std::size_t size, std::size_t count, FILE *file) {
    const bool fails = faults.reads >= 0 && faults.readCount++ >= faults.reads;
    return __real_fread(buffer, size, fails ? std::min(count, faults.shortRead) : count, file);
}

// What fread() becomes where the compiler knows the size of the buffer.
std::size_t __wrap___fread_chk(void *buffer, std::size_t room, std::size_t size, std::size_t count,
                               FILE *file) {
    EXPECT_LE(size * count, room);
    return __wrap_fread(buffer, size, count, file);
}

int __real_EVP_CipherUpdate(EVP_CIPHER_CTX *, unsigned char *, int *, const unsigned char *, int);
int __wrap_EVP_CipherUpdate(EVP_CIPHER_CTX *context, unsigned char *out, int *count, const unsigned char *in,
                            int size) {
    if (faults.updates >= 0 && faults.updates-- == 0) {
        ERR_raise(ERR_LIB_USER, 77);
        return 0;
    }
    return __real_EVP_CipherUpdate(context, out, count, in, size);
}

int __real_fseek(FILE *, long, int);
int __wrap_fseek(FILE *file, long offset, int from) {
    const int call = faults.seekCount++;
    return faults.seeks >= 0 && call >= faults.seeks ? -1 : __real_fseek(file, offset, from);
}

std::size_t __real_fwrite(const void *, std::size_t, std::size_t, FILE *);
std::size_t __wrap_fwrite(const void *buffer, std::size_t size, std::size_t count, FILE *file) {
    const int call = faults.writeCount++;
    if (faults.killAtWrite == call) {
        raise(SIGKILL);
    }
    if (faults.writes == call) {
        return __real_fwrite(buffer, size, std::min(count, faults.shortWrite), file);
    }
    return __real_fwrite(buffer, size, count, file);
}

} // extern "C"

struct Shape {
    unsigned keyLen;
    std::size_t size;
    std::size_t offset;
};

void PrintTo(const Shape &shape, std::ostream *out) {
    *out << "key " << shape.keyLen << " size " << shape.size << " offset " << shape.offset;
}

class VideoFileShape : public VideoFile, public testing::WithParamInterface<unsigned> {};

TEST_P(VideoFileShape, decryptsWholeChunksAtEverySizeAndOffset) {
    const unsigned keyLen = GetParam();
    const std::size_t chunk = keyLen;
    std::vector<std::size_t> sizes;
    for (std::size_t size = 0; size <= 3 * chunk + 1; ++size) {
        sizes.push_back(size);
    }
    for (const std::size_t border : {4096U, 16384U, 24576U, 32768U, 49152U, 65536U}) {
        for (const std::size_t delta : {0U, 1U, 15U, 16U, 17U, 24U}) {
            sizes.push_back(border + delta);
            sizes.push_back(border - delta);
        }
    }
    for (const std::size_t size : sizes) {
        const std::size_t offset = size % 3 == 0 ? 0 : size % 3 == 1 ? 4096 : 1000 + size % 100;
        const std::string before = noise(offset, 3) + region(size, keyLen);
        writeFile(file, before);
        ASSERT_EQ(run(keyLen, static_cast<long>(offset)), 0u) << size << " at " << offset;
        const std::string expected =
            before.substr(0, offset) + decrypted(before.substr(offset), keyOf(keyLen));
        ASSERT_TRUE(readFile(file) == expected) << size << " at " << offset;
        if (size >= chunk) {
            ASSERT_EQ(expected.substr(offset, 3), "OZU");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(KeyLengths, VideoFileShape, testing::Values(16U, 24U, 32U));

TEST_F(VideoFile, agreesWithTheOpensslTool) {
    for (const unsigned keyLen : {16U, 32U}) {
        const std::string plain = video(48000), name = directory.file("plain");
        writeFile(name, plain);
        writeFile(file, outputOf("openssl enc -e -nopad -aes-" + std::to_string(keyLen * 8) + "-cbc -K " +
                                 hexadecimal(keyOf(keyLen)) + " -iv " + hexadecimal(kIv) + " -in " + name));
        ASSERT_EQ(run(keyLen), 0u);
        EXPECT_TRUE(readFile(file) == plain) << keyLen;
    }
}

TEST_F(VideoFile, vectorOfA24ByteKey) {
    // Made by the openssl tool, chunk by chunk: the second block of a chunk is its last 8 bytes and 8 zeros,
    // and is the IV of the next chunk.
    const std::string cipher = region(72, 24), key = keyOf(24);
    std::string iv = kIv, plain;
    for (std::size_t at = 0; at < 72; at += 24) {
        const std::string padded = cipher.substr(at, 24) + std::string(8, '\0'),
                          name = directory.file("chunk");
        writeFile(name, padded);
        plain += outputOf("openssl enc -d -nopad -aes-192-cbc -K " + hexadecimal(key) + " -iv " +
                          hexadecimal(iv) + " -in " + name)
                     .substr(0, 24);
        iv = padded.substr(16);
    }
    writeFile(file, cipher + "tail");
    ASSERT_EQ(run(24), 0u);
    EXPECT_EQ(hexadecimal(readFile(file)), hexadecimal(plain + "tail"));
}

TEST_F(VideoFile, fortyBytesLeaveTheLastEight) {
    const std::string before = region(40, 16);
    writeFile(file, before);
    EXPECT_EQ(run(16), 0u);
    EXPECT_EQ(readFile(file), video(40).substr(0, 32) + before.substr(32));
}

TEST_F(VideoFile, nullArguments) {
    const std::string key = keyOf(16);
    EXPECT_EQ(decryptVideoFile(nullptr, raw(key), 16, 0), 2u);
    EXPECT_EQ(decryptVideoFile(file.c_str(), nullptr, 16, 0), 2u);
    EXPECT_EQ(decryptVideoFile(nullptr, nullptr, 5, 0), 2u) << "checked before the key length";
}

TEST_F(VideoFile, keyLengthIsCheckedBeforeTheFileIsTouched) {
    const std::string key = keyOf(64);
    for (const unsigned keyLen :
         {0U, 1U, 15U, 17U, 20U, 23U, 25U, 31U, 33U, 48U, 64U, 128U, 192U, 256U, UINT_MAX}) {
        EXPECT_EQ(decryptVideoFile(file.c_str(), raw(key), keyLen, 0), 4u) << keyLen;
    }
}

TEST_F(VideoFile, fileThatCannotBeOpened) {
    EXPECT_EQ(run(16), 70u);
    EXPECT_NE(access(file.c_str(), F_OK), 0) << "nothing is created";
    const std::string key = keyOf(16);
    EXPECT_EQ(decryptVideoFile(directory.path().c_str(), raw(key), 16, 0), 70u) << "a directory";
}

TEST_F(VideoFile, seekThatFails) {
    writeFile(file, region(64, 16));
    EXPECT_EQ(run(16, -1), 1u);
    EXPECT_EQ(run(16, LONG_MIN), 1u);
    EXPECT_EQ(readFile(file), region(64, 16));
    const std::string pipe = directory.file("pipe"), key = keyOf(16);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(decryptVideoFile(pipe.c_str(), raw(key), 16, 0), 1u) << "a pipe cannot be sought";
}

TEST_F(VideoFile, offsetBeyondTheEnd) {
    writeFile(file, region(64, 16));
    EXPECT_EQ(run(16, 64), 0u);
    EXPECT_EQ(run(16, 65), 0u);
    EXPECT_EQ(run(16, 1000000), 0u);
    EXPECT_EQ(readFile(file), region(64, 16));
}

TEST_F(VideoFile, withoutTheMarkNothingIsWritten) {
    for (const unsigned keyLen : {16U, 24U, 32U}) {
        const std::string before = noise(50000, keyLen);
        writeFile(file, before);
        EXPECT_EQ(run(keyLen), 1u);
        EXPECT_TRUE(readFile(file) == before);
    }
    EXPECT_EQ(faults.writeCount, 0);
}

TEST_F(VideoFile, everyByteOfTheMarkCounts) {
    for (unsigned i = 0; i < 4; ++i) {
        std::string plain = video(48);
        plain[i] = static_cast<char>(plain[i] ^ 0x20);
        const std::string before = encrypted(plain, keyOf(16));
        writeFile(file, before);
        EXPECT_EQ(run(16), i < 3 ? 1u : 0u) << i;
        EXPECT_EQ(readFile(file), i < 3 ? before : plain) << i;
    }
}

TEST_F(VideoFile, wrongKeyAndSecondRunLeaveTheFileAlone) {
    writeFile(file, region(50000, 16));
    std::string key = keyOf(16);
    key[0] = static_cast<char>(key[0] ^ 1);
    EXPECT_EQ(decryptVideoFile(file.c_str(), raw(key), 16, 0), 1u);
    EXPECT_TRUE(readFile(file) == region(50000, 16));
    ASSERT_EQ(run(16), 0u);
    const std::string plain = readFile(file);
    EXPECT_EQ(run(16), 1u) << "already decrypted";
    EXPECT_TRUE(readFile(file) == plain);
}

TEST_F(VideoFile, markIsAskedOfTheFirstChunkOnly) {
    // A later piece that begins with other bytes is no reason to stop.
    const std::string plain = video(98304);
    ASSERT_NE(plain.substr(32768, 3), "OZU");
    writeFile(file, encrypted(plain, keyOf(16)));
    EXPECT_EQ(run(16), 0u);
    EXPECT_TRUE(readFile(file) == plain);
}

TEST_F(VideoFile, cipherFailures) {
    const std::string before = region(50000, 16);
    writeFile(file, before);
    cipherContexts().refused = true;
    EXPECT_EQ(run(16), 1u);
    cipherContexts().refused = false;
    faults.updates = 0;
    EXPECT_EQ(run(16), 1u);
    EXPECT_TRUE(readFile(file) == before);
    faults.updates = 1;
    EXPECT_EQ(run(16), 1u);
    const std::size_t done = expectPrefix(before, 16, 0);
    EXPECT_GT(done, 0u);
    EXPECT_LT(done, before.size());
}

TEST_F(VideoFile, everyFailedSeekEndsOnAChunk) {
    for (const unsigned keyLen : {16U, 24U, 32U}) {
        const std::string before = noise(100, 3) + region(120000, keyLen);
        for (int call = 0;; ++call) {
            writeFile(file, before);
            faults = {};
            faults.seeks = call;
            const unsigned result = run(keyLen, 100);
            const std::size_t done = expectPrefix(before, keyLen, 100);
            if (result == 0) {
                EXPECT_GE(call, 6);
                EXPECT_EQ(done, 120000 / keyLen * keyLen);
                break;
            }
            EXPECT_EQ(result, 1u);
            EXPECT_TRUE(call > 1 || done == 0);
        }
    }
}

TEST_F(VideoFile, everyFailedReadEndsWithSuccessOnAChunk) {
    for (const unsigned keyLen : {16U, 24U, 32U}) {
        const std::string before = noise(100, 3) + region(50000, keyLen);
        for (const std::size_t read : {0U, 1U, 15U, 16U, 24U, 31U, 33U, 1000U}) {
            std::size_t done = 0;
            for (int call = 0; done < 50000 / keyLen * keyLen; ++call) {
                ASSERT_LT(call, 10);
                writeFile(file, before);
                faults = {};
                faults.reads = call;
                faults.shortRead = read;
                EXPECT_EQ(run(keyLen, 100), 0u);
                const std::size_t more = expectPrefix(before, keyLen, 100);
                EXPECT_TRUE(call == 0 ? more == read / keyLen * keyLen : more > done)
                    << "call " << call << " reads " << read;
                done = more;
            }
        }
    }
}

TEST_F(VideoFile, everyShortWriteEndsOnAChunk) {
    for (const unsigned keyLen : {16U, 24U, 32U}) {
        const std::string before = noise(1003, 3) + region(40000, keyLen);
        for (const std::size_t written : {0U, 1U, 15U, 16U, 23U, 24U, 25U, 31U, 33U, 47U, 100U, 1000U}) {
            for (int call = 0;; ++call) {
                writeFile(file, before);
                faults = {};
                faults.writes = call;
                faults.shortWrite = written;
                if (run(keyLen, 1003) == 0) {
                    break;
                }
                expectPrefix(before, keyLen, 1003);
            }
        }
    }
}

TEST_F(VideoFile, killedBeforeAnyWriteEndsOnAChunk) {
    for (const unsigned keyLen : {16U, 24U, 32U}) {
        for (const std::size_t offset : {0U, 777U}) {
            const std::string before = noise(offset, 3) + region(40000, keyLen);
            bool killed = true;
            for (int call = 0; killed; ++call) {
                writeFile(file, before);
                const pid_t child = fork();
                if (child == 0) {
                    faults.killAtWrite = call;
                    _exit(static_cast<int>(run(keyLen, static_cast<long>(offset))));
                }
                int status = 0;
                ASSERT_EQ(waitpid(child, &status, 0), child);
                killed = WIFSIGNALED(status);
                const std::size_t done = expectPrefix(before, keyLen, offset);
                EXPECT_TRUE(killed || done == std::size_t{40000} / keyLen * keyLen);
            }
        }
    }
}

TEST_F(VideoFile, noWriteCrossesAPageInsideAChunk) {
    // A killed write stops at the end of a page of the file. Where a page ends inside a chunk, that chunk
    // goes alone.
    const std::string before = region(16368, 24);
    writeFile(file, before);
    ASSERT_EQ(run(24), 0u);
    EXPECT_EQ(faults.writeCount, 6) << "four parts of pages and two chunks across their borders";
    faults = {};
    writeFile(file, region(65536, 32));
    ASSERT_EQ(run(32), 0u);
    EXPECT_EQ(faults.writeCount, 2) << "pages end on chunks: whole pieces";
}

TEST_F(VideoFile, fileSizeLimitEndsOnAChunk) {
    // A write that the kernel cuts short, and refuses when it is repeated.
    for (const unsigned keyLen : {16U, 24U, 32U}) {
        const std::string before = noise(5, 3) + region(60000, keyLen);
        writeFile(file, before);
        const pid_t child = fork();
        if (child == 0) {
            signal(SIGXFSZ, SIG_IGN);
            const struct rlimit limit = {40003, 40003};
            setrlimit(RLIMIT_FSIZE, &limit);
            _exit(static_cast<int>(run(keyLen, 5)));
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 1);
        EXPECT_EQ(expectPrefix(before, keyLen, 5), (40003 - 5) / keyLen * keyLen);
    }
}

TEST_F(VideoFile, smallStackIsEnough) {
    writeFile(file, region(100000, 32));
    unsigned result = 99;
    ozu::test::onSmallStack(std::size_t{128} << 10, [&] { result = run(32); });
    EXPECT_EQ(result, 0u);
    EXPECT_TRUE(readFile(file) == video(100000));
}

TEST_F(VideoFile, errorQueueStaysAsItWas) {
    ERR_raise(ERR_LIB_USER, 78);
    const unsigned long earlier = ERR_peek_last_error();
    writeFile(file, noise(100));
    EXPECT_EQ(run(16), 1u);
    faults.updates = 0;
    EXPECT_EQ(run(16), 1u);
    EXPECT_EQ(ERR_get_error(), earlier);
    EXPECT_EQ(ERR_get_error(), 0UL);
}

TEST_F(VideoFile, sameResultsOnEveryMachine) {
    ozu::test::Random random(20261122);
    ozu::test::Digest digest;
    for (int round = 0; round < 60; ++round) {
        const unsigned keyLen = 16 + 8 * random.below(3);
        const std::uint32_t offset = round % 3 == 0 ? 0 : random.below(10000);
        writeFile(file, noise(offset, 3) + region(random.below(100000), keyLen));
        digest.add(run(keyLen, static_cast<long>(offset)));
        digest.add(readFile(file));
    }
    digest.print("decrypted videos");
}
