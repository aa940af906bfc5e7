"""An FTP server on 127.0.0.1 that tests script."""

import socket
import threading


class Peer:
    """A scripted FTP server for one client after the other. Takes uploads; tells `on_upload` before it answers."""

    def __init__(self, listing=b"", on_upload=lambda: None, greeting=b"220 Scripted\r\n"):
        self.listing = listing
        self.on_upload = on_upload
        self.greeting = greeting
        self.stored = {}
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def url(self, path=""):
        return f"ftp://127.0.0.1:{self.port}/{path}"

    def stop(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self._thread.join()

    def _serve(self):
        while True:
            try:
                control, _ = self._listener.accept()
            except OSError:
                return
            with control, control.makefile("rb") as commands:
                control.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                try:
                    self._talk(control, commands)
                except OSError:
                    pass  # the client is gone

    def _talk(self, control, commands):
        control.sendall(self.greeting)
        door = None
        for line in commands:
            word, _, rest = line.rstrip(b"\r\n").partition(b" ")
            if word == b"EPSV":
                door = socket.create_server(("127.0.0.1", 0))
                control.sendall(b"229 Entering (|||%d|)\r\n" % door.getsockname()[1])
            elif word in (b"STOR", b"NLST"):
                control.sendall(b"150 Go on\r\n")
                with door, door.accept()[0] as data:
                    self._transfer(word, rest, data)
                control.sendall(b"226 Done\r\n")
            else:
                control.sendall({b"USER": b"331 Password?\r\n", b"PASS": b"230 Welcome\r\n",
                                 b"PWD": b'257 "/" is here\r\n'}.get(word, b"200 Fine\r\n"))

    def _transfer(self, word, name, data):
        if word == b"NLST":
            data.sendall(self.listing)
            return
        content = b""
        while piece := data.recv(65536):
            content += piece
        self.on_upload()
        self.stored[name] = content
