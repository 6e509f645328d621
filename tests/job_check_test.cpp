// The check of a job: findings worked out by hand, and a voxel by voxel reference over thousands of small grids.

#include <vndlp/job_check.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace vndlp {
namespace {

struct Grid {
    int width;
    int height;
    int layers;
    std::vector<bool> lit = std::vector<bool>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                              static_cast<std::size_t>(layers));

    std::size_t at(int x, int y, int z) const { return static_cast<std::size_t>((z * height + y) * width + x); }
    bool isLit(int x, int y, int z) const { return lit[at(x, y, z)]; }
};

using Voxel = std::tuple<int, int, int>;  // layer, row, column
using Voxels = std::set<Voxel>;

/// One line for each finding, every number in it, and its voxels.
using Lines = std::multiset<std::string>;

CheckLayer layerOf(const CheckJob& job, const Grid& grid, int z) {
    CheckLayer layer(job);
    const int lines = job.linesAreColumns ? grid.width : grid.height;
    const int length = job.linesAreColumns ? grid.height : grid.width;
    for (int line = 0; line < lines; ++line) {
        for (int i = 0; i < length; ++i) {
            if (!(job.linesAreColumns ? grid.isLit(line, i, z) : grid.isLit(i, line, z))) continue;
            // runs of up to three pixels, which touch
            int last = i;
            while (last + 1 < length && last < i + 2 &&
                   (job.linesAreColumns ? grid.isLit(line, last + 1, z) : grid.isLit(last + 1, line, z))) {
                ++last;
            }
            const LitRun run{static_cast<std::uint32_t>(line), static_cast<std::uint32_t>(i),
                             static_cast<std::uint32_t>(last)};
            EXPECT_TRUE(layer.append(&run, 1));
            i = last;
        }
    }
    EXPECT_TRUE(layer.close());
    return layer;
}

std::string lineOf(const CheckFinding& f, const Voxels& voxels) {
    char text[300];
    std::snprintf(text, sizeof text,
                  "%s %s %d-%d pixels %d %.6g voxels %d %.6g x %d-%d y %d-%d centre %.1f %.1f %s:", nameOf(f.severity),
                  nameOf(f.kind), static_cast<int>(f.layer), static_cast<int>(f.lastLayer), static_cast<int>(f.pixels),
                  f.areaMm2, static_cast<int>(f.voxels), f.volumeMl, static_cast<int>(f.xPx[0]),
                  static_cast<int>(f.xPx[1]), static_cast<int>(f.yPx[0]), static_cast<int>(f.yPx[1]), f.centrePx[0],
                  f.centrePx[1], f.fault.c_str());
    std::string line = text;
    for (const auto& [z, y, x] : voxels) {
        line += ' ' + std::to_string(z) + '/' + std::to_string(y) + '/' + std::to_string(x);
    }
    return line;
}

Voxels voxelsOf(const JobCheck& check, const CheckFinding& finding, const CheckJob& job, const Grid& grid) {
    Voxels voxels;
    if (finding.pixels <= 0) return voxels;
    for (int z = 0; z < grid.layers; ++z) {
        const CheckLayer below = layerOf(job, grid, std::max(z - 1, 0));
        const CheckLayer layer = layerOf(job, grid, z);
        for (const LitRun& run :
             check.runsOf(finding, z == 0 ? nullptr : &below, layer, static_cast<std::uint32_t>(z))) {
            for (std::uint32_t i = run.first; i <= run.last; ++i) {
                const int line = static_cast<int>(run.line);
                const int place = static_cast<int>(i);
                voxels.emplace(z, job.linesAreColumns ? place : line, job.linesAreColumns ? line : place);
            }
        }
    }
    return voxels;
}

bool isSorted(const std::vector<CheckFinding>& findings) {
    return std::is_sorted(findings.begin(), findings.end(), [](const CheckFinding& a, const CheckFinding& b) {
        const auto key = [](const CheckFinding& f) {
            const std::int64_t size = f.voxels >= 0 ? f.voxels : std::max<std::int64_t>(f.pixels, 0);
            return std::tuple(f.severity, f.kind, -size, f.layer, f.yPx[0], f.xPx[0]);
        };
        return key(a) < key(b);
    });
}

