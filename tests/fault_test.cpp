// Disks that fail at any call: every writer of the library, and the program's conversion to every format.

#include "support/every_kind.h"
#include "support/faults.h"
#include "support/files.h"
#include "support/program.h"

#include <vndlp/v4.h>

#include <vndlp/slice_file.h>

#include <gtest/gtest.h>

#include <sys/wait.h>

namespace vndlp::test {

void PrintTo(const FileKind& kind, std::ostream* out) { *out << kind.name; }

namespace {

using faults::Kind;
using faults::Plan;

bool isSound(const std::string& path) {
    SliceFile file;
    std::uint64_t errors = 0;
    return file.open(path).isOk() && file.verify(nullptr, nullptr, errors).isOk() && errors == 0;
}

class Faults : public FileTest, public ::testing::WithParamInterface<FileKind> {};

TEST_P(Faults, OfAnyCallAreReturnedAndTold) {
    const std::string file = path("job" + GetParam().ending);
    for (const Kind kind : {Kind::diskFull, Kind::ioError, Kind::shortWrite}) {
        for (const bool forEver : {false, true}) {
            Plan plan{1, forEver, kind};
            for (;; ++plan.call) {
                SCOPED_TRACE("call " + plan.describe());
                Printed printed;
                faults::arm(plan);
                const int result = GetParam().write(file);
                const bool hasFailed = faults::disarm() >= plan.call;
                const std::string told = printed.take();
                ASSERT_EQ(result < 0, hasFailed) << told;
                if (!hasFailed) break;
                // the stream's own line once, and the documented one of the step it stopped
                const int lines = countOf("\n" + told, "\nerror") + countOf("\n" + told, "\nError");
                EXPECT_TRUE(lines >= 1 && lines <= 2) << told;
                EXPECT_LE(countOf(told, "could not be written completely"), 1) << told;
            }
            EXPECT_GT(plan.call, 4) << "calls were made";
            const Printed printed;
            EXPECT_TRUE(isSound(file));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryKind, Faults, ::testing::ValuesIn(everyKind()),
                         [](const auto& kind) { return kind.param.name; });

class ProgramFaults : public ::testing::TestWithParam<std::string> {
protected:
    ProgramFaults() {
        const Printed printed;
        EXPECT_EQ(writeKind(m_input), 0);
    }

    /// Converts over a file that is there, on a disk that fails.
    Outcome convert(const faults::Plan& plan) {
        writeFile(GetParam(), m_before);
        return runProgram("convert --force -j1 " + m_input + " " + GetParam(),
                          "ASAN_OPTIONS=verify_asan_link_order=0 VNDLP_FAULT_CALLS=calls VNDLP_FAULT='" +
                              plan.describe() + "' LD_PRELOAD=" VNDLP_FAULTS " ");
    }

    /// The calls that a conversion makes on a sound disk.
    int callsOfSoundDisk() {
        const Outcome outcome = convert({});
        EXPECT_EQ(outcome.status, 0) << outcome.error;
        const Printed printed;
        EXPECT_TRUE(isSound(GetParam()));
        return std::stoi(textOf("calls"));
    }

    int unfinishedFiles() const {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(".")) {
            if (entry.path().string().find(".part") != std::string::npos) ++count;
        }
        return count;
    }

    Workspace m_workspace;
    const std::string m_input = GetParam() == "new.vnline" ? "input.vnline" : "input.vndlp";
    const Bytes m_before = Bytes().raw("what was there before");
};

TEST_P(ProgramFaults, LeaveWhatWasThereAndSayWhyInOneLine) {
    const int calls = callsOfSoundDisk();
    ASSERT_GT(calls, 4);
    std::vector<Plan> plans = {{1, false, Kind::diskFull}, {1, true, Kind::ioError}};
    if (std::getenv("VNDLP_FULL_SWEEP") != nullptr) plans.push_back({1, false, Kind::shortWrite});
    for (Plan& plan : plans) {
        for (; plan.call <= calls; ++plan.call) {
            SCOPED_TRACE("call " + plan.describe());
            const Outcome outcome = convert(plan);
            EXPECT_EQ(outcome.status, 1);
            EXPECT_EQ(countOf("\n" + outcome.error, "\nvndlp: "), 1) << outcome.error;
            EXPECT_TRUE(contains(outcome.error, GetParam() + ": "));
            EXPECT_EQ(outcome.output, "");
            // the last call flushes the folder, when the file has its name already
            if (plan.call < calls) {
                EXPECT_TRUE(sameBytes(readFile(GetParam()), m_before));
            }
            ASSERT_EQ(unfinishedFiles(), 0);
        }
    }
}

TEST_P(ProgramFaults, KilledAnywhereLeavesWhatWasThere) {
    const int calls = callsOfSoundDisk();
    // the last call flushes the folder, when the file has its name already
    for (int call = 1; call < calls; ++call) {
        EXPECT_EQ(convert({call, false, Kind::killed}).status, 128 + SIGKILL) << "call " << call;
        ASSERT_TRUE(sameBytes(readFile(GetParam()), m_before)) << "call " << call;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, ProgramFaults,
                         ::testing::Values("new.vndlp", "new.ctb", "new.vndlpv4", "new.vnline"),
                         [](const auto& name) { return name.param.substr(4); });

}  // namespace
}  // namespace vndlp::test
