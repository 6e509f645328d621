# Installs the library (component library), its headers, its CMake package and its pkg-config file (component dev); the
# program is tools/'s (component tools), guides and examples are component doc. All installed files can be moved together; CMAKE_INSTALL_*DIR may be absolute,
# and then stay where they say.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vndlp)

install(TARGETS vndlp EXPORT vndlp-targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)

# beside a shared library a static one, where packages want both
if(VNDLP_INSTALL_BOTH AND NOT VNDLP_IS_STATIC)
  add_library(vndlp_archive STATIC $<TARGET_OBJECTS:vndlp>)
  set_target_properties(vndlp_archive PROPERTIES OUTPUT_NAME vndlp LINKER_LANGUAGE CXX)
  install(TARGETS vndlp_archive ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
endif()

file(GLOB guides docs/*.md docs/*.svg docs/*.json)
install(FILES ${guides} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvndlp-doc COMPONENT doc)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvndlp-doc COMPONENT doc PATTERN "CMakeLists.txt" EXCLUDE)

# only the mesh header the library was built with
if(VNDLP_TRIMESH2_INCLUDE_DIR)
  set(unused_header PATTERN trimesh_compat.h EXCLUDE)
endif()
install(DIRECTORY include/vndlp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
  FILES_MATCHING PATTERN "*.h" ${unused_header})

# What the package needs of others. A shared library's private dependencies are its own affair.
set(vndlp_static_libraries "")
if(VNDLP_IS_STATIC)
  get_property(vndlp_static_libraries GLOBAL PROPERTY VNDLP_PRIVATE_LIBRARIES)
endif()
list(JOIN vndlp_static_libraries " " vndlp_static_libraries)
set(vndlp_with_trimesh2 OFF)
if(VNDLP_TRIMESH2_INCLUDE_DIR)
  set(vndlp_with_trimesh2 ON)
endif()
set(vndlp_with_libtrimesh OFF)
if(VNDLP_TRIMESH2_LIBRARY)
  set(vndlp_with_libtrimesh ON)
endif()
get_filename_component(vndlp_trimesh2_library_dir "${VNDLP_TRIMESH2_LIBRARY}" DIRECTORY)

install(EXPORT vndlp-targets NAMESPACE vndlp:: DESTINATION ${package_dir} COMPONENT dev)
configure_package_config_file(cmake/vndlp-config.cmake.in ${PROJECT_BINARY_DIR}/vndlp-config.cmake
  INSTALL_DESTINATION ${package_dir})
math(EXPR vndlp_pointer_bits "8 * ${CMAKE_SIZEOF_VOID_P}")
configure_file(cmake/vndlp-config-version.cmake.in ${PROJECT_BINARY_DIR}/vndlp-config-version.cmake @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vndlp-config.cmake ${PROJECT_BINARY_DIR}/vndlp-config-version.cmake
  DESTINATION ${package_dir} COMPONENT dev)

# A directory as the pkg-config file names it: relative to the prefix where it lies below it.
function(vndlp_pc_path result path)
  if(IS_ABSOLUTE "${path}")
    string(FIND "${path}/" "${CMAKE_INSTALL_PREFIX}/" at)
    if(at EQUAL 0)
      file(RELATIVE_PATH path "${CMAKE_INSTALL_PREFIX}" "${path}")
    endif()
  endif()
  if(NOT IS_ABSOLUTE "${path}")
    set(path "\${prefix}/${path}")
  endif()
  set(${result} "${path}" PARENT_SCOPE)
endfunction()

if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH pc_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" pc_prefix "\${pcfiledir}/${pc_prefix}")
endif()
vndlp_pc_path(pc_libdir "${CMAKE_INSTALL_LIBDIR}")
vndlp_pc_path(pc_includedir "${CMAKE_INSTALL_INCLUDEDIR}")
set(pc_variables "")
set(pc_cflags "-I\${includedir}")
set(pc_libs "-L\${libdir} -lvndlp")
set(pc_private "")
if(VNDLP_IS_STATIC)
  string(APPEND pc_cflags " -DVNDLP_STATIC")
endif()
if(VNDLP_IS_STATIC OR VNDLP_INSTALL_BOTH)
  get_property(vndlp_private_modules GLOBAL PROPERTY VNDLP_PRIVATE_MODULES)
  list(JOIN vndlp_private_modules ", " vndlp_private_modules)
  if(vndlp_private_modules)
    string(APPEND pc_private "Requires.private: ${vndlp_private_modules}\n")
  endif()
  # the C++ run time, for programs in C
  set(run_time ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
  list(REMOVE_ITEM run_time ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
  list(TRANSFORM run_time PREPEND "-l")
  list(JOIN run_time " " run_time)
  string(APPEND pc_private "Libs.private: ${run_time}\n")
endif()
if(vndlp_with_trimesh2)
  string(APPEND pc_cflags " -DVNDLP_WITH_TRIMESH2")
  if(NOT VNDLP_TRIMESH2_INCLUDE_DIR IN_LIST CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
    vndlp_pc_path(dir "${VNDLP_TRIMESH2_INCLUDE_DIR}")
    string(APPEND pc_variables "trimesh2_includedir=${dir}\n")
    string(APPEND pc_cflags " -I\${trimesh2_includedir}")
  endif()
endif()
if(vndlp_with_libtrimesh)
  if(NOT vndlp_trimesh2_library_dir IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
    vndlp_pc_path(dir "${vndlp_trimesh2_library_dir}")
    string(APPEND pc_variables "trimesh2_libdir=${dir}\n")
    string(APPEND pc_libs " -L\${trimesh2_libdir}")
  endif()
  string(APPEND pc_libs " -ltrimesh")
endif()
configure_file(cmake/vndlp.pc.in ${PROJECT_BINARY_DIR}/vndlp.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vndlp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
