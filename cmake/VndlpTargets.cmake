# Settings every target of this project shares.

# Language level, visibility, warnings and sanitizers.
function(vndlp_configure_target target)
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD 20
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    # other projects have warnings of their own
    if(vndlp_IS_TOP_LEVEL)
      target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
      if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        # this version warns of std::string's own copies where a literal is joined with one
        target_compile_options(${target} PRIVATE -Wno-restrict)
      endif()
    endif()
    if(VNDLP_WARNINGS_AS_ERRORS)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(VNDLP_BUILD_FUZZ)
      # coverage for the fuzzer, without its main
      target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
    if(VNDLP_SANITIZE)
      target_compile_options(${target} PRIVATE -fsanitize=${VNDLP_SANITIZE} -fno-sanitize-recover=all
                                               -fno-omit-frame-pointer)
      target_link_options(${target} PRIVATE -fsanitize=${VNDLP_SANITIZE})
    endif()
  endif()
endfunction()

# Notes a library that our own sources alone use. Shared builds keep that to themselves; static ones leave the linking to
# the program, so the installed package names it: `library` for find_library, `module` for pkg-config.
function(vndlp_note_private_need library module)
  get_property(noted GLOBAL PROPERTY VNDLP_PRIVATE_LIBRARIES)
  if(library IN_LIST noted)
    return()
  endif()
  set_property(GLOBAL APPEND PROPERTY VNDLP_PRIVATE_LIBRARIES ${library})
  set_property(GLOBAL APPEND PROPERTY VNDLP_PRIVATE_MODULES ${module})
endfunction()

# Links libdeflate as VNDLP_WITH_LIBDEFLATE says; without it the table CRC serves.
function(vndlp_use_libdeflate target)
  if(VNDLP_WITH_LIBDEFLATE STREQUAL "OFF")
    return()
  endif()
  find_path(VNDLP_LIBDEFLATE_INCLUDE_DIR libdeflate.h)
  find_library(VNDLP_LIBDEFLATE_LIBRARY NAMES deflate libdeflate deflatestatic libdeflatestatic)
  mark_as_advanced(VNDLP_LIBDEFLATE_INCLUDE_DIR VNDLP_LIBDEFLATE_LIBRARY)
  if(VNDLP_LIBDEFLATE_INCLUDE_DIR AND VNDLP_LIBDEFLATE_LIBRARY)
    target_include_directories(${target} PRIVATE ${VNDLP_LIBDEFLATE_INCLUDE_DIR})
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:${VNDLP_LIBDEFLATE_LIBRARY}>)
    target_compile_definitions(${target} PRIVATE VNDLP_HAVE_LIBDEFLATE)
    vndlp_note_private_need(deflate libdeflate)
  elseif(VNDLP_WITH_LIBDEFLATE STREQUAL "ON")
    message(FATAL_ERROR "libdeflate was not found; install libdeflate-dev or set VNDLP_WITH_LIBDEFLATE=OFF")
  endif()
endfunction()

# Links Highway as VNDLP_WITH_HIGHWAY says; without it plain loops serve, with the same results.
function(vndlp_use_highway target)
  if(VNDLP_WITH_HIGHWAY STREQUAL "OFF")
    return()
  endif()
  find_path(VNDLP_HIGHWAY_INCLUDE_DIR hwy/highway.h)
  find_library(VNDLP_HIGHWAY_LIBRARY hwy)
  mark_as_advanced(VNDLP_HIGHWAY_INCLUDE_DIR VNDLP_HIGHWAY_LIBRARY)
  # the vector code takes masks as bits in little-endian words
  if(VNDLP_HIGHWAY_INCLUDE_DIR AND VNDLP_HIGHWAY_LIBRARY AND NOT CMAKE_CXX_BYTE_ORDER STREQUAL "BIG_ENDIAN")
    target_include_directories(${target} SYSTEM PRIVATE ${VNDLP_HIGHWAY_INCLUDE_DIR})
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:${VNDLP_HIGHWAY_LIBRARY}>)
    target_compile_definitions(${target} PRIVATE VNDLP_HAVE_HIGHWAY)
    if(VNDLP_HIGHWAY_LIBRARY MATCHES "${CMAKE_SHARED_LIBRARY_SUFFIX}$")
      target_compile_definitions(${target} PRIVATE HWY_SHARED_DEFINE)
    endif()
    vndlp_note_private_need(hwy libhwy)
  elseif(VNDLP_WITH_HIGHWAY STREQUAL "ON")
    message(FATAL_ERROR "Highway was not found (or this is a big-endian machine); install libhwy-dev or set "
                        "VNDLP_WITH_HIGHWAY=OFF")
  endif()
endfunction()

