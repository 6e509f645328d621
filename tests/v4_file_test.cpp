#include "support/allocations.h"
#include "support/v4.h"

#include <vndlp/checksum.h>

#include <algorithm>
#include <memory>

namespace vndlp::test {
namespace {

using namespace VNDLPV4;

/// Two previews of 100 and 40 bytes, three layers of 10, 20 and 30 bytes; strings "VNKT3DV2" and "M1".
void fill(VNDLPV4Write& writer, bool extended = false) {
    HeaderSettings& header = *writer.headerSettings();
    header.headerText1 = "VNKT3DV2";
    header.headerText2 = "M1";
    header.layerCount = 3;
    for (const unsigned int size : {100u, 40u}) {
        auto preView = std::make_shared<PreView>();
        preView->imageSize = size;
        preView->imageData = Bytes(size, static_cast<unsigned char>(size));
        writer.preViews()->push_back(preView);
    }
    writer.slicerInfo()->word48 = 0x77;
    for (unsigned int i = 0; i < 3; ++i) {
        auto layer = std::make_shared<LayerDef>();
        layer->positionZ = static_cast<float>(i + 1);
        layer->data = Bytes(10 * (i + 1), static_cast<unsigned char>('a' + i));
        layer->dataSize = 44 + 10 * (i + 1);
        layer->tableSize = 44;
        if (extended) layer->setBeadMask(Bytes(68, static_cast<unsigned char>(i)));
        writer.layerDef().push_back(layer);
        auto ex = std::make_shared<LayerDefEx>();
        ex->lightPwm = static_cast<float>(i);
        writer.layerDefEx().push_back(ex);
    }
}

/// Pixels of a layer, 12 x 10.
Bytes layerPixels(unsigned int layer) {
    Bytes pixels(120);
    for (std::size_t p = 0; p < 120; p += 3 + layer) pixels[p] = static_cast<unsigned char>(2 * layer + 3);
    return pixels;
}

/// The same with images, scrambled.
void fillWithImages(VNDLPV4Write& writer, unsigned int key) {
    fill(writer, true);
    writer.headerSettings()->resolutionX = 12;
    writer.headerSettings()->resolutionY = 10;
    writer.headerSettings()->encryptionKey = key;
    for (unsigned int i = 0; i < 3; ++i) {
        LayerDef& layer = *writer.layerDef()[i];
        layer.data = LayerDef::encodeImage(layerPixels(i).data(), 120, key, i);
        layer.dataSize = 44 + static_cast<unsigned int>(layer.data.size());
    }
}

/// Results of opening, encoding, closing.
Codes encode(VNDLPV4Write& writer, const std::string& path) {
    const int opened = writer.openDlpFile(path, false);
    const int encoded = writer.encode("any");
    return {opened, encoded, writer.close()};
}

template <class Fill>
Bytes writtenBy(Fill&& fillWriter) {
    const TemporaryFile file;
    VNDLPV4Write writer;
    fillWriter(writer);
    printedBy([&] { EXPECT_EQ(encode(writer, file.path()), Codes(3)); });
    return file.bytes();
}

Bytes writtenFile(bool extended = false) {
    return writtenBy([extended](VNDLPV4Write& writer) { fill(writer, extended); });
}

/// A file with these bytes, read by a reader of its own.
struct ReadFile {
    explicit ReadFile(const Bytes& bytes) {
        m_file.setBytes(bytes);
        printed = printedBy([&] {
            EXPECT_EQ((Codes{reader.openDlpFile(m_file.path(), false), reader.parseFile()}), Codes(2));
        });
    }
    Bytes image(int layer) {
        return reader.readLayerImage(reader.headerSettings(), reader.layerDef().at(static_cast<std::size_t>(layer)),
                                     layer);
    }

private:
    TemporaryFile m_file;

public:
    VNDLPV4Read reader;
    std::string printed;
};

// writing

TEST(V4Write, AppendsATrailerThatIsVerifiedUnlessTheFirstStringIsNoMagic) {
    const TemporaryFile file;
    const Bytes bytes = writtenFile();
    Bytes sealed = slice(bytes, 0, bytes.size() - 4);
    sealWithCrc(sealed);
    EXPECT_EQ(bytes, sealed);
    file.setBytes(bytes);
    const std::string told =
        "checkFileSum, file:" + file.path() + ", versionName:VNKT3DV2, subVersionNum:4, checktype:2\n";
    VNDLPV4Read reader;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(reader.openDlpFile(file.path(), true), 0); }), told);
    VNDLPV4Write writer;
    for (const std::size_t damaged : {std::size_t{16}, std::size_t{300}, bytes.size() - 1}) {
        Bytes bad = bytes;
        bad[damaged] ^= 1;
        file.setBytes(bad);
        const std::string printed = printedBy([&] {
            EXPECT_EQ((Codes{reader.openDlpFile(file.path(), true), writer.openDlpFile(file.path(), true)}),
                      Codes(2, -1));
        });
        EXPECT_EQ(countOf(printed, "error:open dlp file:" + file.path() + ", checksum failed, ret:-5\n"), 2);
        EXPECT_EQ(file.bytes(), bad) << "left alone";
    }
    fill(writer);
    writer.headerSettings()->headerText1 = "OTHER";
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(encode(writer, file.path()), Codes(3)); }),
              "getFileVersionInfo failed, ret:-4\nerror: write dlp file checksum, ret:-1\n");
    EXPECT_EQ(file.bytes().size(), bytes.size() - 3 - 4);
}

