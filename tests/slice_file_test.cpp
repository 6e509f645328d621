/// The model of a slice file, read from the golden files of every kind: what the pages of the formats say stands where,
/// what the table of settings says it means, what damage does to it.

#include "support/golden.h"

#include <vndlp/slice_file.h>
#include <vndlp/vndlp.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <thread>

namespace vndlp {
namespace {

using test::Bytes;
using test::golden;
using test::Golden;
using test::GoldenField;

const char* const kKinds[] = {"v1",        "v2_version2",  "v2_version3",  "v3",       "line_paths",
                              "line_mesh", "ctb_version2", "ctb_version3", "v4_plain", "v4_beads"};

/// A file in memory, opened.
struct Opened {
    explicit Opened(Bytes given) : bytes(std::move(given)) { result = file.openMemory(bytes.data(), bytes.size()); }
    Bytes bytes;
    SliceResult result;
    SliceFile file;
};

std::vector<SliceRawField> rawFields(const SliceFile& file) {
    std::vector<SliceRawField> all;
    for (SliceRawField field; file.raw(all.size(), field).isOk();) all.push_back(field);
    return all;
}

std::vector<SliceFinding> findingsOf(const SliceFile& file) {
    std::vector<SliceFinding> all;
    std::uint64_t errors = 0;
    const auto keep = [](void* list, const SliceFinding& finding) {
        static_cast<std::vector<SliceFinding>*>(list)->push_back(finding);
        return 0;
    };
    EXPECT_TRUE(file.verify(keep, &all, errors).isOk());
    const auto isError = [](const SliceFinding& finding) { return finding.severity == SliceSeverity::error; };
    EXPECT_EQ(static_cast<std::ptrdiff_t>(errors), std::count_if(all.begin(), all.end(), isError));
    return all;
}

class EveryKind : public ::testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Kinds, EveryKind, ::testing::ValuesIn(kKinds));

/// What golden files give a value but is no field of a record.
const std::set<std::string> kData = {"imageData", "data", "run", "points", "point", "polyline", "vertex", "vertices"};

// a field that the model does not know, knows at a wrong place or takes apart wrongly
TEST_P(EveryKind, EveryFieldIsWhereTheGoldenFileHasIt) {
    const Golden file = golden(GetParam());
    const Opened opened(file.bytes);
    ASSERT_TRUE(opened.result.isOk());
    std::map<std::int64_t, SliceRawField> byOffset;
    for (const SliceRawField& raw : rawFields(opened.file)) {
        byOffset[raw.offset] = raw;
        SliceRawField named;
        EXPECT_TRUE(opened.file.raw(raw.name, named).isOk()) << raw.name;
        EXPECT_EQ(named.offset, raw.offset) << raw.name;
    }
    std::size_t found = 0;
    for (const test::GoldenSection& section : file.sections) {
        for (const GoldenField& field : section.fields) {
            if (field.value.empty() || kData.count(field.name) != 0 ||
                field.name.find("Preview") != std::string::npos) {
                continue;
            }
            if (field.name == "areas") {
                std::int64_t place = static_cast<std::int64_t>(field.offset);
                for (const double area : test::numbersOf(field.value)) {
                    EXPECT_EQ(byOffset[place].number, area) << byOffset[place].name;
                    place += kAreaBytes;
                }
                continue;
            }
            const auto at = byOffset.find(static_cast<std::int64_t>(field.offset));
            if (at == byOffset.end()) {
                ADD_FAILURE() << section.name << ": " << field.name << " at " << field.offset;
                continue;
            }
            const SliceRawField& raw = at->second;
            ++found;
            EXPECT_EQ(raw.name.substr(raw.name.rfind('.') + 1), field.name) << section.name;
            if (field.value[0] == '"') {
                EXPECT_EQ('"' + raw.text + '"', field.value) << raw.name;
            } else if (raw.type == SliceValueType::number) {
                EXPECT_EQ(raw.number, std::stod(field.value)) << raw.name;
            } else if (raw.type == SliceValueType::integer) {
                EXPECT_EQ(std::to_string(raw.integer), field.value) << raw.name;
            }
            EXPECT_EQ(raw.isFixed, field.given != field.value || raw.isFixed) << raw.name;
        }
    }
    EXPECT_GT(found, 12u);
    EXPECT_TRUE(findingsOf(opened.file).empty());
}

/// Rows of the tables of docs/settings.md, cells without quotes.
std::vector<std::vector<std::string>> settingsPage() {
    std::vector<std::vector<std::string>> rows;
    std::ifstream page(VNDLP_SETTINGS_PAGE);
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| `", 0) != 0) continue;
        std::vector<std::string> cells;
        for (std::size_t at = 1, bar; (bar = line.find('|', at)) != std::string::npos; at = bar + 1) {
            std::string cell = line.substr(at + 1, bar - at - 2);
            cell.erase(std::remove(cell.begin(), cell.end(), '`'), cell.end());
            cells.push_back(cell == "-" ? "" : cell);
        }
        rows.push_back(cells);
    }
    return rows;
}

