"""Measures ifs beside what one would use instead and beside the least that the work can cost."""

import argparse
import os
import subprocess
import sys

from bench import counts, machine, measure, report


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__, epilog="Figures and picture also go to "
                                     "build/bench/results.json and build/bench/benchmarks.svg.")
    parser.add_argument("--rounds", type=int, default=5, metavar="N", help="samples of each figure, at least 5 (default 5)")
    mode = parser.add_mutually_exclusive_group()
    mode.add_argument("--check", action="store_true",
                      help="only count what does not depend on the machine's speed, and compare it with bench/baseline.json")
    mode.add_argument("--update", action="store_true", help="count the same and write bench/baseline.json")
    mode.add_argument("--publish", action="store_true", help="put the figures and the picture into docs/, and headlines into README.md, too")
    mode.add_argument("--target", action="store_true", help="count on the camera's processor, in a virtual machine")
    options = parser.parse_args()
    if options.rounds < 5:
        parser.error("fewer than 5 rounds say nothing: give --rounds 5 or more")
    return options


def check():
    lost = counts.check(counts.count())
    if lost:
        print(f"{lost} lost by more than a fifth: mend it, or accept it with scripts/bench --update")
    return 1 if lost else 0


def full(options):
    figures, counted = measure.measure(options.rounds)
    title = report.header(options.rounds)
    results = report.evaluate(figures)
    curves = report.growth_curves(figures)
    growths = report.growths(curves, counted)
    print(f"{title}\n\n{report.table(results)}\n\n{report.growth_table(growths)}")
    picture = os.path.join(machine.WORK, "benchmarks.svg")
    report.draw(picture, title, results, curves)
    report.write_json(os.path.join(machine.WORK, "results.json"), title, results, curves, growths, counted)
    if options.publish:
        report.publish(title, results)
        report.draw(report.PICTURE, title, results, curves)
    return 0


def main():
    options = arguments()
    if options.target:
        machine.run([os.path.join(machine.ROOT, "scripts/setup"), "vm"])
        return subprocess.run([sys.executable, "-m", "bench.target"], cwd=machine.ROOT, check=False).returncode
    machine.build()
    machine.make_media()
    if options.check:
        return check()
    if options.update:
        counts.update(counts.count())
        return 0
    return full(options)


try:
    sys.exit(main())
except machine.Failure as failure:
    sys.exit(f"scripts/bench: {failure}")
except KeyboardInterrupt:
    sys.exit("scripts/bench: interrupted")
