// The format-neutral front end: what its writers do alike, over every ending; then what only one of them does. The
// bytes of its files are golden ones, failing disks and cut files have suites of their own.

#include "support/front_end.h"
#include "support/allocations.h"
#include "support/every_kind.h"
#include "support/v4.h"

#include <vndlp/vndlp.h>

#include <set>
#include <thread>

namespace vndlp::test {
namespace {

constexpr unsigned kWidth = 30;
constexpr unsigned kHeight = 20;

/// A bar of one grey, which moves with the layer. All formats keep odd greys from 17 on.
Bytes layerPixels(unsigned layer) {
    Bytes pixels(std::size_t{kWidth} * kHeight);
    std::fill_n(pixels.begin() + 31 + 30 * (layer % 18), 25, static_cast<unsigned char>(255 - 2 * (layer % 100)));
    return pixels;
}

SliceImage layerImage(unsigned layer) { return sliceImage(layerPixels(layer), kWidth, kHeight); }

std::vector<SliceImage> previews(std::size_t count = 3) {
    return std::vector<SliceImage>(count, sliceImage(Bytes(18, 200), 3, 2));
}

struct Format {
    const char* ending;
    unsigned headerType, headerVersion, formatFlag;
    int cannotOpen;  ///< code of a file that cannot be opened
};
const Format kFormats[] = {
    {".vndlp", 2, 3, 2, -1}, {".ctb", 2, 3, 0, -3}, {".vndlpv4", 2, 3, 3, -3}, {".vnline", 12, 0, 1, -1}};

bool isOf(const std::string& file, const std::string& ending) {
    return file.size() > ending.size() && file.compare(file.size() - ending.size(), ending.size(), ending) == 0;
}

class FrontEnd : public FileTest {
protected:
    std::unique_ptr<DLPWriter> newWriter(const std::string& name, int layers) const {
        std::unique_ptr<DLPWriter> writer(createDLPWriter(name));
        writer->filePath = path(name);
        writer->layerCount = layers;
        writer->machineType = "M01";
        writer->machineName = "M4";
        writer->resolutionX = kWidth;
        writer->resolutionY = kHeight;
        fillKindParameters(writer->fileStructure);
        return writer;
    }

    /// Opens a file and writes its head.
    static void start(DLPWriter& writer) {
        const Printed printed;
        ASSERT_EQ(openAndWriteHeader(writer, previews()), 0);
    }

