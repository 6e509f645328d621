# Installs a build, moves the tree, holds its files against files.txt, and builds and runs programs against it through
# find_package and pkg-config.
#   BUILD_DIR       the build to install
#   WORK_DIR        removed and made anew
#   WITH_TRIMESH2   whether the build took its mesh type from trimesh2
#   STATIC          whether the library is static
#   ABSOLUTE_DIR    set when CMAKE_INSTALL_*DIR of the build are absolute, below this directory: nothing is moved then
#   TOOLS           whether the program is installed too; then, and with PYTHON, the list of files is compared
#   PYTHON          whether the Python package is installed too
#   PYTHON_DIR      where, below the prefix
#   VERSION         of the library
#   UPDATE          set to write files.txt anew
#   C_COMPILER, CXX_COMPILER, CXX_FLAGS, GENERATOR
include(${CMAKE_CURRENT_LIST_DIR}/../support/run.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
set(components library dev)
if(TOOLS)
  list(APPEND components tools)
endif()
if(PYTHON)
  list(APPEND components python)
endif()
foreach(component IN LISTS components)
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --component ${component} --prefix ${WORK_DIR}/first)
endforeach()
if(ABSOLUTE_DIR)
  set(tree ${ABSOLUTE_DIR})
  file(GLOB_RECURSE config ${tree}/*/vndlp-config.cmake)
  get_filename_component(config_dir ${config} DIRECTORY)
  set(where -Dvndlp_DIR=${config_dir})
else()
  set(tree ${WORK_DIR}/moved)
  file(RENAME ${WORK_DIR}/first ${tree})
  set(where -DCMAKE_PREFIX_PATH=${tree})
endif()
file(GLOB_RECURSE pc ${tree}/*/vndlp.pc)
get_filename_component(pc_dir ${pc} DIRECTORY)
get_filename_component(lib_dir ${pc_dir} DIRECTORY)

if(TOOLS AND PYTHON AND NOT STATIC AND NOT WITH_TRIMESH2)
  file(GLOB_RECURSE files RELATIVE ${tree} ${tree}/*)
  file(RELATIVE_PATH lib ${tree} ${lib_dir})
  list(TRANSFORM files REPLACE "^${PYTHON_DIR}/" "PYTHONDIR/")
  list(TRANSFORM files REPLACE "^${lib}/" "LIBDIR/")
  list(TRANSFORM files REPLACE "so\\.${VERSION}$" "so.VERSION")
  list(TRANSFORM files REPLACE "vndlp-targets-[a-z]+" "vndlp-targets-BUILD")
  list(SORT files)
  compare_list(${CMAKE_CURRENT_LIST_DIR}/../../packaging/expected/files.txt "${files}")
  run(${tree}/bin/vndlp --version OUTPUT output)
  expect_text("${output}" "vndlp ${VERSION}")
  file(READ ${CMAKE_CURRENT_LIST_DIR}/../../packaging/vcpkg/vndlp/vcpkg.json port)
  expect_text("${port}" "\"version\": \"${VERSION}\"")
endif()

# the Python package finds the library beside it
if(PYTHON)
  find_program(PYTHON3 NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
  execute_process(COMMAND ${PYTHON3} -c "import cffi, numpy" RESULT_VARIABLE missing OUTPUT_QUIET ERROR_QUIET)
  if(missing EQUAL 0)
    run(${CMAKE_COMMAND} -E env --unset=VNDLP_LIBRARY PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=${tree}/${PYTHON_DIR}
        ${PYTHON3} -c "import vndlp; print('Python', vndlp.__version__)" OUTPUT output)
    expect_text("${output}" "Python ${VERSION}")
  endif()
endif()

# nothing remembers where it was built, and only the mesh header in use is there
file(GLOB_RECURSE texts ${tree}/*.h ${tree}/*.cmake ${tree}/*.pc)
get_filename_component(source_dir ${CMAKE_CURRENT_LIST_DIR}/../.. ABSOLUTE)
foreach(path IN LISTS texts)
  file(READ ${path} text)
  foreach(place ${BUILD_DIR}/ ${source_dir}/include ${WORK_DIR}/first)
    string(FIND "${text}" "${place}" at)
    if(NOT at LESS 0)
      message(FATAL_ERROR "${path} names ${place}")
    endif()
  endforeach()
endforeach()
file(GLOB_RECURSE compat ${tree}/*/trimesh_compat.h)
list(LENGTH compat compat_count)
if(WITH_TRIMESH2)
  set(expected "meshes of trimesh2")
  set(expected_compat_count 0)
