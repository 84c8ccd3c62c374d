#include "recover.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "confirmation.h"
#include "context.h"
#include "files.h"
#include "partition_report.h"
#include "write_progress.h"

namespace kkctl {

namespace {

constexpr size_t kMaxImageUnits = 580;  // the library would cut a longer path
/// The overlay's file existed; the library has deleted it by then.
constexpr auto kOverlayExisted = static_cast<KK_STATUS>(0x80070050);

struct Arguments {
    ImageSource source;
    Place target;
};

int RunRecover(Context& context, const Arguments& arguments)
{
    const Kit& kit = context.OpenedKitForWriting();
    const ImagePartition partition = FindInImage(kit, arguments.source);
    const WideString image = LibraryPathWithin(kit, arguments.source.image, kMaxImageUnits, "a recovery");
    if (!ConfirmForPartition(context, "Overwrite", arguments.target,
                             "with " + NameOf(arguments.source) + " and lose all that is on it")) {
        return kExitFailure;
    }
    const bool hadLeftover = FileExists(arguments.source.image + ".rec.avhdx");
    auto progress = ShowWrites(context, {partition.length, true});
    const Status status =
        kit.Calls().RecoverShrinkToFit(image, partition.number, arguments.target.disk, arguments.target.start);
    progress.reset();
    if (status.Failed()) {
        const int exitCode =
            context.Fail("recovering " + NameOf(arguments.source) + " into " + NameOf(arguments.target), status);
        if (hadLeftover && status.code == kOverlayExisted) {
            context.Err() << "kkctl: an overlay that an earlier run had left was in the way; try again\n";
        }
        return exitCode;
    }
    ReportPartition(context, "Recovered " + NameOf(arguments.source) + " into", arguments.target);
    return kExitSuccess;
}

}  // namespace

void AddRecover(CLI::App& app, Context& context)
{
    CLI::App* const command =
        app.add_subcommand("recover", "Restore a partition of an image into a partition that may be smaller");
    const auto arguments = std::make_shared<Arguments>();
    AddImageSourceArguments(*command, arguments->source);
    AddPlaceArguments(*command, arguments->target);
    command->footer(
        "An NTFS file system is shrunk until it fits, in an overlay beside the image that is gone afterwards. The\n"
        "image is not changed; it must not be mounted.");
    command->callback(
        [&context, arguments] { context.command = [&context, arguments] { return RunRecover(context, *arguments); }; });
}

}  // namespace kkctl
