# SPDX-License-Identifier: MIT
"""The programs of the bench, and what they and callgrind tell of a run."""

import os
import re
import subprocess

ALLOCATORS = ("malloc", "calloc", "realloc", "aligned_alloc", "posix_memalign")


def figures_of(line):
    """Those of a line with name=number in it."""
    return {name: int(number) for name, number in re.findall(r"(\w+)=(-?\d+)", line)}


class Profile:
    """What callgrind has counted."""

    def __init__(self, path):
        with open(path, encoding="utf-8", errors="replace") as file:
            self.text = file.read()
        os.unlink(path)
        self.instructions = int(re.search(r"^totals: (\d+)", self.text, re.MULTILINE).group(1))
        if self.instructions == 0:
            raise SystemExit("bench/run: the bench was built without valgrind/callgrind.h: install valgrind, build again")

    def allocations(self):
        """Calls of an allocator, save those by another one: realloc() of nothing calls malloc(). A profile names a
        function in full once, and then by its number; functions of several libraries may have the same name."""
        names = {}
        caller = called = None
        calls = 0
        for kind, number, name, count in re.findall(r"^(?:(c?fn)=(\(\d+\))(?: (.*))?|calls=(\d+) .*)$", self.text, re.MULTILINE):
            if count:
                calls += int(count) if called in ALLOCATORS and caller not in ALLOCATORS else 0
                continue
            names.setdefault(number, name)
            if kind == "fn":
                caller = names[number]
            else:
                called = names[number]
        return calls


class Programs:
    def __init__(self, build, folder):
        self.build = build
        self.folder = folder
        self.profile_path = f"{folder}/callgrind"

    def path(self, name):
        return f"{self.build}/bin/{name}"

    def callgrind(self, from_start):
        return ["valgrind", "--tool=callgrind", "--fair-sched=yes", "--quiet", f"--callgrind-out-file={self.profile_path}",
                f"--instr-atstart={'yes' if from_start else 'no'}"]

    def once(self, name, *words):
        """Runs a program that tells its figures."""
        return figures_of(self.output([self.path(name), *words]))

    def count_once(self, name, *words):
        self.output([*self.callgrind(from_start=False), self.path(name), *words])
        return Profile(self.profile_path)

    def output(self, words):
        result = subprocess.run(words, check=False, stdout=subprocess.PIPE, text=True)
        if result.returncode != 0:
            raise SystemExit(f"bench/run: {' '.join(words)} failed")
        return result.stdout

    def session(self, kind, authority=""):
        return Session([self.path("kel-http-bench"), kind, authority])

    def counted_session(self, kind, authority="", from_start=False):
        """Its profile is there when it has ended."""
        return Session([*self.callgrind(from_start), self.path("kel-http-bench"), kind, authority])


class Session:
    """A process of kel-http-bench, which does what it is told."""

    def __init__(self, words):
        self.words = words
        self.process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        self.process.stdin.close()
        self.process.stdout.close()
        if self.process.wait() != 0 and failure is None:
            raise SystemExit(f"bench/run: {' '.join(self.words)} failed")

    def tell(self, *words):
        print(*words, file=self.process.stdin, flush=True)

    def ask(self, *words):
        self.tell(*words)
        answer = self.process.stdout.readline()
        if not answer:
            raise SystemExit(f"bench/run: {' '.join(self.words)} has ended at '{' '.join(map(str, words))}'")
        return answer

    def get(self, count, concurrency, url):
        return figures_of(self.ask("get", count, concurrency, url))

    def restart(self, count):
        return figures_of(self.ask("restart", count))

    def hold(self, server, count, step=1000):
        """In steps, as a server takes so many new connections at once and no more."""
        for first in range(0, count, step):
            self.tell("hold", min(step, count - first), server.url)
            server.await_requests(min(first + step, count))

    def resident_kib(self):
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as file:
            return int(re.search(r"^VmRSS:\s+(\d+) kB", file.read(), re.MULTILINE).group(1))
