#!/usr/bin/env python3
"""Checks the #include graph between the folders under src/ against the layering:

    app, cli -> engine, stations, library, playback, tools, transfer -> platform

Arrows point only downward; in the middle row only the engine reaches sideways, to the
stations it records and the library it saves into, and the player to the library whose
tracks and transition model it plays. Only src/app includes QtWidgets, and
only src/platform (and the window) include libcurl, D-Bus or Avahi headers.

Usage: check_includes.py SRC_DIR [QTWIDGETS_INCLUDE_DIR]
Prints one line per offending #include and exits 1 when there is any.
With --self-test before SRC_DIR it checks itself instead: exactly the lines of SRC_DIR
marked "// flagged" must be named.
"""
import os
import re
import sys

MIDDLE = ["engine", "stations", "library", "playback", "tools", "transfer"]
ALLOWED = {
    "platform": set(),
    "engine": {"stations", "library", "platform"},
    "playback": {"library", "platform"},
    **{m: {"platform"} for m in MIDDLE if m not in ("engine", "playback")},
    "app": set(MIDDLE) | {"platform"},
    "cli": set(MIDDLE) | {"platform"},
}
MODULES = set(ALLOWED)
# Headers only the platform layer may use (the window may too, through Qt's own APIs).
SYSTEM_PATTERNS = [
    (re.compile(r"^curl/"), "libcurl"),
    (re.compile(r"^(QtDBus/|QDBus|dbus/)"), "D-Bus"),
    (re.compile(r"^avahi-"), "Avahi"),
]
SYSTEM_ALLOWED = {"platform", "app"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def widget_headers(qtwidgets_dir):
    if not qtwidgets_dir or not os.path.isdir(qtwidgets_dir):
        return set()
    return {name for name in os.listdir(qtwidgets_dir)}


def check(src_dir, widgets):
    problems = []
    for module in sorted(os.listdir(src_dir)):
        folder = os.path.join(src_dir, module)
        if not os.path.isdir(folder):
            continue
        if module not in MODULES:
            problems.append(f"src/{module}: a folder the layering does not know; add it to {sys.argv[0]}")
            continue
        for root, _dirs, files in os.walk(folder):
            for name in sorted(files):
                if not name.endswith((".h", ".cpp")):
                    continue
                path = os.path.join(root, name)
                rel = os.path.relpath(path, os.path.dirname(src_dir))
                with open(path, encoding="utf-8", errors="replace") as f:
                    for lineno, line in enumerate(f, 1):
                        m = INCLUDE.match(line)
                        if not m:
                            continue
                        header = m.group(2)
                        why = verdict(module, header, widgets)
                        if why:
                            problems.append(f"{rel}:{lineno}: #include {m.group(1)}{header}"
                                            f"{'>' if m.group(1) == '<' else chr(34)}: {why}")
    return problems


def verdict(module, header, widgets):
    top = header.split("/", 1)[0]
    if "/" in header and top in MODULES and top != module and top not in ALLOWED[module]:
        return f"{module} may not include {top} (arrows only downward)"
    if module != "app" and (top == "QtWidgets" or header in widgets):
        return "only src/app includes QtWidgets"
    if module not in SYSTEM_ALLOWED:
        for pattern, what in SYSTEM_PATTERNS:
            if pattern.match(header):
                return f"{what} is reached through src/platform only"
    return None


def marked_lines(src_dir):
    marked = set()
    for root, _dirs, files in os.walk(src_dir):
        for name in files:
            path = os.path.join(root, name)
            with open(path, encoding="utf-8") as f:
                for lineno, line in enumerate(f, 1):
                    if line.rstrip().endswith("// flagged"):
                        marked.add(f"{os.path.relpath(path, os.path.dirname(src_dir))}:{lineno}")
    return marked


def main():
    args = sys.argv[1:]
    self_test = bool(args) and args[0] == "--self-test"
    if self_test:
        args = args[1:]
    if not args:
        print(__doc__, file=sys.stderr)
        return 2
    src_dir = os.path.abspath(args[0])
    widgets = widget_headers(args[1] if len(args) > 1 else None)
    if not widgets:
        # Without the Qt headers at hand the common widget classes still count.
        widgets = {"QWidget", "QApplication", "QMainWindow", "QDialog", "QPushButton", "QLabel"}
    problems = check(src_dir, widgets)
    if self_test:
        named = {":".join(p.split(":", 2)[:2]) for p in problems}
        expected = marked_lines(src_dir)
        for miss in sorted(expected - named):
            print(f"{miss}: not named")
        for extra in sorted(named - expected):
            print(f"{extra}: named but allowed")
        return 0 if named == expected else 1
    for p in problems:
        print(p)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
