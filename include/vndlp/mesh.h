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

VNDLP_REFER_TO_MARKER_(VNDLP_MESH_MARKER, meshMarker)

#endif
