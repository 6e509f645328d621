#include "tools/formats/v4_file.h"

#include "tools/base/failure.h"
#include "tools/images/bgr_preview.h"
#include "tools/jobs/input.h"

#include <vndlp/checksum.h>

#include <algorithm>
#include <cstring>

namespace vndlp::tools {

namespace {

constexpr long long kTrailerBytes = 4;
constexpr long long kExtendedBytes = 44;
constexpr double kMost16 = 65535;

std::string quantity(double value, const char* unit) { return shortNumber(value, 4) + " " + unit; }

Field real(const char* key, float value, const char* unit) {
    return {key, value, quantity(static_cast<double>(value), unit)};
}

Field whole(const char* key, unsigned int value) { return {key, value, std::to_string(value)}; }

/// A word that was written as a float and read as its bits.
unsigned int numberInBits(unsigned int bits) {
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value > 0 && value < 4294967296.0F ? static_cast<unsigned int>(value) : 0;
}

std::size_t countBits(const std::vector<unsigned char>& mask) {
    std::size_t bits = 0;
    for (const unsigned char byte : mask) {
        for (unsigned rest = byte; rest != 0; rest &= rest - 1) ++bits;
    }
    return bits;
}

}  // namespace

V4File::V4File(const std::string& path) : m_path(path) {
    if (m_reader.openDlpFile(path, false) != 0) throw Failure(path + ": cannot be opened");
    m_fileSize = m_reader.getFileRead().fileLength();
    m_reader.parseFile();
    const VNDLPV4::HeaderSettings& h = *m_reader.headerSettings();
    if (h.size() > m_fileSize) throw Failure(path + ": ends within the header");
    if (h.resolutionX == 0 || h.resolutionY == 0) {
        throw Failure(path + ": damaged: the resolution is " + std::to_string(h.resolutionX) + " x " +
                      std::to_string(h.resolutionY));
    }
    m_layers = m_reader.layerDef();
    // an entry cut off by the end of the file is none
    const auto isCutOff = [](const VNDLPV4::LayerDef& entry) {
        return entry.endPosition - entry.beginPosition < entry.size();
    };
    if (!m_layers.empty() && isCutOff(*m_layers.back())) m_layers.pop_back();
    if (m_layers.size() < h.layerCount) {
        throw Failure(path + ": damaged at offset " + std::to_string(h.layerDefOffset) + ": the layer table has " +
                      std::to_string(m_layers.size()) + " of " + std::to_string(h.layerCount) +
                      " entries; `vndlp verify` tells more");
    }
}

int V4File::version() const { return m_reader.headerSettings()->version; }
int V4File::width() const { return m_reader.headerSettings()->resolutionX; }
int V4File::height() const { return m_reader.headerSettings()->resolutionY; }
int V4File::layerCount() const { return static_cast<int>(m_layers.size()); }

std::vector<Field> V4File::header() const {
    const VNDLPV4::HeaderSettings& h = *m_reader.headerSettings();
    return {
        {"machineName", h.headerText2, printable(h.headerText2)},
        real("bedSizeX", h.floatField0, "mm"),
        real("bedSizeY", h.floatField1, "mm"),
        real("bedSizeZ", h.floatField2, "mm"),
        real("totalHeight", h.floatField3, "mm"),
        real("layerHeight", h.floatField4, "mm"),
        whole("bottomLayerCount", h.word0),
        whole("printTime", h.word5),
        whole("projectorType", h.word6),
        whole("antiAliasLevel", h.word9),
        whole("lightPwm", static_cast<unsigned short>(h.shortField0)),
        whole("bottomLightPwm", static_cast<unsigned short>(h.shortField1)),
        whole("encryptionKey", h.encryptionKey),
        real("exposureTime", h.tailFloat0, "s"),
        real("bottomExposureTime", h.tailFloat1, "s"),
        real("lightOffDelay", h.tailFloat2, "s"),
    };
}

std::vector<Field> V4File::parameters() const {
    const VNDLPV4::PrintParameters& p = *m_reader.printParameters();
    const VNDLPV4::SlicerInfo& s = *m_reader.slicerInfo();
    return {
        real("bottomLiftHeight", p.bottomLiftHeight, "mm"),
        real("bottomLiftSpeed", p.bottomLiftSpeed, "mm/min"),
        real("liftHeight", p.liftHeight, "mm"),
        real("liftSpeed", p.liftSpeed, "mm/min"),
        real("retractSpeed", p.retractSpeed, "mm/min"),
        real("volume", p.volume, "ml"),
        real("weight", p.weight, "g"),
        real("price", p.price, ""),
        real("bottomLightOffDelay", p.bottomLightOffDelay, "s"),
        real("lightOffDelay", p.lightOffDelay, "s"),
        whole("bottomLayerCount", p.bottomLayerCount),
        whole("antiAliasing", numberInBits(s.word44)),
        whole("transitionLayerCount", numberInBits(s.word60)),
        whole("slicerVersion", s.word48),
    };
}

std::vector<Section> V4File::sections() const {
    const VNDLPV4::HeaderSettings& h = *m_reader.headerSettings();
    std::vector<Section> all = {{"header", 0, h.size()}};
    for (const VNDLPV4::PreView* preview : m_reader.preViews()) {
        all.push_back({"preview", preview->beginPosition, preview->endPosition - preview->beginPosition});
    }
    all.push_back({"print parameters", h.printParametersOffset, VNDLPV4::PrintParameters::size()});
    all.push_back({"slicer information", h.slicerInfoOffset, VNDLPV4::SlicerInfo::size()});
    if (m_layers.empty()) return all;
    const long long tableEnd = m_layers.back()->endPosition;
    all.push_back({"layer table", h.layerDefOffset, tableEnd - h.layerDefOffset});
    const long long first = m_layers.front()->dataOffset;
    const long long last = static_cast<long long>(m_layers.back()->dataOffset) + m_layers.back()->dataSize;
    all.push_back({"layers", first, last - first});
    all.push_back({"extended records", last, static_cast<long long>(m_layers.size()) * kExtendedBytes});
    if (trailer().present) all.push_back({"checksum trailer", m_fileSize - kTrailerBytes, kTrailerBytes});
    return all;
}

std::vector<Preview> V4File::previews() const {
    std::vector<Preview> all;
    const char* const names[] = {"large", "small"};
    std::size_t next = 0;
    for (const VNDLPV4::PreView* preview : m_reader.preViews()) {
        ColourImage picture = pictureOfBgr(preview->decodeImage(), preview->resolutionX, preview->resolutionY);
        if (picture.width > 0) all.push_back({names[next], std::move(picture)});
        if (++next == std::size(names)) break;
    }
    std::reverse(all.begin(), all.end());
    return all;
}

Trailer V4File::trailer() const { return trailerOf(m_path); }

PrintSettings V4File::settings() const {
    const VNDLPV4::HeaderSettings& h = *m_reader.headerSettings();
    const VNDLPV4::PrintParameters& p = *m_reader.printParameters();
    PrintSettings s;
    const auto number = [&](const char* key, float value, double least, double most) {
        const auto wide = static_cast<double>(value);
        if (wide >= least && wide <= most) s.set(key, wide, Origin::job, m_path);
    };
    if (!h.headerText2.empty()) s.set("machine", h.headerText2, Origin::job, m_path);
    s.set("resolution_x", width(), Origin::job, m_path);
    s.set("resolution_y", height(), Origin::job, m_path);
    number("display_width_mm", h.floatField0, 1e-3, 1e6);
    number("display_height_mm", h.floatField1, 1e-3, 1e6);
    number("machine_height_mm", h.floatField2, 0, 4e6);
    number("layer_height_mm", h.floatField4, 1e-4, 100);
    number("exposure_s", h.tailFloat0, 0, kMost16 / 10);
    number("bottom_exposure_s", h.tailFloat1, 0, kMost16);
    number("light_off_s", h.tailFloat2, 0, kMost16);
    if (h.word0 <= kMost16) s.set("bottom_layers", h.word0, Origin::job, m_path);
    number("bottom_lift_mm", p.bottomLiftHeight, 0, kMost16);
    number("bottom_lift_speed", p.bottomLiftSpeed, 0, kMost16);
    number("lift_mm", p.liftHeight, 0, kMost16);
    number("lift_speed", p.liftSpeed, 0, kMost16);
    number("retract_speed", p.retractSpeed, 0, kMost16);
    number("pwm", static_cast<float>(h.shortField0), 0, 255);
    number("bottom_pwm", static_cast<float>(h.shortField1), 0, 255);
    s.set("anti_aliasing", numberInBits(m_reader.slicerInfo()->word44) != 0 ? 1 : 0, Origin::job, m_path);
    number("resin_ml", p.volume, 0, 1e6);
    number("resin_g", p.weight, 0, 1e6);
    s.set("print_time_s", h.word5, Origin::job, m_path);
    return s;
}

std::optional<double> V4File::volumeMl() const {
    double areas = 0;  // thousandths of a square millimetre
    for (const VNDLPV4::LayerDef* layer : m_layers) areas += layer->word36;
    return areas * static_cast<double>(m_reader.headerSettings()->floatField4) / 1e6;
}

VNDLPV4::LayerDef& V4File::layerAt(int index) const { return *m_layers.at(static_cast<std::size_t>(index)); }

void V4File::readLayer(int index, GreyImage& out) {
    out.width = width();
    out.height = height();
    const std::int64_t pixels = static_cast<std::int64_t>(out.width) * out.height;
    if (pixels > kMaxLayerPixels) {
        throw Failure(m_path + ": layers of " + std::to_string(out.width) + " x " + std::to_string(out.height) +
                      " pixels are too large to be decoded");
    }
    out.pixels.resize(static_cast<std::size_t>(pixels));
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_reader.readLayerImage(m_reader.headerSettings(), &layerAt(index), index, out.pixels.data(),
                                out.pixels.size()) == 0) {
        return;
    }
    throw Failure(m_path + ": damaged at offset " + std::to_string(layerAt(index).dataOffset) + ": layer " +
                  std::to_string(index) + " is not whole; `vndlp verify` tells more");
}

