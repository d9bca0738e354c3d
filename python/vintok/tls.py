"""TLS, from libvintok-tls: found as libvintok is, or by VINTOK_TLS_LIBRARY.

Each party that is to speak it also says so: `participant.set_state(State.SECURE_ABLE)`.
"""

import ctypes
import enum
from typing import Any, Iterable, Optional, Tuple

from ._library import TLS_FUNCTIONS, TLSOptions, decoded, done, encoded, load

_library = load("VINTOK_TLS_LIBRARY", "vintok-tls", TLS_FUNCTIONS)


class Flag(enum.IntFlag):
    SYSTEM_ROOTS = 0x1
    DEMAND_CERTIFICATE = 0x2
    REQUIRED = 0x4
    FIPS_ONLY = 0x8
    NEWEST = 0x10
    CONNECTS_AT_ONCE = 0x20
    NOT_TO_THE_UNNAMED = 0x40


def install(flags: Flag = Flag(0), **options: Any) -> None:
    """Secures what is connected from now on. To be called behind `vintok.start`.

    The options are the paths certificate_file, key_file, roots_file and roots_folder,
    expected_name, and in milliseconds handshake_time, accept_wait and connect_wait.
    """
    for key, value in options.items():
        options[key] = value if isinstance(value, int) else encoded(value)
    given = TLSOptions(flags=int(flags), **options)
    done(_library.vintok_tls_install, ctypes.byref(given))


def remove() -> None:
    """What is connected from now on stays plain. What is secure must have ended."""
    done(_library.vintok_tls_remove)


def take_failure() -> Optional[Tuple[int, str]]:
    """The number and the words of the last connection that was broken off, once."""
    words = ctypes.create_string_buffer(1024)
    failure = _library.vintok_tls_take_failure(words, len(words))
    return (failure, decoded(words.value)) if failure else None


def create_folder(folder: str, names: Iterable[str] = ()) -> None:
    """Writes a small authority and certificates for this host and a guest, for trying out."""
    done(_library.vintok_tls_create_folder, encoded(folder), encoded(" ".join(names)))
