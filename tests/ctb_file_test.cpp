#include "support/ctb.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>

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

constexpr unsigned int kKey = 300;

Bytes layerPixels(int layer) {
    Bytes pixels(12 * 10);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = i % 5 < 2 ? static_cast<unsigned char>(3 + 2 * layer) : 0;
    return pixels;
}

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

/// The same with real images, 12 x 10 pixels, scrambled.
void fillWithImages(CTB::CTBWrite& writer) {
    fill(writer, 3);
    writer.headerSettings()->resolutionX = 12;
    writer.headerSettings()->resolutionY = 10;
    writer.headerSettings()->encryptionKey = kKey;
    for (unsigned int i = 0; i < 3; ++i) {
        Bytes pixels = layerPixels(static_cast<int>(i));
        writer.layerDef()[i]->data = CTB::LayerDef::encodeCtbImage(pixels.data(), 120, kKey, i);
        writer.layerDef()[i]->dataSize = static_cast<unsigned int>(writer.layerDef()[i]->data.size());
    }
}

class CtbWriteTest : public CtbTest {
protected:
    /// What a writer filled as above makes.
    Bytes writtenFile(unsigned int version = 3) {
        CTB::CTBWrite writer;
        fill(writer, version);
        EXPECT_EQ(writer.openDlpFile(path("written"), false), 0);
        EXPECT_EQ(writer.encode(), 0);
        EXPECT_EQ(writer.close(), 0);
        return readFile(path("written"));
    }

    /// A reader that has read the header of a file of these bytes.
    CTB::CTBRead& opened(const Bytes& bytes) {
        m_reader.openDlpFile(writeFile(path("a.ctb"), bytes), false);
        m_reader.parseFile(true);
        return m_reader;
    }

    /// `spoil(writer)` makes encoding fail: one error line, a negative result, nothing written.
    template <class Spoil>
    void expectRefused(const std::string& naming, Spoil&& spoil) {
        CTB::CTBWrite writer;
        fill(writer, 3);
        writer.openDlpFile(path("refused"), false);
        spoil(writer);
        int result = 0;
        EXPECT_TRUE(isOneErrorLine(printedBy([&] { result = writer.encode(); }), naming));
        EXPECT_LT(result, 0);
        EXPECT_EQ(writer.close(), 0);
        EXPECT_EQ(readFile(path("refused")), Bytes{});
    }

private:
    CTB::CTBRead m_reader;
};
using CtbReadTest = CtbWriteTest;

TEST_F(CtbWriteTest, LaysTheFileOutWithExtendedRecords) {
    const Bytes file = writtenFile(3);
    ASSERT_EQ(file.size(), 875u);
    EXPECT_EQ(u32At(file, 60), 112u);       // previewLargeOffset
    EXPECT_EQ(u32At(file, 64), 455u);       // layerDefOffset
    EXPECT_EQ(u32At(file, 72), 244u);       // previewSmallOffset
    EXPECT_EQ(u32At(file, 76), 330300u);    // printTime
    EXPECT_EQ(u32At(file, 84), 316u);       // printParametersOffset
    EXPECT_EQ(u32At(file, 104), 376u);      // slicerInfoOffset
    EXPECT_EQ(u32At(file, 112 + 8), 144u);  // first preview's imageOffset
    EXPECT_EQ(file[144], 100);              // its image
    EXPECT_EQ(u32At(file, 244 + 8), 276u);  // second preview's imageOffset
    EXPECT_EQ(u32At(file, 316 + 20), 0x41121893u);
    EXPECT_EQ(u32At(file, 376 + 28), 452u);  // machineNameOffset
    EXPECT_EQ(slice(file, 452, 3), (Bytes{'M', '0', '1'}));
    const unsigned int images[] = {647, 741, 845};
    for (unsigned int i = 0; i < 3; ++i) {
        EXPECT_EQ(u32At(file, 455 + 36 * i + 12), images[i]);
        EXPECT_EQ(slice(file, images[i], 10 * (i + 1)), Bytes(10 * (i + 1), static_cast<unsigned char>('a' + i)));
        EXPECT_EQ(slice(file, images[i] - 84, 36), slice(file, 455 + 36 * i, 36)) << "the copy of the table entry";
        EXPECT_EQ(u32At(file, images[i] - 84 + 36), 84 + 10 * (i + 1));
    }
}

