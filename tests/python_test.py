"""The Python package on an installed library, whose headers are in VINTOK_INCLUDE."""

import asyncio
import os
import re
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path
from unittest.mock import Mock, patch

import vintok
import vintok.asyncio
from vintok import Entry, Error, Field, LogLevel, Loop, Participant, State, _library, tls


def member(port, folder):
    """Ben, in a process of his own: does what Ann says, and tells what he was given."""
    vintok.start()
    vintok.set_file_root(folder)
    with Loop() as loop, Participant(local_only=True) as ben:

        def said(speaker, data):
            if data == b"lead":
                ben.request_lead()
            elif data == b"bye":
                ben.hangup()
                loop.interrupt()
            else:
                ben.broadcast(speaker.first_name.encode() + b" says " + data)

        ben.first_name = "Ben"
        ben.on_leave = lambda _: loop.interrupt()
        ben.on_said = said
        ben.on_private = lambda speaker, data: ben.broadcast(b"in private " + data)
        ben.on_file = lambda _, whole, path: ben.broadcast(Path(path).read_bytes() * whole)
        ben.call("127.0.0.1", port)
        loop.run()
    vintok.stop()


def until(loop, holds):
    """For a condition that callbacks bring about; the test as a whole has its time."""
    while not holds():
        loop.poll()


def together():
    ann, ben = Participant(local_only=True), Participant(local_only=True)
    ann.host("Tuesday")
    return ann, ben


class Meeting(unittest.TestCase):
    def test_two_processes_meet_in_asyncio(self):
        with tempfile.TemporaryDirectory() as folder:
            asyncio.run(asyncio.wait_for(self.meet(folder), 60))

    async def meet(self, folder):
        told = asyncio.Queue()
        faults = asyncio.Queue()
        asyncio.get_running_loop().set_exception_handler(lambda _, fault: faults.put_nowait(fault))

        def tell(what):
            return lambda *values: told.put_nowait((what, *values))

        with vintok.asyncio.Driver(), Participant(local_only=True) as ann:
            ann.first_name = "Ann"
            ann.on_join, ann.on_leave = tell("join"), tell("leave")
            ann.on_said, ann.on_delivery = tell("said"), tell("delivery")
            ann.on_lead_request, ann.on_lead_change = tell("asks"), tell("leads")
            ann.host("Tuesday")
            process = await asyncio.create_subprocess_exec(
                sys.executable, __file__, "member", str(ann.port), folder + "/received"
            )
            what, ben = await told.get()
            self.assertEqual((what, ben.first_name, ann.roster), ("join", "Ben", [ben]))
            self.assertEqual(await told.get(), ("leads", ann.entry))

            ann.broadcast(b"hello")
            self.assertEqual(await told.get(), ("said", ben, b"Ann says hello"))
            number = ann.send_private(ben, b"psst")
            news = [await told.get(), await told.get()]
            self.assertIn(("delivery", number, ben, True), news)
            self.assertIn(("said", ben, b"in private psst"), news)

            Path(folder, "sent.txt").write_bytes(b"some bytes")
            ann.send_file(Path(folder, "sent.txt"))
            self.assertEqual(await told.get(), ("said", ben, b"some bytes"))
            ann.on_file_sent = tell("sent")
            number = ann.start_bytes(b"more bytes", "more.txt")
            news = [await told.get(), await told.get()]
            self.assertIn(("sent", number, vintok.FileOutcome.SENT), news)
            self.assertIn(("said", ben, b"more bytes"), news)

            ann.broadcast(b"lead")
            self.assertEqual(await told.get(), ("asks", ben))
            ann.accept_lead()
            self.assertEqual(await told.get(), ("leads", ben))

            with self.assertRaises(Error) as refused:
                ann.broadcast(b"")
            self.assertEqual(
                (refused.exception.code, refused.exception.name), (16, "TCP_ERROR_INVALID_ARGUMENT")
            )
            ann.on_said = lambda *_: 1 / 0
            ann.broadcast(b"again")
            self.assertIsInstance((await faults.get())["exception"], ZeroDivisionError)

            ann.broadcast(b"bye")
            while (await told.get()) != ("leave", ben):
                pass
            self.assertEqual(await process.wait(), 0)
        self.assertTrue(faults.empty())


