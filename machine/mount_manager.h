#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "machine/device.h"

namespace machine {

class Volumes;

/// The mount manager: knows every link to every volume and answers with all of them.
class MountManager final : public Device {
public:
    using RawAnswer = std::function<std::optional<ControlAnswer>(const ControlRequest&)>;

    struct Point {
        std::u16string link;
        std::vector<uint8_t> uniqueId;
        std::u16string device;
    };

    explicit MountManager(const Volumes& volumes) : volumes_(volumes) {}

    /// Every link as the query reports it: of each volume its GUID link, its letter, then those added here; links to
    /// other devices last.
    std::vector<Point> Points() const;

    /// A further link of a device, such as one that is no drive letter.
    void AddMountPoint(std::u16string link, std::u16string device);

    /// Replaces the answer to the query; nullopt means the true one.
    void SetRawAnswer(RawAnswer answer) { rawAnswer_ = std::move(answer); }

    /// Folders (`D:\mnt\`) on which volumes are mounted, with the volume paths.
    const std::map<std::u16string, std::u16string>& Folders() const { return folders_; }
    void MountOnFolder(std::u16string folder, std::u16string volumePath);
    bool RemoveFolder(std::u16string_view folder);

    ControlAnswer Control(OpenFile& file, const ControlRequest& request) override;
    Status QueryStandardInformation(OpenFile& file, kk::FileStandardInformation& information) override;

    /// The bytes of an answer that lists these points.
    static std::vector<uint8_t> Encode(const std::vector<Point>& points);

private:
    ControlAnswer AnswerQuery(const ControlRequest& request) const;

    const Volumes& volumes_;
    std::vector<Point> added_;
    std::map<std::u16string, std::u16string> folders_;
    RawAnswer rawAnswer_;
};

}  // namespace machine
