#include "tools/job.h"

#include "support/files.h"
#include "support/png.h"
#include "tools/archive.h"

#include <gtest/gtest.h>
#include <zip.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <string_view>
#include <thread>

using namespace vndlp::test;
using namespace vndlp::tools;

namespace {

constexpr const char* kSample = VNDLP_EXAMPLES_DIR "/lattice_tower.sl1";
const std::string kAgain = "; slice the model again or copy the job again";
const std::string kCopyAgain = "; copy or make the archive again";

struct Entry {
    std::string name;
    Bytes bytes;
};
using Entries = std::vector<Entry>;

Entry text(const std::string& name, const std::string& content) { return {name, Bytes().raw(content)}; }

/// Writes an archive with libzip, deflated.
std::string makeZip(const std::string& path, const Entries& entries) {
    zip_t* const archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    for (const Entry& entry : entries) {
        zip_source_t* const source = zip_source_buffer(archive, entry.bytes.data(), entry.bytes.size(), 0);
        EXPECT_GE(zip_file_add(archive, entry.name.c_str(), source, ZIP_FL_ENC_UTF_8), 0);
    }
    EXPECT_EQ(zip_close(archive), 0);
    return path;
}

/// One entry of an archive made by hand, where everything the directory claims can be set.
struct RawEntry {
    std::string name;
    Bytes packed;
    std::uint64_t size = 0;
    std::uint64_t packedSize = 0;
    std::uint32_t crc = 0;
    std::uint16_t method = 0;
    std::uint16_t flags = 0;

    static RawEntry stored(const std::string& name, const Bytes& bytes) {
        return {name, bytes, bytes.size(), bytes.size(), zipCrc(bytes)};
    }
};

/// A zip file in which every size and offset is told in ZIP64 fields, as in one beyond 4 GiB, byte by byte.
Bytes rawZip64(const std::vector<RawEntry>& entries) {
    constexpr std::uint32_t kSeeZip64 = 0xFFFFFFFF;
    Bytes out;
    Bytes directory;
    for (const RawEntry& entry : entries) {
        const std::uint64_t offset = out.size();
        const Bytes sizes = Bytes().le(entry.size, 8).le(entry.packedSize, 8);
        const Bytes common = Bytes()
                                 .le(45, 2)  // version needed
                                 .le(entry.flags, 2)
                                 .le(entry.method, 2)
                                 .le(0x5A210000, 4)  // date and time
                                 .le(entry.crc, 4)
                                 .le(kSeeZip64, 4)  // packed size
                                 .le(kSeeZip64, 4)  // size
                                 .le(entry.name.size(), 2);
        out.raw("PK\3\4").raw(common).le(20, 2).raw(entry.name);
        out.le(1, 2).le(16, 2).raw(sizes).raw(entry.packed);
        directory.raw("PK\1\2").le(45, 2).raw(common).le(28, 2);
        directory.le(0, 2).le(0, 2).le(0, 2).le(0, 4);  // comment, disk, attributes
        directory.le(kSeeZip64, 4).raw(entry.name);     // offset
        directory.le(1, 2).le(24, 2).raw(sizes).le(offset, 8);
    }
    const std::uint64_t start = out.size();
    out.raw(directory);
    const std::uint64_t end = out.size();
    out.raw("PK\6\6").le(44, 8).le(45, 2).le(45, 2).le(0, 4).le(0, 4);
    out.le(entries.size(), 8).le(entries.size(), 8).le(directory.size(), 8).le(start, 8);
    out.raw("PK\6\7").le(0, 4).le(end, 8).le(1, 4);
    return out.raw("PK\5\6").le(0, 4).le(0xFFFF, 2).le(0xFFFF, 2).le(kSeeZip64, 4).le(kSeeZip64, 4).le(0, 2);
}

/// The least a sliced job has: three layers of 2 x 3 pixels with greys 10, 20, 30, and both .ini files.
Entries smallJob() {
    return {text("config.ini",
                 "jobDir = part\nlayerHeight = 0.05\nexpTime = 2\nexpTimeFirst = 20\nnumFade = 2\n"
                 "numSlow = 1\nnumFast = 2\n"),
            text("prusaslicer.ini",
                 "display_pixels_x = 2\ndisplay_pixels_y = 3\ndisplay_width = 1\n"
                 "display_height = 1.5\ndisplay_orientation = landscape\n"),
            {"part00000.png", flatPng(2, 3, 10)},
            {"part00001.png", flatPng(2, 3, 20)},
            {"part00002.png", flatPng(2, 3, 30)}};
}

Entries without(const std::string& name, Entries entries) {
    std::erase_if(entries, [&](const Entry& entry) { return entry.name == name; });
    return entries;
}

Entries with(const Entry& changed, Entries entries) {
    entries = without(changed.name, std::move(entries));
    entries.push_back(changed);
    return entries;
}

/// Sum of all pixels; background is passed over in words, for the sanitizers' and debug builds' sake.
double greySum(const GreyImage& image) {
    double sum = 0;
    for (std::size_t i = 0; i < image.pixels.size(); i += sizeof(std::uint64_t)) {
        const std::size_t end = std::min(i + sizeof(std::uint64_t), image.pixels.size());
        std::uint64_t word = 0;
        std::memcpy(&word, &image.pixels[i], end - i);
        if (word != 0) sum = std::accumulate(&image.pixels[i], image.pixels.data() + end, sum);
    }
    return sum;
}

std::vector<int> greysOf(LayerSource& job) {
    std::vector<int> greys;
    GreyImage image;
    for (int i = 0; i < job.layerCount(); ++i) {
        job.readLayer(i, image);
        greys.push_back(image.pixels.front());
    }
    return greys;
}

class Job : public FileTest {
protected:
    std::unique_ptr<LayerSource> open(const Entries& entries, const std::string& name = "job.sl1") {
        return openJob(makeZip(path(name), entries));
    }

