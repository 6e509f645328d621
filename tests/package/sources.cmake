# Builds the static library as part of another project, runs that project's programs, and checks the static library's
# installed tree as well.
#   SOURCE_DIR, WORK_DIR
#   C_COMPILER, CXX_COMPILER, CXX_FLAGS, GENERATOR, WITH_LIBDEFLATE, WITH_HIGHWAY
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

set(compilers -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${WORK_DIR}/build -G ${GENERATOR} ${compilers}
    -DCMAKE_CXX_FLAGS=${CXX_FLAGS} -DVNDLP_SOURCE_DIR=${SOURCE_DIR} -DVNDLP_INSTALL=ON
    -DVNDLP_WITH_LIBDEFLATE=${WITH_LIBDEFLATE} -DVNDLP_WITH_HIGHWAY=${WITH_HIGHWAY}
    -DVNDLP_WITH_TRIMESH2=no)
# twice: what the first run left in the cache must not change the second
run(${CMAKE_COMMAND} ${WORK_DIR}/build)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer ${WORK_DIR}/a.vnline OUTPUT output)
expect_text("${output}" "meshes of our own")
run(${WORK_DIR}/build/c_consumer)
run(${CMAKE_COMMAND} -DBUILD_DIR=${WORK_DIR}/build/vndlp -DWORK_DIR=${WORK_DIR}/package -DSTATIC=ON
    -DC_COMPILER=${C_COMPILER} -DCXX_COMPILER=${CXX_COMPILER} -DCXX_FLAGS=${CXX_FLAGS} -DGENERATOR=${GENERATOR}
    -P ${CMAKE_CURRENT_LIST_DIR}/run.cmake)

# what cannot be meant is refused
foreach(wrong "VNDLP_WITH_HIGHWAY=maybe;it may be ON, OFF or AUTO" "VNDLP_CTB_KM=0x1FFFFFFFFF;it must fit 32 bits"
        "VNDLP_SANITIZE=adress;known are address")
  file(REMOVE_RECURSE ${WORK_DIR}/wrong)
  list(GET wrong 0 option)
  list(GET wrong 1 message)
  run_failing("${message}" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/wrong -G ${GENERATOR} ${compilers} -D${option})
endforeach()
