// The golden files, in four directions: records give the bytes, the bytes give the records, what was read is written
// again as it was, and the front end makes the same file of a job.

#include "support/ctb.h"
#include "support/front_end.h"
#include "support/records.h"
#include "support/v4.h"

#include <vndlp/vndlp.h>

#include <memory>

namespace vndlp::test {
namespace {

using GoldenTest = FileTest;

// ---- records

/// The stream's byte order must not matter but to the floats of CTB records.
template <class Record>
Bytes written(Record& record, const std::string& path) {
    FileWrite out(path, 0);
    if constexpr (std::is_base_of_v<CTB::RecordStreams, Record>) {
        out.setFileByteOrder(LittleEndian);
        record.setFileWrite(out);
        record.Serialization();
    } else {
        out.setFileByteOrder(BigEndian);
        record.Serialization(out);
    }
    EXPECT_EQ(out.close(), 0);
    return readFile(path);
}

template <class Record>
void readInto(Record& record, FileRead& in) {
    if constexpr (std::is_base_of_v<CTB::RecordStreams, Record>) {
        in.setFileByteOrder(LittleEndian);
        record.setFileRead(in);
        if constexpr (std::is_same_v<Record, CTB::LayerDef>) {
            record.DeSerialization(false);
        } else {
            record.DeSerialization();
        }
    } else {
        in.setFileByteOrder(BigEndian);
        record.DeSerialization(in);
        EXPECT_EQ(record.endPosition - record.beginPosition, static_cast<unsigned>(in.currentPosition() - 1));
    }
}

template <class Record>
void expectRecord(const GoldenSection& section, const std::string& path) {
    SCOPED_TRACE(section.name);
    const Bytes bytes = section.bytes();
    Record given;
    EXPECT_TRUE(sameBytes(written(fill(given, section), path), bytes));
    expectHolds(given, section, &GoldenField::value);  // with what writing forces
    // one byte in front: records are read where the file stands
    FileRead in(writeFile(path, Bytes(1).raw(bytes)), 0);
    in.seek(1, 0);
    Record back;
    readInto(back, in);
    expectHolds(back, section);
    EXPECT_TRUE(sameBytes(written(restore(back, section), path), bytes));
}

TEST_F(GoldenTest, CtbRecords) {
    const Golden g = golden("ctb_records");
    expectRecord<CTB::HeaderSettings>(g.section("HeaderSettings"), path("r"));
    expectRecord<CTB::PreView>(g.section("PreView"), path("r"));
    expectRecord<CTB::PrintParameters>(g.section("PrintParameters"), path("r"));
    expectRecord<CTB::SlicerInfo>(g.section("SlicerInfo"), path("r"));
    expectRecord<CTB::LayerDef>(g.section("LayerDef"), path("r"));
    expectRecord<CTB::LayerDefEx>(g.section("LayerDefEx"), path("r"));
    EXPECT_EQ(g.sections.size(), 6u);
}

TEST_F(GoldenTest, V4Records) {
    using namespace VNDLPV4;
    const Golden g = golden("v4_records");
    expectRecord<HeaderSettings>(g.section("HeaderSettings"), path("r"));
    expectRecord<PreView>(g.section("PreView"), path("r"));
    expectRecord<PrintParameters>(g.section("PrintParameters"), path("r"));
    expectRecord<SlicerInfo>(g.section("SlicerInfo"), path("r"));
    expectRecord<LayerDef>(g.section("LayerDef"), path("r"));
    expectRecord<LayerDef>(g.section("LayerDef", 1), path("r"));
    expectRecord<LayerDefEx>(g.section("LayerDefEx"), path("r"));
    EXPECT_EQ(g.sections.size(), 7u);
}

// ---- vendor files

struct VendorFile {
    const char* name;
    int kind;
    const char* told;  ///< of its trailer, behind the file's name
};
const VendorFile kVendorFiles[] = {{"v1", 1, "VNKT3D, subVersionNum:0, checktype:0\n"},
                                   {"v2_version2", 2, "VNKT3DV2, subVersionNum:2, checktype:1\n"},
                                   {"v2_version3", 2, "VNKT3DV2, subVersionNum:3, checktype:2\n"},
                                   {"v3", 3, "VNKT3D3, subVersionNum:0, checktype:1\n"},
                                   {"line_paths", 12, "VNLINEV2, subVersionNum:2, checktype:2\n"},
                                   {"line_mesh", 12, "VNLINEV2, subVersionNum:2, checktype:2\n"}};

/// A layer of any kind; what a file does not hold stays empty.
struct Layer {
    unsigned int area = 0;
    std::vector<WhiteData> runs;
    std::vector<std::vector<Vec3i>> paths;
    trimesh::TriMesh mesh;

