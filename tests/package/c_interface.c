/* Uses every call of the C interface, from C11: writes files, reads them by path, memory and callback, verifies,
   checks, changes, converts and repairs them. Arguments: a folder for the files. Exit 1 names the line that failed. */

#include <vndlp/vndlp_c.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kWidth = 96, kHeight = 64, kLayers = 6, kStride = 100, kPixels = kWidth * kHeight };

#define HOLDS(condition)                                                             \
    do {                                                                             \
        if (!(condition)) {                                                          \
            VndlpError error = {.size = sizeof error};                               \
            vndlp_last_error(&error);                                                \
            fprintf(stderr, "line %d: %s (%s)\n", __LINE__, #condition, error.text); \
            exit(1);                                                                 \
        }                                                                            \
    } while (0)

static char folder[1000];

static const char* in_folder(const char* name) {
    static char paths[4][1100];
    static int next;
    char* path = paths[next++ % 4];
    snprintf(path, sizeof paths[0], "%s/%s", folder, name);
    return path;
}

/* a square on layer 0 and 1, then a smaller one, and on layer 4 a part in the air */
static void draw(uint32_t layer, uint8_t* pixels, size_t stride) {
    const uint32_t side = layer < 2 ? 40 : 20;
    memset(pixels, 0, stride * kHeight);
    for (uint32_t row = 10; row < 10 + side; ++row) memset(pixels + row * stride + 20, 255, side);
    if (layer == 4) memset(pixels + 55 * stride + 80, 254, 6);
}

static int64_t read_from(void* context, int64_t offset, void* to, size_t bytes) {
    FILE* const file = context;
    if (fseek(file, (long)offset, SEEK_SET) != 0) return -1;
    return (int64_t)fread(to, 1, bytes, file);
}

static int32_t count_finding(void* context, const VndlpFinding* finding) {
    HOLDS(finding->size == sizeof *finding && finding->text[0] != '\0');
    ++*(int*)context;
    return 0;
}

static int32_t stop_at_finding(void* context, const VndlpFinding* finding) {
    (void)context;
    (void)finding;
    return 7;
}

static int32_t compare_row(void* context, uint32_t row, const uint8_t* pixels) {
    const uint8_t* const image = context;
    return memcmp(image + (size_t)row * kWidth, pixels, kWidth);
}

static int32_t count_change(void* context, const char* key, const char* layers, const char* was, const char* is) {
    HOLDS(strcmp(key, "exposure_s") == 0 && layers == NULL && strcmp(was, "2.5") == 0 && strcmp(is, "4") == 0);
    ++*(int*)context;
    return 0;
}

static void write_file(const char* path, const VndlpFile* like) {
    VndlpWriter* writer = NULL;
    VndlpEncoded* encoded = NULL;
    static uint8_t pixels[kStride * kHeight];
    static uint8_t preview[30 * 20 * 3];
    HOLDS(vndlp_create(path, kWidth, kHeight, kLayers, like, &writer) == VNDLP_OK);
    HOLDS(vndlp_set_number(writer, "layer_height_mm", -1, 0.05) == VNDLP_OK);
    HOLDS(vndlp_set_number(writer, "exposure_s", -1, 2.5) == VNDLP_OK);
    HOLDS(vndlp_set_text(writer, "machine", "M01") == VNDLP_OK);
    HOLDS(vndlp_set_preview(writer, 0, preview, 30, 20, 0) == VNDLP_OK);
    for (uint32_t layer = kLayers; layer-- > 1;) {
        draw(layer, pixels, kStride);
        HOLDS(vndlp_encode(writer, layer, pixels, kStride, sizeof pixels, &encoded) == VNDLP_OK);
        HOLDS(vndlp_put_encoded(writer, encoded) == VNDLP_OK);
    }
    HOLDS(vndlp_finish(writer) == VNDLP_E_ORDER);
    HOLDS(vndlp_encode(writer, 0, pixels, kStride, sizeof pixels, &encoded) == VNDLP_OK);
    vndlp_encoded_free(encoded);
    draw(0, pixels, kStride);
    HOLDS(vndlp_put_pixels(writer, 0, pixels, kStride, sizeof pixels) == VNDLP_OK);
    HOLDS(vndlp_put_pixels(writer, 0, pixels, kStride, sizeof pixels) == VNDLP_E_ORDER);
    HOLDS(vndlp_finish(writer) == VNDLP_OK);
    vndlp_writer_free(writer);
}

static void compare_layers(const VndlpFile* file) {
    static uint8_t drawn[kPixels], read[kPixels];
    static VndlpRun runs[kWidth * 4];
    for (uint32_t layer = 0; layer < kLayers; ++layer) {
        VndlpLayer facts = {.size = sizeof facts};
        int64_t lit = 0;
        draw(layer, drawn, kWidth);
        HOLDS(vndlp_layer_pixels(file, layer, read, 0, sizeof read) == VNDLP_OK);
        HOLDS(memcmp(drawn, read, sizeof read) == 0);
        HOLDS(vndlp_layer_rows(file, layer, compare_row, drawn) == VNDLP_OK);
        HOLDS(vndlp_layer(file, layer, &facts) == VNDLP_OK);
        HOLDS(vndlp_layer_runs(file, layer, NULL, 0) == facts.runs);
        HOLDS(vndlp_layer_runs(file, layer, runs, kWidth * 4) == facts.runs);
        for (int64_t run = 0; run < facts.runs; ++run) lit += runs[run].last_row - runs[run].first_row + 1;
        HOLDS(lit == facts.lit_px && fabs(facts.z_mm - 0.05 * (layer + 1)) < 1e-6);
        HOLDS(vndlp_layer_beads(file, layer, NULL, 0) == 0);
        HOLDS(vndlp_layer_points(file, layer, NULL, NULL, 0) == VNDLP_E_KIND);
    }
}

static void read_file(const VndlpFile* file) {
    VndlpInfo info = {.size = sizeof info};
    VndlpTrailer trailer = {.size = sizeof trailer};
    VndlpEstimate estimate = {.size = sizeof estimate};
    VndlpRaw raw = {.size = sizeof raw}, same = {.size = sizeof same};
    VndlpPreview preview = {.size = sizeof preview};
    VndlpCheckOptions options = {
        .size = sizeof options, .threshold = -1, .margin_px = -1, .overhang_um = -1, .jump_factor = -1, .jump_cm2 = -1};
    char name[200];
    const char* text = NULL;
    double number = 0;
    int findings = 0;
    HOLDS(vndlp_info(file, &info) == VNDLP_OK);
    HOLDS(info.layers == kLayers && info.width == kWidth && info.height == kHeight && info.layer_kind == VNDLP_IMAGES);
    HOLDS(vndlp_trailer(file, &trailer) == VNDLP_OK && trailer.state == VNDLP_STATE_OK);
    HOLDS(trailer.stored == trailer.computed);
    HOLDS(vndlp_estimate(file, &estimate) == VNDLP_OK && estimate.model != NULL);
    HOLDS(vndlp_get_number(file, "exposure_s", -1, &number) == VNDLP_OK && number == 2.5);
    HOLDS(vndlp_get_text(file, "machine", &text) == VNDLP_OK && strcmp(text, "M01") == 0);
    HOLDS(vndlp_raw(file, 1, &raw) == VNDLP_OK);
    snprintf(name, sizeof name, "%s", raw.name);
    HOLDS(vndlp_raw_by_name(file, name, &same) == VNDLP_OK && same.offset == raw.offset && same.bytes == raw.bytes);
    HOLDS(vndlp_preview_info(file, 0, &preview) == VNDLP_OK);
    uint8_t* const rgb = malloc((size_t)preview.width * preview.height * 3);
    HOLDS(rgb != NULL);
    HOLDS(vndlp_preview(file, 0, rgb, 0, (size_t)preview.width * preview.height * 3) == VNDLP_OK);
    free(rgb);
    compare_layers(file);
    HOLDS(vndlp_verify(file, count_finding, &findings) == 0 && findings == 0);
    HOLDS(vndlp_verify_structure(file, count_finding, &findings) == 0 && findings == 0);
    /* the part in the air on layer 4 */
    HOLDS(vndlp_check(file, &options, count_finding, &findings) > 0 && findings > 0);
    HOLDS(vndlp_check(file, NULL, stop_at_finding, NULL) == VNDLP_E_STOPPED);
}

static void write_and_read(void) {
    VndlpFile *file = NULL, *other = NULL;
    VndlpWriter* writer = NULL;
    int count = 0;
    write_file(in_folder("a.vndlp"), NULL);
    HOLDS(vndlp_open(in_folder("a.vndlp"), &file) == VNDLP_OK);
    read_file(file);

    /* the same through a callback, and from memory */
    FILE* const stream = fopen(in_folder("a.vndlp"), "rb");
    HOLDS(stream != NULL && fseek(stream, 0, SEEK_END) == 0);
    VndlpSource source = {.size = sizeof source, .context = stream, .bytes = ftell(stream), .read = read_from};
    HOLDS(vndlp_open_source(&source, &other) == VNDLP_OK);
    compare_layers(other);
    vndlp_close(other);
    uint8_t* const bytes = malloc((size_t)source.bytes);
    HOLDS(bytes != NULL && read_from(stream, 0, bytes, (size_t)source.bytes) == source.bytes);
    fclose(stream);
    HOLDS(vndlp_sniff(bytes, 16) == VNDLP_FORMAT_VNDLP);
    HOLDS(vndlp_open_memory(bytes, (size_t)source.bytes, &other) == VNDLP_OK);
    compare_layers(other);
    vndlp_close(other);
    free(bytes);

    /* a copy: half of its layers as runs */
    static VndlpRun runs[kWidth * 4];
    write_file(in_folder("like.vndlp"), file);
    HOLDS(vndlp_create(in_folder("copy.vndlp"), kWidth, kHeight, kLayers, file, &writer) == VNDLP_OK);
    for (uint32_t layer = 0; layer < kLayers; ++layer) {
        const int64_t have = vndlp_layer_runs(file, layer, runs, kWidth * 4);
        HOLDS((layer % 2 == 0 ? vndlp_put_layer(writer, layer, file, layer)
                              : vndlp_put_runs(writer, layer, runs, (size_t)have)) == VNDLP_OK);
    }
    HOLDS(vndlp_finish(writer) == VNDLP_OK);
    vndlp_writer_free(writer);
    HOLDS(vndlp_open(in_folder("copy.vndlp"), &other) == VNDLP_OK);
    compare_layers(other);
    vndlp_close(other);

    /* another format, and another exposure */
    VndlpConvertOptions options = {.size = sizeof options, .salvage = VNDLP_SALVAGE_NO};
    HOLDS(vndlp_convert(file, in_folder("b.ctb"), &options, count_finding, &count) == VNDLP_OK);
    vndlp_close(file);
    count = 0;
    VndlpChange change = {.size = sizeof change, .key = "exposure_s", .value = "4"};
    HOLDS(vndlp_change(in_folder("a.vndlp"), NULL, &change, 1, count_change, &count) == VNDLP_OK && count == 1);
    HOLDS(vndlp_repair(in_folder("a.vndlp"), in_folder("c.vndlp"), count_finding, &count) == kLayers);

    /* abandoned: nothing is there */
    HOLDS(vndlp_create(in_folder("none.ctb"), kWidth, kHeight, kLayers, NULL, &writer) == VNDLP_OK);
    HOLDS(vndlp_cancel(writer) == VNDLP_OK);
    vndlp_writer_free(writer);
    HOLDS(vndlp_open(in_folder("none.ctb"), &file) == VNDLP_E_FILE);
}

static void write_and_read_lines(void) {
    static const int32_t xy[] = {0, 0, 5000, 0, 5000, 5000, 0, 0, 9000, 9000, -1, 9500};
    static const uint32_t path[] = {0, 0, 0, 0, 1, 1};
    VndlpWriter* writer = NULL;
    VndlpFile* file = NULL;
    double read[12] = {0};
    uint32_t numbers[6] = {9, 9, 9, 9, 9, 9};
    HOLDS(vndlp_create(in_folder("d.vnline"), kWidth, kHeight, 1, NULL, &writer) == VNDLP_OK);
    HOLDS(vndlp_put_points(writer, 0, xy, path, 6) == VNDLP_OK);
    HOLDS(vndlp_finish(writer) == VNDLP_OK);
    vndlp_writer_free(writer);
    HOLDS(vndlp_open(in_folder("d.vnline"), &file) == VNDLP_OK);
    HOLDS(vndlp_layer_points(file, 0, read, numbers, 6) == 6);
    for (int i = 0; i < 12; ++i) HOLDS(read[i] == xy[i]);
    HOLDS(memcmp(numbers, path, sizeof path) == 0);
    vndlp_close(file);
}

static void ask_the_process(void) {
    VndlpKey key = {.size = sizeof key};
    VndlpScrambling constants = {.size = sizeof constants};
    uint32_t keys = 0;
    while (vndlp_key(keys, &key) == VNDLP_OK) ++keys;
    HOLDS(keys > 20);
    HOLDS(vndlp_version() == (VNDLP_VERSION_MAJOR << 16 | VNDLP_VERSION_MINOR << 8 | VNDLP_VERSION_PATCH));
    HOLDS(vndlp_scrambling(&constants) == VNDLP_OK);
    HOLDS(vndlp_set_scrambling(&constants) == VNDLP_OK);
}

int main(int count, char** arguments) {
    if (count != 2) return 2;
    snprintf(folder, sizeof folder, "%s", arguments[1]);
    vndlp_set_message_handler(vndlp_ignore_message, NULL);
    ask_the_process();
    write_and_read();
    write_and_read_lines();
    return 0;
}
