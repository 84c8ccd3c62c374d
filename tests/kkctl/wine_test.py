#!/usr/bin/env python3
"""Runs kkctl.exe under Wine, a loader and system library that this project did not write.

Usage: wine_test.py KKCTL_EXE
The library must lie beside the program. Fails where there is no Wine.
"""

import json
import os

import wine_case
from wine_case import WineCase


class WineTest(WineCase):
    def test_no_disk_tells_its_layout(self):
        output, _ = self.run_kkctl("disks", expect=0)
        self.assertEqual(output, "There is no disk that can be read.\n")
        output, _ = self.run_kkctl("disks", "--json", expect=0)
        self.assertEqual(json.loads(output), {"disks": []})

    def test_statuses_of_the_system_come_through(self):
        _, errors = self.run_kkctl("partitions", "0", expect=1)
        self.assertIn("0xC00000BB KK_STATUS_NOT_SUPPORTED", errors)
        _, errors = self.run_kkctl("partitions", "1", expect=1)
        self.assertIn("0xC0000034 STATUS_OBJECT_NAME_NOT_FOUND", errors)

    def test_a_backup_fails_before_it_makes_a_file(self):
        for disk, status in (("0", "0xC00000BB"), ("1", "0xC0000034")):
            output, errors = self.run_kkctl("backup", disk, "x.vhdx", "--used-blocks", "--snapshots", expect=1)
            self.assertEqual(output, "")
            self.assertIn(status, errors)
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith("x.vhdx")], [])

    def test_edits_fail_as_the_system_answers(self):
        statuses = {
            "0xC00000BB KK_STATUS_NOT_SUPPORTED": ["create 0 1M 1G", "delete 0 1M", "extend 0 1M", "shrink 0 1M 1M"],
            "0xC0000034 STATUS_OBJECT_NAME_NOT_FOUND": ["create 1 1M 1G", "delete 1 1M", "extend 1 1M",
                                                        "shrink 1 1M 1M"],
            "0xC000000D KK_STATUS_INVALID_PARAMETER": ["letter 0 1M D", "letter 0 1M none", "format 0 1M"],
            "0xC0000013 KK_STATUS_NO_MEDIA_IN_DEVICE": ["mountpoint 0 1M C:\\users"],
        }
        for status, commands in statuses.items():
            for command in commands:
                output, errors = self.run_kkctl(*command.split(), expect=1)
                self.assertEqual(output, "")
                self.assertIn(status, errors, command)

    def test_a_restart_is_asked_of_the_system_which_does_nothing(self):
        output, _ = self.run_kkctl("reboot", expect=0)
        self.assertEqual(output, "The machine restarts.\n")
        output, _ = self.run_kkctl("reboot", "--json", expect=0)
        self.assertEqual(json.loads(output), {"restart": True, "simulated": False})

    def test_a_shell_reads_lines_as_editors_on_windows_write_them(self):
        lines = ('\ufeff# disks', "disks", "", "partitions 1", 'mountpoint 0 1M "C:\\no\u00fcne\\"', "exit", "nonsense")
        script = "\r\n".join(lines).encode()
        output, errors = self.run_kkctl("shell", stdin=script, expect=1)
        self.assertEqual(output, "There is no disk that can be read.\n")
        self.assertIn("0xC0000034", errors)
        self.assertIn("kkctl: line 4 failed\n", errors)
        self.assertIn("on C:\\no\u00fcne\\: 0xC0000013", errors)
        self.assertTrue(errors.endswith("kkctl: line 5 failed\n"), errors)

    def test_usage_errors_exit_with_two(self):
        for arguments in ([], ["unknown"], ["partitions"], ["partitions", "-1"], ["disks", "--disk", "f"],
                          ["backup", "0", "\\\\server\\share\\x.vhdx"],
                          ["mountpoint", "0", "1M", "\\\\?\\C:\\users"], ["format", "0", "1M", "--label", "a&b"]):
            self.run_kkctl(*arguments, expect=2)

    def test_arguments_and_output_are_utf_8(self):
        _, errors = self.run_kkctl("h\u00e4\u20ac", expect=2)
        self.assertIn("h\u00e4\u20ac", errors)

    def test_a_library_that_does_not_load_is_named(self):
        _, errors = self.run_kkctl("--dll", "no\u00fcne.dll", "disks", expect=1)
        self.assertIn("cannot load", errors)
        self.assertIn("no\u00fcne.dll", errors)

    def test_a_library_without_the_functions_is_refused(self):
        _, errors = self.run_kkctl("--dll", "C:\\windows\\system32\\version.dll", "disks", expect=1)
        self.assertIn("has no function KkListDisks", errors)


if __name__ == "__main__":
    wine_case.main()
