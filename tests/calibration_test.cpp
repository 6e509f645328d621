#include <vndlp/calibration.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <unordered_map>

namespace {

using VNDLPV4::BeadDesc;
using VNDLPV4::GeoPoint;
using VNDLPV4::GeoSegment;
using VNDLPV4::LampBeadCal;
using Mask = std::vector<unsigned char>;

struct Config {
    long long scale = 10000, extentX = 2116800, extentY = 1183700;
    unsigned pixelsX = 15120, pixelsY = 6230, columns = 19;
    std::vector<unsigned> beadsPerColumn{29, 28};
    std::vector<float> offsetX{1.7320508F}, offsetY{1.1F};
    long long radius = 47370;
};

void build(LampBeadCal& field, Config config) {
    field.reset();
    field.initLampBeadCal(config.scale, config.extentX, config.extentY, config.pixelsX, config.pixelsY, config.columns,
                          config.beadsPerColumn, config.offsetX, config.offsetY, 6, config.radius, 120, 90);
}

const LampBeadCal& printerField() {
    static const LampBeadCal field = [] {
        LampBeadCal built;
        built.m_printBuild = false;
        VNDLPV4::initPrinterBeadField(built);
        return built;
    }();
    return field;
}

/// The plain form of the field: every triangle of a box is asked for by its key.
class Model {
public:
    explicit Model(const Config& c) : m_config(c) {
        const auto r = static_cast<double>(c.radius);
        const auto base = static_cast<float>(90 * std::acos(-1.0) / 180);
        for (int k = 0; k < 6; ++k) {
            const double angle = base - (k % 3) * 60 * std::acos(-1.0) / 180;
            m_sine[k] = static_cast<std::int64_t>(std::sin(angle) * static_cast<double>(c.scale));
            m_cosine[k] = static_cast<std::int64_t>(std::cos(angle) * static_cast<double>(c.scale));
            print("cos angle is %lld sin angle is %lld\n", m_cosine[k], m_sine[k]);
        }
        m_h = static_cast<std::int64_t>(r * std::sqrt(3.0) / 2);
        for (unsigned column = 0; column < c.columns; ++column) {
            for (unsigned row = 0; row < beadsIn(column); ++row) {
                for (int k = 0; k < 6; ++k) {
                    const auto [x1, y1, x2, y2] = edge(column, row, k);
                    m_least[k] = std::min({m_least[k], project(x1, y1, k), project(x2, y2, k)});
                }
            }
        }
        for (unsigned column = 0; column < c.columns; ++column) {
            for (unsigned row = 0; row < beadsIn(column); ++row) addBead(column, row);
        }
        reset();
    }

    void reset() {
        used.clear();
        seen.clear();
        m_last = 0;
    }

    bool run(std::uint64_t start, std::uint64_t end, Mask& mask) {
        if (end <= m_last) return false;
        const std::uint64_t w = m_config.pixelsX;
        const std::uint64_t s = std::max(start, m_last);
        m_last = end;
        const std::uint64_t sx = s % w;
        const std::uint64_t ex = end % w == 0 ? w : end % w;
        const std::int64_t zoneW = m_config.extentX / m_config.pixelsX;
        const std::int64_t zoneH = m_config.extentY / m_config.pixelsY;
        box(static_cast<std::int64_t>(sx > 5 ? sx - 5 : sx) * zoneW, static_cast<std::int64_t>((s - sx) / w) * zoneH,
            static_cast<std::int64_t>(ex) * zoneW, static_cast<std::int64_t>((end - ex) / w) * zoneH, &mask, nullptr);
        return true;
    }

