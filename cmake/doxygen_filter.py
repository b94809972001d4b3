#!/usr/bin/env python3
"""Doxygen input filter: reads the library's headers as Doxygen comments.

The headers document their declarations with plain // comments written for people reading
the header, not for a tool; this filter lets Doxygen read them as they are, so no header
carries tool markup and the reference follows every header edit:

- the comment block at the top of a file (before #pragma once) describes the file;
- a banner line (// ----) followed by comment text, or a comment paragraph set apart by a
  blank line before declarations, opens a section: a named member group carrying that text,
  whose title also describes the declarations of the section that have no comment of their
  own; it ends where the next section starts or its scope closes;
- a // comment block directly above a declaration documents it, and every declaration that
  follows it with no blank line in between (overloads, runs of accessors);
- a // comment after code on the same line documents that member or enumerator;
- any other comment stays a plain comment.

Comment text is taken literally: the characters Doxygen would read as commands or markup
are escaped outside `code` spans.

usage: doxygen_filter.py FILE   (Doxygen's INPUT_FILTER; writes the filtered text to stdout)
"""
import re
import sys

ESCAPES = str.maketrans({c: "\\" + c for c in "\\@<>&#$%"})
COMMENT = re.compile(r"^(\s*)//(?!/)\s?(.*)$")
BANNER = re.compile(r"^\s*//\s*[-=*~_]{3,}")
STRINGS = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'')


def literal(text):
    parts = text.split("`")
    if len(parts) % 2 == 0:  # an unmatched backquote: no code spans at all
        return text.translate(ESCAPES)
    for i in range(0, len(parts), 2):
        parts[i] = parts[i].translate(ESCAPES)
    return "`".join(parts)


def code_of(line):
    """The line without string literals and comments (for counting braces)."""
    code = STRINGS.sub('""', line)
    pos = code.find("//")
    return code if pos < 0 else code[:pos]


def trailing_comment(line):
    """Position of a // comment after code on the line, or -1."""
    code = STRINGS.sub(lambda m: "x" * len(m.group(0)), line)
    pos = code.find("//")
    return pos if pos > 0 and code[:pos].strip() else -1


def declaration_starts(lines, j):
    """Start lines of the declarations that follow at lines[j:] up to a blank line or comment."""
    starts = []
    depth = 0
    statement_open = False
    while j < len(lines) and lines[j].strip() and not COMMENT.match(lines[j]):
        code = code_of(lines[j]).strip()
        if depth == 0 and not statement_open and code and not code.startswith(
                ("#", "}", "public:", "private:", "protected:")):
            starts.append(j)
        depth += code.count("{") - code.count("}")
        if depth < 0:
            break
        statement_open = depth > 0 or (code != "" and code[-1] not in ";{}:")
        j += 1
    return starts


def declared_name(line):
    """The name a declaration line declares: the identifier before its first "(" or "="."""
    m = re.search(r"(~?[A-Za-z_]\w*|operator\W+)\s*[(=;{\[]", code_of(line))
    return m.group(1) if m else None


def next_is_code(lines, j):
    """Whether the first non-blank line from lines[j] is code (not a comment, not the end)."""
    while j < len(lines) and not lines[j].strip():
        j += 1
    return j < len(lines) and not COMMENT.match(lines[j]) and not lines[j].strip().startswith(
        ("}", "#"))


def main():
    with open(sys.argv[1], encoding="utf-8", errors="replace") as f:
        lines = f.read().split("\n")
    out = []
    depth = 0
    section_depth = None  # brace depth of the open section, if any
    section_brief = ""
    statement_open = False
    seen_code = False
    i = 0
    while i < len(lines):
        line = lines[i]
        if COMMENT.match(line):
            j = i
            while j < len(lines) and COMMENT.match(lines[j]):
                j += 1
            block = lines[i:j]
            text = [COMMENT.match(l).group(2) for l in block if not BANNER.match(l)]
            indent = COMMENT.match(line).group(1)
            follows_code = j < len(lines) and lines[j].strip() != ""
            if not seen_code:
                out.append("/// \\file")
                out += ["/// " + literal(t) for t in text]
                out += ["" for _ in range(len(block) - len(text) - 1)]
            elif any(t.strip() for t in text) and (BANNER.match(block[0]) or (
                    not follows_code and next_is_code(lines, j))):
                if section_depth is not None:
                    out.append("///@}")
                body = [t for t in text if t.strip()] and text
                title = body[0].split(". ")[0].rstrip(".:")
                out.append(indent + "/// \\name " + literal(title))
                if body and body[0].strip().rstrip(".:") == title.strip():
                    body = body[1:]
                out += [indent + "/// " + literal(t) for t in body]
                out.append(indent + "///@{")
                section_depth = depth
                joined = " ".join(t.strip() for t in body if t.strip())
                section_brief = literal((joined.split(". ")[0].rstrip(".") if joined else title) + ".")
            elif follows_code and not any(BANNER.match(l) for l in block):
                doc = [indent + "/// " + literal(t) for t in text]
                starts = declaration_starts(lines, j)
                out += doc
                # The same text before each further declaration of the run.
                k = j
                for s in starts[1:]:
                    out += lines[k:s] + doc
                    k = s
                for l in lines[k:starts[-1] + 1 if starts else j]:
                    out.append(l)
                    depth += code_of(l).count("{") - code_of(l).count("}")
                i = starts[-1] + 1 if starts else j
                statement_open = bool(code_of(lines[i - 1]).strip()) and \
                    code_of(lines[i - 1]).strip()[-1] not in ";{}:"
                continue
            else:
                out += block
            i = j
            continue
        code = code_of(line)
        if code.strip() and not code.strip().startswith("#pragma"):
            seen_code = True
        closes = code.count("}") - code.count("{")
        if section_depth is not None and closes > 0 and depth - closes < section_depth:
            out.append("///@}")
            section_depth = None
        # A declaration of the section with no comment of its own: the section's title.
        stripped = code.strip()
        if (section_depth is not None and depth == section_depth and not statement_open and
                stripped and not stripped.startswith(("#", "}", "public:", "private:",
                                                      "protected:")) and
                not (out and out[-1].lstrip().startswith("///"))):
            out.append(re.match(r"\s*", line).group(0) + "/// " + section_brief)
        if stripped:
            statement_open = stripped[-1] not in ";{}:"
        pos = trailing_comment(line)
        if pos > 0 and not code.strip().startswith(("}", "#")) and not line[pos:].startswith("///"):
            line = line[:pos] + "///< " + literal(line[pos + 2:].strip())
        out.append(line)
        depth += code.count("{") - code.count("}")
        i += 1
    if section_depth is not None:
        out.append("///@}")
    sys.stdout.write("\n".join(out))


main()