TEST(V4Write, WithoutPreviewsTheirOffsetsCountNoImages) {
    const TemporaryFile file;
    VNDLPV4Write bare;
    bare.headerSettings()->headerText1 = "VNKT3DV2";
    printedBy([&] { EXPECT_EQ(encode(bare, file.path()), Codes(3)); });
    const HeaderSettings& h = *bare.headerSettings();
    EXPECT_EQ((Codes{h.previewLargeOffset, h.previewSmallOffset, h.printParametersOffset, h.layerDefOffset}),
              (Codes{112, 112 + 32, 112 + 64, 112 + 64 + 68 + 76}));
    EXPECT_EQ(file.bytes().size(), 112u + 68 + 76 + 4);
}

TEST(V4Write, LaysDownMixedEntriesAndThirdPreviewsWithAWarning) {
    // the offsets count entries like the first, and two previews; the file holds what is there
    using Change = void (*)(VNDLPV4Write&);
    struct Row {
        const char* warning;
        Change change;
        std::size_t growth;
        std::size_t table;
        unsigned dataOffset;
    };
    const Row rows[] = {
        {"the table entry of layer 1 has 120 bytes, that of layer 0 has 40",
         [](VNDLPV4Write& w) { w.layerDef()[1]->setBeadMask(Bytes(80, 7)); }, 80, 462, 462 + 3 * 40},
        {"3 previews are written, the offsets account for two",
         [](VNDLPV4Write& w) { w.preViews()->push_back(std::make_shared<PreView>()); }, 32, 462 + 32, 462 + 3 * 40},
    };
    for (const Row& row : rows) {
        const TemporaryFile file;
        VNDLPV4Write writer;
        fill(writer);
        row.change(writer);
        const std::string printed = printedBy([&] { EXPECT_EQ(encode(writer, file.path()), Codes(3)); });
        EXPECT_EQ(countOf(printed, "warning: " + file.path() + ": " + row.warning + "\n"), 1) << printed;
        EXPECT_EQ(countOf(printed, "warning: "), 1);
        const Bytes bytes = file.bytes();
        EXPECT_EQ(bytes.size(), writtenFile().size() + row.growth);
        EXPECT_EQ(u32At(bytes, 54), 462u) << "layerDefOffset";
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t entry = row.table + 40 * i + (row.growth == 80 && i == 2 ? 80 : 0);
            EXPECT_EQ(u32At(bytes, entry), std::bit_cast<unsigned>(static_cast<float>(i + 1))) << "positionZ";
            EXPECT_EQ(u32At(bytes, entry + 12), row.dataOffset + (i == 0 ? 0 : i == 1 ? 54 : 118));
        }
        EXPECT_EQ(slice(bytes, row.table + 3 * 40 + (row.growth == 80 ? 80 : 0) + 44, 10), Bytes(10, 'a'));
    }
}

TEST(V4Write, FailsWithoutRecordsThatMakeAFile) {
    using Spoil = void (*)(VNDLPV4Write&);
    const std::pair<const char*, Spoil> cases[] = {
        {"layer 1 is missing", [](VNDLPV4Write& w) { w.layerDef()[1] = nullptr; }},
        {"layer 2 has no extended", [](VNDLPV4Write& w) { w.layerDefEx().pop_back(); }},
        {"preview 0 is missing", [](VNDLPV4Write& w) { w.preViews()->front() = nullptr; }},
        {"layer 0 declares 43", [](VNDLPV4Write& w) { w.layerDef()[0]->dataSize = 43; }},
        {"offsets reach", [](VNDLPV4Write& w) { w.layerDef()[0]->dataSize = 0xFFFFFFF0; }},
    };
    const TemporaryFile file;
    for (const auto& [naming, spoil] : cases) {
        VNDLPV4Write writer;
        fill(writer);
        spoil(writer);
        EXPECT_TRUE(tellsOf(naming, [&] { EXPECT_EQ(encode(writer, file.path()), (Codes{0, -1, 0})); }));
        EXPECT_TRUE(file.bytes().empty());
    }
    VNDLPV4Write writer;
    fill(writer);
    writer.layerDef()[1]->data.resize(5);
    const std::string printed = printedBy([&] { EXPECT_EQ(encode(writer, file.path()), (Codes{0, -1, 0})); });
    EXPECT_EQ(countOf(printed, "error: " + file.path() + ": the image of layer 1 should have 20 bytes, 5 are there\n"),
              1);
    EXPECT_EQ(slice(file.bytes(), 636 + 44, 20), Bytes().fill(5, 'b').fill(15, 0));
}