class OneThread(unittest.TestCase):
    def test_what_a_callback_raises_is_raised_by_the_loop(self):
        with Loop() as loop:
            ann, ben = together()

            def fail(_):
                raise KeyError("first")

            ann.on_join = fail
            ben.call("127.0.0.1", ann.port)
            with self.assertRaises(KeyError):
                until(loop, lambda: False)
            ann.on_join = None
            ben.close()
            ann.close()

    def test_what_no_call_can_raise_is_reported(self):
        fault = KeyError()
        with patch("sys.unraisablehook") as hook:
            _library.guarded(Mock(side_effect=fault))()
        self.assertIs(hook.call_args[0][0].exc_value, fault)

    def test_a_callback_may_replace_and_remove_itself(self):
        with Loop() as loop:
            ann, ben = together()
            heard = []

            def once(_, data):
                heard.append(data)
                ann.on_said = (lambda _, data: heard.append(b"later " + data)) if data else None

            ann.on_said = once
            ben.on_accepted = lambda *_: heard.append(b"")
            ben.call("127.0.0.1", ann.port)
            until(loop, lambda: heard)
            for word in (b"a", b"b"):
                ben.broadcast(word)
                until(loop, lambda: heard[-1].endswith(word))
            self.assertEqual(heard[1:], [b"a", b"later b"])
            self.assertIsNotNone(ann.on_said)
            ben.close()
            ann.close()

    def test_a_participant_is_not_closed_inside_its_callback(self):
        with Loop(), Participant(local_only=True) as ann:
            ann.on_change = lambda _: ann.close()
            with self.assertRaises(Error):
                ann.host("Tuesday")

    def test_other_threads_wake_the_loop_and_descriptors_are_watched(self):
        with Loop() as loop:
            reads, writes = os.pipe()
            told = []

            def readable(descriptor):
                told.append(os.read(descriptor, 9))
                loop.remove(descriptor, readable)
                threading.Thread(target=loop.wake).start()

            def woken():
                told.append("woken")
                threading.Thread(target=loop.interrupt).start()

            loop.on_wake = woken
            loop.add_readable(reads, readable)
            self.assertIn((reads, True, False), loop.watched())
            os.write(writes, b"x")
            loop.run()
            self.assertEqual(told[:2], [b"x", "woken"])
            os.close(reads)
            os.close(writes)

    def test_an_entry_outlives_its_participant(self):
        with Loop():
            ann, _ = parties = together()
            ann.set_text(Field.EMAIL, "ann\u00e9@example.org")
            entry = ann.entry
            for each in parties:
                each.close()
            self.assertEqual(entry.text(Field.EMAIL), "ann\u00e9@example.org")
            self.assertEqual((entry.meeting_name, entry.version), ("Tuesday", (4, 0)))

    def test_the_secure_channel_takes_certificates(self):
        vintok.start()
        with tempfile.TemporaryDirectory() as folder:
            tls.create_folder(folder, ["ann.example"])
            files = {"certificate_file": folder + "/host.pem", "key_file": folder + "/host.key"}
            tls.install(tls.Flag.REQUIRED, roots_file=folder + "/ca.pem", **files)
            with self.assertRaises(Error):
                tls.install(certificate_file=folder + "/none.pem")
        self.assertIsNone(tls.take_failure())
        tls.remove()
        vintok.stop()

    def test_the_program_of_the_document_runs(self):
        document = Path(__file__).parents[1] / "docs" / "programming.md"
        program = re.search(r"```python\n(.*?)```", document.read_text("utf-8"), re.S).group(1)
        run = subprocess.run([sys.executable, "-c", program], stdout=subprocess.PIPE, timeout=30)
        self.assertIn(b"Ben says: b'Good morning'", run.stdout)

    def test_a_library_of_another_version_is_refused(self):
        code = "import vintok._library as l"
        old = Path(_library.__file__).read_text().replace("MAJOR = 1 ", "MAJOR = 2 ")
        with tempfile.TemporaryDirectory() as folder:
            Path(folder, "vintok").mkdir()
            Path(folder, "vintok", "__init__.py").touch()
            Path(folder, "vintok", "_library.py").write_text(old)
            run = subprocess.run(
                [sys.executable, "-c", code], env={**os.environ, "PYTHONPATH": folder}, stderr=-1
            )
        self.assertIn(b"ImportError: libvintok has version 1", run.stderr)


