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
foreach(case "traffic_light|250|--sim-time|250" "analog_scaling|1" "pid_loop|100|--sim-time|100" "beacon|50|--sim-time|50")
  string(REPLACE "|" ";" case "${case}")
  list(POP_FRONT case name ms)
  add_test(NAME qzrun_vcd_round_trip_${name}
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