LayerFacts V4File::layerFacts(int index) {
    GreyImage image;
    readLayer(index, image);
    const VNDLPV4::LayerDef& layer = layerAt(index);
    LayerFacts facts;
    facts.offset = layer.dataOffset;
    facts.size = layer.dataSize;
    facts.area = layer.word36;
    facts.litPixels = static_cast<std::uint64_t>(countLit(image));
    facts.fields = {real("positionZ", layer.positionZ, "mm"), real("exposureTime", layer.exposureTime, "s"),
                    real("lightOffDelay", layer.lightOffDelay, "s")};
    const std::vector<unsigned char> mask = layer.beadMask();
    const std::size_t lit = countBits(mask);
    facts.fields.push_back({"beads", mask.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(lit),
                            mask.empty() ? "-" : std::to_string(lit)});
    return facts;
}

/// The layer's code, not scrambled; shorter than it says where the file ends.
std::vector<unsigned char> V4File::readCode(int index) {
    const VNDLPV4::LayerDef& layer = layerAt(index);
    FileRead& file = m_reader.getFileRead();
    std::vector<unsigned char> code;
    if (layer.dataSize <= kExtendedBytes || file.seek(layer.dataOffset + kExtendedBytes, 0) < 0) return code;
    code.resize(static_cast<std::size_t>(std::min<long long>(layer.dataSize - kExtendedBytes, file.remaining())));
    code.resize(file.readBytes(code.data(), code.size()));
    VNDLPV4::VNDLPV4Write::LayerRleCryptBuffer(m_reader.headerSettings()->encryptionKey,
                                               static_cast<unsigned int>(index), code);
    return code;
}

