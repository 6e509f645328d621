// One layer at a time, in memory: every operation beside its plain form, a copy of the image, and the same layer as
// PNG.

#include "bench/measure.h"
#include "bench/plain.h"
#include "bench/png.h"
#include "io/xor_sum.h"

#include <vndlp/checksum.h>
#include <vndlp/v4.h>

#include <cstdio>
#include <cstring>
#include <memory>

using namespace vndlp;
using bench::Bytes;
using bench::Layer;

namespace {

constexpr unsigned int kKey = 300;
constexpr unsigned int kLayerIndex = 7;

bool equal(const std::vector<WhiteData>& a, const std::vector<WhiteData>& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](const WhiteData& l, const WhiteData& r) {
               return l.start.x == r.start.x && l.start.y == r.start.y && l.end.y == r.end.y && l.grey == r.grey;
           });
}

unsigned char* pixelsOf(const Layer& layer) { return const_cast<unsigned char*>(layer.pixels.data()); }

/// A layer record that reads its code from a file the system holds in memory.
class StoredLayer {
public:
    StoredLayer(const Layer& layer, const std::string& path) : m_path(path) {
        const Bytes code =
            CTB::LayerDef::encodeCtbImage(pixelsOf(layer), static_cast<unsigned>(layer.pixels.size()), 0, 0);
        FileWrite out(path, 0);
        out.writeBytes(code.data(), code.size());
        out.close();
        m_file = std::make_unique<FileRead>(path, 0);
        record = std::make_unique<CTB::LayerDef>(*m_file);
        record->dataOffset = 0;
        record->dataSize = static_cast<unsigned>(code.size());
    }
    ~StoredLayer() {
        m_file.reset();
        std::remove(m_path.c_str());
    }
    StoredLayer(const StoredLayer&) = delete;
    StoredLayer& operator=(const StoredLayer&) = delete;

    std::unique_ptr<CTB::LayerDef> record;

private:
    std::string m_path;
    std::unique_ptr<FileRead> m_file;
};

using Layers = std::shared_ptr<bench::Rotation>;

void addRunRows(const Layers& layers, const std::string& name, bool withPlain) {
    const Layer& layer = layers->next();
    const std::size_t size = layer.pixels.size();
    auto expected = std::make_shared<std::vector<WhiteData>>();
    bench::columnWalk(layer, *expected);
    auto runs = std::make_shared<std::vector<WhiteData>>();
    auto packed = std::make_shared<Bytes>();
    grayDataVecWhiteData(pixelsOf(layer), layer.width, layer.height, *runs);
    if (!equal(*runs, *expected)) return bench::addFailure("runs", name);
    Bytes expectedPacked;
    bench::packRuns(*expected, expectedPacked);
    grayDataPackedRuns(layer.pixels.data(), layer.width, layer.height, *packed);
    if (*packed != expectedPacked) return bench::addFailure("packed runs", name);

    if (withPlain) {
        // into vectors of its own, which have grown as it fills them
        auto plainPacked = std::make_shared<Bytes>();
        bench::packRuns(*expected, *plainPacked);
        bench::add("plain runs", name, size, [layers, expected] {
            expected->clear();
            bench::columnWalk(layers->next(), *expected);
            return expected->size() * sizeof(WhiteData);
        });
        bench::add("plain packed runs", name, size, [layers, expected, plainPacked] {
            expected->clear();
            plainPacked->clear();
            bench::columnWalk(layers->next(), *expected);
            bench::packRuns(*expected, *plainPacked);
            return plainPacked->size();
        });
    }
    bench::add("runs", name, size, [layers, runs] {
        runs->clear();
        const Layer& next = layers->next();
        grayDataVecWhiteData(pixelsOf(next), next.width, next.height, *runs);
        return runs->size() * sizeof(WhiteData);
    });
    bench::add("packed runs", name, size, [layers, packed] {
        packed->clear();
        const Layer& next = layers->next();
        grayDataPackedRuns(next.pixels.data(), next.width, next.height, *packed);
        return packed->size();
    });
}

