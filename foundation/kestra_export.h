#pragma once
// KESTRA_API marks what the shared library exports; everything else stays hidden.
// KESTRA_HIDDEN keeps a private member of an exported class out of the library's exports.
#if defined(KESTRA_BUILDING_LIBRARY)
#define KESTRA_API __attribute__((visibility("default")))
#define KESTRA_HIDDEN __attribute__((visibility("hidden")))
#else
#define KESTRA_API
#define KESTRA_HIDDEN
#endif
