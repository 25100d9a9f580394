"""The code blocks of the pages. What follows ``` says what becomes of a block:

    cpp from=FILE        (any language) lines of that file, which something else compiles or writes
    cpp run              compiled as C++17 and run: a program, or statements in a function
    console              "$ command" lines are run, and print what follows them (run-page)
    cmake file=NAME      in README.md: what a new user writes into that file, which first-minutes does, too
    sh steps             in README.md: what a new user types next
    text illustration    not run, on purpose: a drawing, a synopsis, commands for another machine
"""

import os
import re
import subprocess
import sys
import textwrap


def pages(root):
    listed = subprocess.run(
        ["git", "-c", f"safe.directory={root}", "-C", root, "ls-files", "--cached", "--others",
         "--exclude-standard", "--", "*.md"], check=True, capture_output=True, text=True).stdout
    return [page for page in sorted(set(listed.split("\n"))) if page and os.path.exists(os.path.join(root, page))]


class Block:
    def __init__(self, page, line, info):
        self.page, self.line, self.words, self.text = page, line, info.split(), ""

    def place(self):
        return f"{self.page}:{self.line}"

    def source(self):
        for word in self.words:
            if word.startswith("from="):
                return word[len("from="):]
        return None


def blocks(root, page):
    found, block = [], None
    with open(os.path.join(root, page), encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            if re.match(r"^\s*```", line):
                if block is None:
                    block = Block(page, number, line.strip()[3:])
                else:
                    block.text = textwrap.dedent(block.text)
                    found.append(block)
                    block = None
            elif block is not None:
                block.text += line
    if block is not None:
        sys.exit(f"{page}: the block of line {block.line} does not end")
    return found


def is_part_of(text, whole):
    """Whether the file has the lines in a row, indented or not."""
    part = text.rstrip("\n").split("\n")
    lines = whole.split("\n")
    for start in range(len(lines) - len(part) + 1):
        window = "\n".join(lines[start:start + len(part)])
        if textwrap.dedent(window) == "\n".join(part):
            return True
    return False
