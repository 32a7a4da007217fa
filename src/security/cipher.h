// Owning types around OpenSSL's cipher interface.
#pragma once

#include <openssl/err.h>
#include <openssl/evp.h>

namespace ozu {

// Whatever OpenSSL reports meanwhile is taken off its error queue again: a stale entry would make the
// caller's next TLS call look failed.
class ErrorQueueGuard {
  public:
    ErrorQueueGuard() noexcept { ERR_set_mark(); }
    ~ErrorQueueGuard() { ERR_pop_to_mark(); }
    ErrorQueueGuard(const ErrorQueueGuard &) = delete;
    ErrorQueueGuard &operator=(const ErrorQueueGuard &) = delete;
};

// A cipher context; freeing it wipes the key schedule.
class CipherContext {
  public:
    CipherContext() noexcept : context_(EVP_CIPHER_CTX_new()) {}
    ~CipherContext() { release(); }
    CipherContext(const CipherContext &) = delete;
    CipherContext &operator=(const CipherContext &) = delete;

    [[nodiscard]] bool valid() const noexcept { return context_ != nullptr; }
    [[nodiscard]] EVP_CIPHER_CTX *get() const noexcept { return context_; }
    void release() noexcept {
        if (context_ != nullptr) {
            EVP_CIPHER_CTX_reset(context_);
            EVP_CIPHER_CTX_free(context_);
            context_ = nullptr;
        }
    }

  private:
    EVP_CIPHER_CTX *context_;
};

} // namespace ozu
