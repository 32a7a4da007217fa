// AES-128-ECB from one file to another.

#include <utils_ozu/crypto.h>

#include <base/log.h>
#include <base/uninitialized.h>
#include <base/unique_file.h>
#include <security/cipher.h>
#include <security/secret.h>

namespace {

constexpr unsigned kDone = 0;
constexpr unsigned kCipherFailed = 2;
constexpr unsigned kNotOpened = 4;

constexpr std::size_t kPieceSize = 32768;
constexpr std::size_t kBlockSize = 16;

// Results of the writes are not looked at: the cipher's verdict is the result.
void store(std::FILE *output, const unsigned char *bytes, int count) noexcept {
    static_cast<void>(std::fwrite(bytes, 1, static_cast<std::size_t>(count), output));
}

// Passes the whole input through an initialised cipher.
unsigned stream(EVP_CIPHER_CTX *context, std::FILE *input, std::FILE *output) noexcept {
    OZU_UNINITIALIZED ozu::SecretBuffer<kPieceSize + kBlockSize> piece;
    OZU_UNINITIALIZED ozu::SecretBuffer<kPieceSize + 3 * kBlockSize> produced;
    int count = 0;
    // Decryption holds one block back. Reading that much more at first makes all writes whole pages.
    std::size_t wanted = kPieceSize + (EVP_CIPHER_CTX_encrypting(context) != 0 ? 0 : kBlockSize);
    for (;; wanted = kPieceSize) {
        const std::size_t got = piece.read(input, wanted);
        if (got == 0) {
            break;
        }
        if (EVP_CipherUpdate(context, produced.use(got + kBlockSize), &count, piece.data(),
                             static_cast<int>(got)) != 1) {
            return kCipherFailed;
        }
        store(output, produced.data(), count);
    }
    if (EVP_CipherFinal_ex(context, produced.use(kBlockSize), &count) != 1) {
        return kCipherFailed;
    }
    store(output, produced.data(), count);
    return kDone;
}

} // namespace

unsigned ozuutils_crypt_aes128ecb(const char *inPath, const char *outPath, const unsigned char *key,
                                  int encrypt) noexcept {
    const ozu::ErrorQueueGuard errors;
    ozu::CipherContext context;
    if (!context.valid()) {
        OZU_LOG_TEXT(OZULOG_ERROR, "Error allocating OpenSSL cipher context");
        return kCipherFailed;
    }
    ozu::UniqueFile input(std::fopen(inPath, "re"));
    if (!input.valid()) {
        OZU_LOG(OZULOG_ERROR, "Error opening input file: %s", inPath);
        return kNotOpened;
    }
    ozu::UniqueFile output(std::fopen(outPath, "we"));
    if (!output.valid()) {
        OZU_LOG(OZULOG_ERROR, "Error opening output file: %s", outPath);
        return kNotOpened;
    }
    input.unbuffered();
    output.unbuffered();
    EVP_CIPHER_CTX_reset(context.get());
    if (EVP_CipherInit_ex(context.get(), EVP_aes_128_ecb(), nullptr, key, nullptr, encrypt) != 1) {
        return kCipherFailed;
    }
    const unsigned result = stream(context.get(), input.get(), output.get());
    context.release(); // no key stays in memory while the files are closed
    return result;
}
