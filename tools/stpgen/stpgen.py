#!/usr/bin/env python3
"""stpgen: makes the <Protocol>_<side>_Impl class of one protocol end from its table.

A table (a .stp file) names the protocol, this end's role, its body form and route numbers,
the field tags (binary protocols), the messages this end handles and sends with their numbers,
flags and spec strings, named record types and per-field C++ types. Every field is derived from
their spec strings, so each message is described in one place only.

    stpgen.py [--root DIR] --out-dir DIR TABLE.stp

writes <table base name>_impl.h and _impl.cpp into the output folder, each only when its text
changed, so that an unchanged table rebuilds nothing. Errors name the table and line and end
the run with code 1.
"""

import argparse
import os
import re
import shlex
import sys
from dataclasses import dataclass, field
from typing import Dict, List, Optional, Tuple


class StpGenError(Exception):
    """A mistake in a table or spec string; the text says where."""


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


# ---- Tables ---------------------------------------------------------------------------------

CPP_TYPES = {"bool": "bool", "int32": "int32_t", "uint32": "uint32_t", "uint8": "uint8_t"}
CPP_KEYWORDS = set(
    "alignas alignof and asm auto bool break case catch char class const constexpr continue "
    "default delete do double else enum explicit export extern false float for friend goto if "
    "inline int long mutable namespace new noexcept not nullptr operator or private protected "
    "public register return short signed sizeof static struct switch template this throw true "
    "try typedef typeid typename union unsigned using virtual void volatile while xor".split())


@dataclass
class Message:
    number: int
    name: str
    flags: int
    spec: str
    request: List[Field]
    reply: Optional[List[Field]]
    line: int

    def has_reply(self) -> bool:
        return bool(self.flags & 0x01)


@dataclass
class Table:
    path: str
    protocol: str = ""
    role: str = ""
    class_name: str = ""
    vstamp: str = "1"
    flags: int = 0
    body: str = ""
    local_rn: int = 0
    remote_rn: int = 0
    virtual_base: bool = False
    tags: Dict[int, str] = field(default_factory=dict)
    records: Dict[str, Tuple[str, Type]] = field(default_factory=dict)  # text -> (name, type)
    types: Dict[str, str] = field(default_factory=dict)  # field name -> C++ type
    handled: List[Message] = field(default_factory=list)
    sent: List[Message] = field(default_factory=list)
    order: List[str] = field(default_factory=list)

    @property
    def binary(self) -> bool:
        return self.body == "binary"

    def tag_list(self) -> List[str]:
        """The tag table by number; unused numbers get placeholder words (see below)."""
        if not self.tags:
            return []
        size = max(self.tags) + 1
        out, prev = [], ""
        for i in range(size):
            if i in self.tags:
                prev = self.tags[i]
                out.append(prev)
            else:
                # A word that keeps the list sorted and that no field uses: field names hold
                # only letters, digits and '_', all of which sort above '!'.
                prev = prev + "!"
                out.append(prev)
        return out

    def tag_index(self, name: str) -> int:
        for number, tag in self.tags.items():
            if tag == name:
                return number
        raise StpGenError(f"{self.path}: field {name!r} is not in the tag table")


def parse_int(text: str, where: str) -> int:
    try:
        return int(text, 0)
    except ValueError:
        raise StpGenError(f"{where}: {text!r} is not a number") from None


def parse_table(path: str, text: str) -> Table:
    table = Table(path=path)
    section = None  # "tags", "handled", "sent" while inside a block
    for lineno, raw in enumerate(text.splitlines(), 1):
        where = f"{path}:{lineno}"
        try:
            words = shlex.split(raw, comments=True)
        except ValueError as e:
            raise StpGenError(f"{where}: {e}") from None
        if not words:
            continue
        try:
            section = parse_line(table, section, words, where, lineno)
        except StpGenError as e:
            msg = str(e)
            raise StpGenError(msg if msg.startswith(path) else f"{where}: {msg}") from None
    if section is not None:
        raise StpGenError(f"{path}: block {section!r} has no 'end'")
    check_table(table)
    return table


