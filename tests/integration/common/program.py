"""The qs program that the tests in Python run: the native one, or the Windows one behind a launcher such as Wine."""

import argparse
import os
import pathlib
import re
import shlex

BINARY_OUTPUT = ("encode", "decode", "hash", "xpath")


class Program:
    def __init__(self, path, launcher):
        self.windows = bool(launcher)
        self._launcher = [os.path.abspath(word) if "/" in word else word for word in shlex.split(launcher)]
        self._path = pathlib.Path(path).resolve()

    def command(self, *arguments):
        """The command line; what is a Path among the arguments is given as the program's system writes it."""
        words = [self.native(word) if isinstance(word, pathlib.Path) else str(word) for word in arguments]
        return [*self._launcher, str(self._path), *words]

    def command_with_temporary(self, folder, *words):
        """The command line with this folder for temporary files."""
        if not self.windows:
            return ["env", f"TMPDIR={folder}", *self.command(*words)]
        # Wine hands on every variable but this one.
        return [*self._launcher, "cmd", "/c", f"set TMP={self.native(folder)}&& {self.native(self._path)} {' '.join(words)}"]

    def system_command(self, *words):
        """The command line of a program of Windows itself."""
        return [*self._launcher, *words]

    def native(self, path):
        return "Z:" + str(path).replace("/", "\\") if self.windows else str(path)

    def path(self, native):
        """The Path that the program printed."""
        return pathlib.Path(native.removeprefix("Z:").replace("\\", "/") if self.windows else native)

    def text(self, output):
        """What was written to a text stream, with LF. Windows ends every line with CR LF."""
        if not self.windows:
            return output
        if output.count(b"\n") != output.count(b"\r\n"):
            raise AssertionError(f"a line that does not end with CR LF in {output}")
        return output.replace(b"\r\n", b"\n")

    def streams(self, arguments, result):
        """A finished process, its text streams with LF."""
        if not arguments or arguments[0] not in BINARY_OUTPUT:
            result.stdout = self.text(result.stdout)
        result.stderr = self.text(result.stderr)
        return result


def without_cursor_moves(shown):
    """What a terminal got. Wine's console draws by moving the cursor and hiding it meanwhile."""
    shown = re.sub(rb"\x1b\[\?25[hl]|\x1b\[K", b"", shown)
    return re.sub(rb"\x1b\[(\d+)C", lambda move: b" " * int(move[1]), shown)


def parse_arguments(description, *names):
    """Takes the program, --launcher and the named arguments from the command line. Gives the program, the values of the
    names and what is left for unittest."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("qs", help="the built program")
    for name in names:
        parser.add_argument(name)
    parser.add_argument("--launcher", default="", metavar="COMMAND",
                        help="what starts it, where it is a Windows program: 'scripts/wine x86_64'")
    values, rest = parser.parse_known_args()
    return Program(values.qs, values.launcher), [getattr(values, name) for name in names], rest
