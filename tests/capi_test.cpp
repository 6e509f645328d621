// The C interface: what it refuses, structs of other lengths, errors of threads, callbacks. That its calls do what they
// say is tried from C (package/c_interface.c).

#include <vndlp/vndlp_c.h>

#include <gtest/gtest.h>

#include "support/files.h"

#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::uint32_t kWidth = 40;
constexpr std::uint32_t kHeight = 30;
constexpr std::uint32_t kLayers = 3;

std::vector<std::uint8_t> image(std::uint32_t layer) {
    std::vector<std::uint8_t> pixels(std::size_t{kWidth} * kHeight);
    for (std::uint32_t row = 5; row < 20 + layer; ++row) std::memset(&pixels[std::size_t{row} * kWidth + 4], 255, 20);
    return pixels;
}

class CInterface : public vndlp::test::FileTest {
protected:
    void SetUp() override {
        vndlp_set_message_handler(vndlp_ignore_message, nullptr);
        ASSERT_EQ(vndlp_create(name.c_str(), kWidth, kHeight, kLayers, nullptr, &writer), VNDLP_OK);
        for (std::uint32_t layer = 0; layer < kLayers; ++layer) {
            const auto pixels = image(layer);
            ASSERT_EQ(vndlp_put_pixels(writer, layer, pixels.data(), 0, pixels.size()), VNDLP_OK);
        }
        ASSERT_EQ(vndlp_finish(writer), VNDLP_OK);
        vndlp_writer_free(writer);
        ASSERT_EQ(vndlp_open(name.c_str(), &file), VNDLP_OK);
        ASSERT_EQ(vndlp_create(path("b.ctb").c_str(), kWidth, kHeight, kLayers, nullptr, &writer), VNDLP_OK);
    }
    void TearDown() override {
        vndlp_close(file);
        vndlp_writer_free(writer);
    }

    std::string name = path("a.ctb");
    VndlpFile* file = nullptr;
    VndlpWriter* writer = nullptr;
};

template <class Struct>
Struct sized() {
    Struct made = {};
    made.size = sizeof made;
    return made;
}

