#include <vndlp/checksum.h>
#include <vndlp/container.h>
#include <vndlp/formats.h>
#include "io/byte_order.h"
#include "io/report.h"
#include "vndlp/record_fields.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vndlp {

namespace {

/// Result codes beside those of `ReadStatus`.
enum ReadCode : int {
    kOk = 0,
    kNoFile = -1,
    kCheckSumFailed = -1,
    kWrongMagic = -2,
    kBadTag = -2,
    kCannotOpen = -3,
    kBadParameters = -4,
    kBadSettings = -5,
    kBadLayer = -5,
};

/// Two coordinates of four bytes: a point of a polyline or a vertex, without z.
constexpr std::size_t kPointBytes = 8;

int codeOf(ReadStatus status) { return static_cast<int>(status); }

/// Whether a file is open; reported when none is.
bool isOpen(FileRead& in) {
    if (in.isOpenFile()) return true;
    report("error: no dlp file open\n");
    return false;
}

template <class Header>
int readHeader(FileRead& in, Header& header, bool withPreview) {
    if (!in.isOpenFile()) {
        report("error: file not open\n");
        return kNoFile;
    }
    FieldReader reader(in, withPreview);
    readRecord(reader, header);
    return codeOf(reader.status());
}

/// Reads the header that a magic announces.
int readHeader(FileRead& in, HeaderKind kind, DlpFileStructure& s, bool withPreview) {
    const auto read = [&](auto& header) {
        const int code = readHeader(in, header, withPreview);
        if (code != kOk) report("error: read %s fail\n", Layout<std::decay_t<decltype(header)>>::name);
        return code;
    };
    switch (kind) {
        case kV1Header: return read(s.v1Header);
        case kV2Header: return read(s.v2Header);
        case kV3Header: return read(s.v3Header);
        default: return read(s.lineHeader);
    }
}

/// Reads records and hands those that the file holds to `keep(bytes, count)`. A file that holds fewer is left at its
/// end, where it fails at the tag. \param packed scratch. \return whether it held them all.
template <class Keep>
bool readPacked(FileRead& in, unsigned int count, std::size_t recordBytes, std::vector<unsigned char>& packed,
                Keep&& keep) {
    const long long held = std::min<long long>(count, in.remaining() / static_cast<long long>(recordBytes));
    packed.resize(static_cast<std::size_t>(held) * recordBytes);
    const std::size_t arrived = in.readBytes(packed.data(), packed.size()) / recordBytes;
    keep(packed.data(), arrived);
    if (arrived < count) in.seek(0, 2);
    return arrived == count;
}

/// As `readPacked` of nothing kept.
bool skipPacked(FileRead& in, unsigned int count, std::size_t recordBytes) {
    if (in.skipRawData(static_cast<long long>(count) * static_cast<long long>(recordBytes)) >= 0) return true;
    in.seek(0, 2);
    return false;
}

/// Walks polylines: `take(points)` reads or skips the points of one. What the file cannot hold is not walked.
template <class Take>
void walkPolylines(FileRead& in, unsigned int count, Take&& take) {
    // each takes at least its count
    bool complete = count <= in.remaining() / 4;
    for (unsigned int i = 0; complete && i < count; ++i) complete = in.remaining() >= 4 && take(in.readUint32());
    if (!complete) in.seek(0, 2);
}

void copyPreview(const DlpImage& preview, char* out) {
    if (preview.haveDatas() && out != nullptr) {
        std::memcpy(out, preview.bits(), static_cast<std::size_t>(preview.size()));
    }
}

}  // namespace

VndlpRead::VndlpRead()
    : m_input(std::make_shared<FileRead>()),
      m_resolutionX(0),
      m_resolutionY(0),
      m_layerCount(0),
      m_totalVolume(0),
      m_pixelArea(0) {
    m_input->setFileByteOrder(BigEndian);
}

