// The writing half of the model: what it changes and what stays, on the golden files of every kind.

#include "support/golden.h"

#include <vndlp/vndlp.h>

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

}  // namespace
}  // namespace vndlp::test