# Takes the mesh type from trimesh2 as VNDLP_WITH_TRIMESH2 and VNDLP_TRIMESH2_ROOT say; without it the header of our own
# serves. The choice is part of the binary interface, so whoever uses the target gets the definition and the header.
# Sets VNDLP_TRIMESH2_INCLUDE_DIR (empty without trimesh2) and VNDLP_TRIMESH2_LIBRARY (empty where there is none).
function(vndlp_use_trimesh2 target)
  set(VNDLP_TRIMESH2_INCLUDE_DIR "" PARENT_SCOPE)
  set(VNDLP_TRIMESH2_LIBRARY "" PARENT_SCOPE)
  # searched anew each time, so that another root takes effect
  unset(VNDLP_FOUND_TRIMESH2_HEADER CACHE)
  unset(VNDLP_FOUND_TRIMESH2_LIBRARY CACHE)
  unset(VNDLP_FOUND_TRIMESH2_WORKS CACHE)
  if(VNDLP_WITH_TRIMESH2 STREQUAL "OFF")
    if(VNDLP_TRIMESH2_ROOT)
      message(FATAL_ERROR "VNDLP_WITH_TRIMESH2 is OFF, but VNDLP_TRIMESH2_ROOT is set")
    endif()
    return()
  endif()
  if(VNDLP_TRIMESH2_ROOT)
    set(where PATHS ${VNDLP_TRIMESH2_ROOT} NO_DEFAULT_PATH)
  endif()
  find_path(VNDLP_FOUND_TRIMESH2_HEADER TriMesh.h ${where} PATH_SUFFIXES include include/trimesh include/trimesh2
                                                                    trimesh trimesh2)
  find_library(VNDLP_FOUND_TRIMESH2_LIBRARY trimesh ${where} PATH_SUFFIXES lib lib64 ${CMAKE_INSTALL_LIBDIR} lib.Linux64)
  mark_as_advanced(VNDLP_FOUND_TRIMESH2_HEADER VNDLP_FOUND_TRIMESH2_LIBRARY)

  if(VNDLP_FOUND_TRIMESH2_HEADER)
    # a header of that name need not be the one that is meant
    include(CheckCXXSourceCompiles)
    set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
    set(CMAKE_REQUIRED_INCLUDES ${VNDLP_FOUND_TRIMESH2_HEADER})
    set(CMAKE_REQUIRED_QUIET ON)
    check_cxx_source_compiles("#include <TriMesh.h>
      float third(trimesh::TriMesh& mesh) {
        mesh.vertices.emplace_back(1.0F, 2.0F, 3.0F);
        const trimesh::point& first = mesh.vertices[0];
        return first[2];
      }" VNDLP_FOUND_TRIMESH2_WORKS)
  endif()
  if(NOT VNDLP_FOUND_TRIMESH2_WORKS)
    if(VNDLP_TRIMESH2_ROOT)
      message(FATAL_ERROR "no usable TriMesh.h below VNDLP_TRIMESH2_ROOT (${VNDLP_TRIMESH2_ROOT})")
    elseif(VNDLP_WITH_TRIMESH2 STREQUAL "ON")
      message(FATAL_ERROR "trimesh2 was not found; set VNDLP_TRIMESH2_ROOT, or VNDLP_WITH_TRIMESH2=OFF")
    endif()
    return()
  endif()
  if(NOT VNDLP_FOUND_TRIMESH2_LIBRARY)
    set(VNDLP_FOUND_TRIMESH2_LIBRARY "")
  endif()
  message(STATUS "Meshes are those of trimesh2: ${VNDLP_FOUND_TRIMESH2_HEADER} ${VNDLP_FOUND_TRIMESH2_LIBRARY}")
  target_compile_definitions(${target} PUBLIC VNDLP_WITH_TRIMESH2)
  # the installed package finds header and library again where it is used
  target_include_directories(${target} SYSTEM PUBLIC $<BUILD_INTERFACE:${VNDLP_FOUND_TRIMESH2_HEADER}>)
  target_link_libraries(${target} PUBLIC $<BUILD_INTERFACE:${VNDLP_FOUND_TRIMESH2_LIBRARY}>)
  set(VNDLP_TRIMESH2_INCLUDE_DIR "${VNDLP_FOUND_TRIMESH2_HEADER}" PARENT_SCOPE)
  set(VNDLP_TRIMESH2_LIBRARY "${VNDLP_FOUND_TRIMESH2_LIBRARY}" PARENT_SCOPE)
endfunction()

# Keeps what our code instantiates of the standard library out of a shared library's exports, where the linker takes version
# scripts. Elsewhere (Windows) only what is declared for export is exported anyway. Instrumented builds are left as they are.
function(vndlp_limit_exports target)
  if(VNDLP_IS_STATIC OR VNDLP_SANITIZE OR VNDLP_BUILD_FUZZ OR NOT UNIX OR APPLE)
    return()
  endif()
  set(map ${PROJECT_SOURCE_DIR}/cmake/vndlp.map)
  target_link_options(${target} PRIVATE LINKER:--version-script=${map})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()
