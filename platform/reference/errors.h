// How failures travel inside the reference platform, and how they stop at the C border.
#pragma once

#include <ozu_platform_tools.h>
#include <ozulog.h>

#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ozu::platform {

class Error : public std::runtime_error {
  public:
    Error(Code code, const std::string &text) : std::runtime_error(text), code_(code) {}
    [[nodiscard]] Code code() const noexcept { return code_; }

  private:
    Code code_;
};

// The code for an errno of a file operation.
Code codeOfErrno(int error) noexcept;

// Writes a line about the platform itself into the process's log. Takes no string: memory may be what is
// missing.
void note(int level, const char *function, std::string_view text) noexcept;

// Runs the body of an exported function: nothing it throws leaves it, and failures are noted.
template <class Body>
int guarded(const char *function, Body &&body) noexcept {
    try {
        return body();
    } catch (const Error &error) {
        if (error.code() != kNothingThere) {
            note(OZULOG_ERROR, function, error.what());
        }
        return error.code();
    } catch (const std::bad_alloc &) {
        return kOutOfMemory;
    } catch (const std::exception &error) {
        note(OZULOG_ERROR, function, error.what());
        return kInternal;
    }
}

} // namespace ozu::platform
