// Marks a local variable that is not worth clearing: a large buffer of which a call fills and reads a few
// bytes only. Builds that clear every local variable leave such a one alone.
#pragma once

#if defined(__has_attribute)
#if __has_attribute(uninitialized)
#define OZU_UNINITIALIZED __attribute__((uninitialized))
#endif
#endif
#ifndef OZU_UNINITIALIZED
#define OZU_UNINITIALIZED
#endif
