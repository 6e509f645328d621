/// A slice file without its layers' data: what a new file is made from. As a file of its own it is read, and changed,
/// like any other.

#pragma once

#include "job/edits.h"

#include <cstdint>
#include <vector>

namespace vndlp::job {

/// Where a layer of a new file has its records from.
constexpr std::uint32_t kNoLayer = 0xFFFFFFFF;

/// What a new file is like.
struct SkeletonPlan {
    SliceFormat format = SliceFormat::none;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint32_t> from;  ///< for each layer the one of the file it is like, or `kNoLayer`
};

/// The head of a new file for no layers, with what the format's writers put there and without settings.
ByteList freshHead(SliceFormat format, std::uint32_t width, std::uint32_t height);

/// The head of a file, for another number of layers and another screen.
[[nodiscard]] SliceResult likeHead(const SliceFile& like, const SkeletonPlan& plan, ByteList& head);

/// Appends the layers' records to a head.
/// \param like of the same format: layers that are like one of its take its records; null: none.
[[nodiscard]] SliceResult appendLayers(const SkeletonPlan& plan, const SliceFile* like, ByteList& bytes);

/// The parts of a skeleton.
struct SkeletonParts {
    ByteList head;     ///< vendor files: with the area table
    ByteList entries;  ///< of the layer table
    ByteList records;  ///< extended records
    ByteList seconds;  ///< their second copies
    std::int64_t entryBytes = 0;
    std::int64_t recordBytes = 0;
    std::int64_t tableAt = -1;  ///< vendor files: of the area table in the head
};
SkeletonParts takeApart(const Model& skeleton, const ByteList& bytes);

}  // namespace vndlp::job
