// The writing half of the model: what it changes and what stays, on the golden files of every kind.

#include "support/every_kind.h"
#include "support/golden.h"

#include <vndlp/vndlp.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <numeric>
#include <set>

namespace vndlp::test {
namespace {

struct Kind {
    const char* name;
    const char* ending;
};
const Kind kKinds[] = {{"v1", ".vndlp"},         {"v2_version2", ".vndlp"}, {"v2_version3", ".vndlp"},
                       {"v3", ".vndlp"},         {"line_paths", ".vnline"}, {"line_mesh", ".vnline"},
                       {"ctb_version2", ".ctb"}, {"ctb_version3", ".ctb"},  {"v4_plain", ".vndlpv4"},
                       {"v4_beads", ".vndlpv4"}};

std::string why(const SliceResult& result) {
    return std::to_string(static_cast<int>(result.code)) + " layer " + std::to_string(result.layer) + ": " +
           result.text;
}
#define EXPECT_DONE(call)                             \
    do {                                              \
        const SliceResult did = (call);               \
        EXPECT_TRUE(did.isOk()) << #call << why(did); \
    } while (false)

/// Every raw field of a file as text.
std::map<std::string, std::string> fieldsOf(const SliceFile& file) {
    std::map<std::string, std::string> fields;
    SliceRawField field;
    for (std::uint64_t i = 0; file.raw(i, field).isOk(); ++i) {
        fields[field.name] = field.text + "/" + std::to_string(field.integer) + "/" + sliceNumberText(field.number);
    }
    return fields;
}

std::set<std::string> changedFields(const SliceFile& before, const SliceFile& after) {
    std::set<std::string> names;
    const auto was = fieldsOf(before);
    const auto is = fieldsOf(after);
    EXPECT_EQ(was.size(), is.size());
    for (const auto& [name, value] : is) {
        if (was.count(name) == 0 || was.at(name) != value) names.insert(name);
    }
    return names;
}

struct Told {
    std::vector<std::string> changed, notes;

    SliceListener listener() {
        SliceListener l;
        l.context = this;
        l.changed = [](void* context, const SliceChanged& c) {
            const std::string layers = c.layers.empty() ? "" : " (layers " + c.layers + ")";
            static_cast<Told*>(context)->changed.push_back(c.key + " " + c.was + " -> " + c.is + layers);
            return 0;
        };
        l.note = [](void* context, const SliceFinding& f) {
            static_cast<Told*>(context)->notes.push_back((f.layer < 0 ? "" : std::to_string(f.layer) + ": ") + f.text);
            return 0;
        };
        return l;
    }
};

class SliceWriteTest : public FileTest {
protected:
    std::string golden(const Kind& kind, const std::string& name = "in") {
        return writeFile(path(name + kind.ending), test::golden(kind.name).bytes);
    }
    static std::uint64_t errorsOf(const std::string& file) {
        SliceFile f;
        std::uint64_t errors = 99;
        EXPECT_DONE(f.open(file));
        Told told;
        EXPECT_DONE(f.verify(told.listener().note, &told, errors));
        for (const std::string& note : told.notes) ADD_FAILURE() << file << ": " << note;
        return errors;
    }
    std::size_t filesBeside() const {
        const std::filesystem::path folder = std::filesystem::path(path("x")).parent_path();
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    }
};

TEST_F(SliceWriteTest, SameFormatKeepsEveryByte) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        SliceFile file;
        EXPECT_DONE(file.open(golden(kind)));
        const Bytes bytes = test::golden(kind.name).bytes;
        const std::string out = path("out") + kind.ending;
        SliceConvertOptions options;
        options.hasKey = kind.ending == std::string(".ctb");
        options.key = kind.name == std::string("ctb_version2") ? 255 : 0;
        EXPECT_DONE(convertSliceFile(file, out, options));
        EXPECT_TRUE(sameBytes(readFile(out), bytes));
        // layer by layer through the writer: the same
        SliceWriter writer;
        SliceTarget target;
        target.like = &file;
        target.hasKey = options.hasKey;
        target.key = options.key;
        EXPECT_DONE(writer.create(out, target));
        for (std::uint32_t i = file.info().layers; i > 0; --i) EXPECT_DONE(writer.putLayer(i - 1, file, i - 1));
        EXPECT_DONE(writer.finish());
        EXPECT_TRUE(sameBytes(readFile(out), bytes));
        EXPECT_EQ(filesBeside(), 2u) << "nothing is left beside";
        std::filesystem::remove(out);
        std::filesystem::remove(path("in") + kind.ending);
    }
}