    explicit Layer(const GoldenSection& section) {
        for (const GoldenField& field : section.fields) {
            const std::vector<double> n = numbersOf(field.value);
            const auto whole = [&n](std::size_t i) { return static_cast<int>(n[i]); };
            const auto real = [&n](std::size_t i) { return static_cast<float>(n[i]); };
            if (field.name == "area") area = static_cast<unsigned>(n[0]);
            if (field.name == "run") {
                runs.push_back({{real(0), real(1)}, {real(0), real(2)}, whole(3)});
            } else if (field.name == "polyline") {
                paths.emplace_back();
                for (std::size_t i = 0; i < n.size(); i += 2) paths.back().emplace_back(whole(i), whole(i + 1), 0);
            } else if (field.name == "vertex") {
                mesh.vertices.emplace_back(real(0), real(1), 0.0F);
            }
        }
    }
    Layer() = default;

    /// All its numbers in file order.
    std::vector<double> numbers() const {
        std::vector<double> all{static_cast<double>(area)};
        for (const WhiteData& run : runs) {
            all.insert(all.end(), {run.start.x, run.start.y, run.end.x, run.end.y, static_cast<double>(run.grey)});
        }
        for (const auto& path : paths) {
            all.push_back(static_cast<double>(path.size()));
            for (const Vec3i& point : path) all.insert(all.end(), {1.0 * point.x, 1.0 * point.y});
        }
        for (const auto& vertex : mesh.vertices) all.insert(all.end(), {vertex[0], vertex[1]});
        return all;
    }
};

/// A vendor file in parts.
struct VendorJob {
    DlpFileStructure structure;
    DlpImageParam imageParam;
    std::vector<unsigned int> areas;
    std::vector<Layer> layers;

    VendorJob() = default;
    explicit VendorJob(const VendorFile& file, const Golden& g) {
        structure.headerType = file.kind;
        withHeader(structure, [&g](auto& header) { fill(header, g.section("header")); });
        structure.headerVersion = structure.v2Header.versionCode;
        fill(structure.parameters, g.section("parameters"));
        if (g.has("slicing settings")) fill(structure.sliceBasicParameters, g.section("slicing settings"));
        if (g.has("image parameters")) fill(imageParam, g.section("image parameters"));
        if (g.has("area table")) {
            for (const double area : numbersOf(g.section("area table").fields[0].value))
                areas.push_back(static_cast<unsigned>(area));
        }
        for (int i = 0; i < structure.layerCount(); ++i) layers.emplace_back(g.section("layer " + std::to_string(i)));
    }

