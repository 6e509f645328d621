/// CTB files as the commands see them.

#include "tools/base/failure.h"
#include "tools/formats/slice_file.h"
#include "tools/images/bgr_preview.h"
#include "tools/jobs/input.h"

#include <vndlp/ctb.h>

#include <algorithm>
#include <mutex>

namespace vndlp::tools {

namespace {

std::string quantity(double value, const char* unit) { return shortNumber(value, 4) + " " + unit; }

ColourImage pictureOf(CTB::PreView& preview) {
    const auto size = static_cast<unsigned int>(preview.imageData.size());
    return pictureOfBgr(preview.decodeImg(preview.imageData.data(), size), preview.resolutionX, preview.resolutionY);
}

template <class Record>
std::vector<std::unique_ptr<Record>> owned(const std::vector<Record*>& records) {
    std::vector<std::unique_ptr<Record>> all;
    all.reserve(records.size());
    for (Record* record : records) all.emplace_back(record);
    return all;
}

/// A file's records. What the reader does not give back as it stands in the file is taken from where it stands: the
/// number of bottom layers from the header, the machine name from its offset and size.
class CtbFile final : public SliceFile {
public:
    explicit CtbFile(const std::string& path) : m_path(path) {
        if (m_reader.openDlpFile(path, false) != 0) throw Failure(path + ": cannot be opened");
        m_reader.parseFile(true);
        m_raw.open(path, 0);
        m_header = *m_reader.headerSettings();
        if (m_raw.fileLength() < CTB::HeaderSettings::size()) throw Failure(path + ": ends within the header");
        // the sides first: the product of two 32-bit numbers need not fit
        if (m_header.resolutionX > kMaxImageSide || m_header.resolutionY > kMaxImageSide || pixels() < 1 ||
            pixels() > kMaxLayerPixels) {
            throw Failure(path + ": damaged at offset 52: the resolution is " + std::to_string(m_header.resolutionX) +
                          " x " + std::to_string(m_header.resolutionY));
        }
        m_parameters = m_reader.printParameters();
        m_info = m_reader.slicerInfo();
        m_machine = readMachineName();
        m_previews = owned(m_reader.preViews());
        m_layers = owned(m_reader.layerDef(false));
        // an entry cut off by the end of the file is none
        const long long entries = (m_raw.fileLength() - m_header.layerDefOffset) / CTB::LayerDef::size();
        if (entries < m_header.layerCount) {
            throw Failure(path + ": damaged at offset " + std::to_string(m_header.layerDefOffset) +
                          ": the layer table has " + std::to_string(std::max(entries, 0LL)) + " of " +
                          std::to_string(m_header.layerCount) + " entries; `vndlp verify` tells more");
        }
    }

    std::string format() const override { return "ctb"; }
    int version() const override { return static_cast<int>(m_header.version); }
    int width() const override { return static_cast<int>(m_header.resolutionX); }
    int height() const override { return static_cast<int>(m_header.resolutionY); }
    int layerCount() const override { return static_cast<int>(m_header.layerCount); }

    std::vector<Field> header() const override {
        std::vector<Field> fields;
        const auto whole = [&fields](const char* key, unsigned int value, const char* unit = "") {
            fields.push_back({key, value, std::to_string(value) + (unit[0] != '\0' ? std::string(" ") + unit : "")});
        };
        const auto real = [&fields](const char* key, float value, const char* unit) {
            fields.push_back({key, value, quantity(static_cast<double>(value), unit)});
        };
        fields.push_back({"machineName", m_machine, printable(m_machine)});
        real("bedSizeX", m_header.bedSizeX, "mm");
        real("bedSizeY", m_header.bedSizeY, "mm");
        real("bedSizeZ", m_header.bedSizeZ, "mm");
        real("totalHeight", m_header.totalHeight, "mm");
        real("layerHeight", m_header.layerHeight, "mm");
        real("exposureTime", m_header.exposureTime, "s");
        real("bottomExposureTime", m_header.bottomExposureTime, "s");
        real("lightOffDelay", m_header.lightOffDelay, "s");
        whole("bottomLayerCount", m_header.bottomLayerCount);
        whole("printTime", m_header.printTime, "s");
        whole("projectorType", m_header.projectorType);
        whole("antiAliasLevel", m_header.antiAliasLevel);
        whole("lightPwm", m_header.lightPwm);
        whole("bottomLightPwm", m_header.bottomLightPwm);
        whole("encryptionKey", m_header.encryptionKey);
        return fields;
    }

