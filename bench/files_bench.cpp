// One measured job a process; files_bench.py runs and compares them.
//
//   files_bench ecb IN OUT KEY ENCRYPT    ozuutils_crypt_aes128ecb
//   files_bench video FILE KEY            decryptVideoFile from offset 0
//   files_bench loop FILE KEY             the same work, a read, a seek and a write for every 16 bytes
//   files_bench ciphers FILE WHAT ROUNDS  one of "ecb", "stdio" (the same through a loop of EVP and stdio),
//   "video" and "evp"
//                                         (the same through EVP in pieces of 64 KiB), so often; prints the
//                                         median nanoseconds of a call
//   files_bench pictures ROUNDS           ozuutils_jpegValidator and a plain libjpeg decode, in turns; prints
//   the
//                                         nanoseconds of both for each picture

#include <utils_ozu/crypto.h>
#include <utils_ozu/jpeg.h>

#include "pictures.h"

#include <openssl/aes.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <jpeglib.h>

namespace {

std::vector<unsigned char> bytesOf(const std::string &hex) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

int decryptBlockByBlock(const char *path, const std::vector<unsigned char> &key) {
    AES_KEY schedule;
    AES_set_decrypt_key(key.data(), static_cast<int>(key.size() * 8), &schedule);
    unsigned char iv[16] = {}, block[16];
    FILE *file = fopen(path, "r+");
    if (file == nullptr) {
        return 1;
    }
    while (fread(block, 1, sizeof(block), file) == sizeof(block)) {
        AES_cbc_encrypt(block, block, sizeof(block), &schedule, iv, AES_DECRYPT);
        if (fseek(file, -16, SEEK_CUR) != 0 || fwrite(block, 1, sizeof(block), file) != sizeof(block) ||
            fseek(file, 0, SEEK_CUR) != 0) {
            break;
        }
    }
    return fclose(file);
}

constexpr unsigned char kKey[16] = {0x13, 0x57, 0x9b, 0xdf};

// What a program would write that wants a file enciphered.
int encryptThroughStdio(const char *inPath, const char *outPath) {
    FILE *in = fopen(inPath, "r"), *out = fopen(outPath, "w");
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    if (in == nullptr || out == nullptr || context == nullptr) {
        return 1;
    }
    EVP_CipherInit_ex(context, EVP_aes_128_ecb(), nullptr, kKey, nullptr, 1);
    unsigned char piece[1024], produced[1024 + 32];
    int count = 0;
    for (std::size_t got = 0; (got = fread(piece, 1, sizeof piece, in)) > 0;) {
        EVP_CipherUpdate(context, produced, &count, piece, static_cast<int>(got));
        fwrite(produced, 1, static_cast<std::size_t>(count), out);
    }
    EVP_CipherFinal_ex(context, produced, &count);
    fwrite(produced, 1, static_cast<std::size_t>(count), out);
    EVP_CIPHER_CTX_free(context);
    fclose(in);
    return fclose(out);
}

// The same as decryptVideoFile() for a file of whole pieces.
int decryptInPieces(const char *path) {
    static unsigned char piece[65536];
    const unsigned char iv[16] = {};
    FILE *file = fopen(path, "r+");
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    if (file == nullptr || context == nullptr) {
        return 1;
    }
    setvbuf(file, nullptr, _IONBF, 0);
    EVP_CipherInit_ex(context, EVP_aes_128_cbc(), nullptr, kKey, iv, 0);
    EVP_CIPHER_CTX_set_padding(context, 0);
    int count = 0;
    for (std::size_t got = 0; (got = fread(piece, 1, sizeof piece, file)) > 0;) {
        EVP_CipherUpdate(context, piece, &count, piece, static_cast<int>(got));
        fseek(file, -static_cast<long>(got), SEEK_CUR);
        fwrite(piece, 1, got, file);
        fseek(file, 0, SEEK_CUR);
    }
    EVP_CIPHER_CTX_free(context);
    return fclose(file);
}

// What a program would write that wants the pixels: everything at its default.
int decodeInFull(const std::string &jpeg) {
    jpeg_decompress_struct decoder = {};
    jpeg_error_mgr errors = {};
    decoder.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decoder);
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char *>(jpeg.data()), jpeg.size());
    jpeg_read_header(&decoder, TRUE);
    jpeg_start_decompress(&decoder);
    const std::size_t stride =
        std::size_t{decoder.output_width} * static_cast<unsigned>(decoder.output_components);
    auto *pixels = static_cast<unsigned char *>(malloc(stride * decoder.output_height));
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW row = pixels + decoder.output_scanline * stride;
        jpeg_read_scanlines(&decoder, &row, 1);
    }
    jpeg_finish_decompress(&decoder);
    jpeg_destroy_decompress(&decoder);
    free(pixels);
    return static_cast<int>(errors.num_warnings);
}