    /// The layers of an image file as they are read.
    std::vector<Bytes> layersOf(const std::string& name) const {
        const Printed printed;
        std::vector<Bytes> layers;
        if (isOf(name, ".ctb")) {
            CTB::CTBRead reader;
            EXPECT_EQ((Codes{reader.openDlpFile(path(name), false), reader.parseFile(true)}), (Codes{0, 1}));
            const Owned<CTB::LayerDef> table(reader.layerDef(false));
            for (std::size_t i = 0; i < table.size(); ++i) {
                layers.emplace_back(
                    reader.readLayerImage(reader.headerSettings(), table[i], static_cast<int>(i), nullptr));
            }
        } else if (isOf(name, ".vndlpv4")) {
            VNDLPV4::VNDLPV4Read reader;
            EXPECT_EQ((Codes{reader.openDlpFile(path(name), true), reader.parseFile()}), Codes(2));
            EXPECT_TRUE(reader.isWhole());
            for (std::size_t i = 0; i < reader.layerDef().size(); ++i) {
                layers.emplace_back(
                    reader.readLayerImage(reader.headerSettings(), reader.layerDef()[i], static_cast<int>(i)));
            }
        } else {
            VndlpRead reader;
            EXPECT_EQ((Codes{reader.openDlpFile(path(name), true), reader.readDlpFile(path(name), false, false)}),
                      Codes(2));
            std::vector<std::vector<WhiteData>> runs;
            reader.swapWhiteDatas(runs);
            for (std::vector<WhiteData>& layer : runs) {
                layers.emplace_back(std::vector<unsigned char>(std::size_t{kWidth} * kHeight));
                paintWhiteData(layer, layers.back().data(), kWidth, kHeight);
            }
        }
        return layers;
    }
    void expectLayers(const std::string& name, unsigned count) const {
        const std::vector<Bytes> layers = layersOf(name);
        ASSERT_EQ(layers.size(), count) << name;
        for (unsigned i = 0; i < count; ++i) EXPECT_EQ(layers[i], layerPixels(i)) << name << ", layer " << i;
    }
};

TEST_F(FrontEnd, IsChosenByTheExactEnding) {
    for (const auto& [ending, type, version, flag, code] : kFormats) {
        for (const std::string before : {"", "a", "a.b", "a.vndlp", "a.ctb"}) {
            const std::unique_ptr<DLPWriter> made(createDLPWriter(before + ending));
            ASSERT_NE(made, nullptr) << before << ending;
            EXPECT_EQ((Codes{made->headerType, made->headerVersion, made->formatFlag, made->layerCount}),
                      (Codes{type, version, flag, 0}));
            EXPECT_EQ(made->bedSizeX + made->bedSizeY + made->bedSizeZ, 900.0);
        }
        for (const std::string& name :
             {std::string(ending + 1), ending + std::string("2"), ending + std::string("/")}) {
            EXPECT_EQ(createDLPWriter(name), nullptr) << name;
        }
    }
    for (const char* name : {"", "x", "a.CTB", "x.VNDLP", "x.png"}) EXPECT_EQ(createDLPWriter(name), nullptr) << name;
}

TEST_F(FrontEnd, TakesLayersInOrderByIndexAndFromThreadsFileAfterFile) {
    constexpr int kLayers = 40;
    for (const char* name : {"a.vndlp", "a.ctb", "a.vndlpv4"}) {
        const std::unique_ptr<DLPWriter> writer = newWriter(name, kLayers);
        for (const int batch : {10, 0, 1, 40, 41, -1}) {
            start(*writer);
            std::vector<SliceImage> images;
            for (unsigned i = 0; i < kLayers; ++i) {
                images.push_back(layerImage(i));
                EXPECT_EQ(writer->addLayerImage(i, images[i], 1, batch), 0);
                // the V2 writer shares an image until its batch is written, the others encode it at once
                const bool held =
                    isOf(name, ".vndlp") && (batch < 0 || (batch > 1 && (i + 1) % static_cast<unsigned>(batch) != 0));
                EXPECT_EQ(images[i].pixels.use_count(), held ? 2 : 1) << name << ", image " << i << ", batch " << batch;
            }
            EXPECT_EQ(writer->finish(), 0);
            expectLayers(name, kLayers);
        }
        start(*writer);
        writer->resizeLayers(kLayers + 6);
        writer->resizeLayers(kLayers);
        std::vector<std::thread> threads;
        for (int first = 0; first < 4; ++first) {
            threads.emplace_back([&writer, first] {
                for (int i = kLayers - 1 - first; i >= 0; i -= 4)
                    EXPECT_EQ(writer->setLayerImageAt(i, layerImage(static_cast<unsigned>(i)), 1), 0);
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(writer->finish(), 0);
        expectLayers(name, kLayers);
    }
}

TEST_F(FrontEnd, TakesThreePreviews) {
    for (const Format& format : kFormats) {
        const std::unique_ptr<DLPWriter> writer = newWriter("a" + std::string(format.ending), 0);
        const Printed printed;
        std::vector<SliceImage> images = previews(2);
        EXPECT_EQ(writer->openFile(), 0);
        EXPECT_EQ(writer->writeHeader(images), 2);
        EXPECT_NE(images[0].pixels, nullptr) << format.ending;
        images = previews(4);
        EXPECT_EQ(writer->writeHeader(images), 0);
        EXPECT_EQ(images[2].pixels, nullptr) << "taken";
        EXPECT_NE(images[3].pixels, nullptr);
        writer->cancel();
    }
}

TEST_F(FrontEnd, RefusesLayersThatCannotBeAndFinishTellsTheFirst) {
    SliceImage noPixels = layerImage(0);
    noPixels.pixels.reset();
    SliceImage tooSmall = sliceImage({1, 2, 3}, 2, 2);
    SliceImage overlapping = layerImage(0);
    overlapping.stride = kWidth - 1;
    SliceImage outside = layerImage(0);
    outside.stride = kWidth + 1;
    const std::pair<SliceImage*, const char*> images[] = {
        {&noPixels, "error: layer 0 has no pixels\n"},
        {&tooSmall, "error: layer 0: 3 bytes given for 2 x 2 pixels\n"},
        {&overlapping, "error: layer 0: 29 bytes from row to row for 30 pixels\n"},
        {&outside, "error: layer 0: 600 bytes given for 30 x 20 pixels\n"}};
    for (const char* name : {"a.vndlp", "a.ctb", "a.vndlpv4"}) {
        const std::unique_ptr<DLPWriter> writer = newWriter(name, 2);
        start(*writer);
        writer->resizeLayers(2);
        Printed printed;
        for (const auto& [image, told] : images) {
            if (isOf(name, ".ctb") && image == &tooSmall) continue;  // the bytes alone count there
            EXPECT_EQ(writer->setLayerImageAt(0, *image, 0), -30);
            EXPECT_EQ(printed.take(), told) << name;
            EXPECT_EQ(writer->addLayerImage(0, *image, 0, 1), -30);
            EXPECT_EQ(printed.take(), told) << name;
        }
        for (const int index : {-1, 2}) {
            EXPECT_EQ(writer->setLayerImageAt(index, layerImage(0), 0), -31);
            EXPECT_EQ(printed.take(),
                      "error: layer " + std::to_string(index) + ", tables sized for 2: invalid vector subscript\n");
        }
        writer->setLayerImageAt(1, layerImage(1), 0);
        writer->setLayerImageAt(0, layerImage(0), 0);
        EXPECT_EQ(writer->finish(), -30) << "the first failure";
        printed.take();
        expectLayers(name, 2);
        start(*writer);
        for (unsigned i = 0; i < 2; ++i) writer->addLayerImage(i, layerImage(i), 0, 0);
        EXPECT_EQ(writer->finish(), 0) << "forgotten with the next file";
    }
    for (const char* name : {"a.ctb", "a.vndlpv4"}) {
        const std::unique_ptr<DLPWriter> writer = newWriter(name, 2);
        start(*writer);
        writer->resizeLayers(2);
        writer->setLayerImageAt(0, layerImage(0), 0);
        EXPECT_TRUE(tellsOf("layer 1", [&] { EXPECT_LT(writer->finish(), 0); })) << "never delivered";
    }
}

TEST_F(FrontEnd, FinishTellsOfLayersOtherThanAnnouncedInOneLine) {
    const auto deliver = [](DLPWriter& writer, unsigned layers) {
        for (unsigned i = 0; i < layers; ++i) {
            writer.addLayerImage(i, sliceImage({200}, 1, 1), 1, 0);
            writer.addLayerMesh({}, 1);
        }
    };
    for (const Format& format : kFormats) {
        const std::unique_ptr<DLPWriter> writer = newWriter("a" + std::string(format.ending), 2);
        for (const unsigned layers : {1u, 3u, 2u}) {
            start(*writer);
            deliver(*writer, layers);
            const std::string printed = printedBy([&] { EXPECT_EQ(writer->finish(), layers == 2 ? 0 : -7); });
            const std::string told =
                "error: " + writer->filePath + ": 2 layers were announced, " + std::to_string(layers) + " delivered\n";
            // of more than the area table has room for its writer tells
            const bool hasTable = format.formatFlag == 1 || format.formatFlag == 2;
            EXPECT_EQ(countOf(printed, told), layers == 2 || (hasTable && layers > 2) ? 0 : 1) << printed;
            EXPECT_EQ(countOf(printed, "error: "), layers == 2 ? 0 : 1) << printed;
        }
        // a header that was refused for want of previews
        std::vector<SliceImage> two = previews(2);
        ASSERT_EQ((Codes{writer->openFile(), writer->writeHeader(two)}), (Codes{0, 2}));
        EXPECT_EQ(countOf(printedBy([&] { EXPECT_LT(writer->finish(), 0); }), "error: "), 1);
        const std::unique_ptr<DLPWriter> fresh = newWriter("b" + std::string(format.ending), 0);
        EXPECT_EQ(fresh->openFile(), 0);
        EXPECT_EQ(countOf(printedBy([&] { EXPECT_LT(fresh->finish(), 0); }), "error: "), 1) << "no header";
    }
    for (const char* name : {"a.ctb", "a.vndlpv4"}) {
        const std::unique_ptr<DLPWriter> writer = newWriter(name, 65536);
        start(*writer);
        printedBy([&] { deliver(*writer, 65536); });
        const std::string printed = printedBy([&] { EXPECT_EQ(writer->finish(), -7); });
        EXPECT_EQ(countOf(printed, "65536 layers, a file holds at most 65535\n"), 1) << printed;
    }
}

TEST_F(FrontEnd, IsNullWhateverAllocationFails) {
    for (const Format& format : kFormats) {
        const std::string name = format.ending;
        int refused = 0;
        for (bool isMade = false; !isMade && refused < 100; refused += isMade ? 0 : 1) {
            failAllocationsAfter(refused);
            DLPWriter* made = createDLPWriter(name);
            failAllocationsAfter(-1);
            isMade = made != nullptr;
            delete made;
        }
        EXPECT_GT(refused, 1) << name;
        EXPECT_LT(refused, 100) << name;
    }
}

TEST_F(FrontEnd, CancelLeavesNoFileAndWhatCannotBeOpenedIsTold) {
    for (const Format& format : kFormats) {
        const std::unique_ptr<DLPWriter> writer = newWriter("a" + std::string(format.ending), 2);
        start(*writer);
        EXPECT_EQ(writer->addLayerImage(0, layerImage(0), 1, 8), 0);
        EXPECT_EQ(writer->addLayerMesh({}, 1), 0);
        EXPECT_EQ(writer->addLayerPaths(0, {{}}, 1), 0);
        EXPECT_EQ(writer->cancel(), 0);
        EXPECT_FALSE(std::filesystem::exists(writer->filePath)) << format.ending;
        EXPECT_NE(writer->cancel(), 0) << "nothing left to delete";
        writer->filePath = path("no/such") + format.ending;
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(writer->openFile(), format.cannotOpen); }),
                  "error: " + writer->filePath + " can't open\n");
        printedBy([&] {
            std::vector<SliceImage> images = previews();
            writer->writeHeader(images);
            EXPECT_LT(writer->finish(), 0);
        });
    }
}

TEST_F(FrontEnd, RowsMayHavePadding) {
    Bytes padded(std::size_t{39} * kHeight - 9, 99);
    for (unsigned y = 0; y < kHeight; ++y) std::copy_n(layerPixels(3).begin() + y * 30, 30, padded.begin() + y * 39);
    SliceImage image = sliceImage(padded, kWidth, kHeight);
    image.stride = 39;
    for (const char* name : {"a.vndlp", "a.ctb", "a.vndlpv4", "beads.vndlpv4"}) {
        const std::unique_ptr<DLPWriter> writer = newWriter(name, 2);
        start(*writer);
        const bool hasBeads = name == std::string("beads.vndlpv4");
        printedBy([&] { writer->prepareLampBeadCal(hasBeads ? 1 : 0); });
        EXPECT_EQ(writer->addLayerImage(0, image, 1, 8), 0);
        EXPECT_EQ(writer->addLayerImage(1, layerImage(3), 1, 8), 0);
        EXPECT_EQ(writer->finish(), 0);
        EXPECT_EQ(layersOf(name), std::vector<Bytes>(2, layerPixels(3))) << name;
        if (!hasBeads) continue;
        VNDLPV4::VNDLPV4Read reader;
        printedBy([&] { reader.openDlpFile(path(name), true), reader.parseFile(); });
        EXPECT_NE(reader.layerDef()[0]->beadMask(), Bytes(68));
        EXPECT_EQ(reader.layerDef()[0]->beadMask(), reader.layerDef()[1]->beadMask());
    }
}

// ---- V2 and line files

TEST_F(FrontEnd, V2LayersByIndexHoldEveryRunTwice) {
    const std::unique_ptr<DLPWriter> writer = newWriter("a.vndlp", 4);
    writer->resizeLayers(2);  // openFile leaves this table as it is
    start(*writer);
    Printed printed;
    EXPECT_EQ(writer->setLayerImageAt(0, sliceImage({0}, 1, 1), 0), 0);
    EXPECT_EQ(writer->setLayerImageAt(1, sliceImage({16}, 1, 1), 1000), 0);
    EXPECT_EQ(printed.take(), "");
    // more calls than layers write them out
    EXPECT_EQ(writer->setLayerImageAt(1, sliceImage({16}, 1, 1), 1000), 0);
    EXPECT_EQ(writer->setLayerImageAt(1, sliceImage({16}, 1, 1), 1000), -31) << "the tables are empty now";
    EXPECT_LT(writer->finish(), 0);
    const Bytes run = {0, 0, 0, 0, 0, 16};
    const Bytes layers = Bytes().u32(0).u32(0).tag().u32(1).u32(2).raw(run).raw(run).tag();
    const Bytes bytes = readFile(path("a.vndlp"));
    EXPECT_EQ(slice(bytes, bytes.size() - 17 - layers.size(), layers.size()), layers);
}

TEST_F(FrontEnd, AResolutionInTheStructureWinsAndLineFilesIgnoreImages) {
    for (const char* name : {"a.vndlp", "a.vnline"}) {
        const std::unique_ptr<DLPWriter> writer = newWriter(name, 1);
        writer->fileStructure.headerType = isOf(name, ".vndlp") ? 2 : 12;
        writer->fileStructure.setResolution(99, 0);
        start(*writer);
        const bool isLine = isOf(name, ".vnline");
        EXPECT_EQ(writer->addLayerImage(0, layerImage(0), 1, 0), 0);
        EXPECT_EQ(isLine ? writer->setLayerImageAt(7, layerImage(0), 1) + writer->addLayerMesh({}, 1) : 0, 0);
        EXPECT_EQ(writer->finish(), 0);
        VndlpRead reader;
        const Printed printed;
        EXPECT_EQ((Codes{reader.openDlpFile(path(name), true), reader.readDlpStructure(false)}), Codes(2));
        unsigned short x = 0, y = 0;
        reader.sendResolution(x, y);
        EXPECT_EQ((Codes{x, y, reader.getLayerCount()}), (Codes{99, 20, 1})) << name;
    }
}

TEST_F(FrontEnd, EveryFileOfAWriterTakesItsOwnResolution) {
    for (const char* name : {"a.vndlp", "a.vnline"}) {
        const std::unique_ptr<DLPWriter> writer = newWriter(name, 0);
        for (const unsigned x : {30u, 40u, 0u, 50u}) {
            writer->resolutionX = x;
            if (x == 50) writer->fileStructure.setResolution(99, 20);
            printedBy([&] { ASSERT_EQ((Codes{openAndWriteHeader(*writer, previews()), writer->finish()}), Codes(2)); });
            const Bytes bytes = readFile(path(name));
            const std::size_t at = 13 + 2 + 8 + 2;  // magic, version, "M01", count
            EXPECT_EQ(bytes[at] << 8 | bytes[at + 1], x == 50 ? 99 : static_cast<int>(x)) << name;
        }
    }
}

// ---- CTB files

TEST_F(FrontEnd, CtbLayersEncodeTheBytesTheyStateWhateverTheirSidesSay) {
    const std::unique_ptr<DLPWriter> writer = newWriter("a.ctb", 4);
    start(*writer);
    Bytes pixels(600, 0);
    pixels[2] = 255;
    SliceImage image = sliceImage(pixels, kWidth, kHeight);
    const std::pair<unsigned, Bytes> rows[] = {
        {3, {0x80, 2, 0x7F}}, {600, {0x80, 2, 0x7F, 0x80, 0x82, 0x55}}, {5, {0x80, 2, 0x7F, 0x80, 2}}};
    for (unsigned i = 0; i < 3; ++i) {
        image.size = rows[i].first;
        if (i == 2) image.width = image.height = 0;
        EXPECT_EQ(writer->addLayerImage(i, image, 0, 0), 0);
    }
    EXPECT_EQ(writer->addLayerImage(3, SliceImage{0, 2, 2, image.pixels}, 0, 0), 0) << "no size: its sides";
    ASSERT_EQ(writer->finish(), 0);
    CTB::CTBRead reader;
    EXPECT_EQ((Codes{reader.openDlpFile(path("a.ctb"), false), reader.parseFile(true)}), (Codes{0, 1}));
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    const Bytes file = readFile(path("a.ctb"));
    for (unsigned i = 0; i < 4; ++i) {
        const Bytes expected = i < 3 ? rows[i].second : Bytes{0x80, 2, 0x7F, 0};
        EXPECT_EQ(Bytes(CTB::CTBWrite::LayerRleCrypt(reader.headerSettings()->encryptionKey, i,
                                                     slice(file, layers[i]->dataOffset, layers[i]->dataSize))),
                  expected)
            << i;
    }
}

TEST_F(FrontEnd, CtbNumbersOfSixteenBitsWrapOrAreSigned) {
    const std::unique_ptr<DLPWriter> writer = newWriter("a.ctb", 70000);
    writer->fileStructure.parameters.exposure_time = 0xFFF6;  // -10
    writer->fileStructure.parameters.first_exposure_time = 0xFFFF;
    writer->fileStructure.parameters.first_layer_count = 0xFFFF;  // -1: every layer is a bottom layer
    start(*writer);
    writer->addLayerImage(0, layerImage(0), 0, 0);
    EXPECT_EQ(countOf(printedBy([&] { EXPECT_EQ(writer->finish(), -7); }), "warning: "), 1)
        << "of other layers counted";
    CTB::CTBRead reader;
    EXPECT_EQ((Codes{reader.openDlpFile(path("a.ctb"), false), reader.parseFile(true)}), (Codes{0, 1}));
    const CTB::HeaderSettings& header = *reader.headerSettings();
    EXPECT_EQ((Codes{header.layerCount, header.bottomLayerCount}), (Codes{4464, 0xFFFFFFFF}));
    EXPECT_EQ((std::vector{header.totalHeight, header.exposureTime, header.bottomExposureTime}),
              (std::vector{4464 * 0.05F, -1.0F, 65535.0F}));
    const Printed printed;
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    EXPECT_EQ(layers[0]->exposureTime, 65535.0F);
}

TEST_F(FrontEnd, TheLastCtbKeyScramblesEveryWritersLayers) {
    const std::unique_ptr<DLPWriter> first = newWriter("a.ctb", 1);
    start(*first);
    // until the clock that seeds the keys has moved on
    std::set<unsigned> keys;
    unsigned lastKey = 0;
    while (keys.size() < 2) {
        const std::unique_ptr<DLPWriter> other = newWriter("b.ctb", 1);
        start(*other);
        other->addLayerImage(0, layerImage(0), 0, 0);
        ASSERT_EQ(other->finish(), 0);
        lastKey = u32At(readFile(path("b.ctb")), 100);
        keys.insert(lastKey);
    }
    first->addLayerImage(0, layerImage(1), 0, 0);
    ASSERT_EQ(first->finish(), 0);
    CTB::CTBRead reader;
    EXPECT_EQ((Codes{reader.openDlpFile(path("a.ctb"), false), reader.parseFile(true)}), (Codes{0, 1}));
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    EXPECT_EQ(layers[0]->decodeCtbImage(kWidth, kHeight, 0, lastKey), layerPixels(1));
}

TEST_F(FrontEnd, CtbLayerZeroAgainEmptiesTheTableOnly) {
    const std::unique_ptr<DLPWriter> writer = newWriter("a.ctb", 1);
    start(*writer);
    for (unsigned i = 0; i < 3; ++i) writer->addLayerImage(i, layerImage(i), 0, 0);
    EXPECT_EQ(writer->addLayerImage(0, sliceImage({0, 255, 0, 255}, 4, 1), 0, 0), 0);
    ASSERT_EQ(writer->finish(), 0);
    CTB::CTBRead reader;
    EXPECT_EQ((Codes{reader.openDlpFile(path("a.ctb"), false), reader.parseFile(true)}), (Codes{0, 1}));
    const Owned<CTB::LayerDef> layers(reader.layerDef(false));
    const Owned<CTB::LayerDefEx> extended(reader.layerDefEx());
    ASSERT_EQ(extended.size(), 1u);
    EXPECT_EQ(layers[0]->dataSize, 4u);
    EXPECT_EQ(extended[0]->totalSize, 84u + 7) << "of the first start";
    EXPECT_EQ(extended[0]->layerDef.dataOffset, layers[0]->dataOffset);
}

// ---- V4 files

TEST_F(FrontEnd, V4LayersHaveTheirAreasAndMasksHoweverTheyCame) {
    const std::unique_ptr<DLPWriter> writer = newWriter("a.vndlpv4", 60);
    for (int round = 0; round < 2; ++round) {
        start(*writer);
        writer->resizeLayers(60);
        writer->setLayerImageAt(0, layerImage(0), 1500);
        writer->setLightData({1, 2, 3}, 4);
        // the field is made once a writer
        EXPECT_EQ(printedBy([&] { writer->prepareLampBeadCal(3); }).substr(0, 16),
                  round == 0 ? "init\npw 0 ph 0 \n" : "");
        std::vector<std::thread> threads;
        for (int t = 0; t < 6; ++t) {
            threads.emplace_back([&writer, t] {
                for (int i = t; i < 60; i += 6)
                    if (i > 0) writer->setLayerImageAt(i, layerImage(static_cast<unsigned>(i)), 1500.0 * i);
            });
        }
        for (std::thread& thread : threads) thread.join();
        for (const int index : {0, 59}) writer->setLayerArea(index, 8499);
        printedBy([&] { EXPECT_EQ(writer->finish(), 0); });
        expectLayers("a.vndlpv4", 60);
        VNDLPV4::VNDLPV4Read reader;
        VNDLPV4::LampBeadCal field;
        field.m_printBuild = false;
        VNDLPV4::initPrinterBeadField(field);
        printedBy([&] {
            EXPECT_EQ((Codes{reader.openDlpFile(path("a.vndlpv4"), true), reader.parseFile()}), Codes(2));
        });
        for (unsigned i = 0; i < 60; ++i) {
            Bytes mask;
            VNDLPV4::LayerDef::encodeImageSubZone(layerPixels(i).data(), 30, 20, 0, i, field, mask);
            EXPECT_NE(mask, Bytes(68));
            EXPECT_EQ(reader.layerDef()[i]->beadMask(), mask) << i;
            EXPECT_EQ(reader.layerDef()[i]->word36, i == 0 || i == 59 ? 8u : (3 * i + 1) / 2) << i;
        }
    }
}

TEST_F(FrontEnd, V4WarnsOfImagesAndCountsThatAreNotTheJobsAndRefusesTooLargeScreens) {
    const std::unique_ptr<DLPWriter> writer = newWriter("a.vndlpv4", 7);
    start(*writer);
    EXPECT_TRUE(tellsOf("layer 1", [&] { EXPECT_EQ(writer->addLayerImage(1, layerImage(0), 0, 0), -31); }));
    for (const int index : {-1, 0}) {
        EXPECT_TRUE(tellsOf("layer " + std::to_string(index), [&] { writer->setLayerArea(index, 1); }));
    }
    start(*writer);
    const std::string printed = printedBy([&] {
        for (unsigned i = 0; i < 2; ++i) writer->addLayerImage(i, sliceImage(Bytes(300, 9), 30, 10), 0, 0);
        EXPECT_EQ(writer->finish(), -7);
    });
    EXPECT_EQ(printed.substr(0, printed.find("checkFileSum")),
              "warning: " + writer->filePath + ": layer 0 has 30 x 10 pixels, the screen 30 x 20\n");
    EXPECT_EQ(layersOf("a.vndlpv4"), std::vector<Bytes>(2, Bytes().fill(300, 9).fill(300, 0)));
    writer->resolutionX = 65536;
    EXPECT_TRUE(tellsOf("65536 x 20", [&] { EXPECT_EQ(openAndWriteHeader(*writer, previews()), -30); }));
    writer->cancel();
}

}  // namespace
}  // namespace vndlp::test
