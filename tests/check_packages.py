#!/usr/bin/env python3
"""Makes the packages of a build, installs them in an empty place and uses them there.

    check_packages.py --build DIR --consumer DIR --version V [--toolchain FILE --emulator WORDS]

Natively: the Debian packages, by dpkg into an empty root whose only other packages are the
compiler's runtime, so that what they depend on is proved too. For Windows: the zip.
"""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import zipfile

CONSUMER_PRINTS = "syntax error: line 7"
# What Debian's library packages may lean on: the C and the C++ runtime.
BASE = ["libc6", "libgcc-s1", "libstdc++6"]


def fail(text):
    sys.exit("check_packages: " + text)


def run(*words, **kwargs):
    done = subprocess.run([str(w) for w in words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **kwargs)
    text = done.stdout.decode("utf-8", "backslashreplace").replace("\r", "")
    if done.returncode != 0:
        fail("%s\n%s" % (" ".join(map(str, words)), text))
    return text


def expect(expected, *words):
    got = run(*words).strip()
    if got != expected:
        fail("%s printed %r, not %r" % (words[-1], got, expected))


def require(folder, *patterns):
    for pattern in patterns:
        if not list(folder.glob(pattern)):
            fail("no %s in the package" % pattern)


class DebianRoot:
    """An empty system that knows only the base packages."""

    def __init__(self, folder):
        self.folder = folder
        admin = folder / "var/lib/dpkg"
        for name in ("info", "updates", "triggers", "alternatives"):
            (admin / name).mkdir(parents=True)
        (folder / "etc").mkdir()
        (admin / "status").write_text("".join(self.record(package) for package in BASE))
        # The scripts of the packages run outside the root, where there is a shell; their
        # ldconfig serves the root.
        tools = folder / "tools"
        tools.mkdir()
        shim = tools / "ldconfig"
        shim.write_text('#!/bin/sh\ntouch "$DPKG_ROOT/etc/ldconfig.was.called"\n')
        shim.chmod(0o755)
        self.env = dict(os.environ, LC_ALL="C", PATH="%s:/usr/sbin:/sbin:%s" % (tools, os.environ["PATH"]))

    @staticmethod
    def record(package):
        """What the package manager of this machine knows, without files of its own."""
        text = subprocess.run(["dpkg-query", "-s", package], check=True, stdout=subprocess.PIPE, text=True).stdout
        lines, keep = [], True
        for line in text.split("\n"):
            if not line.startswith(" "):
                keep = not line.startswith("Conffiles:")
            if keep:
                lines.append(line)
        return "\n".join(lines).strip() + "\n\n"

    def install(self, *packages):
        words = ["dpkg", "--root=%s" % self.folder, "--force-script-chrootless", "-i"] + [str(p) for p in packages]
        if os.getuid() != 0:
            words = ["fakeroot"] + words
        return subprocess.run(words, env=self.env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def build_consumer(args, prefix, scratch):
    options = ["-G", "Ninja", "-S", args.consumer, "-B", scratch / "consumer", "-DCMAKE_BUILD_TYPE=Debug",
               "-DCMAKE_PREFIX_PATH=%s" % prefix]
    if args.toolchain:
        options += ["-DCMAKE_TOOLCHAIN_FILE=" + args.toolchain, "-DCMAKE_FIND_ROOT_PATH=%s" % prefix]
    run("cmake", *options)
    run("cmake", "--build", scratch / "consumer")


def check_debian(args, made, scratch):
    names = {path.name.split("_")[0]: path for path in made.glob("*.deb")}
    wanted = {"libkrodll1", "libkrodll-dev", "libkrodll-doc", "kro"}
    if set(names) != wanted:
        fail("made %s" % sorted(names))
    refused = DebianRoot(scratch / "refused").install(names["libkrodll-dev"], names["kro"])
    if refused.returncode == 0 or "depends on libkrodll1" not in refused.stdout:
        fail("packages were installed without the library:\n" + refused.stdout)
    root = DebianRoot(scratch / "root")
    done = root.install(*names.values())
    if done.returncode != 0:
        fail(done.stdout)
    if not (root.folder / "etc/ldconfig.was.called").exists():
        fail("the loader's cache was not renewed")
    usr = root.folder / "usr"
    require(usr, "lib/*/libkrodll.so.1", "lib/*/libkrodll.so", "lib/*/cmake/stdkro/stdkro-config.cmake",
            "lib/*/pkgconfig/stdkro.pc", "include/stdkro/xpp.h", "bin/kro", "share/doc/*/docs/script.md",
            "share/man/man1/kro.1", "share/bash-completion/completions/kro", "share/stdkro/xpp.tmLanguage.json",
            "share/gdb/auto-load/usr/lib/*/libkrodll.so.%s-gdb.py" % args.version, "share/stdkro/krodll.natvis")
    build_consumer(args, usr, scratch)
    expect(CONSUMER_PRINTS, scratch / "consumer/consumer")
    expect("kro " + args.version, usr / "bin/kro", "version")


def check_zip(args, made, scratch):
    found = list(made.glob("*.zip"))
    if [path.name for path in found] != ["stdkro-%s-win32.zip" % args.version]:
        fail("made %s" % found)
    with zipfile.ZipFile(found[0]) as archive:
        archive.extractall(scratch)
    folder = scratch / found[0].stem
    require(folder, "bin/krodll.dll", "bin/kro.exe", "bin/libgcc_s_dw2-1.dll", "bin/libstdc++-6.dll",
            "bin/libwinpthread-1.dll", "lib/libkrodll.dll.a", "lib/cmake/stdkro/stdkro-config.cmake",
            "include/stdkro/xpp.h", "share/doc/*/docs/script.md")
    build_consumer(args, folder, scratch)
    # A program finds the DLLs beside it.
    for dll in (folder / "bin").glob("*.dll"):
        shutil.copy(dll, scratch / "consumer")
    emulator = args.emulator.split(";")
    expect(CONSUMER_PRINTS, *emulator, scratch / "consumer/consumer.exe")
    expect("kro " + args.version, *emulator, folder / "bin/kro.exe", "version")


def main():
    parser = argparse.ArgumentParser()
    for name in ("build", "consumer", "version", "toolchain", "emulator"):
        parser.add_argument("--" + name, default="")
    args = parser.parse_args()
    scratch = pathlib.Path(args.build) / "packages-test"
    shutil.rmtree(scratch, ignore_errors=True)
    made = scratch / "made"
    made.mkdir(parents=True)
    run("cpack", "--config", pathlib.Path(args.build) / "CPackConfig.cmake", "-B", made)
    (check_zip if args.toolchain else check_debian)(args, made, scratch)
    shutil.rmtree(scratch)
    print("the packages can be installed and used")


if __name__ == "__main__":
    main()
