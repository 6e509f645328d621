// Writes inputs for every fuzz target: make_seeds FOLDER makes FOLDER/TARGET/NAME.

#include "fuzz/pictures.h"
#include "tests/support/every_kind.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#if defined(VNDLP_FUZZ_TOOLS)
#include "tools/images/png.h"

#include <zip.h>
#endif

namespace fs = std::filesystem;
using namespace vndlp;
using fuzz::Bytes;

namespace {

constexpr int kKnobs = 6;

void save(const fs::path& folder, const std::string& name, const Bytes& bytes) {
    fs::create_directories(folder);
    std::ofstream file(folder / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) throw std::runtime_error((folder / name).string() + ": cannot be written");
}

Bytes fileBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

/// The last byte chooses what a target does with a file, so each file comes with several.
void saveWithKnobs(const fs::path& folder, const std::string& name, const Bytes& file) {
    save(folder, name, file);
    for (int knob = 0; knob < kKnobs; ++knob) {
        Bytes input = file;
        input.push_back(static_cast<unsigned char>(knob * 17));
        save(folder, name + "_" + std::to_string(knob), input);
    }
}

void saveFiles(const fs::path& out) {
    fs::create_directories(out);
    for (const test::FileKind& kind : test::everyKind()) {
        const fs::path path = out / ("file" + kind.ending);
        if (kind.write(path.string()) != 0) throw std::runtime_error(path.string() + ": cannot be written");
        const Bytes input = fuzz::withMarks(fileBytes(path));
        fs::remove(path);
        const bool isLine = kind.ending == ".vnline";
        if (kind.ending == ".ctb") saveWithKnobs(out / "ctb_read_fuzz", kind.name, input);
        if (kind.ending == ".vndlpv4") saveWithKnobs(out / "v4_read_fuzz", kind.name, input);
        if (isLine) saveWithKnobs(out / "line_read_fuzz", kind.name, input);
        if (isLine || kind.ending == ".vndlp") saveWithKnobs(out / "vendor_read_fuzz", kind.name, input);
        saveWithKnobs(out / "verify_fuzz", kind.name, input);
        Bytes sealed = input;
        sealed.resize(input.size() - 4);
        save(out / "checksum_fuzz", kind.name, sealed);
    }
}

/// For the targets that take pixels, codes or numbers.
void saveBytes(const fs::path& out) {
    Bytes ramp;
    Bytes bars;
    for (int i = 0; i < 400; ++i) {
        ramp.push_back(static_cast<unsigned char>(i));
        bars.push_back(i / 90 % 2 == 0 ? 0 : 250);
    }
    for (const char* target :
         {"runs_codec_fuzz", "ctb_codec_fuzz", "ctb_preview_fuzz", "v4_codec_fuzz", "print_time_fuzz", "beads_fuzz"}) {
        save(out / target, "ramp", ramp);
        save(out / target, "bars", bars);
    }
    for (unsigned char format = 0; format < 4; ++format) {
        for (unsigned char order = 0; order < 2; ++order) {
            Bytes job{format, order};
            job.insert(job.end(), ramp.begin(), ramp.end());
            save(out / "round_trip_fuzz", "job" + std::to_string(format) + std::to_string(order), job);
        }
    }
    float settings[6] = {3, 30, 2.5F, 4, 8, 2};
    Bytes numbers(sizeof settings);
    std::memcpy(numbers.data(), settings, sizeof settings);
    save(out / "print_time_fuzz", "settings", numbers);
}

#if defined(VNDLP_FUZZ_TOOLS)
Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

void saveZip(const fs::path& folder, const std::string& name, const std::vector<std::pair<std::string, Bytes>>& entries,
             int method) {
    fs::create_directories(folder);
    fs::remove(folder / name);
    zip_t* const archive = zip_open((folder / name).c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    if (archive == nullptr) throw std::runtime_error(name + ": cannot be written");
    for (const auto& [entry, bytes] : entries) {
        zip_source_t* const source = zip_source_buffer(archive, bytes.data(), bytes.size(), 0);
        const zip_int64_t index = zip_file_add(archive, entry.c_str(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) throw std::runtime_error(name + ": cannot be written");
        zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), method, 0);
    }
    if (zip_close(archive) != 0) throw std::runtime_error(name + ": cannot be written");
}

void saveJobs(const fs::path& out) {
    tools::GreyImage layer{8, 4, Bytes(32, 0)};
    layer.pixels[9] = 255;
    tools::ColourImage picture{4, 4, Bytes(64, 128)};
    const Bytes grey = tools::encodePng(layer);
    const Bytes colour = tools::encodePng(picture);
    save(out / "png_read_fuzz", "grey", grey);
    save(out / "png_read_fuzz", "colour", colour);
    const Bytes config = bytesOf(std::string(
        "expTime = 2.5\nexpTimeFirst = 30\njobDir = job\nlayerHeight = 0.05\nnumFade = 1\nnumFast = 1\nnumSlow = 1\n"));
    const Bytes printer = bytesOf(std::string("display_pixels_x = 8\ndisplay_width = 1.2\nmaterial_density = 1.1\n"));
    for (const int method : {ZIP_CM_STORE, ZIP_CM_DEFLATE}) {
        const std::string suffix = std::to_string(method);
        saveZip(out / "job_import_fuzz", "job" + suffix,
                {{"config.ini", config},
                 {"prusaslicer.ini", printer},
                 {"job00000.png", grey},
                 {"job00001.png", grey},
                 {"thumbnail/thumbnail4x4.png", colour}},
                method);
        saveZip(out / "job_import_fuzz", "plain" + suffix, {{"a1.png", grey}, {"a2.png", grey}}, method);
    }
    save(out / "svg_read_fuzz", "drawing",
         bytesOf(std::string("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"2mm\" height=\"1mm\" viewBox=\"0 0 20 "
                             "10\"><g transform=\"scale(1 -1)\"><path d=\"M1 1L3 1 h2 V4 z m1,1 l-1-2\"/></g><polygon "
                             "points=\"1,1 2,2 3,1\"/><polyline points=\"0 0 1e1 .5\"/></svg>")));
}
#else
void saveJobs(const fs::path& /*out*/) {}
#endif

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: make_seeds FOLDER\n", stderr);
        return 2;
    }
    try {
        saveFiles(argv[1]);
        saveBytes(argv[1]);
        saveJobs(argv[1]);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
