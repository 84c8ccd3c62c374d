"""Reads in a disassembly, as LLVM prints it, from where calls and jumps through pointers take their target."""

import re

INSTRUCTION = re.compile(r"^ *([0-9a-f]+):\s+(\w+)[ \t]*([^#\n]*?)\s*(?:# (0x[0-9a-f]+).*)?$", re.MULTILINE)
READ_ONLY = re.compile(r"cmp|test|push|bt[lqw]")
VOLATILE = ("rax", "rcx", "rdx", "r8", "r9", "r10", "r11")
TABLE_OFFSET, TABLE_TARGET = "offset from a table", "target from a table"


def whole_register(operand):
    """The 64-bit register that the operand is or is a part of; otherwise None."""
    if numbered := re.fullmatch(r"%r(\d+)[dwb]?", operand):
        return f"r{numbered[1]}"
    if named := re.fullmatch(r"%[er]?([abcd])[xhl]", operand):
        return f"r{named[1]}x"
    if named := re.fullmatch(r"%[er]?(si|di|bp|sp)l?", operand):
        return f"r{named[1]}"
    return None


def written(name, operands, place, sources):
    """What the instruction leaves in its last operand: the address of the slot that it loads, or part of a switch."""
    if name == "movq" and "(%rip)" in operands and place:
        return int(place, 16)
    if name == "movslq" and "(" in operands:
        return TABLE_OFFSET
    if name == "addq" and sources.get(whole_register(operands.split(", ")[-1])) == TABLE_OFFSET:
        return TABLE_TARGET
    return None


def unexpected_targets(text, slots, exempt):
    """The calls and jumps, as printed, whose target is neither loaded from one of the slots nor from a switch's table.

    A register's value is what the text before wrote to it last, which suffices for code that a compiler made. `exempt`
    is the address of a jump that may take any target.
    """
    found, sources = [], {}
    for match in INSTRUCTION.finditer(text):
        address, name, operands, place = match.groups()
        if name in ("callq", "jmpq") and operands.startswith("*"):
            direct = int(place, 16) if place else None
            source = sources.get(whole_register(operands[1:])) if operands.startswith("*%") else direct
            from_switch = name == "jmpq" and source == TABLE_TARGET
            if source not in slots and not from_switch and int(address, 16) != exempt:
                found.append(match[0].strip())
        elif not READ_ONLY.match(name):
            register = whole_register(operands.split(", ")[-1])
            sources[register] = written(name, operands, place, sources)
        if name == "callq":
            sources.update(dict.fromkeys(VOLATILE))
    return found