Lines checkGrid(const CheckJob& job, const CheckOptions& options, const Grid& grid) {
    JobCheck check(job, options);
    for (int z = 0; z < grid.layers; ++z) {
        CheckLayer layer = layerOf(job, grid, z);
        check.addLayer(layer);
    }
    Lines lines;
    const std::vector<CheckFinding> findings = check.finish();
    EXPECT_TRUE(isSorted(findings));
    for (const CheckFinding& finding : findings) {
        EXPECT_FALSE(check.describe(finding).empty());
        lines.insert(lineOf(finding, options.keepPlaces ? voxelsOf(check, finding, job, grid) : Voxels()));
    }
    return lines;
}

/// The definitions as they read, on voxels.
class Reference {
public:
    Reference(const CheckJob& job, const CheckOptions& options, const Grid& grid)
        : m_job(job), m_options(options), m_grid(grid) {}

    Lines run() {
        for (const bool lit : {true, false}) findBodies(lit);
        findEmpty();
        for (int z = 1; z < m_grid.layers; ++z) findOverhangs(z);
        findOutside();
        findHigh();
        for (int z = 1; z < m_grid.layers; ++z) findPeak(z);
        return m_lines;
    }

private:
    /// Connected pieces of a set of voxels; `upward` also through the layers.
    std::vector<Voxels> pieces(Voxels left, bool byEight, bool upward) const {
        std::vector<Voxels> all;
        while (!left.empty()) {
            std::vector<Voxel> open{*left.begin()};
            left.erase(left.begin());
            Voxels piece;
            while (!open.empty()) {
                const auto [z, y, x] = open.back();
                piece.insert(open.back());
                open.pop_back();
                for (int i = 0; i < 27; ++i) {
                    const int dx = i % 3 - 1;
                    const int dy = i / 3 % 3 - 1;
                    const int dz = i / 9 - 1;
                    const bool isNeighbour = dz == 0 ? byEight || dx == 0 || dy == 0 : upward && dx == 0 && dy == 0;
                    const Voxel next{z + dz, y + dy, x + dx};
                    if (isNeighbour && left.erase(next) != 0) open.push_back(next);
                }
            }
            all.push_back(piece);
        }
        return all;
    }

    Voxels select(int fromLayer, int toLayer, const std::function<bool(int, int, int)>& isIn) const {
        Voxels voxels;
        for (int z = fromLayer; z <= toLayer; ++z) {
            for (int y = 0; y < m_grid.height; ++y) {
                for (int x = 0; x < m_grid.width; ++x) {
                    if (isIn(x, y, z)) voxels.emplace(z, y, x);
                }
            }
        }
        return voxels;
    }
    Voxels litIn(int z) const {
        return select(z, z, [this](int x, int y, int l) { return m_grid.isLit(x, y, l); });
    }

    bool isSettled(const Voxels& body, bool lit) const {
        return std::any_of(body.begin(), body.end(), [&](const Voxel& voxel) {
            const auto [z, y, x] = voxel;
            return lit ? z == 0 : x == 0 || y == 0 || x == m_grid.width - 1 || y == m_grid.height - 1;
        });
    }
    static int top(const Voxels& body) { return std::get<0>(*body.rbegin()); }

    void findBodies(bool lit) {
        const auto bodiesTo = [&](int layer) {
            return pieces(select(0, layer, [&](int x, int y, int z) { return m_grid.isLit(x, y, z) == lit; }), lit,
                          true);
        };
        for (int z = 0; z < m_grid.layers; ++z) {
            const bool isLast = z + 1 == m_grid.layers;
            const std::vector<Voxels> above = isLast ? std::vector<Voxels>() : bodiesTo(z + 1);
            for (const Voxels& body : bodiesTo(z)) {
                if (top(body) < z || isSettled(body, lit)) continue;
                const auto grown = std::find_if(above.begin(), above.end(),
                                                [&](const Voxels& b) { return b.count(*body.begin()) != 0; });
                const bool isJoined = !isLast && isSettled(*grown, lit);
                const bool isFaded = !isLast && !isJoined && top(*grown) == z;
                if (!isLast && !isJoined && !isFaded) continue;
                const bool isTrap = isFaded && std::get<0>(*body.begin()) > 0;
                std::map<int, Voxels> byLayer;
                for (const Voxel& voxel : body) byLayer[std::get<0>(voxel)].insert(voxel);
                std::size_t largest = 0;
                for (const auto& [index, voxels] : byLayer) {
                    for (const Voxels& region : pieces(voxels, lit, false)) largest = std::max(largest, region.size());
                }
                add(lit ? CheckKind::island : isTrap ? CheckKind::trap : CheckKind::cup, body, largest, true);
            }
        }
    }

