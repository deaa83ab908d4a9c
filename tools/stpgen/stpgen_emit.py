"""stpgen's emitters: the C++ model of a table's values (names and types), and the header and
source of the <Protocol>_<side>_Impl class made from it."""

from typing import Dict, List, Optional, Tuple

from stpgen_spec import Field, Type
from stpgen_table import Message, Table


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
