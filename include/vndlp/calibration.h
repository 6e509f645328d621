/// \file calibration.h
/// The field of LED beads behind a screen, and the mask of the beads that a layer's lit pixels need.
///
/// Every bead is a hexagon; the hexagons stand in columns and tile the plane. Three families of parallel lines, one for
/// each direction of a hexagon's edges, cut the tiling into a grid of triangles, six to a bead. A point falls into one
/// band of each family, and the three band numbers name its triangle:
///
///     projection on direction d = (x * sin_d + y * cos_d) / scale
///     band of family d          = (projection - least projection of any bead corner) / band width
///
/// Divisions are integer divisions that truncate toward zero. A hash table leads from a triangle's key, which is made
/// of its three bands, to its bead.
///
/// Lengths are integers in *geometry units*. The screen is `m_extentX` x `m_extentY` of them; pixel column c begins at
/// x = c * `m_zoneW`, pixel row r at y = r * `m_zoneH`. Pixels are numbered row by row: index = row * width + column.
///
/// A bead mask is a byte vector with one bit per bead: bead n is bit 7 - n % 8 of byte n / 8 (most significant bit
/// first). For a field of 542 beads it is 68 bytes long.
///
/// Typical use:
///
///     VNDLPV4::LampBeadCal field;
///     VNDLPV4::initPrinterBeadField(field);  // or field.reset() and field.initLampBeadCal(...) for another one
///     for each layer:
///         field.reset();
///         std::vector<unsigned char> mask(field.m_maskBytes);
///         for each run of lit pixels, in increasing order, cut at row ends:
///             field.getsubzonedata(firstPixel, lastPixel + 1, mask);

#ifndef VNDLP_CALIBRATION_H
#define VNDLP_CALIBRATION_H

#include <vndlp/export.h>

#include <array>
#include <cstddef>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace VNDLPV4 {

/// A point of the geometry: x along the pixel columns, y along the pixel rows, geometry units.
using GeoPoint = std::pair<long long, long long>;
/// A segment from its first to its second end point.
using GeoSegment = std::pair<GeoPoint, GeoPoint>;

/// A point of two doubles, used by the host's outline queries only.
struct Point {
    double x = 0;
    double y = 0;
};

/// The table from a triangle's key to (bead, edge): a hash map with value semantics whose copies share their entries
/// until one of them is changed, so that assigning one is as cheap as assigning a pointer.
///
/// Reading members never change anything and their iterators are constant; writing members first make the entries the
/// map's own. Two maps may be used in two threads even while they share entries; one map serves one thread.
class VNDLP_API CellMap {
public:
    using Key = unsigned long long;
    using Cell = std::pair<unsigned int, unsigned short>;  ///< bead number, edge of the bead
    using Table = std::unordered_map<Key, Cell>;
    using value_type = Table::value_type;
    using const_iterator = Table::const_iterator;
    using iterator = const_iterator;

    /// Empty, with a maximum load factor of 0.25.
    CellMap();
    // no moves: a map always has its entries to read
    CellMap(const CellMap&) = default;
    CellMap& operator=(const CellMap&) = default;

    const_iterator begin() const { return m_table->begin(); }
    const_iterator end() const { return m_table->end(); }
    const_iterator cbegin() const { return m_table->cbegin(); }
    const_iterator cend() const { return m_table->cend(); }
    const_iterator find(Key key) const { return m_table->find(key); }
    std::size_t count(Key key) const { return m_table->count(key); }
    /// The entry of `key`, which must be there: std::out_of_range is thrown otherwise.
    const Cell& at(Key key) const { return m_table->at(key); }
    std::size_t size() const { return m_table->size(); }
    bool empty() const { return m_table->empty(); }
    std::size_t bucket_count() const { return m_table->bucket_count(); }
    float load_factor() const { return m_table->load_factor(); }
    float max_load_factor() const { return m_table->max_load_factor(); }
    /// The entries as a standard map; valid until this map is changed or destroyed.
    const Table& table() const { return *m_table; }
    operator const Table&() const { return *m_table; }

