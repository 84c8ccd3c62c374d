#include "write_progress.h"

#include "platform.h"

namespace kkctl {

std::unique_ptr<Progress> ShowWrites(const Context& context, const ProgressPlan& plan)
{
    if (!context.ErrorIsTerminal()) {
        return nullptr;
    }
    return std::make_unique<Progress>(context.Err(), plan,
                                      [before = ProcessBytesWritten()] { return ProcessBytesWritten() - before; });
}

}  // namespace kkctl