def parse_line(table: Table, section, words, where, lineno):
    key = words[0]
    if section is not None:
        if key == "end":
            return None
        if section == "tags":
            if len(words) != 2:
                raise StpGenError("a tag line is: NUMBER NAME")
            number = parse_int(words[0], where)
            if number in table.tags:
                raise StpGenError(f"tag number {number} given twice")
            table.tags[number] = words[1]
            return section
        if len(words) != 4:
            raise StpGenError('a message line is: NUMBER NAME FLAGS "SPEC"')
        try:
            request, reply = parse_spec(words[3])
        except StpGenError as e:
            raise StpGenError(f"{words[1]}: {e}") from None
        msg = Message(parse_int(words[0], where), words[1], parse_int(words[2], where), words[3],
                      request, reply, lineno)
        getattr(table, section).append(msg)
        return section
    if key in ("tags", "handled", "sent"):
        if len(words) != 1:
            raise StpGenError(f"'{key}' starts a block and takes nothing else")
        return key
    args = words[1:]
    if key == "order":
        table.order.extend(args)
        return None
    if key == "virtual_base":
        table.virtual_base = True
        return None
    if key == "record":
        if len(args) != 2:
            raise StpGenError('a record line is: record NAME "SPEC"')
        t = parse_type(args[1])
        if t.kind != "struct":
            raise StpGenError(f"record {args[0]} is not a struct")
        table.records[t.text()] = (args[0], t)
        return None
    if key == "type":
        if len(args) != 2 or args[1] not in CPP_TYPES:
            raise StpGenError(f"a type line is: type FIELD {'|'.join(CPP_TYPES)}")
        table.types[args[0]] = CPP_TYPES[args[1]]
        return None
    if len(args) != 1:
        raise StpGenError(f"'{key}' takes one value")
    value = args[0]
    if key in ("protocol", "role", "vstamp", "body"):
        setattr(table, key, value)
    elif key == "class":
        table.class_name = value
    elif key == "flags":
        table.flags = parse_int(value, where)
    elif key in ("local_rn", "remote_rn"):
        setattr(table, key, parse_int(value, where))
    else:
        raise StpGenError(f"unknown directive {key!r}")
    return None


def check_table(t: Table) -> None:
    p = t.path
    for key in ("protocol", "role", "body"):
        if not getattr(t, key):
            raise StpGenError(f"{p}: '{key}' is missing")
    if t.body not in ("ascii", "binary"):
        raise StpGenError(f"{p}: body is 'ascii' or 'binary'")
    if not t.class_name:
        t.class_name = f"{t.protocol}_{t.role}_Impl"
    if not t.binary and t.tags:
        raise StpGenError(f"{p}: an ASCII protocol has no tag table")
    if t.binary and not t.tags:
        # Without a table the tags are all field names, sorted, numbered from 0.
        names = sorted({n for m in t.handled + t.sent for n in field_names(m)}
                       | {n for _, rt in t.records.values() for n in type_names(rt)})
        t.tags = dict(enumerate(names))
    tags = t.tag_list()
    if any(a >= b for a, b in zip(tags, tags[1:])):
        raise StpGenError(f"{p}: tag names are not in sorted order by number")
    for section in ("handled", "sent"):
        rows = getattr(t, section)
        seen = {}
        for m in rows:
            where = f"{p}:{m.line}"
            if m.number < 0 or m.number in seen:
                raise StpGenError(f"{where}: message number {m.number} is negative or repeated")
            seen[m.number] = m
            if m.reply is not None and not m.has_reply():
                raise StpGenError(f"{where}: {m.name} has reply fields but not flag 0x01")
            if m.has_reply() and m.reply is None:
                m.reply = []
            try:
                check_fields(t, m.request, "request")
                check_fields(t, m.reply or [], "reply")
            except StpGenError as e:
                raise StpGenError(f"{where}: {m.name}: {e}") from None
        ordered = sorted(rows, key=lambda m: m.number)
        if any(a.name >= b.name for a, b in zip(ordered, ordered[1:])):
            raise StpGenError(f"{p}: {section} messages are not sorted by name in number order")
        rows[:] = ordered
    both = {m.name for m in t.handled} & {m.name for m in t.sent}
    if both:
        raise StpGenError(f"{p}: handled and sent at once: {', '.join(sorted(both))}")
    handled = [m.name for m in t.handled]
    if t.order:
        if sorted(t.order) != sorted(handled):
            raise StpGenError(f"{p}: 'order' must list each handled message once")
    else:
        t.order = handled
    for name, ctype in t.types.items():
        if name.startswith("stp_"):
            raise StpGenError(f"{p}: field names beginning with 'stp_' are reserved")


def field_names(m: Message) -> List[str]:
    out = []
    for f in m.request + (m.reply or []):
        out.append(f.name)
        out.extend(type_names(f.type))
    return out


def type_names(t: Type) -> List[str]:
    out = []
    for f in t.fields:
        out.append(f.name)
        out.extend(type_names(f.type))
    if t.elem:
        out.extend(type_names(t.elem))
    return out


def check_fields(t: Table, fields: List[Field], part: str) -> None:
    names = set()
    for i, f in enumerate(fields):
        if f.name in names:
            raise StpGenError(f"{part} field {f.name!r} appears twice")
        if f.name.startswith("stp_"):
            raise StpGenError(f"field names beginning with 'stp_' are reserved ({f.name})")
        names.add(f.name)
        if t.binary:
            t.tag_index(f.name)
        check_type(t, f.type, f.name, fields[:i])
        if f.name in t.types and not f.type.is_number():
            raise StpGenError(f"type override for {f.name!r}, which is not a number")


