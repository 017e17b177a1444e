"""Servers that misbehave on a loopback port, for a test: a mail server with one fault, and one that never answers."""

import socket
import socketserver
import threading
import time


class _Session(socketserver.StreamRequestHandler):
    def handle(self):
        fault = self.server.fault
        if fault == "silent":
            self.server.ending.wait()
            return
        self._say("220 mx.example.org")
        for line in self.rfile:
            word = line.split()[0].upper().rstrip(b":") if line.split() else b""
            if fault == "slow":
                time.sleep(0.05)
            if word == b"EHLO":
                self._say("250-mx.example.org\r\n250 PIPELINING")
            elif word == b"RCPT":
                self._say("451 4.3.0 later" if fault == "451" else "250 ok")
            elif word == b"DATA" and fault != "451":
                self._say("354 go on")
                if not self._take_mail() or fault == "closes after DATA":
                    return
                self._say("250 taken")
            elif word == b"QUIT":
                return self._say("221 bye")
            else:
                self._say("554 no recipients" if word == b"DATA" else "250 ok")

    def _take_mail(self):
        lines = []
        for line in self.rfile:
            if line == b".\r\n":
                self.server.mails.append(b"".join(lines))
                return True
            lines.append(line)
        return False

    def _say(self, text):
        self.wfile.write(text.encode() + b"\r\n")


class FaultyServer(socketserver.ThreadingTCPServer):
    """fault: "451", "closes after DATA" (the mail is read whole), "slow" or "silent"; `mails` keeps what was read."""

    allow_reuse_address = True
    daemon_threads = True

    def __init__(self, fault, add_cleanup):
        super().__init__(("127.0.0.1", 0), _Session)
        self.fault, self.mails, self.ending = fault, [], threading.Event()
        self.port = self.server_address[1]
        threading.Thread(target=self.serve_forever, daemon=True).start()
        add_cleanup(self.end)

    def end(self):
        self.ending.set()
        self.shutdown()
        self.server_close()