    void findEmpty() {
        for (int z = 0; z < m_grid.layers; ++z) {
            if (!litIn(z).empty()) continue;
            const int first = z;
            while (z + 1 < m_grid.layers && litIn(z + 1).empty()) ++z;
            addWithoutVoxels(CheckKind::empty, first, z,
                             z + 1 < m_grid.layers ? CheckSeverity::error : CheckSeverity::note);
        }
    }

    void findOverhangs(int z) {
        const double distance =
            (m_options.overhangUm < 0 ? std::max(200.0, 4000 * m_job.layerHeightMm) : m_options.overhangUm) + 0.01;
        const Voxels below = litIn(z - 1);
        Voxels overhanging;
        for (const Voxels& region : pieces(litIn(z), true, false)) {
            const auto isRightAbove = [&](const Voxel& v) {
                return below.count({z - 1, std::get<1>(v), std::get<2>(v)}) != 0;
            };
            if (std::none_of(region.begin(), region.end(), isRightAbove)) continue;
            for (const Voxel& voxel : region) {
                const auto isNear = [&](const Voxel& other) {
                    return std::hypot((std::get<2>(voxel) - std::get<2>(other)) * m_job.pixelXUm,
                                      (std::get<1>(voxel) - std::get<1>(other)) * m_job.pixelYUm) <= distance;
                };
                if (std::none_of(below.begin(), below.end(), isNear)) overhanging.insert(voxel);
            }
        }
        for (const Voxels& piece : pieces(overhanging, true, false)) {
            add(CheckKind::overhang, piece, piece.size(), false);
        }
    }

    void findOutside() {
        const auto margin = static_cast<int>(m_options.marginPx);
        Voxels run;
        std::size_t most = 0;
        for (int z = 0; z <= m_grid.layers; ++z) {
            Voxels outside;
            if (z < m_grid.layers) {
                outside = select(z, z, [&](int x, int y, int l) {
                    return m_grid.isLit(x, y, l) &&
                           (x < margin || y < margin || x >= m_grid.width - margin || y >= m_grid.height - margin);
                });
            }
            if (outside.empty() && !run.empty()) add(CheckKind::outside, run, std::exchange(most, 0), true);
            if (outside.empty()) run.clear();
            run.insert(outside.begin(), outside.end());
            most = std::max(most, outside.size());
        }
    }

    void findHigh() {
        if (m_job.machineHeightMm <= 0) return;
        for (int z = 0; z < m_grid.layers; ++z) {
            if ((z + 1) * m_job.layerHeightMm <= m_job.machineHeightMm + 0.0001) continue;
            addWithoutVoxels(CheckKind::outside, z, m_grid.layers - 1, CheckSeverity::error);
            return;
        }
    }

    void findPeak(int z) {
        const Voxels lit = litIn(z);
        const auto now = static_cast<double>(lit.size());
        const auto before = static_cast<double>(litIn(z - 1).size());
        const double pixelCm2 = m_job.pixelXUm * m_job.pixelYUm / 1e8;
        if (now > m_options.jumpFactor * before && (now - before) * pixelCm2 > m_options.jumpCm2) {
            add(CheckKind::peak, lit, lit.size(), false);
        }
    }

