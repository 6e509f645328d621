/// What ".vndlp" and ".vnline" files have in common for the commands: head, previews, parameters, trailer.

#pragma once

#include "tools/formats/slice_file.h"

#include <vndlp/container.h>

#include <string>
#include <vector>

namespace vndlp::tools {

/// Header kinds, as `DlpFileStructure::headerType` has them.
constexpr int kV1 = 1;
constexpr int kV2 = 2;
constexpr int kV3 = 3;
constexpr int kLine = 12;
/// V2 files from this version on have slicing settings.
constexpr int kSettingsVersion = 3;
constexpr long long kTrailerBytes = 4;

/// Whether files of a kind have an area table, and an area in front of every layer.
bool hasAreas(int headerType);

/// A part of the head that cannot be read.
struct HeadFailure {
    long long offset;
    std::string text;
};

/// Where the parts of a head begin, found by reading them one after the other.
struct HeadMap {
    std::vector<Section> sections;  ///< in the order of reading
    long long firstLayer = 0;       ///< end of the head; in line files the image parameters stand there
};

/// Reads the head's parts one by one to learn where they are. Throws HeadFailure.
/// \param reader at the start of the file.
/// \param s      its `headerType` tells what to read; receives the records, previews among them.
/// \param areas  receives the area table.
HeadMap mapHead(VndlpRead& reader, DlpFileStructure& s, std::vector<unsigned int>& areas);

/// The records as fields, settings and pictures.
std::vector<Field> headerFields(const DlpFileStructure& s);
std::vector<Field> parameterFields(const DlpFileStructure& s);
std::vector<Preview> previewsOf(const DlpFileStructure& s);
/// \param where the file's name, for messages.
PrintSettings settingsOf(const DlpFileStructure& s, const std::string& where);

/// Adds the sections behind the layers: tail magic, trailer, and what is left over.
/// \param layersEnd where the layers end.
void addEndSections(const std::string& path, long long fileSize, long long layersEnd, const std::string& tailMagic,
                    std::vector<Section>& sections);

/// Looks for the tail magic at the reader's position and for bytes left over behind it.
void findTailProblems(VndlpRead& reader, const std::string& path, std::vector<Finding>& findings);
/// Checks the trailer.
void findTrailerProblems(const std::string& path, long long fileSize, std::vector<Finding>& findings);

/// Makes the previews of a V2 or line header from 1 to 3 pictures, the smallest first.
void fillPreviews(const std::vector<ColourImage>& pictures, DlpImage& small, DlpImage& middle, DlpImage& large);

/// What went wrong when a writer tells of a failure: throws Failure.
[[noreturn]] void failToWrite(const std::string& path);

}  // namespace vndlp::tools
