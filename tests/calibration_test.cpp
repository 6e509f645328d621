#include <vndlp/calibration.h>

#include "support/bytes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <unordered_map>

namespace {

using VNDLPV4::GeoPoint;
using VNDLPV4::GeoSegment;
using VNDLPV4::LampBeadCal;
using Mask = std::vector<unsigned char>;
using Runs = std::vector<std::pair<unsigned, unsigned>>;

constexpr unsigned kWidth = 15120;
constexpr unsigned kHeight = 6230;
constexpr unsigned kBeads = 542;
constexpr unsigned kMaskBytes = 68;

/// By default the printer's.
struct Config {
    long long scale = 10000, extentX = 2116800, extentY = 1183700;
    unsigned pixelsX = kWidth, pixelsY = kHeight, columns = 19;
    std::vector<unsigned> beadsPerColumn{29, 28};
    std::vector<float> offsetX{1.7320508F}, offsetY{1.1F};
    long long radius = 47370;
};

/// Builds a field. \return what it prints.
std::string build(LampBeadCal& field, Config config) {
    testing::internal::CaptureStdout();
    field.initLampBeadCal(config.scale, config.extentX, config.extentY, config.pixelsX, config.pixelsY, config.columns,
                          config.beadsPerColumn, config.offsetX, config.offsetY, 6, config.radius, 120, 90);
    return testing::internal::GetCapturedStdout();
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
    explicit Model(const Config& c)
        : m_config(c), m_h(static_cast<long long>(static_cast<double>(c.radius) * std::sqrt(3.0) / 2)) {
        const double pi = std::acos(-1.0);
        const auto base = static_cast<float>(90 * pi / 180);
        for (int k = 0; k < 6; ++k) {
            const double angle = base - (k % 3) * 60 * pi / 180;
            m_sine[k] = static_cast<long long>(std::sin(angle) * static_cast<double>(c.scale));
            m_cosine[k] = static_cast<long long>(std::cos(angle) * static_cast<double>(c.scale));
            print("cos angle is %lld sin angle is %lld\n", m_cosine[k], m_sine[k]);
        }
        Runs beads;  // column, row
        for (unsigned column = 0; column < c.columns; ++column) {
            const unsigned rows = c.beadsPerColumn[column % c.beadsPerColumn.size()];
            for (unsigned row = 0; row < rows; ++row) beads.emplace_back(column, row);
        }
        for (const auto& [column, row] : beads) {
            for (int k = 0; k < 6; ++k)
                m_least[k] = std::min(
                    {m_least[k], project(corner(column, row, k), k), project(corner(column, row, (k + 1) % 6), k)});
        }
        for (const auto& [column, row] : beads) addBead(column, row);
    }

    bool run(unsigned start, unsigned end) {
        if (end <= m_last) return false;
        const long long width = m_config.pixelsX;
        const long long first = std::max(start, m_last);
        m_last = end;
        const long long x = first % width;
        const long long endX = end % width == 0 ? width : end % width;
        const long long zoneW = m_config.extentX / m_config.pixelsX;
        const long long zoneH = m_config.extentY / m_config.pixelsY;
        box({(x > 5 ? x - 5 : x) * zoneW, (first - x) / width * zoneH}, {endX * zoneW, (end - endX) / width * zoneH});
        return true;
    }

    /// \return whether it is the first box of its bands.
    bool box(const GeoPoint& from, const GeoPoint& to) {
        long long p[3];
        long long q[3];
        for (int d = 0; d < 3; ++d) {
            p[d] = (project(from, d) - m_least[d]) / m_h;
            q[d] = (project(to, d) - m_least[d]) / m_h;
        }
        for (auto a = std::min(p[0], q[0]); a <= std::max(p[0], q[0]); ++a) {
            for (auto b = std::min(p[1], q[1]); b <= std::max(p[1], q[1]); ++b) {
                for (auto c = std::min(p[2], q[2]); c <= std::max(p[2], q[2]); ++c) visit(key({a, b, c}));
            }
        }
        return seen.insert(key({key({p[0], p[1], p[2]}), key({q[0], q[1], q[2]})})).second;
    }

    std::string printed = "init\npw 0 ph 0 \n";
    std::unordered_map<long long, std::pair<unsigned, unsigned>> cells;
    std::set<unsigned> used;
    std::vector<unsigned> listed;  // the same in their order
    std::set<unsigned> lit;
    std::set<long long> seen;

private:
    static long long key(std::initializer_list<long long> values) {
        static LampBeadCal hasher;
        unsigned long long seed = 0;
        for (const long long value : values) hasher.hash_combine(seed, value);
        return static_cast<long long>(seed);
    }
    template <class... Values>
    void print(const char* format, Values... values) {
        char line[200];
        std::snprintf(line, sizeof line, format, static_cast<long long>(values)...);
        printed += line;
    }
    long long project(const GeoPoint& p, int k) const {
        return (p.first * m_sine[k] + p.second * m_cosine[k]) / m_config.scale;
    }
    /// After the table of outlines.
    GeoPoint corner(unsigned column, unsigned row, int k) const {
        constexpr int kApothems[] = {0, 0, 1, 2, 2, 1};
        constexpr double kRadii[] = {1, 0, -0.5, 0, 1, 1.5};
        const auto shift = [&](const std::vector<float>& offsets) {
            return static_cast<long long>(static_cast<float>(m_config.radius) * offsets[column % offsets.size()]);
        };
        const auto y = (1.5 * column + kRadii[k]) * static_cast<double>(m_config.radius);
        const long long left = (column % 2 == 1 ? 0 : -m_h) - shift(m_config.offsetX) + 2 * m_h * row;
        return {left + kApothems[k] * m_h, static_cast<long long>(y - static_cast<double>(shift(m_config.offsetY)))};
    }
    void addBead(unsigned column, unsigned row) {
        const auto n = static_cast<unsigned>(m_neighbours.size());
        m_neighbours.push_back({});
        long long offset[6];
        for (unsigned k = 0; k < 6; ++k) {
            const int edge = static_cast<int>(k);
            const GeoPoint from = corner(column, row, edge);
            const GeoPoint to = corner(column, row, (edge + 1) % 6);
            offset[k] = (project(from, edge) + project(to, edge)) / 2;
            print("edge is %lld %lld %lld %lld\n", from.first, from.second, to.first, to.second);
            const auto [known, isNew] =
                m_edges.try_emplace(key({std::min(from.first, to.first), std::max(from.first, to.first),
                                         std::min(from.second, to.second), std::max(from.second, to.second)}),
                                    n, k);
            if (isNew) continue;
            const auto [b, e] = known->second;
            m_neighbours[b][e] = n;
            m_neighbours[n][k] = b;
            print("bead %lld neighbor %lld is bead %lld, bead %lld neighbor %lld is bead %lld\n", b, e, n, n, k, b);
        }
        long long band[3];
        for (int k = 0; k < 3; ++k) {
            band[k] = std::llroundf(static_cast<float>(offset[k] - m_least[k]) / static_cast<float>(m_h));
            print("mbeaddesc.cstep %lld tempval %lld\r\n", m_h, band[k]);
        }
        const unsigned edges[6] = {1, 0, 5, 2, 3, 4};
        int i = 0;
        for (int o = 0; o < 8; ++o) {
            if (o == 2 || o == 5) continue;
            const long long cell = key({band[0] + o / 4, band[1] + o / 2 % 2, band[2] + o % 2});
            if (cells.try_emplace(cell, n, edges[i]).second) ++i;
        }
    }
    void visit(long long cell) {
        const auto found = cells.find(cell);
        if (found == cells.end()) return;
        const auto [n, edge] = found->second;
        const auto& around = m_neighbours[n];
        if (use(n)) lit.insert(n);
        if (use(around[edge])) lit.insert({around[edge], around[(edge + 5) % 6], around[(edge + 1) % 6]});
    }
    bool use(unsigned bead) {
        const bool isNew = used.insert(bead).second;
        if (isNew) listed.push_back(bead);
        return isNew;
    }

    Config m_config;
    long long m_h;
    long long m_sine[6] = {};
    long long m_cosine[6] = {};
    long long m_least[6] = {INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX};
    unsigned m_last = 0;
    std::vector<std::array<unsigned, 6>> m_neighbours;
    std::map<long long, std::pair<unsigned, unsigned>> m_edges;
};

std::set<unsigned> litIn(const Mask& mask) {
    LampBeadCal bits;
    std::set<unsigned> lit;
    for (unsigned bead = 0; bead < 8 * mask.size(); ++bead) {
        if (bits.mgetBit(mask, bead)) lit.insert(bead);
    }
    return lit;
}

/// Feeds one layer's runs to both and compares what each run leaves behind.
void expectSameLayer(LampBeadCal& field, Model model, const Runs& runs) {
    field.reset();
    Mask mask(field.m_maskBytes);
    for (const auto& [start, end] : runs) {
        ASSERT_EQ(field.getsubzonedata(start, end, mask), model.run(start, end)) << start << " " << end;
        ASSERT_EQ(litIn(mask), model.lit) << start << " " << end;
    }
    EXPECT_EQ(std::set<long long>(field.m_seenRuns.begin(), field.m_seenRuns.end()), model.seen);
    for (unsigned n = 0; n < field.m_beadCount; ++n) {
        ASSERT_EQ((field.m_beadUsed[n / 32] >> n % 32 & 1) != 0, model.used.count(n) != 0) << n;
        ASSERT_EQ(field.m_beads[n].used, model.used.count(n) != 0) << n;
    }
}

/// Runs in increasing order, each at most `longest` pixels, the gaps at most `widest`.
Runs randomRuns(std::mt19937& random, int count, unsigned longest, unsigned widest, unsigned from = 0) {
    Runs runs;
    for (int i = 0; i < count; ++i) {
        const unsigned start = from + static_cast<unsigned>(random() % widest);
        from = start + 1 + static_cast<unsigned>(random() % longest);
        runs.emplace_back(start, from);
    }
    return runs;
}

TEST(Build, PrinterFieldIsAsDocumented) {
    LampBeadCal built;
    const std::string printed = build(built, {});
    const std::string start =
        "init\npw 0 ph 0 \n"
        "cos angle is 0 sin angle is 9999\ncos angle is 8660 sin angle is 5000\n"
        "cos angle is 8660 sin angle is -4999\ncos angle is 0 sin angle is 9999\n";
    EXPECT_EQ(printed.substr(0, start.size()), start);
    EXPECT_EQ(printed, Model({}).printed);

    LampBeadCal field;
    field.m_printBuild = false;
    testing::internal::CaptureStdout();
    VNDLPV4::initPrinterBeadField(field);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(field.m_beadCount, kBeads);
    EXPECT_EQ(field.m_maskBytes, kMaskBytes);
    EXPECT_EQ(GeoPoint(field.m_zoneW, field.m_zoneH), GeoPoint(140, 190));
    EXPECT_EQ(field.mbeaddesc.cstep, 41023);
    EXPECT_EQ(field.m_cellMap.size(), 6 * kBeads);
    EXPECT_EQ(field.m_workCellMap, field.m_cellMap);
    EXPECT_FLOAT_EQ(field.m_workCellMap.max_load_factor(), 0.25F);
    EXPECT_LE(field.m_workCellMap.load_factor(), 0.25F);
    EXPECT_EQ(std::distance(field.m_workCellMap.cbegin(), field.m_workCellMap.cend()),
              static_cast<std::ptrdiff_t>(field.m_workCellMap.size()));
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

    // a second call prints one line and changes nothing
    field.m_printBuild = true;
    Mask mask(kMaskBytes);
    field.getsubzonedata(0, kWidth, mask);
    Config other;
    other.columns = 3;
    EXPECT_EQ(build(field, other), "init\n");
    EXPECT_EQ(field.m_beadCount, kBeads);
    EXPECT_EQ(field.m_generation, 2);
    EXPECT_EQ(field.m_lastZoneEnd, kWidth);
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
    std::vector<Runs> layers;
    layers.reserve(26);
    // short runs; runs across rows; sparse long ones; past the last row
    for (int i = 0; i < 8; ++i) layers.push_back(randomRuns(random, 300, 300, 30000));
    for (int i = 0; i < 8; ++i)
        layers.push_back(randomRuns(random, 100, 40000, 1000000, static_cast<unsigned>(random() % 9999)));
    for (int i = 0; i < 4; ++i) layers.push_back(randomRuns(random, 6, 9000000, 9000000));
    for (int i = 0; i < 4; ++i) layers.push_back(randomRuns(random, 100, kWidth, 400000, kWidth * (kHeight - 200)));
    Runs& wholeRows = layers.emplace_back();
    for (unsigned row = 0; row < kHeight; row += 89) wholeRows.emplace_back(row * kWidth, (row + 1) * kWidth);
    // far below the screen, where equal keys count as well
    layers.push_back({{kWidth * 9000, kWidth * 9001}, {kWidth * 9002, kWidth * 12000 + 77}});
    for (const Runs& runs : layers) expectSameLayer(field, model, runs);
}

TEST(Runs, OtherFieldsAgreeWithThePlainModel) {
    std::mt19937 random(5);
    // odd radii, and units so coarse that hexagons overlap and miss each other
    for (const auto& [scale, unit, radius] :
         {std::array{10000, 1, 3001}, {1000, 1, 700}, {100000, 10, 211}, {100, 25, 43}, {37, 50, 19}}) {
        const unsigned width = 401 / static_cast<unsigned>(unit);
        const unsigned height = 299 / static_cast<unsigned>(unit);
        const Config config{scale, 40000 / unit, 30000 / unit,         width,  height,
                            8,     {5, 0, 7},    {0.5F, -0.25F, 0.0F}, {1.0F}, radius};
        Model model(config);
        LampBeadCal field;
        EXPECT_EQ(build(field, config), model.printed);
        ASSERT_EQ(model.cells.size(), field.m_cellMap.size());
        for (int layer = 0; layer < 10; ++layer)
            expectSameLayer(field, model, randomRuns(random, 60, width / 4, width * 10));
    }
}

TEST(Runs, HaveTheirLimits) {
    // 90 beads by the triangles of the diagonal, 4 more because one triangle outside has the key of another
    LampBeadCal field = printerField();
    Mask mask(kMaskBytes);
    EXPECT_TRUE(field.getsubzonedata(0, kWidth * kHeight, mask));
    EXPECT_EQ(litIn(mask).size(), 94u);

    // an end not beyond the previous one changes nothing
    field.reset();
    EXPECT_TRUE(field.getsubzonedata(100, 200, mask));
    const Mask before = mask;
    EXPECT_FALSE(field.getsubzonedata(0, 200, mask));
    EXPECT_FALSE(field.getsubzonedata(0, 0, mask));
    EXPECT_EQ(mask, before);
    EXPECT_EQ(field.m_lastZoneEnd, 200u);
    EXPECT_EQ(field.m_seenRuns.size(), 1u);

    // boxes beyond all bounds end quickly
    field.reset();
    std::vector<unsigned> beads;
    EXPECT_TRUE(field.whereami(-(1LL << 40), -(1LL << 42), 1LL << 40, 1LL << 42, beads));
    EXPECT_EQ(beads.size(), kBeads);

    // what is not built, and what the printer does not use, lights nothing
    LampBeadCal unbuilt;
    unbuilt.reset();
    Mask dark(kMaskBytes);
    std::pair<unsigned, unsigned> pair;
    unsigned count = 0;
    long long cell = 0;
    EXPECT_FALSE(unbuilt.getsubzonedata(0, 10, dark));
    field.reset();
    EXPECT_FALSE(field.whereami(0LL, 0LL, 10LL, 10LL, pair));
    EXPECT_FALSE(field.whereami(0u, 10u, count, dark, true));
    EXPECT_FALSE(field.getsubzonedata(0, 10, pair));
    EXPECT_TRUE(field.isingrid(cell, 0, 0));
    EXPECT_EQ(litIn(dark).size(), 0u);
}

TEST(Runs, ListFormAgreesWithThePlainModelAndStopsAtSeenBoxes) {
    LampBeadCal field = printerField();
    field.reset();
    Model model({});
    std::vector<unsigned> list;
    std::mt19937 random(6);
    for (int i = 0; i < 400; ++i) {
        const auto x = static_cast<long long>(random() % 2200000) - 50000;
        const auto y = static_cast<long long>(random() % 1300000) - 50000;
        const auto w = static_cast<long long>(random() % 90000);
        ASSERT_EQ(field.whereami(x, y, x + w, y + w / 3, list), model.box({x, y}, {x + w, y + w / 3}));
        ASSERT_EQ(list, model.listed);
    }
    unsigned count = 0;
    Mask mask(kMaskBytes);
    EXPECT_TRUE(field.whereami(70000, 70000, 70001, 70000, count, mask, false));
    EXPECT_FALSE(field.whereami(70000, 70000, 70001, 70000, list));
    EXPECT_EQ(list, model.listed);
}

TEST(Bits, MostSignificantFirstAndBounded) {
    LampBeadCal field;
    Mask mask(2);
    for (const unsigned bit : {0u, 15u, 16u}) field.msetBit(mask, bit);
    EXPECT_EQ(mask, (Mask{0x80, 0x01}));
    EXPECT_EQ(field.m_touchedByte, 1u);
    EXPECT_EQ(field.m_touchedBit, 7u);
    EXPECT_TRUE(field.mgetBit(mask, 15));
    EXPECT_FALSE(field.mgetBit(mask, 14));
    EXPECT_TRUE(field.mgetBit(mask, 16));

    const std::tuple<unsigned, unsigned, Mask> ranges[] = {
        {3, 9, {0x1F, 0xC0}}, {5, 2, {0, 0}}, {8, 7, {0, 0}}, {14, 16, {0, 0x03}}, {14, 17, {0, 0}}};
    for (const auto& [from, to, expected] : ranges) {
        Mask bits(2);
        field.msetBits(bits, from, to);
        EXPECT_EQ(bits, expected) << from << " " << to;
    }
}

TEST(Rotations, EachProductIsDividedOnItsOwnExceptInThePairForm) {
    LampBeadCal field;
    field.m_scale = 10;
    // 0.6435 rad: cosine 0.8, sine 0.6, here truncated to 7 and 5 or 6
    GeoPoint sc{6, 8};
    GeoPoint out;
    field.rotation_ccw(7, 4, sc, out);
    EXPECT_EQ(out, GeoPoint((56 - 24) / 10, (42 + 32) / 10));
    EXPECT_EQ(field.rotation_ccw_init(7, 4, 0, sc), GeoPoint(5 - 2, 4 + 3));
    field.m_scale = 100000;
    GeoPoint left{7000, -4000};
    field.rotation_ccw(left.first, left.second, 0.5F);  // cosine 87758, sine 47942
    EXPECT_EQ(left, GeoPoint(6143 + 1917, 3355 - 3510));
    EXPECT_EQ(field.rotation_ccw_withpair(7000, -4000, 0.5F), left);
    GeoPoint right{7000, -4000};
    field.rotation_cw(right.first, right.second, 0.5F);
    EXPECT_EQ(right, GeoPoint(6143 - 1917, -3510 - 3355));
    right = {7100, -4200};
    field.rotation_cw_withoffset(right.first, right.second, 100, -200, 0.5F);
    EXPECT_EQ(right, GeoPoint(6143 - 1917 + 100, -3510 - 3355 - 200));
}

TEST(Host, OutlinesPointsAndDrawing) {
    LampBeadCal field = printerField();
    const auto outlines = field.getLampMask();
    ASSERT_EQ(outlines.size(), kBeads);
    const VNDLPV4::BeadDesc& bead = field.m_beads[200];
    EXPECT_EQ(outlines[200], bead.edgePixels);
    EXPECT_EQ(field.getbeaddata(bead.centreX + 9, bead.centreY + 9).id, 200u);
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
    Mask image(std::size_t{kWidth} * 700, 240);
    EXPECT_TRUE(field.setParamandUse(0, 0, 0, 6, 10, image.data(), image.size()));
    EXPECT_EQ(field.m_ramp, (Mask{0, 10, 20, 30, 20, 10}));
    const GeoPoint corner = field.m_beads[60].edgePixels[0];  // the lower end of an upright edge
    const auto greyAt = [&](long long dx) {
        return int{image[static_cast<std::size_t>((corner.second - 60) * kWidth + corner.first + dx)]};
    };
    EXPECT_EQ((std::array{greyAt(-1), greyAt(0), greyAt(1), greyAt(20)}), (std::array{235, 225, 235, 240}));
    EXPECT_FALSE(field.setParamandUse(0, 0, 0, 0, 10, image.data(), image.size()));
}

}  // namespace
