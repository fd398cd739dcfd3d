"""The table for the terminal, and those of docs/performance.md."""
import re

from figures import Unusable

BEGIN, END = "<!-- figures: {} -->", "<!-- end of figures -->"


class Table:
    """Lines of the same name stand side by side. `columns`: a heading and its lines, for each."""

    def __init__(self, columns):
        self.headings = list(columns)
        self.cells = {}
        for heading, lines in columns.items():
            for line in lines:
                cell = self.cells.setdefault((line.section, line.name), {})
                if heading in cell:
                    raise Unusable(f"two figures have the name: {line.name}")
                cell[heading] = line

    def sections(self):
        return list(dict.fromkeys(section for section, _ in self.cells))

    def rows(self, section, mark):
        """Name, goal, and a figure for each column. `mark` is applied to a figure that misses its goal."""
        for (of, name), lines in self.cells.items():
            if of == section:
                goal = next(iter(lines.values())).shown_goal()
                shown = (lines[heading] if heading in lines else None for heading in self.headings)
                yield [name, goal, *("" if line is None else mark(line.shown()) if line.missed()
                                     else line.shown() for line in shown)]


def for_terminal(table):
    rows = [["what", "goal", *table.headings]]
    for section in table.sections():
        rows += [[""], [section.upper()], *table.rows(section, lambda shown: shown + "  MISSED")]
    return aligned(rows)


def aligned(rows):
    rows = [row + [""] * (len(rows[0]) - len(row)) for row in rows]
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip()
                     for row in rows)


def for_document(table, section):
    return marked_down([["What", "Goal", *table.headings],
                        *table.rows(section, lambda shown: f"**{shown}**, missed")])


def marked_down(rows):
    rows = [rows[0], ["---"] * len(rows[0]), *rows[1:]]
    return "\n".join("| " + " | ".join(row) + " |" for row in rows)


def replaced(document, section, figures):
    """The document with that section's figures in place of those that it has."""
    begin = BEGIN.format(section)
    pattern = re.compile(re.escape(begin) + r"\n.*?" + re.escape(END), re.DOTALL)
    if len(pattern.findall(document)) != 1:
        raise Unusable(f"the document has no one place for the figures of: {section}")
    return pattern.sub(lambda _: f"{begin}\n\n{figures}\n\n{END}", document)
