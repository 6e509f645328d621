/// The vendor container, ".vndlp", as the commands see it.

#include "tools/base/failure.h"
#include "tools/formats/vendor_head.h"

#include <vndlp/checksum.h>

#include <algorithm>
#include <mutex>

namespace vndlp::tools {

namespace {

/// "vndlp V2" and the like.
std::string formatName(int headerType) {
    switch (headerType) {
        case kV1: return "vndlp V1";
        case kV2: return "vndlp V2";
        case kV3: return "vndlp V3";
        default: return "vnline V2";
    }
}

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

    std::vector<Field> header() const override { return headerFields(m_structure); }
    std::vector<Field> parameters() const override { return parameterFields(m_structure); }

    std::vector<Section> sections() const override {
        std::vector<Section> all = m_head.sections;
        std::sort(all.begin(), all.end(), [](const Section& a, const Section& b) { return a.offset < b.offset; });
        all.push_back({"layers", m_head.firstLayer, m_layersEnd - m_head.firstLayer});
        addEndSections(m_path, m_fileSize, m_layersEnd, m_tail, all);
        return all;
    }

    std::vector<Preview> previews() const override { return previewsOf(m_structure); }

    Trailer trailer() const override { return trailerOf(m_path); }

    PrintSettings settings() const override { return settingsOf(m_structure, m_path); }

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
        if (checkHead() && checkLayers()) findTailProblems(m_reader, m_path, m_findings);
        findTrailerProblems(m_path, m_fileSize, m_findings);
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
