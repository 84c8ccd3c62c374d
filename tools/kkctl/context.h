#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include "kit.h"

namespace kkctl {

/// Exit codes, for scripts to rely on.
enum ExitCode : int { kExitSuccess = 0, kExitFailure = 1, kExitUsage = 2 };

/// What a run of the program stands on; tests bring their own.
struct Environment {
    std::function<std::unique_ptr<Kit>(const KitOptions&)> openKit;
    std::function<std::optional<std::string>()> readLine;  ///< from standard input; nothing at its end
    std::ostream& out;
    std::ostream& err;
    bool inputIsTerminal = false;
    bool errorIsTerminal = false;
};

/// The state that the global options fill and the commands use.
class Context {
public:
    explicit Context(const Environment& environment) : environment_(environment) {}

    /// The library, loaded at the first use so that help needs none. Throws KitError.
    Kit& OpenedKit();
    /// The same for a command that writes to disks.
    Kit& OpenedKitForWriting();

    /// For one line of the shell: the library that is loaded and the options of the command line, to be added to.
    Context ForShellLine() const;

    std::optional<std::string> ReadLine() const { return environment_.readLine(); }
    std::ostream& Out() const { return environment_.out; }
    std::ostream& Err() const { return environment_.err; }
    bool InputIsTerminal() const { return environment_.inputIsTerminal; }
    bool ErrorIsTerminal() const { return environment_.errorIsTerminal; }
    /// Whether a command that destroys data asks first: there is somebody to ask who has not said yes already.
    bool AsksFirst() const { return environment_.inputIsTerminal && !assumeYes; }

    /// Reports a failed call on the error stream; returns the exit code.
    int Fail(const std::string& what, Status status) const;

    KitOptions kitOptions;
    bool json = false;
    bool assumeYes = false;        ///< do not ask before a command that destroys data
    std::function<int()> command;  ///< the chosen command with its arguments, ready to run

private:
    Environment environment_;
    std::shared_ptr<Kit> kit_;
};

}  // namespace kkctl
