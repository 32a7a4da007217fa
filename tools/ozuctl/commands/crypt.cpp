// ozuctl crypt, video, random, db-key: the library's ciphers and random numbers.

#include "arguments.h"
#include "codes.h"
#include "commands/commands.h"
#include "files.h"
#include "log_tap.h"
#include "numbers.h"
#include "text.h"

#include <utils_ozu/crypto.h>
#include <utils_ozu/database_key.h>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace ozuctl {

namespace {

using Bytes = std::vector<unsigned char>;

struct KeyOptions {
    std::string hex, file;
};

void addKeyOptions(CLI::App &command, KeyOptions &key, const std::string &lengths) {
    auto *group = command.add_option_group("key");
    group->add_option("--key", key.hex,
                      "Key in hexadecimal, " + lengths + "; other users may see it in the process list");
    group->add_option("--key-file", key.file, "File with the key in hexadecimal; '-' is standard input")
        ->type_name("FILE");
    group->require_option(1);
}

constexpr std::uint64_t kMaxKeyText = 4096;

std::string readText(const std::string &path) {
    return contentOf(path == "-" ? "/dev/stdin" : path, kMaxKeyText);
}

Bytes keyBytes(const KeyOptions &options, const std::vector<std::size_t> &sizes) {
    std::string text = options.file.empty() ? options.hex : readText(options.file);
    while (!text.empty() && isspace(static_cast<unsigned char>(text.back())) != 0) {
        text.pop_back();
    }
    // The key itself is in no message.
    if (text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        throw CommandError(kUsage, "the key is not hexadecimal");
    }
    if (text.size() % 2 != 0 || std::ranges::find(sizes, text.size() / 2) == sizes.end()) {
        throw CommandError(kUsage, "the key has " + std::to_string(text.size()) + " digits",
                           "Type 'ozuctl COMMAND --help' for how many it must have.");
    }
    Bytes key = requireBytes("the key", text);
    OPENSSL_cleanse(text.data(), text.size());
    return key;
}

std::uintmax_t sizeOf(const std::string &path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return error ? 0 : size;
}

constexpr std::size_t kBlock = 16;

struct CryptOptions {
    KeyOptions key;
    std::string in, out;
};

// The length of what a file of whole blocks decrypts to: its last byte says how much of it is padding.
std::uintmax_t decryptedSize(const std::string &path, std::uintmax_t size, const Bytes &key) {
    std::array<unsigned char, kBlock> last{};
    std::ifstream file(path, std::ios::binary);
    file.seekg(-static_cast<std::streamoff>(kBlock), std::ios::end);
    file.read(reinterpret_cast<char *>(last.data()), kBlock);
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> cipher(EVP_CIPHER_CTX_new(),
                                                                                 EVP_CIPHER_CTX_free);
    std::array<unsigned char, 2 * kBlock> plain{};
    int length = 0;
    const bool decrypted =
        file && cipher != nullptr &&
        EVP_DecryptInit_ex(cipher.get(), EVP_aes_128_ecb(), nullptr, key.data(), nullptr) == 1 &&
        EVP_CIPHER_CTX_set_padding(cipher.get(), 0) == 1 &&
        EVP_DecryptUpdate(cipher.get(), plain.data(), &length, last.data(), kBlock) == 1;
    const std::uintmax_t padding = decrypted ? plain[kBlock - 1] : kBlock;
    OPENSSL_cleanse(plain.data(), plain.size());
    return size - std::min<std::uintmax_t>(padding, size);
}

// The library does not look at what writing gave: a file that is too short was cut off by a full disk.
void requireWritten(const CryptOptions &options, const Bytes &key, bool encrypt) {
    struct stat in = {};
    struct stat out = {};
    if (stat(options.in.c_str(), &in) != 0 || stat(options.out.c_str(), &out) != 0) {
        throw CommandError(kLibraryFailed,
                           "the file " + inQuotes(options.out) + " cannot be looked at: " + strerror(errno));
    }
    if (!S_ISREG(in.st_mode) || S_ISFIFO(out.st_mode)) {
        return; // a pipe's length is not known
    }
    const auto size = static_cast<std::uintmax_t>(in.st_size);
    const std::uintmax_t whole =
        encrypt ? size / kBlock * kBlock + kBlock : decryptedSize(options.in, size, key);
    const std::uintmax_t written = S_ISREG(out.st_mode) ? static_cast<std::uintmax_t>(out.st_size) : 0;
    if (written != whole) {
        throw CommandError(kLibraryFailed, "the file " + inQuotes(options.out) +
                                               " was not written in full: " + std::to_string(written) +
                                               " of " + std::to_string(whole) + " bytes; is the disk full?");
    }
}

ExitCode runCrypt(const Context &context, const CryptOptions &options, bool encrypt) {
    if (std::error_code error; std::filesystem::equivalent(options.in, options.out, error)) {
        throw CommandError(kRefused,
                           "refused: the output is the input, which opening it for writing would empty");
    }
    Bytes key = keyBytes(options.key, {16});
    requirePlain(options.in);
    umask(077);
    unsigned result = 0;
    const auto lines = linesOf([&] {
        result =
            ozuutils_crypt_aes128ecb(options.in.c_str(), options.out.c_str(), key.data(), encrypt ? 1 : 0);
    });
    if (result != 0) {
        OPENSSL_cleanse(key.data(), key.size());
        const char *why =
            encrypt ? "the cipher failed" : "the cipher failed: another key, or not a whole encrypted file";
        throw CommandError(kLibraryFailed, (lines.empty() ? why : lines.back().text) + " (code " +
                                               std::to_string(result) + ")");
    }
    requireWritten(options, key, encrypt);
    OPENSSL_cleanse(key.data(), key.size());
    print(context, {{"file", options.out}, {"bytes", sizeOf(options.out)}});
    return kDone;
}

void addCrypt(CLI::App &group, Context &context, bool encrypt) {
    CLI::App *command =
        group.add_subcommand(encrypt ? "encrypt" : "decrypt",
                             encrypt ? "Encrypt a file into another" : "Decrypt a file into another");
    auto options = std::make_shared<CryptOptions>();
    addKeyOptions(*command, options->key, "32 digits");
    command->add_option("in", options->in, "File to read")->required();
    command->add_option("out", options->out, "File to write, readable by its owner only when it is new")
        ->required();
    command->callback([&context, options, encrypt] {
        context.command = [&context, options, encrypt] { return runCrypt(context, *options, encrypt); };
    });
}

// Where in the file the library stands, from the kernel's table of our descriptors.
long positionIn(const std::filesystem::path &file) {
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        if (std::filesystem::read_symlink(entry.path(), error) == file) {
            std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
            std::string label;
            long position = 0;
            if (info >> label >> position && label == "pos:") {
                return position;
            }
        }
    }
    return -1;
}

