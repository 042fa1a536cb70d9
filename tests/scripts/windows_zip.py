#!/usr/bin/env python3
"""Checks the Windows zip as a user meets it: made by CPack, unpacked into a
fresh directory, complete, its DLLs importing only system DLLs, the examples
built against it with mingw (find_package and pkg-config) and run under Wine,
and its zynet.exe downloading from a loopback server with nothing else on the
path.

usage: windows_zip.py --build DIR --source DIR --cpack CPACK --cmake CMAKE
                      --toolchain FILE --emulator WINE
"""
import argparse
import glob
import http.server
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import zipfile

# DLLs that every Windows has; anything else must sit in the zip's bin/.
SYSTEM_DLLS = {"advapi32.dll", "bcrypt.dll", "crypt32.dll", "kernel32.dll", "msvcrt.dll", "ws2_32.dll",
               "iphlpapi.dll", "winhttp.dll", "wininet.dll", "user32.dll", "secur32.dll", "shell32.dll",
               "ole32.dll", "ntdll.dll", "qwave.dll"}
EXPECTED = ["bin/ZyNetwork.dll", "bin/RKCurl.dll", "bin/zynet.exe", "lib/libZyNetwork.dll.a",
            "lib/cmake/ZyNetwork/ZyNetworkConfig.cmake", "lib/pkgconfig/zynetwork.pc", "include/ZyNetwork/ZySocket.h",
            "include/ZyNetwork/ZyHTTP2.h", "include/curl/curl.h", "licenses/curl.txt", "licenses/libssh2.txt",
            "licenses/openssl.txt", "README-Windows.txt"]


class Failure(Exception):
    pass


def run(cmd, env=None, cwd=None, timeout=300):
    proc = subprocess.run(cmd, env=env, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=timeout)
    if proc.returncode != 0:
        raise Failure("%s -> exit %d\n%s" % (" ".join(cmd), proc.returncode, proc.stdout))
    return proc.stdout


def wine_env():
    env = dict(os.environ, WINEDEBUG="-all", WINEPATH="")
    env.pop("ZYNET_CURL_LIBRARY", None)
    return env


def unpack(args, work):
    run([args.cpack, "-G", "ZIP", "-B", os.path.join(work, "cpack")], cwd=args.build)
    zips = glob.glob(os.path.join(work, "cpack", "*.zip"))
    if len(zips) != 1:
        raise Failure("expected one zip, got %r" % zips)
    unpacked = os.path.join(work, "unpacked")
    with zipfile.ZipFile(zips[0]) as archive:
        archive.extractall(unpacked)
    tops = os.listdir(unpacked)
    root = os.path.join(unpacked, tops[0]) if len(tops) == 1 else unpacked
    missing = [name for name in EXPECTED if not os.path.isfile(os.path.join(root, name))]
    if missing:
        raise Failure("the zip lacks %s" % ", ".join(missing))
    return os.path.basename(zips[0]), root


def check_imports(root):
    shipped = {name.lower() for name in os.listdir(os.path.join(root, "bin"))}
    for binary in sorted(glob.glob(os.path.join(root, "bin", "*.dll")) + glob.glob(os.path.join(root, "bin", "*.exe"))):
        dump = run(["x86_64-w64-mingw32-objdump", "-p", binary])
        imports = {name.lower() for name in re.findall(r"DLL Name: (\S+)", dump)}
        foreign = sorted(name for name in imports
                         if name not in SYSTEM_DLLS and name not in shipped and not name.startswith("api-ms-win-"))
        if foreign:
            raise Failure("%s imports DLLs that are neither system DLLs nor in the zip: %s"
                          % (os.path.basename(binary), ", ".join(foreign)))
    curl = run(["x86_64-w64-mingw32-objdump", "-p", os.path.join(root, "bin", "RKCurl.dll")])
    names = sorted({n.lower() for n in re.findall(r"DLL Name: (\S+)", curl)})
    if not set(names) <= SYSTEM_DLLS:
        raise Failure("RKCurl.dll imports more than system DLLs: %s" % names)
    return names


