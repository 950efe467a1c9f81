#!/usr/bin/env python3
"""Shows whether the tests notice faults of the library: makes small changes to it, one at a time,
and runs the quick tests on each changed library.

  tests/mutants/mutants.py                        everything
  tests/mutants/mutants.py --only dense_reorder   the sources whose path contains this text
  tests/mutants/mutants.py --again                nothing; prints the results of the last run again

Needs Python 3 of Debian 12 and the packages of the tests, and no others. Works on a copy in
build/mutants; see docs/mutants.md. Exits with 1 in three cases: a mutant survives that neither
equivalent.txt nor survivors.txt explains; fewer than 95 % of the mutants that are not equivalent
are caught; a whole run makes fewer than 500 mutants.
"""

import argparse
import math
import os
import re
import resource
import signal
import subprocess
import sys
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.dont_write_bytecode = True
from sites import Source, render  # noqa: E402

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
SOURCES = ['pavex/runtime', 'pavex/matrix', 'pavex/aggregator', 'pavex/assembly',
           'pavex/comm/local_*']
# The binaries and the filters of their tests. Long tests are separate, so that they run last.
TESTS = [('runtime/runtime_test', '*'), ('matrix/matrix_test', '*'),
         ('aggregator/aggregator_test', '*'), ('aggregator/dense_test', '*'),
         ('aggregator/dense_reorder_test', '-*BeyondTheCaches*'),
         ('aggregator/dense_reorder_test', '*BeyondTheCaches*'), ('comm/local_comm_test', '*'),
         ('assembly/assembly_test', '*')]
AT_LEAST, CAUGHT_SHARE = 500, 0.95
NUMBERS_PER_FILE = 1 << 10  # mutant.h has room for the numbers of 128 files
CAUGHT = ('failed', 'crashed', 'timeout')
LOOK_EVERY, STILL_LOOKS = 5, 4  # seconds; looks without progress


def excluded_lines(text):
    """The lines that the coverage excludes, counted from 0."""
    excluded, inside = set(), False
    for number, line in enumerate(text.splitlines()):
        inside = inside or 'GCOVR_EXCL_START' in line
        if inside or 'GCOVR_EXCL_LINE' in line:
            excluded.add(number)
        inside = inside and 'GCOVR_EXCL_STOP' not in line
    return excluded


class Mutant:
    def __init__(self, number, path, site, change, line, occurrence):
        self.number, self.path, self.site, self.kind = number, path, site, site.kind
        again = f' ({occurrence})' if occurrence > 1 else ''
        self.key = f'{path} | {site.kind}: {change}{again} | {line}'
        self.outcome = None
        self.excluded = False  # excluded from the coverage

    def unreachable(self):
        return self.excluded and self.outcome == 'not reached'


