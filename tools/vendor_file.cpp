/// The vendor container, ".vndlp", as the commands see it.

#include "tools/failure.h"
#include "tools/slice_file.h"

#include <vndlp/checksum.h>
#include <vndlp/container.h>

#include <algorithm>
#include <cmath>
#include <mutex>

namespace vndlp::tools {

namespace {

constexpr int kV1 = 1;
constexpr int kV2 = 2;
constexpr int kV3 = 3;
constexpr int kLine = 12;
constexpr int kSettingsVersion = 3;
constexpr long long kTrailerBytes = 4;

/// "vndlp V2" and the like.
std::string formatName(int headerType) {
    switch (headerType) {
        case kV1: return "vndlp V1";
        case kV2: return "vndlp V2";
        case kV3: return "vndlp V3";
        default: return "vnline V2";
    }
}

bool hasAreas(int headerType) { return headerType == kV2 || headerType == kLine; }

/// A step of reading the head that failed.
struct HeadFailure {
    long long offset;
    std::string text;
};

/// Where the parts of a head begin, found by reading them one after the other.
struct HeadMap {
    std::vector<Section> sections;
    long long firstLayer = 0;
};

std::string headerFailureText(int code) {
    switch (code) {
        case -2: return "the preview pictures do not end where they should";
        case -3: return "the layer count is more than a file of this size can hold";
        case -4: return "the screen's resolution is 0";
        default: return "the header cannot be read";
    }
}

/// Reads the head's parts one by one to learn where they are; `areas` receives the area table.
HeadMap mapHead(VndlpRead& reader, DlpFileStructure& s, std::vector<unsigned int>& areas) {
    HeadMap map;
    long long begin = 0;
    const auto endSection = [&](const char* name) {
        const long long end = reader.currentPosition();
        map.sections.push_back({name, begin, end - begin});
        begin = end;
    };
    const auto require = [&](int code, const std::string& text) {
        if (code != 0) throw HeadFailure{begin, text};
    };

    std::string magic;
    reader.readTag(magic);
    endSection("head magic");
    int code = 0;
    int previewBytes = 0;
    switch (s.headerType) {
        case kV1:
            code = reader.readDlpV1Header(s.v1Header, true);
            previewBytes = s.v1Header.thumbImageSize();
            break;
        case kV2:
            code = reader.readDlpV2Header(s.v2Header, true);
            previewBytes = s.v2Header.thumbImageSize();
            break;
        case kV3:
            code = reader.readDlpV3Header(s.v3Header, true);
            previewBytes = s.v3Header.thumbImageSize();
            break;
        default:
            code = reader.readDlpLineV2Header(s.lineHeader, true);
            previewBytes = s.lineHeader.thumbImageSize();
            break;
    }
    require(code, headerFailureText(code));
    endSection("header");
    Section& header = map.sections.back();
    header.size -= previewBytes;
    // the V3 header has its previews in front of its numbers
    const long long previews = s.headerType == kV3 ? header.offset : header.offset + header.size;
    if (s.headerType == kV3) header.offset += previewBytes;
    map.sections.push_back({"previews", previews, previewBytes});

    areas.assign(static_cast<std::size_t>(s.layerCount()), 0);
    code = reader.readDlpParameters(s.parameters, hasAreas(s.headerType) ? &areas : nullptr);
    require(code, code == -3 ? "the platform's size or the layer thickness is missing"
                             : "the layer area table does not end where it should");
    endSection("parameters");
    if (hasAreas(s.headerType)) {
        const long long tableBytes = 4LL * s.layerCount() + 2;
        map.sections.back().size -= tableBytes;
        map.sections.push_back({"layer area table", begin - tableBytes, tableBytes});
    }
    if (s.headerType == kV2 && s.v2Header.versionCode >= kSettingsVersion) {
        code = reader.readDlpSliceBasicParameters(s.sliceBasicParameters);
        require(code, "the slicing settings do not end where they should");
        endSection("slicing settings");
    }
    map.firstLayer = begin;
    return map;
}

/// A preview's pixels, 5-6-5 bits big-endian, as a picture.
ColourImage pictureOf(const DlpImage& preview) {
    ColourImage picture;
    picture.width = preview.width();
    picture.height = preview.height();
    const auto pixels = static_cast<std::size_t>(preview.width()) * static_cast<std::size_t>(preview.height());
    picture.pixels.resize(pixels * 4);
    const auto* bytes = reinterpret_cast<const unsigned char*>(preview.bits());
    const auto widen = [](unsigned value, unsigned bits) {
        return static_cast<unsigned char>(value * 255 / ((1u << bits) - 1));
    };
    for (std::size_t i = 0; i < pixels; ++i) {
        const unsigned colour = static_cast<unsigned>(bytes[2 * i]) << 8 | bytes[2 * i + 1];
        unsigned char* out = picture.pixels.data() + 4 * i;
        out[0] = widen(colour >> 11, 5);
        out[1] = widen(colour >> 5 & 63, 6);
        out[2] = widen(colour & 31, 5);
        out[3] = 255;
    }
    return picture;
}

std::string quantity(double value, const char* unit) { return shortNumber(value) + " " + unit; }

class VendorFile final : public SliceFile {
public:
    explicit VendorFile(const std::string& path) : m_path(path) {
        VndlpRead probe;
        if (probe.openDlpFile(path, false) != 0) throw Failure(path + ": cannot be opened");
        m_fileSize = probe.remaining();
        if (m_reader.openDlpFile(path, false) != 0) throw Failure(path + ": cannot be opened");
        // the structure the reader keeps also tells it whether layers have areas
        const int code = m_reader.readDlpStructure(false);
        const DlpFileStructure* read = m_reader.getDlpFileStructure();
        if (read == nullptr) throw Failure(path + ": no file of the vendor container");
        m_structure.headerType = read->headerType;
        try {
            m_head = mapHead(probe, m_structure, m_areas);
        } catch (const HeadFailure& failure) {
            throw Failure(path + ": damaged at offset " + std::to_string(failure.offset) + ": " + failure.text);
        }
        if (code != 0) throw Failure(path + ": the head of the file is damaged");
        m_tail = m_reader.tailMagic();
        indexLayers();
    }

