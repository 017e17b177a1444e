"""The command as its users see it: help and manual page, exit codes, errors, and what each subcommand does to a host.

usage: command_line_test.py, with SPAMREPORT, VELMAR_SHARE and MAN_PAGE in the environment
"""

import base64
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

COMMAND = os.environ["SPAMREPORT"]
MAN_PAGE = Path(os.environ["MAN_PAGE"])
COMMANDS = ["run", "preview", "check", "lists show", "lists add", "lists remove", "prefs show", "prefs set", "queue list",
            "queue show", "demo", "events"]


def command(*arguments, **environment):
    done = subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, timeout=120,
                          env={**os.environ, "TZ": "UTC0", **environment})
    done.stdout, done.stderr = done.stdout.decode(), done.stderr.decode()
    return done


def plain_macro(line):
    """The words of a line of the manual page, without macros and with options as they are typed."""
    return line.lstrip(".").replace("Fl -", "--").split()


class HelpTest(unittest.TestCase):
    def setUp(self):
        self.page = MAN_PAGE.read_text()

    def test_each_command_explains_itself_and_is_in_the_manual(self):
        synopsis = " ".join(self.page.split(".Sh SYNOPSIS")[1].split(".Sh DESCRIPTION")[0].split())
        for name in COMMANDS:
            with self.subTest(name):
                done = command(*name.split(), "--help")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertIn("Usage: spamreport %s" % name, done.stdout)
                self.assertLessEqual(max(map(len, done.stdout.splitlines())), 80)
                self.assertIn(".Cm " + name, synopsis)
                self.assertIn(".Ss " + name.split()[0], self.page)

    def test_help_and_manual_know_the_same_options(self):
        helps = [command(*name.split(), "--help").stdout for name in COMMANDS] + [command("--help").stdout]
        in_help = {word for text in helps for word in re.findall(r"(?<![\w-])--[a-z]+", text)}
        in_manual = {word for line in self.page.splitlines() for word in plain_macro(line) if re.fullmatch("--[a-z]+", word)}
        self.assertEqual(in_help, in_manual)
        self.assertIn("--until", in_help)

    def test_arguments_stand_in_the_synopsis(self):
        synopsis = [" ".join(part.split()) for part in
                    self.page.split(".Sh SYNOPSIS")[1].split(".Sh DESCRIPTION")[0].split(".Nm")]
        for name, arguments in [("lists add", "OWNER LIST ENTRY"), ("lists remove", "OWNER LIST ENTRY"),
                                ("lists show", "OWNER"), ("queue show", "ID"), ("demo", "DIR"), ("preview", "ADDRESS")]:
            with self.subTest(name):
                self.assertIn(" %s\n" % arguments, command(*name.split(), "--help").stdout.replace(" [OPTIONS]", ""))
                self.assertTrue([part for part in synopsis if part.startswith(".Cm %s .Ar %s" % (name, arguments))])

    def test_version(self):
        self.assertRegex(command("--version").stdout, r"^spamreport \d+\.\d+\.\d+\n$")

    def test_events_agree_with_their_document(self):
        printed = re.findall(r"^(0x[0-9a-f]+)  (\S+)", command("events").stdout, re.MULTILINE)
        document = (MAN_PAGE.parent.parent / "log-events.md").read_text()
        self.assertEqual(printed, re.findall(r"^### (0x[0-9a-f]+) (\S+)", document, re.MULTILINE))

    def test_wrong_use(self):
        cases = [
            ([], "no command was given"),
            (["lists"], "no command was given"),
            (["lost"], "lost"),
            (["run", "--root", "/nowhere/at/all"], "/nowhere/at/all"),
            (["run", "--period", "-1"], "-1"),
            (["run", "--period", "2147483648"], "2147483648"),
            (["run", "--period", "1h"], "1h"),
            (["run", "--jobs", "0"], "--jobs"),
            (["run"], "--domain"),
            (["run", "--all", "--domain", "example.org"], "--all and --domain"),
            (["run", "--recipients", "a@example.org"], "--domain"),
            (["run", "--all", "--until", "2026-02-30T08:00"], "2026-02-30T08:00"),
            (["preview"], "ADDRESS"),
            (["preview", "nobody"], "nobody"),
            (["preview", "a/b@example.org"], "a/b@example.org"),
            (["queue", "show"], "ID"),
            (["prefs", "set", "a@example.org", "colour", "red"], "colour"),
            (["prefs", "set", "a@example.org", "language", "x" * 36], "x" * 36),
            (["lists", "add", "a@example.org", "primaryaddr", "b@example.org,c@example.org"], "b@example.org,c@example.org"),
            (["lists", "add", "nobody", "primaryaddr", "b@example.org"], "nobody"),
            (["demo", "/dev/null"], "/dev/null"),
        ]
        for arguments, culprit in cases:
            with self.subTest(arguments=arguments):
                done = command(*arguments)
                self.assertEqual((done.returncode, done.stdout), (2, ""), done.stderr)
                self.assertRegex(done.stderr, r"^spamreport: [^\n]*\n$")
                self.assertIn(culprit, done.stderr)


