#include "support/ctb.h"

#include <algorithm>

namespace vndlp::test {
namespace {

using Layers = std::vector<CTB::LayerDef*>;
using ExtendedLayers = std::vector<CTB::LayerDefEx*>;

/// Two previews of 100 and 40 bytes, machine name "M01", three layers of 10, 20 and 30 bytes that count up.
void fill(CTB::CTBWrite& writer, unsigned int version) {
    CTB::HeaderSettings& header = *writer.headerSettings();
    header.magic = CTB::kMagic;
    header.version = version;
    header.layerCount = 3;
    header.antiAliasLevel = 1;
    for (const unsigned int size : {100u, 40u}) {
        auto* preView = new CTB::PreView;
        preView->imageSize = size;
        preView->imageData = Bytes(size, static_cast<unsigned char>(size));
        writer.preViews()->push_back(preView);
    }
    writer.slicerInfo()->machineName = "M01";
    writer.slicerInfo()->machineNameSize = 3;
    for (unsigned int i = 0; i < 3; ++i) {
        auto* layer = new CTB::LayerDef;
        layer->positionZ = static_cast<float>(i + 1);
        layer->dataSize = 10 * (i + 1);
        layer->data = Bytes(layer->dataSize, static_cast<unsigned char>('a' + i));
        writer.layerDef().push_back(layer);
        if (version < CTB::kFirstExtendedVersion) continue;
        auto* extended = new CTB::LayerDefEx;
        extended->layerDef = *layer;
        extended->totalSize = 84 + layer->dataSize;
        extended->lightPwm = static_cast<float>(i);
        writer.layerDefEx().push_back(extended);
    }
}

/// Bytes of a written file, where its table begins, and where the images are.
constexpr unsigned int kFileSize = 875;
constexpr unsigned int kTable = 455;
const unsigned int kImages[] = {647, 741, 845};

class CtbFileTest : public CtbTest {
protected:
    /// Results of opening, encoding, closing.
    Codes encode(CTB::CTBWrite& writer, const std::string& target = {}) {
        const int opened = writer.openDlpFile(target.empty() ? file : target, false);
        const int encoded = writer.encode();
        return {opened, encoded, writer.close()};
    }

    /// What a writer filled as above makes.
    Bytes writtenFile(unsigned int version = 3) {
        CTB::CTBWrite writer;
        fill(writer, version);
        EXPECT_EQ(encode(writer, path("written")), Codes(3));
        return readFile(path("written"));
    }

    /// A reader that has read the header of a file of these bytes.
    CTB::CTBRead& opened(const Bytes& bytes) {
        EXPECT_EQ(m_reader.openDlpFile(writeFile(file, bytes), false), 0);
        EXPECT_EQ(m_reader.parseFile(true), 1);
        return m_reader;
    }