def check_type(t: Table, ty: Type, name: str, earlier: List[Field]) -> None:
    if ty.kind == "num" and t.binary:
        raise StpGenError(f"{name}: %num% belongs to ASCII protocols")
    if ty.kind in ("u1", "u4", "fn", "dar") and not t.binary:
        raise StpGenError(f"{name}: %{ty.kind}% belongs to binary protocols")
    if ty.count is not None:
        counts = [f for f in earlier if f.name == ty.count]
        if not counts or not counts[0].type.is_number():
            raise StpGenError(f"{name}: count {ty.count!r} is not an earlier number field")
        if t.types.get(ty.count) == "bool":
            raise StpGenError(f"{name}: count {ty.count!r} is typed bool")
    if ty.kind == "dar" and ty.elem.kind != "u4":
        raise StpGenError(f"{name}: raw arrays hold %u4% only")
    if ty.kind == "list" and ty.elem.kind in ("list", "dar"):
        raise StpGenError(f"{name}: a list of lists has nowhere to keep its counts")
    if ty.kind == "struct":
        check_fields(t, ty.fields, name)
    if ty.kind == "list":
        check_type(t, ty.elem, name, [])


# ---- C++ model --------------------------------------------------------------------------------


class Model:
    """C++ names and types of a table's values."""

    def __init__(self, table: Table):
        self.t = table
        self.structs: Dict[str, str] = {}  # canonical text -> C++ name
        self.struct_order: List[Tuple[str, Type]] = []  # definition order, innermost first
        for text, (name, ty) in table.records.items():
            self.name_struct(ty, name)
        for m in table.handled + table.sent:
            for f in m.request + (m.reply or []):
                self.collect(f.type, f"{table.protocol}_{m.name}_{f.name}")

    def name_struct(self, ty: Type, name: str) -> str:
        text = ty.text()
        if text in self.structs:
            return self.structs[text]
        if text in self.t.records:
            name = self.t.records[text][0]
        for f in ty.fields:
            self.collect(f.type, f"{name}_{f.name}")
        self.structs[text] = name
        self.struct_order.append((name, ty))
        return name

    def collect(self, ty: Type, name: str) -> None:
        if ty.kind == "struct":
            self.name_struct(ty, name)
        elif ty.kind == "list":
            self.collect(ty.elem, name + "_item")

    def counts(self, fields: List[Field]) -> set:
        return {f.type.count for f in fields if f.type.count}

    def scalar(self, ty: Type, name: Optional[str], is_count: bool) -> str:
        if ty.is_string():
            return "char*"
        if name in self.t.types:
            return self.t.types[name]
        if is_count or ty.kind == "num":
            return "int32_t"
        return {"u4": "uint32_t", "u1": "uint8_t"}[ty.kind]

    def member(self, ty: Type, name: Optional[str], is_count: bool = False) -> str:
        """The C++ type that holds the value in memory."""
        if ty.kind == "struct":
            return self.structs[ty.text()]
        if ty.kind == "list":
            return self.member(ty.elem, None) + "*"
        if ty.kind == "dar":
            return "uint32_t*"
        return self.scalar(ty, name, is_count)

    def members(self, fields: List[Field]) -> List[Tuple[str, str, Field]]:
        """(C++ type, C++ name, field) of every value of a scope, including the element counts
        of lists without a count field."""
        counts = self.counts(fields)
        out = []
        for f in fields:
            if f.type.kind == "list" and f.type.count is None:
                out.append(("int32_t", f.cpp + "_count", f))
            out.append((self.member(f.type, f.name, f.name in counts), f.cpp, f))
        return out

    def param(self, ctype: str, ty: Type) -> str:
        """How a request value is handed to a stub or handler: read-only, not owned."""
        if ty.kind == "struct":
            return f"const {ctype}&"
        if ty.kind == "list":
            return f"const {self.member(ty.elem, None)}" + ("const*" if ty.elem.is_string()
                                                             else "*")
        if ty.kind == "dar":
            return "const uint32_t*"
        if ctype == "char*":
            return "const char*"
        return ctype


def cname(name: str) -> str:
    return name + "_" if name in CPP_KEYWORDS else name


# ---- Emitting ----------------------------------------------------------------------------------


