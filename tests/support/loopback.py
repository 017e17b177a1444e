"""What servers on 127.0.0.1 need: a free port, and certificates made by openssl."""

import socket
import subprocess


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def make_certificates(directory):
    """Writes ca.pem, server.pem (key and certificate, for 127.0.0.1) and other.pem, an authority that signed nothing."""
    for name in ("ca", "other"):
        _openssl(directory, "-subj", "/CN=" + name, "-keyout", name + ".key", "-out", name + ".pem")
    _openssl(directory, "-subj", "/CN=server", "-CA", "ca.pem", "-CAkey", "ca.key", "-addext",
             "subjectAltName=IP:127.0.0.1", "-addext", "basicConstraints=critical,CA:FALSE",
             "-keyout", "server.key", "-out", "server.crt")
    (directory / "server.pem").write_text((directory / "server.key").read_text() + (directory / "server.crt").read_text())


def _openssl(directory, *arguments):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                    "-days", "2", *arguments], cwd=directory, check=True, capture_output=True)