    /// Marks in `mask`, or lists in `list`.
    bool box(std::int64_t x0, std::int64_t y0, std::int64_t x1, std::int64_t y1, Mask* mask,
             std::vector<unsigned>* list) {
        std::int64_t p[3];
        std::int64_t q[3];
        for (int d = 0; d < 3; ++d) {
            p[d] = (project(x0, y0, d) - m_least[d]) / m_h;
            q[d] = (project(x1, y1, d) - m_least[d]) / m_h;
        }
        const std::uint64_t runKey = combine(combine(0, hash(key(p[0], p[1], p[2]))), hash(key(q[0], q[1], q[2])));
        if (!seen.insert(runKey).second && list != nullptr) return false;
        for (auto a = std::min(p[0], q[0]); a <= std::max(p[0], q[0]); ++a) {
            for (auto b = std::min(p[1], q[1]); b <= std::max(p[1], q[1]); ++b) {
                for (auto c = std::min(p[2], q[2]); c <= std::max(p[2], q[2]); ++c) visit(key(a, b, c), mask, list);
            }
        }
        return true;
    }

    std::string printed = "init\npw 0 ph 0 \n";
    std::unordered_map<std::uint64_t, std::pair<unsigned, unsigned>> cells;
    std::vector<std::array<unsigned, 6>> neighbours;
    std::set<unsigned> used;
    std::set<std::uint64_t> seen;

private:
    static std::uint64_t combine(std::uint64_t seed, std::uint64_t h) {
        return seed ^ ((seed >> 2) + h + (seed << 6) + 0x9e3779b97f4a7c15);
    }
    static std::uint64_t hash(std::uint64_t v) { return (v >> 32) ^ ((v & 0xFFFFFFFF) * 2); }
    static std::uint64_t key(std::int64_t a, std::int64_t b, std::int64_t c) {
        std::uint64_t k = combine(0, hash(static_cast<std::uint64_t>(a)));
        k = combine(k, hash(static_cast<std::uint64_t>(b)));
        return combine(k, hash(static_cast<std::uint64_t>(c)));
    }
    template <class... Values>
    void print(const char* format, Values... values) {
        char line[200];
        std::snprintf(line, sizeof line, format, static_cast<long long>(values)...);
        printed += line;
    }
    unsigned beadsIn(unsigned column) const { return m_config.beadsPerColumn[column % m_config.beadsPerColumn.size()]; }
    std::int64_t project(std::int64_t x, std::int64_t y, int k) const {
        return (x * m_sine[k] + y * m_cosine[k]) / m_config.scale;
    }
    /// x1, y1, x2, y2, after the table of outlines.
    std::array<std::int64_t, 4> edge(unsigned column, unsigned row, int k) const {
        const auto shift = [&](const std::vector<float>& offsets) {
            return static_cast<std::int64_t>(static_cast<float>(m_config.radius) * offsets[column % offsets.size()]);
        };
        const std::int64_t ox = shift(m_config.offsetX);
        const std::int64_t oy = shift(m_config.offsetY);
        const auto y = [&](double t) {
            return static_cast<std::int64_t>((1.5 * column + t) * static_cast<double>(m_config.radius) -
                                             static_cast<double>(oy));
        };
        const std::int64_t h = m_h;
        const bool odd = column % 2 == 1;
        const std::int64_t l = odd ? -ox : -ox - h;
        const std::int64_t m = odd ? h - ox : -ox;
        const std::int64_t r = odd ? 2 * h - ox : h - ox;
        const std::int64_t by = 2 * h * row;
        const std::array<std::int64_t, 4> table[6] = {{l, y(1), l, y(0)}, {l, y(0), m, y(-0.5)}, {m, y(-0.5), r, y(0)},
                                                      {r, y(0), r, y(1)}, {r, y(1), m, y(1.5)},  {m, y(1.5), l, y(1)}};
        return {table[k][0] + by, table[k][1], table[k][2] + by, table[k][3]};
    }
    void addBead(unsigned column, unsigned row) {
        const auto n = static_cast<unsigned>(neighbours.size());
        neighbours.push_back({});
        std::int64_t offset[6];
        for (int k = 0; k < 6; ++k) {
            const auto [x1, y1, x2, y2] = edge(column, row, k);
            offset[k] = (project(x1, y1, k) + project(x2, y2, k)) / 2;
            print("edge is %lld %lld %lld %lld\n", x1, y1, x2, y2);
            std::uint64_t edgeKey = 0;
            for (const auto v : {std::min(x1, x2), std::max(x1, x2), std::min(y1, y2), std::max(y1, y2)})
                edgeKey = combine(edgeKey, hash(static_cast<std::uint64_t>(v)));
            const auto known = m_edges.find(edgeKey);
            if (known == m_edges.end()) {
                m_edges[edgeKey] = {n, k};
                continue;
            }
            const auto [b, e] = known->second;
            neighbours[b][static_cast<std::size_t>(e)] = n;
            neighbours[n][static_cast<std::size_t>(k)] = b;
            print("bead %lld neighbor %lld is bead %lld, bead %lld neighbor %lld is bead %lld\n", b, e, n, n, k, b);
        }
        std::int64_t band[3];
        for (int k = 0; k < 3; ++k) {
            band[k] = std::llroundf(static_cast<float>(offset[k] - m_least[k]) / static_cast<float>(m_h));
            print("mbeaddesc.cstep %lld tempval %lld\r\n", m_h, band[k]);
        }
        const int edges[6] = {1, 0, 5, 2, 3, 4};
        int i = 0;
        for (int o = 0; o < 8; ++o) {
            if (o == 2 || o == 5) continue;
            const std::uint64_t cell = key(band[0] + o / 4, band[1] + o / 2 % 2, band[2] + o % 2);
            if (cells.emplace(cell, std::pair<unsigned, unsigned>(n, edges[i])).second) ++i;
        }
    }
    void visit(std::uint64_t cell, Mask* mask, std::vector<unsigned>* list) {
        const auto found = cells.find(cell);
        if (found == cells.end()) return;
        const auto set = [&](unsigned bead) {
            if (mask != nullptr && bead / 8 < mask->size())
                (*mask)[bead / 8] = static_cast<unsigned char>((*mask)[bead / 8] | 0x80 >> bead % 8);
        };
        const auto [n, e] = found->second;
        if (used.insert(n).second) {
            set(n);
            if (list != nullptr) list->push_back(n);
        }
        const unsigned m = neighbours[n][e];
        if (!used.insert(m).second) return;
        const unsigned before[6] = {5, 0, 1, 2, 3, 4};
        const unsigned after[6] = {1, 2, 3, 4, 5, 0};
        set(neighbours[n][before[e]]);
        set(neighbours[n][after[e]]);
        set(m);
        if (list != nullptr) list->push_back(m);
    }

