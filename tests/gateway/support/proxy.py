"""A way to a broker that can go silent: what is sent into it is taken, and nothing comes out."""

from __future__ import annotations

import socket
import threading

from machines import free_port


class Proxy:
    """Threads: its own. `go_silent` is for the connections that there are; new ones work."""

    def __init__(self, target: int) -> None:
        self.port = free_port()
        self.connections = 0
        self._target = target
        self._lock = threading.Lock()
        self._talking: set[socket.socket] = set()
        self._silent: set[socket.socket] = set()
        self._listener = socket.create_server(("127.0.0.1", self.port))
        threading.Thread(target=self._accept, daemon=True).start()

    def go_silent(self) -> int:
        """Returns how many connections have become silent."""
        with self._lock:
            silent = len(self._talking)
            self._silent |= self._talking
            self._talking.clear()
        return silent // 2

    def close(self) -> None:
        self._listener.close()
        with self._lock:
            everything = [*self._talking, *self._silent]
        for each in everything:
            shut(each)

    def _accept(self) -> None:
        while True:
            try:
                near, _ = self._listener.accept()
            except OSError:
                return
            try:
                far = socket.create_connection(("127.0.0.1", self._target))
            except OSError:
                near.close()
                continue
            with self._lock:
                self._talking |= {near, far}
                self.connections += 1
            for here, there in ((near, far), (far, near)):
                threading.Thread(target=self._pass_on, args=(here, there), daemon=True).start()

    def _pass_on(self, here: socket.socket, there: socket.socket) -> None:
        while True:
            try:
                piece = here.recv(65536)
            except OSError:
                piece = b""
            with self._lock:
                silent = here in self._silent
            if silent and piece:
                continue
            if silent:
                # Whoever is at the other end does not hear of it.
                here.close()
                return
            if not piece or not sent(there, piece):
                break
        with self._lock:
            self._talking -= {here, there}
        shut(here)
        shut(there)


def sent(to: socket.socket, piece: bytes) -> bool:
    try:
        to.sendall(piece)
    except OSError:
        return False
    return True


def shut(which: socket.socket) -> None:
    try:
        which.shutdown(socket.SHUT_RDWR)
    except OSError:
        pass
    which.close()
