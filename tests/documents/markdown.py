"""What the documents hold: code blocks with the paragraph in front of each, code spans, links and
headings. It knows as much of Markdown as the documents use."""
import dataclasses
import re


@dataclasses.dataclass
class Block:
    """A code block, without its fence or its indent."""
    line: int
    lines: list
    intro: str  # The paragraph in front of it, in one line.


@dataclasses.dataclass
class Document:
    blocks: list
    headings: list
    prose: list  # (line number, text) of what is in no block.


def _indent(line):
    return len(line) - len(line.lstrip(" "))


def _item_indent(line):
    """How far the text of a list item is indented, or None when the line begins no item."""
    item = re.match(r" *(?:[-*]|\d+\.) +", line)
    return len(item.group()) if item else None


class _Reader:
    def __init__(self, text):
        self.lines = text.split("\n")
        self.at = 0
        self.intro = []
        self.paragraph_ended = True
        self.list_indent = 0
        self.document = Document([], [], [])

    def read(self):
        while self.at < len(self.lines):
            line = self.lines[self.at]
            if re.match(r" *```", line):
                self._fenced()
            elif self.paragraph_ended and line.strip() and _indent(line) >= self.list_indent + 4:
                self._indented()
            else:
                self._prose(line)
        return self.document

    def _add(self, first, lines):
        self.document.blocks.append(Block(first + 1, lines, " ".join(self.intro)))
        self.intro = []
        self.paragraph_ended = True

    def _fenced(self):
        first, indent = self.at, _indent(self.lines[self.at])
        self.at += 1
        while self.at < len(self.lines) and self.lines[self.at].strip() != "```":
            self.at += 1
        self._add(first, [line[min(indent, _indent(line)):] for line in self.lines[first + 1:self.at]])
        self.at += 1

    def _indented(self):
        first, indent = self.at, self.list_indent + 4
        end = first
        while self.at < len(self.lines) and (
                not self.lines[self.at].strip() or _indent(self.lines[self.at]) >= indent):
            self.at += 1
            if self.lines[self.at - 1].strip():
                end = self.at
        self._add(first, [line[indent:] for line in self.lines[first:end]])

    def _prose(self, line):
        self.at += 1
        self.document.prose.append((self.at, line))
        if not line.strip():
            self.paragraph_ended = True
            return
        item = _item_indent(line)
        if item is not None:
            self.list_indent = item
        elif _indent(line) == 0:
            self.list_indent = 0
        heading = re.match(r"#+ +(.*)", line)
        if heading:
            self.document.headings.append(heading.group(1))
        if self.paragraph_ended:
            self.intro = []
        self.intro.append(line.strip())
        self.paragraph_ended = False


def read(text):
    return _Reader(text).read()


def anchors(document):
    """What a link may name behind a #, as a web page of the document has it."""
    found = set()
    for heading in document.headings:
        anchor = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
        count = 0
        while anchor + (f"-{count}" if count else "") in found:
            count += 1
        found.add(anchor + (f"-{count}" if count else ""))
    return found


def code_spans(document):
    """(line number, text) of each code span. One may go on in the next line."""
    text = "\n".join(line for _, line in document.prose)
    for span in re.finditer(r"`([^`]+)`", text):
        at = text.count("\n", 0, span.start())
        yield document.prose[at][0], " ".join(span.group(1).split())


def links(document):
    """(line number, target) of each link."""
    for number, line in document.prose:
        for target in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`]*`", "", line)):
            yield number, target
