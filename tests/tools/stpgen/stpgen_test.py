#!/usr/bin/env python3
"""Tests of stpgen: its spec-string parser, the table checks, and golden outputs.

Run directly or through CTest. With UPDATE_GOLDEN=1 set, the golden test rewrites the expected
files from the generator's present output instead of comparing.
"""

import os
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.normpath(os.path.join(HERE, "..", "..", ".."))
GOLDEN = os.path.join(HERE, "golden")
sys.path.insert(0, os.path.join(ROOT, "tools", "stpgen"))

import stpgen  # noqa: E402
from stpgen import StpGenError, parse_spec, parse_table  # noqa: E402


def table(body: str, form: str = "binary") -> stpgen.Table:
    head = f"protocol P\nrole server\nbody {form}\nlocal_rn 2\nremote_rn 1\n"
    return parse_table("t.stp", head + body)


class SpecParserTest(unittest.TestCase):
    def test_plain_fields_and_the_bar(self):
        req, rep = parse_spec("a:%u4% b:%str% ")
        self.assertEqual([f.name for f in req], ["a", "b"])
        self.assertEqual([f.type.kind for f in req], ["u4", "str"])
        self.assertIsNone(rep)
        req, rep = parse_spec("| n:%u4% m:%u4% ")
        self.assertEqual(req, [])
        self.assertEqual([f.name for f in rep], ["n", "m"])
        self.assertEqual(parse_spec(""), ([], None))
        self.assertEqual(parse_spec("x:%fn% | "), (parse_spec("x:%fn% ")[0], []))

    def test_structures(self):
        req, _ = parse_spec("name_list:{count:%u4% data:*(count)[%str%] } ")
        t = req[0].type
        self.assertEqual(t.kind, "struct")
        self.assertEqual([f.name for f in t.fields], ["count", "data"])
        lst = t.fields[1].type
        self.assertEqual((lst.kind, lst.count, lst.elem.kind), ("list", "count", "str"))
        self.assertEqual(t.text(), "{count:%u4% data:*(count)[%str%] }")

        req, _ = parse_spec("rn_list:{count:%u4% data:%dar%(count, %u4%) } ")
        dar = req[0].type.fields[1].type
        self.assertEqual((dar.kind, dar.count, dar.elem.kind), ("dar", "count", "u4"))

        req, _ = parse_spec("w:[%str%] ")
        self.assertEqual((req[0].type.kind, req[0].type.count), ("list", None))

    def test_canonical_text_ignores_blanks(self):
        a = parse_spec("x:{ a:%str%  b:*( a )[ { c:%num% } ] } ")[0][0].type
        b = parse_spec("x:{a:%str% b:*(a)[{c:%num% }] } ")[0][0].type
        self.assertEqual(a.text(), b.text())

    def test_the_largest_spec_string_of_the_system_parses(self):
        spec = ("filename:%str% | history_info:{_display_tags:%num% _file_is_modified:%num% "
                "_version:%str% _status:%str% _tag:%str% _num_items:%num% "
                "_items:*(_num_items)[{_version:%str% _date:%str% _username:%str% "
                "_comments:%str% _numTags:%num% _tags:*(_numTags)[%str%] _is_branch:%num% }] } "
                "error_string:%str% ")
        req, rep = parse_spec(spec)
        self.assertEqual([f.name for f in rep], ["history_info", "error_string"])
        items = rep[0].type.fields[6].type
        self.assertEqual(items.elem.fields[5].type.count, "_numTags")

    def test_broken_specs(self):
        for spec in ("a %u4% ", "a:%u8% ", "a:{b:%str% ", "a:*(n)%str% ", "a:%u4% | b:%u4% | ",
                     "a:%dar%(n %u4%) ", "a:@ "):
            with self.subTest(spec=spec), self.assertRaises(StpGenError):
                parse_spec(spec)