    std::vector<Field> parameters() const override {
        std::vector<Field> fields;
        const auto real = [&fields](const char* key, float value, const char* unit) {
            fields.push_back({key, value, quantity(static_cast<double>(value), unit)});
        };
        real("bottomLiftHeight", m_parameters.bottomLiftHeight, "mm");
        real("bottomLiftSpeed", m_parameters.bottomLiftSpeed, "mm/min");
        real("liftHeight", m_parameters.liftHeight, "mm");
        real("liftSpeed", m_parameters.liftSpeed, "mm/min");
        real("retractSpeed", m_parameters.retractSpeed, "mm/min");
        real("volume", m_parameters.volume, "ml");
        real("weight", m_parameters.weight, "g");
        real("price", m_parameters.price, "");
        real("bottomLightOffDelay", m_parameters.bottomLightOffDelay, "s");
        real("lightOffDelay", m_parameters.lightOffDelay, "s");
        fields.push_back({"slicerVersion", m_info.slicerVersion, std::to_string(m_info.slicerVersion)});
        fields.push_back(
            {"transitionLayerCount", m_info.transitionLayerCount, std::to_string(m_info.transitionLayerCount)});
        return fields;
    }

    std::vector<Section> sections() const override {
        std::vector<Section> all;
        const auto add = [&all](const char* name, long long offset, long long size) {
            if (size > 0) all.push_back({name, offset, size});
        };
        add("header", 0, CTB::HeaderSettings::size());
        long long next = CTB::HeaderSettings::size();
        for (const auto& preview : m_previews) {
            const auto bytes = CTB::PreView::size() + static_cast<long long>(preview->imageData.size());
            add("preview", next, bytes);
            next += bytes;
        }
        add("print parameters", m_header.printParametersOffset, CTB::PrintParameters::size());
        add("slicer information", m_header.slicerInfoOffset, CTB::SlicerInfo::size());
        add("machine name", m_info.machineNameOffset, static_cast<long long>(m_machine.size()));
        const long long table = static_cast<long long>(m_layers.size()) * CTB::LayerDef::size();
        add("layer table", m_header.layerDefOffset, table);
        if (!m_layers.empty()) {
            const long long first = static_cast<long long>(m_layers.front()->dataOffset) - extendedBytes();
            const CTB::LayerDef& last = *m_layers[static_cast<std::size_t>(layerCount()) - 1];
            add("layers", first, static_cast<long long>(last.dataOffset) + last.dataSize - first);
        }
        std::sort(all.begin(), all.end(), [](const Section& a, const Section& b) { return a.offset < b.offset; });
        return all;
    }

    std::vector<Preview> previews() const override {
        std::vector<Preview> all;
        const char* const names[] = {"large", "small"};
        for (std::size_t i = 0; i < std::min(m_previews.size(), std::size(names)); ++i) {
            ColourImage picture = pictureOf(*m_previews[i]);
            if (picture.width > 0) all.push_back({names[i], std::move(picture)});
        }
        // the smallest first
        std::reverse(all.begin(), all.end());
        return all;
    }

    Trailer trailer() const override { return {"none", false, false}; }

    PrintSettings settings() const override {
        PrintSettings s;
        const auto number = [&](const char* key, double value, double most) {
            if (value >= 0 && value <= most) s.set(key, value, Origin::job, m_path);
        };
        constexpr double kMost = 65535;
        if (!m_machine.empty()) s.set("machine", m_machine, Origin::job, m_path);
        number("resolution_x", width(), kMost);
        number("resolution_y", height(), kMost);
        if (m_header.bedSizeX > 0.001F) number("display_width_mm", static_cast<double>(m_header.bedSizeX), 1e6);
        if (m_header.bedSizeY > 0.001F) number("display_height_mm", static_cast<double>(m_header.bedSizeY), 1e6);
        number("machine_height_mm", static_cast<double>(m_header.bedSizeZ), 4e6);
        if (m_header.layerHeight >= 1e-4F) number("layer_height_mm", static_cast<double>(m_header.layerHeight), 100);
        number("exposure_s", static_cast<double>(m_header.exposureTime), 6553.5);
        number("bottom_exposure_s", static_cast<double>(m_header.bottomExposureTime), kMost);
        number("bottom_layers", m_header.bottomLayerCount, kMost);
        number("light_off_s", static_cast<double>(m_header.lightOffDelay), kMost);
        number("bottom_lift_mm", static_cast<double>(m_parameters.bottomLiftHeight), kMost);
        number("bottom_lift_speed", static_cast<double>(m_parameters.bottomLiftSpeed), kMost);
        number("lift_mm", static_cast<double>(m_parameters.liftHeight), kMost);
        number("lift_speed", static_cast<double>(m_parameters.liftSpeed), kMost);
        number("retract_speed", static_cast<double>(m_parameters.retractSpeed), kMost);
        number("bottom_pwm", m_header.bottomLightPwm, 255);
        number("pwm", m_header.lightPwm, 255);
        number("anti_aliasing", m_info.word44 != 0 ? 1 : 0, 1);
        number("resin_g", static_cast<double>(m_parameters.weight), 1e6);
        return s;
    }

