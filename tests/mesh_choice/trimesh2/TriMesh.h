// Names and members as the users of trimesh2 know them; the layout differs from <vndlp/trimesh_compat.h> on purpose.

#ifndef TRIMESH_H
#define TRIMESH_H

#include <cstddef>
#include <vector>

namespace trimesh {

class point {
public:
    point() = default;
    point(float x, float y, float z) : v{x, y, z} {}
    float& operator[](std::size_t i) { return v[i]; }
    const float& operator[](std::size_t i) const { return v[i]; }

private:
    float v[3] = {};
    bool marked = false;
};

class TriMesh {
public:
    struct Face {
        int v[3];
    };

    TriMesh();
    virtual ~TriMesh();

    std::vector<Face> faces;
    std::vector<point> vertices;
    std::vector<point> normals;
};

}  // namespace trimesh

#endif