TEST_F(CtbWriteTest, LaysTheFileOutWithoutExtendedRecordsBelowVersionThree) {
    const Bytes file = writtenFile(2);
    EXPECT_EQ(file.size(), 623u);
    EXPECT_EQ(u32At(file, 455 + 12), 563u);
    EXPECT_EQ(u32At(file, 491 + 12), 573u);
    EXPECT_EQ(u32At(file, 527 + 12), 593u);
    EXPECT_EQ(slice(file, 593, 30), Bytes(30, 'c'));
}

TEST_F(CtbWriteTest, StoresOffsetsAndForcedValuesBackIntoTheRecords) {
    const std::string file = path("a.ctb");
    CTB::CTBWrite writer;
    fill(writer, 3);
    writer.openDlpFile(file, false);
    ASSERT_EQ(writer.encode(), 0);
    EXPECT_EQ(writer.headerSettings()->layerDefOffset, 455u);
    EXPECT_EQ(writer.headerSettings()->bottomLightPwm, 255);
    EXPECT_EQ(writer.slicerInfo()->machineNameOffset, 452u);
    EXPECT_EQ(writer.layerDefEx()[2]->layerDef.dataOffset, 845u);
}

TEST_F(CtbWriteTest, WritesExtendedRecordsBackToBackOnRequest) {
    const std::string file = path("a.ctb");
    CTB::CTBWrite writer;
    fill(writer, 3);
    writer.openDlpFile(file, false);
    EXPECT_EQ(writer.writeLayerDefExs(), 0);
    writer.close();
    const Bytes bytes = readFile(file);
    ASSERT_EQ(bytes.size(), 3u * 84);
    EXPECT_EQ(u32At(bytes, 84 + 36), 104u);
}

TEST_F(CtbWriteTest, SecondFileOfTheSameWriterIsTheSame) {
    const std::string file = path("a.ctb");
    CTB::CTBWrite writer;
    fill(writer, 3);
    for (int round = 0; round < 2; ++round) {
        writer.openDlpFile(file, false);
        EXPECT_EQ(writer.encode(), 0);
        writer.close();
        EXPECT_EQ(readFile(file), writtenFile(3));
    }
}

template <class Record>
void drop(Record*& record) {
    delete record;
    record = nullptr;
}

TEST_F(CtbWriteTest, RefusesIncompleteRecords) {
    expectRefused("previews", [](CTB::CTBWrite& w) {
        drop(w.preViews()->back());
        w.preViews()->pop_back();
    });
    expectRefused("preview 1", [](CTB::CTBWrite& w) { drop((*w.preViews())[1]); });
    expectRefused("layer 2", [](CTB::CTBWrite& w) { drop(w.layerDef()[2]); });
    expectRefused("layer 1", [](CTB::CTBWrite& w) { drop(w.layerDefEx()[1]); });
    expectRefused("layer 2", [](CTB::CTBWrite& w) {
        drop(w.layerDefEx()[2]);
        w.layerDefEx().pop_back();
    });
}

TEST_F(CtbWriteTest, RefusesFilesItsOffsetsCannotReach) {
    expectRefused("4294967295", [](CTB::CTBWrite& w) { (*w.preViews())[0]->imageSize = 0xFFFFFFFF; });
    expectRefused("4294967295", [](CTB::CTBWrite& w) { w.slicerInfo()->machineNameSize = 0xFFFFFFFF; });
    expectRefused("4294967295", [](CTB::CTBWrite& w) { w.headerSettings()->layerCount = 120000000; });
    expectRefused("4294967295", [](CTB::CTBWrite& w) {
        for (CTB::LayerDef* layer : w.layerDef()) layer->dataSize = 0x60000000;
    });
}

TEST_F(CtbWriteTest, PadsRecordsThatHoldLessThanTheyDeclare) {
    const std::string file = path("a.ctb");
    CTB::CTBWrite writer;
    fill(writer, 3);
    writer.layerDef()[0]->data.resize(4);
    writer.openDlpFile(file, false);
    int result = 0;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { result = writer.encode(); }), "layer 0"));
    EXPECT_LT(result, 0);
    writer.close();
    Bytes expected = writtenFile(3);
    std::fill(expected.begin() + 651, expected.begin() + 657, 0);
    EXPECT_EQ(readFile(file), expected);
}