VndlpRead::VndlpRead(const VndlpRead& other) : VndlpRead() { *this = other; }

VndlpRead& VndlpRead::operator=(const VndlpRead& other) {
    if (this == &other) return *this;
    m_structure = other.m_structure ? std::make_unique<DlpFileStructure>(*other.m_structure) : nullptr;
    m_input = other.m_input;
    m_layerAreas = other.m_layerAreas;
    m_layerRuns = other.m_layerRuns;
    m_resolutionX = other.m_resolutionX;
    m_resolutionY = other.m_resolutionY;
    m_layerCount = other.m_layerCount;
    m_totalVolume = other.m_totalVolume;
    m_pixelArea = other.m_pixelArea;
    m_magic = other.m_magic;
    return *this;
}

VndlpRead::~VndlpRead() = default;

// the signature is the exported one: NOLINTNEXTLINE(performance-unnecessary-value-param)
int VndlpRead::openDlpFile(std::string path, bool checkSum) {
    close();
    if (checkSum) {
        const int code = CheckSum::instance().checkFileSum(path.c_str());
        if (code != 0) {
            report("error:open dlp file:%s, checksum failed, ret:%d\n", path.c_str(), code);
            return kCheckSumFailed;
        }
    }
    if (m_input->open(path, 0) != 0) {
        report("error: %s can't open\n", path.c_str());
        return kCannotOpen;
    }
    m_totalVolume = 0;
    return kOk;
}

void VndlpRead::close() { m_input->close(); }

int VndlpRead::readDlpStructure(bool withPreview) {
    if (!isOpen(*m_input)) return kNoFile;
    readTag(m_magic);
    const MagicRow* format = findMagic(m_magic);
    if (format == nullptr || format->header == kNoHeader) {
        report("error: file is not vndlp file. please check file\n");
        close();
        return kWrongMagic;
    }
    if (m_structure) {
        m_structure->release();
    } else {
        m_structure = std::make_unique<DlpFileStructure>();
    }

    DlpFileStructure& s = *m_structure;
    s.headerType = format->header;
    int code = readHeader(*m_input, format->header, s, withPreview);
    if (code != kOk) {
        close();
        return code;
    }
    // so that what was read is written again as the version it was
    if (s.headerType == kV2Header) s.headerVersion = s.v2Header.versionCode;
    m_layerCount = s.layerCount();
    m_resolutionX = s.getResolutionX();
    m_resolutionY = s.getResulutionY();

    m_layerAreas.resize(static_cast<std::size_t>(m_layerCount));
    code = readDlpParameters(s.parameters, hasAreaTable(s.headerType) ? &m_layerAreas : nullptr);
    int failure = kBadParameters;
    if (code == kOk && s.headerType == kV2Header && s.v2Header.versionCode >= kFirstSettingsVersion) {
        code = readDlpSliceBasicParameters(s.sliceBasicParameters);
        failure = kBadSettings;
    }
    if (code != kOk) {
        report("error: parse dlp parameter error:%d\n", code);
        close();
        return failure;
    }
    m_pixelArea = static_cast<float>(s.parameters.parsePlatformX() * s.parameters.parsePlatformY() /
                                     (static_cast<double>(m_resolutionX) * m_resolutionY));
    return kOk;
}

int VndlpRead::readDlpFile(std::string path, bool structureOnly, bool withPreview) {
    int result = openDlpFile(std::move(path), false);
    if (result == kOk) result = readDlpStructure(withPreview);
    if (result < 0) {
        report("error: read dlp structure error\n");
        return result;
    }
    if (structureOnly) {
        close();
        return result;
    }
    m_layerRuns.clear();
    m_layerRuns.resize(static_cast<std::size_t>(m_layerCount));
    m_totalVolume = 0;
    const bool hasArea = m_structure->headerType == kV2Header;
    for (std::size_t i = 0; i < m_layerRuns.size(); ++i) {
        unsigned int area = 0;
        if (readLayerWhiteData(m_layerRuns[i], hasArea ? &area : nullptr) < 0) {
            report("error: parse layer white data error\n");
            return kBadLayer;
        }
        if (hasArea && area != m_layerAreas[i]) report("warning: layer area not equal\n");
    }
    report("totalValum = %f\n", static_cast<double>(m_totalVolume));
    close();
    return result;
}

