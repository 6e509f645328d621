# Builds the library a second time, against a library shaped like trimesh2, and checks that the tests of the line format
# pass there too, that programs compiled with one choice do not link against the other, and that the choice reaches
# whoever uses the installed tree.
#   SOURCE_DIR, WORK_DIR
#   BUILD_DIR       the build this test belongs to, made without trimesh2
#   LIBRARY         that build's libvndlp
#   C_COMPILER, CXX_COMPILER, CXX_FLAGS, GENERATOR, WITH_LIBDEFLATE
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

set(common -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_CXX_FLAGS=${CXX_FLAGS} -DCMAKE_BUILD_TYPE=)
set(root ${WORK_DIR}/trimesh2)
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/trimesh2 -B ${WORK_DIR}/trimesh2-build ${common}
    -DCMAKE_INSTALL_PREFIX=${root})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/trimesh2-build --target install)

# the library and the tests of the line format
set(build ${WORK_DIR}/build)
set(configure ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${build} ${common} -DVNDLP_BUILD_TOOLS=OFF -DVNDLP_BUILD_TESTS=ON
              -DVNDLP_WITH_LIBDEFLATE=${WITH_LIBDEFLATE} -DVNDLP_TRIMESH2_ROOT=${root} -DCMAKE_INSTALL_PREFIX=/usr/local)
run(${configure} -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_INSTALL_INCLUDEDIR=include)
set(tests line_wrappers_test golden_test)
run(${CMAKE_COMMAND} --build ${build} --target vndlp ${tests})
foreach(test IN LISTS tests)
  run(${build}/tests/${test} --gtest_brief=1)
endforeach()

# a program and a library of different choices
separate_arguments(flags UNIX_COMMAND "${CXX_FLAGS}")
set(program ${SOURCE_DIR}/tests/package/consumer.cpp)
set(with ${CXX_COMPILER} ${flags} -std=c++17 -I${SOURCE_DIR}/include -DVNDLP_WITH_TRIMESH2 -I${root}/include/trimesh
         -c ${program} -o ${WORK_DIR}/with.o)
set(without ${CXX_COMPILER} ${flags} -std=c++17 -I${SOURCE_DIR}/include -c ${program} -o ${WORK_DIR}/without.o)
run(${with})
run(${without})
get_filename_component(library_dir ${LIBRARY} DIRECTORY)
set(link ${CXX_COMPILER} ${flags} -o ${WORK_DIR}/mixed)
set(against_trimesh2 -L${build} -lvndlp -Wl,-rpath,${build} ${root}/lib/libtrimesh.a)
set(against_own ${LIBRARY} -Wl,-rpath,${library_dir} ${root}/lib/libtrimesh.a)
run(${link} ${WORK_DIR}/with.o ${against_trimesh2})
run(${link} ${WORK_DIR}/without.o ${against_own})
run_failing(vndlp_built_with_trimesh2 ${link} ${WORK_DIR}/with.o ${against_own})
run_failing(vndlp_built_without_trimesh2 ${link} ${WORK_DIR}/without.o ${against_trimesh2})
# also where the linker drops what nothing refers to
list(APPEND flags -ffunction-sections -fdata-sections)
list(APPEND with -O2 -ffunction-sections -fdata-sections)
run(${with})
run_failing(vndlp_built_with_trimesh2 ${link} -Wl,--gc-sections ${WORK_DIR}/with.o ${against_own})

# the installed tree
set(package ${CMAKE_COMMAND} -DBUILD_DIR=${build} -DWITH_TRIMESH2=ON -DC_COMPILER=${C_COMPILER}
            -DCXX_COMPILER=${CXX_COMPILER} -DCXX_FLAGS=${CXX_FLAGS} -DGENERATOR=${GENERATOR})
set(script -P ${SOURCE_DIR}/tests/package/run.cmake)
run(${package} -DWORK_DIR=${WORK_DIR}/package ${script})
# an absolute directory for headers must not lie in the source tree, where the build directory may be
set(temporary /tmp)
if(DEFINED ENV{TMPDIR})
  set(temporary $ENV{TMPDIR})
endif()
string(RANDOM LENGTH 12 name)
set(absolute ${temporary}/vndlp-test-${name})
run(${configure} -DCMAKE_INSTALL_LIBDIR=${absolute}/libraries -DCMAKE_INSTALL_INCLUDEDIR=${absolute}/headers)
run(${CMAKE_COMMAND} --build ${build} --target vndlp)
run(${package} -DWORK_DIR=${WORK_DIR}/package-absolute -DABSOLUTE_DIR=${absolute} ${script})
file(REMOVE_RECURSE ${absolute})

# the other place a header may be installed at, a header that is another, and none
file(REMOVE_RECURSE ${WORK_DIR}/flat ${WORK_DIR}/other)
file(COPY ${root}/include/trimesh/TriMesh.h DESTINATION ${WORK_DIR}/flat/include)
file(WRITE ${WORK_DIR}/other/include/TriMesh.h "class TriMesh {};\n")
set(configure ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/configure ${common} -DVNDLP_BUILD_TOOLS=OFF
              -DVNDLP_BUILD_TESTS=OFF)
run(${configure} -DVNDLP_TRIMESH2_ROOT=${WORK_DIR}/flat OUTPUT output)
string(FIND "${output}" "Meshes are those of trimesh2: ${WORK_DIR}/flat/include" at)
if(at LESS 0)
  message(FATAL_ERROR "the header in ${WORK_DIR}/flat/include was not taken:\n${output}")
endif()
run_failing("no usable TriMesh.h" ${configure} -DVNDLP_TRIMESH2_ROOT=${WORK_DIR}/other)
run_failing("trimesh2 was not found" ${configure} -DVNDLP_TRIMESH2_ROOT= -DVNDLP_WITH_TRIMESH2=ON)
