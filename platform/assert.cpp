#include "platform/utils.h"
#include <cstdio>
#include <cstdlib>

namespace {

// The part of path after its last '/' or '\\' (sources may come from either platform).
const char* base_name(const char* path)
{
    if (!path) return "?";
    const char* base = path;
    for (const char* c = path; *c; ++c) {
        if (*c == '/' || *c == '\\') base = c + 1;
    }
    return base;
}

}  // namespace

// --- contract violations ---

void tavo_assert_failed_in_line(const char* source_file, int line)
{
    std::fprintf(stderr, "assertion failed in %s line %d\n", base_name(source_file), line);
    std::fflush(stderr);
    std::abort();
}
