"""A client of valend, the daemon that delays interface shutdowns until goodbye frames have been sent.

    import valen

    with valen.Client() as client:
        step = client.shutdown("Ethernet1", wait=True)
        print(step["shutdown"]["ending"])
        client.enable("Ethernet1")

It needs only Python 3.10 or later and its standard library. Results are the objects of the API, as
dictionaries, and parameters have the API's names; Client.description() returns them all. Each error is an
exception below Error. Two threads must not use one Client at the same time.
"""

import json
import os
import socket
import struct
import time

DEFAULT_SOCKET = "/run/valen/valend.sock"
INTERFACE = "org.valen.daemon"
SERVICE = "org.varlink.service"


class Error(Exception):
    """Everything that this module raises."""


class Unreachable(Error):
    """No connection to valend could be made. `__cause__` is the OSError."""


class Disconnected(Error):
    """The connection ended before the answer: valend exited, or a limit was exceeded. It is unknown
    whether the call was carried out. Frames that were bound to the connection are withdrawn."""


class NoAnswer(Error):
    """valend did not answer in time. It is unknown whether the call was carried out. The connection is
    closed, so frames that were bound to it are withdrawn."""


class BadAnswer(Error):
    """What answers at the socket does not speak varlink."""


class CallError(Error):
    """valend rejected the call: `method`, `name` (qualified) and `parameters` as in the API. An error
    without a class of its own is raised as this class."""

    def __init__(self, method, name, parameters):
        super().__init__(parameters.get("message") or self._text(method, name, parameters))
        self.method = method
        self.name = name
        self.parameters = parameters

    @staticmethod
    def _text(method, name, parameters):
        return f"{method}: {name} {json.dumps(parameters)}"


class NoSuchInterface(CallError): ...
class NoSuchVrf(CallError): ...
class NoSuchMessages(CallError): ...
class NoSuchPath(CallError): ...
class NoDevice(CallError): ...
class LinkFailed(CallError): ...


class TimedOut(CallError):
    """The state that was waited for was not reached in time."""


class AgentExists(CallError): ...
class BadFrame(CallError): ...
class BadName(CallError): ...
class NoFrames(CallError): ...
class TooMuch(CallError): ...
class TooLarge(CallError): ...
class TooManyClients(CallError): ...
class BadTraceLevels(CallError): ...
class BadSelection(CallError): ...
class BadReason(CallError): ...
class DelayTooLong(CallError): ...


class ConfigRefused(CallError):
    """`parameters["errors"]` has a line for each error."""


class PermissionDenied(CallError): ...


class ExpectedMore(CallError):
    """The method must be called with Client.stream()."""


class InvalidParameter(CallError):
    """`parameters["parameter"]` is unknown to this valend, missing, of the wrong type or out of range."""

    @staticmethod
    def _text(method, name, parameters):
        parameter = parameters.get("parameter")
        return f'{method}: the parameter "{parameter}" is unknown, missing or not valid'


class MethodNotFound(CallError):
    """This valend does not have the method."""

    @staticmethod
    def _text(method, name, parameters):
        return f"this valend does not have the method {method}"


class MethodNotImplemented(CallError): ...
class InterfaceNotFound(CallError): ...


_CLASSES = {derived.__name__: derived for derived in CallError.__subclasses__()}


def _call_error(method, name, parameters):
    interface, _, short = name.rpartition(".")
    known = interface in (INTERFACE, SERVICE)
    return (_CLASSES.get(short, CallError) if known else CallError)(method, name, parameters)