/// Puts a whole number into a field's bytes.
void store(Bytes& bytes, const SliceRawField& field, bool isBigEndian, int value) {
    std::uint32_t word = static_cast<std::uint32_t>(value);
    const auto real = static_cast<float>(value);
    if (field.type == SliceValueType::number) std::memcpy(&word, &real, sizeof word);
    for (std::int64_t i = 0; i < field.bytes; ++i) {
        const std::int64_t shift = 8 * (isBigEndian ? field.bytes - 1 - i : i);
        bytes[static_cast<std::size_t>(field.offset + i)] = static_cast<unsigned char>(word >> shift);
    }
}

std::map<std::string, double> numbersOf(const SliceFile& file, std::int64_t layer) {
    std::map<std::string, double> all;
    for (std::size_t i = 0; sliceKey(i) != nullptr; ++i) {
        double value = 0;
        if (file.number(sliceKey(i)->name, layer, value).isOk()) all[sliceKey(i)->name] = value;
    }
    return all;
}

/// Changes the member that the page names, which must change this setting and no other.
void expectMemberHolds(const char* kind, const std::string& key, const std::string& cell, std::int64_t layer) {
    const Opened before(golden(kind).bytes);
    const SliceFormat format = before.file.info().format;
    std::string member = cell.substr(0, cell.find_first_of(" ,"));
    const char* const header = format == SliceFormat::vnline ? "DlpV2LineHeader" : "DlpV2Header";
    if (member.rfind("DlpHeader", 0) == 0) member.replace(0, 9, header);
    if (layer >= 0) member.insert(member.find('.'), "." + std::to_string(layer));
    SliceRawField raw;
    ASSERT_TRUE(before.file.raw(member, raw).isOk()) << kind << " " << key << " " << member;
    if (raw.type == SliceValueType::text) {
        std::string text;
        double number = 0;
        if (cell.find("(text)") == std::string::npos) {
            EXPECT_TRUE(before.file.text(key, text).isOk() && text == raw.text) << kind << " " << key;
        } else {
            EXPECT_TRUE(before.file.number(key, layer, number).isOk() && number == std::stod(raw.text)) << key;
        }
        return;
    }
    constexpr int value = 113;
    Bytes bytes = before.bytes;
    store(bytes, raw, format == SliceFormat::vndlp || format == SliceFormat::vnline, value);
    const Opened after(bytes);
    if (cell.find("(four bytes)") != std::string::npos) {
        std::string text;
        EXPECT_TRUE(after.file.text(key, text).isOk());
        EXPECT_EQ(text, "0.0.0.113");
        return;
    }
    const std::size_t times = cell.find(" x ");
    double expected = times == std::string::npos ? value : value / std::stod(cell.substr(times + 3));
    if (cell.find("(not 0)") != std::string::npos) expected = 1;
    std::map<std::string, double> was = numbersOf(before.file, layer);
    ASSERT_EQ(was.count(key), 1u) << kind << " " << key;
    was[key] = expected;
    EXPECT_EQ(numbersOf(after.file, layer), was) << kind << " " << key;
}