TEST_F(SliceWriteTest, CtbLayersAreScrambledAnew) {
    SliceFile file;
    SliceFile scrambled;
    SliceConvertOptions options;
    options.hasKey = true;
    options.key = 4711;
    EXPECT_DONE(file.open(golden(kKinds[7])));
    EXPECT_DONE(convertSliceFile(file, path("a.ctb"), options));
    EXPECT_DONE(scrambled.open(path("a.ctb")));
    EXPECT_EQ(changedFields(file, scrambled), std::set<std::string>{"HeaderSettings.encryptionKey"});
    EXPECT_DONE(convertSliceFile(scrambled, path("b.ctb")));
    EXPECT_FALSE(sameBytes(readFile(path("b.ctb")), readFile(path("a.ctb"))));
    EXPECT_EQ(errorsOf(path("b.ctb")), 0u);
    SliceFile again;
    EXPECT_DONE(again.open(path("b.ctb")));
    options.key = 0;
    EXPECT_DONE(convertSliceFile(again, path("c.ctb"), options));
    EXPECT_TRUE(sameBytes(readFile(path("c.ctb")), test::golden("ctb_version3").bytes));
}

/// Settings of the golden files set to other values: what changes, and nothing else.
TEST_F(SliceWriteTest, SettingChangesItsFieldsAlone) {
    struct Case {
        const char* file;
        SliceChange change;
        std::vector<std::string> told;
        std::set<std::string> fields;
    };
    const Case cases[] = {
        {"v1", {"exposure_s", "2.75", ""}, {"exposure_s 256.1 -> 2.8"}, {"DlpParameters.exposure_time"}},
        {"v2_version2", {"layer_height_mm", "0.1", ""}, {"layer_height_mm 0.05 -> 0.1"}, {"DlpParameters.thickness"}},
        {"v2_version3",
         {"machine_height_mm", "200.0005", ""},
         {"machine_height_mm 175.5 -> 200.001"},
         {"VndlpBackUse.machineHeightUm"}},
        {"v2_version3",
         {"machine", "A printer of a longer name", ""},
         {"machine Maker M1 -> A printer of a longer name"},
         {"DlpV2Header.machine_type"}},
        {"v2_version3", {"resin", "", ""}, {"resin resin -> "}, {"DlpSliceBasicParameters.consumables"}},
        {"v2_version3",
         {"raw.DlpParameters.thickness", "0.0500", ""},
         {"raw.DlpParameters.thickness 0.05 -> 0.0500"},
         {"DlpParameters.thickness"}},
        {"v3", {"raw.DlpV3Header.z_begin", "7", ""}, {"raw.DlpV3Header.z_begin 258 -> 7"}, {"DlpV3Header.z_begin"}},
        {"line_paths", {"min_grey", "9", ""}, {"min_grey 3 -> 9"}, {"DlpImageParam.minGray"}},
        {"ctb_version3",
         {"exposure_s", "4", ""},
         {"exposure_s 2.5 -> 4"},
         {"HeaderSettings.exposureTime", "LayerDef.1.exposureTime", "LayerDefEx.1.layerDef.exposureTime"}},
        {"ctb_version3",
         {"bottom_exposure_s", "40", ""},
         {"bottom_exposure_s 33 -> 40"},
         {"HeaderSettings.bottomExposureTime", "LayerDef.0.exposureTime", "LayerDefEx.0.layerDef.exposureTime"}},
        {"ctb_version3",
         {"exposure_s", "4", "0"},
         {"exposure_s 33 -> 4 (layers 0)"},
         {"LayerDef.0.exposureTime", "LayerDefEx.0.layerDef.exposureTime"}},
        {"ctb_version3",
         {"bottom_layers", "2", ""},
         {"bottom_layers 1 -> 2"},
         {"HeaderSettings.bottomLayerCount", "PrintParameters.bottomLayerCount", "LayerDef.1.exposureTime",
          "LayerDefEx.1.layerDef.exposureTime"}},
        {"ctb_version3",
         {"layer_height_mm", "0.03", ""},
         {"layer_height_mm 0.05 -> 0.03"},
         {"HeaderSettings.layerHeight", "HeaderSettings.totalHeight", "LayerDef.0.positionZ", "LayerDef.1.positionZ",
          "LayerDefEx.0.layerDef.positionZ", "LayerDefEx.1.layerDef.positionZ"}},
        {"ctb_version2",
         {"light_off_s", "7.25", ""},
         {"light_off_s 2 -> 7.25"},
         {"HeaderSettings.lightOffDelay", "LayerDef.0.lightOffDelay", "LayerDef.1.lightOffDelay"}},
        {"ctb_version3",
         {"machine", "longer than before", ""},
         {"machine M-01 -> longer than before"},
         {"SlicerInfo.machineName", "SlicerInfo.machineNameSize", "HeaderSettings.layerDefOffset",
          "LayerDef.0.dataOffset", "LayerDef.1.dataOffset", "LayerDefEx.0.layerDef.dataOffset",
          "LayerDefEx.1.layerDef.dataOffset"}},
        {"v4_beads",
         {"machine", "", ""},
         {"machine M4 -> "},
         {"HeaderSettings.headerText2", "HeaderSettings.previewLargeOffset", "HeaderSettings.previewSmallOffset",
          "HeaderSettings.layerDefOffset", "HeaderSettings.printParametersOffset", "HeaderSettings.slicerInfoOffset",
          "PreView.0.imageOffset", "PreView.1.imageOffset", "LayerDef.0.dataOffset", "LayerDef.1.dataOffset"}},
        {"v4_plain",
         {"lift_mm", "7.5", ""},
         {"lift_mm 5 -> 7.5"},
         {"PrintParameters.liftHeight", "LayerDefEx.0.liftHeight", "LayerDefEx.1.liftHeight",
          "LayerDefEx.0.second.liftHeight", "LayerDefEx.1.second.liftHeight"}},
        {"v4_plain", {"transition_layers", "6", ""}, {"transition_layers 0 -> 6"}, {"SlicerInfo.word60"}},
        {"v4_plain", {"slicer", "1.2.3.4", ""}, {"slicer 1.9.0.0 -> 1.2.3.4"}, {"SlicerInfo.word48"}},
        {"v4_plain",
         {"raw.LayerDef.1.reserved28", "77", ""},
         {"raw.LayerDef.1.reserved28 0 -> 77"},
         {"LayerDef.1.reserved28"}},
        {"ctb_version3",
         {"raw.LayerDef.1.reserved28", "77", ""},
         {"raw.LayerDef.1.reserved28 0 -> 77"},
         {"LayerDef.1.reserved28", "LayerDefEx.1.layerDef.reserved28"}},
        {"v4_plain",
         {"raw.LayerDefEx.1.liftHeight", "7.5", ""},
         {"raw.LayerDefEx.1.liftHeight 5 -> 7.5"},
         {"LayerDefEx.1.liftHeight", "LayerDefEx.1.second.liftHeight"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " " + c.change.key + "=" + c.change.value);
        const Kind& kind = *std::find_if(std::begin(kKinds), std::end(kKinds),
                                         [&c](const Kind& k) { return k.name == std::string(c.file); });
        const std::string in = golden(kind);
        const std::string out = path("out") + kind.ending;
        Told told;
        EXPECT_DONE(changeSliceFile(in, out, {c.change}, told.listener()));
        EXPECT_EQ(told.changed, c.told);
        EXPECT_TRUE(sameBytes(readFile(in), test::golden(kind.name).bytes));
        SliceFile before;
        SliceFile after;
        EXPECT_DONE(before.open(in));
        EXPECT_DONE(after.open(out));
        EXPECT_EQ(changedFields(before, after), c.fields);
        EXPECT_EQ(errorsOf(out), 0u);
        // in place gives the same, and the way back the file as it was
        EXPECT_DONE(changeSliceFile(in, {}, {c.change}));
        EXPECT_TRUE(sameBytes(readFile(in), readFile(out)));
    }
}

TEST_F(SliceWriteTest, WhatIsRefusedLeavesTheFileAsItWas) {
    struct Case {
        const char* file;
        SliceChange change;
        SliceCode code;
    };
    const Case cases[] = {
        {"v1", {"machine", "M", ""}, SliceCode::key},
        {"v2_version3", {"exposur_s", "2", ""}, SliceCode::key},
        {"v2_version3", {"resolution_x", "2", ""}, SliceCode::key},
        {"v2_version3", {"lift2_mm", "2", ""}, SliceCode::key},
        {"v2_version3", {"exposure_s", "0.04", ""}, SliceCode::value},
        {"v2_version3", {"exposure_s", "3 s", ""}, SliceCode::value},
        {"v2_version3", {"pwm", "256", ""}, SliceCode::value},
        {"v2_version3", {"exposure_s", "3", "0"}, SliceCode::index},
        {"ctb_version3", {"bottom_pwm", "3", ""}, SliceCode::key},
        {"ctb_version3", {"exposure_s", "3", "2"}, SliceCode::index},
        {"ctb_version2", {"lift_mm", "3", "1"}, SliceCode::index},
        {"ctb_version3", {"slicer", "1.2.3", ""}, SliceCode::value},
        {"ctb_version3", {"raw.HeaderSettings.printTime", "3", ""}, SliceCode::key},
        {"ctb_version3", {"raw.HeaderSettings.nothing", "3", ""}, SliceCode::key},
        {"ctb_version3", {"raw.HeaderSettings.lightPwm", "65536", ""}, SliceCode::value},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " " + c.change.key + "=" + c.change.value);
        const Kind& kind = *std::find_if(std::begin(kKinds), std::end(kKinds),
                                         [&c](const Kind& k) { return k.name == std::string(c.file); });
        const std::string in = golden(kind);
        // one that could be made stands in front
        const std::vector<SliceChange> changes = {{"exposure_s", "9", ""}, c.change};
        EXPECT_EQ(changeSliceFile(in, {}, changes).code, c.code);
        SliceFile file;
        EXPECT_DONE(file.open(in));
        EXPECT_EQ(checkSliceChanges(file, changes).code, c.code);
        EXPECT_TRUE(sameBytes(readFile(in), test::golden(kind.name).bytes));
        std::filesystem::remove(in);
        EXPECT_EQ(filesBeside(), 0u);
    }
    const std::string in = golden(kKinds[2]);
    corruptByte(in, 0x40, 0x55);
    const Bytes damaged = readFile(in);
    EXPECT_EQ(changeSliceFile(in, {}, {{"exposure_s", "9", ""}}).code, SliceCode::damaged);
    EXPECT_TRUE(sameBytes(readFile(in), damaged));
}

