"""Reads include/kestrelkit/kestrelkit.h: what it says of statuses, and what it declares.

    header = kestrelkit_header.read(path)
    header.statuses   the named statuses: name, value, meaning
    header.records    the records: name, fields with their C types
    header.exports    the functions: name, parameters, what each may return, and when
"""

import dataclasses
import pathlib
import re

DEFAULT_PATH = pathlib.Path(__file__).resolve().parent.parent / "include" / "kestrelkit" / "kestrelkit.h"

_NAMED = r"(?:KK_STATUS_\w+|KK_E_\w+|0x[0-9A-F]{4}(?:[0-9A-F]{4}|xxxx))"
_ONE_NAME = re.compile(rf"\b{_NAMED}\b")
_NAMES = re.compile(rf"({_NAMED}(?:, {_NAMED})*)(.*)", re.DOTALL)


@dataclasses.dataclass(frozen=True)
class Status:
    name: str
    value: int  # as the 32 bits, not as the signed number
    meaning: str


@dataclasses.dataclass(frozen=True)
class Field:
    name: str
    type: str
    count: int  # of elements, 1 for what is no array
    is_array: bool


@dataclasses.dataclass(frozen=True)
class Record:
    name: str
    fields: tuple


@dataclasses.dataclass(frozen=True)
class Parameter:
    name: str
    type: str


@dataclasses.dataclass(frozen=True)
class Outcome:
    """One line of what a function returns. `statuses` is empty for what the header describes in words alone."""

    statuses: tuple
    when: str


@dataclasses.dataclass(frozen=True)
class Export:
    name: str
    parameters: tuple
    outcomes: tuple
    mentioned: frozenset  # the statuses that the comment names, be it among the outcomes or elsewhere


@dataclasses.dataclass(frozen=True)
class Header:
    statuses: tuple
    records: tuple
    exports: tuple

    def name_of(self, status):
        """The name of a status that may be given as a number; numbers without a name stay, with capital digits."""
        if not re.fullmatch(r"0x[0-9A-Fa-f]{8}", status):
            return status
        value = int(status, 16)
        named = (known.name for known in self.statuses if known.value == value)
        return next(named, f"0x{value:08X}")


def _comment_text(comment):
    """The lines of a comment without its stars."""
    return re.sub(r"^[ \t]*(?:/\*\*|\*/|\*)[ \t]?|[ \t]*\*/$", "", comment, flags=re.MULTILINE).strip("\n")


def _one_line(text):
    return re.sub(r"\s+", " ", text).strip()


def _outcome(text):
    """One item of the list: names and what follows them, or words alone; names may be followed by further words that
    stand for statuses of their own."""
    match = _NAMES.fullmatch(text)
    if match is None:
        return [Outcome((), text)]
    names, when = match.groups()
    named = tuple(names.split(", "))
    if when.startswith(", or "):
        return [Outcome(named, ""), Outcome((), when[len(", or ") :])]
    return [Outcome(named, re.sub(r"^[:;,]\s*", "", when).strip())]


def _outcomes(comment):
    """What follows @return: a list, or one sentence."""
    if "@return" not in comment:
        raise ValueError(f"a function's comment lacks @return: {comment}")
    text = comment.split("@return", 1)[1].strip()
    items = re.split(r"^- ", text, flags=re.MULTILINE)[1:] if text.startswith("- ") else [text]
    return tuple(outcome for item in items for outcome in _outcome(_one_line(item)))


def _parameters(text):
    if _one_line(text) == "void":
        return ()
    found = (re.fullmatch(r"(.*?)(\w+)", _one_line(part)) for part in text.split(","))
    return tuple(Parameter(match.group(2), match.group(1).strip()) for match in found)


def _exports(text):
    pattern = r"(/\*\*(?:(?!\*/).)*\*/)\nKK_API KK_STATUS KK_CALL (Kk\w+)\(([^)]*)\);"
    return tuple(
        Export(
            name,
            _parameters(parameters),
            _outcomes(_comment_text(comment)),
            frozenset(_ONE_NAME.findall(comment)),
        )
        for comment, name, parameters in re.findall(pattern, text, re.DOTALL)
    )


def _statuses(text):
    pattern = r"(/\*\*(?:(?!\*/).)*\*/)\n#define (KK_\w+) \(\(KK_STATUS\)(\w+)\)"
    return tuple(
        Status(name, int(value, 16), _one_line(_comment_text(comment)))
        for comment, name, value in re.findall(pattern, text, re.DOTALL)
    )


def _fields(body):
    body = re.sub(r"/\*.*?\*/", "", body, flags=re.DOTALL)
    found = re.findall(r"(\w+)\s+(\w+)(?:\[(\d+)\])?;", body)
    return tuple(Field(name, kind, int(count or 1), bool(count)) for kind, name, count in found)


def _records(text):
    pattern = r"typedef struct (\w+) \{(.*?)\} \1;"
    return tuple(Record(name, _fields(body)) for name, body in re.findall(pattern, text, re.DOTALL))


def read(path=DEFAULT_PATH):
    """Raises ValueError when the header declares something whose comment cannot be read."""
    text = pathlib.Path(path).read_text(encoding="utf-8")
    header = Header(_statuses(text), _records(text), _exports(text))
    declared = re.findall(r"^KK_API .*?(Kk\w+)\(", text, re.MULTILINE)
    if [export.name for export in header.exports] != declared:
        raise ValueError(f"{path}: a function has no comment")
    defined = re.findall(r"^#define (KK_\w+) \(\(KK_STATUS\)", text, re.MULTILINE)
    if [status.name for status in header.statuses] != defined:
        raise ValueError(f"{path}: a status has no comment")
    return header
