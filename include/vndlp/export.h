/// \file export.h
/// Library version and the macro that marks what the shared library exports.
///
/// This header is C and C++.

#ifndef VNDLP_EXPORT_H
#define VNDLP_EXPORT_H

#if defined(__cplusplus) && __cplusplus < 201703L && !(defined(_MSVC_LANG) && _MSVC_LANG >= 201703L)
#error "The headers of vndlp need C++17 or newer: set CXX_STANDARD 17, or compile with -std=c++17."
#endif

/// Version of the library these headers belong to. The build reads it from here; it stands nowhere else.
#define VNDLP_VERSION_MAJOR 0
#define VNDLP_VERSION_MINOR 1
#define VNDLP_VERSION_PATCH 0

/// The same as text, "major.minor.patch".
#define VNDLP_VERSION_TEXT_(a, b, c) #a "." #b "." #c
#define VNDLP_VERSION_TEXT(a, b, c) VNDLP_VERSION_TEXT_(a, b, c)
#define VNDLP_VERSION VNDLP_VERSION_TEXT(VNDLP_VERSION_MAJOR, VNDLP_VERSION_MINOR, VNDLP_VERSION_PATCH)

/// Marks an exported class or function. `VNDLP_STATIC` is defined by the build (and by the installed package) when the
/// library is static; `VNDLP_BUILDING` while the library itself is compiled.
#if defined(VNDLP_STATIC)
#define VNDLP_API
#elif defined(_WIN32)
#if defined(VNDLP_BUILDING)
#define VNDLP_API __declspec(dllexport)
#else
#define VNDLP_API __declspec(dllimport)
#endif
#else
#define VNDLP_API __attribute__((visibility("default")))
#endif

#if defined(__cplusplus)
#include <vndlp/abi_marker.h>
#endif

#endif
