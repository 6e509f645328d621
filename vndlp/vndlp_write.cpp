#include <vndlp/checksum.h>
#include <vndlp/container.h>
#include <vndlp/formats.h>
#include "io/byte_order.h"
#include "io/report.h"
#include "io/seal.h"
#include "vndlp/record_fields.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <utility>

namespace vndlp {

namespace {

enum WriteCode : int {
    kOk = 0,
    kNoFile = -1,
    kCannotOpen = -1,
    kNoFileForTable = -2,
    kIncomplete = -6,  // no structure, no preview pixels, layer count other than the table's
    kTableLength = -7,
    kCountsDiffer = -9,
    kNotAvailable = -10,
    kRunsMissing = -11,
    kCheckSum = -20,
    kNotWritten = -21,
};

/// Entries of the largest table whose bytes an int counts.
constexpr int kMaxReservedAreas = (1 << 29) - 1;
/// In place of a number of entries: no room was reserved, not even for the tag behind an empty table.
constexpr int kNoTable = -1;
/// What ends a file whose kind has no row of its own, too.
constexpr std::string_view kCommonTailMagic = "VNKT3D";

void writeMagic(FileWrite& out, std::string_view magic) {
    std::string text(magic);
    out.writeStdString(text);
}

/// A layer record built in memory and written with one call.
class LayerBuffer {
public:
    LayerBuffer(const unsigned int* area, std::size_t payloadBytes) {
        m_bytes.reserve((area != nullptr ? 4u : 0u) + 4u + payloadBytes + kSplitTagBytes);
        if (area != nullptr) number(*area);
    }
    void number(unsigned int value) { putBigEndian32(value, grow(4)); }
    void number(int value) { number(static_cast<unsigned int>(value)); }
    void number(float value) { number(bitCast<unsigned int>(value)); }
    /// Room for `n` more bytes, to be filled by the caller.
    unsigned char* grow(std::size_t n) {
        m_bytes.resize(m_bytes.size() + n);
        return m_bytes.data() + m_bytes.size() - n;
    }
    void append(const std::vector<unsigned char>& bytes) { m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end()); }
    void writeTo(FileWrite& out) {
        m_bytes.push_back(kSplitTag >> 8);
        m_bytes.push_back(kSplitTag & 0xFF);
        out.writeBytes(m_bytes.data(), m_bytes.size());
    }

private:
    std::vector<unsigned char> m_bytes;
};

}  // namespace

VndlpWrite::VndlpWrite() : m_output(std::make_shared<FileWrite>()), m_tablePosition(0), m_tableEntries(kNoTable) {
    m_output->setFileByteOrder(BigEndian);
}

VndlpWrite::VndlpWrite(const VndlpWrite& other) : VndlpWrite() { *this = other; }

VndlpWrite& VndlpWrite::operator=(const VndlpWrite& other) {
    if (this == &other) return *this;
    m_structure = other.m_structure ? std::make_unique<DlpFileStructure>(*other.m_structure) : nullptr;
    m_output = other.m_output;
    m_layerAreas = other.m_layerAreas;
    m_layerRuns = other.m_layerRuns;
    m_tablePosition = other.m_tablePosition;
    m_tableEntries = other.m_tableEntries;
    return *this;
}

VndlpWrite::~VndlpWrite() = default;

// the signature is the exported one: NOLINTNEXTLINE(performance-unnecessary-value-param)
int VndlpWrite::openDlpFile(std::string path) {
    m_tablePosition = 0;
    m_tableEntries = kNoTable;
    if (m_output->open(path, 0) == 0) {
        keepSum(*m_output);
        return kOk;
    }
    report("error: %s can't open\n", path.c_str());
    close();
    return kCannotOpen;
}

void VndlpWrite::close() { m_output->close(); }

int VndlpWrite::flush() { return m_output->flush(); }

bool VndlpWrite::failed() const { return m_output->failed(); }

int VndlpWrite::filePosition() {
    return static_cast<int>(std::clamp<long long>(m_output->currentPosition(), 0, INT_MAX));
}

int VndlpWrite::judgeDlpFileStructure(DlpFileStructure& structure) {
    if (structure.isAvailable()) return kOk;
    report("error: file is not vndlp file. please check file\n");
    return kNotAvailable;
}

int VndlpWrite::internel_judgeDlpFileStructure() {
    if (!m_structure) {
        report("error: no dlp structure\n");
        return kIncomplete;
    }
    const int judged = judgeDlpFileStructure(*m_structure);
    if (judged != kOk) return judged;
    const bool hasAreas = hasAreaTable(m_structure->headerType);
    if (hasAreas && m_layerAreas.size() != m_layerRuns.size()) {
        report("error: layer count not equal\n");
        return kCountsDiffer;
    }
    return kOk;
}

void VndlpWrite::swapDlpFileStructure(DlpFileStructure*& structure) {
    DlpFileStructure* previous = m_structure.release();
    m_structure.reset(structure);
    structure = previous;
}

