#include "support/files.h"
#include "support/front_end.h"

#include <vndlp/wrappers.h>

#include <clocale>
#include <cstdlib>

namespace vndlp::test {
namespace {

/// Grey values of a preview and the 16-bit pixels they become.
const std::pair<unsigned char, unsigned> kPixels[] = {
    {0x00, 0x0000}, {0x01, 0x2921}, {0x10, 0x9210}, {0x80, 0x9080}, {0xFF, 0xFFFF}};

// 3 x 2 pixels and their runs: column 0, rows 0 to 1, grey 255; column 2, row 1, grey 16
unsigned char kImage[] = {255, 15, 0, 255, 0, 16};
const std::vector<unsigned char> kRuns = {0x00, 0x00, 0x00, 0x40, 0x00, 0xFF, 0x00, 0x08, 0x00, 0x40, 0x02, 0x10};

DlpV2ParamWrapper sampleParam(int layerCount) {
    DlpV2ParamWrapper p;
    p.machineType = "Maker M1";
    p.layerCount = layerCount;
    p.resolutionX = 0x10B40;  // 16 bits are kept
    p.resolutionY = 0x0A28;
    p.machineHeight = 175.5F;
    p.enableXYCompensate = p.supportPad = p.autoAllSupport = -1;
    p.supportDensity = 0.5F;
    p.platformX = 68.04F;
    p.thickness = 0.05F;
    numberParameters(p, 70000);
    return p;
}

/// Everything before the first layer.
Bytes expectedHead(const std::vector<unsigned>& areas) {
    Bytes b;
    b.string("VNKT3DV2").u16(0).string("Maker M1");  // version 0: that of the structure, not of the parameters
    b.u16(static_cast<unsigned>(areas.size())).u16(0x0B40).u16(0x0A28);
    b.u32(175500).u32(0x111).f32(0.5F).fill(52, 0);
    for (const std::size_t side : {116U, 290U, 290U}) {
        for (std::size_t i = 0; i < side * side; ++i) {
            const unsigned pixel = kPixels[i % 5].second;
            byteOrderJudge() == LittleEndian ? b.le(pixel, 2) : b.be(pixel, 2);
        }
        b.tag();
    }
    b.text("68.040001").text("0.000000").text("0.050000");
    for (unsigned i = 0; i < 11; ++i) b.u16(4464 + i);  // 70000 and up, low 16 bits
    for (const unsigned area : areas) b.u32(area);
    return b.tag();
}

class WrapperTest : public FileTest {
protected:
    /// All calls up to the head; leave out one by its number.
    bool start(int layerCount, int leaveOut = -1) {
        EXPECT_EQ(wrapper.open(file), 0);
        std::vector<unsigned char> grey(290 * 290);
        for (std::size_t i = 0; i < grey.size(); ++i) grey[i] = kPixels[i % 5].first;
        if (leaveOut != 0) wrapper.setDlpV2Param(sampleParam(layerCount));
        if (leaveOut != 1) wrapper.setGrayPreview116X116(grey.data());
        if (leaveOut != 2) wrapper.setGrayPreview290X290(grey.data(), 0);
        if (leaveOut != 3) wrapper.setGrayPreview290X290(grey.data(), 1);
        return wrapper.writeDlpStructure();
    }

    /// Writes the tail; the file holds these bytes and their end. \return what is printed.
    std::string finish(Bytes expected) {
        expected.string("VNKT3DV2");
        sealWithXor(expected);
        Printed printed;
        EXPECT_EQ(wrapper.writeTail(), 0);
        wrapper.close();
        EXPECT_TRUE(sameBytes(readFile(file), expected));
        return printed.take();
    }

    std::string file = path("out.vndlp");
    VndlpV2Wrapper wrapper;
};

/// While this lives numbers have a decimal comma, as in programs that follow the user's language.
class CommaLocale {
public:
    explicit CommaLocale([[maybe_unused]] const std::string& folder) {
#if defined(_WIN32)
        m_isSet = std::setlocale(LC_NUMERIC, "German") != nullptr;
#else
        const std::string make = "localedef -i de_DE -f ISO-8859-1 " + folder + "/de_DE 2>/dev/null";
        setenv("LOCPATH", folder.c_str(), 1);
        m_isSet = std::filesystem::create_directory(folder) && std::system(make.c_str()) == 0 &&
                  std::setlocale(LC_NUMERIC, "de_DE") != nullptr;
#endif
    }
    ~CommaLocale() { std::setlocale(LC_NUMERIC, "C"); }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    bool isSet() const { return m_isSet; }

private:
    bool m_isSet;
};

// layers of 0 mm, and platforms of "68,040001" mm, where the slicer had set the user's locale
TEST_F(WrapperTest, NumbersHaveAPointInEveryLocale) {
    const CommaLocale comma(path("locale"));
    if (!comma.isSet()) GTEST_SKIP() << "no locale with a comma";
    DlpParameters p;
    p.platformX = " +68.04 mm";
    p.platformY = "120,96";
    p.thickness = "0.05";
    EXPECT_EQ((std::vector{p.parsePlatformX(), p.parsePlatformY(), p.parseThickness()}),
              (std::vector{68.04, 120.0, 0.05}));
    ASSERT_TRUE(start(1));
    finish(expectedHead({0}).u32(0).u32(0).tag());
}

TEST_F(WrapperTest, KeepsLayersByIndexUntilTheTail) {
    for (int round = 0; round < 2; ++round) {
        Printed printed;
        ASSERT_TRUE(start(4));
        unsigned char dark[6] = {};
        wrapper.setLayerImage(2, kImage, 3, 2, 1499);
        wrapper.setLayerImage(0, kImage, 3, 2, 50000.0);
        wrapper.setLayerImage(2, dark, 3, 2, 1500);
        wrapper.setLayerImage(2, kImage, 3, 2, 2500.5);  // the last one counts
        EXPECT_EQ(printed.take(), "");
        for (const int wrong : {-1, 4}) {
            wrapper.setLayerImage(wrong, kImage, 3, 2, 1);
            EXPECT_EQ(printed.take(),
                      "error: layer " + std::to_string(wrong) + " given, the parameters announced 4 layers\n");
        }
        Bytes expected = expectedHead({50, 0, 3, 0});
        expected.u32(50).u32(2).raw(kRuns).tag().u32(0).u32(0).tag();
        expected.u32(3).u32(2).raw(kRuns).tag().u32(0).u32(0).tag();
        EXPECT_EQ(finish(expected),
                  "checkFileSum, file:" + file + ", versionName:VNKT3DV2, subVersionNum:0, checktype:1\n");
        wrapper.clear();
    }
}

TEST_F(WrapperTest, StreamedLayersCarryTheImageHeightAndEmptyOnesFollow) {
    ASSERT_TRUE(start(2));
    wrapper.wrieLayerImage(kImage, 3, 2, 7000);
    wrapper.wrieLayerImage(kImage, 3, 2, 8000);
    Bytes expected = expectedHead({7, 8});
    for (int i = 0; i < 2; ++i) expected.u32(2).u32(2).raw(kRuns).tag();
    finish(expected.u32(7).u32(0).tag().u32(8).u32(0).tag());
}

TEST_F(WrapperTest, WritesNoHeadUntilAllIsSet) {
    for (const int leaveOut : {0, 1, 2, 3}) {
        EXPECT_FALSE(start(1, leaveOut)) << leaveOut;
        wrapper.close();
        EXPECT_EQ(std::filesystem::file_size(file), 0U);
    }
}

}  // namespace
}  // namespace vndlp::test
