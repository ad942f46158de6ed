#!/usr/bin/env python3
"""How the cost of a backup grows with what the repository holds: counts, not times.

  bench/growth.py [--sizes 1,8,64] [--dir /var/tmp/keel-growth]     Markdown

Fills a repository of one node with streams of 1 GiB that have nothing in common; at each size it stores one day later
of an old stream (duplicates, but for 3 % of the blocks), then one more stream of its own, and counts for each: the
blocks that were hashed and looked up, the look-ups in the host's file of hints, the indexes of packs that were read,
the bytes that the process read and wrote by system calls, its peak memory, and the size of the file of hints. Needs
root, bench/gen_dbf, a built tree that is not stripped (--root), and perf with probes in programs."""
import argparse
import os
import re
import shutil
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))
MIB = 1 << 20
PROBES = {  # what is counted: the function whose calls they are
    'hashed': 'arca::BlockHasher::operator()(',
    'looked_up': 'arca::engine::DuplicateIndex::find(',
    'hint': 'arca::engine::HintCatalogue::packsWith(',
    'index': 'arca::engine::OpenPack::readIndex(',
}


def set_probes(library):
    subprocess.run(['perf', 'probe', '-q', '-d', 'growth:*'], check=False, stderr=subprocess.DEVNULL)
    mangled = subprocess.run(['nm', library], check=True, text=True, capture_output=True).stdout.split('\n')
    plain = subprocess.run(['nm', '-C', library], check=True, text=True, capture_output=True).stdout.split('\n')
    for name, function in PROBES.items():
        symbol = next(one.split()[2] for one, other in zip(mangled, plain)
                      if f' {function}' in other and '.cold' not in one)
        subprocess.run(['perf', 'probe', '-q', '-x', library, '--no-demangle', '-a', f'growth:{name}={symbol}'],
                       check=True)


def store(args, name, seed, day):
    """Counts of one backup."""
    env = dict(os.environ, KEEL_ROOT=args.root, REPO=args.dir, OP='backup', DAY=name)
    counted = (f'{HERE}/gen_dbf --size 1G --seed {seed} --day {day} --rate 3 | '
               f'sh -c \'perf stat -x, -e "growth:*" -o {args.dir}/perf /usr/bin/time -q -f %M -o {args.dir}/time '
               f'{HERE}/keel-peer; cat /proc/$$/io\'')
    io = dict(re.findall(r'(\w+): (\d+)', subprocess.run(counted, shell=True, env=env, check=True, text=True,
                                                         stdout=subprocess.PIPE).stdout))
    calls = {line.split(',')[2].split(':')[1]: int(line.split(',')[0])
             for line in open(f'{args.dir}/perf', encoding='ascii') if 'growth:' in line}
    return [calls[name] for name in PROBES] + [
        (int(io['rchar']) - (1 << 30)) / MIB, int(io['wchar']) / MIB,
        int(open(f'{args.dir}/time', encoding='ascii').read()) / 1024]


def hints(directory):
    return sum(os.path.getsize(os.path.join(folder, name)) for folder, _, names in os.walk(f'{directory}/caches')
               for name in names) / MIB


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--sizes', default='1,8,64', help='GiB')
    parser.add_argument('--dir', default='/var/tmp/keel-growth')
    parser.add_argument('--root', default=os.path.abspath(f'{HERE}/../build/release/root'))
    args = parser.parse_args()
    shutil.rmtree(args.dir, ignore_errors=True)
    os.environ['XDG_CACHE_HOME'] = f'{args.dir}/caches'
    subprocess.run([f'{HERE}/keel-peer'], env=dict(os.environ, KEEL_ROOT=args.root, REPO=args.dir, OP='init', DAY=''),
                   check=True, stdout=subprocess.DEVNULL)
    print('| unique data | backup of | blocks hashed | looked up | of them in the hints | pack indexes read | read MiB | '
          'written MiB | peak MiB | hints MiB |\n' + '|---' * 10 + '|')
    set_probes(f'{args.root}/api/bin64/libApiHX64.so')
    stored = 0
    for number, size in enumerate(map(int, args.sizes.split(','))):
        while stored < size:
            stored += 1
            store(args, f'unique{stored}', stored, 0)
        for what, seed, day in (('an old stream a day later', number + 1, 1), ('a new stream', 10_000 + size, 0)):
            counts = store(args, f'{"old" if day else "new"}{size}', seed, day)
            print(f'| {size} GiB | {what} | ' + ' | '.join(f'{count:,.0f}' for count in counts) +
                  f' | {hints(args.dir):.1f} |', flush=True)
    subprocess.run(['perf', 'probe', '-q', '-d', 'growth:*'], check=True)
    shutil.rmtree(args.dir)


main()
