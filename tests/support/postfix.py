"""A Postfix of its own on a free loopback port: root starts it, nothing of the system's configuration is used.

    postfix = Postfix({"smtpd_recipient_limit": "2"}, access={"no@example.org": "REJECT gone"})
    postfix.start(self.addCleanup)
    ... 127.0.0.1:postfix.port ...
    postfix.delivered()["a@example.org"]    # whole mails as bytes

It takes mail for Postfix.DOMAINS, every local part, and knows no way to other domains.
"""

import os
import pwd
import re
import shutil
import socket
import subprocess
import tempfile
import time
from collections import defaultdict
from pathlib import Path

from loopback import free_port


# Runs the master in a session of its own and ends all of it when standard input ends: also when the test is killed.
GUARD = '"$0" -c "$1" -d & read -r _; trap "" TERM; kill 0; wait'


def can_run():
    """Whether there is a Postfix here and this user may start it."""
    return os.geteuid() == 0 and shutil.which("postfix", path="/usr/sbin:/usr/bin") is not None


class Postfix:
    DOMAINS = ("example.org", "example.net")

    def __init__(self, options=None, access=None):
        """options: lines of main.cf by name; access: what to do with an envelope recipient, e.g. "REJECT gone"."""
        self.directory = Path(tempfile.mkdtemp(prefix="velmar-postfix-"))
        self.directory.chmod(0o755)
        self.port = free_port()
        self.guard = None
        nobody = pwd.getpwnam("nobody").pw_uid
        for name, owner in (("conf", 0), ("queue", 0), ("data", pwd.getpwnam("postfix").pw_uid), ("mail", nobody)):
            (self.directory / name).mkdir()
            os.chown(self.directory / name, owner, -1)
        self._write("access", "".join("%s %s\n" % entry for entry in (access or {}).items()))
        self._write("master.cf", Path(__file__).with_name("master.cf").read_text().format(port=self.port))
        main = {
            "compatibility_level": "3.6", "queue_directory": self.directory / "queue",
            "data_directory": self.directory / "data", "maillog_file": self.directory / "log",
            "maillog_file_prefixes": self.directory, "myhostname": "mx.example.org", "mydestination": "",
            "mynetworks": "127.0.0.0/8", "inet_protocols": "ipv4", "alias_maps": "", "alias_database": "",
            "local_recipient_maps": "", "default_transport": "error:no way to other domains",
            "smtpd_recipient_restrictions":
                "check_recipient_access texthash:%s/conf/access, reject_unauth_destination" % self.directory,
            "virtual_mailbox_domains": " ".join(self.DOMAINS), "virtual_mailbox_base": self.directory / "mail",
            "virtual_mailbox_maps": "static:all/", "virtual_uid_maps": "static:%d" % nobody,
            "virtual_gid_maps": "static:%d" % nobody, "virtual_alias_maps": "", **(options or {})}
        self._write("main.cf", "".join("%s = %s\n" % entry for entry in main.items()))

    def start(self, add_cleanup):
        """Returns when it greets; add_cleanup is called so that it ends with the test, also a failed one."""
        add_cleanup(self.stop)
        conf = str(self.directory / "conf")
        subprocess.run(["postfix", "-c", conf, "check"], check=True, capture_output=True, timeout=60)
        daemons = subprocess.run(["postconf", "-c", conf, "-h", "daemon_directory"], check=True, capture_output=True)
        master = daemons.stdout.decode().strip() + "/master"
        self.guard = subprocess.Popen(["sh", "-c", GUARD, master, conf], start_new_session=True, stdin=subprocess.PIPE)
        self._wait_for(self._greets, "no greeting")

    def stop(self):
        if self.guard:
            self.guard.stdin.close()
            self.guard.wait(timeout=30)
            self.guard = None
        shutil.rmtree(self.directory, ignore_errors=True)

    @property
    def url(self):
        return "smtp://127.0.0.1:%d" % self.port

    def log(self):
        path = self.directory / "log"
        return path.read_text(errors="replace") if path.exists() else ""

    def delivered(self):
        """The mails by recipient, when nothing is queued any more."""
        self._wait_for(self._is_idle, "mail stays in the queue")
        mails = defaultdict(list)
        for path in (self.directory / "mail/all/new").glob("*"):
            raw = path.read_bytes()
            mails[re.search(rb"^Delivered-To: (.*)$", raw, re.MULTILINE)[1].decode()].append(raw)
        return mails

    def _write(self, name, text):
        (self.directory / "conf" / name).write_text(text)

    def _greets(self):
        try:
            with socket.create_connection(("127.0.0.1", self.port), timeout=5) as client:
                return client.recv(3) == b"220"
        except OSError:
            return False

    def _is_idle(self):
        queues = (self.directory / "queue" / name for name in ("maildrop", "incoming", "active", "deferred"))
        return not any(path.is_file() for queue in queues for path in queue.rglob("*"))

    def _wait_for(self, condition, failure):
        until = time.monotonic() + 20
        while not condition():
            if time.monotonic() > until:
                raise AssertionError("Postfix: %s\n%s" % (failure, self.log()))
            time.sleep(0.05)
