#include "io/record_layout.h"
#include "ctb/record_fields.h"
#include "support/bytes.h"
#include "support/v4.h"
#include "v4/record_fields.h"

#include <sstream>

namespace vndlp::test {

/// Written as a float, read as the float's bits.
struct AsFloat {
    using Stored = float;
    static float toStored(unsigned value) { return static_cast<float>(value); }
};
struct Inner {
    short level = 0;
    unsigned char raw[3] = {};
};
struct Outer {
    std::string name;
    std::string wide;
    unsigned short version = 0;
    Inner inner;
    unsigned count = 0;
    bool hasMore = false;
    long long more = 0;
    float last = 0;
};
struct IfMore {
    static bool isIn(const Outer& record) { return record.hasMore; }
};
/// Two bytes between fields.
struct Mark {
    static constexpr std::size_t kBytes = 2;
};

}  // namespace vndlp::test

namespace vndlp {

template <>
struct Layout<test::Inner> {
    using R = test::Inner;
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{Field{"level", &R::level, "mm"}, Field{"raw", &R::raw}};
};
template <>
struct Layout<test::Outer> {
    using R = test::Outer;
    static constexpr BYTEORDER order = LittleEndian;
    static constexpr std::tuple fields{
        Field{"name", &R::name},
        Field{"wide", &R::wide, "", Utf16{}},
        Field{"version", &R::version, "", ForcedBigEndian<unsigned short>{0x0102}},
        Field{"inner", &R::inner},
        test::Mark{},
        Field{"count", &R::count, "s", test::AsFloat{}},
        Field{"more", &R::more, "", test::IfMore{}},
        Field{"last", &R::last},
    };
};

}  // namespace vndlp

namespace vndlp::test {
namespace {

struct MarkingSource : MemorySource {
    using MemorySource::MemorySource;
    void mark(Mark /*item*/, Outer& record) {
        short value = 0;
        number(value, BigEndian);
        record.hasMore = value == 7;
    }
};
struct MarkingSink : MemorySink {
    using MemorySink::MemorySink;
    void mark(Mark /*item*/, Outer& record) { number<short>(record.hasMore ? 7 : 0, BigEndian); }
};

TEST(RecordLayout, EveryKindOfFieldIsWrittenReadMeasuredAndDescribed) {
    Outer record{"ab", "\xE9z", 9, {-2, {1, 2, 3}}, 3, true, -1, 1.5F};
    const Bytes expected = Bytes()
                               .string("ab")
                               .u32(4)
                               .u16(0xFFE9)
                               .u16('z')
                               .u16(0x0102)
                               .le(0xFFFE, 2)
                               .raw(Bytes{1, 2, 3})
                               .u16(7)
                               .f32Le(3)
                               .fill(8, 0xFF)
                               .f32Le(1.5F);
    std::vector<unsigned char> bytes;
    MarkingSink sink(bytes, LittleEndian);
    writeRecord(sink, record);
    EXPECT_TRUE(sameBytes(bytes, expected));
    EXPECT_EQ(record.version, 0x0102) << "the record takes what is forced";
    EXPECT_EQ(storedBytes(record), bytes.size());
    EXPECT_EQ(fixedBytes<Outer>(), bytes.size() - 3 - 4 - 8) << "without characters and optional fields";

    Outer read;
    MarkingSource source(bytes.data(), bytes.size(), LittleEndian);
    readRecord(source, read);
    EXPECT_EQ(source.left(), 0u);
    EXPECT_EQ(read.name + read.wide, "ab\xE9z");
    EXPECT_EQ(read.inner.level, -2);
    EXPECT_EQ(read.inner.raw[2], 3);
    EXPECT_EQ(read.count, 0x40400000u);
    EXPECT_EQ(read.more, -1);
    EXPECT_EQ(read.last, 1.5F);

    std::ostringstream places;
    const std::size_t end = describeFields(record, 100, [&](const FieldPlace& place, const auto& field, const auto&) {
        places << place.name << '@' << place.offset << '+' << place.bytes << place.unit << (place.fixed ? "!" : "")
               << (place.order == BigEndian ? ">" : "")
               << (std::is_same_v<typename std::decay_t<decltype(field)>::Stored, float> ? "f" : "") << ' ';
    });
    EXPECT_EQ(places.str(),
              "name@100+7 wide@107+8 version@115+2!> inner.level@117+2mm inner.raw@119+3 count@124+4sf more@128+8 "
              "last@136+4f ");
    EXPECT_EQ(end, 100 + bytes.size());
}

TEST(RecordLayout, ZerosStandForWhatIsMissingUnlessTheRecordIsToKeepItsValues) {
    const Bytes bytes = Bytes().f32Le(1.5F).le(7, 1);
    const TemporaryFile file;
    file.setBytes(bytes);
    CTB::PreView zeros;
    CTB::PreView kept;
    for (CTB::PreView* each : {&zeros, &kept}) {
        each->imageOffset = 9;
        FileRead in(file.path(), 0);
        FileSource source(in, LittleEndian, LittleEndian,
                          each == &kept ? Missing::keepsItsValue : Missing::becomesZero);
        readRecord(source, *each);
        EXPECT_EQ(each->resolutionY, 7u) << "partly there";
    }
    EXPECT_EQ(zeros.imageOffset, 0u);
    EXPECT_EQ(kept.imageOffset, 9u);

    CTB::PreView fromMemory;
    MemorySource source(bytes.data(), bytes.size(), LittleEndian);
    readRecord(source, fromMemory);
    EXPECT_EQ(fromMemory.resolutionX, std::bit_cast<unsigned>(1.5F));
    EXPECT_EQ(fromMemory.resolutionY, 7u);
    VNDLPV4::HeaderSettings header;
    for (const unsigned length : {0xFFFFFFFFu, 5u}) {
        const Bytes cut = Bytes().u32(length).raw("abc");
        MemorySource text(cut.data(), cut.size(), LittleEndian);
        readRecord(text, header);
        EXPECT_EQ(header.headerText1, length == 5 ? std::string("abc\0", 4) : "") << "no text is that long";
    }
}

/// "name type unit" of the fields that say more than a plain number in the record's order.
template <class Record>
std::string oddities() {
    std::string text;
    describeFields(Record(), 0, [&text](const FieldPlace& place, const auto& field, const auto& record) {
        using Stored = typename std::decay_t<decltype(field)>::Stored;
        using Member = std::decay_t<decltype(record.*field.member)>;
        if (place.fixed) text += place.name + " fixed, ";
        if (!std::is_same_v<Stored, Member>) text += place.name + " converted, ";
        if (place.order == BigEndian) text += place.name + " big-endian, ";
    });
    return text;
}

TEST(RecordLayout, TheFormatsSayWhatTheyForceAndConvert) {
    EXPECT_EQ(oddities<CTB::HeaderSettings>(), "printTime fixed, bottomLightPwm fixed, ");
    EXPECT_EQ(oddities<CTB::PrintParameters>(), "volume fixed, price fixed, ");
    EXPECT_EQ(oddities<CTB::SlicerInfo>(), "settingsFlags fixed, word40 fixed, ");
    EXPECT_EQ(oddities<CTB::LayerDefEx>(), "");
    EXPECT_EQ(oddities<VNDLPV4::HeaderSettings>(), "version fixed, version big-endian, ");
    EXPECT_EQ(oddities<VNDLPV4::SlicerInfo>(), "word32 fixed, word44 converted, word60 converted, ");
}

}  // namespace
}  // namespace vndlp::test