TEST_F(CInterface, RefusesWhatCannotBeAndTouchesNothing) {
    constexpr std::int64_t kArgument = VNDLP_E_ARGUMENT;
    std::vector<std::uint8_t> pixels(std::size_t{kWidth} * kHeight, 77);
    std::vector<std::uint8_t> rgb(std::size_t{3} * 400 * 300, 77);
    const std::size_t bytes = pixels.size();
    std::uint8_t* const to = pixels.data();
    VndlpFile* opened = nullptr;
    VndlpWriter* made = nullptr;
    VndlpEncoded* encoded = nullptr;
    double number = 77;
    const char* text = "77";
    auto info = sized<VndlpInfo>();
    auto raw = sized<VndlpRaw>();
    auto preview = sized<VndlpPreview>();
    auto facts = sized<VndlpLayer>();
    auto key = sized<VndlpKey>();
    auto options = sized<VndlpCheckOptions>();
    options.threshold = 255;
    auto salvage = sized<VndlpConvertOptions>();
    salvage.salvage = 3;
    auto change = sized<VndlpChange>();
    VndlpInfo cut = {};
    cut.size = 7;
    VndlpRun backwards = {5, 4, 0, 200, 0};
    const std::array<std::int32_t, 4> xy = {1, 2, 3, 4};
    const std::array<std::uint32_t, 2> falling = {1, 0};
    struct Case {
        const char* what;
        std::int64_t expected;
        std::function<std::int64_t()> call;
    };
    const Case cases[] = {
        {"open no path", kArgument, [&] { return vndlp_open(nullptr, &opened); }},
        {"open into nothing", kArgument, [&] { return vndlp_open(name.c_str(), nullptr); }},
        {"open what is not there", VNDLP_E_FILE, [&] { return vndlp_open((name + "x").c_str(), &opened); }},
        {"open a folder", VNDLP_E_FILE, [&] { return vndlp_open(path(".").c_str(), &opened); }},
        {"open no memory", kArgument, [&] { return vndlp_open_memory(nullptr, 9, &opened); }},
        {"open no slice file", VNDLP_E_FORMAT, [&] { return vndlp_open_memory("0123456789abcdefgh", 18, &opened); }},
        {"open no source", kArgument, [&] { return vndlp_open_source(nullptr, &opened); }},
        {"sniff nothing", kArgument, [&] { return vndlp_sniff(nullptr, 4); }},
        {"sniff no bytes", VNDLP_E_FORMAT, [&] { return vndlp_sniff(nullptr, 0); }},
        {"no file", kArgument, [&] { return vndlp_info(nullptr, &info); }},
        {"no struct", kArgument, [&] { return vndlp_info(file, nullptr); }},
        {"a struct too short", kArgument, [&] { return vndlp_info(file, &cut); }},
        {"a key behind the last", VNDLP_E_INDEX, [&] { return vndlp_key(1000, &key); }},
        {"no key", kArgument, [&] { return vndlp_get_number(file, nullptr, -1, &number); }},
        {"an unknown key", VNDLP_E_KEY, [&] { return vndlp_get_number(file, "nothing", -1, &number); }},
        {"a text as number", VNDLP_E_KEY, [&] { return vndlp_get_number(file, "machine", -1, &number); }},
        {"a number as text", VNDLP_E_KEY, [&] { return vndlp_get_text(file, "exposure_s", &text); }},
        {"a setting of no layer", VNDLP_E_INDEX, [&] { return vndlp_get_number(file, "exposure_s", 3, &number); }},
        {"a field behind the last", VNDLP_E_INDEX, [&] { return vndlp_raw(file, 1U << 30, &raw); }},
        {"a field that is not there", VNDLP_ABSENT, [&] { return vndlp_raw_by_name(file, "a.b", &raw); }},
        {"no preview", VNDLP_E_INDEX, [&] { return vndlp_preview_info(file, 2, &preview); }},
        {"memory for a preview", VNDLP_E_SIZE, [&] { return vndlp_preview(file, 0, rgb.data(), 0, rgb.size() - 1); }},
        {"no layer", VNDLP_E_INDEX, [&] { return vndlp_layer(file, kLayers, &facts); }},
        {"no layer's pixels", VNDLP_E_INDEX, [&] { return vndlp_layer_pixels(file, kLayers, to, 0, bytes); }},
        {"no memory", kArgument, [&] { return vndlp_layer_pixels(file, 0, nullptr, 0, bytes); }},
        {"a byte too little", VNDLP_E_SIZE, [&] { return vndlp_layer_pixels(file, 0, to, 0, bytes - 1); }},
        {"a stride too short", VNDLP_E_SIZE, [&] { return vndlp_layer_pixels(file, 0, to, kWidth - 1, bytes); }},
        {"a stride beyond all", VNDLP_E_SIZE, [&] { return vndlp_layer_pixels(file, 0, to, SIZE_MAX / 4, bytes); }},
        {"no row function", kArgument, [&] { return vndlp_layer_rows(file, 0, nullptr, nullptr); }},
        {"runs to nothing", kArgument, [&] { return vndlp_layer_runs(file, 0, nullptr, 5); }},
        {"points of an image", VNDLP_E_KIND, [&] { return vndlp_layer_points(file, 0, nullptr, nullptr, 0); }},
        {"beads of no layer", VNDLP_E_INDEX, [&] { return vndlp_layer_beads(file, kLayers, nullptr, 0); }},
        {"a threshold beyond greys", VNDLP_E_VALUE, [&] { return vndlp_check(file, &options, nullptr, nullptr); }},
        {"repair nothing", kArgument, [&] { return vndlp_repair(nullptr, "x", nullptr, nullptr); }},
        {"changes that are none", kArgument,
         [&] { return vndlp_change(name.c_str(), nullptr, nullptr, 1, nullptr, nullptr); }},
        {"a change without a key", kArgument,
         [&] { return vndlp_change(name.c_str(), nullptr, &change, 1, nullptr, nullptr); }},
        {"no such salvage", kArgument, [&] { return vndlp_convert(file, "x.ctb", &salvage, nullptr, nullptr); }},
        {"a file without pixels", VNDLP_E_SIZE, [&] { return vndlp_create("x.ctb", 0, 1, 1, nullptr, &made); }},
        {"an unknown ending", kArgument, [&] { return vndlp_create("x.stl", 1, 1, 1, nullptr, &made); }},
        {"a layer behind the last", VNDLP_E_INDEX, [&] { return vndlp_encode(writer, 3, to, 0, bytes, &encoded); }},
        {"a layer of too little", VNDLP_E_SIZE, [&] { return vndlp_encode(writer, 0, to, 0, bytes - 1, &encoded); }},
        {"points into images", VNDLP_E_KIND, [&] { return vndlp_put_points(writer, 0, xy.data(), nullptr, 2); }},
        {"polylines that fall", VNDLP_E_VALUE,
         [&] { return vndlp_put_points(writer, 0, xy.data(), falling.data(), 2); }},
        {"a run upside down", VNDLP_E_SIZE, [&] { return vndlp_put_runs(writer, 0, &backwards, 1); }},
        {"nothing encoded", kArgument, [&] { return vndlp_put_encoded(writer, nullptr); }},
        {"a preview without pixels", VNDLP_E_SIZE, [&] { return vndlp_set_preview(writer, 0, rgb.data(), 0, 5, 0); }},
        {"no finite number", VNDLP_E_VALUE, [&] { return vndlp_set_number(writer, "exposure_s", -1, 1.0 / 0.0); }},
        {"layers missing", VNDLP_E_ORDER, [&] { return vndlp_finish(writer); }},
    };
    const VndlpInfo before = info;
    for (const Case& tried : cases) {
        EXPECT_EQ(tried.call(), tried.expected) << tried.what;
        if (tried.expected >= 0) continue;
        auto error = sized<VndlpError>();
        EXPECT_EQ(vndlp_last_error(&error), VNDLP_OK);
        EXPECT_EQ(error.code, tried.expected) << tried.what;
        EXPECT_STRNE(error.text, "") << tried.what;
    }
    EXPECT_EQ(std::memcmp(&info, &before, sizeof info), 0);
    EXPECT_EQ(pixels, std::vector<std::uint8_t>(bytes, 77));
    EXPECT_EQ(rgb, std::vector<std::uint8_t>(rgb.size(), 77));
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(encoded, nullptr);
    EXPECT_EQ(number, 77);
    EXPECT_STREQ(text, "77");
    EXPECT_EQ(vndlp_last_error(nullptr), VNDLP_E_ARGUMENT);
    vndlp_close(nullptr);
    vndlp_encoded_free(nullptr);
    vndlp_writer_free(nullptr);
}