    std::string file = path("a.ctb");

private:
    CTB::CTBRead m_reader;
};

template <class Record>
void drop(Record*& record) {
    delete record;
    record = nullptr;
}

// writing

TEST_F(CtbFileTest, IsRefusedWithoutItsRecordsOrBeyondItsOffsets) {
    using Spoil = void (*)(CTB::CTBWrite&);
    const char* tooLarge = "4294967295";
    const std::pair<const char*, Spoil> cases[] = {
        {"previews", [](CTB::CTBWrite& w) { drop(w.preViews()->back()), w.preViews()->pop_back(); }},
        {"preview 1", [](CTB::CTBWrite& w) { drop((*w.preViews())[1]); }},
        {"layer 2", [](CTB::CTBWrite& w) { drop(w.layerDef()[2]); }},
        {"layer 1", [](CTB::CTBWrite& w) { drop(w.layerDefEx()[1]); }},
        {"layer 2", [](CTB::CTBWrite& w) { drop(w.layerDefEx()[2]), w.layerDefEx().pop_back(); }},
        {tooLarge, [](CTB::CTBWrite& w) { (*w.preViews())[0]->imageSize = 0xFFFFFFFF; }},
        {tooLarge, [](CTB::CTBWrite& w) { w.slicerInfo()->machineNameSize = 0xFFFFFFFF; }},
        {tooLarge, [](CTB::CTBWrite& w) { w.headerSettings()->layerCount = 120000000; }},
        {tooLarge, [](CTB::CTBWrite& w) { w.layerDef()[0]->dataSize = w.layerDef()[1]->dataSize = 0x90000000; }},
    };
    for (const auto& [naming, spoil] : cases) {
        CTB::CTBWrite writer;
        fill(writer, 3);
        spoil(writer);
        EXPECT_TRUE(tellsOf(naming, [&] { EXPECT_EQ(encode(writer), (Codes{0, -1, 0})); }));
        EXPECT_EQ(readFile(file), Bytes{});
    }
}

TEST_F(CtbFileTest, PadsImagesAndWarnsOfCountsThatDoNotFit) {
    CTB::CTBWrite shortImage;
    fill(shortImage, 3);
    shortImage.layerDef()[0]->data.resize(4);
    EXPECT_TRUE(tellsOf("layer 0", [&] { EXPECT_EQ(encode(shortImage), (Codes{0, -1, 0})); }));
    Bytes expected = writtenFile();
    std::fill_n(expected.begin() + 651, 6, 0);
    EXPECT_EQ(readFile(file), expected);

    CTB::CTBWrite otherCount;
    fill(otherCount, 2);
    otherCount.headerSettings()->layerCount = 4;
    CTB::CTBWrite thirdPreview;
    fill(thirdPreview, 3);
    thirdPreview.preViews()->push_back(new CTB::PreView);
    for (CTB::CTBWrite* writer : {&otherCount, &thirdPreview}) {
        const std::string printed = printedBy([&] { EXPECT_EQ(encode(*writer), Codes(3)); });
        EXPECT_EQ(printed.rfind("warning: ", 0), 0u) << printed;
        EXPECT_EQ(countOf(printed, "\n"), 1) << printed;
        const Bytes bytes = readFile(file);
        // the offsets count as the header does, and two previews; the file holds what is there
        EXPECT_EQ(bytes.size(), writer == &otherCount ? 623u : kFileSize + 32);
        EXPECT_EQ(u32At(bytes, 84), 316u);
        EXPECT_EQ(otherCount.layerDef()[0]->dataOffset, kTable + 4 * 36);
    }
}

// opening

TEST_F(CtbFileTest, TellsWhatCannotBeOpenedOrVerifiedAndLeavesItAlone) {
    const std::string missing = path("missing/a.ctb");
    writeFile(file, writtenFile());
    const auto check = [&](auto&& object) {
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(object.openDlpFile(missing, false), -3); }),
                  "error: " + missing + " can't open\n");
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(object.openDlpFile(file, true), -1); }),
                  "getFileVersionInfo failed, ret:-4\nerror:open dlp file:" + file + ", checksum failed, ret:-1\n");
    };
    check(CTB::CTBRead());
    check(CTB::CTBWrite());
    EXPECT_EQ(readFile(file), writtenFile());
}

// reading

TEST_F(CtbFileTest, EntriesStandBehindTheirImagesWhenAskedForBoth) {
    for (const unsigned int version : {3u, 2u}) {
        for (const unsigned int levels : {1u, 2u}) {
            Bytes bytes = writtenFile(version);
            setU32(bytes, 92, levels);  // antiAliasLevel; the table stands there once all the same
            Layers list;
            CTB::CTBRead& reader = opened(bytes);
            EXPECT_EQ(printedBy([&] { list = reader.layerDef(true); }), "") << "a sound file";
            const Owned<CTB::LayerDef> layers(list);
            ASSERT_EQ(layers.size(), 3 * levels) << version;
            EXPECT_EQ(Owned<CTB::LayerDef>(reader.layerDef(false)).size(), 3 * levels) << version;
            EXPECT_EQ(layers[0]->data, Bytes(10, 'a'));
            // behind the first image: the second's extended record, which begins with its entry, or the second image
            EXPECT_EQ(layers[1]->dataSize, version == 3 ? 20u : 0x62626262u);
            EXPECT_TRUE(version == 2 || layers[2]->data == Bytes(30, 'c'));
        }
    }
}

