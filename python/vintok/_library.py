"""The shared library: where it is, what it declares, and how its functions are called."""

import ctypes
import os
import sys
import threading
from ctypes import CFUNCTYPE, c_char_p, c_size_t, c_void_p
from ctypes import c_int32, c_int64, c_uint16, c_uint32, c_uint64
from pathlib import Path
from typing import Any, Callable, Dict, List, Optional, Set

VERSION_MAJOR = 1  # of the interface for C, as vintok-c/vintok.h has it

TYPES: Dict[str, Any] = {
    "i": c_int32,
    "u": c_uint32,
    "h": c_uint16,
    "I": c_int64,
    "U": c_uint64,
    "z": c_size_t,
    "s": c_char_p,  # a text that ends in a zero
    "p": c_void_p,  # a handle, bytes, a structure, a callback, a user pointer
    "v": None,
}

# The result and the arguments of each function; a test compares them with the headers.
FUNCTIONS = {
    "vintok_version": "u",
    "vintok_start": "i",
    "vintok_stop": "i",
    "vintok_last_error": "i",
    "vintok_last_error_text": "s",
    "vintok_error_name": "s i",
    "vintok_set_log_level": "i i",
    "vintok_log_level": "i",
    "vintok_set_log_file": "i s",
    "vintok_on_log": "i p p",
    "vintok_log": "i i s",
    "vintok_set_connect_timeout": "i u",
    "vintok_set_peer_timeout": "i u",
    "vintok_set_file_root": "i s",
    "vintok_set_file_links": "i i",
    "vintok_time": "I",
    "vintok_clock_offset": "I",
    "vintok_set_clock_offset": "i I",
    "vintok_entry_copy": "p p",
    "vintok_entry_free": "v p",
    "vintok_entry_same": "i p p",
    "vintok_entry_text": "s p i",
    "vintok_entry_address": "z p p z",
    "vintok_entry_port": "h p",
    "vintok_entry_color": "h p",
    "vintok_entry_version": "u p",
    "vintok_entry_state": "i p",
    "vintok_participant_create": "p p",
    "vintok_participant_destroy": "i p",
    "vintok_self": "p p",
    "vintok_set_text": "i p i s",
    "vintok_set_color": "i p h",
    "vintok_set_state": "i p i i",
    "vintok_host": "i p s",
    "vintok_call": "i p s p",
    "vintok_start_call": "i p s p",
    "vintok_accept_call": "i p p",
    "vintok_reject_call": "i p p",
    "vintok_hangup": "i p",
    "vintok_on_call_pending": "i p p p",
    "vintok_on_join": "i p p p",
    "vintok_on_leave": "i p p p",
    "vintok_on_change": "i p p p",
    "vintok_on_lead_change": "i p p p",
    "vintok_on_lead_request": "i p p p",
    "vintok_on_security": "i p p p",
    "vintok_on_accepted": "i p p p",
    "vintok_on_busy": "i p p p",
    "vintok_on_rejected": "i p p p",
    "vintok_on_ringing": "i p p p",
    "vintok_on_no_answer": "i p p p",
    "vintok_on_version": "i p p p",
    "vintok_on_turned_away": "i p p p",
    "vintok_on_proxy": "i p p p",
    "vintok_on_redirect": "i p p p",
    "vintok_on_server_response": "i p p p",
    "vintok_send_roster": "i p",
    "vintok_request_roster": "i p",
    "vintok_visit_roster": "u p p p",
    "vintok_request_lead": "i p",
    "vintok_accept_lead": "i p",
    "vintok_reject_lead": "i p",
    "vintok_on_lead_reply": "i p p p",
    "vintok_broadcast": "i p p z",
    "vintok_send_private": "u p p p z",
    "vintok_send_message": "i p p p z",
    "vintok_message_identifier": "i i p",
    "vintok_send_keep_alive": "i p",
    "vintok_enable": "i p p i",
    "vintok_on_said": "i p p p",
    "vintok_on_private": "i p p p",
    "vintok_on_delivery": "i p p p",
    "vintok_on_message": "i p p p",
    "vintok_send_file": "i p s s",
    "vintok_start_file": "u p s s",
    "vintok_start_file_bytes": "u p p z s",
    "vintok_start_file_from": "u p p p U s",
    "vintok_cancel_file": "i p u",
    "vintok_on_file_sent": "i p p p",
    "vintok_refuse_file": "i p p",
    "vintok_on_file_refused": "i p p p",
    "vintok_set_file_progress_interval": "i p u",
    "vintok_set_file_folder": "i p s",
    "vintok_on_file": "i p p p",
    "vintok_on_file_progress": "i p p p",
    "vintok_request_time": "i p p",
    "vintok_on_clock": "i p p p",
    "vintok_set_call_timeouts": "i p u u",
    "vintok_set_slow_member_limits": "i p p",
    "vintok_on_slow_member": "i p p p",
    "vintok_on_drop": "i p p p",
    "vintok_waiting_bytes": "U p",
    "vintok_set_caller_limits": "i p p",
    "vintok_set_meeting_limits": "i p p",
    "vintok_set_roster_by_differences": "i p i",
    "vintok_set_members_only": "i p i",
    "vintok_refused_messages": "U p",
    "vintok_set_largest_clock_step": "i p I",
    "vintok_set_temporary_files": "i p i",
    "vintok_set_background_handshakes": "i p i",
    "vintok_loop_create": "p",
    "vintok_loop_destroy": "v p",
    "vintok_loop_run": "i p",
    "vintok_loop_poll": "i p i",
    "vintok_loop_is_running": "i p",
    "vintok_loop_interrupt": "v p",
    "vintok_loop_wake": "v p",
    "vintok_loop_on_wake": "i p p p",
    "vintok_loop_add_socket": "i p i i p p",
    "vintok_loop_add_readable": "i p i p p",
    "vintok_loop_remove": "i p i p p",
    "vintok_loop_watched": "z p p z",
    "vintok_loop_nested_descriptor": "i p",
    "vintok_loop_timeout": "i p",
}

