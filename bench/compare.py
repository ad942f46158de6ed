#!/usr/bin/env python3
"""This system and today's tools side by side, on the same streams in the same run.

  bench/compare.py --scenario blocks --reps 5 --out results.tsv     measure; all scenarios without --scenario
  bench/compare.py --report results.tsv                             Markdown: a table and the ratios of each scenario
  bench/compare.py --report results.tsv --plot docs/images          and a plot of each, as SVG

Every peer stores day 0, day 1 and (where the scenario has it) day 7 one after the other in one repository, then gives
each back. A scenario of many days stores them once, and gives some of them back in turn, as often as repetitions are
asked for. The peers take turns within a repetition, each time in another order, so that what the machine does meanwhile
hits all alike; a ratio is of two peers of one repetition, and its median over the repetitions counts. There is no table
of fewer than three repetitions. Sources lie in a tmpfs, repositories on disk. A backup has ended when the file system
of the repository is synced, for every peer; before a restore the page cache is dropped, which takes root. A restore
goes to /dev/null and is timed; in the first repetition another one is compared byte by byte. Figures are of the process
tree under /usr/bin/time: wall clock, processor seconds, resident memory of its largest process.

What compresses is compared at one level, that of zstd: the name of a peer says which where it is not zstd 3 (restic has
no levels; "auto", its default, is that of zstd 3).

Needs bench/gen_dbf (make -C bench), a built tree (--root), and /usr/bin/time, restic, borgbackup, zstd."""
import argparse
import os
import random
import re
import shutil
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
MIB = 1 << 20


class Scenario:
    """`peers`: of each group the first is compared with the others. With `restored` a chain: its days are stored once,
    each made when it is its turn, and only these given back."""

    def __init__(self, title, days, make, groups, share=1.0, restored=None):
        self.title, self.days, self.make, self.groups, self.share = title, days, make, groups, share
        self.peers = list(dict.fromkeys(peer for group in groups for peer in group))
        self.chain, self.restored = restored is not None, restored or days


def database(*options):
    def make(day, size, path):
        with open(path, 'wb') as out:
            subprocess.run([f'{HERE}/gen_dbf', '--size', str(size), '--day', str(day), '--rate', '3', *options],
                           stdout=out, check=True)
    return make


def system_files(day, size, path):
    """A tar of /usr; the next days begin with another file and lack every hundredth."""
    listed = subprocess.run(['find', '/usr/lib', '/usr/share', '/usr/bin', '-type', 'f', '-size', '-20000k'],
                            capture_output=True, text=True, check=True).stdout.split('\n')
    files, total = [], 0
    for number, name in enumerate(sorted(filter(None, listed))):
        if total >= size:
            break
        total += os.path.getsize(name)
        if day == 0 or number % 100 != day:
            files.append(name)
    first = f'{path}.first'
    with open(first, 'wb') as out:
        out.write(random.Random(day).randbytes(3 * MIB + 12345 * day))
    subprocess.run(['tar', '-cf', path, '--no-recursion', '-P', '-T', '-'], text=True, check=True,
                   input='\n'.join([first] * (day > 0) + files) + '\n')
    os.unlink(first)


