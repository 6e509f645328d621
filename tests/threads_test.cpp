// Files of different formats in several threads at once: what they hold does not depend on it.

#include "support/every_kind.h"
#include "support/files.h"

#include <vndlp/checksum.h>
#include <vndlp/container.h>
#include <vndlp/messages.h>
#include <vndlp/print_time.h>

#include <map>
#include <mutex>
#include <string>
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

/// The lines of several threads reach the handler one by one, and none reaches standard output.
TEST(Messages, GoWholeToTheHandlerOrToStandardOutput) {
    struct Received {
        std::mutex mutex;
        std::map<std::string, int> lines;
    };
    Received received;
    const std::string longName = "/missing/" + std::string(2000, 'n');
    const auto makeMessages = [&] {
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(CheckSum::instance().checkFileSum("/missing"), -1);
            EXPECT_EQ(VndlpRead().openDlpFile(longName, false), -3);
            CPrinterTime().callPrinterTime();
        }
    };
    Printed printed;
    setMessageHandler(
        [](void* context, const char* text) {
            Received& to = *static_cast<Received*>(context);
            const std::lock_guard lock(to.mutex);
            ++to.lines[text];
        },
        &received);
    std::thread other(makeMessages);
    makeMessages();
    other.join();
    setMessageHandler(nullptr);
    EXPECT_EQ(printed.take(), "");
    const std::map<std::string, int> expected = {
        {"getFileVersionInfo failed, ret:-2\n", 200},
        {"error: " + longName + " can't open\n", 200},
        {"GetImageArea: The picture total area is 0", 200},
        {"level_time = 52444.4\nprint_time = 38605.6\nshow_image_time = 0\ntotal_time = 91.05\n", 200}};
    EXPECT_EQ(received.lines, expected);
    EXPECT_EQ(VndlpRead().openDlpFile(longName, false), -3);
    EXPECT_EQ(printed.take(), "error: " + longName + " can't open\n");
}

}  // namespace
}  // namespace vndlp::test
