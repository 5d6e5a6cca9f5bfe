"""What the figures were taken on: the machine, the compiler and the C library."""

import json
import os
import platform
import re
import shlex
import subprocess


def first_line(command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.split("\n")[0]


def read(path):
    with open(path, encoding="utf-8") as stream:
        return stream.read()


def field(path, name):
    """The value of a line "name: value" or "name:type=value"."""
    found = re.search(rf"^{name}\s*:(?:[A-Z]+=)?\s*(.*)$", read(path), re.MULTILINE)
    return found[1].strip() if found else "unknown"


def compiler(build):
    return first_line([field(f"{build}/CMakeCache.txt", "CMAKE_CXX_COMPILER"), "--version"])


def c_library():
    return first_line(["ldd", "--version"]).removeprefix("ldd ")


def peer_version(name):
    """What the program says of itself, up to the list of its libraries."""
    return first_line([name, "--version"]).split(" (")[0]


def flags(command):
    """The options of a compiler's command line that change the program. Those with a path say where
    files are."""
    wanted = re.compile(r"-(O|f|m|g|std=|pie|no-pie|static|Wl,|D_|DNDEBUG)")
    words = [word for word in shlex.split(command) if wanted.match(word) and "/" not in word]
    return " ".join(dict.fromkeys(words))


def compile_flags(build):
    for entry in json.loads(read(f"{build}/compile_commands.json")):
        if entry["file"].endswith("tool/main.cpp"):
            return flags(entry["command"])
    return "unknown"


def link_flags(build):
    commands = subprocess.run(["ninja", "-C", build, "-t", "commands", "tool/quintral"],
                              check=True, capture_output=True, text=True).stdout
    return flags(commands.strip().split("\n")[-1])


def versions(build):
    """What decides how many instructions and system calls a program makes."""
    return {
        "processor": platform.machine(),
        "compiler": compiler(build),
        "C library": c_library(),
        "valgrind": first_line(["valgrind", "--version"]),
    }


def kernel(release):
    """The system, the first two numbers of its kernel's release, and the architecture."""
    return f"{platform.system()} {'.'.join(release.split('.')[:2])} {platform.machine()}"


def describe(build, static_build):
    """Rows of what the figures were taken on."""
    memory = int(field("/proc/meminfo", "MemTotal").split()[0]) / 1024 / 1024
    return {
        "processor": field("/proc/cpuinfo", "model name"),
        "cores": str(os.cpu_count()),
        "memory": f"{memory:.0f} GiB",
        "kernel": kernel(platform.release()),
        "compiler": compiler(build),
        "flags": compile_flags(build),
        "link flags": link_flags(build),
        "link flags of the static build": link_flags(static_build),
        "C library": c_library(),
        "curl": peer_version("curl"),
        "wget": peer_version("wget"),
        "valgrind": first_line(["valgrind", "--version"]),
    }
