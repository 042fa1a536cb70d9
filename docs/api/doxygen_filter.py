#!/usr/bin/env python3
"""Doxygen input filter for the public headers: their comments are plain
`//` lines, which doxygen ignores. This turns them into doxygen comments
without changing the headers:

- the comment block that opens a file becomes the file's description;
- a `//` line on its own documents the declaration below it (`///`);
- a `//` comment after code on the same line documents that member (`///<`),
  except after a closing brace;
- '<' and '>' in comments are text, not HTML tags;
- section rulers (`// ---- ... ----`) and comments inside function bodies
  stay plain.

Line numbers stay as they are, so doxygen's warnings point at the headers.

usage: doxygen_filter.py FILE   (the filtered text goes to stdout)
"""
import re
import sys

OWN_LINE = re.compile(r"^(\s*)//(?!/)\s?(.*)$")
AFTER_CODE = re.compile(r"^(\s*[^\s/\"#][^\"]*?)(\s+)//(?![/<])\s?(.*)$")
RULER = re.compile(r"^\s*//\s*-{3,}")


def text(comment):
    return comment.replace("<", "\\<").replace(">", "\\>")


def main():
    with open(sys.argv[1], encoding="utf-8", errors="replace") as f:
        lines = f.read().split("\n")
    out = []
    opening = True
    previous = ""
    depth = 0  # brace depth inside function bodies (lines ending in "{" after a ")")
    for line in lines:
        own = OWN_LINE.match(line)
        if opening:
            if own:
                # "@file" closes the first line rather than taking one of its
                # own, so that line numbers stay as they are.
                out.append("/// " + text(own.group(2)) + ("" if out else " @file"))
                continue
            opening = False
        if own and not RULER.match(line) and depth == 0:
            out.append("%s/// %s" % (own.group(1), text(own.group(2))))
            continue
        after = AFTER_CODE.match(line)
        # A comment after a closing brace ("}  // namespace X") names what
        # closes; as a member comment doxygen would give it to the next class.
        if after and depth == 0 and not RULER.match(line) and not after.group(1).lstrip().startswith("}"):
            out.append("%s%s///< %s" % (after.group(1), after.group(2), text(after.group(3))))
        else:
            out.append(line)
        # Function bodies written in the header: their comments stay plain.
        stripped = line.split("//")[0].strip()
        if depth == 0 and (re.search(r"\)\s*(const)?\s*(override)?\s*\{$", stripped)
                           or (stripped == "{" and re.search(r"\)\s*(const)?\s*(override)?$", previous))):
            depth = 1
        elif depth > 0:
            depth += stripped.count("{") - stripped.count("}")
        if stripped:
            previous = stripped
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