    // the volume in the file is a fixed number of the format's writer
    std::optional<double> volumeMl() const override { return std::nullopt; }

    void readLayer(int index, GreyImage& out) override {
        out.width = width();
        out.height = height();
        out.pixels.resize(static_cast<std::size_t>(pixels()));
        const std::lock_guard<std::mutex> lock(m_mutex);
        CTB::LayerDef& layer = layerAt(index);
        if (layer.decodeCtbImageInto(out.pixels.data(), out.pixels.size(), static_cast<unsigned int>(index),
                                     m_header.encryptionKey) == 0) {
            return;
        }
        throw Failure(m_path + ": damaged at offset " + std::to_string(layer.dataOffset) + ": layer " +
                      std::to_string(index) + " is not whole; `vndlp verify` tells more");
    }

    LayerFacts layerFacts(int index) override {
        GreyImage image;
        readLayer(index, image);
        const CTB::LayerDef& layer = layerAt(index);
        LayerFacts facts;
        facts.offset = static_cast<long long>(layer.dataOffset) - extendedBytes();
        facts.size = static_cast<long long>(layer.dataSize) + extendedBytes();
        facts.litPixels = static_cast<std::uint64_t>(countLit(image));
        const auto real = [&facts](const char* key, float value, const char* unit) {
            facts.fields.push_back({key, value, quantity(static_cast<double>(value), unit)});
        };
        real("positionZ", layer.positionZ, "mm");
        real("exposureTime", layer.exposureTime, "s");
        real("lightOffDelay", layer.lightOffDelay, "s");
        return facts;
    }

    std::vector<Finding> verify() {
        std::vector<Finding> findings;
        const auto add = [&findings](long long offset, const std::string& text) { findings.push_back({offset, text}); };
        if (m_previews.size() < 2) add(CTB::HeaderSettings::size(), "one of the two previews is not whole");
        checkOffsets(add);
        findOverlaps(sections(), findings);
        long long end = static_cast<long long>(m_header.layerDefOffset) +
                        static_cast<long long>(m_layers.size()) * CTB::LayerDef::size();
        const auto extended = m_header.version >= CTB::kFirstExtendedVersion
                                  ? owned(m_reader.layerDefEx())
                                  : std::vector<std::unique_ptr<CTB::LayerDefEx>>();
        for (std::size_t i = 0; i < m_header.layerCount; ++i) {
            checkLayer(static_cast<int>(i), i < extended.size() ? extended[i].get() : nullptr, end, add);
        }
        const long long left = m_raw.fileLength() - end;
        if (left > 0) add(end, std::to_string(left) + " bytes are left over behind the last layer");
        return findings;
    }

private:
    std::int64_t pixels() const { return static_cast<std::int64_t>(m_header.resolutionX) * m_header.resolutionY; }

    long long extendedBytes() const {
        return m_header.version >= CTB::kFirstExtendedVersion ? CTB::LayerDefEx::size() : 0;
    }

    CTB::LayerDef& layerAt(int index) { return *m_layers.at(static_cast<std::size_t>(index)); }

    std::string readMachineName() {
        if (m_raw.seek(m_info.machineNameOffset, 0) < 0 || m_info.machineNameSize > m_raw.remaining()) return {};
        std::string name(m_info.machineNameSize, '\0');
        m_raw.readBytes(reinterpret_cast<unsigned char*>(name.data()), name.size());
        return name;
    }