class Out:
    def __init__(self):
        self.lines: List[str] = []
        self.depth = 0
        self.counter = 0

    def __call__(self, text: str = "") -> None:
        self.lines.append(("    " * self.depth + text) if text else "")

    def signature(self, head: str, params: List[str], tail: str) -> None:
        """`head(params)tail`, the parameters wrapped under the parenthesis when the line would
        pass 100 columns."""
        pad = "    " * self.depth
        line = f"{pad}{head}({', '.join(params)}){tail}"
        if len(line) <= 100 or not params:
            self.lines.append(line)
            return
        indent = " " * (len(pad) + len(head) + 1)
        current = f"{pad}{head}("
        for i, p in enumerate(params):
            piece = p + (", " if i + 1 < len(params) else f"){tail}")
            if len(current) + len(piece.rstrip()) > 100 and not current.endswith("("):
                self.lines.append(current.rstrip())
                current = indent
            current += piece
        self.lines.append(current)

    def open(self, text: str) -> None:
        self(text)
        self.depth += 1

    def close(self, text: str = "}") -> None:
        self.depth -= 1
        self(text)

    def fresh(self, stem: str) -> str:
        self.counter += 1
        return f"stp_{stem}{self.counter}"

    def text(self) -> str:
        return "\n".join(self.lines) + "\n"