TEST_F(SliceWriteTest, RepairGivesTheSoundFileWhereOnlyItsEndIsWrong) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const Bytes sound = test::golden(kind.name).bytes;
        const std::string out = path("out") + kind.ending;
        SliceRepaired repaired;
        const auto expectSound = [&](const Bytes& bytes, const char* what) {
            SCOPED_TRACE(what);
            EXPECT_DONE(repairSliceFile(writeFile(path("in") + kind.ending, bytes), out, repaired));
            EXPECT_TRUE(sameBytes(readFile(out), sound));
            EXPECT_EQ(repaired.layersKept, repaired.layersOf);
        };
        expectSound(sound, "sound");
        EXPECT_TRUE(repaired.isSound);
        Bytes junk = sound;
        expectSound(junk.raw(Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9}), "junk");
        EXPECT_FALSE(repaired.isSound);
        if (std::string(kind.name) == "v2_version3") {
            // the area table says another area than the layer
            Bytes other = sound;
            other.at(0x58BE3) = 0x33;
            const std::string in = writeFile(path("in") + kind.ending, other);
            fixTrailer(in);
            EXPECT_DONE(repairSliceFile(in, out, repaired));
            EXPECT_TRUE(sameBytes(readFile(out), sound));
        }
        Bytes sealed = sound;
        sealed.back() = static_cast<unsigned char>(sealed.back() ^ 0x11);
        if (std::string(kind.ending) != ".ctb" && kind.name != std::string("v1")) expectSound(sealed, "trailer");
    }
}

