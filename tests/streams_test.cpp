#include "support/bytes.h"
#include "support/files.h"

#include <vndlp/streams.h>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <typeinfo>

namespace vndlp::test {
namespace {

using StreamsTest = FileTest;
using Texts = std::vector<std::string>;

TEST(ByteOrder, ReversalIsInPlace) {
    char five[] = {1, 2, 3, 4, 5};
    changeByteOrder(five, 5);
    changeByteOrder(five, 1);
    changeByteOrder(nullptr, 0);
    EXPECT_EQ(std::string(five, 5), "\5\4\3\2\1");
    EXPECT_EQ(byteOrderJudge(), std::endian::native == std::endian::big ? BigEndian : LittleEndian);
}

/// Writes and reads values with a file order set; every value is compared with its bytes in the order stated.
class TypedTest : public FileTest {
protected:
    template <class Value>
    void named(BYTEORDER order, void (FileWrite::*write)(Value), Value (FileRead::*read)(), Value value) {
        FileWrite out(path("value"), 7);
        if (setOrder) out.setFileByteOrder(fileOrder);
        (out.*write)(value);
        EXPECT_EQ(out.close(), 0);
        Bytes expected(sizeof value);
        std::memcpy(expected.data(), &value, sizeof value);
        if (order != byteOrderJudge()) std::reverse(expected.begin(), expected.end());
        EXPECT_TRUE(sameBytes(readFile(path("value")), expected)) << typeid(Value).name();
        FileRead in(path("value"), 7);
        if (setOrder) in.setFileByteOrder(fileOrder);
        EXPECT_EQ((in.*read)(), value) << typeid(Value).name();
        EXPECT_EQ(in.remaining(), 0);
    }
    /// The operators give what the named call of the same type gives.
    template <class... Value>
    void streamed(const Bytes& expected, Value... value) {
        FileWrite out(path("values"), 7);
        if (setOrder) out.setFileByteOrder(fileOrder);
        (out << ... << value);
        out.close();
        EXPECT_TRUE(sameBytes(readFile(path("values")), expected));
        FileRead in(path("values"), 7);
        if (setOrder) in.setFileByteOrder(fileOrder);
        std::tuple<Value...> back;
        std::apply([&in](auto&... each) { (in >> ... >> each); }, back);
        EXPECT_EQ(back, std::make_tuple(value...));
    }