    Config m_config;
    std::int64_t m_sine[6] = {};
    std::int64_t m_cosine[6] = {};
    std::int64_t m_least[6] = {INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX};
    std::int64_t m_h = 0;
    std::uint64_t m_last = 0;
    std::map<std::uint64_t, std::pair<unsigned, int>> m_edges;
};

unsigned bitsIn(const Mask& mask) {
    unsigned bits = 0;
    for (const unsigned char byte : mask) {
        for (int i = 0; i < 8; ++i) bits += byte >> i & 1u;
    }
    return bits;
}

/// Feeds one layer's runs to both and compares what each run leaves behind.
void expectSameLayer(LampBeadCal& field, Model& model, const std::vector<std::pair<unsigned, unsigned>>& runs) {
    field.reset();
    model.reset();
    Mask mask(field.m_maskBytes);
    Mask expected(field.m_maskBytes);
    for (const auto& [start, end] : runs) {
        ASSERT_EQ(field.getsubzonedata(start, end, mask), model.run(start, end, expected)) << start << " " << end;
        ASSERT_EQ(mask, expected) << start << " " << end;
    }
    EXPECT_EQ(std::set<std::uint64_t>(field.m_seenRuns.begin(), field.m_seenRuns.end()), model.seen);
    for (unsigned n = 0; n < field.m_beadCount; ++n) {
        const bool isUsed = model.used.count(n) != 0;
        ASSERT_EQ((field.m_beadUsed[n / 32] >> n % 32 & 1) != 0, isUsed) << n;
        ASSERT_EQ(field.m_beads[n].used, isUsed) << n;
    }
}

/// Runs in increasing order, each at most `longest` pixels, the gaps at most `widest`.
std::vector<std::pair<unsigned, unsigned>> randomRuns(std::mt19937& random, int count, unsigned longest,
                                                      unsigned widest, unsigned from) {
    std::vector<std::pair<unsigned, unsigned>> runs;
    for (int i = 0; i < count; ++i) {
        const unsigned start = from + static_cast<unsigned>(random() % widest);
        from = start + 1 + static_cast<unsigned>(random() % longest);
        runs.emplace_back(start, from);
    }
    return runs;
}

TEST(Build, PrinterFieldHasItsDocumentedSizes) {
    const LampBeadCal& field = printerField();
    EXPECT_EQ(field.m_beadCount, 542u);
    EXPECT_EQ(field.m_maskBytes, 68u);
    EXPECT_EQ(field.m_zoneW, 140);
    EXPECT_EQ(field.m_zoneH, 190);
    EXPECT_EQ(field.mbeaddesc.cstep, 41023);
    EXPECT_EQ(field.m_cellMap.size(), 6 * 542u);
    EXPECT_EQ(field.m_workCellMap, field.m_cellMap);
    EXPECT_FLOAT_EQ(field.m_workCellMap.max_load_factor(), 0.25F);
    EXPECT_EQ(field.m_generation, 2);
    EXPECT_EQ(field.m_beads[29].row, 0);
    // the top left bead of column 0: 1.1 radii up, sqrt(3) radii and the apothem to the left
    const GeoSegment left{{-82047 - 41023, 47370 - 52107}, {-82047 - 41023, -52107}};
    EXPECT_EQ(field.m_columnShapes[0][0], left);
    EXPECT_EQ(field.m_beads[0].edgePixels[0], GeoPoint(-123070 / 140, -4737 / 190));
    EXPECT_EQ(field.m_beads[0].centreX, -82047);
    EXPECT_EQ(field.m_beads[0].maxX, -82047 + 41023);
    // right: bead 1; below: bead 29 of the next column; the others lie outside
    EXPECT_EQ(field.m_beads[0].neighbours, (std::vector<unsigned>{0, 0, 0, 1, 29, 0}));
    EXPECT_EQ(field.m_beads[1].neighbours, (std::vector<unsigned>{0, 0, 0, 2, 30, 29}));
}

TEST(Build, PrintsEveryStepUnlessSwitchedOff) {
    LampBeadCal field;
    testing::internal::CaptureStdout();
    build(field, {});
    const std::string printed = testing::internal::GetCapturedStdout();
    const std::string start =
        "init\npw 0 ph 0 \n"
        "cos angle is 0 sin angle is 9999\ncos angle is 8660 sin angle is 5000\n"
        "cos angle is 8660 sin angle is -4999\ncos angle is 0 sin angle is 9999\n";
    EXPECT_EQ(printed.substr(0, start.size()), start);
    EXPECT_EQ(printed, Model({}).printed);

    LampBeadCal silent;
    silent.m_printBuild = false;
    testing::internal::CaptureStdout();
    build(silent, {});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Build, SecondCallPrintsOneLineAndChangesNothing) {
    LampBeadCal field = printerField();
    field.m_printBuild = true;
    Mask mask(68);
    field.getsubzonedata(0, 15120, mask);
    Config other;
    other.columns = 3;
    const long long generation = field.m_generation;
    testing::internal::CaptureStdout();
    field.initLampBeadCal(1, 2, 3, 4, 5, 6, other.beadsPerColumn, {}, {}, 6, 7, 120, 90);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "init\n");
    EXPECT_EQ(field.m_beadCount, 542u);
    EXPECT_EQ(field.m_generation, generation);
    EXPECT_EQ(field.m_lastZoneEnd, 15120u);
}

