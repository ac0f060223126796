# SPDX-License-Identifier: MIT
"""What bench/run measures: subjects, each with the rows of its figures."""

import resource
from dataclasses import dataclass

import transfers
from pairs import KINDS, column, pairs_of
from programs import Profile
from report import Row
from servers import SilentServer

MEMORY_LIMIT_KIB = 40.0
HELD = (10, 500)
SIZES = (13, 1 << 16, 1 << 20)  # of the bodies that nginx has to serve


@dataclass
class Requests:
    """GET requests, so many at a time, while others wait for a server that does not answer."""

    name: str
    path: str
    concurrency: int
    server: str = "http"
    waiting: int = 0
    counted: int = 300  # requests under callgrind
    counted_pairs: int = 2
    checked: bool = True  # their counts are the same each time
    timed: int = 2000
    timed_pairs: int = 5
    most_cpu: float = None  # these: limits of ratios
    most_switches: float = None
    most_time: float = None

    def measure(self, bench):
        if self.counted and (self.checked or bench.timed):
            self.count(bench)
        if bench.timed:
            self.time(bench)

    def count(self, bench):
        pairs = pairs_of(self.counted_pairs, lambda kind: self.counts(bench, kind))
        bench.report.line(self.row("instructions a request", steady=self.checked), column(pairs, "instructions"))
        bench.report.line(self.row("allocations a request", steady=self.checked, judged="value"), column(pairs, "allocations"))

    def time(self, bench):
        pairs = pairs_of(self.timed_pairs, lambda kind: self.times(bench, kind))
        bench.report.line(self.row("CPU a request", "us", most=self.most_cpu), column(pairs, "cpu"))
        bench.report.line(self.row("time a request", "us", most=self.most_time), column(pairs, "real"))
        bench.report.line(self.row("context switches a request", most=self.most_switches), column(pairs, "switches"))

    def row(self, figure, unit="", **limits):
        return Row(f"{self.name} {figure}", unit, **limits)

    def counts(self, bench, kind):
        with bench.programs.counted_session(kind, bench.nginx.authority) as session:
            self.run(bench, session, self.counted)
        profile = Profile(bench.programs.profile_path)
        return {"instructions": profile.instructions / self.counted, "allocations": profile.allocations() / self.counted}

    def times(self, bench, kind):
        with bench.programs.session(kind, bench.nginx.authority) as session:
            figures = self.run(bench, session, self.timed)
        return {name: value / self.timed for name, value in figures.items()}

    def run(self, bench, session, count):
        """Connections are there before anything is measured, and what is made once."""
        url = f"{bench.nginx.urls[self.server]}/{self.path}"
        if self.waiting:
            session.hold(SilentServer(), self.waiting)
        session.tell("warm", 1, 1, url)  # a connection of HTTP/2, which all will share
        session.tell("warm", max(self.concurrency * 2, 5), self.concurrency, url)
        return session.get(count, self.concurrency, url)


class Growth:
    """What each request costs while others wait, against none waiting: of both sides for themselves."""

    def __init__(self, waiting, counted):
        self.name = f"waiting-{waiting}"
        self.waiting = waiting
        self.alone = Requests("", "13", 1)
        self.among = Requests("", "13", 1, waiting=waiting, counted=counted)

    def measure(self, bench):
        if not bench.timed:
            return  # where waiting costs something it depends on how often the loop goes round
        pairs = pairs_of(2, lambda kind: self.growth(bench, kind))
        bench.report.line(Row(f"{self.name} instructions, against none", judged="value", most=1.5), pairs)

    def growth(self, bench, kind):
        among, alone = (requests.counts(bench, kind)["instructions"] for requests in (self.among, self.alone))
        return among / alone


class Crowd(Requests):
    """CPU a request among so many that wait that descriptors may not suffice."""

    def measure(self, bench):
        most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        if most < self.waiting + 500:
            print(f"{self.name}: not measured, a process may have no more than {most} descriptors (ulimit -Hn)")
        else:
            super().measure(bench)

    def time(self, bench):
        pairs = pairs_of(self.timed_pairs, lambda kind: self.times(bench, kind))
        bench.report.line(self.row("CPU a request", "us", judged="value", most=500), column(pairs, "cpu"))