TEST_F(CInterface, StructsOfOtherLengthsShareWhatBothKnow) {
    struct {
        VndlpInfo known;
        std::array<char, 16> later;
    } longer = {};
    longer.later.fill('?');
    longer.known.size = sizeof longer;
    ASSERT_EQ(vndlp_info(file, &longer.known), VNDLP_OK);
    EXPECT_EQ(longer.known.layers, kLayers);
    EXPECT_EQ(longer.known.size, sizeof longer);
    EXPECT_EQ(std::string(longer.later.data(), 16), std::string(16, '?'));

    VndlpInfo shorter = {};
    shorter.size = offsetof(VndlpInfo, width);
    shorter.width = 77;
    ASSERT_EQ(vndlp_info(file, &shorter), VNDLP_OK);
    EXPECT_EQ(shorter.layers, kLayers);
    EXPECT_EQ(shorter.width, 77U);

    struct LongChange {
        VndlpChange known;
        std::array<char, 8> later;
    };
    std::array<LongChange, 2> changes = {};
    changes[0].known = {sizeof(LongChange), "exposure_s", "4", nullptr};
    changes[1].known = {sizeof(LongChange), "lift_mm", "7", nullptr};
    vndlp_close(file);
    file = nullptr;
    ASSERT_EQ(vndlp_change(name.c_str(), nullptr, &changes[0].known, 2, nullptr, nullptr), VNDLP_OK);
    ASSERT_EQ(vndlp_open(name.c_str(), &file), VNDLP_OK);
    double lift = 0;
    EXPECT_EQ(vndlp_get_number(file, "lift_mm", -1, &lift), VNDLP_OK);
    EXPECT_EQ(lift, 7);
}