    std::string format() const override { return formatName(m_structure.headerType); }

    int version() const override {
        switch (m_structure.headerType) {
            case kV2: return m_structure.v2Header.versionCode;
            case kLine: return m_structure.lineHeader.versionCode;
            default: return 0;
        }
    }

    int width() const override { return m_structure.getResolutionX(); }
    int height() const override { return m_structure.getResulutionY(); }
    int layerCount() const override { return m_structure.layerCount(); }

    std::vector<Field> header() const override {
        std::vector<Field> fields;
        const auto add = [&fields](const char* key, const auto& value, const std::string& text) {
            fields.push_back({key, value, text});
        };
        const auto addMachine = [&](const auto& h) { add("machine_type", h.machine_type, h.machine_type); };
        if (m_structure.headerType == kV2) addMachine(m_structure.v2Header);
        if (m_structure.headerType == kLine) addMachine(m_structure.lineHeader);
        if (m_structure.headerType == kV3) {
            add("z_begin", m_structure.v3Header.z_begin, std::to_string(m_structure.v3Header.z_begin));
            add("z_end", m_structure.v3Header.z_end, std::to_string(m_structure.v3Header.z_end));
        }
        if (const VndlpBackUse* b = m_structure.getVndlpBackUse()) {
            add("machineHeight", b->machineHeightUm, quantity(b->machineHeightUm / 1000.0, "mm"));
            add("enableXYCompensate", b->isEnableXYCompensate(), b->isEnableXYCompensate() ? "yes" : "no");
            add("supportPad", b->isSupportPad(), b->isSupportPad() ? "yes" : "no");
            add("autoAllSupport", b->isAutoAllSupport(), b->isAutoAllSupport() ? "yes" : "no");
            add("supportDensity", b->supportDensity, shortNumber(static_cast<double>(b->supportDensity)));
            add("blurPixel", b->blurPixel, quantity(b->blurPixel, "px"));
            add("lineExposureTime", b->lineExposureTime, std::to_string(b->lineExposureTime));
            add("totalVolume", b->totalVolume, shortNumber(static_cast<double>(b->totalVolume)));
            add("sliceModelX", b->sliceModelX, quantity(static_cast<double>(b->sliceModelX), "mm"));
            add("sliceModelY", b->sliceModelY, quantity(static_cast<double>(b->sliceModelY), "mm"));
            add("sliceModelZ", b->sliceModelZ, quantity(static_cast<double>(b->sliceModelZ), "mm"));
        }
        return fields;
    }

