// Marks what the shared libraries export. Everything else stays hidden. A program on Windows that
// links them as archives defines VINTOK_STATIC.
#ifndef VINTOK_EXPORT_H
#define VINTOK_EXPORT_H

#if defined(_WIN32)
#if defined(VINTOK_BUILDING)
#define VINTOK_API __declspec(dllexport)
#elif defined(VINTOK_STATIC)
#define VINTOK_API
#else
#define VINTOK_API __declspec(dllimport)
#endif
#if defined(VINTOK_TLS_BUILDING)
#define VINTOK_TLS_API __declspec(dllexport)
#elif defined(VINTOK_STATIC)
#define VINTOK_TLS_API
#else
#define VINTOK_TLS_API __declspec(dllimport)
#endif
#else
#define VINTOK_API __attribute__((visibility("default")))
#define VINTOK_TLS_API VINTOK_API
#endif

#endif
