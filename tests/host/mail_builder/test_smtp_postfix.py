"""The SMTP transport against a real mail server. The environment names the probe (SMTP_PROBE)."""

import os
import shutil
import socket
import ssl
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path

from loopback import make_certificates
from postfix import Postfix, can_run

MAIL = b"From: s@example.org\r\nSubject: x\r\n\r\n.dot\r\n..\r\n\xc3\xbc\r\nlast"


def send(url, *recipients, tls="none", ca="", never=True, content=MAIL, want=0):
    """The verdicts as (word, text); with want=3 what was said instead."""
    environment = {k: v for k, v in os.environ.items() if k != "VELMAR_ROOT"}
    done = subprocess.run([os.environ["SMTP_PROBE"], url, tls, ca, "", "never" if never else "default", "s@example.org",
                           *recipients], env=environment, input=content, capture_output=True, timeout=60)
    if done.returncode != want:
        raise AssertionError("exit %s: %s" % (done.returncode, done.stderr.decode()))
    return done.stderr.decode() if want else [tuple(line.split(" ", 1)) for line in done.stdout.decode().splitlines()]


@unittest.skipUnless(can_run(), "needs Postfix and root")
class SmtpPostfixTest(unittest.TestCase):
    def setUp(self):
        self.directory = Path(tempfile.mkdtemp(prefix="velmar-smtp-"))
        self.addCleanup(shutil.rmtree, self.directory)
        make_certificates(self.directory)

    def start(self, access=None, **options):
        postfix = Postfix(options, access)
        postfix.start(self.addCleanup)
        return postfix

    def test_verdicts_notify_and_limits(self):
        postfix = self.start({"no@example.org": "REJECT gone", "later@example.org": "DEFER busy"},
                             smtpd_recipient_limit="2", message_size_limit="50000",
                             virtual_alias_maps="inline:{ bounce@example.org=gone@other.test }")
        good = ["%s@example.org" % name for name in "abcde"]
        got = send(postfix.url, good[0], "no@example.org", *good[1:], "later@example.org", "\u00fc@example.org")
        self.assertEqual([word for word, _ in got],
                         ["accepted", "permanent"] + 4 * ["accepted"] + ["temporary", "accepted"], got)
        self.assertRegex(got[1][1], "^554 5.7.1 .*gone$")
        self.assertRegex(got[6][1], "^450 4.7.1 .*busy$")
        mails = postfix.delivered()
        self.assertEqual({r: len(m) for r, m in mails.items()}, {r: 1 for r in good + ["\u00fc@example.org"]})
        self.assertTrue(mails[good[4]][0].endswith(b"\n\n.dot\n..\n\xc3\xbc\nlast\n"), mails[good[4]])

        self.assertRegex(send(postfix.url, good[0], content=b"x" * 50001)[0][1], "50003 bytes.* 50000$")
        # What fails after it was accepted comes back, unless nobody is to be notified.
        for never, bounces in ((True, 0), (False, 1)):
            self.assertEqual(send(postfix.url, "bounce@example.org", never=never)[0][0], "accepted")
            self.assertEqual(len(postfix.delivered()["s@example.org"]), bounces, postfix.log())

    def test_nothing_is_smuggled_in(self):
        postfix = self.start()
        second = b"MAIL FROM:<e@example.org>\r\nRCPT TO:<v@example.org>\r\nDATA\r\nS: x\r\n\r\nx\r\n.\r\n"
        for end in (b"\n.\n", b"\n.\r\n", b"\r.\r", b"\r\n.\n", b"\r.\r\n"):
            self.assertIn("no line end", send(postfix.url, "a@example.org", content=b"S: x\r\n\r\nx" + end + second, want=3))
        word, text = send(postfix.url, "a@example.org>\r\nRCPT TO:<v@example.org")[0]
        self.assertEqual((word, "holds a control character" in text), ("permanent", True), text)
        self.assertEqual(send(postfix.url, "a@example.org", content=b"S: x\r\n\r\nx\r\n.\r\n" + second)[0][0], "accepted")
        mails = postfix.delivered()
        self.assertEqual({r: len(m) for r, m in mails.items()}, {"a@example.org": 1})
        self.assertIn(b"\nx\n.\nMAIL FROM", mails["a@example.org"][0])

    def test_certificates(self):
        postfix = self.start(smtpd_tls_security_level="may", smtpd_tls_loglevel="1",
                             smtpd_tls_chain_files=self.directory / "server.pem")
        ca, other = str(self.directory / "ca.pem"), str(self.directory / "other.pem")
        for tls, authority, want in (("required", ca, "accepted"), ("offered", ca, "accepted"),
                                     ("required", other, "temporary"), ("offered", other, "temporary"),
                                     ("required", "", "temporary")):
            with self.subTest(tls=tls, authority=authority):
                got = send(postfix.url, "a@example.org", tls=tls, ca=authority)
                self.assertEqual(got[0][0], want, got)
                self.assertIn("certificate" if want == "temporary" else "250 2.0.0", got[0][1])
        self.assertEqual(len(postfix.delivered()["a@example.org"]), 2)
        self.assertIn("TLS connection established", postfix.log())
        plain = self.start()
        self.assertIn("STARTTLS", send(plain.url, "a@example.org", tls="required", ca=ca)[0][1])
        self.assertEqual(send(plain.url, "a@example.org", tls="offered", ca=ca)[0][0], "accepted")

    def test_a_tls_server_that_goes_in_the_middle_kills_nobody(self):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.directory / "server.pem")
        with socket.create_server(("127.0.0.1", 0)) as listener:
            def serve():
                client = context.wrap_socket(listener.accept()[0], server_side=True)
                for reply in (b"220 x", b"250 x", b"250 x", b"250 x", b"354 x"):
                    client.sendall(reply + b"\r\n")
                    client.recv(4096)
                raw = socket.socket(fileno=client.detach())
                raw.shutdown(socket.SHUT_WR)
                raw.close()

            server = threading.Thread(target=serve, daemon=True)
            server.start()
            got = send("smtp://127.0.0.1:%d" % listener.getsockname()[1], "a@example.org", tls="implicit",
                       ca=str(self.directory / "ca.pem"), content=b"x" * (20 << 20))
            self.assertEqual(got, [("temporary", "the server closed the connection")])
            server.join()


if __name__ == "__main__":
    unittest.main()
