// The faults that image-file libraries have had most often, each tried on a file of a kind where it could be. Data
// behind the end of a file are in damage_test.cpp (EveryCutAndAddedByteIsReported), tables larger than the file in
// container_test.cpp (EveryDamageHasItsCodeBehindASoundTrailer), short reads of numbers in streams_test.cpp.

#include "support/ctb.h"
#include "support/every_kind.h"
#include "support/memory_file.h"

#include <vndlp/v4.h>

#include <algorithm>

namespace vndlp::test {
namespace {

constexpr std::size_t kPixels = kKindWidth * kKindHeight;

class KnownFaults : public FileTest {
protected:
    /// The bytes of a sound file.
    Bytes sound(const std::string& name) {
        const Printed printed;
        for (const FileKind& kind : everyKind()) {
            if (kind.name != name) continue;
            EXPECT_EQ(kind.write(path("sound" + kind.ending)), 0);
            return readFile(path("sound" + kind.ending));
        }
        throw std::invalid_argument(name);
    }

    /// A CTB file with some of its words replaced, opened.
    CTB::CTBRead& ctb(const std::vector<std::pair<std::size_t, std::uint32_t>>& words) {
        Bytes bytes = sound("ctb");
        for (const auto& [offset, word] : words) setU32(bytes, offset, word);
        m_file.set(bytes);
        EXPECT_EQ(m_ctb.openDlpFile(m_file.path(), false), 0);
        EXPECT_EQ(m_ctb.parseFile(true), 1);
        return m_ctb;
    }

    MemoryFile m_file;
    CTB::CTBRead m_ctb;
};

constexpr std::size_t kCtbWidth = 52;
constexpr std::size_t kCtbTable = 64;
constexpr std::size_t kCtbLayers = 68;

TEST_F(KnownFaults, CountTimesSizeOverflow) {
    // 36 bytes an entry: 32 in 32 bits
    CTB::CTBRead& reader = ctb({{kCtbLayers, 0x071C71C8}});
    std::vector<CTB::LayerDef*> entries;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { entries = reader.layerDef(false); })));
    EXPECT_LT(Owned<CTB::LayerDef>(entries).size(), m_file.bytes().size() / 36);

    // 6 bytes a run: 2 in 32 bits
    m_file.set(Bytes().u32(0x2AAAAAAB).fill(12, 0).tag());
    VndlpRead vendor;
    std::vector<WhiteData> runs;
    const Printed printed;
    vendor.openDlpFile(m_file.path(), false);
    EXPECT_EQ(vendor.readLayerWhiteData(runs, nullptr), -5);
    EXPECT_TRUE(runs.empty());
}

TEST_F(KnownFaults, OffsetBeforeTheTable) {
    // the table on top of the header, the codes of its entries anywhere
    CTB::CTBRead& reader = ctb({{kCtbTable, 0}});
    const Printed printed;
    const Owned<CTB::LayerDef> entries(reader.layerDef(false));
    ASSERT_EQ(entries.size(), 3u);
    for (CTB::LayerDef* entry : entries.list()) {
        const std::vector<unsigned char> image = reader.readLayerImage(reader.headerSettings(), entry, 0, nullptr);
        EXPECT_EQ(image.size(), kPixels);
    }
}

TEST_F(KnownFaults, NegativeWidth) {
    CTB::CTBRead& reader = ctb({{kCtbWidth, 0xFFFFFFFF}});
    const Owned<CTB::LayerDef> entries(reader.layerDef(false));
    EXPECT_TRUE(isOneErrorLine(printedBy(
        [&] { EXPECT_TRUE(reader.readLayerImage(reader.headerSettings(), entries[0], 0, nullptr).empty()); })));

    DlpImage image(-1, 7);
    image.needData();
    EXPECT_EQ(image.size(), 0);
    EXPECT_FALSE(image.haveDatas());
    std::vector<WhiteData> runs;
    unsigned char pixel = 255;
    EXPECT_EQ(grayDataVecWhiteData(&pixel, -1, 1, runs), 0);
    paintWhiteData({{{0, 0}, {0, 0}, 9}}, &pixel, 1, -1);
    EXPECT_TRUE(runs.empty());
    EXPECT_EQ(pixel, 255);
}

