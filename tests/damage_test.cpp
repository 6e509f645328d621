// Damage to sound files of every kind: cut anywhere, any byte changed, the trailer repaired or not, one byte in a
// hundred changed at random. No reader crashes, and `verify` tells of what a file does not say of itself.
//
// With VNDLP_FULL_SWEEP in the environment every length and every value is tried, else a sample of them.

#include "support/bytes.h"
#include "support/every_kind.h"
#include "support/files.h"
#include "support/memory_file.h"
#include "support/png.h"

#include <vndlp/slice_file.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <random>
#include <set>

namespace vndlp::test {

void PrintTo(const FileKind& kind, std::ostream* out) { *out << kind.name; }

namespace {

/// Bytes of a file that belong together.
struct Section {
    long long offset;
    long long size;
};

const bool kFull = std::getenv("VNDLP_FULL_SWEEP") != nullptr;

/// Whether `verify` tells of anything.
bool isReported(const std::string& path) {
    SliceFile file;
    std::uint64_t errors = 0;
    return !file.open(path).isOk() || !file.verify(nullptr, nullptr, errors).isOk() || errors > 0;
}

/// Every layer through the model; false where one cannot be read.
bool isReadable(const std::string& path) {
    SliceFile file;
    if (!file.open(path).isOk()) return false;
    const SliceInfo& info = file.info();
    const std::int64_t pixels = std::int64_t{info.width} * info.height;
    std::vector<unsigned char> image(static_cast<std::size_t>(pixels < 1 << 20 ? pixels : 0));
    SliceShapes shapes;
    for (std::uint32_t i = 0; i < info.layers; ++i) {
        const bool isImage = info.layerKind == SliceLayers::images;
        if (!isImage && !file.layerShapes(i, shapes).isOk()) return false;
        if (isImage && !image.empty() && !file.layerPixels(i, image.data(), 0, image.size()).isOk()) return false;
    }
    return true;
}

/// Whatever kind of file it is, through every reader of the library.
void readAll(const std::string& path) {
    VndlpRead vendor;
    vendor.readDlpFile(path, false, true);
    if (vendor.openDlpFile(path, false) == 0 && vendor.readDlpStructure(false) == 0) {
        std::vector<std::vector<Vec3i>> paths;
        trimesh::TriMesh mesh;
        DlpImageParam image;
        unsigned int area = 0;
        const long long layers = vendor.currentPosition();
        vendor.readDlpImageParam(image);
        while (vendor.readLayerPath(paths, &area, false) >= 0) {
        }
        vendor.openDlpFile(path, false);
        vendor.seek(layers);
        while (vendor.readLayerMesh(mesh, &area, false) >= 0) {
        }
    }
    CTB::CTBRead ctb;
    if (ctb.openDlpFile(path, false) == 0) {
        ctb.parseFile(false);
        for (const CTB::PreView* preView : ctb.preViews()) delete preView;
        for (const CTB::LayerDef* layer : ctb.layerDef(true)) delete layer;
        for (const CTB::LayerDefEx* layer : ctb.layerDefEx()) delete layer;
        ctb.slicerInfo();
    }
    VNDLPV4::VNDLPV4Read v4;
    if (v4.openDlpFile(path, false) == 0) v4.parseFile();
}

/// A sound file.
struct Sample {
    Bytes bytes;
    SliceTrailer trailer;

    bool hasTrailer() const { return trailer.kind != SliceTrailerKind::none; }
    std::vector<Section> pictures;