TEST(Build, DegenerateFieldsDoNotCrash) {
    constexpr long long kLeast = std::numeric_limits<long long>::min();
    constexpr long long kGreatest = std::numeric_limits<long long>::max();
    std::vector<unsigned> beads{2};
    for (const int edges : {0, 1, 2, 4, 6, 8, 65535}) {
        for (const long long scale : {0LL, 10LL, -10LL, kLeast}) {
            for (const long long radius : {0LL, 1LL, -5LL, kGreatest}) {
                LampBeadCal field;
                field.m_printBuild = false;
                field.initLampBeadCal(scale, radius, scale, 0, 0, 3, beads, {}, {}, static_cast<unsigned short>(edges),
                                      radius, 120, 90);
                Mask mask(1);
                std::vector<unsigned> list;
                unsigned count = 0;
                EXPECT_EQ(field.m_beadCount, 6u);
                EXPECT_FALSE(field.getsubzonedata(0, 10, mask));
                EXPECT_TRUE(field.whereami(kLeast, 0, kGreatest, kLeast, count, mask, false));
                field.whereami(0, 0, 1, 1, list);
            }
        }
    }
}

TEST(Runs, LightTheBeadsOfThePlainModel) {
    LampBeadCal field = printerField();
    Model model({});
    ASSERT_EQ(model.cells.size(), field.m_cellMap.size());
    std::mt19937 random(4);
    const unsigned screen = 15120u * 6230u;
    // short runs; runs across rows; sparse long ones; past the last row
    for (int layer = 0; layer < 8; ++layer) expectSameLayer(field, model, randomRuns(random, 300, 300, 30000, 0));
    for (int layer = 0; layer < 8; ++layer)
        expectSameLayer(field, model, randomRuns(random, 100, 40000, 1000000, static_cast<unsigned>(random() % 9999)));
    for (int layer = 0; layer < 4; ++layer) expectSameLayer(field, model, randomRuns(random, 6, 9000000, 9000000, 0));
    for (int layer = 0; layer < 4; ++layer)
        expectSameLayer(field, model, randomRuns(random, 100, 15120, 400000, screen - 15120 * 200));
}

