"""What the zynet tool's test scripts share: running the tool, checking its
output, and the command line that picks one case (exit 0 passed, 77
skipped, anything else failed)."""
import argparse
import json
import re
import subprocess
import tempfile

SKIP = 77


class Failure(Exception):
    pass


class Skip(Exception):
    pass


class Tool:
    def __init__(self, path, emulator):
        self.command = ([emulator] if emulator else []) + [path]
        self.windows = path.lower().endswith(".exe")

    def run_raw(self, args, timeout=60, env=None):
        # Output goes to files, not pipes: helper processes of an emulator
        # may inherit a pipe and hold it open after the tool has exited.
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            proc = subprocess.run(self.command + list(args), stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                                  timeout=timeout, env=env)
            out.seek(0)
            err.seek(0)
            return proc.returncode, out.read(), err.read()

    def run(self, *args, timeout=60, env=None):
        rc, out, err = self.run_raw(args, timeout, env)
        return (rc, out.decode("utf-8", "replace").replace("\r\n", "\n"),
                err.decode("utf-8", "replace").replace("\r\n", "\n"))

    def json(self, *args, expect_rc=0, env=None):
        rc, out, err = self.run("--json", *args, env=env)
        if rc != expect_rc:
            raise Failure("zynet --json %s: exit %d, expected %d\n%s%s" % (" ".join(args), rc, expect_rc, out, err))
        try:
            return json.loads(out)
        except ValueError as error:
            raise Failure("zynet --json %s printed invalid JSON (%s):\n%s" % (" ".join(args), error, out))


def expect(condition, message):
    if not condition:
        raise Failure(message)


def expect_run(tool, args, rc, stdout_pattern=None, stderr_pattern=None, env=None):
    code, out, err = tool.run(*args, env=env)
    shown = "zynet %s -> exit %d\nstdout:\n%s\nstderr:\n%s" % (" ".join(args), code, out, err)
    expect(code == rc, "expected exit %d: %s" % (rc, shown))
    if stdout_pattern:
        expect(re.search(stdout_pattern, out, re.M), "stdout lacks /%s/: %s" % (stdout_pattern, shown))
    if stderr_pattern:
        expect(re.search(stderr_pattern, err, re.M), "stderr lacks /%s/: %s" % (stderr_pattern, shown))
    return out, err


def main(cases):
    """Runs the case named on the command line: --zynet PATH [--emulator PROGRAM] CASE."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--zynet", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("case", choices=sorted(cases))
    args = parser.parse_args()
    try:
        cases[args.case](Tool(args.zynet, args.emulator))
    except Skip as skip:
        print("SKIPPED: %s" % skip)
        return SKIP
    except Failure as failure:
        print("FAILED: %s" % failure)
        return 1
    print("passed")
    return 0

