"""What the server says about a program: diagnostics on open and change,
hover, definitions, references, completion, symbols and formatting, with
positions in UTF-16 and UTF-8."""
import glob
import os
import unittest

from lsp_client import Client, span

URI = "file:///work/lamp.qz"
SAMPLE = """(* A lamp that follows a button. *)
PROG LAMP_DEMO
VAR
    BUTTON  VI  BOOL 0      (* input *)
    LAMP    VO  BOOL 0
MAIN
    MOV     @BUTTON R0
    TST     R0
    JMPF    OFF
    MOV     1       @LAMP
    CAL     BLINK
    RET
OFF:
    MOV     0       @LAMP
RET
BLINK:
    N       V   DINT 0
BODY
    MOV     @N      R0
    DIV     @N      R0
RET
RET
"""
EXAMPLES = os.environ.get("QZ_EXAMPLES", "examples")


def location(line, begin, end):
    return {"uri": URI, "range": span(line, begin, end)}


class Session(unittest.TestCase):
    encodings = None

    def setUp(self):
        self.client = Client(self)
        self.client.initialize(self.encodings)

    def tearDown(self):
        self.assertEqual(self.client.shutdown_and_exit(), 0)

    def result(self, method, line, character, **extra):
        return self.client.at(method, URI, line, character, **extra)["result"]


class Diagnostics(Session):
    def test_open_publishes_the_checkers_diagnostics_with_their_ranges(self):
        params = self.client.open(URI, SAMPLE.replace("@LAMP\n    CAL", "@LAMPE\n    CAL"))
        self.assertEqual(params, {"uri": URI, "version": 1, "diagnostics": [{
            "range": span(9, 20, 26), "severity": 1, "code": "23", "source": "qz",
            "message": "variable not found (or not a valid reference)\ndid you mean `@LAMP`?"}]})

    def test_changes_republish_incremental_and_full(self):
        self.assertEqual(self.client.open(URI, SAMPLE)["diagnostics"], [])
        # Misspell the jump target: "OFF" -> "OFX" on line 8.
        params = self.client.change(URI, 2, [{"range": span(8, 14, 15), "text": "X"}])
        self.assertEqual(params, {"uri": URI, "version": 2, "diagnostics": [{
            "range": span(8, 12, 15), "severity": 1, "code": "22", "source": "qz",
            "message": "jump or call target label not found\ndid you mean `OFF`?"}, {
            "range": span(13, 4, 7), "severity": 2, "code": "unreachable", "source": "qz",
            "message": "no path from MAIN or a called subprogram reaches this instruction"}]})
        # Two changes in one notification, each relative to the text the one before left.
        params = self.client.change(URI, 3, [{"range": span(8, 12, 15), "text": "ON"},
                                             {"range": span(8, 12, 14), "text": "OFF"}])
        self.assertEqual(params["diagnostics"], [])
        params = self.client.change(URI, 4, [{"text": "PROG P VAR MAIN MOV @Q R0 RET"}])
        self.assertEqual([(d["code"], d["range"]) for d in params["diagnostics"]], [("23", span(0, 20, 22))])

    def test_comments_are_blanked_as_the_runner_blanks_them(self):
        text = ("PROG P\nVAR\n    X V DINT 0\nMAIN\n    (* MOV @NOPE R0\n   JMP NOWHERE *)\n"
                "    // MOV @NOPE2 R0\n    MOV @Y R0\nRET\n")
        self.assertEqual(self.client.open(URI, text)["diagnostics"], [{
            "range": span(7, 8, 10), "severity": 1, "code": "23", "source": "qz",
            "message": "variable not found (or not a valid reference)\ndid you mean `@X`?"}])
        params = self.client.change(URI, 2, [{"text": "PROG P\nVAR\nMAIN\n    MOV 1 R0 (* unclosed\nRET\n"}])
        self.assertEqual(params["diagnostics"], [{
            "range": span(3, 13, 15), "severity": 1, "code": "comment", "source": "qz",
            "message": "comment not closed: '(*' without '*)'"}])

    def test_warnings_have_warning_severity(self):
        text = "PROG P\nVAR\n    X V DINT 0\n    X V DINT 1\nMAIN\n    MOV @X R0\nRET\n"
        self.assertEqual(self.client.open(URI, text)["diagnostics"], [{
            "range": span(3, 4, 5), "severity": 2, "code": "duplicate-variable", "source": "qz",
            "message": "variable declared twice: the first declaration is the one used\n"
                       "`X` is declared first at 3:5; that declaration is the one used"}])

    def test_close_clears_the_diagnostics(self):
        self.client.open(URI, "PROG P VAR MAIN JMP NOWHERE RET")
        self.client.notify("textDocument/didClose", {"textDocument": {"uri": URI}})
        params = self.client.notification("textDocument/publishDiagnostics")["params"]
        self.assertEqual(params, {"uri": URI, "diagnostics": []})