class Emitter:
    """Writes, reads, logs and frees values. `m` is the message variable, `e` the C++
    expression of a value, `name` its wire name (None for list elements), `count` the C++
    expression of its element count (lists and raw arrays)."""

    def __init__(self, model: Model, out: Out):
        self.model = model
        self.t = model.t
        self.o = out

    # -- the fields of one scope (a message or a struct), reached through `prefix`
    @staticmethod
    def count_of(f: Field, fields: List[Field], prefix: str) -> str:
        if f.type.count:
            sibling = next(x for x in fields if x.name == f.type.count)
            return prefix + sibling.cpp
        return prefix + f.cpp + "_count"

    def write_fields(self, m, fields, prefix):
        for f in fields:
            self.write(m, f.type, prefix + f.cpp, f.name, self.count_of(f, fields, prefix))

    def read_fields(self, m, fields, prefix):
        counts = self.model.counts(fields)
        for f in fields:
            ctype = self.model.member(f.type, f.name, f.name in counts)
            self.read(m, f.type, prefix + f.cpp, f.name, self.count_of(f, fields, prefix), ctype)

    def log_fields(self, fields, prefix, separator):
        for i, f in enumerate(fields):
            if i:
                self.o(f'stp_log->print("{separator}");')
            self.log(f.type, prefix + f.cpp, f.name, self.count_of(f, fields, prefix))

    def free_fields(self, fields, prefix):
        for f in fields:
            self.free(f.type, prefix + f.cpp, self.count_of(f, fields, prefix))

    def declare(self, fields):
        for ctype, cpp, _ in self.model.members(fields):
            self.o(f"{ctype} {cpp}{{}};")

    # -- helpers
    def tag(self, name):
        if not name:
            return "STP_TAG_LIST_ELEMENT"
        self.t.tag_index(name)
        return f"kTag_{name}"

    def peer_tag(self, name):
        return f"peerTag({self.tag(name)})" if name else "STP_TAG_LIST_ELEMENT"

    @staticmethod
    def size(e, count):
        return f"stp_count({e}, {count})"

    def loop(self, n, e, const=True):
        """Opens a loop over the `n` elements of array `e`; returns the element's name."""
        i, elem = self.o.fresh("i"), self.o.fresh("e")
        self.o.open(f"for (int32_t {i} = 0; {i} < {n}; ++{i}) {{")
        self.o(f"{'const ' if const else ''}auto& {elem} = {e}[{i}];")
        return elem

    # -- writing
    def write(self, m, ty, e, name, count):
        if self.t.binary:
            self.write_binary(m, ty, e, name, count)
        else:
            self.write_ascii(m, ty, e, name, count)

    def write_binary(self, m, ty, e, name, count):
        o, tag = self.o, self.tag(name)
        if ty.is_string():
            o(f"{m}->putStringField({tag}, {e});")
        elif ty.kind == "u4":
            o(f"{m}->putInt32({tag}, static_cast<int32_t>({e}));")
        elif ty.kind == "u1":
            o(f"{m}->putInt8({tag}, static_cast<int8_t>({e}));")
        elif ty.kind == "dar":
            o(f"{m}->putCountedArray({tag}, {e}, {self.size(e, count)}, 4);")
        elif ty.kind == "struct":
            mark = o.fresh("mark")
            o.open("{")
            o(f"int32_t {mark} = 0;")
            o(f"{m}->beginStruct({tag}, &{mark});")
            self.write_fields(m, ty.fields, e + ".")
            o(f"{m}->endStruct({mark});")
            o.close()
        elif ty.kind == "list":
            # The list's own name has no tag on the wire: a count, then one element each.
            n = o.fresh("n")
            o.open("{")
            o(f"int32_t {n} = {self.size(e, count)};")
            o(f"{m}->putListCount({n});")
            elem = self.loop(n, e)
            self.write_binary(m, ty.elem, elem, None, None)
            o.close()
            o.close()

    def write_ascii(self, m, ty, e, name, count):
        o = self.o
        named = "Named" if name else ""
        arg = f'"{name}", ' if name else ""
        if ty.is_string():
            o(f"{m}->asciiPut{named}String({arg}{e});")
        elif ty.is_number():
            value = f"{e} ? 1u : 0u" if self.is_bool(name) else f"static_cast<uint32_t>({e})"
            o(f"{m}->asciiPut{named}Number({arg}{value});")
        elif ty.kind == "struct":
            o(f'{m}->asciiBegin{named}Struct({arg[:-2]});')
            self.write_fields(m, ty.fields, e + ".")
            o(f"{m}->asciiEndStruct();")
        elif ty.kind == "list":
            n = o.fresh("n")
            o.open("{")
            o(f"int32_t {n} = {self.size(e, count)};")
            o(f"{m}->asciiBegin{named}Array({arg}{n});")
            elem = self.loop(n, e)
            self.write_ascii(m, ty.elem, elem, None, None)
            o.close()
            o(f"{m}->asciiEndArray();")
            o.close()

    def is_bool(self, name):
        return name is not None and self.t.types.get(name) == "bool"

    # -- reading
    @staticmethod
    def number(raw, ctype):
        return f"{raw} != 0" if ctype == "bool" else f"static_cast<{ctype}>({raw})"

    def read(self, m, ty, e, name, count, ctype):
        if self.t.binary:
            self.read_binary(m, ty, e, name, count, ctype)
        else:
            self.read_ascii(m, ty, e, name, count, ctype)

    def read_binary(self, m, ty, e, name, count, ctype):
        o, tag = self.o, self.peer_tag(name)
        if ty.is_string():
            o(f"{e} = {m}->getString({tag});")
        elif ty.kind == "u4":
            o(f"{e} = {self.number(f'{m}->getInt32({tag})', ctype)};")
        elif ty.kind == "u1":
            o(f"{e} = {self.number(f'{m}->getInt8({tag})', ctype)};")
        elif ty.kind == "dar":
            n = o.fresh("n")
            o.open("{")
            o(f"int32_t {n} = 0;")
            o(f"{e} = static_cast<uint32_t*>({m}->getCountedArray({tag}, &{n}, 4));")
            o(f"{count} = {n};")
            o.close()
        elif ty.kind == "struct":
            scope = o.fresh("scope")
            o.open("{")
            o(f"STPFieldScope {scope};")
            o(f"{m}->enterScope({tag}, &{scope});")
            self.read_fields(m, ty.fields, e + ".")
            o(f"{m}->leaveScope({scope});")
            o.close()
        elif ty.kind == "list":
            n = o.fresh("n")
            o.open("{")
            o(f"int32_t {n} = {m}->getListCount();")
            self.read_elements(m, ty, e, count, n)
            o.close()

    def read_ascii(self, m, ty, e, name, count, ctype):
        o = self.o
        named = "Named" if name else ""
        arg = f'"{name}"' if name else ""
        if ty.is_string():
            o(f"{e} = {m}->asciiGet{named}String({arg});")
        elif ty.is_number():
            o(f"{e} = {self.number(f'{m}->asciiGet{named}Number({arg})', ctype)};")
        elif ty.kind == "struct":
            scope = o.fresh("scope")
            o.open("{")
            o(f"STPAsciiScope {scope};")
            o(f"{m}->asciiEnter{named}Struct(&{scope}{', ' + arg if name else ''});")
            self.read_fields(m, ty.fields, e + ".")
            o(f"{m}->asciiLeaveStruct({scope});")
            o.close()
        elif ty.kind == "list":
            n, scope = o.fresh("n"), o.fresh("scope")
            o.open("{")
            o(f"STPAsciiScope {scope};")
            o(f"int32_t {n} = {m}->asciiEnter{named}Array(&{scope}{', ' + arg if name else ''});")
            self.read_elements(m, ty, e, count, n)
            o(f"{m}->asciiLeaveArray({scope});")
            o.close()

    def read_elements(self, m, ty, e, count, n):
        # The elements on the wire decide the size, and the count field is set to match, so
        # that no handler is led past the end of the array.
        o = self.o
        elem = self.model.member(ty.elem, None)
        o(f"{count} = {n};")
        o(f"{e} = {n} > 0 ? static_cast<{elem}*>(gen_alloc({n}, sizeof({elem}))) : nullptr;")
        item = self.loop(n, e, const=False)
        self.read(m, ty.elem, item, None, None, elem)
        o.close()

    # -- logging
    def log(self, ty, e, name, count):
        o = self.o
        label = f"{name}:" if name else ""
        if ty.is_string():
            o(f'stp_log->printf("{label}\\"%s\\"", {e} ? {e} : "");')
        elif ty.is_number():
            o(f'stp_log->printf("{label}0x%x", static_cast<unsigned>({e}));')
        elif ty.kind == "struct":
            o(f'stp_log->print("{label}{{");')
            self.log_fields(ty.fields, e + ".", " ")
            o('stp_log->print("}");')
        else:
            # A counted list or raw array: each element and ", "; a list without a count
            # field: "[ ", each element and " ", " ]".
            counted = ty.kind == "dar" or ty.count is not None
            opener = label if counted else label + "[ "
            if opener:
                o(f'stp_log->print("{opener}");')
            elem = self.loop(self.size(e, count), e)
            self.log(ty.elem, elem, None, None)
            o(f'stp_log->print("{", " if counted else " "}");')
            o.close()
            if not counted:
                o('stp_log->print(" ]");')

    # -- freeing
    def free(self, ty, e, count):
        o = self.o
        if ty.is_string() or ty.kind == "dar":
            o(f"gen_free({e});")
        elif ty.kind == "struct":
            o(f"{self.model.structs[ty.text()]}_free(&{e});")
        elif ty.kind == "list":
            if ty.elem.is_string() or ty.elem.kind == "struct":
                elem = self.loop(self.size(e, count), e, const=False)
                self.free(ty.elem, elem, None)
                o.close()
            o(f"gen_free({e});")


