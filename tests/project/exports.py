#!/usr/bin/env python3
"""Holds the built library to its public header: what the header declares is exported, and nothing else.

usage: exports.py LIBRARY HEADER
"""
import collections
import re
import subprocess
import sys

MARK = "VLM_SPAMREPORT_API"
MEMBER = re.compile(r"(~?\w+|operator=)\s*\([^()]*\)\s*(?:const)?\s*(?:noexcept)?\s*(?:override)?\s*(=\s*\w+)?\s*;")


def declared(header):
    """Plain functions, and the members of each exported class: {(class, member): overloads} by access."""
    text = re.sub(r"//[^\n]*", "", header)
    functions = set(re.findall(MARK + r"\s+\w+\s+(\w+)\s*\(", text))
    members = {"public": collections.Counter(), "protected": collections.Counter(), "private": collections.Counter()}
    classes = set()
    for name, body in re.findall(r"class " + MARK + r" (\w+)[^{;]*\{(.*?)\n\};", text, re.DOTALL):
        classes.add(name)
        access = "private"
        for part in re.split(r"\b(public|protected|private):", body):
            if part in members:
                access = part
                continue
            for member, defined in MEMBER.findall(part):
                if not defined:
                    members[access][name, member] += 1
    return functions, classes, members


def exported(library):
    """Demangled names of the dynamic symbols; overloads apart, the variants of one constructor together."""
    output = subprocess.run(["nm", "-D", "--defined-only", "-C", library], capture_output=True, text=True, check=True)
    lines = [line.split(" ", 2) for line in output.stdout.splitlines()]
    return {name.split("@@")[0].replace("[abi:cxx11]", "") for _, kind, name in lines if kind != "A"}


def main():
    library, header = sys.argv[1:]
    functions, classes, members = declared(open(header, encoding="utf-8").read())
    faults, seen = [], collections.Counter()
    for symbol in sorted(exported(library)):
        data = re.fullmatch(r"(?:vtable|typeinfo|typeinfo name) for Velmar::(\w+)", symbol)
        member = re.match(r"Velmar::(\w+)::(~?\w+|operator=)\(", symbol)
        if symbol in functions:
            seen["", symbol] += 1
        elif data and data.group(1) in classes:
            continue
        elif member and member.group(1) in classes:
            seen[member.groups()] += 1
            implicit = member.group(2).strip("~") in (member.group(1), "operator=")
            if member.groups() not in members["public"] and not implicit:
                access = "private" if member.groups() in members["private"] else "undeclared"
                faults.append(f"exported, but {access}: {symbol}")
        else:
            faults.append(f"exported, but not of the header: {symbol}")
    for function in functions:
        members["public"]["", function] = 1
    for (name, member), overloads in members["public"].items():
        if seen[name, member] < overloads:
            faults.append(f"declared, but exported {seen[name, member]} of {overloads} times: {name}::{member}")
    assert len(classes) == 7 and sum(members["private"].values()) and functions, "the header was not understood"
    print("\n".join(faults) or f"{sum(seen.values())} symbols, as declared")
    return 1 if faults else 0


sys.exit(main())