    bool isInPictures(std::size_t offset) const {
        const auto at = static_cast<long long>(offset);
        return std::any_of(pictures.begin(), pictures.end(), [at](const Section& picture) {
            return picture.size > 10000 && at >= picture.offset && at < picture.offset + picture.size;
        });
    }
};

/// The lengths to cut a file to: every one near its ends and some between.
std::vector<std::size_t> lengthsOf(const Sample& sample) {
    const std::size_t size = sample.bytes.size();
    const std::size_t edge = kFull ? 65536 : 400;
    const std::size_t between = size / (kFull ? 2000 : 20) + 1;
    std::vector<std::size_t> lengths;
    for (std::size_t length = 0; length < size;) {
        lengths.push_back(length);
        const bool isNearEdge = length < edge || length + edge >= size;
        length = isNearEdge ? length + 1 : std::min(length + between, size - edge);
    }
    return lengths;
}

/// The bytes to change: all that are not of a picture, and some of those.
std::vector<std::size_t> offsetsOf(const Sample& sample) {
    std::vector<std::size_t> offsets;
    for (std::size_t offset = 0; offset < sample.bytes.size(); ++offset) {
        const std::size_t step = kFull ? 997 : 20011;
        if (!sample.isInPictures(offset) || offset % step == 0) offsets.push_back(offset);
    }
    return offsets;
}

/// \param isHead every value is tried in full.
std::set<int> valuesFor(std::size_t offset, unsigned char sound, bool isHead) {
    const int masks[] = {0x01, 0x80, 0xFF, sound, 0x10, 0x02, 0x40, sound ^ 0xFF};
    // a sample is one of them, in turn
    if (!kFull) {
        const int value = sound ^ masks[offset % std::size(masks)];
        return value == sound ? std::set<int>{} : std::set<int>{value};
    }
    std::set<int> values;
    for (int value = 0; isHead && value < 256; ++value) values.insert(value);
    for (const int mask : masks) values.insert(sound ^ mask);
    values.erase(sound);
    return values;
}

class Damage : public FileTest, public ::testing::WithParamInterface<FileKind> {
protected:
    Damage() {
        const Printed printed;
        const std::string sound = path("sound" + GetParam().ending);
        EXPECT_EQ(GetParam().write(sound), 0);
        SliceFile file;
        EXPECT_TRUE(file.open(sound).isOk());
        m_sample = {readFile(sound), {}, {}};
        EXPECT_TRUE(file.trailer(m_sample.trailer).isOk());
        SlicePreviewInfo picture;
        for (std::uint32_t i = 0; file.previewInfo(i, picture).isOk(); ++i) {
            m_sample.pictures.push_back({picture.offset, picture.bytes});
        }
        SliceRawField field;
        for (std::uint64_t i = 0; file.raw(i, field).isOk(); ++i) {
            const bool isCopied = field.name.rfind("AreaTable.", 0) == 0 || field.name.rfind("LayerDefEx.", 0) == 0;
            if (isCopied || field.name == "Tail.magic") addTelling({field.offset, field.bytes});
        }
        SliceLayerFacts facts;
        EXPECT_TRUE(file.layerFacts(0, facts).isOk());
        m_layers = static_cast<std::size_t>(facts.offset);
        if (GetParam().ending == ".vndlpv4") {
            // where previews, table and layers are, and their number; then the offsets of both parameter records
            for (const Section& place : {Section{50, 16}, {74, 4}, {94, 4}}) addTelling(place);
        } else {
            // a layer's area, where it has one, and count, and the tag at its end
            const bool hasAreas = file.raw("AreaTable.0.area", field).isOk();
            for (std::uint32_t i = 0; i < file.info().layers && GetParam().ending != ".ctb"; ++i) {
                EXPECT_TRUE(file.layerFacts(i, facts).isOk());
                addTelling({facts.offset, hasAreas ? 8 : 4});
                addTelling({facts.offset + facts.bytes - 2, 2});
            }
        }
        m_file.set(m_sample.bytes);
    }

    /// The file with one byte changed, and the trailer made right again where asked for.
    void change(std::size_t offset, unsigned char value, bool repaired) {
        m_file.put(offset, {value});
        if (!repaired) return;
        const std::size_t sealed = m_sample.bytes.size() - 4;
        m_file.truncate(sealed);
        CheckSum& sum = CheckSum::instance();
        const std::string path = m_file.path();
        m_sample.trailer.kind == SliceTrailerKind::xorSum ? sum.appendFileSumXor(path.c_str())
                                                          : sum.appendFileSumCrc32(path.c_str());
    }