// reading

TEST(V4Read, DecodesImagesInEveryForm) {
    for (const unsigned int key : {0u, 300u}) {
        ReadFile file(writtenBy([key](VNDLPV4Write& writer) { fillWithImages(writer, key); }));
        VNDLPV4Read& reader = file.reader;
        const HeaderSettings* header = reader.headerSettings();
        for (int i = 0; i < 3; ++i) {
            LayerDef* layer = reader.layerDef()[static_cast<std::size_t>(i)];
            const Bytes expected = layerPixels(static_cast<unsigned>(i));
            EXPECT_EQ(file.image(i), expected);
            EXPECT_EQ(reader.readLayerImage_16k(header, layer, i), expected);
            Bytes buffer(120, 9), larger(125, 9);
            EXPECT_EQ((Codes{reader.readLayerImage(header, layer, i, buffer.data(), 120),
                             reader.readLayerImage_16k(header, layer, i, larger.data(), 125),
                             reader.readLayerImage(layer, i)}),
                      Codes(3));
            EXPECT_EQ(buffer, expected);
            EXPECT_EQ(larger, Bytes().raw(expected).fill(5, 0));
            EXPECT_EQ(layer->data, expected);
        }
    }
    char out[3] = {};
    VNDLPV4Read::vectorToChar({1, 2, 3}, out);
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(VNDLPV4Write::LayerRleCrypt(5, 6, VNDLPV4Write::LayerRleCrypt(5, 6, {1, 2, 3})), (Bytes{1, 2, 3}));
}

// hostile files

TEST(V4HostileFiles, RecordsCutOffKeepWhatIsThereAndTheirDefaultsBehindIt) {
    Bytes whole = writtenFile();
    setU32(whole, 318 + 36, std::bit_cast<unsigned>(2.5F));
    ReadFile parameters(slice(whole, 0, 318 + 40));
    EXPECT_EQ(parameters.reader.printParameters()->lightOffDelay, 2.5F);
    ReadFile info(slice(whole, 0, 386 + 56));
    EXPECT_EQ(info.reader.slicerInfo()->word48, 0x77u);
    EXPECT_EQ(info.reader.slicerInfo()->restTimeAfterRetract, -1.0F);
    EXPECT_EQ(info.reader.slicerInfo()->word64, 0u);
    ReadFile preView(slice(whole, 0, 246 + 16));
    ASSERT_EQ(preView.reader.preViews().size(), 2u);
    EXPECT_EQ(preView.reader.preViews()[1]->imageSize, 40u);
    ReadFile table(slice(whole, 0, 462 + 40 + 16));
    ASSERT_EQ(table.reader.layerDef().size(), 2u);
    EXPECT_EQ(table.reader.layerDef()[1]->dataOffset, 636u);
    setU32(whole, 582, std::bit_cast<unsigned>(7.0F));
    ReadFile extended(slice(whole, 0, 582 + 5));
    EXPECT_EQ(extended.reader.layerDefEx()[0]->liftHeight, 7.0F);
}

TEST(V4HostileFiles, ImagesThatAreNotThereGiveALine) {
    ReadFile file(writtenBy([](VNDLPV4Write& writer) { fillWithImages(writer, 0); }));
    VNDLPV4Read& reader = file.reader;
    const HeaderSettings* header = reader.headerSettings();
    LayerDef layer = *reader.layerDef()[0];
    layer.dataOffset = 0xFFFFFFF0;
    EXPECT_TRUE(tellsOf("image of layer 0", [&] { EXPECT_EQ(reader.readLayerImage(header, &layer, 0), Bytes(120)); }));
    layer.dataSize = 3;  // not even the extended record
    EXPECT_EQ(reader.readLayerImage(header, &layer, 0), Bytes(120));
    // encoded data that end within the first of ten rows
    layer = *reader.layerDef()[0];
    layer.dataSize = 44 + 1;
    Bytes rows;
    const auto take = [&rows](unsigned int, const unsigned char* row) { rows.raw(Bytes(row, row + 12)); };
    EXPECT_EQ(reader.readLayerImage_16k(header, &layer, 0, take), 0);
    EXPECT_EQ(rows, Bytes{3}.fill(119, 0));
    HeaderSettings huge = *header;
    huge.resolutionX = huge.resolutionY = 65535;
    EXPECT_TRUE(tellsOf("", [&] { EXPECT_TRUE(reader.readLayerImage(&huge, &layer, 0).empty()); }));
    EXPECT_TRUE(tellsOf("", [&] { EXPECT_TRUE(reader.readLayerImage(nullptr, &layer, 0).empty()); }));
    EXPECT_TRUE(tellsOf("", [&] { EXPECT_TRUE(reader.readLayerImage(header, nullptr, 0).empty()); }));
    reader.closeDlpFile();
    layer.dataSize = 50;
    EXPECT_TRUE(tellsOf("", [&] { EXPECT_EQ(reader.readLayerImage(&layer, 0), -1); }));
}

}  // namespace
}  // namespace vndlp::test
