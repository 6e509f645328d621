#include "io/running_sum.h"
#include "support/bytes.h"
#include "support/files.h"

#include <vndlp/checksum.h>
#include <vndlp/formats.h>

#include <algorithm>
#include <array>
#include <random>
#include <thread>
#include <tuple>

namespace vndlp::test {
namespace {

using ChecksumTest = FileTest;

CheckSum& sums() { return CheckSum::instance(); }

/// A file head: magic string, then bytes that stand for the version.
Bytes head(std::string_view magic, const std::vector<unsigned char>& behind = {0, 3, 0, 0}) {
    return Bytes().string(magic).raw(behind);
}

Bytes noise(std::size_t size, std::uint_fast32_t seed = 7) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
}

TEST_F(ChecksumTest, FirstBytesTellFormatVersionAndTrailer) {
    constexpr SliceFormat none = SliceFormat::none, vndlp = SliceFormat::vndlp, line = SliceFormat::vnline;
    struct Row {
        const char* magic;
        std::vector<unsigned char> behind;
        int code, version;
        EnumCheckSumType type;
        SliceFormat format;
    };
    const Row rows[] = {
        {"MKSDLP", {0, 9, 0, 9}, 0, 0, CHECKSUM_NONE, vndlp},
        {"VNKT3D", {0, 9, 0, 9}, 0, 0, CHECKSUM_NONE, vndlp},
        {"VNKT3D3", {0, 9, 0, 9}, 0, 0, CHECKSUM_XOR, vndlp},
        {"VNKT3DV3", {0, 9}, 0, 0, CHECKSUM_XOR, vndlp},
        {"VNKT3DV2", {0, 2}, 0, 2, CHECKSUM_XOR, vndlp},
        {"VNKT3DV2", {0, 3}, 0, 3, CHECKSUM_CRC32, vndlp},
        {"VNKT3DV2", {0, 4, 0, 0}, 0, 4, CHECKSUM_CRC32, SliceFormat::vndlpv4},
        {"VNKT3DV2", {0, 0, 0, 5}, 0, 5, CHECKSUM_CRC32, vndlp},
        {"VNKT3DV2", {0, 0, 0, 0}, 0, 0, CHECKSUM_XOR, vndlp},
        {"VNKT3DV2", {0, 0, 0}, -3, 0, CHECKSUM_XOR, vndlp},
        {"VNLINEV2", {1, 2}, 0, 0x102, CHECKSUM_CRC32, line},
        {"VNLINEV2", {0, 4}, 0, 4, CHECKSUM_CRC32, line},
        {"VNLINEV2", {0, 0, 0, 7}, 0, 0, CHECKSUM_CRC32, line},
        {"VNLINEV2", {0}, -3, 0, CHECKSUM_NONE, none},
        {"vnlinev2", {0, 3}, -4, 0, CHECKSUM_NONE, none},
        {"VNKT3DV2longer", {0, 3, 0}, -4, 0, CHECKSUM_NONE, none},
    };
    std::string name;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    for (const Row& row : rows) {
        const std::vector<unsigned char> bytes = head(row.magic, row.behind);
        const std::string file = writeFile(path("sniffed"), bytes);
        version = -9;
        EXPECT_EQ((Codes{sums().getFileVersionInfo(file.c_str(), name, version, type), version, type}),
                  (Codes{row.code, row.version, row.code == -3 ? CHECKSUM_NONE : row.type}))
            << row.magic;
        EXPECT_TRUE(row.code == -3 || name == std::string(row.magic).substr(0, 11)) << name;
        const SniffedHead sniffed = sniffHead(bytes.data(), bytes.size());
        EXPECT_EQ(std::tuple(sniffed.format, sniffed.version, sniffed.checkSum),
                  std::tuple(row.format, row.version, row.type))
            << row.magic;
    }
    const Bytes ctb = hex("8600FD12");
    EXPECT_EQ(sniffHead(ctb.data(), 4).format, SliceFormat::ctb);
    EXPECT_EQ(sniffHead(ctb.data(), 3).format, none);
    EXPECT_EQ(sums().getFileVersionInfo(nullptr, name, version, type), -1);
    EXPECT_EQ(sums().getFileVersionInfo(path("missing").c_str(), name, version, type), -2);
}

TEST_F(ChecksumTest, FilesAreSealedAndVerifiedByTheirVersion) {
    struct Row {
        const char* magic;
        void (*seal)(Bytes&);
        const char* told;
    };
    const Row rows[] = {{"VNKT3D", nullptr, "versionName:VNKT3D, subVersionNum:0, checktype:0\n"},
                        {"VNKT3D3", sealWithXor, "versionName:VNKT3D3, subVersionNum:0, checktype:1\n"},
                        {"VNLINEV2", sealWithCrc, "versionName:VNLINEV2, subVersionNum:3, checktype:2\n"}};
    for (const Row& row : rows) {
        Bytes expected = head(row.magic).raw(noise(300));
        const std::string file = writeFile(path("sealed"), expected);
        if (row.seal != nullptr) row.seal(expected);
        Printed printed;
        EXPECT_EQ((Codes{sums().appendFileSum(file.c_str()), sums().checkFileSum(file.c_str())}), Codes(2));
        EXPECT_TRUE(sameBytes(readFile(file), expected)) << row.magic;
        const Bytes sum = Bytes().u32(static_cast<unsigned>(sums().getFileSum(file.c_str())));
        EXPECT_TRUE(sameBytes(sum, row.seal == nullptr ? Bytes(4) : Bytes(expected.end() - 4, expected.end())));
        corruptByte(file, 100, static_cast<unsigned char>(expected[100] ^ 1));
        EXPECT_EQ(sums().checkFileSum(file.c_str()), row.seal != nullptr ? -5 : 0);
        const std::string told = "checkFileSum, file:" + file + ", " + row.told;
        EXPECT_EQ(printed.take(), told + told + told + told) << "one text for all three";
        EXPECT_EQ(sums().getFileSize(file.c_str()), static_cast<long long>(expected.size()));
    }
    Printed printed;
    const std::string unknown = writeFile(path("unknown"), head("OTHER").fill(9, 0));
    EXPECT_EQ((Codes{sums().appendFileSum(unknown.c_str()), sums().checkFileSum(path("missing").c_str()),
                     sums().getFileSum(nullptr)}),
              Codes(3, -1));
    EXPECT_EQ(printed.take(),
              "getFileVersionInfo failed, ret:-4\ngetFileVersionInfo failed, ret:-2\n"
              "getFileVersionInfo failed, ret:-1\n");
}

TEST_F(ChecksumTest, SumsCoverFilesOfEveryLength) {
    constexpr std::size_t kBlock = 1u << 18;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{1024}, kBlock, kBlock + 1}) {
        for (const bool crc : {true, false}) {
            Bytes bytes = noise(size);
            const std::string file = writeFile(path("sum"), bytes);
            const char* name = file.c_str();
            EXPECT_EQ(crc ? sums().appendFileSumCrc32(name) : sums().appendFileSumXor(name), 0);
            EXPECT_EQ(crc ? sums().checkFileSumCrc32(name) : sums().checkFileSumXor(name), 0);
            const int sum = crc ? sums().getFileSumCrc32(name) : sums().getFileSumXor(name);
            crc ? sealWithCrc(bytes) : sealWithXor(bytes);
            EXPECT_EQ(Bytes().u32(static_cast<unsigned>(sum)), Bytes(bytes.end() - 4, bytes.end()));
            EXPECT_TRUE(sameBytes(readFile(file), bytes)) << size;
        }
    }
}

