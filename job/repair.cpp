/// What can be saved of a cut or damaged file.

#include "io/xor_sum.h"
#include "job/find_layers.h"
#include "job/layer_encoding.h"
#include "job/results.h"
#include "job/settings.h"
#include "job/values.h"

#include <vndlp/slice_write.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace vndlp {

namespace {

using job::Model;

job::ProgressSink progressOf(const SliceListener& listener) {
    return [&listener](std::uint64_t done, std::uint64_t all) { return job::tellProgress(listener, done, all).isOk(); };
}

/// Whether everything up to the end of the structure is there, so that only what follows it can be wrong.
bool isBodySound(const Model& model) {
    const std::int64_t end = job::structureEnd(model);
    if (end < 0 || !model.bytes.holds(0, end)) return false;
    if (model.isVendor()) {
        job::FieldPlace tail;
        job::FieldValue text;
        const bool hasTail = job::placeTail(model, tail) && job::readField(model.bytes, tail, text).isOk();
        if (!hasTail || text.text != model.magic->tailMagic) return false;
    }
    // what stands twice may differ though every layer can be decoded
    bool isSound = true;
    for (std::uint32_t i = 0; isSound && i < model.layers().layers.size(); ++i) {
        const job::FindingSink stopAtError = [&isSound](SliceFinding&& finding) {
            isSound = isSound && finding.severity != SliceSeverity::error;
            return isSound;
        };
        isSound = job::verifyCopies(model, i, stopAtError).isOk() && job::verifyLayer(model, i, stopAtError).isOk();
    }
    return isSound;
}

/// The file up to the end of its structure, with the trailer that belongs there.
SliceResult copyBody(const Model& model, NewFile& out, const SliceListener& listener) {
    const std::int64_t end = job::structureEnd(model);
    std::uint32_t sum = 0;
    SliceResult result = job::forEachPiece(
        model.bytes, 0, end, job::kPieceBytes, [&](unsigned char* data, std::size_t size, std::int64_t done) {
            sum = model.trailerKind == CHECKSUM_XOR
                      ? continueXor(sum, data, size)
                      : CheckSum::instance().makeCrc(sum, data, static_cast<unsigned>(size));
            if (!out.write(done, data, size)) return job::outputFailure(out);
            return job::tellProgress(listener, static_cast<std::uint64_t>(done), static_cast<std::uint64_t>(end));
        });
    if (!result.isOk() || model.trailerKind == CHECKSUM_NONE) return result;
    const auto trailer = storedNumber(sum, BigEndian);
    return out.write(end, trailer.data(), trailer.size()) ? result : job::outputFailure(out);
}

SliceResult writeWhole(const SliceFile& file, const job::FoundLayers& found, const std::string& output,
                       const SliceListener& listener) {
    const Model& model = file.state()->model;
    SliceTarget target;
    target.format = model.info.format;
    target.like = &file;
    for (const auto& [number, place] : found.whole) target.likeLayers.push_back(number);
    target.layers = static_cast<std::uint32_t>(found.whole.size());
    target.hasKey = model.info.format == SliceFormat::ctb;
    target.key = model.key;
    SliceWriter writer;
    SliceResult result = writer.create(output, target);
    std::uint32_t layer = 0;
    for (const auto& [number, place] : found.whole) {
        if (result.isOk()) result = job::putPlaced(writer, layer++, model, number, place);
        if (result.isOk()) result = job::tellProgress(listener, layer, found.whole.size());
    }
    return result.isOk() ? writer.finish() : result;
}

SliceResult tellLosses(const Model& model, const SliceTrailer& trailer, const job::FoundLayers& found,
                       const SliceListener& listener) {
    SliceResult result;
    const std::int64_t size = model.bytes.size();
    const auto tell = [&](std::int64_t offset, std::string text) {
        if (result.isOk()) result = job::tell(listener, {SliceSeverity::error, offset, -1, std::move(text)});
    };
    for (const SliceFinding& finding : model.headFindings) tell(finding.offset, finding.text);
    for (const SliceFinding& finding : found.hurt) {
        if (result.isOk()) result = job::tell(listener, finding);
    }
    if (!found.hurt.empty()) return result;
    const std::int64_t end = job::structureEnd(model);
    const std::int64_t left = size - end - (model.trailerKind == CHECKSUM_NONE ? 0 : kTrailerBytes);
    if (end >= 0 && left > 0) tell(size - left, std::to_string(left) + " bytes behind the end are left out");
    if (trailer.state == SliceTrailerState::missing) tell(size, "the checksum trailer was missing");
    if (trailer.state == SliceTrailerState::wrong && trailer.soundAt < 0) {
        tell(size - kTrailerBytes, "the checksum trailer did not match");
    }
    return result;
}

SliceResult repair(const std::string& path, const std::string& output, SliceRepaired& repaired,
                   const SliceListener& listener) {
    SliceFile file;
    SliceResult result = file.open(path);
    if (!result.isOk()) return result;
    const Model& model = file.state()->model;
    if (result = job::checkHead(model); !result.isOk()) return result;
    job::FoundLayers found;
    SliceTrailer trailer;
    result = job::readTrailer(model, trailer, progressOf(listener));
    if (result.isOk()) result = job::findLayers(model, progressOf(listener), found);
    if (!result.isOk()) return result;
    std::vector<std::uint32_t> numbers;
    for (const auto& [number, place] : found.whole) numbers.push_back(number);
    SliceRepaired made;
    made.layersKept = static_cast<std::uint32_t>(numbers.size());
    made.layersOf = model.info.layers;
    made.whole = job::layerListText(numbers);
    if (numbers.empty()) {
        return found.hurt.empty()
                   ? job::damaged(-1, "no layer is whole")
                   : job::damaged(found.hurt.front().offset, "no layer is whole", found.hurt.front().layer);
    }
    const bool isBody = found.hurt.empty() && isBodySound(model);
    const std::int64_t sealed = job::structureEnd(model) + (model.trailerKind == CHECKSUM_NONE ? 0 : kTrailerBytes);
    const bool isSealed = trailer.state == SliceTrailerState::ok || trailer.state == SliceTrailerState::none;
    made.isSound = isBody && isSealed && sealed == model.bytes.size() && model.headFindings.empty();
    if (result = tellLosses(model, trailer, found, listener); !result.isOk()) return result;
    if (isBody) {
        NewFile out;
        if (!out.create(output)) return job::outputFailure(out);
        result = copyBody(model, out, listener);
        file.close();
        if (result.isOk() && !out.commit()) result = job::outputFailure(out);
    } else {
        result = writeWhole(file, found, output, listener);
    }
    if (result.isOk()) repaired = std::move(made);
    return result;
}

}  // namespace

SliceResult repairSliceFile(const std::string& path, const std::string& output, SliceRepaired& repaired,
                            const SliceListener& listener) {
    return job::guarded([&] { return repair(path, output, repaired, listener); });
}

}  // namespace vndlp
