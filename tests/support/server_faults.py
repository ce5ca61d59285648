"""What can happen to a Redis server and to the connections to it, through a proxy in front of it (database_rig.Proxy). The text
of each class is its name in results."""

import database_rig as rig
from database_rig import PREFIX, eventually

FILLING = 3000  # keys of others, so that loading takes a while
NOISE = f"{PREFIX}:frames:noise:Ethernet1"  # written so that the server has something to say


def fill(server):
    with server.client() as client, client.pipeline(transaction=False) as pipeline:
        for number in range(FILLING):
            pipeline.set(f"other:{number}", "")
        pipeline.execute()


class Fault:
    loses = True  # all connections
    empties = False  # what is in the database
    seconds = 0.3  # from begin() to end(), at least

    def __init__(self, server, proxy):
        self.server, self.proxy = server, proxy

    def begin(self):
        pass

    def end(self):
        pass


class Restarted(Fault):
    """server restarted"""

    def begin(self):
        self.server.kill()

    def end(self):
        self.server.start()


class Emptied(Restarted):
    """server restarted, empty"""

    empties = True

    def begin(self):
        self.server.kill()
        self.server.forget()


class Stopped(Fault):
    """server stopped for 10 s"""

    seconds = 10

    def begin(self):
        self.server.freeze()

    def end(self):
        self.server.thaw()


class Killed(Fault):
    """CLIENT KILL of all"""

    def begin(self):
        with self.server.client() as client:
            for kind in ("normal", "pubsub"):
                client.execute_command("CLIENT", "KILL", "TYPE", kind)


class SlowSubscriber(Fault):
    """subscriber too slow, cut off"""

    loses = False  # only the one connection

    def begin(self):
        with self.server.client() as client:
            client.config_set("client-output-buffer-limit", "pubsub 65536 0 0")
            before = {one["id"] for one in client.client_list("pubsub")}
            self.proxy.reading.clear()
            cut = lambda: not before & {one["id"] for one in client.client_list("pubsub")}  # noqa: E731
            for _ in range(200):
                with client.pipeline(transaction=False) as pipeline:
                    for _ in range(500):
                        pipeline.hset(NOISE, "0001", rig.FRAME)
                    pipeline.execute()
                if cut():
                    break
            if not before or not cut():
                raise RuntimeError("the server has not cut the subscriber off")
            client.delete(NOISE)
            client.config_set("client-output-buffer-limit", "pubsub 33554432 8388608 60")

    def end(self):
        self.proxy.reading.set()


class Flushed(Fault):
    """FLUSHALL"""

    loses = False
    empties = True

    def begin(self):
        with self.server.client() as client:
            client.flushall()


class Full(Fault):
    """restarted, all places taken"""

    def __init__(self, server, proxy):
        super().__init__(server, proxy)
        self.others = []

    def begin(self):
        self.proxy.open.clear()
        self.server.kill()
        self.server.start("--maxclients", "20")
        try:
            while True:  # until the server has no place
                self.others.append(self.server.client())
                self.others[-1].ping()
        except rig.redis.RedisError:
            pass
        self.proxy.open.set()

    def end(self):
        for one in self.others:
            one.connection_pool.disconnect()


class Harmed(Fault):
    kind = ""

    def begin(self):
        self.done = self.proxy.harm(self.kind)
        with self.server.client() as client:  # so that there is something to say
            client.hset(NOISE, "0001", rig.FRAME)

    def end(self):
        if not eventually(self.done):
            raise RuntimeError("the proxy has not harmed a reply")
        with self.server.client() as client:
            client.delete(NOISE)


class Half(Harmed):
    """half a reply, then closed"""

    kind = "half"


class Stalled(Harmed):
    """half a reply, then silence"""

    kind = "stall"


class Garbage(Harmed):
    """garbage in a reply"""

    kind = "garbage"


class Loading(Fault):
    """restarted, -LOADING for a while"""

    def begin(self):
        self.server.kill()
        self.server.start("--key-load-delay", "1000", "--loading-process-events-interval-bytes", "1024", wait=False)
        if not eventually(self.is_loading):
            raise RuntimeError("the server does not say that it is loading")

    def end(self):  # it may have much to load
        with self.server.client() as client:
            client.config_set("key-load-delay", "0")

    def is_loading(self):
        try:
            with self.server.client(socket_timeout=1) as client:
                client.get("probe")
        except rig.redis.BusyLoadingError:
            return True
        except rig.redis.RedisError:
            pass
        return False


class OutOfMemory(Fault):
    """-OOM"""

    loses = False

    def begin(self):
        with self.server.client() as client:
            client.config_set("maxmemory-policy", "noeviction")
            client.config_set("maxmemory", "1")

    def end(self):
        with self.server.client() as client:
            client.config_set("maxmemory", "0")


class ReadOnly(Fault):
    """-READONLY"""

    loses = False

    def begin(self):
        with self.server.client() as client:
            client.replicaof("127.0.0.1", "1")

    def end(self):
        with self.server.client() as client:
            client.replicaof("NO", "ONE")


FAULTS = [Restarted, Emptied, Stopped, Killed, SlowSubscriber, Flushed, Full, Half, Stalled, Garbage, Loading,
          OutOfMemory, ReadOnly]
# Those that are over within a second.
QUICK = [Restarted, Emptied, Killed, Flushed, Half, Garbage, OutOfMemory]