TEST(SettingsTest, PageAndTableAndFilesAgree) {
    const char* const kinds[] = {"v2_version3", "line_paths", "ctb_version3", "v4_beads"};
    std::size_t keys = 0;
    std::set<std::string> ofLayers;
    for (const std::vector<std::string>& row : settingsPage()) {
        const SliceKey* key = findSliceKey(row.at(0));
        ASSERT_NE(key, nullptr) << row[0];
        EXPECT_EQ(key->unit, row[1]) << row[0];
        if (row.size() == 3) {
            ofLayers.insert(row[0]);
            EXPECT_EQ(key->layerFormats, 0x18u) << row[0];
            for (const char* kind : {"ctb_version3", "v4_beads"}) expectMemberHolds(kind, row[0], row[2], 1);
            continue;
        }
        EXPECT_EQ(sliceKey(keys++), key) << "the order of the page";
        unsigned formats = 0;
        unsigned fixed = 0;
        for (unsigned i = 0; i < 4; ++i) {
            const std::string& cell = row.at(i + 2);
            const bool isFixed = cell.rfind("fixed: ", 0) == 0;
            if (!cell.empty()) (isFixed ? fixed : formats) |= 2u << i;
            if (!cell.empty() && !isFixed) expectMemberHolds(kinds[i], row[0], cell, -1);
            SliceRawField raw;
            const Opened opened(golden(kinds[i]).bytes);
            EXPECT_TRUE(!isFixed || (opened.file.raw(cell.substr(7), raw).isOk() && raw.isFixed)) << cell;
            double value = 0;
            const bool isNone = opened.file.number(row[0], -1, value).code == SliceCode::key;
            EXPECT_TRUE(isNone || (!cell.empty() && !isFixed)) << row[0];
        }
        EXPECT_EQ(key->formats, formats) << row[0];
        EXPECT_EQ(key->fixedFormats, fixed) << row[0];
    }
    EXPECT_EQ(sliceKey(keys), nullptr);
    for (std::size_t i = 0; i < keys; ++i) {
        EXPECT_EQ(sliceKey(i)->layerFormats != 0, ofLayers.count(sliceKey(i)->name) == 1) << sliceKey(i)->name;
    }
}

/// Blocks of greys with single pixels in between; rows and columns whose runs begin, end and touch at edges.
std::vector<unsigned char> patchwork(unsigned width, unsigned height, unsigned seed) {
    std::vector<unsigned char> pixels(std::size_t{width} * height);
    for (unsigned y = 0; y < height; ++y) {
        for (unsigned x = 0; x < width; ++x) {
            const unsigned block = (x / 7 + seed) * 5 + y / 5 * 3;
            const unsigned grey = block % 4 == 0 ? 0 : block % 4 == 1 ? 255 : (block * 37) % 256;
            const bool isSpeck = (x * 31 + y * 17 + seed) % 23 == 0;
            pixels[std::size_t{y} * width + x] = static_cast<unsigned char>(isSpeck ? 255 - grey : grey);
        }
    }
    return pixels;
}

