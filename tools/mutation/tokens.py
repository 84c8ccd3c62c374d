"""Splits a C++ source into tokens, and finds the statements of its functions.

It knows as much of the language as clang-format leaves in the tree: braces around every body, blanks around binary
operators and none around angle brackets.
"""

import dataclasses
import re

TOKEN = re.compile(
    r"""
    (?P<blank>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:[^\n\\]|\\.|\\\n)*)
  | (?P<text>(?:u8|u|U|L)?"(?:[^"\\\n]|\\.)*"|(?:u8|u|U|L)?'(?:[^'\\\n]|\\.)+')
  | (?P<number>(?:0[xX][0-9a-fA-F']+|[0-9][0-9']*)[uUlLzZ]*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<sign><<=|>>=|->\*|<=>|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||\+=|-=|\*=|/=|%=|&=|\|=|\^=|.)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

BODY_AHEAD = {")", "]", "const", "noexcept", "override", "mutable", "else", "do"}
TYPE_KEYWORDS = {"namespace", "struct", "class", "union", "enum"}
NOT_EXPRESSIONS = {
    "alignas", "auto", "case", "const", "constexpr", "default", "do", "else", "for", "goto", "if", "namespace",
    "private", "protected", "public", "static", "static_assert", "struct", "switch", "template", "typedef", "using",
    "while", "KK_ASSERT",
}  # fmt: skip
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="}


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    start: int
    blank_before: bool = False
    blank_after: bool = False

    @property
    def end(self):
        return self.start + len(self.text)


@dataclasses.dataclass
class Statement:
    """A statement that ends in a semicolon: tokens first..last, where last is the semicolon."""

    first: int
    last: int
    kind: str  # call, assignment, jump


def tokens_of(source):
    """The tokens without blanks, comments, preprocessor lines and attributes."""
    found, blank = [], True
    for match in TOKEN.finditer(source):
        if match.lastgroup in ("blank", "comment", "directive"):
            blank = True
            if found:
                found[-1].blank_after = True
            continue
        found.append(Token(match.lastgroup, match.group(), match.start(), blank))
        blank = False
    return found


def partner(tokens, index):
    """The index of the bracket that closes the one at `index`."""
    closing = {"(": ")", "{": "}", "[": "]"}[tokens[index].text]
    opening, depth = tokens[index].text, 0
    for i in range(index, len(tokens)):
        if tokens[i].text == opening:
            depth += 1
        elif tokens[i].text == closing:
            depth -= 1
            if depth == 0:
                return i
    return len(tokens) - 1


def left_alone(tokens):
    """Indices that no fault is planted in: assertions and attributes, which change no behaviour."""
    alone = set()
    for i, token in enumerate(tokens[:-1]):
        if token.text in ("static_assert", "KK_ASSERT", "alignas", "alignof") and tokens[i + 1].text == "(":
            alone.update(range(i, partner(tokens, i + 1) + 1))
        elif token.text == "[" and tokens[i + 1].text == "[":
            alone.update(range(i, partner(tokens, i) + 1))
        elif token.text == "using" and "=" in [t.text for t in tokens[i : i + 3]]:
            end = next(j for j in range(i, len(tokens)) if tokens[j].text == ";")
            alone.update(range(i, end))
    return alone


def opens_body(tokens, index, inside_body):
    """Whether the brace at `index` opens statements, and not a type, a namespace or a list of values."""
    before = tokens[index - 1].text if index else ""
    if before in BODY_AHEAD:
        return True
    if inside_body and before in ("{", "}", ";"):
        return True
    start = index
    while start > 0 and tokens[start - 1].text not in (";", "{", "}"):
        start -= 1
    ahead = [t.text for t in tokens[start:index]]
    # A trailing type of what is returned.
    return not TYPE_KEYWORDS & set(ahead) and "->" in ahead and ")" in ahead and "=" not in ahead[-3:]


def statements_of(tokens):
    """The expression statements and jumps of all bodies."""
    found, bodies = [], []
    for i, token in enumerate(tokens):
        of_body = True
        if token.text == "{":
            bodies.append(opens_body(tokens, i, bool(bodies) and bodies[-1]))
        elif token.text == "}" and bodies:
            of_body = bodies.pop()
        starts = token.text in (";", "{", "}") and of_body and bodies and bodies[-1]
        if starts and not in_parentheses(tokens, i):
            statement = statement_at(tokens, i + 1)
            if statement is not None:
                found.append(statement)
    return found


def in_parentheses(tokens, index):
    """Whether the semicolon at `index` is one of a for or an if with an initialiser."""
    depth = 0
    for i in range(index - 1, -1, -1):
        text = tokens[i].text
        if text == ")":
            depth += 1
        elif text == "(":
            depth -= 1
            if depth < 0:
                return tokens[index].text == ";"
        elif text in (";", "{", "}") and depth == 0:
            if text != ";":
                return False
    return False


def statement_at(tokens, first):
    if first >= len(tokens) or tokens[first].text in ("{", "}", ";") or tokens[first].text in NOT_EXPRESSIONS:
        return None
    last, assigns, calls = first, False, False
    while last < len(tokens) and tokens[last].text != ";":
        text = tokens[last].text
        if text in "([{":
            calls = calls or text == "("
            last = partner(tokens, last)
        elif text == "}":
            return None
        elif text in ASSIGNMENTS or text in ("++", "--"):
            assigns = True
        last += 1
    if last >= len(tokens):
        return None
    if tokens[first].text in ("return", "break", "continue"):
        return Statement(first, last, "jump") if last == first + 1 else None
    if is_declaration(tokens, first):
        return None
    if assigns:
        return Statement(first, last, "assignment")
    return Statement(first, last, "call") if calls else None


def is_declaration(tokens, first):
    i = first
    if tokens[i].kind != "name":
        return False
    while tokens[i].kind == "name" and tokens[i + 1].text == "::":
        i += 2
    after = tokens[i + 1]
    if after.kind == "name":
        return True
    if after.text == "<" and not after.blank_before:
        return True
    return after.text in ("*", "&", "&&") and not after.blank_before and tokens[i + 2].kind == "name"
