# Tests of qzrun as a test bench: --expect, --update-expected, --watch,
# --force, --vcd, --html and --debug, each run as a user runs it, wrong uses
# included. Included from examples/CMakeLists.txt.
set(bench_dir ${CMAKE_CURRENT_SOURCE_DIR}/tests/bench)
# Debian's interpreter, which has Debian's python3-selenium.
find_program(QZ_SYSTEM_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)

# ---- --expect ----
qz_runner_test(qzrun_expect_reports_first_difference
  ARGS "motor_latch.qz|--inputs|motor_latch.inputs.csv|--expect|tests/bench/motor_latch.wrong.csv"
  -DEXPECT_EXIT=1 -DEXPECT_EMPTY_STDOUT=1
  "-DEXPECT_STDERR=^tests/bench/motor_latch.wrong.csv:6: error: cycle 4, column MOTOR: expected 0\\*, got 1\\*\nmotor_latch.qz:36:5: note: MOTOR was last written here, in cycle 4\n   36 . +MOV +R1 +@MOTOR\n      . +\\^~+\n$")
qz_runner_test(qzrun_expect_dont_care_and_written
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--expect|tests/bench/part_counter.partial.csv"
  -DEXPECT_EMPTY_STDOUT=1 -DEXPECT_EMPTY_STDERR=1)
qz_runner_test(qzrun_expect_demands_written
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--expect|tests/bench/part_counter.unwritten.csv"
  -DEXPECT_EXIT=1
  "-DEXPECT_STDERR=^tests/bench/part_counter.unwritten.csv:4: error: cycle 3, column COUNT: expected 1\\*, got 1 \\(not written in this cycle\\)\npart_counter.qz:39:5: note: COUNT was last written here, in cycle 2\n")
qz_runner_test(qzrun_expect_with_csv_prints_the_table
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--expect|tests/bench/part_counter.partial.csv|--csv"
  "-DEXPECT_STDOUT_REGEX=^cycle,COUNT,BOX_FULL\n1,0,0\n2,1,0\n3,1,0\n" -DEXPECT_EMPTY_STDERR=1)
qz_runner_test(qzrun_expect_unknown_column
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--expect|tests/bench/part_counter.unknown_column.csv"
  -DEXPECT_EXIT=2 -DEXPECT_EMPTY_STDOUT=1
  "-DEXPECT_STDERR=^qzrun: error: tests/bench/part_counter.unknown_column.csv: column 'BOX_FUL' is no output \\(write @NAME for a variable that is no output\\) of the program\n$")
