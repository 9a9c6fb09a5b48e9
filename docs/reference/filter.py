#!/usr/bin/env python3
"""Reads utils_sse.h for Doxygen: a page for the rules and one for each subsystem instead of one page for the whole class.

usage: filter.py HEADER, which Doxygen calls. Every line stays on its line.
"""
import re
import sys


def group(match):
    title = match[1].strip()
    return f"@defgroup {re.sub(r'[^a-z0-9]+', '_', title.lower())} {title}"


text = open(sys.argv[1], encoding="utf-8").read()
text, rules = re.subn(r" \*  @section rules (.*)", r" */ /** @page rules \1", text)
text, groups = re.subn(r"@name (.*)", group, text)
if rules != 1 or groups < 10:
    sys.exit(f"{sys.argv[1]}: {rules} sections of rules and {groups} subsystems, expected 1 and 10 at least")
print(text, end="")
