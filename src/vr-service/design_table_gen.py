#!/usr/bin/env python3
"""Turns the hardware design table (vr_designs.csv) into C++ source.

    design_table_gen.py INPUT.csv OUTPUT.cpp

A mistake in the data file stops the build with the line named, so that a
replaced table can never reach the daemon half read.
"""
import csv
import sys

THERMAL = {"", "NT", "XT", "FrontToBack", "BackToFront"}
ORIGIN = {"", "sample"}


def fail(path, line, text):
    sys.exit(f"{path}:{line}: {text}")


def literal(path, line, text):
    if any(not (" " <= c <= "~") for c in text):
        fail(path, line, f"{text!r}: only printable ASCII is allowed")
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def read_table(path):
    prefix = None
    rows = []
    keys = set()
    with open(path, newline="", encoding="ascii") as data:
        for line, fields in enumerate(csv.reader(data), start=1):
            if not fields or fields[0].startswith("#"):
                continue
            if fields[0] == "ubb_part_number_prefix":
                if prefix is not None or len(fields) != 2 or len(fields[1]) != 4:
                    fail(path, line, "one prefix line of four characters")
                prefix = literal(path, line, fields[1])
                continue
            if len(fields) != 5:
                fail(path, line, "want key,revision,design,thermal,origin")
            key, revision, design, thermal, origin = fields
            if not key or key in keys:
                fail(path, line, f"key {key!r} is empty or repeated")
            keys.add(key)
            try:
                number = int(design, 10)
            except ValueError:
                fail(path, line, f"design {design!r} is no decimal number")
            if not -(2**31) <= number < 2**31:
                fail(path, line, f"design {number} does not fit 32 bits")
            if thermal not in THERMAL:
                fail(path, line, f"thermal {thermal!r} is not one of {sorted(THERMAL)}")
            if origin not in ORIGIN:
                fail(path, line, f"origin {origin!r} is not empty or 'sample'")
            rows.append((literal(path, line, key), literal(path, line, revision),
                         number, literal(path, line, thermal)))
    if prefix is None:
        fail(path, 0, "no ubb_part_number_prefix line")
    return prefix, rows


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    source, target = sys.argv[1], sys.argv[2]
    prefix, rows = read_table(source)
    body = "\n".join(f"    {{{k}, {r}, {d}, {t}}}," for k, r, d, t in rows)
    with open(target, "w", encoding="ascii") as out:
        out.write(f"""// Generated from vr_designs.csv by design_table_gen.py: edit the data.
#include "vr-service/design_table.hpp"

#include <iterator>

namespace orvane
{{

namespace
{{

struct Row
{{
    const char* key;
    const char* revision;
    int32_t design;
    const char* thermal;
}};

constexpr Row rows[] = {{
{body}
}};

}} // namespace

std::string_view UbbPartNumberPrefix()
{{
    return {prefix};
}}

VrDesignTable MakeDesignTable()
{{
    VrDesignTable table;
    table.reserve(std::size(rows));
    for (const Row& row : rows)
    {{
        table.push_back(std::make_shared<const VrDesignEntry>(
            VrDesignEntry{{row.key, row.revision, row.design, row.thermal}}));
    }}
    return table;
}}

}} // namespace orvane
""")


if __name__ == "__main__":
    main()
