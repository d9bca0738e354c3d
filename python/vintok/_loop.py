"""The loop that drives the participants of a thread."""

import ctypes
import threading
from typing import Any, Callable, Dict, List, Optional, Tuple, Union

from ._library import PROTOTYPES, Watched, call, done, guarded, in_use, keep, library

_Descriptor = Union[int, Any]  # or what has `fileno`


def _number(descriptor: _Descriptor) -> int:
    return descriptor if isinstance(descriptor, int) else descriptor.fileno()


class Loop:
    """Waits for what participants wait for, and calls back. Only `wake` and `interrupt` may be
    called on another thread. A thread's wakes go to the loop that was made last."""

    def __init__(self) -> None:
        self._handle: Optional[int] = call(library.vintok_loop_create)
        self._callbacks: Dict[Tuple[int, Any], Any] = {}
        self._retired: List[Any] = []
        self._interrupted = threading.Event()
        self._on_wake: Optional[Callable[[], Any]] = None
        self._woken = PROTOTYPES["wake"](guarded(self._wake))
        done(library.vintok_loop_on_wake, self._handle, self._woken, None)
        in_use.add(self)

    def close(self) -> None:
        if self._handle is not None:
            call(library.vintok_loop_destroy, self._handle)
            self._handle = None
            in_use.discard(self)

    def __enter__(self) -> "Loop":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    # ---- Running ----

    def poll(self, immediate: bool = False) -> int:
        """One pass: waits, or with `immediate` only looks, and calls back.

        Gives the number of descriptors that could be read; -1 for an interrupted wait. What a
        callback raises is raised here.
        """
        return call(library.vintok_loop_poll, self._handle, immediate)

    def run(self) -> None:
        """Polls until `interrupt`, or until a callback raises something."""
        self._interrupted.clear()
        while self._handle is not None and not self._interrupted.is_set():
            self.poll()

    def interrupt(self) -> None:
        """Ends `run`, from any thread."""
        self._interrupted.set()
        self.wake()

    def wake(self) -> None:
        """Ends the wait, or the next one, and has `on_wake` called. From any thread."""
        library.vintok_loop_wake(self._handle)

    @property
    def on_wake(self) -> Optional[Callable[[], Any]]:
        """Called without arguments on the loop's thread, for work that others have handed over."""
        return self._on_wake

    @on_wake.setter
    def on_wake(self, function: Optional[Callable[[], Any]]) -> None:
        self._on_wake = function

    def _wake(self, _loop: int, _user: Any) -> None:
        if self._on_wake is not None:
            self._on_wake()

    # ---- Descriptors of the program's own ----

    def add_readable(self, descriptor: _Descriptor, function: Callable[[int], Any]) -> None:
        """Calls the function with the number when it can be read. On Windows: sockets."""
        self._add(library.vintok_loop_add_readable, descriptor, function)

    def add_socket(
        self, descriptor: _Descriptor, function: Callable[[int], Any], secure: bool = False
    ) -> None:
        """The same for a socket that the library is to know."""
        self._add(library.vintok_loop_add_socket, descriptor, function, secure)

    def _add(self, add: Any, descriptor: _Descriptor, function: Any, *more: Any) -> None:
        def called(_loop: int, number: int, _user: Any) -> None:
            function(number)

        thunk = PROTOTYPES["descriptor"](guarded(called))
        number = _number(descriptor)
        if (number, function) in self._callbacks:
            raise ValueError("the same is watched already")
        done(add, self._handle, number, *more, thunk, None)
        self._callbacks[number, function] = thunk

    def remove(self, descriptor: _Descriptor, function: Callable[[int], Any]) -> None:
        number = _number(descriptor)
        thunk = self._callbacks[number, function]
        done(library.vintok_loop_remove, self._handle, number, thunk, None)
        # One that takes itself back must outlive its call.
        keep(self._retired, self._callbacks.pop((number, function)))

    # ---- Inside another loop ----

    def watched(self) -> List[Tuple[int, bool, bool]]:
        """What to wait for: the descriptor, for reading, for writing."""
        count = call(library.vintok_loop_watched, self._handle, None, 0)
        found = (Watched * count)()
        count = min(count, call(library.vintok_loop_watched, self._handle, found, count))
        return [(each.descriptor, bool(each.reading), bool(each.writing)) for each in found[:count]]

    def nested_descriptor(self) -> Optional[int]:
        """A single descriptor in place of those; None where there is no such thing."""
        descriptor = call(library.vintok_loop_nested_descriptor, self._handle)
        return descriptor if descriptor >= 0 else None

    def timeout(self) -> Optional[float]:
        """For how many seconds to wait at most; None for any time."""
        milliseconds = call(library.vintok_loop_timeout, self._handle)
        return milliseconds / 1000 if milliseconds >= 0 else None