    void max_load_factor(float factor) { own().max_load_factor(factor); }
    /// Enters a triangle; an entry already there stays as it is. \return the entry, and whether it is new.
    std::pair<const_iterator, bool> insert(const value_type& entry) { return own().insert(entry); }
    std::pair<const_iterator, bool> emplace(Key key, const Cell& cell) { return own().emplace(key, cell); }
    /// The entry of `key`, entered as (0, 0) when absent.
    Cell& operator[](Key key) { return own()[key]; }
    /// \return the number of entries removed, 0 or 1.
    std::size_t erase(Key key) { return own().erase(key); }
    void clear() { own().clear(); }

    friend bool operator==(const CellMap& a, const CellMap& b) {
        return a.m_table == b.m_table || *a.m_table == *b.m_table;
    }
    friend bool operator!=(const CellMap& a, const CellMap& b) { return !(a == b); }

    /// The shared entries. While the result is held, a change of this map goes to a copy of its own.
    std::shared_ptr<const Table> share() const { return m_table; }

private:
    Table& own();

    std::shared_ptr<Table> m_table;
};

/// One bead. The per-edge vectors have one entry per edge, in the edge order of `LampBeadCal::m_columnShapes`.
struct BeadDesc {
    unsigned int id = 0;  ///< bead number: column by column, row by row within a column, from 0
    long long row = 0;    ///< row within its column
    bool used = false;    ///< entered a mask since the last `reset`
    /// The bead across each edge. An edge at the border of the field has none and keeps 0, so that lighting the border
    /// through such an edge lights bead 0 as well: required behaviour.
    std::vector<unsigned int> neighbours;
    std::vector<long long> edgeOffsets;    ///< mean projection of edge k's two end points on direction k
    long long centreX = 0;                 ///< mean of the edges' first end points
    long long centreY = 0;                 ///< likewise
    std::vector<GeoPoint> edgeMidpoints;   ///< geometry units
    std::vector<GeoPoint> edgePixels;      ///< each edge's first end point, in pixels
    long long maxX = 0;                    ///< greatest x of an edge's second end point
    std::vector<GeoPoint> edgeDirections;  ///< (sine, cosine) * scale of each edge's own direction
};

/// What all beads share.
struct BeadFieldDesc {
    long long cstep = -1;  ///< band width: the hexagon's apothem, trunc(radius * sqrt(3) / 2)
};

struct CellIndex;

/// The bead field of one screen and the working state of one layer.
///
/// Fresh -> initialised (once) -> per layer: `reset`, then runs in increasing pixel order. A copy is independent of its
/// original; it shares the triangle tables, which never change after the build, until either side changes them.
///
/// An object serves one thread: scratch values live in members. Several threads take a copy each.
///
/// The data members are public for inspection. Those under "Configuration" and "Tables" are set by `initLampBeadCal`,
/// those under "Working state" by `reset` and the queries. Queries use the members' present values, whoever set them,
/// with one exception: a triangle queried since the last `reset` is not looked at again, as its beads are used then, so
/// clear `m_beadUsed` through `reset` only.
class VNDLP_API LampBeadCal {
public:
    LampBeadCal();
    LampBeadCal(const LampBeadCal&);
    LampBeadCal& operator=(const LampBeadCal&);
    ~LampBeadCal();

    /// \name Build
    /// \{

    /// When false, building prints nothing. When true (the default) it prints what every step found on standard output:
    /// one line per direction, per edge of every bead, per pair of neighbours and per band, several thousand lines for
    /// a printer's field.
    bool m_printBuild = true;