class Declarations(unittest.TestCase):
    """They are those of the headers."""

    SIMPLE = {
        "void": "v",
        "const char *": "s",
        "int32_t": "i",
        "uint32_t": "u",
        "uint16_t": "h",
        "int64_t": "I",
        "uint64_t": "U",
        "size_t": "z",
    }

    @classmethod
    def setUpClass(cls):
        include = Path(os.environ["VINTOK_INCLUDE"], "vintok-c")
        cls.main, cls.tls = (
            re.sub(r"//[^\n]*", "", Path(include, name).read_text())
            for name in ("vintok.h", "vintok-tls.h")
        )

    def letter(self, declared):
        kind = re.sub(r"\w+$", "", declared.strip()).strip()
        return self.SIMPLE.get(kind, "p" if kind.endswith(("*", "_callback", "_visitor", "_source")) else kind)

    def letters(self, result, arguments):
        given = [] if arguments.strip() == "void" else arguments.split(",")
        return " ".join(self.letter(each) for each in [result + " x", *given])

    def functions(self, text):
        found = re.findall(r"_API\s+([\w\s]+?[\s*]+)(vintok_\w+)\(([^)]*)\)", text)
        return {name: self.letters(result, arguments) for result, name, arguments in found}

    def test_functions(self):
        self.assertEqual(self.functions(self.main), _library.FUNCTIONS)
        self.assertEqual(self.functions(self.tls), _library.TLS_FUNCTIONS)

    def test_callbacks(self):
        found = re.findall(r"typedef (\w+) \(\*vintok_(\w+?)(?:_callback)?\)\(([^)]*)\)", self.main)
        self.assertEqual({n: self.letters(r, a) for r, n, a in found}, _library.CALLBACKS)

    def test_structures(self):
        names = {
            "participant_options": _library.ParticipantOptions,
            "call_options": _library.CallOptions,
            "slow_member_limits": _library.SlowMemberLimits,
            "caller_limits": _library.CallerLimits,
            "meeting_limits": _library.MeetingLimits,
            "watched": _library.Watched,
            "tls_options": _library.TLSOptions,
        }
        text = self.main + self.tls
        found = re.findall(r"typedef struct vintok_\w+ \{([^}]*)\} vintok_(\w+);", text)
        self.assertEqual({name for _, name in found}, set(names))
        for body, name in found:
            fields = re.findall(r"([^;]*?)(\w+);", body)
            fields = [(field, _library.TYPES[self.letter(kind + field)]) for kind, field in fields]
            self.assertEqual(fields, names[name]._fields_, name)

    def test_constants(self):
        for prefix, ours, text in (
            ("VINTOK_STATE_", State, self.main),
            ("VINTOK_LOG_", LogLevel, self.main),
            ("VINTOK_", Field, self.main),
            ("VINTOK_TLS_", tls.Flag, self.tls),
        ):
            for each in ours:
                found = re.search(prefix + each.name + r" = (\w+)", text)
                self.assertEqual(int(found.group(1), 0), each.value, each)


if __name__ == "__main__":
    if sys.argv[1:2] == ["member"]:
        member(int(sys.argv[2]), sys.argv[3])
    else:
        unittest.main()
