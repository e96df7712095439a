#pragma once

// A property that a fuzz target checks beyond "no crash". A broken one aborts, so that the fuzzer keeps
// the input as a crash and shows it.

#include <cstdio>
#include <cstdlib>

#define KIV_FUZZ_CHECK(condition) ((condition) ? (void)0 : ::KivFuzz::Fail(#condition, __FILE__, __LINE__))

namespace KivFuzz
{
[[noreturn]] inline void Fail(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: property broken: %s\n", file, line, condition);
    std::abort();
}
}  // namespace KivFuzz
