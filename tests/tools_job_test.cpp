#include "tools/jobs/job.h"

#include "support/files.h"
#include "support/png.h"
#include "tools/jobs/archive.h"

#include <gtest/gtest.h>
#include <zip.h>

#include <algorithm>
#include <functional>
#include <memory>
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

/// The layers' greys in `smallJob`.
const std::vector<int> kGreys = {10, 20, 30};

/// The least a sliced job has: three layers of 2 x 3 pixels and both .ini files.
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

    /// Writes a file below the test's folder, making the folders it lies in.
    std::string writeBelow(const std::string& name, const Bytes& bytes) {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        return writeFile(path(name), bytes);
    }
};

}  // namespace

// ---- settings

// ---- sliced jobs

TEST_F(Job, OrdersLayersByNumberWhereverTheyLie) {
    Entries entries = smallJob();
    std::reverse(entries.begin(), entries.end());
    const auto job = open(entries);
    EXPECT_EQ(greysOf(*job), kGreys);
    EXPECT_TRUE(job->settings().assumptions.empty());

    // a folder
    for (const Entry& entry : entries) writeBelow("unpacked/" + entry.name, entry.bytes);
    EXPECT_EQ(greysOf(*openJob(path("unpacked"))), kGreys);

    // the only folder of an archive, hidden files passed over
    for (Entry& entry : entries) entry.name = "Größe/" + entry.name;
    entries.push_back({"Größe/.part00003.png", {}});
    entries.push_back({"__MACOSX/Größe/part00003.png", {}});
    EXPECT_EQ(greysOf(*open(entries)), kGreys);
}

TEST_F(Job, GoesOnWithoutTheIniFilesAndSaysWhatItAssumed) {
    const auto job = open(without("prusaslicer.ini", without("config.ini", smallJob())));
    EXPECT_EQ(greysOf(*job), kGreys);
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
    const auto withScreen = [](const std::string& orientation) {
        return with(
            text("prusaslicer.ini",
                 "display_width = 1\ndisplay_height = 1\ndisplay_pixels_x = 3\ndisplay_pixels_y = 2\n" + orientation),
            smallJob());
    };
    EXPECT_EQ(open(withScreen("display_orientation = portrait\n"))->width(), 2);
    const auto job = open(withScreen(""));
    EXPECT_EQ(job->settings().displayOrientation, DisplayOrientation::kPortrait);
    EXPECT_EQ(job->settings().assumptions,
              std::vector<std::string>{
                  "prusaslicer.ini does not give display_orientation: portrait is taken, by the layers' size."});
    EXPECT_EQ(failure(withScreen("display_orientation = landscape\n")),
              "part00000.png: is 2 x 3 pixels, but prusaslicer.ini gives 3 x 2 (landscape); slice the model again for "
              "the right printer");
}

