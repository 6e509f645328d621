/// \file abi_marker.h
/// Symbols that say what a library was built with, so that a program built otherwise fails to link instead of failing
/// at run time: here the mode of the standard library, in <vndlp/mesh.h> the mesh type.
///
/// Included by <vndlp/export.h>; nothing in it is meant to be used.

#ifndef VNDLP_ABI_MARKER_H
#define VNDLP_ABI_MARKER_H

#include <vndlp/export.h>

// linkers that drop what nothing refers to keep a reference marked so
#if defined(__has_attribute)
#if defined(__ELF__) && __has_attribute(retain)
#define VNDLP_RETAIN_ __attribute__((retain))
#endif
#if __has_attribute(used)
#define VNDLP_USED_ __attribute__((used))
#endif
#endif
#if !defined(VNDLP_RETAIN_)
#define VNDLP_RETAIN_
#endif
#if !defined(VNDLP_USED_)
#define VNDLP_USED_
#endif

/// Declares a marker, which the library defines under this name or not at all, and refers to it from everything that
/// includes the header.
// NOLINTBEGIN(bugprone-macro-parentheses): names that are declared take none
#define VNDLP_REFER_TO_MARKER_(marker, reference)                            \
    extern "C" VNDLP_API const int marker;                                   \
    namespace vndlp {                                                        \
    namespace detail {                                                       \
    VNDLP_RETAIN_ VNDLP_USED_ static const int* const reference = &(marker); \
    }                                                                        \
    }
// NOLINTEND(bugprone-macro-parentheses)

// containers of a debugging standard library have other layouts
#if defined(_GLIBCXX_DEBUG) || (defined(_ITERATOR_DEBUG_LEVEL) && _ITERATOR_DEBUG_LEVEL > 0)
#define VNDLP_LIBRARY_MODE_MARKER vndlp_built_with_debug_standard_library
#else
#define VNDLP_LIBRARY_MODE_MARKER vndlp_built_with_plain_standard_library
#endif
VNDLP_REFER_TO_MARKER_(VNDLP_LIBRARY_MODE_MARKER, libraryModeMarker)

#endif
