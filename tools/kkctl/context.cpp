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

Context Context::ForShellLine() const
{
    Context line = *this;
    line.command = nullptr;
    return line;
}

int Context::Fail(const std::string& what, Status status) const
{
    Err() << "kkctl: " << what << ": " << DescribeStatus(status) << '\n';
    return kExitFailure;
}

}  // namespace kkctl