TEST_F(CtbWriteTest, WarnsOfAHeaderThatCountsOtherLayersAndWritesAsAsked) {
    const std::string file = path("a.ctb");
    CTB::CTBWrite writer;
    fill(writer, 2);
    writer.headerSettings()->layerCount = 4;
    writer.openDlpFile(file, false);
    int result = -1;
    const std::string printed = printedBy([&] { result = writer.encode(); });
    writer.close();
    EXPECT_EQ(printed.rfind("warning: ", 0), 0u) << printed;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(u32At(readFile(file), 455 + 12), 455u + 4 * 36) << "the offsets count as the header does";
    EXPECT_EQ(readFile(file).size(), 623u) << "the table holds what is there";
}

TEST_F(CtbWriteTest, WarnsOfAThirdPreviewThatMovesWhatTheOffsetsPointAt) {
    CTB::CTBWrite writer;
    fill(writer, 3);
    writer.preViews()->push_back(new CTB::PreView);
    writer.openDlpFile(path("a.ctb"), false);
    int result = -1;
    const std::string printed = printedBy([&] { result = writer.encode(); });
    writer.close();
    EXPECT_EQ(countOf(printed, "warning: "), 1) << printed;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(u32At(readFile(path("a.ctb")), 84), 316u);
    EXPECT_EQ(readFile(path("a.ctb")).size(), 875u + 32);
}

TEST_F(CtbWriteTest, EveryStepWithoutAFileFailsWithALine) {
    CTB::CTBWrite writer;
    fill(writer, 3);
    for (int (CTB::CTBWrite::*step)() :
         {&CTB::CTBWrite::encode, &CTB::CTBWrite::writeHeader, &CTB::CTBWrite::writePreviews,
          &CTB::CTBWrite::writePrintParameters, &CTB::CTBWrite::writeSlicerInfo, &CTB::CTBWrite::writeLayerDefs,
          &CTB::CTBWrite::writeLayerDefExs}) {
        int result = 0;
        EXPECT_TRUE(isOneErrorLine(printedBy([&] { result = (writer.*step)(); })));
        EXPECT_EQ(result, -1);
    }
    EXPECT_EQ(writer.close(), 0);
}

TEST_F(CtbWriteTest, TellsOfAFullDiskOnceAndReturnsItTwice) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1} << 20}) {
        CTB::CTBWrite writer;
        fill(writer, 3);
        writer.layerDef()[2]->data.resize(writer.layerDef()[2]->dataSize += static_cast<unsigned int>(size));
        ASSERT_EQ(writer.openDlpFile(kFullDevice, false), 0);
        int encoded = 0;
        int closed = 0;
        const std::string printed = printedBy([&] {
            encoded = writer.encode();
            closed = writer.close();
        });
        EXPECT_TRUE(isOneErrorLine(printed, kFullDevice));
        EXPECT_EQ(encoded, -1);
        EXPECT_EQ(closed, -1);
    }
}

TEST_F(CtbWriteTest, CloseTellsOfAFullDiskEvenWhenAFlushOfAllStreamsMetIt) {
    for (const bool flushed : {false, true}) {
        CTB::CTBWrite writer;
        ASSERT_EQ(writer.openDlpFile(kFullDevice, false), 0);
        EXPECT_EQ(writer.writeHeader(), 0);
        if (flushed) std::fflush(nullptr);
        int closed = 0;
        EXPECT_TRUE(isOneErrorLine(printedBy([&] { closed = writer.close(); }), kFullDevice));
        EXPECT_EQ(closed, -1);
    }
}

TEST_F(CtbReadTest, ReportsWhatCannotBeOpenedOrVerified) {
    const std::string file = path("a.ctb");
    const std::string missing = path("missing/a.ctb");
    writeFile(file, writtenFile());
    const auto check = [&](auto& object) {
        int result = 0;
        EXPECT_EQ(printedBy([&] { result = object.openDlpFile(missing, false); }),
                  "error: " + missing + " can't open\n");
        EXPECT_EQ(result, -3);
        EXPECT_EQ(printedBy([&] { result = object.openDlpFile(file, true); }),
                  "getFileVersionInfo failed, ret:-4\nerror:open dlp file:" + file + ", checksum failed, ret:-1\n");
        EXPECT_EQ(result, -1);
    };
    CTB::CTBRead reader;
    check(reader);
    CTB::CTBWrite writer;
    check(writer);
    EXPECT_EQ(readFile(file), writtenFile()) << "the writer leaves a refused file alone";
}

