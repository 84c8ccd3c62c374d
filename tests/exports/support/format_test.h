#pragma once

#include <string>

#include "exports/support/volume_test.h"

/// The arguments of a format but for the partition.
struct FormatArguments {
    const char16_t* fileSystem = nullptr;
    const char16_t* label = nullptr;
    int32_t quick = 1;
};

class FormatTest : public VolumeTest {
protected:
    static constexpr int64_t kSecond = 10'000'000;

    int32_t Format(const FormatArguments& arguments = {}) const
    {
        return api.formatPartition(0, kStart, arguments.fileSystem, arguments.label, arguments.quick);
    }
    void GiveLetter(char16_t letter) { machine.AssignLetter(volume, letter); }
    /// Makes each of the letters a drive of the machine; Z: is one already.
    void TakeLetters(std::u16string_view letters)
    {
        for (const char16_t letter : letters) {
            machine.MapDrive(letter, folder.Path().string());
        }
    }

    /// Puts a program in the interpreter's place.
    void ReplaceInterpreter(const machine::ProcessCourse& course)
    {
        machine.processes.SetProgram(machine::kCommandInterpreter, [course](const auto&) { return course; });
    }
    bool HasStartedAProcess() const { return machine.journal.Count({.name = "CreateProcessW"}) != 0; }
    /// What the last process was started with.
    const machine::ProcessStart& Started() const { return machine.processes.All().back()->start; }
    std::string CommandLine() const { return machine::Utf8(Started().commandLine); }

    TemporaryFolder folder;
};