void VndlpWrite::swapLayerAreas(std::vector<unsigned int>& areas) { m_layerAreas.swap(areas); }

void VndlpWrite::swapWhiteDatas(std::vector<std::vector<WhiteData>>& runs) { m_layerRuns.swap(runs); }

int VndlpWrite::writeDlpFile(std::string path) {
    int code = openDlpFile(std::move(path));
    if (code < 0) return code;
    code = internel_judgeDlpFileStructure();
    if (code < 0) {
        report("error: judge dlp file fail\n");
        return code;
    }
    code = writeDlpStructure(*m_structure, &m_layerAreas);
    if (code < 0) {
        report("error: write dlp file structure fail\n");
        return code;
    }
    const bool hasAreas = hasAreaTable(m_structure->headerType);
    const auto count = static_cast<std::size_t>(m_structure->layerCount());
    if (m_layerRuns.size() < count) {
        report("error: %zu run lists given for %zu layers\n", m_layerRuns.size(), count);
        return kRunsMissing;
    }
    for (std::size_t i = 0; i < count; ++i) writeLayerWhiteData(m_layerRuns[i], hasAreas ? &m_layerAreas[i] : nullptr);
    code = writeTail(m_structure->headerType);
    if (code < 0) report("error: write dlp file tail fail\n");
    return code;
}

int VndlpWrite::writeDlpStructure(DlpFileStructure& s, std::vector<unsigned int>* areas) {
    if (!m_output->isOpenFile()) {
        report("error: file not open\n");
        return kNoFile;
    }
    if (judgeDlpFileStructure(s) != kOk) {
        report("error: dlp file judge fail\n");
        return kNotAvailable;
    }
    writeMagic(*m_output, findMagic(s.headerType)->magic);
    int code = kOk;
    switch (s.headerType) {
        case kV1Header: code = writeDlpV1Header(s.v1Header); break;
        case kV3Header: code = writeDlpV3Header(s.v3Header); break;
        case kLineHeader: code = writeDlpLineV2Header(s.lineHeader); break;
        default:
            s.v2Header.versionCode = static_cast<unsigned short>(s.headerVersion);
            code = writeDlpV2Header(s.v2Header);
            break;
    }
    if (code != kOk) {
        // one text for every kind
        report("error: write DlpV1Header fail\n");
        return code;
    }
    const bool hasTable = hasAreaTable(s.headerType);
    if (!hasTable) areas = nullptr;
    if (areas != nullptr && static_cast<std::size_t>(s.layerCount()) != areas->size()) {
        report("Error: dlp layer count not equal");
        return kIncomplete;
    }
    code = writeDlpParameters(s.parameters, areas, hasTable ? s.layerCount() : 0);
    if (code != kOk) {
        report("error: write DlpParameters fail\n");
        return code;
    }
    if (s.headerType == kV2Header && s.v2Header.versionCode >= kFirstSettingsVersion) {
        code = writeDlpSliceBasicParameters(s.sliceBasicParameters);
        if (code != kOk) report("error: write DlpSliceBasicParameters fail\n");
    }
    return code;
}

template <class Header>
int VndlpWrite::writeHeader(Header& header) {
    if (!m_output->isOpenFile()) {
        report("error: file not open\n");
        return kNoFile;
    }
    bool complete = true;
    forEachPreview(header, [&complete](const DlpImage& image) { complete = complete && image.haveDatas(); });
    if (!complete) {
        report("error: no preview image\n");
        return kIncomplete;
    }
    FieldWriter writer(*m_output);
    writeRecord(writer, header);
    return kOk;
}

int VndlpWrite::writeDlpV1Header(DlpV1Header& header) { return writeHeader(header); }

int VndlpWrite::writeDlpV2Header(DlpV2Header& header) { return writeHeader(header); }

int VndlpWrite::writeDlpLineV2Header(DlpV2LineHeader& header) { return writeHeader(header); }

int VndlpWrite::writeDlpV3Header(DlpV3Header& header) { return writeHeader(header); }

int VndlpWrite::writeDlpParameters(DlpParameters& parameters, std::vector<unsigned int>* areas, int layerCount) {
    if (!m_output->isOpenFile()) return kNoFile;
    FieldWriter writer(*m_output);
    writeRecord(writer, parameters);
    m_tablePosition = 0;
    m_tableEntries = kNoTable;
    if (areas != nullptr) {
        for (const unsigned int area : *areas) writer.number(area);
        writer.tag();
        return kOk;
    }
    if (layerCount < 1) return kOk;
    return skipLayerAreas(layerCount);
}

int VndlpWrite::writeDlpSliceBasicParameters(DlpSliceBasicParameters& parameters) {
    if (!m_output->isOpenFile()) return kNoFile;
    FieldWriter writer(*m_output);
    writeRecord(writer, parameters);
    return kOk;
}

