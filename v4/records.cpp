#include <vndlp/ctb.h>
#include "ctb/image_limits.h"
#include "ctb/preview_codec.h"
#include "ctb/record_io.h"
#include "v4/record_fields.h"

#include <bit>
#include <cstdint>

namespace VNDLPV4 {

namespace {

/// Writes the listed fields of a record.
template <class Record>
class FieldWriter {
public:
    FieldWriter(Record& record, FileWrite& file) : m_record(record), m_file(file) {}

    template <class Value>
    void operator()(Value Record::*member) {
        put(m_record.*member);
    }
    void operator()(unsigned short Record::*member, ForcedBigEndian forced) {
        m_record.*member = forced.value;
        m_file.writeBigEndianUint16(forced.value);
    }
    void operator()(unsigned int Record::*member, Forced forced) {
        m_record.*member = forced.value;
        put(forced.value);
    }
    void operator()(unsigned int Record::*member, WrittenAsFloat /*quirk*/) {
        put(static_cast<float>(m_record.*member));
    }

private:
    void put(unsigned int value) { m_file.writeLittleEndianUint32(value); }
    void put(unsigned short value) { m_file.writeLittleEndianUint16(value); }
    void put(short value) { m_file.writeLittleEndianInt16(value); }
    void put(long long value) { m_file.writeLittleEndianInt64(value); }
    void put(float value) { put(std::bit_cast<std::uint32_t>(value)); }
    void put(std::string& value) { m_file.writeStdString(value); }

    Record& m_record;
    FileWrite& m_file;
};

/// Reads the listed fields of a record.
template <class Record>
class FieldReader {
public:
    FieldReader(Record& record, FileRead& file) : m_record(record), m_file(file) {}

    template <class Value, class... Quirk>
    void operator()(Value Record::*member, Quirk... /*for writing only*/) {
        get(m_record.*member);
    }
    void operator()(unsigned short Record::*member, ForcedBigEndian /*forced*/) {
        m_record.*member = m_file.readBigEndianUint16();
    }

private:
    void get(unsigned int& value) { value = m_file.readLittleEndianUint32(); }
    void get(unsigned short& value) { value = m_file.readLittleEndianUint16(); }
    void get(short& value) { value = m_file.readLittleEndianInt16(); }
    void get(long long& value) { value = m_file.readLittleEndianInt64(); }
    void get(float& value) { value = std::bit_cast<float>(m_file.readLittleEndianUint32()); }
    void get(std::string& value) { value = m_file.readStdString(); }

    Record& m_record;
    FileRead& m_file;
};

template <class Record>
void writeFields(Record& record, FileWrite& file) {
    Layout<Record>::list(FieldWriter<Record>(record, file));
}

/// The low 32 bits of the position, which is all that a record keeps of it.
unsigned int positionIn(FileRead& file) { return static_cast<unsigned int>(file.currentPosition()); }

template <class Record>
void readFields(Record& record, FileRead& file) {
    record.beginPosition = positionIn(file);
    Layout<Record>::list(FieldReader<Record>(record, file));
    record.endPosition = positionIn(file);
}

unsigned int sizeWithEnd(const std::string& text) { return static_cast<unsigned int>(text.size()) + 1; }

void noteTextSizes(HeaderSettings& header) {
    header.headerText1Size = sizeWithEnd(header.headerText1);
    header.headerText2Size = sizeWithEnd(header.headerText2);
}

/// Visits the bytes of an extension in file order.
template <class Visit>
class ByteVisitor {
public:
    explicit ByteVisitor(Visit visit) : m_visit(visit) {}

