"""The faults that scripts/mutate can plant: finds them in C++ sources formatted by scripts/format."""

import bisect
import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""
    (?P<space>\s+)
  | (?P<comment>//(?:\\\n|[^\n])*|/\*.*?\*/)
  | (?P<directive>(?:(?<=\n)|(?<=^))[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<string>(?:u8|[uUL])?(?:R"(?P<tag>[^\s()\\]{0,16})\(.*?\)(?P=tag)"|"(?:\\.|[^"\\\n])*"))
  | (?P<char>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
  | (?P<number>\.?\d(?:[eEpP][+-]|'(?=\w)|[\w.])*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<mark><<=|>>=|\.\.\.|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
    """,
    re.VERBOSE | re.DOTALL,
)

# What logs, asserts or is checked by the compiler: nothing inside of its parentheses is touched, nor is it dropped.
UNTOUCHED = re.compile(
    r"AUDIT_\w+|\w*Assert\w*|\w*ASSERT\w*|Log[A-Z]\w*|static_assert|decltype|sizeof|alignof|noexcept|__attribute__|"
    r"Write(Stamped|Tagged|StampedTagged|FileOnly|Console)|reserve|shrink_to_fit"
)
COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
LOGIC = {"&&": "||", "||": "&&", "&": "|", "|": "&"}
ARITHMETIC = {"+": "-", "-": "+", "+=": "-=", "-=": "+=", "++": "--", "--": "++"}
ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="}
SIDES = [
    ("Primary", "Secondary"),
    ("Pri", "Sec"),
    ("PRI", "SEC"),
    ("PRIMARY", "SECONDARY"),
    ("Source", "Dest"),
    ("Source", "Destination"),
    ("source", "dest"),
    ("source", "destination"),
    ("Src", "Dst"),
    ("Local", "Remote"),
    ("local", "remote"),
    ("Input", "Output"),
    ("Send", "Receive"),
    ("Min", "Max"),
    ("min", "max"),
    ("front", "back"),
    ("Online", "Offline"),
]
# The order of their arguments makes no difference.
SYMMETRIC = {"min", "max", "swap", "minmax", "is_same_v", "tie"}
HEADS = {"if", "for", "while", "switch"}
KEYWORDS = HEADS | {
    "return", "else", "do", "case", "default", "break", "continue", "goto", "throw", "try", "catch", "using", "typedef",
    "namespace", "class", "struct", "enum", "union", "template", "delete", "new", "public", "private", "protected",
    "friend", "operator", "extern", "static", "const", "constexpr", "auto", "mutable", "virtual", "inline", "explicit",
}  # fmt: skip


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass(frozen=True)
class Fault:
    """One change of the text between two positions of a file."""

    path: str
    line: int
    start: int
    end: int
    old: str
    new: str
    kind: str

    def describe(self):
        shorten = lambda text: text if len(text) <= 60 else text[:57] + "..."
        old = shorten(" ".join(self.old.split()))
        return f"{self.kind}: {old} -> {shorten(' '.join(self.new.split())) or 'nothing'}"

    def apply(self, source):
        return source[: self.start] + self.new + source[self.end :]


def tokenise(source):
    """The tokens that mean something; comments and directives are left out."""
    tokens = []
    for match in TOKEN.finditer(source):
        kind = match.lastgroup if match.lastgroup != "tag" else "string"
        if kind not in ("space", "comment", "directive"):
            tokens.append(Token(kind, match.group(), match.start(), match.end()))
    return tokens


def words_of(source):
    return {token.text for token in tokenise(source) if token.kind == "word"}


class Source:
    """One file: its tokens, which bracket closes which, and which braces hold statements."""

    def __init__(self, path, text, known_words):
        self.path = path
        self.text = text
        self.known_words = known_words
        self.tokens = tokenise(text)
        self.lines = [match.end() for match in re.finditer("\n", text)]
        self.partner = {}
        self.parent = {}
        self.holds_code = {}
        self.untouched = set()
        self._match_brackets()
        self._mark_untouched()
        self.faults = []

    def _text(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def _match_brackets(self):
        stack = []
        for index, token in enumerate(self.tokens):
            self.parent[index] = stack[-1] if stack else -1
            if token.kind != "mark":
                continue
            if token.text in "([{":
                if token.text == "{":
                    self.holds_code[index] = self._opens_code(index)
                stack.append(index)
            elif token.text in ")]}" and stack:
                opener = stack.pop()
                self.partner[opener] = index
                self.partner[index] = opener
                self.parent[index] = stack[-1] if stack else -1

    def _opens_code(self, brace):
        before = self._text(brace - 1)
        if before in {")", "else", "do", "try", "const", "override", "final", "noexcept", "mutable"}:
            return True
        if before == "]" and self._text(brace - 2) in {"[", "&", "=", "this"}:
            return True
        if before in {"{", "}", ";", ":"}:
            return self._in_code(brace)
        # A lambda or a function with its type after the arrow.
        for index in range(brace - 1, max(brace - 12, -1), -1):
            if self._text(index) == "->" and self._text(index - 1) in {")", "mutable", "const", "noexcept"}:
                return True
            if self._text(index) in {";", "{", "}", "("}:
                return False
        return False

    def _in_code(self, index):
        """Whether the token lies in the body of a function."""
        outer = self.parent.get(index, -1)
        while outer >= 0:
            if self._text(outer) == "{":
                return self.holds_code[outer]
            outer = self.parent[outer]
        return False

    def _mark_untouched(self):
        """What logs or is only declared. Brackets of template arguments go by having no blanks around them."""
        for index, token in enumerate(self.tokens):
            if token.kind != "word":
                continue
            if token.text in {"template", "operator", "using", "typedef", "friend", "enum", "class", "struct"}:
                for after in range(index, len(self.tokens)):
                    if self._text(after) in {";", "{", "("}:
                        break
                    self.untouched.add(after)
            if UNTOUCHED.fullmatch(token.text) and self._text(index + 1) == "(":
                self.untouched.update(range(index, self.partner.get(index + 1, index) + 1))

    def _is_spaced(self, index):
        token = self.tokens[index]
        return self.text[token.start - 1].isspace() and self.text[token.end : token.end + 1].isspace()

    def _add(self, first, last, new, kind):
        """A change of the tokens from first to last."""
        start, end = self.tokens[first].start, self.tokens[last].end
        old = self.text[start:end]
        if old == new or any(index in self.untouched for index in range(first, last + 1)):
            return
        line = bisect.bisect_right(self.lines, start) + 1
        self.faults.append(Fault(self.path, line, start, end, old, new, kind))

    def find(self):
        for index, token in enumerate(self.tokens):
            if index in self.untouched:
                continue
            if token.kind == "number":
                self._constant(index)
            elif token.kind == "word":
                self._word(index)
            elif token.kind == "mark":
                self._mark(index)
            if self._starts_statement(index):
                self._drop_statement(index)
        return self.faults

    def _constant(self, index):
        token = self.tokens[index]
        number = re.fullmatch(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlLzZ]*)", token.text)
        if not number or self._text(index - 1) == "<" and not self._is_spaced(index - 1):
            return
        # Nobody sees a buffer of characters that is one longer.
        if [self._text(index + at) for at in (-3, -1, 1)] == ["char", "[", "]"]:
            return
        if [self._text(index + at) for at in (-2, -1, 1)] == ["char", ",", ">"]:
            return
        value = int(number[1].replace("'", ""), 0 if number[1][:2] in ("0x", "0X", "0") else 10)
        self._add(index, index, (hex(value + 1) if "x" in number[1].lower() else str(value + 1)) + number[2], "constant")

    def _word(self, index):
        text = self._text(index)
        if text in ("true", "false"):
            kind = "returned boolean" if self._text(index - 1) == "return" else "constant"
            self._add(index, index, "false" if text == "true" else "true", kind)
        elif text in ("if", "while") and self._text(index + 1) == "(" and self._in_code(index):
            last = self.partner.get(index + 1)
            if last and not self._declares(index + 2, last - 1):
                condition = self.text[self.tokens[index + 2].start : self.tokens[last - 1].end]
                self._add(index + 2, last - 1, f"!({condition})", "condition")
        elif text == "return" and self._in_code(index):
            self._returned(index)
        elif self._in_code(index) or self._text(index - 1) in (".", "->"):
            self._side(index)
            if self._text(index + 1) == "(" and text not in KEYWORDS | SYMMETRIC:
                self._swapped_arguments(index + 1)

    def _declares(self, first, last):
        """Whether a condition declares what it tests."""
        return any(self._text(index) in {"=", ";"} for index in range(first, last + 1))

    def _mark(self, index):
        text = self._text(index)
        if text in COMPARISONS and self._is_spaced(index):
            self._add(index, index, COMPARISONS[text], "comparison")
        elif text in LOGIC and self._is_spaced(index):
            self._add(index, index, LOGIC[text], "logic")
        elif text in ARITHMETIC and (self._is_spaced(index) or text in ("++", "--")) and self._in_code(index):
            # A text that is joined is no number.
            if self.tokens[index - 1].kind != "string" and self.tokens[index + 1].kind != "string":
                self._add(index, index, ARITHMETIC[text], "arithmetic")
        elif text == "!" and self._in_code(index):
            self._add(index, index, "", "logic")

    def _returned(self, index):
        last = self._end_of_statement(index)
        if last <= index + 1:
            return
        inside = [at for at in range(index + 1, last) if self.parent[at] == self.parent[index]]
        shown = {self._text(at) for at in inside if self._is_spaced(at) or self._text(at) == "!"}
        if shown & {"==", "!=", "<", ">", "<=", ">=", "&&", "||"} and "?" not in shown and "<<" not in shown:
            expression = self.text[self.tokens[index + 1].start : self.tokens[last - 1].end]
            self._add(index + 1, last - 1, f"!({expression})", "returned boolean")

    def _side(self, index):
        text = self._text(index)
        for one, other in SIDES:
            for old, new in ((one, other), (other, one)):
                for match in re.finditer(old, text):
                    # Whole words of a name in camel case only.
                    if re.match("[a-z]", text[match.end() :]) or (old[0].islower() and match.start() > 0):
                        continue
                    swapped = text[: match.start()] + new + text[match.end() :]
                    if swapped in self.known_words:
                        self._add(index, index, swapped, "swapped side")

    def _swapped_arguments(self, opener):
        closer = self.partner.get(opener)
        if closer is None or closer == opener + 1:
            return
        starts = [opener + 1]
        for at in range(opener + 1, closer):
            if self._text(at) == "," and self.parent[at] == opener:
                starts.append(at + 1)
        # A comma of template arguments, or of a declaration's parameters, is not one between arguments.
        if any(self._text(at) in ("<", ">") and not self._is_spaced(at) for at in range(opener, closer)):
            return
        ends = [start - 2 for start in starts[1:]] + [closer - 1]
        for left, right in zip(range(len(starts)), range(1, len(starts))):
            one = self.text[self.tokens[starts[left]].start : self.tokens[ends[left]].end]
            between = self.text[self.tokens[ends[left]].end : self.tokens[starts[right]].start]
            other = self.text[self.tokens[starts[right]].start : self.tokens[ends[right]].end]
            # Texts stay, and functions and iterators would only fail to compile.
            if one != other and not re.search(r'["{\[]|\b(begin|end)\(\)', one + other):
                self._add(starts[left], ends[right], other + between + one, "swapped arguments")

    def _starts_statement(self, index):
        if not self._in_code(index) or self._text(self.parent[index]) != "{":
            return False
        before = index - 1
        if self._text(before) in {";", "}", "else", "do"}:
            return True
        if self._text(before) == "{":
            return self.holds_code[before]
        if self._text(before) == ":":
            return self._text(before - 2) == "case" or self._text(before - 1) == "default"
        if self._text(before) == ")":
            opener = self.partner.get(before, -1)
            return self._text(opener - 1) in HEADS or self._text(opener - 2) == "if"
        return False

    def _end_of_statement(self, index):
        """The semicolon that ends the statement, or the place after the last token."""
        at = index
        while at < len(self.tokens):
            if self._text(at) == ";":
                return at
            if self._text(at) in ("(", "[", "{"):
                at = self.partner.get(at, at)
            elif self._text(at) in (")", "}"):
                return at
            at += 1
        return at

    def _drop_statement(self, first):
        """A call whose result nobody takes, an assignment, a step: not what declares or decides."""
        if self._text(first) in KEYWORDS or not (
            self.tokens[first].kind == "word" or self._text(first) in ("*", "++", "--", "(", "::")
        ):
            return
        last = self._end_of_statement(first)
        if self._text(last) != ";" or last == first:
            return
        inside = [at for at in range(first, last) if self.parent[at] == self.parent[first]]
        pairs = zip(inside, inside[1:])
        # Two names in a row, or a name after a type's end, declare something.
        for one, other in pairs:
            if self.tokens[other].kind == "word" and (
                self.tokens[one].kind == "word" or self._text(one) in (">", "&", "*") and other == one + 1
            ):
                if not self._is_spaced(one) and self._text(one) in (">", "&", "*") or self.tokens[one].kind == "word":
                    return
            if self._text(other) in ASSIGNMENTS:
                break
        texts = [self._text(at) for at in inside]
        if any(UNTOUCHED.fullmatch(text) for text in texts):
            return
        if any(text in ASSIGNMENTS for text in texts):
            kind = "dropped assignment"
        elif "++" in texts or "--" in texts:
            kind = "dropped assignment"
        elif self._text(last - 1) == ")" and "<<" not in texts and texts[0] != "std" and texts[0] != "static_cast":
            kind = "dropped call"
        elif self._text(last - 1) == ")" and texts[0] == "std" and "cout" not in texts and "<<" not in texts:
            kind = "dropped call"
        else:
            return
        self._add(first, last, "{}", kind)


def faults_of(sources):
    """All faults of the files, a dictionary of texts by path, in a fixed order."""
    known_words = set()
    for text in sources.values():
        known_words |= words_of(text)
    found = []
    for path in sorted(sources):
        found += Source(path, sources[path], known_words).find()
    return found
