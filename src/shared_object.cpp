// What a shared object has to bring along when it is linked without the compiler's start files: its handle,
// under which atexit() files the library's own functions, and the call that runs them when a process unloads
// it. The start files would add a constructor and look-ups of symbols that exist nowhere, which every panel
// process would pay for.

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the C library knows these names.
extern "C" {
[[gnu::visibility("hidden")]] extern const void *const __dso_handle;
const void *const __dso_handle = &__dso_handle;
void __cxa_finalize(const void *handle) noexcept;
}

namespace {

[[gnu::destructor, gnu::used]] void finalize() noexcept {
    __cxa_finalize(__dso_handle);
}

} // namespace
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