TEST_F(Job, HasTheThreeLargestThumbnailsSmallestFirst) {
    Entries entries = smallJob();
    for (const unsigned side : {40, 4, 8, 12})
        entries.push_back({"thumbnail/thumbnail" + std::to_string(side) + "x2.png", flatPng(side, 2, 5)});
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

TEST_F(Job, IsRefusedWhereLayersAreMissingOrTooMany) {
    const auto with1 = [](const std::string& name, const Bytes& png) { return with({name, png}, smallJob()); };
    const std::string missing = ": this layer is missing";
    const std::string wanted = ": config.ini gives 3 layers (numSlow 1 + numFast 2), the job holds ";
    const std::pair<Entries, std::string> cases[] = {
        {without("part00001.png", smallJob()), "part00001.png" + missing + ", though part00002.png is there"},
        {without("part00000.png", smallJob()), "part00000.png" + missing + ", though part00001.png is there"},
        {without("part00002.png", smallJob()), "part00002.png" + missing + wanted + "2"},
        {with1("part99999999999999999999.png", {}),
         "part00003.png" + missing + ", though part99999999999999999999.png is there"},
        {with1("part00003.png", flatPng(2, 3, 1)), "part00003.png: this layer is one too many" + wanted + "4"},
        {with1("part000001.png", flatPng(2, 3, 1)), "part000001.png: is layer 1, and so is part00001.png"},
        {{{"a00000.png", flatPng(1, 1, 1)}, {"b00001.png", flatPng(1, 1, 1)}},
         "b00001.png: belongs to another job than a00000.png, and no jobDir in config.ini says which one to take"},
        {{smallJob()[0], smallJob()[1]}, "holds no layers: nothing in it is named like part00000.png"},
        {{text("readme.txt", "hello")}, "holds no layers: nothing in it is named like job00000.png"},
        {with1("part00001.png", {}), "part00001.png: is empty, the layer is lost"},
        {with1("part00001.png", flatPng(3, 2, 1)),
         "part00001.png: is 3 x 2 pixels, but part00000.png is 2 x 3; all layers have to be of the screen's size"},
    };
    for (const auto& [entries, message] : cases) EXPECT_EQ(failure(entries), message + kAgain);
    EXPECT_EQ(failure({text("readme.txt", "hello")}, "job.zip"),
              "holds no layers: neither config.ini nor a PNG image is in it");
    EXPECT_EQ(failure(with1("part00001.png", pngOf({headerChunk(2, 3, 16), chunk("IDAT", zlibStored(Bytes(60)))}))),
              "part00001.png: is a PNG of 16-bit grey; layers have to be 8-bit grey: export them again as such");
    EXPECT_EQ(failure({text("config.ini", std::string((1 << 20) + 1, '#'))}),
              "config.ini: has 1048577 bytes; settings of more than 1048576 are refused");
}

// ---- plain PNG layers

TEST_F(Job, OfPlainLayersIsOrderedNaturally) {
    const Entries entries = {{"Layer10.PNG", flatPng(1, 1, 4)},
                             {"Layer9.png", flatPng(1, 1, 3)},
                             {"Layer2.png", flatPng(1, 1, 2)},
                             {"Layer01.png", flatPng(1, 1, 1)},
                             text("notes.txt", ""),
                             {"drafts/Layer0.png", flatPng(1, 1, 0)}};
    const auto job = open(entries, "layers.zip");
    EXPECT_EQ(greysOf(*job), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(job->settings().assumptions,
              (std::vector<std::string>{
                  "The layers' numbers have gaps (Layer9.png comes behind Layer2.png): the layers are taken as if "
                  "they had none.",
                  "Plain PNG layers have no settings: exposure, layer height and the screen's size in millimetres "
                  "are not known."}));
    for (const Entry& entry : entries) writeBelow("layers/" + entry.name, entry.bytes);
    EXPECT_EQ(greysOf(*openJob(path("layers"))), (std::vector<int>{1, 2, 3, 4}));
}

// ---- archives

TEST_F(Job, IsRefusedWhereTheArchiveCannotBeTrue) {
    const auto entry = [](std::uint64_t size, std::uint64_t packedSize, std::uint16_t method, std::uint16_t flags = 0,
                          std::uint32_t wrongCrc = 0) {
        RawEntry raw = RawEntry::stored("1.png", flatPng(1, 1, 50));
        raw = {raw.name, raw.packed, size, packedSize, raw.crc ^ wrongCrc, method, flags};
        return rawZip64({raw});
    };
    const std::uint64_t size = flatPng(1, 1, 50).size();
    const std::string all = std::to_string(entry(0, 0, 0).size());
    const std::pair<Bytes, std::string> cases[] = {
        {entry(1'000'000, size, ZIP_CM_DEFLATE),
         "claims to unpack to 1000000 bytes, which its 70 bytes cannot hold" + kCopyAgain},
        {entry(10'000'000'000, size, ZIP_CM_DEFLATE),
         "claims 10000000000 bytes; entries of more than 1073741824 bytes are refused"},
        {entry(1'000'000, 1'000'000, ZIP_CM_DEFLATE),
         "claims 1000000 bytes of an archive of " + all + " bytes" + kCopyAgain},
        {entry(size, size, 0, 0, 1), "is damaged: its CRC does not match" + kCopyAgain},
        {entry(size - 1, size, 0), "claims to unpack to 69 bytes, which its 70 bytes cannot hold" + kCopyAgain},
        {entry(size, size, 0, 1), "is encrypted; make the archive again without a password"},
        {entry(size, size, ZIP_CM_BZIP2), "is packed with bzip2; make the archive again with deflate"},
        {entry(size, size, 93), "is packed with zstd; make the archive again with deflate"},
        {entry(size, size, 77), "is packed with method 77; make the archive again with deflate"},
    };
    for (const auto& [zip, message] : cases) EXPECT_EQ(failureOfFile(writeBelow("raw.zip", zip)), "1.png: " + message);
    EXPECT_EQ(failureOfFile(writeBelow("job.sl1", Bytes().raw("this is not an archive of any kind"))),
              "is not a zip archive that can be read (Not a zip archive); a job is an .sl1 archive, "
              "or a zip or a folder of PNG layers");
    EXPECT_EQ(failureOfFile(path("none.sl1")), "cannot be opened: No such file or directory");
    EXPECT_NE(failureOfFile(writeBelow("empty.sl1", {})), "");
}