    /// Builds the field, prints as `m_printBuild` says, and ends with a `reset`. Works once per object: on an
    /// initialised object it prints "init\n" and changes nothing.
    /// \param scale          fixed-point scale of sines and cosines.
    /// \param extentX        screen width, geometry units (goes through a float).
    /// \param extentY        screen height, geometry units (goes through a float).
    /// \param pixelsX        screen width, pixels; the low 16 bits count.
    /// \param pixelsY        screen height, pixels; the low 16 bits count.
    /// \param columnCount    number of bead columns.
    /// \param beadsPerColumn column c has entry c % size beads; empty: no beads.
    /// \param offsetX        column c is shifted to the left by entry c % size times the radius; empty: no shift.
    /// \param offsetY        the same, upwards.
    /// \param edgeCount      edges per bead, 6 for the hexagons; of any further ones only the directions are computed.
    ///                       The first edgeCount / 2 directions (at most 3) are the line families.
    /// \param radius         circumradius of a bead, geometry units.
    /// \param angleStep      180 - angleStep degrees lie between two directions.
    /// \param angleBase      direction 0, degrees.
    void initLampBeadCal(long long scale, long long extentX, long long extentY, unsigned pixelsX, unsigned pixelsY,
                         unsigned columnCount, std::vector<unsigned>& beadsPerColumn, std::vector<float> offsetX,
                         std::vector<float> offsetY, unsigned short edgeCount, long long radius, unsigned angleStep,
                         unsigned angleBase);

    /// The first stage of `initLampBeadCal`: stores the configuration, computes the `m_edgeCount` directions (set
    /// `m_edgeCount` before), the columns' outlines and the size of a pixel. Prints one line per direction.
    /// \param skipShapes leaves band width and outlines as they are.
    void preinit(float extentX, float extentY, unsigned short pixelsX, unsigned short pixelsY,
                 std::vector<float> offsetX, std::vector<float> offsetY, unsigned long long columnCount,
                 std::vector<unsigned>& beadsPerColumn, long long scale, long long radius, bool skipShapes,
                 unsigned angleStep, unsigned angleBase);

    /// Enters the triangles of the bead built last into `m_cellMap` and `m_cellSiblings`.
    ///
    /// Enumerates one offset per dimension, the first dimension outermost. With three dimensions the offsets (0, 1, 0)
    /// and (1, 0, 1), which lie outside the hexagon, are left out. Each triangle with the bands base + offset that is
    /// absent is entered with edge `m_cellEdges[counter]`, and `counter` goes up by one; one already there is left
    /// alone and not counted. Nothing happens while there is no bead, or when `dims` is 0 or more than `base` has
    /// entries.
    /// \param base    least band of the bead in each dimension.
    /// \param counter entries made for this bead so far.
    /// \param offsets first and last offset of each dimension; a dimension without an entry takes 0 to 1.
    void processLoops(unsigned dims, const std::vector<long long>& base, unsigned long long& counter,
                      const std::vector<std::pair<long long, long long>>& offsets);

    /// \}
    /// \name Layers
    /// \{

    /// Begins a layer: forgets the beads used, the runs seen and the last run's end, and restores `m_workCellMap`.
    /// Copies no table: cost grows with the number of beads and of runs seen only.
    void reset();

    /// Marks the beads under a run of lit pixels.
    ///
    /// The part of the run before the end of the previous one is not looked at again. What is marked are the beads in
    /// the box of bands spanned by the run's two ends, the first widened by five pixels to the left (but not when it
    /// lies in columns 0 to 5). A run across several rows spans the *diagonal* of its rows, and lights fewer beads
    /// than the same pixels cut at row ends: cut runs at row ends.
    /// \param start linear index of the first pixel.
    /// \param end   linear index behind the last pixel.
    /// \param mask  `m_maskBytes` bytes, zeroed by the caller at the start of the layer; bits beyond its end are
    ///              ignored.
    /// \return true; false, with nothing changed, before the build, when `end` is not beyond the previous run's end,
    ///         and for a screen without pixels.
    bool getsubzonedata(unsigned start, unsigned end, std::vector<unsigned char>& mask);

    /// Marks the beads in the box of bands spanned by two points.
    ///
    /// For each triangle of the box, in the order of its bands: its bead, unless already used, gets its mask bit; and
    /// the bead across the triangle's edge, unless already used, gets its mask bit together with the two neighbours
    /// beside that edge. Those two get mask bits only and are not marked as used: required behaviour.
    ///
    /// In a box of more than 2^27 triangles only the triangles of beads are looked at, which leaves out those found by
    /// an equal key (see `m_cellMap`). No box that lies on the screen of a printer's field is nearly as large.
    /// \param count not used.
    /// \param flag  not used.
    /// \return true.
    bool whereami(long long x0, long long y0, long long x1, long long y1, unsigned& count,
                  std::vector<unsigned char>& mask, bool flag);

