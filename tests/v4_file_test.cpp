#include "support/v4.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <sstream>

namespace {
std::atomic<std::size_t> bytesAllocated{0};
}

// counts what the library asks for: its operator new resolves to the program's; not inlined, or the compiler would see
// malloc paired with delete
[[gnu::noinline]] void* operator new(std::size_t size) {
    bytesAllocated += size;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

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

/// The same with images of 12 x 10 pixels, scrambled.
void fillWithImages(VNDLPV4Write& writer, unsigned int key) {
    fill(writer, true);
    writer.headerSettings()->resolutionX = 12;
    writer.headerSettings()->resolutionY = 10;
    writer.headerSettings()->encryptionKey = key;
    for (unsigned int i = 0; i < 3; ++i) {
        Bytes pixels(120);
        for (std::size_t p = 0; p < pixels.size(); ++p)
            pixels[p] = p % (3 + i) == 0 ? static_cast<unsigned char>(2 * i + 3) : 0;
        LayerDef& layer = *writer.layerDef()[i];
        layer.data = LayerDef::encodeImage(pixels.data(), pixels.size(), key, i);
        layer.dataSize = 44 + static_cast<unsigned int>(layer.data.size());
    }
}

template <class Fill>
Bytes writtenBy(Fill&& fillWriter) {
    const TemporaryFile file;
    VNDLPV4Write writer;
    fillWriter(writer);
    printedBy([&] {
        EXPECT_EQ(writer.openDlpFile(file.path(), false), 0);
        EXPECT_EQ(writer.encode(""), 0);
        EXPECT_EQ(writer.close(), 0);
    });
    return file.bytes();
}

Bytes writtenFile() {
    return writtenBy([](VNDLPV4Write& writer) { fill(writer); });
}

/// A file with these bytes, read by a reader of its own.
struct ReadFile {
    explicit ReadFile(const Bytes& bytes) {
        m_file.setBytes(bytes);
        printed = printedBy([&] {
            EXPECT_EQ(reader.openDlpFile(m_file.path(), false), 0);
            EXPECT_EQ(reader.parseFile(), 0);
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

TEST(V4Write, LaysTheFileOut) {
    const Bytes file = writtenFile();
    ASSERT_EQ(file.size(), 910u);
    const std::size_t h = 114;  // 102 + 9 + 3
    EXPECT_EQ(slice(file, 0, 20),
              (Bytes{0, 0, 0, 9, 'V', 'N', 'K', 'T', '3', 'D', 'V', '2', 0, 0, 4, 0, 0, 0, 3, 'M'}));
    const std::size_t words = 13 + 2 + 7 + 4 + 20;
    EXPECT_EQ(u32At(file, words + 4), h);           // previewLargeOffset
    EXPECT_EQ(u32At(file, words + 8), 462u);        // layerDefOffset
    EXPECT_EQ(u32At(file, words + 12), 3u);         // layerCount
    EXPECT_EQ(u32At(file, words + 16), 246u);       // previewSmallOffset
    EXPECT_EQ(u32At(file, words + 28), 318u);       // printParametersOffset
    EXPECT_EQ(u32At(file, words + 48), 386u);       // slicerInfoOffset
    EXPECT_EQ(u32At(file, h + 8), h + 32);          // first preview's imageOffset
    EXPECT_EQ(file[h + 32], 100);                   // its image
    EXPECT_EQ(u32At(file, 246 + 8), h + 64 + 100);  // second preview's
    EXPECT_EQ(u32At(file, 386 + 32), 0x01A4FA00u);
    const unsigned int places[] = {582, 636, 700};
    for (unsigned int i = 0; i < 3; ++i) {
        EXPECT_EQ(u32At(file, 462 + 40 * i + 12), places[i]);
        EXPECT_EQ(u32At(file, 462 + 40 * i + 16), 54 + 10 * i);
        const Bytes record = Bytes().fill(40, 0).f32Le(static_cast<float>(i));
        EXPECT_EQ(slice(file, places[i], 44), record);
        EXPECT_EQ(slice(file, places[i] + 44, 10 * (i + 1)), Bytes(10 * (i + 1), static_cast<unsigned char>('a' + i)));
        EXPECT_EQ(slice(file, 774 + 44 * i, 44), record) << "once more behind the layers";
    }
}

TEST(V4Write, AppendsATrailerThatIsVerified) {
    const TemporaryFile file;
    Bytes bytes = writtenFile();
    file.setBytes(bytes);
    std::uint32_t crc = 0;  // of all but the trailer, bit by bit
    for (std::size_t i = 0; i + 4 < bytes.size(); ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    }
    EXPECT_EQ(slice(bytes, 906, 4), (Bytes{static_cast<unsigned char>(crc >> 24), static_cast<unsigned char>(crc >> 16),
                                           static_cast<unsigned char>(crc >> 8), static_cast<unsigned char>(crc)}));
    VNDLPV4Read reader;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(reader.openDlpFile(file.path(), true), 0); }),
              "checkFileSum, file:" + file.path() + ", versionName:VNKT3DV2, subVersionNum:4, checktype:2\n");
    for (const std::size_t damaged : {std::size_t{16}, std::size_t{300}, bytes.size() - 1}) {
        Bytes bad = bytes;
        bad[damaged] ^= 1;
        file.setBytes(bad);
        const std::string printed = printedBy([&] { EXPECT_EQ(reader.openDlpFile(file.path(), true), -1); });
        EXPECT_NE(printed.find("error:open dlp file:" + file.path() + ", checksum failed, ret:-5\n"),
                  std::string::npos);
    }
}

TEST(V4Write, MasksMakeTheTableLonger) {
    const Bytes file = writtenBy([](VNDLPV4Write& writer) { fill(writer, true); });
    EXPECT_EQ(file.size(), 910u + 3 * 80);
    EXPECT_EQ(u32At(file, 462 + 12), 582u + 240);
    EXPECT_EQ(slice(file, 462 + 120 + 40, 80), Bytes().raw(Bytes(68, 1)).fill(12, 0));
}

TEST(V4Write, WithoutPreviewsTheirOffsetsCountNoImages) {
    const TemporaryFile file;
    VNDLPV4Write bare;
    bare.headerSettings()->headerText1 = "VNKT3DV2";
    printedBy([&] {
        bare.openDlpFile(file.path(), false);
        EXPECT_EQ(bare.encode(""), 0);
        bare.close();
    });
    const HeaderSettings& header = *bare.headerSettings();
    EXPECT_EQ(header.previewLargeOffset, 112u);
    EXPECT_EQ(header.previewSmallOffset, 112u + 32);
    EXPECT_EQ(header.printParametersOffset, 112u + 64);
    EXPECT_EQ(header.layerDefOffset, 112u + 64 + 68 + 76);
    EXPECT_EQ(file.bytes().size(), 112u + 68 + 76 + 4);
}

TEST(V4Write, OtherFirstStringsGiveNoTrailerAndTheDocumentedMessage) {
    const TemporaryFile file;
    VNDLPV4Write writer;
    fill(writer);
    writer.headerSettings()->headerText1 = "OTHER";
    const std::string printed = printedBy([&] {
        EXPECT_EQ(writer.openDlpFile(file.path(), false), 0);
        EXPECT_EQ(writer.encode("any"), 0);
        EXPECT_EQ(writer.close(), 0);
    });
    EXPECT_EQ(printed, "getFileVersionInfo failed, ret:-4\nerror: write dlp file checksum, ret:-1\n");
    EXPECT_EQ(file.bytes().size(), 910u - 3 - 4);
}

TEST(V4Write, StepsStandAlone) {
    const TemporaryFile file;
    VNDLPV4Write writer;
    fill(writer);
    writer.headerSettings()->version = 2;  // no record in front of a layer's code
    writer.headerSettings()->layerDefOffset = 1000;
    ASSERT_EQ(writer.changeDlpFile(file.path(), false), 0);
    EXPECT_EQ(writer.writeLayerDefs(), 0);
    EXPECT_EQ(writer.writeLayerDefExs(), 0);
    EXPECT_EQ(writer.close(), 0);
    EXPECT_EQ(file.bytes().size(), 120u + 60 + 132);
    EXPECT_EQ(u32At(file.bytes(), 12), 1120u);
    EXPECT_EQ(writer.close(), 0) << "nothing is open";
}

TEST(V4WriteFailures, EveryStepWithoutAFileFailsWithALine) {
    VNDLPV4Write writer;
    fill(writer);
    using Step = int (VNDLPV4Write::*)();
    for (const Step step :
         {&VNDLPV4Write::writeHeader, &VNDLPV4Write::writePreviews, &VNDLPV4Write::writePrintParameters,
          &VNDLPV4Write::writeSlicerInfo, &VNDLPV4Write::writeLayerDefs, &VNDLPV4Write::writeLayerDefExs}) {
        EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ((writer.*step)(), -1); })));
    }
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(writer.writeTail(), -1); }), "Error: no dlp file open\n");
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(writer.encode(""), -1); })));
}

