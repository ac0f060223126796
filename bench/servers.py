# SPDX-License-Identifier: MIT
"""The servers that bench/run asks."""

import os
import selectors
import socket
import subprocess
import threading
import time

DEADLINE = 120

NGINX = """
daemon off;
master_process off;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{ worker_connections 1024; }}
http {{
    access_log off;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    keepalive_requests 1000000;
    default_type application/json;
    ssl_certificate {folder}/server.pem;
    ssl_certificate_key {folder}/server.key;
    ssl_protocols TLSv1.2 TLSv1.3;
    root {folder}/served;
    server {{
        listen 127.0.0.1:{http};
        location /zeros/ {{ sendfile on; }}
    }}
    server {{
        listen 127.0.0.1:{tls} ssl;
        location /closing/ {{ keepalive_timeout 0; alias {folder}/served/; }}
    }}
    server {{ listen 127.0.0.1:{http2} ssl http2; }}
}}
"""


def free_ports(count):
    probes = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [probe.getsockname()[1] for probe in probes]
    for probe in probes:
        probe.close()
    return ports


def make_certificates(folder):
    """authority.pem, which has signed server.pem for 127.0.0.1."""
    def openssl(*words):
        subprocess.run(["openssl", *words], cwd=folder, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=bench authority",
            "-keyout", "authority.key", "-out", "authority.pem")
    openssl("req", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=127.0.0.1", "-keyout", "server.key", "-out", "server.csr")
    with open(f"{folder}/server.ext", "w", encoding="ascii") as file:
        file.write("subjectAltName=IP:127.0.0.1\n")
    openssl("x509", "-req", "-in", "server.csr", "-CA", "authority.pem", "-CAkey", "authority.key", "-CAcreateserial",
            "-days", "2", "-extfile", "server.ext", "-out", "server.pem")


class Nginx:
    """Serves files of `sizes` bytes, whose names are their sizes: by http, by TLS (below closing/ for one request a
    connection) and by HTTP/2, and zero bytes of `zeros` under zeros/."""

    def __init__(self, folder, sizes, zeros):
        names = ("http", "tls", "http2")
        ports = dict(zip(names, free_ports(len(names))))
        make_certificates(folder)
        self.authority = f"{folder}/authority.pem"
        os.makedirs(f"{folder}/served/zeros")
        for size in sizes:
            with open(f"{folder}/served/{size}", "w", encoding="ascii") as file:
                file.write("x" * size)
        for size in zeros:
            with open(f"{folder}/served/zeros/{size}", "wb") as file:
                file.truncate(size)
        with open(f"{folder}/nginx.conf", "w", encoding="ascii") as file:
            file.write(NGINX.format(folder=folder, **ports))
        path = os.environ["PATH"] + ":/usr/sbin:/usr/local/sbin"
        words = ["nginx", "-p", folder, "-e", f"{folder}/error.log", "-c", f"{folder}/nginx.conf"]
        self.process = subprocess.Popen(words, env={**os.environ, "PATH": path}, stdin=subprocess.DEVNULL)
        self.urls = {name: f"http{'' if name == 'http' else 's'}://127.0.0.1:{port}" for name, port in ports.items()}
        for port in ports.values():
            self.await_listening(port)

    def await_listening(self, port):
        end = time.monotonic() + DEADLINE
        while time.monotonic() < end and self.process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", port)).close()
                return
            except ConnectionRefusedError:
                time.sleep(0.01)
        raise SystemExit("bench/run: nginx does not serve")

    def stop(self):
        self.process.kill()
        self.process.wait()


class SilentServer:
    """Reads requests and never answers."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=4096)
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/held"
        self.requests = 0
        self.changed = threading.Condition()
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        with selectors.DefaultSelector() as ready:
            ready.register(self.listener, selectors.EVENT_READ)
            while True:
                for key, _ in ready.select():
                    if key.fileobj is self.listener:
                        ready.register(self.listener.accept()[0], selectors.EVENT_READ)
                    else:
                        self.read(ready, key.fileobj)

    def read(self, ready, connection):
        try:
            data = connection.recv(65536)
        except ConnectionResetError:
            data = b""
        if not data:
            ready.unregister(connection)
            connection.close()
        if data.endswith(b"\r\n\r\n"):
            with self.changed:
                self.requests += 1
                self.changed.notify()

    def await_requests(self, count):
        with self.changed:
            if not self.changed.wait_for(lambda: self.requests >= count, DEADLINE):
                raise SystemExit(f"bench/run: {self.requests} of {count} requests came")


class Sink:
    """Takes one request on each connection, swallows its body, answers, and keeps what came ahead of the body."""

    ANSWER = b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok"

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/sink"
        self.head = b""
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        room = bytearray(1 << 20)
        while True:
            with self.listener.accept()[0] as connection:
                self.swallow(connection, room)

    def swallow(self, connection, room):
        data = b""
        while b"\r\n\r\n" not in data:
            data += connection.recv(65536)
        self.head, _, body = data.partition(b"\r\n\r\n")
        fields = dict(line.lower().split(b": ", 1) for line in self.head.split(b"\r\n")[1:])
        left = int(fields.get(b"content-length", 0)) - len(body)
        while left > 0:
            left -= connection.recv_into(room)
        connection.sendall(self.ANSWER)
