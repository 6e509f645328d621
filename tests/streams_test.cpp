#include "io/byte_source.h"
#include "support/bytes.h"
#include "support/files.h"

#include <vndlp/streams.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <thread>
#include <tuple>
#include <typeinfo>
#if defined(__linux__)
#include <unistd.h>
#endif

namespace vndlp::test {
namespace {

using StreamsTest = FileTest;
using Texts = std::vector<std::string>;

/// Writes and reads single values; each is compared with its bytes in the order stated.
class TypedTest : public FileTest {
protected:
    /// By the calls, if there are any, and by the operators, which have the file's order.
    template <class Value>
    void check(BYTEORDER order, Value value, void (FileWrite::*write)(Value) = nullptr,
               Value (FileRead::*read)() = nullptr) {
        const bool byOperators = order == fileOrder;
        Bytes bytes(sizeof value);
        std::memcpy(bytes.data(), &value, sizeof value);
        if (order != byteOrderJudge()) std::reverse(bytes.begin(), bytes.end());
        Bytes expected;
        FileWrite out(path("value"), 7);
        if (setOrder) out.setFileByteOrder(fileOrder);
        if (write != nullptr) {
            (out.*write)(value);
            expected.raw(bytes);
        }
        if (byOperators) {
            out << value << value;
            expected.raw(bytes).raw(bytes);
        }
        EXPECT_EQ(out.close(), 0);
        EXPECT_TRUE(sameBytes(readFile(path("value")), expected)) << typeid(Value).name();
        FileRead in(path("value"), 7);
        if (setOrder) in.setFileByteOrder(fileOrder);
        EXPECT_EQ(read == nullptr ? value : (in.*read)(), value) << typeid(Value).name();
        std::array<Value, 2> pair = {};
        if (byOperators) in >> pair[0] >> pair[1];
        EXPECT_TRUE(!byOperators || pair == (std::array{value, value})) << typeid(Value).name();
        EXPECT_EQ(in.remaining(), 0);
    }