TEST(V4WriteFailures, RefusesRecordsThatMakeNoFile) {
    const TemporaryFile file;
    const auto refused = [&](const char* naming, auto&& spoil) {
        VNDLPV4Write writer;
        fill(writer);
        spoil(writer);
        ASSERT_EQ(writer.openDlpFile(file.path(), false), 0);
        EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(writer.encode(""), -1); }), naming));
        EXPECT_EQ(writer.close(), 0);
        EXPECT_TRUE(file.bytes().empty());
    };
    refused("layer 1 is missing", [](VNDLPV4Write& w) { w.layerDef()[1] = nullptr; });
    refused("layer 2 has no extended", [](VNDLPV4Write& w) { w.layerDefEx().pop_back(); });
    refused("preview 0 is missing", [](VNDLPV4Write& w) { w.preViews()->front() = nullptr; });
    refused("table entry of layer 1", [](VNDLPV4Write& w) { w.layerDef()[1]->extensionFlag = 1; });
    refused("layer 0 declares 43", [](VNDLPV4Write& w) { w.layerDef()[0]->dataSize = 43; });
    refused("offsets reach", [](VNDLPV4Write& w) { w.layerDef()[0]->dataSize = 0xFFFFFFF0; });
}

TEST(V4WriteFailures, PadsCodesThatAreShorterThanDeclared) {
    const TemporaryFile file;
    VNDLPV4Write writer;
    fill(writer);
    writer.layerDef()[1]->data.resize(5);
    const std::string printed = printedBy([&] {
        writer.openDlpFile(file.path(), false);
        EXPECT_EQ(writer.encode(""), -1);
        EXPECT_EQ(writer.close(), 0);
    });
    EXPECT_NE(printed.find("error: " + file.path() + ": the image of layer 1 should have 20 bytes, 5 are there\n"),
              std::string::npos);
    EXPECT_EQ(slice(file.bytes(), 636 + 44, 20), Bytes().raw(Bytes(5, 'b')).fill(15, 0));
}