    BYTEORDER fileOrder = byteOrderJudge();
    bool setOrder = true;
};

TEST_F(TypedTest, FileOrderIsTheHostsUntilSet) {
    for (const int round : {0, 1, 2}) {
        setOrder = round > 0;
        const BYTEORDER o = fileOrder = round == 0 ? byteOrderJudge() : round == 1 ? LittleEndian : BigEndian;
        named(o, &FileWrite::writeChar, &FileRead::readChar, '\x80');
        named(o, &FileWrite::writeInt16, &FileRead::readInt16, short{-2});
        named(o, &FileWrite::writeUint16, &FileRead::readUint16, uint16_t{0x8234});
        named(o, &FileWrite::writeInt32, &FileRead::readInt32, -3);
        named(o, &FileWrite::writeUint32, &FileRead::readUint32, 0x82345678U);
        named(o, &FileWrite::writeInt64, &FileRead::readInt64, -4LL);
        named(o, &FileWrite::writeUint64, &FileRead::readUint64, 0x823456789ABCDEF0ULL);
        named(o, &FileWrite::writeFloat, &FileRead::readFloat, 1.1F);
        named(o, &FileWrite::writeDouble, &FileRead::readDouble, -2.2);
        Bytes bytes = {0x80, 0xFF, 0x81};  // single bytes, then what is in the file's order
        const auto add = o == BigEndian ? &Bytes::be : &Bytes::le;
        (bytes.*add)(0xFFFE, 2), (bytes.*add)(0x8234, 2), (bytes.*add)(~2ULL, 4), (bytes.*add)(0x82345678, 4);
        (bytes.*add)(~3ULL, 8), (bytes.*add)(0x823456789ABCDEF0, 8);
        (bytes.*add)(0x3FC00000, 4), (bytes.*add)(0xC000000000000000, 8);
        streamed(bytes, char{'\x80'}, static_cast<signed char>(-1), uint8_t{0x81}, short{-2}, uint16_t{0x8234}, -3,
                 0x82345678U, -4LL, 0x823456789ABCDEF0ULL, 1.5F, -2.0);
    }
}

TEST_F(TypedTest, FixedOrdersIgnoreTheFileOrder) {
    for (const BYTEORDER order : {LittleEndian, BigEndian}) {
        fileOrder = order;
        named(BigEndian, &FileWrite::writeBigEndianInt16, &FileRead::readBigEndianInt16, short{-2});
        named(BigEndian, &FileWrite::writeBigEndianUint16, &FileRead::readBigEndianUint16, uint16_t{0x8234});
        named(BigEndian, &FileWrite::writeBigEndianInt32, &FileRead::readBigEndianInt32, -3);
        named(BigEndian, &FileWrite::writeBigEndianUint32, &FileRead::readBigEndianUint32, 0x82345678U);
        named(BigEndian, &FileWrite::writeBigEndianInt64, &FileRead::readBigEndianInt64, -4LL);
        named(BigEndian, &FileWrite::writeBigEndianUint64, &FileRead::readBigEndianUint64, 1ULL << 63);
        named(LittleEndian, &FileWrite::writeLittleEndianInt16, &FileRead::readLittleEndianInt16, short{-2});
        named(LittleEndian, &FileWrite::writeLittleEndianUint16, &FileRead::readLittleEndianUint16, uint16_t{0x8234});
        named(LittleEndian, &FileWrite::writeLittleEndianInt32, &FileRead::readLittleEndianInt32, -3);
        named(LittleEndian, &FileWrite::writeLittleEndianUint32, &FileRead::readLittleEndianUint32, 0x82345678U);
        named(LittleEndian, &FileWrite::writeLittleEndianInt64, &FileRead::readLittleEndianInt64, -4LL);
        named(LittleEndian, &FileWrite::writeLittleEndianUint64, &FileRead::readLittleEndianUint64, 1ULL << 63);
    }
}

TEST_F(StreamsTest, StringsHaveBigEndianLengthsInEveryFileOrder) {
    std::string abc = "abc";
    std::string empty;
    std::string accent = "\xE9";
    for (const BYTEORDER order : {LittleEndian, BigEndian}) {
        FileWrite out(path("strings"), 0);
        out.setFileByteOrder(order);
        out.writeStdString(abc);
        out << empty;
        out.writeStdStringAsQAnsic(abc);
        out.writeStdStringAsQAnsic(empty);
        out.writeStdStringAsQAnsic(accent);
        out.close();
        const Bytes expected = {0, 0,   0, 4,   'a', 'b', 'c', 0, 0, 0, 0, 1, 0, 0, 0,    0,   6,
                                0, 'a', 0, 'b', 0,   'c', 0,   0, 0, 0, 0, 0, 0, 2, 0xFF, 0xE9};
        EXPECT_TRUE(sameBytes(readFile(path("strings")), expected));
        FileRead in(path("strings"), 0);
        EXPECT_EQ((Texts{in.readStdString(), in.readStdString()}), (Texts{abc, empty}));
        EXPECT_EQ((Texts{in.readQAnsicString(), in.readQAnsicString(), in.readQAnsicString()}),
                  (Texts{abc, empty, accent}));
    }
}

TEST_F(StreamsTest, OddStringsAreReadAsDocumented) {
    Bytes b;
    b.u32(0).u32(1).u8('x').u32(3).raw("abc").le(3, 4).raw("de").u8(0);
    b.u32(5).u16('h').u16('i').u32(0x10001).u32(0xFFFFFFFF).u32(65536).fill(65536, 0x41).u8(9);
    FileRead in(writeFile(path("odd"), b), 0);
    EXPECT_EQ(in.readStdString(), "");
    EXPECT_EQ(in.readStdString(), "") << "one byte, dropped";
    EXPECT_EQ(in.readStdString(), "ab") << "the last byte is dropped whatever it is";
    EXPECT_EQ(in.readStdStringLittleEndian(), "de");
    EXPECT_EQ(in.readQAnsicString(), "hi") << "the odd byte is not read";
    EXPECT_EQ(in.readQAnsicString(), "") << "beyond 65536 only the count is read";
    EXPECT_EQ(in.readQAnsicString(), "");
    EXPECT_EQ(in.readQAnsicString(), std::string(32768, 'A'));
    EXPECT_EQ(in.readChar(), 9);
}

TEST_F(StreamsTest, ShortReadsGiveWhatIsThereAndZeros) {
    FileRead in(writeFile(path("short"), {0x12, 0x34, 0x56}), 0);
    EXPECT_EQ(in.readBigEndianUint32(), 0x12345600U);
    EXPECT_EQ(in.readBigEndianUint32(), 0U);
    EXPECT_EQ(in.readDouble(), 0.0);
    in.seek(1, 0);
    EXPECT_EQ(in.readLittleEndianUint32(), 0x00005634U);
    char buffer[8] = {};
    in.seek(0, 0);
    EXPECT_EQ(in.readRawData(buffer, 8), 3);
    EXPECT_EQ(in.readRawData(buffer, -1), 0);
    FileRead cut(writeFile(path("cut"), Bytes().u32(9).raw("VNKT3D")), 0);
    EXPECT_EQ(cut.readStdString(), std::string("VNKT3D\0\0", 8)) << "not a shorter string";
    FileRead text(writeFile(path("text"), Bytes().u32(6).u16('a')), 0);
    EXPECT_EQ(text.readQAnsicString(), std::string("a\0\0", 3));
    FileRead hostile(writeFile(path("hostile"), Bytes().u32(0xFFFFFFFF).raw("ab")), 0);
    EXPECT_EQ(hostile.readStdString(), "ab") << "and no 4 GiB are allocated for it";
}

TEST_F(StreamsTest, ReadPositionsStayInsideTheFile) {
    FileRead in(writeFile(path("ten"), Bytes(10)), 0);
    EXPECT_EQ(in.fileLength(), 10);
    // to the end, not beyond it; any other origin is the position
    EXPECT_EQ((Codes{in.seek(0, 2), in.seek(1, 2), in.currentPosition()}), (Codes{10, -2, 10}));
    EXPECT_EQ((Codes{in.seek(-4, 1), in.seek(-7, 5), in.seek(0x7FFFFFFFFFFFFFFF, 1)}), (Codes{6, -2, -2}));
    EXPECT_EQ((Codes{in.skipRawData(-6), in.skipRawData(-1), in.skipRawData(11)}), (Codes{0, -2, -2}));
    EXPECT_EQ((Codes{in.skipRawData(10), in.remaining()}), (Codes{10, 0}));
}

TEST_F(StreamsTest, CallsWithoutAFileFail) {
    FileRead in(path("missing"), 0);
    EXPECT_FALSE(in.isOpenFile());
    EXPECT_EQ((Codes{in.open(path(""), 0), in.close(), in.fileLength(), in.currentPosition(), in.seek(0, 0),
                     in.skipRawData(0)}),
              Codes(6, -1));
    EXPECT_EQ(in.readUint32(), 0U);
    EXPECT_EQ((Codes{in.open(writeFile(path("there"), {1}), 0), in.open(path("missing"), 0)}), (Codes{0, -1}));
    EXPECT_FALSE(in.isOpenFile()) << "the file open before is closed";

    FileWrite out(path("no/such/directory"), 0);
    EXPECT_FALSE(out.isOpenFile());
    EXPECT_EQ((Codes{out.close(), out.flush(), out.fileLength(), out.currentPosition(), out.seek(0, 0, true)}),
              Codes(5, -1));
    out.skipRawData(5);
    EXPECT_FALSE(out.failed());
    out.writeChar(1);
    EXPECT_TRUE(out.failed());
    EXPECT_EQ(out.open(path("later"), 0), 0);
    EXPECT_FALSE(out.failed()) << "opening forgets";
    EXPECT_EQ(out.open(path("no/such/directory"), 0), -1);
    EXPECT_EQ(out.fileName(), path("later"));
}

TEST_F(StreamsTest, WritingBeyondTheEndFillsWithZeros) {
    FileWrite out(path("holes"), 0);
    // beyond the end it is the number of zeros that is returned, else the position
    EXPECT_EQ((Codes{out.seek(10, 0, false), out.seek(10, 0, true), out.seek(4, 0, true)}), (Codes{-2, 10, 4}));
    out.writeChar('a');
    EXPECT_EQ((Codes{out.seek(8, 1, true), out.currentPosition(), out.seek(-1, 0, true)}), (Codes{3, 13, -2}));
    EXPECT_EQ((Codes{out.seek(-14, 2, true), out.seek(-13, 2, false), out.seekForce(2, 0)}), (Codes{-2, 0, 2}));
    out.skipRawData(-3);
    EXPECT_EQ(out.currentPosition(), 2) << "below 0 nothing happens";
    out.skipRawData(-1);
    out.writeChar('b');
    EXPECT_EQ((Codes{out.seekForce(-1, 1), out.seekForce(0, 2)}), (Codes{-1, 12}));
    out.skipRawData(5000);
    EXPECT_EQ(out.fileLength(), 5013);
    out.writeRawData("cd", 2);
    out.writeRawData("ef", -2);
    EXPECT_EQ(out.flush(), 0);
    const Bytes expected = Bytes(1).u8('b').fill(2, 0).u8('a').fill(8 + 5000, 0).raw("cd");
    EXPECT_TRUE(sameBytes(readFile(path("holes")), expected));
}

TEST_F(StreamsTest, AFullDiskIsRemembered) {
    const Bytes large(1 << 20, 1);
    for (const std::size_t size : {std::size_t{10}, large.size()}) {
        for (const bool device : {true, false}) {
            const FileSizeLimit limit(size - 1);
            FileWrite out(device ? kFullDevice : path("limited"), 0);
            out.writeBytes(large.data(), size);
            EXPECT_EQ(out.failed(), size > 10) << "a little is still in the buffer";
            EXPECT_EQ((Codes{out.flush(), out.close(), out.failureCode()}), (Codes{-1, -1, device ? ENOSPC : EFBIG}));
        }
    }
    FileWrite small(kFullDevice, 0);
    small.writeChar(1);
    EXPECT_EQ(small.close(), -1);
    EXPECT_TRUE(small.failed());
}

}  // namespace
}  // namespace vndlp::test