    /// The same, listing beads: appends each bead of the box and each bead across an edge that was not used yet. The
    /// two beads beside an edge are not added.
    /// \return true; false, with nothing done, when a box with the same bands at its two ends was queried (in either
    ///         form) since the last `reset`.
    bool whereami(long long x0, long long y0, long long x1, long long y1, std::vector<unsigned>& beads);

    /// Bit `index` of a mask; true for an index beyond its end.
    bool mgetBit(const std::vector<unsigned char>& mask, unsigned index);
    /// Sets a bit and notes its place in `m_touchedByte` and `m_touchedBit`; nothing for an index beyond the end.
    void msetBit(std::vector<unsigned char>& mask, unsigned index);
    /// Sets the bits `from` to `to`, both inclusive. Nothing when either index exceeds 8 x size, or when `from` lies in
    /// a byte behind that of `to`. The index 8 x size itself passes, but there is no such bit to set.
    void msetBits(std::vector<unsigned char>& mask, unsigned from, unsigned to);

    /// \}
    /// \name Keys
    /// One step: seed ^ ((seed >> 2) + h + (seed << 6) + 0x9e3779b97f4a7c15) in unsigned 64-bit arithmetic, where h is
    /// 2 * v for a 32-bit value, and (upper 32 bits) ^ (lower 32 bits * 2) for a 64-bit one. The new seed is stored in
    /// `seed` and returned.
    /// \{

    unsigned long long hash_combine(long long& seed, unsigned long long& v);
    unsigned long long hash_combine(unsigned long long& seed, unsigned& v);
    unsigned long long hash_combine(unsigned long long& seed, long long v);
    /// Combines the float's bit pattern, as a 32-bit value, and keeps that in `m_hashedFloat`.
    unsigned long long hash_combine_float(unsigned long long& seed, float& v);

    /// \}
    /// \name Fixed-point rotations
    /// `angle` is in radians. Its sine and cosine are computed in single precision, times `m_scale`, truncated. Each
    /// product is divided by `m_scale` on its own, truncating, unless said otherwise. With a scale of 0 nothing changes
    /// in place, and results are (0, 0).
    /// \{

    /// In place: (x * cos - y * sin, x * sin + y * cos).
    void rotation_ccw(long long& x, long long& y, float angle);
    /// In place: (x * cos + y * sin, y * cos - x * sin).
    void rotation_cw(long long& x, long long& y, float angle);
    /// \param sc  (sine, cosine) times the scale.
    /// \param out the counter-clockwise rotation, the sum of both products divided at once.
    void rotation_ccw(long long x, long long y, const std::pair<long long, long long>& sc,
                      std::pair<long long, long long>& out);
    /// \param sc (sine, cosine) times the scale; not changed. The third argument is not used.
    /// \return the counter-clockwise rotation.
    std::pair<long long, long long> rotation_ccw_init(long long x, long long y, long long,
                                                      std::pair<long long, long long>& sc);
    /// \return the counter-clockwise rotation.
    std::pair<long long, long long> rotation_ccw_withpair(long long x, long long y, float angle);
    /// In place, clockwise about a pivot.
    void rotation_cw_withoffset(long long& x, long long& y, long long pivotX, long long pivotY, float angle);

    /// \}
    /// \name For the host
    /// \{

    /// Stores how `setParamandUse` draws, builds `m_ramp` and the rotation `m_paramRotation`.
    ///
    /// Entry i of the ramp is (i < w / 2 ? i : w - i) * g, truncated to a byte; the rotation is by -a / (m_pixelsX / 2)
    /// radians (by 0 for a screen narrower than 2 pixels), so that `a` is about the shift in pixels at the left and
    /// right ends of the screen.
    /// \param shiftX,shiftY shift of the outlines to the right and down, pixels; taken as unsigned values.
    /// \param a             rotation about the middle of the screen.
    /// \param w             width of the drawn edges across, pixels; below 1 the ramp is empty, above 65535 it is 65535
    ///                      wide.
    /// \param g             grey steps per pixel.
    void setParam(int shiftX, int shiftY, int a, int w, int g);

