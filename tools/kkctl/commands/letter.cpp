#include "letter.h"

#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "context.h"
#include "partition_report.h"

namespace kkctl {

namespace {

struct Arguments {
    Place place;
    std::optional<KkWideChar> letter;  ///< none: only take the old one away
};

/// The letter in upper case.
std::optional<KkWideChar> ParseLetter(const std::string& text)
{
    if (text.size() != 1) {
        return std::nullopt;
    }
    const char letter = text[0] >= 'a' && text[0] <= 'z' ? static_cast<char>(text[0] - 'a' + 'A') : text[0];
    return letter >= 'A' && letter <= 'Z' ? std::optional(static_cast<KkWideChar>(letter)) : std::nullopt;
}

int RunLetter(Context& context, const Arguments& arguments)
{
    const Place& place = arguments.place;
    const Status status = context.OpenedKit().Calls().SetDriveLetter(place.disk, place.start, arguments.letter);
    if (status.Failed()) {
        const int exitCode = context.Fail("setting the letter of " + NameOf(place), status);
        if (status.code == KK_E_ACCESSDENIED || status.code == KK_STATUS_NO_MEDIA_IN_DEVICE) {
            context.Err() << "kkctl: if it had a letter before, that is gone\n";
        }
        return exitCode;
    }
    ReportPartition(context, arguments.letter ? "Gave a letter to" : "Took the letter away from", place);
    return kExitSuccess;
}

}  // namespace

void AddLetter(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("letter", "Give a partition's volume a drive letter, or take it away");
    const auto arguments = std::make_shared<Arguments>();
    AddPlaceArguments(*command, arguments->place);
    const auto parse = [arguments](const CLI::results_t& texts) {
        arguments->letter = ParseLetter(texts.front());
        return arguments->letter || texts.front() == "none";
    };
    command->add_option("LETTER", parse, "A to Z, or none to take the letter away")->required()->type_name("");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunLetter(context, *arguments); }; });
}

}  // namespace kkctl
