/// \file mesh.h
/// The mesh type of the line format, `trimesh::TriMesh`, of which only `vertices` is used.
///
/// It comes from trimesh2 where the library was built with that (the build defines `VNDLP_WITH_TRIMESH2`, and so do the
/// installed CMake package and pkg-config file), else from <vndlp/trimesh_compat.h>. The two are not binary compatible:
/// a program compiled with the other choice than the library's fails to link, for want of the marker below.

#ifndef VNDLP_MESH_H
#define VNDLP_MESH_H

#include <vndlp/export.h>

#if defined(VNDLP_WITH_TRIMESH2)
#include <TriMesh.h>
#define VNDLP_MESH_MARKER vndlp_built_with_trimesh2
#else
#include <vndlp/trimesh_compat.h>
#define VNDLP_MESH_MARKER vndlp_built_without_trimesh2
#endif

/// Exists in the library under one of the two names only.
extern "C" VNDLP_API const int VNDLP_MESH_MARKER;

namespace vndlp {
namespace detail {
/// Refers to the marker from everything that includes this header.
#if defined(__has_attribute)
#if defined(__ELF__) && __has_attribute(retain)
__attribute__((retain))  // linkers that drop what nothing refers to keep it
#endif
#if __has_attribute(used)
__attribute__((used))
#endif
#endif
static const int* const meshMarker = &VNDLP_MESH_MARKER;
}  // namespace detail
}  // namespace vndlp

#endif
