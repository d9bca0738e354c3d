"""One party in a meeting."""

import ctypes
import enum
import os
from typing import Any, Callable, Dict, Iterable, List, Optional

from . import _library
from ._entry import Entry, Field, State, entry_or_none
from ._library import PROTOTYPES, call, decoded, done, encoded, guarded, in_use, keep, library

_BytesLike = Any  # whatever bytes() takes


class FileOutcome(enum.IntEnum):
    SENT = 1
    INCOMPLETE = 2
    CANCELLED = 3
    UNREADABLE = 4
    UNWANTED = 5
    ALONE = 6


def _bytes_at(data: Optional[int], length: int) -> bytes:
    return ctypes.string_at(data, length) if data and length else b""


def _options_of(pointer: int) -> Dict[str, Any]:
    """What a further `call` would take."""
    options = ctypes.cast(pointer, ctypes.POINTER(_library.CallOptions)).contents
    texts = ("proxy", "meeting_id", "authentication")
    result: Dict[str, Any] = {name: decoded(getattr(options, name)) for name in texts}
    result.update({name: getattr(options, name) for name in ("port", "proxy_port", "retries")})
    return result


# How the arguments of a callback are given to Python, without the participant and the user pointer.
_ARGUMENTS: Dict[str, Callable[..., tuple]] = {
    "entry": lambda party: (Entry(party),),
    "call": lambda name, party: (decoded(name), Entry(party)),
    "again": lambda name, options: (decoded(name), _options_of(options)),
    "response": lambda status, text: (status, decoded(text)),
    "security": lambda changed: (State(changed),),
    "reply": lambda granted: (bool(granted),),
    "data": lambda speaker, data, length: (entry_or_none(speaker), _bytes_at(data, length)),
    "delivery": lambda number, party, taken: (number, Entry(party), bool(taken)),
    "message": lambda neighbour, identifier, data, length: (
        Entry(neighbour),
        _bytes_at(identifier, 16),
        _bytes_at(data, length),
    ),
    "file": lambda neighbour, whole, path: (Entry(neighbour), bool(whole), decoded(path)),
    "progress": lambda origin, done, total, path: (Entry(origin), done, total, decoded(path)),
    "file_sent": lambda number, outcome: (number, FileOutcome(outcome)),
    "file_refused": lambda number, party: (number, Entry(party)),
    "reason": lambda party, why: (Entry(party), decoded(why)),
    "clock": lambda added, subtracted: (added, subtracted),
    "slow": lambda member, waiting, why: (Entry(member), waiting, why),
    "drop": lambda member, data, length: (Entry(member), _bytes_at(data, length)),
}


class _Event:
    """A callback of a participant, as an attribute: a function, or None."""

    def __init__(self, kind: str, text: str) -> None:
        self._kind = kind
        self.__doc__ = text

    def __set_name__(self, owner: type, name: str) -> None:
        self._name = name

    def __get__(self, participant: Any, owner: Any = None) -> Any:
        return self if participant is None else participant._callbacks.get(self._name, (None,))[0]

    def __set__(self, participant: "Participant", function: Optional[Callable[..., Any]]) -> None:
        thunk = self._thunk(function) if function is not None else None
        done(getattr(library, "vintok_" + self._name), participant._handle, thunk, None)
        # One that is replaced from inside itself must outlive its call.
        keep(participant._retired, participant._callbacks.pop(self._name, None))
        if thunk is not None:
            participant._callbacks[self._name] = (function, thunk)

    def _thunk(self, function: Callable[..., Any]) -> Any:
        arguments = _ARGUMENTS[self._kind]
        answers = self._kind in ("message", "drop")

        def called(_participant: int, *values: Any) -> Optional[int]:
            result = function(*arguments(*values[:-1]))
            return int(bool(result)) if answers else None

        return PROTOTYPES[self._kind](guarded(called, 0 if answers else None))


