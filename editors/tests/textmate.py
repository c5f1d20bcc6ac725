"""A small TextMate tokenizer: enough of the grammar engine editors run
(top-level "match" rules with captures, "begin"/"end" rules that span lines,
the earliest match winning and the first rule among equals) to see which
scope the grammar gives every character. Python's regular expressions read
the constructs the grammar uses (look-behind of one character, inline case
folding) as Oniguruma does."""
import json
import re


class Grammar:
    def __init__(self, path):
        with open(path, encoding="utf-8") as f:
            self.rules = json.load(f)["patterns"]
        for rule in self.rules:
            rule["_re"] = re.compile(rule.get("match") or rule["begin"])
            if "end" in rule:
                rule["_end"] = re.compile(rule["end"])

    def scopes(self, text):
        """One list per line: the innermost scope of each character ("" for none)."""
        out = []
        open_rule = None
        for line in text.split("\n"):
            marks = [""] * len(line)
            pos = 0
            while pos <= len(line):
                if open_rule is not None:
                    end = open_rule["_end"].search(line, pos)
                    stop = end.end() if end else len(line)
                    marks[pos:stop] = [open_rule["name"]] * (stop - pos)
                    pos = stop
                    if not end:
                        break
                    open_rule = None
                    continue
                best = None
                for rule in self.rules:
                    m = rule["_re"].search(line, pos)
                    if m and (best is None or m.start() < best[0].start()):
                        best = (m, rule)
                if best is None:
                    break
                m, rule = best
                if "begin" in rule:
                    open_rule = rule
                    pos = m.start()
                    continue
                if "name" in rule:
                    marks[m.start():m.end()] = [rule["name"]] * (m.end() - m.start())
                for group, capture in rule.get("captures", {}).items():
                    if m.group(int(group)) is not None:
                        a, b = m.span(int(group))
                        marks[a:b] = [capture["name"]] * (b - a)
                pos = m.end() if m.end() > pos else pos + 1
            out.append(marks)
        return out
