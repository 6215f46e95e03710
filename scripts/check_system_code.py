#!/usr/bin/env python3
"""Keeps the machine inside platform/linux/: the library's other folders
(runtime/, server/, adds/, platform/ outside linux/, and the umbrella header)
hold no preprocessor condition, include no system or outside-library header
(only the C++ standard library's and the project's own) and call no system
function; and none of them, the simulation (platform/sim/) included,
includes a header of platform/linux/. The host programs (examples/), tests,
benches and fuzz targets may do all of this.

    check_system_code.py SOURCE_DIR     exit 0 clean, 1 with one line per breach
"""
import pathlib
import re
import sys

ROOTS = ("runtime", "server", "adds", "platform")
EXEMPT = "platform/linux/"

LINUX_HEADER = re.compile(r'^\s*#\s*include\s*"varnek/platform/linux/')
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif|elifdef|elifndef)\b")
# <sys/...>, <unistd.h>, <cairo.h>, <boost/...>: anything with a "/" or a ".h".
SYSTEM_HEADER = re.compile(r'^\s*#\s*include\s*<([^>]*(/|\.h)[^>]*)>')
# What reaches the machine without a system header: the C library's calls
# that the standard headers declare, std:: facilities over files, clocks and
# threads, any call qualified with the global "::" (as ::close(fd) is), and
# the distinctive POSIX names.
SYSTEM_CALL = re.compile(
    r"\bstd::(filesystem|getenv|system|fopen|freopen|tmpfile|tmpnam|rename|raise|signal|"
    r"setlocale|time|clock|this_thread|thread|jthread|[io]?fstream|"
    r"chrono::(system|steady|high_resolution)_clock)\b"
    r"|(?<![\w.>:])::(?!std\b)(\w+)\s*\("
    r"|(?<![\w.>:])\b(getenv|secure_getenv|setenv|unsetenv|system|popen|fopen|setlocale|mmap|"
    r"munmap|mprotect|madvise|ioctl|fcntl|sigaction|sigaltstack|syscall|sysconf|usleep|nanosleep|"
    r"clock_gettime|gettimeofday|epoll_\w+|openat|pread|pwrite|fork|execv\w*|flock|getpid)\s*\(")


def code_of(line):
    """The line without its // comment and string or character literals."""
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(\\.|[^'\\])*'", "''", line)
    return line.split("//", 1)[0]


def breaches(root):
    files = [root / "varnek.h"]
    for top in ROOTS:
        files += sorted((root / top).rglob("*.h")) + sorted((root / top).rglob("*.cpp"))
    for path in files:
        name = path.relative_to(root).as_posix()
        if name.startswith(EXEMPT):
            continue
        in_block_comment = False
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            if in_block_comment:
                if "*/" not in line:
                    continue
                line, in_block_comment = line.split("*/", 1)[1], False
            if "/*" in code_of(line) and "*/" not in line.split("/*", 1)[1]:
                line, in_block_comment = line.split("/*", 1)[0], True
            where = f"{name}:{number}: "
            if CONDITION.match(line):
                yield where + "a preprocessor condition: " + line.strip()
            elif LINUX_HEADER.match(line):
                yield where + "a Linux implementation's header: " + line.strip()
            elif SYSTEM_HEADER.match(line):
                yield where + "a system header: " + line.strip()
            else:
                call = SYSTEM_CALL.search(code_of(line))
                if call:
                    yield where + "a system call: " + line.strip()


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    found = list(breaches(root))
    for line in found:
        print(line)
    if found:
        print(f"{len(found)} breach(es): move such code into platform/linux/ behind an interface")
        return 1
    print("the machine stays inside platform/linux/")
    return 0


if __name__ == "__main__":
    sys.exit(main())