class Tree:
    """The copy of the sources, and the mutants in it."""

    def __init__(self, build):
        self.root, self.build = build / 'tree', build / 'binaries'
        self.dropped = build / 'dropped.txt'  # mutants that do not compile, also for the next run
        self.outcomes = build / 'outcomes.txt'  # gets a line as soon as an outcome is known
        self.files, self.mutants, self.spans, self.count = {}, [], {}, 0
        for pattern in SOURCES:
            for path in sorted(ROOT.glob(pattern + ('' if '*' in pattern else '/*'))):
                name = str(path.relative_to(ROOT))
                if path.suffix in ('.h', '.cpp', '.ipp'):
                    self.find(name, path.read_text())

    def find(self, name, text):
        sites, keys, excluded = Source(text).sites, Counter(), excluded_lines(text)
        dropped = self.dropped.read_text().splitlines() if self.dropped.exists() else []
        # Each file has its own numbers, so a change in one does not change the copies of others.
        first = NUMBERS_PER_FILE * len(self.files)
        for site in sorted(sites, key=lambda site: (site.start, site.end)):
            site.first = first
            first += len(site.changes)
            self.count += len(site.changes)
            begin = text.rindex('\n', 0, site.start) + 1
            line = text[begin:text.index('\n', begin)].strip()
            for number, change in enumerate(site.changes):
                keys[site.kind, change, begin] += 1
                mutant = Mutant(site.first + number, name, site, change, line,
                                keys[site.kind, change, begin])
                mutant.excluded = text.count('\n', 0, begin) in excluded
                if mutant.key not in dropped:
                    self.mutants.append(mutant)
        kept = {mutant.site.first for mutant in self.mutants}
        self.files[name] = (text, [site for site in sites if site.first in kept])

    def write(self):
        for folder in ('CMakeLists.txt', 'cmake', 'docs', 'pavex', 'tests'):
            files = [ROOT / folder] if (ROOT / folder).is_file() else (ROOT / folder).rglob('*')
            for path in filter(Path.is_file, files):
                name = str(path.relative_to(ROOT))
                content = path.read_bytes()
                if name in self.files:
                    mutated, self.spans[name] = render(*self.files[name])
                    content = mutated.encode()
                target = self.root / name
                if not target.exists() or target.read_bytes() != content:
                    target.parent.mkdir(parents=True, exist_ok=True)
                    target.write_bytes(content)

    def compile(self, jobs):
        """Builds the tests. Drops the sites that do not compile."""
        self.write()
        subprocess.run(
            ['cmake', '-S', self.root, '-B', self.build, '-G', 'Ninja',
             '-DCMAKE_BUILD_TYPE=Release', '-DCMAKE_CXX_FLAGS_RELEASE=-O1', '-DPAVEX_WERROR=OFF',
             f'-DCMAKE_CXX_FLAGS=-w -include {HERE / "mutant.h"}', '-DPAVEX_TWO_INSTANCES=ON',
             '-DPAVEX_TOOLS=OFF', '-DPAVEX_EXAMPLES=OFF', '-DPAVEX_BENCH=OFF',
             '-DPAVEX_INSTALL=OFF'], check=True, stdout=subprocess.DEVNULL)
        # The libraries come first: most mutants that do not compile show before tests are built.
        for targets in (['pavex', 'pavex_local'], {Path(path).name for path, _ in TESTS}):
            while not self.ninja(targets, jobs):
                self.write()

    def ninja(self, targets, jobs):
        """Tries to build. False if some sites were dropped, so that another try is needed."""
        built = subprocess.run(['ninja', '-C', self.build, '-k', '0', '-j', str(jobs), *targets],
                               capture_output=True, text=True)
        if built.returncode == 0:
            return True
        if not self.drop(set(re.findall(r'^([^\s:]+):(\d+):(\d+): error:', built.stdout, re.M))):
            sys.exit(built.stdout[-10000:] + 'The copy does not compile.')
        return False

    def drop(self, errors):
        """Drops the innermost site around each error. False if there is none."""
        dropped = set()
        for path, line, column in errors:
            name = os.path.relpath(self.build / path, self.root)
            if name not in self.files:
                continue
            lines = (self.root / name).read_text().splitlines(keepends=True)
            at = sum(map(len, lines[:int(line) - 1])) + int(column) - 1
            around = [(end - start, first) for first, (start, end) in self.spans[name].items()
                      if start <= at < end]
            if around:
                dropped.add(min(around)[1])
        for name, (text, sites) in self.files.items():
            self.files[name] = (text, [site for site in sites if site.first not in dropped])
        with self.dropped.open('a') as file:
            file.writelines(m.key + '\n' for m in self.mutants if m.site.first in dropped)
        self.mutants = [m for m in self.mutants if m.site.first not in dropped]
        return bool(dropped)

    def read_outcomes(self):
        """The outcomes of the last run."""
        known = dict(line.split(': ', 1)[::-1] for line in self.outcomes.read_text().splitlines())
        for mutant in self.mutants:
            mutant.outcome = known.get(f'{mutant.number} {mutant.key}')


