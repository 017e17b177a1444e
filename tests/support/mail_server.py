"""A mail server on a loopback port, for a test: it takes mail or refuses it."""

import socketserver
import threading


class _Session(socketserver.StreamRequestHandler):
    def handle(self):
        self._say("220 mx.example.org")
        for line in self.rfile:
            word = line[:4].upper()
            if word == b"EHLO":
                accepted = False
                self._say("250-mx.example.org\r\n250 PIPELINING")
            elif word == b"RCPT":
                answer = next((text for part, text in self.server.answers.items() if part in line.decode()), "250 ok")
                accepted = accepted or answer.startswith("2")
                self._say(answer)
            elif word == b"DATA" and accepted:
                self._say("354 go on")
                if not self._take_mail():
                    return
                self._say("250 taken")
                accepted = False
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


class MailServer(socketserver.ThreadingTCPServer):
    """`answers` says what a recipient gets by a part of its command, `mails` keeps what was read."""

    allow_reuse_address = True
    daemon_threads = True

    def __init__(self, add_cleanup):
        super().__init__(("127.0.0.1", 0), _Session)
        self.answers, self.mails = {}, []
        self.port = self.server_address[1]
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()
        add_cleanup(self.end)

    def end(self):
        self.shutdown()
        self.server_close()
