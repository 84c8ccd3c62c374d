#include <gmock/gmock.h>

#include <barrier>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "exports/support/disk_course.h"
#include "support/forked_run.h"

// Several threads in the library at once, each with a thread block of its own and on disks of its own.

namespace {

using machine::CallKind;
using testing::Each;
using testing::IsEmpty;

class ThreadsTest : public ExportTest {
protected:
    static constexpr uint32_t kThreads = 4;

    /// Runs `body` with each thread's number on as many threads, all beginning at once. Assertions belong behind it.
    template <typename Body>
    void OnThreads(const Body& body)
    {
        std::barrier start(kThreads);
        std::vector<std::thread> threads;
        for (uint32_t number = 0; number < kThreads; ++number) {
            threads.emplace_back([&, number] {
                const machine::ThreadBlock block = machine.JoinThread();
                start.arrive_and_wait();
                body(number);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void MakeCourses()
    {
        for (uint32_t number = 0; number < kThreads; ++number) {
            courses.push_back(std::make_unique<DiskCourse>(machine, api, *images, folder.Path(), number));
        }
    }

    /// What the course of that number says when nothing else runs.
    std::string WordsAlone(uint32_t number)
    {
        const std::filesystem::path words = folder / "words";
        EXPECT_EQ(RunForked([&] {
                      courses[number]->Run();
                      EXPECT_THAT(courses[number]->Failures(), IsEmpty());
                      std::ofstream(words) << Joined(courses[number]->Words());
                      return 0;
                  }),
                  0);
        return ReadFile(words);
    }

    static std::string Joined(const std::vector<std::string>& lines)
    {
        std::string text;
        for (const std::string& line : lines) {
            text += line + '\n';
        }
        return text;
    }

    size_t LoadsOf(const std::string& library) const
    {
        return machine.journal.Count({.kind = CallKind::LoadLibrary, .object = library});
    }

    TemporaryFolder folder;
    std::vector<std::unique_ptr<DiskCourse>> courses;
};

TEST_F(ThreadsTest, EachGetsOnDisksOfItsOwnWhatItGetsAlone)
{
    SHOWS(KkListPartitions, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkCreatePartition, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkFormatPartition, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkShrinkPartition, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkExtendPartition, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkDeletePartition, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkBackup, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkMountImage, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkQueryDiskImage, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkUnmountImage, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkInspectImage, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkRestorePartitions, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkRestoreToFreeSpace, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkRestoreToVolume, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkCloneVolume, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkMountImageOverlay, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkDiscardOverlay, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");
    SHOWS(KkRecoverShrinkToFit, KK_STATUS_SUCCESS, "threads on disks of their own get what each gets alone");

    MakeCourses();
    std::vector<std::string> alone;
    for (uint32_t number = 0; number < kThreads; ++number) {
        alone.push_back(WordsAlone(number));
    }
    // What is bound at the first use is bound now; a thread that comes while that happens is refused.
    uint32_t disk = 0;
    ASSERT_EQ(api.setDriveLetter(0, 1 << 20, 0), 0);
    ASSERT_EQ(api.mountImage(u"Z:\\none.vhdx", &disk), Status(0x80070002));
    ASSERT_EQ(api.backup(0, WindowsPath(folder / "first.vhdx").c_str(), nullptr, 0, 0, 0, 1, nullptr, 0, 1, 0, nullptr),
              0);

    OnThreads([this](uint32_t number) { courses[number]->Run(); });

    for (uint32_t number = 0; number < kThreads; ++number) {
        EXPECT_EQ(Joined(courses[number]->Words()), alone[number]) << "thread " << number;
    }
    EXPECT_THAT(virtualDisks.AttachedImages(), IsEmpty());
    EXPECT_THAT(machine.Imbalances(), IsEmpty());
}

/// A first call of a process for each table of entry points, and one that needs none.
struct FirstCall {
    const char* name;
    std::function<int32_t(const machine::KestrelkitApi&, uint32_t number, const std::u16string& image)> make;
    std::vector<const char*> libraries;
};

const FirstCall kFirstCalls[] = {
    {"KkListPartitions",
     [](const auto& api, uint32_t number, const std::u16string&) {
         uint32_t count = 0;
         return api.listPartitions(2 * number, nullptr, 0, &count);
     },
     {}},
    {"KkSetDriveLetter",
     [](const auto& api, uint32_t number, const std::u16string&) {
         return api.setDriveLetter(2 * number, 1 << 20, static_cast<KkWideChar>(u'G' + number));
     },
     {"kernel32.dll"}},
    {"KkMountImage",
     [](const auto& api, uint32_t, const std::u16string& image) {
         uint32_t disk = 0;
         const int32_t status = api.mountImage(image.c_str(), &disk);
         return status == 0 ? api.unmountImage(image.c_str()) : status;
     },
     {"virtdisk.dll"}},
    {"KkBackup",
     [](const auto& api, uint32_t number, const std::u16string& image) {
         const std::u16string backup = image + u".backup.vhdx";
         return api.backup(2 * number, backup.c_str(), nullptr, 0, 0, 0, 1, nullptr, 0, 1, 0, nullptr);
     },
     {"virtdisk.dll", "ole32.dll", "vssapi.dll"}},
};

TEST_F(ThreadsTest, FirstCallsAtOnceSucceedOrFindNoLibraryAndSucceedWhenMadeAgain)
{
    SHOWS(KkSetDriveLetter, KK_STATUS_SUCCESS,
          "of first calls at the same time at least one succeeds; the others may "
          "not find the library, and succeed when made again");
    SHOWS(KkMountImage, KK_STATUS_SUCCESS,
          "of first calls at the same time at least one succeeds; the others may not "
          "find the library, and succeed when made again");
    SHOWS(KkBackup, KK_STATUS_SUCCESS,
          "of first calls at the same time at least one succeeds; the others may not find "
          "the library, and succeed when made again");

    constexpr int kRounds = 4;
    MakeCourses();
    for (const FirstCall& call : kFirstCalls) {
        for (int round = 0; round < kRounds; ++round) {
            const auto make = [&](uint32_t number) {
                return call.make(api, number, WindowsPath(folder / std::to_string(number) / "source.vhdx"));
            };
            const int answer = RunForked([&] {
                std::vector<int32_t> statuses(kThreads, -1);
                machine.journal.Clear();
                OnThreads([&](uint32_t number) { statuses[number] = make(number); });

                EXPECT_THAT(statuses, Each(testing::AnyOf(0, KK_STATUS_NOT_FOUND)));
                EXPECT_THAT(statuses, testing::Contains(0)) << "the thread that binds needs no second call";
                for (const char* const library : call.libraries) {
                    EXPECT_EQ(LoadsOf(library), 1u) << library;
                }
                for (uint32_t number = 0; number < kThreads; ++number) {
                    EXPECT_EQ(statuses[number] != 0 ? make(number) : 0, 0);
                }
                EXPECT_THAT(machine.Imbalances(), IsEmpty());
                return 0;
            });
            EXPECT_EQ(answer, 0) << call.name << ", round " << round;
        }
    }
}

}  // namespace
