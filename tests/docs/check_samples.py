#!/usr/bin/env python3
"""Runs the code samples of the manual, the guides and the README with qzrun.

Every fenced block of a control program (untagged, or tagged qz or text)
carries a marker, an HTML comment on the line above it that a reader of the
rendered page does not see:

  <!-- sample: run [ARGS] [exit=N] [as=NAME] -->
                                         run the block, saved as NAME, with
                                         `qzrun ARGS NAME`; exit status N (0
                                         when not given), nothing on stderr
                                         when 0
  <!-- sample: output -->                the stdout of the run sample above,
                                         or with exit=1 its stderr: compared
  <!-- sample: stderr -->                what the run sample above writes on
                                         stderr (warnings): compared; a run
                                         that writes to stderr needs one
  <!-- sample: file NAME -->             saved as NAME for later commands
  <!-- sample: command [dir=D] [exit=N] -->
                                         first line `$ qzrun ARGS` (or
                                         `qzrun ARGS`): run in the directory of
                                         saved files (or D, from the project
                                         root); the other lines are its output
                                         (stdout, then stderr)
  <!-- sample: body [NAME=TYPE...] -->   instructions of a MAIN body: run once
                                         inside a program that declares every
                                         @NAME and ^NAME as VG, of TYPE where
                                         given, else LREAL; must run clean
  <!-- sample: fragment [why] -->        part of a program: not run, counted

A block tagged with another language (cpp, cmake, sh, csv ...) is host or
shell code: counted, not run. An untagged block without a marker fails the
test, so a new sample cannot slip in unchecked.

Usage: check_samples.py QZRUN PROJECT_DIR FILE.md...
"""
import os
import re
import shlex
import subprocess
import sys
import tempfile

MARKER = re.compile(r"^<!--\s*sample:\s*(\w+)\s*(.*?)\s*-->\s*$")
FENCE = re.compile(r"^(\s*)```\s*([\w+-]*)\s*$")
PROGRAM_TAGS = {"", "qz", "text"}


class Block:
    def __init__(self, path, line, tag, text, marker):
        self.path, self.line, self.tag, self.text, self.marker = path, line, tag, text, marker

    def where(self):
        return f"{self.path}:{self.line}"


def read_blocks(path):
    """The fenced blocks of a Markdown file, each with the marker above it."""
    lines = open(path, encoding="utf-8").read().split("\n")
    blocks, i, marker = [], 0, None
    while i < len(lines):
        m = MARKER.match(lines[i])
        if m:
            marker = (m.group(1), m.group(2))
            i += 1
            continue
        f = FENCE.match(lines[i])
        if f:
            indent, tag, start = len(f.group(1)), f.group(2), i
            body = []
            i += 1
            while i < len(lines) and not re.match(r"^\s*```\s*$", lines[i]):
                line = lines[i]
                body.append(line[indent:] if line[:indent].strip() == "" else line.lstrip())
                i += 1
            blocks.append(Block(path, start + 1, tag, "\n".join(body) + "\n", marker))
            marker = None
        elif lines[i].strip():
            marker = None  # a marker belongs to the block right below it
        i += 1
    return blocks


def options(text):
    """Splits 'ARGS key=value ...' into the arguments and the options."""
    args, opts = [], {}
    for word in shlex.split(text):
        key, sep, value = word.partition("=")
        if sep and key in ("exit", "dir", "as"):
            opts[key] = value
        else:
            args.append(word)
    return args, opts


def run(qzrun, args, cwd):
    env = dict(os.environ, LC_ALL="C")
    return subprocess.run([qzrun] + args, cwd=cwd, capture_output=True, text=True, env=env, timeout=60)