/// Cut anywhere behind the head, a file keeps the layers that are whole.
TEST_F(SliceWriteTest, RepairKeepsTheWholeLayersOfACutFile) {
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.name);
        const Golden g = test::golden(kind.name);
        SliceFile sound;
        EXPECT_DONE(sound.openMemory(g.bytes.data(), g.bytes.size()));
        SliceLayerFacts last;
        EXPECT_DONE(sound.layerFacts(sound.info().layers - 1, last));
        SliceLayerFacts first;
        EXPECT_DONE(sound.layerFacts(0, first));
        const auto from = static_cast<std::size_t>(first.offset + first.bytes);
        for (std::size_t size = from; size < g.bytes.size(); ++size) {
            SCOPED_TRACE(size);
            const Bytes cut(g.bytes.begin(), g.bytes.begin() + static_cast<std::ptrdiff_t>(size));
            const std::string out = path("out") + kind.ending;
            SliceRepaired repaired;
            EXPECT_DONE(repairSliceFile(writeFile(path("in") + kind.ending, cut), out, repaired));
            std::uint32_t whole = 0;
            for (std::uint32_t i = 0; i < sound.info().layers; ++i) {
                SliceLayerFacts facts;
                EXPECT_DONE(sound.layerFacts(i, facts));
                whole += static_cast<std::size_t>(facts.offset + facts.bytes) <= size ? 1 : 0;
            }
            EXPECT_EQ(repaired.layersKept, whole);
            EXPECT_EQ(errorsOf(out), 0u);
            SliceFile file;
            EXPECT_DONE(file.open(out));
            EXPECT_EQ(file.info().layers, whole);
            for (std::uint32_t i = 0; i < whole; ++i) {
                SliceLayerData kept;
                SliceLayerData was;
                EXPECT_DONE(file.layerData(i, kept));
                EXPECT_DONE(sound.layerData(i, was));
                EXPECT_EQ(kept.bytes, was.bytes);
            }
        }
    }
}