else()
  set(expected "meshes of our own")
  set(expected_compat_count 1)
endif()
if(NOT compat_count EQUAL expected_compat_count)
  message(FATAL_ERROR "trimesh_compat.h is installed ${compat_count} times, expected ${expected_compat_count}")
endif()

# find_package
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${WORK_DIR}/find_package -G ${GENERATOR}
    -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_CXX_FLAGS=${CXX_FLAGS}
    -DCMAKE_C_FLAGS=${CXX_FLAGS} ${where})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/find_package)
run(${WORK_DIR}/find_package/consumer ${WORK_DIR}/a.vnline OUTPUT output)
expect_text("${output}" "${expected}")
run(${WORK_DIR}/find_package/c_consumer)
file(MAKE_DIRECTORY ${WORK_DIR}/files)
run(${WORK_DIR}/find_package/c_interface ${WORK_DIR}/files)

# versions and components that there are, and those there are not
file(WRITE ${WORK_DIR}/wish/CMakeLists.txt "cmake_minimum_required(VERSION 3.21)
project(wish LANGUAGES CXX)
separate_arguments(wish UNIX_COMMAND \"\${WISH}\")
find_package(vndlp \${wish} REQUIRED)
")
set(wish ${CMAKE_COMMAND} -S ${WORK_DIR}/wish -B ${WORK_DIR}/wish/build -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
         ${where})
foreach(version 0.1 0.1.0 "0.1.0 EXACT" 0.1...0.3 0.0.1...<0.2)
  run(${wish} "-DWISH=${version}")
endforeach()
foreach(version 0.1.99 0.2 1.0 0.2...0.3 0.0.1...<0.1)
  run_failing("version" ${wish} -DWISH=${version})
endforeach()
run_failing("vndlp has no components" ${wish} "-DWISH=COMPONENTS viewer")

# pkg-config
find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
set(query --cflags --libs vndlp)
if(STATIC)
  list(APPEND query --static)
endif()
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} ${PKG_CONFIG} ${query} OUTPUT flags)
separate_arguments(flags UNIX_COMMAND "${flags} -Wl,-rpath,${lib_dir}")
separate_arguments(own_flags UNIX_COMMAND "${CXX_FLAGS}")
run(${CXX_COMPILER} ${own_flags} -std=c++17 ${CMAKE_CURRENT_LIST_DIR}/consumer.cpp -o ${WORK_DIR}/consumer ${flags})
run(${WORK_DIR}/consumer ${WORK_DIR}/a.vnline OUTPUT output)
expect_text("${output}" "${expected}")
# another mode of the standard library, another standard
if(NOT CXX_FLAGS MATCHES "-D_GLIBCXX_DEBUG")
  run_failing(vndlp_built_with_debug_standard_library ${CXX_COMPILER} ${own_flags} -std=c++17 -D_GLIBCXX_DEBUG
              ${CMAKE_CURRENT_LIST_DIR}/consumer.cpp -o ${WORK_DIR}/debug_consumer ${flags})
endif()
run_failing("need C++17 or newer" ${CXX_COMPILER} -std=c++14 -fsyntax-only ${CMAKE_CURRENT_LIST_DIR}/consumer.cpp ${flags})
if(NOT CXX_FLAGS MATCHES "-fsanitize")
  run(${C_COMPILER} -std=c99 ${CMAKE_CURRENT_LIST_DIR}/consumer.c -o ${WORK_DIR}/c_consumer ${flags})
  run(${WORK_DIR}/c_consumer)
endif()
