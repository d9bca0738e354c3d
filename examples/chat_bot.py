#!/usr/bin/env python3
"""A bot that sits in a meeting until its host ends it, and answers "!time" and "!who".

    python3 chat_bot.py Bot 192.0.2.7 7777

It runs in asyncio's loop, where whatever else it does has its place too.
"""

import asyncio
import sys
import time

import vintok
import vintok.asyncio


class Bot:
    def __init__(self, me: vintok.Participant) -> None:
        self.me = me
        self.status = asyncio.get_running_loop().create_future()
        me.on_said = self.said
        me.on_leave = self.left
        me.on_rejected = me.on_busy = me.on_no_answer = self.failed

    def said(self, speaker, data: bytes) -> None:
        words = data.decode(errors="replace")
        if words == "!time":
            self.me.broadcast(time.strftime("it is %H:%M:%S").encode())
        elif words == "!who":
            self.me.broadcast(", ".join(party.first_name for party in self.me.roster()).encode())

    def left(self, party: vintok.Entry) -> None:
        if vintok.State.HOST in party.state:
            self.end(0)

    def failed(self, name: str, _party: vintok.Entry) -> None:
        print(f"{name} has not taken the call", file=sys.stderr)
        self.end(1)

    def end(self, status: int) -> None:
        if not self.status.done():
            self.status.set_result(status)


async def main(name: str, host: str, port: str) -> int:
    with vintok.asyncio.Driver(), vintok.Participant() as me:
        me.first_name = name
        bot = Bot(me)
        me.start_call(host, int(port))
        return await bot.status


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit("usage: chat_bot.py NAME HOST PORT")
    sys.exit(asyncio.run(main(*sys.argv[1:])))
