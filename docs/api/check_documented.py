#!/usr/bin/env python3
"""Fails when a public class or function of the headers has no comment.

Runs doxygen on the check configuration (no output, warnings only) and reads
its warnings:
- any warning about the comments themselves (bad markup, unknown commands)
  fails;
- a class, struct or function that is not documented fails;
- undocumented enum values, fields, typedefs and macros are counted only.

One comment above a group of declarations between `// @{` and `// @}`
documents each of them.

usage: check_documented.py DOXYGEN DOXYFILE SOURCE_DIR
"""
import re
import subprocess
import sys

WARNING = re.compile(r"^(?P<file>[^:]+):(?P<line>\d+): (?:warning|error): (?P<text>.*)$")
COMPOUND = re.compile(r"^Compound (?P<name>\S+) is not documented\.$")
MEMBER = re.compile(r"^Member (?P<sig>.+) \((?P<kind>\w+)\) of (?P<scope_kind>\w+) (?P<scope>\S+) is not documented\.$")


def main():
    doxygen, doxyfile, source = sys.argv[1:4]
    proc = subprocess.run([doxygen, doxyfile], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if proc.returncode != 0:
        print(proc.stdout)
        print("check_documented: doxygen failed (exit %d)" % proc.returncode)
        return 1
    missing = {}  # name -> where doxygen saw it
    problems = []
    others = 0
    for line in proc.stdout.splitlines():
        match = WARNING.match(line)
        if not match:
            continue
        path = match.group("file")
        if path.startswith(source.rstrip("/") + "/"):
            path = path[len(source.rstrip("/")) + 1:]
        text = match.group("text")
        compound = COMPOUND.match(text)
        member = MEMBER.match(text)
        if compound:
            missing.setdefault("%s: class %s" % (path, compound.group("name")), match.group("line"))
        elif member and member.group("kind") == "function":
            scope = member.group("scope") if member.group("scope_kind") != "file" else ""
            name = "%s: function %s%s" % (path, scope + "::" if scope else "", member.group("sig"))
            missing.setdefault(name, match.group("line"))
        elif member or "is not documented" in text:
            others += 1
        else:
            problems.append("%s:%s: %s" % (path, match.group("line"), text))

    for problem in problems:
        print("comment markup: " + problem)
    for name in sorted(missing):
        path, what = name.split(": ", 1)
        print("no comment: %s:%s: %s" % (path, missing[name], what))
    print("check_documented: %d undocumented classes and functions, %d markup problems; "
          "%d other members without a comment" % (len(missing), len(problems), others))
    return 1 if missing or problems else 0


if __name__ == "__main__":
    sys.exit(main())