    void add(CheckKind kind, const Voxels& voxels, std::size_t pixels, bool countsVoxels) {
        CheckFinding f;
        f.kind = kind;
        f.layer = std::get<0>(*voxels.begin());
        f.lastLayer = top(voxels);
        f.pixels = static_cast<int>(pixels);
        f.areaMm2 = static_cast<double>(pixels) * m_job.pixelXUm * m_job.pixelYUm / 1e6;
        if (countsVoxels) {
            f.voxels = static_cast<int>(voxels.size());
            f.volumeMl =
                static_cast<double>(voxels.size()) * m_job.pixelXUm * m_job.pixelYUm / 1e6 * m_job.layerHeightMm / 1000;
        }
        f.xPx[0] = f.yPx[0] = 1 << 20;
        for (const auto& [z, y, x] : voxels) {
            f.xPx[0] = std::min<std::int64_t>(f.xPx[0], x);
            f.xPx[1] = std::max<std::int64_t>(f.xPx[1], x);
            f.yPx[0] = std::min<std::int64_t>(f.yPx[0], y);
            f.yPx[1] = std::max<std::int64_t>(f.yPx[1], y);
        }
        f.centrePx[0] = static_cast<double>(f.xPx[0] + f.xPx[1]) / 2;
        f.centrePx[1] = static_cast<double>(f.yPx[0] + f.yPx[1]) / 2;
        const bool isSmall = f.areaMm2 < 1 - 1e-9;
        const bool isError = kind == CheckKind::island || kind == CheckKind::outside;
        f.severity = isError                              ? CheckSeverity::error
                     : isSmall && kind != CheckKind::peak ? CheckSeverity::note
                                                          : CheckSeverity::warning;
        if (f.pixels < m_options.minPixels) return;
        m_lines.insert(lineOf(f, voxels));
    }
    void addWithoutVoxels(CheckKind kind, int layer, int lastLayer, CheckSeverity severity) {
        CheckFinding f;
        f.kind = kind;
        f.severity = severity;
        f.layer = layer;
        f.lastLayer = lastLayer;
        f.pixels = 0;
        f.areaMm2 = 0;
        m_lines.insert(lineOf(f, {}));
    }

    const CheckJob& m_job;
    const CheckOptions& m_options;
    const Grid& m_grid;
    Lines m_lines;
};

/// The job that is left, mended step by step as the words say: islands, then traps of what is left, then the end.
Grid mend(const CheckJob& job, const FixOptions& fix, Grid grid) {
    const auto paintFound = [&](CheckKind kind, std::int64_t mostPixels, bool lit) {
        CheckOptions options;
        options.keepPlaces = true;
        options.kinds = 1U << static_cast<unsigned>(kind);
        JobCheck check(job, options);
        for (int z = 0; z < grid.layers; ++z) {
            CheckLayer layer = layerOf(job, grid, z);
            check.addLayer(layer);
        }
        const Grid before = grid;
        for (const CheckFinding& finding : check.finish()) {
            if (finding.pixels > mostPixels) continue;
            for (const auto& [z, y, x] : voxelsOf(check, finding, job, before)) grid.lit[grid.at(x, y, z)] = lit;
        }
    };
    paintFound(CheckKind::island, fix.islandPixels, false);
    if (fix.fillTraps) paintFound(CheckKind::trap, INT64_MAX, true);
    while (std::none_of(grid.lit.end() - grid.width * grid.height, grid.lit.end(), [](bool lit) { return lit; })) {
        grid.lit.resize(grid.lit.size() - static_cast<std::size_t>(grid.width * grid.height));
        if (--grid.layers == 0) break;
    }
    return grid;
}

/// Noise of any density, or boxes lit and cleared again, so that there are walls with something inside.
Grid randomGrid(std::mt19937& random) {
    const auto upTo = [&random](int last) { return static_cast<int>(random() % static_cast<unsigned>(last + 1)); };
    Grid grid{1 + upTo(9), 1 + upTo(9), 1 + upTo(6)};
    if (upTo(2) == 0) {
        const int percent = upTo(100);
        for (std::size_t i = 0; i < grid.lit.size(); ++i) grid.lit[i] = upTo(99) < percent;
        return grid;
    }
    for (int boxes = upTo(10); boxes >= 0; --boxes) {
        const bool lit = upTo(4) > 1;
        const int x0 = upTo(grid.width);
        const int y0 = upTo(grid.height);
        const int z0 = upTo(grid.layers);
        const int x1 = std::min(x0 + 1 + upTo(6), grid.width);
        const int y1 = std::min(y0 + 1 + upTo(6), grid.height);
        const int z1 = std::min(z0 + 1 + upTo(3), grid.layers);
        for (int z = z0; z < z1; ++z) {
            for (int y = y0; y < y1; ++y) {
                for (int x = x0; x < x1; ++x) grid.lit[grid.at(x, y, z)] = lit;
            }
        }
    }
    return grid;
}

