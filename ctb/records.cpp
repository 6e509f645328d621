#include "ctb/record_fields.h"
#include "io/record_io.h"

namespace CTB {

namespace {

// integers are little-endian in any stream, floats follow its order

template <class Record>
void writeFields(Record& record, FileWrite& file) {
    vndlp::FileSink sink(file, vndlp::LittleEndian, file.fileByteOrder());
    vndlp::writeRecord(sink, record);
}

template <class Record>
void readFields(Record& record, FileRead& file) {
    vndlp::FileSource source(file, vndlp::LittleEndian, file.fileByteOrder());
    vndlp::readRecord(source, record);
}

}  // namespace

// the records' interface takes the owner's stream as const, though using it moves its position
void RecordStreams::setFileRead(const FileRead& file) { m_fileRead = const_cast<FileRead*>(&file); }

void RecordStreams::setFileWrite(const FileWrite& file) { m_fileWrite = const_cast<FileWrite*>(&file); }

FileRead* RecordStreams::openFileRead() const {
    return m_fileRead != nullptr && m_fileRead->isOpenFile() ? m_fileRead : nullptr;
}

FileWrite* RecordStreams::openFileWrite() const {
    return m_fileWrite != nullptr && m_fileWrite->isOpenFile() ? m_fileWrite : nullptr;
}

unsigned int HeaderSettings::size() { return kHeaderBytes; }

void HeaderSettings::Serialization() {
    if (FileWrite* file = openFileWrite()) writeFields(*this, *file);
}

void HeaderSettings::DeSerialization() {
    if (FileRead* file = openFileRead()) readFields(*this, *file);
}

void HeaderSettings::seekBegin() {
    if (FileWrite* file = openFileWrite()) file->seek(0, 0, false);
}

unsigned int PreView::size() { return kPreViewBytes; }

void PreView::Serialization() {
    FileWrite* file = openFileWrite();
    if (file == nullptr) return;
    writeFields(*this, *file);
    if (!vndlp::writeDeclared(*file, imageData.data(), imageData.size(), imageSize)) {
        vndlp::reportShort(file->fileName(), "the image of a preview", imageSize, imageData.size());
    }
}

void PreView::DeSerialization() {
    FileRead* file = openFileRead();
    if (file == nullptr) return;
    readFields(*this, *file);
    imageData = vndlp::readDeclared(*file, imageSize);
}

unsigned int PrintParameters::size() { return kPrintParametersBytes; }

void PrintParameters::Serialization() {
    if (FileWrite* file = openFileWrite()) writeFields(*this, *file);
}

void PrintParameters::DeSerialization() {
    if (FileRead* file = openFileRead()) readFields(*this, *file);
}

unsigned int SlicerInfo::size() { return kSlicerInfoBytes; }

void SlicerInfo::Serialization() {
    FileWrite* file = openFileWrite();
    if (file == nullptr) return;
    writeFields(*this, *file);
    const auto* name = reinterpret_cast<const unsigned char*>(machineName.data());
    if (!vndlp::writeDeclared(*file, name, machineName.size(), machineNameSize)) {
        vndlp::reportShort(file->fileName(), "the machine name", machineNameSize, machineName.size());
    }
}

void SlicerInfo::DeSerialization() {
    FileRead* file = openFileRead();
    if (file == nullptr) return;
    readFields(*this, *file);
    // writing stores no length in front of the name: the difference is kept on purpose
    machineName = file->readStdStringLittleEndian();
}

unsigned int LayerDef::size() { return kLayerDefBytes; }

void LayerDef::Serialization() {
    if (FileWrite* file = openFileWrite()) writeFields(*this, *file);
}

void LayerDef::DeSerialization(bool readData) {
    FileRead* file = openFileRead();
    if (file == nullptr) return;
    readFields(*this, *file);
    if (!readData) return;
    data.clear();
    if (file->seek(dataOffset, 0) >= 0) data = vndlp::readDeclared(*file, dataSize);
}

unsigned int LayerDefEx::size() { return kLayerDefExBytes; }

void LayerDefEx::Serialization() {
    FileWrite* file = openFileWrite();
    if (file == nullptr) return;
    layerDef.setFileWrite(*file);
    writeFields(*this, *file);
}

void LayerDefEx::DeSerialization() {
    FileRead* file = openFileRead();
    if (file == nullptr) return;
    layerDef.setFileRead(*file);
    readFields(*this, *file);
}

}  // namespace CTB