TEST(V4WriteFailures, TellsOfAFullDiskOnceAndReturnsItTwice) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    for (const std::size_t size : {std::size_t{0}, std::size_t{1} << 20}) {
        VNDLPV4Write writer;
        fill(writer);
        writer.layerDef()[2]->data.resize(writer.layerDef()[2]->dataSize += static_cast<unsigned int>(size));
        ASSERT_EQ(writer.openDlpFile("/dev/full", false), 0);
        int encoded = 0;
        int closed = 0;
        const std::string printed = printedBy([&] {
            encoded = writer.encode("");
            closed = writer.close();
        });
        EXPECT_TRUE(isOneErrorLine(printed, "/dev/full"));
        EXPECT_EQ(encoded, -1);
        EXPECT_EQ(closed, -1);
    }
}

TEST(V4WriteFailures, TellsOfATrailerThatFoundNoRoom) {
    const TemporaryFile file;
    VNDLPV4Write writer;
    fill(writer);
    ASSERT_EQ(writer.openDlpFile(file.path(), false), 0);
    const std::string printed = printedBy([&] {
        const FileSizeLimit limit(908);  // the records have 906 bytes
        EXPECT_EQ(writer.encode(""), -1);
    });
    EXPECT_NE(printed.find("\nerror: write dlp file checksum, ret:-4\n"), std::string::npos) << printed;
    EXPECT_EQ(countOf(printed, "error"), 1);
    EXPECT_EQ(writer.close(), 0);
}

TEST(V4Open, ReportsWhatCannotBeOpenedOrVerifiedAndLeavesItAlone) {
    const TemporaryFile file;
    const std::string missing = testing::TempDir() + "no/such/folder/file.vndlpv4";
    Bytes bad = writtenFile();
    bad.back() ^= 0xFF;
    file.setBytes(bad);
    const auto check = [&](auto& object) {
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(object.openDlpFile(missing, false), -3); }),
                  "error: " + missing + " can't open\n");
        const std::string printed = printedBy([&] { EXPECT_EQ(object.openDlpFile(file.path(), true), -1); });
        EXPECT_NE(printed.find("error:open dlp file:" + file.path() + ", checksum failed, ret:-5\n"),
                  std::string::npos);
    };
    VNDLPV4Read reader;
    check(reader);
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(reader.parseFile(), -1); }), "error: file is not open\n");
    VNDLPV4Write writer;
    check(writer);
    EXPECT_EQ(file.bytes(), bad);
    EXPECT_EQ(writer.openDlpFile(file.path(), false), 0);
    writer.close();
    EXPECT_TRUE(file.bytes().empty());
}

