// What the program takes in: SL1 jobs and zips of pictures, from the archive to the pixels.

#include "fuzz/harness.h"
#include "tests/support/memory_file.h"
#include "tools/base/failure.h"
#include "tools/jobs/job.h"

#include <algorithm>

namespace vndlp::fuzz {

namespace {

constexpr std::int64_t kMostPixels = 1 << 20;
constexpr int kMostLayers = 4;

void readJob(const std::string& path) {
    const std::unique_ptr<tools::LayerSource> job = tools::openJob(path);
    require(job->layerCount() > 0 && job->width() > 0 && job->height() > 0);
    if (std::int64_t{job->width()} * job->height() > kMostPixels) return;
    allowBytes(3 * kMostPixels);
    tools::GreyImage image;
    for (int i = 0; i < std::min(job->layerCount(), kMostLayers); ++i) {
        job->readLayer(i, image);
        require(image.width == job->width() && image.height == job->height());
    }
    job->thumbnails();
}

}  // namespace

void run(const Bytes& input) {
    const test::MemoryFile file(input);
    // an archive's directory is kept in records with a name each
    allowBytes(64 * static_cast<long long>(input.size()));
    try {
        readJob(file.path());
    } catch (const tools::Failure&) {
    }
}

}  // namespace vndlp::fuzz
