"""Plants faults in the product and asks the tests. scripts/mutate --help says how to use it."""

import argparse
import fcntl
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor, as_completed
from pathlib import Path

from faults import faults_of

NOT_PRODUCT = ("Tests/", "Simulation/", "Benchmarks/")
# They take the place of a library that is missing.
NOT_BUILT = "Absent.cpp"
# They mostly wait, but for those that want the machine for themselves.
END_TO_END_TESTS_AT_A_TIME = 4
# Whatever a command has started ends with it.
CONTAINED = ["unshare", "--map-root-user", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
# So that a fault cannot reach the machine: no process, no address and no temporary file of others is seen.
PRIVATE = CONTAINED + ["--net", "bash", "-c", 'ip link set lo up; mount -t tmpfs tmpfs /tmp; "$@"; exit $?', "mutate"]


class Stopped(Exception):
    """Somebody asked for the end."""


class Commands:
    """Runs programs, each in a group of its own, which ends with this one."""

    def __init__(self):
        self.running = set()
        self.has_ended = False

    def start(self, command, **options):
        if self.has_ended:
            raise Stopped
        process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            start_new_session=True, **options,
        )  # fmt: skip
        self.running.add(process)
        return process

    def kill(self, process):
        # ninja ends its compilers when it is asked to; nothing else needs to be asked. Another thread may read what the
        # process prints, so that is left alone.
        for number in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(process.pid, number)
                process.wait(timeout=2 if number == signal.SIGTERM else None)
            except ProcessLookupError:
                pass
            except subprocess.TimeoutExpired:
                continue
        self.running.discard(process)

    def run(self, command, timeout=None, **options):
        """The exit code, None if it took too long, and the output."""
        process = self.start(command, **options)
        try:
            output, _ = process.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.kill(process)
            process.communicate()
            return None, ""
        self.running.discard(process)
        return process.returncode, output.decode(errors="replace")

    def kill_all(self):
        for process in list(self.running):
            self.kill(process)

    def end(self):
        self.has_ended = True
        self.kill_all()


class Progress:
    """One line that is written over, on a terminal only."""

    def __init__(self):
        self.shown = sys.stderr.isatty()
        self.lock = threading.Lock()

    def say(self, text):
        if self.shown:
            with self.lock:
                sys.stderr.write(f"\r\033[K{text[:shutil.get_terminal_size().columns - 1]}")
                sys.stderr.flush()

    def print(self, text):
        self.say("")
        print(text, flush=True)


class Copy:
    """A copy of the checkout as it is now, and what has to be rebuilt in it."""

    def __init__(self, checkout, place):
        self.checkout = checkout
        self.place = place
        self.root = place / "source"
        self.build = place / "build"

    def update(self):
        self.root.mkdir(parents=True, exist_ok=True)
        listed = subprocess.check_output(
            ["git", "-C", self.checkout, "ls-files", "--cached", "--others", "--exclude-standard", "-z"], text=True
        )
        wanted = {name for name in listed.split("\0") if name and (self.checkout / name).is_file()}
        for path in [path for path in self.root.rglob("*") if path.is_file() and not path.is_symlink()]:
            if str(path.relative_to(self.root)) not in wanted:
                path.unlink()
        for name in wanted:
            old, new = self.root / name, self.checkout / name
            if not old.is_file() or old.read_bytes() != new.read_bytes():
                old.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(new, old)
        # The dump client's library is not built anew.
        shared = self.root / "build"
        (self.checkout / "build").mkdir(exist_ok=True)
        if not shared.is_symlink():
            shared.symlink_to(self.checkout / "build")

    def sources(self):
        names = [str(path.relative_to(self.root)) for kind in ("*.cpp", "*.h") for path in self.root.rglob(kind)]
        return {
            name: (self.root / name).read_text()
            for name in names
            if not name.startswith(NOT_PRODUCT) and not name.startswith("build/") and not name.endswith(NOT_BUILT)
        }

    def write(self, name, text):
        (self.root / name).write_text(text)


class Test:
    def __init__(self, entry, build):
        properties = {item["name"]: item["value"] for item in entry["properties"]}
        self.name = entry["name"]
        self.command = entry["command"]
        self.labels = properties.get("LABELS", [])
        self.alone = properties.get("RUN_SERIAL", False) or properties.get("PROCESSORS", 1) > 1
        self.directory = properties.get("WORKING_DIRECTORY", str(build))
        self.seconds = 0.0
        programs = [part for part in self.command if part.startswith(f"{build}/bin/")]
        self.target = os.path.relpath(programs[0], build) if programs else None

    def is_unit(self):
        return "unit" in self.labels


