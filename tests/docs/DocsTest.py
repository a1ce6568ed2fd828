#!/usr/bin/env python3
"""DocsTest.py - the commands and programs in README.md and docs/ work, what they link to is there, and the tables of
docs/format.md are those of the sources.

Usage: DocsTest.py VORN SOURCE
VORN stands in its build folder, beside libvornmake.so. A block of commands is indented by four spaces, one in C is fenced. Each
page gets a folder of its own, with small scenes in the place of clips; its blocks run there in order. A comment
"<!-- not run: REASON -->" ahead of a block passes over it; with "<!-- not commands -->" it is taken for a picture of some text.
"""
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile

# Scenes are as long as a page says, but small.
WRAPPER = """#!/bin/bash
command=$1
shift
if [ "$command" = scene ]; then
    kept=()
    while [ $# -gt 0 ]; do
        if [ "$1" = --size ]; then shift; else kept+=("$1"); fi
        shift
    done
    set -- "${kept[@]}" --size 96x72
fi
exec VORN "$command" "$@"
"""
SETTING = """
vorn scene drift --frames 60 -q -o clip.y4m --sound clip.wav
vorn scene glass --frames 4 -q -o clip.bgra
vorn make clip.y4m --audio clip.wav --rate 300 -q -o clip.vrn
mkdir shots && vorn decode clip.vrn -q -o shots/%04d.png
cp clip.wav dubbed.flac
vorn scene balls --frames 5 -q --sound SOUND.wav
"""


def blocks(path):
    """(line number, kind, text) of each block that isn't marked: kind "commands" or "c"."""
    lines = open(path, encoding="utf-8").read().split("\n")
    found, at, mark = [], 0, False
    while at < len(lines):
        line, start = lines[at], at + 1
        if line.startswith("<!-- not "):
            if not re.fullmatch(r"<!-- not (run: \S.*|commands) -->", line):
                sys.exit("%s:%d: a mark without a reason" % (path, start))
            mark = True
        elif line.startswith("```"):
            end = lines.index("```", at + 1)
            if line[3:] == "c" and not mark:
                found.append((start, "c", "\n".join(lines[at + 1:end])))
            at, mark = end, False
        elif line.startswith("    ") and (at == 0 or lines[at - 1] == ""):
            end = at
            while end < len(lines) and (lines[end].startswith("    ") or
                                        lines[end] == "" and lines[end + 1:end + 2] and lines[end + 1].startswith("    ")):
                end += 1
            if not mark:
                found.append((start, "commands", "\n".join(l[4:] for l in lines[at:end])))
            at, mark = end - 1, False
        elif line:
            mark = False
        at += 1
    return found


class Place:
    """The folder of a page."""

    def __init__(self, top, name, vorn, source):
        self.folder = os.path.join(top, name)
        self.library = os.path.dirname(vorn)
        self.source = source
        for release in ("release", "one", "two"):
            bin_folder = os.path.join(self.folder, "build", release)
            os.makedirs(bin_folder)
            with open(os.path.join(bin_folder, "vorn"), "w") as file:
                file.write(WRAPPER.replace("VORN", vorn))
            os.chmod(os.path.join(bin_folder, "vorn"), 0o755)
            for library in glob.glob(os.path.join(self.library, "libvornmake*")):
                os.symlink(library, os.path.join(bin_folder, os.path.basename(library)))
        for part in ("examples", "public", "scripts"):
            os.symlink(os.path.join(source, part), os.path.join(self.folder, part))
        self.path = os.path.join(self.folder, "build", "release") + os.pathsep + os.environ["PATH"]

    def run(self, commands):
        """What went wrong, or ""."""
        done = subprocess.run(["bash", "-euo", "pipefail", "-c", commands], cwd=self.folder, stdin=subprocess.DEVNULL,
                              env=dict(os.environ, PATH=self.path), capture_output=True, text=True, errors="replace")
        return "" if done.returncode == 0 else "exit code %d: %s" % (done.returncode, done.stderr[-2000:])

    def run_commands(self, text):
        text = re.sub(r"(\S) {4,}\S.*$", r"\1", text, flags=re.M)  # a remark behind a command
        for output in re.findall(r"(?:-o|--sound|--log) (\S+)", text):
            for name in glob.glob(os.path.join(self.folder, re.sub(r"%\d*d", "*", output))):
                shutil.rmtree(name) if os.path.isdir(name) else os.unlink(name)
        return self.run(text)

    def run_c(self, text):
        with open(os.path.join(self.folder, "block.c"), "w") as file:
            file.write(text)
        return self.run("cc -std=c99 -Wall -Wextra -Werror -Ipublic block.c -L%s -Wl,-rpath,%s -lvornmake -lm -o block\n"
                        "rm -f *.vrn; ./block; for movie in *.vrn; do vorn verify -q $movie; done" %
                        (self.library, self.library))


