#include "ctb/record_fields.h"
#include "ctb/record_io.h"

namespace CTB {

namespace {

/// Writes the listed fields of a record.
template <class Record>
class FieldWriter {
public:
    FieldWriter(Record& record, FileWrite& file) : m_record(record), m_file(file) {}

    template <class Value, class... Quirk>
    void operator()(Value Record::*member, Quirk... /*for reading only*/) {
        put(m_record.*member);
    }
    template <class Value>
    void operator()(Value Record::*member, Forced<Value> forced) {
        m_record.*member = forced.value;
        put(forced.value);
    }

private:
    void put(unsigned int value) { m_file.writeLittleEndianInt32(static_cast<int>(value)); }
    void put(unsigned short value) { m_file.writeLittleEndianInt16(static_cast<short>(value)); }
    void put(float value) { m_file.writeFloat(value); }

    Record& m_record;
    FileWrite& m_file;
};

/// A float without its fraction; 0 for what no count can hold.
unsigned int wholeCount(float value) { return value >= 0 && value < 4294967296.0F ? static_cast<unsigned>(value) : 0; }

/// Reads the listed fields of a record.
template <class Record>
class FieldReader {
public:
    FieldReader(Record& record, FileRead& file) : m_record(record), m_file(file) {}

    template <class Value, class... Quirk>
    void operator()(Value Record::*member, Quirk... /*for writing only*/) {
        get(m_record.*member);
    }
    void operator()(unsigned int Record::*member, ReadAsFloat /*quirk*/) {
        m_record.*member = wholeCount(m_file.readFloat());
    }
    void operator()(float Record::*member, ReadAsInteger /*quirk*/) {
        m_record.*member = static_cast<float>(m_file.readLittleEndianUint32());
    }

private:
    void get(unsigned int& value) { value = m_file.readLittleEndianUint32(); }
    void get(unsigned short& value) { value = static_cast<unsigned short>(m_file.readLittleEndianInt16()); }
    void get(float& value) { value = m_file.readFloat(); }

    Record& m_record;
    FileRead& m_file;
};

template <class Record>
void writeFields(Record& record, FileWrite& file) {
    Layout<Record>::list(FieldWriter<Record>(record, file));
}

template <class Record>
void readFields(Record& record, FileRead& file) {
    Layout<Record>::list(FieldReader<Record>(record, file));
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
    if (!writeDeclared(*file, imageData.data(), imageData.size(), imageSize)) {
        reportShort(file->fileName(), "the image of a preview", imageSize, imageData.size());
    }
}

void PreView::DeSerialization() {
    FileRead* file = openFileRead();
    if (file == nullptr) return;
    readFields(*this, *file);
    imageData = readDeclared(*file, imageSize);
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
    if (!writeDeclared(*file, name, machineName.size(), machineNameSize)) {
        reportShort(file->fileName(), "the machine name", machineNameSize, machineName.size());
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
    if (file->seek(dataOffset, 0) >= 0) data = readDeclared(*file, dataSize);
}

unsigned int LayerDefEx::size() { return kLayerDefExBytes; }

void LayerDefEx::Serialization() {
    FileWrite* file = openFileWrite();
    if (file == nullptr) return;
    layerDef.setFileWrite(*file);
    layerDef.Serialization();
    writeFields(*this, *file);
}

void LayerDefEx::DeSerialization() {
    FileRead* file = openFileRead();
    if (file == nullptr) return;
    layerDef.setFileRead(*file);
    layerDef.DeSerialization(false);
    readFields(*this, *file);
}

}  // namespace CTB
