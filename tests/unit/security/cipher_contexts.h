// Cipher contexts, counted for tests that wrap EVP_CIPHER_CTX_new and EVP_CIPHER_CTX_free, and the fixture
// that finds none of them and nothing in OpenSSL's error queue left behind.
#pragma once

#include "fake_platform.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

namespace ozu::test {

struct CipherContexts {
    bool refused = false; // no context is made
    int open = 0;
    std::vector<std::string> ends; // what was given back, in order: "context", and what a test adds
};

inline CipherContexts &cipherContexts() {
    static CipherContexts contexts;
    return contexts;
}

class CipherTest : public PlatformTest {
  protected:
    void SetUp() override {
        PlatformTest::SetUp();
        cipherContexts() = {};
        ERR_clear_error();
    }
    void TearDown() override {
        EXPECT_EQ(cipherContexts().open, 0) << "cipher contexts left";
        EXPECT_EQ(ERR_peek_error(), 0UL) << "left in OpenSSL's error queue";
        cipherContexts() = {};
        PlatformTest::TearDown();
    }
};

} // namespace ozu::test

extern "C" {

EVP_CIPHER_CTX *__real_EVP_CIPHER_CTX_new();
[[gnu::used]] inline EVP_CIPHER_CTX *__wrap_EVP_CIPHER_CTX_new() {
    auto &contexts = ozu::test::cipherContexts();
    if (contexts.refused) {
        return nullptr;
    }
    ++contexts.open;
    return __real_EVP_CIPHER_CTX_new();
}

void __real_EVP_CIPHER_CTX_free(EVP_CIPHER_CTX *);
[[gnu::used]] inline void __wrap_EVP_CIPHER_CTX_free(EVP_CIPHER_CTX *context) {
    auto &contexts = ozu::test::cipherContexts();
    contexts.open -= context != nullptr ? 1 : 0;
    contexts.ends.emplace_back("context");
    __real_EVP_CIPHER_CTX_free(context);
}

} // extern "C"
