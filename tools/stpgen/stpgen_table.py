"""stpgen's tables: a .stp file read into a Table of messages, tags, records and types, and
checked (stpgen_checks) before anything is made from it."""

import shlex
from dataclasses import dataclass, field
from typing import Dict, List, Optional, Tuple

from stpgen_checks import check_table
from stpgen_spec import Field, StpGenError, Type, parse_spec, parse_type


# ---- Tables ---------------------------------------------------------------------------------

CPP_TYPES = {"bool": "bool", "int32": "int32_t", "uint32": "uint32_t", "uint8": "uint8_t"}

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