    /// Tries changes everywhere. \param check takes the offset and whether `verify` told of it.
    template <class Check>
    void changeEveryByte(bool repaired, Check&& check) {
        const std::size_t end = m_sample.bytes.size() - (repaired ? 4 : 0);
        for (const std::size_t offset : offsetsOf(m_sample)) {
            if (offset >= end) break;
            const bool isHead = offset < m_layers && !m_sample.isInPictures(offset);
            const Printed printed;
            for (const int value : valuesFor(offset, m_sample.bytes[offset], isHead)) {
                change(offset, static_cast<unsigned char>(value), repaired);
                const bool reported = isReported(m_file.path());
                check(offset, reported);
                // what is found sound can be read
                EXPECT_TRUE(reported || isReadable(m_file.path())) << "byte " << offset << " as " << value;
                if (!kFull || value % 16 == 0) readAll(m_file.path());
                if (HasFailure()) return;
            }
            m_file.put(offset, {m_sample.bytes[offset]});
        }
    }

    bool isTelling(std::size_t offset) const { return m_telling.count(offset) != 0; }

    Sample m_sample;
    MemoryFile m_file;

private:
    void addTelling(const Section& section) {
        for (long long i = 0; i < section.size; ++i) m_telling.insert(static_cast<std::size_t>(section.offset + i));
    }

    std::size_t m_layers = 0;         // where the layers begin
    std::set<std::size_t> m_telling;  // bytes that something else in the file contradicts when they change
};

TEST_P(Damage, SoundFilesAreFoundSound) {
    const Printed printed;
    EXPECT_FALSE(isReported(m_file.path()));
    EXPECT_TRUE(isReadable(m_file.path()));
}

TEST_P(Damage, EveryCutAndAddedByteIsReported) {
    std::vector<std::size_t> lengths = lengthsOf(m_sample);
    std::reverse(lengths.begin(), lengths.end());
    for (const std::size_t length : lengths) {
        const Printed printed;
        m_file.truncate(length);
        ASSERT_TRUE(isReported(m_file.path())) << "cut to " << length;
        readAll(m_file.path());
    }
    for (const std::size_t count : {1u, 3u, 4u, 5u, 100u}) {
        for (const unsigned value : {0u, 13u}) {
            const Printed printed;
            m_file.set(Bytes(m_sample.bytes).fill(count, value));
            EXPECT_TRUE(isReported(m_file.path())) << count << " bytes of " << value;
            readAll(m_file.path());
        }
    }
}

TEST_P(Damage, NoChangedByteIsAcceptedUnderATrailer) {
    changeEveryByte(false, [&](std::size_t offset, bool reported) {
        EXPECT_TRUE(reported || !m_sample.hasTrailer()) << "byte " << offset;
    });
}

TEST_P(Damage, BehindARepairedTrailerWhatTheFileContradictsIsReported) {
    if (!m_sample.hasTrailer()) return;
    changeEveryByte(true, [&](std::size_t offset, bool reported) {
        EXPECT_TRUE(reported || !isTelling(offset)) << "byte " << offset;
    });
}

TEST_P(Damage, OneByteInAHundredAtRandom) {
    const int variants = kFull ? 1000 : 20;
    for (unsigned seed = 1; seed <= static_cast<unsigned>(variants); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const Printed printed;
        std::mt19937 random(seed);
        Bytes bytes = m_sample.bytes;
        // half of the variants leave the pictures alone, so that what follows them is reached
        for (std::size_t i = 0; i < bytes.size() / 100 + 1; ++i) {
            const std::size_t offset = random() % bytes.size();
            if (seed % 2 == 0 && m_sample.isInPictures(offset)) continue;
            bytes[offset] = static_cast<unsigned char>(random());
        }
        m_file.set(bytes);
        const bool reported = isReported(m_file.path());
        ASSERT_TRUE(reported || !m_sample.hasTrailer() || bytes == m_sample.bytes);
        ASSERT_TRUE(reported || isReadable(m_file.path()));
        readAll(m_file.path());
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKind, Damage, ::testing::ValuesIn(everyKind()),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace vndlp::test
