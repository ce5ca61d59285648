#!/usr/bin/python3
"""Publishes the goodbye frames of an agent through valend's database, while this program runs.

    producer.py URL HOST AGENT INTERFACE FRAME...

URL is redis://USER@SERVER or unix://USER@/run/redis/redis-server.sock, with the password in the environment
variable VALEN_PASSWORD. HOST is the router; a FRAME is hexadecimal digits. The frames name a lease: a key that
expires unless it is renewed. When this program ends, it withdraws the frames; when it is killed, valend does, at
the latest after 10 s."""

import os
import signal
import sys
import threading

import redis

LEASE_S = 10


class Producer:
    def __init__(self, url, host, agent, interface, *frames):
        self.server = redis.Redis.from_url(url, password=os.environ.get("VALEN_PASSWORD"), socket_timeout=2)
        self.frames_key = f"valen:{host}:frames:{agent}:{interface}"
        self.lease_key = f"valen:{host}:lease:{agent}:{interface}"
        self.rejected_key = f"valen:{host}:rejected:frames:{agent}:{interface}"
        self.fields = {f"{number:04}": bytes.fromhex(frame) for number, frame in enumerate(frames, 1)}
        self.fields |= {"owner": f"producer.py, process {os.getpid()}", "lease": self.lease_key}

    def renew(self):
        """Returns what is wrong, or None."""
        try:
            if not self.server.expire(self.lease_key, LEASE_S):
                self.publish()  # for the first time, or because the server has lost everything
            why = self.server.hget(self.rejected_key, "why")
            return why and "valend rejects the frames: " + why.decode(errors="replace")
        except redis.RedisError as error:
            return f"cannot reach the database: {error}"

    def publish(self):
        with self.server.pipeline(transaction=True) as all_at_once:  # valend never sees a half
            all_at_once.set(self.lease_key, "held", ex=LEASE_S).delete(self.frames_key)
            all_at_once.hset(self.frames_key, mapping=self.fields).execute()

    def withdraw(self):
        self.server.delete(self.frames_key, self.lease_key)


def main(*arguments):
    producer, ended, said = Producer(*arguments), threading.Event(), ""
    for number in signal.SIGTERM, signal.SIGINT:
        signal.signal(number, lambda *_: ended.set())
    while not ended.is_set():
        problem = producer.renew()
        if problem != said:
            print(problem or "the frames are published", file=sys.stderr, flush=True)
        said = problem
        ended.wait(LEASE_S / 5)
    producer.withdraw()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) > 5 else __doc__)
