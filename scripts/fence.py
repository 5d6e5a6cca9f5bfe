#!/usr/bin/env python3
"""Runs a command that may try to remove or kill anything.

Usage: scripts/fence.py FOLDER COMMAND [ARGUMENT...]

The command runs in name spaces of its own (unshare): no other process can be seen, and no file on a
disk be written through its path except below FOLDER, in /proc and in an empty /tmp. FOLDER is not
below /tmp. Needs root, or a system where users may make name spaces. Ends with the status of the
command, or with 99 if the fence cannot be put up.
"""
import ctypes
import os
import re
import subprocess
import sys

UNSHARE = ['unshare', '--mount', '--pid', '--fork', '--kill-child', '--mount-proc']
MS_RDONLY, MS_NOSUID, MS_NODEV, MS_NOEXEC, MS_REMOUNT = 1, 2, 4, 8, 32
MS_NOATIME, MS_NODIRATIME, MS_BIND, MS_RELATIME = 1024, 2048, 4096, 1 << 21
# Flags that a mount has and that must be named again: outside root's own name space the system does
# not let them be dropped.
KEPT = {'nosuid': MS_NOSUID, 'nodev': MS_NODEV, 'noexec': MS_NOEXEC, 'noatime': MS_NOATIME,
        'nodiratime': MS_NODIRATIME, 'relatime': MS_RELATIME}


def cannot(what):
    print(f'fence.py: cannot {what}', file=sys.stderr)
    sys.exit(99)


def mount(source, target, kind, flags):
    libc = ctypes.CDLL(None, use_errno=True)
    words = [os.fsencode(word) if word else None for word in (source, target, kind)]
    if libc.mount(*words, ctypes.c_ulong(flags), None) != 0:
        cannot(f'mount {target}: {os.strerror(ctypes.get_errno())}')


def mounts():
    """(path, flags) of each mount. The system writes some bytes of a path as octal numbers."""
    with open('/proc/self/mountinfo', encoding='utf-8', errors='surrogateescape') as file:
        for line in file:
            fields = line.split(' ')
            path = re.sub(r'\\([0-7]{3})', lambda match: chr(int(match.group(1), 8)), fields[4])
            yield path, sum(KEPT.get(option, 0) for option in fields[5].split(','))


def is_below(path, folder):
    return path == folder or path.startswith(folder.rstrip('/') + '/')


def seal(folder):
    """Makes everything else read-only. The new /tmp hides what is mounted below the old one, and
    the folder's own mount what is mounted below it."""
    mount(folder, folder, None, MS_BIND)
    mount('tmpfs', '/tmp', 'tmpfs', MS_NOSUID | MS_NODEV)
    for path, flags in list(mounts()):
        if not any(is_below(path, left) for left in ('/tmp', '/proc', folder)):
            mount(None, path, None, MS_REMOUNT | MS_BIND | MS_RDONLY | flags)


def run_inside(folder, command):
    try:
        seal(folder)
        os.chdir(os.getcwd())  # through the new mount
    except OSError as error:
        cannot(f'seal: {error}')
    os.execvp(command[0], command)


def main(arguments):
    if arguments[0] == '--inside':  # started by the lines below
        run_inside(arguments[1], arguments[2:])
    folder = os.path.realpath(arguments[0])
    if is_below(folder, '/tmp'):
        cannot('keep a folder below /tmp writable')
    unshare = UNSHARE if os.getuid() == 0 else UNSHARE + ['--map-root-user']
    try:
        possible = subprocess.run(unshare + ['true'], check=False).returncode == 0
    except FileNotFoundError:
        possible = False
    if not possible:
        cannot('make name spaces')
    os.execvp('unshare', unshare + [sys.executable, os.path.abspath(__file__), '--inside', folder] +
              arguments[1:])


if __name__ == '__main__':
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(sys.argv[1:])
