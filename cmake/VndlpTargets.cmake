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
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
      # this version warns of std::string's own copies where a literal is joined with one
      target_compile_options(${target} PRIVATE -Wno-restrict)
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

# Links libdeflate as VNDLP_WITH_LIBDEFLATE says; without it the table CRC serves.
function(vndlp_use_libdeflate target)
  if(VNDLP_WITH_LIBDEFLATE STREQUAL "OFF")
    return()
  endif()
  find_path(LIBDEFLATE_INCLUDE_DIR libdeflate.h)
  find_library(LIBDEFLATE_LIBRARY deflate)
  mark_as_advanced(LIBDEFLATE_INCLUDE_DIR LIBDEFLATE_LIBRARY)
  if(LIBDEFLATE_INCLUDE_DIR AND LIBDEFLATE_LIBRARY)
    target_include_directories(${target} PRIVATE ${LIBDEFLATE_INCLUDE_DIR})
    target_link_libraries(${target} PRIVATE ${LIBDEFLATE_LIBRARY})
    target_compile_definitions(${target} PRIVATE VNDLP_HAVE_LIBDEFLATE)
  elseif(VNDLP_WITH_LIBDEFLATE STREQUAL "ON")
    message(FATAL_ERROR "libdeflate was not found; install libdeflate-dev or set VNDLP_WITH_LIBDEFLATE=OFF")
  endif()
endfunction()