TEST_F(CtbFileTest, RecordsCutOffKeepWhatIsThereAndTheirDefaultsBehindIt) {
    const Bytes whole = writtenFile();
    struct Row {
        std::size_t size;
        const char* naming;
        bool (*isRight)(CTB::CTBRead&);
    };
    const Row rows[] = {
        {32, "header", [](CTB::CTBRead& r) { return r.headerSettings()->layerHeight == 0.05F; }},
        {33, "header", [](CTB::CTBRead& r) { return r.headerSettings()->layerHeight == std::bit_cast<float>(0xCDu); }},
        {112 + 16, "preview",
         [](CTB::CTBRead& r) {
             const Owned<CTB::PreView> preViews(r.preViews());
             return preViews.size() == 2 && preViews[0]->imageSize == 100 && preViews[0]->imageOffset == 144;
         }},
        {491 + 16, "layer table",
         [](CTB::CTBRead& r) {
             const Owned<CTB::LayerDef> layers(r.layerDef(false));
             return layers.size() == 2 && layers[1]->dataOffset == kImages[1] && layers[1]->dataSize == 0;
         }},
        {455 + 16, "layer table", [](CTB::CTBRead& r) { return Owned<CTB::LayerDef>(r.layerDef(false)).size() == 1; }},
        {563 + 16, "extended record of layer 0",
         [](CTB::CTBRead& r) {
             const Owned<CTB::LayerDefEx> extended(r.layerDefEx());
             return extended.size() == 1 && extended[0]->layerDef.dataOffset == kImages[0];
         }},
        {316 + 24, "print parameters",
         [](CTB::CTBRead& r) {
             const CTB::PrintParameters parameters = r.printParameters();
             return parameters.volume == 9.131F && parameters.price == 0;
         }},
        {376 + 44, "slicer information",
         [](CTB::CTBRead& r) { return r.slicerInfo().word40 == 0x01A4FA00 && r.slicerInfo().machineName.empty(); }},
    };
    for (const Row& row : rows) {
        CTB::CTBRead reader;
        EXPECT_EQ(reader.openDlpFile(writeFile(file, slice(whole, 0, row.size)), false), 0);
        const std::string printed = printedBy([&] {
            reader.parseFile(true);
            EXPECT_TRUE(row.isRight(reader)) << row.size;
        });
        EXPECT_NE(printed.find(row.naming), std::string::npos) << printed;
    }
}

TEST_F(CtbFileTest, ExtendedRecordsOfEveryLevelComeFromTheFirstAndAreKept) {
    Bytes bytes = writtenFile();
    setU32(bytes, 92, 2);  // antiAliasLevel
    CTB::CTBRead& reader = opened(bytes);
    EXPECT_EQ(Owned<CTB::LayerDef>(reader.layerDef(false)).size(), 6u);
    const ExtendedLayers first = reader.layerDefEx();
    ASSERT_EQ(first.size(), 6u);
    for (unsigned int i = 0; i < 6; ++i) {
        EXPECT_EQ(first[i]->layerDef.dataOffset, kImages[i % 3]);
        EXPECT_EQ(first[i]->lightPwm, static_cast<float>(i % 3));
    }
    const Owned<CTB::LayerDefEx> second(reader.layerDefEx());
    ASSERT_EQ(second.size(), 12u);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), second.list().begin()));
}

// hostile files

