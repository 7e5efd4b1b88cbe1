"""Serves a directory's files over HTTPS on this machine until whoever started it ends.

    python3 -I -S -B serve.py            in an empty directory of its own

makes there an authority and certificates, starts nginx and the unruly server (unruly.py) on free
ports over the subdirectory "files", and then writes "servers.txt": a line for each server with its
name and its port, and the control port's last. nginx writes its log of requests to "nginx.log", the
unruly server its own to "unruly.log".

Whoever started this connects to the control port. Its connection ends with it, whatever becomes of
it, and that ends the servers; one that has not come within the limit has already ended.

    python3 -I -S -B serve.py --until-input-ends

is for scripts: there the end of the standard input ends the servers.
"""

import ctypes
import os
import pathlib
import signal
import socket
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import certificates  # noqa: E402
import unruly  # noqa: E402

# A safety net: a program that is about to connect takes a moment.
CONTROL_LIMIT_SECONDS = 600
NGINX = "/usr/sbin/nginx"

CONFIGURATION = """
daemon off;
master_process off;
pid nginx.pid;
error_log nginx-errors.log;
events {{ worker_connections 64; }}
http {{
    log_format requests '$request_method $request_uri $status "$http_range" $bytes_sent $http_if_none_match';
    access_log nginx.log requests;
    client_body_temp_path nginx-body;
    proxy_temp_path nginx-proxy;
    fastcgi_temp_path nginx-fastcgi;
    uwsgi_temp_path nginx-uwsgi;
    scgi_temp_path nginx-scgi;
    default_type application/octet-stream;
    sendfile on;
    ssl_certificate good.pem;
    ssl_certificate_key key.pem;
    ssl_protocols TLSv1.2 TLSv1.3;
    ssl_session_cache none;
    server {{
        listen 127.0.0.1:{port} ssl;
        root files;
    }}
}}
"""


def end_with_parent():
    """Runs in a new process before its program: the end of this one ends it."""
    pr_set_pdeathsig = 1
    ctypes.CDLL(None).prctl(pr_set_pdeathsig, signal.SIGKILL)


def start_nginx(directory):
    """Starts nginx and returns its process and port. A port that somebody else takes between its
    choice and nginx's start makes nginx end; then there is another one."""
    while True:
        port = unruly.free_port()
        (directory / "nginx.conf").write_text(CONFIGURATION.format(port=port))
        process = subprocess.Popen(
            [NGINX, "-p", str(directory) + "/", "-c", "nginx.conf", "-e", "nginx-errors.log"],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            preexec_fn=end_with_parent,
        )
        while process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", port)).close()
                if process.poll() is None:
                    return process, port
            except OSError:
                pass
        errors = (directory / "nginx-errors.log").read_text()
        if "Address already in use" not in errors:
            raise RuntimeError("nginx does not start: " + errors)
        (directory / "nginx-errors.log").unlink()


def await_end(control):
    """Returns when whoever started this has ended, or never came. What it returns stays open as long
    as the servers run: who ends them on purpose waits for its end."""
    if "--until-input-ends" in sys.argv[1:]:
        while sys.stdin.buffer.read1(4096):
            pass
        return None
    control.settimeout(CONTROL_LIMIT_SECONDS)
    try:
        connection, _ = control.accept()
    except TimeoutError:
        return None
    connection.settimeout(None)
    try:
        while connection.recv(4096):
            pass
    except OSError:
        pass
    return connection


def main():
    directory = pathlib.Path.cwd()
    (directory / "files").mkdir(exist_ok=True)
    certificates.make_all(directory)
    control = socket.create_server(("127.0.0.1", 0))
    process, port = start_nginx(directory)
    ports = {"nginx": port}
    for name, certificate in (
        ("unruly", "good"),
        ("expired", "expired"),
        ("foreign", "foreign"),
        ("misnamed", "misnamed"),
    ):
        ports[name] = unruly.start(directory, certificate)
    ports["control"] = control.getsockname()[1]
    lines = "".join(f"{name} {number}\n" for name, number in ports.items())
    (directory / "servers.new").write_text(lines)
    (directory / "servers.new").rename(directory / "servers.txt")
    connection = await_end(control)
    process.kill()
    process.wait()
    del connection
    # Connections that are stalled on purpose have threads that end with the process.
    os._exit(0)


if __name__ == "__main__":
    main()
