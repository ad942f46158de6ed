#!/usr/bin/env python3
"""What the verbs that look at everything cost, by the number of pieces.

  bench/counting.py [--build build/release] [--directory /tmp]
                    [--sizes 20000,80000,320000,1000000] [--packs 5000,20000,60000]

For each size many_objects makes a repository of that many pieces without a stream. Arca looks at
all of them, then removes every tenth and purges what was removed. Then for each number of packs
many_objects makes one of pieces with a pack each, of which arca removes every second one and frees
its pack. Printed for each verb: processor microseconds for a piece, of all that there are or of
those that go, and the peak of the memory. Where the cost grows straight with the number the columns
stay the same.
The repositories are removed again.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile

PASSWORD = b"a" * 64 + b"\n"  # of many_objects
LOOKING = {
    "stats": ["stats", "--json"],
    "metrics": ["metrics"],
    "verify": ["verify"],
    "reclaim": ["reclaim", "--dry-run"],
    "ls": ["ls", "--json"],
    "expire": ["expire", "--dry-run"],
}
REMOVING = {
    "rm of every tenth": ["rm", "*7_p1", "--yes"],
    "ls --removed": ["ls", "--removed"],
    "reclaim of these": ["reclaim", "--grace", "0"],
}
FREEING = {
    "rm": ["rm", "*_p2", "--yes"],
    "reclaim": ["reclaim", "--grace", "0"],
    "verify --read-data": ["verify", "--read-data"],
}


def measured(command, environment):
    """Its processor seconds and peak MiB; it must end well."""
    child = subprocess.Popen(command, env=environment, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                             stderr=subprocess.PIPE)
    child.stdin.write(PASSWORD)
    child.stdin.close()
    said = child.stderr.read().decode()
    _, status, used = os.wait4(child.pid, 0)
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"{' '.join(command)}: status {os.waitstatus_to_exitcode(status)}: {said}")
    return used.ru_utime + used.ru_stime, used.ru_maxrss / 1024


def measure(count, build, parent, packs):
    with tempfile.TemporaryDirectory(dir=parent) as place:
        repository = os.path.join(place, "repository")
        library = os.path.join(build, "root/api/bin64/libApiHX64.so")
        make = [os.path.join(build, "bench/many_objects"), repository, str(count)]
        subprocess.run(make + ([] if packs else [library]), check=True, stdout=subprocess.DEVNULL)
        environment = dict(os.environ, XDG_CACHE_HOME=os.path.join(place, "cache"))
        arca = os.path.join(build, "root/bin/arca")
        for verbs, pieces in [(FREEING, count)] if packs else [(LOOKING, count), (REMOVING, count / 10)]:
            for name, words in verbs.items():
                command = [arca, *words, "--stdin", "--optfile", repository + ".opt"]
                seconds, peak = measured(command, environment)
                print(f"| {count:,} | {name} | {seconds * 1e6 / pieces:.1f} | {peak:.0f} |", flush=True)


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--build", default="build/release")
    arguments.add_argument("--sizes", default="20000,80000,320000,1000000")
    arguments.add_argument("--packs", default="5000,20000,60000")
    arguments.add_argument("--directory", default=tempfile.gettempdir())
    given = arguments.parse_args()
    print("| pieces | verb | processor µs a piece | peak MiB |\n|---|---|---|---|")
    for counts, packs in (given.sizes, False), (given.packs, True):
        for count in filter(None, counts.split(",")):
            measure(int(count), given.build, given.directory, packs)


if __name__ == "__main__":
    main()
