// Host — everything a sagely command takes from the process that runs it: its streams, whether
// they are terminals, its environment, where settings and keys live, and whether Ctrl-C was
// pressed. The executable fills it from the real process; tests fill it with string streams, a
// temporary storage folder and an in-memory secret store, and run commands in-process.
//
// Thread rules: a Host is used by the thread that runs the command.
#pragma once

#include <sagely/SecretStore.h>

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

namespace sagely::cli {

class LineReader;

/// The exit codes of the sagely command.
enum ExitCode : int {
    exitOk = 0,             // answered, or the command did what it was asked
    exitUsage = 2,          // unknown command or option, refused value
    exitNeedsSetup = 3,     // missing key or endpoint, or a local-only question without answer
    exitFailure = 4,        // the provider or the network failed
    exitNotSaved = 5,       // a change did not reach the disk or the secret store
    exitInterrupted = 130,  // Ctrl-C
};

struct Host {
    Host(std::istream& in, std::ostream& out, std::ostream& err) : in(in), out(out), err(err) {}

    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool inIsTerminal = false;
    bool outIsTerminal = false;
    bool errIsTerminal = false;

    /// The process environment; none means "not set".
    std::function<std::optional<std::string>(const std::string& name)> environment;
    /// Replaces the user's data folder (settings and conversations); none: the system's.
    std::optional<std::filesystem::path> storageRoot;
    /// Where keys live; null: the system's secret store.
    std::shared_ptr<SecretStore> secretStore;
    /// Whether Ctrl-C was pressed since the command started.
    std::function<bool()> interrupted;
    /// Makes the line reader of `chat`; null: plain lines from `in`.
    std::function<std::unique_ptr<LineReader>(Host&)> makeLineReader;

    std::optional<std::string> env(const std::string& name) const {
        return environment ? environment(name) : std::nullopt;
    }
    bool wasInterrupted() const { return interrupted && interrupted(); }
    /// Styled output: standard output is a terminal and NO_COLOR is unset or empty.
    bool usesColor() const {
        auto noColor = env("NO_COLOR");
        return outIsTerminal && (!noColor || noColor->empty());
    }
};

}  // namespace sagely::cli
