// Export macro of the meshutil shared library.
#pragma once

#if defined(_WIN32)
#if defined(MESHUTIL_BUILDING_LIBRARY)
#define MESHUTIL_API __declspec(dllexport)
#else
#define MESHUTIL_API __declspec(dllimport)
#endif
#else
#define MESHUTIL_API __attribute__((visibility("default")))
#endif
