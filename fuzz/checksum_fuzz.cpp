// Sniffing a file's format, and its trailer: what is appended is found right, and a byte changed in front of it is not.

#include "fuzz/harness.h"
#include "tests/support/memory_file.h"

#include <vndlp/checksum.h>

namespace vndlp::fuzz {

void run(const Bytes& input) {
    const test::MemoryFile file(input);
    const std::string path = file.path();
    CheckSum& sum = CheckSum::instance();
    std::string name;
    int version = 0;
    EnumCheckSumType type = CHECKSUM_NONE;
    const int known = sum.getFileVersionInfo(path.c_str(), name, version, type);
    require(name.size() <= 11);
    sum.checkFileSum(path.c_str());
    sum.getFileSum(path.c_str());
    require((sum.appendFileSum(path.c_str()) == 0) == (known == 0));
    if (known != 0 || type == CHECKSUM_NONE) return;

    Bytes sealed = file.bytes();
    require(sealed.size() == input.size() + 4 && sum.checkFileSum(path.c_str()) == 0);
    // not in the magic, which chooses the sum; and a sum of XOR passes some changes on purpose
    const std::size_t at = input.size() - 1;
    if (at < 32 || type != CHECKSUM_CRC32) return;
    sealed[at] ^= 1;
    const test::MemoryFile damaged(sealed);
    require(sum.checkFileSum(damaged.path().c_str()) == -5);
}

}  // namespace vndlp::fuzz