class _Connection:
    """A connection, with one call in progress at a time. Any error closes it, except those that valend
    answers: the answer to an earlier call is never taken for that of a later one."""

    def __init__(self, path, timeout):
        self._path = path
        self._received = bytearray()
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            # With settimeout(), connecting fails at once while valend's backlog is full.
            if timeout is not None:
                limit = struct.pack("ll", int(timeout), int(timeout % 1 * 1_000_000))
                self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, limit)
            self._socket.connect(path)
        except OSError as error:
            self._socket.close()
            if isinstance(error, BlockingIOError):
                raise NoAnswer(f"valend at {path} accepted no connection in {timeout:g} s") from error
            raise Unreachable(
                f"cannot connect to valend at {path}: {error.strerror or error} (is it running?)"
            ) from error
        except BaseException:
            self._socket.close()
            raise

    def close(self):
        self._socket.close()

    def send(self, method, parameters, timeout, more=False):
        """Leaves out the parameters that are None."""
        call = {
            "method": method if "." in method else f"{INTERFACE}.{method}",
            "parameters": {name: value for name, value in parameters.items() if value is not None},
        }
        if more:
            call["more"] = True
        message = json.dumps(call).encode() + b"\0"
        try:
            self._socket.settimeout(timeout)
            self._socket.sendall(message)
        except TimeoutError as error:
            self.close()
            raise NoAnswer(f"{method}: valend took no call in {timeout:g} s") from error
        except OSError as error:
            self.close()
            raise self._disconnected(method) from error
        except BaseException:
            self.close()
            raise

    def receive(self, method, timeout):
        """The next answer: its parameters, and whether another one follows."""
        try:
            answer = self._parsed(self._message(method, timeout))
        except BaseException:
            self.close()
            raise
        parameters = answer.get("parameters") or {}
        if "error" in answer:
            raise _call_error(method, answer["error"], parameters)
        return parameters, bool(answer.get("continues"))

    def _message(self, method, timeout):
        end = time.monotonic() + timeout if timeout is not None else None
        searched = 0
        while (length := self._received.find(b"\0", searched)) < 0:
            searched = len(self._received)
            try:
                self._socket.settimeout(max(end - time.monotonic(), 0.001) if end is not None else None)
                received = self._socket.recv(1 << 18)
            except TimeoutError as error:
                raise NoAnswer(f"{method}: valend did not answer in {timeout:g} s") from error
            except OSError as error:
                raise self._disconnected(method) from error
            if not received:
                raise self._disconnected(method)
            self._received += received
        message = bytes(self._received[:length])
        del self._received[: length + 1]
        return message

    def _parsed(self, message):
        try:
            answer = json.loads(message)
        except ValueError as error:
            raise BadAnswer(f"the answer from {self._path} is not JSON") from error
        if not isinstance(answer, dict):
            raise BadAnswer(f"the answer from {self._path} is not a JSON object")
        return answer

    def _disconnected(self, method):
        return Disconnected(f"{method}: the connection to valend at {self._path} is closed")


class _Held:
    """How long the next answer may take while links are held: until the longest delay is over, and then
    the usual timeout."""

    def __init__(self, timeout):
        self._timeout = timeout
        self._end = time.monotonic()

    def limit(self, steps):
        now = time.monotonic()
        self._end = max([self._end, *(now + (step["delayMs"] or 0) / 1000 for step in steps)])
        return max(self._end - now, 0) + self._timeout if self._timeout is not None else None