TLS_FUNCTIONS = {
    "vintok_tls_install": "i p",
    "vintok_tls_remove": "i",
    "vintok_tls_take_failure": "i p z",
    "vintok_tls_create_folder": "i s s",
}

# The same of the callbacks, by the names of their types.
CALLBACKS = {
    "log": "v i s p",
    "entry": "v p p p",
    "call": "v p s p p",
    "again": "v p s p p",
    "response": "v p u s p",
    "security": "v p i p",
    "visitor": "i p p",
    "reply": "v p i p",
    "data": "v p p p z p",
    "delivery": "v p u p i p",
    "message": "i p p p p z p",
    "file": "v p p i s p",
    "file_source": "z p U p z p",
    "file_sent": "v p u i p",
    "file_refused": "v p u p p",
    "reason": "v p p s p",
    "progress": "v p p U U s p",
    "clock": "v p I I p",
    "slow": "v p p U i p",
    "drop": "i p p p z p",
    "wake": "v p p",
    "descriptor": "v p i p",
}

PROTOTYPES = {
    name: CFUNCTYPE(*(TYPES[each] for each in letters.split()))
    for name, letters in CALLBACKS.items()
}


class Options(ctypes.Structure):
    """A structure that begins with its size."""

    def __init__(self, **values: Any) -> None:
        super().__init__(**values)
        self.size = ctypes.sizeof(self)


class ParticipantOptions(Options):
    _fields_ = [("size", c_uint32), ("flags", c_uint32), ("port", c_uint16), ("reserved", c_uint16)]


class CallOptions(Options):
    _fields_ = [
        ("size", c_uint32),
        ("retries", c_uint32),
        ("port", c_uint16),
        ("proxy_port", c_uint16),
        ("reserved", c_uint32),
        ("proxy", c_char_p),
        ("meeting_id", c_char_p),
        ("authentication", c_char_p),
        ("addresses", c_char_p),
    ]


class SlowMemberLimits(Options):
    _fields_ = [
        ("size", c_uint32),
        ("milliseconds", c_uint32),
        ("bytes", c_uint64),
        ("most_bytes", c_uint64),
    ]


class CallerLimits(Options):
    _fields_ = [
        ("size", c_uint32),
        ("connections", c_uint32),
        ("per_address", c_uint32),
        ("hello_time", c_uint32),
        ("join_time", c_uint32),
        ("joins", c_uint32),
        ("frame_bytes", c_uint64),
    ]


class MeetingLimits(Options):
    _fields_ = [
        ("size", c_uint32),
        ("members", c_uint32),
        ("entry_bytes", c_uint32),
        ("reserved", c_uint32),
        ("frame_bytes", c_uint64),
    ]


