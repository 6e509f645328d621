/// A slice file of any format as the commands see it.

#pragma once

#include "tools/base/settings.h"
#include "tools/drawings/polylines.h"
#include "tools/images/png.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vndlp::tools {

/// A value of a header or of the parameters, for people and for machines.
struct Field {
    std::string key;               ///< as the record's member is called
    nlohmann::ordered_json value;  ///< as it is stored
    std::string text;              ///< as a person reads it, with unit
};

/// A stretch of the file.
struct Section {
    std::string name;
    long long offset;
    long long size;
};

/// A preview picture in the file.
struct Preview {
    std::string name;
    ColourImage image;  ///< in the colours a printer shows
};

/// What one layer's record says and holds.
struct LayerFacts {
    long long offset = 0;               ///< of the layer's record in the file
    long long size = 0;                 ///< bytes of the record
    std::optional<std::uint32_t> area;  ///< the stored area value
    std::optional<std::uint64_t> runs;  ///< runs (or polylines) of the layer, where the format counts them
    std::uint64_t litPixels = 0;        ///< of files with images
    std::vector<Field> fields;          ///< values of its own, such as its exposure
};

/// One layer of a file whose layers are geometry, in the file's units.
struct LayerShapes {
    bool isMesh = false;
    Polylines polylines;         ///< of a layer that is no mesh
    std::vector<Vec2> vertices;  ///< of a mesh; may hold what is no number
    double areaUm2 = 0;
};

/// What verification found wrong.
struct Finding {
    long long offset;  ///< where in the file; -1 when it has no place
    std::string text;
};

/// State of the checksum trailer.
struct Trailer {
    std::string kind;  ///< "none", "xor" or "crc32"
    bool present = false;
    bool matches = false;
};

/// An opened slice file. `readLayer` and `readShapes` may run in several threads at once, everything else in one.
class SliceFile {
public:
    SliceFile() = default;
    SliceFile(const SliceFile&) = delete;
    SliceFile& operator=(const SliceFile&) = delete;
    virtual ~SliceFile() = default;

    virtual std::string format() const = 0;  ///< such as "vndlp V2"
    virtual int version() const = 0;
    virtual int width() const = 0;  ///< pixels
    virtual int height() const = 0;
    virtual int layerCount() const = 0;
    virtual bool hasImages() const { return true; }  ///< layers are pixels, not geometry
    virtual std::vector<Field> header() const = 0;
    virtual std::vector<Field> parameters() const = 0;
    virtual std::vector<Section> sections() const = 0;
    virtual std::vector<Preview> previews() const = 0;
    virtual Trailer trailer() const = 0;

    /// The settings of the file, for writing another with the same.
    virtual PrintSettings settings() const = 0;

    /// Total resin volume in millilitres; nothing where the format does not tell.
    virtual std::optional<double> volumeMl() const = 0;

    /// Decodes one layer. Throws Failure naming file, layer and offset.
    virtual void readLayer(int index, GreyImage& out) = 0;

    /// Reads one layer of a file without images. Throws Failure as `readLayer`.
    virtual LayerShapes readShapes(int index);

    /// Reads one layer's record and counts its lit pixels. Throws Failure as `readLayer`.
    virtual LayerFacts layerFacts(int index) = 0;

protected:
    /// Pixels a layer may have at most; what claims more is refused before anything is allocated.
    static constexpr std::int64_t kMaxLayerPixels = kMaxGreyPixels;
};

/// Opens a slice file by what stands in it, not by its name. Throws Failure when it is none or its head is damaged.
std::unique_ptr<SliceFile> openSliceFile(const std::string& path);

/// Checks everything a file holds, whatever its format: trailer, structure, every layer. \return what is wrong, in file
/// order; empty for a sound file. Throws Failure only when the file cannot be opened at all.
std::vector<Finding> verifySliceFile(const std::string& path);

/// A file's checksum trailer: the kind its magic and version call for, and whether it agrees. A sum by XOR agrees where
/// the bytes were taken as signed or as unsigned; the library accepts some sums more, by which damage would pass.
Trailer trailerOf(const std::string& path);

/// What verification says of a trailer that does not match.
Finding trailerFinding(const Trailer& trailer, long long fileSize);

/// Adds a finding for every section that begins before another one has ended.
void findOverlaps(std::vector<Section> sections, std::vector<Finding>& findings);

/// The formats' own parts of `openSliceFile` and `verifySliceFile`.
bool isV4File(const std::string& path);
std::unique_ptr<SliceFile> openV4File(const std::string& path);
std::vector<Finding> verifyV4File(const std::string& path);
bool isVendorFile(const std::string& path);
std::unique_ptr<SliceFile> openVendorFile(const std::string& path);
std::vector<Finding> verifyVendorFile(const std::string& path);
bool isCtbFile(const std::string& path);
std::unique_ptr<SliceFile> openCtbFile(const std::string& path);
std::vector<Finding> verifyCtbFile(const std::string& path);
bool isLineFile(const std::string& path);
std::unique_ptr<SliceFile> openLineFile(const std::string& path);
std::vector<Finding> verifyLineFile(const std::string& path);

}  // namespace vndlp::tools