TEST(Runs, WholeRowsLightTheBeadsOfThePlainModel) {
    LampBeadCal field = printerField();
    Model model({});
    std::vector<std::pair<unsigned, unsigned>> runs;
    for (unsigned row = 0; row < 6230; row += 89) runs.emplace_back(row * 15120, (row + 1) * 15120);
    expectSameLayer(field, model, runs);
}

TEST(Runs, OtherFieldsAgreeWithThePlainModel) {
    std::mt19937 random(5);
    Config config;
    config.extentX = 40000;
    config.extentY = 30000;
    config.pixelsX = 401;
    config.pixelsY = 299;
    config.columns = 8;
    config.beadsPerColumn = {5, 0, 7};
    config.offsetX = {0.5F, -0.25F, 0};
    config.offsetY = {1.0F};
    // odd radii, and units so coarse that hexagons overlap and miss each other
    for (const auto& [scale, unit, radius] :
         {std::array{10000, 1, 3001}, {1000, 1, 700}, {100000, 10, 211}, {100, 25, 43}, {37, 50, 19}}) {
        Config coarse = config;
        coarse.scale = scale;
        coarse.extentX /= unit;
        coarse.extentY /= unit;
        coarse.pixelsX /= static_cast<unsigned>(unit);
        coarse.pixelsY /= static_cast<unsigned>(unit);
        coarse.radius = radius;
        Model model(coarse);
        LampBeadCal field;
        testing::internal::CaptureStdout();
        build(field, coarse);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), model.printed);
        ASSERT_EQ(model.cells.size(), field.m_cellMap.size());
        const unsigned width = coarse.pixelsX;
        for (int layer = 0; layer < 10; ++layer)
            expectSameLayer(field, model, randomRuns(random, 60, width / 4, width * 10, 0));
    }
}

