/// Sealing a file whose bytes are known.

#pragma once

#include <vndlp/streams.h>

namespace vndlp {

/// Keeps the checksums of what is written to a file from now on, until it is opened again; call it behind `open`.
void keepSum(FileWrite& file);

/// `CheckSum::appendFileSum` on a file of which everything is written, with the sum kept. Where that is not known, or
/// the file on the disk is of another length, the file is read. Same messages, same results.
int appendKeptSum(const FileWrite& file);

}  // namespace vndlp
