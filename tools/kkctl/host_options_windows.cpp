#include "host_options.h"

namespace kkctl {

void AddHostOptions(CLI::App&, KitOptions&) {}

}  // namespace kkctl
