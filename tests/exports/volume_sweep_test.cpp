// Every call that the edits of a live volume make fails once, alone or with all later ones. Each failure owes one
// status and leaves the volume in one state.

#include <algorithm>
#include <optional>
#include <ostream>

#include "exports/support/format_test.h"
#include "support/sweep.h"

namespace {

using machine::CallKind;
using machine::CallRecord;

/// What a failing call belongs to, and how often the operation had come to it by then.
struct Place {
    /// An entry point that is looked up, or called; else the device that was opened last.
    std::string what;
    uint64_t visit;

    bool IsIn(const char* device) const { return what.ends_with(device); }
};

Place PlaceOf(const CallRecord& failed, const machine::Journal& journal)
{
    if (failed.kind == CallKind::LoadLibrary || failed.kind == CallKind::GetProcedure) {
        return {failed.object, 1};
    }
    if (failed.kind == CallKind::Win32Bool || failed.kind == CallKind::Win32Wait) {
        return {failed.name, 1};
    }
    // Nothing else is needed of a volume that was found than its name.
    if (failed.kind == CallKind::FsControl) {
        return {"cluster size", CallsBefore(journal, failed, {.kind = CallKind::FsControl}) + 1};
    }
    Place place = {"", 0};
    for (const CallRecord& open : journal.FindAll({.kind = CallKind::CreateFile})) {
        if (open.index <= failed.index) {
            place.what = open.object;
        }
    }
    for (const CallRecord& open : journal.FindAll({.kind = CallKind::CreateFile, .object = place.what})) {
        place.visit += open.index <= failed.index ? 1 : 0;
    }
    return place;
}

/// What an operation answers, and what it leaves.
struct Outcome {
    int32_t status;
    std::optional<char16_t> letter = std::nullopt;
    bool isMounted = false;  // on the folder
    bool started = false;    // the format
    bool formatted = false;

    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream)
{
    *stream << machine::Hex(static_cast<uint32_t>(outcome.status)) << ", letter "
            << (outcome.letter ? machine::Utf8(std::u16string(1, *outcome.letter)) : "none")
            << (outcome.isMounted ? ", mounted" : "") << (outcome.started ? ", started" : "")
            << (outcome.formatted ? ", formatted" : "");
}

bool IsLookUpOf(const Place& place, std::initializer_list<const char*> entries)
{
    return std::ranges::any_of(entries,
                               [&](const char* entry) { return place.what == std::string("kernel32.dll!") + entry; });
}

/// What no operation on mount points can do without.
bool IsNeededBinding(const Place& place)
{
    return place.what == "kernel32.dll" || IsLookUpOf(place, {"SetVolumeMountPointW", "DeleteVolumeMountPointW"});
}

constexpr const char kVolume[] = "\\HarddiskVolume2";
constexpr const char kOtherVolume[] = "\\HarddiskVolume1";
constexpr const char kMountManager[] = "\\MountPointManager";

class VolumeSweepTest : public FormatTest {
protected:
    using Model = std::function<Outcome(const Place&)>;

    VolumeSweepTest()
    {
        std::filesystem::create_directory(folder / "mnt");
        TakeLetters(u"D");
    }

    uint64_t Sweep(FaultMode mode, const std::function<int32_t()>& operation, const Outcome& success, const Model& owed)
    {
        return SweepFailingCalls(machine, mode, operation, [&](const CallRecord* failed, int32_t status) {
            const Outcome outcome = {.status = status,
                                     .letter = volume.Letter(),
                                     .isMounted = !machine.mountManager->Folders().empty(),
                                     .started = !machine.processes.All().empty(),
                                     .formatted = volume.RecognisedFileSystem() != machine::FileSystem::None};
            EXPECT_EQ(outcome, failed == nullptr ? success : owed(PlaceOf(*FirstStruck(), machine.journal)));
        });
    }

    int32_t SetLetter() const { return api.setDriveLetter(0, kStart, u'X'); }
    int32_t AddFolder() const { return api.addMountPoint(0, kStart, u"D:\\mnt"); }
    /// Gives back what the operation cannot when it does not find CloseHandle.
    int32_t FormatAndCloseHandles()
    {
        const int32_t status = Format({.fileSystem = u"FAT"});
        const CallRecord* const failed = machine.faults.Struck();
        if (failed != nullptr && failed->object == "kernel32.dll!CloseHandle") {
            EXPECT_EQ(machine.handles.OpenCount(), 2u);
            for (uintptr_t value = 4; machine.handles.OpenCount() != 0; value += 4) {
                machine.handles.Close(reinterpret_cast<kk::NtHandle>(value));
            }
        }
        return status;
    }

