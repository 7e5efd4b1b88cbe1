"""An HTTPS server that misbehaves on command. The commands stand in the address's query:

    /setup.exe?cut=1000&times=1          the first request's answer ends after 1000 bytes

times=N       only the first N requests for this very address misbehave; without it, all do
cut=N         closes the connection after N bytes of the file
advance=N     closes the connection after N bytes of the answer
stall=N       sends nothing more after N bytes, or not even the head for "stall=head"
drip=N        sends the head and N bytes, then a byte every tenth of a second, until a file
               "let-go" lies beside the directory of the files
more=N        announces and sends N bytes more than the file has
less=N        announces and sends N bytes less
unannounced=N announces no length and sends N bytes more (less for a negative number)
wrong=N       the byte N of the file is another one
status=N      answers with this status and a short text
header=endless  sends header lines without an end
redirect=A    answers with the status 302 and "Location: A"
by=N          redirects with this status
chain=N       redirects N times, the last time to the file itself
ignore=range  answers every request with the whole file
ignore=condition  answers a range though the file is another one
shift=N       answers a range with one that begins N bytes later
tag=T         the entity tag; "none" for neither tag nor time, "time" for the time alone
modified=T    the time of the last change
file=NAME     sends another file in this one's place

What has no end ends when the client closes.

Every request is a line in unruly.log: method, address, status or what it was told to do, and the
headers Range and If-Range.
"""

import hashlib
import http.server
import re
import socket
import ssl
import threading
import time
import urllib.parse

PORTION = 65536
lock = threading.Lock()


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


def start(directory, certificate):
    """Serves DIRECTORY/files with a certificate in threads of this process; returns the port."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.load_cert_chain(directory / f"{certificate}.pem", directory / "key.pem")
    server = Server(("127.0.0.1", 0), Answer)
    server.context = context
    server.directory = directory
    server.counts = {}
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_address[1]


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    request_queue_size = 64

    def finish_request(self, request, client_address):
        # The handshake belongs to the connection's own thread.
        try:
            secured = self.context.wrap_socket(request, server_side=True)
        except OSError:
            return
        try:
            super().finish_request(secured, client_address)
        except OSError:
            pass
        finally:
            secured.close()

    def handle_error(self, request, client_address):
        pass


class Answer(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *arguments):
        pass

    def note(self, what):
        line = f'{self.command} {self.path} {what} "{self.headers.get("Range", "")}" "{self.headers.get("If-Range", "")}"\n'
        with lock, open(self.server.directory / "unruly.log", "a", encoding="utf-8") as log:
            log.write(line)

    def read_commands(self):
        """Returns the file's name and what is to be done this time."""
        address = urllib.parse.urlsplit(self.path)
        commands = dict(urllib.parse.parse_qsl(address.query))
        times = int(commands.pop("times", -1))
        with lock:
            count = self.server.counts[self.path] = self.server.counts.get(self.path, 0) + 1
        if 0 <= times < count:
            commands = {}
        return urllib.parse.unquote(address.path).lstrip("/"), commands

    def do_GET(self):
        name, commands = self.read_commands()
        self.close_connection = True
        if "header" in commands:
            self.note("endless")
            self.send_endless_header()
        elif commands.get("stall") == "head":
            self.note("stall")
            self.stall()
        elif "redirect" in commands:
            self.redirect(commands["redirect"], int(commands.get("by", 302)))
        elif int(commands.get("chain", 0)) > 0:
            left = int(commands["chain"]) - 1
            self.redirect(f"?chain={left}" if left else name)
        elif "status" in commands:
            self.send_short(int(commands["status"]))
        else:
            self.send_file(name, commands)

    def redirect(self, address, status=302):
        self.note(status)
        self.send_response(status)
        self.send_header("Location", address)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def send_short(self, status):
        self.note(status)
        text = b"This is not the file.\n"
        self.send_response(status)
        self.send_header("Content-Length", str(len(text)))
        self.end_headers()
        self.wfile.write(text)

    def send_endless_header(self):
        self.wfile.write(b"HTTP/1.1 200 OK\r\n")
        number = 0
        while True:
            number += 1
            self.wfile.write(b"X-More-%d: and more\r\n" % number)
            time.sleep(0.05)

    def stall(self):
        """Until the client closes."""
        try:
            while self.connection.recv(PORTION):
                pass
        except OSError:
            pass

    def send_file(self, name, commands):
        path = self.server.directory / "files" / commands.get("file", name)
        if not path.is_file():
            self.send_short(404)
            return
        content = bytearray(path.read_bytes())
        tag = commands.get("tag", '"' + hashlib.sha256(content).hexdigest()[:16] + '"')
        modified = commands.get("modified", "Sun, 01 Mar 2026 10:00:00 GMT")
        begin = self.find_begin(commands, tag, modified)
        if begin is not None and begin >= len(content):
            self.send_short(416)
            return
        length = len(content)
        content += b"m" * (int(commands.get("more", 0)) + max(0, int(commands.get("unannounced", 0))))
        cut = int(commands.get("less", 0)) + max(0, -int(commands.get("unannounced", 0)))
        content = content[: len(content) - cut]
        if "wrong" in commands:
            content[int(commands["wrong"])] ^= 1
        shift = int(commands.get("shift", 0)) if begin is not None else 0
        start = (begin or 0) + shift
        self.send_head(begin, start, len(content), length, commands, tag, modified)
        self.send_body(memoryview(content)[start:], commands, start)

    def find_begin(self, commands, tag, modified):
        """Where the wanted range begins; nothing when the whole file is to be sent."""
        match = re.fullmatch(r"bytes=(\d+)-", self.headers.get("Range", ""))
        if not match or commands.get("ignore") == "range":
            return None
        condition = self.headers.get("If-Range")
        if condition and condition not in (tag, modified) and commands.get("ignore") != "condition":
            return None
        return int(match[1])

    def send_head(self, begin, start, end, length, commands, tag, modified):
        status = 200 if begin is None else 206
        self.note(status)
        self.send_response(status)
        if status == 206:
            total = length if end == length else end
            self.send_header("Content-Range", f"bytes {start}-{end - 1}/{total}")
        if "unannounced" not in commands:
            self.send_header("Content-Length", str(end - start))
        if tag not in ("none", "time"):
            self.send_header("ETag", tag)
        if tag != "none":
            self.send_header("Last-Modified", modified)
        self.send_header("Connection", "close")
        self.end_headers()

    def send_body(self, body, commands, start):
        """Positions in commands are the file's own."""
        if "advance" in commands:
            self.wfile.write(body[: int(commands["advance"])])
        elif "cut" in commands:
            self.wfile.write(body[: max(0, int(commands["cut"]) - start)])
        elif "stall" in commands:
            self.wfile.write(body[: max(0, int(commands["stall"]) - start)])
            self.stall()
        elif "drip" in commands:
            begin = max(0, int(commands["drip"]) - start)
            self.wfile.write(body[:begin])
            for position in range(begin, len(body)):
                time.sleep(0.1)
                if (self.server.directory / "let-go").exists():
                    return
                self.wfile.write(body[position : position + 1])
        else:
            for position in range(0, len(body), PORTION):
                self.wfile.write(body[position : position + PORTION])