    template <class Action>
    static void withHeader(DlpFileStructure& s, Action&& action) {
        switch (s.headerType) {
            case 1: action(s.v1Header); break;
            case 2: action(s.v2Header); break;
            case 3: action(s.v3Header); break;
            default: action(s.lineHeader); break;
        }
    }
};

/// Writes a job layer by layer, its area table at the end.
Bytes written(VendorJob job, const VendorFile& file, const std::string& path) {
    VndlpWrite writer;
    Printed printed;
    EXPECT_EQ((Codes{writer.openDlpFile(path), writer.writeDlpStructure(job.structure)}), Codes(2));
    EXPECT_EQ(file.kind == 12 ? writer.writeDlpImageParam(job.imageParam) : 0, 0);
    for (Layer& layer : job.layers) {
        unsigned int* area = job.areas.empty() ? nullptr : &layer.area;
        if (file.kind != 12) {
            EXPECT_EQ(writer.writeLayerWhiteData(layer.runs, area), 0);
        } else if (file.name == std::string("line_mesh")) {
            EXPECT_EQ(writer.writeLayerTrimesh(layer.mesh, area, false), std::ssize(layer.mesh.vertices));
        } else {
            EXPECT_EQ(writer.writeLayerPath(layer.paths, area, false), 0);
        }
    }
    const int length = writer.filePosition();
    EXPECT_EQ(job.areas.empty() ? 0 : writer.writeLayerAreasDealyer(job.areas), 0);
    EXPECT_EQ(writer.filePosition(), length) << "the table was reserved";
    EXPECT_EQ(writer.writeTail(file.kind), 0);
    EXPECT_EQ(printed.take(), "checkFileSum, file:" + path + ", versionName:" + file.told);
    return readFile(path);
}

/// Reads a file layer by layer. \return its parts.
VendorJob readJob(const VendorFile& file, const Golden& g, const std::string& path) {
    VndlpRead reader;
    VendorJob job;
    EXPECT_EQ((Codes{reader.openDlpFile(writeFile(path, g.bytes), true), reader.readDlpStructure(true)}), Codes(2));
    EXPECT_EQ(file.kind == 12 ? reader.readDlpImageParam(job.imageParam) : 0, 0);
    for (int i = 0; i < reader.getLayerCount(); ++i) {
        Layer& layer = job.layers.emplace_back();
        EXPECT_EQ(reader.currentPosition(), static_cast<long long>(g.section("layer " + std::to_string(i)).offset()));
        if (file.kind != 12) {
            EXPECT_EQ(reader.readLayerWhiteData(layer.runs, g.has("area table") ? &layer.area : nullptr), 0);
        } else if (file.name == std::string("line_mesh")) {
            EXPECT_GE(reader.readLayerMesh(layer.mesh, &layer.area, false), 0);
        } else {
            EXPECT_GE(reader.readLayerPath(layer.paths, &layer.area, false), 0);
        }
    }
    std::string tail;
    EXPECT_EQ(reader.currentPosition(), static_cast<long long>(g.section("tail").offset()));
    EXPECT_EQ(reader.readTag(tail), 0);
    EXPECT_EQ(tail, reader.tailMagic());
    reader.swapLayerAreas(job.areas);
    if (!g.has("area table")) {
        EXPECT_EQ(job.areas, std::vector<unsigned int>(3));
        job.areas.clear();
    }
    const std::unique_ptr<DlpFileStructure> structure(reader.takeDlpFileStructure());
    EXPECT_EQ(reader.getDlpFileStructure(), nullptr);
    if (structure != nullptr) job.structure = *structure;
    return job;
}

TEST_F(GoldenTest, VendorFilesLayerByLayer) {
    for (const VendorFile& file : kVendorFiles) {
        SCOPED_TRACE(file.name);
        const Golden g = golden(file.name);
        const VendorJob given(file, g);
        EXPECT_TRUE(sameBytes(written(given, file, path("f")), g.bytes));

        Printed printed;
        VendorJob read = readJob(file, g, path("f"));
        printed.take();
        EXPECT_EQ(read.structure.headerType, file.kind);
        VendorJob::withHeader(read.structure, [&g](auto& header) { expectHolds(header, g.section("header")); });
        expectHolds(read.structure.parameters, g.section("parameters"));
        if (g.has("slicing settings")) {
            expectHolds(read.structure.sliceBasicParameters, g.section("slicing settings"));
        }
        if (g.has("image parameters")) expectHolds(read.imageParam, g.section("image parameters"));
        EXPECT_EQ(read.areas, given.areas);
        ASSERT_EQ(read.layers.size(), given.layers.size());
        for (std::size_t i = 0; i < read.layers.size(); ++i) {
            EXPECT_EQ(read.layers[i].numbers(), given.layers[i].numbers()) << "layer " << i;
        }
        EXPECT_TRUE(sameBytes(written(read, file, path("f")), g.bytes));
    }
}

TEST_F(GoldenTest, VendorFilesAsAWhole) {
    for (const VendorFile& file : kVendorFiles) {
        if (file.kind == 12) continue;
        SCOPED_TRACE(file.name);
        const Golden g = golden(file.name);
        VndlpRead reader;
        VndlpWrite writer;
        Printed printed;
        EXPECT_EQ(reader.readDlpFile(writeFile(path("f"), g.bytes), false, true), 0);
        // 16909110 x 0.05 / 10^6
        EXPECT_EQ(printed.take(), file.kind == 2 ? "totalValum = 0.845456\n" : "totalValum = 0.000000\n");
        EXPECT_FLOAT_EQ(reader.getTotalValum(), file.kind == 2 ? 0.8454555F : 0);
        const VndlpRead copy = reader;
        std::vector<unsigned int> areas;
        std::vector<std::vector<WhiteData>> runs;
        reader.swapLayerAreas(areas);
        reader.swapWhiteDatas(runs);
        DlpFileStructure* structure = reader.takeDlpFileStructure();
        EXPECT_NE(VndlpRead(copy).getDlpFileStructure(), nullptr) << "copies have their own";
        writer.swapDlpFileStructure(structure);
        writer.swapLayerAreas(areas);
        writer.swapWhiteDatas(runs);
        EXPECT_EQ(writer.writeDlpFile(path("again")), 0);
        EXPECT_TRUE(sameBytes(readFile(path("again")), g.bytes));
    }
}

// ---- CTB and V4 files

/// A white layer; then five black pixels, one of grey 128 and six white.
std::vector<SliceImage> jobLayers() {
    return {sliceImage(Bytes(12, 255), 4, 3), sliceImage({0, 0, 0, 0, 0, 128, 255, 255, 255, 255, 255, 255}, 4, 3)};
}

/// As codes of seven bits a grey give an image back.
Bytes readBack(const SliceImage& image) {
    Bytes pixels(image.pixels.get(), image.pixels.get() + image.size);
    for (unsigned char& pixel : pixels) pixel = static_cast<unsigned char>(pixel < 2 ? 0 : pixel | 1);
    return pixels;
}

/// The sections "NAME 0", "NAME 1" ... of a file.
std::vector<GoldenSection> numberedSections(const Golden& g, const std::string& name) {
    std::vector<GoldenSection> found;
    while (g.has(name + std::to_string(found.size()))) found.push_back(g.section(name + std::to_string(found.size())));
    return found;
}

TEST_F(GoldenTest, CtbFiles) {
    using namespace CTB;
    for (const char* name : {"ctb_version2", "ctb_version3"}) {
        SCOPED_TRACE(name);
        const Golden g = golden(name);
        CTBRead reader;
        EXPECT_EQ((Codes{reader.openDlpFile(writeFile(path("f"), g.bytes), false), reader.parseFile(true)}),
                  (Codes{0, 1}));
        for (const bool fromFile : {false, true}) {
            CTBWrite writer;
            const auto take = [&](const std::string& section, auto record, auto&& fromReader) {
                const GoldenSection& s = g.section(section);
                if (!fromFile) return fill(record, s);
                auto read = fromReader();
                expectHolds(read, s);
                return restore(read, s);
            };
            *writer.headerSettings() = take("header", HeaderSettings(), [&] { return *reader.headerSettings(); });
            *writer.printParameters() =
                take("print parameters", PrintParameters(), [&] { return reader.printParameters(); });
            *writer.slicerInfo() = take("slicer information", SlicerInfo(), [&] { return reader.slicerInfo(); });
            writer.slicerInfo()->machineName = "M-01";  // written bare, read as a length and its text
            const Owned<PreView> preViews(fromFile ? reader.preViews() : std::vector<PreView*>());
            const Owned<LayerDef> layers(fromFile ? reader.layerDef(false) : std::vector<LayerDef*>());
            const Owned<LayerDefEx> extended(fromFile && g.has("extended 0") ? reader.layerDefEx()
                                                                             : std::vector<LayerDefEx*>());
            const auto takeEach = [&](const std::string& section, auto& to, const auto& read) {
                for (std::size_t i = 0; i < numberedSections(g, section).size(); ++i) {
                    using Record = std::remove_cvref_t<decltype(*to[0])>;
                    to.push_back(new Record(take(section + std::to_string(i), Record(), [&] { return *read[i]; })));
                }
            };
            takeEach("preview ", *writer.preViews(), preViews);
            takeEach("layer ", writer.layerDef(), layers);
            takeEach("extended ", writer.layerDefEx(), extended);
            for (std::size_t i = 0; i < writer.layerDef().size(); ++i) {
                const Bytes data = g.section("data " + std::to_string(i)).bytes();
                writer.layerDef()[i]->data = data;
                // the other file is scrambled with constants that a build may choose
                if (fromFile && reader.headerSettings()->encryptionKey == 0) {
                    EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), layers[i], static_cast<int>(i), nullptr),
                              readBack(jobLayers()[i]));
                }
            }
            EXPECT_EQ((Codes{writer.openDlpFile(path("again"), false), writer.encode(), writer.close()}), Codes(3));
            EXPECT_TRUE(sameBytes(readFile(path("again")), g.bytes)) << "from file: " << fromFile;
        }
    }
}