    std::vector<Field> parameters() const override {
        const DlpParameters& p = m_structure.parameters;
        std::vector<Field> fields = {
            {"platformX", p.platformX, p.platformX + " mm"},
            {"platformY", p.platformY, p.platformY + " mm"},
            {"thickness", p.thickness, p.thickness + " mm"},
            {"exposure_time", p.exposure_time, quantity(p.exposure_time / 10.0, "s")},
            {"light_off_delay", p.light_off_delay, quantity(p.light_off_delay, "s")},
            {"first_exposure_time", p.first_exposure_time, quantity(p.first_exposure_time, "s")},
            {"first_layer_count", p.first_layer_count, std::to_string(p.first_layer_count)},
            {"first_lift_distance", p.first_lift_distance, quantity(p.first_lift_distance, "mm")},
            {"first_lift_speed", p.first_lift_speed, quantity(p.first_lift_speed, "mm/min")},
            {"lifting_distance", p.lifting_distance, quantity(p.lifting_distance, "mm")},
            {"lifting_speed", p.lifting_speed, quantity(p.lifting_speed, "mm/min")},
            {"retract_speed", p.retract_speed, quantity(p.retract_speed, "mm/min")},
            {"firstBrightnessPVM", p.firstBrightnessPVM, std::to_string(p.firstBrightnessPVM)},
            {"brightnessPVM", p.brightnessPVM, std::to_string(p.brightnessPVM)},
        };
        if (m_structure.headerType != kV2 || m_structure.v2Header.versionCode < kSettingsVersion) return fields;
        const DlpSliceBasicParameters& b = m_structure.sliceBasicParameters;
        const auto number = [&fields](const char* key, int value) {
            fields.push_back({key, value, std::to_string(value)});
        };
        fields.push_back({"sliceSoftVersion", b.sliceSoftVersion, b.sliceSoftVersion});
        fields.push_back({"consumables", b.consumables, b.consumables});
        number("enableBOffset", b.enableBOffset);
        number("bOffsetThickness", b.bOffsetThickness);
        number("bOffsetFocalLength", b.bOffsetFocalLength);
        number("enableXYCompensation", b.enableXYCompensation);
        number("XYCompensation", b.XYCompensation);
        number("enableZCompensation", b.enableZCompensation);
        number("ZCompensation", b.ZCompensation);
        number("enableAntiAliasing", b.enableAntiAliasing);
        number("antiAliasingMixGray", b.antiAliasingMixGray);
        number("antiAliasingMaxGray", b.antiAliasingMaxGray);
        number("enableImageBlur", b.enableImageBlur);
        number("imageBlurPixelNum", b.imageBlurPixelNum);
        return fields;
    }

