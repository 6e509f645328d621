/// What a command of the program is, and how it says which words and options it takes.

#pragma once

#include "tools/base/failure.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vndlp::tools {

/// Takes a command's words and options. Values are filled in while the command line is read; what does not fit is a
/// usage failure there. `names` are such as "-o,--output".
class Syntax {
public:
    Syntax() = default;
    Syntax(const Syntax&) = delete;
    Syntax& operator=(const Syntax&) = delete;
    virtual ~Syntax() = default;

    /// One word that has to be there.
    virtual void word(const std::string& name, std::string& value, const std::string& help) = 0;
    /// One word or more.
    virtual void words(const std::string& name, std::vector<std::string>& values, const std::string& help) = 0;

    virtual void flag(const std::string& names, bool& value, const std::string& help) = 0;
    virtual void text(const std::string& names, std::string& value, const std::string& help) = 0;
    /// An option that may stand several times, each with one value.
    virtual void texts(const std::string& names, std::vector<std::string>& values, const std::string& help) = 0;
    virtual void choice(const std::string& names, std::string& value, const std::vector<std::string>& choices,
                        const std::string& help) = 0;
    /// An option without a value, or with one behind `=`; without a value it is set to `plain`.
    virtual void choiceOrPlain(const std::string& names, std::string& value, const std::vector<std::string>& choices,
                               const std::string& plain, const std::string& help) = 0;
    virtual void number(const std::string& names, std::optional<double>& value, double low, double high,
                        const std::string& help) = 0;
    virtual void whole(const std::string& names, std::optional<long long>& value, long long low, long long high,
                       const std::string& help) = 0;
    /// The option has to be given.
    virtual void require(const std::string& name) = 0;
    /// What stands below the options in the help.
    virtual void footer(const std::string& text) = 0;

    /// -j: threads, 0 for one a core.
    void threads(std::optional<long long>& value) {
        constexpr long long kMostThreads = 256;
        whole("-j,--threads", value, 1, kMostThreads, "threads; one a core without it");
    }
};

/// A command: made when the command line begins to be read, run once.
class Command {
public:
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    virtual void describe(Syntax& syntax) = 0;
    /// Does the work. Throws Failure or UsageFailure, or returns an exit code of its own.
    virtual int run() = 0;
};

/// The words of a command that only one at a time may have: printed in the list of commands.
struct CommandEntry {
    const char* name;
    const char* summary;
    std::unique_ptr<Command> (*make)();
};

/// The program's commands in the order of its help.
const std::vector<CommandEntry>& commandTable();

// one a file, named after the command
std::unique_ptr<Command> makeBeads();
std::unique_ptr<Command> makeCheck();
std::unique_ptr<Command> makeConvert();
std::unique_ptr<Command> makeEstimate();
std::unique_ptr<Command> makeExtract();
std::unique_ptr<Command> makeFix();
std::unique_ptr<Command> makeInfo();
std::unique_ptr<Command> makeMachines();
std::unique_ptr<Command> makePrinters();
std::unique_ptr<Command> makeRepair();
std::unique_ptr<Command> makeSet();
std::unique_ptr<Command> makeVerify();

/// Threads for the value of `Syntax::threads`.
int threadsOf(const std::optional<long long>& value);

/// Does a command's work on one file after the other. A failure is printed, and the next file's turn comes; a usage
/// failure ends it. With two files or more a line on standard error counts them at the end.
/// \param work returns an exit code for its file.
/// \return 1 when any was bad, else the largest code.
int forEachFile(const std::vector<std::string>& files, const std::function<int(const std::string&)>& work);

}  // namespace vndlp::tools
