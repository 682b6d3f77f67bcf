#!/usr/bin/env python3
"""Upload sink for end-to-end tests: an HTTP server on a loopback port that
takes POSTs and keeps what arrived, so a test can compare it byte for byte.

  multipart/form-data       parsed by the standard library's email package;
                            each part's payload is stored as it arrived
  application/octet-stream  (and any other type) the body is stored as it is
  --discard                 every body is read and thrown away (benchmarks)

DIR/manifest.tsv gets one line per stored part (or raw body), tab-separated,
written before the response goes out:

  request mode method path content_length content_type name filename
  size sha256 stored disposition defects

mode is multipart, raw, discard or error; content_length and content_type
are the request's header values as received; name and filename come from
the part's Content-Disposition as the email package reads them, and
disposition is that header's raw value; stored is the file name under
DIR/parts/; defects lists what the parser (or the body reader) found wrong,
comma-separated. Backslash, tab, CR and LF in a field are written as \\\\,
\\t, \\r and \\n; other bytes pass unchanged.

Standard output: "listening on HOST:PORT" once the socket listens, then
"request N" after request N was recorded. A body that the parser finds
malformed is still recorded, and answered 400.
"""

import argparse
import email.parser
import email.policy
import email.utils
import hashlib
import http.server
import os
import socket
import sys
import threading

COLUMNS = ("request", "mode", "method", "path", "content_length", "content_type", "name",
           "filename", "size", "sha256", "stored", "disposition", "defects")


def field(value):
    if value is None:
        return b""
    if isinstance(value, int):
        value = str(value)
    if isinstance(value, str):
        # surrogateescape gives back the bytes that came off the wire.
        value = value.encode("utf-8", "surrogateescape")
    return (value.replace(b"\\", b"\\\\").replace(b"\t", b"\\t")
            .replace(b"\r", b"\\r").replace(b"\n", b"\\n"))


class ShortBody(Exception):
    pass


class Sink:
    def __init__(self, args):
        self.args = args
        self.lock = threading.Lock()
        self.requests = 0
        self.parts_dir = os.path.join(args.dir, "parts")
        os.makedirs(self.parts_dir, exist_ok=True)
        self.manifest = open(os.path.join(args.dir, "manifest.tsv"), "ab")
        self.manifest.write(b"# " + "\t".join(COLUMNS).encode() + b"\n")
        self.manifest.flush()
        if args.reply_file:
            with open(args.reply_file, "rb") as f:
                self.reply = f.read()
        else:
            self.reply = args.reply.encode()

    def next_request(self):
        with self.lock:
            self.requests += 1
            return self.requests

    def store(self, name, data):
        with open(os.path.join(self.parts_dir, name), "wb") as f:
            f.write(data)
        return name

    def record(self, rows, number):
        with self.lock:
            for row in rows:
                self.manifest.write(b"\t".join(field(row.get(c)) for c in COLUMNS) + b"\n")
            self.manifest.flush()
        sys.stdout.write("request %d\n" % number)
        sys.stdout.flush()


def read_exact(rfile, length, keep):
    chunks = []
    left = length
    while left > 0:
        data = rfile.read(min(left, 1 << 16))
        if not data:
            raise ShortBody(length - left)
        if keep:
            chunks.append(data)
        left -= len(data)
    return b"".join(chunks)


def read_chunked(rfile, keep):
    chunks = []
    total = 0
    while True:
        line = rfile.readline(1024)
        if not line.endswith(b"\n"):
            raise ShortBody(total)
        size = int(line.split(b";", 1)[0].strip(), 16)
        if size == 0:
            break
        data = read_exact(rfile, size, True)
        total += size
        if keep:
            chunks.append(data)
        rfile.readline(16)
    while rfile.readline(1024) not in (b"\r\n", b"\n", b""):
        pass
    return b"".join(chunks), total