class Hover(Session):
    def setUp(self):
        super().setUp()
        self.client.open(URI, SAMPLE)

    def test_an_instruction_shows_its_operands_and_effect_from_the_instruction_table(self):
        self.assertEqual(self.result("textDocument/hover", 19, 5), {
            "contents": {"kind": "markdown",
                         "value": "`DIV SOURCE REGISTER`: REGISTER := SOURCE / REGISTER "
                                  "(source first: DIV @A R0 is A / R0)"},
            "range": span(19, 4, 7)})
        self.assertEqual(self.result("textDocument/hover", 11, 4)["contents"]["value"],
                         "`RET`: ends the body: the cycle in MAIN, the subprogram otherwise")

    def test_a_variable_shows_its_declaration(self):
        self.assertEqual(self.result("textDocument/hover", 6, 14), {
            "contents": {"kind": "markdown",
                         "value": "variable `BUTTON`: VI BOOL, initial value 0 (line 4)"},
            "range": span(6, 13, 19)})
        self.assertEqual(self.result("textDocument/hover", 19, 13)["contents"]["value"],
                         "variable `N`: V DINT, initial value 0 (line 17)")

    def test_a_label_shows_where_it_is_declared(self):
        self.assertEqual(self.result("textDocument/hover", 8, 13), {
            "contents": {"kind": "markdown", "value": "label `OFF`, declared at line 13"},
            "range": span(8, 12, 15)})
        self.assertEqual(self.result("textDocument/hover", 10, 13)["contents"]["value"],
                         "subprogram `BLINK`, declared at line 16")
        self.assertEqual(self.result("textDocument/hover", 1, 7), {
            "contents": {"kind": "markdown", "value": "program `LAMP_DEMO`"}, "range": span(1, 5, 14)})

    def test_blanks_and_comments_have_no_hover(self):
        self.assertIsNone(self.result("textDocument/hover", 6, 2))
        self.assertIsNone(self.result("textDocument/hover", 0, 5))
        self.assertIsNone(self.result("textDocument/hover", 400, 0))


class Navigation(Session):
    def setUp(self):
        super().setUp()
        self.client.open(URI, SAMPLE)

    def test_definition_of_labels_subprograms_and_variables(self):
        self.assertEqual(self.result("textDocument/definition", 8, 12), location(12, 0, 3))
        self.assertEqual(self.result("textDocument/definition", 10, 16), location(15, 0, 5))
        self.assertEqual(self.result("textDocument/definition", 13, 22), location(4, 4, 8))
        self.assertEqual(self.result("textDocument/definition", 18, 13), location(16, 4, 5))
        self.assertIsNone(self.result("textDocument/definition", 7, 4))

    def test_references_with_and_without_the_declaration(self):
        self.assertEqual(self.result("textDocument/references", 4, 5, context={"includeDeclaration": True}),
                         [location(4, 4, 8), location(9, 21, 25), location(13, 21, 25)])
        self.assertEqual(self.result("textDocument/references", 9, 22, context={"includeDeclaration": False}),
                         [location(9, 21, 25), location(13, 21, 25)])
        self.assertEqual(self.result("textDocument/references", 15, 2, context={"includeDeclaration": False}),
                         [location(10, 12, 17)])
        self.assertEqual(self.result("textDocument/references", 7, 4, context={"includeDeclaration": True}), [])

    def test_symbols_are_the_program_its_labels_and_its_subprograms(self):
        self.assertEqual(self.client.request("textDocument/documentSymbol",
                                             {"textDocument": {"uri": URI}})["result"], [
            {"name": "LAMP_DEMO", "kind": 2, "range": span(1, 5, 3, 14), "selectionRange": span(1, 5, 14),
             "children": [{"name": "OFF", "kind": 20, "range": span(12, 0, 3), "selectionRange": span(12, 0, 3)}]},
            {"name": "BLINK", "kind": 12, "range": span(15, 0, 3, 21), "selectionRange": span(15, 0, 5),
             "children": []}])