TEST(V4Read, ReturnsEveryRecordOfAWrittenFile) {
    ReadFile file(writtenBy([](VNDLPV4Write& writer) { fill(writer, true); }));
    EXPECT_EQ(file.printed, "");
    VNDLPV4Read& reader = file.reader;
    EXPECT_TRUE(reader.isWhole());
    EXPECT_EQ(reader.headerSettings()->headerText2, "M1");
    EXPECT_EQ(reader.headerSettings()->endPosition, 114u);
    ASSERT_EQ(reader.preViews().size(), 2u);
    EXPECT_EQ(reader.preViews()[1]->imageData, Bytes(40, 40));
    EXPECT_EQ(reader.printParameters()->endPosition, 386u);
    EXPECT_EQ(reader.slicerInfo()->word48, 0x77u);
    ASSERT_EQ(reader.layerDef().size(), 3u);
    ASSERT_EQ(reader.layerDefEx().size(), 3u);
    EXPECT_EQ(reader.layerDef()[2]->positionZ, 3.0F);
    EXPECT_EQ(reader.layerDef()[2]->beadMask(), Bytes(68, 2));
    EXPECT_EQ(reader.layerDef()[2]->tableSize, 44u);
    EXPECT_EQ(reader.layerDefEx()[2]->lightPwm, 2.0F);
    EXPECT_EQ(reader.layerDefEx()[2]->beginPosition, reader.layerDef()[2]->dataOffset);
    EXPECT_EQ(reader.closeDlpFile(), 0);
    EXPECT_EQ(reader.layerDef().size(), 3u) << "the records stay";
    EXPECT_EQ(reader.closeDlpFile(), 0);
}

TEST(V4Read, DecodesImagesInEveryForm) {
    for (const unsigned int key : {0u, 300u}) {
        ReadFile file(writtenBy([key](VNDLPV4Write& writer) { fillWithImages(writer, key); }));
        VNDLPV4Read& reader = file.reader;
        for (int i = 0; i < 3; ++i) {
            LayerDef* layer = reader.layerDef()[static_cast<std::size_t>(i)];
            Bytes expected(120);
            for (std::size_t p = 0; p < expected.size(); ++p)
                expected[p] = p % (3 + static_cast<std::size_t>(i)) == 0 ? static_cast<unsigned char>(2 * i + 3) : 0;
            EXPECT_EQ(file.image(i), expected);
            EXPECT_EQ(reader.readLayerImage_16k(reader.headerSettings(), layer, i), expected);
            Bytes buffer(120, 9);
            EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), layer, i, buffer.data(), 120), 0);
            EXPECT_EQ(buffer, expected);
            Bytes larger(125, 9);
            EXPECT_EQ(reader.readLayerImage_16k(reader.headerSettings(), layer, i, larger.data(), 125), 0);
            EXPECT_EQ(larger, Bytes().raw(expected).fill(5, 0));
            Bytes rows;
            const RowSink sink = [&](unsigned int row, const unsigned char* pixels) {
                EXPECT_EQ(row * 12, rows.size());
                rows.insert(rows.end(), pixels, pixels + 12);
            };
            EXPECT_EQ(reader.readLayerImage_16k(reader.headerSettings(), layer, i, sink), 0);
            EXPECT_EQ(rows, expected);
            EXPECT_EQ(reader.readLayerImage(layer, i), 0);
            EXPECT_EQ(layer->data, expected);
        }
    }
    char out[3] = {};
    VNDLPV4Read::vectorToChar({1, 2, 3}, out);
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(VNDLPV4Write::LayerRleCrypt(5, 6, VNDLPV4Write::LayerRleCrypt(5, 6, {1, 2, 3})), (Bytes{1, 2, 3}));
}

