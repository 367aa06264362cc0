#!/usr/bin/env python3
"""Unity batches compile a library's files together, so a file-local name
(anonymous namespace, file-scope static) that two files of one library both
define would merge: a redefinition at best, at worst a call that silently
resolves to the neighbour's better-matching overload. Prints every such name
shared within a library and exits 1 if there is one.

Usage: check-file-locals.py <dir>... [--shared <dir> <dir>...]
Each dir is one library's or test program's sources, less any other given
dir that lies inside it; the headers of a --shared dir count for the dirs
after it.
"""
import re
import sys
from collections import defaultdict
from pathlib import Path

RAW = re.compile(r'R"([^(\s]*)\(')


def strip(text):
    """The code with comments, string and character literals blanked."""
    out = []
    i, n = 0, len(text)
    while i < n:
        c = text[i]
        if text.startswith("//", i):
            j = text.find("\n", i)
            i = n if j < 0 else j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            i = n if j < 0 else j + 2
            out.append(" ")
        elif c == "R" and RAW.match(text, i) and (i == 0 or not (text[i - 1].isalnum() or text[i - 1] == "_")):
            m = RAW.match(text, i)
            end = text.find(")" + m.group(1) + '"', m.end())
            i = n if end < 0 else end + len(m.group(1)) + 2
            out.append('""')
        elif c in "\"'":
            # A digit separator (1'000) is no literal.
            if c == "'" and i > 0 and text[i - 1].isalnum() and i + 1 < n and text[i + 1].isalnum():
                i += 1
                continue
            j = i + 1
            while j < n and text[j] != c:
                j += 2 if text[j] == "\\" else 1
            out.append(c + c)
            i = j + 1
        elif c == "#" and (i == 0 or text[i - 1] == "\n"):
            # Preprocessor lines, continuation lines included; a #define is
            # reported as a name of its own.
            j = i
            while True:
                k = text.find("\n", j)
                if k < 0 or text[k - 1] != "\\":
                    break
                j = k + 1
            line = text[i : (n if k < 0 else k)]
            m = re.match(r"#\s*define\s+(\w+)", line)
            if m:
                out.append(f"\x00define {m.group(1)};")
            i = n if k < 0 else k
        else:
            out.append(c)
            i += 1
    return "".join(out)


IDENT = re.compile(r"[A-Za-z_]\w*")
# Overloads that JSONFields finds for each record type, each constrained to
# exactly its own type: a neighbour's cannot match better.
CUSTOMISATION_POINTS = {"fields", "toJSON", "fromJSON"}
KEYWORDS = {"const", "constexpr", "static", "inline", "consteval", "constinit", "thread_local", "extern",
            "volatile", "mutable", "unsigned", "signed", "operator", "template", "typename", "noexcept"}


def declared(chunk):
    """The name a declaration at namespace scope introduces, or None."""
    chunk = chunk.strip()
    if chunk.startswith("\x00define "):
        return "#define " + chunk[8:].rstrip(";").strip()
    # Drop leading template parameter lists.
    while chunk.startswith("template"):
        depth, i = 0, chunk.find("<")
        if i < 0:
            return None
        for j in range(i, len(chunk)):
            depth += {"<": 1, ">": -1}.get(chunk[j], 0)
            if depth == 0:
                chunk = chunk[j + 1 :].strip()
                break
        else:
            return None
    m = re.match(r"(?:enum\s+(?:class\s+|struct\s+)?|struct\s+|class\s+|union\s+)(\w+)", chunk)
    if m:
        return m.group(1)
    m = re.match(r"using\s+(\w+)\s*=(.*)", chunk, re.S)
    if m:
        # Two files may alias one name to the same type: the batch then
        # repeats a harmless redeclaration.
        return m.group(1) + "=" + re.sub(r"\s+", "", m.group(2)).rstrip(";")
    m = re.match(r"using\s+((?:\w+::)+(\w+))\s*;?$", chunk)
    if m:
        return m.group(2) + "=" + m.group(1)
    if chunk.startswith(("using ", "namespace", "static_assert", "extern \"")) or not chunk:
        return None
    # A function or variable: the identifier before the first of ( = { [ ;
    # outside template arguments.
    depth = 0
    for i, c in enumerate(chunk):
        if c == "<":
            depth += 1
        elif c == ">" and depth:
            depth -= 1
        elif depth == 0 and c in "(={[;":
            if "operator" in chunk[:i]:
                return None
            names = [w for w in IDENT.findall(chunk[:i]) if w not in KEYWORDS]
            # A macro's expansion (TEST(...)) declares no name we can see.
            if not names or (c == "(" and re.fullmatch(r"[A-Z][A-Z0-9_]+", names[-1])):
                return None
            return names[-1]
    # A variable initialised with braces.
    names = [w for w in IDENT.findall(chunk) if w not in KEYWORDS]
    return names[-1] if names and depth == 0 else None