int VndlpWrite::writeDlpImageParam(const DlpImageParam& parameters) {
    FieldWriter writer(*m_output);
    DlpImageParam written = parameters;
    writeRecord(writer, written);
    return kOk;
}

int VndlpWrite::skipLayerAreas(int layerCount) {
    if (!m_output->isOpenFile()) {
        report("error: file not open\n");
        return kNoFile;
    }
    if (layerCount > kMaxReservedAreas) {
        report("error: no room for %d layer areas\n", layerCount);
        return kTableLength;
    }
    m_tablePosition = m_output->currentPosition();
    m_tableEntries = std::max(layerCount, kNoTable);
    m_output->skipRawData(std::max(layerCount, -kMaxReservedAreas) * kAreaBytes + kSplitTagBytes);
    return kOk;
}

int VndlpWrite::writeLayerAreasDealyer(std::vector<unsigned int>& areas) {
    if (!m_output->isOpenFile()) {
        report("Error: no dlp file open\n");
        return kNoFileForTable;
    }
    const auto reserved = static_cast<std::size_t>(std::max(m_tableEntries, 0));
    if (areas.size() > reserved) {
        // they would overwrite what follows the table
        report("error: %zu layer areas given, room was reserved for %zu\n", areas.size(), reserved);
        return kTableLength;
    }
    if (m_tableEntries == kNoTable) return kOk;
    m_output->seek(m_tablePosition, 0, false);
    FieldWriter writer(*m_output);
    for (const unsigned int area : areas) writer.number(area);
    writer.tag();
    m_output->seek(0, 2, false);
    return kOk;
}

int VndlpWrite::layerResult() const { return m_output->failed() ? kNotWritten : kOk; }

int VndlpWrite::writeLayerWhiteData(std::vector<WhiteData>& runs, unsigned int* area) {
    LayerBuffer layer(area, runs.size() * kPackedRunBytes);
    layer.number(static_cast<unsigned int>(runs.size()));
    unsigned char* next = layer.grow(runs.size() * kPackedRunBytes);
    for (const WhiteData& run : runs) {
        whiteData2Bits(run, next);
        next += kPackedRunBytes;
    }
    layer.writeTo(*m_output);
    return layerResult();
}

int VndlpWrite::writeLayerPackedRuns(const std::vector<unsigned char>& packed, unsigned int* area) {
    FieldWriter writer(*m_output);
    if (area != nullptr) writer.number(*area);
    writer.number(static_cast<unsigned int>(packed.size() / kPackedRunBytes));
    m_output->writeBytes(packed.data(), packed.size() / kPackedRunBytes * kPackedRunBytes);
    writer.tag();
    return layerResult();
}

int VndlpWrite::writeLayerPath(const std::vector<std::vector<Vec3i>>& paths, unsigned int* area, bool withZ) {
    const std::size_t pointBytes = withZ ? 12 : 8;
    std::size_t payload = 0;
    for (const std::vector<Vec3i>& path : paths) payload += 4 + path.size() * pointBytes;
    LayerBuffer layer(area, payload);
    layer.number(static_cast<unsigned int>(paths.size()));
    for (const std::vector<Vec3i>& path : paths) {
        layer.number(static_cast<unsigned int>(path.size()));
        for (const Vec3i& point : path) {
            layer.number(point.x);
            layer.number(point.y);
            if (withZ) layer.number(point.z);
        }
    }
    layer.writeTo(*m_output);
    return layerResult();
}

int VndlpWrite::writeLayerTrimesh(const trimesh::TriMesh& mesh, unsigned int* area, bool withZ) {
    LayerBuffer layer(area, mesh.vertices.size() * (withZ ? 12 : 8));
    layer.number(static_cast<unsigned int>(mesh.vertices.size()));
    for (const trimesh::point& vertex : mesh.vertices) {
        layer.number(vertex[0]);
        layer.number(vertex[1]);
        if (withZ) layer.number(vertex[2]);
    }
    layer.writeTo(*m_output);
    return layerResult() < 0 ? layerResult() : static_cast<int>(mesh.vertices.size());
}

void VndlpWrite::writeSplitTag() { FieldWriter(*m_output).tag(); }

int VndlpWrite::writeTail(int headerType) {
    if (!m_output->isOpenFile()) {
        report("Error: no dlp file open\n");
        return kNoFile;
    }
    m_output->seek(0, 2, false);
    const MagicRow* format = findMagic(headerType);
    writeMagic(*m_output, format != nullptr ? format->tailMagic : kCommonTailMagic);
    m_output->flush();
    m_output->close();
    const std::string path = m_output->fileName();
    if (m_output->failed()) {
        // unsealed on purpose: a trailer would vouch for a file that lacks bytes
        reportIncompleteFile(path.c_str(), m_output->failureCode());
        return kNotWritten;
    }
    const int code = appendKeptSum(*m_output);
    if (code == 0) return kOk;
    report("error: write dlp file checksum, ret:%d\n", code);
    return kCheckSum;
}

}  // namespace vndlp
