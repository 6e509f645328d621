/// Line files, ".vnline", as the commands see them.
///
/// The file does not say what its layers are. Each is taken for polylines where it ends as such, else for a mesh.

#include "tools/base/failure.h"
#include "tools/formats/vendor_head.h"

#include <vndlp/checksum.h>

#include <algorithm>
#include <cmath>
#include <mutex>

namespace vndlp::tools {

namespace {

enum class LayerKind { empty, polylines, mesh };

const char* nameOf(LayerKind kind) {
    switch (kind) {
        case LayerKind::empty: return "empty";
        case LayerKind::polylines: return "polylines";
        default: return "mesh";
    }
}

struct LayerPlace {
    LayerKind kind = LayerKind::empty;
    long long offset = 0;
    long long size = 0;
    unsigned int area = 0;
    unsigned int polylines = 0;
    unsigned long long points = 0;  // or vertices
};

/// Finds where a layer ends, whatever it is; the reader's position is there then.
/// \return false, with the file closed, when it is neither of the two.
bool locateLayer(VndlpRead& reader, const std::string& path, long long offset, LayerPlace& place) {
    for (const LayerKind kind : {LayerKind::polylines, LayerKind::mesh}) {
        // a layer that does not end as it should closes the file
        if (reader.currentPosition() < 0 && reader.openDlpFile(path, false) != 0) return false;
        if (reader.seek(offset) != 0) return false;
        place = {kind, offset, 0, 0, 0, 0};
        unsigned int vertices = 0;
        const int code = kind == LayerKind::polylines ? reader.skipLayerPath(place.area, place.polylines, place.points)
                                                      : reader.skipLayerMesh(place.area, vertices);
        if (code != 0) continue;
        place.size = reader.currentPosition() - offset;
        place.points += vertices;
        if (place.polylines == 0 && vertices == 0) place.kind = LayerKind::empty;
        return true;
    }
    return false;
}

class LineFile final : public SliceFile {
public:
    explicit LineFile(const std::string& path) : m_path(path) {
        VndlpRead probe;
        if (probe.openDlpFile(path, false) != 0 || m_reader.openDlpFile(path, false) != 0) {
            throw Failure(path + ": cannot be opened");
        }
        m_fileSize = probe.remaining();
        const int code = m_reader.readDlpStructure(false);
        m_structure.headerType = kLine;
        try {
            m_head = mapHead(probe, m_structure, m_areas);
        } catch (const HeadFailure& failure) {
            throw Failure(path + ": damaged at offset " + std::to_string(failure.offset) + ": " + failure.text);
        }
        if (code != 0) throw Failure(path + ": the head of the file is damaged");
        if (m_reader.readDlpImageParam(m_imageParam) != 0) {
            throw Failure(path + ": damaged at offset " + std::to_string(m_head.firstLayer) +
                          ": the image parameters do not end where they should");
        }
        m_firstLayer = m_reader.currentPosition();
        m_tail = m_reader.tailMagic();
        indexLayers();
    }

    std::string format() const override { return "vnline V2"; }
    int version() const override { return m_structure.lineHeader.versionCode; }
    int width() const override { return m_structure.getResolutionX(); }
    int height() const override { return m_structure.getResulutionY(); }
    int layerCount() const override { return m_structure.layerCount(); }
    bool hasImages() const override { return false; }

    std::vector<Field> header() const override {
        std::vector<Field> fields = headerFields(m_structure);
        fields.push_back({"layerKind", kindOfLayers(), kindOfLayers()});
        return fields;
    }

    std::vector<Field> parameters() const override {
        std::vector<Field> fields = parameterFields(m_structure);
        const auto add = [&fields](const char* key, int value) {
            fields.push_back({key, value, std::to_string(value)});
        };
        add("zThrough", m_imageParam.zThrough);
        add("enableAliasing", m_imageParam.enableAliasing);
        add("minGray", m_imageParam.minGray);
        add("maxGray", m_imageParam.maxGray);
        return fields;
    }