/// The front end's file of a job, and the writer's.
TEST_F(SliceWriteTest, NewFilesAreThoseOfTheFrontEnd) {
    constexpr double kPixelUm2 = 50.0 * 50.0;
    for (const std::string ending : {".vndlp", ".vnline", ".ctb", ".vndlpv4"}) {
        SCOPED_TRACE(ending);
        const bool isLine = ending == ".vnline";
        const std::string theirs = path("theirs") + ending;
        const std::unique_ptr<DLPWriter> front(createDLPWriter(theirs));
        front->filePath = theirs;
        front->layerCount = kKindLayers;
        front->machineType = front->machineName = "M-7";
        front->resolutionX = kKindWidth;
        front->resolutionY = kKindHeight;
        front->bedSizeX = 1.2;
        front->bedSizeY = 0.5;
        front->bedSizeZ = 175.5;
        front->resinVolume = std::bit_cast<std::uint32_t>(3.25F);
        front->resinWeight = 3.5F;
        front->enableAliasing = 1;
        front->fileStructure.headerType = isLine ? 12 : 2;
        if (VndlpBackUse* back = front->fileStructure.getVndlpBackUse()) {
            back->setMachineHeight(175.5F);
            back->setTotalVolume(3.25F);
        }
        DlpParameters& p = front->fileStructure.parameters;
        p.platformX = "1.2";
        p.platformY = "0.5";
        p.thickness = "0.05";
        numberParameters<DlpParameters, unsigned short>(p, 2);
        front->fileStructure.sliceBasicParameters.sliceSoftVersion = "vndlp " VNDLP_VERSION;
        front->fileStructure.sliceBasicParameters.enableAntiAliasing = 1;
        const SliceImage large = sliceImage(Bytes(400 * 300 * 3, 0), 400, 300);
        const SliceImage small = sliceImage(Bytes(200 * 125 * 3, 0), 200, 125);
        Printed printed;
        EXPECT_EQ(openAndWriteHeader(*front, {large, small, small}), 0);
        std::vector<SliceImage> layers;
        for (int i = 0; i < kKindLayers; ++i) {
            layers.push_back(kindLayer(i));
            const Bytes pixels(layers.back().pixels.get(), layers.back().pixels.get() + layers.back().size);
            const auto lit = std::count_if(pixels.begin(), pixels.end(), [](unsigned char c) { return c > 15; });
            const double area = isLine ? 5e4 : static_cast<double>(lit) * kPixelUm2;
            const auto index = static_cast<unsigned>(i);
            EXPECT_EQ(isLine ? front->addLayerPaths(index, kindPaths(i), area)
                             : front->addLayerImage(index, layers.back(), area, 1),
                      0);
        }
        EXPECT_EQ(front->finish(), 0);
        printed.take();

        SliceFile made;
        SliceRawField key;
        EXPECT_DONE(made.open(theirs));
        SliceTarget target;
        target.width = kKindWidth;
        target.height = kKindHeight;
        target.layers = kKindLayers;
        target.hasKey = made.raw("HeaderSettings.encryptionKey", key).isOk() && ending == ".ctb";
        target.key = static_cast<std::uint32_t>(key.integer);
        SliceWriter writer;
        const std::string ours = path("ours") + ending;
        EXPECT_DONE(writer.create(ours, target));
        const std::pair<const char*, double> numbers[] = {{"display_width_mm", 1.2},
                                                          {"display_height_mm", 0.5},
                                                          {"machine_height_mm", 175.5},
                                                          {"layer_height_mm", 0.05},
                                                          {"exposure_s", 0.2},
                                                          {"light_off_s", 3},
                                                          {"bottom_exposure_s", 4},
                                                          {"bottom_layers", 5},
                                                          {"bottom_lift_mm", 6},
                                                          {"bottom_lift_speed", 7},
                                                          {"lift_mm", 8},
                                                          {"lift_speed", 9},
                                                          {"retract_speed", 10},
                                                          {"bottom_pwm", 11},
                                                          {"pwm", 12},
                                                          {"resin_ml", 3.25},
                                                          {"resin_g", 3.5},
                                                          {"anti_aliasing", 1}};
        for (const auto& [name, value] : numbers) {
            const SliceKey* known = findSliceKey(name);
            const bool isHeld = (known->formats >> static_cast<int>(writer.format()) & 1) != 0;
            EXPECT_EQ(writer.setNumber(name, -1, value).code, isHeld ? SliceCode::ok : SliceCode::key) << name;
        }
        EXPECT_DONE(writer.setText("machine", "M-7"));
        for (const std::uint32_t i : {2u, 0u, 1u}) {
            if (!isLine) {
                EXPECT_DONE(writer.putPixels(i, layers[i].pixels.get(), 0, layers[i].size, std::nan("")));
                continue;
            }
            SliceShapes shapes;
            for (const auto& line : kindPaths(static_cast<int>(i))) {
                for (const Vec3i& point : line) shapes.points.insert(shapes.points.end(), {point.x, point.y});
                shapes.pathEnds.push_back(static_cast<std::uint32_t>(shapes.points.size() / 2));
            }
            EXPECT_DONE(writer.putShapes(i, shapes, 0.05));
        }
        EXPECT_DONE(writer.finish());
        EXPECT_TRUE(writer.assumed().empty());
        EXPECT_TRUE(sameBytes(readFile(ours), readFile(theirs)));
    }
}

