#!/usr/bin/env python3
"""Makes the picture on docs/editors.md: an example program as Vim shows it
with editors/vim/syntax/qz.vim (exported by Vim's own :TOhtml), next to what
qzls answered for the same text (its diagnostics and a hover), rendered by
headless Chromium.

Usage: screenshot.py QZLS OUTPUT.png
"""
import html
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
sys.path.insert(0, os.path.join(ROOT, "tools", "qzls", "tests"))
import lsp_client  # noqa: E402

EXAMPLE = os.path.join(ROOT, "examples", "on_delay.qz")
# One deliberate slip, so that there is a diagnostic to show.
SLIP = ("    MOV     @TIMING     R0", "    MOV     @TIMNG      R0")


def vim_html(path, tmp):
    script = os.path.join(tmp, "export.vim")
    out = os.path.join(tmp, "export.html")
    with open(script, "w") as f:
        f.write("filetype on\nsyntax on\nset termguicolors\nset background=light\ncolorscheme default\n"
                "runtime plugin/tohtml.vim\nlet g:html_no_progress = 1\nlet g:html_number_lines = 1\n"
                "let g:html_use_css = 1\nedit %s\nTOhtml\nw! %s\nqa!\n" % (path, out))
    subprocess.run(["vim", "-N", "-u", "NONE", "-i", "NONE", "-n", "-es", "--cmd",
                    "set rtp^=" + os.path.join(HERE, "vim"), "-S", script], check=True, timeout=120,
                   capture_output=True)
    with open(out, encoding="utf-8") as f:
        page = f.read()
    style = re.search(r"<style>\s*<!--(.*?)-->\s*</style>", page, re.S).group(1)
    pre = re.search(r"(<pre id='vimCodeElement'>.*?</pre>)", page, re.S).group(1)
    return style, pre


def server_answers(text):
    client = lsp_client.Client()
    client.initialize()
    uri = "file:///examples/on_delay.qz"
    diagnostics = client.open(uri, text)["diagnostics"]
    lines = text.split("\n")
    sub = next(i for i, line in enumerate(lines) if line.strip().startswith("SUB "))
    hover = client.at("textDocument/hover", uri, sub, lines[sub].index("SUB") + 1)["result"]
    variable = next(i for i, line in enumerate(lines) if "@PT" in line and "LE" in line)
    hover_var = client.at("textDocument/hover", uri, variable, lines[variable].index("@PT") + 1)["result"]
    client.shutdown_and_exit()
    return diagnostics, [(sub, hover), (variable, hover_var)]


def markdown(text):
    return re.sub(r"`([^`]*)`", r"<code>\1</code>", html.escape(text))


def page(style, pre, diagnostics, hovers):
    items = []
    for d in diagnostics:
        start = d["range"]["start"]
        items.append("<li><b>%s %s</b> at %d:%d: %s</li>" % (
            "error" if d["severity"] == 1 else "warning", html.escape(d["code"]), start["line"] + 1,
            start["character"] + 1,
            "<br>".join(markdown(part) for part in d["message"].split("\n"))))
    for line, hover in hovers:
        items.append("<li><b>hover</b> on line %d: %s</li>" % (line + 1, markdown(hover["contents"]["value"])))
    return """<!DOCTYPE html><html><head><meta charset="UTF-8"><style>%s
body { margin: 16px; font-family: sans-serif; }
pre { font-size: 13px; border: 1px solid #ccc; padding: 8px; margin: 0; }
.panel { font-size: 13px; border: 1px solid #ccc; background: #f6f6f6; padding: 4px 12px; margin-top: 10px; }
code { background: #e8e8e8; padding: 0 2px; }
h1 { font-size: 15px; margin: 0 0 8px 0; }
</style></head><body>
<h1>examples/on_delay.qz with one variable misspelt: Vim's highlighting (editors/vim/syntax/qz.vim, exported by :TOhtml)</h1>
%s
<div class="panel"><p><b>What qzls answered for this text</b> (diagnostics on open; hovers)</p><ul>%s</ul></div>
</body></html>""" % (style, pre, "\n".join(items))


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    lsp_client.QZLS = sys.argv[1]
    with open(EXAMPLE, encoding="utf-8") as f:
        text = f.read()
    assert SLIP[0] in text
    text = text.replace(SLIP[0], SLIP[1], 1)
    with tempfile.TemporaryDirectory() as tmp:
        source = os.path.join(tmp, "on_delay.qz")
        with open(source, "w", encoding="utf-8") as f:
            f.write(text)
        style, pre = vim_html(source, tmp)
        diagnostics, hovers = server_answers(text)
        target = os.path.join(tmp, "page.html")
        with open(target, "w", encoding="utf-8") as f:
            f.write(page(style, pre, diagnostics, hovers))
        subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                        "--window-size=900,950", "--screenshot=" + os.path.abspath(sys.argv[2]),
                        "file://" + target], check=True, timeout=120, capture_output=True)


if __name__ == "__main__":
    main()
