# SPDX-License-Identifier: Apache-2.0

"""The mechanical mistakes that can be made in a C++ source, found without a compiler.

A mistake that does not compile costs a moment; one that does not change behaviour wastes a run of the tests. So the
search favours mistakes that compile and matter, and need not be complete.
"""

import re
from dataclasses import dataclass


@dataclass(frozen=True)
class Mistake:
    kind: str
    start: int  # of the replaced piece, as an offset in the file's text
    end: int
    new: str

    def line_of(self, text):
        return text.count("\n", 0, self.start) + 1

    def made_in(self, text):
        return text[: self.start] + self.new + text[self.end :]


_LITERAL = re.compile(
    r"""//[^\n]* | /\*.*?\*/
      | R"(?P<mark>[^()\s\\]*)\(.*?\)(?P=mark)"
      | "(?:\\.|[^"\\\n])*"
      | (?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'
      | ^[ \t]*\#(?:\\\n|[^\n])*""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
_LOGGING = re.compile(
    r"(?:\w+::)*(?:[\w:]+(?:->|\.))*(?:NSLog\w*|log|logLine|logText|logError|logCheck|logAtLevel\w*|trace_?)\s*\("
)
# Seen only by fault injection; costs or saves time only; a moment more or less; arguments in any order.
_RETRY = re.compile(r"\berrno\s*[!=]=\s*EINTR\b")
_TIME_ONLY = re.compile(r"(?:\.|->)(?:reserve|shrink_to_fit)\s*\(|\bsleep_for\s*\(")
_MOMENT = re.compile(r"\bnow\b|[Dd]eadline|\b(?:until|stalled)\b")
_DURATION = re.compile(
    r"(?:(?:nano|micro|milli)?seconds|minutes|hours|Duration)(?: \w+)?[({]$|(?:[Mm]illis|[Mm]icros|S)econds\w* = $"
)
# Room for text: nobody notices more of it. What poll() writes into.
_ROOM = re.compile(r"std::array<char, $")
_POLLED = re.compile(r"\{[^{}]*\b(?:POLL(?:IN|OUT)|events\)?), $")
# None of ours is 0, which is standard input.
_DESCRIPTOR = re.compile(r"(?:[Ss]ocket|[Dd]escriptor|[Dd]irectory|[Ww]ake|fd)_? $")
_SYMMETRIC = re.compile(r"(?:std::)?(?:min|max|swap)(?:<[\w:]+>)?\($")
_LOCK = re.compile(r"\bstd::(?:lock_guard|unique_lock|scoped_lock|shared_lock)\b")
_COMPARISON = re.compile(r"(?<= )(<=|>=|==|!=|<|>)(?= )")
_TURNED = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",),
}
_NUMBER = re.compile(r"(?<![\w.'])(?P<digits>0x[0-9A-Fa-f']+|\d[\d']*)(?P<suffix>[uUlLzZ]*)(?![\w.'])")
_CONDITION = re.compile(r"\b(?:if|while) (?=\()")
_CALL = re.compile(r"[\w>]\(")
_PARAMETER = re.compile(r"^(?:const\s+)?[\w:<>,*&\s]+[\s&*]+\w+(?:\s*=.*)?$", re.DOTALL)
# Cannot be dropped, or only a compiler would notice.
_STAYS = re.compile(
    r"^(?:return|break|continue|case|default|else|do|goto|using|namespace|struct|class|enum|union|template|typedef|friend"
    r"|public|private|protected|extern|static_assert|co_\w+|\[\[|virtual|explicit|inline|static|constexpr)\b"
)
_EFFECT = re.compile(r"[=(]|\+\+|--")


def masked(text):
    """The text with comments, contents of literals and preprocessor lines blanked, of the same length."""

    def blank(match):
        found = match.group(0)
        if found[0] in "\"'R" and len(found) >= 2:
            return '"' + re.sub(r"[^\n]", "_", found[1:-1]) + '"'
        return re.sub(r"[^\n]", " ", found)

    code = _LITERAL.sub(blank, text)
    code = re.sub(r"\bstatic_assert\s*\([^;]*;", lambda m: re.sub(r"[^\n]", " ", m.group(0)), code)
    for start, end in reversed(list(_statements(code))):
        piece = code[start:end]
        if _LOGGING.match(piece) or _LOCK.search(piece) or _TIME_ONLY.search(piece):
            code = code[:start] + re.sub(r"[^\n]", " ", piece) + code[end:]
    return code


def _statements(code):
    """Start and end of statements inside functions that end with a semicolon and contain no braces."""
    scopes, depth, start = [], 0, 0
    for at, c in enumerate(code):
        if c in "([":
            depth += 1
        elif c in ")]":
            depth -= 1
        elif c == "{":
            head = code[start:at]
            scopes.append((not _opens_type(head), depth))
            depth, start = 0, at + 1
        elif c == "}":
            depth = scopes.pop()[1] if scopes else 0
            start = at + 1
        elif c == ";" and depth == 0:
            piece = code[start:at]
            begin = start + len(piece) - len(piece.lstrip())
            if piece.strip() and scopes and scopes[-1][0]:
                yield begin, at + 1
            start = at + 1


def _closing(code, opening):
    depth = 0
    for at in range(opening, len(code)):
        if code[at] in "([{":
            depth += 1
        elif code[at] in ")]}":
            depth -= 1
            if depth == 0:
                return at
    return -1


def _parts(code, start, end):
    """Start and end of the pieces between top-level commas."""
    depth, begin, angles = 0, start, 0
    for at in range(start, end):
        c = code[at]
        if c in "([{":
            depth += 1
        elif c in ")]}":
            depth -= 1
        elif c == "<" and code[at - 1] != " ":
            angles += 1
        elif c == ">" and angles and code[at - 1] != "-":
            angles -= 1
        elif c == "," and depth == 0 and angles == 0:
            yield begin, at
            begin = at + 1
    yield begin, end


def _line_around(code, at):
    return code[code.rfind("\n", 0, at) + 1 : code.find("\n", at)]


def _asks_for_descriptor(code, match):
    before = code[max(0, match.start() - 60) : match.start()]
    return code.startswith(" 0", match.end()) and _DESCRIPTOR.search(before)


def _comparisons(code):
    for match in _COMPARISON.finditer(code):
        for other in _TURNED[match.group(1)]:
            is_tick = other.rstrip("=") == match.group(1).rstrip("=") and match.group(1) not in ("==", "!=")
            if is_tick and (_MOMENT.search(_line_around(code, match.start())) or _asks_for_descriptor(code, match)):
                continue
            yield Mistake("a comparison turned", match.start(), match.end(), other)


def _dropped(code):
    for start, end in _statements(code):
        piece = code[start:end]
        if _STAYS.match(piece) or not _EFFECT.search(piece) or re.search(r"=\s*(?:default|delete|0)\s*;$", piece):
            continue
        if _RETRY.search(piece):
            continue
        yield Mistake("a statement dropped", start, end, ";")


def _opens_type(head):
    return re.search(r"\b(?:namespace|struct|class|enum|union)\b[^()]*$", head) is not None


def _is_member_before_it_is_set(code, start, end):
    """Whether the number is the zero that initialises a member."""
    if code[start:end].strip("uUlLzZ") != "0" or not code[:start].endswith("= ") or code[end : end + 1] != ";":
        return False
    depth = 0
    for at in range(start - 1, -1, -1):
        if code[at] == "}":
            depth += 1
        elif code[at] == "{" and depth:
            depth -= 1
        elif code[at] == "{":
            return _opens_type(code[max(code.rfind(c, 0, at) for c in ";{}") + 1 : at])
    return False


def _is_overwritten(code, start, end):
    """Whether the number is the zero of a new variable that is assigned, or filled in by a call, before anything reads it."""
    declared = re.search(r"[\w>] (\w+) = $", code[max(0, start - 80) : start])
    if declared is None or code[start:end] != "0" or code[end : end + 1] != ";":
        return False
    rest = code[end + 1 :]
    use = re.search(rf"\b{declared.group(1)}\b", rest)
    if use is None:
        return False
    between, after = rest[: use.start()], rest[use.end() :]
    call = between[between.rfind(";") + 1 :]
    if re.search(r"(?<!&)&$", call) or "from_chars(" in call:
        return True
    assigned = re.match(r" = (?!=)([^;]*);", after)
    return (assigned is not None and not re.search(rf"\b{declared.group(1)}\b", assigned.group(1))
            and not re.search(r"\b(?:if|for|while|switch|case)\b", between))


def _cannot_be_seen(code, start, end):
    before = code[max(0, start - 100) : start]
    return (_is_member_before_it_is_set(code, start, end) or _is_overwritten(code, start, end)
            or any(each.search(before) for each in (_DURATION, _ROOM, _POLLED)))


def _notation(digits):
    if digits.startswith("0x"):
        return 16, hex
    return (8, "0{:o}".format) if digits.startswith("0") and digits != "0" else (10, str)


def _constants(code):
    for match in _NUMBER.finditer(code):
        if _cannot_be_seen(code, match.start(), match.end()):
            continue
        digits, suffix = match.group("digits"), match.group("suffix")
        digits = digits.replace("'", "")
        base, form = _notation(digits)
        value = int(digits, base)
        # After a minus towards 0 only: -1 often stands for none, for which -2 would do as well.
        for moved in (value - 1,) if code.endswith("-", 0, match.start()) else (value + 1, value - 1):
            if moved >= 0:
                yield Mistake("a constant moved by one", match.start(), match.end(), form(moved) + suffix)


def _swapped(code):
    for match in _CALL.finditer(code):
        if _SYMMETRIC.search(code[max(0, match.end() - 60) : match.end()]):
            continue
        opening = match.end() - 1
        closing = _closing(code, opening)
        if closing < 0:
            continue
        parts = list(_parts(code, opening + 1, closing))
        for (a, a_end), (b, b_end) in zip(parts, parts[1:]):
            one, other = code[a:a_end].strip(), code[b:b_end].strip()
            if not one or not other or one == other or _PARAMETER.match(one) or _PARAMETER.match(other):
                continue
            yield Mistake("two arguments swapped", a, b_end, (a, a_end, b, b_end))


def _negated(code):
    for match in _CONDITION.finditer(code):
        opening = match.end()
        closing = _closing(code, opening)
        condition = code[opening + 1 : closing]
        if closing < 0 or ";" in condition or re.search(r"[^=!<>]=[^=]", condition):
            continue
        yield Mistake("a condition negated", opening, closing + 1, None)


def mistakes_in(text):
    """Every mistake, by kind and then by place."""
    code = masked(text)
    found = [*_comparisons(code), *_dropped(code), *_constants(code)]
    for swap in _swapped(code):
        a, a_end, b, b_end = swap.new
        new = text[b:b_end].strip() + ", " + text[a:a_end].strip()
        found.append(Mistake(swap.kind, swap.start, swap.end, new))
    for negation in _negated(code):
        new = "(!" + text[negation.start : negation.end] + ")"
        found.append(Mistake(negation.kind, negation.start, negation.end, new))
    return found