class HostTest(unittest.TestCase):
    def setUp(self):
        self.directory = Path(tempfile.mkdtemp(prefix="velmar-tool-"))
        self.addCleanup(shutil.rmtree, self.directory)
        self.root = self.directory / "host"
        self.good("demo", self.root)

    def on_host(self, *arguments):
        return command(*arguments, "--root", self.root)

    def good(self, *arguments):
        done = command(*arguments) if arguments[0] == "demo" else self.on_host(*arguments)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def configure(self, old, new):
        path = self.root / "etc/velmar/host.toml"
        text = path.read_text()
        self.assertIn(old, text)
        path.write_text(text.replace(old, new, 1))

    def test_check_finds_each_fault_and_says_how_to_mend_it(self):
        self.assertNotIn("BAD", self.good("check"))
        spool = self.root / "var/spool"

        def break_template():
            template = self.root / "etc/velmar/templates/default"
            template.mkdir(parents=True)
            (template / "header.tpl").write_text("From: {{#OPEN}}\n")

        def break_image():
            (self.root / "migadmin/www/admin/images/icon_delete.png").write_bytes(bytes(1024 * 1024 + 1))

        def break_secret():
            for path in (self.root / "var/lib/velmar").glob("*secret*"):
                path.write_text("short")

        def break_spool():
            shutil.rmtree(spool, ignore_errors=True)
            spool.write_text("no directory")

        def break_store():
            (self.root / "var/lib/velmar/state.db").write_text("no database at all" * 100)

        faults = [
            ("template of the system", break_template),
            ("image icon_delete.png", break_image),
            ("secret", break_secret),
            ("spool", break_spool),
            ("state store", break_store),
        ]
        for number, (subject, fault) in enumerate(faults, start=1):
            with self.subTest(subject):
                fault()
                done = self.on_host("check")
                self.assertEqual(done.returncode, 1, done.stdout)
                self.assertRegex(done.stdout, r"(?m)^BAD   %s  +\S.*\n +to mend it: \S" % re.escape(subject))
                self.assertEqual(done.stdout.count("\nBAD"), number, done.stdout)
        self.configure("port = 443", "port = 70000")
        done = self.on_host("check")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stdout, r"^BAD  configuration  .*70000")

    def test_run_counts_outcomes_and_fails_when_one_report_does(self):
        (self.root / "home/example.org/boris~example.org/.deleted").touch()
        arguments = ["run", "--domain", "EXAMPLE.org", "--period", 86400, "--recipients",
                     "boris@example.org, felix@example.org,chiyo@example.org"]
        out = self.good(*arguments)
        self.assertRegex(out, r"(?m)^deleted user  boris@example.org$")
        self.assertRegex(out, r"(?m)^disabled +felix@example.org$")
        self.assertRegex(out, r"(?m)^sent +chiyo@example.org +\d+ messages to chiyo@example.org$")
        self.assertTrue(out.endswith("\n3 mailboxes: 1 sent, 1 disabled, 1 of deleted users\n"), out)

        shutil.rmtree(self.root / "var/spool/velmar")
        (self.root / "var/spool/velmar").write_text("no directory")
        done = self.on_host(*arguments)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stdout, r"(?m)^FAILED +chiyo@example.org  \S")
        self.assertIn("1 failed", done.stdout)

    def test_run_refuses_recipients_before_any_report_is_made(self):
        for recipients in ["", ",", "chiyo@example.org,nobody", "chiyo@example.org,dana@example.net",
                           "chiyo@example.org,../x@example.org"]:
            with self.subTest(recipients):
                done = self.on_host("run", "--domain", "example.org", "--period", 86400, "--recipients", recipients)
                self.assertEqual((done.returncode, done.stdout), (2, ""), done.stderr)
                self.assertIn(recipients.rpartition(",")[2], done.stderr)
        self.assertEqual(self.good("queue", "list"), "The queue is empty.\n")

    def test_run_of_all_mailboxes_survives_odd_directories(self):
        (self.root / "home/example.org/a,b~example.org").mkdir()
        done = self.on_host("run", "--all", "--jobs", 3, "--period", 86400)
        sent = re.findall(r"(?m)^sent +(\S+)", done.stdout)
        self.assertIn("anna@example.org", sent)
        self.assertIn("lone@example.net", sent)
        queued = self.good("queue", "list").splitlines()
        self.assertEqual(len(queued) - 1, len(sent))

    def test_stderr_of_run_follows_the_configuration(self):
        arguments = ["run", "--domain", "example.org", "--recipients", "felix@example.org"]
        self.assertIn("report-disabled", self.on_host(*arguments).stderr)
        self.configure("stderr = true", "stderr = false")
        self.assertEqual(self.on_host(*arguments).stderr, "")
        self.assertIn("report-disabled", self.on_host(*arguments, "--verbose").stderr)

    def test_preview_shows_the_images_and_changes_nothing(self):
        lists = self.good("lists", "show", "kim+lists@example.net")
        out = self.directory / "made/for it"
        self.good("preview", "kim+lists@example.net", "--period", 86400, "--output", out)
        page = (out / "report.html").read_text()
        images = re.findall(r'src="data:image/png;base64,([^"]*)"', page)
        self.assertGreaterEqual(len(images), 4)
        want = {path.read_bytes() for path in (Path(os.environ["VELMAR_SHARE"]) / "images").glob("*.png")}
        self.assertEqual({base64.b64decode(image, validate=True) for image in images}, want)
        self.assertNotIn("cid:", page)
        self.assertIn(b"kim+lists@example.net", (out / "report.eml").read_bytes())
        self.assertGreater((out / "report.txt").stat().st_size, 0)
        self.assertEqual(self.good("lists", "show", "kim+lists@example.net"), lists)
        self.assertEqual(self.good("queue", "list"), "The queue is empty.\n")

    def test_preview_says_why_there_is_none(self):
        for address, why in [("emil@example.org", "nothing held"), ("felix@example.org", "disabled"),
                             ("ivy@example.com", "no recipients"), ("who@nowhere.example", "who@nowhere.example")]:
            with self.subTest(address):
                done = self.on_host("preview", address, "--period", 86400, "--output", self.directory / "none")
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn(why, done.stderr)
                self.assertFalse((self.directory / "none").exists())

    def test_lists(self):
        owner = "new@example.org"
        self.assertEqual(self.good("lists", "show", owner), "No lists of new@example.org.\n")
        for entry in ["b@example.org", "a@example.org", "b@example.org"]:
            self.good("lists", "add", owner, "primaryaddr", entry)
        self.assertEqual(self.good("lists", "show", owner), "primaryaddr  b@example.org\nprimaryaddr  a@example.org\n")
        self.good("lists", "remove", owner, "primaryaddr", "b@example.org")
        done = self.on_host("lists", "remove", owner, "primaryaddr", "b@example.org")
        self.assertEqual(done.returncode, 1)
        self.assertIn("b@example.org", done.stderr)
        self.assertEqual(self.good("lists", "show", owner), "primaryaddr  a@example.org\n")

    def test_preferences(self):
        self.assertEqual(self.good("prefs", "show", "anna@example.org"), "language  none (reports use English)\n")
        self.good("prefs", "set", "anna@example.org", "language", "pt-BR")
        self.assertEqual(self.good("prefs", "show", "anna@example.org"), "language  pt-BR\n")
        self.good("prefs", "set", "anna@example.org", "language", "none")
        self.assertIn("none", self.good("prefs", "show", "anna@example.org"))

    def test_queue_show_writes_the_mail_as_it_is(self):
        self.good("run", "--domain", "example.net", "--recipients", "lone@example.net", "--period", 86400)
        row = self.good("queue", "list").splitlines()[1].split()
        done = subprocess.run([COMMAND, "queue", "show", row[0], "--root", self.root], capture_output=True, timeout=120)
        self.assertEqual(done.returncode, 0)
        self.assertIn(str(len(done.stdout)), row)
        self.assertNotRegex(done.stdout, rb"[^\r]\n")
        for identifier in ["20000101000000-1-1-0", "../" + row[0]]:
            done = self.on_host("queue", "show", identifier)
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertIn(identifier, done.stderr)

    def test_a_full_disk_behind_standard_output_is_a_failure(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([COMMAND, "events"], stdout=full, stderr=subprocess.PIPE, timeout=120)
        self.assertEqual((done.returncode, done.stderr), (1, b"spamreport: standard output cannot be written\n"))

    def test_demo_refreshes_its_own_directory_and_no_other(self):
        self.good("run", "--domain", "example.net", "--recipients", "lone@example.net", "--period", 86400)
        own = self.root / "etc/velmar/templates/mine/header.tpl"
        own.parent.mkdir(parents=True)
        own.write_text("kept")
        self.configure("port = 443", "port = 444")
        self.good("demo", self.root)
        self.assertEqual(self.good("queue", "list"), "The queue is empty.\n")
        self.assertEqual(own.read_text(), "kept")
        self.assertIn("port = 443", (self.root / "etc/velmar/host.toml").read_text())

        foreign = self.directory / "foreign"
        (foreign / "home").mkdir(parents=True)
        done = command("demo", foreign)
        self.assertEqual(done.returncode, 2)
        self.assertIn(str(foreign), done.stderr)
        self.assertEqual(sorted(path.name for path in foreign.iterdir()), ["home"])

    def test_hostile_texts_reach_the_terminal_escaped(self):
        self.good("lists", "add", "a@example.org", "primaryaddr", "x\u202ey\u0085z@example.org")
        self.assertEqual(self.good("lists", "show", "a@example.org"),
                         "primaryaddr  x\\xe2\\x80\\xaey\\xc2\\x85z@example.org\n")
        done = self.on_host("preview", "a\x1b[2J\nb")
        self.assertEqual(done.returncode, 2)
        self.assertIn("a\\x1b[2J\\nb", done.stderr)


if __name__ == "__main__":
    unittest.main()