TEST_F(SliceWriteTest, WriterRefusesWhatMakesNoFile) {
    const std::string out = writeFile(path("out.vndlp"), {1, 2, 3});
    SliceTarget target;
    target.width = 4;
    target.height = 3;
    target.layers = 3;
    const Bytes pixels(12, 200);
    {
        SliceWriter writer;
        EXPECT_EQ(writer.create(path("out.dlp"), target).code, SliceCode::format);
        EXPECT_EQ(writer.putPixels(0, pixels.data(), 0, 12, 1).code, SliceCode::argument);
        EXPECT_DONE(writer.create(out, target));
        EXPECT_EQ(writer.setNumber("lift2_mm", -1, 3).code, SliceCode::key);
        EXPECT_EQ(writer.setNumber("exposure_s", -1, 1e9).code, SliceCode::value);
        EXPECT_DONE(writer.putPixels(2, pixels.data(), 0, 12, std::nan("")));
        EXPECT_EQ(writer.setNumber("exposure_s", -1, 3).code, SliceCode::order);
        EXPECT_EQ(writer.putPixels(0, pixels.data(), 0, 11, 1).code, SliceCode::size);
        EXPECT_EQ(writer.putPixels(3, pixels.data(), 0, 12, 1).code, SliceCode::index);
        EXPECT_EQ(writer.putPixels(2, pixels.data(), 0, 12, 1).code, SliceCode::order);
        EXPECT_EQ(writer.putShapes(1, {}, 0).code, SliceCode::kind);
        EXPECT_EQ(writer.finish().text, "layers 0 to 1 are missing");
    }
    EXPECT_TRUE(sameBytes(readFile(out), {1, 2, 3})) << "what is not finished is cancelled";
    EXPECT_EQ(filesBeside(), 1u);
    SliceWriter writer;
    EXPECT_DONE(writer.create(path("OUT.CTB"), target));
    const SliceRun runs[] = {{2, 2, 3, 90, 0}, {0, 1, 0, 200, 0}};
    EXPECT_DONE(writer.putRuns(0, runs, 2));
    EXPECT_DONE(writer.putRuns(1, nullptr, 0));
    EXPECT_DONE(writer.putPixels(2, pixels.data(), 0, 12, std::nan("")));
    EXPECT_FALSE(writer.assumed().empty());
    EXPECT_DONE(writer.finish());
    EXPECT_EQ(writer.finish().code, SliceCode::order);
    EXPECT_EQ(errorsOf(path("OUT.CTB")), 0u);
    SliceFile file;
    EXPECT_DONE(file.open(path("OUT.CTB")));
    Bytes read(12);
    EXPECT_DONE(file.layerPixels(0, read.data(), 0, 12));
    EXPECT_EQ(read, (Bytes{201, 0, 0, 0, 201, 0, 0, 0, 0, 0, 0, 91}));
}

