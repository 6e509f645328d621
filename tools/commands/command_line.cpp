#include "tools/commands/command_line.h"

#include "tools/commands/command.h"

#include <vndlp/export.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <exception>
#include <new>

namespace vndlp::tools {

namespace {

constexpr const char* kVersionText = "vndlp " VNDLP_VERSION "\n";

/// The command's options as CLI11 takes them. Numbers are read here, so that messages and rules are the program's own.
class CliSyntax : public Syntax {
public:
    explicit CliSyntax(CLI::App& app) : m_app(app) {}

    void word(const std::string& name, std::string& value, const std::string& help) override {
        m_app.add_option(name, value, help)->required();
    }
    void words(const std::string& name, std::vector<std::string>& values, const std::string& help) override {
        m_app.add_option(name, values, help)->required();
    }
    void flag(const std::string& names, bool& value, const std::string& help) override {
        m_app.add_flag(names, value, help)->disable_flag_override();
    }
    void text(const std::string& names, std::string& value, const std::string& help) override {
        m_app.add_option(names, value, help);
    }
    void texts(const std::string& names, std::vector<std::string>& values, const std::string& help) override {
        m_app.add_option(names, values, help)->allow_extra_args(false);
    }
    void choice(const std::string& names, std::string& value, const std::vector<std::string>& choices,
                const std::string& help) override {
        m_app.add_option(names, value, help)->check(CLI::IsMember(choices));
    }
    void choiceOrPlain(const std::string& names, std::string& value, const std::vector<std::string>& choices,
                       const std::string& plain, const std::string& help) override {
        m_app.add_option(names, value, help)->check(CLI::IsMember(choices));
        m_plain.emplace_back(lastName(names), plain);
    }
    void number(const std::string& names, std::optional<double>& value, double low, double high,
                const std::string& help) override {
        readAs(names, help, [&value, low, high, names](const std::string& text) {
            double number = 0;
            if (!parseNumber(text, number)) throw UsageFailure(lastName(names) + ": " + text + " is not a number");
            if (number < low || number > high) {
                throw UsageFailure(lastName(names) + ": " + text + " is outside " + shortNumber(low) + " to " +
                                   shortNumber(high));
            }
            value = number;
        });
    }
    void whole(const std::string& names, std::optional<long long>& value, long long low, long long high,
               const std::string& help) override {
        readAs(names, help, [&value, low, high, names](const std::string& text) {
            long long number = 0;
            const char* const end = text.data() + text.size();
            const auto [stopped, error] = std::from_chars(text.data(), end, number);
            const bool isWhole = error == std::errc() && stopped == end;
            if (!isWhole && error != std::errc::result_out_of_range) {
                throw UsageFailure(lastName(names) + ": " + text + " is not a whole number");
            }
            if (!isWhole || number < low || number > high) {
                throw UsageFailure(lastName(names) + ": " + text + " is outside " + std::to_string(low) + " to " +
                                   std::to_string(high));
            }
            value = number;
        });
    }
    void require(const std::string& name) override { m_app.get_option(name)->required(); }
    void footer(const std::string& text) override { m_app.footer(text); }

    /// An option without a value gets its plain one, so that it takes no word behind it.
    void completePlain(std::vector<std::string>& words) const {
        for (std::string& word : words) {
            for (const auto& [option, plain] : m_plain) {
                if (word == option) word += "=" + plain;
            }
        }
    }

    /// Reads what could not be read before all options were known. Throws UsageFailure.
    void finish() const {
        for (const auto& check : m_checks) check();
    }

private:
    static std::string lastName(const std::string& names) { return names.substr(names.rfind(',') + 1); }

    void readAs(const std::string& names, const std::string& help, std::function<void(const std::string&)> read) {
        CLI::Option* const option = m_app.add_option(names, help);
        option->expected(1)->type_name("NUMBER");
        m_checks.push_back([option, read = std::move(read)] {
            if (option->count() > 0) read(option->results().back());
        });
    }

