"""What the tests under Wine have in common: a prefix of their own, and runs of kkctl.exe in it."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

PREFIX_SECONDS = 300  # the first start makes the prefix
RUN_SECONDS = 60

program = []  # kkctl.exe


def wine_command():
    """What stands before a program to run it under Wine; nothing where there is no Wine."""
    wine = shutil.which("wine64") or shutil.which("wine64", path="/usr/lib/wine") or shutil.which("wine")
    if not wine:
        return []
    # Where the system places memory at random, a start in many thousands ends at once with status 1 and without a word:
    # the place of the page that all processes of Windows share is taken.
    fixed = ["setarch", "--addr-no-randomize"]
    allowed = subprocess.run([*fixed, "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0
    return [*fixed, wine] if allowed else [wine]


WINE = wine_command()


class WineCase(unittest.TestCase):
    """All cases of a program share one prefix, which takes long to make, and one folder."""

    folder = None

    @classmethod
    def setUpClass(cls):
        if WineCase.folder is None:
            WineCase.folder = tempfile.mkdtemp(prefix="kkctl_wine_")
            WineCase.environment = dict(os.environ, WINEPREFIX=os.path.join(cls.folder, "prefix"),
                                        TMPDIR=cls.folder, WINEDEBUG="-all")
            unittest.addModuleCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
            unittest.addModuleCleanup(cls.stop_wine)
            subprocess.run([*WINE, program[0], "--help"], env=cls.environment, stdin=subprocess.DEVNULL,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=PREFIX_SECONDS, check=True)

    @classmethod
    def stop_wine(cls):
        """Ends what Wine keeps running, which has read its folders once and for all."""
        server = shutil.which("wineserver") or shutil.which("wineserver", path="/usr/lib/wine")
        if server:
            subprocess.run([server, "-k"], env=cls.environment, check=False)

    def run_kkctl(self, *arguments, expect, stdin=b""):
        # Into files: what Wine starts in the background would hold pipes open for seconds.
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            result = subprocess.run([*WINE, program[0], *arguments], env=self.environment, cwd=self.folder, input=stdin,
                                    stdout=out, stderr=err, timeout=RUN_SECONDS)
            output, errors = (self.text_in(file) for file in (out, err))
        self.assertEqual(result.returncode, expect, output + errors)
        return output, errors

    @staticmethod
    def text_in(file):
        file.seek(0)
        return file.read().decode().replace("\r\n", "\n")


def main():
    """The first argument of a test program: KKCTL_EXE. The library must lie beside it."""
    if not WINE:
        sys.exit("Wine is not installed")
    program[:] = [os.path.abspath(sys.argv[1])]
    unittest.main(argv=sys.argv[:1], verbosity=2)
