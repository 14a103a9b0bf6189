#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Fails when a page of a site names a file or an anchor that is not there, or loads anything from elsewhere.

Usage: check_links.py SITE
"""
import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit


class Page(HTMLParser):
    def __init__(self, text: str) -> None:
        super().__init__()
        self.anchors: "set[str]" = set()
        self.links: "list[tuple[str, str]]" = []  # tag and target
        self.feed(text)

    def handle_starttag(self, tag: str, attributes: "list[tuple[str, str | None]]") -> None:
        for name, value in attributes:
            if name in ("id", "name") and value:
                self.anchors.add(value)
            elif name in ("href", "src") and value:
                self.links.append((tag, value))


def main() -> int:
    site = Path(sys.argv[1]).resolve()
    pages = {path: Page(path.read_text(encoding="utf-8")) for path in sorted(site.rglob("*.html"))}
    wrong, count = [], 0
    for path, page in pages.items():
        for tag, link in page.links:
            parts = urlsplit(link)
            if parts.scheme in ("http", "https", "mailto", "data") or parts.netloc:
                if tag != "a" and parts.scheme != "data":
                    wrong.append(f"{path.relative_to(site)} loads {link}")
                continue
            count += 1
            target = (path.parent / unquote(parts.path)).resolve() if parts.path else path
            if target.is_dir():
                target /= "index.html"
            if not target.is_file() or site not in target.parents:
                wrong.append(f"{path.relative_to(site)}: {link} leads nowhere")
            elif parts.fragment and target in pages and unquote(parts.fragment) not in pages[target].anchors:
                wrong.append(f"{path.relative_to(site)}: no {link} there")
    for line in wrong:
        print(line, file=sys.stderr)
    print(f"{len(pages)} pages, {count} links, {len(wrong)} of them wrong")
    return 1 if wrong or not pages else 0


if __name__ == "__main__":
    sys.exit(main())