TEST(JobCheck, AgreesWithTheDefinitionsOnSmallGrids) {
    std::mt19937 random(20261);
    const auto pick = [&random](std::initializer_list<double> values) {
        return values.begin()[random() % values.size()];
    };
    std::set<std::string> seen;
    for (int i = 0; i < 4000; ++i) {
        const Grid grid = randomGrid(random);
        CheckJob job;
        job.width = static_cast<std::uint32_t>(grid.width);
        job.height = static_cast<std::uint32_t>(grid.height);
        job.pixelXUm = pick({50, 100, 47.25, 900});
        job.pixelYUm = pick({50, 100, 33.3, 900});
        job.layerHeightMm = pick({0.05, 0.1, 0.025});
        job.machineHeightMm = pick({0, 0.1, 0.15, 0.0999, 0.09991, 10});
        CheckOptions options;
        options.marginPx = static_cast<std::int64_t>(pick({0, 1, 2, 5, 1e9}));
        options.overhangUm = pick({-1, 0, 50, 100, 141.42, 223.61, 1e12});
        options.jumpFactor = pick({4, 1, 1.5});
        options.jumpCm2 = pick({10, 0, 0.001});
        options.minPixels = static_cast<std::int64_t>(pick({0, 0, 3}));
        options.keepPlaces = i % 4 == 0;
        job.linesAreColumns = i % 2 != 0;
        Lines expected = Reference(job, options, grid).run();
        if (!options.keepPlaces) {
            Lines cut;
            for (const std::string& line : expected) cut.insert(line.substr(0, line.find(':') + 1));
            expected.swap(cut);
        }
        for (const std::string& line : expected) seen.insert(line.substr(0, line.find(' ', line.find(' ') + 1)));
        ASSERT_EQ(checkGrid(job, options, grid), expected) << "grid " << i;
    }
    // every kind, and both of its severities, came up
    EXPECT_EQ(seen.size(), 11U);
}

/// Layers from the plate up, each of rows: '#' is lit.
using Picture = std::vector<std::vector<std::string>>;

Grid gridOf(const Picture& picture) {
    Grid grid{static_cast<int>(picture[0][0].size()), static_cast<int>(picture[0].size()),
              static_cast<int>(picture.size())};
    for (int z = 0; z < grid.layers; ++z) {
        for (int y = 0; y < grid.height; ++y) {
            for (int x = 0; x < grid.width; ++x) {
                grid.lit[grid.at(x, y, z)] =
                    picture[static_cast<std::size_t>(z)][static_cast<std::size_t>(y)][static_cast<std::size_t>(x)] ==
                    '#';
            }
        }
    }
    return grid;
}

