#include "scenarios.h"

#include <utils_ozu/crypto.h>
#include <utils_ozu/database_key.h>

#include "injection.h"
#include "test_files.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <filesystem>

namespace ozu::test {

namespace {

constexpr std::array<unsigned char, 16> kKey = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
constexpr std::size_t kSize = 80000; // three pieces

const std::string &plainText() {
    static const std::string kText = "OZU" + noise(kSize - 3);
    return kText;
}

// What the ciphers have to give, made without the library.
std::string encrypted(const EVP_CIPHER *cipher, bool padded) {
    const std::string iv = bytesOf(OZU_TEST_VIDEO_IV);
    std::string out(kSize + 32, '\0');
    auto *bytes = reinterpret_cast<unsigned char *>(out.data());
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    int first = 0, last = 0;
    EVP_EncryptInit_ex(context, cipher, nullptr, kKey.data(),
                       reinterpret_cast<const unsigned char *>(iv.data()));
    EVP_CIPHER_CTX_set_padding(context, padded ? 1 : 0);
    EVP_EncryptUpdate(context, bytes, &first, reinterpret_cast<const unsigned char *>(plainText().data()),
                      static_cast<int>(kSize));
    EVP_EncryptFinal_ex(context, bytes + first, &last);
    EVP_CIPHER_CTX_free(context);
    out.resize(static_cast<std::size_t>(first + last));
    return out;
}

// How much of a file is as it should be, and what else stands in it.
std::string content(const std::string &path, const std::string &whole) {
    if (!std::filesystem::exists(path)) {
        return "no output file";
    }
    const std::string found = readFile(path);
    if (found == whole) {
        return "output whole";
    }
    const auto same = static_cast<std::size_t>(
        std::mismatch(found.begin(), found.end(), whole.begin(), whole.end()).first - found.begin());
    const std::string beginning = "output right for " + std::to_string(same) + " bytes";
    const std::size_t more = found.size() - same;
    return more == 0 ? beginning : beginning + (more == 16 ? ", then a last block" : ", then others");
}

std::string cipherFile(bool encrypt) {
    injection().pause();
    static const std::string kCipher = encrypted(EVP_aes_128_ecb(), true);
    const std::string &source = encrypt ? plainText() : kCipher, &result = encrypt ? kCipher : plainText();
    const std::string in = worldFile("in"), out = worldFile("out");
    writeFile(in, source);
    injection().resume();
    const unsigned code = ozuutils_crypt_aes128ecb(in.c_str(), out.c_str(), kKey.data(), encrypt ? 1 : 0);
    injection().pause();
    return told(returns(code), content(out, result));
}

std::string video() {
    injection().pause();
    static const std::string kCipher = encrypted(EVP_aes_128_cbc(), false);
    const std::string file = worldFile("video");
    writeFile(file, kCipher);
    injection().resume();
    const unsigned code = decryptVideoFile(file.c_str(), kKey.data(), kKey.size(), 0);
    injection().pause();
    const std::string now = readFile(file);
    const auto plain = static_cast<std::size_t>(
        std::mismatch(now.begin(), now.end(), plainText().begin()).first - now.begin());
    const bool restIsCipher = now.compare(plain, std::string::npos, kCipher, plain, std::string::npos) == 0;
    return told(returns(code), restIsCipher && plain % kKey.size() == 0
                                   ? std::to_string(plain) + " bytes decrypted, the rest as it was"
                                   : "garbled after " + std::to_string(plain) + " bytes");
}

} // namespace

std::vector<Scenario> securityScenarios() {
    return {
        {"ozuutils_crypt_aes128ecb encrypt", [] { return cipherFile(true); }},
        {"ozuutils_crypt_aes128ecb decrypt", [] { return cipherFile(false); }},
        {"decryptVideoFile", video},
        {"ozuutils_rand_bytes",
         [] {
             std::array<unsigned char, 8> bytes;
             return returns(ozuutils_rand_bytes(bytes.data(), bytes.size()));
         }},
        {"ozuutils_getDBcypher",
         [] {
             std::array<char, 41> out = {'#', '\0'};
             const int result = ozuutils_getDBcypher(out.data());
             return told(returns(result), out[0] == '#' ? "key untouched" : "a key");
         }},
    };
}

} // namespace ozu::test
