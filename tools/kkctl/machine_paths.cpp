#include "machine_paths.h"

#include <algorithm>
#include <filesystem>

#include "text.h"

namespace kkctl {

WideString MachinePath(const std::string& hostPath)
{
    if (hostPath.empty()) {
        throw PathError("the path is empty");
    }
    if (hostPath.find('\\') != std::string::npos) {
        throw PathError("'" + hostPath + "' has a backslash in it, which separates folders in the machine");
    }
    const std::string absolute = std::filesystem::absolute(hostPath).lexically_normal().string();
    std::optional<WideString> path = FromUtf8(absolute);
    if (!path) {
        throw PathError("'" + hostPath + "' is not UTF-8");
    }
    std::replace(path->begin(), path->end(), KkWideChar{'/'}, KkWideChar{'\\'});
    return u"Z:" + *path;
}

}  // namespace kkctl