    BYTEORDER fileOrder = byteOrderJudge();
    bool setOrder = false;
};

TEST_F(TypedTest, FileOrderIsTheHostsUntilSetAndFixedOrdersIgnoreIt) {
    const auto checkAll = [this] {
        const BYTEORDER o = fileOrder;
        check(o, '\x80', &FileWrite::writeChar, &FileRead::readChar);
        check(o, static_cast<signed char>(-1));
        check(o, uint8_t{0x81});
        check(o, short{-2}, &FileWrite::writeInt16, &FileRead::readInt16);
        check(o, uint16_t{0x8234}, &FileWrite::writeUint16, &FileRead::readUint16);
        check(o, -3, &FileWrite::writeInt32, &FileRead::readInt32);
        check(o, 0x82345678U, &FileWrite::writeUint32, &FileRead::readUint32);
        check(o, -4LL, &FileWrite::writeInt64, &FileRead::readInt64);
        check(o, 0x823456789ABCDEF0ULL, &FileWrite::writeUint64, &FileRead::readUint64);
        check(o, std::int64_t{-5});
        check(o, std::uint64_t{1} << 63);
        check(o, 1.1F, &FileWrite::writeFloat, &FileRead::readFloat);
        check(o, -2.2, &FileWrite::writeDouble, &FileRead::readDouble);
        check(BigEndian, short{-2}, &FileWrite::writeBigEndianInt16, &FileRead::readBigEndianInt16);
        check(BigEndian, uint16_t{0x8234}, &FileWrite::writeBigEndianUint16, &FileRead::readBigEndianUint16);
        check(BigEndian, -3, &FileWrite::writeBigEndianInt32, &FileRead::readBigEndianInt32);
        check(BigEndian, 0x82345678U, &FileWrite::writeBigEndianUint32, &FileRead::readBigEndianUint32);
        check(BigEndian, -4LL, &FileWrite::writeBigEndianInt64, &FileRead::readBigEndianInt64);
        check(BigEndian, 1ULL << 63, &FileWrite::writeBigEndianUint64, &FileRead::readBigEndianUint64);
        check(LittleEndian, short{-2}, &FileWrite::writeLittleEndianInt16, &FileRead::readLittleEndianInt16);
        check(LittleEndian, uint16_t{0x8234}, &FileWrite::writeLittleEndianUint16, &FileRead::readLittleEndianUint16);
        check(LittleEndian, -3, &FileWrite::writeLittleEndianInt32, &FileRead::readLittleEndianInt32);
        check(LittleEndian, 0x82345678U, &FileWrite::writeLittleEndianUint32, &FileRead::readLittleEndianUint32);
        check(LittleEndian, -4LL, &FileWrite::writeLittleEndianInt64, &FileRead::readLittleEndianInt64);
        check(LittleEndian, 1ULL << 63, &FileWrite::writeLittleEndianUint64, &FileRead::readLittleEndianUint64);
    };
    checkAll();
    setOrder = true;
    for (const BYTEORDER order : {LittleEndian, BigEndian}) {
        fileOrder = order;
        checkAll();
    }
}

TEST_F(StreamsTest, StringsHaveBigEndianLengthsInEveryFileOrder) {
    std::string texts[] = {"abc", "", "\xE9"};
    for (const BYTEORDER order : {LittleEndian, BigEndian}) {
        FileWrite out(path("strings"), 0);
        out.setFileByteOrder(order);
        out.writeStdString(texts[0]);
        out << texts[1];
        for (std::string& text : texts) out.writeStdStringAsQAnsic(text);
        out.close();
        const Bytes expected = Bytes().string("abc").string("").text("abc").text("").u32(2).u16(0xFFE9);
        EXPECT_TRUE(sameBytes(readFile(path("strings")), expected));
        FileRead in(path("strings"), 0);
        EXPECT_EQ((Texts{in.readStdString(), in.readStdString()}), (Texts{"abc", ""}));
        for (const std::string& text : texts) EXPECT_EQ(in.readQAnsicString(), text);
    }
}

TEST_F(StreamsTest, OddStringsAreReadAsDocumented) {
    Bytes b;
    b.u32(0).u32(1).u8('x').u32(3).raw("abc").le(3, 4).raw("de").u8(0);
    b.u32(5).u16('h').u16('i').u32(0x10001).u32(0xFFFFFFFF).u32(65536).fill(65536, 0x41).u8(9);
    FileRead in(writeFile(path("odd"), b), 0);
    // one byte, dropped; the last byte is dropped whatever it is
    EXPECT_EQ((Texts{in.readStdString(), in.readStdString(), in.readStdString(), in.readStdStringLittleEndian()}),
              (Texts{"", "", "ab", "de"}));
    // the odd byte is not read; beyond 65536 only the count is read
    EXPECT_EQ((Texts{in.readQAnsicString(), in.readQAnsicString(), in.readQAnsicString(), in.readQAnsicString()}),
              (Texts{"hi", "", "", std::string(32768, 'A')}));
    EXPECT_EQ(in.readChar(), 9);
}

TEST_F(StreamsTest, ShortReadsGiveWhatIsThereAndZeros) {
    FileRead in(writeFile(path("short"), {0x12, 0x34, 0x56}), 0);
    EXPECT_EQ((Codes{in.readBigEndianUint32(), in.readBigEndianUint32(), in.seek(1, 0), in.readLittleEndianUint32()}),
              (Codes{0x12345600, 0, 1, 0x00005634}));
    EXPECT_EQ(in.readDouble(), 0.0);
    char buffer[8] = {};
    EXPECT_EQ((Codes{in.seek(0, 0), in.readRawData(buffer, 8), in.readRawData(buffer, -1)}), (Codes{0, 3, 0}));
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

TEST_F(StreamsTest, MemoryAndCallbacksAreReadLikeFiles) {
    std::mt19937 random(5);
    Bytes bytes(50000);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    // a callback may give less than it is asked for
    const ReadCallback some = [](void* context, std::int64_t offset, void* to, std::size_t size) -> std::int64_t {
        const Bytes& all = *static_cast<const Bytes*>(context);
        const std::size_t now = std::min<std::size_t>(size, 777);
        std::memcpy(to, all.data() + offset, now);
        return static_cast<std::int64_t>(now);
    };
    FileRead file(writeFile(path("noise"), bytes));
    FileRead memory;
    FileRead called;
    EXPECT_EQ((Codes{memory.openMemory(bytes.data(), bytes.size()),
                     called.openSource(callbackSource(some, &bytes, std::ssize(bytes)), "called")}),
              Codes(2));
    EXPECT_EQ((Texts{file.fileName(), memory.fileName(), called.fileName()}), (Texts{path("noise"), "", "called"}));
    for (int round = 0; round < 300; ++round) {
        const long long target = static_cast<long long>(random() % 52000) - 1000;
        const std::size_t size = random() % (round % 3 == 0 ? 40000 : 40);
        const auto outcome = [&](FileRead& in) {
            Bytes read(size + 2);
            const long long moved = in.seek(target, 0);
            const auto got = static_cast<long long>(in.readBytes(read.data(), size));
            in >> read[size];
            return std::tuple(moved, got, in.currentPosition(), in.remaining(), read);
        };
        const auto expected = outcome(file);
        ASSERT_EQ(outcome(memory), expected) << target << " " << size;
        ASSERT_EQ(outcome(called), expected) << target << " " << size;
    }
    EXPECT_EQ((Codes{memory.openMemory(nullptr, 0), memory.fileLength(), memory.readChar(),
                     memory.openMemory(nullptr, 1), memory.fileLength()}),
              (Codes{0, 0, 0, -1, -1}));
    const ReadCallback failing = [](void*, std::int64_t, void*, std::size_t) -> std::int64_t { return -1; };
    EXPECT_EQ(called.openSource(callbackSource(failing, nullptr, 8), ""), 0);
    EXPECT_EQ(called.readUint64(), 0U);
}

#if defined(__linux__)
/// Strings were cut to the length measured at opening, which a file that grows and a pipe exceed.
TEST_F(StreamsTest, StringsAreReadAsFarAsBytesArrive) {
    std::string text(100000, 'x');
    const std::string grown = writeFile(path("grown"), Bytes().u32(7));
    FileRead in(grown);
    FileWrite out(path("tail"));
    out.writeStdString(text);
    out.writeStdStringAsQAnsic(text.assign("abc"));
    out.close();
    const Bytes tail = readFile(path("tail"));
    writeFile(grown, Bytes().u32(7).raw(tail));
    EXPECT_EQ(in.readBigEndianUint32(), 7U);
    EXPECT_EQ((Texts{in.readStdString(), in.readQAnsicString()}), (Texts{std::string(100000, 'x'), "abc"}));

    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    std::thread writer([&] {
        for (std::size_t at = 0; at < tail.size(); at += 5000) {
            const std::size_t size = std::min<std::size_t>(5000, tail.size() - at);
            EXPECT_EQ(write(ends[1], tail.data() + at, size), static_cast<long>(size));
        }
        close(ends[1]);
    });
    FileRead piped("/dev/fd/" + std::to_string(ends[0]));
    EXPECT_EQ((Texts{piped.readStdString(), piped.readQAnsicString()}), (Texts{std::string(100000, 'x'), "abc"}));
    EXPECT_EQ((Codes{piped.seek(0, 0), piped.readChar()}), (Codes{-2, 0}));
    writer.join();
    close(ends[0]);
}
#endif

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
