# SPDX-License-Identifier: MIT
"""Large bodies: uploads from memory and from a file, and downloads to a file."""

import os

from pairs import column, pairs_of
from report import Row

MIB = 1 << 20
UPLOADED = 128 * MIB
COUNTED = 32 * MIB
DOWNLOADED = 256 * MIB  # little enough to be gone again before the system begins to write it back
PEAK_BYTES = (16 * MIB, 1024 * MIB)
PEAK_GROWTH_LIMIT_KIB = 2048
ZEROS = {COUNTED, UPLOADED, DOWNLOADED, *PEAK_BYTES}  # the files that nginx has to serve


class Uploads:
    """PUT requests whose body the caller gives away, or has in a file."""

    def __init__(self, source, most_cpu=None):
        self.name = f"put-{source}"
        self.source = source
        self.most_cpu = most_cpu

    def measure(self, bench):
        report = bench.report
        report.line(Row(f"{self.name} instructions a MiB", steady=True), pairs_of(1, lambda kind: self.count(bench, kind)))
        self.upload(bench, "floor")  # the file is read for the first time
        pairs = pairs_of(7 if bench.timed else 1, lambda kind: self.upload(bench, kind))
        growth = [tuple(kib / 1024 for kib in pair) for pair in column(pairs, "growth")]
        # A page more or less says nothing.
        report.line(Row(f"{self.name} memory beyond the body", "MiB", judged="value", steady=True, slack=1.0), growth)
        if bench.timed:
            cpu = [tuple(us / 1000 for us in pair) for pair in column(pairs, "cpu")]
            report.line(Row(f"{self.name} CPU, 128 MiB", "ms", most=self.most_cpu), cpu)

    def words(self, bench, kind, size):
        source = size
        if self.source == "file":
            source = f"{bench.programs.folder}/served/zeros/{size}"
        return "kel-http-bench-upload", kind, self.source, str(source), bench.sink.url

    def count(self, bench, kind):
        return bench.programs.count_once(*self.words(bench, kind, COUNTED)).instructions * MIB / COUNTED

    def upload(self, bench, kind):
        return bench.programs.once(*self.words(bench, kind, UPLOADED))


class Downloads:
    """To a file that is new each time."""

    name = "download"

    def measure(self, bench):
        report = bench.report
        report.line(Row("download instructions a MiB", steady=True), pairs_of(1, lambda kind: self.count(bench, kind)))
        peaks = [pairs_of(1, lambda kind, size=size: self.download(bench, kind, size)["peak"]) for size in PEAK_BYTES]
        for size, peak in zip(PEAK_BYTES, peaks):
            report.line(Row(f"download peak memory, {size // MIB} MiB", "KiB"), peak)
        growth = [tuple(abs(large - small) for small, large in zip(peaks[0][0], peaks[1][0]))]
        report.line(Row("download peak memory, difference", "KiB", judged="value", most=PEAK_GROWTH_LIMIT_KIB), growth)
        if bench.timed:
            self.time(bench)

    def time(self, bench):
        os.sync()  # nobody pays for what others wrote
        self.download(bench, "floor", DOWNLOADED)  # the server reads its file, and memory is touched for the first time
        pairs = pairs_of(9, lambda kind: self.download(bench, kind, DOWNLOADED)["cpu"] / 1000)
        bench.report.line(Row("download CPU, 256 MiB", "ms", most=1.10), pairs)

    def words(self, bench, kind, size):
        return "kel-http-bench-download", kind, f"{bench.nginx.urls['http']}/zeros/{size}", self.target(bench)

    def target(self, bench):
        return f"{bench.programs.folder}/target"

    def count(self, bench, kind):
        instructions = bench.programs.count_once(*self.words(bench, kind, COUNTED)).instructions
        os.unlink(self.target(bench))
        return instructions * MIB / COUNTED

    def download(self, bench, kind, size):
        figures = bench.programs.once(*self.words(bench, kind, size))
        if os.path.getsize(self.target(bench)) != size:
            raise SystemExit(f"bench/run: {kind} has downloaded something else than {size} bytes")
        os.unlink(self.target(bench))  # also from memory, before anything of it reaches the disk
        return figures


SUBJECTS = [Uploads("memory", most_cpu=1.5), Uploads("file"), Downloads()]