void addCodeRows(const Layers& layers, const std::string& name, bool withPlain) {
    const Layer& layer = layers->next();
    const std::size_t size = layer.pixels.size();
    const auto encode = [layers, size] {
        return CTB::LayerDef::encodeCtbImage(pixelsOf(layers->next()), static_cast<unsigned>(size), 0, 0);
    };
    if (encode() != bench::encodeCtb(layer)) return bench::addFailure("CTB encode", name);
    if (VNDLPV4::LayerDef::encodeImage(layer.pixels.data(), size, 0, 0) != bench::encodeCtb(layer)) {
        return bench::addFailure("V4 encode", name);
    }
    if (withPlain) {
        bench::add("plain CTB encode", name, size, [layers] { return bench::encodeCtb(layers->next()).size(); });
    }
    bench::add("CTB encode", name, size, [encode] { return encode().size(); });
    bench::add("V4 encode", name, size, [layers, size] {
        return VNDLPV4::LayerDef::encodeImage(layers->next().pixels.data(), size, 0, 0).size();
    });

    auto stored = std::make_shared<StoredLayer>(layer, "layer_bench." + std::to_string(size) + name[0] + ".tmp");
    auto pixels = std::make_shared<Bytes>(size);
    const auto width = static_cast<unsigned>(layer.width);
    const auto height = static_cast<unsigned>(layer.height);
    stored->record->decodeCtbImageInto(pixels->data(), pixels->size(), 0, 0);
    const Bytes expected = bench::reducedPixels(layer);
    if (*pixels != expected || stored->record->decodeCtbImage(width, height, 0, 0) != expected) {
        return bench::addFailure("CTB decode", name);
    }
    if (withPlain) {
        bench::add("fresh vector", name, size, [size] {
            Bytes fresh(size);
            benchmark::DoNotOptimize(fresh.data());
            return fresh.size();
        });
    }
    bench::add("CTB decode", name, size, [stored, pixels] {
        stored->record->decodeCtbImageInto(pixels->data(), pixels->size(), 0, 0);
        return static_cast<std::size_t>(stored->record->dataSize);
    });
    bench::add("CTB decode, returned", name, size, [stored, width, height] {
        benchmark::DoNotOptimize(stored->record->decodeCtbImage(width, height, 0, 0).data());
        return static_cast<std::size_t>(stored->record->dataSize);
    });
}

void addMemoryRows(const Layers& layers, const std::string& name) {
    const std::size_t size = layers->next().pixels.size();
    auto copy = std::make_shared<Layers::element_type>(layers->next());
    bench::add("memcpy", name, size, [layers, copy, size] {
        std::memcpy(pixelsOf(copy->next()), layers->next().pixels.data(), size);
        return size;
    });
}

/// Sums and scrambling do not depend on what they are given.
void addByteRows(const Layers& layers, const std::string& name) {
    const Layer& layer = layers->next();
    const std::size_t size = layer.pixels.size();
    auto bytes = std::make_shared<Bytes>(layer.pixels);
    CTB::CTBWrite::LayerRleCryptBuffer(kKey, kLayerIndex, *bytes);
    const bool changed = *bytes != layer.pixels;
    CTB::CTBWrite::LayerRleCryptBuffer(kKey, kLayerIndex, *bytes);
    if (!changed || *bytes != layer.pixels) return bench::addFailure("scramble", name);
    CheckSum& sums = CheckSum::instance();
    if (sums.makeCrc(0, pixelsOf(layer), static_cast<unsigned>(size)) != bench::crc32(layer.pixels)) {
        return bench::addFailure("CRC", name);
    }
    bench::add("scramble", name, size, [bytes] {
        CTB::CTBWrite::LayerRleCryptBuffer(kKey, kLayerIndex, *bytes);
        return bytes->size();
    });
    bench::add("CRC", name, size, [layers, size, &sums] {
        benchmark::DoNotOptimize(sums.makeCrc(0, pixelsOf(layers->next()), static_cast<unsigned>(size)));
        return size;
    });
    bench::add("XOR", name, size, [layers, size] {
        benchmark::DoNotOptimize(xorOf(layers->next().pixels.data(), size));
        return size;
    });
}

void addRows(const Layer& layer, const std::string& name, bool withPlain) {
    const auto layers = std::make_shared<bench::Rotation>(layer);
    addMemoryRows(layers, name);
    addRunRows(layers, name, withPlain);
    addCodeRows(layers, name, withPlain);
    if (!withPlain) return;
    bench::add("PNG", name, layer.pixels.size(), [layers] { return bench::encodePng(layers->next()).size(); });
    if (name[0] == 's') addByteRows(layers, name);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    struct Screen {
        int width;
        int height;
        bool isMain;
    };
    for (const Screen& screen :
         {Screen{3840, 2400, false}, {7680, 4320, false}, {11520, 5120, true}, {15120, 6230, false}}) {
        const std::string size = "/" + std::to_string(screen.width) + "x" + std::to_string(screen.height);
        addRows(bench::emptyLayer(screen.width, screen.height), "empty" + size, screen.isMain);
        addRows(bench::sparseLayer(screen.width, screen.height), "sparse" + size, screen.isMain);
        addRows(bench::solidLayer(screen.width, screen.height), "solid" + size, screen.isMain);
        addRows(bench::noiseLayer(screen.width, screen.height), "noise" + size, screen.isMain);
    }
    addRows(bench::towerLayer(), "tower/1440x2560", true);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
