#include "core/nt_path.h"

#include "core/text.h"

namespace kk {

namespace {

bool HasDevicePrefix(const char16_t* path)
{
    return path[0] == u'\\' && path[1] == u'\\' && (path[2] == u'.' || path[2] == u'?') && path[3] == u'\\';
}

}  // namespace

void ToNtPath(const char16_t* path, char16_t* output, size_t capacity)
{
    size_t position = 0;
    if (HasDevicePrefix(path)) {
        AppendText(output, capacity, position, u"\\??\\");
        path += 4;
    } else if (path[0] != u'\\') {
        AppendText(output, capacity, position, u"\\??\\");
    }
    AppendText(output, capacity, position, path);
}

}  // namespace kk
