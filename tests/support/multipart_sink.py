#!/usr/bin/env python3
"""multipart_sink.py HOST PORT: answers a POST 200 only when Host names it and
the body is one clean part, field file1, whose filename names a local file
with the same bytes; else 400 with the reason."""
import email.parser
import email.policy
import http.server
import sys

HOST, PORT = sys.argv[1], int(sys.argv[2])
AUTHORITY = "%s:%d" % (HOST, PORT)


def fault(headers, body):
    if headers["Host"] != AUTHORITY:
        return "Host %r is not %r" % (headers["Host"], AUTHORITY)
    head = b"Content-Type: " + headers["Content-Type"].encode() + b"\r\n\r\n"
    msg = email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(head + body)
    parts = list(msg.iter_parts()) if msg.is_multipart() else []
    if msg.defects or msg.preamble or msg.epilogue or len(parts) != 1 or parts[0].defects \
            or parts[0].get_param("name", header="content-disposition") != "file1":
        return "not one clean part, field file1: %r %r" % (msg.defects, parts)
    with open(parts[0].get_filename(), "rb") as f:
        if f.read() != (parts[0].get_payload(decode=True) or b""):
            return "the bytes of %s differ" % parts[0].get_filename()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    log_request = lambda *args: None  # refusals alone go to standard error

    def do_POST(self):
        try:
            why = fault(self.headers, self.rfile.read(int(self.headers["Content-Length"])))
        except Exception as e:  # a malformed upload is an answer, not a crash
            why = repr(e)
        if why:
            return self.send_error(400, why)
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()


http.server.ThreadingHTTPServer((HOST, PORT), Handler).serve_forever()