TEST(JobCheck, FindsWhatWasWorkedOutByHand) {
    const std::vector<std::string> none = {"     ", "     ", "     "};
    const std::vector<std::string> full = {"#####", "#####", "#####"};
    const std::vector<std::string> ring = {"#####", "# ###", "#####"};
    const std::vector<std::string> open = {"#####", "  ###", "#####"};
    const std::vector<std::string> left = {"#    ", "#    ", "#    "};
    const std::vector<std::string> both = {"#   #", "#   #", "#   #"};
    const std::vector<std::string> bridge = {"#   #", "#####", "#   #"};
    const struct {
        Picture layers;
        std::vector<std::string> found;  // kind, layers, pixels, voxels
    } cases[] = {
        {{none, none}, {"empty 0-1 0 -1"}},
        {{none, full, none}, {"island 1-1 15 15", "empty 0-0 0 -1", "empty 2-2 0 -1"}},
        {{full, none, full}, {"island 2-2 15 15", "empty 1-1 0 -1"}},
        // a second pillar hangs in the air until a bridge joins it; what hangs is found as it was
        {{left, left, both, bridge}, {"island 2-2 3 3"}},
        // sealed; open at the plate; closed by the film only; open at a lower layer; opened above
        {{full, ring, full}, {"trap 1-1 1 1"}},
        {{ring, full}, {"cup 0-0 1 1"}},
        {{full, ring, ring}, {"cup 1-2 1 2"}},
        {{open, ring, full}, {}},
        {{full, ring, open}, {"cup 1-1 1 1"}},
        // corners join what is lit, not what is unlit
        {{{"#  ", "   "}, {"#  ", " # "}}, {}},
        {{{"####", "####", "####"}, {"####", "# ##", "## #"}}, {"cup 1-1 1 1"}},
    };
    CheckJob job;
    job.pixelXUm = job.pixelYUm = 10;
    CheckOptions options;
    options.marginPx = 0;
    options.overhangUm = 1000;
    for (const auto& one : cases) {
        const Grid grid = gridOf(one.layers);
        job.width = static_cast<std::uint32_t>(grid.width);
        job.height = static_cast<std::uint32_t>(grid.height);
        JobCheck check(job, options);
        for (int z = 0; z < grid.layers; ++z) {
            CheckLayer layer = layerOf(job, grid, z);
            check.addLayer(layer);
        }
        std::vector<std::string> found;
        for (const CheckFinding& f : check.finish()) {
            found.push_back(std::string(nameOf(f.kind)) + " " + std::to_string(f.layer) + "-" +
                            std::to_string(f.lastLayer) + " " + std::to_string(f.pixels) + " " +
                            std::to_string(f.voxels));
        }
        EXPECT_EQ(found, one.found) << "case " << &one - cases;
    }
}

TEST(JobFix, ClearsIslandsThenFillsTrapsThenDropsTheEnd) {
    std::mt19937 random(77);
    std::uint64_t islands = 0;
    std::uint64_t traps = 0;
    for (int i = 0; i < 1000; ++i) {
        Grid grid = randomGrid(random);
        CheckJob job;
        job.width = static_cast<std::uint32_t>(grid.width);
        job.height = static_cast<std::uint32_t>(grid.height);
        job.linesAreColumns = i % 2 != 0;
        const FixOptions options{static_cast<int>(random() % 12) - 1, random() % 3 != 0};
        const Grid expected = mend(job, options, grid);
        struct Context {
            const CheckJob& job;
            const Grid& grid;
        } context{job, grid};
        const auto read = [](void* c, std::uint32_t layer, CheckLayer& out) {
            out = layerOf(static_cast<Context*>(c)->job, static_cast<Context*>(c)->grid, static_cast<int>(layer));
            return 0;
        };
        JobFix fix;
        ASSERT_TRUE(planFix(job, static_cast<std::uint32_t>(grid.layers), options, read, &context, fix));
        Grid mended = grid;
        for (const auto& [z, layer] : fix.changed) {
            for (const bool lit : {false, true}) {
                for (const LitRun& run : lit ? layer.filled : layer.cleared) {
                    for (std::uint32_t p = run.first; p <= run.last; ++p) {
                        const auto x = static_cast<int>(job.linesAreColumns ? run.line : p);
                        const auto y = static_cast<int>(job.linesAreColumns ? p : run.line);
                        EXPECT_NE(mended.isLit(x, y, static_cast<int>(z)), lit);
                        mended.lit[mended.at(x, y, static_cast<int>(z))] = lit;
                    }
                }
            }
        }
        ASSERT_EQ(fix.layers, expected.layers) << "grid " << i;
        mended.lit.resize(expected.lit.size());
        ASSERT_EQ(mended.lit, expected.lit) << "grid " << i;
        islands += fix.islands;
        traps += fix.traps;
    }
    EXPECT_GT(islands, 100U);
    EXPECT_GT(traps, 10U);
}