def shape(model: Model, ty: Type) -> str:
    return " ".join(f"{n}:{c}" for c, n, _ in model.members(ty.fields))


def emit_records(model: Model, o: Out) -> None:
    """Each record once per program, whichever generated headers a unit includes; a record of
    the same name with another shape fails the build."""
    for name, ty in model.struct_order:
        sig = shape(model, ty)
        guard = f"STP_RECORD_{name}"
        o(f"#ifndef {guard}")
        o(f'#define {guard} "{sig}"')
        o(f"// {ty.text()}")
        o.open(f"struct {name} {{")
        for ctype, member, _ in model.members(ty.fields):
            init = "{}" if ctype in model.structs.values() else \
                (" = nullptr" if ctype.endswith("*") else " = 0")
            o(f"{ctype} {member}{init};")
        o.close("};")
        o("// Frees what the record owns and empties it; the record itself stays.")
        o.open(f"inline void {name}_free({name}* stp_value) {{")
        Emitter(model, o).free_fields(ty.fields, "stp_value->")
        o(f"*stp_value = {name}{{}};")
        o.close()
        o("#endif")
        o(f'static_assert(stp_same_text({guard}, "{sig}"),')
        o(f'              "record {name} has another shape in another protocol");')
        o()


def reply_fields(m: Message) -> List[Field]:
    """The reply fields under their C++ names: `_out` added where a request field has the same
    name, so that both can be parameters of one function."""
    taken = {f.cpp for f in m.request}
    return [f.renamed(f.cpp + "_out") if f.cpp in taken else f for f in (m.reply or [])]


def request_params(model: Model, m: Message) -> List[str]:
    out = []
    for ctype, cpp, f in model.members(m.request):
        if cpp == f.cpp:
            out.append(f"{model.param(ctype, f.type)} {cpp}")
        else:  # the element count of a list without a count field
            out.append(f"int32_t {cpp}")
    return out


def reply_params(model: Model, m: Message) -> List[str]:
    return [f"{ctype}* {cpp}" for ctype, cpp, _ in model.members(reply_fields(m))]


def stub_params(model: Model, m: Message) -> List[str]:
    params = [] if m.has_reply() else ["bool blocking"]
    return params + request_params(model, m) + reply_params(model, m)


def handler_params(model: Model, m: Message) -> List[str]:
    return request_params(model, m) + reply_params(model, m)


BANNER = """\
// {cls}: generated — do not edit. Made by tools/stpgen/stpgen.py from
// {source}; change the table instead."""


def emit_header(model: Model, source: str) -> str:
    t = model.t
    o = Out()
    form = "Binary" if t.binary else "Ascii"
    base = "public virtual STPSpecClass" if t.virtual_base else "public STPSpecClass"
    o(BANNER.format(cls=t.class_name, source=source))
    o("#pragma once")
    o()
    o('#include "indgen.h"')
    o('#include "stp_specclass.h"')
    o()
    o("#include <cstdint>")
    o()
    emit_records(model, o)
    o(f'// Protocol "{t.protocol}", role "{t.role}", {t.body} bodies.')
    o("// Handlers get the decoded request values, which belong to the dispatcher, and fill the")
    o("// reply values, which start empty; strings and arrays they return must come from")
    o("// gen_alloc and are freed by the dispatcher. A stub waits (re-entering the event loop)")
    o("// and returns true when the message went out and, for a request, its reply came; the")
    o("// reply values then belong to the caller. Any out-parameter may be null.")
    o(f"class {t.class_name} : {base} {{")
    o("public:")
    o.depth += 1
    o(f"{t.class_name}();")
    o()
    o("uint32_t defaultLocalRN() override;")
    o("uint32_t defaultRemoteRN() override;")
    o(f"void handle{form}Message(STPMessage* message, STPMessage* reply, int32_t tag) override;")
    if t.sent:
        o()
        o("// Send stubs.")
    for m in t.sent:
        params = stub_params(model, m) + ["RetryHandler* retry = nullptr",
                                          "STPStatus* status = nullptr"]
        o.signature(f"bool {m.name}", params, ";")
    by_name = {m.name: m for m in t.handled}
    if t.handled:
        o()
        o("// Handlers.")
    for name in t.order:
        o.signature(f"virtual void {name}", handler_params(model, by_name[name]), " = 0;")
    o.depth -= 1
    if t.handled:
        o()
        o("private:")
        o.depth += 1
        for m in t.handled:
            o(f"void receive_{m.name}(STPMessage* stp_message, STPMessage* stp_reply);")
        o.depth -= 1
    o("};")
    return o.text()


