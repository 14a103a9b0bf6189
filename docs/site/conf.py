# SPDX-License-Identifier: Apache-2.0
# Sphinx configuration of the site. QZMATH_VERSION, DOXYGEN_XML and KATEX_DIR come from the build.
import html
import logging
import os
import shutil
from pathlib import Path

from docutils import nodes
from sphinx import addnodes
from sphinx.transforms.post_transforms import SphinxPostTransform

project = "QZmath"
author = "the QZmath developers"
project_copyright = author + ", Apache License 2.0"
version = release = os.environ["QZMATH_VERSION"]
extensions = ["myst_parser", "breathe", "sphinx.ext.autodoc", "sphinx.ext.napoleon"]
myst_enable_extensions = ["dollarmath"]
myst_heading_anchors = 3
breathe_projects = {"qzmath": os.environ["DOXYGEN_XML"]}
breathe_default_project = "qzmath"
highlight_language = "none"
cpp_id_attributes = ["QZMATH_API", "QZMATH_FILES_API", "QZSYS_API"]
html_theme = "furo"
html_title = f"QZmath {release}"
html_static_path = ["static"]
html_css_files = ["katex/katex.min.css", "site.css"]
html_js_files = ["katex/katex.min.js", "formulas.js"]
html_copy_source = False
html_show_sourcelink = False
html_show_sphinx = False
# Code in comments that is no whole statement.
suppress_warnings = ["misc.highlighting_failure"]
breathe_show_include = False
autodoc_typehints = "none"
napoleon_use_rtype = False
napoleon_use_ivar = True  # attributes are members that have a line of their own
toc_object_entries = False


class NamespacesComeAgain(logging.Filter):
    """Each header opens its namespace, which the C++ domain takes for a repetition."""

    def filter(self, record):
        return "Duplicate C++ declaration" not in str(record.msg)


logging.getLogger("sphinx.sphinx.domains.cpp").addFilter(NamespacesComeAgain())


def formula(display):
    """KaTeX sets the formulas in the reader's browser, from files of the site."""

    def visit(self, node):
        tag = "div" if display else "span"
        kind = "formula display" if display else "formula"
        self.body.append(f'<{tag} class="{kind}">{html.escape(node.astext())}</{tag}>')
        raise nodes.SkipNode

    return visit


class NamesLeadToTheReference(SphinxPostTransform):
    """Code in the text of a page that is the name of something in the reference becomes a link to it."""

    default_priority = 5

    def run(self, **kwargs):
        domain = self.env.get_domain("cpp")
        if not hasattr(self.env, "qz_names"):
            self.env.qz_names = {}
            for name, _, kind, document, anchor, _ in domain.get_objects():
                if kind in ("class", "struct", "enum", "function", "type", "member", "union"):
                    for short in {name, name.split("::")[-1]}:
                        self.env.qz_names.setdefault(short, (document, anchor))
        if self.env.docname.startswith("reference/"):
            return
        for literal in list(self.document.findall(nodes.literal)):
            target = self.env.qz_names.get(literal.astext().removesuffix("()"))
            if target is None or isinstance(literal.parent, nodes.reference) or "::" not in literal.astext() and \
                    literal.astext()[:1].islower():
                continue
            document, anchor = target
            uri = self.app.builder.get_relative_uri(self.env.docname, document) + "#" + anchor
            link = nodes.reference("", "", internal=True, refuri=uri)
            literal.parent.replace(literal, link)
            link.append(literal)


def copy_katex(app, exception):
    if exception is None and app.builder.format == "html":
        source, target = Path(os.environ["KATEX_DIR"]), Path(app.outdir) / "_static" / "katex"
        target.mkdir(parents=True, exist_ok=True)
        for name in ("katex.min.js", "katex.min.css"):
            shutil.copy(source / name, target)
        shutil.copytree(source / "fonts", target / "fonts", dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("*.ttf", "*.woff"))


def setup(app):
    app.add_html_math_renderer("katex", (formula(False), None), (formula(True), None))
    app.config.html_math_renderer = "katex"
    app.add_post_transform(NamesLeadToTheReference)
    app.connect("build-finished", copy_katex)