TEST_F(ChecksumTest, XorCheckToleratesTrailersOfUnsignedSums) {
    struct Row {
        std::vector<unsigned char> content;
        unsigned stored;
        int code;
    };
    const Row rows[] = {
        {{0x80}, 0xFFFFFF80, 0}, {{0x80}, 0x00000080, 0}, {{0x30}, 0x00000030, 0},  {{0x30}, 0x000000D0, 0},
        {{0x30}, 0xFFFFFF30, 0}, {{0xD0}, 0x000000D0, 0}, {{0x30}, 0x00000031, -5}, {{0x30}, 0x000001D0, -5},
        {{0x00}, 0x00000100, 0}, {{0x00}, 0xFFFFFF00, 0}, {{0x00}, 0x80000000, -5}, {{}, 0, 0},
    };
    for (const Row& row : rows) {
        const std::string file = writeFile(path("xor"), Bytes().raw(row.content).u32(row.stored));
        EXPECT_EQ(sums().checkFileSumXor(file.c_str()), row.code) << std::hex << row.stored;
    }
}

TEST_F(ChecksumTest, EveryFailureHasItsCode) {
    using Member = int (CheckSum::*)(const char*);
    const std::string tiny = writeFile(path("tiny"), {1, 2, 3});
    for (const Member member :
         {&CheckSum::appendFileSumCrc32, &CheckSum::appendFileSumXor, &CheckSum::checkFileSumCrc32,
          &CheckSum::checkFileSumXor, &CheckSum::getFileSumCrc32, &CheckSum::getFileSumXor}) {
        EXPECT_EQ((sums().*member)(nullptr), -1);
        EXPECT_EQ((sums().*member)(path("missing").c_str()), -2);
        EXPECT_EQ((sums().*member)(path("").c_str()), -2) << "a directory";
    }
    // no trailer to read; nothing to sum; a wrong trailer
    EXPECT_EQ((Codes{sums().checkFileSumCrc32(tiny.c_str()), sums().checkFileSumXor(tiny.c_str()),
                     sums().getFileSumCrc32(tiny.c_str()),
                     sums().checkFileSumCrc32(writeFile(path("wrong"), {1, 0, 0, 0, 0}).c_str())}),
              (Codes{-4, -4, 0, -5}));
    EXPECT_EQ((Codes{sums().getFileSize(nullptr), sums().getFileSize(path("missing").c_str())}), (Codes{-1, -2}));
}

TEST(RunningSum, IsThatOfTheBytesHoweverTheyWereWritten) {
    std::mt19937 random(3);
    for (int round = 0; round < 50; ++round) {
        RunningSum sum;
        Bytes file;
        for (int write = 0; write < 20; ++write) {
            // appended, overwritten, or both
            const std::size_t at = random() % 2 == 0 ? file.size() : random() % (file.size() + 1);
            const Bytes piece = noise(random() % 5000, random());
            sum.add(static_cast<long long>(at), piece.data(), piece.size());
            file.resize(std::max(file.size(), at + piece.size()));
            std::copy(piece.begin(), piece.end(), file.begin() + static_cast<std::ptrdiff_t>(at));
        }
        ASSERT_TRUE(sum.known());
        EXPECT_EQ((Codes{sum.length(), sum.crc(), sum.xorSum()}),
                  (Codes{std::ssize(file), plainCrc(file.data(), file.size()), plainXor(file.data(), file.size())}));
    }
}

}  // namespace
}  // namespace vndlp::test