class Together:
    """Requests that start together while there is no connection yet."""

    name = "http2-together"
    count = 16

    def measure(self, bench):
        if not bench.timed:
            return
        pairs = pairs_of(7, lambda kind: self.times(bench, kind))
        for figure, name in {"CPU": "cpu", "time": "real"}.items():
            milliseconds = [tuple(value / 1000 for value in pair) for pair in column(pairs, name)]
            bench.report.line(Row(f"{self.name} {figure}, {self.count} requests", "ms"), milliseconds)

    def times(self, bench, kind):
        with bench.programs.session(kind, bench.nginx.authority) as session:
            session.tell("warm", 1, 1, f"{bench.nginx.urls['tls']}/13")  # what is made once, the device's key above all
            return session.get(self.count, self.count, f"{bench.nginx.urls['http2']}/13")


class Memory:
    """Of requests that wait: of resident memory, and of what is allocated; how much of the one the other takes is the
    system's affair."""

    name = "memory"

    def measure(self, bench):
        resident, allocated = zip(*(self.kib(bench, kind) for kind in KINDS))
        bench.report.line(Row("memory resident, a waiting request", "KiB", judged="value", most=MEMORY_LIMIT_KIB), [resident])
        bench.report.line(Row("memory allocated, a waiting request", "KiB", judged="excess", steady=True), [allocated])

    def kib(self, bench, kind):
        server = SilentServer()
        kib = []
        with bench.programs.session(kind) as session:
            for before, count in zip((0, *HELD), HELD):
                session.tell("hold", count - before, server.url)
                server.await_requests(count)
                kib.append((session.resident_kib(), int(session.ask("memory")) / 1024))
        return [(many - few) / (HELD[1] - HELD[0]) for few, many in zip(*kib)]


class Start:
    """From the process's start to the first answer; and an engine with its client, made and destroyed."""

    name = "start"
    counted = 20
    timed = 500

    def measure(self, bench):
        def line(row, count, measure):
            bench.report.line(row, pairs_of(count, lambda kind: measure(bench, kind)))

        line(Row("start instructions to the first answer", steady=True), 1, self.count_first)
        line(Row("start instructions, made and destroyed", steady=True), 1, self.count_again)
        if bench.timed:
            line(Row("start CPU to the first answer", "us"), 9, self.time_first)
            line(Row("start CPU, made and destroyed", "us"), 5, self.time_again)

    def first(self, bench, session):
        return session.get(1, 1, f"{bench.nginx.urls['http']}/13")

    def count_first(self, bench, kind):
        with bench.programs.counted_session(kind, from_start=True) as session:
            self.first(bench, session)
        return Profile(bench.programs.profile_path).instructions

    def time_first(self, bench, kind):
        with bench.programs.session(kind) as session:
            return self.first(bench, session)["since_start"]

    def count_again(self, bench, kind):
        with bench.programs.counted_session(kind) as session:
            session.restart(self.counted)
        return Profile(bench.programs.profile_path).instructions / self.counted

    def time_again(self, bench, kind):
        with bench.programs.session(kind) as session:
            return session.restart(self.timed)["cpu"] / self.timed


SUBJECTS = [
    Requests("13B-1", "13", 1, counted_pairs=3, timed=3000, timed_pairs=7, most_switches=1.1),
    Requests("13B-16", "13", 16, counted_pairs=3, timed=6000, timed_pairs=7, most_cpu=1.0),
    Requests("13B-256", "13", 256, counted=1000, checked=False, timed=6000),
    Requests("64K-1", "65536", 1, counted=50, timed=1000, most_cpu=1.15),
    Requests("64K-16", "65536", 16, counted=100, checked=False, timed=2000, most_cpu=1.15),
    Requests("1M-1", "1048576", 1, counted=20, counted_pairs=1, timed=200, timed_pairs=15, most_cpu=1.15, most_time=1 / 0.9),
    Requests("1M-16", "1048576", 16, counted=0, timed=400),
    Requests("waiting-100", "13", 1, waiting=100, counted=100, checked=False, timed=1000, timed_pairs=3),
    Requests("waiting-900", "13", 1, waiting=900, counted=0, timed=200, timed_pairs=3),
    Growth(900, counted=100),
    Crowd("waiting-10000", "13", 1, waiting=10000, counted=0, timed=20, timed_pairs=2),
    Requests("tls-kept", "13", 1, server="tls", counted_pairs=1, timed_pairs=3),
    Requests("tls-new", "closing/13", 1, server="tls", counted=10, counted_pairs=1, timed=100),
    Requests("http2", "13", 16, server="http2", timed_pairs=3),
    Together(),
    *transfers.SUBJECTS,
    Memory(),
    Start(),
]