def row_text(m: Optional[Message], index: int) -> str:
    if m is None:
        return '{"", "", -1, 0x0},'
    return f'{{"{m.name}", "{m.spec}", {index}, 0x{m.flags:x}}},'


def emit_source(model: Model, source: str, header: str) -> str:
    t = model.t
    o = Out()
    cls = t.class_name
    o(BANNER.format(cls=cls, source=source))
    o(f'#include "{header}"')
    o()
    o('#include "stp_log.h"')
    o('#include "stp_message.h"')
    o('#include "stp_packet.h"')
    o('#include "stp_stream.h"')
    o()
    o("namespace {")
    for section in ("handled", "sent"):
        rows = getattr(t, section)
        by_number = {m.number: m for m in rows}
        size = max(by_number) + 1 if rows else 0
        title = section.capitalize()
        o(f"// {title} messages by number, sorted by name; unused numbers are empty rows.")
        o(f"const STPMessageRow k{title}[] = {{")
        o.depth += 1
        for i in range(max(size, 1)):
            o(row_text(by_number.get(i), i))
        o.depth -= 1
        o("};")
        o(f"constexpr int32_t k{title}Count = {size};")
    tags = t.tag_list()
    if tags:
        o("// Field tags by number; a word ending in '!' holds an unused number.")
        o("const char* const kTags[] = {")
        o.depth += 1
        for i in range(0, len(tags), 6):
            o(" ".join(f'"{w}",' for w in tags[i:i + 6]))
        o.depth -= 1
        o("};")
        o("// This end's index of each field name.")
        for number, name in sorted(t.tags.items()):
            o(f"constexpr int32_t kTag_{name} = {number};")
    o("} // namespace")
    o()
    tag_args = f"kTags, {len(tags)}" if tags else "nullptr, 0"
    o(f"{cls}::{cls}() {{")
    o(f'    setProtocol("{t.protocol}", "{t.role}", "{t.vstamp}", 0x{t.flags:x});')
    o(f"    setTables(kHandled, kHandledCount, kSent, kSentCount, {tag_args});")
    o("}")
    o()
    o(f"uint32_t {cls}::defaultLocalRN() {{")
    o(f"    return {t.local_rn};")
    o("}")
    o()
    o(f"uint32_t {cls}::defaultRemoteRN() {{")
    o(f"    return {t.remote_rn};")
    o("}")
    emit_dispatcher(model, o)
    for m in t.handled:
        emit_receive(model, o, m)
    for m in t.sent:
        emit_stub(model, o, m)
    return o.text()


def emit_dispatcher(model: Model, o: Out) -> None:
    t = model.t
    form = "Binary" if t.binary else "Ascii"
    o()
    o.signature(f"void {t.class_name}::handle{form}Message",
                ["STPMessage* message", "STPMessage* reply", "int32_t tag"], " {")
    o.depth += 1
    if not t.binary:
        o("// The body starts with the message's name: consumed here, and the number's source")
        o("// when the sender did not know it.")
        o("int32_t stp_length = 0;")
        o("const char* stp_word = message->asciiGetWord(&stp_length);")
        o("if (tag == -1)")
        o("    tag = findMessageIdN(stp_word, stp_length);")
    o("switch (tag) {")
    for m in t.handled:
        o(f"case {m.number}:")
        o(f"    receive_{m.name}(message, reply);")
        o("    break;")
    o("default:")
    o("    // A number this end does not handle: nothing runs; a wanted reply goes out empty.")
    o("    (void)message;")
    o("    (void)reply;")
    o("    break;")
    o("}")
    o.depth -= 1
    o("}")