long long processorTime() {
    struct timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

template <typename Work>
long long nanoseconds(Work work) {
    const long long start = processorTime();
    if (work() != 0) {
        fprintf(stderr, "a valid picture or file was refused\n");
        exit(1);
    }
    return processorTime() - start;
}

long long median(std::vector<long long> times) {
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2),
                     times.end());
    return times[times.size() / 2];
}

int measureCipher(const std::string &path, const std::string &what, int rounds) {
    const std::string out = path + ".out";
    std::vector<long long> times;
    for (int i = 0; i < rounds; ++i) {
        // The mark comes out of the first block only if it went in: each round deciphers the same file.
        if (what == "video" || what == "evp") {
            std::filesystem::copy_file(path, out, std::filesystem::copy_options::overwrite_existing);
        }
        times.push_back(nanoseconds([&] {
            if (what == "ecb") {
                return static_cast<int>(ozuutils_crypt_aes128ecb(path.c_str(), out.c_str(), kKey, 1));
            }
            if (what == "stdio") {
                return encryptThroughStdio(path.c_str(), out.c_str());
            }
            if (what == "video") {
                return static_cast<int>(decryptVideoFile(out.c_str(), kKey, sizeof kKey, 0));
            }
            return decryptInPieces(out.c_str());
        }));
    }
    printf("%lld\n", median(times));
    return 0;
}

int comparePictures(int rounds) {
    const ozu::test::PictureShape shapes[] = {
        {640, 480, 3, false, false, 0, 75, 2, "camera_640x480"},
        {1280, 960, 3, false, false, 0, 85, 2, "camera_1280x960"},
        {640, 480, 3, false, false, 0, 75, 1, "full_chroma_640x480"},
        {640, 480, 1, false, false, 0, 75, 1, "grey_640x480"},
        {640, 480, 3, true, false, 0, 75, 2, "progressive_640x480"},
        {160, 120, 3, false, false, 0, 60, 2, "small_160x120"},
    };
    for (const auto &shape : shapes) {
        const std::string jpeg = ozu::test::picture(shape);
        const auto *data = reinterpret_cast<const unsigned char *>(jpeg.data());
        std::vector<long long> ours, plain;
        for (int i = 0; i < rounds; ++i) {
            ours.push_back(nanoseconds([&] { return ozuutils_jpegValidator(data, jpeg.size()); }));
            plain.push_back(nanoseconds([&] { return decodeInFull(jpeg); }));
        }
        printf("%s %lld %lld\n", shape.label, median(ours), median(plain));
    }
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    const std::string job = argc > 1 ? argv[1] : "";
    if (job == "ecb" && argc == 6) {
        return static_cast<int>(
            ozuutils_crypt_aes128ecb(argv[2], argv[3], bytesOf(argv[4]).data(), atoi(argv[5])));
    }
    if (job == "video" && argc == 4) {
        const auto key = bytesOf(argv[3]);
        return static_cast<int>(decryptVideoFile(argv[2], key.data(), static_cast<unsigned>(key.size()), 0));
    }
    if (job == "loop" && argc == 4) {
        return decryptBlockByBlock(argv[2], bytesOf(argv[3]));
    }
    if (job == "ciphers" && argc == 5) {
        return measureCipher(argv[2], argv[3], atoi(argv[4]));
    }
    if (job == "pictures" && argc == 3) {
        return comparePictures(atoi(argv[2]));
    }
    fprintf(stderr, "usage: files_bench ecb|video|loop|ciphers|pictures ...\n");
    return 2;
}