def at_a_time(tests):
    """These end-to-end tests in two groups, each with how many of it may run at a time."""
    sharing = [test for test in tests if not test.alone]
    return (sharing, END_TO_END_TESTS_AT_A_TIME), ([test for test in tests if test.alone], 1)


class Bench:
    """Builds a copy and runs its tests."""

    def __init__(self, copy, progress, all_tests, paths):
        self.copy = copy
        self.commands = Commands()
        self.progress = progress
        self.all_tests = all_tests
        self.paths = paths
        self.tests = []
        self.environment = dict(
            os.environ,
            CCACHE_DIR=str(copy.place.parent / "ccache"), CCACHE_MAXSIZE="2G", CCACHE_NOHASHDIR="1",
            CCACHE_BASEDIR=str(copy.place), CCACHE_DEPEND="1", CCACHE_SLOPPINESS="pch_defines,time_macros",
            GTEST_FAIL_FAST="1", GTEST_BRIEF="1", ORB_REQUIRE_RIG="1",
        )  # fmt: skip
        self.contained = CONTAINED if self.commands.run(CONTAINED + ["true"])[0] == 0 else []
        # A checkout below /tmp would not be seen in there.
        can_hide = self.commands.run(PRIVATE + ["true"])[0] == 0 and not str(copy.root).startswith("/tmp/")
        self.private = PRIVATE if can_hide else []

    def prepare(self, first=None):
        """Configures, builds all, and runs each test on the code without a fault, unless the first bench has."""
        self.progress.say("configuring the copy")
        code, output = self.commands.run(
            ["cmake", "-G", "Ninja", "-S", self.copy.root, "-B", self.copy.build, "-DCMAKE_BUILD_TYPE=None",
             "-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_CXX_FLAGS=-O0 -w",
             "-DORB_PRECOMPILED=ON", "-DORB_WERROR=OFF", "-DORB_BENCHMARKS=OFF"], env=self.environment
        )  # fmt: skip
        if code != 0:
            sys.exit(f"{output}\nmutate: the copy cannot be configured")
        if not first:
            print("Building the copies without optimisation, and running the tests without a fault.", flush=True)
        listing = subprocess.check_output(["ninja", "-C", self.copy.build, "-t", "query", "UnitTests"], text=True)
        targets = [name for name in sorted(set(re.findall(r"\bbin/\w+", listing))) if self.links(name)]
        if not targets:
            sys.exit("mutate: no unit test links what is to be changed")
        if not self.ninja(["all"] if self.all_tests else ["OrbModule"] + targets, show=True):
            sys.exit(f"{self.output}\nmutate: the code does not build even without a fault")
        # The runner prints the commands of the tests that have been built.
        listing = subprocess.check_output(["ctest", "--test-dir", self.copy.build, "--show-only=json-v1"])
        tests = [Test(entry, self.copy.build) for entry in json.loads(listing)["tests"] if "command" in entry]
        units = [test for test in tests if test.is_unit() and test.target in targets]
        others = [test for test in tests if self.all_tests and "e2e" in test.labels]
        if first:
            seconds = {test.name: test.seconds for test in first.tests}
            self.tests = [test for test in units + others if test.name in seconds]
            for test in self.tests:
                test.seconds = seconds[test.name]
        else:
            self.progress.say("running the tests without a fault")
            for some, number in ((units, 1), *at_a_time(others)):
                with ThreadPoolExecutor(number) as pool:
                    passing = list(pool.map(self.passes, some))
                for test, passes in zip(some, passing):
                    if not passes:
                        self.progress.print(f"Left out, since it fails without a fault: {test.name}")
                self.tests += [test for test, passes in zip(some, passing) if passes]
        self.dependencies()

    def passes(self, test):
        begin = time.monotonic()
        passes = self.run(test, 600) == 0 or self.run(test, 600) == 0
        test.seconds = time.monotonic() - begin
        return passes

    def inputs(self, target):
        return set(subprocess.check_output(["ninja", "-C", self.copy.build, "-t", "inputs", target], text=True).split())

    def links(self, target):
        """Whether sources in the wanted directories are part of the program."""
        wanted = [path.replace("OrbModule/Inc", "OrbModule/Src") for path in self.paths]
        wanted = [path if os.path.isdir(self.copy.root / path) else os.path.dirname(path) for path in wanted]
        names = (os.path.relpath(os.path.join(self.copy.build, name), self.copy.root) for name in self.inputs(target))
        return any(is_below(name, wanted) for name in names)

    def dependencies(self):
        """Which objects are compiled from a file, and which programs contain them."""
        self.objects_of = {}
        target = None
        for line in subprocess.check_output(["ninja", "-C", self.copy.build, "-t", "deps"], text=True).splitlines():
            if line and not line.startswith(" "):
                target = line.split(":")[0]
            elif line.strip():
                path = os.path.relpath(os.path.join(self.copy.build, line.strip()), self.copy.root)
                self.objects_of.setdefault(path, set()).add(target)
        self.inputs_of = {test.target: self.inputs(test.target) for test in self.tests if test.target}

    def steps(self, test, path):
        """How many objects of the test's program have to be compiled anew."""
        return len(self.objects_of.get(path, set()) & self.inputs_of.get(test.target, set()))

    def units_for(self, path):
        """The unit tests that can see the file; first those of its own directory, then the ones built soonest."""
        own = os.path.dirname(path).replace("OrbModule/Inc", "OrbModule/Src")
        def rank(test):
            in_own = any(f"Tests/Unit/{own}/CMakeFiles/" in name for name in self.inputs_of[test.target])
            return not in_own, self.steps(test, path), test.seconds
        return sorted((test for test in self.tests if test.is_unit() and self.steps(test, path)), key=rank)

    def ninja(self, targets, show=False):
        command = self.contained + ["ninja", "-C", str(self.copy.build), *targets]
        if show and self.progress.shown:
            process = self.commands.start(command, env=self.environment)
            lines = []
            for line in process.stdout:
                lines.append(line.decode(errors="replace"))
                self.progress.say(lines[-1].rstrip())
            code = process.wait()
            self.commands.running.discard(process)
            self.output = "".join(lines[-60:])
        else:
            code, self.output = self.commands.run(command, env=self.environment)
        return code == 0

    def run(self, test, limit):
        """The exit code of the test; None if it hung."""
        # An end-to-end test has the rig around it.
        command = (self.private if test.is_unit() else self.contained) + test.command
        code, self.output = self.commands.run(command, timeout=limit, env=self.environment, cwd=test.directory)
        return code

    def fails(self, test, is_over=threading.Event()):
        """Whether the test sees the fault: twice, since a busy machine can upset one run, unless it hangs."""
        limit = max(20.0, 8 * test.seconds)
        code = None if is_over.is_set() else self.run(test, limit)
        return not is_over.is_set() and (code is None or code != 0 and self.run(test, limit) != 0)

    def first_that_fails(self, tests, number):
        """The name of one of these tests that sees the fault, or an empty one; so many run at a time."""
        is_over = threading.Event()
        with ThreadPoolExecutor(number) as pool:
            test_of = {pool.submit(self.fails, test, is_over): test for test in tests}
            for run in as_completed(test_of):
                if run.result():
                    is_over.set()
                    self.commands.kill_all()
                    return test_of[run].name
        return ""

    def search(self, path):
        """The name of the test that sees the fault which is planted in the file; None if it does not compile."""
        units = self.units_for(path)
        # A file that everything includes is mostly seen before everything is built: one test, one more, two, four ...
        done = 0
        while some := units[done : 2 * done or 1]:
            done += len(some)
            if not self.ninja(sorted({test.target for test in some})):
                return None
            for test in some:
                self.progress.say(f"{path}: {test.name}")
                if self.fails(test):
                    return test.name
        if not self.all_tests:
            if not units and not self.ninja(["OrbModule"]):
                return None
            return ""
        if not self.ninja(["all"]):
            return None
        self.progress.say(f"{path}: end-to-end tests")
        others = sorted((test for test in self.tests if not test.is_unit()), key=lambda test: test.seconds)
        finders = (self.first_that_fails(some, number) for some, number in at_a_time(others))
        return next(filter(None, finders), "")


