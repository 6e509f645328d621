# Runs the examples: what each writes is verified and read by the others.
#   BIN_DIR    where they are
#   WORK_DIR   for their files; removed and made anew
include(${CMAKE_CURRENT_LIST_DIR}/../tests/support/run.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

# Writes a file, verifies it and expects lines in what is read; then damages it and expects that it is found bad.
function(check_example program file)
  run(${BIN_DIR}/${program} ${WORK_DIR}/${file} OUTPUT written)
  run(${BIN_DIR}/verify_file ${WORK_DIR}/${file} OUTPUT output)
  expect_text("${output}" "ok\n")
  run(${BIN_DIR}/read_file ${WORK_DIR}/${file} OUTPUT output)
  foreach(line IN LISTS ARGN)
    expect_text("${written}${output}" "${line}")
  endforeach()
  file(SIZE ${WORK_DIR}/${file} size)
  math(EXPR half "${size} / 2")
  run(dd if=${WORK_DIR}/${file} of=${WORK_DIR}/cut-${file} bs=${half} count=1 status=none)
  run_failing("bad: " ${BIN_DIR}/verify_file ${WORK_DIR}/cut-${file})
endfunction()

check_example(write_vndlp disc.vndlp "VNKT3DV2, 50 layers of 1440 x 2560, 0.05 mm thick")
check_example(write_parallel square.ctb "CTB, 40 layers of 1440 x 2560" "layer 39: top at 2.000 mm, 960400 lit pixels")
check_example(write_parallel square.vndlpv4 "V4, 40 layers of 1440 x 2560"
              "layer 39: top at 2.000 mm, 960400 lit pixels")
check_example(write_line cone.vnline "VNLINEV2, 60 layers of 1440 x 2560, 0.05 mm thick"
              "layer 0: 1250.362 mm2, 0 runs, 0 polylines, 90 vertices")
check_example(write_beads bar.vndlpv4 "V4, 3 layers of 15120 x 6230" "layer 0: top at 0.050 mm, 4000000 lit pixels"
              "layer at 0.15 mm lights ")