VNDLPV4::LampBeadCal& V4File::beadField() {
    if (m_field == nullptr) {
        m_field = std::make_unique<VNDLPV4::LampBeadCal>();
        m_field->m_printBuild = false;
        VNDLPV4::initPrinterBeadField(*m_field);
    }
    return *m_field;
}

std::vector<unsigned char> V4File::beadMask(int index, bool& stored) {
    std::vector<unsigned char> mask = layerAt(index).beadMask();
    stored = !mask.empty();
    if (!stored) mask = VNDLPV4::LayerDef::beadMaskOfCode(readCode(index), static_cast<unsigned>(width()), beadField());
    return mask;
}

std::vector<Finding> V4File::verify() {
    std::vector<Finding> findings;
    const VNDLPV4::HeaderSettings& h = *m_reader.headerSettings();
    const struct {
        const char* name;
        long long offset;
        long long size;
    } parts[] = {
        {"first preview", h.previewLargeOffset, VNDLPV4::PreView::size()},
        {"second preview", h.previewSmallOffset, VNDLPV4::PreView::size()},
        {"print parameters", h.printParametersOffset, VNDLPV4::PrintParameters::size()},
        {"slicer information", h.slicerInfoOffset, VNDLPV4::SlicerInfo::size()},
    };
    for (const auto& part : parts) {
        if (part.offset >= h.size() && part.offset + part.size <= m_fileSize) continue;
        findings.push_back({0, std::string("the ") + part.name + ", by the header at offset " +
                                   std::to_string(part.offset) + ", does not lie within the file"});
    }
    const std::vector<VNDLPV4::PreView*> previews = m_reader.preViews();
    if (previews.size() > 1 && previews[1]->beginPosition != h.previewSmallOffset) {
        findings.push_back({0, "the second preview is at offset " + std::to_string(previews[1]->beginPosition) +
                                   ", by the header at " + std::to_string(h.previewSmallOffset)});
    }
    findOverlaps(sections(), findings);
    if (!m_reader.isWhole()) findings.push_back({-1, "the file ends before what its records tell of"});
    long long end = m_layers.empty() ? h.layerDefOffset : m_layers.back()->endPosition;
    for (int i = 0; i < layerCount(); ++i) checkLayer(i, end, findings);
    checkSecondCopies(end, findings);
    const Trailer seal = trailer();
    const long long left = m_fileSize - end - (seal.present ? kTrailerBytes : 0);
    if (left > 0) findings.push_back({end, std::to_string(left) + " bytes are left over behind the last record"});
    if (left < 0) findings.push_back({m_fileSize, "the file ends too early"});
    if (seal.present && !seal.matches) findings.push_back(trailerFinding(seal, m_fileSize));
    return findings;
}