TEST_F(CInterface, ErrorsAndTextsBelongToTheirThread) {
    VndlpFile* none = nullptr;
    ASSERT_EQ(vndlp_open((name + ".none").c_str(), &none), VNDLP_E_FILE);
    const char* machine = nullptr;
    vndlp_get_text(file, "machine", &machine);
    const std::string before = machine;
    std::thread([this] {
        auto error = sized<VndlpError>();
        EXPECT_EQ(vndlp_last_error(&error), VNDLP_OK);
        EXPECT_EQ(error.code, VNDLP_OK);
        std::vector<std::uint8_t> pixels(1);
        EXPECT_EQ(vndlp_layer_pixels(file, 1, pixels.data(), 0, 1), VNDLP_E_SIZE);
        auto raw = sized<VndlpRaw>();
        EXPECT_EQ(vndlp_raw(file, 0, &raw), VNDLP_OK);
    }).join();
    EXPECT_EQ(machine, before);
    auto error = sized<VndlpError>();
    EXPECT_EQ(vndlp_last_error(&error), VNDLP_OK);
    EXPECT_EQ(error.code, VNDLP_E_FILE);
    EXPECT_EQ(error.system_code, ENOENT);
}

TEST_F(CInterface, CallbacksStopAndFailingSourcesFail) {
    std::uint32_t rows = 0;
    const auto stopAtFive = [](void* context, std::uint32_t row, const std::uint8_t*) {
        ++*static_cast<std::uint32_t*>(context);
        return row == 4 ? 1 : 0;
    };
    EXPECT_EQ(vndlp_layer_rows(file, 0, stopAtFive, &rows), VNDLP_E_STOPPED);
    EXPECT_EQ(rows, 5U);

    // every read may be the one that fails
    const vndlp::test::Bytes content = vndlp::test::readFile(name);
    struct Source {
        const vndlp::test::Bytes& content;
        int left;
    };
    for (int left = 0; left < 30; ++left) {
        Source state{content, left};
        auto source = sized<VndlpSource>();
        source.context = &state;
        source.bytes = static_cast<std::int64_t>(content.size());
        source.read = [](void* context, std::int64_t offset, void* to, std::size_t bytes) -> std::int64_t {
            auto* const self = static_cast<Source*>(context);
            if (self->left-- <= 0) return -1;
            std::memcpy(to, self->content.data() + offset, bytes);
            return static_cast<std::int64_t>(bytes);
        };
        VndlpFile* opened = nullptr;
        std::int32_t code = vndlp_open_source(&source, &opened);
        std::vector<std::uint8_t> pixels(std::size_t{kWidth} * kHeight);
        if (code == VNDLP_OK) code = vndlp_layer_pixels(opened, 1, pixels.data(), 0, pixels.size());
        EXPECT_EQ(code == VNDLP_OK, pixels == image(1)) << left;
        vndlp_close(opened);
    }
}

}  // namespace