    template <class Record>
    void operator()(long long Record::*member) {
        for (unsigned int shift = 0; shift < 64; shift += 8) m_visit(member, shift);
    }

private:
    Visit m_visit;
};

}  // namespace

unsigned int HeaderSettings::size() const { return kHeaderBytes + sizeWithEnd(headerText1) + sizeWithEnd(headerText2); }

void HeaderSettings::Serialization(FileWrite& file) {
    noteTextSizes(*this);
    writeFields(*this, file);
}

void HeaderSettings::DeSerialization(FileRead& file) {
    readFields(*this, file);
    noteTextSizes(*this);
}

unsigned int PreView::size() { return kPreViewBytes; }

void PreView::Serialization(FileWrite& file) {
    writeFields(*this, file);
    if (!CTB::writeDeclared(file, imageData.data(), imageData.size(), imageSize)) {
        CTB::reportShort(file.fileName(), "the image of a preview", imageSize, imageData.size());
    }
}

void PreView::DeSerialization(FileRead& file) {
    readFields(*this, file);
    imageData = CTB::readDeclared(file, imageSize);
    endPosition = positionIn(file);
}

std::vector<unsigned char> PreView::Encode(const unsigned char* pixels, std::size_t size) {
    return CTB::encodePreview(pixels, size);
}

std::vector<unsigned char> PreView::decodeImage() const {
    std::size_t count = 0;
    if (!CTB::countPixels("a preview", resolutionX, resolutionY, CTB::kMostPreviewPixels, count)) return {};
    std::vector<unsigned char> pixels(count * CTB::kPreviewPixelBytes);
    CTB::decodePreview(imageData.data(), imageData.size(), pixels.data(), count);
    return pixels;
}

unsigned int PrintParameters::size() { return kPrintParametersBytes; }

void PrintParameters::Serialization(FileWrite& file) { writeFields(*this, file); }

void PrintParameters::DeSerialization(FileRead& file) { readFields(*this, file); }

unsigned int SlicerInfo::size() { return kSlicerInfoBytes; }

void SlicerInfo::Serialization(FileWrite& file) { writeFields(*this, file); }

void SlicerInfo::DeSerialization(FileRead& file) { readFields(*this, file); }

unsigned int LayerDef::size() const { return kLayerDefBytes + (extensionFlag != 0 ? extensionBytes() : 0); }

void LayerDef::Serialization(FileWrite& file) {
    writeFields(*this, file);
    if (extensionFlag != 0) Layout<LayerDef>::listExtension(FieldWriter<LayerDef>(*this, file));
}

void LayerDef::DeSerialization(FileRead& file) {
    readFields(*this, file);
    if (extensionFlag == 0) return;
    Layout<LayerDef>::listExtension(FieldReader<LayerDef>(*this, file));
    endPosition = positionIn(file);
}

std::vector<unsigned char> LayerDef::beadMask(std::size_t bytes) const {
    if (extensionFlag == 0) return {};
    std::vector<unsigned char> mask;
    Layout<LayerDef>::listExtension(ByteVisitor([&](long long LayerDef::*member, unsigned int shift) {
        const auto bits = static_cast<unsigned long long>(this->*member);
        if (mask.size() < bytes) mask.push_back(static_cast<unsigned char>(bits >> shift));
    }));
    return mask;
}

bool LayerDef::setBeadMask(const std::vector<unsigned char>& mask) {
    if (mask.size() > kLayerExtensionBytes) return false;
    extensionFlag = 1;
    std::size_t next = 0;
    Layout<LayerDef>::listExtension(ByteVisitor([&](long long LayerDef::*member, unsigned int shift) {
        auto bits = shift == 0 ? 0 : static_cast<unsigned long long>(this->*member);
        if (next < mask.size()) bits |= static_cast<unsigned long long>(mask[next++]) << shift;
        this->*member = static_cast<long long>(bits);
    }));
    return true;
}

unsigned int LayerDefEx::size() { return kLayerDefExBytes; }

void LayerDefEx::Serialization(FileWrite& file) { writeFields(*this, file); }

void LayerDefEx::DeSerialization(FileRead& file) { readFields(*this, file); }

}  // namespace VNDLPV4
