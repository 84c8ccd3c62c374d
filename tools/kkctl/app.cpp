#include "app.h"

#include <CLI/CLI.hpp>

#include "commands/backup.h"
#include "commands/clone.h"
#include "commands/create.h"
#include "commands/delete.h"
#include "commands/discard.h"
#include "commands/disks.h"
#include "commands/extend.h"
#include "commands/format.h"
#include "commands/inspect.h"
#include "commands/letter.h"
#include "commands/mount.h"
#include "commands/mountpoint.h"
#include "commands/overlay.h"
#include "commands/partitions.h"
#include "commands/query.h"
#include "commands/reboot.h"
#include "commands/recover.h"
#include "commands/restore.h"
#include "commands/restore_free.h"
#include "commands/restore_volume.h"
#include "commands/shell.h"
#include "commands/shrink.h"
#include "commands/unmount.h"
#include "host_options.h"

namespace kkctl {

namespace {

constexpr void (*kCommands[])(CLI::App& app, Context& context) = {
    AddDisks,      AddPartitions, AddCreate,  AddDelete,  AddExtend,      AddShrink,        AddFormat,  AddLetter,
    AddMountpoint, AddBackup,     AddInspect, AddRestore, AddRestoreFree, AddRestoreVolume, AddRecover, AddClone,
    AddMount,      AddUnmount,    AddQuery,   AddOverlay, AddDiscard,     AddReboot};

void AddKitOptions(CLI::App& app, Context& context)
{
    app.add_option("--dll", context.kitOptions.dll, "The library to load instead of the one that came along")
        ->type_name("FILE");
    AddHostOptions(app, context.kitOptions);
}

/// Help and the version are parses that ended early, too.
int ReportParse(const CLI::App& app, const CLI::ParseError& error, const Context& context)
{
    const std::vector<std::string> unknown = app.remaining();
    if (app.get_subcommands().empty() && !unknown.empty() && error.get_exit_code() != 0) {
        context.Err() << "kkctl: there is no command or option " << unknown.front()
                      << "\nRun with --help for more information.\n";
        return kExitUsage;
    }
    return app.exit(error, context.Out(), context.Err()) == 0 ? kExitSuccess : kExitUsage;
}

int RunCommand(const Context& context)
{
    try {
        const int exitCode = context.command();
        context.Out().flush();
        if (!context.Out()) {
            context.Err() << "kkctl: the output could not be written\n";
            return kExitFailure;
        }
        return exitCode;
    } catch (const ArgumentError& error) {
        context.Err() << "kkctl: " << error.what() << '\n';
        return kExitUsage;
    } catch (const std::exception& error) {
        context.Err() << "kkctl: " << error.what() << '\n';
        return kExitFailure;
    }
}

/// What the command line and the lines of the shell have in common.
void AddCommonParts(CLI::App& app, Context& context)
{
    app.add_flag("--json", context.json, "Print JSON instead of tables");
    app.add_flag("--yes,-y", context.assumeYes, "Do not ask before a command that destroys data");
    app.fallthrough();  // global options may stand behind the command too
    app.require_subcommand(1);
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "kkctl: " + CLI::FailureMessage::simple(failed, error);
    });
    for (const auto addCommand : kCommands) {
        addCommand(app, context);
    }
}

int ParseAndRun(CLI::App& app, const std::vector<std::string>& arguments, const Context& context)
{
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        return ReportParse(app, error, context);
    }
    return RunCommand(context);
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, const Environment& environment)
{
    Context context(environment);
    CLI::App app("Lists, edits, backs up and restores disks.", "kkctl");
    AddCommonParts(app, context);
    app.set_version_flag("--version", "kkctl " KK_PROJECT_VERSION, "Print the version and exit");
    AddKitOptions(app, context);
    AddShell(app, context);
    return ParseAndRun(app, arguments, context);
}

int RunShellLine(const std::vector<std::string>& arguments, Context& context)
{
    CLI::App app;
    AddCommonParts(app, context);
    app.footer("help [COMMAND] shows this or the options of a command; exit and quit end the shell.");
    return ParseAndRun(app, arguments, context);
}

}  // namespace kkctl
