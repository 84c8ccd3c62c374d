#include "format.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "confirmation.h"
#include "context.h"
#include "partition_report.h"
#include "text.h"

namespace kkctl {

namespace {

constexpr size_t kMaxLabelUnits = 32;  // no file system takes more

struct Arguments {
    Place place;
    std::string fileSystem;  ///< empty: the library's choice
    WideString label;        ///< as the format command reads it; empty: none
    bool isFull = false;
};

bool IsPlain(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

/// Neither the end of a quotation nor one of the command interpreter's own characters, which it obeys even in quotes.
bool MayStandInLabel(KkWideChar unit)
{
    constexpr std::string_view kForbidden = "\"%&<>^|";
    return unit >= 0x20 && (unit >= 0x7F || kForbidden.find(static_cast<char>(unit)) == std::string_view::npos);
}

/// The label with quotes around it: the library passes it on to the command interpreter as it is.
std::optional<WideString> QuotedLabel(const std::string& label)
{
    const std::optional<WideString> text = FromUtf8(label);
    if (!text || text->size() > kMaxLabelUnits || !std::ranges::all_of(*text, MayStandInLabel)) {
        return std::nullopt;
    }
    constexpr KkWideChar kQuote = '"';
    return text->empty() ? *text : kQuote + *text + kQuote;
}

int RunFormat(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKitForWriting();
    const Place& place = arguments.place;
    if (!ConfirmForPartition(context, "Format", place, "and lose all that is on it")) {
        return kExitFailure;
    }
    const WideString fileSystem(arguments.fileSystem.begin(), arguments.fileSystem.end());
    const Status status =
        kit.Calls().FormatPartition(place.disk, place.start, fileSystem, arguments.label, !arguments.isFull);
    if (status.Failed()) {
        return context.Fail("formatting " + NameOf(place), status);
    }
    ReportPartition(context, "Formatted", place);
    return kExitSuccess;
}

void AddOptions(CLI::App& command, Arguments& arguments)
{
    AddPlaceArguments(command, arguments.place);
    command.add_option("--fs", arguments.fileSystem, "NTFS, FAT32, exFAT, ... (default: NTFS)")
        ->type_name("NAME")
        ->check([](const std::string& name) {
            const bool isName = !name.empty() && std::ranges::all_of(name, IsPlain);
            return isName ? std::string() : "must be letters and digits: " + name;
        });
    const auto parseLabel = [&arguments](const CLI::results_t& texts) {
        const std::optional<WideString> label = QuotedLabel(texts.front());
        arguments.label = label.value_or(WideString());
        return label.has_value();
    };
    command.add_option("--label", parseLabel, "Label of the volume, without any of \" % & < > ^ | (default: none)")
        ->type_name("TEXT");
    command.add_flag("--full", arguments.isFull, "Go over the whole partition instead of writing only what is needed");
}

}  // namespace

void AddFormat(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("format", "Put a file system on a partition");
    const auto arguments = std::make_shared<Arguments>();
    AddOptions(*command, *arguments);
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunFormat(context, *arguments); }; });
}

}  // namespace kkctl
