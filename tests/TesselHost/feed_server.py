#!/usr/bin/env python3
"""A loopback HTTPS server for the feed download tests.

Usage: feed_server.py CERT KEY BODY SIGNATURE
Prints "listening <port>" once ready, and "sent <path> <bytes>" after each
streamed response, counting what the client actually took.
"""
import http.server
import ssl
import sys

cert, key, body_path, signature_path = sys.argv[1:5]
body = open(body_path, "rb").read()
signature = open(signature_path).read().strip()
CHUNK = 64 * 1024
HUGE = 256 * 1024 * 1024


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def send_feed(self):
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Tessel-Feed-Signature", signature)
        self.end_headers()
        self.wfile.write(body)

    def stream(self, announce):
        self.send_response(200)
        if announce:
            self.send_header("Content-Length", str(HUGE))
        self.end_headers()
        sent = 0
        try:
            while sent < HUGE:
                self.wfile.write(b" " * CHUNK)
                sent += CHUNK
        except (BrokenPipeError, ConnectionResetError, ssl.SSLError, OSError):
            pass
        print("sent %s %d" % (self.path, sent), flush=True)

    def do_GET(self):
        port = self.server.server_address[1]
        if self.path == "/compat/v1.json":
            self.send_feed()
        elif self.path == "/signature":
            text = signature.encode()
            self.send_response(200)
            self.send_header("Content-Length", str(len(text)))
            self.end_headers()
            self.wfile.write(text)
        elif self.path in ("/huge", "/huge-announced"):
            self.stream(self.path == "/huge-announced")
        elif self.path == "/to-http":
            self.send_response(302)
            self.send_header("Location", "http://127.0.0.1:%d/compat/v1.json" % port)
            self.end_headers()
        elif self.path == "/to-https":
            self.send_response(302)
            self.send_header("Location", "/compat/v1.json")
            self.end_headers()
        else:
            self.send_response(404)
            self.end_headers()


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(cert, key)
server.socket = context.wrap_socket(server.socket, server_side=True)
print("listening %d" % server.server_address[1], flush=True)
server.serve_forever()