class Score:
    """What the faults so far came to. Any thread."""

    def __init__(self):
        self.by_units = 0
        self.by_others = 0
        self.survived = 0
        self.not_compiling = 0

    def counted(self):
        return self.by_units + self.by_others + self.survived

    def show(self, all_tests):
        if not self.counted():
            print("No fault was tried.")
            return
        share = lambda part: f"{part} of {self.counted()} ({100 * part / self.counted():.1f} %)"
        print(f"Found by the unit tests: {share(self.by_units)}")
        if all_tests:
            print(f"Found by all tests:      {share(self.by_units + self.by_others)}")
        print(f"Survived:                {self.survived}; did not compile and not counted: {self.not_compiling}")


class Run:
    """Hands the faults out in their order until as many as wanted have been tried. Any thread."""

    def __init__(self, order, wanted, sources, progress):
        self.order = order
        self.wanted = wanted
        self.sources = sources
        self.progress = progress
        self.score = Score()
        self.under_way = 0
        self.changed = threading.Condition()

    def work(self, bench):
        while fault := self.take():
            begin = time.monotonic()
            bench.copy.write(fault.path, fault.apply(self.sources[fault.path]))
            try:
                finder = bench.search(fault.path)
            finally:
                bench.copy.write(fault.path, self.sources[fault.path])
            self.give_back(bench, fault, finder, time.monotonic() - begin)

    def take(self):
        """The next fault; None once there are enough. One that does not compile makes room for another."""
        with self.changed:
            self.changed.wait_for(lambda: self.score.counted() + self.under_way < self.wanted or not self.under_way)
            fault = next(self.order, None) if self.score.counted() < self.wanted else None
            if fault:
                self.under_way += 1
                self.progress.say(f"[{self.score.counted() + self.under_way}/{self.wanted}] {where(fault)}")
            return fault

    def give_back(self, bench, fault, finder, seconds):
        with self.changed:
            self.under_way -= 1
            self.changed.notify_all()
            # What was killed at the end has seen nothing.
            if self.wanted == 0:
                return
            test = next((test for test in bench.tests if test.name == finder), None)
            if finder is None:
                self.score.not_compiling += 1
                return
            if test is None:
                self.score.survived += 1
            elif test.is_unit():
                self.score.by_units += 1
            else:
                self.score.by_others += 1
            verdict = f"found by {finder}" if finder else "SURVIVED"
            self.progress.print(f"[{self.score.counted()}/{self.wanted}] {where(fault)}: {verdict} ({seconds:.0f} s)")

    def end(self, benches):
        with self.changed:
            self.wanted = 0
        for bench in benches:
            bench.commands.end()