TEST_F(CtbReadTest, ReturnsEveryRecordOfAWrittenFile) {
    const std::string file = path("a.ctb");
    writeFile(file, writtenFile());
    CTB::CTBRead reader;
    EXPECT_EQ(reader.parseFile(true), 0);
    EXPECT_EQ(reader.headerSettings(), nullptr);
    ASSERT_EQ(reader.openDlpFile(file, false), 0);
    EXPECT_EQ(reader.parseFile(true), 1);
    EXPECT_EQ(reader.headerSettings()->magic, CTB::kMagic);
    EXPECT_EQ(reader.headerSettings()->layerDefOffset, 455u);

    const Owned<CTB::PreView> preViews(reader.preViews());
    ASSERT_EQ(preViews.size(), 2u);
    EXPECT_EQ(preViews[0]->imageData, Bytes(100, 100));
    EXPECT_EQ(preViews[1]->imageData, Bytes(40, 40));
    EXPECT_EQ(reader.printParameters().volume, 9.131F);
    const CTB::SlicerInfo info = reader.slicerInfo();
    EXPECT_EQ(info.machineNameSize, 3u);
    // the name's bytes and the first table entry's first are taken for a length beyond the file
    EXPECT_EQ(info.machineName.size(), 875u - 456);

    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    ASSERT_EQ(layers.size(), 3u);
    EXPECT_EQ(layers[2]->positionZ, 3.0F);
    EXPECT_EQ(layers[2]->dataOffset, 845u);
    EXPECT_TRUE(layers[2]->data.empty());
    EXPECT_EQ(reader.closeDlpFile(), 0);
    EXPECT_EQ(reader.closeDlpFile(), 0);
}

TEST_F(CtbReadTest, ReadsTheTablesEntriesBehindTheirImagesWhenAskedForBoth) {
    for (const unsigned int version : {3u, 2u}) {
        CTB::CTBRead& reader = opened(writtenFile(version));
        std::vector<CTB::LayerDef*> list;
        printedBy([&] { list = reader.layerDef(true); });
        const Owned<CTB::LayerDef> layers(list);
        EXPECT_EQ(layers[0]->data, Bytes(10, 'a'));
        ASSERT_GT(layers.size(), 1u);
        // what follows the first image: the second's extended record, which begins with its entry, or the second image
        if (version == 3) {
            EXPECT_EQ(layers[1]->data, Bytes(20, 'b'));
        } else {
            EXPECT_EQ(layers[1]->dataSize, 0x62626262u);
        }
    }
}

TEST_F(CtbReadTest, TakesTheExtendedRecordsOfEveryLevelFromTheFirstAndKeepsAList) {
    Bytes bytes = writtenFile();
    bytes[92] = 2;  // antiAliasLevel
    CTB::CTBRead& reader = opened(bytes);
    EXPECT_EQ(Owned<CTB::LayerDef>(reader.layerDef(false)).size(), 6u);
    const std::vector<CTB::LayerDefEx*> first = reader.layerDefEx();
    ASSERT_EQ(first.size(), 6u);
    for (unsigned int i = 0; i < 6; ++i) {
        EXPECT_EQ(first[i]->layerDef.dataOffset, (std::vector<unsigned int>{647, 741, 845})[i % 3]);
        EXPECT_EQ(first[i]->lightPwm, static_cast<float>(i % 3));
    }
    const Owned<CTB::LayerDefEx> second(reader.layerDefEx());
    ASSERT_EQ(second.size(), 12u);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), second.list().begin()));
}

TEST_F(CtbReadTest, DecodesTheImagesThatWereWritten) {
    const std::string file = path("a.ctb");
    CTB::CTBWrite writer;
    fillWithImages(writer);
    writer.openDlpFile(file, false);
    ASSERT_EQ(writer.encode(), 0);
    ASSERT_EQ(writer.close(), 0);

    CTB::CTBRead reader;
    reader.openDlpFile(file, false);
    reader.parseFile(true);
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    ASSERT_EQ(layers.size(), 3u);
    for (int i : {2, 0, 1}) {
        EXPECT_EQ(reader.readLayerImage(reader.headerSettings(), layers[static_cast<std::size_t>(i)], i, nullptr),
                  layerPixels(i));
    }
}