TEST_F(GoldenTest, V4Files) {
    using namespace VNDLPV4;
    for (const char* name : {"v4_plain", "v4_beads"}) {
        SCOPED_TRACE(name);
        const Golden g = golden(name);
        VNDLPV4Read reader;
        const Printed printed;
        EXPECT_EQ((Codes{reader.openDlpFile(writeFile(path("f"), g.bytes), true), reader.parseFile()}), Codes(2));
        EXPECT_TRUE(reader.isWhole());
        for (const bool fromFile : {false, true}) {
            VNDLPV4Write writer;
            const auto take = [&](auto& to, const std::string& section, const auto* read) {
                const GoldenSection& s = g.section(section);
                if (!fromFile) {
                    fill(to, s);
                } else {
                    to = *read;
                    expectHolds(to, s);
                    restore(to, s);
                }
            };
            take(*writer.headerSettings(), "header", reader.headerSettings());
            take(*writer.printParameters(), "print parameters", reader.printParameters());
            take(*writer.slicerInfo(), "slicer information", reader.slicerInfo());
            const auto takeEach = [&](const std::string& section, auto& to, const auto& read) {
                for (std::size_t i = 0; i < numberedSections(g, section).size(); ++i) {
                    using Record = std::remove_cvref_t<decltype(*to[0])>;
                    to.push_back(std::make_shared<Record>());
                    take(*to.back(), section + std::to_string(i), read.at(i));
                }
            };
            takeEach("preview ", *writer.preViews(), reader.preViews());
            takeEach("layer ", writer.layerDef(), reader.layerDef());
            takeEach("extended ", writer.layerDefEx(), reader.layerDefEx());
            for (std::size_t i = 0; i < writer.layerDef().size(); ++i) {
                writer.layerDef()[i]->data = g.section("data " + std::to_string(i)).bytes();
                EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), reader.layerDef().at(i), static_cast<int>(i)),
                          readBack(jobLayers()[i]));
            }
            EXPECT_EQ((Codes{writer.openDlpFile(path("again"), false), writer.encode(""), writer.close()}), Codes(3));
            EXPECT_TRUE(sameBytes(readFile(path("again")), g.bytes)) << "from file: " << fromFile;
        }
    }
}

