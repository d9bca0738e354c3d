// TLS for programs that use <vintok-c/vintok.h>, from the library libvintok-tls. What is said there
// of results, texts and structures holds here. docs/tls.md has more.
#ifndef VINTOK_C_VINTOK_TLS_H
#define VINTOK_C_VINTOK_TLS_H

#include <vintok/Export.h>

// NOLINTBEGIN: a header for C
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    VINTOK_TLS_SYSTEM_ROOTS = 0x1,       // trusts what the system trusts
    VINTOK_TLS_DEMAND_CERTIFICATE = 0x2, // of callers too
    VINTOK_TLS_REQUIRED = 0x4,           // turns away a peer without TLS
    VINTOK_TLS_FIPS_ONLY = 0x8,          // only algorithms that FIPS 140 approves
    VINTOK_TLS_NEWEST = 0x10,            // TLS 1.3, and not 1.2
    VINTOK_TLS_CONNECTS_AT_ONCE = 0x20,  // does not wait for a peer that speaks first without TLS
    VINTOK_TLS_NOT_TO_THE_UNNAMED = 0x40 // calls a proxy without TLS, and who is behind it with it
};
// The files are PEM. Times are in milliseconds, 0: what the library has set.
typedef struct vintok_tls_options {
    uint32_t size;
    uint32_t flags;
    uint32_t handshake_time; // a whole handshake
    uint32_t accept_wait;    // for the first byte of a caller
    uint32_t connect_wait;   // for the first byte of a called party that speaks first
    uint32_t reserved;
    const char *certificate_file; // what this side shows; needed to accept
    const char *key_file;         // without a pass phrase
    const char *roots_file;       // whom this side trusts
    const char *roots_folder;     // likewise, as `openssl rehash` prepares it
    const char *expected_name;    // whom the other side's certificate is for, where nobody is named
} vintok_tls_options;

// Reads the files, and has all connections that can be secured from now on secured by TLS: one for
// the process. With further options it replaces the earlier ones. Refused before `vintok_start`,
// and for bad files; nothing has changed then. Blocks on the disk.
VINTOK_TLS_API int32_t vintok_tls_install(const vintok_tls_options *options);
// Connections that are made later stay plain. Those that are secure must have ended.
VINTOK_TLS_API int32_t vintok_tls_remove(void);

enum {
    VINTOK_TLS_ERROR_NONE = 0,
    VINTOK_TLS_ERROR_SETTINGS = 256,
    VINTOK_TLS_ERROR_PEER_PLAIN = 257, // speaks, but not TLS, or says nothing
    VINTOK_TLS_ERROR_TIME = 258,
    VINTOK_TLS_ERROR_CERTIFICATE = 259, // not accepted, or none was shown
    VINTOK_TLS_ERROR_REFUSED = 260,     // by the other side
    VINTOK_TLS_ERROR_PROTOCOL = 261,
    VINTOK_TLS_ERROR_CLOSED = 262,
    VINTOK_TLS_ERROR_TRUNCATED = 263,
    VINTOK_TLS_ERROR_UNNAMED = 264
};
// What became of the last connection that was broken off on any thread since the last call, which
// this one forgets. Its words are written into `buffer`, cut to `size` with the zero; null:
// nowhere.
VINTOK_TLS_API int32_t vintok_tls_take_failure(char *buffer, size_t size);

// Writes ca.pem, host.pem, guest.pem and their keys into a folder, which is created where it is
// missing: a small authority, for trying out. `names`, with blanks in between, are more names of
// the host. Nothing is overwritten. Blocks on the disk.
VINTOK_TLS_API int32_t vintok_tls_create_folder(const char *folder, const char *names);

#ifdef __cplusplus
}
#endif
// NOLINTEND

#endif