TEST_F(KnownFaults, OverlappingSections) {
    // all layers read the first one's code; asking for the codes with the table stops where they exceed the file
    const Bytes whole = sound("ctb");
    const std::size_t table = u32At(whole, kCtbTable);
    const std::uint32_t first = u32At(whole, table + 12);
    CTB::CTBRead& reader = ctb({{table + 36 + 12, first}, {table + 72 + 12, first}, {kCtbLayers, 3}});
    const Printed printed;
    const Owned<CTB::LayerDef> entries(reader.layerDef(true));
    std::size_t held = 0;
    for (const CTB::LayerDef* entry : entries.list()) held += entry->data.size();
    EXPECT_LE(held, whole.size());
}

TEST_F(KnownFaults, DecompressionThatOutrunsItsBuffer) {
    // the longest run there is, again and again
    Bytes code;
    for (int i = 0; i < 40; ++i) code.u8(0xFF).u8(0xEF).u8(0xFF).u8(0xFF).u8(0xFF);
    m_file.set(code);
    const FileRead in(m_file.path(), 0);
    CTB::LayerDef layer(in);
    layer.dataSize = static_cast<unsigned int>(code.size());
    Bytes guarded(100, 7);
    EXPECT_EQ(layer.decodeCtbImageInto(guarded.data() + 40, 20, 0, 0), 0);
    EXPECT_EQ(guarded, Bytes().fill(40, 7).fill(20, 255).fill(40, 7));

    CTB::PreView preView;
    preView.resolutionX = 3;
    preView.resolutionY = 1;
    Bytes runs;
    for (int i = 0; i < 40; ++i) runs.u8(0xFF).u8(0xFF).u8(0xFF).u8(0x3F);
    EXPECT_EQ(preView.decodeImg(runs.data(), static_cast<unsigned int>(runs.size())).size(), 9u);
}

TEST_F(KnownFaults, RecursiveOffsets) {
    // records that say they are where they themselves were read from: no offset is followed from where it led
    Bytes bytes = sound("v4");
    const std::size_t header = 22;  // behind both texts and the version
    const std::size_t table = u32At(bytes, header + 32);
    setU32(bytes, header + 28, 0);                                                // the first preview is the header
    setU32(bytes, table + 12, static_cast<std::uint32_t>(table));                 // the first layer is its own entry
    setU32(bytes, table + 16, static_cast<std::uint32_t>(bytes.size() - table));  // and all that follows
    m_file.set(bytes);
    const Printed printed;
    VNDLPV4::VNDLPV4Read reader;
    EXPECT_EQ(reader.openDlpFile(m_file.path(), false), 0);
    EXPECT_EQ(reader.parseFile(), 0);
    ASSERT_EQ(reader.layerDef().size(), 3u);
    EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), reader.layerDef()[0], 0).size(), kPixels);
}

TEST_F(KnownFaults, StaleBufferAfterAShortRead) {
    const Bytes whole = sound("ctb");
    CTB::CTBRead reader;
    m_file.set(slice(whole, 0, whole.size() - 3));
    reader.openDlpFile(m_file.path(), false);
    reader.parseFile(true);
    const Owned<CTB::LayerDef> entries(reader.layerDef(false));
    ASSERT_EQ(entries.size(), 3u);
    Bytes pixels(kPixels, 0xAA);
    EXPECT_TRUE(isOneErrorLine(printedBy([&] {
        EXPECT_EQ(
            entries[2]->decodeCtbImageInto(pixels.data(), pixels.size(), 2, reader.headerSettings()->encryptionKey),
            -1);
    })));
    EXPECT_EQ(std::count(pixels.begin(), pixels.end(), 0xAA), 0);
}

TEST_F(KnownFaults, UninitialisedRows) {
    // a code that ends within the first of four rows
    m_file.set(Bytes(44).u8(0x7F));
    VNDLPV4::VNDLPV4Read reader;
    reader.openDlpFile(m_file.path(), false);
    VNDLPV4::HeaderSettings header;
    header.resolutionX = 5;
    header.resolutionY = 4;
    VNDLPV4::LayerDef layer;
    layer.dataSize = 45;
    Bytes rows;
    EXPECT_EQ(reader.readLayerImage_16k(&header, &layer, 0,
                                        [&](unsigned int, const unsigned char* row) { rows.raw(Bytes(row, row + 5)); }),
              0);
    EXPECT_EQ(rows, Bytes().u8(255).fill(19, 0));
    Bytes buffer(20, 0xAA);
    reader.readLayerImage(&header, &layer, 0, buffer.data(), buffer.size());
    EXPECT_EQ(buffer, rows);
}

}  // namespace
}  // namespace vndlp::test
