#pragma once

// A property that a fuzz target checks beyond "no crash". A broken one aborts, so that the fuzzer keeps
// the input as a crash and shows it.

#include <Kiv/Exception.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <unistd.h>

#define KIV_FUZZ_CHECK(condition) ((condition) ? (void)0 : ::KivFuzz::Fail(#condition, __FILE__, __LINE__))

namespace KivFuzz
{
[[noreturn]] inline void Fail(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: property broken: %s\n", file, line, condition);
    std::abort();
}

/// Runs `call`: true if it returned, false if it raised a Kiv::Exception. Anything else leaving the
/// library is a finding.
template <class Call>
bool ReturnsOrRaisesKivException(Call&& call)
{
    const char* what = "(not even a std::exception)";
    try
    {
        call();
        return true;
    }
    catch (const Kiv::Exception&)
    {
        return false;
    }
    catch (const std::exception& e)
    {
        what = e.what();
    }
    catch (...)
    {
    }
    std::fprintf(stderr, "exception not derived from Kiv::Exception: %s\n", what);
    Fail("only exceptions derived from Kiv::Exception leave the library", __FILE__, __LINE__);
}

/// A directory of this run's own, for endpoints and files.
inline std::string MakeDirectory()
{
    char made[] = "/tmp/kiv-fuzz-XXXXXX";
    KIV_FUZZ_CHECK(mkdtemp(made) != nullptr);
    return made;
}
}  // namespace KivFuzz