    template <class Add>
    void checkOffsets(Add&& add) {
        const struct {
            const char* name;
            long long field;  // where the header keeps the offset
            long long offset;
            long long size;
        } parts[] = {
            {"print parameters", 84, m_header.printParametersOffset, CTB::PrintParameters::size()},
            {"slicer information", 104, m_header.slicerInfoOffset, CTB::SlicerInfo::size()},
            {"second preview", 72, m_header.previewSmallOffset, CTB::PreView::size()},
            {"layer table", 64, m_header.layerDefOffset,
             static_cast<long long>(m_header.layerCount) * CTB::LayerDef::size()},
        };
        for (const auto& part : parts) {
            if (part.offset >= CTB::HeaderSettings::size() && part.offset + part.size <= m_raw.fileLength()) continue;
            add(part.field, std::string("the ") + part.name + " at offset " + std::to_string(part.offset) +
                                " does not lie within the file");
        }
        if (m_info.machineNameSize != 0 && m_machine.empty()) {
            add(static_cast<long long>(m_header.slicerInfoOffset) + 28,
                "the machine name does not lie within the file");
        }
    }

    template <class Add>
    void checkLayer(int index, const CTB::LayerDefEx* extended, long long& end, Add&& add) {
        CTB::LayerDef& layer = layerAt(index);
        const std::string name = "layer " + std::to_string(index) + ": ";
        const long long entry =
            static_cast<long long>(m_header.layerDefOffset) + static_cast<long long>(index) * CTB::LayerDef::size();
        const long long begin = static_cast<long long>(layer.dataOffset) - extendedBytes();
        const long long codeEnd = static_cast<long long>(layer.dataOffset) + layer.dataSize;
        if (begin < 0 || codeEnd > m_raw.fileLength()) {
            add(entry + 12,
                name + "its data at offset " + std::to_string(layer.dataOffset) + " do not lie within the file");
            return;
        }
        if (begin < end) add(entry + 12, name + "its data overlap what stands before them");
        end = std::max(end, codeEnd);
        if (extended != nullptr) checkExtended(*extended, layer, begin, name, add);
        const long long coded = layer.codedPixelCount(static_cast<unsigned int>(index), m_header.encryptionKey);
        if (coded == pixels()) return;
        add(layer.dataOffset, name + (coded < 0 ? "its code ends within a run"
                                                : "its code makes " + std::to_string(coded) +
                                                      " pixels, the screen has " + std::to_string(pixels())));
    }

    template <class Add>
    void checkExtended(const CTB::LayerDefEx& extended, const CTB::LayerDef& layer, long long offset,
                       const std::string& name, Add&& add) {
        const CTB::LayerDef& copy = extended.layerDef;
        if (copy.positionZ != layer.positionZ || copy.exposureTime != layer.exposureTime ||
            copy.lightOffDelay != layer.lightOffDelay || copy.dataOffset != layer.dataOffset ||
            copy.dataSize != layer.dataSize) {
            add(offset, name + "its extended record differs from its entry in the layer table");
        }
        if (extended.totalSize != CTB::LayerDefEx::size() + layer.dataSize) {
            add(offset + CTB::LayerDef::size(), name + "its total size is " + std::to_string(extended.totalSize) +
                                                    ", record and data have " +
                                                    std::to_string(CTB::LayerDefEx::size() + layer.dataSize));
        }
    }

    std::string m_path;
    CTB::CTBRead m_reader;
    FileRead m_raw;
    std::mutex m_mutex;
    CTB::HeaderSettings m_header;
    CTB::PrintParameters m_parameters;
    CTB::SlicerInfo m_info;
    std::string m_machine;
    std::vector<std::unique_ptr<CTB::PreView>> m_previews;
    std::vector<std::unique_ptr<CTB::LayerDef>> m_layers;
};

}  // namespace

bool isCtbFile(const std::string& path) {
    FileRead file(path, 0);
    return file.isOpenFile() && file.readLittleEndianUint32() == CTB::kMagic;
}

std::unique_ptr<SliceFile> openCtbFile(const std::string& path) { return std::make_unique<CtbFile>(path); }

std::vector<Finding> verifyCtbFile(const std::string& path) {
    try {
        return CtbFile(path).verify();
    } catch (const Failure& failure) {
        // the head is damaged: its message is the finding
        return {{-1, std::string(failure.what()).substr(path.size() + 2)}};
    }
}

}  // namespace vndlp::tools
