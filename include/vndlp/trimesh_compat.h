/// \file trimesh_compat.h
/// The part of a triangle mesh the line format needs, for builds without an installed trimesh2: same namespace, class
/// name and `vertices`, and nothing else of a mesh.
///
/// Include <vndlp/mesh.h>, which picks the right one. A source file can use this mesh type or trimesh2's, not both; a
/// program may use both in different source files, since their names differ for the linker.

#ifndef VNDLP_TRIMESH_COMPAT_H
#define VNDLP_TRIMESH_COMPAT_H

#include <cstddef>
#include <vector>

#if defined(TRIMESH_H)
#error \
    "TriMesh.h is included already, but this libvndlp was built without trimesh2: use one of the two in a source file."
#endif

namespace trimesh {
/// Inline: spelt like trimesh2's classes, yet other names for the linker, so that the two never mix unseen.
inline namespace vndlp_compat {

/// Three floats, indexed 0 to 2.
struct point {
    point() : m_values{0, 0, 0} {}
    point(float x, float y, float z) : m_values{x, y, z} {}

    float& operator[](std::size_t i) { return m_values[i]; }
    const float& operator[](std::size_t i) const { return m_values[i]; }

private:
    float m_values[3];
};

/// A mesh as far as layers use one: its vertices.
class TriMesh {
public:
    std::vector<point> vertices;
};

}  // namespace vndlp_compat
}  // namespace trimesh

#endif
