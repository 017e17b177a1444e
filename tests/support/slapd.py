#!/usr/bin/env python3
"""A directory server of its own for one test, on free loopback ports, in a directory of its own.

As a program, for tests in other languages: slapd.py DIRECTORY LDIF serves what the file LDIF holds, prints its port and
its ldaps port, obeys the lines "stop" and "start" on its input with a line each, and ends with its input.
"""

import socket
import subprocess
import sys
import time
from pathlib import Path

from loopback import free_port, make_certificates

SUFFIX = "dc=example,dc=org"
ADMIN = "cn=admin," + SUFFIX
PASSWORD = "secret"


class Slapd:
    """Serves `ldif` below SUFFIX to those who bind; its certificate is for 127.0.0.1, by the authority ca.pem."""

    def __init__(self, directory, ldif):
        self.directory = Path(directory)
        self.port, self.tls_port = free_port(), free_port()
        self.process = None
        (self.directory / "data").mkdir(parents=True)
        make_certificates(self.directory)
        self.config = self.directory / "slapd.conf"
        self.config.write_text(Path(__file__).with_name("slapd.conf").read_text().format(
            dir=self.directory, suffix=SUFFIX, admin=ADMIN, password=PASSWORD))
        subprocess.run(["/usr/sbin/slapadd", "-q", "-f", self.config, "-l", ldif], check=True)
        self.start()

    def start(self):
        urls = "ldap://127.0.0.1:%d/ ldaps://127.0.0.1:%d/" % (self.port, self.tls_port)
        self.process = subprocess.Popen(["/usr/sbin/slapd", "-d", "0", "-f", self.config, "-h", urls],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        for _ in range(200):
            try:
                return socket.create_connection(("127.0.0.1", self.tls_port)).close()
            except ConnectionRefusedError:
                time.sleep(0.05)
        self.stop()
        raise RuntimeError("slapd does not answer")

    def stop(self):
        if self.process:
            self.process.terminate()
            self.process.wait(30)
            self.process = None


def main():
    server = Slapd(*sys.argv[1:])
    try:
        print(server.port, server.tls_port, flush=True)
        for line in sys.stdin:
            {"stop": server.stop, "start": server.start}[line.strip()]()
            print("done", flush=True)
    finally:
        server.stop()


if __name__ == "__main__":
    main()
