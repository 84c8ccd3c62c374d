#include "machine/drive_volume_names.h"

#include "machine/text.h"

namespace machine {

std::u16string VolumeNameOfDrive(char16_t letter)
{
    return u"Volume" +
           BracedGuid({0xD21E0000u + letter, 0x2F3C, 0x11EE, {0x9D, 0x4E, 0x80, 0x6E, 0x6F, 0x6E, 0x69, 0x63}});
}

std::u16string WithDriveLetter(std::u16string_view path)
{
    constexpr std::u16string_view kBegin = u"Volume{";
    if (!EqualsIgnoreCase(path.substr(0, kBegin.size()), kBegin)) {
        return std::u16string(path);
    }
    for (char16_t letter = u'A'; letter <= u'Z'; ++letter) {
        const std::u16string name = VolumeNameOfDrive(letter);
        const bool ends = path.size() == name.size() || (path.size() > name.size() && path[name.size()] == u'\\');
        if (ends && EqualsIgnoreCase(path.substr(0, name.size()), name)) {
            return letter + (u":" + std::u16string(path.substr(name.size())));
        }
    }
    return std::u16string(path);
}

}  // namespace machine
