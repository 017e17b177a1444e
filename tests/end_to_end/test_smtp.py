"""The queue against a real mail server: what it answers, what it takes, and whom it is believed to be."""

import shutil
import socket
import ssl
import threading
import time
import unittest

from host import Host, parse_events
from loopback import make_certificates
from postfix import Postfix, can_run

MAIL = b"From: s@example.org\r\nSubject: x\r\n\r\n.dot\r\n..\r\n\xc3\xbc\r\nlast"
ACCEPTED, DELAYED, REFUSED = "mail-handed-over", "mail-delayed", "mail-refused"


@unittest.skipUnless(can_run(), "needs Postfix and root")
class SmtpTest(unittest.TestCase):
    def setUp(self):
        self.host = Host(self.addCleanup)
        self.toml = self.host.root / "etc/velmar/host.toml"
        self.original = self.toml.read_text()
        make_certificates(self.toml.parent)

    def start(self, access=None, **options):
        postfix = Postfix(options, access)
        postfix.start(self.addCleanup)
        return postfix

    def send(self, port, *recipients, tls="none", ca="", notify="never", content=MAIL):
        """What is told of a mail that waits alone: event and reply of each recipient."""
        spool = self.host.root / "var/spool/velmar"
        shutil.rmtree(spool, ignore_errors=True)
        (spool / "new").mkdir(parents=True)
        head = ["Velmar-Spool: 1", "Id: m", "Sender: s@example.org", *("Recipient: " + name for name in recipients),
                "Notify: " + notify, "Queued: %d" % time.time()]
        (spool / "new/m").write_bytes("\n".join(head).encode() + b"\n\n" + content)
        ca = 'ca_file = "/etc/velmar/%s.pem"\n' % ca if ca else ""
        self.toml.write_text(self.original + '\n[queue]\nkind = "smtp"\nurl = "smtp://127.0.0.1:%d"\ntls = "%s"\n%s'
                             % (port, tls, ca))
        done = self.host.command("queue", "flush", "--verbose", "--root", self.host.root, want=None)
        return {name: (event.name, event.fields["reply"])
                for event in parse_events(done.stderr) if event.name in (ACCEPTED, DELAYED, REFUSED)
                for name in event.fields["recipients"].split(",")}

    def test_verdicts_notify_and_limits(self):
        postfix = self.start({"no@example.org": "REJECT gone", "later@example.org": "DEFER busy"},
                             smtpd_recipient_limit="2", message_size_limit="50000",
                             virtual_alias_maps="inline:{ bounce@example.org=gone@other.test }")
        good = ["%s@example.org" % name for name in "abcde"]
        got = self.send(postfix.port, good[0], "no@example.org", *good[1:], "later@example.org", "\u00fc@example.org")
        accepted = dict.fromkeys([*good, "\u00fc@example.org"], ACCEPTED)
        self.assertEqual({name: event for name, (event, _) in got.items()},
                         {**accepted, "no@example.org": REFUSED, "later@example.org": DELAYED}, got)
        self.assertRegex(got["no@example.org"][1], "^554 5.7.1 .*gone$")
        self.assertRegex(got["later@example.org"][1], "^450 4.7.1 .*busy$")
        mails = postfix.delivered()
        self.assertEqual({name: len(mails[name]) for name in mails}, dict.fromkeys(accepted, 1))
        self.assertTrue(mails[good[4]][0].endswith(b"\n\n.dot\n..\n\xc3\xbc\nlast\n"), mails[good[4]])

        self.assertRegex(self.send(postfix.port, good[0], content=b"x" * 50001)[good[0]][1], "50003 bytes.* 50000$")
        # What fails after it was accepted comes back, unless nobody is to be notified.
        for notify, bounces in (("never", 0), ("default", 1)):
            got = self.send(postfix.port, "bounce@example.org", notify=notify)
            self.assertEqual(got["bounce@example.org"][0], ACCEPTED)
            self.assertEqual(len(postfix.delivered()["s@example.org"]), bounces, postfix.log())

    def test_certificates(self):
        postfix = self.start(smtpd_tls_security_level="may", smtpd_tls_loglevel="1",
                             smtpd_tls_chain_files=self.toml.parent / "server.pem")
        for tls, authority, want in (("required", "ca", ACCEPTED), ("offered", "ca", ACCEPTED),
                                     ("required", "other", DELAYED), ("offered", "other", DELAYED),
                                     ("required", "", DELAYED)):
            with self.subTest(tls=tls, authority=authority):
                event, reply = self.send(postfix.port, "a@example.org", tls=tls, ca=authority)["a@example.org"]
                self.assertEqual(event, want, reply)
                self.assertIn("certificate" if want == DELAYED else "250 2.0.0", reply)
        self.assertEqual(len(postfix.delivered()["a@example.org"]), 2)
        self.assertIn("TLS connection established", postfix.log())
        plain = self.start()
        for tls, want, words in ("required", DELAYED, "STARTTLS"), ("offered", ACCEPTED, "250 2.0.0"):
            event, reply = self.send(plain.port, "a@example.org", tls=tls, ca="ca")["a@example.org"]
            self.assertEqual((event, words in reply), (want, True), reply)

    def test_a_tls_server_that_goes_in_the_middle_kills_nobody(self):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.toml.parent / "server.pem")
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
            port = listener.getsockname()[1]
            got = self.send(port, "a@example.org", tls="implicit", ca="ca", content=b"x" * (20 << 20))
            self.assertEqual(got, {"a@example.org": (DELAYED, "the server closed the connection")})
            server.join()