    std::vector<Section> sections() const override {
        std::vector<Section> all = m_head.sections;
        std::sort(all.begin(), all.end(), [](const Section& a, const Section& b) { return a.offset < b.offset; });
        all.push_back({"layers", m_head.firstLayer, m_layersEnd - m_head.firstLayer});
        const auto tailBytes = static_cast<long long>(m_tail.size()) + 5;
        all.push_back({"tail magic", m_layersEnd, std::min(tailBytes, m_fileSize - m_layersEnd)});
        const long long rest = m_fileSize - m_layersEnd - tailBytes;
        if (rest > 0 && trailerKindHasBytes()) all.push_back({"checksum trailer", m_fileSize - kTrailerBytes, 4});
        const long long left = rest - (trailerKindHasBytes() ? kTrailerBytes : 0);
        if (left > 0) all.push_back({"left over", m_layersEnd + tailBytes, left});
        return all;
    }

    std::vector<Preview> previews() const override {
        std::vector<Preview> all;
        const auto add = [&all](const char* name, const DlpImage& image) {
            if (image.haveDatas()) all.push_back({name, pictureOf(image)});
        };
        const auto addThree = [&add](const auto& h) {
            add("small", h.smallPreview);
            add("middle", h.middlePreview);
            add("large", h.largePreview);
        };
        switch (m_structure.headerType) {
            case kV1:
                add("small", m_structure.v1Header.smallPreview);
                add("large", m_structure.v1Header.largePreview);
                break;
            case kV2: addThree(m_structure.v2Header); break;
            case kV3:
                add("small", m_structure.v3Header.smallPreview);
                add("second", m_structure.v3Header.secondPreview);
                add("third", m_structure.v3Header.thirdPreview);
                break;
            default: addThree(m_structure.lineHeader); break;
        }
        return all;
    }

    Trailer trailer() const override { return trailerOf(m_path); }

    PrintSettings settings() const override {
        PrintSettings s;
        const auto number = [&](const char* key, double value) { s.set(key, value, Origin::job, m_path); };
        const DlpParameters& p = m_structure.parameters;
        if (m_structure.headerType == kV2) s.set("machine", m_structure.v2Header.machine_type, Origin::job, m_path);
        number("resolution_x", width());
        number("resolution_y", height());
        if (p.parsePlatformX() > 0) number("display_width_mm", p.parsePlatformX());
        if (p.parsePlatformY() > 0) number("display_height_mm", p.parsePlatformY());
        if (p.parseThickness() > 0) number("layer_height_mm", p.parseThickness());
        if (const VndlpBackUse* b = m_structure.getVndlpBackUse()) {
            number("machine_height_mm", b->machineHeightUm / 1000.0);
        }
        number("exposure_s", p.exposure_time / 10.0);
        number("bottom_exposure_s", p.first_exposure_time);
        number("bottom_layers", p.first_layer_count);
        number("light_off_s", p.light_off_delay);
        number("bottom_lift_mm", p.first_lift_distance);
        number("bottom_lift_speed", p.first_lift_speed);
        number("lift_mm", p.lifting_distance);
        number("lift_speed", p.lifting_speed);
        number("retract_speed", p.retract_speed);
        number("bottom_pwm", std::min<int>(p.firstBrightnessPVM, 255));
        number("pwm", std::min<int>(p.brightnessPVM, 255));
        const DlpSliceBasicParameters& b = m_structure.sliceBasicParameters;
        number("anti_aliasing", b.enableAntiAliasing != 0 ? 1 : 0);
        number("min_grey", b.antiAliasingMixGray);
        number("max_grey", b.antiAliasingMaxGray);
        if (!b.consumables.empty()) s.set("resin", b.consumables, Origin::job, m_path);
        return s;
    }

    std::optional<double> volumeMl() const override {
        if (!hasAreas(m_structure.headerType)) return std::nullopt;
        double areas = 0;
        for (const Layer& layer : m_layers) areas += layer.area;
        return areas * m_structure.parameters.parseThickness() / 1e6;
    }

    void readLayer(int index, GreyImage& out) override {
        std::vector<WhiteData> runs;
        readRuns(index, runs);
        out.width = width();
        out.height = height();
        out.pixels.assign(static_cast<std::size_t>(out.width) * static_cast<std::size_t>(out.height), 0);
        paintWhiteData(runs, out.pixels.data(), out.width, out.height);
    }

