// Marks what the shared library exports. Everything else stays hidden.
#ifndef VINTOK_EXPORT_H
#define VINTOK_EXPORT_H

#if defined(_WIN32)
#if defined(VINTOK_BUILDING)
#define VINTOK_API __declspec(dllexport)
#else
#define VINTOK_API __declspec(dllimport)
#endif
#else
#define VINTOK_API __attribute__((visibility("default")))
#endif

#endif
