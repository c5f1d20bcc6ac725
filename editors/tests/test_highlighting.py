"""Every keyword of the language's table is highlighted by both grammars:
the TextMate grammar (through a small tokenizer of the grammar engine) and
the Vim syntax file (through Vim itself, asked for the syntax group of every
character). The keyword lists come from qz_keywords, which prints the tables
the interpreter runs on."""
import json
import os
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
EDITORS = os.path.dirname(HERE)
sys.path.insert(0, HERE)
from textmate import Grammar  # noqa: E402

KEYWORDS = json.loads(subprocess.run([os.environ.get("QZ_KEYWORDS", "qz_keywords")], check=True,
                                     capture_output=True, text=True).stdout)
CONTROL = {"CAL", "EXEC", "JMP", "JMPF", "JMPT", "RET"}

# What each kind of word is shown as: (TextMate scope, Vim group).
EXPECTED = {
    "sections": ("keyword.other.section.qz", "qzSection"),
    "kinds": ("storage.modifier.kind.qz", "qzKind"),
    "types": ("storage.type.qz", "qzType"),
    "operands": ("variable.language.register.qz", "qzOperand"),
    "control": ("keyword.control.qz", "qzControl"),
    "instructions": ("keyword.other.instruction.qz", "qzInstruction"),
}


def keyword_lines():
    """(word, category) for every keyword of the table."""
    rows = []
    for category in ("sections", "kinds", "types", "operands"):
        rows += [(word, category) for word in KEYWORDS[category]]
    for info in KEYWORDS["instructions"]:
        rows.append((info["name"], "control" if info["name"] in CONTROL else "instructions"))
    return rows


# Lines in context, each with the word to look at and what it must be shown as.
CONTEXT = [
    ("    MOV     @MOV        R0", 13, ("variable.other.qz", "qzVariable")),       # '@MOV' is a variable
    ("    MOV     ^P          R0", 13, ("variable.other.reference.qz", "qzReference")),
    ("    mov     @A          R0", 4, ("", "")),                                  # not a keyword: case matters
    ("    MOV.X   @A          R0", 4, ("", "")),                                  # one name, no keyword
    ("    (* MOV R0 *)", 7, ("comment.block.qz", "qzComment")),
    ("    // MOV R0", 7, ("comment.line.double-slash.qz", "qzComment")),
    ("LOOP:", 0, ("entity.name.label.qz", "qzLabel")),
    ("    JMPF    LOOP", 12, ("entity.name.label.qz", "qzJumpTarget")),
    ("    EXEC    sqrt", 12, ("support.function.builtin.qz", "qzBuiltin")),
    ("    MOV     16#FF       R0", 12, ("constant.numeric.qz", "qzNumber")),
    ("    MOV     -2.5E3      R0", 12, ("constant.numeric.qz", "qzNumber")),
]


def vim_groups(text):
    """Vim's syntax group for every character, line by line."""
    with tempfile.TemporaryDirectory() as tmp:
        source = os.path.join(tmp, "probe.qz")
        result = os.path.join(tmp, "groups.txt")
        with open(source, "w", encoding="utf-8") as f:
            f.write(text)
        probe = os.path.join(tmp, "probe.vim")
        with open(probe, "w") as f:
            f.write("let out = []\n"
                    "for l in range(1, line('$'))\n"
                    "  let names = []\n"
                    "  for c in range(1, col([l, '$']) - 1)\n"
                    "    call add(names, synIDattr(synID(l, c, 1), 'name'))\n"
                    "  endfor\n"
                    "  call add(out, join(names, ','))\n"
                    "endfor\n"
                    "call add(out, &filetype)\n"
                    "call writefile(out, '%s')\n" % result)
        subprocess.run(["vim", "-N", "-u", "NONE", "-i", "NONE", "-n", "-es",
                        "--cmd", "set rtp^=" + os.path.join(EDITORS, "vim"),
                        "-c", "filetype on", "-c", "syntax on", "-c", "edit " + source,
                        "-c", "source " + probe, "-c", "qa!"], check=True, timeout=120)
        with open(result) as f:
            lines = f.read().split("\n")
    filetype = lines[-2]
    return [line.split(",") if line else [] for line in lines[:-2]], filetype


class Highlighting(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.rows = keyword_lines()
        lines = ["    " + word for word, _ in cls.rows] + [line for line, _, _ in CONTEXT]
        cls.text = "\n".join(lines) + "\n"
        cls.textmate = Grammar(os.path.join(EDITORS, "vscode", "syntaxes", "qz.tmLanguage.json")).scopes(cls.text)
        cls.vim, cls.filetype = vim_groups(cls.text)

    def test_the_table_has_every_keyword(self):
        self.assertEqual(len(self.rows), 65)

    def test_every_keyword_is_highlighted_by_the_textmate_grammar(self):
        for i, (word, category) in enumerate(self.rows):
            self.assertEqual(self.textmate[i][4:4 + len(word)], [EXPECTED[category][0]] * len(word), word)

    def test_every_keyword_is_highlighted_by_the_vim_syntax(self):
        self.assertEqual(self.filetype, "qz")
        for i, (word, category) in enumerate(self.rows):
            self.assertEqual(self.vim[i][4:4 + len(word)], [EXPECTED[category][1]] * len(word), word)

    def test_words_in_context(self):
        first = len(self.rows)
        for k, (line, column, (scope, group)) in enumerate(CONTEXT):
            self.assertEqual(self.textmate[first + k][column], scope, line)
            self.assertEqual(self.vim[first + k][column] if column < len(self.vim[first + k]) else "", group, line)

    def test_a_comment_spans_lines_and_blank_lines(self):
        text = "(*\n    MOV 1\n\n    MOV 2 R0\n*)\nPROG X\n"
        textmate = Grammar(os.path.join(EDITORS, "vscode", "syntaxes", "qz.tmLanguage.json")).scopes(text)
        vim, _ = vim_groups(text)
        for line in (1, 3):
            self.assertEqual(textmate[line][4], "comment.block.qz")
            self.assertEqual(vim[line][4], "qzComment")
        self.assertEqual(textmate[5][0], "keyword.other.section.qz")
        self.assertEqual(vim[5][0], "qzSection")

    def test_the_built_ins_after_exec_come_from_the_table(self):
        lines = "\n".join("    EXEC    " + name.lower() for name in KEYWORDS["builtins"]) + "\n"
        textmate = Grammar(os.path.join(EDITORS, "vscode", "syntaxes", "qz.tmLanguage.json")).scopes(lines)
        vim, _ = vim_groups(lines)
        for i, name in enumerate(KEYWORDS["builtins"]):
            self.assertEqual(textmate[i][12], "support.function.builtin.qz", name)
            self.assertEqual(vim[i][12], "qzBuiltin", name)


if __name__ == "__main__":
    unittest.main()