    std::vector<Section> sections() const override {
        std::vector<Section> all = m_head.sections;
        all.push_back({"image parameters", m_head.firstLayer, m_firstLayer - m_head.firstLayer});
        all.push_back({"layers", m_firstLayer, m_layersEnd - m_firstLayer});
        addEndSections(m_path, m_fileSize, m_layersEnd, m_tail, all);
        return all;
    }

    std::vector<Preview> previews() const override { return previewsOf(m_structure); }
    Trailer trailer() const override { return trailerOf(m_path); }

    PrintSettings settings() const override {
        PrintSettings s = settingsOf(m_structure, m_path);
        const auto grey = [](short value) { return static_cast<double>(std::clamp<short>(value, 0, 255)); };
        s.set("anti_aliasing", m_imageParam.enableAliasing != 0 ? 1 : 0, Origin::job, m_path);
        s.set("min_grey", grey(m_imageParam.minGray), Origin::job, m_path);
        s.set("max_grey", grey(m_imageParam.maxGray), Origin::job, m_path);
        return s;
    }

    std::optional<double> volumeMl() const override {
        double areas = 0;
        for (const LayerPlace& layer : m_layers) areas += layer.area;
        return areas * m_structure.parameters.parseThickness() / 1e6;
    }

    void readLayer(int /*index*/, GreyImage& /*out*/) override {
        throw Failure(m_path + ": its layers are geometry, not images");
    }

    LayerShapes readShapes(int index) override {
        const LayerPlace& place = m_layers.at(static_cast<std::size_t>(index));
        LayerShapes shapes;
        unsigned int area = 0;
        trimesh::TriMesh mesh;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const int code = m_reader.seek(place.offset) != 0 ? -1
                             : place.kind == LayerKind::mesh  ? m_reader.readLayerMesh(mesh, &area, false)
                                                              : m_reader.readLayerPath(shapes.polylines, &area, false);
            if (code < 0) failAtLayer(index, place.offset);
        }
        shapes.isMesh = place.kind == LayerKind::mesh;
        shapes.areaUm2 = area * 1000.0;
        shapes.vertices.reserve(mesh.vertices.size());
        for (const trimesh::point& v : mesh.vertices) shapes.vertices.emplace_back(v[0], v[1]);
        return shapes;
    }

    LayerFacts layerFacts(int index) override {
        const LayerPlace& place = m_layers.at(static_cast<std::size_t>(index));
        LayerFacts facts;
        facts.offset = place.offset;
        facts.size = place.size;
        facts.area = place.area;
        facts.runs = place.polylines;
        const LayerShapes shapes = readShapes(index);
        const auto closed = std::count_if(shapes.polylines.begin(), shapes.polylines.end(), isClosed);
        facts.fields = {{"kind", nameOf(place.kind), nameOf(place.kind)},
                        {"points", place.points, std::to_string(place.points)},
                        {"closed", closed, std::to_string(closed)}};
        return facts;
    }

private:
    void indexLayers() {
        // grown as layers are found: their number is only the file's word
        for (int i = 0; i < layerCount(); ++i) {
            LayerPlace place;
            const long long offset = i == 0 ? m_firstLayer : m_reader.currentPosition();
            if (!locateLayer(m_reader, m_path, offset, place)) failAtLayer(i, offset);
            m_layers.push_back(place);
        }
        m_layersEnd = m_reader.currentPosition();
    }

    const char* kindOfLayers() const {
        const auto has = [this](LayerKind kind) {
            return std::any_of(m_layers.begin(), m_layers.end(),
                               [kind](const LayerPlace& l) { return l.kind == kind; });
        };
        if (has(LayerKind::polylines) && has(LayerKind::mesh)) return "polylines and meshes";
        return nameOf(has(LayerKind::polylines) ? LayerKind::polylines
                      : has(LayerKind::mesh)    ? LayerKind::mesh
                                                : LayerKind::empty);
    }

