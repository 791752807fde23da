#pragma once
// KESTRA_API marks what the shared library exports; everything else stays hidden.
#if defined(KESTRA_BUILDING_LIBRARY)
#define KESTRA_API __attribute__((visibility("default")))
#else
#define KESTRA_API
#endif