def file_locals(text, everything=False):
    """Names declared in anonymous namespaces or as file-scope statics; with
    `everything`, every name declared at namespace scope."""
    code = strip(text)
    names = set()
    # Stack of scopes: "ns" (named namespace), "anon", or "block".
    stack = []
    chunk_start = 0
    i, n = 0, len(code)

    def scope_kind():
        for kind in reversed(stack):
            if kind != "ns":
                return kind
        return "ns"

    def take(end):
        chunk = code[chunk_start:end]
        name = declared(chunk)
        if not name:
            return
        kind = scope_kind()
        if everything or kind == "anon" or name.startswith("#define") or (kind == "ns" and re.match(r"\s*static\b", chunk)):
            names.add(name)

    while i < n:
        c = code[i]
        if c == "\x00":
            # A #define marker: its own chunk, wherever it stands.
            j = code.find(";", i)
            names.add(declared(code[i : j + 1]))
            i = j + 1
            chunk_start = i
            continue
        if c == "{":
            head = code[chunk_start:i]
            at_ns_level = not stack or stack[-1] in ("ns", "anon")
            if at_ns_level and re.search(r"(^|\W)namespace\s*$", head):
                stack.append("anon")
                chunk_start = i + 1
            elif at_ns_level and re.search(r"(^|\W)namespace\s+[\w:]+\s*$", head):
                stack.append("ns")
                chunk_start = i + 1
            elif at_ns_level and re.match(r'\s*extern\s*""\s*$', head):
                stack.append("ns")
                chunk_start = i + 1
            else:
                if at_ns_level:
                    take(i)
                stack.append("block")
            i += 1
            continue
        if c == "}":
            kind = stack.pop() if stack else "ns"
            i += 1
            if kind != "block" or not stack or stack[-1] in ("ns", "anon"):
                # After a class body a declarator list may follow up to ";";
                # after a function body or namespace, the next chunk begins.
                rest = code[i:]
                m = re.match(r"\s*;", rest)
                if m:
                    i += m.end()
                chunk_start = i
            continue
        if c == ";" and (not stack or stack[-1] in ("ns", "anon")):
            take(i)
            chunk_start = i + 1
        i += 1
    return names


def header_names(paths):
    """Names that headers declare at namespace scope, with the headers."""
    names = defaultdict(set)
    for path in paths:
        for name in file_locals(path.read_text(), everything=True):
            names[name.split("=")[0]].add(str(path))
    return names


def main(args):
    # "--shared <dir>": that folder's headers (test support) are seen by the
    # files of every folder named after it.
    dirs, shared = [], {}
    support = []
    it = iter(args)
    for a in it:
        if a == "--shared":
            support.append(next(it))
        else:
            dirs.append(a)
            shared[a] = list(support)
    clashes = 0
    for d in dirs:
        shared_names = header_names(h for s in shared[d] for h in Path(s).rglob("*.h"))
        owners = defaultdict(set)
        # A folder given on its own is another batch set, not part of this one.
        others = [Path(o) for o in dirs if o != d and Path(o).is_relative_to(d)]
        for path in sorted(Path(d).rglob("*.cpp")):
            if any(path.is_relative_to(o) for o in others):
                continue
            for name in file_locals(path.read_text()):
                owners[name].add(str(path))
        names = defaultdict(set)
        for name in owners:
            names[name.split("=")[0]].add(name)
        for name, spellings in sorted(names.items()):
            files = sorted(set().union(*(owners[s] for s in spellings)))
            if len(files) > 1 and (len(spellings) > 1 or name in owners) and name not in CUSTOMISATION_POINTS:
                clashes += 1
                print(f"{d}: {name}: " + " ".join(files))
        # A file-local name that a header of the folder (or a shared one)
        # declares: in a batch where a neighbour includes that header, the
        # two meet. A using-declaration of that very name is no clash.
        headers = header_names(h for h in Path(d).rglob("*.h") if not any(h.is_relative_to(o) for o in others))
        for name, spellings in sorted(names.items()):
            if name in CUSTOMISATION_POINTS or name not in owners:
                continue
            declared_in = sorted(headers.get(name, set()) | shared_names.get(name, set()))
            if declared_in:
                clashes += 1
                print(f"{d}: {name}: " + " ".join(sorted(owners[name])) + " and " + " ".join(declared_in))
    return 1 if clashes else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