// ---- the front end

/// The job of the CTB and V4 files.
std::unique_ptr<DLPWriter> jobWriter(const std::string& path) {
    std::unique_ptr<DLPWriter> writer(createDLPWriter(path));
    writer->filePath = path;
    writer->layerCount = 2;
    writer->machineType = "M-01";
    writer->machineName = "M4";
    writer->resolutionX = 4;
    writer->resolutionY = 3;
    writer->printTime = 3601;
    writer->bedSizeX = 211.5;
    writer->bedSizeY = 118.25;
    writer->bedSizeZ = 200.75;
    writer->resinVolume = 0x41200000;
    writer->resinWeight = 12.5F;
    DlpParameters& p = writer->fileStructure.parameters;
    p.thickness = "0.05";
    p.exposure_time = 25;
    p.first_exposure_time = 33;
    p.light_off_delay = 2;
    p.first_layer_count = 1;
    p.first_lift_distance = 6;
    p.first_lift_speed = 60;
    p.lifting_distance = 5;
    p.lifting_speed = 80;
    p.retract_speed = 150;
    p.brightnessPVM = 200;
    p.firstBrightnessPVM = 201;
    writer->fileStructure.sliceBasicParameters.enableAntiAliasing = 3;
    return writer;
}

Bytes writtenByFrontEnd(const std::string& path, bool beads, Bytes firstPreview, const Bytes& secondPreview) {
    const std::unique_ptr<DLPWriter> writer = jobWriter(path);
    Printed printed;
    EXPECT_EQ(openAndWriteHeader(*writer, {sliceImage(firstPreview, 3, 2), sliceImage(secondPreview, 2, 1), {}}), 0);
    if (beads) writer->prepareLampBeadCal(1);
    for (unsigned i = 0; i < 2; ++i) EXPECT_EQ(writer->addLayerImage(i, jobLayers()[i], 2000 - 1000 * i, 0), 0);
    EXPECT_EQ(writer->finish(), 0);
    return readFile(path);
}