def children_seconds():
    """The processor time of all processes that have ended."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def times_of(session):
    """How long each thread of the processes of a session has run and waited for a processor."""
    times = {}
    for process in Path('/proc').glob('[0-9]*'):
        try:
            if os.getsid(int(process.name)) == session:
                times.update((task, (task / 'schedstat').read_text())
                             for task in (process / 'task').iterdir())
        except OSError:  # it has ended
            pass
    return times


class Test:
    """A test binary or a part of its tests, with its time and the mutants that it reaches."""

    def __init__(self, tree, path, pattern):
        self.path, self.pattern = tree.build / 'tests' / path, pattern
        self.name = Path(path).name + ('' if pattern == '*' else ' ' + pattern)
        self.cpu_limit = 600
        seen = tree.build / 'seen'
        seen.unlink(missing_ok=True)
        before = children_seconds()
        if self.run(PAVEX_MUTANTS_SEEN=str(seen)) is not None:
            sys.exit(f'{self.name} fails without any mutant.')
        self.seconds = children_seconds() - before
        self.cpu_limit = math.ceil(2 + 3 * self.seconds)
        self.seen = seen.read_bytes()

    def run(self, **environment):
        """Runs the tests. None if every test passes, otherwise the kind of the failure."""
        limits = ['prlimit', '--core=0', f'--as={8 << 30}', f'--cpu={self.cpu_limit}']
        with subprocess.Popen(
                [*limits, self.path, f'--gtest_filter={self.pattern}', '--gtest_fail_fast'],
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                start_new_session=True, env={**os.environ, **environment}) as process:
            if not self.ends(process):
                os.killpg(process.pid, signal.SIGKILL)
                return 'timeout'
        if process.returncode == 0:
            return None
        if process.returncode in (-signal.SIGXCPU, -signal.SIGKILL):
            return 'timeout'
        return 'crashed' if process.returncode < 0 else 'failed'

    @staticmethod
    def ends(process):
        """Whether the process ends. False if it waits for ever; a busy machine does not count."""
        looks, last = 0, None
        while looks < STILL_LOOKS:
            try:
                process.wait(LOOK_EVERY)
                return True
            except subprocess.TimeoutExpired:
                now = times_of(process.pid)
                looks = looks + 1 if now == last else 0
                last = now
        return False


def judge(mutant, tests):
    reached = [test for test in tests if test.seen[mutant.number]]
    mutant.outcome = 'survived' if reached else 'not reached'
    for test in reached:
        outcome = test.run(PAVEX_MUTANT=str(mutant.number))
        if outcome is not None:
            mutant.outcome = outcome
            break
    return mutant


def judge_all(mutants, tree, jobs):
    print(f'{len(tree.mutants)} mutants; {tree.count - len(tree.mutants)} more do not compile')
    tests = sorted((Test(tree, *test) for test in TESTS), key=lambda test: test.seconds)
    for test in tests:
        print(f'{test.name}: {test.seconds:.1f} s, reaches {sum(test.seen)}', flush=True)
    with ThreadPoolExecutor(jobs) as pool, tree.outcomes.open('w', buffering=1) as outcomes:
        for done, mutant in enumerate(pool.map(lambda m: judge(m, tests), mutants), 1):
            print(f'{mutant.outcome}: {mutant.number} {mutant.key}', file=outcomes)
            if done % 100 == 0:
                print(f'{done} of {len(mutants)}', flush=True)


def table(title, mutants, group):
    columns = (*CAUGHT, 'survived', 'not reached')
    print(f'\n{title:36}{"mutants":>12}' + ''.join(f'{column:>12}' for column in columns))
    groups = sorted({group(mutant) for mutant in mutants})
    for name in [*groups, 'all'] if len(groups) > 1 else groups:
        outcomes = Counter(m.outcome for m in mutants if name == 'all' or group(m) == name)
        print(f'{name:36}{sum(outcomes.values()):12}' +
              ''.join(f'{outcomes[column]:12}' for column in columns))


def explained(name):
    """The mutants that a file lists."""
    lines = (HERE / name).read_text().splitlines()
    return {line.strip() for line in lines if line.strip() and not line.startswith('#')}


def report(mutants, only):
    unreachable = sum(map(Mutant.unreachable, mutants))
    mutants = [mutant for mutant in mutants if not mutant.unreachable()]
    print(f'\n{unreachable} mutants are left out: no test reaches them, and the coverage excludes '
          'their lines')
    table('file', mutants, lambda mutant: mutant.path)
    table('kind', mutants, lambda mutant: mutant.kind)
    caught = sum(mutant.outcome in CAUGHT for mutant in mutants)
    survivors = {m.key: m.outcome for m in mutants if m.outcome not in CAUGHT}
    equivalent, others = explained('equivalent.txt'), explained('survivors.txt')
    same = sum(mutant.key in equivalent and mutant.outcome not in CAUGHT for mutant in mutants)
    share = caught / (len(mutants) - same)
    new = [key for key in survivors if key not in equivalent | others]
    gone = [key for key in equivalent | others
            if only in key.split(' | ')[0] and key not in survivors]
    print(f'\n{caught} of {len(mutants)} mutants caught, {caught / len(mutants):.1%}; {same} of '
          f'the others are equivalent, and {share:.1%} of the rest are caught')
    for key in new:
        print(f'{survivors[key]}: {key}')
    for key in gone:
        print(f'explained, but no survivor: {key}')
    enough = only or len(mutants) >= AT_LEAST
    return enough and share >= CAUGHT_SHARE and not new and not gone


def main():
    options = argparse.ArgumentParser(description=__doc__,
                                      formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument('--only', default='', metavar='PATH', help='part of the sources\' paths')
    options.add_argument('--build', type=Path, default=ROOT / 'build/mutants', metavar='FOLDER')
    options.add_argument('--jobs', type=int, default=os.cpu_count())
    options.add_argument('--again', action='store_true', help='report on the last run only')
    arguments = options.parse_args()

    tree = Tree(arguments.build.resolve())
    if not arguments.again:
        tree.compile(arguments.jobs)
    mutants = [mutant for mutant in tree.mutants if arguments.only in mutant.path]
    if arguments.again:
        tree.read_outcomes()
    else:
        judge_all(mutants, tree, arguments.jobs)
    return 0 if report(mutants, arguments.only) else 1


if __name__ == '__main__':
    sys.exit(main())
