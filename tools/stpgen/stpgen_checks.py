"""stpgen's checks of a parsed table: everything a table must hold before C++ is made from
it, each failure an StpGenError that names the table (and the message or field)."""

from __future__ import annotations

from typing import TYPE_CHECKING, List

from stpgen_spec import Field, StpGenError, Type

if TYPE_CHECKING:
    from stpgen_table import Message, Table


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
