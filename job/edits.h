/// Changes to the bytes of a slice file that leave everything else as it is.

#pragma once

#include "io/new_file.h"
#include "job/model.h"
#include "job/settings.h"

#include <vndlp/slice_write.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vndlp::job {

using ByteList = std::vector<unsigned char>;

/// A member of a record that every layer has, found once for all layers.
struct LayerField {
    const LayerRecords* records = nullptr;
    const FieldSpec* spec = nullptr;
    std::int64_t offset = 0;  ///< in the record
};
/// \param name "LayerDef.exposureTime", "LayerDefEx.layerDef.exposureTime", "LayerDefEx.second.liftHeight".
std::optional<LayerField> findLayerField(const Model& model, const std::string& name);
FieldPlace placeIn(const Model& model, const LayerField& field, std::uint32_t layer);
/// A member, and the one that repeats it: extended records of CTB hold the table's entry, those of V4 stand twice.
std::vector<LayerField> layerMembers(const Model& model, const std::string& name);

/// Stretches of a file that are replaced, and what follows from their lengths.
class Edits {
public:
    struct Edit {
        std::int64_t size;  ///< bytes that are replaced
        ByteList bytes;
    };

    explicit Edits(const Model& model) : m_model(model) {}

    /// The value as it will stand in the file: of texts the characters.
    [[nodiscard]] SliceResult current(const FieldPlace& place, ByteList& bytes) const;
    [[nodiscard]] SliceResult value(const FieldPlace& place, FieldValue& value) const;
    /// Gives a field another value; of texts the characters, whose length may be another.
    [[nodiscard]] SliceResult set(const FieldPlace& place, const ByteList& bytes);
    /// Replaces bytes that are no field.
    void replace(std::int64_t offset, std::int64_t size, ByteList bytes);

    /// Moves every offset that points behind a stretch of another length. The last step.
    [[nodiscard]] SliceResult moveOffsets();

    [[nodiscard]] const std::map<std::int64_t, Edit>& all() const { return m_edits; }
    [[nodiscard]] const Model& model() const { return m_model; }
    /// Bytes by which the file grows.
    [[nodiscard]] std::int64_t growth() const;

private:
    /// A stretch that is given another length.
    struct Move {
        std::int64_t end;
        std::int64_t size;
        std::int64_t growth;
    };

    [[nodiscard]] SliceResult movePointer(const FieldPlace& place, const std::vector<Move>& moves);
    [[nodiscard]] SliceResult movePointersOfLevels(const std::vector<Move>& moves);

    const Model& m_model;
    std::map<std::int64_t, Edit> m_edits;
};

/// Applies edits to a file that is in memory.
ByteList applied(const Edits& edits, const ByteList& file);

/// Writes a file with its edits, and its trailer anew; `damaged` where the trailer it has does not match.
/// \param key what the encoded data of the layers are to be scrambled with; none: they stay as they are.
[[nodiscard]] SliceResult writeEdited(const SliceFile& file, const Edits& edits, std::optional<std::uint32_t> key,
                                      NewFile& out, const SliceListener& listener);

/// What the system said of a failed output.
SliceResult outputFailure(const NewFile& out);

/// Tells a listener; `stopped` when it says so.
[[nodiscard]] SliceResult tell(const SliceListener& listener, const SliceFinding& finding);
[[nodiscard]] SliceResult tellNote(const SliceListener& listener, std::string text);
[[nodiscard]] SliceResult tellProgress(const SliceListener& listener, std::uint64_t done, std::uint64_t all);

}  // namespace vndlp::job
