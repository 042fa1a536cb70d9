#!/usr/bin/env python3
"""Fails when a public class or function of the headers has no comment.

Runs doxygen on the check configuration (no output, warnings only) and reads
its warnings:
- any warning about the comments themselves (bad markup, unknown commands)
  fails;
- a class, struct or function that is not documented fails unless it is
  listed in the baseline file (names that had no comment when this check
  came in; document them and take them off the list);
- undocumented enum values, fields, typedefs and macros are counted only.

usage: check_documented.py DOXYGEN DOXYFILE SOURCE_DIR BASELINE [--write-baseline]
"""
import re
import subprocess
import sys

WARNING = re.compile(r"^(?P<file>[^:]+):(?P<line>\d+): (?:warning|error): (?P<text>.*)$")
COMPOUND = re.compile(r"^Compound (?P<name>\S+) is not documented\.$")
MEMBER = re.compile(r"^Member (?P<sig>.+) \((?P<kind>\w+)\) of (?P<scope_kind>\w+) (?P<scope>\S+) is not documented\.$")


def main():
    doxygen, doxyfile, source, baseline_path = sys.argv[1:5]
    write = "--write-baseline" in sys.argv[5:]
    proc = subprocess.run([doxygen, doxyfile], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if proc.returncode != 0:
        print(proc.stdout)
        print("check_documented: doxygen failed (exit %d)" % proc.returncode)
        return 1
    missing = set()
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
            missing.add("%s: class %s" % (path, compound.group("name")))
        elif member and member.group("kind") == "function":
            scope = member.group("scope") if member.group("scope_kind") != "file" else ""
            missing.add("%s: function %s%s" % (path, scope + "::" if scope else "", member.group("sig")))
        elif member or "is not documented" in text:
            others += 1
        else:
            problems.append("%s:%s: %s" % (path, match.group("line"), text))

    if write:
        with open(baseline_path, "w") as f:
            f.write("# Public classes and functions without a comment when the check came in.\n"
                    "# docs/api/check_documented.py fails on any other; document these and\n"
                    "# delete their lines.\n")
            f.write("".join(line + "\n" for line in sorted(missing)))
        print("check_documented: wrote %d names to %s" % (len(missing), baseline_path))
        return 0

    with open(baseline_path) as f:
        baseline = {line.rstrip("\n") for line in f if line.strip() and not line.startswith("#")}
    new = sorted(missing - baseline)
    stale = sorted(baseline - missing)
    for problem in problems:
        print("comment markup: " + problem)
    for name in new:
        print("no comment: " + name)
    if stale:
        print("documented now (delete from %s): %d names, e.g. %s" % (baseline_path, len(stale), stale[0]))
    print("check_documented: %d undocumented classes and functions (%d listed in the baseline), %d new, "
          "%d markup problems; %d other members without a comment"
          % (len(missing), len(missing & baseline), len(new), len(problems), others))
    return 1 if new or problems else 0


if __name__ == "__main__":
    sys.exit(main())