def where(fault):
    return f"{fault.path}:{fault.line} {fault.describe()}"


def draw(faults, seed):
    """The faults in an order that follows from the seed, one a line."""
    shuffled = faults[:]
    random.Random(seed).shuffle(shuffled)
    taken = set()
    for fault in shuffled:
        if (fault.path, fault.line) not in taken:
            taken.add((fault.path, fault.line))
            yield fault


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=(
        "Plants one fault at a time in a copy of the product's code, and asks the tests whether they see it. "
        "Prints a line for each fault, with the test that found it or SURVIVED, and a score. "
        "Ctrl-C ends it at any time, with the score so far."))  # fmt: skip
    parser.add_argument("--sample", type=int, metavar="N", help="how many faults; all there are if not given")
    parser.add_argument("--seed", type=int, metavar="S", help="the same faults again; at random if not given")
    parser.add_argument("--path", action="append", metavar="DIR", help="only in this directory or file; may be repeated")
    parser.add_argument("--all-tests", action="store_true", help="end-to-end tests too, where no unit test sees the fault")
    parser.add_argument("--jobs", type=int, metavar="N", default=os.cpu_count(),
                        help="faults at a time, each in a copy of its own; as many as there are processors if not given")
    parser.add_argument("--list", action="store_true", help="only lists the faults in the order of the seed")
    return parser.parse_args()


def is_below(name, paths):
    return any(name == path or name.startswith(path.rstrip("/") + "/") or path == "." for path in paths)


def main():
    options = arguments()
    checkout = Path(__file__).resolve().parents[3]
    place = checkout / "build" / "mutate"
    place.mkdir(parents=True, exist_ok=True)
    lock = open(place / ".lock", "w")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("mutate: another run is under way in this checkout")

    copies = [Copy(checkout, place / str(number + 1)) for number in range(max(options.jobs, 1))]
    copies[0].update()
    sources = copies[0].sources()
    paths = [os.path.relpath(path, checkout) for path in options.path or [checkout]]
    faults = [fault for fault in faults_of(sources) if is_below(fault.path, paths)]
    if not faults:
        sys.exit("mutate: no fault can be planted there")
    seed = options.seed if options.seed is not None else random.randrange(1_000_000)
    order = draw(faults, seed)
    wanted = min(options.sample or len(faults), len(faults))
    if options.list:
        for fault, _ in zip(order, range(wanted)):
            print(f"{fault.path}:{fault.line} {fault.describe()}")
        return 0

    signals = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
    def stop(*_):
        # Another one would break off the end.
        for name in signals:
            signal.signal(name, signal.SIG_IGN)
        raise Stopped
    for name in signals:
        signal.signal(name, stop)
    print(f"{len(faults)} faults can be planted; seed {seed}.", flush=True)
    progress = Progress()
    benches = [Bench(copy, progress, options.all_tests, paths) for copy in copies]
    run = Run(order, wanted, sources, progress)
    try:
        for bench in benches:
            bench.copy.update()
            bench.prepare(None if bench is benches[0] else benches[0])
        with ThreadPoolExecutor(len(benches)) as pool:
            try:
                for work in [pool.submit(run.work, bench) for bench in benches]:
                    work.result()
            except Stopped:
                run.end(benches)
                raise
    except Stopped:
        progress.print("Stopped.")
    finally:
        for bench in benches:
            bench.commands.kill_all()
    run.score.show(options.all_tests)
    return 0


if __name__ == "__main__":
    sys.exit(main())
