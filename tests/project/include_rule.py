#!/usr/bin/env python3
"""Checks that includes run one way through the tree: what each folder may include, and nothing else.

usage: include_rule.py SOURCE_DIR
"""
import pathlib
import re
import sys

SYSTEM = re.compile(r"[a-z0-9_]+|(sys|arpa|netinet|net)/\w+\.h|"
                    r"(dirent|dlfcn|fcntl|netdb|poll|pthread|signal|stdint|strings|syslog|unistd)\.h")
BOOST_POINTERS = r"boost/(make_shared|shared_ptr|smart_ptr/\w+)\.hpp"

# folder -> (quoted includes, libraries in angle brackets besides the system's); the first folder that fits counts.
# None = whatever the group needs. {G} is the folder's own name.
RULES = [
    ("include", r"platform/.*", BOOST_POINTERS),
    ("spamreport/quarantine", r"velmar/.*|platform/.*", r""),
    ("spamreport/images", r"platform/.*|spamreport/images/.*", r"ctemplate/.*|boost/.*"),
    ("spamreport", r"velmar/.*|platform/.*|spamreport/.*", r"boost/.*"),
    ("platform", r"platform/.*", r"boost/.*"),
    ("host/{G}", r"platform/.*|host/common/.*|host/{G}/.*|host/host\.h", None),
    ("host", r"platform/.*|host/.*", r""),
    ("tools", r"velmar/.*|platform/.*|host/host\.h|tools/.*", None),
    ("bench", r"velmar/.*|platform/.*|host/host\.h|host/mail_builder/hand_over/smtp_transport\.h|bench/.*", None),
]
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.MULTILINE)


def rule_of(path):
    parts = path.parts
    for folder, quoted, angled in RULES:
        wanted = folder.split("/")
        group = parts[1] if len(parts) > 2 else ""
        if "{G}" in folder and not group:
            continue
        if [group if part == "{G}" else part for part in wanted] == list(parts[: len(wanted)]):
            return quoted.replace("{G}", re.escape(group)), angled
    return None


def refused(path, mark, name):
    quoted, angled = rule_of(pathlib.PurePath(path))
    if mark == '"':
        return not re.fullmatch(quoted, name)
    return angled is not None and not SYSTEM.fullmatch(name) and not re.fullmatch(angled, name)


def self_check():
    """A rule that refuses nothing would pass for ever."""
    for path, mark, name, want in [
        ("spamreport/a.cc", '"', "host/host.h", True),
        ("spamreport/a.cc", "<", "unicode/unistr.h", True),
        ("spamreport/images/a.cc", "<", "ctemplate/template.h", False),
        ("platform/a.h", "<", "sqlite3.h", True),
        ("host/mailbox/a.cc", '"', "host/users_lists/lists.h", True),
        ("host/mailbox/a.cc", "<", "soci/soci.h", False),
        ("tools/spamreport/a.cc", '"', "host/common/root.h", True),
    ]:
        assert refused(path, mark, name) == want, (path, name)


def main():
    self_check()
    root = pathlib.Path(sys.argv[1])
    faults, files = [], 0
    for top in sorted({folder.split("/")[0] for folder, _, _ in RULES}):
        for source in sorted((root / top).rglob("*")):
            if source.suffix not in (".h", ".cc", ".c"):
                continue
            files += 1
            path = source.relative_to(root)
            text = source.read_text()
            for found in INCLUDE.finditer(text):
                line = text.count("\n", 0, found.start(2)) + 1
                if refused(path, *found.groups()):
                    faults.append(f"{path}:{line}: may not include {found.group(2)}")
                elif found.group(1) == '"' and not any((root / base / found.group(2)).exists() for base in ("", "include")):
                    faults.append(f"{path}:{line}: no such file from the root: {found.group(2)}")
    print("\n".join(faults) or f"{files} files, every include as it may be")
    return 1 if faults or files < 50 else 0


sys.exit(main())