    /// `setParam`, then darkens a layer image along the edges of all beads: a pixel that lies at place i of the
    /// ramp across an edge (0 and w - 1 at its sides) is lowered to 255 - ramp[i] where it is brighter.
    /// \param image rows of `m_pixelsX` bytes from the top; an incomplete last row is not touched.
    /// \param size  bytes of `image`.
    /// \return false, with the image unchanged, for a null image, a field without beads or an empty ramp.
    bool setParamandUse(int shiftX, int shiftY, int a, int w, int g, unsigned char* image, unsigned long long size);

    /// The bead whose hexagon holds a point of the geometry (as the triangle grid tells).
    /// \return a copy of its descriptor; one without edges (empty vectors) when there is none.
    BeadDesc getbeaddata(long long x, long long y);

    /// The outlines: for every bead, in bead order, a copy of its `edgePixels`.
    std::vector<std::vector<GeoPoint>> getLampMask();

    /// True when `p` lies inside the closed outline that the segments form together, or on one of them. A point is
    /// inside when a ray from it to the right crosses an odd number of segments. No outline holds no point.
    bool doIntersect(std::vector<GeoSegment>& outline, Point p);

    /// True when `p` lies in the bounding box of a and b, its sides included. Whether `p` lies on the line through them
    /// is not tested.
    bool isPointOnSegment(Point p, Point a, Point b);

    /// \}
    /// \name Kept for the interface
    /// The first three do nothing, the next three return false and do nothing, the last returns true.
    /// \{

    void initGrids();
    void removefromgrid(long long, long long);
    void initLampBeadCal(unsigned, unsigned, unsigned, unsigned, unsigned, std::vector<unsigned>&);
    bool whereami(long long, long long, long long, long long, std::pair<unsigned, unsigned>&);
    bool whereami(unsigned, unsigned, unsigned&, std::vector<unsigned char>&, bool);
    bool getsubzonedata(unsigned, unsigned, std::pair<unsigned, unsigned>&);
    bool isingrid(long long&, long long, long long);

    /// \}
    /// \name Configuration
    /// \{

    double m_pi;                            ///< acos(-1)
    long long m_scale = 100000;             ///< fixed-point scale of all sines and cosines
    long long m_radius = 1;                 ///< circumradius of a bead, geometry units
    unsigned short m_edgeCount = 0;         ///< edges per bead
    float m_angleStep = 0;                  ///< radians
    float m_angleBase = 0;                  ///< radians
    BeadFieldDesc mbeaddesc;                ///< band width
    unsigned long long m_columnCount = 19;  ///< bead columns
    std::vector<unsigned int> m_beadsPerColumn;
    std::vector<float> m_offsetX;  ///< in units of the radius
    std::vector<float> m_offsetY;  ///< in units of the radius
    int m_extentX = 1;             ///< geometry units
    int m_extentY = 1;             ///< geometry units
    int m_pixelsX = 0;
    int m_pixelsY = 0;
    long long m_zoneW = 1;  ///< geometry units per pixel; unchanged by a screen without pixels
    long long m_zoneH = 1;  ///< likewise

    /// \}
    /// \name Tables
    /// \{

    std::vector<std::pair<long long, long long>> m_directions;  ///< per edge: (sine, cosine) times the scale
    std::vector<long long> m_projMin;                           ///< per direction: least projection of a bead corner
    std::vector<long long> m_projMax;                           ///< per direction: greatest
    /// Per column the outline of a bead in row 0: six segments. The bead of row n lies 2 * n * band width further on
    /// along x.
    std::vector<std::vector<GeoSegment>> m_columnShapes;
    std::vector<unsigned short> m_cellEdges{1, 0, 5, 2, 3, 4};  ///< edge of the i-th triangle of a bead
    /// For edge k, the edges before and after it.
    std::vector<std::pair<unsigned short, unsigned short>> m_adjacentEdges{{5, 1}, {0, 2}, {1, 3},
                                                                           {2, 4}, {3, 5}, {4, 0}};
    std::vector<BeadDesc> m_beads;  ///< index = bead number; also the ordered table of the beads
    unsigned int m_beadCount = 0;
    unsigned int m_maskBytes = 0;  ///< ceil(m_beadCount / 8)
    /// Triangle key -> (bead, edge). Keys alone count: a triangle whose key equals that of another is found as that
    /// other, wherever it lies.
    CellMap m_cellMap;
    /// Edge key -> (bead, edge) of the first bead with that edge; pairs neighbours during the build.
    std::unordered_map<unsigned long long, std::pair<unsigned int, unsigned int>> m_edgeMap;
    /// Triangle key -> for each edge of its bead, the key of the bead's own triangle at that edge (0: none).
    std::unordered_map<unsigned long long, std::vector<unsigned long long>> m_cellSiblings;

