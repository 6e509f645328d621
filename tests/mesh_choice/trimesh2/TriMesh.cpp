#include "TriMesh.h"

namespace trimesh {

TriMesh::TriMesh() = default;
TriMesh::~TriMesh() = default;

}  // namespace trimesh
