#pragma once

#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "exports/support/export_test.h"
#include "machine/text.h"
#include "support/forked_run.h"

/// The entry points of kernel32.dll that the library looks up, in its order.
inline constexpr const char* kKernel32Entries[] = {"SetVolumeMountPointW", "DeleteVolumeMountPointW", "CreateProcessW",
                                                   "WaitForSingleObject",  "GetExitCodeProcess",      "CloseHandle",
                                                   "GetLogicalDrives",     "GetSystemDirectoryW"};

/// In the place of SetVolumeMountPointW.
template <int32_t kAnswer>
int32_t KK_CALL MountPointCallThatAnswers(const char16_t* /*point*/, const char16_t* /*volumePath*/)
{
    return kAnswer;
}

/// A disk with two volumes without letters. The second is the one that tests work on.
class VolumeTest : public ExportTest {
protected:
    static constexpr uint64_t kOtherStart = kMiB;
    static constexpr uint64_t kStart = 16 * kMiB;
    static constexpr uint64_t kLength = 40 * kMiB;
    static constexpr uint32_t kQueryPoints = 0x6D0008;

    VolumeTest()
        : disk(machine.AddDisk(64 * kMiB).Gpt(
              {.partitions = {{.start = kOtherStart, .length = 8 * kMiB}, {.start = kStart, .length = kLength}}})),
          other(*machine.FindVolume(0, kOtherStart)), volume(*machine.FindVolume(0, kStart))
    {
    }

    /// What was done, in order: libraries loaded, names opened, calls of kernel32.dll and for privileges. What serves
    /// these, such as memory, is left out.
    std::vector<std::string> Steps() const
    {
        std::vector<std::string> steps;
        for (const machine::CallRecord& call : machine.journal.Records()) {
            if (call.kind == machine::CallKind::LoadLibrary || call.kind == machine::CallKind::CreateFile ||
                IsOfKernel32(call)) {
                steps.push_back(Line(call));
            }
        }
        return steps;
    }
    std::vector<std::string> Kernel32Calls() const
    {
        std::vector<std::string> calls;
        for (const machine::CallRecord& call : machine.journal.Records()) {
            if (IsOfKernel32(call)) {
                calls.push_back(Line(call));
            }
        }
        return calls;
    }
    /// As Kernel32Calls tells of the volume mounted on `point`.
    std::string SetCall(const std::u16string& point) const
    {
        return "SetVolumeMountPointW " + machine::Utf8(point + u" " + volume.Path());
    }

    /// Has the mount manager tell of these links (of devices) instead of the true ones.
    void AnswerMountPoints(const std::vector<std::pair<std::u16string, std::u16string>>& links)
    {
        std::vector<machine::MountManager::Point> points;
        for (const auto& [link, device] : links) {
            points.push_back({.link = link, .uniqueId = {}, .device = device});
        }
        machine.mountManager->SetRawAnswer([answer = machine::MountManager::Encode(points)](const auto&) {
            return std::optional(machine::ControlAnswer{.output = answer});
        });
    }

    template <typename Function>
    void ReplaceEntry(const char* entry, Function* function)
    {
        machine.modules.Add(u"kernel32.dll", {{entry, machine::EntryAddress(function)}});
    }

    /// Runs `body` in a process of its own for each entry point, with that one missing.
    template <typename Body>
    void WithoutEachEntry(const Body& body)
    {
        for (const std::string entry : kKernel32Entries) {
            EXPECT_EQ(RunForked([&] {
                          machine.modules.RemoveEntry(u"kernel32.dll", entry);
                          body(entry);
                          return 0;
                      }),
                      0)
                << "without " << entry;
        }
    }

    machine::Disk& disk;
    machine::Volume& other;
    machine::Volume& volume;

private:
    static bool IsOfKernel32(const machine::CallRecord& call)
    {
        return call.kind == machine::CallKind::Win32Bool || call.kind == machine::CallKind::Win32Wait ||
               call.name == "CloseHandle";
    }
    static std::string Line(const machine::CallRecord& call)
    {
        return call.object.empty() ? call.name : call.name + " " + call.object;
    }
};
