// Streams that are read and written in pieces, ciphers, random bytes and pages handed back.
#include "injection.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/mman.h>

#include <cstdio>

using ozu::test::injection;
using ozu::test::orFail;

extern "C" {

std::size_t __real_fread(void *buffer, std::size_t size, std::size_t count, FILE *file);
std::size_t __real_fwrite(const void *bytes, std::size_t size, std::size_t count, FILE *file);
int __real_fseek(FILE *file, long offset, int from);
char *__real_fgets(char *line, int size, FILE *file);
int __real_madvise(void *start, std::size_t size, int advice);
EVP_CIPHER_CTX *__real_EVP_CIPHER_CTX_new();
void __real_EVP_CIPHER_CTX_free(EVP_CIPHER_CTX *context);
int __real_EVP_CipherInit_ex(EVP_CIPHER_CTX *context, const EVP_CIPHER *cipher, ENGINE *engine,
                             const unsigned char *key, const unsigned char *iv, int encrypt);
int __real_EVP_CipherUpdate(EVP_CIPHER_CTX *context, unsigned char *out, int *count, const unsigned char *in,
                            int size);
int __real_EVP_CipherFinal_ex(EVP_CIPHER_CTX *context, unsigned char *out, int *count);
int __real_EVP_CIPHER_CTX_set_padding(EVP_CIPHER_CTX *context, int padding);
int __real_RAND_bytes(unsigned char *buffer, int count);

// streams

std::size_t __wrap_fread(void *buffer, std::size_t size, std::size_t count, FILE *file) {
    return orFail("fread", [=] { return __real_fread(buffer, size, count, file); });
}

// What fread and fgets become where the compiler knows the size of the buffer.
std::size_t __wrap___fread_chk(void *buffer, std::size_t room, std::size_t size, std::size_t count,
                               FILE *file) {
    EXPECT_LE(size * count, room);
    return __wrap_fread(buffer, size, count, file);
}

char *__wrap_fgets(char *line, int size, FILE *file) {
    return orFail("fgets", [=] { return __real_fgets(line, size, file); });
}

char *__wrap___fgets_chk(char *line, std::size_t room, int size, FILE *file) {
    EXPECT_LE(static_cast<std::size_t>(size), room);
    return __wrap_fgets(line, size, file);
}

std::size_t __wrap_fwrite(const void *bytes, std::size_t size, std::size_t count, FILE *file) {
    return orFail("fwrite", [=] { return __real_fwrite(bytes, size, count, file); });
}

int __wrap_fseek(FILE *file, long offset, int from) {
    return orFail("fseek", [=] { return __real_fseek(file, offset, from); });
}

int __wrap_madvise(void *start, std::size_t size, int advice) {
    return orFail("madvise", [=] { return __real_madvise(start, size, advice); });
}

// OpenSSL

EVP_CIPHER_CTX *__wrap_EVP_CIPHER_CTX_new() {
    EVP_CIPHER_CTX *context = orFail("EVP_CIPHER_CTX_new", [] { return __real_EVP_CIPHER_CTX_new(); });
    if (injection().active() && context != nullptr) {
        injection().memory.insert(context);
    }
    return context;
}

void __wrap_EVP_CIPHER_CTX_free(EVP_CIPHER_CTX *context) {
    injection().memory.erase(context);
    __real_EVP_CIPHER_CTX_free(context);
}

int __wrap_EVP_CipherInit_ex(EVP_CIPHER_CTX *context, const EVP_CIPHER *cipher, ENGINE *engine,
                             const unsigned char *key, const unsigned char *iv, int encrypt) {
    return orFail("EVP_CipherInit_ex",
                  [=] { return __real_EVP_CipherInit_ex(context, cipher, engine, key, iv, encrypt); });
}

int __wrap_EVP_CipherUpdate(EVP_CIPHER_CTX *context, unsigned char *out, int *count, const unsigned char *in,
                            int size) {
    return orFail("EVP_CipherUpdate", [=] { return __real_EVP_CipherUpdate(context, out, count, in, size); });
}

int __wrap_EVP_CipherFinal_ex(EVP_CIPHER_CTX *context, unsigned char *out, int *count) {
    return orFail("EVP_CipherFinal_ex", [=] { return __real_EVP_CipherFinal_ex(context, out, count); });
}

int __wrap_EVP_CIPHER_CTX_set_padding(EVP_CIPHER_CTX *context, int padding) {
    return orFail("EVP_CIPHER_CTX_set_padding",
                  [=] { return __real_EVP_CIPHER_CTX_set_padding(context, padding); });
}

int __wrap_RAND_bytes(unsigned char *buffer, int count) {
    return orFail("RAND_bytes", [=] { return __real_RAND_bytes(buffer, count); });
}

} // extern "C"