/// Members without a key that CTB and V4 files hold alike.
constexpr const char* kRawOfBoth[] = {"PreView.1.reserved20", "PrintParameters.reserved44", "SlicerInfo.word68",
                                      "LayerDef.1.pageNumber"};

/// Everything both hold, of the file and of single layers.
TEST_F(SliceWriteTest, BetweenFormatsArrivesWhatBothHold) {
    for (const Kind& from : {kKinds[0], kKinds[2], kKinds[3], kKinds[7], kKinds[9]}) {
        for (const std::string ending : {".vndlp", ".ctb", ".vndlpv4"}) {
            if (ending == from.ending) continue;
            SCOPED_TRACE(from.name + (" to " + ending));
            const std::string in = golden(from);
            SliceFile file;
            EXPECT_DONE(file.open(in));
            const SliceFormat format = sliceFormatOfPath(ending);
            std::vector<SliceChange> own;
            double next = 61;
            for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
                double held = 0;
                if (!file.number(key->name, -1, held).isOk() || std::string(key->name).rfind("resolution", 0) == 0)
                    continue;
                const bool isFlag = key->most == 1;
                own.push_back({key->name, isFlag ? "1" : sliceNumberText(key->most < 101 ? 0.5 : next++), ""});
            }
            const bool isCoded = from.ending != std::string(".vndlp");
            if (isCoded) own.push_back({"exposure_s", "17", "1"});
            for (const char* raw : kRawOfBoth) {
                if (isCoded) own.push_back({std::string("raw.") + raw, "37", ""});
            }
            if (from.ending == std::string(".vndlpv4")) own.push_back({"raw.SlicerInfo.word36", "38", ""});
            EXPECT_DONE(changeSliceFile(in, {}, own));
            EXPECT_DONE(file.open(in));
            const std::string out = path("out") + ending;
            Told told;
            EXPECT_DONE(convertSliceFile(file, out, {}, told.listener()));
            EXPECT_EQ(errorsOf(out), 0u);
            SliceFile made;
            EXPECT_DONE(made.open(out));
            EXPECT_EQ(made.info().layers, file.info().layers);
            std::string notKept;
            for (const std::string& note : told.notes) notKept += note.rfind("not kept", 0) == 0 ? note + "," : "";
            for (std::size_t i = 0; const SliceKey* key = sliceKey(i); ++i) {
                double was = 0;
                double is = -1;
                if (!file.number(key->name, -1, was).isOk() || was == 0) continue;
                const bool isKept = (key->formats >> static_cast<int>(format) & 1) != 0;
                EXPECT_EQ(made.number(key->name, -1, is).isOk(), isKept) << key->name;
                if (isKept) {
                    EXPECT_DOUBLE_EQ(is, was) << key->name;
                }
                const bool isNamed = notKept.find(std::string(" ") + key->name + ",") != std::string::npos;
                EXPECT_EQ(isNamed, !isKept) << key->name << " in " << notKept;
            }
            for (std::uint32_t i = 0; i < made.info().layers; ++i) {
                std::uint64_t were = 0;
                std::uint64_t are = 1;
                EXPECT_DONE(file.layerRuns(i, nullptr, 0, were));
                EXPECT_DONE(made.layerRuns(i, nullptr, 0, are));
                EXPECT_EQ(were, are);
            }
            double exposure = 0;
            if (from.ending == std::string(".vndlp")) {
                const bool hasMore = from.name != std::string("v1");
                EXPECT_EQ(notKept.find("raw.") != std::string::npos, hasMore) << notKept;
            } else if (ending != ".vndlp") {
                EXPECT_DONE(made.number("exposure_s", 1, exposure));
                EXPECT_EQ(exposure, 17);
                SliceRawField field;
                for (const char* raw : kRawOfBoth) {
                    EXPECT_DONE(made.raw(raw, field));
                    EXPECT_EQ(field.number, 37) << raw;
                }
                SlicePreviewInfo was;
                SlicePreviewInfo is;
                EXPECT_DONE(file.previewInfo(0, was));
                EXPECT_DONE(made.previewInfo(0, is));
                EXPECT_EQ(was.width * 1000 + was.height, is.width * 1000 + is.height);
                EXPECT_EQ(notKept, ending == ".ctb" ? notKept : "");
                EXPECT_EQ(notKept.find("raw.SlicerInfo.word36") != std::string::npos, ending == ".ctb") << notKept;
            } else {
                EXPECT_NE(notKept.find("exposure_s of 1 layer"), std::string::npos) << notKept;
            }
        }
    }
}

