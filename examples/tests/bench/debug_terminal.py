#!/usr/bin/env python3
"""Drives qzrun --debug on a terminal, as a person at the keyboard would: the
prompt shows, a mistake gets a message and the prompt again (instead of
ending the run as it does in a script), and the run finishes normally.

usage: debug_terminal.py QZRUN WORKDIR
"""
import os
import pty
import select
import sys


def main():
    qzrun, workdir = os.path.abspath(sys.argv[1]), sys.argv[2]
    pid, fd = pty.fork()
    if pid == 0:
        os.chdir(workdir)
        os.execv(qzrun, [qzrun, "part_counter.qz", "--inputs", "part_counter.inputs.csv", "--cycles", "2", "--debug"])

    seen = b""

    def read_until(text):
        nonlocal seen
        while text.encode() not in seen:
            ready, _, _ = select.select([fd], [], [], 60)  # a guard against a hang, not a measurement
            assert ready, f"no {text!r} from qzrun; it wrote {seen.decode(errors='replace')!r}"
            try:
                chunk = os.read(fd, 4096)
            except OSError:
                chunk = b""
            assert chunk, f"qzrun ended before {text!r}; it wrote {seen.decode(errors='replace')!r}"
            seen += chunk
        before, _, seen = seen.partition(text.encode())
        return before.decode()

    def command(line):
        os.write(fd, (line + "\n").encode())
        return read_until("(qzrun) ")

    first = read_until("(qzrun) ")
    assert "at part_counter.qz:21:5, cycle 1: MOV @RESET R0" in first, first
    answer = command("break 28")
    assert "line 28 of part_counter.qz has no instruction" in answer, answer
    answer = command("break EDGE")
    assert "breakpoint at line 30" in answer, answer
    answer = command("continue")
    assert "breakpoint at part_counter.qz:30:5, cycle 1" in answer, answer
    answer = command("print @NOPE")
    assert "no variable 'NOPE' here" in answer, answer
    answer = command("print @LAST_SENSOR")
    assert "@LAST_SENSOR = 0 : BOOL" in answer, answer
    os.write(fd, b"delete\ncontinue\n")
    rest = b""
    while True:
        ready, _, _ = select.select([fd], [], [], 60)
        assert ready, "qzrun did not finish"
        try:
            chunk = os.read(fd, 4096)
        except OSError:
            break
        if not chunk:
            break
        rest += chunk
    _, status = os.waitpid(pid, 0)
    assert os.WIFEXITED(status) and os.WEXITSTATUS(status) == 0, f"exit status {status}"
    assert b"cycle  COUNT   BOX_FULL" in rest, rest
    print("prompt, messages and the end of the run as expected")


if __name__ == "__main__":
    main()
