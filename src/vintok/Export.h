// Marks what the shared libraries export. Everything else stays hidden. Who links them as archives
// defines VINTOK_STATIC, as the package files do.
#ifndef VINTOK_EXPORT_H
#define VINTOK_EXPORT_H

// Of libvintok, of libvintok-tls and of libvintok-cluster.
#if defined(VINTOK_STATIC)
#define VINTOK_API
#define VINTOK_TLS_API
#define VINTOK_CLUSTER_API
#elif defined(_WIN32)
#if defined(VINTOK_BUILDING)
#define VINTOK_API __declspec(dllexport)
#else
#define VINTOK_API __declspec(dllimport)
#endif
#if defined(VINTOK_TLS_BUILDING)
#define VINTOK_TLS_API __declspec(dllexport)
#else
#define VINTOK_TLS_API __declspec(dllimport)
#endif
#if defined(VINTOK_CLUSTER_BUILDING)
#define VINTOK_CLUSTER_API __declspec(dllexport)
#else
#define VINTOK_CLUSTER_API __declspec(dllimport)
#endif
#else
#define VINTOK_API __attribute__((visibility("default")))
#define VINTOK_TLS_API VINTOK_API
#define VINTOK_CLUSTER_API VINTOK_API
#endif

#endif
