#include "platform/utils.h"
#include <cstdarg>
#include <cstdio>

namespace {

void stderr_sink(const char* text, void* /*user*/)
{
    std::fputs(text, stderr);
}

void (*g_sink)(const char*, void*) = stderr_sink;
void* g_sink_user = nullptr;

// Texts up to this length are formatted on the stack; longer ones in a tracked block.
constexpr int kStackText = 512;

}  // namespace

// --- diagnostics ---

void debug_printf(const char* fmt, ...)
{
    if (!fmt) return;
    char local[kStackText];
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(local, sizeof local, fmt, args);
    va_end(args);
    if (n < 0) {  // an encoding error: nothing sensible to hand over
        va_end(again);
        return;
    }
    if (n < kStackText) {
        va_end(again);
        g_sink(local, g_sink_user);
        return;
    }
    char* text = static_cast<char*>(v_memptr_alloc(nullptr, static_cast<size_t>(n) + 1));
    if (!text) {  // out of memory: the truncated text is better than none
        va_end(again);
        g_sink(local, g_sink_user);
        return;
    }
    std::vsnprintf(text, static_cast<size_t>(n) + 1, fmt, again);
    va_end(again);
    g_sink(text, g_sink_user);
    v_memptr_free(text);
}

void debug_set_sink(void (*sink)(const char* text, void* user), void* user)
{
    g_sink = sink ? sink : stderr_sink;
    g_sink_user = sink ? user : nullptr;
}