class Watched(ctypes.Structure):
    _fields_ = [("descriptor", c_int32), ("reading", c_int32), ("writing", c_int32)]


class TLSOptions(Options):
    _fields_ = [
        ("size", c_uint32),
        ("flags", c_uint32),
        ("handshake_time", c_uint32),
        ("accept_wait", c_uint32),
        ("connect_wait", c_uint32),
        ("reserved", c_uint32),
        ("certificate_file", c_char_p),
        ("key_file", c_char_p),
        ("roots_file", c_char_p),
        ("roots_folder", c_char_p),
        ("expected_name", c_char_p),
    ]


# ---- Loading ----


def _open(variable: str, name: str) -> ctypes.CDLL:
    """What the environment names, or what lies beside this file, or what the system finds."""
    given = os.environ.get(variable)
    if given:
        return ctypes.CDLL(given)
    file_name = f"lib{name}.dll" if sys.platform == "win32" else f"lib{name}.so.4"
    beside = Path(__file__).with_name(file_name)
    return ctypes.CDLL(str(beside) if beside.exists() else file_name)


def load(variable: str, name: str, functions: Dict[str, str]) -> ctypes.CDLL:
    """The library with its functions declared."""
    library = _open(variable, name)
    for function, letters in functions.items():
        declared = getattr(library, function)
        result, *arguments = (TYPES[each] for each in letters.split())
        declared.restype = result
        declared.argtypes = arguments
    return library


def _load_checked() -> ctypes.CDLL:
    version = _open("VINTOK_LIBRARY", "vintok").vintok_version() >> 16
    if version != VERSION_MAJOR:
        raise ImportError(f"libvintok has version {version} of its interface, not {VERSION_MAJOR}")
    return load("VINTOK_LIBRARY", "vintok", FUNCTIONS)


library = _load_checked()


# ---- Texts and errors ----


def encoded(text: str) -> bytes:
    return text.encode("utf-8", "surrogateescape")


def decoded(text: Optional[bytes]) -> str:
    return (text or b"").decode("utf-8", "surrogateescape")


class Error(Exception):
    """A refusal of the library: its number, the name of that, and a sentence for people."""

    def __init__(self, code: int, name: str, text: str) -> None:
        super().__init__(f"{text} ({name})")
        self.code = code
        self.name = name
        self.text = text


def last_error() -> Error:
    code = library.vintok_last_error()
    name = decoded(library.vintok_error_name(code))
    return Error(code, name, decoded(library.vintok_last_error_text()))


# ---- Calls, and callbacks that raise ----


class _Calls(threading.local):
    """The calls into the library that are under way on a thread, with what was raised in each."""

    def __init__(self) -> None:
        self.raised: List[List[BaseException]] = []
        self.changed: Optional[Callable[[], None]] = None  # told behind each outermost call


calls = _Calls()
in_use: Set[Any] = set()  # what the library may still call back, closed by nobody yet


def keep(retired: List[Any], callback: Any) -> None:
    """Keeps what may be in the middle of a call, as long as there is one."""
    if not calls.raised:
        retired.clear()
    elif callback is not None:
        retired.append(callback)


def report(error: BaseException) -> None:
    """Gives `sys.unraisablehook` an exception that no call can raise."""

    def fail() -> None:
        raise error

    CFUNCTYPE(None)(fail)()  # ctypes does it


def call(function: Callable[..., Any], *arguments: Any) -> Any:
    """Calls, and raises what a callback has raised meanwhile; of several the first."""
    calls.raised.append([])
    try:
        result = function(*arguments)
    finally:
        raised = calls.raised.pop()
        if not calls.raised and calls.changed is not None:
            calls.changed()
    for error in raised[1:]:
        report(error)
    if raised:
        raise raised[0]
    return result


def done(function: Callable[..., Any], *arguments: Any) -> Any:
    """The same of a function that refuses with 0; that raises Error."""
    result = call(function, *arguments)
    if not result:
        raise last_error()
    return result


def guarded(function: Callable[..., Any], otherwise: Any = None) -> Callable[..., Any]:
    """What the library may call: an exception goes to the call that it came from."""

    def called(*arguments: Any) -> Any:
        try:
            return function(*arguments)
        except BaseException as error:  # it must not be lost
            if calls.raised:
                calls.raised[-1].append(error)
            else:
                report(error)
            return otherwise

    return called
