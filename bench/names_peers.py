"""Writes what the name lookups are measured against: the same names as compiled switches and as gperf input.

usage: names_peers.py DATA_FOLDER OUT_FOLDER
"""

import pathlib
import sys

TABLES = {
    "device_types": "DeviceType",
    "tarn2_message_types": "Tarn2MessageType",
    "tarn_plus_opcodes": "TarnPlusOpcode",
    "tarn1_opcodes": "Tarn1Opcode",
    "tarn1_old_message_types": "Tarn1OldMessageType",
}
PAIR_TABLES = {"tarn1_sub_opcodes": "Tarn1SubOpcode", "tarn_plus_sub_opcodes": "TarnPlusSubOpcode"}


def rows(folder, name, numbers):
    for line in (folder / f"{name}.txt").read_text().splitlines():
        if not line.startswith("#"):
            *codes, text = line.split(" ", numbers)
            yield (*map(int, codes), text)


def switch(out, name, table):
    out.append(f"const char *switch{name}(unsigned int code) {{\n    switch (code) {{")
    for code, text in table:
        value = 'getProductCodename() == 1 ? "WQFW" : "UMKRL"' if name == "DeviceType" and code == 59 else f'"{text}"'
        out.append(f"    case {code}:\n        return {value};")
    out.append('    default:\n        return "UNKNOWN";\n    }\n}\n')


def pair_switch(out, name, table):
    out.append(f"const char *switch{name}(unsigned int group, unsigned int code) {{\n    switch (group) {{")
    for group in sorted({row[0] for row in table}):
        out.append(f"    case {group}:\n        switch (code) {{")
        out += [f'        case {code}:\n            return "{text}";' for g, code, text in table if g == group]
        out.append('        default:\n            return "UNKNOWN";\n        }')
    out.append('    default:\n        return "UNKNOWN";\n    }\n}\n')


def gperf_names(table):
    """Names to device type codes, the lower code of a name that has two."""
    first = {}
    for code, text in table:
        first.setdefault(text, code)
    first.update({"UNKNOWN": 0, "WQFW": 59})
    head = "%struct-type\n%language=ANSI-C\n%define lookup-function-name gperfDeviceType\n" \
           "%define hash-function-name gperfDeviceTypeHash\n%define slot-name name\n%readonly-tables\n%global-table\n" \
           "%define word-array-name gperfDeviceTypeWords\n%{\n#include <product_info.h>\n#include <string.h>\n%}\n" \
           "struct DeviceTypeRow { const char *name; int code; };\n%%\n"
    tail = "%%\n" \
           "int gperfDeviceTypeCode(const char *name) {\n" \
           "    const struct DeviceTypeRow *row = gperfDeviceType(name, strlen(name));\n" \
           "    if (row == 0) {\n        return 255;\n    }\n" \
           "    const char *variant = getProductCodename() == 1 ? \"WQFW\" : \"UMKRL\";\n" \
           "    return row->code != 59 || strcmp(name, variant) == 0 ? row->code : 255;\n}\n"
    return head + "".join(f'"{name}", {code}\n' for name, code in first.items()) + tail


def gperf_pairs(name, table):
    """Pairs as keys of two bytes."""
    head = f"%struct-type\n%language=ANSI-C\n%define lookup-function-name gperf{name}\n" \
           f"%define hash-function-name gperf{name}Hash\n%define slot-name key\n%readonly-tables\n%compare-lengths\n" \
           f"%define word-array-name gperf{name}Words\n%define length-table-name gperf{name}Lengths\n%global-table\n" \
           "%{\n#include <string.h>\n%}\n" \
           f"struct {name}Row {{ const char *key; const char *name; }};\n%%\n"
    tail = f"%%\nconst char *gperf{name}Name(unsigned int group, unsigned int code) {{\n" \
           f"    if (group > 255 || code > 255) {{\n        return \"UNKNOWN\";\n    }}\n" \
           f"    const char key[2] = {{(char)group, (char)code}};\n" \
           f"    const struct {name}Row *row = gperf{name}(key, sizeof key);\n" \
           f"    return row != 0 ? row->name : \"UNKNOWN\";\n}}\n"
    return head + "".join(f'"\\{group:03o}\\{code:03o}", "{text}"\n' for group, code, text in table) + tail


def known_codes(name, table):
    """The codes that have names, for what is looked up in a measurement."""
    codes = ", ".join("{" + ", ".join(map(str, row[:-1])) + "}" for row in table)
    numbers = len(table[0]) - 1
    return f"inline constexpr unsigned char k{name}Known[][{numbers}] = {{{codes}}};\n"


def main(data, out):
    known = ["// Generated.\n#pragma once\n\n"]
    source = ['/* Generated. */\n#include "names_peers.h"\n\n#include <product_info.h>\n']
    for name, function in TABLES.items():
        switch(source, function, list(rows(data, name, 1)))
        known.append(known_codes(function, list(rows(data, name, 1))))
    for name, function in PAIR_TABLES.items():
        pair_switch(source, function, list(rows(data, name, 2)))
        known.append(known_codes(function, list(rows(data, name, 2))))
        (out / f"{name}.gperf").write_text(gperf_pairs(function, list(rows(data, name, 2))))
    (out / "names_known.h").write_text("".join(known))
    (out / "names_switch.c").write_text("\n".join(source))
    (out / "device_types.gperf").write_text(gperf_names(list(rows(data, "device_types", 1))))


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
