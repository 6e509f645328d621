// The program's own reading of slice files: opening, describing, verifying, every layer. The last byte may ask for a
// right trailer first.

#include "fuzz/harness.h"
#include "fuzz/pictures.h"
#include "tests/support/memory_file.h"
#include "tools/base/failure.h"
#include "tools/formats/slice_file.h"

#include <vndlp/checksum.h>

#include <algorithm>

namespace vndlp::fuzz {

namespace {

constexpr std::int64_t kMostPixels = 1 << 18;
constexpr int kMostLayers = 4;
/// Two pictures of 2^24 pixels, decoded and in the program's form.
constexpr long long kPreviewBytes = 2 * (1LL << 24) * (3 + 4);

void describe(const std::string& path) {
    const std::unique_ptr<tools::SliceFile> file = tools::openSliceFile(path);
    file->header();
    file->parameters();
    file->sections();
    allowBytes(kPreviewBytes);
    file->previews();
    allowBytes(-kPreviewBytes);
    file->settings();
    file->volumeMl();
    file->trailer();
    if (std::int64_t{file->width()} * file->height() > kMostPixels) return;
    tools::GreyImage image;
    for (int i = 0; i < std::min(file->layerCount(), kMostLayers); ++i) {
        file->layerFacts(i);
        if (file->hasImages()) {
            file->readLayer(i, image);
        } else {
            file->readShapes(i);
        }
    }
}

}  // namespace

void run(const Bytes& input) {
    const test::MemoryFile file(withPictures(input));
    if (input.back() % 2 == 0) CheckSum::instance().appendFileSum(file.path().c_str());
    // the pictures of a vendor file are there more than once
    allowBytes((8 << 20) + 4 * kMostPixels);
    try {
        describe(file.path());
    } catch (const tools::Failure&) {
    }
    try {
        const std::vector<tools::Finding> findings = tools::verifySliceFile(file.path());
        // what is found sound can be read
        if (findings.empty()) describe(file.path());
    } catch (const tools::Failure&) {
    }
}

}  // namespace vndlp::fuzz
