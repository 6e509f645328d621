/// \file image.h
/// Points, layer images and the vertical runs of lit pixels they become.

#ifndef VNDLP_IMAGE_H
#define VNDLP_IMAGE_H

#include <vndlp/export.h>

#include <cstddef>
#include <vector>

namespace vndlp {

/// A point of two floats.
struct Vec2 {
    float x = 0;
    float y = 0;

    Vec2() = default;
    Vec2(float x_, float y_) : x(x_), y(y_) {}
    void setX(float value) { x = value; }
    void setY(float value) { y = value; }
};

/// A point of three floats. The three-argument constructor keeps a long-standing quirk: z takes the *second* argument;
/// set z with `setZ` afterwards.
struct Vec3f {
    float x = 0;
    float y = 0;
    float z = 0;

    Vec3f() = default;
    Vec3f(float x_, float y_, float /*ignored*/) : x(x_), y(y_), z(y_) {}
    void setX(float value) { x = value; }
    void setY(float value) { y = value; }
    void setZ(float value) { z = value; }
};

/// A point of three ints, with the quirk of `Vec3f`: `Vec3i(1, 2, 3)` has z = 2. The setters truncate toward zero; what
/// no int holds becomes the nearest one that there is, NaN 0.
struct Vec3i {
    int x = 0;
    int y = 0;
    int z = 0;

    Vec3i() = default;
    Vec3i(int x_, int y_, int /*ignored*/) : x(x_), y(y_), z(y_) {}
    void setX(float value) { x = truncated(value); }
    void setY(float value) { y = truncated(value); }
    void setZ(float value) { z = truncated(value); }

private:
    static int truncated(float value) {
        constexpr float beyond = 2147483648.0F;
        if (value >= beyond) return 2147483647;
        return value > -beyond ? static_cast<int>(value) : value <= -beyond ? -2147483647 - 1 : 0;
    }
};

/// One run: consecutive rows of one column whose pixels share one grey value. Coordinates are whole pixel numbers; the
/// column is `start.x` (= `end.x`), the rows are `start.y` to `end.y`, both lit.
struct WhiteData {
    Vec2 start;
    Vec2 end;
    int grey = 0;  ///< 16 to 255 in runs built from an image
};

/// Bytes of one packed run, see `whiteData2Bits`.
constexpr int kPackedRunBytes = 6;

/// An owned pixel buffer: row by row from the top row, no padding, `pixelWidth()` bytes a pixel. The buffer comes from
/// the C allocator.
class VNDLP_API DlpImage {
public:
    /// Bytes per pixel.
    enum PIXEL_TYPE : int {
        PIXEL_GRAY8 = 1,  ///< one byte of grey: layer images
        PIXEL_RGB16 = 2   ///< two bytes of colour: previews
    };

    /// No pixels, 0 x 0, grey.
    DlpImage();
    /// No pixels yet (see `needData`), `w` x `h`, grey.
    DlpImage(int w, int h);
    /// No pixels yet, `w` x `h`.
    DlpImage(int w, int h, PIXEL_TYPE t);
    /// Deep copy; an image without pixels stays one.
    DlpImage(const DlpImage& other);
    /// Takes the other's buffer, which is left without pixels.
    DlpImage(DlpImage&& other) noexcept;
    /// Deep copy, reusing the buffer where it can; a source without pixels leaves a target without.
    DlpImage& operator=(const DlpImage& other);
    DlpImage& operator=(DlpImage&& other) noexcept;
    ~DlpImage();

    /// Allocates a zero-filled buffer if there is none. Without memory (or with a size beyond an int) none appears.
    void needData();
    /// First pixel byte; null without pixels. The image keeps ownership.
    char* bits();
    const char* bits() const;
    /// True when there are pixels.
    bool haveDatas() const;
    /// Hands the buffer to the caller, who releases it with `free`; the image is left without pixels.
    char* detachData();
    /// Frees the buffer.
    void release();

    int width() const;
    int height() const;
    int pixelWidth() const;
    PIXEL_TYPE pixelType();
    /// Bytes of one row; 0 where that does not fit an int.
    int widthBytes() const;
    /// Bytes of the image; 0 where that does not fit an int, and for a pixel type below 1.
    int size() const;

private:
    char* m_data;
    int m_width;
    int m_height;
    PIXEL_TYPE m_pixelWidth;
};

/// Appends the runs of a grey image. A pixel above 15 is lit; every run covers lit rows of one column with one grey
/// value; runs come ordered by column, then row.
/// \param data   width x height bytes, row-major, no padding.
/// \param width  pixels; nothing happens when `width` or `height` is below 1.
/// \param height pixels.
/// \param runs   receives the runs behind what it holds.
/// \return 0.
VNDLP_API int grayDataVecWhiteData(unsigned char* data, int width, int height, std::vector<WhiteData>& runs);

/// The same for an image object.
/// \return 0; -1, with a message, when the image is not grey. An image without pixels has no runs.
VNDLP_API int dlpImageGray2VecWhiteData(DlpImage& image, std::vector<WhiteData>& runs);

/// Packs one run into 6 bytes, a 48-bit big-endian number of, from the top: first row (13 bits), last row (13 bits),
/// column (14 bits), grey (8 bits). Higher bits are dropped: rows above 8191 and columns above 16383 do not fit.
/// \param out 6 bytes.
VNDLP_API void whiteData2Bits(const WhiteData& run, unsigned char* const out);

/// Unpacks 6 bytes into a run.
VNDLP_API void bits2WhiteData(const unsigned char* const in, WhiteData& run);

/// Appends the packed runs of a grey image: the same runs in the same order as `grayDataVecWhiteData` followed by
/// `whiteData2Bits` for each, without the detour.
/// \param data   width x height bytes, row-major, no padding.
/// \param packed receives 6 bytes a run behind what it holds.
VNDLP_API void grayDataPackedRuns(const unsigned char* data, int width, int height, std::vector<unsigned char>& packed);

/// The same for an image with padding behind its rows.
/// \param data   the first of `height` rows.
/// \param stride bytes from one row to the next; negative where rows are stored bottom up.
VNDLP_API void grayDataPackedRuns(const unsigned char* data, int width, int height, std::ptrdiff_t stride,
                                  std::vector<unsigned char>& packed);

/// Counts the pixels under packed runs: a layer's lit pixels, in a fraction of the time that looking through its image
/// takes.
/// \param packed 6 bytes a run; bytes behind the last whole run are left out.
VNDLP_API unsigned long long countPackedPixels(const std::vector<unsigned char>& packed);

/// Paints runs into a grey image, the way back from `grayDataVecWhiteData`. What lies outside the image is left out.
/// \param pixels width x height bytes, row-major; pixels under no run keep their value.
VNDLP_API void paintWhiteData(const std::vector<WhiteData>& runs, unsigned char* pixels, int width, int height);

}  // namespace vndlp

#endif