class TableTest(unittest.TestCase):
    def test_tags_derived_when_not_given(self):
        t = table('handled\n0 M 0x02 "b:%u4% a:{count:%u4% data:*(count)[%str%] } "\nend\n')
        self.assertEqual(t.tag_list(), ["a", "b", "count", "data"])

    def test_unused_tag_numbers_get_sorted_words_nobody_uses(self):
        t = table("tags\n1 count\n4 data\n5 data_x\nend\n"
                  'handled\n0 M 0x02 "count:%u4% data:%dar%(count, %u4%) "\nend\n')
        words = t.tag_list()
        self.assertEqual(len(words), 6)
        self.assertEqual(words[1], "count")
        self.assertEqual(words[4], "data")
        self.assertEqual(words, sorted(words))
        self.assertEqual(len(set(words)), 6)
        for w in words[0:1] + words[2:4]:
            self.assertIn("!", w)

    def test_rows_with_gaps_and_handler_order(self):
        t = table('handled\n0 Alpha 0x02 ""\n3 Gamma 0x01 "| x:%str% "\nend\n'
                  "order Gamma Alpha\n", "ascii")
        self.assertEqual([m.number for m in t.handled], [0, 3])
        self.assertEqual(t.order, ["Gamma", "Alpha"])
        self.assertEqual(t.class_name, "P_server_Impl")

    def test_mistakes_are_refused_with_their_place(self):
        cases = {
            "unsorted": 'handled\n0 Beta 0x02 ""\n1 Alpha 0x02 ""\nend\n',
            "repeated number": 'handled\n0 A 0x02 ""\n0 B 0x02 ""\nend\n',
            "reply without flag": 'handled\n0 A 0x02 "| x:%u4% "\nend\n',
            "count not earlier": 'handled\n0 A 0x02 "d:*(n)[%str%] n:%u4% "\nend\n',
            "count not a number": 'handled\n0 A 0x02 "n:%str% d:*(n)[%str%] "\nend\n',
            "ascii type": 'handled\n0 A 0x02 "n:%num% "\nend\n',
            "unknown tag": 'tags\n0 a\nend\nhandled\n0 A 0x02 "b:%u4% "\nend\n',
            "tags unsorted": 'tags\n0 b\n1 a\nend\nhandled\n0 A 0x02 "a:%u4% b:%u4% "\nend\n',
            "both ways": 'handled\n0 A 0x02 ""\nend\nsent\n0 A 0x02 ""\nend\n',
            "repeated field": 'handled\n0 A 0x02 "a:%u4% a:%u4% "\nend\n',
            "reserved name": 'handled\n0 A 0x02 "stp_x:%u4% "\nend\n',
            "bad override": 'type a bool\nhandled\n0 A 0x02 "a:%str% "\nend\n',
            "order incomplete": 'handled\n0 A 0x02 ""\n1 B 0x02 ""\nend\norder B\n',
            "open block": 'handled\n0 A 0x02 ""\n',
            "unknown directive": "colour blue\n",
        }
        for name, body in cases.items():
            with self.subTest(name), self.assertRaises(StpGenError) as ctx:
                table(body)
            self.assertIn("t.stp", str(ctx.exception))
        with self.assertRaises(StpGenError):
            table('handled\n0 A 0x02 "x:%u4% "\nend\n', "ascii")
        with self.assertRaises(StpGenError) as ctx:
            table("tags\n0 a\nend\n", "ascii")
        self.assertIn("no tag table", str(ctx.exception))

    def test_field_types(self):
        t = table("type level int32\ntype on bool\n"
                  'handled\n0 A 0x02 "level:%u4% on:%u1% n:%u4% c:%u4% d:*(c)[%str%] "\nend\n')
        model = stpgen.Model(t)
        types = {name: ctype for ctype, name, _ in model.members(t.handled[0].request)}
        self.assertEqual(types, {"level": "int32_t", "on": "bool", "n": "uint32_t",
                                 "c": "int32_t", "d": "char**"})

    def test_records_are_matched_by_text_wherever_they_stand(self):
        t = table('record Names "{count:%u4% data:*(count)[%str%] }"\n'
                  'handled\n0 A 0x02 "x:{count:%u4% data:*(count)[%str%]} '
                  'y:{inner:{count:%u4%  data:*(count)[%str%] } } "\nend\n')
        model = stpgen.Model(t)
        names = [name for name, _ in model.struct_order]
        self.assertEqual(names, ["Names", "P_A_y"])
        y = t.handled[0].request[1].type
        self.assertEqual(model.member(y.fields[0].type, "inner"), "Names")


class OutputTest(unittest.TestCase):
    def test_outputs_are_rewritten_only_when_changed(self):
        with tempfile.TemporaryDirectory() as d:
            path = os.path.join(d, "x.h")
            self.assertTrue(stpgen.write_if_changed(path, "a\n"))
            before = os.stat(path).st_mtime_ns
            self.assertFalse(stpgen.write_if_changed(path, "a\n"))
            self.assertEqual(os.stat(path).st_mtime_ns, before)
            self.assertTrue(stpgen.write_if_changed(path, "b\n"))

    def test_a_broken_table_fails_the_run_with_its_place(self):
        with tempfile.TemporaryDirectory() as d:
            src = os.path.join(d, "bad_end.stp")
            with open(src, "w") as f:
                f.write('protocol P\nrole server\nbody ascii\nhandled\n0 A 0x02 "a:%u4% "\nend\n')
            err = os.path.join(d, "err.txt")
            saved = sys.stderr
            with open(err, "w") as sys.stderr:
                code = stpgen.main([src, "--out-dir", d])
            sys.stderr = saved
            self.assertEqual(code, 1)
            with open(err) as f:
                self.assertIn("bad_end.stp:5", f.read())
            self.assertFalse(os.path.exists(os.path.join(d, "bad_end_impl.h")))


class GoldenTest(unittest.TestCase):
    """The generator's whole output for the tables in golden/, against the checked-in files."""

    def test_golden_outputs(self):
        update = os.environ.get("UPDATE_GOLDEN") == "1"
        tables = sorted(f for f in os.listdir(GOLDEN) if f.endswith(".stp"))
        self.assertTrue(tables)
        for name in tables:
            base, header, source = stpgen.generate(os.path.join(GOLDEN, name), ROOT)
            for suffix, text in ((".h", header), (".cpp", source)):
                path = os.path.join(GOLDEN, base + suffix)
                if update:
                    stpgen.write_if_changed(path, text)
                    continue
                with self.subTest(path=os.path.basename(path)):
                    with open(path, encoding="utf-8") as f:
                        self.assertEqual(text, f.read(), "run with UPDATE_GOLDEN=1 to accept")

    def test_banner_names_the_table(self):
        _, header, source = stpgen.generate(os.path.join(GOLDEN, "sample_server.stp"), ROOT)
        for text in (header, source):
            self.assertTrue(text.startswith(
                "// Sample_server_Impl: generated — do not edit. Made by tools/stpgen/stpgen.py "
                "from\n// tests/tools/stpgen/golden/sample_server.stp;"))


if __name__ == "__main__":
    unittest.main()