    /// With all later calls failing too, the one at which it began.
    const CallRecord* FirstStruck() const
    {
        const auto& records = machine.journal.Records();
        return &*std::ranges::find(records, true, &CallRecord::struck);
    }
};

TEST_F(VolumeSweepTest, SettingALetterOwesEachFailingCallItsStatusAndLetter)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_NOT_FOUND, "a part of kernel32.dll that is needed cannot be had");
    SHOWS(KkSetDriveLetter, KK_STATUS_INVALID_PARAMETER, "the volume does not open");
    SHOWS(KkSetDriveLetter, KK_STATUS_NO_MEDIA_IN_DEVICE,
          "the mount manager fails when asked for the path; the old letter is gone");
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED,
          "the system refuses the new letter, or the old one could not be learnt or taken away");
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "every other single failure is made up for");

    GiveLetter(u'K');

    const uint64_t calls = Sweep(
        FaultMode::OneCall, [&] { return SetLetter(); }, {0, u'X'},
        [](const Place& place) -> Outcome {
            if (IsNeededBinding(place)) {
                return {KK_STATUS_NOT_FOUND, u'K'};
            }
            if (place.IsIn(kVolume)) {
                return {KK_STATUS_INVALID_PARAMETER, u'K'};
            }
            if (place.IsIn(kMountManager)) {
                return place.visit == 1 ? Outcome{KK_STATUS_NO_MEDIA_IN_DEVICE} : Outcome{KK_E_ACCESSDENIED, u'K'};
            }
            if (place.what == "DeleteVolumeMountPointW") {
                return {KK_E_ACCESSDENIED, u'K'};
            }
            return place.what == "SetVolumeMountPointW" ? Outcome{KK_E_ACCESSDENIED} : Outcome{0, u'X'};
        });

    EXPECT_EQ(calls, 26u);
}

TEST_F(VolumeSweepTest, SettingALetterKeepsTheOldOneUnlessTheNewOneIsAllThatFails)
{
    SHOWS(KkSetDriveLetter,
          "when everything fails from some call on, the old letter stays unless the new one is all that fails");
    SHOWS(KkSetDriveLetter, KK_E_ACCESSDENIED, "the new letter alone is refused; the old one is gone");

    GiveLetter(u'K');

    Sweep(
        FaultMode::ThatCallAndAllLater, [&] { return SetLetter(); }, {0, u'X'},
        [](const Place& place) -> Outcome {
            if (IsNeededBinding(place)) {
                return {KK_STATUS_NOT_FOUND, u'K'};
            }
            if (place.what == "SetVolumeMountPointW") {
                return {KK_E_ACCESSDENIED};
            }
            if (place.what == "DeleteVolumeMountPointW" || (place.IsIn(kMountManager) && place.visit == 2)) {
                return {KK_E_ACCESSDENIED, u'K'};
            }
            const bool found = place.IsIn(kMountManager) || place.what == "cluster size";
            return {found ? KK_STATUS_NO_MEDIA_IN_DEVICE : KK_STATUS_INVALID_PARAMETER, u'K'};
        });
}

TEST_F(VolumeSweepTest, MountingOnAFolderOwesEachFailingCallItsStatus)
{
    SHOWS(KkAddMountPoint, KK_STATUS_NOT_FOUND, "a part of kernel32.dll that is needed cannot be had");
    SHOWS(KkAddMountPoint, KK_STATUS_NO_MEDIA_IN_DEVICE, "the volume does not open, or the mount manager fails");
    SHOWS(KkAddMountPoint, KK_E_ACCESSDENIED, "the system refuses");
    SHOWS(KkAddMountPoint, KK_STATUS_SUCCESS, "every other single failure is made up for");

    const uint64_t calls = Sweep(
        FaultMode::OneCall, [&] { return AddFolder(); }, {.status = 0, .isMounted = true},
        [](const Place& place) -> Outcome {
            if (IsNeededBinding(place)) {
                return {KK_STATUS_NOT_FOUND};
            }
            if (place.IsIn(kVolume) || place.IsIn(kMountManager)) {
                return {KK_STATUS_NO_MEDIA_IN_DEVICE};
            }
            return place.what == "SetVolumeMountPointW" ? Outcome{KK_E_ACCESSDENIED}
                                                        : Outcome{.status = 0, .isMounted = true};
        });

    EXPECT_EQ(calls, 21u);
}

TEST_F(VolumeSweepTest, MountingOnAFolderFailsOnceAllLaterCallsFail)
{
    SHOWS(KkAddMountPoint, KK_STATUS_NO_MEDIA_IN_DEVICE, "everything fails from the search for the volume on");
    SHOWS(KkAddMountPoint, KK_E_ACCESSDENIED, "everything fails from the system's call on");

    Sweep(
        FaultMode::ThatCallAndAllLater, [&] { return AddFolder(); }, {.status = 0, .isMounted = true},
        [](const Place& place) -> Outcome {
            if (IsNeededBinding(place)) {
                return {KK_STATUS_NOT_FOUND};
            }
            return {place.what == "SetVolumeMountPointW" ? KK_E_ACCESSDENIED : KK_STATUS_NO_MEDIA_IN_DEVICE};
        });
}

