"""stpgen's spec strings: the notation of a message's fields and their types, parsed into
Field and Type values, and the C++ names those fields get."""

import re
from dataclasses import dataclass, field
from typing import List, Optional, Tuple


class StpGenError(Exception):
    """A mistake in a table or spec string; the text says where."""


CPP_KEYWORDS = set(
    "alignas alignof and asm auto bool break case catch char class const constexpr continue "
    "default delete do double else enum explicit export extern false float for friend goto if "
    "inline int long mutable namespace new noexcept not nullptr operator or private protected "
    "public register return short signed sizeof static struct switch template this throw true "
    "try typedef typeid typename union unsigned using virtual void volatile while xor".split())


def cname(name: str) -> str:
    return name + "_" if name in CPP_KEYWORDS else name


# ---- Spec strings ---------------------------------------------------------------------------

SCALARS = ("%str%", "%fn%", "%num%", "%u1%", "%u4%")


@dataclass
class Type:
    """One value of a spec string. kind: str, fn, num, u1, u4, struct, list, dar."""

    kind: str
    fields: List["Field"] = field(default_factory=list)  # struct
    elem: Optional["Type"] = None  # list, dar
    count: Optional[str] = None  # list with `*(count)`, dar

    def text(self) -> str:
        """The canonical spec text, blanks normalised: what records are matched by."""
        if self.kind == "struct":
            return "{" + "".join(f"{f.name}:{f.type.text()} " for f in self.fields) + "}"
        if self.kind == "list":
            prefix = f"*({self.count})" if self.count else ""
            return f"{prefix}[{self.elem.text()}]"
        if self.kind == "dar":
            return f"%dar%({self.count}, {self.elem.text()})"
        return f"%{self.kind}%"

    def is_number(self) -> bool:
        return self.kind in ("num", "u1", "u4")

    def is_string(self) -> bool:
        return self.kind in ("str", "fn")


@dataclass
class Field:
    name: str  # the name on the wire and in logs
    type: Type
    cpp: str = ""  # the C++ name of the value; the wire name unless renamed

    def __post_init__(self):
        if not self.cpp:
            self.cpp = cname(self.name)

    def renamed(self, cpp: str) -> "Field":
        return Field(self.name, self.type, cpp)


TOKEN_RE = re.compile(r"\s*(%[a-z0-9]+%|[A-Za-z_][A-Za-z0-9_]*|[:{}\[\]()*|,])")


def tokenize(text: str) -> List[str]:
    tokens, pos = [], 0
    text = text.rstrip()
    while pos < len(text):
        m = TOKEN_RE.match(text, pos)
        if not m:
            raise StpGenError(f"unexpected text {text[pos:].strip()!r}")
        tokens.append(m.group(1))
        pos = m.end()
    return tokens


class SpecParser:
    """Recursive descent over the tokens of one spec string."""

    def __init__(self, text: str):
        self.text = text
        self.tokens = tokenize(text)
        self.pos = 0

    def peek(self) -> Optional[str]:
        return self.tokens[self.pos] if self.pos < len(self.tokens) else None

    def take(self, expected: Optional[str] = None) -> str:
        tok = self.peek()
        if tok is None:
            raise StpGenError(f"spec {self.text!r} ends early")
        if expected is not None and tok != expected:
            raise StpGenError(f"spec {self.text!r}: expected {expected!r}, found {tok!r}")
        self.pos += 1
        return tok

    def name(self) -> str:
        tok = self.take()
        if not re.fullmatch(r"[A-Za-z_][A-Za-z0-9_]*", tok):
            raise StpGenError(f"spec {self.text!r}: expected a name, found {tok!r}")
        return tok

    def fields(self, stops: Tuple[Optional[str], ...]) -> List[Field]:
        out = []
        while self.peek() not in stops:
            name = self.name()
            self.take(":")
            out.append(Field(name, self.type()))
        return out

    def type(self) -> Type:
        tok = self.take()
        if tok in SCALARS:
            return Type(tok.strip("%"))
        if tok == "%dar%":
            self.take("(")
            count = self.name()
            self.take(",")
            elem = self.type()
            self.take(")")
            return Type("dar", elem=elem, count=count)
        if tok == "{":
            fields = self.fields(("}", None))
            self.take("}")
            return Type("struct", fields=fields)
        if tok == "*":
            self.take("(")
            count = self.name()
            self.take(")")
            self.take("[")
            elem = self.type()
            self.take("]")
            return Type("list", elem=elem, count=count)
        if tok == "[":
            elem = self.type()
            self.take("]")
            return Type("list", elem=elem)
        raise StpGenError(f"spec {self.text!r}: unexpected {tok!r}")


def parse_spec(text: str) -> Tuple[List[Field], Optional[List[Field]]]:
    """Request fields and reply fields (None when its spec string has no `|`)."""
    p = SpecParser(text)
    request = p.fields(("|", None))
    reply = None
    if p.peek() == "|":
        p.take("|")
        reply = p.fields((None,))
    return request, reply


def parse_type(text: str) -> Type:
    p = SpecParser(text)
    t = p.type()
    if p.peek() is not None:
        raise StpGenError(f"spec {text!r}: text after the type")
    return t