// Shows on a terminal how far the call has come, as long as it exists.
class Progress {
  public:
    Progress(const std::string &path, long offset) {
        if (isatty(STDERR_FILENO) == 0) {
            return;
        }
        std::error_code error;
        const auto file = std::filesystem::canonical(path, error);
        const auto size = static_cast<double>(sizeOf(path)) - static_cast<double>(offset);
        thread_ = std::thread([this, file, offset, size] {
            while (!done_) {
                const long position = positionIn(file);
                if (position >= offset && size > 0) {
                    std::cerr << "\r"
                              << static_cast<int>(100.0 * static_cast<double>(position - offset) / size)
                              << " %" << std::flush;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
            std::cerr << "\r      \r" << std::flush;
        });
    }
    ~Progress() {
        done_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

  private:
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

struct VideoOptions {
    KeyOptions key;
    std::string file;
    long offset = 0;
};

const char *videoFailure(unsigned result) {
    switch (result) {
    case 1:
        return "is it another key or offset? Decrypted with this one, the file does not begin with the mark "
               "of "
               "a video at the offset, and nothing was changed; or a write failed, and the file is decrypted "
               "in "
               "part";
    case 70:
        return "the file cannot be opened for reading and writing";
    default:
        return "the library refused the call";
    }
}

ExitCode runVideo(const Context &context, const VideoOptions &options) {
    Bytes key = keyBytes(options.key, {16, 24, 32});
    requirePlain(options.file);
    if (static_cast<std::uintmax_t>(options.offset) >= sizeOf(options.file)) {
        throw CommandError(kUsage, "--offset must be below the file's size of " +
                                       std::to_string(sizeOf(options.file)) + " bytes, not " +
                                       std::to_string(options.offset) + "; nothing was changed");
    }
    context.requireConsent("decrypts the file in place, which cannot be undone");
    unsigned result = 0;
    {
        const Progress progress(options.file, options.offset);
        result = decryptVideoFile(options.file.c_str(), key.data(), static_cast<unsigned>(key.size()),
                                  options.offset);
    }
    const std::size_t chunk = key.size();
    OPENSSL_cleanse(key.data(), key.size());
    if (result != 0) {
        throw CommandError(kLibraryFailed, std::string(videoFailure(result)) + " (" +
                                               libraryCode(static_cast<int>(result)) + ")");
    }
    const auto size = sizeOf(options.file), offset = static_cast<std::uintmax_t>(options.offset);
    const auto region = size > offset ? size - offset : 0;
    print(context, {{"file", options.file}, {"decrypted", region / chunk * chunk}, {"left", region % chunk}});
    return kDone;
}

void addVideo(CLI::App &app, Context &context) {
    CLI::App *group = app.add_subcommand("video", "Protected video files");
    group->require_subcommand(1);
    CLI::App *command = group->add_subcommand("decrypt", "Decrypt a video file in place (AES-CBC)");
    auto options = std::make_shared<VideoOptions>();
    addKeyOptions(*command, options->key, "32, 48 or 64 digits");
    command->add_option("file", options->file, "File to rewrite")->required();
    addNumber(*command, "--offset", options->offset, 0, std::numeric_limits<long>::max(),
              "Where the encrypted region begins, in bytes");
    command->callback([&context, options] {
        context.command = [&context, options] { return runVideo(context, *options); };
    });
}

ExitCode runRandomBytes(const Context &context, int count) {
    Bytes bytes(static_cast<std::size_t>(count));
    if (const unsigned result = ozuutils_rand_bytes(bytes.data(), count); result != 0) {
        throw CommandError(kLibraryFailed, "no random bytes (" + libraryCode(static_cast<int>(result)) + ")");
    }
    print(context, hexText(bytes));
    return kDone;
}

ExitCode runRandomNumber(const Context &context, int min, int max) {
    if (min > max) {
        throw CommandError(kUsage, "min must not be above max, but " + std::to_string(min) + " is above " +
                                       std::to_string(max));
    }
    unsigned seed = 0;
    ozuutils_rand_bytes(reinterpret_cast<unsigned char *>(&seed), sizeof(seed));
    std::srand(seed);
    print(context, ozuutils_random(min, max));
    return kDone;
}

void addRandom(CLI::App &app, Context &context) {
    CLI::App *group = app.add_subcommand("random", "Random bytes and numbers");
    group->require_subcommand(1);
    CLI::App *bytes = group->add_subcommand("bytes", "Random bytes in hexadecimal, suitable for keys");
    auto count = std::make_shared<int>(16);
    addNumber(*bytes, "count", *count, 0, 1 << 20, "How many (16)");
    bytes->callback([&context, count] {
        context.command = [&context, count] { return runRandomBytes(context, *count); };
    });
    CLI::App *number = group->add_subcommand("number", "A random number, not for secrets");
    auto limits = std::make_shared<std::pair<int, int>>();
    addNumber(*number, "min", limits->first, kLeastInt, kMaxInt, "Least number")->required();
    addNumber(*number, "max", limits->second, kLeastInt, kMaxInt, "Greatest number")->required();
    number->callback([&context, limits] {
        context.command = [&context, limits] {
            return runRandomNumber(context, limits->first, limits->second);
        };
    });
}

ExitCode runDatabaseKey(const Context &context, bool show) {
    char key[41] = {};
    int result = 0;
    const auto lines = linesOf([&] { result = ozuutils_getDBcypher(key); });
    if (result != 0) {
        throw CommandError(kLibraryFailed, lines.empty()
                                               ? "the kernel command line has no 'androidboot.serialno='"
                                               : lines.back().text);
    }
    if (show) {
        print(context, key);
    } else {
        print(context, {{"derived", true}, {"shown", "no; --show prints it"}});
    }
    OPENSSL_cleanse(key, sizeof(key));
    return kDone;
}

void addDatabaseKey(CLI::App &app, Context &context) {
    CLI::App *command = app.add_subcommand("db-key", "Derive the passphrase of the panel's database");
    auto show = std::make_shared<bool>(false);
    command->add_flag("--show", *show, "Print it; it is a secret");
    command->callback(
        [&context, show] { context.command = [&context, show] { return runDatabaseKey(context, *show); }; });
}

} // namespace

void registerCrypt(CLI::App &app, Context &context) {
    CLI::App *crypt = app.add_subcommand("crypt", "Files in AES-128-ECB");
    crypt->require_subcommand(1);
    addCrypt(*crypt, context, true);
    addCrypt(*crypt, context, false);
    addVideo(app, context);
    addRandom(app, context);
    addDatabaseKey(app, context);
}

} // namespace ozuctl