TEST(Runs, WholeScreenAsOneRunAlsoFindsTrianglesByEqualKeys) {
    // 90 beads by the triangles of the diagonal, 4 more because one triangle outside has the key of another
    LampBeadCal field = printerField();
    field.reset();
    Mask mask(68);
    EXPECT_TRUE(field.getsubzonedata(0, 15120u * 6230u, mask));
    EXPECT_EQ(bitsIn(mask), 94u);
}

TEST(Runs, FarBelowTheScreenEqualKeysCountAsWell) {
    LampBeadCal field = printerField();
    Model model({});
    expectSameLayer(field, model, {{15120u * 9000u, 15120u * 9001u}, {15120u * 9002u, 15120u * 12000u + 77}});
}

TEST(Runs, BoxesBeyondAllBoundsEndQuickly) {
    LampBeadCal field = printerField();
    std::vector<unsigned> beads;
    EXPECT_TRUE(field.whereami(-(1LL << 40), -(1LL << 42), 1LL << 40, 1LL << 42, beads));
    EXPECT_EQ(beads.size(), 542u);
}

TEST(Runs, EndNotBeyondThePreviousOneChangesNothing) {
    LampBeadCal field = printerField();
    field.reset();
    Mask mask(68);
    EXPECT_TRUE(field.getsubzonedata(100, 200, mask));
    const Mask before = mask;
    EXPECT_FALSE(field.getsubzonedata(0, 200, mask));
    EXPECT_FALSE(field.getsubzonedata(0, 0, mask));
    EXPECT_EQ(mask, before);
    EXPECT_EQ(field.m_lastZoneEnd, 200u);
    EXPECT_EQ(field.m_seenRuns.size(), 1u);
}

TEST(Runs, UnbuiltFieldLightsNothing) {
    LampBeadCal field;
    field.reset();
    Mask mask(68);
    EXPECT_FALSE(field.getsubzonedata(0, 10, mask));
    EXPECT_EQ(bitsIn(mask), 0u);
}

TEST(Runs, ListFormAgreesWithThePlainModelAndStopsAtSeenBoxes) {
    LampBeadCal field = printerField();
    field.reset();
    Model model({});
    std::mt19937 random(6);
    for (int i = 0; i < 400; ++i) {
        const auto x = static_cast<long long>(random() % 2200000) - 50000;
        const auto y = static_cast<long long>(random() % 1300000) - 50000;
        const auto w = static_cast<long long>(random() % 90000);
        std::vector<unsigned> list;
        std::vector<unsigned> expected;
        ASSERT_EQ(field.whereami(x, y, x + w, y + w / 3, list), model.box(x, y, x + w, y + w / 3, nullptr, &expected));
        ASSERT_EQ(list, expected);
    }
    std::vector<unsigned> none;
    unsigned count = 0;
    Mask mask(68);
    EXPECT_TRUE(field.whereami(70000, 70000, 70001, 70000, count, mask, false));
    EXPECT_FALSE(field.whereami(70000, 70000, 70001, 70000, none));
    EXPECT_TRUE(none.empty());
}