def check_links(path):
    text = open(path, encoding="utf-8").read()
    wrong = []
    for link in re.findall(r"\]\(([^)\s]+)\)", text):
        if not link.startswith("http") and not os.path.exists(os.path.join(os.path.dirname(path), link.split("#")[0])):
            wrong.append("%s: no %s" % (path, link))
    return wrong


def check_tables(source):
    """Every row of numbers in a fenced part of docs/format.md is a row of format/."""
    numbers = lambda text: [int(n, 16 if n.startswith("0x") else 10) for n in re.findall(r"0x[0-9a-f]+|\d+", text)]
    sources = "".join(open(name).read().replace("//", " ") for name in glob.glob(os.path.join(source, "format", "*.cpp")))
    text = open(os.path.join(source, "docs", "format.md"), encoding="utf-8").read()
    known = " %s " % " ".join(map(str, numbers(sources)))
    wrong = rows = 0
    for fence in re.findall(r"```text\n(.*?)```", text, flags=re.S):
        if "=" in fence:
            continue
        for row in fence.strip().split("\n"):
            for part in re.split(r"^ *\d+: | : |      ", row):
                values = [int(n, 16) for n in part.split()] if re.search(r"\b0[0-9a-f]\b", part) else numbers(part)
                rows += len(values) > 0
                if values and " %s " % " ".join(map(str, values)) not in known:
                    print("docs/format.md: not in format/: %s" % part)
                    wrong += 1
    assert rows == 2 * 16 + 16 + 2 + 2 * 8, rows
    return wrong


def main():
    vorn, source = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    pages = [os.path.join(source, name) for name in ("README.md", "CONTRIBUTING.md")]
    pages += sorted(glob.glob(os.path.join(source, "docs", "*.md")))
    failed = count = 0
    with tempfile.TemporaryDirectory() as top:
        setting = Place(top, "setting", vorn, source)
        problem = setting.run(SETTING)
        if problem:
            sys.exit("the setting: " + problem)

        def tell(where, text, problem):
            nonlocal failed, count
            count += 1
            if problem:
                failed += 1
                print("FAILED %s\n%s\n%s\n" % (where, text, problem))

        def place_of(name):
            place = Place(top, name, vorn, source)
            shutil.copytree(os.path.join(setting.folder, "shots"), os.path.join(place.folder, "shots"))
            for file in glob.glob(os.path.join(setting.folder, "*.*")):
                shutil.copy(file, place.folder)
            return place

        for page in pages:
            for link in check_links(page):
                tell(page, link, "a link that leads nowhere")
            place = place_of(os.path.relpath(page, source).replace(os.sep, "-"))
            for line, kind, text in blocks(page):
                tell("%s:%d" % (page, line), text, place.run_c(text) if kind == "c" else place.run_commands(text))
        failed += check_tables(source)
    print("%d passed, %d failed" % (count - failed, failed))
    sys.exit(failed != 0)


if __name__ == "__main__":
    main()