    CLI::App& m_app;
    std::vector<std::function<void()>> m_checks;
    std::vector<std::pair<std::string, std::string>> m_plain;
};

std::vector<std::string> commandNames() {
    std::vector<std::string> names = {"help"};
    for (const CommandEntry& entry : commandTable()) names.emplace_back(entry.name);
    return names;
}

[[noreturn]] void failUnknown(const std::string& word) {
    const std::string nearest = nearestWord(word, commandNames());
    throw UsageFailure(word + ": no such command" + (nearest.empty() ? "" : "; did you mean " + nearest + "?"));
}

class CommandLine {
public:
    explicit CommandLine(OutputStreams& streams)
        : m_streams(streams), m_app("Reads, writes and checks the slice files of resin printers.", "vndlp") {
        m_app.set_version_flag("-V,--version", "vndlp " VNDLP_VERSION);
        m_app.add_flag("-v,--verbose", m_verbose, "list what was assumed; twice: show what the library prints");
        m_app.add_flag("-q,--quiet", m_quiet, "errors and what was asked for, nothing else")->disable_flag_override();
        m_app.require_subcommand(0, 1);
        m_app.fallthrough();
        m_app.footer(
            "Example:\n  vndlp convert job.sl1 job.vndlp && vndlp verify job.vndlp\n"
            "`vndlp COMMAND --help` tells more. Exit codes: 0 success, 1 bad or unwritable file, 2 wrong usage, "
            "3 findings of `check`.");
        for (const CommandEntry& entry : commandTable()) {
            CLI::App* const app = m_app.add_subcommand(entry.name, entry.summary);
            m_commands.push_back(entry.make());
            m_syntaxes.push_back(std::make_unique<CliSyntax>(*app));
            m_commands.back()->describe(*m_syntaxes.back());
        }
        CLI::App* const help = m_app.add_subcommand("help", "Show the help of a command");
        help->add_option("COMMAND", m_helpOn, "command; all of them without it");
    }

    int run(int argc, char** argv) {
        findCommand(argc, argv);
        std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
        for (const auto& syntax : m_syntaxes) syntax->completePlain(words);
        std::reverse(words.begin(), words.end());  // as the parser wants them
        try {
            m_app.parse(std::move(words));
        } catch (const CLI::CallForHelp&) {
            printResult(m_app.help());
            return kSuccess;
        } catch (const CLI::CallForVersion&) {
            printResult(kVersionText);
            return kSuccess;
        } catch (const CLI::ParseError& error) {
            throw UsageFailure(problemOf(error));
        }
        setVerbosity(m_quiet          ? Verbosity::quiet
                     : m_verbose > 1  ? Verbosity::debug
                     : m_verbose == 1 ? Verbosity::detailed
                                      : Verbosity::normal);
        if (m_verbose > 1) m_streams.showLibraryMessages();
        if (m_command == "help") return help();
        if (m_command.empty()) throw UsageFailure("a command is needed");
        const auto& table = commandTable();
        const auto found = std::find_if(table.begin(), table.end(), [&](const auto& e) { return m_command == e.name; });
        const auto index = static_cast<std::size_t>(found - table.begin());
        m_syntaxes[index]->finish();
        return m_commands[index]->run();
    }

    /// Where a usage failure's hint leads.
    std::string hint() const { return "for help: vndlp " + (m_command.empty() ? "" : m_command + " ") + "--help"; }

private:
    /// The first word is the command. Throws UsageFailure when it is none.
    void findCommand(int argc, char** argv) {
        for (int i = 1; i < argc && m_command.empty(); ++i) {
            const std::string word = argv[i];
            if (word.starts_with('-') && word != "-") continue;
            const std::vector<std::string> names = commandNames();
            if (std::find(names.begin(), names.end(), word) == names.end()) failUnknown(word);
            m_command = word;
        }
    }

    int help() {
        if (m_helpOn.empty()) {
            printResult(m_app.help());
            return kSuccess;
        }
        const auto& table = commandTable();
        const bool isKnown =
            std::any_of(table.begin(), table.end(), [this](const auto& entry) { return m_helpOn == entry.name; });
        if (!isKnown) failUnknown(m_helpOn);
        printResult(m_app.get_subcommand(m_helpOn)->help());
        return kSuccess;
    }

    /// What CLI11 found wrong in one line, unknown options first: they are often what made another word missing.
    std::string problemOf(const CLI::ParseError& error) const {
        for (const std::string& word : m_app.remaining(true)) {
            if (!word.starts_with('-')) continue;
            return std::string(word)
                .append(": no such option; a file's name that begins with - is written ./")
                .append(word);
        }
        std::string text = error.what();
        std::replace(text.begin(), text.end(), '\n', ' ');
        return m_command.empty() ? text : std::string(m_command).append(": ").append(text);
    }

    OutputStreams& m_streams;
    CLI::App m_app;
    int m_verbose = 0;
    bool m_quiet = false;
    std::string m_command;
    std::string m_helpOn;
    std::vector<std::unique_ptr<Command>> m_commands;
    std::vector<std::unique_ptr<CliSyntax>> m_syntaxes;
};

}  // namespace

int runCommandLine(int argc, char** argv, OutputStreams& streams) {
    CommandLine commandLine(streams);
    try {
        return commandLine.run(argc, argv);
    } catch (const UsageFailure& failure) {
        printError(failure.what());
        printError(commandLine.hint());
        return kWrongUsage;
    } catch (const Failure& failure) {
        if (*failure.what() != '\0') printError(failure.what());
    } catch (const std::bad_alloc&) {
        printError("out of memory");
    } catch (const std::exception& unexpected) {
        printError(std::string("unexpected: ") + unexpected.what());
    }
    return kBadFile;
}

}  // namespace vndlp::tools
