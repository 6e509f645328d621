/// \file trimesh_compat.h
/// The part of a triangle mesh the line format needs, for builds without an installed trimesh2: same namespace, class
/// name and `vertices`, so that code written for one compiles with the other.
///
/// Include <vndlp/mesh.h>, which picks the right one.

#ifndef VNDLP_TRIMESH_COMPAT_H
#define VNDLP_TRIMESH_COMPAT_H

#include <cstddef>
#include <vector>

namespace trimesh {

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

}  // namespace trimesh

#endif
