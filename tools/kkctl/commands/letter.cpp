#include "letter.h"

#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "context.h"
#include "partition_report.h"

namespace kkctl {

namespace {

constexpr KkWideChar kNoLetter = 0;

struct Arguments {
    Place place;
    KkWideChar letter = kNoLetter;
};

/// The letter in upper case, or kNoLetter for "none".
std::optional<KkWideChar> ParseLetter(const std::string& text)
{
    if (text == "none") {
        return kNoLetter;
    }
    if (text.size() != 1) {
        return std::nullopt;
    }
    const char letter = text[0] >= 'a' && text[0] <= 'z' ? static_cast<char>(text[0] - 'a' + 'A') : text[0];
    return letter >= 'A' && letter <= 'Z' ? std::optional(static_cast<KkWideChar>(letter)) : std::nullopt;
}

int RunLetter(Context& context, const Arguments& arguments)
{
    const Place& place = arguments.place;
    const KK_STATUS status = context.OpenedKit().Calls().setDriveLetter(place.disk, place.start, arguments.letter);
    if (status < 0) {
        const int exitCode = context.Fail("setting the letter of " + NameOf(place), status);
        if (status == KK_E_ACCESSDENIED || status == KK_STATUS_NO_MEDIA_IN_DEVICE) {
            context.Err() << "kkctl: if it had a letter before, that is gone\n";
        }
        return exitCode;
    }
    ReportPartition(context, arguments.letter == kNoLetter ? "Took the letter away from" : "Gave a letter to", place);
    return kExitSuccess;
}

}  // namespace

void AddLetter(CLI::App& app, Context& context)
{
    CLI::App* const command = app.add_subcommand("letter", "Give a partition's volume a drive letter, or take it away");
    const auto arguments = std::make_shared<Arguments>();
    AddPlaceArguments(*command, arguments->place);
    const auto parse = [arguments](const CLI::results_t& texts) {
        const std::optional<KkWideChar> letter = ParseLetter(texts.front());
        arguments->letter = letter.value_or(kNoLetter);
        return letter.has_value();
    };
    command->add_option("LETTER", parse, "A to Z, or none to take the letter away")->required()->type_name("");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunLetter(context, *arguments); }; });
}

}  // namespace kkctl
