#include <vndlp/mesh.h>

extern "C" const int VNDLP_LIBRARY_MODE_MARKER = 1;
extern "C" const int VNDLP_MESH_MARKER = 1;
