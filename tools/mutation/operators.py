"""The faults that can be planted in a source, by kind."""

import dataclasses
import hashlib
import re

from mutation.tokens import left_alone, partner, statements_of, tokens_of

COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
LOGIC = {"&&": "||", "||": "&&"}
ARITHMETIC = {
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|", "|": "&",
    "+=": "-=", "-=": "+=",
}  # fmt: skip
STATUSES = {"KK_STATUS_SUCCESS": "KK_STATUS_UNSUCCESSFUL", "KK_STATUS_UNSUCCESSFUL": "KK_STATUS_INVALID_PARAMETER"}
GIVES_BACK = re.compile(r"Close|Discard|Release|Free|Detach|Unlock|Unmount|Delete|Destroy|Reset|Uninit", re.IGNORECASE)


@dataclasses.dataclass
class Mutant:
    file: str  # from the root of the tree
    operator: str
    start: int
    end: int
    text: str  # what stands there instead
    line: int = 0
    last_line: int = 0
    before: str = ""  # the lines as they are and as they become, in one line each
    after: str = ""
    id: str = ""

    def applied_to(self, source):
        return source[: self.start] + self.text + source[self.end :]


def one_line(text):
    return " ".join(text.split())


def mutants_of(file, source):
    """All mutants of a source, each with an identity that outlives changes elsewhere in the file."""
    tokens = tokens_of(source)
    alone = left_alone(tokens)
    found = []
    for operator, first, last, text in candidates(source, tokens):
        if first not in alone:
            found.append(Mutant(file, operator, tokens[first].start, tokens[last].end, text))
    seen = {}
    for mutant in found:
        describe(mutant, source)
        key = f"{file}|{mutant.operator}|{mutant.before}|{mutant.after}"
        seen[key] = seen.get(key, 0) + 1
        mutant.id = hashlib.sha256(f"{key}|{seen[key]}".encode()).hexdigest()[:12]
    return found


def describe(mutant, source):
    mutant.line = source.count("\n", 0, mutant.start) + 1
    mutant.last_line = source.count("\n", 0, mutant.end) + 1
    line_start = source.rfind("\n", 0, mutant.start) + 1
    line_end = source.find("\n", mutant.end)
    head, tail = source[line_start : mutant.start], source[mutant.end : line_end]
    mutant.before = one_line(head + source[mutant.start : mutant.end] + tail)
    mutant.after = one_line(head + mutant.text + tail)


def candidates(source, tokens):
    """Tuples of kind, first and last token, and replacement."""
    for i, token in enumerate(tokens):
        yield from sign_candidates(tokens, i)
        if token.kind == "number":
            yield from number_candidates(i, token.text)
        elif token.kind == "name":
            yield from name_candidates(source, tokens, i)
    yield from statement_candidates(source, tokens)


def sign_candidates(tokens, i):
    token = tokens[i]
    if token.text == "!":
        yield "drop negation", i, i, ""
    if token.text in ("++", "--"):
        yield "arithmetic", i, i, "--" if token.text == "++" else "++"
    if not (token.blank_before and token.blank_after):
        return  # an angle bracket, a pointer, a reference or a sign of a number
    for operator, table in (("comparison", COMPARISONS), ("logic", LOGIC), ("arithmetic", ARITHMETIC)):
        if token.text in table:
            yield operator, i, i, table[token.text]


def number_candidates(i, text):
    match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)([uUlLzZ]*)", text)
    value = int(match.group(1).replace("'", ""), 16 if text[:2] in ("0x", "0X") else 10)
    form = "0x{:X}" if text[:2] in ("0x", "0X") else "{}"
    yield "constant", i, i, form.format(value + 1) + match.group(2)
    if value > 0:
        yield "constant", i, i, form.format(value - 1) + match.group(2)


def name_candidates(source, tokens, i):
    token = tokens[i]
    if token.text in ("true", "false"):
        yield "constant", i, i, "false" if token.text == "true" else "true"
    elif token.text.startswith("KK_STATUS_"):
        yield "status", i, i, STATUSES.get(token.text, "KK_STATUS_UNSUCCESSFUL")
    elif token.text in ("if", "while") and i + 1 < len(tokens) and tokens[i + 1].text == "(":
        close = partner(tokens, i + 1)
        first = i + 2
        for j in range(first, close):
            if tokens[j].text == ";":
                first = j + 1  # behind the initialiser
        condition = source[tokens[first].start : tokens[close - 1].end]
        yield "negate condition", first, close - 1, f"!({condition})"
        yield "drop condition", first, close - 1, f"false && ({condition})"
    elif token.text == "KK_TRY" and i + 1 < len(tokens) and tokens[i + 1].text == "(":
        yield "ignore failure", i, i, "(void)"


def statement_candidates(source, tokens):
    statements = statements_of(tokens)
    for statement in statements:
        called = [tokens[i].text for i in range(statement.first, statement.last) if tokens[i + 1].text == "("]
        gives_back = statement.kind == "call" and any(GIVES_BACK.search(name) for name in called)
        operator = "skip close" if gives_back else "drop " + statement.kind
        yield operator, statement.first, statement.last, ";"
    ordered = sorted(statements, key=lambda statement: statement.first)
    for one, other in zip(ordered, ordered[1:]):
        if other.first == one.last + 1 and one.kind == other.kind == "call":
            first = source[tokens[one.first].start : tokens[one.last].end]
            between = source[tokens[one.last].end : tokens[other.first].start]
            second = source[tokens[other.first].start : tokens[other.last].end]
            yield "swap calls", one.first, other.last, second + between + first