TEST(V4Read, CodesShorterOrLongerThanTheImageStayInsideIt) {
    const auto imageOf = [](const Bytes& code) {
        ReadFile file(writtenBy([&](VNDLPV4Write& writer) {
            fill(writer);
            writer.headerSettings()->resolutionX = 3;
            writer.headerSettings()->resolutionY = 2;
            writer.layerDef()[0]->data = code;
            writer.layerDef()[0]->dataSize = 44 + static_cast<unsigned int>(code.size());
        }));
        Bytes rows;
        file.reader.readLayerImage_16k(
            file.reader.headerSettings(), file.reader.layerDef()[0], 0,
            [&](unsigned int, const unsigned char* p) { rows.insert(rows.end(), p, p + 3); });
        EXPECT_EQ(file.image(0), rows);
        return rows;
    };
    EXPECT_EQ(imageOf({}), Bytes(6));
    EXPECT_EQ(imageOf({0xFF, 4}), (Bytes{255, 255, 255, 255, 0, 0}));
    EXPECT_EQ(imageOf({0xFF, 4, 0xFF, 0xEF, 0xFF}), (Bytes{255, 255, 255, 255, 0, 0})) << "a run cut off";
    EXPECT_EQ(imageOf({0xFF, 0x80, 0}), Bytes(6)) << "a run of none";
    EXPECT_EQ(imageOf({0xFF, 0xEF, 0xFF, 0xFF, 0xFF, 0x01}), Bytes(6, 255));
}

TEST(V4HostileFiles, CutAtEveryLengthAndDamagedAtEveryByte) {
    const Bytes whole = writtenBy([](VNDLPV4Write& writer) { fillWithImages(writer, 0); });
    const auto readAll = [](const Bytes& bytes, bool isCut) {
        const std::size_t before = bytesAllocated;
        ReadFile file(bytes);
        EXPECT_EQ(file.printed.empty(), file.reader.isWhole());
        if (!file.printed.empty()) {
            EXPECT_TRUE(isOneErrorLine(file.printed));
        }
        if (isCut) {
            EXPECT_FALSE(file.reader.isWhole());
        }
        EXPECT_EQ(file.reader.preViews().size(), 2u);
        EXPECT_EQ(file.reader.layerDefEx().size(), file.reader.layerDef().size());
        const HeaderSettings* header = file.reader.headerSettings();
        for (std::size_t i = 0; i < file.reader.layerDef().size(); ++i) {
            if (header->resolutionX > 100 || header->resolutionY > 100) break;
            printedBy([&] { file.image(static_cast<int>(i)); });
        }
        EXPECT_LT(bytesAllocated - before, 200000u + 16 * bytes.size());
    };
    // behind the layers only their records once more and the trailer are lost
    for (std::size_t size = 0; size < whole.size() - 4 - 3 * 44; size += size < 130 ? 1 : 3)
        readAll(slice(whole, 0, size), true);
    for (std::size_t i = 0; i < whole.size(); ++i) {
        Bytes bad = whole;
        bad[i] ^= static_cast<unsigned char>(i % 2 == 0 ? 0xFF : 0x80);
        readAll(bad, false);
    }
}

TEST(V4HostileFiles, HugeCountsGiveWhatIsThereAndOneLine) {
    Bytes bytes = writtenFile();
    const std::size_t layerCount = 13 + 2 + 7 + 4 + 20 + 12;
    for (std::size_t i = 0; i < 4; ++i) bytes[layerCount + i] = 0xFF;
    ReadFile file(bytes);
    EXPECT_TRUE(isOneErrorLine(file.printed, "the layer table should have 4294967295 entries"));
    EXPECT_LE(file.reader.layerDef().size(), (910u - 462) / 40);
    EXPECT_FALSE(file.reader.isWhole());
}

TEST(V4HostileFiles, ImagesThatAreNotThereGiveALine) {
    ReadFile file(writtenBy([](VNDLPV4Write& writer) { fillWithImages(writer, 0); }));
    LayerDef layer = *file.reader.layerDef()[0];
    layer.dataOffset = 0xFFFFFFF0;
    const HeaderSettings* header = file.reader.headerSettings();
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(file.reader.readLayerImage(header, &layer, 0), Bytes(120)); }),
                               "the image of layer 0"));
    layer.dataSize = 3;  // not even the extended record
    EXPECT_EQ(file.reader.readLayerImage(header, &layer, 0), Bytes(120));
    HeaderSettings huge = *header;
    huge.resolutionX = huge.resolutionY = 65535;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_TRUE(file.reader.readLayerImage(&huge, &layer, 0).empty()); })));
    EXPECT_TRUE(
        isOneErrorLine(printedBy([&] { EXPECT_TRUE(file.reader.readLayerImage(nullptr, &layer, 0).empty()); })));
    EXPECT_TRUE(
        isOneErrorLine(printedBy([&] { EXPECT_TRUE(file.reader.readLayerImage(header, nullptr, 0).empty()); })));
    file.reader.closeDlpFile();
    layer.dataSize = 50;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(file.reader.readLayerImage(&layer, 0), -1); })));
}

}  // namespace
}  // namespace vndlp::test
