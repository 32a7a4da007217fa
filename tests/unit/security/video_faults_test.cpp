// Faults of the video cipher that no file brings about: the cipher's own, and a disk that fails twice.

#include <utils_ozu/crypto.h>

#include "cipher_contexts.h"
#include "test_files.h"

#include <openssl/err.h>

#include <cstdio>

using ozu::test::cipherContexts;
using ozu::test::platform;
using ozu::test::readFile;
using ozu::test::writeFile;

namespace {

struct Faults {
    bool initialisation = false, padding = false;
    int deciphering = 0; // which call fails, from 1
    bool writesHalfAChunk = false, cannotGoBack = false;
    int deciphered = 0, writes = 0;
} faults;

constexpr std::size_t kHalf = 8; // of the shortest chunk

class VideoFaults : public ozu::test::CipherTest, public testing::WithParamInterface<unsigned> {
  protected:
    void SetUp() override {
        CipherTest::SetUp();
        faults = {};
        writeFile(file, before);
    }
    void TearDown() override {
        faults = {};
        EXPECT_THAT(platform().journal, testing::IsEmpty()) << "logs nothing";
        CipherTest::TearDown();
    }
    unsigned run() {
        const std::string key(GetParam(), 'k');
        return decryptVideoFile(file.c_str(), reinterpret_cast<const unsigned char *>(key.data()), GetParam(),
                                0);
    }
    void expectNothingDone() {
        EXPECT_EQ(run(), 1u);
        EXPECT_EQ(faults.writes, 0);
        EXPECT_TRUE(readFile(file) == before);
        EXPECT_EQ(cipherContexts().open, 0) << "cipher contexts left";
    }
    ozu::test::TemporaryDirectory directory;
    const std::string file = directory.file("video");
    const std::string before = ozu::test::noise(1000, 3);
};

int failed() {
    ERR_raise(ERR_LIB_EVP, EVP_R_INITIALIZATION_ERROR);
    return 0;
}

} // namespace

extern "C" {

int __real_EVP_CipherInit_ex(EVP_CIPHER_CTX *, const EVP_CIPHER *, ENGINE *, const unsigned char *,
                             const unsigned char *, int);
int __wrap_EVP_CipherInit_ex(EVP_CIPHER_CTX *context, const EVP_CIPHER *cipher, ENGINE *engine,
                             const unsigned char *key, const unsigned char *iv, int encrypt) {
    EXPECT_EQ(encrypt, 0);
    return faults.initialisation ? failed()
                                 : __real_EVP_CipherInit_ex(context, cipher, engine, key, iv, encrypt);
}

int __real_EVP_CIPHER_CTX_set_padding(EVP_CIPHER_CTX *, int);
int __wrap_EVP_CIPHER_CTX_set_padding(EVP_CIPHER_CTX *context, int padding) {
    EXPECT_EQ(padding, 0);
    return faults.padding ? failed() : __real_EVP_CIPHER_CTX_set_padding(context, padding);
}

// Deciphers to a text with the mark, whatever it is given.
int __wrap_EVP_CipherUpdate(EVP_CIPHER_CTX *, unsigned char *out, int *produced, const unsigned char *,
                            int size) {
    if (++faults.deciphered == faults.deciphering) {
        return failed();
    }
    *produced = size;
    for (int i = 0; i < size; ++i) {
        out[i] = static_cast<unsigned char>(i < 3 ? "OZU"[i] : 'p');
    }
    return 1;
}

std::size_t __real_fwrite(const void *, std::size_t, std::size_t, FILE *);
std::size_t __wrap_fwrite(const void *bytes, std::size_t size, std::size_t count, FILE *stream) {
    ++faults.writes;
    return __real_fwrite(bytes, size, faults.writesHalfAChunk && faults.writes == 1 ? kHalf : count, stream);
}

int __real_fseek(FILE *, long, int);
int __wrap_fseek(FILE *stream, long offset, int whence) {
    return faults.cannotGoBack && faults.writes > 0 ? -1 : __real_fseek(stream, offset, whence);
}

} // extern "C"

TEST_P(VideoFaults, initialisation) {
    faults.initialisation = true;
    expectNothingDone();
}

TEST_P(VideoFaults, padding) {
    faults.padding = true;
    expectNothingDone();
}

TEST_P(VideoFaults, deciphering) {
    faults.deciphering = 1;
    expectNothingDone();
}

TEST_P(VideoFaults, decipheringOfTheSecondPiece) {
    const std::string longer = ozu::test::noise(60000, 4);
    writeFile(file, longer);
    faults.deciphering = 2;
    EXPECT_EQ(run(), 1u);
    const std::string after = readFile(file);
    const std::size_t piece = 32768 / (GetParam() == 24 ? 32 : GetParam()) * GetParam();
    EXPECT_EQ(after.substr(piece - 4, 4), "pppp");
    EXPECT_TRUE(after.substr(piece) == longer.substr(piece));
}

// A write that ends inside a chunk is taken back, so that all of the chunk is as it was.
TEST_P(VideoFaults, halfAChunkIsTakenBack) {
    faults.writesHalfAChunk = true;
    EXPECT_EQ(run(), 1u);
    EXPECT_EQ(faults.writes, 2);
    EXPECT_TRUE(readFile(file) == before);
}

TEST_P(VideoFaults, halfAChunkStaysWhereTheDiskCannotGoBack) {
    faults.writesHalfAChunk = true;
    faults.cannotGoBack = true;
    EXPECT_EQ(run(), 1u);
    EXPECT_EQ(faults.writes, 1);
    EXPECT_TRUE(readFile(file) == "OZUppppp" + before.substr(kHalf));
}

INSTANTIATE_TEST_SUITE_P(KeyLengths, VideoFaults, testing::Values(16U, 24U, 32U));
