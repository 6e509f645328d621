#include <vndlp/formats.h>
#include <vndlp/writer.h>

#include "writer/ctb_writer.h"
#include "writer/line_writer.h"
#include "writer/v2_writer.h"
#include "writer/v4_writer.h"

#include <new>

namespace vndlp {

namespace {

/// Null when there is no memory, for the writer or for anything it holds.
template <class Writer>
DLPWriter* makeWriter() {
    try {
        return new Writer;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

DLPWriter::DLPWriter() = default;

DLPWriter::~DLPWriter() = default;

int DLPWriter::addLayerMesh(const trimesh::TriMesh& /*mesh*/, double /*area*/) { return 0; }

int DLPWriter::addLayerPaths(unsigned /*layerIndex*/, const std::vector<std::vector<Vec3i>>& /*paths*/,
                             double /*area*/) {
    return 0;
}

void DLPWriter::setLayerArea(int /*layerIndex*/, double /*area*/) {}

void DLPWriter::setLightData(const std::vector<unsigned int>& /*data*/, long long /*value*/) {}

void DLPWriter::prepareLampBeadCal(int /*count*/) {}

DLPWriter* createDLPWriter(const std::string& path) {
    switch (formatOfPath(path)) {
        case SliceFormat::vndlp: return makeWriter<DLPVNV2>();
        case SliceFormat::vnline: return makeWriter<DLPLine>();
        case SliceFormat::ctb: return makeWriter<DLPCTB>();
        case SliceFormat::vndlpv4: return makeWriter<DLPVNV4>();
        case SliceFormat::none: break;
    }
    return nullptr;
}

}  // namespace vndlp