qz_runner_test(qzrun_expect_no_cycle_column
  ARGS "part_counter.qz|--expect|tests/bench/part_counter.no_cycle.csv"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: tests/bench/part_counter.no_cycle.csv:1: the first column must be 'cycle'\n$")
qz_runner_test(qzrun_expect_bad_value
  ARGS "part_counter.qz|--expect|tests/bench/part_counter.bad_value.csv"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: tests/bench/part_counter.bad_value.csv:2: 'zero' for COUNT is not a value")
qz_runner_test(qzrun_expect_more_cycles_than_run
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--cycles|3|--expect|tests/bench/part_counter.too_long.csv"
  -DEXPECT_EXIT=1 "-DEXPECT_STDERR=^tests/bench/part_counter.too_long.csv:3: error: the file expects cycle 50, but the run ended after cycle 3\n$")
qz_runner_test(qzrun_expect_missing_file
  ARGS "part_counter.qz|--expect|no_such.csv"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: cannot read 'no_such.csv': No such file or directory\n$")
qz_runner_test(qzrun_update_expected_needs_expect
  ARGS "part_counter.qz|--update-expected"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: --update-expected needs --expect FILE")
# Writing the file from a run gives back the example's own expected table.
qz_runner_test(qzrun_update_expected_writes_the_table WORKDIR ${CMAKE_CURRENT_BINARY_DIR}
  ARGS "${QZ_EXAMPLES_DIR}/traffic_light.qz|--sim-time|250|--inputs|${QZ_EXAMPLES_DIR}/traffic_light.inputs.csv|--expect|written.expected.csv|--update-expected"
  -DOUTPUT_FILE=written.expected.csv -DOUTPUT_EQUALS=${QZ_EXAMPLES_DIR}/traffic_light.expected.csv
  -DEXPECT_EMPTY_STDOUT=1 -DEXPECT_EMPTY_STDERR=1)

# ---- --vcd ----
# The dump read back by a VCD reader of the test's own agrees with the table
# and the inputs file, value for value.
# Each case: test name, program, cycle time in ms, more options.
foreach(case "traffic_light|traffic_light|250|--sim-time|250" "analog_scaling|analog_scaling|1"
             "pid_loop|pid_loop|100|--sim-time|100" "beacon|beacon|50|--sim-time|50"
             "watched_integers|traffic_light|250|--sim-time|250|--watch|STATE,NOW,ELAPSED"
             "watched_reals|pid_loop|1000|--sim-time|1000|--watch|all")
  string(REPLACE "|" ";" case "${case}")
  list(POP_FRONT case test name ms)
  add_test(NAME qzrun_vcd_round_trip_${test}
    COMMAND ${QZ_SYSTEM_PYTHON} ${bench_dir}/vcd_roundtrip.py $<TARGET_FILE:qzrun> ${QZ_EXAMPLES_DIR} ${ms}
            -- ${name}.qz --inputs ${name}.inputs.csv ${case})
endforeach()
qz_runner_test(qzrun_vcd_unwritable
  ARGS "part_counter.qz|--vcd|/nonexistent/dir/run.vcd"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=qzrun: error: cannot write '/nonexistent/dir/run.vcd'\n$")

# ---- --html ----
add_test(NAME qzrun_html_page_in_browser
  COMMAND ${QZ_SYSTEM_PYTHON} ${bench_dir}/html_page.py $<TARGET_FILE:qzrun> ${QZ_EXAMPLES_DIR}
          -- traffic_light.qz --sim-time 250 --inputs traffic_light.inputs.csv)
add_test(NAME qzrun_html_page_with_reals_in_browser
  COMMAND ${QZ_SYSTEM_PYTHON} ${bench_dir}/html_page.py $<TARGET_FILE:qzrun> ${QZ_EXAMPLES_DIR}
          -- analog_scaling.qz --inputs analog_scaling.inputs.csv)
set_tests_properties(qzrun_html_page_in_browser qzrun_html_page_with_reals_in_browser PROPERTIES TIMEOUT 120)
qz_runner_test(qzrun_html_needs_chart_library
  ARGS "part_counter.qz|--html|page.html"
  -DEXPECT_EXIT=2 -DEXPECT_EMPTY_STDOUT=1
  "-DEXPECT_STDERR=^qzrun: error: --html needs Chart.js: cannot read '/nonexistent/chart.min.js': No such file or directory \\(install the Debian package libjs-chart.js\\)\n$")
set_tests_properties(qzrun_html_needs_chart_library PROPERTIES ENVIRONMENT QZRUN_CHART_JS=/nonexistent/chart.min.js)
qz_runner_test(qzrun_expect_unknown_variable
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--expect|tests/bench/part_counter.unknown_variable.csv"
  -DEXPECT_EXIT=2 -DEXPECT_EMPTY_STDOUT=1
  "-DEXPECT_STDERR=^qzrun: error: tests/bench/part_counter.unknown_variable.csv: column @LAST_SENSR: the program has no variable 'LAST_SENSR'\n$")
# An @NAME column watches the variable for the comparison.
qz_runner_test(qzrun_expect_watched_variable
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--cycles|6|--expect|tests/bench/part_counter.watched.csv"
  -DEXPECT_EXIT=1 -DEXPECT_EMPTY_STDOUT=1
  "-DEXPECT_STDERR=^tests/bench/part_counter.watched.csv:5: error: cycle 4, column @LAST_SENSOR: expected 0, got 1 \\(not written in this cycle\\)\npart_counter.qz:44:5: note: LAST_SENSOR was last written here, in cycle 4\n")

# ---- --watch ----
qz_runner_test(qzrun_watch_columns
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--watch|LAST_SENSOR,PRESET|--cycles|6"
  -DEXPECT_STDOUT=${bench_dir}/part_counter.watch.expected.txt -DEXPECT_EMPTY_STDERR=1)
qz_runner_test(qzrun_watch_all
  ARGS "traffic_light.qz|--sim-time|250|--inputs|traffic_light.inputs.csv|--cycles|4|--watch|all|--csv"
  -DEXPECT_STDOUT=${bench_dir}/traffic_light.watch_all.expected.csv -DEXPECT_EMPTY_STDERR=1)
qz_runner_test(qzrun_watch_unknown_variable
  ARGS "part_counter.qz|--watch|PRESET,NOPE"
  -DEXPECT_EXIT=2 -DEXPECT_EMPTY_STDOUT=1
  "-DEXPECT_STDERR=^qzrun: error: --watch NOPE: the program has no variable 'NOPE'\n$")

# ---- --force ----
# OVERLOAD held at 1 in cycles 5 to 7 whatever the inputs file says: the
# motor drops out and the fault lamp lights; the input gets a column.
qz_runner_test(qzrun_force_input_for_some_cycles
  ARGS "motor_latch.qz|--inputs|motor_latch.inputs.csv|--force|OVERLOAD=1@5-7"
  -DEXPECT_STDOUT=${bench_dir}/motor_latch.force_input.expected.txt -DEXPECT_EMPTY_STDERR=1)
# MOTOR held at 1 through the STOP in cycle 5: the program's seal-in reads the
# forced value and keeps the motor on after the force ends, until the overload.
qz_runner_test(qzrun_force_output
  ARGS "motor_latch.qz|--inputs|motor_latch.inputs.csv|--force|MOTOR=1@5-6|--cycles|9"
  -DEXPECT_STDOUT=${bench_dir}/motor_latch.force_output.expected.txt -DEXPECT_EMPTY_STDERR=1)
# PRESET, a V variable reset every cycle, held at 2: the box is full at two.
qz_runner_test(qzrun_force_internal_variable
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--force|PRESET=2|--cycles|6"
  -DEXPECT_STDOUT=${bench_dir}/part_counter.force_internal.expected.txt -DEXPECT_EMPTY_STDERR=1)
qz_runner_test(qzrun_force_unknown_variable
  ARGS "part_counter.qz|--force|PRESETT=2"
  -DEXPECT_EXIT=2 -DEXPECT_EMPTY_STDOUT=1
  "-DEXPECT_STDERR=^qzrun: error: --force PRESETT=2: the program has no variable 'PRESETT'\n$")
qz_runner_test(qzrun_force_bad_range
  ARGS "part_counter.qz|--force|PRESET=2@5-3"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: --force PRESET=2@5-3: the range ends before it starts\n")
qz_runner_test(qzrun_force_bad_value
  ARGS "part_counter.qz|--force|PRESET=two"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: --force PRESET=two: 'two' is not a number\n")

# ---- --debug ----
# Scripted sessions: breakpoints by label and line, step, next over a CAL,
# step into it, cycle, continue, print, set, stack, where, delete, quit.
qz_runner_test(qzrun_debug_breakpoints_and_steps
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--cycles|4|--debug"
  -DINPUT_FILE=${bench_dir}/part_counter.debug.txt
  -DEXPECT_STDOUT=${bench_dir}/part_counter.debug.expected.txt -DEXPECT_EMPTY_STDERR=1)
qz_runner_test(qzrun_debug_calls_and_stack
  ARGS "analog_scaling.qz|--inputs|analog_scaling.inputs.csv|--debug"
  -DINPUT_FILE=${bench_dir}/analog_scaling.debug.txt
  -DEXPECT_STDOUT=${bench_dir}/analog_scaling.debug.expected.txt -DEXPECT_EMPTY_STDERR=1)
qz_runner_test(qzrun_debug_with_sim_time
  ARGS "traffic_light.qz|--inputs|traffic_light.inputs.csv|--sim-time|250|--cycles|3|--debug"
  -DINPUT_FILE=${bench_dir}/traffic_light.debug.txt
  -DEXPECT_STDOUT=${bench_dir}/traffic_light.debug.expected.txt -DEXPECT_EMPTY_STDERR=1)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/break_28.txt "break 28\ncontinue\n")
qz_runner_test(qzrun_debug_breakpoint_on_line_without_instruction
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--debug"
  -DINPUT_FILE=${CMAKE_CURRENT_BINARY_DIR}/break_28.txt
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: debug: error: line 28 of part_counter.qz has no instruction\n$")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/break_label.txt "break NOWHERE\n")
qz_runner_test(qzrun_debug_unknown_label
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--debug"
  -DINPUT_FILE=${CMAKE_CURRENT_BINARY_DIR}/break_label.txt
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: debug: error: no label 'NOWHERE' before an instruction\n$")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/unknown_command.txt "jump 3\n")
qz_runner_test(qzrun_debug_unknown_command
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--debug"
  -DINPUT_FILE=${CMAKE_CURRENT_BINARY_DIR}/unknown_command.txt
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: debug: error: unknown command 'jump' \\('help' lists the commands\\)\n$")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/print_local.txt "break 46\ncontinue\nprint @PT101\n")
qz_runner_test(qzrun_debug_unknown_variable_in_subprogram
  ARGS "analog_scaling.qz|--inputs|analog_scaling.inputs.csv|--debug"
  -DINPUT_FILE=${CMAKE_CURRENT_BINARY_DIR}/print_local.txt
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: debug: error: no variable 'PT101' here \\(a subprogram sees only its own locals\\)\n$")
qz_runner_test(qzrun_debug_takes_no_period
  ARGS "part_counter.qz|--debug|--period|10"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: --debug runs cycles when told to; it takes no --period\n")

# ---- The command line, read by QCommandLineParser, in qzrun's words ----
qz_runner_test(qzrun_usage_missing_value ARGS "motor_latch.qz|--cycles"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: --cycles needs a value\n")
qz_runner_test(qzrun_usage_switch_with_value ARGS "--csv=1|motor_latch.qz"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: --csv takes no value\n")
qz_runner_test(qzrun_usage_two_programs ARGS "motor_latch.qz|beacon.qz"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: more than one program file: 'beacon.qz'\n")
qz_runner_test(qzrun_usage_value_after_equals ARGS "--cycles=2|--set=START=1|--set|STOP=0|--set|OVERLOAD=0|--set|GUARD_OPEN=0|motor_latch.qz|--csv"
  "-DEXPECT_STDOUT_REGEX=^cycle,MOTOR,FAULT\n1,1,0\n2,1,0\n$" -DEXPECT_EMPTY_STDERR=1)
# At a terminal: the prompt shows, and a mistake gets a message, not the end.
add_test(NAME qzrun_debug_at_a_terminal
  COMMAND ${QZ_SYSTEM_PYTHON} ${bench_dir}/debug_terminal.py $<TARGET_FILE:qzrun> ${QZ_EXAMPLES_DIR})
set_tests_properties(qzrun_debug_at_a_terminal PROPERTIES TIMEOUT 120)
qz_runner_test(qzrun_usage_unknown_single_dash_word ARGS "-cycle|3|motor_latch.qz"
  -DEXPECT_EXIT=2 "-DEXPECT_STDERR=^qzrun: error: unknown option '-cycle'\n")
# Updating a file keeps its @NAME columns: the variables are watched again.
qz_runner_test(qzrun_update_expected_keeps_watched_columns WORKDIR ${CMAKE_CURRENT_BINARY_DIR}
  ARGS "${QZ_EXAMPLES_DIR}/part_counter.qz|--inputs|${QZ_EXAMPLES_DIR}/part_counter.inputs.csv|--expect|updated.expected.csv|--update-expected"
  -DOUTPUT_FILE=updated.expected.csv -DSEED_OUTPUT_FILE=${bench_dir}/part_counter.watched.csv
  -DOUTPUT_EQUALS=${bench_dir}/part_counter.watched.expected.csv -DEXPECT_EMPTY_STDOUT=1 -DEXPECT_EMPTY_STDERR=1)
# COUNT held at 3 in cycles 2 and 3: the mark stays the program's (written in
# cycle 2, on the edge; not in cycle 3), and counting goes on from 3.
qz_runner_test(qzrun_force_keeps_written_marks
  ARGS "part_counter.qz|--inputs|part_counter.inputs.csv|--force|COUNT=3@2-3|--cycles|5"
  -DEXPECT_STDOUT=${bench_dir}/part_counter.force_marks.expected.txt -DEXPECT_EMPTY_STDERR=1)
