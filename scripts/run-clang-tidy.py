#!/usr/bin/env python3
"""Runs clang-tidy (with the repository's .clang-tidy) over the project's translation units.

Every source file of the compilation database under src/, client/, tests/, bench/ or fuzz/ is
analysed once (a file compiled into two targets is taken with its first command), two at a
time by default. Findings are printed as clang-tidy writes them; the exit status is 1 when
there is any.

A translation unit that came out clean is remembered in a cache directory under a key made of
the clang-tidy version, the configuration files, the compile command and the preprocessed
source (every header it includes, system ones too), so an unchanged unit is not analysed
again. A unit with findings is never cached. --no-cache analyses everything.

--dirs limits the analysis to the units under the named top directories (tests/unit and
tests/e2e name parts of tests/).

Usage: run-clang-tidy.py -p BUILD_DIR [-j N] [--cache DIR | --no-cache] [--dirs DIR...]
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import re
import shlex
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PROJECT_DIRS = ("src", "client", "tests", "bench", "fuzz")
FINDING = re.compile(r"^\S.*:\d+:\d+: (warning|error): .*\[[\w.,-]+\]$")


def compile_args(entry):
    if "arguments" in entry:
        args = list(entry["arguments"])
    else:
        args = shlex.split(entry["command"])
    # Without the output and the compile-only flag, so that the same command preprocesses.
    out = []
    skip = False
    for arg in args:
        if skip:
            skip = False
            continue
        if arg == "-o":
            skip = True
            continue
        if arg == "-c" or arg.startswith("-o") and len(arg) > 2:
            continue
        out.append(arg)
    return out


def project_units(build_dir, dirs):
    database = json.loads((build_dir / "compile_commands.json").read_text())
    units = {}
    for entry in database:
        path = Path(entry["directory"], entry["file"]).resolve()
        try:
            relative = path.relative_to(ROOT)
        except ValueError:
            continue
        if relative.parts[0] not in PROJECT_DIRS or path in units:
            continue
        if not any(relative.as_posix().startswith(d.rstrip("/") + "/") for d in dirs):
            continue
        units[path] = entry
    return units


def config_text():
    """Every .clang-tidy of the repository, with its path."""
    parts = []
    for config in sorted(ROOT.glob("**/.clang-tidy")):
        if any(part.startswith("build") for part in config.relative_to(ROOT).parts):
            continue
        parts.append(str(config.relative_to(ROOT)) + "\n" + config.read_text())
    return "\n".join(parts)


def cache_key(entry, path, salt):
    args = compile_args(entry)
    # The compiler's own input list is the file; preprocess it to standard output.
    pre = subprocess.run(args + ["-E", "-o", "-"], cwd=entry["directory"],
                         capture_output=True)
    if pre.returncode != 0:
        return None  # let clang-tidy report why it does not compile
    digest = hashlib.sha256()
    digest.update(salt.encode())
    digest.update("\0".join(args).encode())
    digest.update(str(path).encode())
    digest.update(pre.stdout)
    return digest.hexdigest()


def analyse(path, entry, build_dir, cache_dir, salt):
    key = cache_key(entry, path, salt) if cache_dir else None
    if key and (cache_dir / key).exists():
        return path, "cached", ""
    run = subprocess.run(["clang-tidy", "-p", str(build_dir), "--quiet", str(path)],
                         capture_output=True, text=True)
    output = run.stdout
    findings = [line for line in output.splitlines() if FINDING.match(line)]
    if run.returncode != 0 or findings:
        # clang-tidy's own complaints (a unit that does not compile) go with the findings.
        return path, "findings", output + run.stderr
    if key:
        cache_dir.mkdir(parents=True, exist_ok=True)
        (cache_dir / key).touch()
    return path, "clean", ""


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("-p", dest="build_dir", required=True, type=Path)
    parser.add_argument("-j", dest="jobs", type=int, default=os.cpu_count() or 2)
    default_cache = Path(os.environ.get("XDG_CACHE_HOME", Path.home() / ".cache")) / \
        "lcfd" / "clang-tidy"
    parser.add_argument("--cache", type=Path, default=default_cache)
    parser.add_argument("--no-cache", action="store_true")
    parser.add_argument("--dirs", nargs="+", default=list(PROJECT_DIRS))
    args = parser.parse_args()

    build_dir = args.build_dir.resolve()
    units = project_units(build_dir, args.dirs)
    if not units:
        print("run-clang-tidy: no project sources in %s/compile_commands.json" % build_dir,
              file=sys.stderr)
        return 1
    version = subprocess.run(["clang-tidy", "--version"], capture_output=True,
                             text=True).stdout
    salt = version + "\n" + config_text()
    cache_dir = None if args.no_cache else args.cache

    started = time.monotonic()
    counts = {"clean": 0, "cached": 0, "findings": 0}
    finding_lines = set()  # a header's finding comes once per unit that includes it
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
        jobs = [pool.submit(analyse, path, entry, build_dir, cache_dir, salt)
                for path, entry in sorted(units.items())]
        for job in concurrent.futures.as_completed(jobs):
            path, outcome, output = job.result()
            counts[outcome] += 1
            if outcome == "findings":
                finding_lines.update(line for line in output.splitlines() if FINDING.match(line))
                sys.stdout.write(output)
                sys.stdout.flush()
    print("run-clang-tidy: %d translation units: %d analysed clean, %d clean in the cache, "
          "%d with findings (%d findings) in %.0f s"
          % (len(units), counts["clean"], counts["cached"], counts["findings"],
             len(finding_lines), time.monotonic() - started))
    return 1 if counts["findings"] else 0


if __name__ == "__main__":
    sys.exit(main())
