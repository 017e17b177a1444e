"""A certificate authority and a server certificate for 127.0.0.1 and localhost, made by openssl."""

import subprocess


def make_certificates(directory):
    """Writes ca.pem, server.pem (key and certificate) and other.pem, an authority that signed nothing."""
    for name in ("ca", "other"):
        _openssl(directory, "-subj", "/CN=" + name, "-keyout", name + ".key", "-out", name + ".pem")
    _openssl(directory, "-subj", "/CN=localhost", "-CA", "ca.pem", "-CAkey", "ca.key", "-addext",
             "subjectAltName=IP:127.0.0.1,DNS:localhost", "-addext", "basicConstraints=critical,CA:FALSE",
             "-keyout", "server.key", "-out", "server.crt")
    (directory / "server.pem").write_text((directory / "server.key").read_text() + (directory / "server.crt").read_text())


def _openssl(directory, *arguments):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                    "-days", "2", *arguments], cwd=directory, check=True, capture_output=True)