TEST_F(GoldenTest, FrontEndMakesCtbFiles) {
    const Golden g = golden("ctb_version3");
    const Bytes bytes = writtenByFrontEnd(
        path("a.ctb"), false, Bytes().raw(hex("F80000F80000F80000F80000F80000F80000")), {255, 255, 255, 0, 0, 0});
    ASSERT_EQ(bytes.size(), g.bytes.size());
    // its key is drawn: the file is that of the page scrambled with it
    const unsigned key = u32At(bytes, 100);
    EXPECT_GE(key, 255u);
    EXPECT_LE(key, 33022u);
    Bytes expected = g.bytes;
    setU32(expected, 100, key);
    for (unsigned i = 0; i < 2; ++i) {
        const GoldenSection& data = g.section("data " + std::to_string(i));
        const std::vector<unsigned char> scrambled = CTB::CTBWrite::LayerRleCrypt(key, i, data.bytes());
        std::copy(scrambled.begin(), scrambled.end(), expected.begin() + static_cast<std::ptrdiff_t>(data.offset()));
    }
    EXPECT_TRUE(sameBytes(bytes, expected));
}

TEST_F(GoldenTest, FrontEndMakesV4Files) {
    for (const bool beads : {false, true}) {
        EXPECT_TRUE(sameBytes(writtenByFrontEnd(path("a.vndlpv4"), beads, Bytes(18, 255), Bytes(6)),
                              golden(beads ? "v4_beads" : "v4_plain").bytes));
    }
}

TEST_F(GoldenTest, FrontEndMakesV2AndLineFiles) {
    for (const VendorFile& file : {kVendorFiles[2], kVendorFiles[4], kVendorFiles[5]}) {
        SCOPED_TRACE(file.name);
        const Golden g = golden(file.name);
        const VendorJob job(file, g);
        const std::string target = path(file.kind == 2 ? "a.vndlp" : "a.vnline");
        const std::unique_ptr<DLPWriter> writer(createDLPWriter(target));
        writer->filePath = target;
        writer->fileStructure = job.structure;
        writer->machineType = "Maker M1";
        writer->layerCount = 3;
        const float box[] = {-5, 10, 1, -3.5F, 8, 1.25F};
        std::copy(box, box + 6, writer->modelBox);
        writer->modelBoxValid = true;
        writer->zThrough = 0xFFFFFFFF;
        writer->enableAliasing = 0x10002;  // the low 16 bits stay
        writer->minGray = 3;
        writer->maxGray = 4;
        const Printed printed;
        ASSERT_EQ(openAndWriteHeader(*writer, std::vector<SliceImage>(3, sliceImage({255, 1, 2}, 1, 1))), 0);
        for (unsigned i = 0; i < 3; ++i) {
            const Layer& layer = job.layers[i];
            const double area = layer.area * 1000.0 + 499;
            if (file.name == std::string("line_paths")) {
                EXPECT_EQ(writer->addLayerPaths(77, layer.paths, area), 0);
            } else if (file.name == std::string("line_mesh")) {
                EXPECT_EQ(writer->addLayerMesh(layer.mesh, area), std::ssize(layer.mesh.vertices));
            } else {
                Bytes pixels(std::size_t{515} * 261);
                for (const WhiteData& run : layer.runs) {
                    for (float y = run.start.y; y <= run.end.y; ++y) {
                        pixels[static_cast<std::size_t>(y * 515 + run.start.x)] = static_cast<unsigned char>(run.grey);
                    }
                }
                EXPECT_EQ(writer->addLayerImage(i, sliceImage(pixels, 515, 261), area, 2), 0);
            }
        }
        EXPECT_EQ(writer->finish(), 0);
        EXPECT_TRUE(sameBytes(readFile(target), g.bytes));
    }
}

}  // namespace
}  // namespace vndlp::test