def build_consumers(args, root, work):
    """Builds tests/consumer and the examples both ways; returns the two output directories."""
    # The public headers need Boost's (header-only); only that directory is
    # added, never /usr/include as a whole.
    boost = os.path.join(work, "boost-include")
    os.makedirs(boost)
    os.symlink("/usr/include/boost", os.path.join(boost, "boost"))
    consumer = os.path.join(args.source, "tests", "consumer")
    examples = os.path.join(args.source, "examples")

    by_cmake = os.path.join(work, "cmake-build")
    run([args.cmake, "-S", consumer, "-B", by_cmake, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
         "-DCMAKE_TOOLCHAIN_FILE=" + args.toolchain, "-DZyNetwork_DIR=" + os.path.join(root, "lib", "cmake", "ZyNetwork"),
         "-DCMAKE_CXX_FLAGS=-isystem " + boost, "-DZYNET_EXAMPLES_DIR=" + examples])
    run([args.cmake, "--build", by_cmake])

    by_pc = os.path.join(work, "pkg-config-build")
    os.makedirs(by_pc)
    env = dict(os.environ, PKG_CONFIG_PATH=os.path.join(root, "lib", "pkgconfig"), PKG_CONFIG_LIBDIR="")
    cflags = run(["pkg-config", "--cflags", "zynetwork"], env=env).split()
    libs = run(["pkg-config", "--libs", "zynetwork"], env=env).split()
    # The C++ runtime goes in statically (-static) while ZyNetwork stays the
    # DLL: the import library is taken in dynamic mode.
    libs = ["-static", "-Wl,-Bdynamic"] + libs + ["-Wl,-Bstatic"]
    sources = [os.path.join(consumer, "consumer.cpp")] + sorted(glob.glob(os.path.join(examples, "*.cpp")))
    for source in sources:
        name = os.path.splitext(os.path.basename(source))[0] + ".exe"
        run(["x86_64-w64-mingw32-g++-posix", "-std=c++17", "-isystem", boost] + cflags +
            [source, "-o", os.path.join(by_pc, name)] + libs)
    # Each program finds the DLLs in its own directory, as the README says.
    for out in (by_cmake, by_pc):
        for dll in ("ZyNetwork.dll", "RKCurl.dll"):
            shutil.copy(os.path.join(root, "bin", dll), out)
    return by_cmake, by_pc


def run_examples(args, by_cmake, by_pc):
    env = wine_env()
    for out in (by_cmake, by_pc):
        text = run([args.emulator, os.path.join(out, "consumer.exe")], env=env, cwd=out, timeout=120)
        if "consumer: ok" not in text:
            raise Failure("consumer in %s: %s" % (out, text))
    # The echo pair, the server from one build and the client from the other.
    server = subprocess.Popen([args.emulator, os.path.join(by_cmake, "echo_server.exe"), "0", "1"], env=env,
                              cwd=by_cmake, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    try:
        first = server.stdout.readline().strip()
        match = re.match(r"listening on 127\.0\.0\.1:(\d+)$", first)
        if not match:
            raise Failure("echo_server did not start: %r" % first)
        text = run([args.emulator, os.path.join(by_pc, "echo_client.exe"), "127.0.0.1", match.group(1), "hello",
                    "two words"], env=env, cwd=by_pc, timeout=60)
        if text != "echo: hello\necho: two words\n":
            raise Failure("echo_client: %r" % text)
        server.wait(timeout=30)
    finally:
        if server.poll() is None:
            server.kill()
            server.wait()


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass


def zynet_get(args, root, work):
    """The unpacked zynet.exe fetches a file; the only DLLs it can find are its own directory's."""
    served = os.path.join(work, "served")
    os.makedirs(served)
    body = bytes((i * 7 + (i >> 8)) & 0xff for i in range(300000))
    with open(os.path.join(served, "data.bin"), "wb") as f:
        f.write(body)
    handler = lambda *a, **k: Quiet(*a, directory=served, **k)  # noqa: E731
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    thread = threading.Thread(target=server.serve_forever, daemon=True)
    thread.start()
    elsewhere = os.path.join(work, "elsewhere")
    os.makedirs(elsewhere)
    zynet = os.path.join(root, "bin", "zynet.exe")
    try:
        url = "http://127.0.0.1:%d/data.bin" % server.server_address[1]
        run([args.emulator, zynet, "get", url, "-o", "got.bin"], env=wine_env(), cwd=elsewhere, timeout=120)
        with open(os.path.join(elsewhere, "got.bin"), "rb") as f:
            if f.read() != body:
                raise Failure("zynet.exe get: the file differs from the served one")
        text = run([args.emulator, zynet, "curl-version"], env=wine_env(), cwd=elsewhere, timeout=120)
        if not re.search(r"^file:\s+\S*RKCurl\.dll", text, re.M) or "libcurl/" not in text:
            raise Failure("zynet.exe curl-version: %s" % text)
        return re.search(r"^version:\s+(\S+)", text, re.M).group(1)
    finally:
        server.shutdown()
        server.server_close()


def main():
    parser = argparse.ArgumentParser()
    for name in ("build", "source", "cpack", "cmake", "toolchain", "emulator"):
        parser.add_argument("--" + name, required=True)
    args = parser.parse_args()
    work = tempfile.mkdtemp(prefix="zynet-zip.")
    try:
        name, root = unpack(args, work)
        imports = check_imports(root)
        by_cmake, by_pc = build_consumers(args, root, work)
        run_examples(args, by_cmake, by_pc)
        version = zynet_get(args, root, work)
    except (Failure, subprocess.TimeoutExpired) as error:
        print("windows zip: FAILED: %s" % error)
        return 1
    finally:
        shutil.rmtree(work, ignore_errors=True)
    print("windows zip: ok (%s; RKCurl.dll %s imports %s)" % (name, version, ", ".join(imports)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