/// A layer that cannot be decoded.
TEST_F(SliceWriteTest, DamageStopsUnlessToldToGoOn) {
    struct Case {
        Kind kind;
        std::size_t offset;
        unsigned char value;
        std::uint32_t layer;
    };
    // a run outside the screen, a run count, the tag behind a layer, and data that do not make the screen
    const Case cases[] = {{kKinds[2], 0x58C1A, 0xFF, 0},
                          {kKinds[2], 0x58C16, 9, 0},
                          {kKinds[3], 0, 0, 1},
                          {kKinds[7], 0x1E1, 13, 0},
                          {kKinds[8], 0, 0, 1}};
    for (Case c : cases) {
        SCOPED_TRACE(c.kind.name);
        const std::string in = golden(c.kind);
        if (c.offset == 0) {
            SliceFile sound;
            SliceLayerFacts facts;
            EXPECT_DONE(sound.open(in));
            EXPECT_DONE(sound.layerFacts(c.layer, facts));
            c.offset = static_cast<std::size_t>(facts.offset + facts.bytes - 1);
            c.value = 0xFF;
        }
        corruptByte(in, c.offset, c.value);
        if (c.kind.ending != std::string(".ctb")) fixTrailer(in);
        SliceFile file;
        EXPECT_DONE(file.open(in));
        for (const std::string ending : {".vndlp", ".ctb", ".vndlpv4"}) {
            const std::string out = path("out") + ending;
            std::filesystem::remove(out);
            const SliceResult stopped = convertSliceFile(file, out);
            EXPECT_EQ(stopped.code, SliceCode::damaged) << why(stopped);
            EXPECT_EQ(stopped.layer, c.layer) << why(stopped);
            EXPECT_GE(stopped.offset, 0);
            EXPECT_FALSE(std::filesystem::exists(out));
            SliceConvertOptions options;
            options.salvage = SliceSalvage::blank;
            Told told;
            EXPECT_DONE(convertSliceFile(file, out, options, told.listener()));
            EXPECT_EQ(errorsOf(out), 0u);
            SliceFile made;
            std::uint64_t runs = 1;
            EXPECT_DONE(made.open(out));
            EXPECT_EQ(made.info().layers, file.info().layers);
            EXPECT_DONE(made.layerRuns(c.layer, nullptr, 0, runs));
            EXPECT_EQ(runs, 0u);
            EXPECT_EQ(std::count_if(told.notes.begin(), told.notes.end(),
                                    [](const std::string& n) { return n.find("a blank layer") != std::string::npos; }),
                      1);
        }
        SliceRepaired repaired;
        EXPECT_DONE(repairSliceFile(in, path("repaired") + c.kind.ending, repaired));
        EXPECT_EQ(repaired.layersKept + 1, repaired.layersOf);
        EXPECT_EQ(errorsOf(path("repaired") + c.kind.ending), 0u);
    }
}

}  // namespace
}  // namespace vndlp::test