class Client:
    """A connection to valend. `timeout`: how many seconds an answer may take, beyond the time that the
    call itself waits for something; None to wait indefinitely.

    After Disconnected or NoAnswer, make a new Client, and publish frames that were bound to the
    connection again."""

    def __init__(self, path=DEFAULT_SOCKET, timeout=10.0):
        self._path = os.fspath(path)
        self._timeout = timeout
        self._connection = _Connection(self._path, timeout)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Withdraws the frames that are bound to the connection. Shutdowns continue."""
        self._connection.close()

    # --- Any method ---------------------------------------------------------------------------------

    def call(self, method, /, **parameters):
        """The answer to a call: call("Explain", interface="Ethernet1"). Leaves out the parameters that are
        None. A method of another interface than org.valen.daemon is given with its interface's name."""
        return self._call(method, parameters, self._timeout)

    def stream(self, method, /, **parameters):
        """The answers to a call that has several, as they come: stream("Watch", path="status"). It has a
        connection of its own, which ends with the iteration. After the first, answers may take any time."""
        return self._stream(method, parameters, lambda _: None)

    def description(self):
        """The text that describes all methods, types and errors of the API."""
        answer = self.call(f"{SERVICE}.GetInterfaceDescription", interface=INTERFACE)
        return answer["description"]

    # --- Interfaces ---------------------------------------------------------------------------------

    def status(self, interface=None):
        """The status of everything, or of one interface."""
        return self.call("Status", interface=interface)

    def interface(self, interface):
        """The object `Interface` of one interface."""
        return self.status(interface)["interfaces"][0]

    def watch(self, interface=None):
        """Iterates over changes of the status: {"interfaces": [...], "gone": [...]}, all interfaces or the
        given one first. It ends with the iteration, or with Disconnected."""
        return self.stream("WatchStatus", interface=interface)

    def wait(self, interface, until, timeout=None):
        """Waits until the interface is "ready", "up", "down" or "idle" (no shutdown of it is in
        progress), and returns its object `Interface`. TimedOut after `timeout` seconds."""
        parameters = {"interface": interface, "until": until}
        limit = None
        if timeout is not None:
            parameters["timeoutMs"] = round(timeout * 1000)
            limit = timeout + self._timeout if self._timeout is not None else None
        return self._call("Wait", parameters, limit)["interface"]

    def shutdown(self, interface, /, *, wait=False, **parameters):
        """Shuts an interface down, and returns the object `Step`: "delayed", or "ended" if there is no
        delay. With `wait`, returns once it has ended. A shutdown that does not go as expected is not an
        exception: look at `ending` and `why` of step["shutdown"]."""
        parameters["interface"] = interface
        if not wait:
            return self._call("Shutdown", parameters, self._timeout)
        held = _Held(self._timeout)
        step = None
        for step in self._stream("Shutdown", parameters, lambda answer: held.limit([answer])):
            pass
        return step

    def shutdown_many(self, interfaces=None, /, *, wait=False, **parameters):
        """Shuts several interfaces down: the given ones, or those that the other parameters select. Returns
        the last object `Step` of each, by name."""
        parameters["interfaces"] = list(interfaces) if interfaces is not None else None
        if not wait:
            answers = [self._call("ShutdownMany", parameters, self._timeout)]
        else:
            held = _Held(self._timeout)
            answers = self._stream("ShutdownMany", parameters, lambda answer: held.limit(answer["steps"]))
        return {step["shutdown"]["interface"]: step for answer in answers for step in answer["steps"]}

    def enable(self, interface, /, **parameters):
        """Sets the link up, or aborts the shutdown. Returns "up", "already-up" or "aborted"."""
        return self._call("Enable", {**parameters, "interface": interface}, self._timeout)["result"]

    def enable_many(self, interfaces=None, /, **parameters):
        """Enables several interfaces, selected as in shutdown_many. Returns the result of each, by name:
        {"interface": ..., "result": ..., "message": ...}. `result` may also be "failed", with a message."""
        parameters["interfaces"] = list(interfaces) if interfaces is not None else None
        answer = self._call("EnableMany", parameters, self._timeout)
        return {result["interface"]: result for result in answer["results"]}

    # --- Frames -------------------------------------------------------------------------------------

    def publish(self, agent, interface, frames, lifetime, /, **parameters):
        """Publishes an agent's frames for an interface: complete frames, as bytes or as text in
        hexadecimal. They stay until they are withdrawn; with the lifetime "connection" also not longer
        than this Client is open, with "kept" also after valend has restarted. Returns `tooLong`: the
        frames that the device cannot send."""
        parameters.update(
            agent=agent,
            interface=interface,
            frames=[frame if isinstance(frame, str) else bytes(frame).hex() for frame in frames],
            lifetime=lifetime,
        )
        return self._call("Publish", parameters, self._timeout)["tooLong"]

    def withdraw(self, agent, interface, /, **parameters):
        """Withdraws what the agent has published for the interface."""
        self._call("Withdraw", {**parameters, "agent": agent, "interface": interface}, self._timeout)

    # --- Calls --------------------------------------------------------------------------------------

    def _call(self, method, parameters, timeout):
        self._connection.send(method, parameters, self._timeout)
        return self._connection.receive(method, timeout)[0]

    def _stream(self, method, parameters, limit):
        """`limit` returns, for each answer, how long the next may take."""
        connection = _Connection(self._path, self._timeout)
        try:
            connection.send(method, parameters, self._timeout, more=True)
            timeout, continues = self._timeout, True
            while continues:
                answer, continues = connection.receive(method, timeout)
                timeout = limit(answer)
                yield answer
        finally:
            connection.close()
