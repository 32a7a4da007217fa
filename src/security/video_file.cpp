// Decryption in place of protected video files.

#include <utils_ozu/crypto.h>

#include <utils_ozu/results.h>

#include <base/uninitialized.h>
#include <base/unique_file.h>
#include <security/cipher.h>
#include <security/secret.h>

#include <build_secrets.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr unsigned kDone = 0;
constexpr unsigned kFailed = 1;

constexpr std::size_t kBlockSize = 16;
constexpr std::size_t kPieceSize = 32768;
constexpr std::size_t kPageSize = 4096;
constexpr int kDecipher = 0; // the direction, as the cipher takes it
constexpr char kMark[] = {'O', 'Z', 'U'};

using Piece = ozu::SecretBuffer<kPieceSize>;

const EVP_CIPHER *cipherFor(std::size_t keyLen) noexcept {
    switch (keyLen) {
    case 16:
        return EVP_aes_128_cbc();
    case 24:
        return EVP_aes_192_cbc();
    case 32:
        return EVP_aes_256_cbc();
    default:
        return nullptr;
    }
}

bool initialise(EVP_CIPHER_CTX *context, const EVP_CIPHER *cipher, const unsigned char *key) noexcept {
    static_assert(std::size(ozu::kVideoIvA) == kBlockSize && std::size(ozu::kVideoIvB) == kBlockSize);
    ozu::SecretArray<unsigned char, kBlockSize> iv;
    ozu::joinShares(ozu::kVideoIvA, ozu::kVideoIvB, iv);
    return EVP_CipherInit_ex(context, cipher, nullptr, key, iv.data(), kDecipher) == 1 &&
           EVP_CIPHER_CTX_set_padding(context, 0) == 1;
}

// A region that is rewritten chunk by chunk, in pieces of many chunks. A chunk is as long as the key; what
// follows the last whole chunk stays as it is. For the cipher a chunk of 24 bytes is filled up with zeros to
// whole blocks, so its last 8 bytes are half a block and the next chunk chains from the filled block.
class Region {
  public:
    Region(EVP_CIPHER_CTX *context, std::FILE *file, std::size_t chunkSize, long offset) noexcept
        : context_(context), file_(file), chunkSize_(chunkSize),
          blocksSize_((chunkSize + kBlockSize - 1) / kBlockSize * kBlockSize),
          position_(static_cast<unsigned long>(offset)) {}

    unsigned decrypt() noexcept {
        const std::size_t wanted = kPieceSize / blocksSize_ * chunkSize_;
        for (bool first = true;; first = false) {
            const std::size_t got = stored_.read(file_, wanted);
            const std::size_t whole = got / chunkSize_ * chunkSize_;
            if (whole == 0) {
                return kDone;
            }
            if (!decipher(whole) || (first && std::memcmp(plain_.data(), kMark, sizeof(kMark)) != 0)) {
                return kFailed;
            }
            if (std::fseek(file_, -static_cast<long>(got), SEEK_CUR) != 0 || !replace(whole)) {
                return kFailed;
            }
            if (got < wanted) {
                return kDone;
            }
            // A stream needs a seek between a write and the next read.
            if (std::fseek(file_, 0, SEEK_CUR) != 0) {
                return kFailed;
            }
        }
    }

  private:
    // Deciphers the first count bytes of the stored piece, whole chunks, into the plain one.
    bool decipher(std::size_t count) noexcept {
        int produced = 0;
        if (chunkSize_ == blocksSize_) {
            return EVP_CipherUpdate(context_, plain_.use(count), &produced, stored_.data(),
                                    static_cast<int>(count)) == 1;
        }
        const std::size_t chunks = count / chunkSize_;
        unsigned char *plain = plain_.use(chunks * blocksSize_);
        for (std::size_t i = 0; i < chunks; ++i) {
            unsigned char *blocks = plain + i * blocksSize_;
            std::memcpy(blocks, stored_.data() + i * chunkSize_, chunkSize_);
            std::memset(blocks + chunkSize_, 0, blocksSize_ - chunkSize_);
        }
        if (EVP_CipherUpdate(context_, plain, &produced, plain, static_cast<int>(chunks * blocksSize_)) !=
            1) {
            return false;
        }
        for (std::size_t i = 1; i < chunks; ++i) {
            std::memmove(plain + i * chunkSize_, plain + i * blocksSize_, chunkSize_);
        }
        return true;
    }

    // Writes the first count plain bytes over the stored ones. A write that is killed halfway stops at the
    // end of a page, so a chunk across two pages is written alone: wherever it ends, the decrypted part ends
    // on a chunk.
    bool replace(std::size_t count) noexcept {
        for (std::size_t done = 0; done < count;) {
            const std::size_t run = runWithoutSplitChunk(count - done);
            const std::size_t written = std::fwrite(plain_.data() + done, 1, run, file_);
            if (written != run) {
                restoreSplitChunk(done + written);
                return false;
            }
            done += run;
            position_ += run;
        }
        return true;
    }

    // How many of the next count bytes may go in one write.
    [[nodiscard]] std::size_t runWithoutSplitChunk(std::size_t count) const noexcept {
        // Two of the chunk sizes are the block's own, powers of two that a page is a multiple of.
        if (chunkSize_ == blocksSize_ && position_ % chunkSize_ == 0) {
            return count;
        }
        const std::size_t toPageEnd = kPageSize - position_ % kPageSize;
        return std::min(count, std::max(toPageEnd / chunkSize_ * chunkSize_, chunkSize_));
    }

    // After a write that ended inside a chunk: puts the stored bytes of that chunk back.
    void restoreSplitChunk(std::size_t written) noexcept {
        const std::size_t split = written % chunkSize_;
        if (split != 0 && std::fseek(file_, -static_cast<long>(split), SEEK_CUR) == 0) {
            static_cast<void>(std::fwrite(stored_.data() + (written - split), 1, split, file_));
        }
    }

    EVP_CIPHER_CTX *context_;
    std::FILE *file_;
    std::size_t chunkSize_;
    std::size_t blocksSize_;
    std::size_t position_; // in the file, modulo the width of the type: only its place in a page counts
    Piece stored_;
    Piece plain_;
};

} // namespace

unsigned decryptVideoFile(const char *path, const unsigned char *key, unsigned keyLen, long offset) noexcept {
    if (key == nullptr || path == nullptr) {
        return OZU_RESULT_MISSING;
    }
    const EVP_CIPHER *cipher = cipherFor(keyLen);
    if (cipher == nullptr) {
        return OZU_RESULT_INVALID;
    }
    const ozu::ErrorQueueGuard errors;
    const ozu::CipherContext context;
    if (!context.valid() || !initialise(context.get(), cipher, key)) {
        return kFailed;
    }
    ozu::UniqueFile file(std::fopen(path, "r+e"));
    if (!file.valid()) {
        return OZU_RESULT_NO_FILE;
    }
    file.unbuffered();
    if (std::fseek(file.get(), offset, SEEK_SET) != 0) {
        return kFailed;
    }
    OZU_UNINITIALIZED Region region(context.get(), file.get(), keyLen, offset);
    return region.decrypt();
}