TEST(JobCheck, ImpossibleSettingsAreOneFindingEach) {
    CheckJob job;
    job.width = 4;
    job.height = 3;
    job.exposureS = job.bottomExposureS = job.lightPower = job.bottomLightPower = job.layerHeightMm = 0;
    job.bottomLayers = 1;
    job.printerWidth = 3;
    job.printerHeight = 4;
    JobCheck check(job, CheckOptions());
    check.compareArea(3, 1.0, 1.009);  // as hosts round
    check.compareArea(4, 0.001, 0.002);
    check.compareArea(5, 1.0, 1.02);
    check.compareArea(6, 0, 1);
    std::vector<std::string> texts;
    for (const CheckFinding& f : check.finish()) {
        EXPECT_TRUE(f.layer == -1 && f.pixels == -1 && f.severity == CheckSeverity::error);
        texts.push_back(check.describe(f));
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "outside: the job is made for 4 x 3 pixels, the printer has 3 x 4",
                         "settings: the exposure is 0",
                         "settings: the exposure of bottom layers is 0",
                         "settings: the light power is 0",
                         "settings: the light power of bottom layers is 0",
                         "settings: the layer height is 0",
                         "settings: 1 bottom layer, but only 0 layers",
                         "settings: the areas of 2 layers in the file are not those of what is lit, first of layer 5: "
                         "1.000 mm2 stored, 1.020 mm2 lit",
                     }));
}

TEST(JobCheck, LayersOfUnknownShapeAreNotEmpty) {
    CheckJob job;
    job.width = job.height = 3;
    JobCheck check(job, CheckOptions());
    for (const bool isKnown : {false, true, true, false}) {
        CheckLayer layer(job);
        if (!isKnown) layer.closeUnknown();
        check.addLayer(layer);
    }
    const std::vector<CheckFinding> findings = check.finish();
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(check.describe(findings[0]), "empty: layers 1 to 2, 0.00 mm from the plate: nothing is lit");
    EXPECT_EQ(findings[0].severity, CheckSeverity::error);
}

TEST(JobCheck, RunsOutOfOrderAreRefused) {
    CheckJob job;
    job.width = 10;
    job.height = 2;
    const std::vector<LitRun> wrong[] = {
        {{0, 0, 10}}, {{2, 0, 0}}, {{0, 3, 2}}, {{1, 0, 0}, {0, 0, 0}}, {{0, 2, 4}, {0, 4, 5}}, {{0, 2, 4}, {0, 0, 0}},
    };
    for (const std::vector<LitRun>& runs : wrong) {
        CheckLayer layer(job);
        EXPECT_FALSE(layer.append(runs.data(), runs.size()));
        EXPECT_FALSE(layer.close());
    }
}

TEST(Polylines, LightThePixelsWhoseCentresAreInside) {
    // pixels of 10 x 10 um, four of them a row, three rows, the lowest from 0 to 10
    const auto rows = [](const std::vector<std::vector<Vec3i>>& polylines) {
        std::vector<std::string> image(3, "....");
        for (const LitRun& run : litRunsOfPolylines(polylines, 4, 3, 10, 10)) {
            for (std::uint32_t x = run.first; x <= run.last; ++x) image[run.line][x] = '#';
        }
        return image;
    };
    const auto box = [](int x0, int y0, int x1, int y1) {
        return std::vector<Vec3i>{{x0, y0, 0}, {x1, y0, 0}, {x1, y1, 0}, {x0, y1, 0}, {x0, y0, 0}};
    };
    using Rows = std::vector<std::string>;
    EXPECT_EQ(rows({box(0, 0, 20, 10)}), (Rows{"....", "....", "##.."}));
    // centres on the left and the lower side are inside, on the right and the upper one outside
    EXPECT_EQ(rows({box(5, 5, 25, 25)}), (Rows{"....", "##..", "##.."}));
    EXPECT_EQ(rows({box(-100, -100, 900, 900), box(10, 10, 20, 20)}), (Rows{"####", "#.##", "####"}));
    // open lines and lines without an inside do not count
    EXPECT_EQ(rows({{{0, 0, 0}, {40, 0, 0}, {40, 30, 0}}, {{0, 0, 0}, {40, 30, 0}, {0, 0, 0}}, {}}),
              (Rows{"....", "....", "...."}));
    EXPECT_EQ(rows({{{0, 0, 0}, {40, 0, 0}, {0, 30, 0}, {0, 0, 0}}}), (Rows{"#...", "##..", "###."}));
}

}  // namespace
}  // namespace vndlp