TEST_F(CtbFileTest, DamagedWordsGiveWhatIsThereAndOneLine) {
    using Query = std::size_t (*)(CTB::CTBRead&);
    const Query entries = [](CTB::CTBRead& r) { return Owned<CTB::LayerDef>(r.layerDef(false)).size(); };
    const Query entriesWithImages = [](CTB::CTBRead& r) { return Owned<CTB::LayerDef>(r.layerDef(true)).size(); };
    const Query extended = [](CTB::CTBRead& r) { return Owned<CTB::LayerDefEx>(r.layerDefEx()).size(); };
    const Query volume = [](CTB::CTBRead& r) { return static_cast<std::size_t>(r.printParameters().volume); };
    const Query nameSize = [](CTB::CTBRead& r) { return r.slicerInfo().machineName.size(); };
    const Query previewSize = [](CTB::CTBRead& r) {
        const Owned<CTB::PreView> preViews(r.preViews());
        return preViews.size() == 2 ? preViews[0]->imageData.size() : 0;
    };
    constexpr std::size_t kHeldEntries = (kFileSize - kTable) / 36 + 1;  // the last one cut off
    struct Row {
        std::vector<std::pair<std::size_t, std::uint32_t>> words;  ///< offset and what is put there
        const char* naming;
        Query query;
        std::size_t expected;
    };
    const Row rows[] = {
        {{{68, 0xFFFFFFFF}}, "a.ctb: the layer table", entries, kHeldEntries},  // layerCount
        {{{68, 0x071C71C8}}, "a.ctb: the layer table", entries, kHeldEntries},  // 32 in 32 bits, times 36
        {{{92, 0xFFFFFFFF}}, "a.ctb: the layer table", entries, kHeldEntries},  // antiAliasLevel
        {{{68, 0xFFFFFFFF}}, "layer table", extended, 4},
        {{{92, 0xFFFFFFFF}}, "layer table", extended, kHeldEntries},
        {{{64, 840}}, "layer table", entries, 1},
        {{{491 + 12, 83}}, "layer 1", extended, 1},
        {{{84, kFileSize}}, "print parameters", volume, 0},
        {{{104, 0xFFFFFFFF}}, "slicer information", nameSize, 0},
        {{{112 + 12, 0xFFFFFFFF}}, "preview", previewSize, kFileSize - 144},
        // an empty image in front of its own entry: reading such a table went round in circles
        {{{68, 0xFFFFFFFF}, {455 + 12, 455}, {455 + 16, 0}}, "layer table", entriesWithImages, kHeldEntries},
    };
    for (const Row& row : rows) {
        Bytes bytes = writtenFile();
        for (const auto& [offset, word] : row.words) setU32(bytes, offset, word);
        CTB::CTBRead& reader = opened(bytes);
        EXPECT_TRUE(tellsOf(row.naming, [&] { EXPECT_EQ(row.query(reader), row.expected) << row.words[0].first; }));
    }
    // images that end where their entry begins lead to the same entry again, but do not multiply
    Bytes bytes = writtenFile();
    bytes.resize(100000);
    for (const auto& [offset, word] : {std::pair{64u, 50000u}, {68, 1000}, {50016, 50000}}) setU32(bytes, offset, word);
    const Owned<CTB::LayerDef> layers(opened(bytes).layerDef(true));
    std::size_t read = 0;
    for (const CTB::LayerDef* layer : layers.list()) read += layer->data.size();
    EXPECT_EQ(layers.size(), 1000u);
    EXPECT_LE(read, 5 * bytes.size());
    // a short header is read as far as it goes
    EXPECT_TRUE(tellsOf("header", [&] { opened(slice(writtenFile(), 0, 70)); }));
    const CTB::HeaderSettings* header = opened(slice(writtenFile(), 0, 112)).headerSettings();
    EXPECT_EQ(header->slicerInfoOffset, 376u);
}

}  // namespace
}  // namespace vndlp::test