class Checker:
    def __init__(self, qzrun, root):
        self.qzrun, self.root = qzrun, root
        self.failures, self.counts = [], {}

    def count(self, kind):
        self.counts[kind] = self.counts.get(kind, 0) + 1

    def fail(self, block, message):
        self.failures.append(f"{block.where()}: {message}")

    def check_file(self, path):
        blocks = read_blocks(path)
        with tempfile.TemporaryDirectory() as work:
            pending = None  # the run sample whose output blocks may follow
            for block in blocks:
                kind, rest = block.marker or (None, "")
                if kind not in ("output", "stderr") and pending:
                    self.finish_run(pending)
                    pending = None
                if kind is None:
                    if block.tag in PROGRAM_TAGS:
                        self.fail(block, "a fenced block without a sample marker "
                                  "(<!-- sample: run|file|command|fragment|output ... --> above it)")
                    else:
                        self.count(f"{block.tag} (not a control program)")
                elif kind == "run":
                    pending = self.run_program(block, rest, work)
                elif kind in ("output", "stderr"):
                    if not pending:
                        self.fail(block, f"an {kind} block that follows no run sample")
                        continue
                    self.expect_output(pending, block, kind)
                elif kind == "file":
                    with open(os.path.join(work, rest.strip()), "w", encoding="utf-8") as out:
                        out.write(block.text)
                    self.count("files for commands")
                elif kind == "command":
                    self.run_command(block, rest, work)
                elif kind == "body":
                    self.run_body(block, rest, work)
                elif kind == "fragment":
                    self.count("fragments")
                else:
                    self.fail(block, f"unknown sample marker '{kind}'")
            if pending:
                self.finish_run(pending)

    def run_program(self, block, rest, work):
        args, opts = options(rest)
        program = os.path.join(work, opts.get("as", f"sample_{block.line}.qz"))
        with open(program, "w", encoding="utf-8") as out:
            out.write(block.text)
        self.count("programs run")
        result = run(self.qzrun, args + [os.path.basename(program)], work)
        return {"block": block, "exit": int(opts.get("exit", "0")), "result": result, "stderr_shown": False}

    def run_body(self, block, rest, work):
        types = dict(word.split("=", 1) for word in rest.split())
        code = re.sub(r"\(\*.*?\*\)", " ", block.text, flags=re.S)
        names = []
        for name in re.findall(r"[@^]([A-Za-z][A-Za-z0-9_]*)", code):
            if name.upper() not in (n.upper() for n in names):
                names.append(name)
        declarations = "".join(f"    {n} VG {types.get(n, 'LREAL')} 0\n" for n in names)
        program = os.path.join(work, f"body_{block.line}.qz")
        with open(program, "w", encoding="utf-8") as out:
            out.write(f"PROG BODY_SAMPLE\nVAR\n{declarations}MAIN\n{block.text}RET\n")
        self.count("bodies run")
        # The generated declarations draw warnings (variables never read):
        # a body must run, what qzrun remarks about its wrapper does not count.
        result = run(self.qzrun, [os.path.basename(program)], work)
        if result.returncode != 0:
            self.fail(block, f"qzrun exited {result.returncode}:\n{result.stderr}")

    def finish_run(self, pending):
        block, want, result = pending["block"], pending["exit"], pending["result"]
        if result.returncode != want:
            self.fail(block, f"qzrun exited {result.returncode}, not {want}:\n{result.stderr}")
        elif result.stderr and not pending["stderr_shown"]:
            self.fail(block, f"qzrun wrote to stderr, and the page shows none of it:\n{result.stderr}")

    def expect_output(self, pending, output, kind):
        result = pending["result"]
        # The output block of a run that fails shows its diagnostics.
        shows_stderr = kind == "stderr" or pending["exit"] != 0
        got = result.stderr if shows_stderr else result.stdout
        pending["stderr_shown"] |= shows_stderr
        if got != output.text:
            self.fail(output, f"the {kind} differs.\n--- page:\n{output.text}--- qzrun:\n{got}")

    def run_command(self, block, rest, work):
        _, opts = options(rest)
        lines = block.text.rstrip("\n").split("\n")
        command = re.sub(r"^\$\s*", "", lines[0])
        words = shlex.split(command)
        if not words or words[0] != "qzrun":
            self.fail(block, f"a command sample must start with qzrun: '{lines[0]}'")
            return
        cwd = os.path.join(self.root, opts["dir"]) if "dir" in opts else work
        result = run(self.qzrun, words[1:], cwd)
        self.count("commands run")
        want = int(opts.get("exit", "0"))
        if result.returncode != want:
            self.fail(block, f"'{command}' exited {result.returncode}, not {want}:\n{result.stderr}")
        expected = "\n".join(lines[1:])
        if expected:
            got = (result.stdout + result.stderr).rstrip("\n")
            if got != expected:
                self.fail(block, f"the output of '{command}' differs.\n--- page:\n{expected}\n--- qzrun:\n{got}")


def main(argv):
    if len(argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    checker = Checker(os.path.abspath(argv[1]), os.path.abspath(argv[2]))
    for path in argv[3:]:
        checker.check_file(path)
    for failure in checker.failures:
        print(f"FAIL {failure}\n")
    summary = ", ".join(f"{n} {kind}" for kind, n in sorted(checker.counts.items()))
    print(f"samples: {summary}")
    ran = sum(checker.counts.get(k, 0) for k in ("programs run", "commands run", "bodies run"))
    print(f"{ran} samples run, {len(checker.failures)} problems")
    return 1 if checker.failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
