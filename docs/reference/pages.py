#!/usr/bin/env python3
"""Writes the parts of the reference that come from the table of operations: facts.md and subsystems.html.

usage: pages.py TABLE TAGS OUTPUT_FOLDER

TABLE is what utils_sse_operations prints, TAGS the tag file of a first run of Doxygen, which knows where each function is
described; before that run it does not exist, and nothing is linked.
"""
import html
import json
import pathlib
import re
import sys
import xml.etree.ElementTree as xml


def plain(signature):
    """Types alone, in one spelling: `(float *dst, const float *a)` and `(float*, float const*)` become the same."""
    types = []
    for parameter in signature.strip("()").split(","):
        words = re.findall(r"\w+|[*&]", parameter)
        types.append("".join(sorted(w for w in words if w in TYPE_WORDS)))
    return ",".join(types)


TYPE_WORDS = {"const", "unsigned", "float", "int", "short", "char", "double", "long", "void", "*", "&"}


def read_tags(path):
    """{(name, parameter types): address}, {title of a subsystem: address}"""
    functions, groups = {}, {}
    if not path.exists():
        return functions, groups
    for compound in xml.parse(path).getroot().iter("compound"):
        if compound.get("kind") == "group":
            groups[compound.findtext("title")] = compound.findtext("filename")
        for member in compound.iter("member"):
            address = f"{member.findtext('anchorfile')}#{member.findtext('anchor')}"
            functions[member.findtext("name"), plain(member.findtext("arglist"))] = address
    return functions, groups


def link(address, text):
    return f'<a href="{address}">{html.escape(text)}</a>' if address else html.escape(text)


# ---- Formulas of the table over n, put into words by trying them -----------------------------------------------------

FORMULA_WORDS = {
    "span": lambda repeats, step, length: (repeats - 1) * step + length if repeats > 0 and length > 0 else 0,
    "equal": lambda x, y: int(x == y),
    "min": min,
    "max": max,
}


def ranges(values):
    """[8, 10, 11, 12] becomes "8, 10 to 12"."""
    runs = []
    for value in values:
        if runs and value == runs[-1][1] + 1:
            runs[-1][1] = value
        else:
            runs.append([value, value])
    return ", ".join(str(a) if a == b else f"{a} to {b}" for a, b in runs)


def where(formula, count):
    """{value of the formula: for which counts}; an empty text stands for all counts."""
    expression = compile(formula.replace("/", "//"), formula, "eval")
    tried = range(1, 200)
    by_value = {}
    for number in tried:
        by_value.setdefault(eval(expression, {**FORMULA_WORDS, count: number}), []).append(number)
    return {value: "" if len(numbers) == len(tried) else f"for {count} = {ranges(numbers)}"
            for value, numbers in by_value.items() if value}


def in_words(arguments, key, count):
    """What the formula `key` of each argument says, arguments of one saying together."""
    sayings = {}
    for argument in arguments:
        for value, condition in where(argument.get(key, "0"), count).items():
            sayings.setdefault((value, condition), []).append(argument["name"])
    return [f"{value} of {', '.join(names)} {condition}".strip() for (value, condition), names in sayings.items()]


# ---- The table -------------------------------------------------------------------------------------------------------


def sharing(operation):
    """Pairs of one destination in one line, then larger sets."""
    pairs = {}
    for names in operation["may_equal"]:
        if len(names) == 2:
            pairs.setdefault(names[0], []).append(names[1])
    lines = [f"{first} = {', '.join(others)}" for first, others in pairs.items()]
    lines += [" = ".join(names) for names in operation["may_equal"] if len(names) > 2]
    return "\n".join(lines + ([operation["may_equal_sometimes"]] if operation["may_equal_sometimes"] else []))


def facts_of(operation):
    arguments = [argument for argument in operation["arguments"] if "extent" in argument]
    length = next(a["name"] for a in operation["arguments"] if a.get("length"))
    alignment = {}
    for argument in arguments:
        if argument["alignment"] >= 16:
            conditions = where(argument["aligned_where"], length).values() if "aligned_where" in argument else [""]
            for condition in conditions:
                alignment.setdefault((argument["alignment"], condition), []).append(argument["name"])
    beyond = in_words(arguments, "reads_beyond", length)
    before = [text.replace(" of ", " before ") for text in in_words(arguments, "reads_before", length)]
    return [
        str(operation["block"]),
        "\n".join(f"{bytes_}: {', '.join(names)} {condition}".strip() for (bytes_, condition), names in alignment.items()),
        sharing(operation),
        "\n".join(beyond + before),
        operation["writes_beyond"] or "",
        operation["body_and_tail"] or "",
        operation["instruction_set"],
    ]


COLUMNS = {"Function": "function", "Block": "number", "Alignment": "words", "In place": "sharing", "Reads outside": "words",
           "Writes besides": "words", "Body and tail differ": "difference", "Instructions": "number"}

INTRODUCTION = """# Facts of every function {#facts}

The @ref rules "rules" as a table. It is made from the table of operations that the tests run on: what stands here about alignment, sharing
and reads is tried on the compiled library. An empty cell means that the rules hold as they are.

- **Block:** elements in one step of the body; the rest is the tail.
- **Alignment:** bytes, and the arguments that need them. All others may lie anywhere.
- **In place:** destinations that may equal one of the arrays named, or where three or more are joined, all of them at once. A list of frames
  stands for any of these. Every other overlap of a destination is outside the contract.
- **Reads outside:** elements behind an array that may be read and do not matter, and elements before its start that take part.
- **Writes besides:** what a function writes within its outputs besides its results.

"""


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    operations = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))["operations"]
    tags, folder = pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    functions, groups = read_tags(tags)

    rows, section = [], None
    for operation in operations:
        if operation["section"] != section:
            section = operation["section"]
            rows.append(f'<tr class="section"><th colspan="{len(COLUMNS)}">{link(groups.get(section), section)}</th></tr>')
        key = operation["name"], plain(operation["signature"].split("(", 1)[1])
        if functions and (key not in functions or section not in groups):
            sys.exit(f"{tags}: no {operation['signature']} of {section!r}, which the table of operations has")
        title = operation["name"] + (f" ({operation['overload']})" if operation["overload"] else "")
        facts = [html.escape(fact).replace("\n", "<br>") for fact in facts_of(operation)]
        cells = zip(COLUMNS.values(), [link(functions.get(key), title)] + facts)
        rows.append("<tr>" + "".join(f'<td class="{kind}">{cell}</td>' for kind, cell in cells) + "</tr>")
    head = "".join(f'<th class="{kind}">{column}</th>' for column, kind in COLUMNS.items())
    body = "\n".join(rows)
    table = f'@htmlonly\n<table class="facts"><thead><tr>{head}</tr></thead><tbody>\n{body}\n</tbody></table>\n@endhtmlonly\n'
    (folder / "facts.md").write_text(INTRODUCTION + table, encoding="utf-8")

    items = "".join(f"<li>{link(address, title)}</li>\n" for title, address in groups.items())
    (folder / "subsystems.html").write_text(f'<ul class="subsystems">\n{items}</ul>\n', encoding="utf-8")
    print(f"{len(operations)} functions, {len(groups)} subsystems")


if __name__ == "__main__":
    main()
