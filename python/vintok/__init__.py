"""Conferencing over TCP, with libvintok.

The library is found by the environment's VINTOK_LIBRARY, beside this package, or by the system.
"""

import ctypes
import enum
from typing import Any, Callable, Optional

from ._entry import Entry, Field, State
from ._library import PROTOTYPES, Error, call, decoded, done, encoded, guarded, library
from ._loop import Loop
from ._participant import FileOutcome, Participant

__all__ = [
    "Entry",
    "Error",
    "Field",
    "FileOutcome",
    "LogLevel",
    "Loop",
    "Participant",
    "State",
    "clock_offset",
    "message_identifier",
    "on_log",
    "set_clock_offset",
    "set_connect_timeout",
    "set_file_links",
    "set_file_root",
    "set_log_file",
    "set_log_level",
    "set_peer_timeout",
    "start",
    "stop",
    "time",
]


class LogLevel(enum.IntEnum):
    NONE = 0
    FATAL = 1
    ERROR = 3
    WARNING = 7
    INFO = 15
    DEBUG = 31
    TRACE = 63


def start() -> None:
    """For what is wanted before there is a participant. Each needs a `stop`."""
    done(library.vintok_start)


def stop() -> None:
    done(library.vintok_stop)


def set_log_level(level: LogLevel) -> None:
    done(library.vintok_set_log_level, level)


def set_log_file(path: str) -> None:
    """Empty: the standard error."""
    done(library.vintok_set_log_file, encoded(path))


_log: Any = None


def on_log(function: Optional[Callable[[int, str], Any]]) -> None:
    """Messages go to the function (severity, text), on whatever thread logs."""
    global _log

    def called(severity: int, message: bytes, _user: Any) -> None:
        function(severity, decoded(message))  # type: ignore

    thunk = PROTOTYPES["log"](guarded(called)) if function is not None else None
    done(library.vintok_on_log, thunk, None)
    _log = thunk


def set_connect_timeout(milliseconds: int) -> None:
    done(library.vintok_set_connect_timeout, milliseconds)


def set_peer_timeout(milliseconds: int) -> None:
    done(library.vintok_set_peer_timeout, milliseconds)


def set_file_root(folder: str) -> None:
    """Where files that arrive are stored; empty: nowhere."""
    done(library.vintok_set_file_root, encoded(folder))


def set_file_links(on: bool) -> None:
    done(library.vintok_set_file_links, on)


def time() -> int:
    """The meeting's time, in seconds since 1970 UTC."""
    return call(library.vintok_time)


def clock_offset() -> int:
    """By how many seconds that is ahead of the system's clock."""
    return call(library.vintok_clock_offset)


def set_clock_offset(seconds: int) -> None:
    done(library.vintok_set_clock_offset, seconds)


def message_identifier(number: int) -> bytes:
    """One of the identifiers that are kept for programs: 48 to 99."""
    identifier = (ctypes.c_uint8 * 16)()
    done(library.vintok_message_identifier, number, identifier)
    return bytes(identifier)
