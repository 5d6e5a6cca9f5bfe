"""Running programs: the sample update service, callgrind and strace."""

import contextlib
import glob
import os
import shutil
import subprocess
import sys
import tempfile

from figures import read_callgrind, read_strace

# What the programs see of the environment: nothing of the user's, so that counts repeat. With
# PINNED added, the C library also chooses the same routines on every processor.
ENVIRONMENT = {"PATH": "/usr/bin:/bin", "LC_ALL": "C"}

# The routines without AVX, and the sizes from which they change their way of copying.
PINNED = {"GLIBC_TUNABLES": ":".join((
    "glibc.cpu.hwcaps=" + ",".join((
        "-AVX", "-AVX2", "-AVX512F", "-AVX512VL", "-AVX512BW", "-BMI1", "-BMI2", "-LZCNT",
        "-MOVBE", "-POPCNT", "-SSSE3", "-SSE4_1", "-SSE4_2", "-ERMS", "-FSRM", "-RTM",
        "-XSAVE", "-XSAVEC", "-Fast_Unaligned_Copy", "-Slow_BSF")),
    "glibc.cpu.x86_data_cache_size=0x8000",
    "glibc.cpu.x86_shared_cache_size=0x100000",
    "glibc.cpu.x86_non_temporal_threshold=0xc0000",
    "glibc.cpu.x86_rep_movsb_threshold=0x800",
    "glibc.cpu.x86_rep_stosb_threshold=0x800",
))}

PRODUCTS = "examples/sample-products.txt"

# The question that every program of the comparison asks.
QUESTION = ["-product", "Quintral Shapes", "-productline", "Quintral", "-product-version", "5.1",
            "-version-name", "5.1"]


def output_of(command, environment=None):
    """The standard output of a program. Ends the run if the program fails."""
    result = subprocess.run(command, capture_output=True, text=True,
                            env=ENVIRONMENT | (environment or {}))
    if result.returncode != 0:
        sys.exit(f"{' '.join(command)} failed:\n{result.stdout}{result.stderr}")
    return result.stdout


def peer(name):
    """The path of an installed program."""
    path = shutil.which(name)
    return path or sys.exit(f"{name} is missing")


@contextlib.contextmanager
def service(build):
    """Runs the sample update service. Gives its port."""
    command = [f"{build}/examples/sample-update-service", PRODUCTS]
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                               text=True)
    try:
        line = process.stdout.readline()
        if not line.startswith("Listening on "):
            sys.exit("the sample update service did not start")
        yield line.strip().rsplit(":", 1)[1]
    finally:
        process.terminate()
        process.wait()
        process.stdout.close()


def instructions(command, from_start=True, environment=None):
    """The instructions of a program by the names that it gives to the parts of its run; None is
    the name of the last or only part. Without from_start, only those of the parts that it marks."""
    with tempfile.TemporaryDirectory() as folder:
        valgrind = [peer("valgrind"), "--tool=callgrind", f"--callgrind-out-file={folder}/part",
                    f"--instr-atstart={'yes' if from_start else 'no'}"]
        output_of(valgrind + command, environment)
        counts = {}
        for path in glob.glob(f"{folder}/part*"):
            with open(path, encoding="utf-8", errors="replace") as stream:
                name, count = read_callgrind(stream.read())
            counts[name] = count
    return counts


def marked_instructions(command, environment=None):
    """The instructions of each part that the program marks."""
    counts = instructions(command, from_start=False, environment=environment)
    counts.pop(None, None)
    return counts or sys.exit(f"{command[0]} counted nothing")


def system_calls(command, environment=None):
    """The number of system calls by name, those of child processes included."""
    with tempfile.TemporaryDirectory() as folder:
        table = os.path.join(folder, "table")
        output_of([peer("strace"), "-f", "-c", "-o", table] + command, environment)
        with open(table, encoding="utf-8") as stream:
            return read_strace(stream.read())


def fill_tree(root, file_count):
    """Makes a tree of that many empty files, 50 in each folder."""
    for number in range(file_count):
        folder = os.path.join(root, str(number // 50))
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, str(number)), "w", encoding="utf-8"):
            pass


def removal_calls(command, file_count):
    """The system calls with which a command removes a tree, whose path replaces the word TREE."""
    with tempfile.TemporaryDirectory() as folder:
        tree = os.path.join(folder, "tree")
        fill_tree(tree, file_count)
        calls = system_calls([tree if word == "TREE" else word for word in command])
        return calls if not os.path.exists(tree) else sys.exit(f"{command[0]} left {tree}")
