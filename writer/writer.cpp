#include <vndlp/writer.h>

#include "writer/ctb_writer.h"
#include "writer/line_writer.h"
#include "writer/v2_writer.h"
#include "writer/v4_writer.h"

#include <new>
#include <string_view>

namespace vndlp {

namespace {

template <class Writer>
DLPWriter* makeWriter() {
    return new (std::nothrow) Writer;
}

struct Ending {
    std::string_view text;
    DLPWriter* (*make)();
};

/// Tested in this order.
constexpr Ending kEndings[] = {
    {".vndlpv4", makeWriter<DLPVNV4>},
    {".vndlp", makeWriter<DLPVNV2>},
    {".vnline", makeWriter<DLPLine>},
    {".ctb", makeWriter<DLPCTB>},
};

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
    for (const Ending& ending : kEndings) {
        if (std::string_view(path).ends_with(ending.text)) return ending.make();
    }
    return nullptr;
}

}  // namespace vndlp