    /// \}
    /// \name Working state
    /// \{

    CellMap m_workCellMap;  ///< what queries look in; `reset` makes it equal to `m_cellMap`, sharing its entries
    std::unordered_set<unsigned long long> m_seenRuns;  ///< keys of the boxes queried since the last `reset`
    std::vector<unsigned int> m_beadUsed;               ///< one bit per bead, least significant bit first
    unsigned int m_lastZoneEnd = 0;                     ///< end index of the last run
    bool m_initialised = false;
    long long m_generation = 0;  ///< number of resets

    /// \}
    /// \name Scratch
    /// \{

    unsigned short m_edge = 0;       ///< edge being built
    unsigned int m_row = 0;          ///< row being built
    long long m_band2 = 0;           ///< third band of the triangle visited last
    long long m_startBands[3] = {};  ///< bands of a box's first corner
    long long m_endBands[3] = {};    ///< bands of its second corner
    long long m_boxMin[3] = {};      ///< least bands of the box
    long long m_boxMax[3] = {};      ///< greatest bands of the box
    std::size_t m_touchedByte = 0;   ///< byte touched last by `msetBit`
    unsigned int m_touchedBit = 0;   ///< bit touched last, 0 = most significant
    unsigned int m_hashedFloat = 0;  ///< bit pattern hashed last
    unsigned int m_paramShiftX = 0;  ///< of `setParam`
    unsigned int m_paramShiftY = 0;
    int m_paramAngle = 0;
    int m_paramWidth = 0;
    int m_paramGrey = 0;
    std::vector<unsigned char> m_ramp;
    std::pair<long long, long long> m_paramRotation{0, 0};  ///< (sine, cosine) times the scale

    /// \}

private:
    void computeDirections(unsigned angleStep);
    void computeColumnShapes();
    unsigned beadsInColumn(unsigned long long column) const;
    GeoSegment edgeOf(unsigned long long column, unsigned row, unsigned edge) const;
    void measureField();
    void buildBead(unsigned long long column);
    void buildEdge(BeadDesc& bead, const GeoSegment& segment);
    void pairEdge(unsigned bead, const GeoSegment& segment);
    void registerCells();

    long long project(const GeoPoint& point, std::size_t direction) const;
    void bandsOf(long long x, long long y, long long* bands) const;
    bool enterBox(long long x0, long long y0, long long x1, long long y1);
    void refreshIndex();
    void markAllPending();
    bool use(unsigned bead);
    template <class Visit>
    void visitBox(Visit&& visit);

    void darkenEdge(const GeoPoint& from, const GeoPoint& to, unsigned char* image, long long rows) const;
    GeoPoint placedPixel(const GeoPoint& pixel) const;

    std::vector<std::array<long long, 3>> m_registered;  // the bands of all triangles of beads
    std::shared_ptr<const CellIndex> m_index;            // null until first needed
    std::vector<unsigned long long> m_pending;           // a bit per cell of the index: set = not visited yet
};

/// Bytes of the bead mask of the printers' field.
constexpr std::size_t kPrinterMaskBytes = 68;

/// Builds the field of the printers that V4 files are for: 19 columns of 29 and 28 beads in turn, 542 beads behind a
/// screen of 15120 x 6230 pixels of 140 x 190 geometry units. A field that is built already is only reset.
VNDLP_API void initPrinterBeadField(LampBeadCal& field);

}  // namespace VNDLPV4

#endif