    LayerFacts layerFacts(int index) override {
        std::vector<WhiteData> runs;
        readRuns(index, runs);
        const Layer& layer = m_layers.at(static_cast<std::size_t>(index));
        LayerFacts facts;
        facts.offset = layer.offset;
        facts.size = layer.size;
        if (hasAreas(m_structure.headerType)) facts.area = layer.area;
        facts.runs = layer.runs;
        for (const WhiteData& run : runs) {
            facts.litPixels += static_cast<std::uint64_t>(std::max(run.end.y - run.start.y + 1, 0.0F));
        }
        return facts;
    }

private:
    struct Layer {
        long long offset;
        long long size;
        unsigned int area;
        unsigned int runs;
    };

    bool trailerKindHasBytes() const {
        std::string magic;
        int version = 0;
        EnumCheckSumType type = CHECKSUM_NONE;
        CheckSum::instance().getFileVersionInfo(m_path.c_str(), magic, version, type);
        return type != CHECKSUM_NONE;
    }

    void indexLayers() {
        m_layers.reserve(static_cast<std::size_t>(layerCount()));
        for (int i = 0; i < layerCount(); ++i) {
            const long long offset = m_reader.currentPosition();
            unsigned int area = 0;
            unsigned int runs = 0;
            const bool withArea = hasAreas(m_structure.headerType);
            if (m_reader.skipLayerWhiteData(withArea ? &area : nullptr, runs) != 0) failAtLayer(i, offset);
            m_layers.push_back({offset, m_reader.currentPosition() - offset, area, runs});
        }
        m_layersEnd = m_reader.currentPosition();
    }

    void readRuns(int index, std::vector<WhiteData>& runs) {
        const Layer& layer = m_layers.at(static_cast<std::size_t>(index));
        const std::lock_guard<std::mutex> lock(m_mutex);
        unsigned int area = 0;
        if (m_reader.seek(layer.offset) != 0 || m_reader.getWhiteDatas(runs, &area) != 0) {
            failAtLayer(index, layer.offset);
        }
    }

    [[noreturn]] void failAtLayer(int index, long long offset) const {
        throw Failure(m_path + ": damaged at offset " + std::to_string(offset) + ": layer " + std::to_string(index) +
                      " does not end where its run count says; `vndlp verify` tells more");
    }

    std::string m_path;
    long long m_fileSize = 0;
    VndlpRead m_reader;
    std::mutex m_mutex;
    DlpFileStructure m_structure;
    std::vector<unsigned int> m_areas;
    HeadMap m_head;
    std::vector<Layer> m_layers;
    long long m_layersEnd = 0;
    std::string m_tail;
};

/// Collects what is wrong with one file.
class VendorVerifier {
public:
    explicit VendorVerifier(const std::string& path) : m_path(path) {}

    std::vector<Finding> verify() {
        if (m_reader.openDlpFile(m_path, false) != 0) throw Failure(m_path + ": cannot be opened");
        m_fileSize = m_reader.remaining();
        if (checkHead() && checkLayers()) checkEnd();
        const Trailer trailer = trailerOf(m_path);
        if (trailer.present && !trailer.matches) {
            m_findings.push_back(trailerFinding(trailer, m_fileSize));
        }
        return std::move(m_findings);
    }

private:
    void add(long long offset, const std::string& text) { m_findings.push_back({offset, text}); }

    bool checkHead() {
        const int code = m_reader.readDlpStructure(false);
        const DlpFileStructure* read = m_reader.getDlpFileStructure();
        if (read == nullptr) {
            add(0, "the magic is not one of the vendor container");
            return false;
        }
        VndlpRead probe;
        probe.openDlpFile(m_path, false);
        DlpFileStructure s;
        s.headerType = read->headerType;
        try {
            m_firstLayer = mapHead(probe, s, m_areas).firstLayer;
        } catch (const HeadFailure& failure) {
            add(failure.offset, failure.text);
            return false;
        }
        m_headerType = s.headerType;
        m_width = s.getResolutionX();
        m_height = s.getResulutionY();
        return code == 0;
    }

