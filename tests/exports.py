#!/usr/bin/env python3
"""The library exports what its header declares and what the table of operations lists, and nothing else.

Compares what it is given of these with each other, argument names of table and header included. Of a static library every
global symbol counts, also those of inline functions and templates.
"""
import argparse
import json
import re
import subprocess
import sys

CLASS = "CUtils_SSE"


def plain_type(text):
    """A type as demanglers print it: `const float*` becomes `float const*`."""
    text = " ".join(text.split()).replace(" *", "*").replace(" &", "&")
    return re.sub(r"^const ([\w ]+?)(?=[*&]|$)", r"\1 const", text)


def declarations(header):
    """{signature: (result type, parameter names)} of the public functions."""
    with open(header, encoding="utf-8") as file:
        text = file.read()
    text = re.sub(r"/\*.*?\*/|//[^\n]*", "", text, flags=re.S)
    text = re.sub(r"^\s*#.*?(?<!\\)$", "", text, flags=re.M)
    body = re.search(r"class\s+UTILS_SSE_API\s+" + CLASS + r"\s*\{(.*?)\};", text, flags=re.S).group(1)
    found = {}
    for statement in body.replace("public:", "").split(";"):
        statement = " ".join(statement.replace("UTILS_SSE_CALL", "").split())
        if not statement:
            continue
        match = re.fullmatch(r"(?:static )?(.+?) ?(operator=|\w+)\((.*)\)", statement)
        if not match:
            sys.exit(f"{header}: cannot read this declaration: {statement}")
        parameters = [re.fullmatch(r"(.+?)(\w+)", p.strip()).groups() for p in match[3].split(",") if p.strip()]
        types = ", ".join(plain_type(p[0].strip()) for p in parameters)
        found[f"{CLASS}::{match[2]}({types})"] = (plain_type(match[1]), [p[1] for p in parameters])
    return found


def symbols(library, nm, which):
    """Demangled names of what an ELF library or an archive defines."""
    output = subprocess.run([nm, which, "-C", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    return {line.split(maxsplit=2)[2] for line in output.splitlines() if len(line.split(maxsplit=2)) == 3}


def exported_by_dll(library, objdump):
    output = subprocess.run([objdump, "-p", library], check=True, capture_output=True, text=True).stdout
    names = re.findall(r"^\t\[ *\d+\] (\S+)$", output[output.index("[Ordinal/Name Pointer] Table") :], flags=re.M)
    demangled = subprocess.run(["c++filt"], input="\n".join(names), check=True, capture_output=True, text=True).stdout
    return set(demangled.splitlines())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--header", required=True, help="utils_sse.h")
    parser.add_argument("--table", nargs="+", help="command that prints the table: utils_sse_operations")
    parser.add_argument("--library", help="the dynamic library")
    parser.add_argument("--archive", help="the static library")
    parser.add_argument("--nm", default="nm")
    parser.add_argument("--objdump", default="objdump")
    options = parser.parse_args()

    declared = declarations(options.header)
    sets = {"header": set(declared)}
    operations = listed = {}
    if options.table:
        table = json.loads(subprocess.run(options.table, check=True, capture_output=True, text=True).stdout)
        operations = {entry["signature"]: entry for entry in table["operations"]}
        listed = {**operations, **{entry["signature"]: entry for entry in table["other_exports"]}}
        sets["table"] = set(listed)
    if options.library:
        dll = options.library.endswith(".dll")
        sets["library"] = exported_by_dll(options.library, options.objdump) if dll else symbols(options.library, options.nm, "--dynamic")
    if options.archive:
        sets["static library"] = symbols(options.archive, options.nm, "--extern-only")
    faults = []
    for here, names in sets.items():
        for there, others in sets.items():
            faults += [f"in the {here}, not in the {there}: {name}" for name in sorted(names - others)]
    for signature in sorted(set(declared) & set(listed)):
        result, names = declared[signature]
        if result != listed[signature]["result"]:
            faults.append(f"{signature}: returns {result} in the header, {listed[signature]['result']} in the table")
        if signature in operations:
            in_table = [argument["name"] for argument in operations[signature]["arguments"]]
            if in_table != names:
                faults.append(f"{signature}: arguments are {names} in the header, {in_table} in the table")
    for fault in faults:
        print(fault)
    if len(sets) < 2 or not all(sets.values()):
        print("nothing to compare: " + ", ".join(f"{len(names)} in the {where}" for where, names in sets.items()))
        return 1
    print(f"{len(faults)} differences; " + ", ".join(f"{len(names)} in the {where}" for where, names in sets.items()))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