TEST(Tables, ResetRestoresAChangedWorkingCopy) {
    LampBeadCal field = printerField();
    LampBeadCal changed = field;
    Mask mask(68);
    changed.m_workCellMap.clear();
    EXPECT_FALSE(changed.getsubzonedata(0, 10, mask));
    EXPECT_EQ(changed.m_cellMap.size(), 3252u);
    changed.reset();
    // the triangle at the origin now names another bead
    unsigned count = 0;
    changed.whereami(0, 0, 0, 0, count, mask, true);
    for (const auto& [key, cell] : printerField().m_cellMap) changed.m_workCellMap[key] = {400, 6};
    Mask redirected(68);
    changed.whereami(0, 0, 0, 0, count, redirected, true);
    EXPECT_EQ(bitsIn(redirected), 1u);
    EXPECT_TRUE(changed.mgetBit(redirected, 400));
    changed.reset();
    Mask again(68);
    changed.whereami(0, 0, 0, 0, count, again, true);
    EXPECT_EQ(again, mask);
    EXPECT_EQ(field.m_workCellMap, printerField().m_cellMap);
}

TEST(Bits, MostSignificantFirstAndBounded) {
    LampBeadCal field;
    Mask mask(2);
    field.msetBit(mask, 0);
    field.msetBit(mask, 15);
    field.msetBit(mask, 16);
    EXPECT_EQ(mask, (Mask{0x80, 0x01}));
    EXPECT_EQ(field.m_touchedByte, 1u);
    EXPECT_EQ(field.m_touchedBit, 7u);
    EXPECT_TRUE(field.mgetBit(mask, 15));
    EXPECT_FALSE(field.mgetBit(mask, 14));
    EXPECT_TRUE(field.mgetBit(mask, 16));

    const auto range = [&](unsigned from, unsigned to) {
        Mask bits(2);
        field.msetBits(bits, from, to);
        return bits;
    };
    EXPECT_EQ(range(3, 9), (Mask{0x1F, 0xC0}));
    EXPECT_EQ(range(5, 2), (Mask{0, 0}));
    EXPECT_EQ(range(8, 7), (Mask{0, 0}));
    EXPECT_EQ(range(14, 16), (Mask{0, 0x03}));
    EXPECT_EQ(range(14, 17), (Mask{0, 0}));
}

TEST(Keys, OneStepPerValueWidth) {
    LampBeadCal field;
    unsigned long long seed = 0;
    EXPECT_EQ(field.hash_combine(seed, 3LL), 0x9e3779b97f4a7c1bull);
    EXPECT_EQ(seed, 0x9e3779b97f4a7c1bull);
    seed = 0;
    // upper half 0xFFFFFFFF, lower half doubled 0x1FFFFFFFE
    field.hash_combine(seed, -1LL);
    EXPECT_EQ(seed, 0x9e3779b97f4a7c15ull + 0x100000001ull);
    seed = 4;
    unsigned word = 0x80000000;
    field.hash_combine(seed, word);
    EXPECT_EQ(seed, 4 ^ (1 + 0x100000000ull + 256 + 0x9e3779b97f4a7c15ull));
    long long signedSeed = -4;
    unsigned long long wide = 1ull << 32;
    field.hash_combine(signedSeed, wide);
    EXPECT_EQ(static_cast<unsigned long long>(signedSeed),
              ~3ull ^ (0x3FFFFFFFFFFFFFFFull + 1 - 256 + 0x9e3779b97f4a7c15ull));
    seed = 0;
    float one = 1.0F;
    field.hash_combine_float(seed, one);
    EXPECT_EQ(seed, 0x9e3779b97f4a7c15ull + 2 * 0x3F800000ull);
    EXPECT_EQ(field.m_hashedFloat, 0x3F800000u);
}

