"""clang-tidy over the sources of a build directory:
    tidy.py ROOT BUILD [--deep] [PATH...]
What it has passed before is left out as long as neither the source nor what it includes has changed; the build knows
what that is. --deep adds the checks of the static analyser, which take four times as long."""

import hashlib
import json
import multiprocessing.pool
import os
import shlex
import subprocess
import sys
from pathlib import Path


def included_files(build):
    """What each object was compiled from, as the last build saw it."""
    listing = subprocess.run(["ninja", "-C", build, "-t", "deps"], capture_output=True, text=True, check=True).stdout
    files, current = {}, None
    for line in listing.splitlines():
        if line and not line.startswith(" "):
            current = files.setdefault(line.split(":")[0], [])
        elif line:
            current.append(os.path.normpath(os.path.join(build, line.strip())))
    return files


class Tidy:
    def __init__(self, root, build, deep):
        self.root = root
        self.build = build
        self.arguments = ["--quiet", "-p", build, "--extra-arg=-Wno-unknown-warning-option"]
        if not deep:
            self.arguments.append("--checks=-clang-analyzer-*")
        self.passed = root / "build" / "lint" / ("deep" if deep else "checks")
        self.passed.mkdir(parents=True, exist_ok=True)
        version = subprocess.run(["clang-tidy", "--version"], capture_output=True, text=True, check=True).stdout
        self.common = version + (root / ".clang-tidy").read_text() + str(self.arguments)
        self.files = included_files(build)

    @staticmethod
    def output(entry):
        words = shlex.split(entry["command"])
        return words[words.index("-o") + 1]

    def digest(self, entry):
        """Stands for all that the verdict on a source follows from; None if the build has not seen it yet."""
        files = self.files.get(self.output(entry))
        if files is None:
            return None
        digest = hashlib.sha256((self.common + entry["command"]).encode())
        for name in sorted(files):
            if name.startswith(f"{self.root}/"):
                digest.update(Path(name).read_bytes() if os.path.exists(name) else b"gone")
        return digest.hexdigest()

    def check(self, entry):
        """Whether the source passes, and what was said."""
        name = os.path.relpath(entry["file"], self.root)
        note = self.passed / name.replace("/", "+")
        digest = self.digest(entry)
        if digest and note.exists() and note.read_text() == digest:
            return True, ""
        result = subprocess.run(["clang-tidy", *self.arguments, entry["file"]], capture_output=True, text=True)
        if result.returncode == 0 and digest:
            note.write_text(digest)
        said = result.stdout + ("" if result.returncode == 0 else result.stderr)
        return result.returncode == 0, f"{shlex.quote(name)}\n{said}"


def main():
    root, build = Path(sys.argv[1]), sys.argv[2]
    deep = "--deep" in sys.argv[3:]
    paths = [os.path.abspath(path) for path in sys.argv[3:] if path != "--deep"] or [str(root)]
    tidy = Tidy(root, build, deep)
    entries = {}
    for entry in json.loads((Path(build) / "compile_commands.json").read_text()):
        if any(entry["file"] == path or entry["file"].startswith(path + "/") for path in paths):
            entries.setdefault(entry["file"], entry)
    failed = checked = 0
    with multiprocessing.pool.ThreadPool(os.cpu_count()) as pool:
        for passes, said in pool.imap_unordered(tidy.check, entries.values()):
            checked += bool(said)
            if not passes:
                failed += 1
                print(said, flush=True)
    print(f"clang-tidy: {len(entries)} sources, {checked} checked anew, {failed} with findings")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main())