std::string writeImages(const std::string& path, unsigned width, unsigned height, unsigned layers) {
    const std::unique_ptr<DLPWriter> writer(createDLPWriter(path));
    writer->filePath = path;
    writer->layerCount = static_cast<int>(layers);
    writer->resolutionX = width;
    writer->resolutionY = height;
    writer->bedSizeX = 60;
    writer->bedSizeY = 30;
    writer->machineType = writer->machineName = "M";
    DlpParameters& parameters = writer->fileStructure.parameters;
    parameters.platformX = "60";
    parameters.platformY = "30";
    parameters.thickness = "0.05";
    std::vector<SliceImage> previews(3,
                                     SliceImage{12, 2, 2, std::shared_ptr<unsigned char[]>(new unsigned char[12]())});
    writer->openFile();
    writer->writeHeader(previews);
    for (unsigned i = 0; i < layers; ++i) {
        const std::vector<unsigned char> pixels = patchwork(width, height, i);
        SliceImage image{static_cast<unsigned>(pixels.size()), width, height,
                         std::shared_ptr<unsigned char[]>(new unsigned char[pixels.size()])};
        std::copy(pixels.begin(), pixels.end(), image.pixels.get());
        writer->addLayerImage(i, image, 2e6, 1);
    }
    EXPECT_GE(writer->finish(), 0);
    return path;
}

class ImageLayers : public test::FileTest, public ::testing::WithParamInterface<const char*> {
protected:
    static constexpr unsigned kWidth = 100;
    static constexpr unsigned kHeight = 43;
    static constexpr unsigned kLayers = 6;

    void SetUp() override { ASSERT_TRUE(m_file.open(writeImages(path(GetParam()), kWidth, kHeight, kLayers)).isOk()); }

    /// What the format keeps of a layer.
    std::vector<unsigned char> expected(unsigned layer) const {
        std::vector<unsigned char> pixels = patchwork(kWidth, kHeight, layer);
        const bool isVendor = m_file.info().format == SliceFormat::vndlp;
        for (unsigned char& p : pixels) {
            p = static_cast<unsigned char>(isVendor ? (p > kLitThreshold ? p : 0) : p > 1 ? p | 1 : 0);
        }
        return pixels;
    }

    SliceFile m_file;
};
INSTANTIATE_TEST_SUITE_P(Formats, ImageLayers, ::testing::Values("a.vndlp", "a.ctb", "a.vndlpv4"));

// pixels, rows, runs, lit stretches and counts are five ways through the same data
TEST_P(ImageLayers, EveryFormOfALayerTellsTheSameImage) {
    for (unsigned layer = 0; layer < kLayers; ++layer) {
        const std::vector<unsigned char> image = expected(layer);
        constexpr std::size_t stride = kWidth + 3;
        for (const std::size_t step : {std::size_t{0}, stride}) {
            std::vector<unsigned char> pixels((kHeight - 1) * (step == 0 ? kWidth : step) + kWidth, 77);
            ASSERT_TRUE(m_file.layerPixels(layer, pixels.data(), step, pixels.size()).isOk());
            for (unsigned y = 0; y < kHeight; ++y) {
                const unsigned char* row = pixels.data() + y * (step == 0 ? kWidth : step);
                EXPECT_TRUE(std::equal(row, row + kWidth, image.data() + y * kWidth)) << layer << " row " << y;
                EXPECT_TRUE(step == 0 || y + 1 == kHeight || row[kWidth] == 77);
            }
            EXPECT_EQ(m_file.layerPixels(layer, pixels.data(), step, pixels.size() - 1).code, SliceCode::size);
        }
        std::vector<unsigned char> rows;
        const auto addRow = [](void* to, std::uint32_t y, const unsigned char* row) {
            auto& all = *static_cast<std::vector<unsigned char>*>(to);
            EXPECT_EQ(all.size(), y * kWidth);
            all.insert(all.end(), row, row + kWidth);
            return 0;
        };
        ASSERT_TRUE(m_file.layerRows(layer, addRow, &rows).isOk());
        EXPECT_EQ(rows, image);

        std::vector<unsigned char> packed;
        grayDataPackedRuns(image.data(), kWidth, kHeight, packed);
        std::uint64_t count = 0;
        ASSERT_TRUE(m_file.layerRuns(layer, nullptr, 0, count).isOk());
        ASSERT_EQ(count, packed.size() / kPackedRunBytes);
        std::vector<SliceRun> runs(count);
        ASSERT_TRUE(m_file.layerRuns(layer, runs.data(), runs.size(), count).isOk());
        for (std::size_t i = 0; i < runs.size(); ++i) {
            WhiteData run;
            bits2WhiteData(packed.data() + i * kPackedRunBytes, run);
            EXPECT_TRUE(runs[i].column == run.start.x && runs[i].firstRow == run.start.y &&
                        runs[i].lastRow == run.end.y && runs[i].grey == run.grey && runs[i].reserved == 0)
                << layer << " run " << i;
        }
        for (const int threshold : {15, 128}) {
            struct Painted {
                bool areColumns;
                std::vector<unsigned char> pixels;
            } painted{m_file.litAxis() == SliceAxis::columns, std::vector<unsigned char>(image.size())};
            const auto paint = [](void* to, const LitRun* lit, std::size_t n) {
                auto& p = *static_cast<Painted*>(to);
                for (const LitRun* run = lit; run < lit + n; ++run) {
                    for (std::uint32_t i = run->first; i <= run->last; ++i) {
                        p.pixels[p.areColumns ? i * kWidth + run->line : run->line * kWidth + i] += 1;
                    }
                }
                return 0;
            };
            ASSERT_TRUE(m_file.layerLit(layer, threshold, paint, &painted).isOk());
            for (std::size_t i = 0; i < image.size(); ++i) EXPECT_EQ(painted.pixels[i], image[i] > threshold ? 1 : 0);
        }
        SliceLayerFacts facts;
        ASSERT_TRUE(m_file.layerFacts(layer, facts).isOk());
        const auto lit = std::count_if(image.begin(), image.end(), [](unsigned char p) { return p > kLitThreshold; });
        EXPECT_EQ(facts.litPixels, lit);
        EXPECT_EQ(facts.runs, static_cast<std::int64_t>(runs.size()));
        EXPECT_FLOAT_EQ(static_cast<float>(facts.zMm), 0.05F * static_cast<float>(layer + 1));
        const bool isStored = m_file.info().format != SliceFormat::ctb;
        EXPECT_NEAR(facts.areaMm2, isStored ? 2.0 : static_cast<double>(lit) * 0.6 * 30 / 43, 1e-9);
    }
}