    /// Text of the failure that opening the job and reading all its layers ends in, from behind "PATH: ".
    std::string failure(const Entries& entries, const std::string& name = "job.sl1") {
        return failureOfFile(makeZip(path(name), entries));
    }

    std::string failureOfFile(const std::string& file) {
        const std::string message = failureOf([&] { greysOf(*openJob(file)); });
        const std::string prefix = file + ": ";
        EXPECT_TRUE(message.empty() || message.starts_with(prefix)) << message;
        return message.substr(std::min(prefix.size(), message.size()));
    }

    std::string failureOfRaw(const RawEntry& entry) { return failureOfFile(writeBelow("raw.zip", rawZip64({entry}))); }

    /// Writes a file below the test's folder, making the folders it lies in.
    std::string writeBelow(const std::string& name, const Bytes& bytes) {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        return writeFile(path(name), bytes);
    }
};

using BrokenJob = Job;
using PlainJob = Job;
using ZipArchiveTest = Job;

}  // namespace

// ---- the sample job

TEST(SampleJob, HasTheFactsOfItsSlicer) {
    const std::unique_ptr<LayerSource> job = openJob(kSample);
    EXPECT_EQ(job->layerCount(), 111);
    EXPECT_EQ(job->width(), 1440);
    EXPECT_EQ(job->height(), 2560);
    const JobSettings& s = job->settings();
    EXPECT_EQ(s.jobDir, "lattice_tower");
    EXPECT_EQ(s.layerHeightMm, 0.1);
    EXPECT_EQ(s.exposureSeconds, 3);
    EXPECT_EQ(s.firstExposureSeconds, 30);
    EXPECT_EQ(s.fadeLayers, 5);
    EXPECT_EQ(s.slowLayers, 0);
    EXPECT_EQ(s.fastLayers, 111);
    EXPECT_EQ(s.usedMaterialMl, 3.227465);
    EXPECT_EQ(s.printTimeSeconds, 1092.000001);
    EXPECT_EQ(s.materialName, std::nullopt);  // "materialName = " has no value
    EXPECT_EQ(s.printerModel, "SL1");
    EXPECT_EQ(s.displayPixelsX, 1440);
    EXPECT_EQ(s.displayPixelsY, 2560);
    EXPECT_EQ(s.displayWidthMm, 68.04);
    EXPECT_EQ(s.displayHeightMm, 120.96);
    EXPECT_EQ(s.displayOrientation, DisplayOrientation::kLandscape);
    EXPECT_EQ(s.displayMirrorX, false);
    EXPECT_EQ(s.displayMirrorY, false);
    EXPECT_EQ(s.initialLayerHeightMm, 0.1);
    EXPECT_EQ(s.gammaCorrection, 1);
    EXPECT_EQ(s.materialDensity, 1);
    EXPECT_EQ(s.maxPrintHeightMm, 300);
    EXPECT_EQ(s.assumptions, std::vector<std::string>{});
    EXPECT_TRUE(job->thumbnails().empty());
}

