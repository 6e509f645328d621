#include "writer/line_writer.h"

#include <vndlp/formats.h>

#include <algorithm>

namespace vndlp {

namespace {

constexpr int kFrontEndFormat = 1;
constexpr unsigned short kLineVersion = 2;

}  // namespace

DLPLine::DLPLine() {
    headerType = kLineHeader;
    formatFlag = kFrontEndFormat;
}

int DLPLine::openFile() {
    m_failure.clear();
    const int status = m_writer.openDlpFile(filePath);
    if (status < 0) return status;
    m_layerAreas.clear();
    return status;
}

int DLPLine::writeHeader(std::vector<SliceImage>& previews) {
    // the previews are held, yet the header's own go to the file as needData makes them: black
    if (!takePreviews(previews, m_previewSmall, m_previewLarge1, m_previewLarge2)) {
        return static_cast<int>(previews.size());
    }
    fileStructure.headerType = kLineHeader;
    fileStructure.setVersionCode(kLineVersion);
    fileStructure.setMachineType(machineType);
    fileStructure.needData();
    fileStructure.setLayerCount(layerCount);
    m_resolution.lendTo(fileStructure, resolutionX, resolutionY);
    m_announced.set(layerCount);
    // the image parameters follow whether or not the head could be written; finish reports the head
    m_failure.note(m_writer.writeDlpStructure(fileStructure));
    const auto low16 = [](unsigned int value) { return static_cast<short>(value); };
    return m_failure.note(
        m_writer.writeDlpImageParam({low16(zThrough), low16(enableAliasing), low16(minGray), low16(maxGray)}));
}

int DLPLine::addLayerImage(unsigned /*layerIndex*/, const SliceImage& /*image*/, double /*area*/, int /*batchSize*/) {
    return kWriterOk;
}

int DLPLine::setLayerImageAt(int /*layerIndex*/, const SliceImage& /*image*/, double /*area*/) { return kWriterOk; }

int DLPLine::addLayerMesh(const trimesh::TriMesh& mesh, double area) {
    m_layerAreas.push_back(storedLayerArea(area));
    return m_failure.note(m_writer.writeLayerTrimesh(mesh, &m_layerAreas.back(), false));
}

int DLPLine::addLayerPaths(unsigned /*layerIndex*/, const std::vector<std::vector<Vec3i>>& paths, double area) {
    m_layerAreas.push_back(storedLayerArea(area));
    return m_failure.note(m_writer.writeLayerPath(paths, &m_layerAreas.back(), false));
}

int DLPLine::finish() {
    m_failure.note(m_writer.writeLayerAreasDealyer(m_layerAreas));
    m_failure.note(m_writer.writeTail(kLineHeader));
    // the area table reports too many itself
    if (m_failure.code() == kWriterOk) m_failure.note(m_announced.settle(filePath, m_layerAreas.size()));
    reset();
    return m_failure.code();
}

int DLPLine::cancel() {
    reset();
    return platform::removeFile(filePath.c_str());
}

void DLPLine::reset() {
    m_announced = {};
    m_writer.close();
    m_layerAreas.clear();
}

void DLPLine::resizeLayers(int count) { m_layerAreas.resize(static_cast<std::size_t>(std::max(count, 0))); }

}  // namespace vndlp