TEST_F(CtbReadTest, ReadsAnExtendedRecordAndTheRawImageBehindItFromAnOffset) {
    CTB::CTBRead& reader = opened(writtenFile());
    CTB::LayerDef layer;
    layer.dataOffset = 657;  // of the second extended record
    layer.dataSize = 20;
    layer.data.resize(20);
    CTB::LayerDefEx extended;
    reader.readLayerImage(&layer, &extended);
    EXPECT_EQ(extended.totalSize, 104u);
    EXPECT_EQ(layer.data, Bytes(20, 'b'));
}

/// Uses a file in every way a caller can.
void readEverything(const std::string& path) {
    CTB::CTBRead reader;
    ASSERT_EQ(reader.openDlpFile(path, false), 0);
    reader.parseFile(true);
    const Owned<CTB::PreView> preViews(reader.preViews());
    for (CTB::PreView* preView : preViews.list()) {
        if (preView->resolutionX > 100 || preView->resolutionY > 100) continue;
        preView->decodeImg(preView->imageData.data(), static_cast<unsigned int>(preView->imageData.size()));
    }
    reader.printParameters();
    reader.slicerInfo();
    const CTB::HeaderSettings* header = reader.headerSettings();
    const bool small = header->resolutionX <= 100 && header->resolutionY <= 100;
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    for (std::size_t i = 0; small && i < std::min<std::size_t>(layers.size(), 4); ++i) {
        reader.readLayerImage(header, layers[i], static_cast<int>(i), nullptr);
    }
    const Owned<CTB::LayerDefEx> extended(reader.layerDefEx());
    if (layers.size() > 0 && extended.size() > 0) reader.readLayerImage(layers[0], extended[0]);
    const Owned<CTB::LayerDef> withImages(reader.layerDef(true));
}

class CtbHostileFilesTest : public CtbWriteTest {
protected:
    /// Reads a file in every way; the memory asked for altogether stays under a multiple of its size.
    void expectHarmless(const Bytes& bytes) {
        std::filesystem::remove(path("hostile"));  // truncating a file costs some file systems a flush
        writeFile(path("hostile"), bytes);
        const std::size_t before = bytesAllocated;
        readEverything(path("hostile"));
        ASSERT_LT(bytesAllocated - before, 100 * bytes.size() + 1000000);
    }

    /// A reader of the written file in which one word was replaced.
    CTB::CTBRead& spoilt(std::size_t offset, std::uint32_t word) {
        Bytes bytes = writtenFile();
        setU32(bytes, offset, word);
        return opened(bytes);
    }
};

TEST_F(CtbHostileFilesTest, CutAtEveryLength) {
    const Bytes whole = writtenFile();
    printedBy([&] {
        for (std::size_t size = 0; size < whole.size(); ++size) expectHarmless(slice(whole, 0, size));
    });
}

TEST_F(CtbHostileFilesTest, DamagedAtEveryByte) {
    const Bytes whole = writtenFile();
    printedBy([&] {
        for (std::size_t i = 0; i < whole.size(); ++i) {
            for (const unsigned char value : Bytes{0, 0xFF, 0x7F}) {
                Bytes damaged = whole;
                damaged[i] = value;
                expectHarmless(damaged);
            }
        }
    });
}

TEST_F(CtbHostileFilesTest, RandomWordsInEveryRecord) {
    const Bytes whole = writtenFile();
    std::mt19937 random(99);
    printedBy([&] {
        for (int round = 0; round < 1000; ++round) {
            Bytes damaged = whole;
            for (int i = 0; i < 6; ++i) {
                setU32(damaged, random() % (whole.size() / 4) * 4,
                       static_cast<std::uint32_t>(random() >> random() % 32));
            }
            expectHarmless(damaged);
        }
    });
}

TEST_F(CtbHostileFilesTest, HugeCountsGiveTheEntriesThatAreThereAndOneLine) {
    for (const std::size_t offset : {std::size_t{68}, std::size_t{92}}) {  // layerCount, antiAliasLevel
        CTB::CTBRead& reader = spoilt(offset, 0xFFFFFFFF);
        std::vector<CTB::LayerDef*> list;
        EXPECT_TRUE(isOneErrorLine(printedBy([&] { list = reader.layerDef(false); }), path("a.ctb")));
        EXPECT_EQ(Owned<CTB::LayerDef>(list).size(), (875u - 455) / 36);
        std::vector<CTB::LayerDefEx*> extended;
        EXPECT_TRUE(isOneErrorLine(printedBy([&] { extended = reader.layerDefEx(); }), "layer table"));
        EXPECT_EQ(Owned<CTB::LayerDefEx>(extended)[0]->totalSize, 94u);
    }
}