def incompressible(day, size, path):
    source = random.Random(7)  # the same every day, but for a beginning of another length
    with open(path, 'wb') as out:
        out.write(random.Random(day).randbytes(day * 100_000))
        for _ in range(size // MIB):
            out.write(source.randbytes(MIB))


FEWEST = 3  # repetitions of a table

AT_3 = ['keel, zstd 3', 'restic', 'borg', 'zstd -3', 'cp']
SCENARIOS = {
    'blocks': Scenario('Database blocks, 3 % changed a day', [0, 1, 7], database(),
                       [AT_3 + ['borg, blocks of 8 KiB'], ['keel', 'borg, zstd 1', 'zstd -1']]),
    'days': Scenario('30 days of database blocks, 3 % changed a day', list(range(31)), database(), [['keel']],
                     restored=[0, 1, 7, 30]),
    'runs': Scenario('Database blocks, 3 % changed a day in runs of 16', [0, 1], database('--cluster', '16'),
                     [['keel, zstd 3', 'restic', 'borg', 'borg, blocks of 8 KiB']]),
    'multiplexed': Scenario('Database blocks of 4 files multiplexed, 3 % changed a day', [0, 1, 7],
                            database('--mux', '4'), [AT_3 + ['borg, blocks of 8 KiB']], 0.5),
    'tar': Scenario('A tar of system files', [0, 1], system_files, [AT_3], 0.5),
    'random': Scenario('Incompressible bytes', [0, 1], incompressible, [AT_3], 0.5),
    'plain': Scenario('Stored as it is: no compression, no duplicates, no encryption', [0], database(),
                      [['keel plain', 'dd, direct']]),
    'channels': Scenario('Two channels, each its own half of the database blocks', [0, 1], database(),
                         [['keel, zstd 3', 'keel, zstd 3, 2 channels', 'restic, 2 at once']]),
}


class Peer:
    """Shell commands: `backup` reads {src}, `restore` prints; {day} names the piece, {repo} the repository."""

    def __init__(self, program, init, backup, restore, parts=1):
        self.program, self.init, self.backup, self.restore, self.parts = program, init, backup, restore, parts


def peers(root):
    keel = f'KEEL_ROOT={root} REPO={{repo}} DAY={{day}} OP=%s {HERE}/keel-peer'
    restic = 'restic -q -r {repo} '
    store = Peer(f'{root}/bin/keel', keel % 'init', keel % 'backup' + ' <{src}', keel % 'restore')
    rest = Peer('restic', restic + 'init --repository-version 2',
                restic + 'backup --stdin --stdin-filename piece --tag {day} <{src}',
                restic + 'dump --tag {day} latest piece')

    def keel_with(options, parts=1):
        return Peer(store.program, f"OPTIONS='{options}' {store.init}", store.backup, store.restore, parts)

    def borg(options):
        return Peer('borg', 'borg init -e repokey-blake2 {repo}', f'borg create {options} {{repo}}::{{day}} - <{{src}}',
                    'borg extract --stdout {repo}::{day}')

    def zstd(level):
        return Peer('zstd', 'mkdir -p {repo}', f'zstd -{level} -T2 -q -f {{src}} -o {{repo}}/{{day}}',
                    'zstd -d -c -q {repo}/{day}')

    return {
        'keel': store,
        'keel, zstd 3': keel_with('COMPRESSION zstd 3'),
        'keel, zstd 3, 2 channels': keel_with('COMPRESSION zstd 3', 2),
        'keel plain': keel_with('COMPRESSION no;DEDUPLICATION no;ENCRYPTION no;VERIFY no'),
        'restic': rest,
        'restic, 2 at once': Peer('restic', rest.init, rest.backup, rest.restore, 2),
        'borg': borg('-C zstd,3'),
        'borg, zstd 1': borg('-C zstd,1'),
        'borg, blocks of 8 KiB': borg('-C zstd,3 --chunker-params fixed,8192'),
        'zstd -3': zstd(3),
        'zstd -1': zstd(1),
        'cp': Peer('cp', 'mkdir -p {repo}', 'cp {src} {repo}/{day}', 'cat {repo}/{day}'),
        'dd, direct': Peer('dd', 'mkdir -p {repo}', 'dd if={src} of={repo}/{day} bs=1M oflag=direct status=none',
                           'dd if={repo}/{day} bs=1M iflag=direct status=none'),
    }


VERSIONS = {'{root}/bin/keel': '--version', 'restic': 'version', 'borg': '--version', 'zstd': '--version',
            'dd': '--version', 'uname': '-sr', 'nproc': '--all'}
ENVIRONMENT = {
    'RESTIC_PASSWORD': 'bench', 'RESTIC_CACHE_DIR': '{dir}/restic-cache', 'BORG_BASE_DIR': '{dir}/borg',
    'BORG_PASSPHRASE': 'bench', 'BORG_RELOCATED_REPO_ACCESS_IS_OK': 'yes',
}


class Run:
    def __init__(self, args):
        self.args, self.peers = args, peers(os.path.abspath(args.root))
        self.env = dict(os.environ, **{k: v.format(dir=args.dir) for k, v in ENVIRONMENT.items()})
        self.repo = f'{args.dir}/repository'
        self.out = open(args.out, 'a', encoding='utf-8')

    def shell(self, command, output=subprocess.DEVNULL):
        """Wall seconds, processor seconds, MiB of memory. Ends the program when the command fails."""
        figures = f'{self.args.dir}/time'
        with open(f'{self.args.dir}/stderr', 'wb') as errors:
            began = time.monotonic()
            code = subprocess.run(['/usr/bin/time', '-q', '-f', '%U %S %M', '-o', figures, 'sh', '-ec', command],
                                  env=self.env, stdin=subprocess.DEVNULL, stdout=output, stderr=errors,
                                  check=False).returncode
            wall = time.monotonic() - began
        if code != 0:
            sys.exit(f'{command}\n' + open(f'{self.args.dir}/stderr', encoding='utf-8', errors='replace').read())
        user, system, memory = open(figures, encoding='utf-8').read().split('\n')[-2].split()
        return wall, float(user) + float(system), int(memory) / 1024

    def record(self, *fields):
        line = '\t'.join(f'{field:.4f}' if isinstance(field, float) else str(field) for field in fields)
        print(line, flush=True)
        self.out.write(line + '\n')
        self.out.flush()

    def make(self, scenario, day, path):
        scenario.make(day, int(self.args.size * scenario.share) * MIB, path)

    def sources(self, name, scenario):
        made = {}
        for day in scenario.days:
            path = f'{self.args.src}/{name}-day{day}'
            made[day] = path
            if scenario.chain:
                continue
            self.make(scenario, day, path)
            if any(self.peers[peer].parts == 2 for peer in scenario.peers):
                half = os.path.getsize(path) // 2 // 8192 * 8192
                subprocess.run(f'head -c {half} {path} >{path}.1; tail -c +{half + 1} {path} >{path}.2',
                               shell=True, check=True)
        return made

    def commands(self, peer, template, path, day):
        if peer.parts == 1:
            return template.format(repo=self.repo, day=f'd{day}', src=path)
        one, two = (template.format(repo=self.repo, day=f'd{day}p{part}', src=f'{path}.{part}') for part in (1, 2))
        ends = f'{self.args.dir}/end'
        return f'( {one}; date +%s.%N >{ends}1 ) & first=$!; ( {two}; date +%s.%N >{ends}2 ); wait $first'

    def back_up(self, name, scenario, sources, peer_name, repetition):
        """Every day, in a new repository."""
        peer = self.peers[peer_name]
        for path in (self.repo, f'{self.args.dir}/restic-cache', f'{self.args.dir}/borg'):
            shutil.rmtree(path, ignore_errors=True)
        self.shell(peer.init.format(repo=self.repo, day='', src=''))
        for day, path in sources.items():
            if scenario.chain:
                self.make(scenario, day, path)
            os.sync()
            before = stored(self.repo)
            began = time.time()
            figures = self.shell(self.commands(peer, peer.backup, path, day) + f' && sync -f {self.repo}')
            if peer.parts == 2:  # how evenly the two got on
                one, two = (float(open(f'{self.args.dir}/end{part}', encoding='ascii').read()) - began
                            for part in (1, 2))
                self.record(name, peer_name, repetition, f'apart{day}', 0, max(one, two) / min(one, two), 0, 0, 0)
            self.record(name, peer_name, repetition, f'day{day}', os.path.getsize(path), *figures,
                        stored(self.repo) - before)
            if scenario.chain and day not in scenario.restored:
                os.unlink(path)

    def restore(self, name, scenario, sources, peer_name, repetition):
        peer = self.peers[peer_name]
        for day in scenario.restored:
            path = sources[day]
            drop_caches()
            command = self.commands(peer, peer.restore, path, day)
            self.record(name, peer_name, repetition, f'restore{day}', os.path.getsize(path), *self.shell(command), 0)
            if repetition == 0 and peer.parts == 1:
                self.shell(f'{{ {command}; }} | cmp - {path}')

    def versions(self):
        """Of every program that takes part, and of the machine."""
        for program, question in VERSIONS.items():
            program = program.format(root=os.path.abspath(self.args.root))
            if shutil.which(program):
                said = subprocess.run([program, question], capture_output=True, text=True, check=True).stdout
                self.record('versions', os.path.basename(program), 0, said.strip().split('\n')[0])

    def run(self):
        self.versions()
        for name, scenario in SCENARIOS.items():
            if not re.fullmatch(self.args.scenario, name):
                continue
            for path in (self.args.dir, self.args.src):
                os.makedirs(path, exist_ok=True)
            sources = self.sources(name, scenario)
            for repetition in range(self.args.first, self.args.first + self.args.reps):
                for peer in random.sample(scenario.peers, len(scenario.peers)):
                    if not shutil.which(self.peers[peer].program):
                        self.record(name, peer, repetition, 'missing')
                        continue
                    if repetition == self.args.first or not scenario.chain:
                        self.back_up(name, scenario, sources, peer, repetition)
                    self.restore(name, scenario, sources, peer, repetition)
            for path in (self.args.dir, self.args.src):
                shutil.rmtree(path, ignore_errors=True)


def stored(path):
    return sum(os.lstat(os.path.join(folder, name)).st_size for folder, _, names in os.walk(path) for name in names
               if '/cache/' not in folder + '/')


def drop_caches():
    os.sync()
    try:
        with open('/proc/sys/vm/drop_caches', 'w', encoding='ascii') as control:
            control.write('3')
    except OSError as error:
        sys.exit(f'The page cache cannot be dropped before a restore, so it would prove nothing: {error}. Run it as root.')


class Results:
    """scenario → peer → step → repetition → (bytes, wall, processor, memory, stored)"""

    def __init__(self, path):
        self.rows, self.versions = {}, {}
        for line in open(path, encoding='utf-8'):
            scenario, peer, repetition, step, *figures = line.rstrip('\n').split('\t')
            if scenario == 'versions':
                self.versions[peer] = step
            elif figures:
                self.rows.setdefault(scenario, {}).setdefault(peer, {}).setdefault(step, {})[int(repetition)] = \
                    [float(figure) for figure in figures]

    def median(self, scenario, peer, step, figure):
        values = self.rows[scenario].get(peer, {}).get(step, {}).values()
        return statistics.median(figure(value) for value in values) if values else None

    def ratio(self, scenario, peer, other, step, other_step=None):
        """Median of how many times as fast."""
        mine, theirs = (self.rows[scenario].get(who, {}).get(what, {})
                        for who, what in ((peer, step), (other, other_step or step)))
        both = [(theirs[n][1] / theirs[n][0]) / (mine[n][1] / mine[n][0]) for n in mine if n in theirs]
        return statistics.median(both) if both else None


def rate(row):
    return row[0] / MIB / row[1]


def report(results, plots):
    print('Programs: ' + '; '.join(f'{program}: {said}' for program, said in results.versions.items()) + '.\n')
    for name, scenario in SCENARIOS.items():
        if name not in results.rows:
            continue
        steps = [f'{what}{day}' for what in ('day', 'restore') for day in scenario.restored]
        count = min(len(step) for steps in results.rows[name].values()
                    for what, step in steps.items() if not scenario.chain or what.startswith('restore'))
        if count < FEWEST:
            print(f'{name}: {count} of {FEWEST} repetitions, so no table.', file=sys.stderr)
            continue
        print(f'### {scenario.title}\n\nMedian of {count}, MiB/s (processor seconds per GiB)'
              f'{"; stored, as part of the stream" if len(scenario.days) > 1 else ""}.\n')
        print('| |' + ''.join(f' {step.replace("day", "day ").replace("restore", "restore ")} |' for step in steps) +
              ' peak MiB |\n' + '|---' * (len(steps) + 2) + '|')
        for peer in scenario.peers:
            cells = []
            for step in steps:
                speed = results.median(name, peer, step, rate)
                effort = results.median(name, peer, step, lambda row: row[2] / (row[0] / (1 << 30)))
                cell = '–' if speed is None else f'{speed:,.0f} ({effort:.1f})'
                if speed is not None and step.startswith('day'):
                    cell += f'; {results.median(name, peer, step, lambda row: 100 * row[4] / row[0]):.1f} %'
                cells.append(cell)
            peak = max((row[3] for step in results.rows[name].get(peer, {}).values() for row in step.values()),
                       default=0)
            print(f'| {peer} | ' + ' | '.join(cells) + f' | {peak:,.0f} |')
            apart = results.median(name, peer, 'apart0', lambda row: row[1])
            if apart:
                print(f'| | the slower one took {apart:.2f} × the time of the other' + ' |' * (len(steps) + 1))
        for first, *others in scenario.groups:
            for peer in others:
                ratios = [(step, results.ratio(name, first, peer, step)) for step in steps]
                print(f'\n{first} against {peer}: ' +
                      ', '.join(f'{step} {ratio:.2f} ×' for step, ratio in ratios if ratio))
        first = scenario.peers[0]
        if scenario.chain:
            ratios = [(step, results.ratio(name, first, first, step, 'restore0')) for step in steps[-3:]]
            print('\nAgainst restore0: ' + ', '.join(f'{step} {ratio:.2f} ×' for step, ratio in ratios if ratio))
        print()
        if plots:
            image = f'{plots}/{name}.svg'
            draw(image, scenario.title, {peer: [results.median(name, peer, step, rate) for step in steps]
                                         for peer in scenario.peers}, steps)
            print(f'![{scenario.title}]({os.path.relpath(image, "docs")})\n')


def draw(path, title, values, groups):
    """Bars, a group for each step, a colour for each peer."""
    colours = ['#0b6e4f', '#c8553d', '#5b7db1', '#e0a458', '#8a8d91', '#7a4988', '#3fa796', '#d48fb0', '#4a4a4a']
    highest = max(value for row in values.values() for value in row if value)
    across = 4  # names in a row of the legend
    width, left, height, bar = 760, 60, 240, 96 // len(values)
    top = 60 + 16 * ((len(values) - 1) // across)
    step = (width - left) // len(groups)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{top + height + 40}" '
             f'font-family="sans-serif" font-size="11"><rect width="100%" height="100%" fill="white"/>'
             f'<text x="{left}" y="18" font-size="14">{title}: MiB/s</text>']
    for number, (peer, row) in enumerate(values.items()):
        colour = colours[number % len(colours)]
        parts.append(f'<rect x="{left + number % across * 170}" y="{28 + number // across * 16}" width="10" '
                     f'height="10" fill="{colour}"/><text x="{left + 14 + number % across * 170}" '
                     f'y="{37 + number // across * 16}">{peer}</text>')
        for group, value in enumerate(row):
            tall = height * (value or 0) / highest
            x, y = left + group * step + number * bar, top + height - tall
            parts.append(f'<rect x="{x}" y="{y:.1f}" width="{bar - 2}" height="{tall:.1f}" fill="{colour}"/>'
                         f'<text x="{x + bar / 2 - 1}" y="{y - 3:.1f}" font-size="9" text-anchor="middle">'
                         f'{value or 0:.0f}</text>')
    parts += [f'<text x="{left + group * step}" y="{top + height + 16}">{name}</text>'
              for group, name in enumerate(groups)]
    parts.append(f'<line x1="{left - 6}" x2="{width}" y1="{top + height}" y2="{top + height}" stroke="black"/></svg>')
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, 'w', encoding='utf-8') as out:
        out.write('\n'.join(parts) + '\n')


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--scenario', default='.*', help='a pattern of names: ' + ', '.join(SCENARIOS))
    parser.add_argument('--reps', type=int, default=5)
    parser.add_argument('--first', type=int, default=0, help='number of the first repetition, to go on with a run')
    parser.add_argument('--size', type=int, default=1024, help='MiB of a stream (some scenarios take half)')
    parser.add_argument('--root', default=f'{HERE}/../build/release/root')
    parser.add_argument('--dir', default='/var/tmp/keel-compare', help='where repositories are made, on disk')
    parser.add_argument('--src', default='/dev/shm/keel-compare', help='where streams are kept')
    parser.add_argument('--out', default='compare.tsv', help='figures are appended')
    parser.add_argument('--report', metavar='TSV')
    parser.add_argument('--plot', metavar='DIRECTORY')
    args = parser.parse_args()
    if args.report:
        report(Results(args.report), args.plot)
    else:
        Run(args).run()


if __name__ == '__main__':
    main()
