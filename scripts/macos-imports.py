"""Prints what linked macOS programs import, and checks it. scripts/check-macos.sh runs it:

    python3 scripts/macos-imports.py ARCHITECTURE LINKS PROGRAM... -- FRAMEWORK...

Each PROGRAM must be a 64-bit Mach-O executable for the ARCHITECTURE (x86_64 or arm64) that imports
the C library and exactly these frameworks. LINKS is the folder of the frameworks' stubs; together
the programs must import every symbol that these export, so that no stub promises one that the
sources do not use.
"""

import re
import struct
import sys
from collections import namedtuple

# From mach-o/loader.h and mach-o/nlist.h.
MAGIC_64 = 0xFEEDFACF
PROCESSORS = {"x86_64": 0x01000007, "arm64": 0x0100000C}
EXECUTABLE = 2
TWO_LEVEL = 0x80  # each imported symbol names its library
SYMTAB = 0x2
LOAD_LIBRARY = {0xC, 0x20, 0x80000018, 0x8000001F, 0x80000023}  # plain, lazy, weak, re-, upward
BUILD_VERSION = 0x32
LOCAL_MASK = 0xEE  # debugging entries and defined symbols have a bit of it
SYMBOL = struct.Struct("<IBBHQ")

C_LIBRARY = "/usr/lib/libSystem.B.dylib"
FRAMEWORK = "/System/Library/Frameworks/{0}.framework/Versions/A/{0}"

Program = namedtuple("Program", "processor kind flags system imports")


def fail(text):
    sys.exit("macos-imports: " + text)


def text_at(data, position):
    return data[position:data.index(b"\0", position)].decode()


def load_commands(data, count):
    position = 32
    for _ in range(count):
        command, size = struct.unpack_from("<II", data, position)
        yield command, position
        position += size


def symbols_without_definition(data, position):
    """Yields the name and the number of the library of each, which counts from 1."""
    symbols, count, strings = struct.unpack_from("<III", data, position + 8)
    for i in range(count):
        name, kind, _, description, _ = SYMBOL.unpack_from(data, symbols + i * SYMBOL.size)
        if kind & LOCAL_MASK == 0 and kind & 1:
            yield text_at(data, strings + name), description >> 8


def read_program(path):
    with open(path, "rb") as file:
        data = file.read()
    if len(data) < 32 or struct.unpack_from("<I", data)[0] != MAGIC_64:
        fail(f"{path}: not a 64-bit Mach-O file")
    _, processor, _, kind, commands, _, flags, _ = struct.unpack_from("<8I", data)
    system, libraries, symbols = "unknown", [], []
    for command, position in load_commands(data, commands):
        if command in LOAD_LIBRARY:
            start, = struct.unpack_from("<I", data, position + 8)
            libraries.append(text_at(data, position + start))
        elif command == SYMTAB:
            symbols = list(symbols_without_definition(data, position))
        elif command == BUILD_VERSION:
            version, = struct.unpack_from("<I", data, position + 12)
            system = f"{version >> 16}.{version >> 8 & 0xFF}"
    imports = {library: set() for library in libraries}
    for name, library in symbols:
        if not 1 <= library <= len(libraries):
            fail(f"{path}: {name} is not bound to a library")
        imports[libraries[library - 1]].add(name)
    return Program(processor, kind, flags, system, imports)


def check_program(path, program, architecture, frameworks):
    if program.processor != PROCESSORS[architecture]:
        fail(f"{path}: not for {architecture}")
    if program.kind != EXECUTABLE or not program.flags & TWO_LEVEL:
        fail(f"{path}: not an executable that names the library of each symbol")
    expected = {C_LIBRARY} | {FRAMEWORK.format(name) for name in frameworks}
    if set(program.imports) != expected:
        fail(f"{path}: imports {sorted(program.imports)}, expected {sorted(expected)}")


def print_program(path, program, architecture):
    print(f"{path}: {architecture}, macOS {program.system}")
    for library, names in sorted(program.imports.items()):
        shown = " ".join(sorted(names)) or "nothing"
        if library == C_LIBRARY:
            shown = f"{len(names)} symbols"
        print(f"    {library.split('/')[-1]}: {shown}")


def check_stub(links, framework, programs):
    with open(f"{links}/{framework}.framework/{framework}.tbd", encoding="utf-8") as file:
        exported = set(re.findall(r"^ +- (_\w+)$", file.read(), re.MULTILINE))
    library = FRAMEWORK.format(framework)
    imported = set().union(*(program.imports[library] for program in programs))
    if exported != imported:
        fail(f"the stub of {framework} exports what no program uses: {exported - imported}")


def main(architecture, links, *rest):
    paths, frameworks = rest[:rest.index("--")], rest[rest.index("--") + 1:]
    programs = []
    for path in paths:
        program = read_program(path)
        check_program(path, program, architecture, frameworks)
        print_program(path, program, architecture)
        programs.append(program)
    for framework in frameworks:
        check_stub(links, framework, programs)


main(*sys.argv[1:])