def parse_multipart(content_type, body):
    head = b"Content-Type: " + content_type.encode("latin-1") + b"\r\n\r\n"
    msg = email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(head + body)
    defects = [type(d).__name__ for d in msg.defects]
    if msg.preamble:
        defects.append("Preamble")
    if msg.epilogue:
        defects.append("Epilogue")
    parts = []
    if not msg.is_multipart():
        defects.append("NotMultipart")
        return parts, defects
    for part in msg.iter_parts():
        raw = ""
        for key, value in part.raw_items():
            if key.lower() == "content-disposition":
                raw = value
        name = part.get_param("name", header="content-disposition")
        if isinstance(name, tuple):
            name = email.utils.collapse_rfc2231_value(name)
        payload = part.get_payload(decode=True)
        part_defects = [type(d).__name__ for d in part.defects]
        if part.is_multipart():
            part_defects.append("NestedMultipart")
        parts.append({"name": name, "filename": part.get_filename(), "disposition": raw,
                      "payload": payload or b"", "defects": part_defects})
    if not parts:
        defects.append("NoParts")
    return parts, defects


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "multipart-sink"

    def log_message(self, fmt, *args):
        pass

    def answer(self, status, body):
        sink = self.server.sink
        self.send_response(status)
        self.send_header("Content-Type", "text/plain")
        self.send_header("Connection", "close")
        if sink.args.reply_chunked:
            self.send_header("Transfer-Encoding", "chunked")
            self.end_headers()
            # Two chunks, written at once: a client that peeks for the next
            # size line sees it whole, whatever the timing.
            half = len(body) // 2
            coded = b"".join(b"%x\r\n%s\r\n" % (len(p), p)
                             for p in (body[:half], body[half:]) if p)
            self.wfile.write(coded + b"0\r\n\r\n")
        else:
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)
        self.close_connection = True

    def do_GET(self):
        self.answer(405, b"POST only\n")

    def do_POST(self):
        sink = self.server.sink
        number = sink.next_request()
        content_type = self.headers.get("Content-Type")
        content_length = self.headers.get("Content-Length")
        chunked = "chunked" in self.headers.get("Transfer-Encoding", "").lower()
        common = {"request": number, "method": self.command, "path": self.path,
                  "content_length": content_length, "content_type": content_type}
        keep = not sink.args.discard
        try:
            if chunked:
                body, size = read_chunked(self.rfile, keep)
            elif content_length is not None and content_length.strip().isdigit():
                size = int(content_length)
                body = read_exact(self.rfile, size, keep)
            else:
                sink.record([dict(common, mode="error", size=0, defects="NoLength")], number)
                self.answer(411, b"length required\n")
                return
        except (ShortBody, ValueError) as e:
            got = e.args[0] if isinstance(e, ShortBody) else 0
            sink.record([dict(common, mode="error", size=got, defects="ShortBody")], number)
            self.close_connection = True
            return

        if sink.args.discard:
            sink.record([dict(common, mode="discard", size=size)], number)
            self.answer(sink.args.status, sink.reply)
            return

        mime = (content_type or "").split(";", 1)[0].strip().lower()
        if mime.startswith("multipart/"):
            parts, defects = parse_multipart(content_type, body)
            rows = []
            for i, part in enumerate(parts, 1):
                data = part["payload"]
                rows.append(dict(common, mode="multipart", name=part["name"],
                                 filename=part["filename"], size=len(data),
                                 sha256=hashlib.sha256(data).hexdigest(),
                                 stored=sink.store("req-%d-part-%d.bin" % (number, i), data),
                                 disposition=part["disposition"],
                                 defects=",".join(defects + part["defects"])))
            defects = defects + [d for part in parts for d in part["defects"]]
            if not rows:
                rows.append(dict(common, mode="error", size=len(body), defects=",".join(defects)))
            sink.record(rows, number)
            if defects:
                self.answer(400, ("malformed multipart: %s\n" % ",".join(defects)).encode())
            else:
                self.answer(sink.args.status, sink.reply)
            return

        sink.record([dict(common, mode="raw", size=len(body),
                          sha256=hashlib.sha256(body).hexdigest(),
                          stored=sink.store("req-%d-raw.bin" % number, body))], number)
        self.answer(sink.args.status, sink.reply)


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--dir", required=True, help="where the manifest and the parts go")
    ap.add_argument("--bind", default="127.0.0.1", help="loopback address to listen on")
    ap.add_argument("--port", type=int, default=0, help="0 picks a free port")
    ap.add_argument("--status", type=int, default=200, help="status of every answer")
    ap.add_argument("--reply", default="OK\n", help="body of every answer")
    ap.add_argument("--reply-file", help="body of every answer, from a file")
    ap.add_argument("--reply-chunked", action="store_true", help="answer with chunked coding")
    ap.add_argument("--discard", action="store_true", help="read bodies and keep nothing")
    args = ap.parse_args()

    Server.address_family = socket.AF_INET6 if ":" in args.bind else socket.AF_INET
    server = Server((args.bind, args.port), Handler)
    server.sink = Sink(args)
    host = "[%s]" % args.bind if ":" in args.bind else args.bind
    sys.stdout.write("listening on %s:%d\n" % (host, server.server_address[1]))
    sys.stdout.flush()
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    main()
