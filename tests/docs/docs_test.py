#!/usr/bin/env python3
"""Holds the documents against what they describe: docs/nodes.md against the nodes that simulated
devices and the reference driver serve, and against the driver's parameters; the log tables of
docs/integration.md against the calls in the library's sources.
Takes the command that list_nodes is run by. Prints the differences: what begins with "-" is only in
the document, what begins with "+" is not in it."""

import difflib
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
DEVICES = {"ufs40:samsung": "4.0", "ufs31:samsung": "3.1", "ufs40:micron,platform=mtk": "4.0"}

# How the reference driver declares its nodes, and where each kind of group stands.
ATTRIBUTE = re.compile(r"^(?:static DEVICE_ATTR_(RO|WO|RW)|(STATE|VALUE|NUMBER)_ATTR)\((\w+)", re.M)
MODES = {"RO": "0444", "STATE": "0444", "VALUE": "0444", "WO": "0200", "RW": "0644",
         "NUMBER": "0644"}
GROUP = re.compile(r'\.name = "(\w+)",\s*\.attrs = (\w+)')
CLASS_GROUP = "/sys/class/qe_memory/qe_memory_device/ufshcd0"

# A call of one of the logging macros, with what of it the tables have.
TEXT = r'"(?:[^"\\]|\\.)*"'
CALL = re.compile(
    rf"FBO_LOG(?:([DIE])\(|\(ANDROID_LOG_([DIE])[A-Z]+,\s*([^,]+),)\s*((?:{TEXT}\s*)+)")
# The start of a function, which stands at the start of a line.
FUNCTION = re.compile(r"^[A-Za-z][^\n;={]*?(\w+)\(", re.MULTILINE)


def rows(document, cells):
    """The rows of all tables of a document that have so many cells."""
    for line in (ROOT / "docs" / document).read_text().splitlines():
        row = [cell.strip() for cell in line.split("|")[1:-1]]
        if len(row) == cells:
            yield row


def codes(cell):
    """What stands between backquotes."""
    return re.findall("`([^`]+)`", cell)


def documented_nodes(generation):
    for node, mode, devices, *_ in rows("nodes.md", 5):
        if re.fullmatch("0[0-7]{3}|link|directory", mode):
            assert devices in ("both", "4.0", "3.1"), f"{node} is for {devices}"
            if devices in ("both", generation):
                yield from (f"{mode} {path}" for path in codes(node))


def served_nodes(command, device):
    """The nodes of a device by the names of the document, without the way to the controller,
    what every device has there, and the simulation's own files."""
    listed = subprocess.run([*command, device], stdout=subprocess.PIPE, text=True, check=True).stdout
    listed = re.sub(r"/sys/devices/\S*ufshc[^/]*", "CONTROLLER", listed)
    listed = re.sub(r"/f2fs/dm-\d+/", "/f2fs/DM/", listed)
    others = r" (/(sys/bus|\.sim)/|CONTROLLER/(driver|power|subsystem|uevent)$)"
    return [line for line in listed.splitlines() if not re.search(others, line)]


def driver_nodes(generation):
    """The nodes of the reference driver by the names of the document."""
    source = (ROOT / "driver/nivora_ufs_trial.c").read_text()
    modes = {name: MODES[access or kind] for access, kind, name in ATTRIBUTE.findall(source)}
    own = f"UFS{generation.replace('.', '')}_ATTRS"
    own_members = re.search(rf"#define {own}((?:.*\\\n)+.*)", source)[1]
    for group, attributes in GROUP.findall(source):
        members = re.search(rf"\*{attributes}\[\] = {{(.*?)}};", source, re.DOTALL)[1]
        members = members.replace(own, own_members)
        directory = CLASS_GROUP if CLASS_GROUP.endswith(group) else f"CONTROLLER/{group}"
        for name in re.findall(r"&dev_attr_(\w+)\.attr", members):
            yield f"{modes[name]} {directory}/{name}"


def documented_parameters():
    for names, at_first, _ in rows("nodes.md", 3):
        if re.fullmatch("[-0-9, ]+", at_first):
            values = at_first.split(", ")
            yield from (f"{name} {values[i % len(values)]}" for i, name in enumerate(codes(names)))


def driver_parameters():
    source = (ROOT / "driver/nivora_ufs_trial.c").read_text().replace("PAGE_SIZE", "4096")
    yield from map(" ".join, re.findall(r"^TRIAL_PARAMETER\((\w+), ([-\w]+)", source, re.M))


def documented_lines():
    for functions, priority, line, meaning in rows("integration.md", 4):
        if priority in ("D", "I", "E"):
            assert len(codes(line)) == 1 and meaning, f"not one line and its meaning: {line}"
            yield from (f"{function} {priority} {codes(line)[0]}" for function in codes(functions))


def logged_lines(documented):
    """The lines that the sources log. One whose function is a variable is logged by all those that
    the document names for it."""
    for path in ROOT.glob("fbo/**/*.[ch]*"):
        source = path.read_text()
        calls = list(CALL.finditer(source))
        # No call is worded so that it goes unseen; the macros are no calls.
        expected = len(re.findall(r"FBO_LOG[DIE]?\(", source)) if path.name != "Log.h" else 0
        assert len(calls) == expected, f"{path} has {expected} calls, {len(calls)} are understood"
        for call in calls:
            before = source[:call.start()]
            if call[1]:
                functions = FUNCTION.findall(before)[-1:]
            else:
                functions = re.findall(rf'{re.escape(call[3])}\[\] = "(\w+)"', before)[-1:]
                functions = functions or re.findall(r'^"(\w+)"$', call[3])
            # The reader of the log sees no difference.
            text = "".join(piece[1:-1] for piece in re.findall(TEXT, call[4])).replace("%.*s", "%s")
            line = f" {call[1] or call[2]} {text}"
            if functions:
                yield functions[0] + line
            else:
                named = [other for other in documented if other.partition(" ")[2] == line[1:]]
                yield from named or ["(a variable)" + line]


def check(name, documented, found, least):
    """Compares the two, each of them without repetitions; whether they are the same."""
    assert len(found) > least, f"{name}: {len(found)} found, which cannot be all"
    difference = list(difflib.unified_diff(sorted(documented), sorted(found), name, "found",
                                           n=0, lineterm=""))
    print(*difference, sep="\n", end="\n" * bool(difference))
    return not difference


lines = list(documented_lines())
checks = [check("integration.md", lines, set(logged_lines(lines)), 100),
          check("nodes.md, parameters", documented_parameters(), list(driver_parameters()), 10)]
for device, generation in DEVICES.items():
    checks.append(check(f"nodes.md for {device}", documented_nodes(generation),
                        served_nodes(sys.argv[1:], device), 25))
for generation in ("4.0", "3.1"):
    documented = [node for node in documented_nodes(generation)
                  if re.search(f" (CONTROLLER/ufs|{CLASS_GROUP})", node)]
    checks.append(check(f"nodes.md for the driver of UFS {generation}", documented,
                        list(driver_nodes(generation)), 20))
sys.exit(not all(checks))
