// Verifies a slice file: its trailer where the format has one, its head, and that every layer is there and sound.
//   verify_file FILE
// Prints "ok", or "bad: " and what was found; the library's own line about it stands in front.

#include <vndlp/vndlp.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

/// True when every layer of a line file can be stepped over as polylines, or as meshes: the file does not say which.
bool holdsLayers(const char* path, bool asMeshes) {
    vndlp::VndlpRead reader;
    vndlp::DlpImageParam imageParam;
    if (reader.openDlpFile(path, false) < 0 || reader.readDlpStructure(false) < 0) return false;
    int result = reader.readDlpImageParam(imageParam);
    unsigned int area = 0;
    unsigned int count = 0;
    unsigned long long points = 0;
    for (int layer = 0; layer < reader.getLayerCount() && result >= 0; ++layer) {
        result = asMeshes ? reader.skipLayerMesh(area, count) : reader.skipLayerPath(area, count, points);
    }
    return result >= 0;
}

/// What is wrong with a file; null for nothing.
const char* checkVendorFile(const char* path, bool isLine) {
    if (vndlp::CheckSum::instance().checkFileSum(path) < 0) return "the trailer does not match";
    if (isLine) return holdsLayers(path, false) || holdsLayers(path, true) ? nullptr : "head or layers are damaged";
    vndlp::VndlpRead reader;
    return reader.readDlpFile(path, false, false) < 0 ? "head or layers are damaged" : nullptr;
}

const char* checkV4File(const char* path) {
    VNDLPV4::VNDLPV4Read reader;
    if (reader.openDlpFile(path, true) < 0) return "it cannot be opened, or the trailer does not match";
    if (reader.parseFile() < 0 || !reader.isWhole()) return "a record is cut";
    if (reader.layerDef().size() != reader.headerSettings()->layerCount) return "layers are missing";
    int index = 0;
    for (VNDLPV4::LayerDef* layer : reader.layerDef()) {
        const auto nowhere = [](unsigned, const unsigned char*) {};
        if (reader.readLayerImage_16k(reader.headerSettings(), layer, index++, nowhere) < 0) return "a layer is cut";
    }
    return nullptr;
}

const char* checkCtbFile(const char* path) {
    CTB::CTBRead reader;
    if (reader.openDlpFile(path, false) < 0 || reader.readHeader() < 0) return "it cannot be opened";
    const CTB::HeaderSettings& header = *reader.headerSettings();
    if (header.magic != CTB::kMagic) return "it is no slice file";
    std::vector<std::unique_ptr<CTB::LayerDef>> layers;
    for (CTB::LayerDef* layer : reader.layerDef(false)) layers.emplace_back(layer);
    if (layers.size() < header.layerCount) return "layers are missing";
    const long long pixels = static_cast<long long>(header.resolutionX) * header.resolutionY;
    for (unsigned int i = 0; i < header.layerCount; ++i) {
        if (layers[i]->codedPixelCount(i, header.encryptionKey) != pixels) return "a layer is damaged";
    }
    return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::string magic;
    int version = 0;
    vndlp::EnumCheckSumType trailer{};
    const bool hasMagic = vndlp::CheckSum::instance().getFileVersionInfo(argv[1], magic, version, trailer) == 0;
    const bool isV4 = hasMagic && magic == VNDLPV4::kV4HeaderText && version == VNDLPV4::kV4Version;
    const char* finding = isV4       ? checkV4File(argv[1])
                          : hasMagic ? checkVendorFile(argv[1], magic == "VNLINEV2")
                                     : checkCtbFile(argv[1]);
    std::printf(finding == nullptr ? "ok\n" : "bad: %s\n", finding);
    return finding == nullptr ? 0 : 1;
}
