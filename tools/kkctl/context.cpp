#include "context.h"

#include "status_names.h"

namespace kkctl {

Kit& Context::OpenedKit()
{
    if (!kit_) {
        kit_ = environment_.openKit(kitOptions);
    }
    return *kit_;
}

Kit& Context::OpenedKitForWriting()
{
    kitOptions.writesDisks = true;
    return OpenedKit();
}

int Context::Fail(const std::string& what, KK_STATUS status) const
{
    Err() << "kkctl: " << what << ": " << DescribeStatus(status) << '\n';
    return kExitFailure;
}

}  // namespace kkctl
