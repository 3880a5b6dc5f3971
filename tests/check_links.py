#!/usr/bin/env python3
"""Every link of the documents leads somewhere: files, pictures, and headings by the anchor that they get.

Also every document stands in the page of contents. Prints what is wrong and fails.
Usage: check_links.py SOURCE_DIR
"""
import os
import re
import sys
from pathlib import Path

root = Path(sys.argv[1]).resolve()
places = [".", "docs", "verify"]
documents = sorted(path for place in places for path in (root / place).glob("*.md"))
faults = []
links = 0


def prose(path):
    """The text without fenced blocks and code."""
    text = re.sub(r"^```.*?^```", "", path.read_text(), flags=re.S | re.M)
    return re.sub(r"`[^`\n]*`", lambda code: code[0].replace("](", "] ("), text)


def anchors(path):
    """Of the headings: lower case, blanks as dashes, without punctuation; a number where one comes again."""
    seen = {}
    for heading in re.findall(r"^#{1,6} +(.*)$", prose(path), flags=re.M):
        plain = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading).strip().lower()
        anchor = re.sub(r"[^\w\- ]", "", plain).replace(" ", "-")
        count = seen[anchor] = seen.get(anchor, -1) + 1
        yield anchor if count == 0 else f"{anchor}-{count}"


for document in documents:
    for link in re.findall(r"\]\(([^)\s]+)\)", prose(document)):
        links += 1
        if re.match(r"[a-z]+:", link):
            continue
        path, _, anchor = link.partition("#")
        target = Path(os.path.normpath(document.parent / path)) if path else document
        if not target.exists():
            faults.append(f"{document.relative_to(root)}: {link} leads nowhere")
        elif anchor and anchor not in anchors(target):
            faults.append(f"{document.relative_to(root)}: {link}: no such heading")

listed = {os.path.normpath(root / "docs" / link) for link in re.findall(r"\]\(([^)#]+)\)", prose(root / "docs/README.md"))}
for document in documents:
    if str(document) not in listed and document != root / "docs/README.md":
        faults.append(f"{document.relative_to(root)}: not in docs/README.md")

print("\n".join(faults) or f"{links} links in {len(documents)} documents")
sys.exit(bool(faults) or links < 50)