int VndlpRead::readDlpV1Header(DlpV1Header& header, bool withPreview) {
    return readHeader(*m_input, header, withPreview);
}

int VndlpRead::readDlpV2Header(DlpV2Header& header, bool withPreview) {
    return readHeader(*m_input, header, withPreview);
}

int VndlpRead::readDlpLineV2Header(DlpV2LineHeader& header, bool withPreview) {
    return readHeader(*m_input, header, withPreview);
}

int VndlpRead::readDlpV3Header(DlpV3Header& header, bool withPreview) {
    return readHeader(*m_input, header, withPreview);
}

int VndlpRead::readDlpParameters(DlpParameters& parameters, std::vector<unsigned int>* areas) {
    if (!m_input->isOpenFile()) return kNoFile;
    FieldReader reader(*m_input, false);
    readRecord(reader, parameters);
    if (reader.status() != ReadStatus::ok || areas == nullptr) return codeOf(reader.status());
    for (unsigned int& area : *areas) reader.number(area);
    reader.tag();
    return codeOf(reader.status());
}

int VndlpRead::readDlpSliceBasicParameters(DlpSliceBasicParameters& parameters) {
    if (!m_input->isOpenFile()) return kNoFile;
    FieldReader reader(*m_input, false);
    readRecord(reader, parameters);
    return codeOf(reader.status());
}

int VndlpRead::readDlpImageParam(DlpImageParam& parameters) {
    if (!isOpen(*m_input)) return kNoFile;
    FieldReader reader(*m_input, false);
    readRecord(reader, parameters);
    return codeOf(reader.status());
}

int VndlpRead::readLayerHead(unsigned int* area, unsigned int& count) {
    count = 0;
    if (!isOpen(*m_input)) return kNoFile;
    if (area != nullptr) *area = m_input->readUint32();
    count = m_input->readUint32();
    if (count <= m_input->fileLength() / kPackedRunBytes) return kOk;
    close();
    report("error: pointcount error");
    return kBadLayer;
}

int VndlpRead::readLayerEnd() {
    if (readSplitTagAndCheck()) return kOk;
    close();
    return kBadTag;
}

int VndlpRead::readLayerWhiteData(std::vector<WhiteData>& runs, unsigned int* area) {
    unsigned int count = 0;
    const int code = readLayerHead(area, count);
    if (code != kOk) return code;
    std::vector<unsigned char> packed;
    readPacked(*m_input, count, kPackedRunBytes, packed, [&](const unsigned char* bytes, std::size_t arrived) {
        const std::size_t first = runs.size();
        runs.resize(first + arrived);
        for (std::size_t i = 0; i < arrived; ++i) bits2WhiteData(bytes + i * kPackedRunBytes, runs[first + i]);
    });
    if (area != nullptr && m_structure) {
        const double volume = *area * m_structure->parameters.parseThickness() / 1000 / 1000;
        m_totalVolume = static_cast<float>(m_totalVolume + volume);
    }
    return readLayerEnd();
}

int VndlpRead::skipLayerWhiteData(unsigned int* area, unsigned int& runCount) {
    const int code = readLayerHead(area, runCount);
    if (code != kOk) return code;
    skipPacked(*m_input, runCount, kPackedRunBytes);
    return readLayerEnd();
}