void V4File::checkLayer(int index, long long& end, std::vector<Finding>& findings) {
    const VNDLPV4::LayerDef& layer = layerAt(index);
    const std::string name = "layer " + std::to_string(index) + ": ";
    const long long entry = layer.beginPosition;
    const long long layerEnd = static_cast<long long>(layer.dataOffset) + layer.dataSize;
    if (layer.dataSize < kExtendedBytes || layerEnd > m_fileSize) {
        findings.push_back({entry + 12, name + "its data at offset " + std::to_string(layer.dataOffset) +
                                            " do not lie within the file"});
        return;
    }
    if (layer.dataOffset < end) findings.push_back({entry + 12, name + "its data overlap what stands before them"});
    end = std::max(end, layerEnd);
    const std::vector<unsigned char> code = readCode(index);
    const long long pixels = static_cast<long long>(width()) * height();
    const long long coded = VNDLPV4::LayerDef::codedPixels(code);
    if (coded != pixels) {
        findings.push_back({layer.dataOffset + kExtendedBytes,
                            name + (coded < 0 ? "its code ends within a run"
                                              : "its code makes " + std::to_string(coded) + " pixels, the screen has " +
                                                    std::to_string(pixels))});
        return;
    }
    const std::vector<unsigned char> mask = layer.beadMask();
    if (!mask.empty() && mask != VNDLPV4::LayerDef::beadMaskOfCode(code, static_cast<unsigned>(width()), beadField())) {
        findings.push_back({entry + 40, name + "its bead mask is not that of its image"});
    }
}

void V4File::checkSecondCopies(long long& end, std::vector<Finding>& findings) {
    FileRead& file = m_reader.getFileRead();
    for (std::size_t i = 0; i < m_layers.size(); ++i) {
        unsigned char first[kExtendedBytes];
        unsigned char second[kExtendedBytes];
        const bool read = file.seek(m_layers[i]->dataOffset, 0) >= 0 &&
                          file.readBytes(first, sizeof first) == sizeof first && file.seek(end, 0) >= 0 &&
                          file.readBytes(second, sizeof second) == sizeof second;
        if (!read || std::memcmp(first, second, sizeof first) != 0) {
            findings.push_back({end, "layer " + std::to_string(i) + ": the second copy of its extended record " +
                                         (read ? "differs from the first" : "is missing")});
            if (!read) return;
        }
        end += kExtendedBytes;
    }
}

bool isV4File(const std::string& path) {
    std::string magic;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    // both begin with the same text; the version behind it tells a V4 file from the vendor container
    return CheckSum::instance().getFileVersionInfo(path.c_str(), magic, version, type) == 0 &&
           magic == VNDLPV4::kV4HeaderText && version == VNDLPV4::kV4Version;
}

std::unique_ptr<SliceFile> openV4File(const std::string& path) { return std::make_unique<V4File>(path); }

std::vector<Finding> verifyV4File(const std::string& path) {
    try {
        return V4File(path).verify();
    } catch (const Failure& failure) {
        // the head is damaged: its message is the finding
        return {{-1, std::string(failure.what()).substr(path.size() + 2)}};
    }
}

}  // namespace vndlp::tools
