"""Who a party is."""

import ctypes
import enum
from typing import Optional, Tuple

from ._library import decoded, done, library


class State(enum.IntFlag):
    """What holds for a party."""

    MEETING = 0x1
    HOST = 0x2
    LEADER = 0x4
    SERVER = 0x8
    JOIN_PENDING = 0x10
    SHADOW = 0x20
    LEAD_PENDING = 0x40
    SECURE = 0x80
    SECURE_ABLE = 0x100
    SECURE_PREFERRED = 0x200
    SECURE_REQUIRED = 0x400
    SECURE_ONLY = 0x800
    FIPS_REQUIRED = 0x1000
    HIDING_ADDRESS = 0x2000
    MUX_ENCRYPT = 0x4000
    MUX_REDIRECTED = 0x8000


class Field(enum.IntEnum):
    """What a party tells about itself."""

    FIRST_NAME = 0
    LAST_NAME = 1
    TITLE = 2
    EMAIL = 3
    PHONE = 4
    MEETING_NAME = 5
    MEETING_ID = 6


class Entry:
    """A party as it was when it was told of. Two are equal if they name the same party."""

    def __init__(self, handle: int) -> None:
        self._handle = None  # if the next line raises
        self._handle = done(library.vintok_entry_copy, handle)

    def __del__(self) -> None:
        library.vintok_entry_free(self._handle)

    def text(self, field: Field) -> str:
        return decoded(library.vintok_entry_text(self._handle, field))

    @property
    def first_name(self) -> str:
        return self.text(Field.FIRST_NAME)

    @property
    def last_name(self) -> str:
        return self.text(Field.LAST_NAME)

    @property
    def meeting_name(self) -> str:
        return self.text(Field.MEETING_NAME)

    @property
    def address(self) -> str:
        """The IP address; "0.0.0.0" where none is known."""
        buffer = ctypes.create_string_buffer(128)
        library.vintok_entry_address(self._handle, buffer, len(buffer))
        return decoded(buffer.value)

    @property
    def port(self) -> int:
        return library.vintok_entry_port(self._handle)

    @property
    def color(self) -> Optional[int]:
        color = library.vintok_entry_color(self._handle)
        return color if color != 65535 else None

    @property
    def version(self) -> Tuple[int, int]:
        """Of the protocol that the party speaks."""
        return divmod(library.vintok_entry_version(self._handle), 65536)

    @property
    def state(self) -> State:
        return State(library.vintok_entry_state(self._handle))

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Entry):
            return NotImplemented
        return bool(library.vintok_entry_same(self._handle, other._handle))

    def __hash__(self) -> int:
        return hash((self.address, self.port))

    def __repr__(self) -> str:
        return f"<Entry {self.first_name!r} {self.address}:{self.port} {self.state!r}>"


def entry_or_none(handle: Optional[int]) -> Optional[Entry]:
    return Entry(handle) if handle else None
