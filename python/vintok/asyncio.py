"""Participants in a loop of asyncio:

    async def main():
        with vintok.asyncio.Driver(), vintok.Participant() as ann:
            ann.on_join = lambda party: print(party.first_name)
            ann.host("Tuesday")
            await asyncio.sleep(60)
"""

import asyncio
from typing import Any, Optional, Set

from ._library import calls
from ._loop import Loop


class Driver:
    """Drives the participants of the thread by the asyncio loop that runs on it.

    What a callback of theirs raises goes to the exception handler of that loop. On Windows it takes
    a loop that has `add_reader`, which is the one of asyncio.WindowsSelectorEventLoopPolicy.
    """

    def __init__(self, loop: Optional[Loop] = None) -> None:
        self.loop = loop if loop is not None else Loop()
        self._is_own = loop is None
        self._asyncio = asyncio.get_running_loop()
        self._readers: Set[int] = set()
        self._writers: Set[int] = set()
        self._timer: Optional[asyncio.TimerHandle] = None
        self._refreshes = False
        # What is waited for changes with operations too, not only with the loop's passes.
        calls.changed = self._changed
        self._refresh()

    def close(self) -> None:
        calls.changed = None
        self._watch(set(), set())
        self._stop_timer()
        if self._is_own:
            self.loop.close()

    def __enter__(self) -> "Driver":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def _changed(self) -> None:
        if not self._refreshes:
            self._refreshes = True
            self._asyncio.call_soon(self._refresh)

    def _refresh(self) -> None:
        if calls.changed != self._changed:
            return  # closed
        calls.changed = None
        try:
            nested = self.loop.nested_descriptor()
            watched = self.loop.watched() if nested is None else [(nested, True, False)]
            timeout = self.loop.timeout()
        finally:
            calls.changed = self._changed
            self._refreshes = False
        readers = {number for number, reading, _ in watched if reading}
        self._watch(readers, {number for number, _, writing in watched if writing})
        self._stop_timer()
        if timeout is not None:
            self._timer = self._asyncio.call_later(timeout, self._turn)

    def _watch(self, readers: Set[int], writers: Set[int]) -> None:
        for each in self._readers - readers:
            self._asyncio.remove_reader(each)
        for each in self._writers - writers:
            self._asyncio.remove_writer(each)
        for each in readers - self._readers:
            self._asyncio.add_reader(each, self._turn)
        for each in writers - self._writers:
            self._asyncio.add_writer(each, self._turn)
        self._readers, self._writers = readers, writers

    def _stop_timer(self) -> None:
        if self._timer is not None:
            self._timer.cancel()
            self._timer = None

    def _turn(self) -> None:
        try:
            self.loop.poll(immediate=True)
        except Exception as error:
            self._asyncio.call_exception_handler(
                {"message": "in a callback of vintok", "exception": error}
            )
