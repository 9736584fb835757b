#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows Doxygen a header of this project with its comments as Doxygen wants them; the headers stay free of its markup.

- The comment at the top says what the header is for. It becomes the description of the class of that name, or of the
  file: indented lines are code, and Threading, Ownership, Errors, Order, Forks and Stability begin a paragraph with a
  title.
- In a header for C, comments before and after a declaration become its description.
"""
import pathlib
import re
import sys

TITLES = re.compile(r"((?:Threading|Ownership|Errors|Order|Forks|Stability)(?:, (?:Ownership|Errors|Order))*):\s*(.*)")


def plain(text):
    """Text in which nothing is an element of HTML or a command of Doxygen's."""
    return re.sub(r"([\\@<>&%#])", r"\\\1", text)


def description(lines):
    """The lines of a comment, without their comment signs, as a description."""
    out, is_code, in_title = [], False, False
    for line in lines:
        title = TITLES.match(line)
        is_deep = line.startswith("  ")
        code = is_deep and not in_title
        if code != is_code and (line or not is_code):
            while out and not out[-1]:
                out.pop()
            out.append("\n\\code{.cpp}" if code else "\\endcode\n")
            is_code = code
        if title:
            words = plain(title.group(2))
            out += ["", f"\\par {title.group(1)}", words[:1].upper() + words[1:]]
            in_title = True
        elif not line:
            in_title = False
            out.append("")
        else:
            if not is_deep:
                in_title = False
            out.append(line[2:] if code else plain(line.strip()))
    if is_code:
        out.append("\\endcode")
    return out


def with_first_comment(text, name):
    """The first comment after the licence, as the description of the class of that name or of the file."""
    match = (re.search(r"^// SPDX.*\n\n((?://.*\n)+)", text) or
             re.search(r"(/\*\n(?: \* (?!SPDX).*\n| \*\n)+ \*/\n)", text))
    if not match:
        return "/** \\file */\n" + text
    comment = match.group(1)
    lines = [re.sub(r"^(?:// ?| \* ?)", "", line) for line in comment.splitlines() if line not in ("/*", " */")]
    words = "/**\n" + "\n".join(description(lines)) + "\n*/\n"
    text = text.replace(comment, "", 1)
    definition = re.search(rf"^(?:class|struct) (?:WLHID_EXPORT )?{name}\b[^;]*?{{", text, flags=re.M)
    if not definition or text[:definition.start()].rstrip().splitlines()[-1].startswith("///"):
        return words.replace("/**", "/** \\file", 1) + text
    return "/** \\file */\n" + text[:definition.start()] + words + text[definition.start():]


def with_c_comments(text):
    text = re.sub(r"^(\s*[^\s/*].*?)/\*(?!\*)(.*?)\*/$", r"\1/**<\2*/", text, flags=re.M)
    return re.sub(r"^( *)/\*(?![*]|\n|\s*SPDX| ----)", r"\1/**", text, flags=re.M)


def main():
    path = pathlib.Path(sys.argv[1])
    text = with_first_comment(path.read_text(encoding="utf-8"), path.stem)
    sys.stdout.write(with_c_comments(text) if "#ifndef WLHID_H" in text else text)


if __name__ == "__main__":
    main()