class Completion(Session):
    def complete(self, text, line, character):
        self.client.open(URI, text)
        result = self.result("textDocument/completion", line, character)
        self.assertFalse(result["isIncomplete"])
        return result["items"]

    def labels(self, items):
        return [item["label"] for item in items]

    def test_variables_of_the_scope_after_at_and_caret(self):
        text = SAMPLE.replace("    MOV     @N      R0", "    MOV     @      R0")
        items = self.complete(text, 18, 13)
        self.assertEqual(items, [{"label": "N", "kind": 6, "detail": "V DINT",
                                  "textEdit": {"range": span(18, 13, 13), "newText": "N"}}])
        text = SAMPLE.replace("    TST     R0", "    MOV     ^BU")
        items = self.complete(text, 7, 15)
        self.assertEqual(self.labels(items), ["BUTTON", "LAMP"])
        self.assertEqual(items[0]["textEdit"], {"range": span(7, 13, 15), "newText": "BUTTON"})

    def test_labels_after_jumps_and_subprograms_after_cal(self):
        text = SAMPLE.replace("JMPF    OFF", "JMPF    ")
        self.assertEqual(self.labels(self.complete(text, 8, 12)), ["OFF"])
        text = SAMPLE.replace("CAL     BLINK", "CAL     B")
        items = self.complete(text, 10, 13)
        self.assertEqual(items, [{"label": "BLINK", "kind": 3, "detail": "subprogram",
                                  "textEdit": {"range": span(10, 12, 13), "newText": "BLINK"}}])

    def test_built_ins_after_exec(self):
        text = SAMPLE.replace("    DIV     @N      R0", "    EXEC    ")
        self.assertEqual(self.labels(self.complete(text, 19, 12)), [
            "COS", "SIN", "TAN", "ACOS", "ASIN", "ATAN", "CEIL", "FLOOR", "ROUND", "EXP", "FABS", "LN",
            "LOG10", "POW", "SQRT"])

    def test_instruction_words_where_an_instruction_starts(self):
        items = self.complete(SAMPLE.replace("    TST     R0", "    T"), 7, 5)
        self.assertEqual(len(items), 34)
        self.assertEqual(items[0], {"label": "CAL", "kind": 14, "detail": "LABEL",
                                    "documentation": "calls the subprogram declared at LABEL; "
                                                     "its RET returns after the CAL",
                                    "textEdit": {"range": span(7, 4, 5), "newText": "CAL"}})
        self.assertEqual(items[33]["label"], "RET")

    def test_operand_keywords_while_operands_are_due(self):
        operands = ["A0", "R0", "R1", "NIL", "PUSH", "POP", "TICK"]
        text = SAMPLE.replace("    MOV     @N      R0", "    MOV     @N      ")
        self.assertEqual(self.labels(self.complete(text, 18, 20)), operands)
        text = SAMPLE.replace("    TST     R0", "    TST     ")
        self.assertEqual(self.labels(self.complete(text, 7, 12)), operands)
        text = SAMPLE.replace("    TST     R0", "    TST     R0 ")
        self.assertEqual(self.complete(text, 7, 15), [])
        text = SAMPLE.replace("    RET\nOFF:", "    RET \nOFF:")
        self.assertEqual(self.complete(text, 11, 8), [])

    def test_kinds_then_types_in_declarations(self):
        text = SAMPLE.replace("    LAMP    VO  BOOL 0", "    LAMP    ")
        self.assertEqual(self.labels(self.complete(text, 4, 12)), ["V", "VI", "VO", "VIO", "VG", "TVG", "TVR"])
        text = SAMPLE.replace("    LAMP    VO  BOOL 0", "    LAMP    VO  ")
        self.assertEqual(self.labels(self.complete(text, 4, 16)), [
            "BOOL", "SINT", "USINT", "INT", "UINT", "DINT", "UDINT", "REAL", "LREAL"])
        text = SAMPLE.replace("    N       V   DINT 0", "    N       ")
        self.assertEqual(self.labels(self.complete(text, 16, 12)), ["V", "VA", "VR"])