    bool checkLayers() {
        for (std::size_t i = 0; i < m_areas.size(); ++i) {
            const long long offset = m_reader.currentPosition();
            const std::string layer = "layer " + std::to_string(i) + ": ";
            std::vector<WhiteData> runs;
            unsigned int area = 0;
            if (m_reader.getWhiteDatas(runs, &area) != 0) {
                add(offset, layer + "does not end where its run count says; nothing behind it can be checked");
                return false;
            }
            if (hasAreas(m_headerType) && area != m_areas[i]) {
                add(offset, layer + "its area is " + std::to_string(area) + ", the area table says " +
                                std::to_string(m_areas[i]));
            }
            checkRuns(runs, offset + (hasAreas(m_headerType) ? 8 : 4), layer);
        }
        return true;
    }

    /// One finding a layer is enough: damage seldom comes alone.
    void checkRuns(const std::vector<WhiteData>& runs, long long firstRun, const std::string& layer) {
        const WhiteData* previous = nullptr;
        for (const WhiteData& run : runs) {
            const std::string problem = runProblem(run, previous);
            if (!problem.empty()) {
                const auto number = &run - runs.data();
                std::string text = layer;
                text.append("run ").append(std::to_string(number)).append(" ").append(problem);
                add(firstRun + number * kPackedRunBytes, text);
                return;
            }
            previous = &run;
        }
    }

    std::string runProblem(const WhiteData& run, const WhiteData* previous) const {
        const auto x = static_cast<int>(run.start.x);
        const auto first = static_cast<int>(run.start.y);
        const auto last = static_cast<int>(run.end.y);
        const std::string place =
            "(column " + std::to_string(x) + ", rows " + std::to_string(first) + " to " + std::to_string(last) + ") ";
        if (x >= m_width || last >= m_height) {
            return place + "is outside the screen of " + std::to_string(m_width) + " x " + std::to_string(m_height);
        }
        if (first > last) return place + "ends before it begins";
        if (run.grey <= kDarkest) return place + "has the background grey " + std::to_string(run.grey);
        if (previous == nullptr) return {};
        const bool inOrder =
            previous->start.x < run.start.x || (previous->start.x == run.start.x && previous->end.y < run.start.y);
        return inOrder ? std::string() : place + "is not behind the run before it";
    }

    void checkEnd() {
        const long long offset = m_reader.currentPosition();
        const std::string expected = m_reader.tailMagic();
        std::string found;
        m_reader.readTag(found);
        if (found != expected) {
            add(offset, "the tail magic \"" + expected + "\" is missing");
            return;
        }
        const long long trailerBytes = trailerOf(m_path).present ? kTrailerBytes : 0;
        const long long left = m_reader.remaining() - trailerBytes;
        if (left > 0)
            add(m_reader.currentPosition(), std::to_string(left) + " bytes are left over behind the tail magic");
        if (left < 0) add(m_reader.currentPosition(), "the checksum trailer is missing");
    }

    static constexpr int kDarkest = 15;  // the brightest background grey

    std::string m_path;
    VndlpRead m_reader;
    long long m_fileSize = 0;
    long long m_firstLayer = 0;
    int m_headerType = 0;
    int m_width = 0;
    int m_height = 0;
    std::vector<unsigned int> m_areas;
    std::vector<Finding> m_findings;
};

}  // namespace

bool isVendorFile(const std::string& path) {
    std::string magic;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    return CheckSum::instance().getFileVersionInfo(path.c_str(), magic, version, type) == 0 && magic != "VNLINEV2";
}

std::unique_ptr<SliceFile> openVendorFile(const std::string& path) { return std::make_unique<VendorFile>(path); }

std::vector<Finding> verifyVendorFile(const std::string& path) { return VendorVerifier(path).verify(); }

}  // namespace vndlp::tools
