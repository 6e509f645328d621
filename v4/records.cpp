#include <vndlp/ctb.h>
#include "ctb/image_limits.h"
#include "ctb/preview_codec.h"
#include "io/record_io.h"
#include "v4/record_fields.h"

#include <type_traits>

namespace VNDLPV4 {

namespace {

template <class Record>
void writeFields(Record& record, FileWrite& file) {
    vndlp::FileSink sink(file, vndlp::LittleEndian, vndlp::LittleEndian);
    vndlp::writeRecord(sink, record);
}

/// The low 32 bits of the position, which is all that a record keeps of it.
unsigned int positionIn(FileRead& file) { return static_cast<unsigned int>(file.currentPosition()); }

template <class Record>
void readFields(Record& record, FileRead& file) {
    record.beginPosition = positionIn(file);
    vndlp::FileSource source(file, vndlp::LittleEndian, vndlp::LittleEndian);
    vndlp::readRecord(source, record);
    record.endPosition = positionIn(file);
}

unsigned int sizeWithEnd(const std::string& text) { return static_cast<unsigned int>(text.size()) + 1; }

void noteTextSizes(HeaderSettings& header) {
    header.headerText1Size = sizeWithEnd(header.headerText1);
    header.headerText2Size = sizeWithEnd(header.headerText2);
}

/// Visits the bytes of an extension in file order.
template <class Visit>
void forEachExtensionByte(Visit&& visit) {
    vndlp::forEachItem<LayerDef>([&visit](const auto& field) {
        if constexpr (std::is_same_v<decltype(field.quirk), Extension>) {
            for (unsigned int shift = 0; shift < 64; shift += 8) visit(field.member, shift);
        }
    });
}

}  // namespace

unsigned int HeaderSettings::size() const { return static_cast<unsigned int>(vndlp::storedBytes(*this)); }

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
    if (!vndlp::writeDeclared(file, imageData.data(), imageData.size(), imageSize)) {
        vndlp::reportShort(file.fileName(), "the image of a preview", imageSize, imageData.size());
    }
}

void PreView::DeSerialization(FileRead& file) {
    readFields(*this, file);
    imageData = vndlp::readDeclared(file, imageSize);
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

unsigned int LayerDef::size() const { return static_cast<unsigned int>(vndlp::storedBytes(*this)); }

void LayerDef::Serialization(FileWrite& file) { writeFields(*this, file); }

void LayerDef::DeSerialization(FileRead& file) { readFields(*this, file); }

std::vector<unsigned char> LayerDef::beadMask(std::size_t bytes) const {
    if (extensionFlag == 0) return {};
    std::vector<unsigned char> mask;
    forEachExtensionByte([&](long long LayerDef::*member, unsigned int shift) {
        const auto bits = static_cast<unsigned long long>(this->*member);
        if (mask.size() < bytes) mask.push_back(static_cast<unsigned char>(bits >> shift));
    });
    return mask;
}

bool LayerDef::setBeadMask(const std::vector<unsigned char>& mask) {
    if (mask.size() > kLayerExtensionBytes) return false;
    extensionFlag = 1;
    std::size_t next = 0;
    forEachExtensionByte([&](long long LayerDef::*member, unsigned int shift) {
        auto bits = shift == 0 ? 0 : static_cast<unsigned long long>(this->*member);
        if (next < mask.size()) bits |= static_cast<unsigned long long>(mask[next++]) << shift;
        this->*member = static_cast<long long>(bits);
    });
    return true;
}

unsigned int LayerDefEx::size() { return kLayerDefExBytes; }

void LayerDefEx::Serialization(FileWrite& file) { writeFields(*this, file); }

void LayerDefEx::DeSerialization(FileRead& file) { readFields(*this, file); }

}  // namespace VNDLPV4