class Formatting(Session):
    def format(self, text):
        self.client.open(URI, text)
        edits = self.client.request("textDocument/formatting", {
            "textDocument": {"uri": URI}, "options": {"tabSize": 4, "insertSpaces": True}})["result"]
        lines = text.split("\n")
        for edit in reversed(edits):
            start, end = edit["range"]["start"], edit["range"]["end"]
            self.assertEqual(start["line"], end["line"])
            line = lines[start["line"]]
            lines[start["line"]] = line[:start["character"]] + edit["newText"] + line[end["character"]:]
        return edits, "\n".join(lines)

    def test_operands_declarations_and_comments_go_into_columns(self):
        messy = ("(* messy *)\nPROG   DEMO\nVAR\n  COUNT V DINT 0 (* parts *)\n\tLIMIT   VG LREAL 2.5\n"
                 "MAIN\n MOV @COUNT R0 (* read *)\n      ADD 1   R0\n  LOOP:\n JMPF LOOP\n   RET\n")
        edits, text = self.format(messy)
        self.assertEqual(text, "(* messy *)\nPROG DEMO\nVAR\n"
                               "    COUNT       V   DINT  0     (* parts *)\n"
                               "    LIMIT       VG  LREAL 2.5\n"
                               "MAIN\n"
                               "    MOV     @COUNT      R0              (* read *)\n"
                               "    ADD     1           R0\n"
                               "LOOP:\n"
                               "    JMPF    LOOP\n"
                               "RET\n")
        self.assertEqual(edits[0], {"range": span(1, 0, 11), "newText": "PROG DEMO"})
        self.assertEqual(len(edits), 8)
        self.assertEqual(self.format(text)[0], [])

    def test_the_examples_are_already_formatted(self):
        files = sorted(glob.glob(os.path.join(EXAMPLES, "*.qz")))
        self.assertGreaterEqual(len(files), 8)
        for path in files:
            with open(path, encoding="utf-8") as f:
                self.assertEqual(self.format(f.read())[0], [], path)


class Utf16Positions(Session):
    # "ÄÖ" is two UTF-16 units and four UTF-8 bytes; the emoji in the comment
    # is two UTF-16 units (a surrogate pair) and four UTF-8 bytes.
    TEXT = ("PROG P\nVAR\n    ÄÖ V DINT 0\nMAIN\n"
            "    (* \U0001F600 *) MOV @ÄÖ R0 MOV @MISSING R0\nRET\n")

    def test_ranges_after_non_ascii_names_do_not_shift(self):
        params = self.client.open(URI, self.TEXT)
        self.assertEqual([d["range"] for d in params["diagnostics"]], [span(4, 28, 36)])
        self.assertEqual(self.result("textDocument/definition", 4, 18), location(2, 4, 6))
        self.assertEqual(self.result("textDocument/hover", 4, 19)["range"], span(4, 18, 20))


class Utf8Positions(Utf16Positions):
    encodings = ["utf-8"]

    def test_ranges_after_non_ascii_names_do_not_shift(self):
        params = self.client.open(URI, self.TEXT)
        self.assertEqual([d["range"] for d in params["diagnostics"]], [span(4, 32, 40)])
        self.assertEqual(self.result("textDocument/definition", 4, 21), location(2, 4, 8))
        self.assertEqual(self.result("textDocument/hover", 4, 22)["range"], span(4, 20, 24))

    def test_a_change_in_utf8_units(self):
        self.client.open(URI, self.TEXT)
        params = self.client.change(URI, 2, [{"range": span(4, 32, 40), "text": "@ÄÖ"}])
        self.assertEqual(params["diagnostics"], [])


if __name__ == "__main__":
    unittest.main()
