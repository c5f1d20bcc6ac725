#include "help_text.h"

namespace qzrun {

extern const char kHelp[];
const char kHelp[] = R"(Usage: qzrun [OPTIONS] PROGRAM

Runs the control program in the file PROGRAM for a number of cycles, the way a
host runs it, and prints a table with a row a cycle and a column an output.
A '*' after a value marks an output the program wrote in that cycle.

Stimulus:
  --cycles N         Run N cycles (N >= 1). Default: one cycle a row of the
                     --inputs file, or 1 without one.
                       qzrun motor_latch.qz --cycles 10
  --inputs FILE      Read input values from a CSV file: a header row of input
                     names, then a row of values a cycle. The last row is held
                     when there are more cycles than rows. Values are numbers
                     or TRUE/FALSE; an empty field repeats the value above it;
                     lines starting with '#' are skipped.
                       qzrun motor_latch.qz --inputs motor_latch.inputs.csv
  --set NAME=VALUE   Give input NAME the value VALUE in every cycle, before
                     anything from --inputs. Repeat for more inputs.
                       qzrun tank_level.qz --set LEVEL=42.5 --cycles 3
                     An input that the program reads and that is given nowhere
                     reads 0; qzrun warns once for each such input.

Output:
  --csv              Print the table as CSV (header "cycle,<outputs>"), without
                     marks, ready for a spreadsheet or a diff.
                       qzrun tank_level.qz --inputs tank_level.inputs.csv --csv
  --marks            With --csv: keep the '*' marks on written values.
                       qzrun part_counter.qz --cycles 5 --csv --marks
  --stats            After the table, print the real time one cycle took:
                     minimum, median and maximum over the run (on standard
                     error with --csv).
                       qzrun pid_loop.qz --cycles 10000 --stats
  --trace            Print every executed instruction on standard error: its
                     cycle, line:column, text, and the registers A0 R0 R1 and
                     the test flag after it.
                       qzrun part_counter.qz --cycles 2 --trace

Checking:
  --check            Check the program files without running them: every
                     error running would meet (with its result code) and
                     every warning, with the source line. Exit status 1 on
                     an error, else 0. More than one file may be given.
                       qzrun --check motor_latch.qz pid_loop.qz
  --werror           With --check: warnings count as errors (exit status 1).
  -W no-ID           Silence the warning ID (e.g. -W no-unread-variable).
  --format FORMAT    With --check: text (default), json (a list) or sarif
                     (SARIF 2.1.0), the last two on standard output.
  --max-steps N      Stop a cycle that runs more than N instructions with error
                     100 (default 10000000; 0 = no limit), so that a program
                     caught in a loop ends with a message instead of hanging.
                       qzrun endless_loop.qz --max-steps 1000
  --max-stack N      Stop a PUSH beyond N values on the value stack with error
                     101 (default 1000000; 0 = no limit of its own).
  --max-depth N      Stop a CAL beyond N pending calls with error 102
                     (default 10000; 0 = no limit of its own).
  --max-memory MB    The interpreter's memory ceiling for the value stack,
                     calls and frames: error 103 beyond it (default 256).
  --max-file-size SIZE
                     Refuse a program or --inputs file larger than SIZE:
                     megabytes, or a number with K, M or G (default 64).
                       qzrun generated.qz --max-file-size 512

Test bench:
  --expect FILE      Compare every cycle with FILE, a CSV table like --csv
                     prints: "cycle", then output columns and @NAME columns
                     for program variables (watched for the comparison). An
                     empty field means "don't care"; a '*' after a value means
                     "and written by the program in this cycle". The first
                     difference is reported with its cycle, column, expected
                     and actual value and the instruction that last wrote the
                     column; exit status 1. Without --cycles, as many cycles
                     as FILE (or --inputs) has rows. Nothing is printed when
                     all agree; add --csv for the table too.
                       qzrun motor_latch.qz --inputs motor_latch.inputs.csv \
                             --expect motor_latch.expected.csv
  --update-expected  With --expect: write FILE from this run instead of
                     comparing (outputs, --watch columns and the @NAME
                     columns FILE had, with marks).
  --watch NAME,...   Add a column for each named program variable, of any kind,
                     after the outputs; its header is @NAME. "all" watches every
                     declared variable but the outputs. Repeatable.
                       qzrun part_counter.qz --cycles 5 --watch LAST_SENSOR
  --force NAME=VALUE[@FROM[-TO]]
                     Hold an input, output or internal variable at VALUE, in
                     every cycle or in cycles FROM to TO (to the end without
                     TO), as forcing on a controller: applied before the body
                     runs, after every instruction, and on the value the host
                     receives. A forced column shows '!' after its name; a
                     forced variable that is no output gets a column.
                     Repeatable.
                       qzrun motor_latch.qz --cycles 6 --force GUARD_OPEN=1@3-4

Waveforms:
  --vcd FILE         Write a Value Change Dump of the run (inputs, outputs,
                     watched variables) for a waveform viewer such as GTKWave.
                     A cycle lasts --sim-time or --period milliseconds (1 ms
                     without either).
                       qzrun traffic_light.qz --sim-time 100 --cycles 600 \
                             --set NIGHT=0 --vcd light.vcd
  --html FILE        Write one self-contained page with a timing diagram of
                     the run and its table (Chart.js is read from
                     /usr/share/javascript/chart.js and put into the page).

Debugging:
  --debug            Run under an interactive prompt, read from standard input
                     (so it can be scripted). It stops before the first
                     instruction; commands:
                       break LINE | break LABEL   stop before that instruction
                       delete [LINE|LABEL]        remove one or every breakpoint
                       step                       run one instruction
                       next                       run to the next instruction of
                                                  the same body (over calls)
                       cycle                      run to the end of the cycle
                       continue                   run to a breakpoint or the end
                       print @NAME | print R0     show a variable, a register
                                                  (A0 R0 R1) or the test flag TF
                       set @NAME VALUE            change a variable
                       stack                      value stack and pending calls
                       where                      source line, caret under the
                                                  next instruction
                       quit                       end qzrun at once
                     When standard input ends the run goes on to its end; a
                     command that fails in a script ends qzrun with status 2.
                       printf 'break EDGE\ncontinue\nprint @SENSOR\n' | \
                         qzrun part_counter.qz --cycles 3 --debug \
                               --inputs part_counter.inputs.csv

Time:
  --sim-time MS      Simulated time: the clock that TICK reads advances by MS
                     milliseconds from one cycle to the next (it reads 1000 in
                     the first cycle), so timers give the same table on every
                     run and a minute of plant time takes a moment. Without it
                     TICK reads the wall clock.
                       qzrun traffic_light.qz --sim-time 100 --cycles 600
  --period MS        Start a cycle every MS milliseconds of real time instead
                     of running the cycles back to back.
                       qzrun beacon.qz --set ENABLE=1 --period 50 --csv

Live view:
  --serve [ADDR:]PORT
                     Run the program in real time (a cycle every --period MS,
                     default 100) and serve a page that shows its source,
                     variables, trend and statistics, and lets you set inputs,
                     force variables, pause and step. Listens on 127.0.0.1
                     unless ADDR is given; PORT 0 picks a free port. Prints
                     the page's address with the token that changes need.
                       qzrun --serve 8080 motor_latch.qz

Other:
  -h, --help         Show this help.
  --version          Show the version.

Program files may use line breaks, tabs and indentation freely, and comments
(* like this *) or // to the end of the line.

The program and the --inputs file must be regular files: a directory, a
device or a FIFO is refused.

Errors are reported like a compiler's, as FILE:LINE:COLUMN: error CODE: MEANING
with the offending token, and for a failing cycle its number. The source line
is shown with a caret under the error; of a line longer than 200 characters
only the 200 around the error are shown, with '...' where it is cut.

Exit status: 0 when every cycle ran (or --check found no error), 1 when the
program failed to load, a cycle failed, --check found an error or --expect
found a difference, 2 for a
bad command line, a file that cannot be read or written or is too large, a
name or column the program does not have, or running out of memory.
)";

}  // namespace qzrun
