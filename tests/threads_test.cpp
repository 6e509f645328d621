// Files of different formats in several threads at once: what they hold does not depend on it.

#include "support/every_kind.h"
#include "support/files.h"

#include <vndlp/checksum.h>

#include <thread>

namespace vndlp::test {
namespace {

class Threads : public FileTest {};

TEST_F(Threads, WriteFilesOfDifferentFormatsAtOnce) {
    const Printed printed;
    constexpr int kRounds = 3;
    std::vector<std::thread> threads;
    for (const FileKind& kind : everyKind()) {
        threads.emplace_back([this, &kind] {
            for (int round = 0; round < kRounds; ++round) {
                const std::string file = path(kind.name + std::to_string(round) + kind.ending);
                EXPECT_EQ(kind.write(file), 0) << kind.name;
                const bool hasTrailer = kind.ending != ".ctb";
                EXPECT_EQ(CheckSum::instance().checkFileSum(file.c_str()), hasTrailer ? 0 : -1) << kind.name;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const FileKind& kind : everyKind()) {
        if (kind.ending == ".ctb") continue;  // its key is drawn anew
        const std::string alone = path("alone" + kind.ending);
        EXPECT_EQ(kind.write(alone), 0);
        EXPECT_TRUE(sameBytes(readFile(path(kind.name + "0" + kind.ending)), readFile(alone))) << kind.name;
    }
}

}  // namespace
}  // namespace vndlp::test