    [[noreturn]] void failAtLayer(int index, long long offset) const {
        throw Failure(m_path + ": damaged at offset " + std::to_string(offset) + ": layer " + std::to_string(index) +
                      " is neither polylines nor a mesh; `vndlp verify` tells more");
    }

    std::string m_path;
    long long m_fileSize = 0;
    VndlpRead m_reader;
    std::mutex m_mutex;
    DlpFileStructure m_structure;
    std::vector<unsigned int> m_areas;
    HeadMap m_head;
    DlpImageParam m_imageParam;
    long long m_firstLayer = 0;
    std::vector<LayerPlace> m_layers;
    long long m_layersEnd = 0;
    std::string m_tail;
};

/// Collects what is wrong with one file.
class LineVerifier {
public:
    explicit LineVerifier(const std::string& path) : m_path(path) {}

    std::vector<Finding> verify() {
        if (m_reader.openDlpFile(m_path, false) != 0) throw Failure(m_path + ": cannot be opened");
        const long long fileSize = m_reader.remaining();
        if (checkHead() && checkLayers()) findTailProblems(m_reader, m_path, m_findings);
        findTrailerProblems(m_path, fileSize, m_findings);
        return std::move(m_findings);
    }

private:
    void add(long long offset, const std::string& text) { m_findings.push_back({offset, text}); }

    bool checkHead() {
        const int code = m_reader.readDlpStructure(false);
        VndlpRead probe;
        probe.openDlpFile(m_path, false);
        DlpFileStructure s;
        s.headerType = kLine;
        long long end = 0;
        try {
            end = mapHead(probe, s, m_areas).firstLayer;
        } catch (const HeadFailure& failure) {
            add(failure.offset, failure.text);
            return false;
        }
        DlpImageParam imageParam;
        if (code == 0 && m_reader.readDlpImageParam(imageParam) == 0) return true;
        add(end, "the image parameters do not end where they should");
        return false;
    }

    bool checkLayers() {
        for (std::size_t i = 0; i < m_areas.size(); ++i) {
            const long long offset = m_reader.currentPosition();
            const std::string layer = "layer " + std::to_string(i) + ": ";
            LayerPlace place;
            if (!locateLayer(m_reader, m_path, offset, place)) {
                add(offset, layer +
                                "ends where its counts say neither as polylines nor as a mesh; nothing behind it "
                                "can be checked");
                return false;
            }
            if (place.area != m_areas[i]) {
                add(offset, layer + "its area is " + std::to_string(place.area) + ", the area table says " +
                                std::to_string(m_areas[i]));
            }
            if (place.kind == LayerKind::mesh && !checkMesh(place, layer)) return false;
        }
        return true;
    }

    /// False when the layer cannot be read after all.
    bool checkMesh(const LayerPlace& place, const std::string& layer) {
        trimesh::TriMesh mesh;
        unsigned int area = 0;
        if (m_reader.seek(place.offset) != 0 || m_reader.readLayerMesh(mesh, &area, false) < 0) {
            add(place.offset, layer + "cannot be read");
            return false;
        }
        for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
            if (std::isfinite(mesh.vertices[i][0]) && std::isfinite(mesh.vertices[i][1])) continue;
            add(place.offset + 8 + 8 * static_cast<long long>(i),
                layer + "vertex " + std::to_string(i) + " is not a number");
            return true;
        }
        return true;
    }

    std::string m_path;
    VndlpRead m_reader;
    std::vector<unsigned int> m_areas;
    std::vector<Finding> m_findings;
};

}  // namespace

bool isLineFile(const std::string& path) {
    std::string magic;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    return CheckSum::instance().getFileVersionInfo(path.c_str(), magic, version, type) == 0 && magic == "VNLINEV2";
}

std::unique_ptr<SliceFile> openLineFile(const std::string& path) { return std::make_unique<LineFile>(path); }

std::vector<Finding> verifyLineFile(const std::string& path) { return LineVerifier(path).verify(); }

}  // namespace vndlp::tools