TEST(Rotations, EachProductIsDividedOnItsOwnExceptInThePairForm) {
    LampBeadCal field;
    field.m_scale = 10;
    // 0.6435 rad: cosine 0.8, sine 0.6, here truncated to 7 and 5 or 6
    std::pair<long long, long long> sc{6, 8};
    std::pair<long long, long long> out;
    field.rotation_ccw(7, 4, sc, out);
    EXPECT_EQ(out, GeoPoint((56 - 24) / 10, (42 + 32) / 10));
    EXPECT_EQ(field.rotation_ccw_init(7, 4, 0, sc), GeoPoint(5 - 2, 4 + 3));
    field.m_scale = 100000;
    long long x = 7000;
    long long y = -4000;
    field.rotation_ccw(x, y, 0.5F);  // cosine 87758, sine 47942
    EXPECT_EQ(GeoPoint(x, y), GeoPoint(6143 + 1917, 3355 - 3510));
    EXPECT_EQ(field.rotation_ccw_withpair(7000, -4000, 0.5F), GeoPoint(x, y));
    x = 7000;
    y = -4000;
    field.rotation_cw(x, y, 0.5F);
    EXPECT_EQ(GeoPoint(x, y), GeoPoint(6143 - 1917, -3510 - 3355));
    x = 7100;
    y = -4200;
    field.rotation_cw_withoffset(x, y, 100, -200, 0.5F);
    EXPECT_EQ(GeoPoint(x, y), GeoPoint(6143 - 1917 + 100, -3510 - 3355 - 200));
}

TEST(Host, OutlinesPointsAndDrawing) {
    LampBeadCal field = printerField();
    const auto outlines = field.getLampMask();
    ASSERT_EQ(outlines.size(), 542u);
    EXPECT_EQ(outlines[200], field.m_beads[200].edgePixels);

    const BeadDesc bead = field.getbeaddata(field.m_beads[200].centreX + 9, field.m_beads[200].centreY + 9);
    EXPECT_EQ(bead.id, 200u);
    EXPECT_TRUE(field.getbeaddata(-900000, 0).neighbours.empty());

    std::vector<GeoSegment> outline = field.m_columnShapes[0];
    const auto centreX = static_cast<double>(field.m_beads[0].centreX);
    const auto centreY = static_cast<double>(field.m_beads[0].centreY);
    EXPECT_TRUE(field.doIntersect(outline, {centreX, centreY}));
    EXPECT_TRUE(field.doIntersect(outline, {-123070, -20000}));
    EXPECT_FALSE(field.doIntersect(outline, {-123071, -20000}));
    EXPECT_FALSE(field.doIntersect(outline, {-123000, -52107 - 20000}));
    EXPECT_TRUE(field.isPointOnSegment({1, 0}, {0, 0}, {2, 2}));
    EXPECT_FALSE(field.isPointOnSegment({2.5, 1}, {0, 0}, {2, 2}));

    // six bytes wide, ten steps of grey: 0 10 20 30 20 10
    Mask image(std::size_t{15120} * 700, 240);
    EXPECT_TRUE(field.setParamandUse(0, 0, 0, 6, 10, image.data(), image.size()));
    EXPECT_EQ(field.m_ramp, (Mask{0, 10, 20, 30, 20, 10}));
    const GeoPoint corner = field.m_beads[60].edgePixels[0];  // the lower end of an upright edge
    const auto at = [&](long long x, long long y) { return image[static_cast<std::size_t>(y * 15120 + x)]; };
    const long long y = corner.second - 60;
    EXPECT_EQ(at(corner.first, y), 225);
    EXPECT_EQ(at(corner.first + 1, y), 235);
    EXPECT_EQ(at(corner.first - 1, y), 235);
    EXPECT_EQ(at(corner.first + 20, y), 240);
    EXPECT_FALSE(field.setParamandUse(0, 0, 0, 0, 10, image.data(), image.size()));
}

TEST(Host, EmptyMembersAnswerTheSameAlways) {
    LampBeadCal field = printerField();
    std::pair<unsigned, unsigned> pair;
    unsigned count = 0;
    Mask mask(68);
    long long cell = 0;
    EXPECT_FALSE(field.whereami(0LL, 0LL, 10LL, 10LL, pair));
    EXPECT_FALSE(field.whereami(0u, 10u, count, mask, true));
    EXPECT_FALSE(field.getsubzonedata(0, 10, pair));
    EXPECT_TRUE(field.isingrid(cell, 0, 0));
    EXPECT_EQ(bitsIn(mask), 0u);
}

}  // namespace