// D: is in use, so the volume becomes E:.
TEST_F(VolumeSweepTest, FormattingOwesEachFailingCallItsStatusAndWhatRemains)
{
    SHOWS(KkFormatPartition, KK_STATUS_NOT_FOUND, "a part of kernel32.dll that is needed cannot be had");
    SHOWS(KkFormatPartition, KK_STATUS_INVALID_PARAMETER, "the volume does not open");
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE, "a letter cannot be found or given");
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL, "folder, start, wait or exit code fail; the letter stays");
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "every other single failure is made up for");

    constexpr Outcome kDone = {.status = 0, .letter = u'E', .started = true, .formatted = true};
    constexpr Outcome kNotStarted = {.status = KK_STATUS_UNSUCCESSFUL, .letter = u'E'};
    constexpr Outcome kGoesOn = {.status = KK_STATUS_UNSUCCESSFUL, .letter = u'E', .started = true};
    constexpr Outcome kDoneUnheard = {
        .status = KK_STATUS_UNSUCCESSFUL, .letter = u'E', .started = true, .formatted = true};

    const uint64_t calls = Sweep(
        FaultMode::OneCall, [&] { return FormatAndCloseHandles(); }, kDone,
        [&](const Place& place) -> Outcome {
            if (IsNeededBinding(place) || IsLookUpOf(place, {"CreateProcessW", "GetSystemDirectoryW"})) {
                return {KK_STATUS_NOT_FOUND};
            }
            if (place.IsIn(kVolume)) {
                return {place.visit == 1 ? KK_STATUS_INVALID_PARAMETER : KK_STATUS_NO_MEDIA_IN_DEVICE};
            }
            // The first visit asks for the letter, the second for the path, the third for the letter again.
            if ((place.IsIn(kMountManager) && place.visit == 2) || place.what.ends_with("GetLogicalDrives") ||
                place.what == "SetVolumeMountPointW") {
                return {KK_STATUS_NO_MEDIA_IN_DEVICE};
            }
            if (place.what == "GetSystemDirectoryW" || place.what == "CreateProcessW") {
                return kNotStarted;
            }
            if (place.what.ends_with("WaitForSingleObject")) {
                return kGoesOn;
            }
            return place.what.ends_with("GetExitCodeProcess") ? kDoneUnheard : kDone;
        });

    EXPECT_EQ(calls, 41u);
}

TEST_F(VolumeSweepTest, FormattingKeepsTheLetterOnceItIsAssigned)
{
    SHOWS(KkFormatPartition, KK_STATUS_UNSUCCESSFUL, "everything fails after the letter was given, and it stays");
    SHOWS(KkFormatPartition, KK_STATUS_NO_MEDIA_IN_DEVICE, "everything fails before the letter was given");

    const std::string calls[] = {"GetSystemDirectoryW", "CreateProcessW", "WaitForSingleObject", "GetExitCodeProcess"};

    Sweep(
        FaultMode::ThatCallAndAllLater, [&] { return FormatAndCloseHandles(); },
        {.status = 0, .letter = u'E', .started = true, .formatted = true},
        [&](const Place& place) -> Outcome {
            if (place.what.starts_with("kernel32.dll")) {
                return {KK_STATUS_NOT_FOUND};
            }
            if (place.visit == 1 && (place.IsIn(kVolume) || place.IsIn(kOtherVolume))) {
                return {KK_STATUS_INVALID_PARAMETER};
            }
            const auto* const call = std::ranges::find(calls, place.what);
            if (call == std::end(calls)) {
                return {KK_STATUS_NO_MEDIA_IN_DEVICE};
            }
            return {.status = KK_STATUS_UNSUCCESSFUL,
                    .letter = u'E',
                    .started = call >= calls + 2,
                    .formatted = call == calls + 3};
        });
}

TEST_F(VolumeSweepTest, RestartingOwesAFailureOnlyToTheShutdownItself)
{
    SHOWS(KkReboot, KK_STATUS_SUCCESS, "only the shutdown request itself can fail the call");
    SHOWS(KkReboot, 0xC0000061, "the shutdown request fails");

    machine.privileges.Hold(machine::kShutdownPrivilege, true);

    const auto restart = [&](FaultMode mode, const char* mayFail) {
        return SweepFailingCalls(
            machine, mode, [&] { return api.reboot(); },
            [&](const CallRecord* failed, int32_t status) {
                const bool done = failed == nullptr || failed->name == mayFail;
                EXPECT_EQ(status, done ? 0 : Status(0xC0000061));
                EXPECT_EQ(machine.shutdowns.empty(), !done);
            });
    };

    EXPECT_EQ(restart(FaultMode::OneCall, "RtlAdjustPrivilege"), 2u);
    EXPECT_EQ(restart(FaultMode::ThatCallAndAllLater, ""), 2u);
}

}  // namespace
