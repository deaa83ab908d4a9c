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

The work is done in stpgen_spec (spec strings), stpgen_table (tables), stpgen_checks (what a
table must hold) and stpgen_emit (the C++ model and text); this module is the driver.
"""

import argparse
import os
import sys
from typing import List, Optional, Tuple

from stpgen_emit import Model, emit_header, emit_source
from stpgen_spec import StpGenError, parse_spec  # noqa: F401 (used by the tests)
from stpgen_table import Table, parse_table  # noqa: F401 (Table: used by the tests)


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