int VndlpRead::readLayerPath(std::vector<std::vector<Vec3i>>& paths, unsigned int* area, bool withZ) {
    if (!isOpen(*m_input)) return kNoFile;
    paths.clear();
    if (area != nullptr) *area = m_input->readUint32();
    const std::size_t pointBytes = withZ ? kPointBytes + 4 : kPointBytes;
    std::vector<unsigned char> packed;
    walkPolylines(*m_input, m_input->readUint32(), [&](unsigned int points) {
        std::vector<Vec3i>& path = paths.emplace_back();
        return readPacked(*m_input, points, pointBytes, packed, [&](const unsigned char* bytes, std::size_t arrived) {
            path.reserve(arrived);
            for (std::size_t at = 0; at < arrived * pointBytes; at += pointBytes) {
                // a z in the file is dropped: the constructor makes it equal y
                path.emplace_back(bigEndianInt32(bytes + at), bigEndianInt32(bytes + at + 4), 0);
            }
        });
    });
    const int end = readLayerEnd();
    return end != kOk ? end : static_cast<int>(paths.size());
}

int VndlpRead::readLayerMesh(trimesh::TriMesh& mesh, unsigned int* area, bool withZ) {
    unsigned int count = 0;
    const int code = readLayerHead(area, count);
    if (code != kOk) return code;
    const std::size_t vertexBytes = withZ ? kPointBytes + 4 : kPointBytes;
    std::vector<unsigned char> packed;
    readPacked(*m_input, count, vertexBytes, packed, [&](const unsigned char* bytes, std::size_t arrived) {
        mesh.vertices.reserve(mesh.vertices.size() + arrived);
        for (std::size_t at = 0; at < arrived * vertexBytes; at += vertexBytes) {
            mesh.vertices.emplace_back(bigEndianFloat(bytes + at), bigEndianFloat(bytes + at + 4),
                                       withZ ? bigEndianFloat(bytes + at + 8) : 0.0F);
        }
    });
    const int end = readLayerEnd();
    return end != kOk ? end : static_cast<int>(count);
}

int VndlpRead::skipLayerPath(unsigned int& area, unsigned int& polylineCount, unsigned long long& pointCount) {
    polylineCount = 0;
    pointCount = 0;
    if (!isOpen(*m_input)) return kNoFile;
    area = m_input->readUint32();
    polylineCount = m_input->readUint32();
    walkPolylines(*m_input, polylineCount, [&](unsigned int points) {
        pointCount += points;
        return skipPacked(*m_input, points, kPointBytes);
    });
    return readLayerEnd();
}

int VndlpRead::skipLayerMesh(unsigned int& area, unsigned int& vertexCount) {
    const int code = readLayerHead(&area, vertexCount);
    if (code != kOk) return code;
    skipPacked(*m_input, vertexCount, kPointBytes);
    return readLayerEnd();
}

int VndlpRead::getWhiteDatas(std::vector<WhiteData>& runs, unsigned int* area) {
    unsigned int unwanted = 0;
    const bool hasArea = m_structure && m_structure->headerType == kV2Header;
    if (readLayerWhiteData(runs, !hasArea ? nullptr : area != nullptr ? area : &unwanted) == kOk) return kOk;
    report("error: parse layer white data error\n");
    return kBadLayer;
}

bool VndlpRead::readSplitTagAndCheck() {
    FieldReader reader(*m_input, false);
    reader.tag();
    return reader.status() == ReadStatus::ok;
}

int VndlpRead::readTag(std::string& text) {
    if (!m_input->isOpenFile()) {
        report("error: file not open\n");
        return kNoFile;
    }
    text = m_input->readStdString();
    return kOk;
}

int VndlpRead::getFileVersion(const char* path, std::string& versionName, int& subVersionNum) {
    EnumCheckSumType type = CHECKSUM_NONE;
    const int code = CheckSum::instance().getFileVersionInfo(path, versionName, subVersionNum, type);
    if (code == 0) return kOk;
    report("getFileVersion failed, ret:%d\n", code);
    return -1;
}

