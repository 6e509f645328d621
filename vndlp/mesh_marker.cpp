#include <vndlp/mesh.h>

extern "C" const int VNDLP_MESH_MARKER = 1;
