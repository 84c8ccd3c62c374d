#include "host_options.h"

#include <CLI/CLI.hpp>

namespace kkctl {

void AddHostOptions(CLI::App& app, KitOptions& options)
{
    app.add_option("--disk", options.disks, "A file that is a disk of the machine; repeat for disks 0, 1, ...")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->check(CLI::ExistingFile);
}

}  // namespace kkctl