TEST_F(CtbHostileFilesTest, OverlappingImagesDoNotMultiply) {
    // the image of the entry ends where the entry begins, so that reading it leads to the same entry again
    Bytes bytes = writtenFile();
    bytes.resize(100000);
    setU32(bytes, 64, 50000);
    setU32(bytes, 68, 1000);
    setU32(bytes, 50000 + 16, 50000);
    CTB::CTBRead& reader = opened(bytes);
    std::vector<CTB::LayerDef*> list;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { list = reader.layerDef(true); }), "layer table"));
    EXPECT_LT(Owned<CTB::LayerDef>(list).size(), 5u);
}

// reading such a table went round in circles, one record more each time
TEST_F(CtbHostileFilesTest, AnEmptyImageInFrontOfItsEntryEndsTheTable) {
    Bytes bytes = writtenFile();
    setU32(bytes, 68, 0xFFFFFFFF);
    setU32(bytes, 455 + 12, 455);
    setU32(bytes, 455 + 16, 0);
    CTB::CTBRead& reader = opened(bytes);
    std::vector<CTB::LayerDef*> list;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { list = reader.layerDef(true); }), "layer table"));
    EXPECT_EQ(Owned<CTB::LayerDef>(list).size(), (875u - 455) / 36);
}

TEST_F(CtbHostileFilesTest, WrongOffsetsGiveUntouchedRecordsAndOneLine) {
    CTB::CTBRead* reader = &spoilt(84, 816);
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(reader->printParameters().volume, 0); }), "print parameters"));
    reader = &spoilt(104, 0xFFFFFFFF);
    EXPECT_TRUE(
        isOneErrorLine(printedBy([&] { EXPECT_EQ(reader->slicerInfo().machineName, ""); }), "slicer information"));
    reader = &spoilt(64, 840);
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_TRUE(reader->layerDef(false).empty()); }), "layer table"));
    reader = &spoilt(491 + 12, 83);
    std::vector<CTB::LayerDefEx*> extended;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { extended = reader->layerDefEx(); }), "layer 1"));
    EXPECT_EQ(Owned<CTB::LayerDefEx>(extended).size(), 1u);
}

TEST_F(CtbHostileFilesTest, PreviewBeyondTheFileIsReturnedCutShort) {
    CTB::CTBRead& reader = spoilt(112 + 12, 0xFFFFFFFF);
    std::vector<CTB::PreView*> list;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { list = reader.preViews(); }), "preview"));
    const Owned<CTB::PreView> preViews(list);
    ASSERT_EQ(preViews.size(), 1u);
    EXPECT_EQ(preViews[0]->imageData.size(), 875u - 144);
}

TEST_F(CtbHostileFilesTest, QueriesBeforeAFileIsReadFailWithALine) {
    CTB::CTBRead reader;
    CTB::LayerDef layer;
    CTB::LayerDefEx extended;
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(reader.readHeader(), -1); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_TRUE(reader.preViews().empty()); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { reader.printParameters(); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { reader.slicerInfo(); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_TRUE(reader.layerDef(false).empty()); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_TRUE(reader.layerDefEx().empty()); })));
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { reader.readLayerImage(&layer, &extended); })));
    EXPECT_TRUE(isOneErrorLine(
        printedBy([&] { EXPECT_TRUE(reader.readLayerImage(reader.headerSettings(), &layer, 0, nullptr).empty()); })));
}

TEST_F(CtbHostileFilesTest, AShortHeaderIsReadAsFarAsItGoes) {
    CTB::CTBRead reader;
    reader.openDlpFile(writeFile(path("a.ctb"), slice(writtenFile(), 0, 70)), false);
    EXPECT_TRUE(isOneErrorLine(printedBy([&] { EXPECT_EQ(reader.parseFile(true), 1); }), "header"));
    EXPECT_EQ(reader.headerSettings()->layerDefOffset, 455u);
    EXPECT_EQ(reader.headerSettings()->slicerInfoOffset, 0u);
}

}  // namespace
}  // namespace vndlp::test
