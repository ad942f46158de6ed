#!/usr/bin/env python3
"""How many of the duplicates are found that an index of all blocks would find.

  bench/duplicates.py [--size 1024] [--dir /dev/shm/keel-duplicates]     Markdown

Stores days 0, 1 and 7 of generated database blocks in a repository of their own, plain, multiplexed and with changes in
runs, and compares what `arca stats` tells of duplicates with a set of the digests of all blocks. Needs bench/gen_dbf
and a built tree (--root)."""
import argparse
import hashlib
import json
import os
import shutil
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))
BLOCK = 8192
STREAMS = {'plain': [], 'of 4 files multiplexed': ['--mux', '4'], 'changed in runs of 16': ['--cluster', '16']}


def digests(path):
    """Of all blocks but those of zeros."""
    with open(path, 'rb') as stream:
        while block := stream.read(BLOCK):
            if block.count(0) != len(block):
                yield hashlib.blake2b(block, digest_size=16).digest()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--size', type=int, default=1024, help='MiB')
    parser.add_argument('--dir', default='/dev/shm/keel-duplicates')
    parser.add_argument('--root', default=os.path.abspath(f'{HERE}/../build/release/root'))
    args = parser.parse_args()
    print('| stream | day | blocks | duplicates | found | share |\n' + '|---' * 6 + '|')
    for what, flags in STREAMS.items():
        shutil.rmtree(args.dir, ignore_errors=True)
        os.makedirs(args.dir)
        stream = f'{args.dir}/stream'
        env = dict(os.environ, KEEL_ROOT=args.root, REPO=args.dir)
        subprocess.run([f'{HERE}/keel-peer'], env=dict(env, OP='init', DAY=''), check=True, stdout=subprocess.DEVNULL)
        seen, before = set(), 0
        for day in (0, 1, 7):
            with open(stream, 'wb') as out:
                subprocess.run([f'{HERE}/gen_dbf', '--size', f'{args.size}M', '--day', str(day), '--rate', '3', *flags],
                               stdout=out, check=True)
            with open(stream, 'rb') as source:
                subprocess.run([f'{HERE}/keel-peer'], env=dict(env, OP='backup', DAY=str(day)), stdin=source, check=True)
            told = subprocess.run([f'{args.root}/bin/arca', 'stats', '--json', '--optfile', f'{args.dir}/arca.opt'],
                                  check=True, stdout=subprocess.PIPE).stdout
            saved = json.loads(told)['savedByDuplicates']
            found, before = (saved - before) // BLOCK, saved
            blocks = list(digests(stream))
            duplicates = len(blocks) - len(set(blocks) - seen)
            seen.update(blocks)
            share = f'{found / duplicates:.2%}' if duplicates else ''
            print(f'| {what} | {day} | {len(blocks):,} | {duplicates:,} | {found:,} | {share} |', flush=True)
    shutil.rmtree(args.dir)


main()