def emit_receive(model: Model, o: Out, m: Message) -> None:
    t = model.t
    em = Emitter(model, o)
    reply = reply_fields(m)
    o()
    o.signature(f"void {t.class_name}::receive_{m.name}",
                ["STPMessage* stp_message", "STPMessage* stp_reply"], " {")
    o.depth += 1
    if not m.request:
        o("(void)stp_message;")
    em.declare(m.request)
    em.read_fields("stp_message", m.request, "")
    o(f'if (STPLog* stp_log = openRecord(recvLog, true, "RECV: ", "{m.name}")) {{')
    o.depth += 1
    em.log_fields(m.request, "", ", ")
    o("closeRecord(stp_log, true);")
    o.close()
    em.declare(reply)
    args = [cpp for _, cpp, _ in model.members(m.request)]
    args += [f"&{cpp}" for _, cpp, _ in model.members(reply)]
    o(f"{m.name}({', '.join(args)});")
    if m.has_reply():
        o("if (stp_reply) {")
        o.depth += 1
        em.write_fields("stp_reply", reply, "")
        o(f'if (STPLog* stp_log = openRecord(sendLog, true, "REPLY: ", "{m.name}")) {{')
        o.depth += 1
        em.log_fields(reply, "", ", ")
        o("closeRecord(stp_log, true);")
        o.close()
        o.close()
    else:
        o("(void)stp_reply;")
    em.free_fields(m.request, "")
    em.free_fields(reply, "")
    o.depth -= 1
    o("}")


def emit_stub(model: Model, o: Out, m: Message) -> None:
    t = model.t
    em = Emitter(model, o)
    request = m.has_reply()
    binary = "true" if t.binary else "false"
    kind = f"{binary}, {'true' if request else 'false'}"
    params = stub_params(model, m) + ["RetryHandler* retry", "STPStatus* status"]
    outs = reply_fields(m)
    o()
    o.signature(f"bool {t.class_name}::{m.name}", params, " {")
    o.depth += 1
    o(f"STPStubCall stp_call(this, {m.number}, retry, status);")
    for _, cpp, _ in model.members(outs):
        o(f"if ({cpp})")
        o(f"    *{cpp} = {{}};")
    o(f"if (!stp_call.mayBegin({kind}))")
    o("    return false;")
    o("if (STPLog* stp_log = stp_call.openSendRecord()) {")
    o.depth += 1
    em.log_fields(m.request, "", ", ")
    o("stp_call.closeRecord(stp_log, true);")
    o.close()
    if m.request:
        o(f"STPMessage* stp_message = stp_call.newMessage({kind});")
    else:
        o(f"stp_call.newMessage({kind});")
    em.write_fields("stp_message", m.request, "")
    if not request:
        o("return stp_call.sendOneWay(blocking);")
        o.depth -= 1
        o("}")
        return
    o("STPMessage* stp_reply = stp_call.sendRequest();")
    o("if (stp_reply == nullptr)")
    o("    return false;")
    # The reply is read into locals first and handed over at the end: the caller's pointers may
    # be null, and a value nobody takes is freed.
    values = [f.renamed("stp_r_" + f.cpp) for f in outs]
    em.declare(values)
    em.read_fields("stp_reply", values, "")
    o("if (STPLog* stp_log = stp_call.openRecvRecord()) {")
    o.depth += 1
    em.log_fields(values, "", ", ")
    o("stp_call.closeRecord(stp_log, false);")
    o.close()
    o("delete stp_reply;")
    for (_, local, f), (_, out, _) in zip(model.members(values), model.members(outs)):
        o(f"if ({out})")
        o(f"    *{out} = {local};")
        if local == f.cpp and (f.type.is_string() or f.type.kind in ("struct", "list", "dar")):
            o.open("else {")
            em.free(f.type, local, em.count_of(f, values, ""))
            o.close()
    o("return true;")
    o.depth -= 1
    o("}")


# ---- Driver ------------------------------------------------------------------------------------


def generate(table_path: str, root: Optional[str]) -> Tuple[str, str, str]:
    """(base name, header text, source text) for one table."""
    with open(table_path, encoding="utf-8") as f:
        text = f.read()
    source = os.path.relpath(table_path, root) if root else os.path.basename(table_path)
    source = source.replace(os.sep, "/")
    table = parse_table(source, text)
    model = Model(table)
    base = os.path.splitext(os.path.basename(table_path))[0] + "_impl"
    return base, emit_header(model, source), emit_source(model, source, base + ".h")


def write_if_changed(path: str, text: str) -> bool:
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return False
    except OSError:
        pass
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8") as f:
        f.write(text)
    os.replace(tmp, path)
    return True


def main(argv: List[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("table")
    parser.add_argument("--out-dir", required=True)
    parser.add_argument("--root", help="folder the banner names the table relative to")
    args = parser.parse_args(argv)
    try:
        base, header, source = generate(args.table, args.root)
    except (StpGenError, OSError) as e:
        print(f"stpgen: {e}", file=sys.stderr)
        return 1
    os.makedirs(args.out_dir, exist_ok=True)
    write_if_changed(os.path.join(args.out_dir, base + ".h"), header)
    write_if_changed(os.path.join(args.out_dir, base + ".cpp"), source)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
