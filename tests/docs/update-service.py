"""An update service, written from docs/protocol.md alone."""

import socket
import threading
from urllib.parse import unquote_to_bytes

PATH = "/version-update.php"
FIELDS = ["product", "productline", "version", "version_name", "os", "os_version", "machine_id",
          "processor_arch"]
LONGEST_FORM = 32768


def receive_request(connection):
    """Returns the header lines and the form. The form's end is that of Content-Length."""
    data = b""
    while b"\r\n\r\n" not in data:
        data += receive(connection)
    header, form = data.split(b"\r\n\r\n", 1)
    lines = header.decode("latin-1").split("\r\n")
    length = int(next(line.split(":")[1] for line in lines
                      if line.lower().startswith("content-length:")))
    assert length < LONGEST_FORM, length
    while len(form) < length:
        form += receive(connection)
    assert len(form) == length, form
    return lines, form


def receive(connection):
    data = connection.recv(4096)
    assert data, "the client closed its side before it had the reply"
    return data


def decode_form(form):
    pairs = [pair.split(b"=") for pair in form.split(b"&")]
    return [(unquote_to_bytes(name).decode(), unquote_to_bytes(value)) for name, value in pairs]


def is_update_request(line):
    method, target, _ = line.split(" ")
    if target.startswith("http://"):
        target = "/" + target[len("http://"):].partition("/")[2]
    return method == "POST" and target == PATH


class Service:
    """Listens on a free port of this machine until it is closed. Keeps what it received."""

    def __init__(self, reply_to):
        """reply_to(fields) returns the bytes of the reply, and whether to close after them."""
        self.reply_to = reply_to
        self.requests = []
        self.failures = []
        self.open_connections = []
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self.socket.getsockname()[1]
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        while True:
            connection, _ = self.socket.accept()
            connection.settimeout(20)
            try:
                if not self.answer(connection):
                    return
            except (AssertionError, OSError, ValueError, StopIteration) as failure:
                self.failures.append(repr(failure))
                connection.close()

    def answer(self, connection):
        """Serves one connection. Returns whether to go on: "stop" is what close sends."""
        if connection.recv(4, socket.MSG_PEEK) == b"stop":
            connection.close()
            return False
        lines, form = receive_request(connection)
        assert is_update_request(lines[0]), lines[0]
        fields = decode_form(form)
        self.requests.append((lines, form, fields))
        reply, closes = self.reply_to(dict(fields))
        connection.sendall(reply)
        if closes:
            connection.close()
        else:
            self.open_connections.append(connection)
        return True

    def close(self):
        host, port = self.address.split(":")
        with socket.create_connection((host, int(port))) as connection:
            connection.sendall(b"stop")
            self.thread.join()
        self.socket.close()
        for connection in self.open_connections:
            connection.close()


# The answer of an ordinary service

PRODUCTS = {("Quintral Shapes", "Quintral"): ("5.2", "http://www.quintral.example/shapes")}


def answer_of_list(fields):
    found = PRODUCTS.get((fields["product"].decode(), fields["productline"].decode()))
    if found is None:
        body = "Message: This service does not know the product.\n"
    else:
        body = f"Version: {found[0]}\nURL: {found[1]}\nMessage: Version {found[0]} is the newest.\n"
    return ("HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n" + body).encode(), True