// one open file, read by several threads, each of which must see what one alone sees
TEST_P(ImageLayers, ThreadsReadTheSameLayers) {
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            std::vector<unsigned char> pixels(std::size_t{kWidth} * kHeight);
            for (unsigned i = 0; i < 60; ++i) {
                const unsigned layer = (i + t) % kLayers;
                SliceLayerFacts facts;
                EXPECT_TRUE(m_file.layerPixels(layer, pixels.data(), 0, pixels.size()).isOk());
                EXPECT_TRUE(pixels == expected(layer) && m_file.layerFacts(layer, facts).isOk());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(SliceFileTest, LinesAreShapesAndBeadsAreMasks) {
    const Opened paths(golden("line_paths").bytes);
    const Opened mesh(golden("line_mesh").bytes);
    const Opened beads(golden("v4_beads").bytes);
    EXPECT_EQ(paths.file.info().layerKind, SliceLayers::paths);
    EXPECT_EQ(mesh.file.info().layerKind, SliceLayers::mesh);
    std::size_t points = 0;
    std::size_t vertices = 0;
    SliceShapes shapes;
    for (std::uint32_t i = 0; i < paths.file.info().layers; ++i) {
        ASSERT_TRUE(paths.file.layerShapes(i, shapes).isOk());
        EXPECT_EQ(shapes.pathEnds.empty() ? 0 : shapes.pathEnds.back(), shapes.points.size() / 2);
        points += shapes.points.size();
    }
    for (std::uint32_t i = 0; i < mesh.file.info().layers; ++i) {
        ASSERT_TRUE(mesh.file.layerShapes(i, shapes).isOk());
        vertices += shapes.vertices.size();
    }
    EXPECT_GT(points, 6u);
    EXPECT_GT(vertices, 3u);
    unsigned char pixel = 0;
    EXPECT_EQ(paths.file.layerPixels(0, &pixel, 0, 1).code, SliceCode::kind);
    EXPECT_EQ(beads.file.layerShapes(0, shapes).code, SliceCode::kind);
    std::vector<unsigned char> mask;
    ASSERT_TRUE(beads.file.layerBeads(0, mask).isOk());
    ASSERT_EQ(mask.size(), VNDLPV4::kPrinterMaskBytes);
    EXPECT_EQ((Bytes(mask.begin(), mask.begin() + 4)), (Bytes{0xE0, 0, 0, 6}));
}

TEST(SliceFileTest, ErrorsAreTold) {
    const Opened ctb(golden("ctb_version3").bytes);
    double value = 0;
    std::string text;
    SliceRawField raw;
    SliceLayerFacts facts;
    const struct {
        SliceResult result;
        SliceCode code;
    } cases[] = {
        {ctb.file.number("nonsense", -1, value), SliceCode::key},
        {ctb.file.number("bottom_pwm", -1, value), SliceCode::key},  // fixed
        {ctb.file.number("machine", -1, value), SliceCode::key},     // a text
        {ctb.file.number("exposure_s", 2, value), SliceCode::index},
        {ctb.file.number("machine_height_mm", 0, value), SliceCode::key},  // of no single layer
        {Opened(golden("ctb_version2").bytes).file.number("lift_mm", 0, value), SliceCode::absent},
        {Opened(golden("v1").bytes).file.text("machine", text), SliceCode::absent},
        {ctb.file.raw("HeaderSettings.nothing", raw), SliceCode::absent},
        {ctb.file.raw("LayerDef.2.positionZ", raw), SliceCode::absent},
        {ctb.file.layerFacts(2, facts), SliceCode::index},
        {SliceFile().layerFacts(0, facts), SliceCode::argument},
        {SliceFile().open("/nowhere/at/all.ctb"), SliceCode::file},
        {Opened(Bytes{1, 2, 3}).result, SliceCode::format},
    };
    for (const auto& each : cases) EXPECT_EQ(each.result.code, each.code) << each.result.text;
    EXPECT_EQ(SliceFile().open("/nowhere/at/all.ctb").systemCode, ENOENT);
}

// what a source cannot read is told as such, not as damage
TEST(SliceFileTest, ASourceMayFail) {
    struct Source {
        Bytes bytes;
        bool fails;
    } source{golden("ctb_version3").bytes, false};
    const auto read = [](void* context, std::int64_t offset, void* to, std::size_t size) -> std::int64_t {
        const auto& from = *static_cast<Source*>(context);
        if (from.fails) return -1;
        std::memcpy(to, from.bytes.data() + offset, size);
        return static_cast<std::int64_t>(size);
    };
    SliceFile file;
    ASSERT_TRUE(file.openSource({&source, static_cast<std::int64_t>(source.bytes.size()), read}).isOk());
    unsigned char pixels[12];
    EXPECT_TRUE(file.layerPixels(0, pixels, 0, sizeof pixels).isOk());
    source.fails = true;
    EXPECT_EQ(file.layerPixels(0, pixels, 0, sizeof pixels).code, SliceCode::file);
}

/// Uses everything; results do not matter.
void useAll(const SliceFile& file) {
    SliceTrailer trailer;
    SliceEstimate estimate;
    SliceHeadState head;
    rawFields(file);
    numbersOf(file, -1);
    EXPECT_TRUE(file.headState(head).isOk());
    file.trailer(trailer);
    file.estimate(estimate);
    for (std::uint32_t i = 0; i < std::min(file.info().layers, 5u); ++i) {
        SliceLayerFacts facts;
        SliceShapes shapes;
        std::vector<unsigned char> mask;
        static std::vector<unsigned char> pixels(std::size_t{1} << 18);
        file.layerFacts(i, facts);
        file.layerShapes(i, shapes);
        file.layerBeads(i, mask);
        file.layerPixels(i, pixels.data(), 0, pixels.size());
        numbersOf(file, i);
    }
    for (std::uint32_t i = 0; i < file.info().previews; ++i) {
        SlicePreviewInfo preview;
        file.previewInfo(i, preview);
    }
}

/// Places in every field of a small file; of a large one in front of the previews and behind them, and a few within.
std::size_t nextPlace(std::size_t at, std::size_t size) {
    return at + (size < 1000 || at < 40 || at + 200 > size ? 3 : at + 4000 > size ? 97 : 60013);
}

// a cut file opens as far as it goes and never passes for a sound one; a changed byte is found where there is a trailer
TEST_P(EveryKind, CutOrChangedAnywhereItIsFound) {
    const Bytes whole = golden(GetParam()).bytes;
    for (std::size_t at = 0; at < whole.size(); at = nextPlace(at, whole.size())) {
        for (const bool isCut : {true, false}) {
            Bytes bytes(whole.begin(), isCut ? whole.begin() + static_cast<std::ptrdiff_t>(at) : whole.end());
            if (!isCut) bytes[at] ^= 0x55;
            const Opened opened(bytes);
            EXPECT_TRUE(opened.result.isOk() || !isCut || at < 18) << at;
            if (!opened.result.isOk()) continue;
            useAll(opened.file);
            SliceTrailer trailer;
            const bool isSealed = opened.file.trailer(trailer).isOk() && trailer.kind != SliceTrailerKind::none;
            EXPECT_TRUE(!findingsOf(opened.file).empty() || !(isCut || isSealed)) << at << (isCut ? " cut" : "");
        }
    }
}

/// Findings as "offset layer text".
std::string told(const SliceFile& file) {
    std::string text;
    for (const SliceFinding& f : findingsOf(file)) {
        text += std::to_string(f.offset) + " " + std::to_string(f.layer) + " " + f.text + "\n";
    }
    return text;
}

TEST(DamageTest, IsToldWithPlaceAndLayer) {
    constexpr std::size_t kBehind = 0;  // appends
    const struct {
        const char* kind;
        std::size_t offset;
        Bytes bytes;
        std::string told;
    } cases[] = {
        {"ctb_version3", 486, {0x7F}, "482 1 its extended record differs from its entry in the layer table\n"},
        {"ctb_version3", 432, {57}, "432 0 its total size is 57, record and data have 86\n"},
        {"ctb_version3", 481, {11}, "480 0 its encoded data make 11 pixels, the screen has 12\n"},
        {"ctb_version3", 570, {0x80}, "571 1 its encoded data end within a run\n"},
        {"ctb_version3", kBehind, {1, 2}, "571 -1 2 bytes are left over behind the last layer\n"},
        {"ctb_version3", 84, {0xFF, 0xFF}, "84 -1 the print parameters at offset 65535 does not lie within the file\n"},
        {"v1", 195205, {0x80}, "195207 0 run 1 (column 3, rows 7 to 7) is not behind the run before it\n"},
        {"v2_version3",
         kBehind,
         {9, 9, 9},
         "363602 -1 3 bytes are left over behind the tail magic\n"
         "363606 -1 the crc32 trailer in front of them matches the file: they were added behind its end\n"},
    };
    for (const auto& each : cases) {
        Bytes bytes = golden(each.kind).bytes;
        if (each.offset == kBehind) {
            bytes.raw(each.bytes);
        } else {
            std::copy(each.bytes.begin(), each.bytes.end(), bytes.begin() + static_cast<std::ptrdiff_t>(each.offset));
        }
        EXPECT_EQ(told(Opened(bytes).file), each.told) << each.kind << " " << each.offset;
    }
    Bytes cut = golden("ctb_version3").bytes;
    cut.resize(500);
    EXPECT_EQ(told(Opened(cut).file),
              "500 -1 the file ends here; layer 1 of 2 is not whole\n"
              "360 1 its data at offset 566 do not lie within the file\n");
}

}  // namespace
}  // namespace vndlp