class Participant:
    """A party that listens, and that hosts a meeting or calls into one.

    It belongs to the thread that made it, and stays until `close`. A `Loop` of that thread drives
    it. Callbacks are attributes. What one of them raises is raised by the call that it came from,
    mostly the loop's. Whatever is refused raises `Error`.
    """

    on_call_pending = _Event("entry", "(caller): answer with `accept` or `reject`")
    on_join = _Event("entry", "(party)")
    on_leave = _Event("entry", "(party)")
    on_change = _Event("entry", "(party): its data changed, or the own ones")
    on_lead_change = _Event("entry", "(leader)")
    on_lead_request = _Event("entry", "(party): answer with `accept_lead` or `reject_lead`")
    on_security = _Event("security", "(changed)")
    on_accepted = _Event("call", "(name, party)")
    on_busy = _Event("call", "(name, party)")
    on_rejected = _Event("call", "(name, party)")
    on_ringing = _Event("call", "(name, party)")
    on_no_answer = _Event("call", "(name, party)")
    on_version = _Event("call", "(name, party): it is too old")
    on_turned_away = _Event("reason", "(party, why): the caller's address is another's, too")
    on_proxy = _Event("again", "(name, options): `call(name, **options)` with credentials")
    on_redirect = _Event("again", "(name, options): `call(name, **options)`")
    on_server_response = _Event("response", "(status, response)")
    on_lead_reply = _Event("reply", "(granted)")
    on_said = _Event("data", "(speaker or None, bytes)")
    on_private = _Event("data", "(speaker, bytes)")
    on_delivery = _Event("delivery", "(number, party, taken)")
    on_message = _Event("message", "(neighbour, identifier, bytes): true passes it on")
    on_file_sent = _Event("file_sent", "(number, outcome): the end of a file that was started")
    on_file_refused = _Event("file_refused", "(number, party): who does not want it")
    on_file = _Event("file", "(neighbour, whole, path)")
    on_file_progress = _Event("progress", "(origin, done, total, path)")
    on_clock = _Event("clock", "(added, subtracted), in seconds")
    on_slow_member = _Event("slow", "(member, waiting bytes, why)")
    on_drop = _Event("drop", "(member, bytes): true drops them")

    def __init__(
        self,
        port: int = 0,
        *,
        exact_port: bool = False,
        local_only: bool = False,
        any_port: bool = False,
        nowhere: bool = False,
    ) -> None:
        """Listens on the port, or with `exact_port` false on one of those behind it; or on any
        port above 49151; or nowhere, so that nobody can call."""
        self._handle: Optional[int] = None
        self._callbacks: Dict[str, Any] = {}
        self._retired: List[Any] = []
        flags = local_only | exact_port << 1 | any_port << 2 | nowhere << 3
        options = _library.ParticipantOptions(flags=flags, port=port)
        self._handle = done(library.vintok_participant_create, ctypes.byref(options))
        in_use.add(self)

    def close(self) -> None:
        """Closes every connection without a word. Not from inside a callback of its own."""
        if self._handle is not None:
            done(library.vintok_participant_destroy, self._handle)
            self._handle = None
            in_use.discard(self)

    def __enter__(self) -> "Participant":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    # ---- The own entry ----

    @property
    def entry(self) -> Entry:
        """The own entry, as it is now."""
        return Entry(done(library.vintok_self, self._handle))

    @property
    def port(self) -> int:
        return self.entry.port

    def set_text(self, field: Field, text: str) -> None:
        """The others hear of it with `send_roster`. The meeting's name is its host's."""
        done(library.vintok_set_text, self._handle, field, encoded(text))

    @property
    def first_name(self) -> str:
        return self.entry.first_name

    @first_name.setter
    def first_name(self, name: str) -> None:
        self.set_text(Field.FIRST_NAME, name)

    def set_color(self, color: int) -> None:
        done(library.vintok_set_color, self._handle, color)

    def set_state(self, state: State, on: bool = True) -> None:
        """What this party is and demands: SERVER, and those from SECURE_ABLE on."""
        done(library.vintok_set_state, self._handle, state, on)

    # ---- Meetings and calls ----

    def host(self, meeting_name: str) -> None:
        done(library.vintok_host, self._handle, encoded(meeting_name))

    def call(self, name: str, port: int = 0, **options: Any) -> None:
        """Calls a party, and waits for the connection; a callback tells how the call ends.

        The options are proxy, proxy_port, meeting_id, authentication, retries.
        """
        self._call(library.vintok_call, name, port, options)

    def start_call(
        self, name: str, port: int = 0, *, addresses: Iterable[str] = (), **options: Any
    ) -> None:
        """The same without waiting. Where IP addresses are given no name is looked up."""
        options["addresses"] = " ".join(addresses)
        self._call(library.vintok_start_call, name, port, options)

    def _call(self, function: Any, name: str, port: int, options: Dict[str, Any]) -> None:
        values = {
            key: encoded(value) if isinstance(value, str) else value
            for key, value in options.items()
            if value
        }
        given = _library.CallOptions(port=port, **values)
        done(function, self._handle, encoded(name), ctypes.byref(given))

    def accept(self, caller: Entry) -> None:
        done(library.vintok_accept_call, self._handle, caller._handle)

    def reject(self, caller: Entry) -> None:
        done(library.vintok_reject_call, self._handle, caller._handle)

    def hangup(self) -> None:
        """Leaves the meeting, and ends every connection and every call."""
        done(library.vintok_hangup, self._handle)

    # ---- Roster and lead ----

    @property
    def roster(self) -> List[Entry]:
        """The others of the meeting."""
        entries: List[Entry] = []

        def visit(party: int, _user: Any) -> int:
            entries.append(Entry(party))
            return 1

        visitor = PROTOTYPES["visitor"](guarded(visit, 0))
        call(library.vintok_visit_roster, self._handle, visitor, None)
        return entries

    def send_roster(self) -> None:
        done(library.vintok_send_roster, self._handle)

    def request_roster(self) -> None:
        done(library.vintok_request_roster, self._handle)

    def request_lead(self) -> None:
        done(library.vintok_request_lead, self._handle)

    def accept_lead(self) -> None:
        done(library.vintok_accept_lead, self._handle)

    def reject_lead(self) -> None:
        done(library.vintok_reject_lead, self._handle)

    # ---- What is said ----

    def broadcast(self, data: _BytesLike) -> None:
        """To all parties of the meeting."""
        data = bytes(data)
        done(library.vintok_broadcast, self._handle, data, len(data))

    def send_private(self, party: Entry, data: _BytesLike) -> int:
        """To one party. `on_delivery` tells under the number what became of it."""
        data = bytes(data)
        return done(library.vintok_send_private, self._handle, party._handle, data, len(data))

    def send_message(self, identifier: bytes, data: _BytesLike) -> None:
        """A message of the program's own, to the host, or from the host to all."""
        if len(identifier) != 16:
            raise ValueError("an identifier has 16 bytes")
        data = bytes(data)
        done(library.vintok_send_message, self._handle, identifier, data, len(data))

    def send_keep_alive(self) -> None:
        done(library.vintok_send_keep_alive, self._handle)

    def enable(self, party: Entry, on: bool = True) -> None:
        """Whether a party gets what is said to all."""
        done(library.vintok_enable, self._handle, party._handle, on)

    # ---- Files and the clock ----

    def send_file(self, path: Any, relative_path: Optional[str] = None) -> None:
        """To all parties; by itself under the file's own name. Blocks for all of it."""
        text = os.fspath(path)
        relative = relative_path if relative_path is not None else os.path.basename(text)
        done(library.vintok_send_file, self._handle, encoded(text), encoded(relative))

    def start_file(self, path: Any, name: Optional[str] = None) -> int:
        """The same while the loop goes on. `on_file_sent` tells the end under the number."""
        text = os.fspath(path)
        name = name if name is not None else os.path.basename(text)
        return done(library.vintok_start_file, self._handle, encoded(text), encoded(name))

    def start_bytes(self, data: _BytesLike, name: str) -> int:
        """The same with bytes for a file."""
        data = bytes(data)
        return done(
            library.vintok_start_file_bytes, self._handle, data, len(data), encoded(name)
        )

    def cancel_file(self, number: int) -> None:
        done(library.vintok_cancel_file, self._handle, number)

    def refuse_file(self, origin: Entry) -> None:
        """The rest of what arrives from this party is not wanted."""
        done(library.vintok_refuse_file, self._handle, origin._handle)

    def set_file_progress_interval(self, milliseconds: int) -> None:
        done(library.vintok_set_file_progress_interval, self._handle, milliseconds)

    def set_file_folder(self, folder: Any) -> None:
        """Where what arrives here is stored; empty: where the process stores it."""
        done(library.vintok_set_file_folder, self._handle, encoded(os.fspath(folder)))

    def request_time(self, party: Entry) -> None:
        done(library.vintok_request_time, self._handle, party._handle)

    # ---- Guards: 0 and False switch each off ----

    def set_call_timeouts(self, hello: int, answer: int) -> None:
        """In milliseconds, as all times of guards."""
        done(library.vintok_set_call_timeouts, self._handle, hello, answer)

    def set_slow_member_limits(self, **limits: int) -> None:
        """The limits are bytes, milliseconds, most_bytes."""
        given = _library.SlowMemberLimits(**limits)
        done(library.vintok_set_slow_member_limits, self._handle, ctypes.byref(given))

    def set_caller_limits(self, **limits: int) -> None:
        """The limits are connections, per_address, hello_time, join_time, joins, frame_bytes."""
        given = _library.CallerLimits(**limits)
        done(library.vintok_set_caller_limits, self._handle, ctypes.byref(given))

    def set_meeting_limits(self, **limits: int) -> None:
        """The limits are members, entry_bytes, frame_bytes."""
        given = _library.MeetingLimits(**limits)
        done(library.vintok_set_meeting_limits, self._handle, ctypes.byref(given))

    def set_roster_by_differences(self, on: bool = True) -> None:
        done(library.vintok_set_roster_by_differences, self._handle, on)

    def set_members_only(self, on: bool = True) -> None:
        done(library.vintok_set_members_only, self._handle, on)

    def set_largest_clock_step(self, seconds: int) -> None:
        done(library.vintok_set_largest_clock_step, self._handle, seconds)

    def set_temporary_files(self, on: bool = True) -> None:
        done(library.vintok_set_temporary_files, self._handle, on)

    def set_background_handshakes(self, on: bool = True) -> None:
        done(library.vintok_set_background_handshakes, self._handle, on)

    @property
    def waiting_bytes(self) -> int:
        """That wait for the member for whom the most wait."""
        return call(library.vintok_waiting_bytes, self._handle)

    @property
    def refused_messages(self) -> int:
        return call(library.vintok_refused_messages, self._handle)