std::string VndlpRead::tailMagic() const {
    const MagicRow* format = findMagic(m_magic);
    return format == nullptr ? std::string() : std::string(format->tailMagic);
}

int VndlpRead::getLayerCount() { return m_layerCount; }

float VndlpRead::getTotalValum() { return m_totalVolume; }

long long VndlpRead::currentPosition() { return m_input->currentPosition(); }

int VndlpRead::seek(long long position) { return m_input->seek(position, 0) < 0 ? -1 : kOk; }

long long VndlpRead::remaining() { return m_input->remaining(); }

void VndlpRead::sendResolution(unsigned short& x, unsigned short& y) {
    x = static_cast<unsigned short>(m_resolutionX);
    y = static_cast<unsigned short>(m_resolutionY);
}

bool VndlpRead::getHeaderParaV2(std::string& magic, unsigned short& versionCode, std::string& machineType,
                                unsigned short& layerCount, unsigned short& resolutionX, unsigned short& resolutionY,
                                char* smallPreview, char* middlePreview, char* largePreview) {
    magic = m_magic;
    layerCount = static_cast<unsigned short>(m_layerCount);
    sendResolution(resolutionX, resolutionY);
    versionCode = 0;
    machineType.clear();
    const MagicRow* format = findMagic(m_magic);
    if (format == nullptr || format->header == kNoHeader) return true;
    if (format->header == kV1Header || format->header == kV3Header) return false;
    const auto copy = [&](const auto& header) {
        versionCode = header.versionCode;
        machineType = header.machine_type;
        copyPreview(header.smallPreview, smallPreview);
        copyPreview(header.middlePreview, middlePreview);
        copyPreview(header.largePreview, largePreview);
    };
    if (m_structure && format->header == kV2Header) copy(m_structure->v2Header);
    if (m_structure && format->header == kLineHeader) copy(m_structure->lineHeader);
    return true;
}

bool VndlpRead::getStructDataPara(std::string& platformX, std::string& platformY, std::string& thickness,
                                  unsigned short& exposure_time, unsigned short& light_off_delay,
                                  unsigned short& first_exposure_time, unsigned short& first_layer_count,
                                  unsigned short& first_lift_distance, unsigned short& first_lift_speed,
                                  unsigned short& lifting_distance, unsigned short& lifting_speed,
                                  unsigned short& retract_speed, unsigned short& firstBrightnessPVM,
                                  unsigned short& brightnessPVM, std::vector<unsigned int>& areas,
                                  unsigned long long& areaSum) {
    areas.clear();
    if (!m_structure) return true;
    const DlpParameters& p = m_structure->parameters;
    platformX = p.platformX;
    platformY = p.platformY;
    thickness = p.thickness;
    exposure_time = p.exposure_time;
    light_off_delay = p.light_off_delay;
    first_exposure_time = p.first_exposure_time;
    first_layer_count = p.first_layer_count;
    first_lift_distance = p.first_lift_distance;
    first_lift_speed = p.first_lift_speed;
    lifting_distance = p.lifting_distance;
    lifting_speed = p.lifting_speed;
    retract_speed = p.retract_speed;
    firstBrightnessPVM = p.firstBrightnessPVM;
    brightnessPVM = p.brightnessPVM;
    if (m_structure->headerType != kV2Header && m_structure->headerType != kLineHeader) return true;
    areas = m_layerAreas;
    for (const unsigned int area : areas) areaSum += area;
    return true;
}

DlpFileStructure* VndlpRead::getDlpFileStructure() { return m_structure.get(); }

DlpFileStructure* VndlpRead::takeDlpFileStructure() { return m_structure.release(); }

void VndlpRead::swapLayerAreas(std::vector<unsigned int>& areas) { m_layerAreas.swap(areas); }

void VndlpRead::swapWhiteDatas(std::vector<std::vector<WhiteData>>& runs) { m_layerRuns.swap(runs); }

}  // namespace vndlp