TEST(SampleJob, HoldsTheVolumeItsSlicerTells) {
    const std::unique_ptr<LayerSource> job = openJob(kSample);
    const double pixelMm2 = 68.04 / 1440 * 120.96 / 2560;
    GreyImage image;
    double curedPixels = 0;
    for (int i = 0; i < job->layerCount(); ++i) {
        job->readLayer(i, image);
        curedPixels += greySum(image) / 255;
    }
    EXPECT_NEAR(curedPixels * pixelMm2 * 0.1 / 1000, *job->settings().usedMaterialMl, 0.01);
}

TEST(SampleJob, ReadsTheSameFromSeveralThreads) {
    const std::unique_ptr<LayerSource> job = openJob(kSample);
    const auto layers = static_cast<std::size_t>(job->layerCount());
    const auto hashOf = [](const GreyImage& image) {
        return std::hash<std::string_view>{}({reinterpret_cast<const char*>(image.pixels.data()), image.pixels.size()});
    };
    std::vector<std::size_t> hashes(layers);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            GreyImage image;
            for (std::size_t i = t; i < layers; i += 4) {
                job->readLayer(static_cast<int>(i), image);
                hashes[i] = hashOf(image);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    GreyImage image;
    for (std::size_t i = 0; i < layers; ++i) {
        job->readLayer(static_cast<int>(i), image);
        EXPECT_EQ(hashes[i], hashOf(image)) << "layer " << i;
    }
}

// ---- exposure

TEST(Exposure, FallsByEqualStepsOverTheFadingLayers) {
    JobSettings s;
    EXPECT_EQ(exposureOfLayer(s, 0), std::nullopt);
    s.exposureSeconds = 3;
    EXPECT_EQ(exposureOfLayer(s, 0), 3);
    s.firstExposureSeconds = 30;
    s.fadeLayers = 5;
    EXPECT_EQ(exposureOfLayer(s, 0), 30);
    EXPECT_EQ(exposureOfLayer(s, 1), 25.5);
    EXPECT_EQ(exposureOfLayer(s, 5), 7.5);
    EXPECT_EQ(exposureOfLayer(s, 6), 3);
    EXPECT_EQ(exposureOfLayer(s, 110), 3);
}

TEST(Exposure, BottomLayersAreHalfOfTheFadingOnes) {
    EXPECT_EQ(bottomLayerCount(0), 1);
    EXPECT_EQ(bottomLayerCount(1), 1);
    EXPECT_EQ(bottomLayerCount(2), 2);
    EXPECT_EQ(bottomLayerCount(5), 3);
    EXPECT_EQ(bottomLayerCount(10), 6);
}

// ---- settings

TEST(Settings, AreReadWithAnyLineEndMarkAndComment) {
    const JobSettings s = parseJobSettings("a.sl1",
                                           "\xEF\xBB\xBF# a comment = 1\r\n\r\n[part]\r\n; expTime = 9\r\n"
                                           "jobDir=my = job\r\n\t expTime \t=  2.5 \r\nexpTime = 4e0\nno value\n"
                                           "numFade =\nmaterialName = Grün",
                                           "display_orientation = portrait\r\ndisplay_mirror_x = 1");
    EXPECT_EQ(s.jobDir, "my = job");
    EXPECT_EQ(s.exposureSeconds, 4);
    EXPECT_EQ(s.fadeLayers, std::nullopt);
    EXPECT_EQ(s.materialName, "Grün");
    EXPECT_EQ(s.displayOrientation, DisplayOrientation::kPortrait);
    EXPECT_EQ(s.displayMirrorX, true);
}

TEST(Settings, FillGapsFromTheSlicersOwn) {
    const JobSettings s =
        parseJobSettings("a.sl1", "expTime = 2\n",
                         "layer_height = 0.05\nexposure_time = 9\ninitial_exposure_time = 40\nfaded_layers = 7\n");
    EXPECT_EQ(s.layerHeightMm, 0.05);
    EXPECT_EQ(s.exposureSeconds, 2);
    EXPECT_EQ(s.firstExposureSeconds, 40);
    EXPECT_EQ(s.fadeLayers, 7);
    EXPECT_EQ(s.assumptions,
              (std::vector<std::string>{
                  "config.ini does not give layerHeight: layer_height of prusaslicer.ini is used.",
                  "config.ini does not give expTimeFirst: initial_exposure_time of prusaslicer.ini is used.",
                  "config.ini does not give numFade: faded_layers of prusaslicer.ini is used."}));
}

TEST(Settings, NameABadNumber) {
    const auto failure = [](const std::string& config, const std::string& printerConfig) {
        return failureOf([&] { parseJobSettings("a.sl1", config, printerConfig); });
    };
    const std::string mend = "; mend the line or slice the model again";
    EXPECT_EQ(failure("\nexpTime = 3s", ""), "a.sl1: config.ini, line 2: expTime = 3s is not a number" + mend);
    EXPECT_EQ(failure("expTime = nan", ""), "a.sl1: config.ini, line 1: expTime = nan is not a number" + mend);
    EXPECT_EQ(failure("expTime = 1e999", ""), "a.sl1: config.ini, line 1: expTime = 1e999 is not a number" + mend);
    EXPECT_EQ(failure("numFade = 2.5", ""), "a.sl1: config.ini, line 1: numFade = 2.5 is not a whole number" + mend);
    EXPECT_EQ(failure("numFast = 99999999999", ""),
              "a.sl1: config.ini, line 1: numFast = 99999999999 is not a whole number" + mend);
    EXPECT_EQ(failure("layerHeight = -0.1", ""),
              "a.sl1: config.ini, line 1: layerHeight = -0.1 is not within 0.0001 and 100" + mend);
    EXPECT_EQ(failure("", "display_pixels_x = 0"),
              "a.sl1: prusaslicer.ini, line 1: display_pixels_x = 0 is not within 1 and 65535" + mend);
    EXPECT_EQ(failure("", "display_orientation = \x1B[31mup"),
              "a.sl1: prusaslicer.ini, line 1: display_orientation = ?[31mup is neither landscape nor portrait" + mend);
}

// ---- sliced jobs

TEST_F(Job, OrdersLayersByNumberWhateverTheirOrderInTheArchive) {
    Entries entries = smallJob();
    std::reverse(entries.begin(), entries.end());
    const auto job = open(entries);
    EXPECT_EQ(greysOf(*job), (std::vector<int>{10, 20, 30}));
    EXPECT_TRUE(job->settings().assumptions.empty());
}

TEST_F(Job, TellsDigitsOfTheJobsNameFromTheNumber) {
    const Entries entries = {text("config.ini", "jobDir = part2\n"), {"part200000.png", flatPng(1, 1, 7)},
                             {"part200001.png", flatPng(1, 1, 8)},   {"part00000.png", flatPng(1, 1, 9)},
                             {"part2 00002.png", flatPng(1, 1, 9)},  {"other200002.png", flatPng(1, 1, 9)}};
    EXPECT_EQ(greysOf(*open(entries)), (std::vector<int>{7, 8}));
    EXPECT_EQ(greysOf(*open({entries[1], entries[2]})), (std::vector<int>{7, 8}));
}

TEST_F(Job, GoesOnWithoutTheIniFilesAndSaysWhatItAssumed) {
    const auto job = open(without("prusaslicer.ini", without("config.ini", smallJob())));
    EXPECT_EQ(greysOf(*job), (std::vector<int>{10, 20, 30}));
    EXPECT_EQ(job->settings().assumptions,
              (std::vector<std::string>{
                  "config.ini does not give jobDir: it is taken to be part, by the layers' names.",
                  "config.ini does not give the number of layers: the 3 found are taken for all.",
                  "The job does not give the layer height.", "The job does not give the exposure.",
                  "The job does not give the first layer's exposure: it is taken to be that of the others.",
                  "The job does not give the number of fading layers: 0 is taken.",
                  "The job does not give the screen's size in millimetres.",
                  "prusaslicer.ini does not give the screen's pixels: the layers' size, 2 x 3, is taken."}));
}

TEST_F(Job, SwapsTheScreensSidesForPortrait) {
    const auto screen = [](const std::string& orientation) {
        return text("prusaslicer.ini",
                    "display_width = 1\ndisplay_height = 1\ndisplay_pixels_x = 3\n"
                    "display_pixels_y = 2\n" +
                        orientation);
    };
    EXPECT_EQ(open(with(screen("display_orientation = portrait\n"), smallJob()))->width(), 2);
    const auto job = open(with(screen(""), smallJob()));
    EXPECT_EQ(job->settings().displayOrientation, DisplayOrientation::kPortrait);
    EXPECT_EQ(job->settings().assumptions,
              std::vector<std::string>{
                  "prusaslicer.ini does not give display_orientation: portrait is taken, by the layers' size."});
    EXPECT_EQ(failure(with(screen("display_orientation = landscape\n"), smallJob())),
              "part00000.png: is 2 x 3 pixels, but prusaslicer.ini gives 3 x 2 (landscape); slice the model again for "
              "the right printer");
}

TEST_F(Job, ReadsAFolderLikeAnArchive) {
    for (const Entry& entry : smallJob()) writeBelow("unpacked/" + entry.name, entry.bytes);
    EXPECT_EQ(greysOf(*openJob(path("unpacked"))), (std::vector<int>{10, 20, 30}));
}

TEST_F(Job, TakesTheOnlyFolderForTheRootAndPassesOverHiddenFiles) {
    Entries entries = smallJob();
    for (Entry& entry : entries) entry.name = "Größe/" + entry.name;
    entries.push_back({"Größe/.part00003.png", {}});
    entries.push_back({"__MACOSX/Größe/part00003.png", {}});
    EXPECT_EQ(greysOf(*open(entries)), (std::vector<int>{10, 20, 30}));
}

TEST_F(Job, HasTheThreeLargestThumbnailsSmallestFirst) {
    Entries entries = smallJob();
    for (const int side : {40, 4, 8, 12})
        entries.push_back(
            {"thumbnail/thumbnail" + std::to_string(side) + "x2.png", flatPng(static_cast<std::uint32_t>(side), 2, 5)});
    entries.push_back({"thumbnail/thumbnail99.png", {}});
    entries.push_back({"thumbnail/other99x99.png", {}});
    const std::vector<ColourImage> pictures = open(entries)->thumbnails();
    ASSERT_EQ(pictures.size(), 3U);
    EXPECT_EQ(pictures[0].width, 8);
    EXPECT_EQ(pictures[1].width, 12);
    EXPECT_EQ(pictures[2].width, 40);
    EXPECT_EQ(pictures[2].pixels.size(), 40U * 2 * 4);
}

// ---- jobs that are not whole

TEST_F(BrokenJob, MissesALayer) {
    EXPECT_EQ(failure(without("part00001.png", smallJob())),
              "part00001.png: this layer is missing, though part00002.png is there" + kAgain);
    EXPECT_EQ(failure(without("part00000.png", smallJob())),
              "part00000.png: this layer is missing, though part00001.png is there" + kAgain);
    EXPECT_EQ(failure(without("part00002.png", smallJob())),
              "part00002.png: this layer is missing: config.ini gives 3 layers (numSlow 1 + numFast 2), the job holds "
              "2" +
                  kAgain);
    EXPECT_EQ(failure(with({"part99999999999999999999.png", {}}, smallJob())),
              "part00003.png: this layer is missing, though part99999999999999999999.png is there" + kAgain);
}

TEST_F(BrokenJob, HasALayerTooMany) {
    EXPECT_EQ(failure(with({"part00003.png", flatPng(2, 3, 1)}, smallJob())),
              "part00003.png: this layer is one too many: config.ini gives 3 layers (numSlow 1 + numFast 2), the job "
              "holds 4" +
                  kAgain);
    EXPECT_EQ(failure(with({"part000001.png", flatPng(2, 3, 1)}, smallJob())),
              "part000001.png: is layer 1, and so is part00001.png" + kAgain);
    EXPECT_EQ(failure({{"a00000.png", flatPng(1, 1, 1)}, {"b00001.png", flatPng(1, 1, 1)}}),
              "b00001.png: belongs to another job than a00000.png, and no jobDir in config.ini says which one to take" +
                  kAgain);
}

TEST_F(BrokenJob, HasNoLayers) {
    EXPECT_EQ(failure({smallJob()[0], smallJob()[1]}),
              "holds no layers: nothing in it is named like part00000.png" + kAgain);
    EXPECT_EQ(failure({text("readme.txt", "hello")}),
              "holds no layers: nothing in it is named like job00000.png" + kAgain);
    EXPECT_EQ(failure({text("readme.txt", "hello")}, "job.zip"),
              "holds no layers: neither config.ini nor a PNG image is in it");
}

TEST_F(BrokenJob, HasALayerThatIsNone) {
    EXPECT_EQ(failure(with({"part00001.png", {}}, smallJob())), "part00001.png: is empty, the layer is lost" + kAgain);
    EXPECT_EQ(failure(with({"part00001.png", flatPng(3, 2, 1)}, smallJob())),
              "part00001.png: is 3 x 2 pixels, but part00000.png is 2 x 3; all layers have to be of the screen's size" +
                  kAgain);
    const auto withKind = [this](unsigned char depth, unsigned char colour) {
        const Bytes png = pngOf({headerChunk(2, 3, depth, colour), chunk("IDAT", zlibStored(Bytes(60, 0)))});
        return failure(with({"part00001.png", png}, smallJob()));
    };
    const std::string greyOnly = "; layers have to be 8-bit grey: export them again as such";
    EXPECT_EQ(withKind(16, 0), "part00001.png: is a PNG of 16-bit grey" + greyOnly);
    EXPECT_EQ(withKind(8, 2), "part00001.png: is a PNG of 8-bit RGB" + greyOnly);
    EXPECT_EQ(failure(with(text("part00001.png", "GIF89a of the same name, not a PNG at all"), smallJob())),
              "part00001.png: is not a PNG image");
    EXPECT_EQ(failure(with({"part00001.png", flatPng(99999, 1, 0)}, smallJob())),
              "part00001.png: is 99999 x 1 pixels; each side has to be from 1 to 65535");
}

TEST_F(BrokenJob, HasALayerWhoseDataAreDamaged) {
    Bytes png = flatPng(2, 3, 20);
    png[50] ^= 1;  // in the pixels
    EXPECT_EQ(failure(with({"part00001.png", png}, smallJob())),
              "part00001.png: the PNG is damaged (the CRC of chunk IDAT does not match); copy or make it again");
    const Bytes bomb = pngOf({headerChunk(15120, 6230), chunk("IDAT", zlibStored({0, 7}))});
    EXPECT_EQ(failure({{"a.png", bomb}}, "job.zip"),
              "a.png: the PNG is damaged (it claims 15120 x 6230 pixels, more than its 13 bytes of data can hold); "
              "copy or make it again");
}

TEST_F(BrokenJob, HasSettingsTooLargeToBeSome) {
    EXPECT_EQ(failure({text("config.ini", std::string((1 << 20) + 1, '#'))}),
              "config.ini: has 1048577 bytes; settings of more than 1048576 are refused");
}

TEST_F(BrokenJob, HasMoreLayersThanAFileCounts) {
    // also one entry more than a directory without ZIP64 can count
    std::vector<RawEntry> entries(65536, RawEntry::stored("", flatPng(1, 1, 0)));
    for (std::size_t i = 0; i < entries.size(); ++i) entries[i].name = std::to_string(i) + ".png";
    EXPECT_EQ(failureOfFile(writeBelow("job.zip", rawZip64(entries))),
              "holds 65536 layers; a slice file counts 65535 at most");
}

TEST_F(BrokenJob, IsNeverReadWronglyWhateverByteIsDamaged) {
    const std::string zip = makeZip(path("job.sl1"), smallJob());
    const Bytes good = readFile(zip);
    for (std::size_t i = 0; i < good.size(); ++i) {
        corruptByte(zip, i, good[i] ^ 0x41);
        std::vector<int> greys;
        const bool isRefused = !failureOf([&] { greys = greysOf(*openJob(zip)); }).empty();
        EXPECT_TRUE(isRefused || greys == (std::vector<int>{10, 20, 30})) << "byte " << i;
        corruptByte(zip, i, good[i]);
    }
}

TEST_F(BrokenJob, IsRefusedWhereverItIsCut) {
    const std::string zip = makeZip(path("job.sl1"), smallJob());
    for (std::size_t size = readFile(zip).size(); size-- > 0;) {
        truncate(zip, size);
        EXPECT_NE(failureOfFile(zip), "") << size << " bytes";
    }
}

// ---- plain PNG layers

TEST_F(PlainJob, OrdersNamesNaturally) {
    const Entries entries = {{"Layer10.PNG", flatPng(1, 1, 4)},
                             {"Layer9.png", flatPng(1, 1, 3)},
                             {"Layer2.png", flatPng(1, 1, 2)},
                             {"Layer01.png", flatPng(1, 1, 1)},
                             text("notes.txt", ""),
                             {"drafts/Layer0.png", flatPng(1, 1, 0)}};
    const std::vector<std::string> assumptions = {
        "The layers' numbers have gaps (Layer2.png comes behind Layer01.png): the layers are taken as if they had "
        "none.",
        "Plain PNG layers have no settings: exposure, layer height and the screen's size in millimetres are not "
        "known."};
    const auto job = open(entries, "layers.zip");
    EXPECT_EQ(greysOf(*job), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(job->settings().assumptions.back(), assumptions[1]);
    for (const Entry& entry : entries) writeBelow("layers/" + entry.name, entry.bytes);
    EXPECT_EQ(greysOf(*openJob(path("layers"))), (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(PlainJob, ReportsAGapInTheNumbers) {
    const auto job =
        open({{"1.png", flatPng(1, 1, 1)}, {"2.png", flatPng(1, 1, 2)}, {"4.png", flatPng(1, 1, 4)}}, "a.zip");
    EXPECT_EQ(job->settings().assumptions.front(),
              "The layers' numbers have gaps (4.png comes behind 2.png): the layers are taken as if they had none.");
}

TEST_F(PlainJob, RefusesAFileThatChangedItsSizeMeanwhile) {
    writeBelow("layers/1.png", flatPng(2, 2, 1));
    writeBelow("layers/2.png", flatPng(2, 2, 1));
    const auto job = openJob(path("layers"));
    writeBelow("layers/2.png", flatPng(5, 1, 1));  // of as many bytes
    GreyImage image;
    EXPECT_EQ(failureOf([&] { job->readLayer(1, image); }),
              path("layers") +
                  ": 2.png: is 5 x 1 pixels, but 1.png is 2 x 2; all layers have to be of the "
                  "screen's size" +
                  kAgain);
    std::filesystem::remove(path("layers/2.png"));
    EXPECT_EQ(failureOf([&] { job->readLayer(1, image); }),
              path("layers") + ": 2.png: cannot be opened: No such file or directory");
}

TEST_F(PlainJob, HidesControlCharactersOfNames) {
    writeBelow("layers/a\x1B[31m.png", {});
    EXPECT_EQ(failureOfFile(path("layers")), "a?[31m.png: is empty, the layer is lost" + kAgain);
}

// ---- archives

TEST_F(ZipArchiveTest, ReadsZip64Fields) {
    const std::string zip = writeBelow("raw.zip", rawZip64({RawEntry::stored("1.png", flatPng(1, 1, 50)),
                                                            RawEntry::stored("2.png", flatPng(1, 1, 60))}));
    EXPECT_EQ(greysOf(*openJob(zip)), (std::vector<int>{50, 60}));
}

TEST_F(ZipArchiveTest, RefusesClaimsThatCannotBeTrue) {
    const Bytes png = flatPng(1, 1, 50);
    RawEntry entry = RawEntry::stored("1.png", png);
    entry.method = ZIP_CM_DEFLATE;
    entry.size = 1'000'000;
    EXPECT_EQ(failureOfRaw(entry), "1.png: claims to unpack to 1000000 bytes, which its " + std::to_string(png.size()) +
                                       " bytes cannot hold" + kCopyAgain);
    entry.size = 10'000'000'000;
    EXPECT_EQ(failureOfRaw(entry),
              "1.png: claims 10000000000 bytes; entries of more than 1073741824 bytes are refused");
    entry.size = entry.packedSize = 1'000'000;
    const std::string all = std::to_string(rawZip64({entry}).size());
    EXPECT_EQ(failureOfRaw(entry), "1.png: claims 1000000 bytes of an archive of " + all + " bytes" + kCopyAgain);
}

TEST_F(ZipArchiveTest, RefusesDamagedData) {
    RawEntry entry = RawEntry::stored("1.png", flatPng(1, 1, 50));
    entry.crc ^= 1;
    EXPECT_EQ(failureOfRaw(entry), "1.png: is damaged: its CRC does not match" + kCopyAgain);
    entry = RawEntry::stored("1.png", flatPng(1, 1, 50));
    entry.size -= 1;
    EXPECT_EQ(failureOfRaw(entry), "1.png: claims to unpack to 69 bytes, which its 70 bytes cannot hold" + kCopyAgain);
}

TEST_F(ZipArchiveTest, NamesEncryptionAndMethod) {
    RawEntry entry = RawEntry::stored("1.png", flatPng(1, 1, 50));
    entry.flags = 1;
    EXPECT_EQ(failureOfRaw(entry), "1.png: is encrypted; make the archive again without a password");
    entry.flags = 0;
    entry.method = ZIP_CM_BZIP2;
    EXPECT_EQ(failureOfRaw(entry), "1.png: is packed with bzip2; make the archive again with deflate");
    entry.method = 93;
    EXPECT_EQ(failureOfRaw(entry), "1.png: is packed with zstd; make the archive again with deflate");
    entry.method = 77;
    EXPECT_EQ(failureOfRaw(entry), "1.png: is packed with method 77; make the archive again with deflate");
}

TEST_F(ZipArchiveTest, RefusesWhatIsNoArchive) {
    EXPECT_EQ(failureOfFile(writeBelow("job.sl1", Bytes().raw("this is not an archive of any kind"))),
              "is not a zip archive that can be read (Not a zip archive); a job is an .sl1 archive, "
              "or a zip or a folder of PNG layers");
    EXPECT_EQ(failureOfFile(path("none.sl1")), "cannot be opened: No such file or directory");
    EXPECT_NE(failureOfFile(writeBelow("empty.sl1", {})), "");
}
